// The compact text as UTF-8 bytes, written straight into a bytes object.
#pragma once

#include <Python.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "sink_common.hpp"

namespace kestrune::mcp_responses::python {

/// Utf8Sink: the bytes begin in the sink itself, move into a bytes object
/// when they outgrow it, and then grow in place by realloc, and from
/// kHugeFrom in blocks of huge pages moved by hand (buffer_memory.hpp).
/// With `strict`, a lone surrogate stops the walk (it has no UTF-8 form) and
/// bad_byte() tells where it sits in its string's UTF-8; otherwise it is
/// written as its three bytes, as the library keeps text that is not
/// well-formed.
class Utf8Sink {
 public:
  static constexpr bool kWrites = true;
  static constexpr bool kReadsUtf8 = true;

  explicit Utf8Sink(bool strict) : strict_(strict) {}
  Utf8Sink(const Utf8Sink&) = delete;
  Utf8Sink& operator=(const Utf8Sink&) = delete;
  ~Utf8Sink() { Py_XDECREF(bytes_); }

  /// nest: while on, the text is written as the contents of a JSON string:
  /// its quotes and escapes are escaped again.
  void nest(bool on) noexcept { nested_ = on; }

  void put(char c) {
    room(1);
    *p_++ = c;
  }
  void put(std::string_view s) {
    room(s.size());
    std::memcpy(p_, s.data(), s.size());
    p_ += s.size();
  }
  void quote() {
    room(2);
    quote_here();
  }
  // A whole ASCII string with its quotes; short ones (nearly all) with one
  // check of the room.
  void quoted_ascii(const char* s, std::size_t n) {
    if (n > kChunk) {
      quote();
      ascii_text(s, n);
      quote();
      return;
    }
    room(kMaxEscape * n + 4);
    quote_here();
    p_ = escaped_one_byte(s, n, p_, nested_);
    quote_here();
  }
  void ascii_text(const char* s, std::size_t n) {
    for (std::size_t chunk = 0; chunk < n; chunk += kChunk) {
      const std::size_t len = std::min(n - chunk, kChunk);
      room(kMaxEscape * len);
      p_ = escaped_one_byte(s + chunk, len, p_, nested_);
    }
  }
  // A string given as its UTF-8 `bytes`: those at or above 0x80 are written
  // as they are, so it is escaped as ASCII is.
  void utf8_text(const char* bytes, std::size_t n, std::size_t /*chars*/, int /*kind*/) { ascii_text(bytes, n); }
  // `n` characters of `s`, escaped, as UTF-8; eight bytes of characters at a
  // time up to the next that is not ASCII or needs an escape.
  template <class C>
  bool text(const C* s, std::size_t n) {
    for (std::size_t chunk = 0; chunk < n; chunk += kChunk) {
      const std::size_t end = chunk + std::min(n - chunk, kChunk);
      room(kMaxEscape * (end - chunk));
      char* out = p_;
      std::size_t i = chunk;
      while (i < end) {
        constexpr std::size_t kLanes = 8 / sizeof(C);
        while (i + kLanes <= end) {
          const std::uint64_t w = load_word(s + i);
          const std::uint64_t marks = above_ascii_lanes<C>(w) | escape_lanes<C>(w);
          for (std::size_t j = 0; j < kLanes; ++j) out[j] = static_cast<char>(s[i + j]);  // the ASCII ones stand
          if (marks != 0) {
            const std::size_t clean = first_lane<C>(marks);
            out += clean, i += clean;
            break;
          }
          out += kLanes, i += kLanes;
        }
        if (i == end) break;
        const std::uint32_t c = s[i++];
        if (c < 0x80) {
          if (detail::kEscape[c] == 0) {
            *out++ = static_cast<char>(c);
          } else {
            out += escape_of(static_cast<unsigned char>(c), out, nested_);
          }
        } else if (c < 0x800) {
          *out++ = static_cast<char>(0xC0 | (c >> 6));
          *out++ = static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
          if (strict_ && is_surrogate(c)) {
            p_ = out;
            bad_byte_ = utf8_bytes(s, i - 1);
            return false;
          }
          *out++ = static_cast<char>(0xE0 | (c >> 12));
          *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
          *out++ = static_cast<char>(0x80 | (c & 0x3F));
        } else {
          *out++ = static_cast<char>(0xF0 | (c >> 18));
          *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
          *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
          *out++ = static_cast<char>(0x80 | (c & 0x3F));
        }
      }
      p_ = out;
    }
    return true;
  }
  // at_most/advance: room for `n` bytes written straight in, then the end of
  // what was written there.
  [[nodiscard]] char* at_most(std::size_t n) {
    room(n);
    return p_;
  }
  void advance(char* end) noexcept { p_ = end; }

  [[nodiscard]] std::string_view view() const noexcept { return {begin_, size()}; }
  [[nodiscard]] std::size_t bad_byte() const noexcept { return bad_byte_; }
  /// bytes: the text as a new bytes object, nullptr with MemoryError set. The
  /// sink is spent.
  [[nodiscard]] PyObject* bytes();

 private:
  static constexpr std::size_t kChunk = 4096;
  static constexpr std::size_t kLocalBytes = 8192;

  [[nodiscard]] std::size_t size() const noexcept { return static_cast<std::size_t>(p_ - begin_); }
  void room(std::size_t n) {
    if (static_cast<std::size_t>(end_ - p_) < n) grow(n);
  }
  [[gnu::noinline]] void grow(std::size_t n);
  void quote_here() noexcept {
    if (nested_) *p_++ = '\\';
    *p_++ = '"';
  }
  // The UTF-8 bytes of the first `n` characters of `s`.
  template <class C>
  static std::size_t utf8_bytes(const C* s, std::size_t n) noexcept {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < n; ++i) bytes += utf8_length(s[i]);
    return bytes;
  }

  alignas(8) char local_[kLocalBytes];
  PyObject* bytes_ = nullptr;  // owned; the text once it left local_
  char* begin_ = local_;
  char* p_ = local_;
  char* end_ = local_ + kLocalBytes;
  bool strict_;
  bool nested_ = false;
  std::size_t bad_byte_ = 0;
};

}  // namespace kestrune::mcp_responses::python
