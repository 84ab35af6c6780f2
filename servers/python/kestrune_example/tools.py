"""The tools: what each takes (its params, which are its input schema) and
how it answers from the index with the response layer's builders."""

from typing import Callable, NamedTuple, Optional

import kestrune_mcp_responses as mr

from .index_db import IndexDb
from .lookup_names import suggestion_text
from .tool_args import Args, InputError, Param, input_schema

DEFAULT_LIMIT = 20
MAX_LIMIT = 100
ASK_SECTIONS = 5
# Outlines and component lists are cut by the budget rather than by a count.
WHOLE_LIST_LIMIT = MAX_LIMIT

_OFFSET = Param("offset", "integer", False, "rows to skip: the offset a truncated page's hint names")
_LIMIT = Param("limit", "integer", False, "most rows in the page (default 20)", (), 1, MAX_LIMIT)
_WHOLE_LIMIT = Param("limit", "integer", False, "most rows in the page (default 100)", (), 1, MAX_LIMIT)

_SEARCH_PARAMS = (
    Param(
        "query",
        "string",
        True,
        "text that the symbol's qualified name or name contains (any case); one or two characters: the start of its "
        "name",
    ),
    _OFFSET,
    _LIMIT,
)
_SYMBOL_PARAMS = (
    Param("fqn", "string", True, 'the symbol\'s fully qualified name ("::", "/" or "." between its parts)'),
)
_FILE_PARAMS = (
    Param("path", "string", True, "the file's path in the repository, or its module's name"),
    _OFFSET,
    _WHOLE_LIMIT,
)
_ARCHITECTURE_PARAMS = (_OFFSET, _WHOLE_LIMIT)
_REFERENCES_PARAMS = (
    Param("fqn", "string", True, "the fully qualified name of the symbol that is used"),
    _OFFSET,
    _LIMIT,
)
_PROBLEMS_PARAMS = (_OFFSET, _LIMIT)
_WIKI_PARAMS = (
    Param(
        "action",
        "string",
        True,
        "what to do: the wiki's status, a list of its pages, read a page, or ask",
        ("status", "list", "read", "ask"),
    ),
    Param("page_id", "string", False, "read: the page to read"),
    Param("query", "string", False, "ask: the question"),
    Param("token_budget", "integer", False, "ask: most tokens of the answer (4 bytes each)", (), 1),
    _OFFSET,
    _LIMIT,
)


class ToolsConfig(NamedTuple):
    """Where the tools read from and how much one answer may hold."""

    index: IndexDb
    root: str  # the work tree that code lines are read from
    page_bytes: int = 10000  # most bytes of any answer's text: what common hosts keep


class ToolAnswer(NamedTuple):
    """A tool's answer and how to send it."""

    response: dict
    structured: bool = False
    is_error: bool = False


def _fits(budget, response):
    return _text_bytes(response) <= budget


def _capped(response, chars):
    # `response` with each string longer than `chars` code points cut to them.
    return {k: mr._cut(v, chars) if isinstance(v, str) and len(v) > chars else v for k, v in response.items()}


def _shrunk(response, fit):
    # `response` whole when `fit` holds for it; else with its strings cut to
    # the most code points for which it does (to one when none does), so
    # that an answer too long for the budget still answers.
    if fit(response):
        return response
    high = max([1] + [len(v) for v in response.values() if isinstance(v, str)])
    low = 1  # fits, or is the floor
    while low < high:
        mid = high - (high - low) // 2
        if fit(_capped(response, mid)):
            low = mid
        else:
            high = mid - 1
    return _capped(response, low)


def _status(c, args):
    s = c.index.state()
    response = mr.build_index_status_response(
        s.status, s.health, s.branch, s.progress, s.files_indexed, s.symbols_indexed,
        s.last_updated, s.errors_count, s.phase, s.phase_detail,
    )
    return _shrunk(response, lambda r: _fits(c.page_bytes, r))


def _fitted_page(c, rows, total, offset, key, budget=None):
    # A page of rows, cut to the budget: its hint names the offset of the
    # first row left out. A first row too long for the budget by itself is
    # shown cut, so that every page goes on from the last.
    budget = c.page_bytes if budget is None else budget
    first = rows[0] if rows and isinstance(rows[0], dict) else None
    page = mr.fit_paginated_response(rows, total, offset, budget, items_key=key)
    if first is None or page[key]:
        return page

    def alone(row):
        return mr.build_paginated_response([row], total, offset, items_key=key)

    return alone(_shrunk(first, lambda row: _fits(budget, alone(row))))


