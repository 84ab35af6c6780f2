"""Times the native module kestrune_mcp_responses against json, orjson and
the same builders in plain Python (reference.py), under one interpreter,
and prints Markdown tables of medians and ratios with the targets met or not.

    python3 bench/python/run.py [--quick] [--no-memory] [--no-sizes]

The module's output is checked against the plain-Python builders on every
input before that input is timed; a mismatch is printed loudly and makes
the run exit with status 1 after the tables.
"""

import argparse
import datetime
import json
import os
import platform
import sys

import orjson

import kestrune_mcp_responses as m

import corpus
import peak_memory
import reference as ref
from timing import Contender, medians

MISMATCHES = []


def check(what, ours, theirs):
    """Whether the module's `ours` equals plain Python's `theirs`; if not, says so loudly."""
    if ours == theirs:
        return True
    MISMATCHES.append(what)
    at = 0
    if isinstance(ours, (str, list)) and type(ours) is type(theirs):
        at = next((k for k, (a, b) in enumerate(zip(ours, theirs)) if a != b), min(len(ours), len(theirs)))
        ours, theirs = ours[at:], theirs[at:]
    print(f"\n!!!!! MISMATCH: {what}, from [{at}]:\n  module: {str(ours)[:300]}\n  python: {str(theirs)[:300]}\n",
          file=sys.stderr)
    return False


def us(seconds):
    return f"{seconds * 1e6:,.1f}"


def met(ok):
    return "met" if ok else "**not met**"


def table(header, rows, left=1):
    """A Markdown table whose first `left` columns are text, the others numbers."""
    print("| " + " | ".join(header) + " |")
    print("|" + "|".join("---" if k < left else "---:" for k in range(len(header))) + "|")
    for r in rows:
        print("| " + " | ".join(str(c) for c in r) + " |")
    print()


FRESH_COPIES = 500


def encoding(opts):
    print("## 1. Encoding: tool_result_text and tool_result_bytes against json.dumps and orjson\n")
    compact = json.JSONEncoder(separators=(",", ":"), ensure_ascii=False).encode
    same, fresh, parts = [], [], []
    for name, value in corpus.encoding_mix().items():
        text = m.tool_result_text(value)
        check(f"tool_result_text of {name} differs from json.dumps", text, ref.tool_result_text(value))
        check(f"tool_result_bytes of {name}", m.tool_result_bytes(value), text.encode())
        check(f"_encoded_size of {name}", m._encoded_size(value), len(text.encode()))
        encoders = {"ours": m.tool_result_text, "json": ref.tool_result_text, "orjson": orjson.dumps,
                    "orjson_str": lambda v: orjson.dumps(v).decode(), "bytes": m.tool_result_bytes}
        contenders = {k: Contender(fn, value) for k, fn in encoders.items()}
        contenders |= {"fresh " + k: Contender.fresh(fn, lambda: json.loads(text), FRESH_COPIES)
                       for k, fn in encoders.items()}
        contenders |= {"json_encoder": Contender(compact, value), "size": Contender(m._encoded_size, value),
                       "decode": Contender(bytes.decode, text.encode())}
        c = medians(contenders, **opts)
        t = {k: v.median for k, v in c.items()}
        for rows, p in ((same, ""), (fresh, "fresh ")):
            vs_json, vs_str = t[p + "json"] / t[p + "ours"], t[p + "orjson_str"] / t[p + "ours"]
            vs_bytes = t[p + "orjson"] / t[p + "bytes"]
            rows.append([name, f"{len(text.encode()):,}", us(t[p + "ours"]), us(t[p + "json"]),
                         us(t[p + "orjson_str"]), f"{vs_json:.2f}x", f"{vs_str:.2f}x", met(vs_json >= 4),
                         met(vs_str >= 1), us(t[p + "bytes"]), us(t[p + "orjson"]), f"{vs_bytes:.2f}x",
                         met(vs_bytes >= 1)])
        parts.append([name, us(t["json_encoder"]), f"{t['json_encoder'] / t['ours']:.2f}x", us(t["size"]),
                      f"{t['size'] / t['ours']:.2f}", us(t["decode"]), f"{t['decode'] / t['ours']:.2f}",
                      f"{max(x.spread for x in c.values()):.1%}"])
    header = ["response", "bytes", "tool_result_text µs", "json.dumps µs", "orjson + decode µs", "vs json.dumps",
              "vs orjson + decode", "≥ 4x json.dumps", "≥ orjson + decode", "tool_result_bytes µs",
              "orjson.dumps µs", "vs orjson.dumps", "≥ orjson.dumps"]
    print("The same objects encoded again and again (timeit); the str against json.dumps and "
          "orjson.dumps().decode(), the bytes against orjson.dumps:\n")
    table(header, same)
    print(f"Each response encoded once, as a server does: {FRESH_COPIES} copies made by json.loads before "
          "each repetition, so no string has a cached UTF-8 form yet (orjson relies on that cache):\n")
    table(header, fresh)
    print("A json.JSONEncoder made once (json.dumps with separators makes one per call); _encoded_size "
          "(the same walk, counting instead of writing); decoding the text's UTF-8 into a str; and the "
          "widest interquartile range of this response's timings, over its median:\n")
    table(["response", "prebuilt JSONEncoder µs", "vs ours", "_encoded_size µs", "/ ours", "UTF-8 to str µs",
           "/ ours", "widest spread"], parts)


