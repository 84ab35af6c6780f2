#!/usr/bin/env python3
"""Precision and recall of the Go analyzer's references against the Go
oracle (go/types), straight from the analyzer's answers, without an index.

  bench/accuracy/go_accuracy.py --tree DIR --analyzer BIN --oracle BIN
                                [--sample 50 --top 20 --seed 1 --misses FILE]

Hands every .go file and go.mod of the tree to the analyzer as the indexer
does, draws --sample of its symbols at random and takes the --top
definitions the oracle finds used on the most lines, and compares, per
symbol, the distinct (file, line) pairs of its uses (its definitions' own
lines left out on both sides). A reference names an fqn, so the oracle's
uses of a symbol are those of every definition that shares its fqn (one per
GOOS, say). Also: how often the first symbol of a sampled
fqn is at the oracle's definition with its doc, and how many of the
definitions the oracle lists in the sampled files the analyzer gives.
"""
import argparse
import json
import os
import random
import re
import subprocess
import sys
import time


def tree_files(root):
    for d, dirs, files in os.walk(root):
        dirs[:] = sorted(x for x in dirs if x != ".git")
        for f in sorted(files):
            p = os.path.join(d, f)
            if (f.endswith(".go") or f == "go.mod") and os.path.isfile(p):
                yield os.path.relpath(p, root).replace(os.sep, "/")


def run_analyzer(exe, root):
    feed = bytearray()
    for rel in tree_files(root):
        with open(os.path.join(root, rel), "rb") as f:
            data = f.read()
        feed += json.dumps({"command": "file", "path": rel, "size": len(data)}).encode() + b"\n" + data
    feed += b'{"command":"analyze"}\n'
    start = time.monotonic()
    out = subprocess.run([exe], input=bytes(feed), stdout=subprocess.PIPE, check=True, cwd="/").stdout
    seconds = time.monotonic() - start
    answers = [json.loads(line) for line in out.splitlines()]
    assert answers[-1] == {"_type": "completed"}
    return answers[:-1], seconds


def column(line_text, name):
    m = re.search(r"(?<![\w])" + re.escape(name) + r"(?![\w])", line_text)
    return m.start() + 1 if m else 1


def compare(found, truth):
    return len(found & truth), len(found), len(truth)


