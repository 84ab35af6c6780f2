// The compact text of Python values. One walk over the objects, written for
// three sinks: UTF-8 bytes (small texts and the JSON-RPC lines), a count of
// bytes and characters (_encoded_size, and the first pass for large texts),
// and the characters of the final str (the second pass for large texts, so
// that a 100 MB text is held once, not once as bytes and again as a str).
#include "encoder.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "encoding/double_text.hpp"
#include "encoding/escapes.hpp"
#include "errors.hpp"

namespace kestrune::mcp_responses::python {
namespace {

using detail::kEscape;
using detail::kEscapeExtra;

constexpr std::array<char, 16> kHex = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

// The escape of ASCII `c` (kEscape[c] != 0) into `out`; returns its length.
std::size_t escape_of(unsigned char c, char* out) noexcept {
  out[0] = '\\';
  out[1] = kEscape[c];
  if (kEscape[c] != 'u') return 2;
  out[2] = '0';
  out[3] = '0';
  out[4] = kHex[c >> 4];
  out[5] = kHex[c & 0xF];
  return 6;
}

bool is_surrogate(std::uint32_t c) noexcept { return c >= 0xD800 && c <= 0xDFFF; }

std::size_t utf8_length(std::uint32_t c) noexcept { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

// Whether any of the characters packed in `w`, lanes of type Lane (one,
// two or four bytes), needs an escape: a control character, a quotation
// mark or a reverse solidus. May report a lane above a real one, never miss
// one: callers then look character by character. A lane with its top bit set
// is never reported, nor does it disturb its neighbours.
template <class Lane>
bool lanes_need_escape(std::uint64_t w) noexcept {
  constexpr std::uint64_t ones = ~std::uint64_t{0} / static_cast<Lane>(~Lane{0});
  constexpr std::uint64_t top = ones << (8 * sizeof(Lane) - 1);
  const std::uint64_t control = (w - ones * 0x20) & ~w & top;
  const std::uint64_t quote = w ^ (ones * '"');
  const std::uint64_t backslash = w ^ (ones * '\\');
  return (control | ((quote - ones) & ~quote & top) | ((backslash - ones) & ~backslash & top)) != 0;
}

bool word_needs_escape(std::uint64_t w) noexcept { return lanes_need_escape<std::uint8_t>(w); }

std::uint64_t load_word(const char* s) noexcept {
  std::uint64_t w;
  std::memcpy(&w, s, sizeof w);
  return w;
}

// `n` one-byte characters at `out`, escaped, eight at a time while none
// needs an escape (the check holds for Latin-1 bytes too); returns the end.
char* escaped_one_byte(const char* s, std::size_t n, char* out) noexcept {
  std::size_t i = 0;
  while (i < n) {
    if (i + 8 <= n && !word_needs_escape(load_word(s + i))) {
      std::memcpy(out, s + i, 8);
      out += 8, i += 8;
      continue;
    }
    const auto c = static_cast<unsigned char>(s[i++]);
    if (kEscape[c] == 0) {
      *out++ = static_cast<char>(c);
    } else {
      out += escape_of(c, out);
    }
  }
  return out;
}

// UTF-8 bytes in a buffer that grows ahead of each write, so that the
// writes themselves check nothing.
class Utf8Sink {
 public:
  Utf8Sink() = default;
  Utf8Sink(const Utf8Sink&) = delete;
  Utf8Sink& operator=(const Utf8Sink&) = delete;
  ~Utf8Sink() = default;

  void put(char c) {
    room(1);
    *p_++ = c;
  }
  void put(std::string_view s) {
    room(s.size());
    std::memcpy(p_, s.data(), s.size());
    p_ += s.size();
  }
  // A whole ASCII string with its quotes; short ones (nearly all) with one
  // check of the room.
  void quoted_ascii(const char* s, std::size_t n) {
    if (n > kChunk) {
      put('"');
      ascii_text(s, n);
      put('"');
      return;
    }
    room(6 * n + 2);
    *p_++ = '"';
    escaped_ascii(s, n);
    *p_++ = '"';
  }
  // Eight bytes at a time while none needs an escape.
  void ascii_text(const char* s, std::size_t n) {
    for (std::size_t chunk = 0; chunk < n; chunk += kChunk) {
      const std::size_t len = std::min(n - chunk, kChunk);
      room(6 * len);
      escaped_ascii(s + chunk, len);
    }
  }
  // Writes `n` bytes of ASCII `s` escaped; the room is there.
  void escaped_ascii(const char* s, std::size_t n) noexcept { p_ = escaped_one_byte(s, n, p_); }
  template <class C>
  bool text(const C* s, std::size_t n) {
    for (std::size_t chunk = 0; chunk < n; chunk += kChunk) {
      const std::size_t end = std::min(n, chunk + kChunk);
      room(6 * (end - chunk));
      std::size_t i = chunk;
      while (i < end) {
        // A run of characters written as themselves in one byte.
        while (i < end && s[i] < 0x80 && s[i] >= 0x20 && s[i] != '"' && s[i] != '\\') {
          *p_++ = static_cast<char>(s[i++]);
        }
        if (i < end) write(s[i++]);
      }
    }
    return true;
  }
  [[nodiscard]] std::size_t size() const noexcept { return static_cast<std::size_t>(p_ - begin_); }
  [[nodiscard]] std::string_view view() const noexcept { return {begin_, size()}; }
  // at_most/advance: room for `n` bytes written straight into the buffer,
  // then the end of what was written there.
  [[nodiscard]] char* at_most(std::size_t n) {
    room(n);
    return p_;
  }
  void advance(char* end) noexcept { p_ = end; }

 private:
  static constexpr std::size_t kChunk = 4096;

  // Makes room for `n` more bytes. The buffer starts in the sink itself and
  // moves to the heap when it outgrows it; it is never cleared, only written.
  void room(std::size_t n) {
    if (static_cast<std::size_t>(end_ - p_) < n) grow(n);
  }
  [[gnu::noinline]] void grow(std::size_t n) {
    const std::size_t size = this->size();
    const std::size_t capacity = std::max(2 * static_cast<std::size_t>(end_ - begin_), size + n);
    if (heap_ == nullptr) {
      heap_.reset(static_cast<char*>(std::malloc(capacity)));
      if (heap_ != nullptr) std::memcpy(heap_.get(), begin_, size);
    } else {
      char* moved = static_cast<char*>(std::realloc(heap_.get(), capacity));
      if (moved != nullptr) {
        static_cast<void>(heap_.release());
        heap_.reset(moved);
      } else {
        heap_.reset();
      }
    }
    if (heap_ == nullptr) throw std::bad_alloc();
    begin_ = heap_.get();
    p_ = begin_ + size;
    end_ = begin_ + capacity;
  }

  void write(std::uint32_t c) noexcept {
    if (c < 0x80) {
      if (kEscape[c] != 0) {
        p_ += escape_of(static_cast<unsigned char>(c), p_);
      } else {
        *p_++ = static_cast<char>(c);
      }
      return;
    }
    if (c < 0x800) {
      *p_++ = static_cast<char>(0xC0 | (c >> 6));
    } else {
      if (c < 0x10000) {
        *p_++ = static_cast<char>(0xE0 | (c >> 12));
      } else {
        *p_++ = static_cast<char>(0xF0 | (c >> 18));
        *p_++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      }
      *p_++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    }
    *p_++ = static_cast<char>(0x80 | (c & 0x3F));
  }

  struct Free {
    void operator()(char* p) const noexcept { std::free(p); }
  };
  char local_[8192];
  std::unique_ptr<char, Free> heap_;
  char* begin_ = local_;
  char* p_ = local_;
  char* end_ = local_ + sizeof local_;
};

// Counts bytes of UTF-8 and characters; with `strict`, a lone surrogate stops
// the count (it has no UTF-8 form) and is reported by its byte offset.
class CountSink {
 public:
  explicit CountSink(bool strict) : strict_(strict) {}
  void put(char /*c*/) noexcept { ++bytes_, ++chars_; }
  void put(std::string_view s) noexcept { bytes_ += s.size(), chars_ += s.size(); }
  void ascii_text(const char* s, std::size_t n) noexcept {
    std::size_t extra = 0;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
      if (!word_needs_escape(load_word(s + i))) continue;
      for (std::size_t k = i; k < i + 8; ++k) extra += kEscapeExtra[static_cast<unsigned char>(s[k])];
    }
    for (; i < n; ++i) extra += kEscapeExtra[static_cast<unsigned char>(s[i])];
    bytes_ += n + extra;
    chars_ += n + extra;
  }
  template <class C>
  bool text(const C* s, std::size_t n) noexcept {
    std::size_t in_string = 0;  // bytes of this string so far, unescaped
    for (std::size_t i = 0; i < n; ++i) {
      const std::uint32_t c = s[i];
      if (c < 0x80) {
        const std::size_t k = 1 + kEscapeExtra[c];
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
  std::size_t bytes_ = 0;
  std::size_t chars_ = 0;
  std::uint32_t max_char_ = 0x7F;
  std::size_t bad_byte_ = 0;
};

// The characters of a str made with PyUnicode_New, of its kind `Char`.
// Every write is checked against the room the count found: a Mapping that
// changes between the two passes cannot write past the end.
template <class Char>
class CharSink {
 public:
  CharSink(Char* begin, std::size_t n) : p_(begin), end_(begin + n) {}
  void put(char c) noexcept {
    if (p_ != end_) {
      *p_++ = static_cast<Char>(static_cast<unsigned char>(c));
    } else {
      overrun_ = true;
    }
  }
  void put(std::string_view s) noexcept {
    for (const char c : s) put(c);
  }
  void ascii_text(const char* s, std::size_t n) noexcept { text(reinterpret_cast<const unsigned char*>(s), n); }
  template <class C>
  bool text(const C* s, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      const std::uint32_t c = s[i];
      if (c < 0x80 && kEscape[c] != 0) {
        char e[6];
        put(std::string_view(e, escape_of(static_cast<unsigned char>(c), e)));
      } else if (p_ != end_) {
        *p_++ = static_cast<Char>(c);
      } else {
        overrun_ = true;
      }
    }
    return true;
  }
  [[nodiscard]] bool exact() const noexcept { return p_ == end_ && !overrun_; }
  [[nodiscard]] std::size_t size() const noexcept { return 0; }

 private:
  Char* p_;
  Char* end_;
  bool overrun_ = false;
};

// The characters of the result str, written at the width of the widest
// character so far (one, two or four bytes, as a str holds them) and widened
// in place when a wider string comes: no UTF-8 to decode at the end. A
// string of kind 2 or 4 always holds a character that needs that width, so
// the width reached is the str's own. One-byte units, by far the most
// common, are written as Utf8Sink writes bytes.
class WideSink {
 public:
  WideSink() = default;
  WideSink(const WideSink&) = delete;
  WideSink& operator=(const WideSink&) = delete;
  ~WideSink() = default;

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
  void quoted_ascii(const char* s, std::size_t n) {
    if (width_ != 1 || n > kChunk) {
      put('"');
      ascii_text(s, n);
      put('"');
      return;
    }
    room(6 * n + 2);
    *p_++ = '"';
    p_ = escaped_one_byte(s, n, p_);
    *p_++ = '"';
  }
  void ascii_text(const char* s, std::size_t n) { one_byte_text(reinterpret_cast<const Py_UCS1*>(s), n); }
  template <class C>
  bool text(const C* s, std::size_t n) {
    if constexpr (sizeof(C) == 1) {
      latin1_ = true;  // a one-byte str that is not ASCII holds a byte above 0x7F
      one_byte_text(s, n);
    } else {
      if (width_ < sizeof(C)) widen(sizeof(C));
      if (width_ == 2) {
        copy<Py_UCS2>(s, n);
      } else {
        copy<Py_UCS4>(s, n);
      }
    }
    return true;
  }
  // at_most/advance: with one-byte units, room for `n` ASCII bytes written
  // straight in (nullptr at a wider width), then the end of what was written.
  [[nodiscard]] char* at_most(std::size_t n) {
    if (width_ != 1) return nullptr;
    room(n);
    return p_;
  }
  void advance(char* end) noexcept { p_ = end; }
  // size: the bytes held, for the one-pass limit.
  [[nodiscard]] std::size_t size() const noexcept { return static_cast<std::size_t>(p_ - begin_); }

  // str: the characters as a new str.
  [[nodiscard]] PyObject* str() const {
    Py_UCS4 max_char = 0x10FFFF;
    if (width_ == 1) max_char = latin1_ ? 0xFF : 0x7F;
    if (width_ == 2) max_char = 0xFFFF;
    PyObject* out = PyUnicode_New(static_cast<Py_ssize_t>(size() / width_), max_char);
    if (out != nullptr) std::memcpy(PyUnicode_DATA(out), begin_, size());
    return out;
  }

 private:
  static constexpr std::size_t kChunk = 4096;

  // Room for `n` more bytes.
  void room(std::size_t n) {
    if (static_cast<std::size_t>(end_ - p_) < n) relocate(std::max(2 * capacity(), size() + n), width_);
  }
  [[nodiscard]] std::size_t capacity() const noexcept { return static_cast<std::size_t>(end_ - begin_); }

  // Moves the units into a buffer of `bytes` bytes of units `width` wide.
  [[gnu::noinline]] void relocate(std::size_t bytes, std::size_t width) {
    const std::size_t units = size() / width_;
    bytes = std::max(bytes, units * width);
    std::unique_ptr<char, Free> moved(static_cast<char*>(std::malloc(bytes)));
    if (moved == nullptr) throw std::bad_alloc();
    if (width == width_) {
      std::memcpy(moved.get(), begin_, size());
    } else {
      const auto convert = [&](const auto* from) {
        for (std::size_t i = 0; i < units; ++i) {
          if (width == 2) {
            reinterpret_cast<Py_UCS2*>(moved.get())[i] = static_cast<Py_UCS2>(from[i]);
          } else {
            reinterpret_cast<Py_UCS4*>(moved.get())[i] = from[i];
          }
        }
      };
      if (width_ == 1) {
        convert(reinterpret_cast<const Py_UCS1*>(begin_));
      } else {
        convert(reinterpret_cast<const Py_UCS2*>(begin_));
      }
    }
    heap_ = std::move(moved);
    begin_ = heap_.get();
    p_ = begin_ + units * width;
    end_ = begin_ + bytes;
    width_ = width;
  }
  void widen(std::size_t width) { relocate(2 * capacity() * width / width_, width); }

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
      room(6 * len);
      p_ = escaped_one_byte(reinterpret_cast<const char*>(s + chunk), len, p_);
    }
  }

  template <class Char, class C>
  void copy(const C* s, std::size_t n) {
    for (std::size_t chunk = 0; chunk < n; chunk += kChunk) {
      const std::size_t len = std::min(n - chunk, kChunk);
      Char* out = wide_room<Char>(6 * len);
      for (std::size_t i = chunk; i < chunk + len; ++i) {
        // Eight bytes of characters at a time while none needs an escape.
        constexpr std::size_t kLanes = 8 / sizeof(C);
        while (i + kLanes <= chunk + len && !lanes_need_escape<C>(load_word(reinterpret_cast<const char*>(s + i)))) {
          if constexpr (sizeof(C) == sizeof(Char)) {
            std::memcpy(out, s + i, 8);
          } else {
            for (std::size_t j = 0; j < kLanes; ++j) out[j] = static_cast<Char>(s[i + j]);
          }
          out += kLanes, i += kLanes;
        }
        if (i == chunk + len) break;
        const std::uint32_t c = s[i];
        if (c < 0x80 && kEscape[c] != 0) {
          char e[6];
          const std::size_t k = escape_of(static_cast<unsigned char>(c), e);
          for (std::size_t j = 0; j < k; ++j) *out++ = static_cast<unsigned char>(e[j]);
        } else {
          *out++ = static_cast<Char>(c);
        }
      }
      p_ = reinterpret_cast<char*>(out);
    }
  }

  struct Free {
    void operator()(char* p) const noexcept { std::free(p); }
  };
  alignas(8) char local_[8192];
  std::unique_ptr<char, Free> heap_;
  char* begin_ = local_;
  char* p_ = local_;
  char* end_ = local_ + sizeof local_;
  std::size_t width_ = 1;
  bool latin1_ = false;
};

// Why a walk stopped, and where: the path is collected from the failing value
// outwards as the walk unwinds.
struct Failure {
  enum class Kind : std::uint8_t { none, type, key_type, ill_formed, ill_formed_key, python, too_long };
  Kind kind = Kind::none;
  std::string type_name;
  std::size_t byte = 0;
  std::vector<std::string> outward;  // path segments, innermost first
};

constexpr std::size_t kNoLimit = static_cast<std::size_t>(-1);

// The value of an int that fits 64 bits (overflow 0), read from the object
// itself when it has at most one digit, as nearly all ints in responses do.
long long small_integer(PyObject* v, int& overflow) {
  overflow = 0;
#if PY_VERSION_HEX < 0x030C0000
  if (Py_TYPE(v) == &PyLong_Type) {
    const Py_ssize_t size = Py_SIZE(v);
    const auto* digits = reinterpret_cast<const PyLongObject*>(v)->ob_digit;
    if (size == 0) return 0;
    if (size == 1) return static_cast<long long>(digits[0]);
    if (size == -1) return -static_cast<long long>(digits[0]);
  }
#else
  if (Py_TYPE(v) == &PyLong_Type && PyUnstable_Long_IsCompact(reinterpret_cast<PyLongObject*>(v))) {
    return static_cast<long long>(PyUnstable_Long_CompactValue(reinterpret_cast<PyLongObject*>(v)));
  }
#endif
  return PyLong_AsLongLongAndOverflow(v, &overflow);
}

template <class Sink>
class Walker {
 public:
  Walker(Sink& sink, NumberForm form, Failure& failure, std::size_t limit = kNoLimit)
      : sink_(sink), form_(form), failure_(failure), limit_(limit) {}

