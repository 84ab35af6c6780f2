"""The requests of the mcp-responses tool ({"call": NAME, "args": {...}}) as
calls of the Python module, and the module's results as the tool's answer
text, so that both can be held against the same expected answers."""
import json
import logging
import re

import kestrune_mcp_responses as kmr

# The tool's call name -> the module's function and its parameters; those
# after "*" are passed by keyword only.
SIGNATURES = {
    "tool_result_text": "tool_result_text(result)",
    "encoded_size": "_encoded_size(result)",
    "first_sentence": "first_sentence(docstring)",
    "cut": "_cut(text, chars)",
    "trimmed": "_trimmed(text, chars)",
    "without_nulls": "without_nulls(row)",
    "code_lines": "code_lines(root, places)",
    "build_paginated_response": "build_paginated_response(items, total_count, offset, *, items_key)",
    "fit_paginated_response": "fit_paginated_response(items, total_count, offset, max_bytes, *, items_key)",
    "build_empty_paginated_response": "build_empty_paginated_response(items_key)",
    "build_index_status_response": "build_index_status_response(status, health, branch, progress, files_indexed, "
                                   "symbols_indexed, last_updated, errors_count, phase, phase_detail)",
    "get_empty_response": "get_empty_response(tool_name)",
    "build_symbol_search_result": "build_symbol_search_result(symbol, file_path)",
    "build_symbol_full_details": "build_symbol_full_details(symbol, file_path)",
    "outline_module": "outline_module(fqns)",
    "build_file_symbol": "build_file_symbol(symbol, module)",
    "build_reference": "build_reference(reference, code)",
    "build_api_endpoint": "build_api_endpoint(symbol, file_path, component_name)",
    "build_component": "build_component(component)",
    "build_test_coverage": "build_test_coverage(test_file, source_file, symbols_imported)",
    "build_wiki_status_response": "build_wiki_status_response(*, built, branch, pages, files_covered, total_sources, "
                                  "coverage_pct, last_built, model, stale_pages, enabled, configured)",
    "build_wiki_list_response": "build_wiki_list_response(pages, total, offset, truncated)",
    "build_wiki_read_response": "build_wiki_read_response(*, page_id, title, content, citations, source_files, "
                                "related_pages)",
    "ask_citations": "_ask_citations(sections, extra)",
    "build_wiki_ask_response": "build_wiki_ask_response(*, mode, query, answer, sections, citations, model, tokens, "
                               "note, decisions, code, memories, token_budget)",
    "call_tool_result": "call_tool_result(response, *, structured, is_error)",
    "jsonrpc_result_line": "jsonrpc_result_line(id, result)",
    "jsonrpc_error_line": "jsonrpc_error_line(id, code, message)",
    "tool_call_line": "tool_call_line(id, response, *, structured, is_error)",
}

# Arguments the tool reads as null when they are left out, where the module
# has no default: the tool's defaults, supplied here.
TOOL_DEFAULTS = {("first_sentence", "docstring"), ("code_lines", "root"),
                 ("build_index_status_response", "branch"), ("jsonrpc_error_line", "id")}

# Arguments the tool reads as doubles, an integer by its value.
DOUBLES = {("build_wiki_status_response", "coverage_pct")}

# Storage records: the tool takes an object keyed by attribute name and
# reads a missing attribute as null, ignoring any other key.
RECORDS = {"symbol": kmr.Symbol, "reference": kmr.Reference, "component": kmr.ComponentInfo}


def _signature(call):
    name, params = re.fullmatch(r"(\w+)\((.*)\)", SIGNATURES[call]).groups()
    names = [p.strip() for p in params.split(",") if p.strip()]
    star = names.index("*") if "*" in names else len(names)
    return getattr(kmr, name), names[:star]


def _module_value(call, key, value):
    if key in RECORDS and isinstance(value, dict):
        fields = RECORDS[key].__dataclass_fields__
        return RECORDS[key](**{f: value.get(f) for f in fields})
    if (call, key) in DOUBLES and type(value) is int:
        return float(value)
    if call == "code_lines" and key == "places" and isinstance(value, list):
        # Places are keys of the result: tuples, as a caller passes them.
        return [tuple(p) if isinstance(p, list) else p for p in value]
    return value


def call_module(call, args):
    """The module's result for a tool request. Positional parameters go by
    position while none is left out, the rest and any unknown one by keyword."""
    function, positional = _signature(call)
    args = {k: _module_value(call, k, v) for k, v in args.items()}
    for (c, key) in TOOL_DEFAULTS:
        if c == call:
            args.setdefault(key, None)
    given = []
    for name in positional:
        if name not in args:
            break
        given.append(args.pop(name))
    return function(*given, **args)


def answer_text(call, args, result):
    """The tool's answer line for the module's `result`: the text itself for
    tool_result_text, [path, line, text] rows for code_lines (paths in order
    of first appearance, lines ascending), else the compact text."""
    if call == "tool_result_text":
        return result
    if call == "code_lines" and not result:
        result = []  # nothing found: the places need not even be pairs (no root reads none)
    elif call == "code_lines":
        first = {}
        for place in args.get("places", []):
            first.setdefault(place[0], len(first))
        rows = sorted(result.items(), key=lambda item: (first[item[0][0]], item[0][1]))
        result = [[path, line, text] for (path, line), text in rows]
    return kmr.tool_result_text(result)


# The tool's own checks of a request's JSON, its call and argument names and
# kinds, which come before any function runs.
REQUEST_ERRORS = re.compile(r'not JSON: |not accepted: |a request must be|a request needs|unknown call |'
                            r'unknown request key |"args" must be')
MISSING_OR_UNKNOWN = re.compile(r'missing required argument |unknown argument ')
KIND_ERRORS = re.compile(r'(argument|attribute) "[^"]*"( of argument "[^"]*")? must be (a|an) [^,]*, not |'
                         r'argument "[^"]*" needs its attribute |element \d+ of argument |'
                         r'item \d+ of argument "places" must be a')


def tool_error(answer):
    """The message of an answer that is the tool's error object, else None;
    the canned response of the same shape is an answer."""
    m = re.fullmatch(r'\{"error":(".*")\}', answer)
    return json.loads(m.group(1)) if m and m.group(1) != '"Repository not initialized"' else None


def expected_exceptions(message):
    """The exceptions the module may raise where the tool answers the error
    `message`, and whether it may succeed instead: a value of the wrong kind
    may pass through the module, as its builders pass any value."""
    if REQUEST_ERRORS.match(message):
        raise ValueError(f"a request error has no call of the module: {message}")
    if MISSING_OR_UNKNOWN.match(message):
        return (TypeError,), False
    if KIND_ERRORS.match(message):
        return (TypeError, ValueError, AttributeError), True
    return (TypeError, ValueError), False


class Records(logging.Handler):
    """Collects the module logger's records while installed."""

    def __init__(self):
        super().__init__(logging.DEBUG)
        self.records = []
        self.logger = logging.getLogger(kmr.LOGGER_NAME)

    def emit(self, record):
        self.records.append(record)

    def __enter__(self):
        self.logger.addHandler(self)
        self.level = self.logger.level
        self.logger.setLevel(logging.DEBUG)
        return self

    def __exit__(self, *exc):
        self.logger.removeHandler(self)
        self.logger.setLevel(self.level)
