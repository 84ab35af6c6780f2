"""Python analyzer of kestrune-index: the definitions of a tree's Python files
and the uses of them, each name resolved by what it means where it is
written. It speaks the protocol of README.md beside it (files on standard
input, one JSON line per file on standard output), parses with CPython's ast
and never imports, runs or opens anything. Standard library only; Python 3.9+.

Reading. Each file is decoded as its coding declaration or BOM says (UTF-8
otherwise), ill-formed bytes as U+FFFD. A file that does not parse (or nests
too deeply) is answered with its error and costs nothing else. Each file is
parsed once, as it arrives, into a summary (its definitions, scopes, bindings
and the name chains it uses); the syntax tree is dropped at once. Names are
resolved across files once every file has come.

Module names. A file's module is its path from its import root, "/" read
as ".", without the suffix; a package's __init__ is the package.
- In a regular package (a folder with __init__.py or __init__.pyi), the
  import root is the folder above the outermost package of the unbroken
  chain of packages: a/b/c.py with a/__init__.py and a/b/__init__.py is a.b.c.
  When the folders above that root, up to the tree's root or a source root,
  are namespace packages (PEP 420: an identifier as name, no __init__, no
  Python file of their own), they are part of the name: ns/pkg/m.py is
  ns.pkg.m.
- A source root is a folder named src, lib, Lib or python that is no package:
  src/pkg/mod.py is pkg.mod.
- A file in a folder that is no package (a script, tests/test_x.py) is named
  by its path from the nearest source root or the tree's root (tests.test_x;
  src/tool.py is tool), as PEP 420 would import it from there.
Several files of one module keep every symbol (their fqns repeat).

Definitions (symbols). The module (line 1); every class and def at any
depth (methods: defs directly in a class body), each @overload stub and the
implementation, a property's getter and setter each; names assigned at module
or class level (variable, or constant when UPPER_CASE), annotated ones
without a value included. Lines span the decorators. fqn: module, then the
enclosing classes and defs (pkg.mod.Cart.total, pkg.mod.outer.inner).
signature: the head as the source writes it, on one line: "def name(params)
-> ret" ("async def" too), "class Name(bases)" (ctags's form). doc: the
docstring, or for an assignment the string statement just after it, through
inspect.cleandoc. export: no part of the name is private (one leading
underscore, dunders are public) and no def encloses it; at module level a
static __all__, when there is one, decides instead.

References. A use is a name, or an attribute chain on a name, that the file
binds to a definition of the tree:
- Scopes as Python has them: function, lambda, comprehension and class
  scopes; class bodies are not seen from their methods; global and nonlocal.
  A parameter, local, loop or comprehension variable that shadows a name is
  not a use of it. A name bound several times in a scope means the bindings
  from its last unconditional one on (those in if, try, for, while and match
  are conditional), and in the scope that binds it only those before the use.
- Imports: absolute (the importing script's folder first, then module names,
  then the tree's import roots), relative (from . import x, from ..m import
  y), aliases; from m import x resolves through m's own bindings, so a name
  re-exported by a package's __init__ resolves to its definition; import a.b
  then a.b.X; from m import * (m's static __all__, else its public names).
- Attributes of a module (its names, then its submodules) and of a class or
  an instance (its members, then its bases' in C3 order over the tree's
  classes). An instance is what self (first parameter of a method; cls of a
  classmethod is the class), Cls(...), a parameter or variable annotated
  with a class (Optional[...], X | None and string annotations read), a call
  of a def annotated to return a class, a property so annotated, or a
  variable assigned one of these, stands for. super() is the enclosing
  method's class after itself.
- usage: "import" in import statements, "call" when the name is called,
  "reference" otherwise (annotations, string annotations included,
  decorators, base classes, values). caller: the innermost enclosing def or
  class; for a def's or class's head (defaults, annotations, bases), which
  is looked up where it stands, the def or class itself. One entry per
  (fqn, line); a definition's own name is no use.
Builtins and names the tree does not define are never references.
"""

import ast
import gc
import io
import json
import sys
import tokenize
from inspect import cleandoc

Name, Attribute, Call, Subscript, Constant, Await = ast.Name, ast.Attribute, ast.Call, ast.Subscript, ast.Constant, ast.Await
CALL = "()"
INDEX = "[]"
SUPER = "super()"
SOURCE_ROOTS = frozenset({"src", "lib", "Lib", "python"})
MAX_TARGETS = 16
# Deep enough for real code; a file nested deeper is reported, not crashed on.
RECURSION_LIMIT = 4000

DEF, CLASS, VAR, PARAM, IMPORT, FROM, OTHER = range(7)
PROPERTY_DECORATORS = frozenset({"property", "cached_property", "abstractproperty"})
IMPLICIT_CLASSMETHODS = frozenset({"__new__", "__init_subclass__", "__class_getitem__"})
TYPE_WRAPPERS = frozenset({"Optional", "Final", "ClassVar", "Annotated", "Required", "NotRequired"})


class Binding:
    """What one statement binds a name to in a scope. `line`: where the
    binding takes effect; `cond`: whether a branch or loop holds it."""

    __slots__ = ("kind", "line", "cond", "qual", "value", "annot", "flags")

    def __init__(self, kind, line, cond, qual=None, value=None, annot=None, flags=()):
        self.kind = kind
        self.line = line
        self.cond = cond
        self.qual = qual  # the symbol's name inside the module, for a definition
        self.value = value  # VAR: the chain assigned; CLASS: the class's scope; IMPORT/FROM: the module;
        # DEF: (its scope, the chains its return statements give)
        self.annot = annot  # VAR, PARAM: the annotation's chain; DEF: the return annotation's
        self.flags = flags  # DEF: decorator names; PARAM: ("self" or "cls", class scope); FROM: (level, name)


NOTHING = (Binding(OTHER, 0, False),)


class Scope:
    __slots__ = ("kind", "qual", "parent", "names", "declared", "caller", "cls", "stars")

    def __init__(self, kind, qual, parent, caller):
        self.kind = kind  # module, class, function, lambda, comprehension, header (of a def or class)
        self.qual = qual
        self.parent = parent
        self.names = {}
        self.declared = None  # name -> "global" or "nonlocal"
        self.caller = caller  # (qual, kind) of the innermost def or class, or None
        self.cls = None
        self.stars = None  # (module, level) of each `from m import *`


class ClassInfo:
    __slots__ = ("source", "scope", "parent", "qual", "bases", "line", "mro", "attributes")

    def __init__(self, scope, parent, qual, bases, line):
        self.attributes = {}  # name -> (method scope, value chain, annotation chain) of each `self.name = ...`
        self.source = None
        self.scope = scope
        self.parent = parent
        self.qual = qual
        self.bases = bases
        self.line = line
        self.mro = None