def page_module(symbols, paths, total):
    rows = [m.build_symbol_search_result(s, p) for s, p in zip(symbols, paths)]
    return m.tool_result_text(m.build_paginated_response(rows, total, 0, items_key="symbols"))


def page_python(symbols, paths, total):
    rows = [ref.build_symbol_search_result(s, p) for s, p in zip(symbols, paths)]
    return ref.tool_result_text(ref.build_paginated_response(rows, total, 0, items_key="symbols"))


def rows_module(symbols, paths):
    return [m.build_symbol_search_result(s, p) for s, p in zip(symbols, paths)]


def rows_python(symbols, paths):
    return [ref.build_symbol_search_result(s, p) for s, p in zip(symbols, paths)]


def first_sentences(fn, docstrings):
    return [fn(d) for d in docstrings]


def search_page(opts):
    print("## 2. A 50-row symbol search page: build from records and encode\n")
    symbols, paths, total = corpus.symbol_hits(50, 11)
    rows = rows_module(symbols, paths)
    check("symbol search rows", rows, rows_python(symbols, paths))
    check("symbol search page text", page_module(symbols, paths, total), page_python(symbols, paths, total))
    docstrings = [s.docstring for s in symbols]
    check("first sentences", first_sentences(m.first_sentence, docstrings),
          first_sentences(ref.first_sentence, docstrings))
    page = m.build_paginated_response(list(rows), total, 0, items_key="symbols")
    c = medians({
        "ours": Contender(page_module, symbols, paths, total),
        "python": Contender(page_python, symbols, paths, total),
        "rows_ours": Contender(rows_module, symbols, paths),
        "rows_python": Contender(rows_python, symbols, paths),
        "first_ours": Contender(first_sentences, m.first_sentence, docstrings),
        "first_python": Contender(first_sentences, ref.first_sentence, docstrings),
        "wrap_ours": Contender(lambda r: m.build_paginated_response(r, total, 0, items_key="symbols"), rows),
        "wrap_python": Contender(lambda r: ref.build_paginated_response(r, total, 0, items_key="symbols"), rows),
        "encode_ours": Contender(m.tool_result_text, page),
        "encode_python": Contender(ref.tool_result_text, page),
    }, **opts)
    t = {k: v.median for k, v in c.items()}
    ratio = t["python"] / t["ours"]
    table(["step", "module µs", "plain Python µs", "ratio"], [
        ["build 50 rows + wrap + encode", us(t["ours"]), us(t["python"]), f"{ratio:.2f}x"],
        ["of which: 50 rows", us(t["rows_ours"]), us(t["rows_python"]), f"{t['rows_python'] / t['rows_ours']:.2f}x"],
        ["of which: 50 first sentences alone", us(t["first_ours"]), us(t["first_python"]),
         f"{t['first_python'] / t['first_ours']:.2f}x"],
        ["of which: build_paginated_response", us(t["wrap_ours"]), us(t["wrap_python"]),
         f"{t['wrap_python'] / t['wrap_ours']:.2f}x"],
        ["of which: encode the page", us(t["encode_ours"]), us(t["encode_python"]),
         f"{t['encode_python'] / t['encode_ours']:.2f}x"],
    ])
    print(f"Target at least 3x: {met(ratio >= 3)} ({ratio:.2f}x).\n")


