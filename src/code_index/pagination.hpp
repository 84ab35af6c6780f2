// The parts of a paginated response, for the builder and for fitting a page
// to a size: the paging facts, and the hint's text and its length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

/// paging_facts: `items` under `items_key`, then `total_count`, `truncated`
/// and `has_more` (both `has_more`), and `offset`: the paginated response
/// before its hint.
[[nodiscard]] ResponseDict paging_facts(ResponseList items, std::string items_key, std::int64_t total_count,
                                        std::int64_t offset, bool has_more);

/// pagination_hint_text: "Showing C of T results. Call again with offset=N
/// for more." for C = `count`, T = `total_count` and N = `offset` + C (with
/// wrap-around, so that no offset is undefined behaviour).
[[nodiscard]] std::string pagination_hint_text(std::int64_t count, std::int64_t total_count, std::int64_t offset);

/// pagination_hint_text: the same text with its three numbers given as
/// their digits, for callers whose numbers may not fit 64 bits.
[[nodiscard]] std::string pagination_hint_text(std::string_view count, std::string_view total_count,
                                               std::string_view next_offset);

/// pagination_hint_size: the length of that text (ASCII, no escapes).
[[nodiscard]] std::size_t pagination_hint_size(std::int64_t count, std::int64_t total_count,
                                               std::int64_t offset) noexcept;

}  // namespace kestrune::mcp_responses::detail
