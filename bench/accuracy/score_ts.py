#!/usr/bin/python3
"""How right the index of a JavaScript/TypeScript tree is, by the TypeScript
language service's answers (oracle_ts.mjs, beside this file).

  bench/accuracy/score_ts.py --tree PATH --db INDEX.db [--sample 50 --top 20 --seed 1] [--several] [--show N]

The index is kestrune-index's SQLite: the symbols and symbol_refs of the
files it read as TypeScript (JavaScript among them). Drawn are --sample fqns
at random and the --top fqns the index has most references to. For each:
  - references: precision and recall over distinct (file, line) pairs; the
    oracle's side is the union of its answers at every row of the fqn (a .js
    file and its .d.ts declare one module), the rows' own lines left out on
    both sides;
  - symbol: the row the servers answer (their query symbol_by_fqn) is where
    the oracle goes to from its name (the implementation among overloads,
    else the first declaration), and has the doc the oracle shows there,
    when the source has one;
  - outlines: of the definitions the oracle lists in the answered rows'
    files, how many the index holds (same name, the line within the row).
"""

import json
import os
import random
import re
import subprocess
import sys
from collections import Counter

from score_cpp import connect, scorer_arguments
from server_rows import symbol_row

HERE = os.path.dirname(os.path.abspath(__file__))
LANGUAGE = "TypeScript"  # the analyzer's language: every JavaScript and TypeScript file


def index_rows(db):
    """The rows of the language's symbols in id order, and each fqn's references."""
    con = connect(db)
    rows = [dict(zip(("id", "fqn", "name", "file", "line", "end", "doc"), r)) for r in con.execute(
        "SELECT s.id, s.fqn, s.name, s.file_path, s.start_line, s.end_line, s.docstring FROM symbols s "
        "JOIN files f ON f.path = s.file_path WHERE f.language = ? ORDER BY s.id", (LANGUAGE,))]
    refs = {}
    for fqn, path, line in con.execute(
            "SELECT r.symbol_fqn, r.file_path, r.line FROM symbol_refs r JOIN files f ON f.path = r.file_path "
            "WHERE f.language = ?", (LANGUAGE,)):
        refs.setdefault(fqn, set()).add((path, line))
    files, lines = con.execute("SELECT count(*), sum(lines) FROM files WHERE language = ?", (LANGUAGE,)).fetchone()
    return con, rows, refs, (files, lines or 0)


def located(row, lines_of):
    """The oracle's query for a row: its name's line and column, on the first
    of the row's lines that has the name as a word."""
    lines = lines_of(row["file"])
    word = re.compile(r"(?<![\w$#])%s(?![\w$])" % re.escape(row["name"]), re.ASCII)
    for line in range(row["line"], min(max(row["line"], row["end"]), len(lines)) + 1):
        m = word.search(lines[line - 1])
        if m:
            return {"file": row["file"], "line": line, "column": m.start(), "name": row["name"]}
    return {"file": row["file"], "line": row["line"], "column": 0, "name": row["name"]}


def ask_oracle(tree, queries, outline_files):
    request = json.dumps({"root": tree, "queries": queries, "outline_files": outline_files})
    run = subprocess.run(["node", os.path.join(HERE, "oracle_ts.mjs")], input=request, capture_output=True,
                         text=True, check=True)
    return json.loads(run.stdout)


def normal(text):
    """A doc's words, each inline link's target and text run together: the
    service shows `{@link target | text}` as `{@link target text}`, and
    `{@linkcode a.b | text}` as `{@linkcode a.btext}`."""
    linked = re.sub(r"\{@link\w*\s[^}]*\}", lambda m: re.sub(r"[\s|]", "", m.group()), text or "")
    return " ".join(linked.split())


def ratio(a, b):
    return "%.3f" % (a / b) if b else "-"


def few(places):
    shown = " ".join("%s:%d" % p for p in sorted(places)[:6])
    return shown + (" ...%d" % len(places) if len(places) > 6 else "")


def report(label, c):
    print("%-9s %d symbols: references precision %s (%d/%d), recall %s (%d/%d); symbol right %d/%d, docs %d/%d, "
          "both %d/%d" % (label, c["n"], ratio(c["hit"], c["found"]), c["hit"], c["found"],
                          ratio(c["hit"], c["expected"]), c["hit"], c["expected"], c["defs"], c["n"], c["docs"],
                          c["documented"], c["both"], c["n"]))


