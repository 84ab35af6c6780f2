"""Runs a server on a transcript of request lines and compares its answers
with the expected ones, byte for byte. With --parse-errors, the answers to
the lines that the expected file answers with a parse error (-32700) come
from that file instead, in order: the Python server reads JSON with another
parser, and its parse errors say less. Every other answer is the same.

  transcript.py --stdin LINES --expected ANSWERS [--parse-errors ANSWERS] -- SERVER ARGS...
"""
import argparse
import subprocess
import sys

PARSE_ERROR = b'"error":{"code":-32700,'


def expected_answers(expected, parse_errors):
    lines = expected.splitlines(keepends=True)
    if parse_errors is None:
        return lines
    replacements = iter(parse_errors.splitlines(keepends=True))
    answers = [next(replacements) if PARSE_ERROR in line else line for line in lines]
    if next(replacements, None) is not None:
        sys.exit("transcript.py: more parse errors than the expected answers have")
    return answers


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--stdin", required=True)
    parser.add_argument("--expected", required=True)
    parser.add_argument("--parse-errors")
    parser.add_argument("server", nargs="+")
    args = parser.parse_args()
    with open(args.stdin, "rb") as lines:
        got = subprocess.run(args.server, stdin=lines, capture_output=True, check=False).stdout
    with open(args.expected, "rb") as f:
        expected = f.read()
    parse_errors = None
    if args.parse_errors:
        with open(args.parse_errors, "rb") as f:
            parse_errors = f.read()
    want = expected_answers(expected, parse_errors)
    got = got.splitlines(keepends=True)
    differ = [i for i in range(max(len(want), len(got))) if want[i : i + 1] != got[i : i + 1]]
    for i in differ[:10]:
        print(f"answer {i + 1}:\n  want {want[i] if i < len(want) else 'none'!r}\n  got  {got[i] if i < len(got) else 'none'!r}")
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