class Source:
    """One file: what pass 1 kept of it."""

    __slots__ = ("path", "module", "package", "error", "lines", "doc", "symbols", "scopes", "uses", "bounds",
                 "all_names")

    def __init__(self, path):
        self.path = path
        self.module = None
        self.package = None
        self.error = None
        self.lines = 1
        self.doc = None
        self.symbols = []
        self.scopes = []
        self.uses = []  # (scope, import level, kind, name, line, name, line...): kind 0 a chain, 1-3 an import
        self.bounds = []  # for each use of kind 0, the scope its first name is bound in
        self.all_names = None

    def binding_scope(self, scope, name):
        """The scope whose binding `name` means when used in `scope`: an
        index, -1 for the module's star imports, or None (a builtin or
        nothing)."""
        scopes = self.scopes
        declared = scopes[scope].declared
        if declared and declared.get(name) == "global":
            scope = 0
        elif declared and declared.get(name) == "nonlocal":
            scope = scopes[scope].parent
        first = True
        while scope is not None:
            s = scopes[scope]
            if (first or s.kind != "class") and name in s.names:
                return scope
            first = s.kind == "header"  # a head sees the class body it stands in
            scope = s.parent
        return -1 if scopes[0].stars else None


# ---------------------------------------------------------------------------
# Pass 1: a file's summary.


def decode(data):
    try:
        encoding = tokenize.detect_encoding(io.BytesIO(data).readline)[0]
        return data.decode(encoding, errors="replace")
    except (SyntaxError, LookupError):
        return data.decode("utf-8", errors="replace")


def summarize(path, data):
    source = Source(path)
    text = decode(data)
    lines = text.replace("\r\n", "\n").replace("\r", "\n").split("\n")
    source.lines = max(1, len(lines) - (lines[-1] == ""))
    try:
        tree = ast.parse(text)
        Summarizer(source, lines).module(tree)
    except SyntaxError as e:
        return failed(source, f"syntax error: {e.msg} (line {e.lineno})")
    except ValueError as e:
        return failed(source, f"cannot parse: {e}")
    except RecursionError:
        return failed(source, "nested too deeply to analyze")
    except MemoryError:
        return failed(source, "too large to analyze")
    except Exception as e:  # a fault of this analyzer on one file costs only that file
        return failed(source, f"analyzer error: {e!r}")
    return source


def failed(source, error):
    source.error = error
    source.symbols = []
    source.scopes = [Scope("module", "", None, None)]
    source.uses = []
    source.bounds = []
    return source


def last_name(node):
    """The name a decorator or annotation ends in: `a.b.c(...)` is c."""
    if isinstance(node, ast.Call):
        node = node.func
    if isinstance(node, ast.Attribute):
        return node.attr
    if isinstance(node, ast.Name):
        return node.id
    return None


def decorator_flags(decorators):
    flags = []
    for d in decorators:
        name = last_name(d)
        if name in ("setter", "deleter", "getter") and isinstance(d, ast.Attribute):
            flags.append("setter")
        elif name in PROPERTY_DECORATORS:
            flags.append("property")
        elif name:
            flags.append(name)
    return tuple(flags)


def name_chain(node):
    """`a.b.c` as the chain ("a", line, "b", line, "c", line), or None."""
    parts = []
    while isinstance(node, ast.Attribute):
        parts += (node.end_lineno, node.attr)
        node = node.value
    if not isinstance(node, ast.Name):
        return None
    parts += (node.lineno, node.id)
    return tuple(reversed(parts))


def unwind(node):
    """The chain of an expression made of a name, attributes, calls and
    subscripts (`a.b(x)[i].c` is a, b, CALL, INDEX, c, each with its line):
    (chain or None, the calls and subscripts on the way, what the chain
    stands on when it is no name)."""
    parts = []
    inner = []
    while True:
        t = type(node)
        if t is Attribute:
            parts += (node.end_lineno, node.attr)
            node = node.value
        elif t is Call:
            inner.append(node)
            func = node.func
            if type(func) is Name and func.id == "super":
                parts += (node.lineno, SUPER)
                break
            parts += (0, CALL)
            node = func
        elif t is Subscript:
            inner.append(node)
            parts += (0, INDEX)
            node = node.value
        elif t is Name:
            parts += (node.lineno, node.id)
            break
        else:
            return None, inner, node
    parts.reverse()
    return tuple(parts), inner, None


def string_annotation(node):
    """The expression a string annotation holds, at the string's line."""
    try:
        parsed = ast.parse(node.value.strip(), mode="eval").body
    except (SyntaxError, ValueError, RecursionError, MemoryError):
        return None
    ast.increment_lineno(parsed, node.lineno - 1)
    return parsed


def type_chain(node):
    """The chain of the class an annotation names, seen through Optional[],
    X | None and strings; None when it names no single class."""
    t = type(node)
    if t is ast.Constant and isinstance(node.value, str):
        node = string_annotation(node)
        return type_chain(node) if node is not None else None
    if t is ast.Subscript:
        wrapper = last_name(node.value)
        inner = node.slice
        if wrapper in TYPE_WRAPPERS:
            return type_chain(inner.elts[0] if isinstance(inner, ast.Tuple) else inner)
        if wrapper == "Union" and isinstance(inner, ast.Tuple):
            kept = [e for e in inner.elts if not is_none(e)]
            return type_chain(kept[0]) if len(kept) == 1 else None
        return name_chain(node.value)
    if t is ast.BinOp and isinstance(node.op, ast.BitOr):
        if is_none(node.right):
            return type_chain(node.left)
        if is_none(node.left):
            return type_chain(node.right)
        return None
    return name_chain(node)


def is_none(node):
    return isinstance(node, ast.Constant) and node.value is None


def is_constant_name(name):
    core = name.lstrip("_")
    return len(core) > 1 and core.isupper()


def is_private(name):
    return name.startswith("_") and not (name.startswith("__") and name.endswith("__"))


def string_statement(node):
    if isinstance(node, ast.Expr) and isinstance(node.value, ast.Constant) and isinstance(node.value.value, str):
        return node.value.value
    return None


def static_names(node):
    """The strings of a list or tuple display, or None."""
    if not isinstance(node, (ast.List, ast.Tuple)):
        return None
    names = [string_statement(ast.Expr(e)) for e in node.elts]
    return None if None in names else names