def _fitted_page_after(c, head, rows, total, offset, key):
    # The same page after keys of its own (`head`, not empty): the rows get
    # what the budget leaves. `head`'s text adds itself without its braces,
    # plus a comma.
    head_bytes = _text_bytes(head) - 1
    head.update(_fitted_page(c, rows, total, offset, key, max(c.page_bytes - head_bytes, 0)))
    return head


def _slice(rows, offset, limit):
    # Rows [offset, offset + limit) of a list held whole.
    begin = min(max(offset, 0), len(rows))
    return rows[begin : begin + limit]


def _search(c, args):
    offset = args.integer_or("offset", 0)
    hits = c.index.search(args.string("query"), offset, args.integer_or("limit", DEFAULT_LIMIT))
    rows = [mr.build_symbol_search_result(hit.symbol, hit.file_path) for hit in hits.rows]
    return _fitted_page(c, rows, hits.total, offset, "symbols")


def _named_symbol(c, name):
    # The symbol that `name` names as it is written, or as the index writes it.
    hit = c.index.symbol(name)
    if hit is not None:
        return hit
    fqn = c.index.resolved_fqn(name)
    return None if fqn is None else c.index.symbol(fqn)


def _fitted_details(c, details):
    # A symbol's details within the budget: a docstring too long is trimmed
    # to what fits and marked truncated; should that not do, the other texts
    # are cut too.
    def fit(r):
        return _fits(c.page_bytes, r)

    docstring = details["docstring"]
    if fit(details) or not isinstance(docstring, str):
        return _shrunk(details, fit)

    def with_docstring(chars):
        return {**details, "docstring": mr._trimmed(docstring, chars), "docstring_truncated": True}

    if not fit(with_docstring(0)):
        return _shrunk(with_docstring(0), fit)
    low, high = 0, len(docstring)  # low fits
    while low < high:
        mid = high - (high - low) // 2
        if fit(with_docstring(mid)):
            low = mid
        else:
            high = mid - 1
    return with_docstring(low)


def _symbol(c, args):
    fqn = args.string("fqn")
    hit = _named_symbol(c, fqn)
    if hit is None:
        message = f"No symbol is named {fqn}." + suggestion_text(c.index.close_names(fqn))
        return _shrunk({"found": False, "message": message}, lambda r: _fits(c.page_bytes, r))
    return _fitted_details(c, mr.build_symbol_full_details(hit.symbol, hit.file_path))


def _file(c, args):
    path = args.string("path")
    names = c.index.file_names(path)
    if not names and not c.index.has_file(path):
        found = c.index.resolved_file(path)
        if found is None:
            close = c.index.close_files(path)
            raise InputError("no indexed file at " + mr.quote(path) + ("." + suggestion_text(close) if close else ""))
        path = found
        names = c.index.file_names(path)
    # The module is the one the file's definitions sit in: its own module
    # symbol, when it has one, would make that the module's parent. That row
    # is listed all the same, under its whole fqn.
    fqns = [fqn for fqn, kind in names if kind != "module"]
    if not fqns:
        fqns = [fqn for fqn, _ in names]
    module = mr.outline_module(fqns)
    offset = args.integer_or("offset", 0)
    page = c.index.file_symbols(path, offset, args.integer_or("limit", WHOLE_LIST_LIMIT))
    rows = [mr.build_file_symbol(s.symbol, module) for s in page]
    return _fitted_page_after(c, {"file": path, "module": module}, rows, len(names), offset, "symbols")


def _references(c, args):
    offset = args.integer_or("offset", 0)
    limit = args.integer_or("limit", DEFAULT_LIMIT)
    fqn = args.string("fqn")
    refs = c.index.references(fqn, offset, limit)
    if refs.total == 0 and c.index.symbol(fqn) is None:
        resolved = c.index.resolved_fqn(fqn)
        if resolved is None:
            raise InputError("no symbol is named " + mr.quote(fqn) + "." + suggestion_text(c.index.close_names(fqn)))
        refs = c.index.references(resolved, offset, limit)
    # One read of the work tree for the whole page.
    places = [(r.file_path, r.line) for r in refs.rows if r.file_path is not None and r.line is not None]
    code = mr.code_lines(c.root, places)
    rows = [mr.build_reference(r, code.get((r.file_path, r.line))) for r in refs.rows]
    return _fitted_page(c, rows, refs.total, offset, "references")


def _architecture(c, args):
    components = c.index.components()
    offset = args.integer_or("offset", 0)
    rows = [mr.build_component(x) for x in _slice(components, offset, args.integer_or("limit", WHOLE_LIST_LIMIT))]
    return _fitted_page(c, rows, len(components), offset, "components")


