"""What the module does beyond the tool's answers: the caller's objects placed
as they are, integers of any size, values that cannot be written, lone
surrogates, long texts, records read by attribute, the read-only table of
canned responses, and code_lines' logging and its reading without the GIL.

  PYTHONPATH=build/dev/python python3 tests/python/test_module.py
"""
import collections
import dataclasses
import json
import logging
import operator
import os
import re
import sys
import tempfile
import threading
import unittest
from pathlib import Path

import kestrune_mcp_responses as kmr
from tool_calls import Records


def text(s):
    """A str object of its own, not an interned constant."""
    return "".join(list(s))


class PassThrough(unittest.TestCase):
    def test_caller_objects_are_placed_as_they_are(self):
        items, pages, stale, cites, files, imported = [1], [{"id": 1}], ["p"], [{"path": "a"}], ["a.py"], ["f"]
        ask = dict(model=text("m"), tokens={"in": 1}, note=text("n"), decisions={"calls": 1}, code={"t": "x"},
                   memories={"items": []})
        own, extra = {"path": "s.py", "line_start": 1}, {"path": "e.py"}
        section = {"page_id": text("p1"), "title": text("T"), "heading": text("H"), "similarity": 0.5,
                   "excerpt": "x", "citations": [own]}
        reply = text("a")
        answer = kmr.build_wiki_ask_response(mode="m", query="q", answer=reply, sections=[section],
                                             citations=[extra], **ask)
        cases = [
            (kmr.build_paginated_response(items, 5, 0, items_key="symbols")["symbols"], items),
            (kmr.fit_paginated_response(items, 1, 0, 10_000)["items"], items),
            (kmr.build_wiki_list_response(pages, 3)["pages"], pages),
            (kmr.build_wiki_status_response(built=True, branch="b", stale_pages=stale)["stale_pages"], stale),
            (kmr.build_wiki_read_response(page_id="p", title="t", content="c", citations=cites)["citations"], cites),
            (kmr.build_wiki_read_response(page_id="p", title="t", content="c", source_files=files,
                                          related_pages=files)["related_pages"], files),
            (kmr.build_test_coverage("t.py", "s.py", imported)["symbols_imported"], imported),
            (answer["citations"][0], own),
            (answer["citations"][1], extra),
            (answer["answer"], reply),
            *[(answer[key], value) for key, value in ask.items()],
            *[(answer["sections"][0][key], section[key]) for key in ["page_id", "title", "heading", "similarity"]],
        ]
        for i, (placed, given) in enumerate(cases):
            with self.subTest(case=i):
                self.assertIs(placed, given)

    def test_empty_lists_are_new(self):
        empty = []
        for response, key in [(kmr.build_wiki_status_response(built=False, branch="b", stale_pages=empty),
                               "stale_pages"),
                              (kmr.build_wiki_read_response(page_id="p", title="t", content="c", citations=empty),
                               "citations")]:
            self.assertEqual(response[key], [])
            self.assertIsNot(response[key], empty)
        row = {"a": [None], "b": None}
        kept = kmr.without_nulls(row)
        self.assertEqual(kept, {"a": [None]})
        self.assertIs(kept["a"], row["a"])
        self.assertEqual(row, {"a": [None], "b": None})


