"""Generated inputs that look like what the server's handlers pass in.

Dotted names, Python signatures, docstrings of a few sentences, code lines
with quotes, backslashes and tabs, wiki prose with some non-ASCII text; the
same kinds of values as the C++ benchmark's corpus, from fixed seeds.
Responses are made with the plain-Python builders of reference.py.
"""

import dataclasses
import random

import reference as ref

WORDS = ("index", "symbol", "reader", "cache", "parse", "resolve", "alias", "scope",
         "module", "graph", "edge", "node", "token", "budget", "page", "wiki",
         "section", "query", "store", "commit", "branch", "worker", "daemon", "batch",
         "queue", "path", "file", "line", "range", "span")

PROSE = ("the", "indexer", "walks", "every", "file", "of", "repository", "and",
         "records", "its", "symbols", "with", "their", "references", "when", "a",
         "change", "arrives", "worker", "re-reads", "only", "touched", "files", "so",
         "large", "trees", "stay", "cheap", "to", "keep", "current", "storage",
         "layer", "commits", "batches", "in", "one", "transaction", "readers", "never",
         "see", "half", "written", "state", "café", "naïve", "—", "→",
         "“quoted”", "résumé", "façade", "日本語", "über", "graph", "edges", "point")


@dataclasses.dataclass(frozen=True, slots=True)
class Symbol:
    fqn: str
    name: str | None = None
    kind: str | None = None
    start_line: int | None = None
    end_line: int | None = None
    signature: str | None = None
    docstring: str | None = None
    is_export: bool | None = None
    docstring_truncated: bool | None = None


@dataclasses.dataclass(frozen=True, slots=True)
class Reference:
    file_path: str | None = None
    line: int | None = None
    caller_symbol: dict | None = None
    usage_type: str | None = None


@dataclasses.dataclass(frozen=True, slots=True)
class Component:
    name: str
    layer: str | None
    path_pattern: str
    file_count: int
    symbol_count: int


class Gen:
    def __init__(self, seed, vocabulary=PROSE):
        self.rng = random.Random(seed)
        self.vocabulary = vocabulary
        self.since_stop = 0

    def below(self, n):
        return self.rng.randrange(n)

    def chance(self, percent):
        return self.below(100) < percent

    def word(self):
        return self.rng.choice(WORDS)

    def identifier(self, parts):
        return "_".join(self.word() for _ in range(parts))

    def class_name(self):
        return "".join(self.word().capitalize() for _ in range(1 + self.below(2)))

    def prose(self, chars, paragraphs=False):
        """Sentences, each capitalized and ended with a full stop, about `chars` characters."""
        out, size, start = [], 0, True
        while size < chars:
            w = self.rng.choice(self.vocabulary)
            if start and "a" <= w[0] <= "z":
                w = w[0].upper() + w[1:]
            self.since_stop += 1
            start = self.since_stop > 9 and self.chance(20)
            if start:
                w += "."
                self.since_stop = 0
                if paragraphs and self.chance(15):
                    w += "\n\n  "
            out.append(w)
            size += len(w) + 1
        return " ".join(out) + "."


def module_name(g):
    return f"kestrune.{g.word()}.{g.identifier(2)}"


def file_of(module):
    return "src/" + module.replace(".", "/") + ".py"


def symbol(g, module):
    kind = g.rng.choice(("function", "method", "class", "variable"))
    name = g.class_name() if kind == "class" else g.identifier(1 + g.below(3))
    fqn = module + ("." + g.class_name() if kind == "method" else "") + "." + name
    if kind == "class":
        signature = f"class {name}(Base{g.class_name()}):"
    elif kind == "variable":
        signature = None
    else:
        signature = (f"def {name}(self, {g.identifier(1)}: str, {g.identifier(2)}: int | None = None)"
                     f" -> {g.class_name()} | None")
    start = 1 + g.below(2000)
    docstring = None if g.chance(15) else g.prose(60 + g.below(300), paragraphs=True)
    return Symbol(fqn=fqn, name=name, kind=kind, start_line=start, end_line=start + g.below(40),
                  signature=signature, docstring=docstring)


def symbol_hits(n, seed):
    """`n` symbols as a search returns them, with their resolved paths and the total."""
    g = Gen(seed)
    symbols, paths = [], []
    for _ in range(n):
        module = module_name(g)
        symbols.append(symbol(g, module))
        paths.append(file_of(module))
    return symbols, paths, 3 * n


def symbol_page(symbols, paths, total):
    rows = [ref.build_symbol_search_result(s, p) for s, p in zip(symbols, paths)]
    return ref.build_paginated_response(rows, total, 0, items_key="symbols")


def outline(g, n=40):
    module = module_name(g)
    symbols = [symbol(g, module) for _ in range(n)]
    shared = ref.outline_module(s.fqn for s in symbols)
    rows = [ref.build_file_symbol(s, shared) for s in symbols]
    return ref.build_paginated_response(rows, n, 0, items_key="symbols")


def code_line(g):
    """A line of code as code_lines returns it: string literals, escapes, tabs."""
    a, b = g.identifier(2), g.identifier(1)
    return (
        f'{a} = re.compile(r"\\s+\\"(?P<{b}>[^\\"]+)\\"")\t# match "{b}"',
        f'path = "C:\\\\Users\\\\dev\\\\{a}\\\\{b}.py"\t\t# windows form',
        f'print(f"{{{a}}}:\\t{{{b}!r}}", file=sys.stderr)',
        f'return self._{a}({b}, sep="\\n", quote=\'"\')',
        f"if {a} is None:\t# {g.prose(30)}",
    )[g.below(5)]