def _problems(c, args):
    offset = args.integer_or("offset", 0)
    found = c.index.problems(offset, args.integer_or("limit", DEFAULT_LIMIT))
    rows = [{"path": path, "problem": problem} for path, problem in found.rows]
    return _fitted_page(c, rows, found.total, offset, "problems")


def _largest_fitting(low, high, fits):
    # The largest k in [low, high] for which `fits(k)` holds, found by
    # halving, `fits` holding for every k up to some bound; `low` when it
    # holds for none.
    while low < high:
        mid = high - (high - low) // 2
        if fits(mid):
            low = mid
        else:
            high = mid - 1
    return low


def _within(response, size):
    return _text_bytes(response) <= size


def _wiki_status(c):
    # The wiki's status; a list of stale pages too long for the budget is
    # cut to the pages that fit (the wiki list marks each stale page).
    s = c.index.wiki_state()
    if s is None:
        return mr.build_wiki_status_response(built=False, branch=c.index.state().branch or "")

    def status(stale):
        return mr.build_wiki_status_response(
            built=s.built,
            branch=s.branch,
            pages=s.pages,
            files_covered=s.files_covered,
            total_sources=s.total_sources,
            coverage_pct=100.0 * s.files_covered / s.total_sources if s.total_sources > 0 else 0.0,
            last_built=s.last_built,
            model=s.model,
            stale_pages=s.stale_pages[:stale],
            enabled=s.enabled,
            configured=s.configured,
        )

    return status(_largest_fitting(0, len(s.stale_pages), lambda n: _within(status(n), c.page_bytes)))


def _fitted_wiki_list(c, rows, total, offset):
    # The list of the longest prefix of `rows` whose text fits the budget (of
    # none when even one row is too long): its truncated flag tells that more
    # follow, from its offset plus its rows.
    def listed(count):
        return mr.build_wiki_list_response(rows[:count], total, offset, offset + count < total)

    return listed(_largest_fitting(0, len(rows), lambda n: _within(listed(n), c.page_bytes)))


def _text_bytes(response):
    return len(mr.tool_result_bytes(response))


class _SectionStart(NamedTuple):
    at: int
    id: int
    heading: str
    found: bool


_BLANK = " \t\r\n"


def _section_starts(page):
    # Where a page's sections start in its text, in code points: the line of
    # a section's heading, found before its body, each body after the one
    # before. A section whose body the text does not hold starts where the
    # one before it does (at 0 for the first).
    text = page.content
    starts = []
    cursor = 0  # the end of the last body found
    last = 0
    for section in page.sections:
        body = text.find(section.body, cursor) if section.body else -1
        if body < 0:
            starts.append(_SectionStart(last, section.id, section.heading, False))
            continue
        line = body
        while line > cursor and text[line - 1] in _BLANK:
            line -= 1
        while line > cursor and text[line - 1] != "\n":
            line -= 1
        last = line
        starts.append(_SectionStart(last, section.id, section.heading, True))
        cursor = body + len(section.body)
    return starts


def _keep_entries(lists, kept):
    # The first `kept` entries of `lists`, taken in their order: `kept`
    # counts through the first list, then the second, and so on.
    out = []
    for entries in lists:
        n = min(kept, len(entries))
        out.append(entries[:n])
        kept -= n
    return out


