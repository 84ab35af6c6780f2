// The limits of the wiki ask answer: its excerpts, its citations and its
// token budget.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrune::mcp_responses::detail {

/// Characters to which every section's excerpt is first cut.
inline constexpr std::int64_t ASK_EXCERPT_CHARS = 1200;
/// Bytes reserved for each kept section's excerpt while the budget is shared out.
inline constexpr std::int64_t ASK_MIN_EXCERPT_CHARS = 200;
/// Citations taken from the front of each section's own list.
inline constexpr std::size_t ASK_CITATIONS_PER_SECTION = 3;
/// Most citations in the merged list.
inline constexpr std::size_t ASK_MAX_CITATIONS = 24;
/// Bytes of encoded response counted per token of the budget.
inline constexpr std::int64_t BYTES_PER_TOKEN = 4;

}  // namespace kestrune::mcp_responses::detail
