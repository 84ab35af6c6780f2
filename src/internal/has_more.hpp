// The has_more rule shared by the paginated and the wiki list responses.
#pragma once

#include <cstdint>

namespace kestrune::mcp_responses::detail {

/// has_more: offset + rows < total, exact for every int64 input (a sum that
/// overflows is beyond any total when positive, below any when negative).
[[nodiscard]] constexpr bool has_more(std::int64_t offset, std::int64_t rows, std::int64_t total) noexcept {
  std::int64_t end = 0;
  if (__builtin_add_overflow(offset, rows, &end)) return offset < 0;
  return end < total;
}

}  // namespace kestrune::mcp_responses::detail
