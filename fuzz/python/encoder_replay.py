#!/usr/bin/env python3
"""The Python module's encoder against json.dumps, which writes the compact
text exactly for the values drawn here (str keys; NaN, Infinity and -Infinity
spelled as the encoder spells them). Each input is a string of bytes read as
choices: the files named (directories recursively), then --random N inputs
of random bytes from --seed S, then the empty input.

  PYTHONPATH=build/dev/python python3 fuzz/python/encoder_replay.py fuzz/corpus/encoder --random 3000 --seed 7

Properties: tool_result_text is the oracle's text; _encoded_size is its UTF-8
length, or EncodingError naming the first string that holds a surrogate
(in writing order, keys before their values) and the byte where it starts;
tool_call_line is one JSON line whose text block is tool_result_text; the
bytes forms (tool_result_bytes, tool_call_line_bytes) are the str forms
encoded, or the same EncodingError where the str holds a surrogate. Then
the values that have UTF-8 are checked together in one list, and repeated
past 4 MB in the order of their widest character.
"""
import argparse
import json
import math
import random
import struct
import sys
from pathlib import Path

import kestrune_mcp_responses as kmr

PIECES = [chr(c) for c in range(0x20)] + ['"', "\\", "/", "\x7f", "a", "é", "漢", "😀", "\u2028", "\u2029", " ",
                                         "\ud800", "\udfff", "\ud83d", "\ude00", "NaN"]
DOUBLES = [math.nan, -math.nan, math.inf, -math.inf, 0.0, -0.0, 5e-324, 2.2250738585072014e-308,
           1.7976931348623157e308, 1e16, 1e15, 9999999999999998.0, 1e-4, 1e-5, 0.1, 0.30000000000000004]
INTEGERS = [0, -1, 2**63 - 1, -2**63, 2**63, -2**63 - 1, 2**64 - 1, 2**64, 10**40]


def oracle(value):
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False, allow_nan=True)


# The oracle itself, against the compact text's own examples.
assert oracle([1.0, 100.0, 0.0001, 0.00001, 1.5e-7, 1e15, 1e16, 2.5e20, 1e100, 0.1 + 0.2, 5e-324, -0.0, 3, True,
               None, math.nan, math.inf, -math.inf]) == ("[1.0,100.0,0.0001,1e-05,1.5e-07,1000000000000000.0,1e+16,"
                                                         "2.5e+20,1e+100,0.30000000000000004,5e-324,-0.0,3,true,null,"
                                                         "NaN,Infinity,-Infinity]")
assert oracle({"b": "\x00\x1b\b\t\n\f\r\"\\/\x7f\u2028é😀", "a": {}}) == \
    '{"b":"\\u0000\\u001b\\b\\t\\n\\f\\r\\"\\\\/\x7f\u2028é😀","a":{}}'


class Bytes:
    """An input read as choices; past its end every choice is 0."""

    def __init__(self, data):
        self.data, self.pos = data, 0

    def next(self):
        self.pos += 1
        return self.data[self.pos - 1] if self.pos <= len(self.data) else 0

    def take(self, n):
        return bytes(self.next() for _ in range(n))

    def done(self):
        return self.pos >= len(self.data)


def string(b, most):
    out = []
    for _ in range(b.next() % (most + 1)):
        x = b.next()
        out.append(PIECES[x % len(PIECES)] if x < 224 else chr(int.from_bytes(b.take(3), "big") % 0x110000))
    return "".join(out)


def number(b):
    how = b.next() % 6
    if how == 0:
        return INTEGERS[b.next() % len(INTEGERS)]
    if how == 1:
        magnitude = int.from_bytes(b.take(b.next() % 24), "big")
        return -magnitude if b.next() & 1 else magnitude
    if how == 2:
        return struct.unpack("<d", b.take(8))[0]  # any bits: subnormals, NaNs with payloads
    if how == 3:
        return DOUBLES[b.next() % len(DOUBLES)]
    if how == 4:  # a power of two or a neighbour
        p = math.ldexp(1.0, int.from_bytes(b.take(2), "big") % 2098 - 1074)
        return [p, math.nextafter(p, 0.0), math.nextafter(p, math.inf)][b.next() % 3]
    return int.from_bytes(b.take(4), "big", signed=True) / 10 ** (b.next() % 7)


