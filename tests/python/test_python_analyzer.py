"""The Python analyzer (indexer/analyzers/python_analyzer.py) on
small trees, run as the indexer runs it. A source line that ends in
`# ref: a.b, c.d` must be answered with a reference to each of those fqns on
that line; `# not: a.b` with none to it; `# ref: a; not: b` both.

  python3 tests/python/test_python_analyzer.py
"""
import json
import re
import runpy
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
analyze = runpy.run_path(str(ROOT / "bench" / "accuracy" / "run_analyzer.py"))["analyze"]
MARK = re.compile(r"(ref|not):\s*([^;#]*)")


def run(tree):
    """{path: answer} for a tree given as {path: source text or bytes}."""
    files = [(p, s if isinstance(s, bytes) else s.encode()) for p, s in tree.items()]
    answers = analyze(files, timeout=120)  # a hang fails the test instead of stalling the run
    assert answers[-1] == {"_type": "completed"}, answers[-1]
    assert [a["path"] for a in answers[:-1]] == list(tree), "one answer per file, in order"
    return {a["path"]: a for a in answers[:-1]}


# Each tree holds its expectations as marks on its lines.
TREES = {
    "inherited method through self, super() and cls": {
        "base.py": "class Base:\n    def helper(self): ...\n    @classmethod\n    def make(cls): ...\n",
        "sub.py": (
            "from base import Base\n"
            "class Mid(Base):\n    pass\n"
            "class Sub(Mid):\n"
            "    def run(self):\n"
            "        self.helper()  # ref: base.Base.helper\n"
            "    @classmethod\n"
            "    def build(cls):\n"
            "        return cls.make()  # ref: base.Base.make\n"
            "class Over(Mid):\n"
            "    def helper(self):\n"
            "        self.helper()  # ref: sub.Over.helper\n"
            "        super().helper()  # ref: base.Base.helper\n"
            "        Sub().helper()  # ref: base.Base.helper\n"
        ),
    },
    "re-export through a package's __init__": {
        "pkg/__init__.py": "from .impl import Thing  # ref: pkg.impl, pkg.impl.Thing\n",
        "pkg/impl.py": "class Thing:\n    def go(self): ...\n",
        "user.py": (
            "from pkg import Thing  # ref: pkg, pkg.impl.Thing\n"
            "t = Thing()  # ref: pkg.impl.Thing\n"
            "t.go()  # ref: user.t, pkg.impl.Thing.go\n"
        ),
    },
    "src layout": {
        "src/app/__init__.py": "",
        "src/app/core.py": "def run(): ...\n",
        "src/app/cli.py": "from app.core import run  # ref: app.core, app.core.run\nrun()  # ref: app.core.run\n",
    },
    "import pkg then pkg.mod.X, aliases": {
        "pkg/__init__.py": "",
        "pkg/mod.py": "class X:\n    def m(self): ...\n",
        "a.py": (
            "import pkg.mod  # ref: pkg, pkg.mod\n"
            "import pkg.mod as alias  # ref: pkg.mod\n"
            "from pkg.mod import X as Y  # ref: pkg.mod.X\n"
            "pkg.mod.X().m()  # ref: pkg, pkg.mod, pkg.mod.X, pkg.mod.X.m\n"
            "alias.X  # ref: pkg.mod.X\n"
            "Y  # ref: pkg.mod.X\n"
        ),
    },
    "a package's attribute before its submodule, a lazy __getattr__": {
        "pkg/__init__.py": (
            "from .main import main\n"
            "def __getattr__(name):\n    global Lazy\n    from .lazy import Lazy\n    return Lazy\n"
        ),
        "pkg/main.py": "def main(): ...\n",
        "pkg/lazy.py": "class Lazy: ...\n",
        "user.py": "from pkg import main  # ref: pkg.main.main\nimport pkg\npkg.Lazy()  # ref: pkg.lazy.Lazy\n",
    },
    "relative imports": {
        "top/__init__.py": "def y(): ...\n",
        "top/pkg/__init__.py": "from . import sibling  # ref: top.pkg.sibling\n",
        "top/pkg/sibling.py": "def z(): ...\n",
        "top/pkg/mod.py": (
            "from .. import y  # ref: top.y\n"
            "from .sibling import z  # ref: top.pkg.sibling.z\n"
            "from . import sibling\n"
            "sibling.z()  # ref: top.pkg.sibling.z\n"
        ),
    },
    "star imports": {
        "listed.py": "__all__ = ['a']\n__all__ += ['e']\n__all__.extend(['g'])\n__all__.append('f')\ndef a(): ...\ndef b(): ...\ndef e(): ...\ndef f(): ...\ndef g(): ...\n",
        "dynamic.py": "__all__ = ['c2']\n__all__ += _more\ndef c2(): ...\ndef c3(): ...\n_more = []\n",
        "plain.py": "def c(): ...\ndef _d(): ...\n",
        "user.py": (
            "from listed import *\nfrom plain import *\n"
            "from dynamic import *\n"
            "a(), e(), f(), g(), c3()  # ref: listed.a, listed.e, listed.f, listed.g, dynamic.c3\n"
            "b()  # not: listed.b\n"
            "c()  # ref: plain.c\n"
            "_d()  # not: plain._d\n"
        ),
    },
    "shadowing names are not uses, the binding before a use": {
        "other.py": "def k(): ...\ndef j(): ...\n",
        "m.py": (
            "def helper(): ...\n"
            "def f(helper):\n    return helper()  # not: m.helper\n"
            "def g():\n    helper = 1\n    return helper  # not: m.helper\n"
            "def h(xs):\n    return [helper for helper in xs]  # not: m.helper\n"
            "lam = lambda helper: helper  # not: m.helper\n"
            "def k():\n    return helper()  # ref: m.helper\n"
            "for len in []: pass\n"
            "len  # not: m.len\n"
            "print(len)  # not: builtins.print\n"
            "class C:\n    helper = 1\n    x = helper  # ref: m.C.helper\n"
            "    def m(self):\n        return helper()  # ref: m.helper; not: m.C.helper\n"
            "from other import k\n"
            "k()  # ref: other.k; not: m.k\n"
            "def k(): ...\n"
            "k()  # ref: m.k; not: other.k\n"
            "class D:\n    helper = helper  # ref: m.helper; not: m.D.helper\n"
            "del k  # ref: m.k\n"
            "assert helper  # ref: m.helper\n"
            "def t(xs):\n    for helper, _ in xs:\n        helper()  # not: m.helper\n"
            "try:\n    from other import j\nexcept ImportError:\n    j = None\n"
            "j()  # ref: other.j, m.j\n"
            "if j:\n    def p(): ...\nelse:\n    from other import j as p\n"
            "p()  # ref: m.p, other.j\n"
        ),
    },
    "the C3 order of a diamond": {
        "m.py": (
            "class A:\n    def m(self): ...\n"
            "class B(A): pass\n"
            "class C(A):\n    def m(self): ...\n"
            "class D(B, C): pass\n"
            "D().m()  # ref: m.C.m; not: m.A.m\n"
        ),
    },
    "annotations, decorators, base classes and simple inference": {
        "m.py": (
            "from typing import Optional, Union\n"
            "def deco(f): return f\n"
            "class Model:\n    def save(self) -> 'Model': ...\n"
            "@deco  # ref: m.deco\n"
            "def f(x: 'Model', y: Optional[Model]) -> Model:  # ref: m.Model\n"
            "    x.save()  # ref: m.Model.save\n"
            "    y.save().save()  # ref: m.Model.save\n"
            "    z = Model()  # ref: m.Model\n"
            "    return z.save()  # ref: m.Model.save\n"
            "class Sub(Model):  # ref: m.Model\n"
            "    def __init__(self):\n        self.peer = Model()\n"
            "    @property\n    def owner(self) -> Model: ...\n"
            "    def go(self):\n"
            "        self.peer.save()  # ref: m.Model.save\n"
            "        self.owner.save()  # ref: m.Sub.owner, m.Model.save\n"
            "Sub().save()  # ref: m.Model.save\n"
            "f(1, 2).save()  # ref: m.f, m.Model.save\n"
            "def g(x: \"Model\") -> None: ...  # ref: m.Model\n"
            "def h(u: Union[Model, None]):\n"
            "    u.save()  # ref: m.Model.save\n"
            "    z = Sub()\n    z = Model()\n    z.go()  # not: m.Sub.go\n"
        ),
    },
}


