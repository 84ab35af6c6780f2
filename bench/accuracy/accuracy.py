#!/usr/bin/python3
"""Accuracy of the index against an independent oracle, on one tree.

  bench/accuracy/accuracy.py --language python --tree PATH --db INDEX.db
      [--sample 50 --top 20 --seed 1] [--cache FILE] [--verdicts FILE] [--disagreements]

The index is kestrune-index's SQLite (tables symbols and symbol_refs) of the
tree. Symbols of the language (modules left out: no name in the source to
ask the oracle about) are drawn: --sample at random, then the --top most
referenced by the index. For each, the row `symbol` answers (the servers'
query, server_rows.py) gives the name's place on its definition, and the
oracle is asked there. Printed per group (random, most used, all):
- references: precision and recall of the index's distinct (file, line)
  places against the oracle's, every definition line of the fqn left out on
  both sides; micro-averaged over the symbols;
- symbol: the answered row is one of the oracle's definitions for the fqn
  (file and line of the name), out of the symbols the oracle can name (not
  those inside a def); its docstring is the oracle's where the source has
  one;
- outlines: of the definitions the oracle lists in the sampled symbols'
  files, how many the index has a row for (name and line).
--verdicts names a JSON file of places read by hand where the index and the
oracle disagree: {"fqn|file|line": {"right": "index" or "oracle", "why":
...}}, "fqn|*" for every place of the fqn; figures are then given raw and
adjudicated (a place the oracle misses or claims wrongly counts as the
reading of the code says).
--disagreements prints every place they disagree on, with its line.
"""
import argparse
import hashlib
import json
import os
import random
import re
import sqlite3
import subprocess
import sys
import tempfile
import tokenize
from collections import defaultdict
from pathlib import Path

from server_rows import symbol_row

HERE = Path(__file__).resolve().parent
LANGUAGES = {
    "python": {"suffixes": (".py", ".pyi"), "oracle": ["/usr/bin/python3", str(HERE / "oracle_python.py")],
               "definition": r"\b(?:def|class)\s+({name})\b"},
}
DEFINITION_KINDS = ("class", "function", "method")


class Index:
    def __init__(self):
        self.symbols = []  # dicts in id order: fqn, name, kind, file, line, end, doc
        self.refs = defaultdict(set)  # fqn -> {(file, line)}
        self.answered = {}  # fqn -> the row `symbol` answers, modules left out


def load_db(path, suffixes):
    index = Index()
    db = sqlite3.connect(f"file:{path}?mode=ro", uri=True)
    for fqn, name, kind, file, line, end, doc in db.execute(
            "SELECT fqn, name, kind, file_path, start_line, end_line, docstring FROM symbols ORDER BY id"):
        if file and file.endswith(suffixes):
            index.symbols.append({"fqn": fqn, "name": name, "kind": kind, "file": file, "line": line, "end": end,
                                  "doc": doc})
    for fqn, file, line in db.execute("SELECT symbol_fqn, file_path, line FROM symbol_refs"):
        if file and file.endswith(suffixes):
            index.refs[fqn].add((file, line))
    rows = defaultdict(list)
    for row in index.symbols:
        if row["kind"] != "module":
            rows[row["fqn"]].append(row)
    for fqn, candidates in rows.items():
        answer = symbol_row(db, fqn) if len(candidates) > 1 else None
        chosen = [r for r in candidates
                  if answer and (r["file"], r["line"], r["name"]) == (answer[3], answer[4], answer[1])]
        index.answered[fqn] = dict(chosen[0], doc=answer[7]) if chosen else candidates[0]  # with the docs it answers
    return index


class Tree:
    def __init__(self, root):
        self.root = Path(root).resolve()
        self.lines_of = {}
        self.tokens_of = {}

    def lines(self, file):
        if file not in self.lines_of:
            self.lines_of[file] = (self.root / file).read_bytes().decode("utf-8", errors="replace").splitlines()
        return self.lines_of[file]

    def names_on_line(self, file, line):
        """The names a Python file's line holds outside strings and comments,
        or None when the file does not tokenize."""
        if file not in self.tokens_of:
            names = defaultdict(set)
            try:
                with open(self.root / file, "rb") as f:
                    for token in tokenize.tokenize(f.readline):
                        if token.type == tokenize.NAME:
                            for number in range(token.start[0], token.end[0] + 1):
                                names[number].add(token.string)
            except (tokenize.TokenError, SyntaxError, UnicodeDecodeError):
                names = None
            self.tokens_of[file] = names
        names = self.tokens_of[file]
        return None if names is None else names.get(line, set())

    def name_place(self, row, definition_pattern):
        """(line, column) of a symbol's name in its definition, or None."""
        name = re.escape(row["name"])
        pattern = definition_pattern if row["kind"] in DEFINITION_KINDS else r"\b({name})\b"
        regex = re.compile(pattern.format(name=name))
        lines = self.lines(row["file"])
        for number in range(row["line"], min(row["end"] or row["line"], len(lines)) + 1):
            match = regex.search(lines[number - 1])
            if match:
                return number, match.start(1)
        return None