  bool value(PyObject* v) {
    // The exact types first: one compare each, before the subclass checks.
    const PyTypeObject* type = Py_TYPE(v);
    if (type == &PyUnicode_Type) return string(v);
    if (type == &PyLong_Type) return integer(v);
    if (type == &PyDict_Type) return dict(v);
    if (type == &PyFloat_Type) return floating(PyFloat_AS_DOUBLE(v));
    if (type == &PyList_Type) return list(v);
    if (PyUnicode_Check(v)) return string(v);
    if (v == Py_None) return put("null");
    if (v == Py_True) return put("true");
    if (v == Py_False) return put("false");
    if (PyLong_Check(v)) return integer(v);
    if (PyFloat_Check(v)) return floating(PyFloat_AS_DOUBLE(v));
    if (PyDict_Check(v)) return dict(v);
    if (PyList_Check(v) || PyTuple_Check(v)) return list(v);
    if (is_mapping(v)) return mapping(v);
    return fail_type(v, Failure::Kind::type);
  }

 private:
  bool put(std::string_view s) {
    sink_.put(s);
    return true;
  }

  bool string(PyObject* s) {
    if constexpr (std::is_same_v<Sink, Utf8Sink> || std::is_same_v<Sink, WideSink>) {
      if (PyUnicode_IS_ASCII(s)) {
        sink_.quoted_ascii(static_cast<const char*>(PyUnicode_DATA(s)),
                           static_cast<std::size_t>(PyUnicode_GET_LENGTH(s)));
        return true;
      }
    }
    sink_.put('"');
    const bool ok = string_content(s);
    sink_.put('"');
    if (!ok) failure_.kind = Failure::Kind::ill_formed;
    return ok;
  }