def value(b, depth=0):
    kind = b.next() % (7 if depth < 24 else 4)
    if kind == 0:
        return None
    if kind == 1:
        return bool(b.next() & 1)
    if kind == 2:
        return number(b)
    if kind == 3:
        return string(b, 24)
    if kind in (4, 5):
        items = []
        for _ in range(b.next() % 6):
            if b.done():
                break
            items.append(value(b, depth + 1))
        return tuple(items) if kind == 5 else items
    d = {}
    for _ in range(b.next() % 6):
        if b.done():
            break
        d[string(b, 8)] = value(b, depth + 1)
    return d


def utf8_error(v, where="$"):
    """(where, byte) of the first string in writing order that holds a surrogate, or None."""
    if isinstance(v, str):
        bad = next((i for i, c in enumerate(v) if 0xD800 <= ord(c) <= 0xDFFF), None)
        return None if bad is None else (where, len(v[:bad].encode()))
    items = v.items() if isinstance(v, dict) else enumerate(v) if isinstance(v, (list, tuple)) else []
    for i, (key, item) in enumerate(items):
        if isinstance(v, dict):
            found = utf8_error(key, f"key #{i} of {where}")
            path = f"{where}.{oracle(key)[1:-1]}"
        else:
            found, path = None, f"{where}[{key}]"
        found = found or utf8_error(item, path)
        if found:
            return found
    return None


def check(v, request_id, is_error):
    """Whether v's text, line, size and bytes forms are as described above; returns whether v has UTF-8."""
    text = kmr.tool_result_text(v)
    assert text == oracle(v), (text, oracle(v))
    bad = utf8_error(v)
    line = kmr.tool_call_line(request_id, v, is_error=is_error)
    for measure, expected in [(kmr._encoded_size, lambda: len(text.encode())),
                              (kmr.tool_result_bytes, text.encode),
                              (lambda v: kmr.tool_call_line_bytes(request_id, v, is_error=is_error), line.encode)]:
        try:
            got = measure(v)
            assert bad is None and got == expected(), (got, bad)
        except kmr.EncodingError as e:
            assert (e.where, e.byte) == bad, ((e.where, e.byte), bad)
    assert line.endswith("\n") and "\n" not in line[:-1], line
    message = json.loads(line)
    assert message["jsonrpc"] == "2.0" and message["id"] == request_id, message
    assert message["result"]["content"] == [{"type": "text", "text": text}], message
    assert message["result"].get("isError", False) == is_error, message
    return bad is None


def inputs(paths, count, seed):
    for path in map(Path, paths):
        for file in sorted(path.rglob("*")) if path.is_dir() else [path]:
            if file.is_file():
                yield file.read_bytes()
    rng = random.Random(seed)
    for k in range(count):
        yield rng.randbytes(rng.randrange(1024 if k % 4 == 0 else 128))
    yield b""


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("paths", nargs="*")
    parser.add_argument("--random", type=int, default=0)
    parser.add_argument("--seed", type=int, default=20261123)
    a = parser.parse_args()
    runs, whole = 0, []
    for data in inputs(a.paths, a.random, a.seed):
        v = value(Bytes(data))
        try:
            if check(v, [7, -2**70, "req-\u2028\"1\""][len(data) % 3], bool(len(data) & 1)):
                whole.append(v)
        except Exception:
            print(f"failed on input {runs}: {data.hex()}", file=sys.stderr)
            raise
        runs += 1
    # The values that have UTF-8 in one list, and then repeated past 4 MB
    # in the order of their widest character: long texts that leave the
    # writers' first buffers and grow, widened early or only late.
    widest = {id(v): max(map(ord, oracle(v))) for v in whole}
    for values in (whole, sorted(whole * (1 + (4 << 20) // len(oracle(whole))), key=lambda v: widest[id(v)])):
        check(values, 1, False)
    print(f"ran {runs} inputs and their {len(whole)} values with UTF-8 together")


if __name__ == "__main__":
    main()
