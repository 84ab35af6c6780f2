// UTF-8 decoding and checking, shared by the encoder, the text helpers and
// the code-line reader: a character at a time, or a block at a time.
//
// Well-formedness follows the Unicode Standard's table of well-formed byte
// sequences: no overlong forms, no encoded surrogates, nothing above U+10FFFF.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "internal/blocks.hpp"

namespace kestrune::mcp_responses::detail {

/// Decoded: one step through a UTF-8 text. When `ok`, `cp` is the code point
/// and `len` its byte length (1 to 4). When not, `len` is the length of the
/// maximal ill-formed subpart at this place (at least 1): the bytes that a
/// decoder replaces by a single U+FFFD.
struct Decoded {
  char32_t cp;
  std::uint8_t len;
  bool ok;
};

/// decode_at: decodes the sequence that starts at byte `i` (< s.size()).
[[nodiscard]] constexpr Decoded decode_at(std::string_view s, std::size_t i) noexcept {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char b0 = byte(i);
  if (b0 < 0x80) return {b0, 1, true};
  std::uint8_t need = 0;
  char32_t cp = 0;
  unsigned char lo = 0x80;
  unsigned char hi = 0xBF;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    need = 1;
    cp = b0 & 0x1Fu;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    need = 2;
    cp = b0 & 0x0Fu;
    if (b0 == 0xE0) lo = 0xA0;
    if (b0 == 0xED) hi = 0x9F;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    need = 3;
    cp = b0 & 0x07u;
    if (b0 == 0xF0) lo = 0x90;
    if (b0 == 0xF4) hi = 0x8F;
  } else {
    return {0xFFFD, 1, false};
  }
  std::uint8_t len = 1;
  for (std::uint8_t k = 0; k < need; ++k) {
    if (i + len >= s.size()) return {0xFFFD, len, false};
    const unsigned char b = byte(i + len);
    // Only the second byte has a narrowed range; the rest are 80..BF.
    const unsigned char min = k == 0 ? lo : 0x80;
    const unsigned char max = k == 0 ? hi : 0xBF;
    if (b < min || b > max) return {0xFFFD, len, false};
    cp = (cp << 6) | (b & 0x3Fu);
    ++len;
  }
  return {cp, len, true};
}

/// char_length: bytes of the character at `i` for text helpers, which count
/// an ill-formed byte as one character of its own.
[[nodiscard]] constexpr std::size_t char_length(std::string_view s, std::size_t i) noexcept {
  const Decoded d = decode_at(s, i);
  return d.ok ? d.len : 1;
}

/// first_ill_formed: the byte offset of the first ill-formed sequence, or
/// std::string_view::npos when `s` is well-formed UTF-8.
[[nodiscard]] constexpr std::size_t first_ill_formed(std::string_view s) noexcept {
  std::size_t i = 0;
  while (i < s.size()) {
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      ++i;
      continue;
    }
    const Decoded d = decode_at(s, i);
    if (!d.ok) return i;
    i += d.len;
  }
  return std::string_view::npos;
}

/// is_whitespace: the 29 whitespace characters of the text helpers. U+200B,
/// U+FEFF and U+180E are deliberately not among them.
[[nodiscard]] constexpr bool is_whitespace(char32_t c) noexcept {
  if (c <= 0x20) return (c >= 0x09 && c <= 0x0D) || (c >= 0x1C && c <= 0x20);
  if (c < 0x85) return false;
  return c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 ||
         c == 0x202F || c == 0x205F || c == 0x3000;
}

/// CharAt: the character at a place of a text, as the text helpers see it.
struct CharAt {
  std::size_t len;  ///< its bytes; 1 for a byte that is not well-formed UTF-8
  bool whitespace;  ///< whether it is one of the 29 whitespace characters
};

/// char_at: the character at byte `i` (< s.size()).
[[nodiscard]] constexpr CharAt char_at(std::string_view s, std::size_t i) noexcept {
  const auto c = static_cast<unsigned char>(s[i]);
  if (c < 0x80) return {1, is_whitespace(c)};
  const Decoded d = decode_at(s, i);
  return d.ok ? CharAt{d.len, is_whitespace(d.cp)} : CharAt{1, false};
}

/// append_utf8: appends the UTF-8 form of the scalar value `c`.
inline void append_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

/// Utf8Check: well-formedness of UTF-8 checked a block at a time. Each lead
/// byte says which of the next bytes must be continuation bytes; the text is
/// well-formed when exactly those are, no byte is one that never occurs
/// (C0, C1, F5..FF), the second bytes after E0, ED, F0 and F4 lie in their
/// narrower ranges, and nothing is left pending at the end. What a block's
/// last bytes require of the next block is carried over.
class Utf8Check {
 public:
  /// block: checks one block; false when it is not well-formed so far. ASCII
  /// blocks with nothing pending cost one test.
  bool block(const Block& b) noexcept { return block(b, high_mask(b)); }

  /// block: the same, given the block's high_mask.
  bool block(const Block& b, unsigned high) noexcept {
    if ((high | pending_ | narrow_) == 0) return true;
    constexpr auto s = [](unsigned char c) { return static_cast<signed char>(c); };
    const unsigned cont = below_mask(b, s(0xC0));          // 80..BF
    const unsigned lead = high & ~cont;                    // C0..FF
    const unsigned lead3 = above_mask(b, s(0xDF)) & high;  // E0..FF
    unsigned need = lead << 1 | pending_;
    unsigned bad = below_mask(b, s(0xC2)) & lead;  // C0 and C1 never occur
    if ((lead3 | narrow_) != 0) {
      // Three- and four-byte sequences; F5..FF never occur.
      const unsigned lead4 = above_mask(b, s(0xEF)) & high;  // F0..FF
      need |= lead3 << 2 | lead4 << 3;
      bad |= above_mask(b, s(0xF4)) & high;
      // The narrower second-byte ranges after E0, ED, F0 and F4, checked only
      // when one of those occurs: most three-byte text starts with E2 or E3.
      const unsigned e0 = equal_mask(b, 0xE0);
      const unsigned ed = equal_mask(b, 0xED);
      if ((e0 | ed | lead4 | narrow_) != 0) {
        const unsigned below_a0 = below_mask(b, s(0xA0));  // 80..9F
        const unsigned below_90 = below_mask(b, s(0x90));  // 80..8F
        const unsigned after_e0 = e0 << 1 | (narrow_ & 1u);
        const unsigned after_ed = ed << 1 | (narrow_ >> 1 & 1u);
        const unsigned after_f0 = equal_mask(b, 0xF0) << 1 | (narrow_ >> 2 & 1u);
        const unsigned after_f4 = equal_mask(b, 0xF4) << 1 | (narrow_ >> 3 & 1u);
        bad |= ((after_e0 & below_a0) | (after_ed & cont & ~below_a0) | (after_f0 & below_90) |
                (after_f4 & cont & ~below_90)) &
               0xFFFFu;
        narrow_ =
            (after_e0 >> kBlock) | (after_ed >> kBlock) << 1 | (after_f0 >> kBlock) << 2 | (after_f4 >> kBlock) << 3;
      }
    }
    pending_ = need >> kBlock;
    return (need & 0xFFFFu) == cont && bad == 0;
  }

  /// done: whether no sequence is left incomplete at the end of the text.
  [[nodiscard]] bool done() const noexcept { return pending_ == 0; }

 private:
  unsigned pending_ = 0;  // continuation bytes required at the next block's start
  unsigned narrow_ = 0;   // the next block's first byte follows E0, ED, F0 or F4
};

}  // namespace kestrune::mcp_responses::detail
