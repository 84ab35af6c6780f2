// Stripping whitespace (the 29 characters of the text helpers) from text.
#pragma once

#include <string_view>

namespace kestrune::mcp_responses::detail {

/// strip, strip_end: `text` without whitespace at both ends / at its end.
[[nodiscard]] std::string_view strip(std::string_view text) noexcept;
[[nodiscard]] std::string_view strip_end(std::string_view text) noexcept;

}  // namespace kestrune::mcp_responses::detail
