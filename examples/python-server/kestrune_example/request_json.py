"""Request lines parsed as JSON exactly as the C++ server parses them.

The C++ server reads requests with nlohmann/json. To answer every line with
the same bytes, this parser accepts the same texts, builds the same values and
fails at the same byte: a UTF-8 byte order mark is skipped, strings must be
well-formed UTF-8 with paired surrogate escapes, NaN and Infinity are not
JSON, a NUL byte outside a string ends the text, and an integer is a 64-bit
one (signed, or unsigned above INT64_MAX) or, beyond those, a double.

The depth check runs where the C++ server's parser callback runs: a container
opened inside MAX_DEPTH others stops the parse before anything after it is
read.
"""

import math
import re

MAX_DEPTH = 64

INT64_MIN = -(2**63)
INT64_MAX = 2**63 - 1
UINT64_MAX = 2**64 - 1


class ParseError(Exception):
    """The line is not JSON; `byte` counts from 1 the byte the parser stopped
    at (the length plus one at the end of the line)."""

    def __init__(self, byte):
        super().__init__(f"not JSON at byte {byte}")
        self.byte = byte


class TooDeep(Exception):
    """Nested deeper than MAX_DEPTH levels."""


class NumberOverflow(Exception):
    """A number whose value overflows a double, such as 1e400."""


class Unsigned64(int):
    """An integer above INT64_MAX that fits 64 unsigned bits: JSON, but not a
    value that a request may carry as an id or an argument."""


# Tokens.
_BEGIN_OBJECT, _END_OBJECT, _BEGIN_ARRAY, _END_ARRAY = "{", "}", "[", "]"
_NAME_SEPARATOR, _VALUE_SEPARATOR = ":", ","
_STRING, _NUMBER, _LITERAL, _END = "string", "number", "literal", "end"

_WHITESPACE = re.compile(rb"[ \t\n\r]*")
_DIGITS = re.compile(rb"[0-9]*")
# A run of string bytes that stand for themselves: printable ASCII but the
# quote and the backslash, and well-formed UTF-8 sequences.
_PLAIN = re.compile(
    rb"(?:[\x20\x21\x23-\x5b\x5d-\x7f]"
    rb"|[\xc2-\xdf][\x80-\xbf]"
    rb"|\xe0[\xa0-\xbf][\x80-\xbf]"
    rb"|[\xe1-\xec\xee\xef][\x80-\xbf]{2}"
    rb"|\xed[\x80-\x9f][\x80-\xbf]"
    rb"|\xf0[\x90-\xbf][\x80-\xbf]{2}"
    rb"|[\xf1-\xf3][\x80-\xbf]{3}"
    rb"|\xf4[\x80-\x8f][\x80-\xbf]{2})*"
)
_SIMPLE_ESCAPES = {
    ord('"'): '"',
    ord("\\"): "\\",
    ord("/"): "/",
    ord("b"): "\b",
    ord("f"): "\f",
    ord("n"): "\n",
    ord("r"): "\r",
    ord("t"): "\t",
}
_HEX = frozenset(b"0123456789abcdefABCDEF")
_LITERALS = {ord("t"): (b"true", True), ord("f"): (b"false", False), ord("n"): (b"null", None)}
_NUMBER_START = frozenset(b"-0123456789")


def _continuation_ranges(lead):
    """The allowed range of each byte after a UTF-8 lead byte; None when the
    byte cannot start a sequence."""
    tail = (0x80, 0xBF)
    if 0xC2 <= lead <= 0xDF:
        return (tail,)
    if lead == 0xE0:
        return ((0xA0, 0xBF), tail)
    if 0xE1 <= lead <= 0xEC or lead in (0xEE, 0xEF):
        return (tail, tail)
    if lead == 0xED:
        return ((0x80, 0x9F), tail)
    if lead == 0xF0:
        return ((0x90, 0xBF), tail, tail)
    if 0xF1 <= lead <= 0xF3:
        return (tail, tail, tail)
    if lead == 0xF4:
        return ((0x80, 0x8F), tail, tail)
    return None


