#!/usr/bin/env python3
"""Runs two builds of the mcp-responses tool on the same random requests and
compares their answers and log lines byte for byte.

  scripts/differential-tool.py OLD_TOOL NEW_TOOL [--requests 20000] [--seed 1]

Every call is drawn, with arguments of the right kinds and of wrong ones,
missing and unknown arguments, text with escapes, non-ASCII and whitespace
of every width, doubles at the layout's thresholds, ask budgets around the
answer's size, and code_lines over a small work tree with links, a directory
and a missing file. Exits 1 and prints the first differences when the two
builds disagree; a refactoring must leave every byte as it was.

tests/python/test_calls.py imports the generator (Gen, CALLS, make_tree,
dump) to send the same requests to the Python module.
"""
import argparse
import json
import math
import os
import random
import subprocess
import sys
import tempfile

PIECES = ["a", "word ", "é", "漢字", "😀", '"', "\\", "\n", "\t", "\x01", " ", "\u2028", "\u00a0", ".", "!", "?",
          "  ", "\u3000", "x.y", "\x7f", "/", "\r\n", "\u0085", "€uro ", "Sum. ", "\u200b"]
TOOLS = ["status", "search", "symbol", "file", "files", "architecture", "git", "quality", "context", "tests",
         "explore", "remember", "wiki", "force_reindex", "Search", "", "nope"]
DOUBLES = [0.0, -0.0, 1.0, 0.1, 0.5, 100.0, 1e-4, 1e-5, 1.5e-7, 1e15, 1e16, 9999999999999998.0, 2.5e20, 1e100,
           0.30000000000000004, 5e-324, 1.7976931348623157e308, 0.91, 12.25, float("nan"), float("inf"),
           float("-inf")]