  bool string_content(PyObject* s) {
    const auto n = static_cast<std::size_t>(PyUnicode_GET_LENGTH(s));
    const void* data = PyUnicode_DATA(s);
    if (PyUnicode_IS_ASCII(s)) {
      sink_.ascii_text(static_cast<const char*>(data), n);
      return true;
    }
    switch (PyUnicode_KIND(s)) {
      case PyUnicode_1BYTE_KIND:
        return sink_.text(static_cast<const Py_UCS1*>(data), n);
      case PyUnicode_2BYTE_KIND:
        return sink_.text(static_cast<const Py_UCS2*>(data), n);
      default:
        return sink_.text(static_cast<const Py_UCS4*>(data), n);
    }
  }

  bool integer(PyObject* v) {
    int overflow = 0;
    const long long i = small_integer(v, overflow);
    if (overflow == 0) {
      if constexpr (std::is_same_v<Sink, Utf8Sink> || std::is_same_v<Sink, WideSink>) {
        if (char* at = sink_.at_most(20)) {
          sink_.advance(std::to_chars(at, at + 20, i).ptr);
          return true;
        }
      }
      char digits[24];
      return put(
          std::string_view(digits, static_cast<std::size_t>(std::to_chars(digits, digits + 24, i).ptr - digits)));
    }
    // Beyond 64 bits: Python's own digits, in full. int.__repr__ rather than
    // str(), so that an int subclass with its own __str__ writes its value.
    PyObject* text = PyLong_Type.tp_repr(v);
    if (text == nullptr) return fail_python();
    Py_ssize_t n = 0;
    const char* digits = PyUnicode_AsUTF8AndSize(text, &n);
    if (digits != nullptr) sink_.put(std::string_view(digits, static_cast<std::size_t>(n)));
    Py_DECREF(text);
    return digits != nullptr || fail_python();
  }

