// The characters of a new str, written straight into it at the width it will
// have: no UTF-8 to decode and no copy at the end.
#pragma once

#include <Python.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "sink_common.hpp"

namespace kestrune::mcp_responses::python {

/// copied: `n` characters of `s` written at `out` as Char, escaped (`nested`
/// as escape_of), eight bytes of them at a time up to the next that needs an
/// escape; returns the end. `out` has room for kMaxEscape characters a
/// character.
template <class Char, class C>
Char* copied(const C* s, std::size_t n, Char* out, bool nested) noexcept {
  constexpr std::size_t kLanes = 8 / sizeof(C);
  const auto lanes = [](const C* from, Char* to) {
    for (std::size_t j = 0; j < kLanes; ++j) to[j] = static_cast<Char>(from[j]);
  };
  if constexpr (sizeof(C) == 1) {
    if (n >= 4 && n <= 8 && escape_lanes<C>(short_word(s, n)) == 0) {
      // A short string (most keys and many values) checked as one word.
      for (std::size_t j = 0; j < 4; ++j) out[j] = s[j];
      for (std::size_t j = n - 4; j < n; ++j) out[j] = s[j];
      return out + n;
    }
  }
  std::size_t i = 0;
  while (i < n) {
    if (i + kLanes <= n) {
      const std::uint64_t marks = escape_lanes<C>(load_word(s + i));
      lanes(s + i, out);  // what follows an escape is written again
      if (marks == 0) {
        out += kLanes, i += kLanes;
        continue;
      }
      const std::size_t clean = first_lane<C>(marks);
      out += clean, i += clean;
    } else if (n >= kLanes && escape_lanes<C>(load_word(s + n - kLanes)) == 0) {
      // The tail as the last eight bytes: those of them before i need no
      // escape either, so they were written as they are, just before `out`.
      lanes(s + n - kLanes, out - (i - (n - kLanes)));
      return out + (n - i);
    }
    const std::uint32_t c = s[i++];
    if (c < 0x80 && detail::kEscape[c] != 0) {
      char e[kMaxEscape];
      const std::size_t k = escape_of(static_cast<unsigned char>(c), e, nested);
      for (std::size_t j = 0; j < k; ++j) *out++ = static_cast<unsigned char>(e[j]);
    } else {
      *out++ = static_cast<Char>(c);
    }
  }
  return out;
}

/// WidenedLate: thrown by a StrSink that holds a large text when a wider
/// string comes, rather than hold the text twice while it is widened.
struct WidenedLate {};

/// StrSink: the text begins in the sink itself, moves into a str object
/// when it outgrows it, and then grows in place by realloc, and from
/// kHugeFrom in blocks of huge pages moved by hand (buffer_memory.hpp). The
/// characters are written at the width of the widest so far (one, two or
/// four bytes, as the str holds them); a wider string moves them into a
/// wider str, except that past kCopyWidenMost bytes the sink throws
/// WidenedLate, and the text is counted first and written again at its
/// final width. A string of kind 2 or 4 always holds a character that needs
/// that width, so the width reached is the str's own.
class StrSink {
 public:
  static constexpr bool kWrites = true;
  static constexpr bool kReadsUtf8 = false;

  /// A text of the width it turns out to need.
  StrSink() = default;
  /// A text of `chars` characters up to `max_char`, counted beforehand.
  StrSink(std::size_t chars, std::uint32_t max_char);
  StrSink(const StrSink&) = delete;
  StrSink& operator=(const StrSink&) = delete;
  ~StrSink() { Py_XDECREF(str_); }

  /// nest: while on, the text is written as the contents of a JSON string:
  /// its quotes and escapes are escaped again.
  void nest(bool on) noexcept { nested_ = on; }

  void put(char c) {
    if (width_ == 1) {
      room(1);
      *p_++ = c;
    } else {
      wide_ascii(&c, 1);
    }
  }
  void put(std::string_view s) {
    if (width_ == 1) {
      room(s.size());
      std::memcpy(p_, s.data(), s.size());
      p_ += s.size();
    } else {
      wide_ascii(s.data(), s.size());
    }
  }
  void quote() {
    if (nested_) {
      put(std::string_view("\\\"", 2));
    } else {
      put('"');
    }
  }
  // A whole ASCII string with its quotes; short ones (nearly all) with one
  // check of the room.
  void quoted_ascii(const char* s, std::size_t n) {
    if (n > kChunk) {
      quote();
      ascii_text(s, n);
      quote();
    } else if (width_ == 1) {
      room(kMaxEscape * n + 4);
      quote_here();
      p_ = escaped_one_byte(s, n, p_, nested_);
      quote_here();
    } else if (width_ == 2) {
      quoted_wide<Py_UCS2>(reinterpret_cast<const Py_UCS1*>(s), n);
    } else {
      quoted_wide<Py_UCS4>(reinterpret_cast<const Py_UCS1*>(s), n);
    }
  }
  void ascii_text(const char* s, std::size_t n) { one_byte_text(reinterpret_cast<const Py_UCS1*>(s), n); }
  template <class C>
  bool text(const C* s, std::size_t n) {
    if constexpr (sizeof(C) == 1) {
      need(Kind::latin1);  // a one-byte str that is not ASCII holds a byte above 0x7F
      one_byte_text(s, n);
    } else if constexpr (sizeof(C) == 2) {
      need(Kind::ucs2);
      if (width_ == 2) {
        copy<Py_UCS2>(s, n);
      } else {
        copy<Py_UCS4>(s, n);
      }
    } else {
      need(Kind::ucs4);
      copy<Py_UCS4>(s, n);
    }
    return true;
  }
  // at_most/advance: with one-byte characters, room for `n` ASCII bytes
  // written straight in (nullptr at a wider width), then the end of what was
  // written.
  [[nodiscard]] char* at_most(std::size_t n) {
    if (width_ != 1) return nullptr;
    room(n);
    return p_;
  }
  void advance(char* end) noexcept { p_ = end; }

