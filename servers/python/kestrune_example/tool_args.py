"""A tool's arguments: declared once, as the input schema that tools/list
shows and as the checks that a call's arguments pass before the tool runs."""

from typing import NamedTuple

from kestrune_mcp_responses import quote

from .request_json import INT64_MAX


class Param(NamedTuple):
    """One argument of a tool: a "string" or an "integer"."""

    name: str
    type: str = "string"
    required: bool = False
    description: str = ""
    choices: tuple = ()  # the strings allowed, when not any
    min: int = 0  # integers: the smallest allowed
    max: int = INT64_MAX


class InputError(Exception):
    """Arguments that the schema does not allow, or that name nothing in the
    index: the message says which and why, for the model to correct its call,
    quoting what it shows of them with quote()."""

    def __init__(self, message):
        super().__init__(message)
        self.message = message


def input_schema(params):
    """The JSON schema of an object with `params`."""
    properties = {}
    required = []
    for p in params:
        prop = {"type": p.type, "description": p.description}
        if p.choices:
            prop["enum"] = list(p.choices)
        if p.type == "integer":
            prop["minimum"] = p.min
            if p.max != INT64_MAX:
                prop["maximum"] = p.max
        properties[p.name] = prop
        if p.required:
            required.append(p.name)
    schema = {"type": "object", "properties": properties}
    if required:
        schema["required"] = required
    schema["additionalProperties"] = False
    return schema


def _kind_name(value):
    if value is None:
        return "null"
    if isinstance(value, bool):
        return "a boolean"
    if isinstance(value, int):
        return "an integer"
    if isinstance(value, float):
        return "a number with a fraction"
    if isinstance(value, str):
        return "a string"
    if isinstance(value, list):
        return "an array"
    return "an object"


def _check(p, value):
    what = "argument " + quote(p.name)
    is_string = p.type == "string"
    has_type = isinstance(value, str) if is_string else isinstance(value, int) and not isinstance(value, bool)
    if not has_type:
        raise InputError(f"{what} must be {'a string' if is_string else 'an integer'}, not {_kind_name(value)}")
    if p.choices and value not in p.choices:
        raise InputError(f"{what} must be one of " + ", ".join(quote(c) for c in p.choices))
    if not is_string and not p.min <= value <= p.max:
        bounds = f"at least {p.min}"
        if p.max != INT64_MAX:
            bounds += f" and at most {p.max}"
        raise InputError(f"{what} must be {bounds}")


class Args:
    """Arguments checked against their params: every required one is there,
    none is unknown, each has its type, choice and range. Raises InputError
    naming the first argument that fails."""

    def __init__(self, arguments, params):
        by_name = {p.name: p for p in params}
        for name, value in arguments.items():
            p = by_name.get(name)
            if p is None:
                raise InputError("unknown argument " + quote(name))
            if not (value is None and not p.required):  # null leaves an optional one out
                _check(p, value)
        for p in params:
            if p.required and p.name not in arguments:
                raise InputError("missing argument " + quote(p.name))
        self._arguments = arguments

    def string(self, name):
        return self._arguments[name]

    def optional(self, name):
        """The argument, or None when it is left out or null."""
        return self._arguments.get(name)

    def integer_or(self, name, fallback):
        value = self._arguments.get(name)
        return fallback if value is None else value
