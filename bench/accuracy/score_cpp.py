#!/usr/bin/python3
"""How right the index of a C or C++ tree is, by libclang's answers.

  bench/accuracy/score_cpp.py --tree PATH --db INDEX.db [--sample 50 --top 20 --seed 1]
                              [--cache ORACLE.json] [--show N]

The index's C and C++ symbols are grouped by fqn (overloads share one). Every
row of every fqn is asked of the oracle (oracle_cpp.py, beside this file):
the entity written at the row's name, its definition, doc and references.
Drawn are --sample fqns at random and the --top fqns that the oracle finds
most used, among those whose rows the oracle finds. For each it prints:
  - precision and recall of the index's references over distinct (file,
    line) pairs, against the union of the oracle's references to the fqn's
    rows, the rows' own lines left out on both sides; an index reference on
    a line where the oracle leaves the same name unresolved (a member of a
    dependent type, a macro no unit expands) is counted apart, as undecided;
  - whether `symbol` (the row the servers answer for the fqn, by their query
    symbol_by_fqn) is at the oracle's definition (any opening of a
    namespace), and whether its docs are the source's;
  - outline coverage: of the sampled symbols' files, the definitions the
    oracle lists that the index holds at the same line.
"""

import argparse
import json
import os
import random
import re
import sqlite3
import subprocess
import sys

from server_rows import symbol_row

HERE = os.path.dirname(os.path.abspath(__file__))
LANGUAGES = ("C", "C++", "CUDA")


def connect(db):
    return sqlite3.connect("file:%s?mode=ro" % db, uri=True)


def index_rows(db):
    con = connect(db)
    marks = ",".join("?" * len(LANGUAGES))
    rows = con.execute(
        "SELECT s.id, s.fqn, s.name, s.kind, s.file_path, s.start_line, s.docstring FROM symbols s "
        "JOIN files f ON f.path = s.file_path WHERE f.language IN (%s) ORDER BY s.id" % marks, LANGUAGES).fetchall()
    refs = {}
    for fqn, path, line in con.execute(
            "SELECT r.symbol_fqn, r.file_path, r.line FROM symbol_refs r JOIN files f ON f.path = r.file_path "
            "WHERE f.language IN (%s)" % marks, LANGUAGES):
        refs.setdefault(fqn, set()).add((path, line))
    return rows, refs


def name_column(text, name):
    """The 1-based byte column of `name` on the line: the one that no "::"
    follows, template arguments passed over (`Matcher<T>::Matcher(T value)`
    defines the second)."""
    raw = text.encode("utf-8")
    spots = [m.start() for m in re.finditer(rb"(?<![A-Za-z0-9_])" + re.escape(name.encode()) + rb"(?![A-Za-z0-9_])", raw)]
    if not spots:
        return 0
    for s in spots:
        rest = raw[s + len(name.encode()):].lstrip()
        if rest.startswith(b"<"):
            depth = 0
            for i, c in enumerate(rest):
                depth += {ord("<"): 1, ord(">"): -1}.get(c, 0)
                if depth == 0:
                    rest = rest[i + 1:].lstrip()
                    break
        if not rest.startswith(b"::"):
            return s + 1
    return spots[0] + 1


def ask_oracle(tree, queries, outline_files, cache):
    command = [sys.executable, os.path.join(HERE, "oracle_cpp.py")]
    if cache:
        command += ["--cache", cache]
    request = json.dumps({"root": tree, "queries": queries, "outline_files": outline_files})
    run = subprocess.run(command, input=request, capture_output=True, text=True, check=True)
    return json.loads(run.stdout)


def normal(text):
    """Whitespace as one space, and no leading @brief or \\brief: Doxygen's
    mark of the summary, which the index leaves out."""
    text = " ".join((text or "").split())
    return re.sub(r"^[@\\]brief ", "", text)


def same_doc(oracle, index):
    """The same doc, or one the start of the other: clang joins a comment's
    paragraphs to a declaration by rules of its own."""
    a, b = normal(oracle), normal(index)
    return bool(a) and bool(b) and (a == b or a.startswith(b) or b.startswith(a))


def ratio(a, b):
    return a / b if b else float("nan")


class Scores:
    def __init__(self):
        self.hits = self.found = self.truth = self.undecided = 0
        self.precisions, self.recalls = [], []

    def add(self, hits, found, truth, undecided):
        self.hits += hits
        self.found += found
        self.truth += truth
        self.undecided += undecided
        if found:
            self.precisions.append(hits / found)
        if truth:
            self.recalls.append(hits / truth)

    def line(self, label):
        mean = lambda v: sum(v) / len(v) if v else float("nan")  # noqa: E731
        return ("%-8s precision %.3f (mean %.3f)  recall %.3f (mean %.3f)  index refs %d, oracle refs %d, "
                "undecided %d" % (label, ratio(self.hits, self.found), mean(self.precisions),
                                  ratio(self.hits, self.truth), mean(self.recalls), self.found, self.truth,
                                  self.undecided))


def scorer_arguments(doc):
    """The arguments every scorer of an index takes: the tree, its index and the draw."""
    parser = argparse.ArgumentParser(description=doc.split("\n\n")[0])
    parser.add_argument("--tree", required=True)
    parser.add_argument("--db", required=True)
    parser.add_argument("--sample", type=int, default=50)
    parser.add_argument("--top", type=int, default=20)
    parser.add_argument("--seed", type=int, default=1)
    return parser