class Summarizer:
    """Walks one syntax tree: symbols, scopes with their bindings, and the
    chains of names used, each with its scope."""

    def __init__(self, source, lines):
        self.source = source
        self.lines = lines
        self.scopes = source.scopes
        self.symbols = source.symbols
        self.raw_uses = []
        self.scope = 0
        self.cond = 0
        self.all_names = None
        self.all_static = True
        self.last_symbols = ()
        self.returns = []  # per def being walked: the chains its return statements give

    # -- scopes, symbols, bindings

    def module(self, tree):
        self.scopes.append(Scope("module", "", None, None))
        self.source.doc = ast.get_docstring(tree)
        old = sys.getrecursionlimit()
        sys.setrecursionlimit(max(old, RECURSION_LIMIT))
        try:
            self.body(tree.body)
        finally:
            sys.setrecursionlimit(old)
        self.source.all_names = self.all_names if self.all_static else None
        self.finish()

    def push(self, kind, qual, caller):
        self.scopes.append(Scope(kind, qual, self.scope, caller))
        return len(self.scopes) - 1

    def enter(self, scope, visit, node):
        saved = self.scope, self.cond
        self.scope, self.cond = scope, 0
        visit(node)
        self.scope, self.cond = saved

    def child_qual(self, name):
        qual = self.scopes[self.scope].qual
        return qual + "." + name if qual else name

    def symbol(self, qual, name, kind, line, end, sig=None, doc=None):
        scope = self.scopes[self.scope]
        parent_public = scope.kind == "module" or (scope.kind == "class" and scope.caller[2])
        public = parent_public and not is_private(name)
        entry = [qual, name, kind, line, end, sig, doc, public]
        self.symbols.append(entry)
        return entry

    def bind(self, name, binding, scope=None):
        s = self.scopes[self.scope if scope is None else scope]
        if s.declared and name in s.declared:
            if s.declared[name] == "global":
                self.bind_global(name, binding)
            return
        s.names.setdefault(name, []).append(binding)

    def bind_global(self, name, binding):
        """A def binding a global binds it in the module once it has run: an
        import (a lazy module __getattr__), or a variable (no value read: it
        would be read in the def's scope)."""
        if binding.kind == VAR:
            binding = Binding(VAR, binding.line, True, name)
        elif binding.kind in (IMPORT, FROM):
            binding.cond = True
        else:
            return
        self.scopes[0].names.setdefault(name, []).append(binding)

    def level_scope(self):
        """The scope a walrus binds in: the nearest that is no comprehension
        or head."""
        scope = self.scope
        while self.scopes[scope].kind in ("comprehension", "header"):
            scope = self.scopes[scope].parent
        return scope

    # -- statements

    def body(self, statements):
        pending = ()  # the symbols the statement before assigned: a string after them is their doc
        for node in statements:
            if pending:
                doc = string_statement(node)
                if doc is not None:
                    for entry in pending:
                        entry[6] = cleandoc(doc)
            self.last_symbols = ()
            handler = STATEMENTS.get(type(node))
            if handler is not None:
                handler(self, node)
            else:
                self.generic(node)
            pending, self.last_symbols = self.last_symbols, ()

    def generic(self, node):
        """A statement without a handler of its own: its expressions, and its
        statements as conditional."""
        for field in node._fields:
            value = getattr(node, field)
            items = value if isinstance(value, list) else (value,)
            statements = [item for item in items if isinstance(item, ast.stmt)]
            if statements:
                self.cond += 1
                self.body(statements)
                self.cond -= 1
            for item in items:
                if isinstance(item, ast.expr):
                    self.expr(item)
                elif isinstance(item, ast.AST) and not isinstance(item, (ast.stmt, ast.expr_context)):
                    self.generic(item)

    def s_def(self, node):
        for d in node.decorator_list:
            self.expr(d)
        outer = self.scopes[self.scope]
        in_class = outer.kind == "class"
        kind = "method" if in_class else "function"
        qual = self.child_qual(node.name)
        self.header(qual, kind, lambda: (self.defaults(node.args), self.annotations(node.args, node.returns)))
        start = node.decorator_list[0].lineno if node.decorator_list else node.lineno
        keyword = "async def " if isinstance(node, ast.AsyncFunctionDef) else "def "
        signature = keyword + node.name + self.signature(node)
        self.symbol(qual, node.name, kind, start, node.end_lineno, signature, ast.get_docstring(node))
        flags = decorator_flags(node.decorator_list)
        cond = self.cond > 0 or "setter" in flags
        binding = Binding(DEF, node.body[0].lineno, cond, qual, annot=type_chain_of(node.returns), flags=flags)
        self.bind(node.name, binding)
        scope = self.push("function", qual, (qual, kind, False))
        method_class = self.scope if in_class and "staticmethod" not in flags else None
        is_cls = "classmethod" in flags or node.name in IMPLICIT_CLASSMETHODS
        self.returns.append([])
        self.enter(scope, lambda n: self.function_body(n, method_class, is_cls), node)
        returned = self.returns.pop()
        if returned:
            binding.value = (scope, tuple(returned))

    def header(self, qual, kind, walk):
        """The names a def's or class's head uses (defaults, annotations,
        bases): looked up where the head stands, their caller the def or
        class itself."""
        scope = self.push("header", self.scopes[self.scope].qual, (qual, kind, False))
        saved = self.scope
        self.scope = scope
        walk()
        self.scope = saved

    def s_return(self, node):
        if node.value is not None:
            chain = self.value(node.value)
            if chain is not None and self.returns:
                self.returns[-1].append(chain)

    def function_body(self, node, method_class, is_cls):
        self.params(node.args, method_class, is_cls)
        if isinstance(node, ast.Lambda):
            self.expr(node.body)
        else:
            self.body(node.body)

    def s_class(self, node):
        for d in node.decorator_list:
            self.expr(d)
        qual = self.child_qual(node.name)
        bases = []
        self.header(qual, "class", lambda: (bases.extend(c for c in map(self.value, node.bases) if c is not None),
                                            [self.expr(k.value) for k in node.keywords]))
        bases = tuple(bases)
        heads = [self.segment(b) for b in node.bases] + [f"{k.arg}={self.segment(k.value)}" if k.arg else
                                                         "**" + self.segment(k.value) for k in node.keywords]
        signature = f"class {node.name}({', '.join(heads)})" if heads else "class " + node.name
        start = node.decorator_list[0].lineno if node.decorator_list else node.lineno
        entry = self.symbol(qual, node.name, "class", start, node.end_lineno, signature, ast.get_docstring(node))
        scope = self.push("class", qual, (qual, "class", entry[7]))
        self.scopes[scope].cls = ClassInfo(scope, self.scope, qual, bases, node.lineno)
        self.bind(node.name, Binding(CLASS, node.body[0].lineno, self.cond > 0, qual, value=scope))
        self.enter(scope, lambda n: self.body(n.body), node)

    def s_assign(self, node):
        value = self.value(node.value)
        symbols = []
        for target in node.targets:
            symbols += self.target(target, node, value, None)
        self.last_symbols = symbols
        if len(node.targets) == 1 and self.is_all(node.targets[0]):
            self.set_all(static_names(node.value), replace=True)

    def s_annassign(self, node):
        self.annotation(node.annotation)
        value = self.value(node.value) if node.value is not None else None
        symbols = self.target(node.target, node, value, type_chain_of(node.annotation))
        if isinstance(node.target, ast.Name):
            self.last_symbols = symbols
            if self.is_all(node.target) and node.value is not None:
                self.set_all(static_names(node.value), replace=True)

    def s_augassign(self, node):
        self.expr(node.value)
        target = node.target
        if isinstance(target, ast.Name):
            self.use(target.id, target.lineno)
            scope = self.scopes[self.scope]
            qual = self.child_qual(target.id) if scope.kind in ("module", "class") else None
            self.bind(target.id, Binding(VAR, node.end_lineno, self.cond > 0, qual))
            if self.is_all(target):
                self.set_all(static_names(node.value), replace=False)
        else:
            self.expr(target)

    def is_all(self, target):
        return self.scope == 0 and isinstance(target, ast.Name) and target.id == "__all__"

    def set_all(self, names, replace):
        if names is None:
            self.all_static = False
        elif replace or self.all_names is None:
            self.all_names = list(names)
        else:
            self.all_names += names

    def target(self, node, statement, value, annot):
        """Binds the names an assignment stores; returns the symbols made."""
        t = type(node)
        if t is ast.Name:
            scope = self.scopes[self.scope]
            if scope.kind not in ("module", "class"):
                self.bind(node.id, Binding(VAR, statement.end_lineno, self.cond > 0, None, value, annot))
                return []
            qual = self.child_qual(node.id)
            self.bind(node.id, Binding(VAR, statement.end_lineno, self.cond > 0, qual, value, annot))
            kind = "constant" if is_constant_name(node.id) else "variable"
            return [self.symbol(qual, node.id, kind, statement.lineno, statement.end_lineno)]
        if t in (ast.Tuple, ast.List):
            symbols = []
            for element in node.elts:
                symbols += self.target(element, statement, None, None)
            return symbols
        if t is ast.Starred:
            return self.target(node.value, statement, None, None)
        self.expr(node)
        if t is ast.Attribute and (value or annot):
            self.instance_attribute(node, value, annot)
        return []

    def instance_attribute(self, node, value, annot):
        """Keeps `self.name = value` in a method for what instances hold."""
        if not isinstance(node.value, ast.Name):
            return
        for binding in self.scopes[self.scope].names.get(node.value.id, ()):
            if binding.kind == PARAM and binding.flags and binding.flags[0] == "self":
                cls = self.scopes[binding.flags[1]].cls
                cls.attributes.setdefault(node.attr, []).append((self.scope, value, annot))

    def bind_other(self, node, line):
        """Binds the names of a target whose value is not known (a loop
        variable, an exception, a `with` target)."""
        t = type(node)
        if t is ast.Name:
            self.bind(node.id, Binding(OTHER, line, self.cond > 0))
        elif t in (ast.Tuple, ast.List):
            for element in node.elts:
                self.bind_other(element, line)
        elif t is ast.Starred:
            self.bind_other(node.value, line)
        else:
            self.expr(node)

    def s_for(self, node):
        self.expr(node.iter)
        self.cond += 1
        self.bind_other(node.target, node.lineno)
        self.body(node.body)
        self.body(node.orelse)
        self.cond -= 1

    def s_while_if(self, node):
        self.expr(node.test)
        self.cond += 1
        self.body(node.body)
        self.body(node.orelse)
        self.cond -= 1

    def s_with(self, node):
        for item in node.items:
            self.expr(item.context_expr)
            if item.optional_vars is not None:
                self.bind_other(item.optional_vars, node.lineno)
        self.body(node.body)

    def s_try(self, node):
        self.cond += 1
        self.body(node.body)
        for handler in node.handlers:
            if handler.type is not None:
                self.expr(handler.type)
            if handler.name:
                self.bind(handler.name, Binding(OTHER, handler.lineno, True))
            self.body(handler.body)
        self.body(node.orelse)
        self.body(node.finalbody)
        self.cond -= 1

    def s_match(self, node):
        self.expr(node.subject)
        self.cond += 1
        for case in node.cases:
            self.pattern(case.pattern)
            if case.guard is not None:
                self.expr(case.guard)
            self.body(case.body)
        self.cond -= 1

    def pattern(self, node):
        name = getattr(node, "name", None) or getattr(node, "rest", None)
        if isinstance(name, str):
            self.bind(name, Binding(OTHER, node.lineno, True))
        for field in node._fields:
            value = getattr(node, field)
            for item in value if isinstance(value, list) else (value,):
                if isinstance(item, ast.expr):
                    self.expr(item)
                elif isinstance(item, ast.AST):
                    self.pattern(item)

    def s_import(self, node):
        for alias in node.names:
            line = getattr(alias, "lineno", node.lineno)
            parts = alias.name.split(".")
            chain = []
            for part in parts:
                chain += (part, line)
            self.raw_uses.append((self.scope, 0, 1, *chain))
            if alias.asname:
                self.bind(alias.asname, Binding(IMPORT, node.end_lineno, self.cond > 0, value=alias.name, flags=True))
            else:
                self.bind(parts[0], Binding(IMPORT, node.end_lineno, self.cond > 0, value=parts[0]))

    def s_importfrom(self, node):
        module = node.module or ""
        chain = []
        for part in module.split(".") if module else ():
            chain += (part, node.lineno)
        for alias in node.names:
            line = getattr(alias, "lineno", node.lineno)
            if alias.name == "*":
                scope = self.scopes[self.scope]
                scope.stars = (scope.stars or []) + [(module, node.level)]
                self.raw_uses.append((self.scope, node.level, 2, *chain))
                continue
            self.raw_uses.append((self.scope, node.level, 3, *chain, alias.name, line))
            binding = Binding(FROM, node.end_lineno, self.cond > 0, value=module, flags=(node.level, alias.name))
            self.bind(alias.asname or alias.name, binding)

    def s_declare(self, node):
        scope = self.scopes[self.scope]
        if scope.declared is None:
            scope.declared = {}
        kind = "global" if isinstance(node, ast.Global) else "nonlocal"
        for name in node.names:
            scope.declared[name] = kind

    def s_delete(self, node):
        for target in node.targets:
            if isinstance(target, ast.Name):
                self.use(target.id, target.lineno)
                if self.scopes[self.scope].kind == "function":
                    self.bind(target.id, Binding(OTHER, node.lineno, True))
            else:
                self.expr(target)

    def s_expr(self, node):
        self.expr(node.value)
        if self.scope == 0 and isinstance(node.value, ast.Call):
            self.extend_all(node.value)

    def extend_all(self, call):
        """`__all__.extend([...])` and `__all__.append("x")` at module level."""
        func = call.func
        if not (isinstance(func, ast.Attribute) and isinstance(func.value, ast.Name) and func.value.id == "__all__"):
            return
        if func.attr == "extend" and len(call.args) == 1:
            self.set_all(static_names(call.args[0]), replace=False)
        elif func.attr == "append" and len(call.args) == 1:
            self.set_all(static_names(ast.List([call.args[0]])), replace=False)
        else:
            self.all_static = False

    # -- parameters and annotations

    def signature(self, node):
        """"(params) -> ret" as the source writes the annotations and defaults."""
        args = node.args
        positional = args.posonlyargs + args.args
        defaults = [None] * (len(positional) - len(args.defaults)) + args.defaults
        parts = []
        for i, a in enumerate(positional):
            parts.append(self.param(a, defaults[i]))
            if i + 1 == len(args.posonlyargs):
                parts.append("/")
        if args.vararg is not None:
            parts.append("*" + self.param(args.vararg, None))
        elif args.kwonlyargs:
            parts.append("*")
        for a, default in zip(args.kwonlyargs, args.kw_defaults):
            parts.append(self.param(a, default))
        if args.kwarg is not None:
            parts.append("**" + self.param(args.kwarg, None))
        text = "(" + ", ".join(parts) + ")"
        return text + " -> " + self.segment(node.returns) if node.returns is not None else text

    def param(self, arg, default):
        text = arg.arg
        if arg.annotation is not None:
            text += ": " + self.segment(arg.annotation)
        if default is not None:
            text += (" = " if arg.annotation is not None else "=") + self.segment(default)
        return text

    def segment(self, node):
        """An expression's source text, on one line (columns count UTF-8 bytes)."""
        first, last = node.lineno - 1, node.end_lineno - 1
        start, end = node.col_offset, node.end_col_offset
        if first == last:
            line = self.lines[first]
            return line[start:end] if line.isascii() else line.encode()[start:end].decode(errors="replace")
        pieces = [line.encode() for line in self.lines[first : last + 1]]
        pieces[0] = pieces[0][start:]
        pieces[-1] = pieces[-1][:end]
        return " ".join(b"\n".join(pieces).decode(errors="replace").split())

    def defaults(self, args):
        for d in args.defaults:
            self.expr(d)
        for d in args.kw_defaults:
            if d is not None:
                self.expr(d)

    def annotations(self, args, returns):
        for a in all_args(args):
            if a.annotation is not None:
                self.annotation(a.annotation)
        if returns is not None:
            self.annotation(returns)

    def params(self, args, method_class, is_cls):
        positional = args.posonlyargs + args.args
        for a in all_args(args):
            flags = ()
            if method_class is not None and positional and a is positional[0]:
                flags = ("cls" if is_cls else "self", method_class)
            starred = a is args.vararg or a is args.kwarg
            annot = type_chain_of(a.annotation) if not starred else None
            self.bind(a.arg, Binding(PARAM, 0, False, annot=annot, flags=flags))

    def annotation(self, node):
        t = type(node)
        if t is ast.Constant:
            if isinstance(node.value, str):
                parsed = string_annotation(node)
                if parsed is not None:
                    self.annotation(parsed)
        elif t is ast.Subscript:
            self.annotation(node.value)
            if last_name(node.value) == "Literal":
                self.expr(node.slice)
            else:
                self.annotation(node.slice)
        elif t in (ast.Tuple, ast.List):
            for e in node.elts:
                self.annotation(e)
        elif t is ast.BinOp:
            self.annotation(node.left)
            self.annotation(node.right)
        else:
            self.expr(node)

    # -- expressions

    def use(self, name, line):
        self.raw_uses.append((self.scope, 0, 0, name, line))

    def expr(self, node):
        t = type(node)
        if t is Name:
            self.raw_uses.append((self.scope, 0, 0, node.id, node.lineno))
        elif t is Attribute or t is Call or t is Subscript:
            self.chain(node)
        elif t is not Constant:
            handler = EXPRESSIONS.get(t)
            if handler is not None:
                handler(self, node)
            else:
                self.children(node, FIELDS.get(t) or fields_of(t))

    def children(self, node, fields):
        for field in fields:
            value = getattr(node, field)
            for item in value if type(value) is list else (value,):
                t = type(item)
                if t is Name:
                    self.raw_uses.append((self.scope, 0, 0, item.id, item.lineno))
                elif t is not Constant and item is not None:
                    self.expr(item)

    def chain(self, node):
        """A chain of attributes, calls and subscripts: one use for the whole
        chain when it starts from a name; arguments and indexes are visited
        on their own."""
        chain, inner, rest = unwind(node)
        if rest is not None:
            self.expr(rest)
        else:
            self.raw_uses.append((self.scope, 0, 0) + chain)
        self.arguments(inner)
        return chain

    def value(self, node):
        """Visits an expression; gives its chain when it is one."""
        t = type(node)
        if t is Await:
            node = node.value
            t = type(node)
        if t is Name:
            chain = (node.id, node.lineno)
            self.raw_uses.append((self.scope, 0, 0) + chain)
            return chain
        if t is Attribute or t is Call or t is Subscript:
            return self.chain(node)
        self.expr(node)
        return None

    def arguments(self, inner):
        """The arguments of a chain's calls and its subscripts' indexes."""
        for node in inner:
            if type(node) is Subscript:
                self.expr(node.slice)
                continue
            if node.args:
                self.children(node, ARGS)
            for k in node.keywords:
                self.expr(k.value)

    def e_keyword(self, node):
        self.expr(node.value)

    def e_lambda(self, node):
        self.defaults(node.args)
        outer = self.scopes[self.scope]
        scope = self.push("lambda", outer.qual, outer.caller)
        self.enter(scope, lambda n: self.function_body(n, None, False), node)

    def e_comprehension(self, node):
        generators = node.generators
        self.expr(generators[0].iter)
        outer = self.scopes[self.scope]
        scope = self.push("comprehension", outer.qual, outer.caller)
        self.enter(scope, self.comprehension, node)

    def comprehension(self, node):
        for i, generator in enumerate(node.generators):
            if i:
                self.expr(generator.iter)
            self.bind_other(generator.target, generator.target.lineno)
            for condition in generator.ifs:
                self.expr(condition)
        if isinstance(node, ast.DictComp):
            self.expr(node.key)
            self.expr(node.value)
        else:
            self.expr(node.elt)

    def e_namedexpr(self, node):
        self.expr(node.value)
        self.bind(node.target.id, Binding(OTHER, node.lineno, True), self.level_scope())

    # -- the end of a file

    def meaningful_scope(self, scope, name):
        bound = self.source.binding_scope(scope, name)
        if bound is not None and bound >= 0 and self.scopes[bound].kind not in ("module", "class"):
            if all(useless(b) for b in self.scopes[bound].names[name]):
                return None
        return bound

    def finish(self):
        """Keeps the uses that can mean a definition of the tree, each with
        the scope its first name is bound in."""
        source, scopes = self.source, self.scopes
        uses, bounds = source.uses, source.bounds
        bound_in = {}  # (scope, name) -> the scope binding it, None when nothing the tree defines can be meant
        for use in self.raw_uses:
            scope, _, kind, name = use[:4]
            if kind:
                uses.append(use)
                bounds.append(None)
                continue
            key = (scope, name)
            if key in bound_in:
                bound = bound_in[key]
            else:
                bound = scope if name == SUPER else self.meaningful_scope(scope, name)
                bound_in[key] = bound
            if bound is not None:
                uses.append(use)
                bounds.append(bound)
        for scope in scopes:
            if scope.kind in ("module", "class"):
                continue
            for name, bindings in scope.names.items():
                if all(useless(b) for b in bindings):
                    scope.names[name] = NOTHING


