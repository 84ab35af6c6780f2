// Counting characters 16 bytes at a time: in well-formed text every byte but
// the continuation bytes starts a character. Text found ill-formed is counted
// a character at a time instead.
#include "internal/chars.hpp"

#include <algorithm>

#include "internal/utf8.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

std::size_t char_count_slow(std::string_view text) noexcept {
  std::size_t n = 0;
  for (std::size_t i = 0; i < text.size(); i += char_length(text, i)) ++n;
  return n;
}

std::size_t char_offset_slow(std::string_view s, std::size_t chars) noexcept {
  std::size_t i = 0;
  for (std::size_t k = 0; k < chars && i < s.size(); ++k) i += char_length(s, i);
  return i;
}

// Known to be well-formed: the first `chars` bytes start at most `chars`
// characters, so their whole blocks are counted in bulk and the rest a
// block at a time.
std::size_t well_formed_offset(std::string_view s, std::size_t chars) noexcept {
  std::size_t i = std::min(chars, s.size()) / kBlock * kBlock;
  std::size_t k = i - count_continuations(s.data(), i);  // characters started before byte i
  for (; i < s.size(); i += kBlock) {
    const std::size_t left = s.size() - i;
    const std::size_t step = std::min(left, kBlock);
    const unsigned starts = ((1u << step) - 1) & ~continuation_mask(load_block(s.data() + i, left));
    const auto here = static_cast<std::size_t>(popcount16(starts));
    if (k + here > chars) return i + nth_set_bit(starts, chars - k);
    k += here;
  }
  return s.size();
}

}  // namespace

std::size_t char_count(std::string_view text, Utf8 known) noexcept {
  if (known == Utf8::well_formed) {
    const std::size_t whole = text.size() / kBlock * kBlock;
    std::size_t continuations = count_continuations(text.data(), whole);
    if (whole < text.size()) {
      continuations += popcount16(continuation_mask(load_block(text.data() + whole, text.size() - whole)));
    }
    return text.size() - continuations;
  }
  Utf8Check utf8;
  std::size_t n = 0;
  for (std::size_t i = 0; i < text.size(); i += kBlock) {
    const std::size_t left = text.size() - i;
    const Block b = load_block(text.data() + i, left);
    const unsigned high = high_mask(b);
    n += std::min(left, kBlock);
    if (high == 0 && utf8.done()) continue;
    if (!utf8.block(b, high)) return char_count_slow(text);
    n -= static_cast<std::size_t>(popcount16(continuation_mask(b)));
  }
  return utf8.done() ? n : char_count_slow(text);
}

CharOffset char_offset(std::string_view s, std::size_t chars, Utf8 known) noexcept {
  if (known == Utf8::well_formed) return {well_formed_offset(s, chars), true};
  Utf8Check utf8;
  std::size_t i = 0;
  std::size_t k = 0;  // characters started before byte i
  while (i < s.size()) {
    const std::size_t left = s.size() - i;
    const std::size_t step = std::min(left, kBlock);
    const Block b = load_block(s.data() + i, left);
    const unsigned high = high_mask(b);
    unsigned starts = (1u << step) - 1;
    if (high != 0 || !utf8.done()) {
      if (!utf8.block(b, high)) return {char_offset_slow(s, chars), false};
      starts &= ~continuation_mask(b);
    }
    const auto here = static_cast<std::size_t>(popcount16(starts));
    if (k + here > chars) return {i + nth_set_bit(starts, chars - k), true};
    k += here;
    i += step;
  }
  if (!utf8.done()) return {char_offset_slow(s, chars), false};
  return {s.size(), true};
}

}  // namespace kestrune::mcp_responses::detail
