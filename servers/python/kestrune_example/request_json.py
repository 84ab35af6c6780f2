"""Request lines read as JSON, with orjson when it is installed and the
standard library's json otherwise, into the values the C++ server reads:
an integer is a 64-bit one (signed, or an Unsigned64 above INT64_MAX) or,
beyond those, a double; a UTF-8 byte order mark is skipped; NaN, Infinity,
lone surrogate escapes and numbers that overflow a double are refused, and
so are arrays and objects nested more than MAX_DEPTH deep.

A line that orjson refuses is read again by the standard library, which
says why: the error is the same with orjson or without.
"""

import json
import math
import re

try:
    import orjson
except ImportError:  # the standard library alone
    orjson = None

MAX_DEPTH = 64

INT64_MIN = -(2**63)
INT64_MAX = 2**63 - 1
UINT64_MAX = 2**64 - 1

_BOM = b"\xef\xbb\xbf"
_SURROGATE = re.compile("[\ud800-\udfff]")


class ParseError(Exception):
    """The line is not JSON."""


class TooDeep(Exception):
    """Arrays and objects nested more than MAX_DEPTH deep."""


class NumberOverflow(Exception):
    """A number whose value overflows a double, such as 1e400."""


class Unsigned64(int):
    """An integer above INT64_MAX that fits 64 unsigned bits: JSON, but not a
    value that a request may carry as an id or an argument."""


def _double(text):
    value = float(text)
    if math.isinf(value):
        raise NumberOverflow()
    return value


def _integer(text):
    # Beyond 20 digits no integer fits 64 bits (and int() would refuse
    # thousands of them): those are doubles.
    if len(text) > 21:
        return _double(text)
    value = int(text)
    return value if INT64_MIN <= value <= UINT64_MAX else _double(text)


def _not_json(_constant):
    raise ParseError()


def _read_by_json(data):
    try:
        return json.loads(data.decode("utf-8"), parse_int=_integer, parse_float=_double, parse_constant=_not_json)
    except RecursionError:
        raise TooDeep() from None
    except ValueError:  # JSONDecodeError, UnicodeDecodeError
        raise ParseError() from None


def _checked(value, depth):
    """`value` with its integers above INT64_MAX made Unsigned64, once its
    containers are nested no deeper than MAX_DEPTH and its strings hold no
    lone surrogate."""
    if isinstance(value, str):
        if _SURROGATE.search(value):
            raise ParseError()
    elif isinstance(value, dict):
        if depth >= MAX_DEPTH:
            raise TooDeep()
        for key, item in value.items():
            _checked(key, depth)
            value[key] = _checked(item, depth + 1)
    elif isinstance(value, list):
        if depth >= MAX_DEPTH:
            raise TooDeep()
        for i, item in enumerate(value):
            value[i] = _checked(item, depth + 1)
    elif type(value) is int and value > INT64_MAX:
        return Unsigned64(value)
    return value


def parse(data):
    """The JSON value of the bytes `data`: dicts (keys in their first order,
    a repeated key's last value), lists, str, int, float, bool and None.
    Raises ParseError, TooDeep or NumberOverflow."""
    if data.startswith(_BOM):
        data = data[len(_BOM):]
    if orjson is None:
        value = _read_by_json(data)
    else:
        try:
            value = orjson.loads(data)
        except orjson.JSONDecodeError:
            value = _read_by_json(data)
    return _checked(value, 0)
