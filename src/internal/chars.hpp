// Counting characters: the code points of UTF-8 text, where a byte that is
// not part of well-formed UTF-8 counts as one character of its own. Every
// count and every cut of the library goes through here; the block scanner of
// first_sentence shares its masks.
#pragma once

#include <bit>
#include <cstddef>
#include <string_view>

#include "internal/blocks.hpp"

namespace kestrune::mcp_responses::detail {

/// Utf8: what a caller knows of a text's bytes.
enum class Utf8 : bool { unchecked, well_formed };

/// continuation_mask: bit k set when byte k of `b` continues a character
/// (80..BF). In well-formed text every other byte starts one.
[[nodiscard]] inline unsigned continuation_mask(const Block& b) noexcept {
  return below_mask(b, static_cast<signed char>(0xC0));
}

/// nth_set_bit: the position of the n-th (from 0) set bit of `mask`, which
/// has more than n.
[[nodiscard]] inline unsigned nth_set_bit(unsigned mask, std::size_t n) noexcept {
  for (; n > 0; --n) mask &= mask - 1;
  return static_cast<unsigned>(std::countr_zero(mask));
}

/// char_count: the number of characters of `text`. Text known to be
/// well-formed is counted without checking it.
[[nodiscard]] std::size_t char_count(std::string_view text, Utf8 known = Utf8::unchecked) noexcept;

/// CharOffset: where the first characters of a text end.
struct CharOffset {
  std::size_t bytes;  ///< just past them; the text's size when it has fewer
  bool well_formed;   ///< whether the bytes before `bytes` are known to be well-formed
};

/// char_offset: where the first `chars` characters of `text` end.
[[nodiscard]] CharOffset char_offset(std::string_view text, std::size_t chars, Utf8 known = Utf8::unchecked) noexcept;

}  // namespace kestrune::mcp_responses::detail