def useless(binding):
    """Whether a local binding can say nothing about what its name means."""
    kind = binding.kind
    if kind == OTHER:
        return True
    if kind == PARAM:
        return not binding.annot and not binding.flags
    return kind == VAR and binding.qual is None and binding.value is None and binding.annot is None


def type_chain_of(node):
    return type_chain(node) if node is not None else None


def all_args(args):
    out = args.posonlyargs + args.args
    if args.vararg is not None:
        out = out + [args.vararg]
    out = out + args.kwonlyargs
    if args.kwarg is not None:
        out = out + [args.kwarg]
    return out


def fields_of(t):
    fields = tuple(f for f in t._fields if f not in ("ctx", "op", "ops", "conversion"))
    FIELDS[t] = fields
    return fields


FIELDS = {}
ARGS = ("args",)
STATEMENTS = {
    ast.FunctionDef: Summarizer.s_def,
    ast.AsyncFunctionDef: Summarizer.s_def,
    ast.ClassDef: Summarizer.s_class,
    ast.Assign: Summarizer.s_assign,
    ast.AnnAssign: Summarizer.s_annassign,
    ast.AugAssign: Summarizer.s_augassign,
    ast.For: Summarizer.s_for,
    ast.AsyncFor: Summarizer.s_for,
    ast.While: Summarizer.s_while_if,
    ast.If: Summarizer.s_while_if,
    ast.With: Summarizer.s_with,
    ast.AsyncWith: Summarizer.s_with,
    ast.Try: Summarizer.s_try,
    ast.Import: Summarizer.s_import,
    ast.ImportFrom: Summarizer.s_importfrom,
    ast.Global: Summarizer.s_declare,
    ast.Nonlocal: Summarizer.s_declare,
    ast.Delete: Summarizer.s_delete,
    ast.Expr: Summarizer.s_expr,
    ast.Return: Summarizer.s_return,
}
for _name, _handler in (("TryStar", Summarizer.s_try), ("Match", Summarizer.s_match)):
    if hasattr(ast, _name):
        STATEMENTS[getattr(ast, _name)] = _handler