def draw(index, tree, language, sample, top, seed):
    """The sampled fqns, each with its answered row and the name's place."""
    first = index.answered
    placed = {}
    for fqn in sorted(first):
        place = tree.name_place(first[fqn], language["definition"])
        if place is not None:
            placed[fqn] = place
    rng = random.Random(seed)
    chosen = rng.sample(sorted(placed), min(sample, len(placed)))
    by_use = sorted((f for f in placed if f not in chosen), key=lambda f: (-len(index.refs.get(f, ())), f))
    groups = {"random": chosen, "most used": by_use[:top]}
    return groups, first, placed


def ask_oracle(language, tree, queries, outline_files, cache):
    request = {"root": str(tree.root), "queries": queries, "outline_files": outline_files}
    command = language["oracle"] + (["--cache", cache] if cache else [])
    done = subprocess.run(command, input=json.dumps(request).encode(), stdout=subprocess.PIPE, check=True)
    return json.loads(done.stdout)


def definition_lines(index, tree, language):
    lines = defaultdict(set)
    for row in index.symbols:
        place = tree.name_place(row, language["definition"]) if row["kind"] != "module" else None
        if place is not None:
            lines[row["fqn"]].add((row["file"], place[0]))
    return lines


class Score:
    def __init__(self):
        self.both = self.index_only = self.oracle_only = 0
        self.symbols = self.symbol_right = self.docs = self.docs_right = 0  # symbols the oracle can name

    def count(self, both, index_only, oracle_only, row, place, answer):
        self.both += len(both)
        self.index_only += len(index_only)
        self.oracle_only += len(oracle_only)
        if answer["definitions"]:
            self.symbols += 1
            self.symbol_right += {"file": row["file"], "line": place[0]} in answer["definitions"]
        if answer["doc"]:
            self.docs += 1
            self.docs_right += (row["doc"] or "").strip() == answer["doc"].strip()

    def precision(self):
        found = self.both + self.index_only
        return self.both / found if found else 1.0

    def recall(self):
        expected = self.both + self.oracle_only
        return self.both / expected if expected else 1.0


def compare(fqn, row, query_place, answer, index, excluded):
    """(both, index-only, oracle-only) places of one symbol."""
    skip = excluded | {(row["file"], query_place[0])}
    mine = index.refs.get(fqn, set()) - skip
    theirs = {tuple(p) for p in answer["references"]} - skip
    return mine & theirs, mine - theirs, theirs - mine


