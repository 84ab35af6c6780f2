// The size of a response's compact text, counted without writing it: the
// library's own measure (the wiki ask's budget), exact to the byte.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "encoding/layout.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

/// encoded_size: the byte length of tool_result_text(result), counted without
/// building the text. Throws EncodingError when a string or key in `result`
/// is not well-formed UTF-8.
[[nodiscard]] std::size_t encoded_size(ResponseRef result);

// The same sizes for callers that add up the sizes of a response's parts:
// kIllFormed instead of an error.

/// size_or_ill_formed: encoded_size of `value`, or kIllFormed.
[[nodiscard]] std::size_t size_or_ill_formed(ResponseRef value) noexcept;
/// value_size_or_ill_formed: the same for one value; a string's is what it
/// keeps, read in place.
[[nodiscard]] inline std::size_t value_size_or_ill_formed(const ResponseValue& value) noexcept {
  switch (value.kind()) {
    case Kind::string:
      return ValueAccess::encoded_size(value);
    case Kind::null:
      return kNullText.size();
    case Kind::boolean:
      return (ValueAccess::scalar<bool>(value) ? kTrueText : kFalseText).size();
    default:
      return size_or_ill_formed(ResponseRef(value));
  }
}
/// string_size_or_ill_formed: the encoded size of `text` as a string, or kIllFormed.
[[nodiscard]] std::size_t string_size_or_ill_formed(std::string_view text) noexcept;
/// well_formed_string_size: the encoded size of `text` as a string, which
/// must be well-formed UTF-8: only the escapes are looked for.
[[nodiscard]] std::size_t well_formed_string_size(std::string_view text) noexcept;

/// kPow10: the powers of ten that fit 64 bits, 10^0 to 10^19.
inline constexpr std::array<std::uint64_t, 20> kPow10 = [] {
  std::array<std::uint64_t, 20> t{};
  std::uint64_t p = 1;
  for (std::uint64_t& x : t) {
    x = p;
    p *= 10;  // wraps after the last entry is set; the wrapped value is never stored
  }
  return t;
}();

/// integer_text_size: the number of characters of `i` in decimal. The
/// digits come from its bit width: 1233/4096 is just above log10(2), so t
/// below is the number of digits or one less, and one comparison with a
/// power of ten settles which.
[[nodiscard]] constexpr std::size_t integer_text_size(std::int64_t i) noexcept {
  // Work on the magnitude as unsigned so INT64_MIN does not overflow.
  // Zero has one digit, as 1 has.
  const std::uint64_t m = (i < 0 ? 0 - static_cast<std::uint64_t>(i) : static_cast<std::uint64_t>(i)) | 1;
  const auto t = static_cast<std::size_t>((std::bit_width(m) * 1233) >> 12);
  const std::size_t digits = t + (m >= kPow10[t] ? 1 : 0);
  return digits + (i < 0 ? 1 : 0);
}

/// IllFormedAt: where the first string (or key) of a value that is not
/// well-formed UTF-8 stands, as EncodingError::where() and byte() give it.
struct IllFormedAt {
  std::string where;
  std::size_t byte;
};

/// locate_ill_formed: the first string or key of `value` that is not
/// well-formed UTF-8, in writing order, with `where` as the path of `value`;
/// nullopt when all are.
[[nodiscard]] std::optional<IllFormedAt> locate_ill_formed(ResponseRef value, std::string where);

/// plus: a + b, or kIllFormed when either is.
[[nodiscard]] constexpr std::size_t plus(std::size_t a, std::size_t b) noexcept {
  return a == kIllFormed || b == kIllFormed ? kIllFormed : a + b;
}

}  // namespace kestrune::mcp_responses::detail