EXPRESSIONS = {
    ast.keyword: Summarizer.e_keyword,
    ast.Lambda: Summarizer.e_lambda,
    ast.ListComp: Summarizer.e_comprehension,
    ast.SetComp: Summarizer.e_comprehension,
    ast.DictComp: Summarizer.e_comprehension,
    ast.GeneratorExp: Summarizer.e_comprehension,
    ast.NamedExpr: Summarizer.e_namedexpr,
}


# ---------------------------------------------------------------------------
# Module names, once every path is known.


def parent_dir(path):
    return path.rpartition("/")[0]


def base_name(path):
    return path.rpartition("/")[2]


class Layout:
    """The tree's folders as imports see them."""

    def __init__(self, paths):
        self.paths = set(paths)
        self.dirs_with_code = {parent_dir(p) for p in paths}
        self.roots = {""}  # folders that some module's name starts from

    def is_package(self, folder):
        return folder != "" and (folder + "/__init__.py" in self.paths or folder + "/__init__.pyi" in self.paths)

    def is_source_root(self, folder):
        return folder == "" or (base_name(folder) in SOURCE_ROOTS and not self.is_package(folder))

    def is_namespace(self, folder):
        name = base_name(folder)
        return name.isidentifier() and not self.is_package(folder) and folder not in self.dirs_with_code

    def module_of(self, path):
        """(module, package) of a file; package is the module relative
        imports start from."""
        folder, _, file_name = path.rpartition("/")
        stem = file_name.rpartition(".")[0] or file_name
        parts = [] if stem == "__init__" else [stem]
        if self.is_package(folder):
            while self.is_package(folder):
                parts.insert(0, base_name(folder))
                folder = parent_dir(folder)
            self.roots.add(folder)
            parts = self.namespace_prefix(folder) + parts
        else:
            while not self.is_source_root(folder):
                parts.insert(0, base_name(folder))
                folder = parent_dir(folder)
            self.roots.add(folder)
        module = ".".join(parts) or stem
        package = module if stem == "__init__" else module.rpartition(".")[0]
        return module, package

    def namespace_prefix(self, folder):
        prefix = []
        while not self.is_source_root(folder):
            if not self.is_namespace(folder):
                return []
            prefix.insert(0, base_name(folder))
            folder = parent_dir(folder)
        return prefix

    def file_of(self, folder, dotted):
        """The file that `dotted` names imported from `folder`, or None."""
        stem = (folder + "/" if folder else "") + dotted.replace(".", "/")
        for candidate in (stem + ".py", stem + ".pyi", stem + "/__init__.py", stem + "/__init__.pyi"):
            if candidate in self.paths:
                return candidate
        return None