def verdict(tree, fqn, name, place, verdicts):
    """(who is right, why) for a place only one side lists, or None: a
    verdict read by hand, else for a place only the index lists, what a
    Python line shows jedi does not read: the name only inside a string (a
    string annotation) or not on the line at all (a use through an alias:
    jedi's references are found by the name's spelling)."""
    hand = verdicts.get(f"{fqn}|{place[0]}|{place[1]}") or verdicts.get(f"{fqn}|*")
    if hand:
        return hand["right"], hand["why"]
    names = tree.names_on_line(*place)
    if names is None or name in names:
        return None
    if re.search(rf"\b{re.escape(name)}\b", tree.lines(place[0])[place[1] - 1]):
        return "index", "in a string annotation (jedi reads no names in strings)"
    return "index", "through an alias (jedi lists uses by the name's spelling)"


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--language", default="python", choices=sorted(LANGUAGES))
    parser.add_argument("--tree", required=True)
    parser.add_argument("--db", required=True)
    parser.add_argument("--sample", type=int, default=50)
    parser.add_argument("--top", type=int, default=20)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--cache", help="the oracle's cache (default: in the temporary folder, per tree)")
    parser.add_argument("--verdicts")
    parser.add_argument("--disagreements", action="store_true")
    args = parser.parse_args()

    language = LANGUAGES[args.language]
    tree = Tree(args.tree)
    index = load_db(args.db, language["suffixes"])
    groups, first, placed = draw(index, tree, language, args.sample, args.top, args.seed)
    fqns = groups["random"] + groups["most used"]
    queries = [{"file": first[f]["file"], "line": placed[f][0], "column": placed[f][1], "name": first[f]["name"],
                "fqn": f} for f in fqns]
    outline_files = sorted({first[f]["file"] for f in fqns})
    cache = args.cache or os.path.join(tempfile.gettempdir(), f"kestrune-accuracy-{args.language}-"
                                       f"{hashlib.sha1(str(tree.root).encode()).hexdigest()[:12]}.json")
    oracle = ask_oracle(language, tree, queries, outline_files, cache)
    answers = dict(zip(fqns, oracle["answers"]))
    excluded = definition_lines(index, tree, language)
    verdicts = {}
    if args.verdicts:
        with open(args.verdicts) as f:
            verdicts = json.load(f)

    scores = {group: Score() for group in list(groups) + ["all"]}
    adjudicated = {group: Score() for group in scores}
    reasons = defaultdict(int)
    failed = [f for f in fqns if "error" in answers[f]]
    for group, members in groups.items():
        for fqn in members:
            row, answer = first[fqn], answers[fqn]
            if "error" in answer:
                continue
            both, mine, theirs = compare(fqn, row, placed[fqn], answer, index, excluded[fqn])
            judged = {p: verdict(tree, fqn, row["name"], p, verdicts) for p in mine | theirs}
            index_right = {p for p, v in judged.items() if v and v[0] == "index"}
            for p, v in judged.items():
                if v:
                    reasons[(v[0], "index only" if p in mine else "oracle only", v[1])] += 1
            for score, extra in ((scores, set()), (adjudicated, index_right)):
                for target in (score[group], score["all"]):
                    target.count(both | (mine & extra), mine - extra, theirs - extra, row, placed[fqn], answer)
            if args.disagreements:
                show(tree, fqn, row, placed[fqn], answer, mine, theirs, judged)
    tables = {"raw": scores, "adjudicated": adjudicated}

    outline = outline_coverage(index, oracle["outlines"])
    print(f"tree: {tree.root} ({len({r['file'] for r in index.symbols})} files, {len(first)} symbols with an fqn "
          f"of their own; sample: {len(groups['random'])} random, seed {args.seed}, + {len(groups['most used'])} "
          f"most referenced by the index)")
    if failed:
        print(f"left out, the oracle failed on them: {', '.join(failed)}")
    for name, table in tables.items():
        print(f"\n{name}:")
        print_scores(table)
    print("\nadjudicated places:")
    for (right, side, why), count in sorted(reasons.items()):
        print(f"- {count} {side}, {right} right: {why}")
    print(f"\noutlines of the {len(outline_files)} sampled files: {outline[1]} of the oracle's {outline[0]} "
          f"definitions have a row ({outline[1] / max(outline[0], 1):.3f})")


def outline_coverage(index, outlines):
    rows = {(r["file"], r["name"], r["line"]) for r in index.symbols}
    starts = defaultdict(set)
    for r in index.symbols:
        starts[(r["file"], r["name"])].update(range(r["line"], (r["end"] or r["line"]) + 1))
    expected = matched = 0
    for file, names in outlines.items():
        for name, line in names:
            expected += 1
            matched += (file, name, line) in rows or line in starts.get((file, name), ())
    return expected, matched


def print_scores(scores):
    columns = list(scores)
    print("| | " + " | ".join(columns) + " |")
    print("|---|" + "---:|" * len(columns))
    rows = [
        ("references: precision", lambda s: f"{s.precision():.3f}"),
        ("references: recall", lambda s: f"{s.recall():.3f}"),
        ("places: both / index only / oracle only", lambda s: f"{s.both} / {s.index_only} / {s.oracle_only}"),
        ("symbol: the oracle's definition", lambda s: f"{s.symbol_right} / {s.symbols}"),
        ("symbol: its docs, where the source has them", lambda s: f"{s.docs_right} / {s.docs}"),
    ]
    for label, cell in rows:
        print(f"| {label} | " + " | ".join(cell(scores[c]) for c in columns) + " |")


def show(tree, fqn, row, place, answer, mine, theirs, judged):
    for tag, places in (("index only", mine), ("oracle only", theirs)):
        for file, line in sorted(places):
            text = tree.lines(file)[line - 1].strip() if line <= len(tree.lines(file)) else ""
            judgement = judged[(file, line)]
            mark = f" [{judgement[0]} right: {judgement[1]}]" if judgement else ""
            print(f"{tag}: {fqn}|{file}|{line}: {text[:120]}{mark}")
    if answer["definitions"] and {"file": row["file"], "line": place[0]} not in answer["definitions"]:
        print(f"definition: {fqn} index {row['file']}:{place[0]} oracle {answer['definitions']}")
    if answer["doc"] and (row["doc"] or "").strip() != answer["doc"].strip():
        print(f"doc: {fqn} index {row['doc']!r:.80} oracle {answer['doc']!r:.80}")


if __name__ == "__main__":
    main()
