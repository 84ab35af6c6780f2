"""The module against the C++ tool: every call of tests/calls/*.calls (the
tool's exact answers and log lines), and random requests of
scripts/differential-tool.py run through the tool and the module alike.

  PYTHONPATH=build/dev/python python3 tests/python/test_calls.py --tool build/dev/tools/mcp-responses \
      [--requests 3000] [--seed 1]
"""
import argparse
import json
import logging
import os
import re
import runpy
import subprocess
import sys
import tempfile
import types
import unittest
from pathlib import Path

from tool_calls import (REQUEST_ERRORS, SIGNATURES, Records, answer_text, call_module, expected_exceptions,
                        tool_error)

ROOT = Path(__file__).resolve().parents[2]
OPTIONS = argparse.Namespace(tool=None, requests=3000, seed=1)


def load_generator():
    """The request generator of scripts/differential-tool.py (a script, not a package)."""
    return types.SimpleNamespace(**runpy.run_path(str(ROOT / "scripts" / "differential-tool.py")))


def read_calls(path):
    """(request line, answer, [log messages]) for each request of a data file."""
    cases = []
    for line in path.read_text(encoding="utf-8").split("\n"):
        if line.startswith("> "):
            cases.append((line[2:], None, []))
        elif line.startswith("< "):
            cases[-1] = (cases[-1][0], line[2:], cases[-1][2])
        elif line.startswith("! "):
            cases[-1][2].append(json.loads(line[2:]))
    return cases


class Differential(unittest.TestCase):
    def setUp(self):
        self.failures = []
        self.passed_through = {}

    def check(self, where, request, answer):
        """Holds the module's outcome for `request` against the tool's
        `answer`; returns the messages the module logged."""
        call, args = request["call"], request.get("args", {})
        with Records() as log:
            try:
                result, error = call_module(call, args), None
                text = answer_text(call, args, result)
            except Exception as e:  # every kind is checked against the tool's answer
                error = e
        self.assertEqual({(r.name, r.levelno) for r in log.records} - {("kestrune.mcp_responses", logging.INFO)},
                         set(), where)
        message = tool_error(answer)
        raises, may_pass = expected_exceptions(message) if message is not None else ((), False)
        if error is None and text == answer:
            pass
        elif error is None and may_pass:
            self.passed_through[call] = self.passed_through.get(call, 0) + 1
        elif error is None or not isinstance(error, raises):
            got = f"{type(error).__name__}: {error}" if error else text
            self.failures.append((call, f"{where}: {json.dumps(request, ensure_ascii=False)[:400]}\n"
                                        f"  tool:   {answer[:400]}\n  module: {got[:400]}"))
        return [r.getMessage() for r in log.records], message is not None

    def report(self):
        """Fails with the number of disagreements by call and the first of each."""
        first = {}
        for call, text in self.failures:
            first.setdefault(call, [0, text])[0] += 1
        if first:
            self.fail(f"{len(self.failures)} disagreements\n" +
                      "\n".join(f"{call} ({n}), first: {text}" for call, (n, text) in first.items()))

    def test_data_files(self):
        """Every call of tests/calls/*.calls; requests the tool refuses before
        any call runs (not JSON, unknown calls, values its reader does not
        take: numbers beyond a double, integers beyond 64 bits, lone
        surrogate escapes) have no counterpart in the module."""
        os.chdir(ROOT)  # the data files name their work trees from here
        calls, skipped, ran = set(), 0, 0
        for path in sorted((ROOT / "tests" / "calls").glob("*.calls")):
            for n, (line, answer, logs) in enumerate(read_calls(path)):
                where = f"{path.name} request {n}"
                if REQUEST_ERRORS.match(tool_error(answer) or ""):
                    skipped += 1
                    continue
                request = json.loads(line)
                calls.add(request["call"])
                ran += 1
                messages, _ = self.check(where, request, answer)
                if messages != logs:
                    self.failures.append((request["call"], f"{where}: logged {messages}, the tool {logs}"))
        self.assertEqual(calls, set(SIGNATURES))
        self.assertLess(skipped * 10, ran)
        self.report()

    def test_random_requests(self):
        """Random requests, through the tool in one run and through the
        module. Only code_lines logs: each of its requests is followed by one
        that logs a marker, which ends that request's log lines."""
        if not OPTIONS.tool:
            self.skipTest("needs --tool, the mcp-responses program")
        gen = load_generator()
        with tempfile.TemporaryDirectory() as tmp:
            root = os.path.join(tmp, "repo")
            os.makedirs(root)
            gen.make_tree(root)
            g = gen.Gen(OPTIONS.seed, root)
            requests, lines = [], []
            for i in range(OPTIONS.requests):
                call = gen.CALLS[i % len(gen.CALLS)] if i < 4 * len(gen.CALLS) else g.r.choice(gen.CALLS)
                requests.append(gen.dump({"call": call, "args": g.args(call)}, g.r))
                lines.append(requests[-1])
                if call == "code_lines":
                    lines.append(json.dumps({"call": "code_lines", "args": {"root": root, "places": [[f"#{i}#", 1]]}}))
            Path(tmp, "requests.jsonl").write_text("\n".join(lines) + "\n", encoding="utf-8")
            tool = subprocess.run([os.path.abspath(OPTIONS.tool), "requests.jsonl"], capture_output=True, cwd=tmp,
                                  timeout=600)
            answers = [a for a, line in zip(tool.stdout.decode().split("\n"), lines) if '"#' not in line[-20:]]
            self.assertEqual(len(answers), len(requests), tool.stderr[-2000:])
            tool_logs, current = {}, []
            for log_line in tool.stderr.decode().split("\n")[:-1]:
                marker = re.fullmatch(r"INFO:kestrune.mcp_responses:code_lines: #(\d+)# is not read \(.*\)", log_line)
                if marker:
                    tool_logs[int(marker.group(1))], current = current, []
                else:
                    current.append(log_line)
            self.assertEqual(current, [])
            for i, (line, answer) in enumerate(zip(requests, answers)):
                messages, error = self.check(f"request {i}", json.loads(line), answer)
                # The tool runs a call before it checks for unknown arguments.
                escaped = ["INFO:kestrune.mcp_responses:" + re.sub(r"[\x00-\x1f\x7f]", lambda m: f"\\x{ord(m[0]):02x}", m)
                           for m in messages]
                if not error and escaped != tool_logs.get(i, []):
                    self.failures.append(("code_lines", f"request {i}: {line[:300]}\n"
                                                        f"  logged {escaped}, the tool {tool_logs.get(i)}"))
        errors = sum(a.startswith('{"error"') for a in answers)
        print(f"\n{len(requests)} requests, {errors} answered with an error by the tool, "
              f"{sum(map(len, tool_logs.values()))} log lines; wrong kinds the module passed through: "
              f"{self.passed_through}", file=sys.stderr)
        self.report()


if __name__ == "__main__":
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--tool")
    parser.add_argument("--requests", type=int, default=OPTIONS.requests)
    parser.add_argument("--seed", type=int, default=OPTIONS.seed)
    OPTIONS, rest = parser.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=[sys.argv[0]] + rest)