# ---------------------------------------------------------------------------
# Pass 2: resolution.


def visible(bindings, use_line):
    """The bindings a use sees, from the last unconditional one on: those
    before it when it is in their scope (none when none is), else all."""
    if use_line is not None:
        bindings = [b for b in bindings if b.line < use_line]
    if len(bindings) < 2:
        return bindings
    for i in range(len(bindings) - 1, -1, -1):
        if not bindings[i].cond:
            return bindings[i:]
    return bindings


def unique(items):
    return items if len(items) < 2 else list(dict.fromkeys(items))[:MAX_TARGETS]


class Resolver:
    """Resolves every file's uses against the definitions of all files."""

    def __init__(self, sources):
        self.sources = sources
        self.layout = Layout([s.path for s in sources])
        self.modules = {}  # module -> its files
        self.by_path = {}
        for source in sources:
            source.module, source.package = self.layout.module_of(source.path)
            self.modules.setdefault(source.module, []).append(source)
            self.by_path[source.path] = source
            for scope in source.scopes:
                if scope.cls is not None:
                    scope.cls.source = source
        self.namespaces = set()
        for module in self.modules:
            head = module.rpartition(".")[0]
            while head and head not in self.modules:
                self.namespaces.add(head)
                head = head.rpartition(".")[0]
        self.fqns = set(self.modules)
        for source in sources:
            prefix = source.module + "."
            self.fqns.update(prefix + entry[0] for entry in source.symbols)
        self.targets_memo = {}
        self.module_attr_memo = {}
        self.attribute_memo = {}
        self.returns_memo = {}
        self.lookup_memo = {}
        self.absolute_memo = {}
        self.exports_memo = {}

    # -- modules

    def absolute(self, source, dotted):
        """The module an absolute import names from `source`: the script's
        own folder first, then module names, then the tree's import roots
        nearest first."""
        folder = parent_dir(source.path)
        script = not self.layout.is_package(folder)
        key = (folder, dotted)
        if key in self.absolute_memo:
            return self.absolute_memo[key]
        found = None
        if script:
            path = self.layout.file_of(folder, dotted)
            found = self.by_path[path].module if path else None
        if found is None and (dotted in self.modules or dotted in self.namespaces):
            found = dotted
        if found is None:
            found = self.from_roots(folder, dotted)
        self.absolute_memo[key] = found
        return found

    def from_roots(self, folder, dotted):
        best = None
        for root in self.layout.roots:
            path = self.layout.file_of(root, dotted)
            if path is not None:
                shared = len(shared_folders(root, folder))
                if best is None or shared > best[0]:
                    best = (shared, self.by_path[path].module)
        return best[1] if best else None

    def relative(self, source, module, level):
        if not level:
            return self.absolute(source, module) if module else None
        base = source.package.split(".") if source.package else []
        if level - 1 > len(base):
            return None
        base = base[: len(base) - (level - 1)]
        name = ".".join(base + ([module] if module else []))
        return name if name in self.modules or name in self.namespaces else None

    def module_target(self, module):
        return (module if module in self.modules else None, ("mod", module))

    def module_attr(self, module, name):
        """What the module binds `name` to (its submodules aside)."""
        key = (module, name)
        memo = self.module_attr_memo
        if key in memo:
            return memo[key]
        memo[key] = []  # a cycle of imports finds nothing more
        found = []
        for source in self.modules.get(module, ()):
            bindings = source.scopes[0].names.get(name)
            if bindings:
                found += self.targets(source, 0, visible(bindings, None))
            elif source.scopes[0].stars:
                found += self.star_lookup(source, name)
        memo[key] = found = unique(found)
        return found

    def exports(self, module):
        """The names `from module import *` binds."""
        if module in self.exports_memo:
            return self.exports_memo[module]
        self.exports_memo[module] = names = set()
        for source in self.modules.get(module, ()):
            if source.all_names is not None:
                names.update(source.all_names)
                continue
            names.update(n for n in source.scopes[0].names if not n.startswith("_"))
            for star, level in source.scopes[0].stars or ():
                target = self.relative(source, star, level)
                if target is not None:
                    names.update(self.exports(target))
        return names

    def star_lookup(self, source, name):
        for star, level in reversed(source.scopes[0].stars or ()):
            module = self.relative(source, star, level)
            if module is not None and name in self.exports(module):
                return self.imported(module, name)
        return []

    # -- names and bindings

    def lookup(self, source, scope, name, use_line):
        bound = source.binding_scope(scope, name)
        return self.lookup_in(source, bound, scope, name, use_line)

    def lookup_in(self, source, bound, scope, name, use_line):
        if bound is None:
            return []
        if bound == -1:
            return self.star_lookup(source, name)
        bindings = source.scopes[bound].names[name]
        if bound == scope and use_line is not None and (len(bindings) > 1 or bindings[0].line >= use_line):
            return self.before_use(source, scope, name, bindings, use_line)
        key = (source, bound, name)  # what the name means from any other scope: the same for every use
        found = self.lookup_memo.get(key)
        if found is None:
            found = self.lookup_memo[key] = self.targets(source, bound, visible(bindings, None))
        return found

    def before_use(self, source, scope, name, bindings, use_line):
        """A name used in the scope that binds it: the bindings before the
        use; with none, a module or class body reads the name from further
        out (`x = x`), a function a binding of a later pass of a loop."""
        seen = visible(bindings, use_line)
        if seen:
            return self.targets(source, scope, seen)
        s = source.scopes[scope]
        if s.kind == "module":
            return self.star_lookup(source, name) if s.stars else []
        if s.kind == "class":
            return self.lookup(source, s.parent, name, None)
        return self.targets(source, scope, visible(bindings, None))

    def targets(self, source, scope, bindings):
        if len(bindings) == 1:
            return self.binding_targets(source, scope, bindings[0])
        found = []
        for binding in bindings:
            found += self.binding_targets(source, scope, binding)
        return found

    def binding_targets(self, source, scope, binding):
        """(fqn or None, entity or None) pairs a binding stands for."""
        memo = self.targets_memo
        if binding in memo:
            return memo[binding]
        memo[binding] = []
        kind = binding.kind
        if kind == DEF:
            found = [(source.module + "." + binding.qual, ("func", source, scope, binding))]
        elif kind == CLASS:
            found = [(source.module + "." + binding.qual, ("cls", source.scopes[binding.value].cls))]
        elif kind == VAR:
            fqn = source.module + "." + binding.qual if binding.qual else None
            found = [(fqn, e) for e in self.infer_var(source, scope, binding)] or [(fqn, None)]
        elif kind == PARAM:
            found = [(None, e) for e in self.infer_param(source, scope, binding)]
        elif kind == IMPORT:
            found = self.import_targets(source, binding)
        elif kind == FROM:
            found = self.from_targets(source, binding)
        else:
            found = []
        memo[binding] = found = unique(found)
        return found

    def import_targets(self, source, binding):
        module = self.absolute(source, binding.value)
        return [self.module_target(module)] if module else []

    def from_targets(self, source, binding):
        level, name = binding.flags
        module = self.relative(source, binding.value, level)
        if module is None:
            return []
        return self.imported(module, name)

    def imported(self, module, name):
        """What `from module import name` binds: the module's attribute, else
        its submodule (also when the attribute is this very import, met again
        in a cycle: `from . import sub` in a package's __init__)."""
        found = self.module_attr(module, name)
        submodule = module + "." + name
        if not found and (submodule in self.modules or submodule in self.namespaces):
            found = [self.module_target(submodule)]
        return found

    def infer_var(self, source, scope, binding):
        if binding.annot:
            return self.instances(self.evaluate(source, scope, binding.annot, None))
        if binding.value:
            return self.evaluate(source, scope, binding.value, binding.line)
        return []

    def infer_param(self, source, scope, binding):
        if binding.flags:
            role, class_scope = binding.flags
            cls = source.scopes[class_scope].cls
            return [("inst", cls) if role == "self" else ("cls", cls)]
        if not binding.annot:
            return []
        outer = source.scopes[scope].parent
        return self.instances(self.evaluate(source, outer, binding.annot, None))

    @staticmethod
    def instances(entities):
        return [("inst", e[1]) for e in entities if e[0] == "cls"]

    # -- chains

    def evaluate(self, source, scope, chain, use_line, emit=None, bound=None, start=0):
        """What a chain (from chain[start] on) stands for, step by step;
        `emit` is told of every definition a step names."""
        name, line = chain[start], chain[start + 1]
        if name == SUPER:
            current = [(None, e) for e in self.super_of(source, scope)]
        elif bound is not None:
            current = self.lookup_in(source, bound, scope, name, use_line)
        else:
            current = self.lookup(source, scope, name, use_line)
        i = start
        size = len(chain)
        while current:
            step = chain[i + 2] if i + 2 < size else None
            if emit is not None:
                usage = "call" if step == CALL else "reference"
                for fqn, _ in current:
                    if fqn is not None:
                        emit(fqn, line, usage)
            entities = [e for _, e in current if e is not None]
            if step is None or not entities:
                return entities if step is None else []
            i += 2
            line = chain[i + 1]
            found = []
            if step == CALL:
                for e in entities:
                    found += [(None, r) for r in self.call(e)]
            elif step == INDEX:
                found = [(None, e) for e in entities if e[0] == "cls"]  # a generic class, Cls[T]
            else:
                for e in entities:
                    found += self.attribute(e, step)
            current = unique(found)
        return []

    def call(self, entity):
        kind = entity[0]
        if kind == "cls":
            return [("inst", entity[1])]
        if kind == "func":
            return self.returns(entity)
        return []

    def returns(self, func):
        """What a call of a def gives: its return annotation's class, else
        what its return statements give."""
        _, source, scope, binding = func
        memo = self.returns_memo
        if binding not in memo:
            memo[binding] = []  # a def whose result comes back to itself gives nothing more
            memo[binding] = self.returned(source, scope, binding)
        return memo[binding]

    def returned(self, source, scope, binding):
        if binding.annot:
            return self.instances(self.evaluate(source, scope, binding.annot, None))
        if not binding.value:
            return []
        body, chains = binding.value
        found = []
        for chain in chains:
            found += self.evaluate(source, body, chain, chain[1])
        return unique(found)

    def attribute(self, entity, name):
        key = (entity, name)
        found = self.attribute_memo.get(key)
        if found is None:
            self.attribute_memo[key] = []  # a chain of aliases that comes back here finds nothing
            self.attribute_memo[key] = found = self.attribute_of(entity, name)
        return found

    def attribute_of(self, entity, name):
        kind = entity[0]
        if kind == "mod":
            return self.imported(entity[1], name)
        if kind == "cls":
            return self.member(entity[1], name, 0, False)
        if kind == "inst":
            found = self.member(entity[1], name, 0, True)
            return [(fqn, self.property_value(e)) for fqn, e in found]
        if kind == "super":
            found = self.member(entity[1], name, 1, entity[2])
            return [(fqn, self.property_value(e)) for fqn, e in found] if entity[2] else found
        return []

    def property_value(self, entity):
        """An instance's attribute: a property stands for what it returns."""
        if entity is not None and entity[0] == "func" and "property" in entity[3].flags:
            values = self.returns(entity)
            return values[0] if values else None
        return entity

    def member(self, cls, name, skip, instance):
        """A class's attribute: the first class of its order that defines it,
        else, for an instance, what its methods assign to self.name."""
        mro = self.mro(cls)[skip:]
        for c in mro:
            bindings = c.source.scopes[c.scope].names.get(name)
            if bindings:
                return self.targets(c.source, c.scope, visible(bindings, None))
        if not instance:
            return []
        found = []
        for c in mro:
            for scope, value, annot in c.attributes.get(name, ()):
                if annot:
                    found += self.instances(self.evaluate(c.source, scope, annot, None))
                elif value:
                    found += self.evaluate(c.source, scope, value, value[1])
        return [(None, e) for e in unique(found)]

    def super_of(self, source, scope):
        """super() in a method: its class, looked up past itself."""
        while scope is not None:
            s = source.scopes[scope]
            if s.kind == "function":
                parent = source.scopes[s.parent]
                if parent.kind == "class":
                    first = self.first_param_role(s)
                    return [("super", parent.cls, first != "cls")]
            scope = s.parent
        return []

    @staticmethod
    def first_param_role(scope):
        for bindings in scope.names.values():
            for b in bindings:
                if b.kind == PARAM and b.flags:
                    return b.flags[0]
        return None

    def mro(self, cls):
        if cls.mro is not None:
            return cls.mro
        cls.mro = [cls]  # a class that is its own base ends here
        bases = []
        for chain in cls.bases:
            for e in self.evaluate(cls.source, cls.parent, chain, cls.line):
                if e[0] == "cls" and e[1] is not cls and e[1] not in bases:
                    bases.append(e[1])
        cls.mro = [cls] + c3_merge([self.mro(b) for b in bases] + [bases])
        return cls.mro

    # -- one file's answer

    def references(self, source):
        self.found = {}
        scopes = source.scopes
        for use, bound in zip(source.uses, source.bounds):
            scope = use[0]
            self.caller = scopes[scope].caller
            if use[2] == 0:
                self.evaluate(source, scope, use, use[4], self.emit, bound, 3)
            else:
                self.import_use(source, use, self.emit)
        module = source.module
        refs = []
        for (fqn, line), (usage, caller) in self.found.items():
            refs.append({"fqn": fqn, "line": line, "caller": module + "." + caller[0] if caller else None,
                         "caller_kind": caller[1] if caller else None, "usage": usage})
        refs.sort(key=lambda r: r["line"])
        return refs

    def emit(self, fqn, line, usage):
        if fqn in self.fqns:
            key = (fqn, line)
            known = self.found.get(key)
            if known is None or USAGE_RANK[usage] > USAGE_RANK[known[0]]:
                self.found[key] = (usage, self.caller)

    def import_use(self, source, use, emit):
        """The modules an import statement names, and the name it imports."""
        level, kind, chain = use[1], use[2], use[3:]
        names = chain[0::2]
        lines = chain[1::2]
        modules = names[:-1] if kind == 3 else names
        current = None
        for i, part in enumerate(modules):
            dotted = ".".join(modules[: i + 1])
            current = self.relative(source, dotted, level)
            if current is not None and current in self.modules:
                emit(current, lines[i], "import")
        if kind != 3:
            return
        base = current if modules else self.relative(source, "", level)
        if base is None:
            return
        for fqn, _ in self.imported(base, names[-1]):
            if fqn is not None:
                emit(fqn, lines[-1], "import")

    def answer(self, source):
        module = source.module
        symbols = [{"fqn": module, "name": module.rpartition(".")[2], "kind": "module", "line": 1,
                    "end": source.lines, "signature": None, "doc": source.doc,
                    "export": not any(is_private(p) for p in module.split("."))}]
        exported = source.all_names
        for qual, name, kind, line, end, sig, doc, public in source.symbols:
            top = qual.partition(".")[0]
            if exported is not None and public is not None:
                public = top in exported and (top == qual or public)
            symbols.append({"fqn": module + "." + qual, "name": name, "kind": kind, "line": line, "end": end,
                            "signature": sig, "doc": doc, "export": bool(public)})
        refs = []
        error = source.error
        if error is None:
            try:
                refs = self.references(source)
            except RecursionError:
                error = "nested too deeply to resolve"
            except Exception as e:  # a fault of this analyzer on one file costs only that file
                error = f"analyzer error: {e!r}"
        return {"_type": "file", "path": source.path, "module": module, "error": error,
                "symbols": symbols, "references": refs}