  /// str: the text as a new str, nullptr with MemoryError set. The sink is
  /// spent.
  [[nodiscard]] PyObject* str();
  /// as_counted: whether the text is of the width and length it was
  /// counted at (always true for a sink that was not given a count).
  [[nodiscard]] bool as_counted() const noexcept;

 private:
  // The str kinds, narrowest first.
  enum class Kind : std::uint8_t { ascii, latin1, ucs2, ucs4 };

  static constexpr std::size_t kChunk = 4096;
  static constexpr std::size_t kLocalBytes = 8192;
  static constexpr std::size_t kCopyWidenMost = std::size_t{1} << 20;

  [[nodiscard]] std::size_t size() const noexcept { return static_cast<std::size_t>(p_ - begin_); }
  [[nodiscard]] std::size_t capacity() const noexcept { return static_cast<std::size_t>(end_ - begin_); }

  // Room for `n` more bytes.
  void room(std::size_t n) {
    if (static_cast<std::size_t>(end_ - p_) < n) grow(n);
  }
  [[gnu::noinline]] void grow(std::size_t n);
  // The text so far needs kind `k` at least.
  void need(Kind k) {
    seen_ = std::max(seen_, k);
    if (k > kind_) widen(k);
  }
  [[gnu::noinline]] void widen(Kind k);
  // Moves the text into a str of kind `k` with room for `units`
  // characters, or `least` when that much is refused.
  void relocate(std::size_t units, std::size_t least, Kind k);

  void quote_here() noexcept {
    if (nested_) *p_++ = '\\';
    *p_++ = '"';
  }

  template <class Char>
  Char* wide_room(std::size_t n) {
    room(n * sizeof(Char));
    return reinterpret_cast<Char*>(p_);
  }
  // Tokens and numbers, which are never escaped, widened.
  void wide_ascii(const char* s, std::size_t n) {
    if (width_ == 2) {
      raw_widen<Py_UCS2>(s, n);
    } else {
      raw_widen<Py_UCS4>(s, n);
    }
  }
  template <class Char>
  void raw_widen(const char* s, std::size_t n) {
    Char* out = wide_room<Char>(n);
    for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<unsigned char>(s[i]);
    p_ = reinterpret_cast<char*>(out + n);
  }

  void one_byte_text(const Py_UCS1* s, std::size_t n) {
    if (width_ == 2) {
      copy<Py_UCS2>(s, n);
      return;
    }
    if (width_ == 4) {
      copy<Py_UCS4>(s, n);
      return;
    }
    for (std::size_t chunk = 0; chunk < n; chunk += kChunk) {
      const std::size_t len = std::min(n - chunk, kChunk);
      room(kMaxEscape * len);
      p_ = escaped_one_byte(reinterpret_cast<const char*>(s + chunk), len, p_, nested_);
    }
  }

  // `n` characters of `s` written as Char, escaped.
  template <class Char, class C>
  void copy(const C* s, std::size_t n) {
    for (std::size_t chunk = 0; chunk < n; chunk += kChunk) {
      const std::size_t len = std::min(n - chunk, kChunk);
      p_ = reinterpret_cast<char*>(copied(s + chunk, len, wide_room<Char>(kMaxEscape * len), nested_));
    }
  }
  // A short ASCII string with its quotes, at a width above one byte.
  template <class Char>
  void quoted_wide(const Py_UCS1* s, std::size_t n) {
    Char* out = wide_room<Char>(kMaxEscape * n + 4);
    if (nested_) *out++ = '\\';
    *out++ = '"';
    out = copied(s, n, out, nested_);
    if (nested_) *out++ = '\\';
    *out++ = '"';
    p_ = reinterpret_cast<char*>(out);
  }

  alignas(8) char local_[kLocalBytes];
  PyObject* str_ = nullptr;  // owned; the text once it left local_
  char* begin_ = local_;
  char* p_ = local_;
  char* end_ = local_ + kLocalBytes;
  std::size_t width_ = 1;
  Kind kind_ = Kind::ascii;  // of the storage
  Kind seen_ = Kind::ascii;  // the narrowest that holds the text so far
  std::size_t counted_ = 0;  // characters, for a sink given a count
  Kind counted_kind_ = Kind::ascii;
  bool preset_ = false;
  bool nested_ = false;
};

}  // namespace kestrune::mcp_responses::python
