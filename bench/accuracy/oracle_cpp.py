#!/usr/bin/python3
"""The C and C++ oracle of the accuracy benchmark: libclang's answers.

Reads {"root", "queries": [{"file", "line", "column", "name"}], "outline_files"}
as JSON on stdin and writes {"answers": [{"definition", "doc", "references",
"unresolved"}], "outlines": {file: [[name, line], ...]}} on stdout.

Every C and C++ translation unit of the tree (its .c, .cc, .cpp and .cxx
files, then each header that none of them reaches) is parsed once, with the
include paths a build of the tree would likely use: every folder named
include/ and its parent, the tree's root and the file's own folder. Each file
is walked in the first unit that reaches it, and every name written in it is
recorded with the entity it names. The result is cached as JSON (--cache),
keyed by the tree's C and C++ files' sizes and times.

An entity is what clang's USR names, joined with its canonical declaration's
place: members of a template reached through an instantiation have a USR of
their own but the template's place, so both count as the one entity.

Beyond the interface, each answer's "unresolved" lists the lines where the
name is written but libclang resolves it to nothing (a member of a dependent
type in a template, a token of a macro that no unit expands, the qualifier of
a template's name, a name that #ifdef or #undef tests), and "skipped" the
lines of each file that the preprocessor left out: places the oracle cannot
judge.
"""

import argparse
import ctypes
import hashlib
import json
import os
import re
import sys

import clang.cindex as ci

SOURCE_EXTENSIONS = (".c", ".cc", ".cpp", ".cxx", ".c++")
HEADER_EXTENSIONS = (".h", ".hh", ".hpp", ".hxx", ".h++", ".inl", ".ipp", ".tcc")
CACHE_VERSION = 4

K = ci.CursorKind
REFERENCE_KINDS = {
    K.TYPE_REF, K.TEMPLATE_REF, K.NAMESPACE_REF, K.MEMBER_REF, K.VARIABLE_REF, K.OVERLOADED_DECL_REF,
    K.DECL_REF_EXPR, K.MEMBER_REF_EXPR, K.CALL_EXPR, K.MACRO_INSTANTIATION,
}
# Declarations an outline lists: what a reader of the file sees defined in it.
OUTLINE_KINDS = {
    K.NAMESPACE, K.CLASS_DECL, K.STRUCT_DECL, K.UNION_DECL, K.CLASS_TEMPLATE,
    K.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION, K.ENUM_DECL, K.ENUM_CONSTANT_DECL, K.FUNCTION_DECL,
    K.FUNCTION_TEMPLATE, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION, K.FIELD_DECL,
    K.VAR_DECL, K.TYPEDEF_DECL, K.TYPE_ALIAS_DECL, K.TYPE_ALIAS_TEMPLATE_DECL, K.MACRO_DEFINITION,
}
TYPE_KINDS = {K.CLASS_DECL, K.STRUCT_DECL, K.UNION_DECL, K.CLASS_TEMPLATE, K.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION,
              K.ENUM_DECL}
# Names local to a function: never an indexed symbol, so not recorded.
LOCAL_KINDS = {K.PARM_DECL, K.TEMPLATE_TYPE_PARAMETER, K.TEMPLATE_NON_TYPE_PARAMETER,
               K.TEMPLATE_TEMPLATE_PARAMETER, K.LABEL_STMT}
FUNCTION_KINDS = {K.FUNCTION_DECL, K.FUNCTION_TEMPLATE, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR,
                  K.CONVERSION_FUNCTION, K.LAMBDA_EXPR}