USAGE_RANK = {"reference": 0, "call": 1, "import": 2}


def shared_folders(a, b):
    """The folders two paths share, from the top."""
    shared = []
    for x, y in zip(a.split("/"), b.split("/")):
        if x != y:
            break
        shared.append(x)
    return shared


def c3_merge(sequences):
    """C3 linearization of the bases' orders; their plain concatenation
    without repeats when there is none."""
    sequences = [list(s) for s in sequences if s]
    fallback = list(dict.fromkeys(c for s in sequences for c in s))
    result = []
    while sequences:
        for seq in sequences:
            head = seq[0]
            if not any(head in s[1:] for s in sequences):
                break
        else:
            return fallback
        result.append(head)
        sequences = [[c for c in s if c is not head] for s in sequences]
        sequences = [s for s in sequences if s]
    return result


# ---------------------------------------------------------------------------
# The protocol.


def read_files(stream):
    """(path, bytes) of each file command, until analyze or the end of input."""
    while True:
        header = stream.readline()
        if not header:
            return
        command = json.loads(header)
        if command.get("command") == "analyze":
            return
        if command.get("command") == "file":
            yield command["path"], stream.read(int(command["size"]))


def main():
    # The summaries hold millions of small objects and few cycles: the cyclic
    # collector would walk them all again and again, tripling the run's time.
    gc.disable()
    sources = [summarize(path, data) for path, data in read_files(sys.stdin.buffer)]
    resolver = Resolver(sources)
    out = sys.stdout.buffer
    for source in sources:
        out.write(json.dumps(resolver.answer(source)).encode() + b"\n")
        out.flush()
    out.write(b'{"_type":"completed"}\n')
    out.flush()


if __name__ == "__main__":
    main()
