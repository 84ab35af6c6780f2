#!/usr/bin/env python3
"""How right the index of a Go tree is, by go/types (oracle_go).

  bench/accuracy/go_accuracy.py --tree DIR --db INDEX.db --oracle BIN --cache FILE
                                [--sample 50 --top 20 --seed 1 --misses FILE]

The index is kestrune-index's SQLite of the tree (tables symbols and
symbol_refs, the rows of Go files). Drawn are --sample symbols at random,
and taken the --top definitions that the oracle finds used on the most
lines. Per group it prints precision and recall of the index's references
over distinct (file, line) pairs, the fqn's definition lines left out on
both sides. A reference names an fqn, so the oracle's uses of a symbol are
those of every definition of its fqn (Go declares many names once per GOOS
or GOARCH: `syscall.Errno` has 13). Uses in files the index leaves out (over
its size limit) are counted apart. Then, for the sampled fqns: whether the
row `symbol` answers (the servers' query symbol_by_fqn) is one of the
oracle's definitions, with its doc where the source has one; and how many of
the definitions the oracle lists in the sampled files the index holds with
the same name and line.

The oracle type-checks the whole tree once per GOOS/GOARCH: its answers are
kept in --cache, with the digest of the oracle program that gave them, and
it is run again only for what the cache lacks.
"""
import argparse
import hashlib
import json
import os
import random
import re
import subprocess
import sys
import time

from score_cpp import connect
from server_rows import symbol_row


def index_rows(db):
    """The Go rows (dicts, in file and line order) and references by fqn."""
    con = connect(db)
    rows = [dict(zip(("fqn", "name", "kind", "file", "line", "doc"), r)) for r in con.execute(
        "SELECT s.fqn, s.name, s.kind, s.file_path, s.start_line, s.docstring FROM symbols s "
        "JOIN files f ON f.path = s.file_path WHERE f.language = 'Go' ORDER BY s.file_path, s.start_line, s.id")]
    refs = {}
    for fqn, path, line in con.execute(
            "SELECT r.symbol_fqn, r.file_path, r.line FROM symbol_refs r JOIN files f ON f.path = r.file_path "
            "WHERE f.language = 'Go'"):
        refs.setdefault(fqn, set()).add((path, line))
    files = {p for (p,) in con.execute("SELECT path FROM files")}
    return con, rows, refs, files


def place(d):
    return "%s|%d|%s" % (d["file"], d["line"], d["name"])


class Oracle:
    """oracle_go's answers, cached by the digest of its program."""

    def __init__(self, program, root, cache):
        self.program, self.root, self.cache = program, root, cache
        with open(program, "rb") as f:
            self.digest = hashlib.sha256(f.read()).hexdigest()
        self.data = {"oracle": self.digest, "root": root, "answers": {}, "outlines": {}, "top": None}
        if cache and os.path.exists(cache):
            with open(cache) as f:
                kept = json.load(f)
            if kept.get("oracle") == self.digest and kept.get("root") == root:
                self.data = kept
            else:
                print("  cache %s is of another oracle or tree: asked again" % cache)
        self.seconds = 0.0
        self.stats = None

    def ask(self, queries, outline_files, top):
        queries = {place(q): q for q in queries if place(q) not in self.data["answers"]}
        outline_files = sorted(set(outline_files) - set(self.data["outlines"]))
        top_known = self.data["top"] is not None and self.data["top"]["n"] >= top
        if not queries and not outline_files and top_known:
            return
        request = {"root": self.root, "queries": list(queries.values()), "outline_files": outline_files,
                   "top": 0 if top_known else top}
        start = time.monotonic()
        out = subprocess.run([self.program], input=json.dumps(request).encode(), stdout=subprocess.PIPE,
                             check=True).stdout
        self.seconds += time.monotonic() - start
        answer = json.loads(out)
        self.stats = answer.get("stats")
        self.data["answers"].update(zip(queries, answer["answers"]))
        self.data["outlines"].update({f: answer["outlines"].get(f, []) for f in outline_files})
        if not top_known:
            self.data["top"] = {"n": top, "entries": answer.get("top") or []}
        if self.cache:
            with open(self.cache, "w") as f:
                json.dump(self.data, f)

    def answer(self, d):
        return self.data["answers"][place(d)]

    def top(self, n):
        return self.data["top"]["entries"][:n]


