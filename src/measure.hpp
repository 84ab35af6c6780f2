// Encoded sizes that report ill-formed text instead of throwing, for callers
// that add up the sizes of a response's parts.
#pragma once

#include <cstddef>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

/// kIllFormed: the size of a part that holds text which is not well-formed
/// UTF-8; any sum with it is kIllFormed too.
inline constexpr std::size_t kIllFormed = std::string_view::npos;

/// size_or_ill_formed: encoded_size of `value`, or kIllFormed.
[[nodiscard]] std::size_t size_or_ill_formed(const ResponseValue& value) noexcept;
[[nodiscard]] std::size_t size_or_ill_formed(const ResponseDict& value) noexcept;
/// string_size_or_ill_formed: the encoded size of `text` as a string, or kIllFormed.
[[nodiscard]] std::size_t string_size_or_ill_formed(std::string_view text) noexcept;

/// well_formed_string_size: the encoded size of `text` as a string, which
/// must be well-formed UTF-8: only the escapes are looked for.
[[nodiscard]] std::size_t well_formed_string_size(std::string_view text) noexcept;
/// well_formed_char_count: the number of characters of well-formed `text`.
[[nodiscard]] std::size_t well_formed_char_count(std::string_view text) noexcept;

/// plus: a + b, or kIllFormed when either is.
[[nodiscard]] constexpr std::size_t plus(std::size_t a, std::size_t b) noexcept {
  return a == kIllFormed || b == kIllFormed ? kIllFormed : a + b;
}

}  // namespace kestrune::mcp_responses::detail