  bool floating(double d) {
    if (form_ == NumberForm::json && !std::isfinite(d)) return put("null");
    if constexpr (std::is_same_v<Sink, Utf8Sink> || std::is_same_v<Sink, WideSink>) {
      if (char* at = sink_.at_most(detail::kDoubleTextMax)) {
        sink_.advance(at + detail::format_double(d, at));
        return true;
      }
    }
    char text[detail::kDoubleTextMax];
    return put(std::string_view(text, detail::format_double(d, text)));
  }

  bool list(PyObject* v) {
    if (Py_EnterRecursiveCall(" while writing a response") != 0) return fail_python();
    sink_.put('[');
    const Py_ssize_t n = PySequence_Fast_GET_SIZE(v);
    PyObject** items = PySequence_Fast_ITEMS(v);
    bool ok = true;
    for (Py_ssize_t i = 0; i < n && ok; ++i) {
      if (i > 0) sink_.put(',');
      ok = value(items[i]) && within_limit();
      if (!ok) failure_.outward.push_back("[" + std::to_string(i) + "]");
    }
    sink_.put(']');
    Py_LeaveRecursiveCall();
    return ok;
  }

  bool dict(PyObject* v) {
    if (Py_EnterRecursiveCall(" while writing a response") != 0) return fail_python();
    sink_.put('{');
    Py_ssize_t pos = 0;
    PyObject* key = nullptr;
    PyObject* item = nullptr;
    bool ok = true;
    for (std::size_t i = 0; ok && PyDict_Next(v, &pos, &key, &item); ++i) {
      if (i > 0) sink_.put(',');
      ok = member(key, item, i);
    }
    sink_.put('}');
    Py_LeaveRecursiveCall();
    return ok;
  }