def ratio(a, b):
    return a / b if b else 1.0


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--tree", required=True)
    ap.add_argument("--db", required=True)
    ap.add_argument("--oracle", required=True)
    ap.add_argument("--cache", help="the oracle's answers for this tree, kept between runs")
    ap.add_argument("--sample", type=int, default=50)
    ap.add_argument("--top", type=int, default=20)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--misses", help="write each sampled symbol's missed and extra lines here")
    args = ap.parse_args()
    root = os.path.realpath(args.tree)

    con, symbols, refs, indexed = index_rows(args.db)
    by_fqn, by_place = {}, {}
    for s in symbols:
        by_fqn.setdefault(s["fqn"], []).append(s)
        by_place.setdefault((s["file"], s["line"], s["name"]), s)
    sample = random.Random(args.seed).sample(symbols, min(args.sample, len(symbols)))

    lines = {}

    def column(d):
        if d["file"] not in lines:
            with open(os.path.join(root, d["file"]), encoding="utf-8", errors="replace") as f:
                lines[d["file"]] = f.read().split("\n")
        text = lines[d["file"]][d["line"] - 1] if 0 < d["line"] <= len(lines[d["file"]]) else ""
        m = re.search(r"(?<![\w])" + re.escape(d["name"]) + r"(?![\w])", text)
        return len(text[:m.start()].encode()) + 1 if m else 1

    def query(d):
        return {"file": d["file"], "line": d["line"], "name": d["name"], "column": column(d)}

    # The oracle's most used are nearly always among the index's: their
    # rows are asked with the sample, so one run of the oracle answers both.
    likely = sorted(by_fqn, key=lambda f: -len(refs.get(f, ())))[:10 * args.top]
    oracle = Oracle(args.oracle, root, args.cache)
    asked = [d for s in sample for d in by_fqn[s["fqn"]]] + [d for f in likely for d in by_fqn[f]]
    outline_files = sorted({s["file"] for s in sample})
    oracle.ask([query(d) for d in asked], outline_files, args.top)
    top_entries = oracle.top(args.top)
    top = [by_place.get((t["file"], t["line"], t["name"])) for t in top_entries]
    oracle.ask([query(d) for s in top if s for d in by_fqn[s["fqn"]]], [], args.top)

    def truth(s):
        """The oracle's uses of every definition of s's fqn, and their lines."""
        defs = by_fqn[s["fqn"]]
        places = {(d["file"], d["line"]) for d in defs}
        uses = set()
        for d in defs:
            uses |= {tuple(x) for x in oracle.answer(d)["references"]}
        return uses - places, places

    groups = {"random": [(s, None) for s in sample], "top": list(zip(top, top_entries))}
    misses = []
    print("tree %s: %d Go symbols, %d (fqn, line) uses; oracle %.0f s (%s)" %
          (root, len(symbols), sum(len(v) for v in refs.values()), oracle.seconds, oracle.stats or "cached"))
    totals = [0, 0, 0, 0]
    for name, items in groups.items():
        hit = found = want_lines = outside = 0
        for s, entry in items:
            if s:
                want, places = truth(s)
                mine = refs.get(s["fqn"], set()) - places
            else:  # a definition of the oracle's that the index does not hold
                want, mine = {tuple(x) for x in entry["references"]}, set()
                s = {"fqn": None, "file": entry["file"], "line": entry["line"]}
            left_out = {p for p in want if p[0] not in indexed}
            want -= left_out
            hit, found, want_lines = hit + len(mine & want), found + len(mine), want_lines + len(want)
            outside += len(left_out)
            misses.append({"group": name, "fqn": s["fqn"], "file": s["file"], "line": s["line"], "found": len(mine),
                           "truth": len(want), "missed": sorted(want - mine)[:30], "extra": sorted(mine - want)[:30]})
        totals = [totals[0] + hit, totals[1] + found, totals[2] + want_lines, totals[3] + outside]
        print("  %-6s %3d symbols: precision %.3f recall %.3f (%d of %d found lines right, %d lines in all; "
              "%d more in files the index leaves out)" % (name, len(items), ratio(hit, found),
                                                          ratio(hit, want_lines), hit, found, want_lines, outside))
    print("  all    precision %.3f recall %.3f (%d, %d, %d)" % (ratio(totals[0], totals[1]), ratio(totals[0], totals[2]),
                                                                 totals[0], totals[1], totals[2]))

    # The row `symbol` answers is right when it is one of the definitions
    # the oracle knows for the fqn (some configuration builds its file).
    right = with_doc = docs_right = known = both = 0
    for fqn in dict.fromkeys(s["fqn"] for s in sample):
        defined = {(d["file"], d["line"]): oracle.answer(d) for d in by_fqn[fqn] if oracle.answer(d)["definition"]}
        if not defined:
            continue
        known += 1
        row = symbol_row(con, fqn)
        a = defined.get((row[3], row[4]))
        if not a:
            misses.append({"group": "symbol", "fqn": fqn, "file": row[3], "line": row[4], "oracle": sorted(defined)})
            continue
        right += 1
        both += a["doc"] is None or row[7] == a["doc"]
        if a["doc"] is not None:
            with_doc += 1
            docs_right += row[7] == a["doc"]
            if row[7] != a["doc"]:
                misses.append({"group": "doc", "fqn": fqn, "index": row[7], "oracle": a["doc"]})
    print("  symbol: %d of %d at one of the oracle's definitions (%d sampled unknown to the oracle), %d with their "
          "docs; doc right for %d of the %d documented" % (right, known, len(set(s["fqn"] for s in sample)) - known,
                                                           both, docs_right, with_doc))
    listed = given = 0
    for file in outline_files:
        entries = oracle.data["outlines"][file]
        mine = {(s["name"], s["line"]) for s in symbols if s["file"] == file}
        listed += len(entries)
        given += sum(1 for e in entries if tuple(e) in mine)
        misses += [{"group": "outline", "file": file, "name": e[0], "line": e[1]} for e in entries if tuple(e) not in mine]
    print("  outlines: %d of the %d definitions the oracle lists in %d files" % (given, listed, len(outline_files)))
    if args.misses:
        with open(args.misses, "w") as f:
            json.dump(misses, f, indent=1)


if __name__ == "__main__":
    sys.exit(main())