class _Lexer:
    """Tokens of one line. `pos` is how many bytes the parser has read: after
    a token, the offset just past it; a failing token raises ParseError at
    the byte it failed on."""

    def __init__(self, data):
        self.data = data
        self.pos = 0
        self.value = None
        self._skip_bom()

    def _fail_at(self, index):
        # index: the offset of the byte that failed, len(data) for the end.
        raise ParseError(min(index, len(self.data)) + 1)

    def _skip_bom(self):
        d = self.data
        if d[:1] == b"\xef":
            if d[1:2] != b"\xbb":
                self._fail_at(1)
            if d[2:3] != b"\xbf":
                self._fail_at(2)
            self.pos = 3

    def scan(self):
        d = self.data
        i = _WHITESPACE.match(d, self.pos).end()
        if i >= len(d):
            self.pos = len(d) + 1
            return _END
        c = d[i]
        self.pos = i + 1
        if c in b"{}[]:,":
            return chr(c)
        if c == 0:  # a NUL ends the text, as the end of the line does
            return _END
        if c == ord('"'):
            self.value = self._string(i + 1)
            return _STRING
        if c in _NUMBER_START:
            self.value = self._number(i)
            return _NUMBER
        if c in _LITERALS:
            text, value = _LITERALS[c]
            for k in range(1, len(text)):
                if i + k >= len(d) or d[i + k] != text[k]:
                    self._fail_at(i + k)
            self.pos = i + len(text)
            self.value = value
            return _LITERAL
        self._fail_at(i)

    def _hex4(self, at):
        d = self.data
        for k in range(at, at + 4):
            if k >= len(d) or d[k] not in _HEX:
                self._fail_at(k)
        return int(d[at : at + 4], 16)

    def _string(self, j):
        """The string whose first byte after the quote is at `j`."""
        d = self.data
        parts = []
        while True:
            end = _PLAIN.match(d, j).end()
            if end > j:
                parts.append(d[j:end].decode("utf-8"))
                j = end
            if j >= len(d):
                self._fail_at(j)
            c = d[j]
            if c == ord('"'):
                self.pos = j + 1
                return "".join(parts)
            if c == ord("\\"):
                j = self._escape(j + 1, parts)
            elif c < 0x20:
                self._fail_at(j)
            else:
                self._bad_utf8(j)

    def _escape(self, k, parts):
        """Appends the escape whose letter is at `k`; the offset after it."""
        d = self.data
        if k >= len(d):
            self._fail_at(k)
        letter = d[k]
        if letter in _SIMPLE_ESCAPES:
            parts.append(_SIMPLE_ESCAPES[letter])
            return k + 1
        if letter != ord("u"):
            self._fail_at(k)
        high = self._hex4(k + 1)
        if 0xDC00 <= high <= 0xDFFF:
            self._fail_at(k + 4)
        if not 0xD800 <= high <= 0xDBFF:
            parts.append(chr(high))
            return k + 5
        for offset, want in ((5, ord("\\")), (6, ord("u"))):
            if k + offset >= len(d) or d[k + offset] != want:
                self._fail_at(k + offset)
        low = self._hex4(k + 7)
        if not 0xDC00 <= low <= 0xDFFF:
            self._fail_at(k + 10)
        parts.append(chr(0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00)))
        return k + 11

    def _bad_utf8(self, j):
        """Raises at the byte that makes the sequence at `j` ill-formed."""
        d = self.data
        ranges = _continuation_ranges(d[j])
        if ranges is None:
            self._fail_at(j)
        for k, (low, high) in enumerate(ranges, start=j + 1):
            if k >= len(d) or not low <= d[k] <= high:
                self._fail_at(k)
        raise AssertionError("a well-formed sequence was not taken as one")

    def _number(self, i):
        """The number that starts at `i`: an int (Unsigned64 above INT64_MAX)
        when it is an integer of 64 bits, a float otherwise."""
        d = self.data
        j = i
        if d[j] == ord("-"):
            j += 1
            if j >= len(d) or not 0x30 <= d[j] <= 0x39:
                self._fail_at(j)
        j = j + 1 if d[j] == ord("0") else _DIGITS.match(d, j).end()
        is_float = False
        if j < len(d) and d[j] == ord("."):
            is_float = True
            j += 1
            if j >= len(d) or not 0x30 <= d[j] <= 0x39:
                self._fail_at(j)
            j = _DIGITS.match(d, j).end()
        if j < len(d) and d[j] in b"eE":
            is_float = True
            j += 1
            if j < len(d) and d[j] in b"+-":
                j += 1
            if j >= len(d) or not 0x30 <= d[j] <= 0x39:
                self._fail_at(j)
            j = _DIGITS.match(d, j).end()
        self.pos = j
        text = d[i:j]
        # Beyond 20 digits no integer fits 64 bits (and int() would refuse
        # thousands of them): those are doubles, as for the C++ parser.
        if not is_float and len(text) <= 21:
            value = int(text)
            if INT64_MIN <= value <= INT64_MAX:
                return value
            if INT64_MAX < value <= UINT64_MAX:
                return Unsigned64(value)
        return float(text)


def _check_depth(open_containers):
    # A container opened inside MAX_DEPTH others is one too many.
    if open_containers >= MAX_DEPTH:
        raise TooDeep()


def parse(data):
    """The JSON value of the bytes `data`: dicts (keys in their first order,
    a repeated key's last value), lists, str, int, float, bool and None.
    Raises ParseError, TooDeep or NumberOverflow."""
    lexer = _Lexer(data)
    stack = []  # the open containers, each as [container, key of its next value]
    root = None

    def add(value):
        nonlocal root
        if not stack:
            root = value
        elif isinstance(stack[-1][0], list):
            stack[-1][0].append(value)
        else:
            stack[-1][0][stack[-1][1]] = value

    def member(token):
        # Reads a member's key and separator; the first token of its value.
        if token != _STRING:
            raise ParseError(lexer.pos)
        stack[-1][1] = lexer.value
        if lexer.scan() != _NAME_SEPARATOR:
            raise ParseError(lexer.pos)
        return lexer.scan()

    token = lexer.scan()
    while True:
        # `token` starts a value; None when a container has just closed.
        if token in (_BEGIN_OBJECT, _BEGIN_ARRAY):
            is_object = token == _BEGIN_OBJECT
            container = {} if is_object else []
            _check_depth(len(stack))
            add(container)
            stack.append([container, None])
            token = lexer.scan()
            if token != (_END_OBJECT if is_object else _END_ARRAY):
                if is_object:
                    token = member(token)
                continue
            stack.pop()
        elif token in (_STRING, _LITERAL, _NUMBER):
            value = lexer.value
            if isinstance(value, float) and not math.isfinite(value):
                raise NumberOverflow()
            add(value)
        elif token is not None:
            raise ParseError(lexer.pos)
        # A value is complete: go on in the container around it.
        if not stack:
            break
        in_array = isinstance(stack[-1][0], list)
        token = lexer.scan()
        if token == _VALUE_SEPARATOR:
            token = lexer.scan()
            if not in_array:
                token = member(token)
            continue
        if token != (_END_ARRAY if in_array else _END_OBJECT):
            raise ParseError(lexer.pos)
        stack.pop()
        token = None
    if lexer.scan() != _END:
        raise ParseError(lexer.pos)
    return root