class Values(unittest.TestCase):
    def test_integers_beyond_64_bits_are_written_in_full(self):
        big = 2**70
        cases = [
            (kmr.tool_result_text, ([-(2**100), 2**64, 10**40],), "[%d,%d,%d]" % (-(2**100), 2**64, 10**40)),
            (kmr._encoded_size, ({"n": -(2**100)},), len('{"n":%d}' % -(2**100))),
            (kmr.jsonrpc_result_line, (big, [big]), '{"jsonrpc":"2.0","id":%d,"result":[%d]}\n' % (big, big)),
            (lambda *a: kmr.tool_result_text(kmr.build_paginated_response(*a)), ([], big, big - 1),
             '{"items":[],"total_count":%d,"truncated":true,"has_more":true,"offset":%d,"hint":"Showing 0 of %d '
             'results. Call again with offset=%d for more."}' % (big, big - 1, big, big - 1)),
            # Beyond 64 bits where the ask only measures a value: written in full.
            (lambda: kmr.tool_result_text(kmr.build_wiki_ask_response(
                mode="m", query="q", answer=None, sections=[{"similarity": big, "citations": [{"n": big}]}],
                tokens={"in": -big}, token_budget=10**30)["citations"]), (),
             '[{"n":%d}]' % big),
        ]
        for i, (function, args, expected) in enumerate(cases):
            with self.subTest(case=i):
                self.assertEqual(function(*args), expected)
        # A citation's place is compared, and places are compared as 64-bit
        # values: a larger line is refused, by name, rather than misplaced.
        with self.assertRaisesRegex(OverflowError, r"extra\[0\]\.line_start"):
            kmr._ask_citations([], [{"line_start": big}])

    def test_values_that_cannot_be_written_name_their_place(self):
        cases = [
            (kmr.tool_result_text, {"a": [1, 2, {3}]}, "$.a[2]"),
            (kmr.tool_result_text, [object()], "$[0]"),
            (kmr.tool_result_text, {"x": {1: 2}}, "key #0 of $.x"),
            (kmr._encoded_size, {"a": None, "b": (1, b"x")}, "$.b[1]"),
            (lambda v: kmr.tool_call_line(1, v), {"k": [None, {"s": {1.5}}]}, "$.k[1].s"),
        ]
        for function, value, where in cases:
            with self.subTest(where=where), self.assertRaisesRegex(TypeError, r"\b(set|object|int|bytes)\b"):
                try:
                    function(value)
                except TypeError as e:
                    self.assertIn(where, str(e))
                    raise

    def test_a_lone_surrogate_is_written_but_not_measured(self):
        self.assertEqual(kmr.tool_result_text({"k": "a\ud800"}), '{"k":"a\ud800"}')
        sections = [{"excerpt": "ok"}, {"excerpt": "x\udc00"}]
        cases = [
            (kmr._encoded_size, ("é\ud800",), "$", 2),
            (kmr._encoded_size, ({"k": ["x", "\udc00"]},), "$.k[1]", 0),
            (kmr._encoded_size, ({"a": {"\ud83d": 1}},), "key #0 of $.a", 0),
            (kmr.fit_paginated_response, (["a", "\ud800"], 2, 0, 100), "$.items[1]", 0),
            (lambda: kmr.build_wiki_ask_response(mode="m", query="q", answer=None, sections=sections,
                                                 token_budget=1000), (), "$.sections[1].excerpt", 1),
        ]
        for function, args, where, byte in cases:
            with self.subTest(where=where), self.assertRaises(kmr.EncodingError) as raised:
                function(*args)
            self.assertIsInstance(raised.exception, ValueError)
            self.assertEqual((raised.exception.where, raised.exception.byte), (where, byte))
        # Without a budget nothing is measured.
        answer = kmr.build_wiki_ask_response(mode="m", query="q", answer=None, sections=sections)
        self.assertEqual(answer["sections"][1]["excerpt"], "x\udc00")


class Maps(unittest.TestCase):
    def test_every_function_reads_a_map_by_one_rule(self):
        import types
        from collections.abc import Mapping

        class Frozen(Mapping):  # a Mapping that is no dict
            def __init__(self, **kw):
                self._d = kw

            def __getitem__(self, k):
                return self._d[k]

            def __iter__(self):
                return iter(self._d)

            def __len__(self):
                return len(self._d)

        class Indexable:  # answers [] but is no Mapping
            def __getitem__(self, k):
                return 1

        Ref = collections.namedtuple("Ref", "file_path line caller_symbol usage_type")
        caller = {"fqn": "m.f", "kind": "function"}
        for as_map in (dict, Frozen, lambda **kw: types.MappingProxyType(dict(kw))):
            with self.subTest(kind=as_map):
                self.assertEqual(kmr.tool_result_text(as_map(a=1)), '{"a":1}')
                ref = Ref("a.py", 3, as_map(**caller), "call")
                row = kmr.build_reference(ref)
                self.assertEqual((row["caller"], row["caller_kind"]), ("m.f", "function"))
        with self.assertRaisesRegex(TypeError, "type 'Indexable'"):
            kmr.tool_result_text(Indexable())
        with self.assertRaises(TypeError):
            kmr.build_reference(Ref("a.py", 3, Indexable(), "call"))