def load_libclang():
    for path in ("/usr/lib/llvm-14/lib/libclang.so.1", "/usr/lib/x86_64-linux-gnu/libclang-14.so.1"):
        if os.path.exists(path):
            ci.Config.set_library_file(path)
            break
    lib = ci.conf.lib
    # Where a name is written: for a macro's argument, its place in the file;
    # for a token of a macro's body, the place the macro is used.
    lib.clang_getSpellingLocation.argtypes = [ci.SourceLocation, ctypes.POINTER(ci.c_object_p),
                                              ctypes.POINTER(ctypes.c_uint), ctypes.POINTER(ctypes.c_uint),
                                              ctypes.POINTER(ctypes.c_uint)]
    lib.clang_getSpellingLocation.restype = None
    lib.clang_getSkippedRanges.argtypes = [ci.TranslationUnit, ci.File]
    lib.clang_getSkippedRanges.restype = ctypes.POINTER(SourceRangeList)
    lib.clang_disposeSourceRangeList.argtypes = [ctypes.POINTER(SourceRangeList)]
    lib.clang_disposeSourceRangeList.restype = None
    return lib


class SourceRangeList(ctypes.Structure):
    _fields_ = [("count", ctypes.c_uint), ("ranges", ctypes.POINTER(ci.SourceRange))]


def is_name_char(c):
    return c.isalnum() or c == "_"


def name_of(cursor):
    """The name as the source writes it: a template's constructor is spelled
    "basic_json<T...>" by libclang, its destructor "~basic_json<T...>"."""
    name = cursor.spelling
    if not name.startswith("operator") and "<" in name:
        name = name[:name.index("<")]
    return name.lstrip("~")


def cleaned_doc(raw):
    """A comment's text without its markers: what a reader takes as the doc."""
    if not raw:
        return None
    lines = []
    for line in raw.splitlines():
        s = line.strip()
        for opener in ("/**", "/*!", "/*", "///<", "//!<", "///", "//!", "//"):
            if s.startswith(opener):
                s = s[len(opener):]
                break
        if s.endswith("*/"):
            s = s[:-2]
        s = s.rstrip("*").strip()
        if s.startswith("*"):
            s = s[1:].strip()
        lines.append(s)
    text = "\n".join(lines).strip()
    return text or None


class Groups:
    """Union-find over entity keys: a USR and a canonical place name one entity."""

    def __init__(self):
        self.parent = {}

    def find(self, key):
        root = key
        while self.parent.get(root, root) != root:
            root = self.parent[root]
        while self.parent.get(key, key) != root:
            self.parent[key], key = root, self.parent[key]
        return root

    def union(self, a, b):
        ra, rb = self.find(a), self.find(b)
        if ra != rb:
            self.parent[rb] = ra
        return ra