def ask(opts):
    print("## 3. A budgeted wiki ask over 50 sections\n")
    inputs = corpus.ask_inputs(50, 17, excerpt_chars=1200, excerpt_spread=600)
    unbudgeted = ref._encoded_size(ref.build_wiki_ask_response(**inputs))
    budget = unbudgeted * 6 // 10 // ref._BYTES_PER_TOKEN
    ours = m.build_wiki_ask_response(**inputs, token_budget=budget)
    theirs = ref.build_wiki_ask_response(**inputs, token_budget=budget)
    same = check("budgeted ask text", m.tool_result_text(ours), ref.tool_result_text(theirs))
    whole = unbudgeted // ref._BYTES_PER_TOKEN
    for tokens in (None, -1, 0, 100, whole // 10, whole * 4 // 10, whole * 8 // 10, whole, whole + 50 * 50):
        same &= check(f"ask text with token_budget {tokens}",
                      m.tool_result_text(m.build_wiki_ask_response(**inputs, token_budget=tokens)),
                      ref.tool_result_text(ref.build_wiki_ask_response(**inputs, token_budget=tokens)))
    excerpts = [len(s["excerpt"]) for s in theirs["sections"]]
    cut = sum(1 for s, e in zip(inputs["sections"], excerpts) if e < len(ref._trimmed(s["excerpt"], 1200)))
    print(f"Inputs: 50 sections, excerpts of {min(len(s['excerpt']) for s in inputs['sections'])} to "
          f"{max(len(s['excerpt']) for s in inputs['sections'])} characters, 2-6 citations each; "
          f"unbudgeted answer {unbudgeted:,} bytes; token_budget {budget:,} ({budget * 4:,} bytes). "
          f"The result keeps {len(excerpts)} sections, {cut} of them cut, {ref._encoded_size(theirs):,} bytes. "
          f"Module and plain Python give the same text, under this budget and under none, -1, 0, 100, "
          f"10%, 40%, 80% and 100% of the unbudgeted answer's tokens and that plus 200 bytes a section: "
          f"{'yes' if same else 'NO'}.\n")
    c = medians({
        "ours": Contender(lambda: m.build_wiki_ask_response(**inputs, token_budget=budget)),
        "python": Contender(lambda: ref.build_wiki_ask_response(**inputs, token_budget=budget)),
        "ours_free": Contender(lambda: m.build_wiki_ask_response(**inputs)),
        "python_free": Contender(lambda: ref.build_wiki_ask_response(**inputs)),
        "encode_ours": Contender(m.tool_result_text, ours),
        "size_python": Contender(ref._encoded_size, theirs),
        "citations_python": Contender(ref._ask_citations, inputs["sections"], inputs["citations"]),
    }, **opts)
    t = {k: v.median for k, v in c.items()}
    ratio = t["python"] / t["ours"]
    table(["step", "module µs", "plain Python µs", "ratio"], [
        ["budgeted ask", us(t["ours"]), us(t["python"]), f"{ratio:.2f}x"],
        ["ask without a budget", us(t["ours_free"]), us(t["python_free"]),
         f"{t['python_free'] / t['ours_free']:.2f}x"],
        ["one measurement of the result (tool_result_text / len(dumps().encode()))", us(t["encode_ours"]),
         us(t["size_python"]), f"{t['size_python'] / t['encode_ours']:.2f}x"],
        ["one _ask_citations of all 50 sections", "", us(t["citations_python"]), ""],
    ])
    print(f"Target at least 20x: {met(ratio >= 20)} ({ratio:.2f}x).\n")


def memory():
    print("## 4. Peak memory encoding a ~100 MB response (each encoder in a fresh process)\n")
    texts = {"bmp": "ASCII, Latin-1 and other BMP characters", "latin1": "ASCII and Latin-1 only"}
    rows, ours = [], {}
    for text, label in texts.items():
        for name in peak_memory.NAMES:
            r = peak_memory.measure(name, text)
            grown = (r["peak_after"] - r["peak_before"]) / r["text_bytes"]
            mb = 1e6
            rows.append([label, name, f"{r['text_bytes'] / mb:,.1f}", f"{r['current_before'] / mb:,.1f}",
                         f"{r['peak_before'] / mb:,.1f}", f"{r['peak_after'] / mb:,.1f}", f"{grown:.2f}",
                         f"{r['object_bytes'] / r['text_bytes']:.2f}", f"{r['seconds']:.2f}"])
            if name == "tool_result_text":
                ours[label] = grown
    table(["text", "encoder", "text MB (UTF-8)", "RSS before MB", "peak before MB", "peak after MB",
           "(peak - before) / text", "result object / text", "seconds"], rows, left=2)
    for label, grown in ours.items():
        print(f"Target below 2x for tool_result_text, {label}: {met(grown < 2)} ({grown:.2f}x).")
    print()


def builder_calls():
    """(builder, args, kwargs) for each builder of the module but the ask:
    one call each, on the corpus's values."""
    symbols, paths, total = corpus.symbol_hits(50, 11)
    rows = rows_python(symbols, paths)
    symbol = next(s for s in symbols if s.docstring and s.signature)
    path = paths[symbols.index(symbol)]
    fqns = [s.fqn for s in symbols[:20]]
    g = corpus.Gen(31)
    references = corpus.references(g, 1)["references"]
    reference = corpus.Reference(file_path=references[0]["file"], line=references[0]["line"],
                                 caller_symbol={"fqn": references[0]["caller"], "kind": "function"},
                                 usage_type="call")
    ask = corpus.ask_inputs(10, 13)
    return [
        ("build_paginated_response", (rows, total, 0), {"items_key": "symbols"}),
        ("fit_paginated_response", (rows, total, 0, 6000), {"items_key": "symbols"}),
        ("add_pagination_hint", ({"items": rows, "total_count": total, "truncated": True, "offset": 0}, 50), {}),
        ("build_empty_paginated_response", ("symbols",), {}),
        ("get_empty_response", ("search",), {}),
        ("build_index_status_response", ("indexing", "healthy", "main", 40, 1200, 23000, "2026-11-25T10:00:00Z", 0,
                                         "symbols", "1234/5000"), {}),
        ("build_symbol_search_result", (symbol, path), {}),
        ("build_symbol_full_details", (symbol, path), {}),
        ("outline_module", (fqns,), {}),
        ("build_file_symbol", (symbol, ref.outline_module([symbol.fqn, symbol.fqn + ".x"])), {}),
        ("build_reference", (reference, references[0]["code"]), {}),
        ("build_api_endpoint", (symbol, path, "indexer"), {}),
        ("build_component", (corpus.Component("indexer", "domain", "src/kestrune/indexer/**", 12, 340),), {}),
        ("build_test_coverage", ("tests/test_worker.py", "src/kestrune/worker.py", ["Worker", "run"]), {}),
        ("build_wiki_status_response", (), dict(built=True, branch="main", pages=48, files_covered=310,
                                                total_sources=402, coverage_pct=77.1, last_built="2026-11-25",
                                                model="wiki-large", stale_pages=["worker"], enabled=True,
                                                configured=True)),
        ("build_wiki_list_response", ([{"page_id": "p", "title": "T"}] * 20, 48, 0, True), {}),
        ("build_wiki_read_response", (), dict(page_id="worker", title="Worker", content=ask["answer"],
                                              citations=ask["citations"], source_files=["src/a.py"],
                                              related_pages=None)),
        ("first_sentence", (symbol.docstring,), {}),
        ("_cut", (symbol.docstring, 40), {}),
        ("_trimmed", (symbol.docstring, 40), {}),
        ("without_nulls", ({"fqn": symbol.fqn, "name": None, "kind": "function", "file": None, "line": 3},), {}),
        ("_ask_citations", (ask["sections"], ask["citations"]), {}),
        ("call_tool_result", (rows[0],), {"structured": True}),
    ]


def builders(opts):
    print("## 5. Every builder against plain Python\n")
    print("One call of each builder on the corpus's values (the same call of the module and of plain Python's "
          "builder), and, for a builder that returns a dict, a floor: that dict made by a dict display of its "
          "keys and the values at hand (no function called, no attribute read), which any builder, in C or in "
          "Python, must at least do; plain Python over the floor is then the most any builder could reach.\n")
    calls = builder_calls()
    contenders = {}
    for name, args, kwargs in calls:
        ours, theirs = getattr(m, name)(*args, **kwargs), getattr(ref, name)(*args, **kwargs)
        check(f"{name} of the corpus's values", ours, theirs)
        contenders[name, "ours"] = Contender(getattr(m, name), *args, **kwargs)
        contenders[name, "python"] = Contender(getattr(ref, name), *args, **kwargs)
        if isinstance(theirs, dict):
            values = {f"v{i}": v for i, v in enumerate(theirs.values())}
            display = "{" + ", ".join(f"{k!r}: v{i}" for i, k in enumerate(theirs)) + "}"
            contenders[name, "floor"] = Contender.statement(display, **values)
    t = {k: c.median for k, c in medians(contenders, **opts).items()}
    rows = []
    for name, _, _ in calls:
        ratio = t[name, "python"] / t[name, "ours"]
        row = [name, f"{t[name, 'ours'] * 1e9:,.0f}", f"{t[name, 'python'] * 1e9:,.0f}", f"{ratio:.2f}x"]
        if (name, "floor") in t:
            reach = t[name, "python"] / t[name, "floor"]
            row += [f"{t[name, 'floor'] * 1e9:,.0f}", f"{reach:.2f}x",
                    met(ratio >= 3) if reach >= 3 else ("met" if ratio >= 3 else "not reachable")]
        else:
            row += ["", "", met(ratio >= 3)]
        rows.append(row)
    table(["builder", "module ns", "plain Python ns", "ratio", "floor ns", "plain Python / floor", "≥ 3x"], rows)


SIZES = (1_000, 3_000, 10_000, 30_000, 100_000, 300_000, 1_000_000, 3_000_000, 10_000_000, 30_000_000, 100_000_000)


def rpc(result):
    return {"jsonrpc": "2.0", "id": 1, "result": result}


def call_result(text):
    return {"content": [{"type": "text", "text": text}]}


def orjson_line(v):
    return orjson.dumps(rpc(v), option=orjson.OPT_APPEND_NEWLINE)


def orjson_call_line(v):
    return orjson_line(call_result(orjson.dumps(v).decode()))


# Each function of the module timed across the sizes, with its peers in
# plain Python (json) and in orjson: the same result, made as a server
# would make it with them.
SWEPT = {
    "tool_result_text": (m.tool_result_text, ref.tool_result_text, lambda v: orjson.dumps(v).decode()),
    "tool_result_bytes": (m.tool_result_bytes, None, orjson.dumps),
    "_encoded_size": (m._encoded_size, ref._encoded_size, lambda v: len(orjson.dumps(v))),
    "jsonrpc_result_line": (lambda v: m.jsonrpc_result_line(1, v), lambda v: ref.tool_result_text(rpc(v)) + "\n",
                            lambda v: orjson_line(v).decode()),
    "tool_call_line": (lambda v: m.tool_call_line(1, v),
                       lambda v: ref.tool_result_text(rpc(call_result(ref.tool_result_text(v)))) + "\n",
                       lambda v: orjson_call_line(v).decode()),
    "tool_call_line_bytes": (lambda v: m.tool_call_line_bytes(1, v), None, orjson_call_line),
}


def sizes(opts):
    print("## 6. Cost per byte from 1 KB to 100 MB\n")
    print(f"Rows of one shape (corpus.sized_response: about 570 bytes each, a path, a line, a score, a symbol, a "
          f"line of code with escapes, 50 to 600 characters of prose, two tags), {len(SIZES)} sizes from "
          f"{SIZES[0]:,} to {SIZES[-1]:,} bytes, for each kind of text: the narrowest str that holds it is the "
          f"str the module returns. For each kind all sizes and functions are timed in one run, interleaved in "
          f"a fresh random order each round, so every size follows sizes of every kind. ns/B: median time "
          f"over the bytes of the UTF-8 text; × json, × orjson: the peer's time over the module's (json: "
          f"json.dumps as above; orjson: orjson.dumps, with .decode() where the module returns a str; the lines "
          f"are made with two dumps, as a server would make them with either). Flat: the module's worst ns/B "
          f"over its best, at most 1.5x. Copy of the str, of the bytes: `s[1:]` of the result, a new object of that "
          f"size written once, the least any function that returns one pays.\n")
    opts = dict(opts, repeats=max(3, opts["repeats"] // 3))
    flat, beats = [], []
    for text in corpus.TEXTS:
        values = {size: corpus.sized_response(size, text) for size in SIZES}
        floors = {}
        for size, value in values.items():
            expected = ref.tool_result_text(value)
            floors[size] = (expected, expected.encode())
            check(f"tool_result_text of {size:,} bytes of {text} text", m.tool_result_text(value), expected)
            check(f"tool_result_bytes of {size:,} bytes of {text} text", m.tool_result_bytes(value),
                  expected.encode())
            check(f"tool_call_line_bytes of {size:,} bytes of {text} text", m.tool_call_line_bytes(1, value),
                  m.tool_call_line(1, value).encode())
        contenders = {}
        for size, value in values.items():
            for name, fns in SWEPT.items():
                for who, fn in zip(("ours", "json", "orjson"), fns):
                    if fn is not None:
                        contenders[size, name, who] = Contender(fn, value)
            for k, copied in zip(("str", "bytes"), floors[size]):
                contenders[size, k, "copy"] = Contender(copied.__getitem__, slice(1, None))
        t = {k: c.median for k, c in medians(contenders, **opts).items()}
        lengths = {size: len(m.tool_result_bytes(value)) for size, value in values.items()}
        del values, contenders, floors
        print(f"### {text} text\n")
        for group in (("tool_result_text", "tool_result_bytes", "_encoded_size"),
                      ("jsonrpc_result_line", "tool_call_line", "tool_call_line_bytes")):
            header, rows = ["bytes"], []
            for name in group:
                header += [f"{name} ns/B"] + ["× json"] * (SWEPT[name][1] is not None) + ["× orjson"]
            header += ["copy of the str ns/B", "copy of the bytes ns/B"]
            for size in SIZES:
                row = [f"{lengths[size]:,}"]
                for name in group:
                    ours = t[size, name, "ours"]
                    row.append(f"{ours * 1e9 / lengths[size]:.2f}")
                    for who in ("json", "orjson"):
                        if (size, name, who) in t:
                            ratio = t[size, name, who] / ours
                            row.append(f"{ratio:.2f}")
                            beats.append((text, name, who, size, ratio))
                row += [f"{t[size, k, 'copy'] * 1e9 / lengths[size]:.2f}" for k in ("str", "bytes")]
                rows.append(row)
            table(header, rows, left=0)
        for name in SWEPT:
            spreads = {}
            for who in ("ours", "json", "orjson"):
                if (SIZES[0], name, who) in t:
                    costs = [t[size, name, who] / lengths[size] for size in SIZES]
                    spreads[who] = (max(costs) / min(costs), SIZES[costs.index(max(costs))])
            flat.append((text, name, spreads))
    print("Against the targets: flat at most 1.5x, at least 4x json, at least 1x orjson, at every size; beside "
          "flat, how flat the peers are (their worst ns/B over their best, on the same texts):\n")
    rows = []
    for name in SWEPT:
        for text, n, spreads in flat:
            if n != name:
                continue
            spread, worst = spreads["ours"]
            row = [name, text, f"{spread:.2f}x at {worst:,}", met(spread <= 1.5)]
            row += ["{:.2f}x at {:,}".format(*spreads[who]) if who in spreads else "" for who in ("json", "orjson")]
            for who, goal in (("json", 4), ("orjson", 1)):
                ratios = [(r, size) for tx, n2, w, size, r in beats if tx == text and n2 == name and w == who]
                least, at = min(ratios, default=(None, None))
                row += ["", ""] if least is None else [f"{least:.2f}x at {at:,}", met(least >= goal)]
            rows.append(row)
    table(["function", "text", "worst ns/B / best", "flat", "json's", "orjson's", "least × json", "≥ 4x",
           "least × orjson", "≥ 1x"], rows, left=2)


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--quick", action="store_true", help="5 repetitions of 0.01 s (a smoke run)")
    p.add_argument("--no-memory", action="store_true", help="skip the 100 MB peak-memory runs")
    p.add_argument("--no-sizes", action="store_true", help="skip the sweep of sizes from 1 KB to 100 MB")
    args = p.parse_args()
    opts = {"repeats": 5, "min_time": 0.01} if args.quick else {"repeats": 21, "min_time": 0.05}
    print(f"# kestrune_mcp_responses benchmark, {datetime.date.today()}\n")
    print(f"Python {platform.python_version()} ({sys.executable}), orjson {orjson.__version__}, "
          f"module {m.__file__}; {os.cpu_count()} CPUs, load {os.getloadavg()[0]:.2f} at the start; "
          f"medians of {opts['repeats']} interleaved repetitions of at least {opts['min_time']} s each.\n")
    encoding(opts)
    search_page(opts)
    ask(opts)
    if not args.no_memory:
        memory()
    builders(opts)
    if not args.no_sizes:
        sizes(opts)
    if MISMATCHES:
        print("!!!!! MISMATCHES between the module and plain Python:", *MISMATCHES, sep="\n  ", file=sys.stderr)
        sys.exit(1)


if __name__ == "__main__":
    main()
