"""Type stubs of the native part of kestrune_mcp_responses."""
import os
from collections.abc import Iterable, Mapping, Sequence
from typing import Any, Final

# A response value: None, bool, int, float, str, list/tuple or dict of them.
Value = Any
Row = dict[str, Any]
# A storage record: any object with the record's attributes, or a dict.
Record = Any

SUMMARY_CHARS: Final[int]
CODE_LINE_CHARS: Final[int]
LOGGER_NAME: Final[str]
_ASK_EXCERPT_CHARS: Final[int]
_ASK_MIN_EXCERPT_CHARS: Final[int]
_ASK_CITATIONS_PER_SECTION: Final[int]
_ASK_MAX_CITATIONS: Final[int]
_BYTES_PER_TOKEN: Final[int]
JSONRPC_PARSE_ERROR: Final[int]
JSONRPC_INVALID_REQUEST: Final[int]
JSONRPC_METHOD_NOT_FOUND: Final[int]
JSONRPC_INVALID_PARAMS: Final[int]
JSONRPC_INTERNAL_ERROR: Final[int]
EMPTY_TOOL_RESPONSES: Final[Mapping[str, Mapping[str, Any]]]

def tool_result_text(result: Value) -> str:
    """The compact MCP text of `result`: JSON without whitespace, keys in insertion order, non-ASCII
    characters as themselves, floats in their shortest round-trip form, NaN/Infinity bare.
    """
def tool_result_bytes(result: Value) -> bytes:
    """tool_result_text(result) as UTF-8 bytes, for a server that writes bytes (sys.stdout.buffer, an HTTP
    body). Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form.
    """
def _encoded_size(result: Value) -> int:
    """The number of bytes of the UTF-8 form of tool_result_text(result), counted without writing it.
    Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form.
    """
def quote(text: str) -> str:
    """`text` in double quotes as an error message shows an argument: whole, with the compact text's
    escapes (a NUL as \\u0000).
    """
def first_sentence(docstring: str | None) -> str | None:
    """The first sentence of the first paragraph of `docstring`, whitespace collapsed, cut to
    SUMMARY_CHARS with an ellipsis; None for None, empty or blank text.
    """
def _cut(text: str, chars: int) -> str:
    """`text` when it has at most `chars` characters, else its first chars - 1, end stripped, and an ellipsis."""
def _trimmed(text: str, chars: int) -> str:
    """Like _cut, but breaking at the last space in the second half of the kept text."""
def without_nulls(row: dict[str, Any]) -> Row:
    """A new dict of `row`'s entries whose value is not None, in their order."""
def code_lines(root: str | os.PathLike[str] | None, places: Iterable[tuple[str, int]]) -> dict[tuple[str, int], str]:
    """The stripped line of each (path, line) place in the work tree under `root`, cut to CODE_LINE_CHARS,
    keyed by the places as passed; only found lines. No path leads out of the root. Files that cannot be
    read are logged at INFO to logging.getLogger('kestrune.mcp_responses') and left out. The GIL is
    released while files are read.
    """
def build_paginated_response(items: Sequence[Any], total_count: int, offset: int, *, items_key: str = "items") -> Row:
    """One page of rows: `items` itself under `items_key`, then total_count, truncated and has_more
    (offset + len(items) < total_count) and offset, with the pagination hint when truncated.
    """
def fit_paginated_response(items: Sequence[Any], total_count: int, offset: int, max_bytes: int, *,
                           items_key: str = "items") -> Row:
    """build_paginated_response of the longest prefix of `items` whose page's compact text takes at most
    `max_bytes` bytes (of no rows when even that is longer); the hint tells the model the next offset.
    `items` itself is in the page when it is a list that fits whole; otherwise a new list.
    """
def add_pagination_hint(response: Row, count: int) -> Row:
    """Adds 'hint' to `response` in place when its truncated is True:
    'Showing C of T results. Call again with offset=N for more.' Returns `response`.
    """
def build_empty_paginated_response(items_key: str = "items") -> Row:
    """The paginated shape with a new empty list, total 0, no more pages and no hint."""
def build_index_status_response(status: str, health: str, branch: str | None, progress: int, files_indexed: int = 0,
                                symbols_indexed: int = 0, last_updated: str | None = None, errors_count: int = 0,
                                phase: str | None = None, phase_detail: str | None = None) -> Row:
    """The IndexStatusResponse: eight keys always, then phase and phase_detail when non-empty."""
