// What the sinks that write the compact text share: which characters need
// an escape, eight bytes at a time; the escapes themselves, either as the
// compact text has them or as they read once that text is itself the
// contents of a JSON string (the text block of a JSON-RPC line); and how a
// sink stops when memory runs out.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "encoding/escapes.hpp"

namespace kestrune::mcp_responses::python {

/// NoMemory: thrown by a sink that could not get memory; a Python
/// MemoryError is set.
struct NoMemory {};

/// kMaxEscape: the longest escape of one character, nested (\\u001b).
inline constexpr std::size_t kMaxEscape = 7;

/// escape_of: the escape of ASCII `c` (detail::kEscape[c] != 0) written at
/// `out`; with `nested`, escaped again as inside a JSON string (\" becomes
/// \\\"). Returns its length.
inline std::size_t escape_of(unsigned char c, char* out, bool nested) noexcept {
  constexpr std::array<char, 16> hex = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
  const char e = detail::kEscape[c];
  char* p = out;
  *p++ = '\\';
  if (nested) {
    *p++ = '\\';
    if (e == '"' || e == '\\') *p++ = '\\';
  }
  *p++ = e;
  if (e == 'u') {
    p[0] = '0';
    p[1] = '0';
    p[2] = hex[c >> 4];
    p[3] = hex[c & 0xF];
    p += 4;
  }
  return static_cast<std::size_t>(p - out);
}

/// escape_lanes: of the characters packed in `w`, lanes of type Lane (one,
/// two or four bytes), those that may need an escape (a control character, a
/// quotation mark or a reverse solidus), marked by their lane's top bit. A
/// lane above a marked one may be marked wrongly, never one below: the lowest
/// mark is exact, and none means that no character needs an escape. A lane
/// with its top bit set is never marked, nor does it disturb its neighbours.
template <class Lane>
std::uint64_t escape_lanes(std::uint64_t w) noexcept {
  constexpr std::uint64_t ones = ~std::uint64_t{0} / static_cast<Lane>(~Lane{0});
  constexpr std::uint64_t top = ones << (8 * sizeof(Lane) - 1);
  const std::uint64_t control = (w - ones * 0x20) & ~w & top;
  const std::uint64_t quote = w ^ (ones * '"');
  const std::uint64_t backslash = w ^ (ones * '\\');
  return control | ((quote - ones) & ~quote & top) | ((backslash - ones) & ~backslash & top);
}

/// above_ascii_lanes: the lanes of `w` that hold a character above U+007F,
/// marked by some of their bits.
template <class Lane>
std::uint64_t above_ascii_lanes(std::uint64_t w) noexcept {
  constexpr std::uint64_t ones = ~std::uint64_t{0} / static_cast<Lane>(~Lane{0});
  return w & (ones * static_cast<Lane>(~Lane{0x7F}));
}

/// first_lane: the index of the lowest lane marked in `marks` (not zero).
template <class Lane>
std::size_t first_lane(std::uint64_t marks) noexcept {
  return static_cast<std::size_t>(std::countr_zero(marks)) / (8 * sizeof(Lane));
}

inline std::uint64_t load_word(const void* s) noexcept {
  std::uint64_t w;
  std::memcpy(&w, s, sizeof w);
  return w;
}

/// kNestedEscapeExtra: for each byte, the bytes its escape adds to its own
/// one once escaped again (detail::kEscapeExtra for the escape itself).
inline constexpr std::array<std::uint8_t, 256> kNestedEscapeExtra = [] {
  std::array<std::uint8_t, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) {
    const char e = detail::kEscape[c];
    t[c] = static_cast<std::uint8_t>(e == 0 ? 0 : detail::kEscapeExtra[c] + 1 + (e == '"' || e == '\\' ? 1 : 0));
  }
  return t;
}();

inline bool is_surrogate(std::uint32_t c) noexcept { return c >= 0xD800 && c <= 0xDFFF; }

inline std::size_t utf8_length(std::uint32_t c) noexcept { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

/// short_word: the `n` (4 to 8) bytes at `s` as one word, in two overlapping
/// loads of four: bytes 0-3 in the low half, bytes n-4 to n-1 in the high.
inline std::uint64_t short_word(const void* s, std::size_t n) noexcept {
  std::uint32_t low;
  std::uint32_t high;
  std::memcpy(&low, s, 4);
  std::memcpy(&high, static_cast<const char*>(s) + n - 4, 4);
  return low | (std::uint64_t{high} << 32);
}

/// escaped_one_byte: `n` one-byte characters written at `out`, escaped
/// (`nested` as escape_of), eight at a time up to the next that needs an
/// escape; bytes at or above 0x80 as they are. Returns the end; `out` has
/// room for kMaxEscape bytes a character.
inline char* escaped_one_byte(const char* s, std::size_t n, char* out, bool nested) noexcept {
  if (n >= 4 && n <= 8 && escape_lanes<std::uint8_t>(short_word(s, n)) == 0) {
    // A short string (most keys and many values) checked as one word.
    std::memcpy(out, s, 4);
    std::memcpy(out + n - 4, s + n - 4, 4);
    return out + n;
  }
  std::size_t i = 0;
  while (i < n) {
    if (i + 8 <= n) {
      const std::uint64_t marks = escape_lanes<std::uint8_t>(load_word(s + i));
      std::memcpy(out, s + i, 8);  // what follows an escape is written again
      if (marks == 0) {
        out += 8, i += 8;
        continue;
      }
      const std::size_t clean = first_lane<std::uint8_t>(marks);
      out += clean, i += clean;
    } else if (n >= 8 && escape_lanes<std::uint8_t>(load_word(s + n - 8)) == 0) {
      // The tail as the last eight bytes: those of them before i need no
      // escape either, so they were written as they are, just before `out`.
      std::memcpy(out - (i - (n - 8)), s + n - 8, 8);
      return out + (n - i);
    }
    const auto c = static_cast<unsigned char>(s[i++]);
    if (detail::kEscape[c] == 0) {
      *out++ = static_cast<char>(c);
    } else {
      out += escape_of(c, out, nested);
    }
  }
  return out;
}

}  // namespace kestrune::mcp_responses::python