class Gen:
    def __init__(self, seed, root):
        self.r = random.Random(seed)
        self.root = root

    def text(self, n=8):
        return "".join(self.r.choice(PIECES) for _ in range(self.r.randrange(n + 1)))

    def double(self):
        if self.r.random() < 0.5:
            return self.r.choice(DOUBLES)
        return self.r.uniform(-1, 1) * 10 ** self.r.randrange(-30, 30)

    def scalar(self):
        k = self.r.randrange(6)
        if k == 0:
            return None
        if k == 1:
            return self.r.random() < 0.5
        if k == 2:
            return self.r.choice([0, 1, -1, 7, 2**53, -2**63, 2**63 - 1, self.r.randrange(-10**6, 10**6)])
        if k == 3:
            return self.double()
        return self.text()

    def value(self, depth=0):
        k = self.r.randrange(8 if depth < 3 else 6)
        if k < 6:
            return self.scalar()
        if k == 6:
            return [self.value(depth + 1) for _ in range(self.r.randrange(5))]
        return {self.text(3): self.value(depth + 1) for _ in range(self.r.randrange(5))}

    def maybe(self, make, p=0.5):
        return make() if self.r.random() < p else None

    def symbol(self):
        parts = [self.r.choice(["pkg", "mod", "Cart", "", "a.b", "total", "é"]) for _ in range(self.r.randrange(1, 5))]
        s = {"fqn": ".".join(parts)}
        for key, make in [("name", self.text), ("kind", lambda: self.r.choice(["method", "class", ""])),
                          ("start_line", lambda: self.r.randrange(-2, 40)),
                          ("end_line", lambda: self.r.randrange(-2, 40)), ("signature", self.text),
                          ("docstring", lambda: self.text(40)), ("is_export", lambda: self.r.random() < 0.5),
                          ("docstring_truncated", lambda: self.r.random() < 0.5)]:
            if self.r.random() < 0.7:
                s[key] = make() if self.r.random() < 0.85 else None
        return s

    def citation(self):
        c = {}
        for key in ["path", "line_start", "line_end"]:
            if self.r.random() < 0.8:
                c[key] = self.r.choice([None, 1, 1.0, 2, "a.py", "b.py", 3])
        if self.r.random() < 0.5:
            c["note"] = self.text(3)
        return c

    def section(self):
        s = {}
        for key, make in [("page_id", self.text), ("title", self.text), ("heading", self.text),
                          ("similarity", self.double), ("stale", self.scalar),
                          ("excerpt", lambda: self.text(self.r.choice([3, 60, 400, 1500]))),
                          ("citations", lambda: [self.citation() for _ in range(self.r.randrange(6))])]:
            if self.r.random() < 0.8:
                s[key] = make()
        if self.r.random() < 0.1:
            s["excerpt"] = self.value()
        return s

    def args(self, call):
        g, r = self, self.r
        table = {
            "tool_result_text": lambda: {"result": g.value()},
            "encoded_size": lambda: {"result": g.value()},
            "first_sentence": lambda: {"docstring": g.maybe(lambda: g.text(60), 0.9)},
            "cut": lambda: {"text": g.text(30), "chars": r.randrange(-1, 40)},
            "trimmed": lambda: {"text": g.text(30), "chars": r.randrange(-3, 40)},
            "without_nulls": lambda: {"row": {g.text(2): g.value(1) for _ in range(r.randrange(6))}},
            "code_lines": lambda: {"root": g.maybe(lambda: self.root, 0.9),
                                   "places": [[r.choice(["a.py", "sub/b.py", "link.py", "out", "missing.py", "sub",
                                                          "", "./a.py", "../x", "/etc/passwd"]),
                                               r.randrange(-1, 8)] for _ in range(r.randrange(6))]},
            "build_paginated_response": lambda: dict(
                {"items": [g.value(1) for _ in range(r.randrange(5))], "total_count": r.randrange(-2, 12),
                 "offset": r.randrange(-2, 12)}, **({"items_key": r.choice(["symbols", "files", "é"])}
                                                    if r.random() < 0.5 else {})),
            "build_empty_paginated_response": lambda: {"items_key": r.choice(["symbols", "files"])}
            if r.random() < 0.5 else {},
            "build_index_status_response": lambda: dict(
                {"status": r.choice(["ready", "indexing"]), "health": "healthy",
                 "branch": g.maybe(lambda: "main"), "progress": r.randrange(101)},
                **{k: v for k, v in [("files_indexed", r.randrange(9)), ("last_updated", g.maybe(g.text)),
                                     ("phase", g.maybe(g.text)), ("phase_detail", g.maybe(lambda: "1/2"))]
                   if r.random() < 0.5}),
            "get_empty_response": lambda: {"tool_name": r.choice(TOOLS)},
            "build_symbol_search_result": lambda: {"symbol": g.symbol(), "file_path": g.maybe(g.text)},
            "build_symbol_full_details": lambda: {"symbol": g.symbol(), "file_path": g.maybe(g.text)},
            "outline_module": lambda: {"fqns": [g.symbol()["fqn"] for _ in range(r.randrange(5))]},
            "build_file_symbol": lambda: {"symbol": g.symbol(), "module": r.choice(["pkg", "pkg.mod", "", None])},
            "build_reference": lambda: {"reference": {"file_path": g.maybe(g.text), "line": g.maybe(lambda: 3),
                                                      "caller_symbol": g.maybe(lambda: {"fqn": g.maybe(g.text),
                                                                                         "kind": g.maybe(g.text)}),
                                                      "usage_type": g.maybe(g.text)}, "code": g.maybe(g.text)},
            "build_api_endpoint": lambda: {"symbol": g.symbol(), "file_path": g.maybe(g.text),
                                           "component_name": g.maybe(g.text)},
            "build_component": lambda: {"component": {k: g.maybe(g.text) for k in ["name", "layer", "path_pattern"]}},
            "build_test_coverage": lambda: {"test_file": g.text(), "source_file": g.text(),
                                            "symbols_imported": g.maybe(lambda: [g.text() for _ in range(r.randrange(3))])},
            "build_wiki_status_response": lambda: {"built": r.random() < 0.5, "branch": "main",
                                                   "coverage_pct": g.double() if r.random() < 0.5 else 50,
                                                   "stale_pages": g.maybe(lambda: [g.text()]),
                                                   "model": g.maybe(g.text)},
            "build_wiki_list_response": lambda: {"pages": [g.value(1) for _ in range(r.randrange(4))],
                                                 "total": r.randrange(6), "offset": r.randrange(4),
                                                 "truncated": r.random() < 0.5},
            "build_wiki_read_response": lambda: {"page_id": g.text(), "title": g.text(), "content": g.text(20),
                                                 "citations": g.maybe(lambda: [g.citation()]),
                                                 "source_files": g.maybe(lambda: [])},
            "ask_citations": lambda: {"sections": [g.section() for _ in range(r.randrange(10))],
                                      "extra": [g.citation() for _ in range(r.randrange(30))]},
            "build_wiki_ask_response": lambda: self.ask(),
            "call_tool_result": lambda: dict({"response": g.value()}, **g.flags()),
            "jsonrpc_result_line": lambda: {"id": g.request_id(), "result": g.value()},
            "jsonrpc_error_line": lambda: {"id": g.request_id(), "code": r.choice([-32700, -32601, 0, 2**63 - 1]),
                                           "message": g.text()},
            "tool_call_line": lambda: dict({"id": g.request_id(), "response": g.value()}, **g.flags()),
            "fit_paginated_response": lambda: dict(
                {"items": [g.value(1) for _ in range(r.randrange(6))], "total_count": r.randrange(-2, 12),
                 "offset": r.randrange(-2, 12), "max_bytes": r.randrange(0, 300)},
                **({"items_key": r.choice(["symbols", "é"])} if r.random() < 0.5 else {})),
        }
        args = table[call]()
        # Now and then an argument of the wrong kind, a missing one or an unknown one.
        k = r.random()
        if k < 0.04 and args:
            args[r.choice(list(args))] = g.value(1)
        elif k < 0.06 and args:
            del args[r.choice(list(args))]
        elif k < 0.07:
            args["unknown"] = 1
        elif k < 0.10 and len(args) > 1:  # several bad arguments: which one is named first
            for key in r.sample(list(args), min(len(args), r.randrange(2, 4))):
                args[key] = g.value(1)
        return args

    def flags(self):
        return {k: self.r.random() < 0.5 for k in ["structured", "is_error"] if self.r.random() < 0.5}

    def request_id(self):
        return self.r.choice([0, 7, -2**63, "req", self.text(), 2.5, float("nan"), None, True, [1]])

    def ask(self):
        r = self.r
        a = {"mode": "answer", "query": self.text(10), "answer": self.maybe(lambda: self.text(80), 0.9),
             "sections": [self.section() for _ in range(r.randrange(12))]}
        for key, make in [("citations", lambda: [self.citation() for _ in range(r.randrange(30))]),
                          ("model", self.text), ("tokens", lambda: {"in": 10, "out": 2}), ("note", self.text),
                          ("decisions", lambda: {"calls": 1, "cost": 0.25}),
                          ("code", lambda: {"text": self.text(r.randrange(400))}),
                          ("memories", lambda: {"items": [self.text(r.randrange(300))]})]:
            if r.random() < 0.5:
                a[key] = make()
        k = r.random()
        if k < 0.2:
            a["token_budget"] = None
        elif k < 0.3:
            a["token_budget"] = r.randrange(-10, 40)
        else:
            a["token_budget"] = r.randrange(50, 4000)
        return a