class TreeWalk:
    def __init__(self, root, jobs_log):
        self.root = os.path.realpath(root)
        self.lib = load_libclang()
        self.index = ci.Index.create()
        self.log = jobs_log
        self.texts = {}
        self.groups = Groups()
        self.done = set()  # files walked
        # What is recorded, by relative path.
        self.decls = []  # [key, file, line, col, name, is_definition, doc]
        self.refs = []  # [key, file, line, col, name]
        self.unresolved = set()  # (file, line, name)
        self.outlines = {}  # file -> set((name, line))
        self.macro_bodies = {}  # macro key -> [(file, line, name)] of its body's identifiers
        self.expanded_macros = set()
        self.credited = set()  # (file, line, name) of macro bodies credited through an expansion
        self.skipped = {}  # file -> [[first, last]] lines that the preprocessor left out

    # -- files --------------------------------------------------------------

    def tree_files(self):
        sources, headers = [], []
        for folder, dirs, files in os.walk(self.root):
            dirs[:] = sorted(d for d in dirs if not d.startswith("."))
            for f in sorted(files):
                path = os.path.join(folder, f)
                if f.endswith(SOURCE_EXTENSIONS):
                    sources.append(path)
                elif f.endswith(HEADER_EXTENSIONS):
                    headers.append(path)
        return sources, headers

    def include_dirs(self):
        dirs = [self.root]
        for folder, sub, _ in os.walk(self.root):
            sub[:] = sorted(d for d in sub if not d.startswith("."))
            if os.path.basename(folder) == "include":
                dirs += [folder, os.path.dirname(folder)]
        seen = set()
        return [d for d in dirs if not (d in seen or seen.add(d))]

    def rel(self, path):
        if not path:
            return None
        real = os.path.realpath(path)
        if not real.startswith(self.root + os.sep):
            return None
        return os.path.relpath(real, self.root)

    def text(self, rel):
        if rel not in self.texts:
            with open(os.path.join(self.root, rel), "rb") as f:
                self.texts[rel] = f.read().decode("utf-8", "replace").split("\n")
        return self.texts[rel]

    def written(self, rel, line, col, name):
        """Whether `name` is the token written at line:col (columns count bytes)."""
        lines = self.text(rel)
        if not name or line < 1 or line > len(lines):
            return False
        raw = lines[line - 1].encode("utf-8")
        start = col - 1
        end = start + len(name.encode("utf-8"))
        if raw[start:end] != name.encode("utf-8"):
            return False
        return end >= len(raw) or not is_name_char(chr(raw[end]) if raw[end] < 128 else "a")

    # -- places -------------------------------------------------------------

    def place(self, location):
        f = ci.c_object_p()
        line, col, offset = ctypes.c_uint(), ctypes.c_uint(), ctypes.c_uint()
        self.lib.clang_getSpellingLocation(location, ctypes.byref(f), ctypes.byref(line), ctypes.byref(col),
                                           ctypes.byref(offset))
        if not f:
            return None, 0, 0
        return self.rel(ci.File(f).name), line.value, col.value

    def entity(self, cursor):
        """The group key of the entity `cursor` (a declaration) is."""
        usr = cursor.get_usr()
        canonical = cursor.canonical
        rel, line, col = self.place(canonical.location)
        keys = []
        if usr:
            keys.append("U:" + usr)
        if rel and cursor.kind != K.NAMESPACE:
            keys.append("L:%s:%d:%d:%s" % (rel, line, col, name_of(cursor)))
        if not keys:
            return None
        for k in keys[1:]:
            self.groups.union(keys[0], k)
        return keys[0]

    # -- the walk -----------------------------------------------------------

    def parse(self, path, header):
        language = "c" if path.endswith(".c") else "c++"
        args = ["-x", language + ("-header" if header else ""), "-std=c11" if language == "c" else "-std=c++17",
                "-fparse-all-comments", "-ferror-limit=0", "-I" + os.path.dirname(path)]
        args += ["-I" + d for d in self.include_dirs_cache]
        options = ci.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
        try:
            return self.index.parse(path, args=args, options=options)
        except ci.TranslationUnitLoadError as e:
            self.log.write("oracle_cpp: %s: cannot parse (%s)\n" % (self.rel(path), e))
            return None

    def walk_unit(self, path, header):
        tu = self.parse(path, header)
        if tu is None:
            return
        errors = sum(1 for d in tu.diagnostics if d.severity >= ci.Diagnostic.Error)
        self.log.write("oracle_cpp: %s: %d errors\n" % (self.rel(path), errors))
        self.macros_by_name = {}
        self.expansions = {}  # (file, line, col) -> macro definition cursor
        self.spans = {}  # (file, line) -> [(first col, last col, macro definition)] of the macros used there
        self.pending = []  # names written in a macro's body, found at the macro's use
        walked = set()
        definitions = []
        for child in tu.cursor.get_children():
            rel = self.rel(child.location.file.name) if child.location.file else None
            if rel is None:
                continue
            if child.kind == K.MACRO_DEFINITION:
                self.macros_by_name[child.spelling] = child
            if rel in self.done:
                continue
            walked.add(rel)
            if child.kind == K.MACRO_DEFINITION:
                definitions.append((child, rel))
            self.visit(child)
        self.credit_macro_bodies()
        for definition, rel in definitions:
            self.macros_in_body(definition, rel)
        for rel in walked:
            self.preprocessor_lines(tu, rel)
        self.done |= walked

    def visit(self, top):
        stack = [(top, None, False)]
        while stack:
            cursor, function, befriended = stack.pop()
            kind = cursor.kind
            if kind in LOCAL_KINDS:
                pass  # not recorded, but its type and default are
            elif kind.is_declaration() or kind == K.MACRO_DEFINITION:
                self.declaration(cursor, function, befriended)
                if kind in FUNCTION_KINDS:
                    function = cursor
            elif kind in REFERENCE_KINDS:
                self.reference(cursor)
            if kind == K.TEMPLATE_REF:
                self.template_qualifiers(cursor)
            befriended = kind == K.FRIEND_DECL
            stack.extend((child, function, befriended) for child in reversed(list(cursor.get_children())))

    def preprocessor_lines(self, tu, rel):
        """What libclang leaves to no one: the lines the preprocessor skips,
        the names that #if, #ifdef, #ifndef, #elif and #undef test or drop,
        and those inside a noexcept(...) clause."""
        ranges = self.lib.clang_getSkippedRanges(tu, tu.get_file(os.path.join(self.root, rel)))
        skipped = []
        for i in range(ranges.contents.count):
            r = ranges.contents.ranges[i]
            skipped.append([r.start.line, r.end.line])
        self.lib.clang_disposeSourceRangeList(ranges)
        if skipped:
            self.skipped[rel] = skipped
        directive = False
        for number, text in enumerate(self.text(rel), 1):
            s = text.strip()
            if s.startswith("#"):
                word = s[1:].lstrip().split("(")[0].split(" ")[0].split("\t")[0]
                directive = word in ("if", "ifdef", "ifndef", "elif", "undef")
            if directive:
                for name in re.findall(r"[A-Za-z_][A-Za-z0-9_]*", s):
                    self.unresolved.add((rel, number, name))
            directive = directive and s.endswith("\\")
        # What noexcept(...) tests: libclang does not visit it.
        text = "\n".join(self.text(rel))
        for start in re.finditer(r"\bnoexcept\s*\(", text):
            depth, i = 0, start.end() - 1
            while i < len(text):
                depth += {"(": 1, ")": -1}.get(text[i], 0)
                if depth == 0:
                    break
                i += 1
            first = text.count("\n", 0, start.end()) + 1
            for number, part in enumerate(text[start.end():i].split("\n"), first):
                for name in re.findall(r"[A-Za-z_][A-Za-z0-9_]*", part):
                    self.unresolved.add((rel, number, name))

    def template_qualifiers(self, cursor):
        """The qualifier of a template's name (`std::` of `std::vector<int>`),
        which libclang does not visit."""
        rel, line, col = self.place(cursor.location)
        if not rel or line < 1:
            return
        before = self.text(rel)[line - 1].encode("utf-8")[:max(col - 1, 0)].decode("utf-8", "replace")
        chain = re.search(r"((?:[A-Za-z_][A-Za-z0-9_]*\s*::\s*)+)$", before)
        if chain:
            for name in re.findall(r"[A-Za-z_][A-Za-z0-9_]*", chain.group(1)):
                self.unresolved.add((rel, line, name))

    def declaration(self, cursor, function, befriended):
        name = name_of(cursor)
        rel, line, col = self.place(cursor.location)
        if not rel or not name:
            return
        if cursor.kind == K.VAR_DECL and function is not None:
            return  # a local variable
        if cursor.kind == K.MACRO_DEFINITION:
            self.record_macro_body(cursor, rel)
        if not self.written(rel, line, col, name):
            return  # made by a macro
        key = self.entity(cursor)
        if key is None:
            return
        definition = cursor.is_definition() or cursor.kind in (K.MACRO_DEFINITION, K.ENUM_CONSTANT_DECL,
                                                              K.NAMESPACE, K.TYPEDEF_DECL, K.TYPE_ALIAS_DECL)
        doc = None
        if cursor.kind != K.MACRO_DEFINITION:
            try:
                doc = cleaned_doc(cursor.raw_comment)
            except Exception:  # noqa: BLE001 -- libclang has no comment for some cursors
                doc = None
        self.decls.append([key, rel, line, col, name, bool(definition), doc])
        # An outline lists what the file defines: no friend, no forward declaration of a type.
        if cursor.kind in TYPE_KINDS and not cursor.is_definition():
            return
        if cursor.kind in OUTLINE_KINDS and not befriended:
            self.outlines.setdefault(rel, set()).add((name, line))

    def record_macro_body(self, cursor, rel):
        key = self.entity(cursor)
        body = []
        tokens = list(cursor.get_tokens())
        for t in tokens[1:]:
            if t.kind == ci.TokenKind.IDENTIFIER:
                body.append((rel, t.location.line, t.spelling))
        self.macro_bodies.setdefault(self.groups.find(key), body)

    def macros_in_body(self, definition, rel):
        """A macro that another's body names is used there, whether or not a unit expands it."""
        tokens = list(definition.get_tokens())
        parameters = set()
        if len(tokens) > 1 and tokens[1].spelling == "(" and tokens[1].extent.start.offset == tokens[0].extent.end.offset:
            for t in tokens[2:]:
                if t.spelling == ")":
                    break
                parameters.add(t.spelling)
        for t in tokens[1:]:
            macro = self.macros_by_name.get(t.spelling)
            if t.kind == ci.TokenKind.IDENTIFIER and macro is not None and t.spelling not in parameters:
                location = t.location
                self.refs.append([self.entity(macro), rel, location.line, location.column, t.spelling])
                self.credited.add((rel, location.line, t.spelling))

    def targets(self, cursor):
        """The declarations a reference names: one, or an overload set's members."""
        ref = cursor.referenced
        if ref is None:
            return None
        if ref.kind == K.OVERLOADED_DECL_REF:
            n = self.lib.clang_getNumOverloadedDecls(ref)
            return [self.lib.clang_getOverloadedDecl(ref, i) for i in range(n)]
        return [ref]

    def reference(self, cursor):
        rel, line, col = self.place(cursor.location)
        if not rel:
            return
        kind = cursor.kind
        if kind == K.MACRO_INSTANTIATION:
            definition = cursor.referenced
            if definition is not None:
                self.expansions[(rel, line, col)] = definition
                end = cursor.extent.end
                self.spans.setdefault((rel, line), []).append((col, end.column if end.line == line else 1 << 30,
                                                               definition))
                key = self.entity(definition)
                self.expanded_macros.add(key)
                if self.written(rel, line, col, cursor.spelling):
                    self.refs.append([key, rel, line, col, cursor.spelling])
            return
        targets = self.targets(cursor)
        if not targets:
            if kind in (K.MEMBER_REF_EXPR, K.DECL_REF_EXPR):
                name = cursor.spelling or self.member_name(cursor)
                if name and not self.written(rel, line, col, name) and (rel, line, col) in self.expansions:
                    self.pending.append((rel, line, col, None, name))
                elif name:
                    self.unresolved.add((rel, line, name))
                else:
                    # Made by a macro, its name hidden: any name of the macro's body.
                    for first, last, macro in self.spans.get((rel, line), []):
                        if first <= col <= last:
                            self.pending.append((rel, line, first, None, None))
            return
        for target in targets:
            if target.kind in LOCAL_KINDS or target.kind == K.VAR_DECL and self.is_local(target):
                continue
            name = name_of(target)
            if kind == K.CALL_EXPR and target.kind != K.CONSTRUCTOR:
                continue  # the callee's own reference names it
            key = self.entity(target)
            if key is None:
                continue
            if self.written(rel, line, col, name):
                self.refs.append([key, rel, line, col, name])
            elif (rel, line, col) in self.expansions:
                self.pending.append((rel, line, col, key, name))

    def is_local(self, var):
        parent = var.semantic_parent
        return parent is not None and parent.kind in FUNCTION_KINDS

    def member_name(self, cursor):
        """The member a dependent `x.name` or `x->name` names: the name after the last dot or arrow."""
        tokens = list(cursor.get_tokens())
        for i in range(len(tokens) - 1, 0, -1):
            if tokens[i - 1].spelling in (".", "->", "::") and tokens[i].kind == ci.TokenKind.IDENTIFIER:
                return tokens[i].spelling
            if tokens[i - 1].spelling == "template" and i >= 2 and tokens[i - 2].spelling in (".", "->", "::"):
                return tokens[i].spelling
        return None

    def credit_macro_bodies(self):
        """Names that a macro's body writes, resolved at the macro's uses,
        credited to the body's lines; those left unresolved there, marked so."""
        for rel, line, col, key, name in self.pending:
            macro = self.expansions.get((rel, line, col))
            if key is None and name is None:
                # A dependent member whose name the expansion hides: any name of the body.
                body = self.macro_bodies.get(self.groups.find(self.entity(macro))) if macro is not None else None
                self.unresolved.update((r, n, t) for r, n, t in body or [])
            elif key is None:
                self.credit(macro, name, 0, set(), lambda at, n: self.unresolved.add(at + (n,)))
            else:
                self.credit(macro, name, 0, set(), lambda at, n, key=key: self.credit_ref(key, at, n))

    def credit_ref(self, key, at, name):
        self.refs.append([key, at[0], at[1], 0, name])
        self.credited.add(at + (name,))

    def credit(self, macro, name, depth, seen, sink):
        if macro is None or depth > 4:
            return False
        mkey = self.groups.find(self.entity(macro))
        if mkey in seen:
            return False
        seen.add(mkey)
        body = self.macro_bodies.get(mkey)
        if body is None:
            rel = self.rel(macro.location.file.name) if macro.location.file else None
            if rel is None:
                return False
            self.record_macro_body(macro, rel)
            body = self.macro_bodies.get(mkey, [])
        found = False
        for body_rel, body_line, token in body:
            if token == name:
                sink((body_rel, body_line), name)
                found = True
        if found:
            return True
        for _, _, token in body:
            inner = self.macros_by_name.get(token)
            if inner is not None and self.credit(inner, name, depth + 1, seen, sink):
                return True
        return False

    def run(self):
        self.include_dirs_cache = self.include_dirs()
        sources, headers = self.tree_files()
        for path in sources:
            self.walk_unit(path, header=False)
        for path in headers:
            if self.rel(path) not in self.done:
                self.walk_unit(path, header=True)
        # A macro that no unit expands: its body's names are the oracle's blind spot.
        expanded = {self.groups.find(k) for k in self.expanded_macros}
        for mkey, body in self.macro_bodies.items():
            if self.groups.find(mkey) not in expanded:
                for rel, line, name in body:
                    self.unresolved.add((rel, line, name))
        return self.result()

    def result(self):
        find = self.groups.find
        entities = {}
        for key, rel, line, col, name, definition, doc in self.decls:
            e = entities.setdefault(find(key), {"decls": [], "refs": set()})
            e["decls"].append([rel, line, col, name, definition, doc])
        for key, rel, line, col, name in self.refs:
            e = entities.setdefault(find(key), {"decls": [], "refs": set()})
            e["refs"].add((rel, line))
        ids = {}
        out_entities = []
        for key, e in entities.items():
            ids[key] = len(out_entities)
            declared = {(d[0], d[1]) for d in e["decls"]}
            out_entities.append({"decls": e["decls"],
                                 "refs": sorted(r for r in e["refs"] if r not in declared)})
        # Where each name is written: (file, line) -> [[col, name, entity]].
        at = {}
        for key, rel, line, col, name, *_ in self.decls:
            at.setdefault("%s:%d" % (rel, line), []).append([col, name, ids[find(key)]])
        for key, rel, line, col, name in self.refs:
            at.setdefault("%s:%d" % (rel, line), []).append([col, name, ids[find(key)]])
        unresolved = {}
        for rel, line, name in self.unresolved:
            if (rel, line, name) not in self.credited:
                unresolved.setdefault(name, []).append([rel, line])
        return {"entities": out_entities, "at": at, "unresolved": unresolved, "skipped": self.skipped,
                "outlines": {f: sorted(v) for f, v in self.outlines.items()}}


