"""The repository index that the server answers from: a SQLite database
opened read-only, queried with bound parameters only. The queries are those
of index/queries.sql, which the C++ server builds in."""

import bisect
import contextlib
import fcntl
import os
import pathlib
import sqlite3
from typing import NamedTuple, Optional

from kestrune_mcp_responses import ComponentInfo, Reference, Symbol

from .lookup_names import closest, dotted, file_stem, last_part

_BUSY_SECONDS = 2.0
# The highest code point: a name that begins with a prefix sorts below the
# prefix followed by it.
_LAST_CHAR = "\U0010ffff"


def _read_queries(path):
    """The queries of the file at `path` by name: a query begins at a line
    "-- name: NAME" and runs to the next such line; its other comment lines
    and blank lines are left out, its lines joined with "\n" and its final
    ";" dropped."""
    queries = {}
    lines = None
    for line in path.read_text(encoding="utf-8").split("\n"):
        if line.startswith("-- name: "):
            lines = queries.setdefault(line[len("-- name: "):].rstrip(" \t\r"), [])
        elif lines is not None and line.strip(" \t\r") and not line.lstrip(" \t\r").startswith("--"):
            lines.append(line)
    return {name: "\n".join(sql).removesuffix(";") for name, sql in queries.items()}


_QUERIES = _read_queries(pathlib.Path(__file__).resolve().parents[3] / "index" / "queries.sql")


class IndexState(NamedTuple):
    """The indexer's state, as the status tool reports it."""

    status: str
    health: str
    branch: Optional[str]
    progress: int
    files_indexed: int
    symbols_indexed: int
    last_updated: Optional[str]
    errors_count: int
    phase: Optional[str]
    phase_detail: Optional[str]


class SymbolRow(NamedTuple):
    """A symbol with the path of its file, which the record itself leaves out."""

    symbol: Symbol
    file_path: Optional[str]


class Page(NamedTuple):
    """One page of rows and how many match in all."""

    rows: list
    total: int


class WikiState(NamedTuple):
    """The wiki's own facts; the counts come from its pages."""

    built: bool
    branch: str
    enabled: bool
    configured: bool
    pages: int
    files_covered: int
    total_sources: int
    last_built: Optional[str]
    model: Optional[str]
    stale_pages: list


class WikiSection(NamedTuple):
    """A section of a wiki page: its id, heading and body."""

    id: int
    heading: str
    body: str


class WikiPage(NamedTuple):
    """A wiki page with its citations (each with the id of the section that
    cites it first, in `cited_by`), sections, source files and related pages."""

    page_id: str
    title: str
    content: str
    citations: list
    cited_by: list
    sections: list
    source_files: list
    related_pages: list


class IndexDbError(RuntimeError):
    """The database failed, in the C++ server's words."""


def _failed(error):
    return IndexDbError(f"index database: {error}")


def _text_of(data):
    return data.decode("utf-8", "surrogateescape")


def _text(value):
    # A NULL read as text is empty, as the C++ server reads it.
    return "" if value is None else value


def _flag(value):
    return None if value is None else value != 0


def _symbol_row(row):
    fqn, name, kind, file_path, start, end, signature, docstring, is_export, truncated = row
    symbol = Symbol(
        _text(fqn),
        name=name,
        kind=kind,
        start_line=start,
        end_line=end,
        signature=signature,
        docstring=docstring,
        is_export=_flag(is_export),
        docstring_truncated=_flag(truncated),
    )
    return SymbolRow(symbol, file_path)


def _ascii_lower(text):
    """`text` with ASCII letters in lower case, as LIKE compares them."""
    return "".join(chr(ord(c) + 32) if "A" <= c <= "Z" else c for c in text)


def _fts_phrase(text):
    """An FTS5 phrase of `text` with ASCII letters in lower case: in
    symbol_names, which holds fqns and names so, the rows that hold it as a
    substring in the sense of LIKE, which folds ASCII letters only."""
    return '"' + _ascii_lower(text).replace('"', '""') + '"'


