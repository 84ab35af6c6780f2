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

/// CountSink: counts bytes of UTF-8, characters and the widest character;
/// with `strict`, a lone surrogate stops the count (it has no UTF-8 form) and
/// is reported by its byte offset in its string.
class CountSink {
 public:
  static constexpr bool kWrites = false;

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
    std::size_t extra = 0;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
      if (escape_lanes<std::uint8_t>(load_word(s + i)) == 0) continue;
      for (std::size_t k = i; k < i + 8; ++k) extra += extra_[static_cast<unsigned char>(s[k])];
    }
    for (; i < n; ++i) extra += extra_[static_cast<unsigned char>(s[i])];
    bytes_ += n + extra;
    chars_ += n + extra;
  }
  template <class C>
  bool text(const C* s, std::size_t n) noexcept {
    std::size_t in_string = 0;  // bytes of this string so far, unescaped
    for (std::size_t i = 0; i < n; ++i) {
      const std::uint32_t c = s[i];
      if (c < 0x80) {
        const std::size_t k = 1 + extra_[c];
        bytes_ += k, chars_ += k, ++in_string;
        continue;
      }
      if (strict_ && is_surrogate(c)) {
        bad_byte_ = in_string;
        return false;
      }
      const std::size_t k = utf8_length(c);
      bytes_ += k, in_string += k, ++chars_;
      max_char_ = std::max(max_char_, c);
    }
    return true;
  }
  [[nodiscard]] std::size_t size() const noexcept { return bytes_; }
  [[nodiscard]] std::size_t chars() const noexcept { return chars_; }
  [[nodiscard]] std::uint32_t max_char() const noexcept { return max_char_; }
  [[nodiscard]] std::size_t bad_byte() const noexcept { return bad_byte_; }

 private:
  bool strict_;
  bool nested_ = false;
  const std::uint8_t* extra_ = detail::kEscapeExtra.data();
  std::size_t bytes_ = 0;
  std::size_t chars_ = 0;
  std::uint32_t max_char_ = 0x7F;
  std::size_t bad_byte_ = 0;
};

}  // namespace kestrune::mcp_responses::python