def main():
    parser = scorer_arguments(__doc__)
    parser.add_argument("--cache", help="the oracle's cache of the tree (see oracle_cpp.py)")
    parser.add_argument("--show", type=int, default=0, help="print up to N wrong and N missed references per symbol")
    args = parser.parse_args()
    tree = os.path.realpath(args.tree)

    rows, refs = index_rows(args.db)
    texts = {}

    def line_of(path, line):
        if path not in texts:
            with open(os.path.join(tree, path), encoding="utf-8", errors="replace") as f:
                texts[path] = f.read().split("\n")
        lines = texts[path]
        return lines[line - 1] if 0 < line <= len(lines) else ""

    queries = [{"file": r[4], "line": r[5], "column": name_column(line_of(r[4], r[5]), r[2]), "name": r[2]}
               for r in rows]
    oracle = ask_oracle(tree, queries, [], args.cache)
    answers = oracle["answers"]
    skipped = {(path, line) for path, spans in oracle.get("skipped", {}).items()
               for first, last in spans for line in range(first, last + 1)}
    by_fqn = {}
    for row, a in zip(rows, answers):
        by_fqn.setdefault(row[1], []).append((row, a))
    known = {f: v for f, v in by_fqn.items() if any(a["definition"] for _, a in v)}

    def truth(fqn):
        own = {(r[4], r[5]) for r, _ in by_fqn[fqn]}
        found = set()
        unresolved = set()
        for _, a in by_fqn[fqn]:
            found |= {tuple(x) for x in a["references"]}
            unresolved |= {tuple(x) for x in a["unresolved"]}
        return found - own, unresolved, own

    used = sorted(known, key=lambda f: (-len(truth(f)[0]), f))
    top = used[:args.top]
    rest = sorted(set(known) - set(top))
    drawn = random.Random(args.seed).sample(rest, min(args.sample, len(rest)))

    con = connect(args.db)

    def answered(fqn):
        """The row and oracle answer of what `symbol` answers for the fqn."""
        answer = symbol_row(con, fqn)
        for row, a in by_fqn[fqn]:
            if answer and (row[4], row[5], row[2]) == (answer[3], answer[4], answer[1]):
                return row[:6] + (answer[7],) + row[7:], a  # with the docs it answers
        return by_fqn[fqn][0]

    print("tree %s: %d C/C++ rows, %d fqns, %d found by the oracle at their rows" %
          (tree, len(rows), len(by_fqn), len(known)))
    overall = Scores()
    files = set()
    right_place = right_doc = with_doc = seen = right_both = 0
    for label, fqns in (("random", drawn), ("top", top)):
        scores = Scores()
        for fqn in fqns:
            true, unresolved, own = truth(fqn)
            mine = refs.get(fqn, set()) - own
            undecided = {p for p in mine - true if p in unresolved or p in skipped}
            if args.show and undecided:
                print("  undecided %s: %d on skipped lines, %d where the name is unresolved" %
                      (fqn, len(undecided & skipped), len(undecided - skipped)))
            judged = mine - undecided
            hits = len(judged & true)
            scores.add(hits, len(judged), len(true), len(undecided))
            overall.add(hits, len(judged), len(true), len(undecided))
            if args.show:
                wrong = sorted(judged - true)[:args.show]
                missed = sorted(true - mine)[:args.show]
                print("  %s %s: %d/%d right, %d/%d found; wrong %s; missed %s" %
                      (label, fqn, hits, len(judged), hits, len(true), wrong, missed))
            first, answer = answered(fqn)
            files.add(first[4])
            definition = answer["definition"]
            if definition is None:
                continue  # the answered row is in code the oracle's units leave out
            seen += 1
            canonical = (definition["file"], definition["line"]) == (first[4], first[5])
            # Each opening of a namespace defines it: the one answered is at
            # a definition when the oracle finds the namespace there; its
            # docs are judged only at the opening clang takes for canonical.
            namespace = first[3] == "namespace"
            at_definition = canonical or namespace
            if namespace and not canonical:
                answer = dict(answer, doc=None)
            right_place += at_definition
            if not at_definition and args.show:
                print("  symbol %s: index %s:%d (%s), oracle %s" % (fqn, first[4], first[5], first[3], definition))
            doc_right = same_doc(answer["doc"], first[6])
            with_doc += bool(answer["doc"])
            right_doc += bool(answer["doc"]) and doc_right
            right_both += at_definition and (not answer["doc"] or doc_right)
            if answer["doc"] and not doc_right and args.show:
                print("  doc of %s: oracle %r; index %r" % (fqn, normal(answer["doc"])[:120], normal(first[6])[:120]))
        print(scores.line(label + " (%d)" % len(fqns)))
    print(overall.line("all"))
    print("symbol   %d of %d answers seen by the oracle: at its definition %d (%.2f), docs right %d of %d, "
          "both %d (%.2f)" % (seen, len(drawn) + len(top), right_place, ratio(right_place, seen), right_doc,
                              with_doc, right_both, ratio(right_both, seen)))

    outlines = ask_oracle(tree, [], sorted(files), args.cache)["outlines"]
    listed = covered = 0
    rows_at = {(r[4], r[5], r[2].replace(" ", "")) for r in rows}
    missing = []
    for path, items in outlines.items():
        for name, line in items:
            listed += 1
            held = (path, line, name.replace(" ", "")) in rows_at
            covered += held
            if not held:
                missing.append("%s:%d %s" % (path, line, name))
    if args.show:
        print("  not in outlines: %s" % ", ".join(missing[:args.show]))
    print("outline  %d of %d definitions the oracle lists in %d files (%.3f)" %
          (covered, listed, len(outlines), ratio(covered, listed)))


if __name__ == "__main__":
    main()