def _contains_pattern(text):
    """A LIKE pattern that matches `text` anywhere, its wildcards taken literally."""
    escaped = "".join("\\" + c if c in "%_\\" else c for c in text)
    return "%" + escaped + "%"


def _words_of(text):
    """The runs of letters, digits, underscores and non-ASCII characters of
    `text`, ASCII letters in lower case."""
    words = []
    word = []
    for c in text + " ":
        if ("0" <= c <= "9") or ("a" <= c <= "z") or ("A" <= c <= "Z") or c == "_" or ord(c) >= 0x80:
            word.append(c.lower() if "A" <= c <= "Z" else c)
        elif word:
            words.append("".join(word))
            word = []
    return words


def _ask_query(words):
    """An FTS5 query for `words` (no quotes in them): any of them, and each
    two that follow each other in the question again when they stand near
    each other in a section, so that nearness adds to the score."""
    query = " OR ".join('"' + w + '"' for w in words)
    for first, second in zip(words, words[1:]):
        query += f' OR NEAR("{first}" "{second}", 4)'
    return query


class IndexDb:
    """The index at a path, or none (a missing or empty database), which
    every query reads as not initialized. Queries raise IndexDbError with
    SQLite's message when the database fails."""

    def __init__(self, path):
        """The database at `path`, read-only. A file that does not exist, or
        holds no indexer state, gives an index that is not initialized;
        a file that SQLite cannot read raises IndexDbError."""
        self._path = path
        self._db = self._connect(path)

    def initialized(self):
        """Whether the index holds the indexer's state. One that did not is
        looked at again, so that a server started before an indexer made its
        database answers from it once the indexer has begun."""
        if self._db is None and self._path:
            try:
                self._db = self._connect(self._path)
            except IndexDbError:
                pass  # still not a database: not initialized, as before
        return self._db is not None

    @staticmethod
    def _connect(path):
        if not path or not os.path.exists(path):
            return None
        uri = pathlib.Path(os.path.abspath(path)).as_uri() + "?mode=ro"
        try:
            # An indexer may be writing: a read waits out its brief locks.
            # Transactions are the server's own (snapshot()), none implicit.
            db = sqlite3.connect(uri, uri=True, timeout=_BUSY_SECONDS, isolation_level=None)
            # Text that is not UTF-8 is kept byte for byte, as the C++ server
            # keeps it: each bad byte a lone surrogate, which the response
            # layer writes (and server.py sends) as that byte again.
            db.text_factory = _text_of
            db.execute(_QUERIES["reader_settings"])
        except sqlite3.Error as e:
            raise IndexDbError(f"cannot open {path}: {e}") from None
        try:
            # Without the indexer's state the repository was never indexed.
            has_state = db.execute(_QUERIES["has_state_table"]).fetchone()
            if has_state[0] and db.execute(_QUERIES["has_state"]).fetchone()[0]:
                return db
        except sqlite3.Error as e:
            db.close()
            raise _failed(e) from None
        db.close()
        return None

    @contextlib.contextmanager
    def snapshot(self):
        """One read transaction on an initialized index: every query made in
        it reads the index as one commit left it, so that a page's rows and
        its count agree while an indexer writes. Deferred: the snapshot is
        taken by the first read, and kept to the end."""
        self._all("begin_snapshot")
        try:
            yield
        finally:
            # Nothing was written: ending the transaction is all there is to do.
            self._db.execute(_QUERIES["end_snapshot"])

    def _all(self, name, params=()):
        """The rows of the query `name`."""
        try:
            return self._db.execute(_QUERIES[name], params).fetchall()
        except sqlite3.Error as e:
            raise _failed(e) from None

    def _one(self, name, params=()):
        rows = self._all(name, params)
        return rows[0] if rows else None

    def _count(self, name, params=()):
        row = self._one(name, params)
        return row[0] if row is not None and row[0] is not None else 0

    def _ids(self, name, params=()):
        return [row[0] for row in self._all(name, params)]

    def state(self):
        row = self._one("state")
        if row is not None and row[0] == "indexing" and not self._writer_active():
            # A run holds the writer's lock while it goes on: "indexing"
            # without it is a run that died.
            row = self._one("state_of_stopped_run")
        if row is None:
            raise _failed("no indexer state")
        status, health, branch, progress, files, symbols, updated, errors, phase, detail = row
        return IndexState(
            _text(status), _text(health), branch, progress or 0, files or 0, symbols or 0, updated, errors or 0,
            phase, detail,
        )

    def search(self, query, offset, limit):
        """Symbols whose fqn or name contains `query` (any case; one with "::"
        also in its dotted form), exact names first, then names that begin
        with it, then the rest, each by uses (most first), fqn and id; a
        query of one or two characters finds the names that are it or begin
        with it."""
        if not query:
            return self._every_symbol(offset, limit)
        if "\0" in query:
            return self._nul_search(query, offset, limit)
        # Below three characters a query has no trigram.
        if len(query) < 3:
            return self._short_search(query, offset, limit)
        return self._trigram_search(query, offset, limit)

    def _rows_of(self, ids):
        rows = []
        for symbol_id in ids:
            row = self._one("symbol_by_id", (symbol_id,))
            if row is not None:
                rows.append(_symbol_row(row))
        return rows

    def _every_symbol(self, offset, limit):
        # The empty query: every named symbol by rank, then the unnamed ones.
        total = self._count("symbols_count")
        named = total - self._count("unnamed_count")
        rows = self._all("ranked_named_page", (limit, offset))
        if limit - len(rows) > 0:
            rows += self._all("ranked_unnamed_page", (limit - len(rows), max(offset - named, 0)))
        return Page([_symbol_row(r) for r in rows], total)

    def _short_search(self, query, offset, limit):
        # A query of one or two characters: the names that are it or begin with it.
        last = query + _LAST_CHAR
        total = self._count("short_count", (query, last))
        return Page(self._rows_of(self._ids("short_page", (query, last, limit, offset))), total)

    def _nul_search(self, query, offset, limit):
        # A query that holds a NUL, which LIKE and FTS5 read a pattern up to,
        # by a scan: instr takes it whole, compared in lower case as LIKE
        # compares.
        lower = _ascii_lower(query)
        total = self._count("scan_nul_count", (lower,))
        rows = self._all("scan_nul_page", (lower, query, limit, offset))
        return Page([_symbol_row(r) for r in rows], total)

    def _first_by_rank(self, matches, other, total, n):
        """The first `n` ids in rank order (uses, most first, then fqn and id)
        of the matches whose name `other` takes, of the `total` that it
        takes. Where they are dense, walking the rank's index finds them
        sooner than reading and sorting the rank of every one."""

        def holds(symbol_id):
            at = bisect.bisect_left(matches, symbol_id)
            return at < len(matches) and matches[at] == symbol_id

        ids = []
        symbols = float(self._count("last_symbol_id"))
        if float(n) * symbols < 4.0 * float(total) * float(total):
            try:
                walk = self._db.execute(_QUERIES["ids_by_rank"])
                for symbol_id, name in walk:
                    if len(ids) >= n:
                        break
                    if holds(symbol_id) and other(name):
                        ids.append(symbol_id)
                walk.close()
            except sqlite3.Error as e:
                raise _failed(e) from None
            return ids
        keyed = []
        for symbol_id in matches:
            row = self._one("rank_of_id", (symbol_id,))
            if row is not None and other(row[2]):
                keyed.append((-row[0], _text(row[1]), symbol_id))
        keyed.sort()
        return [symbol_id for *_, symbol_id in keyed[: max(n, 0)]]

    def _trigram_search(self, query, offset, limit):
        # Search through the trigram index: it counts the matches, and gives
        # every matching id where the page needs them. The answer's order is
        # read as three groups, each in rank order: the symbols named `query`,
        # those whose name begins with it (both counted and paged from the
        # name index), and the other matches. Only the page's rows are read
        # whole.
        # A C++ name matches as written and as the dotted fqn of other languages.
        match = _fts_phrase(query)
        if "::" in query:
            match += " OR " + _fts_phrase(dotted(query))
        total = self._count("trigram_count", (match,))
        # A name equal to the query, or beginning with it, holds it: each is a match.
        last = query + _LAST_CHAR
        exact = self._count("named_exactly_count", (query,))
        prefixed = self._count("named_with_prefix_count", (query, last))
        ids = []
        if offset < exact:
            ids += self._ids("named_exactly", (query, limit, offset))
        skip_prefixed = max(offset - exact, 0)
        if limit - len(ids) > 0 and skip_prefixed < prefixed:
            ids += self._ids("named_with_prefix", (query, last, limit - len(ids), skip_prefixed))
        others = total - exact - prefixed
        skip_others = max(offset - exact - prefixed, 0)
        if limit - len(ids) > 0 and skip_others < others:
            lower = _ascii_lower(query)
            ranked = self._first_by_rank(
                self._ids("trigram_matches", (match,)), lambda name: name is None or not _ascii_lower(name).startswith(lower), others,
                skip_others + limit - len(ids),
            )
            ids += ranked[skip_others:]
        return Page(self._rows_of(ids), total)

    def symbol(self, fqn):
        row = self._one("symbol_by_fqn", (fqn,))
        return None if row is None else _symbol_row(row)

    def resolved_fqn(self, name):
        """The fqn that `name`, written as users write it ("::", "/" or "."
        between parts, a module path without its first folders), stands
        for: the shortest fqn that is its dotted form or ends with it after a
        dot. None when none does."""
        whole = dotted(name)
        row = self._one("fqn_ending_with", (last_part(whole), whole))
        return None if row is None else _text(row[0])

    def close_names(self, name):
        """Up to five fqns close to the missed `name`, closest first."""
        whole = dotted(name)
        last = last_part(whole)
        if not last:
            return []
        # Names that begin as it does: with its first three characters, and
        # with its first half (a common start holds too many names for the
        # first).
        head, half = last[:3], last[: max(3, len(last) // 2)]
        asked = [("named_alike", head), ("names_beginning_alike", head)]
        if half != head:
            asked.append(("names_beginning_alike", half))
        candidates = []
        for q, begin in asked:
            candidates += [(_text(f), _text(n)) for f, n in self._all(q, (last, begin, begin + _LAST_CHAR, 50))]
        return closest(last, whole, candidates)

    def resolved_file(self, text):
        """The indexed path that `text` stands for: the shortest that ends
        with it after a slash, else the file of the module it names."""
        row = self._one("file_ending_with", (text,))
        if row is not None:
            return _text(row[0])
        whole = dotted(text)
        row = self._one("module_file", (last_part(whole), whole))
        return None if row is None else _text(row[0])

    def close_files(self, text):
        """Up to five indexed paths close to the missed `text`."""
        stem = file_stem(text)
        if not stem:
            return []
        # Paths that hold the stem's first three characters: a typo after
        # them is still found.
        paths = [_text(r[0]) for r in self._all("files_alike", (_contains_pattern(stem[:3]), 200))]
        return closest(stem, dotted(text), [(p, file_stem(p)) for p in paths])

    def problems(self, offset, limit):
        """What the last run could not index, or not whole: a path (or
        program) and what was wrong, in the order the run met them."""
        total = self._count("problems_count")
        rows = [(_text(path), _text(problem)) for path, problem in self._all("problems_page", (limit, offset))]
        return Page(rows, total)

    def _writer_active(self):
        # The indexer's lock (see indexer/writer_lock.hpp): an
        # exclusive flock on the database file for the whole run.
        try:
            fd = os.open(self._path, os.O_RDONLY | os.O_CLOEXEC)
        except OSError:
            return False
        try:
            fcntl.flock(fd, fcntl.LOCK_SH | fcntl.LOCK_NB)
            return False
        except BlockingIOError:
            return True
        finally:
            os.close(fd)

    def has_file(self, path):
        """Whether the file at `path` is in the index."""
        return self._one("file_indexed", (path,))[0] > 0

    def file_names(self, path):
        """The fqn and kind of each symbol of the file at `path`, by start
        line and fqn."""
        return [(_text(fqn), kind) for fqn, kind in self._all("file_names", (path,))]

    def file_symbols(self, path, offset, limit):
        """A page of those symbols, whole."""
        rows = self._all("file_symbols", (path, limit, offset))
        return [_symbol_row(r) for r in rows]

    def references(self, fqn, offset, limit):
        """The uses of the symbol `fqn`, by file and line."""
        total = self._count("references_count", (fqn,))
        rows = []
        for path, line, caller_fqn, caller_kind, usage in self._all("references_page", (fqn, limit, offset)):
            caller = None if caller_fqn is None else {"fqn": caller_fqn, "kind": caller_kind}
            rows.append(Reference(file_path=path, line=line, caller_symbol=caller, usage_type=usage))
        return Page(rows, total)

    def components(self):
        return [
            ComponentInfo(name=name, layer=layer, path_pattern=pattern, file_count=files, symbol_count=symbols)
            for name, layer, pattern, files, symbols in self._all("components")
        ]

    def wiki_state(self):
        """None when the wiki was never set up."""
        row = self._one("wiki_state")
        if row is None:
            return None
        built, branch, enabled, configured, total_sources, last_built, model, pages, covered = row
        stale = [_text(r[0]) for r in self._all("stale_pages")]
        return WikiState(
            bool(built), _text(branch), bool(enabled), bool(configured), pages or 0, covered or 0,
            total_sources or 0, last_built, model, stale,
        )

    def wiki_pages(self, offset, limit):
        """Page rows (page_id, title, stale, sections) in wiki order."""
        total = self._count("wiki_pages_count")
        rows = [
            {"page_id": _text(page_id), "title": _text(title), "stale": bool(stale), "sections": sections or 0}
            for page_id, title, stale, sections in self._all("wiki_pages_page", (limit, offset))
        ]
        return Page(rows, total)

    def _citation_rows(self, name, key):
        # The citations that query `name` lists for `key` (a section or a page).
        return [
            {"path": _text(path), "line_start": start, "line_end": end}
            for path, start, end in self._all(name, (key,))
        ]

    def _citations(self, section_id):
        return self._citation_rows("section_citations", section_id)

    def wiki_page(self, page_id):
        row = self._one("wiki_page", (page_id,))
        if row is None:
            return None
        cited = self._all("page_citations", (page_id,))
        citations = [{"path": _text(path), "line_start": start, "line_end": end} for path, start, end, _, _ in cited]
        sections = [WikiSection(i, _text(h), _text(b)) for i, h, b in self._all("page_sections", (page_id,))]
        files = [_text(r[0]) for r in self._all("page_source_files", (page_id,))]
        related = [_text(r[0]) for r in self._all("related_pages", (page_id,))]
        return WikiPage(
            _text(row[0]), _text(row[1]), _text(row[2]), citations, [r[3] for r in cited], sections, files, related
        )

    def question_words(self, question):
        """The words of `question` that the ask searches for, in their order,
        each once, in ASCII lower case: runs of letters, digits, underscores
        and non-ASCII characters, less the stop words."""
        stop = {_text(r[0]) for r in self._all("stop_words")}
        words = []
        for word in _words_of(question):
            if word not in stop and word not in words:
                words.append(word)
        return words

    def wiki_sections(self, words, limit):
        """The sections that hold `words`, best first (at most `limit`), as
        the wiki's ask takes them: page_id, title, heading, similarity (1.0
        for the best), stale, excerpt and citations."""
        if not words:
            return []
        match = _ask_query(words)
        rows = self._all("ask_sections", (match, limit))
        return [
            {
                "page_id": _text(page_id),
                "title": _text(title),
                "heading": _text(heading),
                "similarity": float(similarity or 0.0),
                "stale": bool(stale),
                "excerpt": _text(body),
                "citations": self._citations(section_id),
            }
            for section_id, page_id, title, heading, similarity, stale, body in rows
        ]
