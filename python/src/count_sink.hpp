// The size of the compact text without writing it: bytes of UTF-8 and
// characters (_encoded_size, and the count before a large str is written).
#pragma once

#include <Python.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sink_common.hpp"

namespace kestrune::mcp_responses::python {

/// CountSink: counts bytes of UTF-8, characters and a bound on the widest
/// character (that of its string's kind, which is what the str needs);
/// with `strict`, a lone surrogate stops the count (it has no UTF-8 form) and
/// is reported by its byte offset in its string.
class CountSink {
 public:
  static constexpr bool kWrites = false;
  static constexpr bool kReadsUtf8 = true;

  explicit CountSink(bool strict) : strict_(strict) {}
  /// nest: while on, counts the text as the contents of a JSON string, its
  /// quotes and escapes escaped again.
  void nest(bool on) noexcept {
    nested_ = on;
    extra_ = on ? kNestedEscapeExtra.data() : detail::kEscapeExtra.data();
  }
  void put(char /*c*/) noexcept { ++bytes_, ++chars_; }
  void put(std::string_view s) noexcept { bytes_ += s.size(), chars_ += s.size(); }
  void quote() noexcept {
    const std::size_t k = nested_ ? 2 : 1;  // \" inside a JSON string
    bytes_ += k, chars_ += k;
  }
  void ascii_text(const char* s, std::size_t n) noexcept {
    const std::size_t extra = escapes_of(s, n);
    bytes_ += n + extra;
    chars_ += n + extra;
  }
  // A string of `chars` characters of str kind `kind`, given as its UTF-8
  // `bytes` (n of them).
  void utf8_text(const char* bytes, std::size_t n, std::size_t chars, int kind) noexcept {
    const std::size_t extra = escapes_of(bytes, n);
    bytes_ += n + extra;
    chars_ += chars + extra;
    max_char_ = std::max(max_char_, kind == 1 ? 0xFFU : kind == 2 ? 0xFFFFU : 0x10FFFFU);
  }
  // `n` characters of `s`, eight bytes of them at a time, looked at one by
  // one for escapes only where some may need one.
  template <class C>
  bool text(const C* s, std::size_t n) noexcept {
    constexpr std::size_t kLanes = 8 / sizeof(C);
    std::size_t bytes = 0;  // UTF-8 bytes, unescaped
    std::size_t extra = 0;  // what escapes add
    bool surrogate = false;
    const auto add = [&](std::uint32_t c) {
      bytes += 1 + static_cast<std::size_t>(c >= 0x80) + static_cast<std::size_t>(c >= 0x800) +
               static_cast<std::size_t>(c >= 0x10000);
      if constexpr (sizeof(C) > 1) surrogate |= is_surrogate(c);
    };
    std::size_t i = 0;
    for (; i + kLanes <= n; i += kLanes) {
      if (escape_lanes<C>(load_word(s + i)) != 0) {
        for (std::size_t j = i; j < i + kLanes; ++j) extra += s[j] < 0x80 ? extra_[s[j]] : 0;
      }
      for (std::size_t j = i; j < i + kLanes; ++j) add(s[j]);
    }
    for (; i < n; ++i) {
      extra += s[i] < 0x80 ? extra_[s[i]] : 0;
      add(s[i]);
    }
    if (strict_ && surrogate) {
      std::size_t at = 0;
      while (!is_surrogate(s[at])) bad_byte_ += utf8_length(s[at++]);
      return false;
    }
    bytes_ += bytes + extra;
    chars_ += n + extra;
    max_char_ = std::max(max_char_, sizeof(C) == 1 ? 0xFFU : sizeof(C) == 2 ? 0xFFFFU : 0x10FFFFU);
    return true;
  }
  [[nodiscard]] std::size_t size() const noexcept { return bytes_; }
  [[nodiscard]] std::size_t chars() const noexcept { return chars_; }
  [[nodiscard]] std::uint32_t max_char() const noexcept { return max_char_; }
  [[nodiscard]] std::size_t bad_byte() const noexcept { return bad_byte_; }

 private:
  // What escapes add to the `n` bytes at `s`, ASCII or UTF-8.
  [[nodiscard]] std::size_t escapes_of(const char* s, std::size_t n) const noexcept {
    std::size_t extra = 0;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
      if (escape_lanes<std::uint8_t>(load_word(s + i)) == 0) continue;
      for (std::size_t k = i; k < i + 8; ++k) extra += extra_[static_cast<unsigned char>(s[k])];
    }
    for (; i < n; ++i) extra += extra_[static_cast<unsigned char>(s[i])];
    return extra;
  }

  bool strict_;
  bool nested_ = false;
  const std::uint8_t* extra_ = detail::kEscapeExtra.data();
  std::size_t bytes_ = 0;
  std::size_t chars_ = 0;
  std::uint32_t max_char_ = 0x7F;
  std::size_t bad_byte_ = 0;
};

}  // namespace kestrune::mcp_responses::python