def get_empty_response(tool_name: str) -> Row:
    """A new copy of EMPTY_TOOL_RESPONSES[tool_name], or {'error': 'Repository not initialized'}."""
def build_symbol_search_result(symbol: Record, file_path: str | None = None) -> Row:
    """The search row of `symbol`: fqn, name, kind, file, line, signature, summary; None left out."""
def build_symbol_full_details(symbol: Record, file_path: str | None = None) -> Row:
    """The GetSymbolResponse of `symbol`: every key, None where unknown."""
def outline_module(fqns: Iterable[str]) -> str:
    """The dotted parts that the parents of all `fqns` share, compared whole; '' when none."""
def build_file_symbol(symbol: Record, module: str = "") -> Row:
    """The outline row of `symbol`, named relative to `module` (None or '' for none); end_line only when it differs."""
def build_reference(reference: Record, code: str | None = None) -> Row:
    """The reference row: file and line always, then code, caller, caller_kind, usage_type when given."""
def build_api_endpoint(symbol: Record, file_path: str | None = None, component_name: str | None = None) -> Row:
    """The ApiEndpointInfo of `symbol`: every key; file '' when not given."""
def build_component(component: Record) -> Row:
    """The ComponentInfoResponse, as stored."""
def build_test_coverage(test_file: str, source_file: str, symbols_imported: list[Any] | None = None) -> Row:
    """test_file and source_file, then symbols_imported when non-empty."""
def build_wiki_status_response(*, built: bool, branch: str, pages: int = 0, files_covered: int = 0,
                               total_sources: int = 0, coverage_pct: float = 0.0, last_built: str | None = None,
                               model: str | None = None, stale_pages: list[Any] | None = None, enabled: bool = False,
                               configured: bool = False) -> Row:
    """The wiki status response: eleven keys, always; stale_pages a list (a new empty one for None or empty)."""
def build_wiki_list_response(pages: Sequence[Any], total: int, offset: int = 0, truncated: bool = False) -> Row:
    """The wiki list response: pages, total_count, offset, truncated (the caller's) and has_more."""
def build_wiki_read_response(*, page_id: str, title: str, content: str, citations: list[Any] | None = None,
                             source_files: list[Any] | None = None, related_pages: list[Any] | None = None) -> Row:
    """The wiki read response: page_id, title, content, then three lists (new empty ones for None or empty)."""
def build_wiki_ask_response(*, mode: str, query: str, answer: str | None, sections: Sequence[Mapping[str, Any]],
                            citations: Sequence[Mapping[str, Any]] | None = None, model: str | None = None,
                            tokens: Mapping[str, int] | None = None, note: str | None = None,
                            decisions: Mapping[str, Any] | None = None, code: Mapping[str, Any] | None = None,
                            memories: Mapping[str, Any] | None = None, token_budget: int | None = None) -> Row:
    """The wiki ask response: mode, query, answer, a row per kept section, the merged citations, then the
    attachments that are not None. With token_budget, fitted to token_budget x 4 bytes of compact text by
    keeping fewer sections, cutting excerpts, dropping sections and then memories and code.
    Raises EncodingError, with a budget, for a string holding a lone surrogate.
    """
def _ask_citations(sections: Sequence[Mapping[str, Any]], extra: Sequence[Mapping[str, Any]]) -> list[Any]:
    """The merged citations: the first three of each section's, then `extra`, each place once, at most 24."""
def call_tool_result(response: Value, *, structured: bool = False, is_error: bool = False) -> Row:
    """The MCP CallToolResult of `response`: one text block of tool_result_text(response); with structured,
    the response itself (a dict) as structuredContent; with is_error, isError true.
    """
def jsonrpc_result_line(id: int | str | float, result: Value) -> str:
    """{"jsonrpc":"2.0","id":ID,"result":RESULT} and a line feed; a non-finite float is written null."""
def jsonrpc_error_line(id: int | str | float | None, code: int, message: str) -> str:
    """{"jsonrpc":"2.0","id":ID,"error":{"code":CODE,"message":MESSAGE}} and a line feed; id may be None."""
def tool_call_line(id: int | str | float, response: Value, *, structured: bool = False, is_error: bool = False) -> str:
    """jsonrpc_result_line(id, call_tool_result(response, ...)), written in one pass from the response."""
def tool_call_line_bytes(id: int | str | float, response: Value, *, structured: bool = False,
                         is_error: bool = False) -> bytes:
    """tool_call_line(id, response, ...) as UTF-8 bytes, for a server that writes bytes.
    Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form.
    """
