// The size of a response's compact text, counted without writing it: the
// library's own measure (the wiki ask's budget), exact to the byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

/// encoded_size: the byte length of tool_result_text(result), counted without
/// building the text. Throws EncodingError when a string or key in `result`
/// is not well-formed UTF-8.
[[nodiscard]] std::size_t encoded_size(const ResponseValue& result);
[[nodiscard]] std::size_t encoded_size(const ResponseDict& result);

// The same sizes for callers that add up the sizes of a response's parts:
// kIllFormed instead of an error.

/// size_or_ill_formed: encoded_size of `value`, or kIllFormed.
[[nodiscard]] std::size_t size_or_ill_formed(const ResponseValue& value) noexcept;
[[nodiscard]] std::size_t size_or_ill_formed(const ResponseDict& value) noexcept;
/// string_size_or_ill_formed: the encoded size of `text` as a string, or kIllFormed.
[[nodiscard]] std::size_t string_size_or_ill_formed(std::string_view text) noexcept;
/// well_formed_string_size: the encoded size of `text` as a string, which
/// must be well-formed UTF-8: only the escapes are looked for.
[[nodiscard]] std::size_t well_formed_string_size(std::string_view text) noexcept;

/// integer_text_size: the number of characters of `i` in decimal.
[[nodiscard]] std::size_t integer_text_size(std::int64_t i) noexcept;

/// list_size: the encoded size of a list whose `count` elements encode to
/// `elements` bytes in all: theirs, the brackets and the commas between them.
[[nodiscard]] constexpr std::size_t list_size(std::size_t elements, std::size_t count) noexcept {
  return elements == kIllFormed ? kIllFormed : elements + 2 + (count > 0 ? count - 1 : 0);
}

/// locate_ill_formed: where the first string (or key) of `value` that is not
/// well-formed UTF-8 stands, in writing order, as EncodingError::where()
/// gives it with `where` as the path of `value`; nullopt when all are.
struct IllFormedAt {
  std::string where;
  std::size_t byte;
};
[[nodiscard]] std::optional<IllFormedAt> locate_ill_formed(const ResponseValue& value, std::string where);
[[nodiscard]] std::optional<IllFormedAt> locate_ill_formed(const ResponseDict& value, std::string where);

/// plus: a + b, or kIllFormed when either is.
[[nodiscard]] constexpr std::size_t plus(std::size_t a, std::size_t b) noexcept {
  return a == kIllFormed || b == kIllFormed ? kIllFormed : a + b;
}

}  // namespace kestrune::mcp_responses::detail