class LongTexts(unittest.TestCase):
    """Texts long enough to leave the writer's first buffer, to widen after
    the point where a wider string makes the writer count first and write
    again, to be held in buffers of huge pages moved by hand, and to grow
    past 32 MB, where buffers grow eightfold: the text,
    the line and their bytes as json.dumps writes them, however late the
    widest character comes."""

    def test_long_texts_as_json_dumps_writes_them(self):
        pieces = {"ASCII": 'a"\\\n\x1b', "Latin-1": "é", "BMP": "→", "astral": "😀"}
        cases = [(9_000, first, late) for first in pieces for late in pieces] + [
            (1_200_000, "ASCII", "Latin-1"), (1_200_000, "ASCII", "BMP"), (1_200_000, "Latin-1", "astral"),
            (1_200_000, "BMP", "BMP"), (5_000_000, "ASCII", "ASCII"), (5_000_000, "ASCII", "BMP"),
            (5_000_000, "BMP", "astral"), (40_000_000, "ASCII", "ASCII")]

        def dumps(v):
            return json.dumps(v, separators=(",", ":"), ensure_ascii=False)

        for length, first, late in cases:
            with self.subTest(length=length, first=first, late=late):
                piece = pieces[first]
                value = {"rows": [piece * (length // len(piece)), 1.5, None], "late": [pieces[late]]}
                text = kmr.tool_result_text(value)
                line = kmr.tool_call_line(7, value, structured=True)
                self.assertEqual(text, dumps(value))
                self.assertEqual(line, dumps({"jsonrpc": "2.0", "id": 7, "result": {
                    "content": [{"type": "text", "text": text}], "structuredContent": value}}) + "\n")
                self.assertEqual(kmr.tool_result_bytes(value), text.encode())
                self.assertEqual(kmr.tool_call_line_bytes(7, value, structured=True), line.encode())
                self.assertEqual(kmr._encoded_size(value), len(text.encode()))

    def test_a_late_lone_surrogate_has_no_bytes(self):
        value = {"a": "x" * 5_000_000, "b": ["ok", "é\ud800"]}
        self.assertEqual(kmr.tool_result_text(value), '{"a":"%s","b":["ok","é\ud800"]}' % ("x" * 5_000_000))
        for write in [kmr.tool_result_bytes, lambda v: kmr.tool_call_line_bytes(1, v)]:
            with self.assertRaises(kmr.EncodingError) as raised:
                write(value)
            self.assertEqual((raised.exception.where, raised.exception.byte), ("$.b[1]", 2))


SymbolTuple = collections.namedtuple("SymbolTuple", [f.name for f in dataclasses.fields(kmr.Symbol)])


@dataclasses.dataclass
class SymbolRow:
    fqn: str
    name: str
    kind: str
    start_line: int
    end_line: int
    signature: str
    docstring: str
    is_export: bool
    docstring_truncated: bool


class PlainSymbol:
    def __init__(self, **fields):
        for key, value in fields.items():
            setattr(self, key, value)


class AttributeRecords(unittest.TestCase):
    def test_records_are_read_by_attribute(self):
        fields = dict(fqn="pkg.mod.Cart.total", name="total", kind="method", start_line=10, end_line=14,
                      signature="def total(self)", docstring="Sum it.  More.", is_export=True,
                      docstring_truncated=False)
        expected = {
            kmr.build_symbol_search_result: {"fqn": "pkg.mod.Cart.total", "name": "total", "kind": "method",
                                             "file": "m.py", "line": 10, "signature": "def total(self)",
                                             "summary": "Sum it."},
            kmr.build_symbol_full_details: {"found": True, "fqn": "pkg.mod.Cart.total", "name": "total",
                                            "kind": "method", "file": "m.py", "start_line": 10, "end_line": 14,
                                            "signature": "def total(self)", "is_export": True,
                                            "docstring": "Sum it.  More.", "docstring_truncated": False},
            kmr.build_api_endpoint: {"fqn": "pkg.mod.Cart.total", "name": "total", "kind": "method", "file": "m.py",
                                     "line": 10, "signature": "def total(self)", "component": None},
        }
        for record in [kmr.Symbol(**fields), SymbolTuple(**fields), SymbolRow(**fields), PlainSymbol(**fields)]:
            for builder, row in expected.items():
                with self.subTest(record=type(record).__name__, builder=builder.__name__):
                    self.assertEqual(list(builder(record, "m.py").items()), list(row.items()))
            self.assertEqual(kmr.build_file_symbol(record, "pkg.mod"),
                             {"name": "Cart.total", "kind": "method", "line": 10, "end_line": 14,
                              "signature": "def total(self)", "summary": "Sum it."})
        reference = collections.namedtuple("Ref", "file_path line caller_symbol usage_type")(
            "a.py", 3, {"fqn": "pkg.f", "kind": "function"}, None)
        self.assertEqual(kmr.build_reference(reference, "f()"),
                         {"file": "a.py", "line": 3, "code": "f()", "caller": "pkg.f", "caller_kind": "function"})
        component = PlainSymbol(name="core", layer=None, path_pattern="src/**", file_count=2, symbol_count=2**64)
        self.assertEqual(kmr.build_component(component), vars(component))


class CannedResponses(unittest.TestCase):
    def test_the_table_is_read_only_and_each_response_a_new_copy(self):
        table = kmr.EMPTY_TOOL_RESPONSES
        self.assertEqual(len(table), 14)
        for change in [lambda: operator.setitem(table, "x", {}), lambda: operator.setitem(table["search"], "offset", 1),
                       lambda: table["file"]["symbols"].append(1)]:
            with self.assertRaises((TypeError, AttributeError)):
                change()
        for name in table:
            first = kmr.get_empty_response(name)
            self.assertEqual(kmr.tool_result_text(first), kmr.tool_result_text(dict(table[name])))
            for value in first.values():
                if isinstance(value, list):
                    value.append("changed")
            first["added"] = True
            again = kmr.get_empty_response(name)
            self.assertEqual(kmr.tool_result_text(again), kmr.tool_result_text(dict(table[name])))
            self.assertNotIn("changed", kmr.tool_result_text(dict(table[name])))


class CodeLines(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.root = Path(self.tmp.name)
        (self.root / "a.py").write_text("import os\n  x = 1  \n")

    def tearDown(self):
        self.tmp.cleanup()

    def test_places_as_passed_and_unreadable_files_logged(self):
        with Records() as log:
            found = kmr.code_lines(self.root, [("a.py", 2), ("./a.py", 1), ("a.py", 9), ("gone.py", 1)])
        self.assertEqual(found, {("a.py", 2): "x = 1", ("./a.py", 1): "import os"})
        self.assertEqual([(r.name, r.levelno, r.getMessage()) for r in log.records],
                         [("kestrune.mcp_responses", logging.INFO,
                           f"code_lines: gone.py is not read ({os.strerror(2)})")])
        # A place of another sequence type is keyed as a tuple.
        self.assertEqual(kmr.code_lines(str(self.root), [["a.py", 1]]), {("a.py", 1): "import os"})

    def test_no_root_reads_no_place(self):
        def places():
            raise AssertionError("places read")
            yield  # pragma: no cover

        self.assertEqual(kmr.code_lines(None, places()), {})

    def test_other_threads_run_while_files_are_read(self):
        """A thread woken just before the call runs while the call reads,
        which it can only do while the call is without the GIL: no thread is
        made to give up the GIL meanwhile (a switch interval of an hour). A
        read too quick for the thread to run fails, never passes; a larger
        file is tried then."""
        interval = sys.getswitchinterval()
        sys.setswitchinterval(3600)
        try:
            for size in [1 << 23, 1 << 25, 1 << 27]:
                (self.root / "big.txt").write_bytes((b"x" * 99 + b"\n") * (size // 100))
                state = {"inside": False, "seen": False}
                go = threading.Event()
                watcher = threading.Thread(target=lambda: go.wait(60) and state.update(seen=state["inside"]))
                watcher.start()
                go.set()
                state["inside"] = True
                found = kmr.code_lines(self.root, [("big.txt", size // 100)])
                state["inside"] = False
                watcher.join(60)
                self.assertEqual(found, {("big.txt", size // 100): "x" * 99})
                if state["seen"]:
                    break
        finally:
            sys.setswitchinterval(interval)
        self.assertTrue(state["seen"], "no other thread ran while code_lines read")


class Fitting(unittest.TestCase):
    def test_an_ask_with_room_for_everything_is_the_ask_without_a_budget(self):
        # The two take different paths: the library fits the budgeted one, the
        # binding alone makes the other.
        long = "word " * 400
        sections = [
            {"page_id": "a", "title": "A", "heading": "H", "similarity": 0.5, "stale": [1], "excerpt": long,
             "citations": [{"path": "x.py", "line_start": i} for i in range(5)]},
            {"excerpt": {"k": [1, "é"]}, "citations": [{"path": "x.py", "line_start": 0.0}, "odd"]},
            "not a section",
            {"title": 7, "excerpt": 0, "stale": "", "citations": None},
            {"excerpt": "short é", "citations": [{"path": "y.py", "line_end": None}]},
        ]
        common = dict(mode="m", query="q", answer="a", sections=sections, citations=[{"path": "x.py"}, {}],
                      model="n", tokens={"in": 1}, code={"c": 1}, memories={"m": 2})
        free = kmr.build_wiki_ask_response(**common)
        fitted = kmr.build_wiki_ask_response(**common, token_budget=10**6)
        self.assertEqual(kmr.tool_result_text(fitted), kmr.tool_result_text(free))
        self.assertEqual(free["sections"][0]["excerpt"], kmr._trimmed(long, kmr._ASK_EXCERPT_CHARS))
        self.assertIs(free["sections"][4]["excerpt"], sections[4]["excerpt"])

    def test_a_fitted_page_is_the_longest_that_fits(self):
        rows = [{"fqn": "m.f%d" % i, "doc": "é" * i} for i in range(12)]
        for total, offset in [(12, 0), (40, 0), (40, 30)]:
            sizes = [len(kmr.tool_result_text(kmr.build_paginated_response(rows[:n], total, offset)).encode())
                     for n in range(len(rows) + 1)]
            for max_bytes in range(min(sizes) - 1, max(sizes) + 2, 7):
                with self.subTest(total=total, offset=offset, max_bytes=max_bytes):
                    page = kmr.fit_paginated_response(rows, total, offset, max_bytes)
                    n = len(page["items"])
                    fitting = [k for k, size in enumerate(sizes) if size <= max_bytes]
                    self.assertEqual(n, max(fitting, default=0))
                    self.assertEqual(page, kmr.build_paginated_response(rows[:n], total, offset))
        self.assertIs(kmr.fit_paginated_response(rows, 12, 0, 10**6)["items"], rows)

    def test_the_hint_is_added_in_place(self):
        page = {"items": [], "total_count": 5, "truncated": True, "offset": 2**70}
        self.assertIs(kmr.add_pagination_hint(page, 3), page)
        self.assertEqual(page["hint"], "Showing 3 of 5 results. Call again with offset=%d for more." % (2**70 + 3))
        untouched = {"truncated": 1}
        self.assertEqual(kmr.add_pagination_hint(untouched, 3), {"truncated": 1})


class Stubs(unittest.TestCase):
    def test_every_public_name_has_its_stubs_signature(self):
        import ast
        import inspect
        stub = Path(kmr.__file__).with_name("_native.pyi").read_text()
        stubbed = {}
        for node in ast.parse(stub).body:
            if isinstance(node, ast.FunctionDef):
                stubbed[node.name] = node
            elif isinstance(node, ast.AnnAssign):
                stubbed[node.target.id] = None
        native = sys.modules["kestrune_mcp_responses._native"]
        public = {n for n in dir(native) if not n.startswith("__")}
        self.assertEqual(public, set(stubbed) - {"Value", "Row", "Record"})
        for name, node in stubbed.items():
            if node is None:
                continue
            a = node.args
            defaults = [None] * (len(a.args) - len(a.defaults)) + a.defaults + a.kw_defaults
            want = [(p.arg, inspect.Parameter.KEYWORD_ONLY if i >= len(a.args) else
                     inspect.Parameter.POSITIONAL_OR_KEYWORD,
                     inspect.Parameter.empty if d is None else ast.literal_eval(d))
                    for i, (p, d) in enumerate(zip(a.args + a.kwonlyargs, defaults))]
            function = getattr(native, name)
            got = [(p.name, p.kind, p.default) for p in inspect.signature(function).parameters.values()]
            self.assertEqual(got, want, name)
            # help() shows the typed signature and the stub's docstring too.
            self.assertIn(") -> " + ast.unparse(node.returns), function.__doc__, name)
            self.assertIn(ast.get_docstring(node), function.__doc__, name)


if __name__ == "__main__":
    unittest.main()
