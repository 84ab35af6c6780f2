// kestrune/mcp_responses/code_index.hpp - responses and rows of the code-index tools.
//
// Row builders turn one storage record into one row; the caller collects the
// rows of a page and wraps them with build_paginated_response:
//
//   ResponseList rows;
//   for (const Symbol& s : hits) rows.emplace_back(build_symbol_search_result(s, path_of(s)));
//   auto page = build_paginated_response(std::move(rows), total, offset, {.items_key = "symbols"});
//
// Every builder returns a new ResponseDict owned by the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses {

// ---- Paginated responses -------------------------------------------------

/// Options of build_paginated_response and fit_paginated_response.
struct PaginatedOptions {
  std::string items_key = "items";  ///< the key of the rows, first in the response
};

/// build_paginated_response: `items` (moved in, not copied) under the items
/// key, then `total_count`, `truncated`, `has_more` (both true exactly when
/// offset + rows < total_count) and `offset`, passed through
/// add_pagination_hint. The three positional arguments are the page builder's
/// own, in its order.
[[nodiscard]] ResponseDict build_paginated_response(ResponseList items, std::int64_t total_count, std::int64_t offset,
                                                    PaginatedOptions options = {});

/// fit_paginated_response: build_paginated_response of the longest prefix
/// of `items` whose response's compact text takes at most `max_bytes`
/// bytes; of no rows when even that is longer. The page's flags and hint
/// follow the rows it keeps, so a cut page tells the model the offset to
/// call again with: hosts cap what a tool may return. The rows are measured
/// once, not encoded per candidate. Throws EncodingError (located as in the
/// page of all `items`) when a string in the rows or the items key is not
/// well-formed UTF-8.
[[nodiscard]] ResponseDict fit_paginated_response(ResponseList items, std::int64_t total_count, std::int64_t offset,
                                                  std::size_t max_bytes, PaginatedOptions options = {});

/// add_pagination_hint: `response` with the key `hint` appended when its
/// `truncated` is true, telling the model how to get the next page:
///   "Showing C of T results. Call again with offset=N for more."
/// where C is `count` (the rows in the page), T the response's `total_count`
/// and N its `offset` plus C. Any other response is returned unchanged.
[[nodiscard]] ResponseDict add_pagination_hint(ResponseDict response, std::int64_t count);

/// build_empty_paginated_response: the paginated shape with a new empty list,
/// total 0, no more pages, offset 0, and no pagination hint. Unlike the
/// other page builder it takes the items key by position.
[[nodiscard]] ResponseDict build_empty_paginated_response(std::string_view items_key = "items");

// ---- Index status and not-initialized responses --------------------------

/// Arguments of build_index_status_response, in its order: the first four
/// must be set (`branch` may be null), the rest default as shown.
struct IndexStatusOptions {
  Required<std::string> status;                 ///< "ready", "indexing", "error", "stopped", ...
  Required<std::string> health;                 ///< "healthy", "degraded", "unhealthy", "unknown"
  Required<std::optional<std::string>> branch;  ///< the current git branch, or null
  Required<std::int64_t> progress;              ///< 0 to 100
  std::int64_t files_indexed = 0;
  std::int64_t symbols_indexed = 0;
  std::optional<std::string> last_updated = std::nullopt;  ///< a timestamp, as the caller writes it
  std::int64_t errors_count = 0;
  std::optional<std::string> phase = std::nullopt;         ///< e.g. "resolving references"
  std::optional<std::string> phase_detail = std::nullopt;  ///< e.g. "1234/5000"
};

/// build_index_status_response: the IndexStatusResponse: `status`, `health`,
/// `branch`, `progress`, `files_indexed`, `symbols_indexed`, `last_updated`
/// and `errors_count`, always (null included), then `phase` and
/// `phase_detail`, each only when non-empty. Values are not checked.
///
///   build_index_status_response({.status = "ready", .health = "healthy", .branch = "main", .progress = 100});
[[nodiscard]] ResponseDict build_index_status_response(IndexStatusOptions options);

/// EmptyToolResponses: the type of EMPTY_TOOL_RESPONSES, a read-only handle
/// on the table, which is built on first use (thread-safe) and never changed.
/// A constant, so that it is usable before main() in any translation unit.
class EmptyToolResponses {
 public:
  [[nodiscard]] const ResponseDict& operator*() const noexcept;
  [[nodiscard]] const ResponseDict* operator->() const noexcept { return &**this; }
  operator const ResponseDict&() const noexcept { return **this; }  // NOLINT(google-explicit-constructor)
};