def _wiki_part(c, page, offset):
    # A wiki page too long for one answer, read in parts that end where a
    # section starts: from code point `offset`, as many whole sections as
    # fit; a section too long for one part is cut at a line's end (or a
    # space) and goes on in the next. The text ends with the way on: the
    # offset to call again with and the section it starts, or that this was
    # the end. Each part carries the citations of the sections that start in
    # it, the first one the page's source files and related pages too; these
    # lists are cut to what half the budget holds.
    length = len(page.content)
    start = min(max(offset, 0), length)
    starts = _section_starts(page)
    # The ends a part may have: the starts of later sections, then the page's end.
    ends = []
    for s in starts:
        if s.found and s.at > start and (not ends or ends[-1].at < s.at):
            ends.append(s)
    homes = {}
    for s in reversed(starts):
        homes[s.id] = s.at

    def end_at(i):
        return ends[i].at if i < len(ends) else length

    def part(end, whole):
        # The part that ends at code point `end`, `whole` when that is where
        # a section starts or the page ends.
        way = "(The page's end.)"
        if end < length and whole:
            heading = next(s.heading for s in ends if s.at == end)
            way = f"(The page goes on with {mr.quote(heading)}: call again with offset={end}.)"
        elif end < length:
            way = f"(The section goes on: call again with offset={end}.)"
        cited = [x for x, by in zip(page.citations, page.cited_by) if start <= homes.get(by, 0) < end]
        lists = [cited, page.source_files, page.related_pages] if start == 0 else [cited, [], []]

        def read(content, kept):
            citations, files, related = _keep_entries(lists, kept)
            return mr.build_wiki_read_response(
                page_id=page.page_id,
                title=page.title,
                content=content,
                citations=citations,
                source_files=files,
                related_pages=related,
            )

        entries = sum(len(x) for x in lists)
        kept = entries
        if not _within(read("", entries), c.page_bytes // 2):
            kept = _largest_fitting(0, entries, lambda n: _within(read("", n), c.page_bytes // 2))
        return read(page.content[start:end] + "\n\n" + way, kept)

    def fits(response):
        return _within(response, c.page_bytes)

    # A part of more code points than the budget has bytes cannot fit: the
    # search need not try it (nor encode it).
    most_ends = 0
    while most_ends <= len(ends) and end_at(most_ends) - start <= c.page_bytes:
        most_ends += 1
    sections = _largest_fitting(0, most_ends, lambda n: n == 0 or fits(part(end_at(n - 1), True)))
    if sections > 0:
        return part(end_at(sections - 1), True)
    # The first section alone is too long: as many of its code points as
    # fit, back to the last line's end (or else space) in their second half;
    # one at least, so that every part goes on.
    most = min(max(end_at(0) - start - 1, 1), c.page_bytes)
    chars = _largest_fitting(1, most, lambda n: fits(part(start + n, False)))
    cut = page.content[start : start + chars]
    for mark in "\n ":
        at = cut.rfind(mark)
        if at >= 0 and (at + 1) * 2 > chars:
            chars = at + 1
            break
    return part(start + chars, False)


_BYTES_PER_TOKEN = 4  # as the ask's token budget counts them


def _named_sections(sections):
    # "HEADING" (page "PAGE"), ... for the best sections of an ask.
    return ", ".join(f"{mr.quote(s['heading'])} (page {mr.quote(s['page_id'])})" for s in sections)


def _wiki_ask(c, question, token_budget):
    # The ask: the sections that hold the question's meaningful words, fitted
    # to the token budget asked for, and never beyond the server's budget.
    # The note says what was found, and when the budget leaves sections out,
    # which are the best, so that the model can read them or ask with a
    # larger budget.
    room = c.page_bytes // _BYTES_PER_TOKEN
    server_bound = token_budget is None or token_budget >= room
    budget = room if server_bound else token_budget

    def ask(sections, note):
        return mr.build_wiki_ask_response(
            mode="sections", query=question, answer=None, sections=sections, note=note, token_budget=budget
        )

    words = c.index.question_words(question)
    if not words:
        return ask(
            [],
            'The question has no word to search for: words such as "how", "do" and "the" are in every page. '
            "Ask with the names or terms the answer holds.",
        )
    sections = c.index.wiki_sections(words, ASK_SECTIONS)
    if not sections:
        return ask([], "No wiki section holds any of the question's words.")
    answer = ask(sections, "No answer model is configured: these are the wiki sections that match, best first.")
    # The note names how many sections the budget keeps, which its own
    # length can change: written again until they agree, a few times at most.
    tries = 0
    while tries < 4 and len(answer["sections"]) < len(sections):
        kept = len(answer["sections"])
        if kept == 0:
            note = "No answer model is configured, and the token budget is too small for any section that matches."
        else:
            note = (
                f"No answer model is configured: the token budget holds the best {kept} of the {len(sections)} "
                "sections that match."
            )
        note += f' The best: {_named_sections(sections)}. Read one with the action "read"'
        note += " (the server's budget holds no more)." if server_bound else ", or ask again with a larger token_budget."
        answer = ask(sections, note)
        tries += 1
        if len(answer["sections"]) == kept:
            break
    return answer


def _wiki(c, args):
    action = args.string("action")
    if action == "status":
        return _wiki_status(c)
    if action == "list":
        offset = args.integer_or("offset", 0)
        pages = c.index.wiki_pages(offset, args.integer_or("limit", DEFAULT_LIMIT))
        return _fitted_wiki_list(c, pages.rows, pages.total, offset)
    if action == "read":
        page_id = args.optional("page_id")
        if page_id is None:
            raise InputError('the read action needs "page_id"')
        page = c.index.wiki_page(page_id)
        if page is None:
            raise InputError("no wiki page " + mr.quote(page_id))
        offset = args.optional("offset")
        if offset is None:
            whole = mr.build_wiki_read_response(
                page_id=page.page_id,
                title=page.title,
                content=page.content,
                citations=page.citations,
                source_files=page.source_files,
                related_pages=page.related_pages,
            )
            if _within(whole, c.page_bytes):
                return whole
        return _wiki_part(c, page, offset or 0)
    query = args.optional("query")
    if query is None:
        raise InputError('the ask action needs "query"')
    # The note and the question echoed may be long: cut to the server's budget.
    return _shrunk(_wiki_ask(c, query, args.optional("token_budget")), lambda r: _fits(c.page_bytes, r))


def _status_output_schema():
    # The status tool's output schema: the keys that every status answer
    # has, the canned one for a repository that is not initialized included.
    text = {"type": "string"}
    count = {"type": "integer"}
    text_or_null = {"type": ["string", "null"]}
    return {
        "type": "object",
        "properties": {
            "status": text,
            "health": text,
            "branch": text_or_null,
            "progress": count,
            "files_indexed": count,
            "symbols_indexed": count,
            "last_updated": text_or_null,
            "errors_count": count,
            "phase": text,
            "phase_detail": text,
        },
        "required": ["status", "health", "branch", "progress", "files_indexed", "symbols_indexed", "errors_count"],
    }


class _Tool(NamedTuple):
    name: str
    description: str
    params: tuple
    run: Callable
    # A tool with an output schema also sends its answers as structuredContent.
    output_schema: Optional[Callable] = None


_TOOLS = (
    _Tool(
        "status",
        "The indexer's state: status, health, branch, progress and counts. The problems tool lists the errors.",
        (),
        _status,
        _status_output_schema,
    ),
    _Tool(
        "search",
        "Find symbols by name. Pages of rows; a truncated page's hint names the offset to go on from.",
        _SEARCH_PARAMS,
        _search,
    ),
    _Tool(
        "symbol",
        "Everything known about one symbol, its whole docstring included (trimmed, and docstring_truncated set, when "
        "too long for one answer). A name that matches no symbol is answered with close names.",
        _SYMBOL_PARAMS,
        _symbol,
    ),
    _Tool(
        "file",
        "The outline of one file: its module and a row per symbol, named relative to the module. Pages of rows, "
        "like search.",
        _FILE_PARAMS,
        _file,
    ),
    _Tool(
        "references",
        "Where a symbol is used, with the line of code at each place. Pages of rows, like search.",
        _REFERENCES_PARAMS,
        _references,
    ),
    _Tool(
        "architecture",
        "The repository's components with their layers and counts. Pages of rows, like search.",
        _ARCHITECTURE_PARAMS,
        _architecture,
    ),
    _Tool(
        "problems",
        "The files that the last index run could not index, or not whole, with the reason. Pages of rows, like "
        "search.",
        _PROBLEMS_PARAMS,
        _problems,
    ),
    _Tool(
        "wiki",
        "The repository's wiki: its status, its pages, one page, or the sections that answer a question. The list "
        "comes in pages: while has_more is true, call again with offset plus the rows it gave. A page too long for "
        "one answer is read in parts; each part's text ends naming the offset to read on from.",
        _WIKI_PARAMS,
        _wiki,
    ),
)
_BY_NAME = {t.name: t for t in _TOOLS}


class Tools:
    def __init__(self, config):
        self._config = config

    @staticmethod
    def list():
        """The result of tools/list: {"tools": [...]}, each with its input
        schema (and the status tool with its output schema)."""
        tools = []
        for t in _TOOLS:
            entry = {"name": t.name, "description": t.description, "inputSchema": input_schema(t.params)}
            if t.output_schema is not None:
                entry["outputSchema"] = t.output_schema()
            tools.append(entry)
        return {"tools": tools}

    @staticmethod
    def exists(name):
        return name in _BY_NAME

    def call(self, name, arguments):
        """Tool `name`'s answer to `arguments`. Arguments that the schema does
        not allow give an error answer (isError) that says what is wrong; an
        index that is not initialized gives the tool's canned answer."""
        tool = _BY_NAME[name]
        structured = tool.output_schema is not None
        try:
            args = Args(arguments, tool.params)
            if not self._config.index.initialized():
                return ToolAnswer(mr.get_empty_response(name), structured)
            with self._config.index.snapshot():
                return ToolAnswer(tool.run(self._config, args), structured)
        except InputError as e:
            return ToolAnswer({"error": e.message}, is_error=True)
