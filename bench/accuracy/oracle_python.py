#!/usr/bin/python3
"""The accuracy benchmark's oracle for Python: jedi (Debian python3-jedi).

Reads on stdin {"root": "/abs/tree", "queries": [{"file", "line", "column",
"name", "fqn"}], "outline_files": [...]} and writes on stdout {"answers":
[{"definition", "definitions", "doc", "references"}], "outlines": {file:
[[name, line], ...]}}; lines 1-based, columns 0-based in characters.

- references: jedi's get_references at the name, over the whole tree, less
  definitions outside it (typeshed's stubs). jedi's limits on a search are
  lifted so that its answer is complete: 30 files parsed and 2,000 opened,
  no search beyond the file for names of two characters or fewer, and 200
  function executions per search, 6 per function (past them jedi infers
  nothing, so a use far into the search is missed); its limits on
  recursion stay. parso keeps every file it parsed in memory (it would drop
  those unused for ten minutes, which jedi still holds nodes of).
- definitions: where jedi's goto, following imports, takes the fqn as a
  user writes it (`import a.b as m; m.C.f` for a.b.C.f, the longest module
  that resolves); "definition" is the first. doc: jedi's raw docstring of
  the name at the query's place, when the source has one.
- outlines: the classes and defs of a file at any depth and the names
  assigned at module or class level, as jedi lists them, less attributes of
  other objects (`sys.stdout = ...`) and augmented assignments, which bind
  no name of the file anew.

The tree's root, and its src/ and lib/ when they exist, are the sys.path;
the interpreter's own library is not, so that the tree's modules are the
ones imports find. Answers are cached in the JSON file given with --cache,
keyed by root and query, since jedi takes seconds per query; parso's parse
cache is kept beside it.
"""
import argparse
import json
import os
import sys

import jedi
import parso.cache
from jedi.inference import recursion as jedi_recursion
from jedi.inference import references as jedi_references

VERSION = 3  # part of the cache's keys: answers of another version are asked again
OUTLINE_VERSION = 4  # the outlines' keys: their rule changed after the references'


def complete_references():
    """jedi's search for other files that may use a name, without its limits."""

    def modules_containing_name(inference_state, module_contexts, name, limit_reduction=1):
        for module_context in module_contexts:
            if not module_context.is_compiled():
                yield module_context
        file_ios = jedi_references._find_project_modules(inference_state, module_contexts)
        yield from jedi_references.search_in_file_ios(inference_state, file_ios, name)

    jedi_references._PARSED_FILE_LIMIT = float("inf")
    jedi_references._OPENED_FILE_LIMIT = float("inf")
    jedi_references.get_module_contexts_containing_name = modules_containing_name
    jedi_recursion.total_function_execution_limit = 10**9
    jedi_recursion.per_function_execution_limit = 10**9
    parso.cache._CACHED_SIZE_TRIGGER = float("inf")


def own_docstring(name):
    """jedi's raw docstring of a definition, unless a def or class without
    one of its own (jedi would answer the one it inherits from builtins)."""
    definition = name._name.tree_name.get_definition() if name._name.tree_name is not None else None
    if definition is not None and definition.type in ("funcdef", "classdef") and definition.get_doc_node() is None:
        return None
    return name.docstring(raw=True)


def binds_anew(name, tree_name, statement):
    """An assignment at module or class level that binds a name of the file."""
    operator = statement.children[1]
    augmented = operator.type == "operator" and operator.value != "="
    return name.parent().type in ("module", "class") and tree_name.parent.type != "trailer" and not augmented


def import_roots(root):
    return [root] + [os.path.join(root, d) for d in ("src", "lib") if os.path.isdir(os.path.join(root, d))]


class Oracle:
    def __init__(self, root):
        self.root = os.path.realpath(root)
        self.project = jedi.Project(path=self.root, sys_path=import_roots(self.root), smart_sys_path=True,
                                    load_unsafe_extensions=False)
        self.environment = jedi.InterpreterEnvironment()

    def script(self, rel):
        path = os.path.join(self.root, rel)
        with open(path, "rb") as f:
            code = f.read().decode("utf-8", errors="replace")
        return jedi.Script(code, path=path, project=self.project, environment=self.environment)

    def place(self, name):
        path = name.module_path
        if path is None or name.line is None:
            return None
        rel = os.path.relpath(os.path.realpath(path), self.root)
        return None if rel.startswith("..") else [rel, name.line]

    def answer(self, query):
        script = self.script(query["file"])
        line, column = query["line"], query["column"]
        refs = script.get_references(line, column, scope="project", include_builtins=False)
        places = sorted({tuple(p) for p in map(self.place, refs) if p is not None})
        named = script.goto(line, column)
        doc = own_docstring(named[0]) if named else None
        definitions = self.definitions(query.get("fqn"))
        return {"definition": definitions[0] if definitions else None, "definitions": definitions,
                "doc": doc or None, "references": [list(p) for p in places]}

    def definitions(self, fqn):
        parts = (fqn or "").split(".")
        for split in range(len(parts) - 1, 0, -1):
            use = "_m." + ".".join(parts[split:])
            code = f"import {'.'.join(parts[:split])} as _m\n{use}\n"
            probe = jedi.Script(code, path=os.path.join(self.root, "_accuracy_probe.py"), project=self.project,
                                environment=self.environment)
            found = []
            for target in probe.goto(2, len(use) - 1, follow_imports=True):
                place = self.place(target)
                if place is not None and {"file": place[0], "line": place[1]} not in found:
                    found.append({"file": place[0], "line": place[1]})
            if found:
                return found
        return []

    def outline(self, rel):
        names = self.script(rel).get_names(all_scopes=True, definitions=True, references=False)
        out = []
        for name in names:
            tree_name = name._name.tree_name
            definition = tree_name.get_definition()
            kind = definition.type if definition is not None else None
            if kind in ("classdef", "funcdef") or kind == "expr_stmt" and binds_anew(name, tree_name, definition):
                out.append([name.name, name.line])
        return out


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--cache", help="JSON file of answers already computed")
    args = parser.parse_args()
    request = json.load(sys.stdin)
    if args.cache:
        jedi.settings.cache_directory = args.cache + ".parso"
    complete_references()
    oracle = Oracle(request["root"])
    cache = {}
    if args.cache and os.path.exists(args.cache):
        with open(args.cache) as f:
            cache = json.load(f)
    answers = []
    for i, query in enumerate(request["queries"]):
        key = json.dumps([VERSION, oracle.root, query], sort_keys=True)
        if key not in cache:
            print(f"jedi: {i + 1}/{len(request['queries'])} {query.get('fqn') or query['name']}", file=sys.stderr)
            try:
                cache[key] = oracle.answer(query)
            except Exception as e:  # jedi's own failure: this symbol has no answer, the others go on
                print(f"jedi failed: {e!r}", file=sys.stderr)
                cache[key] = {"error": repr(e)}
            save(args.cache, cache)
        answers.append(cache[key])
    outlines = {}
    for rel in request.get("outline_files", []):
        key = json.dumps([OUTLINE_VERSION, oracle.root, "outline", rel])
        if key not in cache:
            cache[key] = oracle.outline(rel)
            save(args.cache, cache)
        outlines[rel] = cache[key]
    json.dump({"answers": answers, "outlines": outlines}, sys.stdout)


def save(path, cache):
    if path:
        with open(path + ".tmp", "w") as f:
            json.dump(cache, f)
        os.replace(path + ".tmp", path)


if __name__ == "__main__":
    main()