def marks(source):
    """{(line, fqn): expected} from a source's marks."""
    found = {}
    for number, line in enumerate(source.splitlines(), 1):
        comment = line.partition("#")[2]
        for match in MARK.finditer(comment):
            for fqn in match.group(2).split(","):
                found[(number, fqn.strip())] = match.group(1) == "ref"
    return found


class References(unittest.TestCase):
    def test_marked_trees(self):
        for name, tree in TREES.items():
            answers = run(tree)
            for path, source in tree.items():
                refs = {(r["line"], r["fqn"]) for r in answers[path]["references"]}
                for (line, fqn), expected in marks(source).items():
                    with self.subTest(tree=name, path=path, line=line, fqn=fqn):
                        self.assertEqual((line, fqn) in refs, expected, answers[path]["references"])

    def test_usage_caller_and_one_entry_per_line(self):
        source = ("def f(): ...\nclass C:\n    def g(self):\n        f(f)\n        return print(f)\n"
                  "    T = int\n    def h(self, x: T = f()) -> C: ...\nclass D(C): ...\n")
        refs = run({"m.py": source})["m.py"]["references"]
        self.assertEqual(refs, [  # a head's names are its def's or class's uses, looked up where it stands
            {"fqn": "m.f", "line": 4, "caller": "m.C.g", "caller_kind": "method", "usage": "call"},
            {"fqn": "m.f", "line": 5, "caller": "m.C.g", "caller_kind": "method", "usage": "reference"},
            {"fqn": "m.f", "line": 7, "caller": "m.C.h", "caller_kind": "method", "usage": "call"},
            {"fqn": "m.C.T", "line": 7, "caller": "m.C.h", "caller_kind": "method", "usage": "reference"},
            {"fqn": "m.C", "line": 7, "caller": "m.C.h", "caller_kind": "method", "usage": "reference"},
            {"fqn": "m.C", "line": 8, "caller": "m.D", "caller_kind": "class", "usage": "reference"},
        ])
        top = run({"a.py": "import b\nb.x\n", "b.py": "x = 1\n"})["a.py"]["references"]
        self.assertEqual([(r["fqn"], r["line"], r["usage"], r["caller"]) for r in top],
                         [("b", 1, "import", None), ("b", 2, "reference", None), ("b.x", 2, "reference", None)])