# -- cache and queries ----------------------------------------------------

def fingerprint(root):
    h = hashlib.sha256()
    h.update(str(CACHE_VERSION).encode())
    for folder, dirs, files in os.walk(root):
        dirs[:] = sorted(d for d in dirs if not d.startswith("."))
        for f in sorted(files):
            if f.endswith(SOURCE_EXTENSIONS + HEADER_EXTENSIONS):
                st = os.stat(os.path.join(folder, f))
                h.update(("%s/%s %d %d\n" % (folder, f, st.st_size, st.st_mtime_ns)).encode())
    return h.hexdigest()


def using_blind_spots(data, root):
    """A type named through a using-declaration (`using ::testing::Test;`
    then `: public Test`) is a type libclang 14 does not visit: the lines of
    a file that write a name it declares so, where no entity is recorded for
    the name, are places the oracle cannot judge."""
    declared = re.compile(r"^\s*using\s+(?:typename\s+)?(?:::)?(?:\w+::)+(\w+)\s*;", re.M)
    for folder, dirs, files in os.walk(root):
        dirs[:] = sorted(d for d in dirs if not d.startswith("."))
        for f in sorted(files):
            if not f.endswith(SOURCE_EXTENSIONS + HEADER_EXTENSIONS):
                continue
            path = os.path.join(folder, f)
            rel = os.path.relpath(path, root)
            with open(path, "rb") as source:
                text = source.read().decode("utf-8", "replace")
            names = set(declared.findall(text))
            for number, line in enumerate(text.split("\n"), 1):
                for name in names:
                    if not re.search(r"\b%s\b" % re.escape(name), line):
                        continue
                    if not any(spot[1] == name for spot in data["at"].get("%s:%d" % (rel, number), [])):
                        data["unresolved"].setdefault(name, []).append([rel, number])