CALLS = ["tool_result_text", "encoded_size", "first_sentence", "cut", "trimmed", "without_nulls", "code_lines",
         "build_paginated_response", "build_empty_paginated_response", "build_index_status_response",
         "get_empty_response", "build_symbol_search_result", "build_symbol_full_details", "outline_module",
         "build_file_symbol", "build_reference", "build_api_endpoint", "build_component", "build_test_coverage",
         "build_wiki_status_response", "build_wiki_list_response", "build_wiki_read_response", "ask_citations",
         "build_wiki_ask_response", "call_tool_result", "jsonrpc_result_line", "jsonrpc_error_line", "tool_call_line",
         "fit_paginated_response"]


def make_tree(root):
    os.makedirs(os.path.join(root, "sub"))
    with open(os.path.join(root, "a.py"), "w") as f:
        f.write("import os\n\n  def f(x):\t\n" + "y" * 250 + "\n\treturn x  # é\r\nlast")
    with open(os.path.join(root, "sub", "b.py"), "wb") as f:
        f.write(b"\xef\xbb\xbfb1\x0cb2\xe2\x80\xa8b3\n\xff bad\n")
    os.symlink("a.py", os.path.join(root, "link.py"))
    os.symlink("/etc/hostname", os.path.join(root, "out"))


def dump(value, r):
    return json.dumps(value, ensure_ascii=r.random() < 0.3, allow_nan=True)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("old")
    ap.add_argument("new")
    ap.add_argument("--requests", type=int, default=20000)
    ap.add_argument("--seed", type=int, default=1)
    a = ap.parse_args()
    with tempfile.TemporaryDirectory() as tmp:
        root = os.path.join(tmp, "repo")
        os.makedirs(root)
        make_tree(root)
        g = Gen(a.seed, root)
        lines = []
        for i in range(a.requests):
            call = CALLS[i % len(CALLS)] if i < 4 * len(CALLS) else g.r.choice(CALLS)
            lines.append(dump({"call": call, "args": g.args(call)}, g.r))
        requests = os.path.join(tmp, "requests.jsonl")
        with open(requests, "w") as f:
            f.write("\n".join(lines) + "\n")
        runs = []
        for tool in (os.path.abspath(a.old), os.path.abspath(a.new)):
            p = subprocess.run([tool, requests], capture_output=True, cwd=tmp)
            runs.append((p.returncode, p.stdout.split(b"\n"), p.stderr.split(b"\n")))
    (rc0, out0, err0), (rc1, out1, err1) = runs
    bad = [(i, x, y) for i, (x, y) in enumerate(zip(out0, out1)) if x != y]
    errors = sum(1 for x in out0 if x.startswith(b'{"error"'))
    print(f"{a.requests} requests, {errors} answered with an error, {len(err0) - 1} log lines; "
          f"answers differ: {len(bad)}, logs differ: {err0 != err1}, exit {rc0} vs {rc1}")
    for i, x, y in bad[:5]:
        print(f"request {i}: {lines[i][:300]}\n  old: {x[:300]!r}\n  new: {y[:300]!r}")
    same = not bad and len(out0) == len(out1) and err0 == err1 and rc0 == rc1
    return 0 if same else 1


if __name__ == "__main__":
    sys.exit(main())