/// EMPTY_TOOL_RESPONSES: tool name -> the tool's response for a repository
/// that is not initialized, 14 entries in a fixed order:
///   for (const auto& [tool, response] : *EMPTY_TOOL_RESPONSES) ...
inline constexpr EmptyToolResponses EMPTY_TOOL_RESPONSES{};

/// get_empty_response: a copy of the table's entry for `tool_name` (exact,
/// case-sensitive), or {"error": "Repository not initialized"} for a name not
/// in the table. The copy shares nothing with the table.
[[nodiscard]] ResponseDict get_empty_response(std::string_view tool_name);

// ---- Symbol rows ---------------------------------------------------------

/// build_symbol_search_result: the search row of `symbol`: fqn, name, kind,
/// file (`file_path`), line (start_line), signature and summary (the
/// docstring's first_sentence), in that order, each left out when null.
[[nodiscard]] ResponseDict build_symbol_search_result(const Symbol& symbol,
                                                      std::optional<std::string_view> file_path = std::nullopt);

/// build_symbol_full_details: the GetSymbolResponse of `symbol`: found (true),
/// fqn, name, kind, file (`file_path`), start_line, end_line, signature,
/// is_export, docstring (whole) and docstring_truncated; every key always
/// present, null where unknown.
[[nodiscard]] ResponseDict build_symbol_full_details(const Symbol& symbol,
                                                     std::optional<std::string_view> file_path = std::nullopt);

// ---- File outline rows ---------------------------------------------------

/// outline_module: the dotted parts that the parents of all `fqns` share,
/// compared as whole parts from the first ("a.bc.x" and "a.b.y" give "a");
/// the empty string for no fqns or when they share none.
[[nodiscard]] std::string outline_module(std::span<const std::string> fqns);
[[nodiscard]] std::string outline_module(std::span<const std::string_view> fqns);
[[nodiscard]] std::string outline_module(std::initializer_list<std::string_view> fqns);

/// build_file_symbol: the outline row of `symbol`: name (fqn less the
/// "`module`." prefix when it has it), kind, line (start_line), end_line (only
/// when it differs from start_line), signature and summary, nulls left out.
[[nodiscard]] ResponseDict build_file_symbol(const Symbol& symbol, std::string_view module = "");

// ---- Reference, endpoint, component and test rows -------------------------

/// build_reference: the reference row: `file` and `line` always (null when
/// unknown), then `code`, `caller` and `caller_kind` (the caller symbol's
/// "fqn" and "kind") and `usage_type`, each only when not null. `code` is
/// the text that code_lines found at the reference's place.
[[nodiscard]] ResponseDict build_reference(const Reference& reference,
                                           std::optional<std::string_view> code = std::nullopt);

/// Arguments of build_api_endpoint after the symbol, in its order: two
/// strings a call site names, so that they never swap.
struct ApiEndpointOptions {
  std::optional<std::string> file_path = std::nullopt;       ///< the endpoint's file
  std::optional<std::string> component_name = std::nullopt;  ///< its component
};

/// build_api_endpoint: the ApiEndpointInfo of `symbol`: fqn, name, kind,
/// file (the empty string when `file_path` is null or empty), line (the
/// start line), signature and component, all always present.
///
///   build_api_endpoint(symbol, {.file_path = "api/users.py", .component_name = "api"});
[[nodiscard]] ResponseDict build_api_endpoint(const Symbol& symbol, ApiEndpointOptions options = {});

/// build_component: the ComponentInfoResponse: name, layer, path_pattern,
/// file_count and symbol_count as stored, null included.
[[nodiscard]] ResponseDict build_component(const ComponentInfo& component);

/// Arguments of build_test_coverage, in its order: the two files must be
/// set, and are named at the call site so that they never swap.
struct TestCoverageOptions {
  Required<std::string> test_file;
  Required<std::string> source_file;
  std::optional<ResponseList> symbols_imported = std::nullopt;  ///< moved in as it is
};

/// build_test_coverage: `test_file` and `source_file`, then
/// `symbols_imported` only when it has an element.
///
///   build_test_coverage({.test_file = "tests/test_cart.py", .source_file = "shop/cart.py"});
[[nodiscard]] ResponseDict build_test_coverage(TestCoverageOptions options);

}  // namespace kestrune::mcp_responses