def references(g, n=50):
    rows = []
    for _ in range(n):
        module = module_name(g)
        r = Reference(file_path=file_of(module), line=1 + g.below(3000),
                      caller_symbol={"fqn": f"{module}.{g.identifier(2)}", "kind": "function"},
                      usage_type="call" if g.chance(70) else "import")
        rows.append(ref.build_reference(r, code_line(g)))
    return ref.build_paginated_response(rows, 340, 0, items_key="references")


def citation(g):
    start = 1 + g.below(900)
    return {"path": file_of(module_name(g)), "line_start": start,
            "line_end": start + g.below(30), "symbol": g.identifier(2)}


def ask_inputs(sections, seed, excerpt_chars=1300, excerpt_spread=600):
    """The named inputs of an ask over `sections` sections of prose, 2 to 6
    citations each, with an answer, extra citations and every attachment."""
    g = Gen(seed)
    rows = []
    for k in range(sections):
        cites = [citation(g) for _ in range(2 + g.below(5))]
        rows.append({"page_id": f"{g.word()}-{g.word()}",
                     "title": f"{g.class_name()} overview",
                     "heading": f"How the {g.word()} works",
                     "similarity": 0.9 - 0.01 * k - g.rng.random() * 0.005,
                     "stale": g.chance(20),
                     "excerpt": g.prose(excerpt_chars + g.below(excerpt_spread)),
                     "citations": cites})
    return {
        "mode": "answer",
        "query": f"How does the {g.word()} keep the {g.word()} current?",
        "answer": g.prose(900),
        "sections": rows,
        "citations": [citation(g) for _ in range(4)],
        "model": "wiki-answer-large",
        "tokens": {"prompt": 5123, "completion": 611},
        "note": "Answered from the wiki; two pages are stale.",
        "decisions": {"calls": 2, "tokens": 812, "cost": 0.0021, "dropped": ["a#b"]},
        "code": {"path": "src/kestrune/indexer/worker.py", "text": g.prose(600)},
        "memories": {"items": [g.prose(200), g.prose(200)]},
    }


def doubles(g, n=1000):
    """Similarity scores, rounded percentages and values across twelve orders of magnitude."""
    scores = {}
    for k in range(n):
        if k % 4 < 2:
            v = g.rng.random()
        elif k % 4 == 2:
            v = round(g.rng.random() * 10000.0) / 100.0
        else:
            v = 10.0 ** (g.rng.random() * 12.0 - 6.0)
        scores[f"m{k:04d}"] = v
    return scores


def encoding_mix():
    """The responses of the encoding table, by name, in table order."""
    g = Gen(2024)
    return {
        "symbol search page, 50 rows": symbol_page(*symbol_hits(50, 11)),
        "file outline, 40 rows": outline(g),
        "references with code, 50 rows": references(g),
        "wiki ask, 10 sections": ref.build_wiki_ask_response(**ask_inputs(10, 13)),
        "map of 1,000 doubles": doubles(g),
    }


def big_response(target_bytes, latin1=False, seed=7):
    """A list of rows whose compact text is about `target_bytes` bytes: each
    row a dict of distinct strings (slices of one long stretch of prose, so
    mixed ASCII, Latin-1 and, unless `latin1`, other BMP characters such as
    "→" and "日本語"), an int, a float and a list."""
    g = Gen(seed, [w for w in PROSE if max(map(ord, w)) < 256] if latin1 else PROSE)
    stretch = g.prose(1 << 20)
    rows, size = [], 0
    while size < target_bytes:
        at = g.below(len(stretch) - 2100)
        text = stretch[at:at + 200 + g.below(1800)]
        module = module_name(g)
        row = {"path": file_of(module), "line": 1 + g.below(5000), "score": g.rng.random(),
               "symbol": f"{module}.{g.identifier(2)}", "text": text,
               "tags": [g.word(), g.word() + "é"]}
        rows.append(row)
        size += 130 + len(text.encode()) + 2 * len(row["path"])
    return {"rows": rows, "total_count": len(rows)}


# The texts of the size sweep: the prose words whose characters fit the
# narrowest str that holds them, and with each a word that every row carries,
# so that every response, however short, has its kind of text.
TEXTS = {
    "ASCII": ([w for w in PROSE if w.isascii()], "plain"),
    "Latin-1": ([w for w in PROSE if max(map(ord, w)) < 0x100], "café"),
    "BMP": (PROSE, "日本語"),
    "astral": (PROSE + ("😀", "𝔘𝔫𝔦𝔠𝔬𝔡𝔢", "🚀"), "😀"),
}


def sized_response(target_bytes, text, seed=5):
    """A page of rows of one shape whose compact text is about
    `target_bytes` bytes (at least two rows of about 500): each a path, a
    line, a score, a symbol, a line of code with quotes, backslashes and tabs,
    50 to 600 characters of prose of TEXTS[text] and two tags. The prose is
    sliced from one long stretch, so that large responses are quick to make;
    every row holds strings of its own."""
    vocabulary, marker = TEXTS[text]
    g = Gen(seed, vocabulary)
    stretch = g.prose(min(1 << 20, 2 * target_bytes + 4096))
    rows, size = [], 0
    while size < target_bytes or len(rows) < 2:
        at = g.below(len(stretch) - 600)
        module = module_name(g)
        row = {"file": file_of(module), "line": 1 + g.below(5000), "score": g.rng.random(),
               "symbol": f"{module}.{g.identifier(2)}", "code": code_line(g),
               "text": stretch[at:at + 50 + g.below(550)], "tags": [g.word(), marker]}
        rows.append(row)
        size += 110 + sum(len(v.encode()) for v in row.values() if isinstance(v, str)) + len(marker.encode())
    return {"rows": rows, "total_count": len(rows)}
