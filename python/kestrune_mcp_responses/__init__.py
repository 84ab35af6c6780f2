"""kestrune_mcp_responses: the response layer of an MCP repository-indexing
tool server, native and byte-identical to the C++ library.

Tool handlers hand it storage records and plain values; it returns response
dicts with fixed keys in a fixed order, and writes them as the compact text a
model reads (``tool_result_text``) or as whole JSON-RPC lines
(``tool_call_line``)::

    rows = [build_symbol_search_result(s, path_of(s)) for s in hits]
    page = fit_paginated_response(rows, total, offset, 10_000, items_key="symbols")
    sys.stdout.write(tool_call_line(request_id, page))

Builders return new dicts; what they place unchanged (the rows list, the
attachments, citation rows) is the caller's own object. ``code_lines`` logs
to ``logging.getLogger("kestrune.mcp_responses")``.
"""
from ._errors import EncodingError
from ._native import (
    CODE_LINE_CHARS,
    EMPTY_TOOL_RESPONSES,
    JSONRPC_INTERNAL_ERROR,
    JSONRPC_INVALID_PARAMS,
    JSONRPC_INVALID_REQUEST,
    JSONRPC_METHOD_NOT_FOUND,
    JSONRPC_PARSE_ERROR,
    LOGGER_NAME,
    SUMMARY_CHARS,
    _ASK_CITATIONS_PER_SECTION,
    _ASK_EXCERPT_CHARS,
    _ASK_MAX_CITATIONS,
    _ASK_MIN_EXCERPT_CHARS,
    _BYTES_PER_TOKEN,
    _ask_citations,
    _cut,
    _encoded_size,
    _trimmed,
    add_pagination_hint,
    build_api_endpoint,
    build_component,
    build_empty_paginated_response,
    build_file_symbol,
    build_index_status_response,
    build_paginated_response,
    build_reference,
    build_symbol_full_details,
    build_symbol_search_result,
    build_test_coverage,
    build_wiki_ask_response,
    build_wiki_list_response,
    build_wiki_read_response,
    build_wiki_status_response,
    call_tool_result,
    code_lines,
    first_sentence,
    fit_paginated_response,
    get_empty_response,
    jsonrpc_error_line,
    jsonrpc_result_line,
    outline_module,
    quote,
    tool_call_line,
    tool_call_line_bytes,
    tool_result_bytes,
    tool_result_text,
    without_nulls,
)
from ._records import ComponentInfo, Reference, Symbol

__version__ = "0.1.0"

__all__ = [
    "CODE_LINE_CHARS", "EMPTY_TOOL_RESPONSES", "JSONRPC_INTERNAL_ERROR", "JSONRPC_INVALID_PARAMS",
    "JSONRPC_INVALID_REQUEST", "JSONRPC_METHOD_NOT_FOUND", "JSONRPC_PARSE_ERROR", "LOGGER_NAME", "SUMMARY_CHARS",
    "ComponentInfo", "EncodingError", "Reference", "Symbol", "add_pagination_hint", "build_api_endpoint",
    "build_component", "build_empty_paginated_response", "build_file_symbol", "build_index_status_response",
    "build_paginated_response", "build_reference", "build_symbol_full_details", "build_symbol_search_result",
    "build_test_coverage", "build_wiki_ask_response", "build_wiki_list_response", "build_wiki_read_response",
    "build_wiki_status_response", "call_tool_result", "code_lines", "first_sentence", "fit_paginated_response",
    "get_empty_response", "jsonrpc_error_line", "jsonrpc_result_line", "outline_module", "quote", "tool_call_line",
    "tool_call_line_bytes", "tool_result_bytes", "tool_result_text", "without_nulls",
]