  // A Mapping that is not a dict (a mappingproxy, a custom Mapping): its
  // items() in their order.
  bool mapping(PyObject* v) {
    PyObject* items = PyMapping_Items(v);
    if (items == nullptr) return fail_python();
    if (Py_EnterRecursiveCall(" while writing a response") != 0) {
      Py_DECREF(items);
      return fail_python();
    }
    sink_.put('{');
    bool ok = true;
    const Py_ssize_t n = PyList_GET_SIZE(items);
    for (Py_ssize_t i = 0; i < n && ok; ++i) {
      PyObject* pair = PyList_GET_ITEM(items, i);
      if (i > 0) sink_.put(',');
      ok = PyTuple_Check(pair) && PyTuple_GET_SIZE(pair) == 2
               ? member(PyTuple_GET_ITEM(pair, 0), PyTuple_GET_ITEM(pair, 1), static_cast<std::size_t>(i))
               : fail_type(pair, Failure::Kind::type);
    }
    sink_.put('}');
    Py_LeaveRecursiveCall();
    Py_DECREF(items);
    return ok;
  }

  bool member(PyObject* key, PyObject* item, std::size_t i) {
    if (!PyUnicode_Check(key)) {
      fail_type(key, Failure::Kind::key_type);
      failure_.outward.push_back("key #" + std::to_string(i) + " of ");
      return false;
    }
    if (!string(key)) {
      failure_.kind = Failure::Kind::ill_formed_key;
      failure_.outward.push_back("key #" + std::to_string(i) + " of ");
      return false;
    }
    sink_.put(':');
    if (value(item) && within_limit()) return true;
    failure_.outward.push_back(key_segment(key));
    return false;
  }