def tree_index(root, cache, log):
    data = cached_index(root, cache, log)
    using_blind_spots(data, root)
    return data


def cached_index(root, cache, log):
    key = fingerprint(root)
    if cache and os.path.exists(cache):
        with open(cache) as f:
            data = json.load(f)
        if data.get("fingerprint") == key:
            return data
    data = TreeWalk(root, log).run()
    data["fingerprint"] = key
    if cache:
        os.makedirs(os.path.dirname(os.path.abspath(cache)), exist_ok=True)
        with open(cache + ".tmp", "w") as f:
            json.dump(data, f)
        os.replace(cache + ".tmp", cache)
    return data


def answer(data, query):
    """The entity written at the query's place, its definition, doc and references."""
    spots = data["at"].get("%s:%d" % (query["file"], query["line"]), [])
    named = [s for s in spots if s[1] == query["name"]]
    if not named:
        return {"definition": None, "doc": None, "references": [], "unresolved": []}
    col = query.get("column") or 0
    spot = min(named, key=lambda s: abs(s[0] - col))
    entity = data["entities"][spot[2]]
    decls = entity["decls"]
    definitions = [d for d in decls if d[4]]
    main = definitions[0] if definitions else (decls[0] if decls else None)
    doc = next((d[5] for d in definitions + decls if d[5]), None)
    return {
        "definition": {"file": main[0], "line": main[1]} if main else None,
        "doc": doc,
        "references": entity["refs"],
        "unresolved": data["unresolved"].get(query["name"], []),
    }


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--cache", help="the JSON file that keeps the tree's index between runs")
    args = parser.parse_args()
    request = json.load(sys.stdin)
    root = os.path.realpath(request["root"])
    data = tree_index(root, args.cache, sys.stderr)
    answers = [answer(data, q) for q in request.get("queries", [])]
    outlines = {f: data["outlines"].get(f, []) for f in request.get("outline_files", [])}
    json.dump({"answers": answers, "outlines": outlines, "skipped": data["skipped"]}, sys.stdout)
    sys.stdout.write("\n")


if __name__ == "__main__":
    main()