def main():
    parser = scorer_arguments(__doc__)
    parser.add_argument("--several", action="store_true",
                        help="draw only fqns with several definitions (overloads, a getter and its setter, ...)")
    parser.add_argument("--show", type=int, default=0, help="print up to N differences")
    args = parser.parse_args()
    tree = os.path.realpath(args.tree)

    con, rows, refs, (files_read, lines_read) = index_rows(args.db)
    by_fqn = {}
    for row in rows:
        by_fqn.setdefault(row["fqn"], []).append(row)
    texts = {}

    def lines_of(path):
        if path not in texts:
            with open(os.path.join(tree, path), encoding="utf-8", errors="replace", newline="") as f:
                texts[path] = re.split(r"\r\n|\r|\n", f.read())
        return texts[path]

    fqns = sorted(f for f, v in by_fqn.items() if len(v) > 1 or not args.several)
    drawn = random.Random(args.seed).sample(fqns, min(args.sample, len(fqns)))
    rest = sorted(set(fqns) - set(drawn), key=lambda f: (-len(refs.get(f, ())), f))
    sample = drawn + rest[:args.top]

    # The row `symbol` answers for each sampled fqn, and the oracle's query at
    # each row of it, the answered row's first.
    answered, queries = [], []
    for fqn in sample:
        got = symbol_row(con, fqn)
        row = next(r for r in by_fqn[fqn] if (r["file"], r["line"], r["name"]) == (got[3], got[4], got[1]))
        answered.append(row)
        queries.append([located(r, lines_of) for r in [row] + [r for r in by_fqn[fqn] if r is not row]])
    flat = [q for qs in queries for q in qs]
    files = sorted({row["file"] for row in answered})
    started = os.times().elapsed
    oracle = ask_oracle(tree, flat, files)
    seconds = os.times().elapsed - started
    answers, at = [], 0
    for qs in queries:
        answers.append(oracle["answers"][at:at + len(qs)])
        at += len(qs)

    print("%s: %d files, %d lines, %d symbols, %d fqns; oracle %.1f s" %
          (tree, files_read, lines_read, len(rows), len(by_fqn), seconds))
    notes = []
    totals = Counter()
    for label, group in (("random", range(len(drawn))), ("most used", range(len(drawn), len(sample)))):
        c = Counter(n=len(group))
        for i in group:
            fqn, row, qs, told = sample[i], answered[i], queries[i], answers[i]
            own = {(q["file"], q["line"]) for q in qs}
            got = refs.get(fqn, set()) - own
            want = {(f, l) for a in told for f, l in a["references"]} - own
            c.update(hit=len(got & want), found=len(got), expected=len(want))
            if got != want:
                notes.append("  refs %s (%s:%d): %d right, extra %s; missed %s" %
                             (fqn, row["file"], row["line"], len(got & want), few(got - want), few(want - got)))
            d, doc = told[0]["definition"], told[0]["doc"]
            place = bool(d) and (d["file"], d["line"]) == (row["file"], row["line"])
            if not place:
                notes.append("  symbol %s: index %s:%d, oracle %s" % (fqn, row["file"], row["line"], d))
            doc_right = not doc or normal(row["doc"]).startswith(normal(doc))
            if not doc_right:
                notes.append("  doc %s: index %r, oracle %r" % (fqn, row["doc"], doc))
            c.update(defs=place, documented=bool(doc), docs=bool(doc) and doc_right, both=place and doc_right)
        report(label, c)
        totals.update(c)
    report("all", totals)

    listed = shown = 0
    for path, entries in oracle["outlines"].items():
        held = [r for r in rows if r["file"] == path]
        for name, line, _ in entries:
            listed += 1
            if any(r["name"] == name and r["line"] <= line <= max(r["line"], r["end"]) for r in held):
                shown += 1
            else:
                notes.append("  outline %s:%d %s" % (path, line, name))
    print("outlines: %d/%d of the oracle's definitions in %d files" % (shown, listed, len(oracle["outlines"])))
    for note in notes[:args.show]:
        print(note)
    sys.stdout.flush()


if __name__ == "__main__":
    main()