  // ".key", the key escaped as in the compact text.
  static std::string key_segment(PyObject* key) {
    Utf8Sink sink;
    Failure ignored;
    Walker<Utf8Sink>(sink, NumberForm::compact, ignored).string_content(key);
    return "." + std::string(sink.view());
  }

  bool within_limit() {
    if (sink_.size() <= limit_) return true;
    failure_.kind = Failure::Kind::too_long;
    return false;
  }

  static bool is_mapping(PyObject* v) {
    PyObject* abc = PyImport_ImportModule("collections.abc");
    if (abc == nullptr) return false;
    PyObject* mapping = PyObject_GetAttrString(abc, "Mapping");
    Py_DECREF(abc);
    if (mapping == nullptr) return false;
    const int is = PyObject_IsInstance(v, mapping);
    Py_DECREF(mapping);
    if (is < 0) PyErr_Clear();
    return is == 1;
  }

  bool fail_type(PyObject* v, Failure::Kind kind) {
    failure_.kind = kind;
    failure_.type_name = Py_TYPE(v)->tp_name;
    return false;
  }

  bool fail_python() {
    failure_.kind = Failure::Kind::python;
    return false;
  }

  Sink& sink_;
  NumberForm form_;
  Failure& failure_;
  std::size_t limit_;

  template <class>
  friend class Walker;
};

// The path of the failure: `root`, then the segments outermost first. A key
// segment ("key #i of ") goes in front of the path of its map.
std::string where_of(const Failure& failure, std::string_view root) {
  std::string path(root);
  std::string prefix;
  for (std::size_t i = failure.outward.size(); i-- > 0;) {
    const std::string& segment = failure.outward[i];
    if (segment.starts_with("key #")) {
      prefix = segment;
    } else {
      path += segment;
    }
  }
  return prefix + path;
}

// Sets the Python exception that `failure` stands for.
void raise(const Failure& failure, std::string_view caller, std::string_view root) {
  using Kind = Failure::Kind;
  const std::string where = where_of(failure, root);
  switch (failure.kind) {
    case Kind::type:
      PyErr_SetString(
          PyExc_TypeError,
          (std::string(caller) + ": cannot write a value of type '" + failure.type_name + "' at " + where).c_str());
      return;
    case Kind::key_type:
      PyErr_SetString(
          PyExc_TypeError,
          (std::string(caller) + ": a map key must be a str, not '" + failure.type_name + "': " + where).c_str());
      return;
    case Kind::ill_formed:
    case Kind::ill_formed_key:
      set_encoding_error(where, failure.byte);
      return;
    case Kind::python:
    case Kind::too_long:
    case Kind::none:
      break;
  }
}

// Characters `n` of kind `max_char` written by a second walk straight into a
// new str.
PyObject* text_in_place(PyObject* value, const CountSink& count, std::string_view caller) {
  PyObject* str = PyUnicode_New(static_cast<Py_ssize_t>(count.chars()), count.max_char());
  if (str == nullptr) return nullptr;
  Failure failure;
  bool ok = false;
  bool exact = false;
  const auto write = [&]<class Char>(Char* begin) {
    CharSink<Char> sink(begin, count.chars());
    ok = Walker<CharSink<Char>>(sink, NumberForm::compact, failure).value(value);
    exact = sink.exact();
  };
  switch (PyUnicode_KIND(str)) {
    case PyUnicode_1BYTE_KIND:
      write(PyUnicode_1BYTE_DATA(str));
      break;
    case PyUnicode_2BYTE_KIND:
      write(PyUnicode_2BYTE_DATA(str));
      break;
    default:
      write(PyUnicode_4BYTE_DATA(str));
      break;
  }
  if (ok && exact) return str;
  Py_DECREF(str);
  if (ok) {
    PyErr_SetString(PyExc_RuntimeError, (std::string(caller) + ": the value changed while it was written").c_str());
  } else {
    raise(failure, caller, "$");
  }
  return nullptr;
}

// Texts up to this many bytes are written once as UTF-8 and then made a str;
// longer ones are counted first and written in place, so that they are held
// once.
constexpr std::size_t kOnePassBytes = std::size_t{8} << 20;

}  // namespace

PyObject* str_from_utf8(std::string_view bytes) {
  const bool ascii =
      std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (ascii) {
    PyObject* str = PyUnicode_New(static_cast<Py_ssize_t>(bytes.size()), 127);
    if (str != nullptr) std::memcpy(PyUnicode_1BYTE_DATA(str), bytes.data(), bytes.size());
    return str;
  }
  return PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogatepass");
}

PyObject* text_of(PyObject* value, std::string_view caller) {
  Failure failure;
  {
    WideSink sink;
    if (Walker<WideSink>(sink, NumberForm::compact, failure, kOnePassBytes).value(value)) return sink.str();
  }  // the first attempt's memory is given back before a large text is made
  if (failure.kind != Failure::Kind::too_long) {
    raise(failure, caller, "$");
    return nullptr;
  }
  CountSink count(false);
  Failure count_failure;
  if (!Walker<CountSink>(count, NumberForm::compact, count_failure).value(value)) {
    raise(count_failure, caller, "$");
    return nullptr;
  }
  return text_in_place(value, count, caller);
}

bool append_text(std::string& out, PyObject* value, NumberForm form, std::string_view caller) {
  Utf8Sink sink;
  Failure failure;
  if (Walker<Utf8Sink>(sink, form, failure).value(value)) {
    out.append(sink.view());
    return true;
  }
  raise(failure, caller, "$");
  return false;
}

Py_ssize_t encoded_size(PyObject* value, std::string_view caller, std::string_view root) {
  CountSink count(true);
  Failure failure;
  Walker<CountSink> walker(count, NumberForm::compact, failure);
  if (walker.value(value)) return static_cast<Py_ssize_t>(count.size());
  failure.byte = count.bad_byte();
  raise(failure, caller, root);
  return -1;
}

void append_escaped_utf8(std::string& out, std::string_view text) {
  Utf8Sink sink;
  sink.ascii_text(text.data(), text.size());
  out.append(sink.view());
}

}  // namespace kestrune::mcp_responses::python