def ratio(a, b):
    return a / b if b else 1.0


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--tree", required=True)
    ap.add_argument("--analyzer", required=True)
    ap.add_argument("--oracle", required=True)
    ap.add_argument("--sample", type=int, default=50)
    ap.add_argument("--top", type=int, default=20)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--misses", help="write each sampled symbol's missed and extra lines here")
    args = ap.parse_args()
    root = os.path.abspath(args.tree)

    answers, seconds = run_analyzer(args.analyzer, root)
    symbols, refs, by_place = [], {}, {}
    for a in answers:
        for s in a["symbols"]:
            s = dict(s, file=a["path"])
            symbols.append(s)
            by_place.setdefault((s["file"], s["line"], s["name"]), s)
        for r in a["references"]:
            refs.setdefault(r["fqn"], set()).add((a["path"], r["line"]))
    first = {}
    for s in symbols:
        first.setdefault(s["fqn"], s)

    rng = random.Random(args.seed)
    sample = rng.sample(symbols, min(args.sample, len(symbols)))
    lines = {}

    def line_of(file, n):
        if file not in lines:
            with open(os.path.join(root, file), encoding="utf-8", errors="replace") as f:
                lines[file] = f.read().split("\n")
        return lines[file][n - 1] if 0 < n <= len(lines[file]) else ""

    # References name a symbol by its fqn only: where several definitions
    # share one (a package's files, a definition per GOOS or GOARCH), a use
    # of any of them is a use of the fqn.
    by_fqn = {}
    for s in symbols:
        by_fqn.setdefault(s["fqn"], []).append(s)

    def ask(defs, top=0):
        queries = [{"file": s["file"], "line": s["line"], "name": s["name"],
                    "column": column(line_of(s["file"], s["line"]), s["name"])} for s in defs]
        outline_files = sorted({s["file"] for s in sample})
        request = {"root": root, "queries": queries, "outline_files": outline_files, "top": top}
        out = subprocess.run([args.oracle], input=json.dumps(request).encode(), stdout=subprocess.PIPE, check=True).stdout
        answer = json.loads(out)
        return answer, {(s["file"], s["line"], s["name"]): a for s, a in zip(defs, answer["answers"])}

    start = time.monotonic()
    oracle, answers_at = ask([d for s in sample for d in by_fqn[s["fqn"]]], args.top)
    top = [by_place.get((t["file"], t["line"], t["name"])) for t in oracle.get("top") or []]
    siblings = [d for s in top if s for d in by_fqn[s["fqn"]] if (d["file"], d["line"], d["name"]) not in answers_at]
    if siblings:
        answers_at.update(ask(siblings)[1])
    oracle_seconds = time.monotonic() - start
    for t in oracle.get("top") or []:
        place = (t["file"], t["line"], t["name"])
        answers_at.setdefault(place, {"definition": {"file": t["file"], "line": t["line"]}, "doc": None,
                                      "references": t["references"]})

    def truth(s):
        """The oracle's uses of every definition of s's fqn, and their lines."""
        defs = by_fqn[s["fqn"]] if s["fqn"] else [s]
        places = {(d["file"], d["line"]) for d in defs}
        uses = set()
        for d in defs:
            a = answers_at.get((d["file"], d["line"], d["name"]))
            if a:
                uses |= {tuple(x) for x in a["references"]}
        return uses - places, places

    groups = {"random": sample, "top": []}
    for t, s in zip(oracle.get("top") or [], top):
        groups["top"].append(s or {"fqn": None, "file": t["file"], "line": t["line"], "name": t["name"]})

    misses = []
    print(f"tree {args.tree}: {len(answers)} files, {len(symbols)} symbols, "
          f"{sum(len(v) for v in refs.values())} (symbol, line) uses; analyzer {seconds:.1f} s, oracle {oracle_seconds:.0f} s "
          f"({oracle['stats']})")
    totals = [0, 0, 0]
    for name, items in groups.items():
        hit = found = truth_lines = 0
        for s in items:
            want, places = truth(s)
            mine = {x for x in refs.get(s["fqn"], set()) if x not in places} if s["fqn"] else set()
            h, f, t = compare(mine, want)
            hit, found, truth_lines = hit + h, found + f, truth_lines + t
            misses.append({"group": name, "fqn": s["fqn"], "file": s["file"], "line": s["line"],
                           "found": f, "truth": t, "missed": sorted(want - mine)[:30], "extra": sorted(mine - want)[:30]})
        totals = [totals[0] + hit, totals[1] + found, totals[2] + truth_lines]
        print(f"  {name:6} {len(items):3} symbols: precision {ratio(hit, found):.3f} recall {ratio(hit, truth_lines):.3f} "
              f"({hit} of {found} found lines right, {truth_lines} lines in all)")
    print(f"  both   precision {ratio(totals[0], totals[1]):.3f} recall {ratio(totals[0], totals[2]):.3f}")

    # The symbol a lookup answers, the first of its fqn, is right when it is
    # one of the definitions the oracle knows for that fqn.
    right = with_doc = docs_right = known = 0
    for s in sample:
        defined = {(d["file"], d["line"]): answers_at[(d["file"], d["line"], d["name"])]
                   for d in by_fqn[s["fqn"]] if answers_at[(d["file"], d["line"], d["name"])]["definition"]}
        if not defined:
            continue
        known += 1
        row = first[s["fqn"]]
        a = defined.get((row["file"], row["line"]))
        if not a:
            misses.append({"group": "symbol", "fqn": s["fqn"], "file": row["file"], "line": row["line"],
                           "oracle": sorted(defined)})
        if a:
            right += 1
            if a["doc"] is not None:
                with_doc += 1
                docs_right += row["doc"] == a["doc"]
    print(f"  symbol: {right} of {known} at one of the oracle's definitions ({len(sample) - known} unknown to the oracle); "
          f"doc right for {docs_right} of the {with_doc} documented")
    listed = given = 0
    for file, entries in oracle["outlines"].items():
        mine = {(s["name"], s["line"]) for s in symbols if s["file"] == file}
        listed += len(entries)
        given += sum(1 for e in entries if tuple(e) in mine)
        misses += [{"group": "outline", "file": file, "name": e[0], "line": e[1]} for e in entries if tuple(e) not in mine]
    print(f"  outlines: {given} of the {listed} definitions the oracle lists in {len(oracle['outlines'])} files")
    if args.misses:
        with open(args.misses, "w") as f:
            json.dump(misses, f, indent=1)


if __name__ == "__main__":
    sys.exit(main())