class Modules(unittest.TestCase):
    def test_module_names(self):
        tree = {
            "pkg/__init__.py": "", "pkg/sub/__init__.py": "", "pkg/sub/m.py": "",
            "src/app/__init__.py": "", "src/app/core.py": "", "src/tool.py": "",
            "ns/inner/__init__.py": "", "ns/inner/x.py": "def y(): ...\n",
            "ns/other/__init__.py": "from inner.x import y  # ref: ns.inner, ns.inner.x, ns.inner.x.y\n",
            "tests/test_x.py": "import helpers  # ref: tests.helpers\n", "tests/helpers.py": "",
            "scripts/pkg2/__init__.py": "", "scripts/run.py": "", "setup.py": "", "__init__.py": "",
        }
        modules = {p: a["module"] for p, a in run(tree).items()}
        self.assertEqual(modules, {
            "pkg/__init__.py": "pkg", "pkg/sub/__init__.py": "pkg.sub", "pkg/sub/m.py": "pkg.sub.m",
            "src/app/__init__.py": "app", "src/app/core.py": "app.core", "src/tool.py": "tool",
            "ns/inner/__init__.py": "ns.inner", "ns/inner/x.py": "ns.inner.x", "ns/other/__init__.py": "ns.other",
            "tests/test_x.py": "tests.test_x", "tests/helpers.py": "tests.helpers",
            "scripts/pkg2/__init__.py": "pkg2", "scripts/run.py": "scripts.run", "setup.py": "setup",
            "__init__.py": "__init__",
        })
        answers = run(tree)
        for path in ("tests/test_x.py", "ns/other/__init__.py"):
            refs = {(r["line"], r["fqn"]) for r in answers[path]["references"]}
            self.assertEqual(refs, {k for k, v in marks(tree[path]).items() if v}, path)

    def test_two_files_of_one_module_keep_their_symbols(self):
        answers = run({"a/m.py": "def f(): ...\n", "src/m.py": "def f(): ...\n", "m.py": "def f(): ...\n"})
        self.assertEqual(answers["src/m.py"]["module"], "m")
        self.assertEqual(answers["m.py"]["module"], "m")
        self.assertEqual([s["fqn"] for s in answers["src/m.py"]["symbols"]], ["m", "m.f"])
        self.assertEqual([s["fqn"] for s in answers["m.py"]["symbols"]], ["m", "m.f"])


