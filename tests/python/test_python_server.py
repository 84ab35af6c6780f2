"""The Python example server in-process: a call answers from one snapshot
of the index, so an indexer's commit that lands between two of its queries
shows in the next call, not in this one, and a page's rows agree with its
count; request lines read alike with orjson and with the standard library.

  PYTHONPATH=build/dev/python python3 tests/python/test_python_server.py
"""
import os
import sqlite3
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "servers" / "python"))

from kestrune_example import request_json  # noqa: E402
from kestrune_example.index_db import IndexDb  # noqa: E402
from kestrune_example.tools import Tools, ToolsConfig  # noqa: E402


def make_index(path):
    """An index in WAL mode, as kestrune-index writes it: 30 symbols named
    alpha0..alpha29, and 30 uses of pkg.target."""
    db = sqlite3.connect(path, isolation_level=None)
    db.execute("PRAGMA journal_mode = WAL")
    db.executescript((ROOT / "index" / "schema.sql").read_text())
    db.execute("INSERT INTO index_status VALUES (1, 'ready', 'healthy', NULL, 100, 1, 30, NULL, 0, NULL, NULL)")
    for i in range(30):
        db.execute("INSERT INTO symbols (id, fqn, name) VALUES (?, ?, ?)", (i, f"pkg.alpha{i}", f"alpha{i}"))
        db.execute("INSERT INTO symbol_refs (id, symbol_fqn, line) VALUES (?, 'pkg.target', ?)", (i, i))
    db.close()


class Snapshot(unittest.TestCase):
    def test_a_call_sees_no_commit_made_during_it(self):
        # (tool, arguments, rows key, the query before which the writer
        # commits: the one that reads the page's rows, the change)
        cases = [
            # Through the trigram index, and through the name index for a short query.
            ("search", {"query": "alpha", "limit": 100}, "symbols", "SELECT fqn, name",
             "DELETE FROM symbols WHERE id >= 10"),
            ("search", {"query": "al", "limit": 100}, "symbols", "SELECT fqn, name",
             "DELETE FROM symbols WHERE id >= 10"),
            ("references", {"fqn": "pkg.target", "limit": 100}, "references", "SELECT file_path",
             "DELETE FROM symbol_refs WHERE id >= 10"),
        ]
        for tool, arguments, rows_key, before, change in cases:
            with self.subTest(tool=tool, arguments=arguments), tempfile.TemporaryDirectory() as scratch:
                path = os.path.join(scratch, "index.db")
                make_index(path)
                index = IndexDb(path)
                writer = sqlite3.connect(path, isolation_level=None)
                made = []

                def on_statement(sql, before=before, change=change, writer=writer, made=made):
                    if not made and sql.startswith(before):
                        writer.execute(change)
                        made.append(sql)

                index._db.set_trace_callback(on_statement)  # noqa: SLF001 - the connection the calls read
                tools = Tools(ToolsConfig(index=index, root=scratch))
                for want in (30, 10):  # before the change and after it
                    answer = tools.call(tool, arguments)
                    self.assertFalse(answer.is_error)
                    self.assertEqual(answer.response["total_count"], want)
                    self.assertEqual(len(answer.response[rows_key]), want)
                    self.assertTrue(made, "the change was not made during the call")
                writer.close()


def outcome(line):
    """What parse() makes of `line`: its value with every type spelled out
    (1, 1.0 and True are equal in Python), or the exception it raises."""

    def typed(v):
        if isinstance(v, dict):
            return {k: typed(item) for k, item in v.items()}, list(v)
        if isinstance(v, list):
            return [typed(item) for item in v]
        return type(v).__name__, v

    try:
        return typed(request_json.parse(line))
    except (request_json.ParseError, request_json.TooDeep, request_json.NumberOverflow) as e:
        return type(e).__name__


class RequestJson(unittest.TestCase):
    @unittest.skipIf(request_json.orjson is None, "orjson is not installed")
    def test_orjson_and_the_standard_library_read_alike(self):
        lines = [line for name in ("protocol", "edge_requests")
                 for line in (ROOT / "tests" / "mcp" / f"{name}.jsonl").read_bytes().split(b"\n")]
        orjson = request_json.orjson
        try:
            for line in lines:
                request_json.orjson = orjson
                with_orjson = outcome(line)
                request_json.orjson = None
                self.assertEqual(outcome(line), with_orjson, line[:80])
        finally:
            request_json.orjson = orjson


if __name__ == "__main__":
    unittest.main()