SYMBOLS = '''"""The module."""
from typing import overload
__all__ = ["Cart", "_hidden"]
LIMIT = 3
"""How many."""

class Cart(Base, metaclass=Meta):
    """A cart.

       Indented."""
    size: int
    def __init__(self): ...

    @property
    def total(self) -> float:
        return 0.0

    @total.setter
    def total(self, v): ...

    def _private(self, a: int = 1, /, *args, b: "str" = 'x', **kw) -> None:
        def inner(): ...

@overload
def get(x: int) -> int: ...
@overload
def get(x: str) -> str: ...
def get(x):
    """Implementation."""
    return x

async def _hidden(): ...

def spread(a=(1,
              2)): ...
'''


class Symbols(unittest.TestCase):
    def test_definitions(self):
        symbols = run({"shop/cart.py": SYMBOLS})["shop/cart.py"]["symbols"]
        got = [(s["fqn"], s["kind"], s["line"], s["end"], s["signature"], s["doc"], s["export"]) for s in symbols]
        self.assertEqual(got, [
            ("shop.cart", "module", 1, 35, None, "The module.", True),
            ("shop.cart.__all__", "variable", 3, 3, None, None, False),
            ("shop.cart.LIMIT", "constant", 4, 4, None, "How many.", False),
            ("shop.cart.Cart", "class", 7, 22, "class Cart(Base, metaclass=Meta)", "A cart.\n\nIndented.", True),
            ("shop.cart.Cart.size", "variable", 11, 11, None, None, True),
            ("shop.cart.Cart.__init__", "method", 12, 12, "def __init__(self)", None, True),
            ("shop.cart.Cart.total", "method", 14, 16, "def total(self) -> float", None, True),
            ("shop.cart.Cart.total", "method", 18, 19, "def total(self, v)", None, True),
            ("shop.cart.Cart._private", "method", 21, 22,
             "def _private(self, a: int = 1, /, *args, b: \"str\" = 'x', **kw) -> None", None, False),
            ("shop.cart.Cart._private.inner", "function", 22, 22, "def inner()", None, False),
            ("shop.cart.get", "function", 24, 25, "def get(x: int) -> int", None, False),
            ("shop.cart.get", "function", 26, 27, "def get(x: str) -> str", None, False),
            ("shop.cart.get", "function", 28, 30, "def get(x)", "Implementation.", False),
            ("shop.cart._hidden", "function", 32, 32, "async def _hidden()", None, True),
            ("shop.cart.spread", "function", 34, 35, "def spread(a=(1, 2))", None, False),
        ])


class BadFiles(unittest.TestCase):
    def test_each_bad_file_costs_only_itself(self):
        deep = "x = " + "+".join(["a"] * 5000) + "\n"
        tree = {
            "latin.py": "# -*- coding: latin-1 -*-\n\"\"\"Caf\xe9.\"\"\"\nfrom good import f\nf()\n".encode("latin-1"),
            "bom.py": b"\xef\xbb\xbfimport good\ngood.f()\n",
            "broken.py": "def (:\n",
            "deep.py": deep,
            "nul.py": b"x = 1\x00\n",
            "bad_utf8.py": b"'''\xff'''\nimport good\n",
            "good.py": "def f(): ...\n",
        }
        answers = run(tree)
        self.assertEqual(answers["latin.py"]["symbols"][0]["doc"], "Caf\xe9.")
        self.assertEqual([(r["fqn"], r["line"]) for r in answers["latin.py"]["references"]],
                         [("good", 3), ("good.f", 3), ("good.f", 4)])
        self.assertEqual([(r["fqn"], r["line"]) for r in answers["bom.py"]["references"]],
                         [("good", 1), ("good", 2), ("good.f", 2)])
        self.assertIsNone(answers["bad_utf8.py"]["error"])
        self.assertEqual(answers["bad_utf8.py"]["symbols"][0]["doc"], "\ufffd")
        for path in ("broken.py", "deep.py", "nul.py"):
            with self.subTest(path=path):
                self.assertTrue(answers[path]["error"])
                self.assertEqual(answers[path]["references"], [])
        self.assertIn("line 1", answers["broken.py"]["error"])
        self.assertIn("nested too deeply", answers["deep.py"]["error"])
        self.assertEqual([s["fqn"] for s in answers["good.py"]["symbols"]], ["good", "good.f"])
        json.dumps(answers)


if __name__ == "__main__":
    unittest.main(verbosity=1 if "-q" in sys.argv else 2)
