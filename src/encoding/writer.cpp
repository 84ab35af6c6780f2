// Writing the text of a response: the compact MCP text, its standard-JSON
// twin and its escaped form inside a JSON string, each as a visitor of the
// layout (layout.hpp), with the bound that sizes the buffer once.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "encoding/double_text.hpp"
#include "encoding/encoded_size.hpp"
#include "encoding/escapes.hpp"
#include "encoding/layout.hpp"
#include "encoding/text_writer.hpp"
#include "internal/blocks.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

using detail::kEscape;
using detail::TextForm;
using detail::ValueAccess;

// The quote that opens and closes a string: escaped itself in nested text.
template <TextForm F>
constexpr std::string_view kQuote = F == TextForm::nested ? std::string_view("\\\"") : std::string_view("\"");

// The longest escape of one byte: \u00XX, or \\u00XX in nested text.
template <TextForm F>
constexpr std::size_t kEscapeMax = F == TextForm::nested ? 7 : 6;

// std::copy, unlike memcpy, is defined for an empty view's null pointer.
char* put(char* p, std::string_view s) noexcept { return std::copy(s.begin(), s.end(), p); }

// Writes the escape of byte `c`; in nested text the escape's own backslash
// and a quote or backslash that it escapes are escaped once more.
template <TextForm F>
char* escape(char* p, unsigned char c) noexcept {
  static constexpr char kHex[] = "0123456789abcdef";
  const char e = kEscape[c];
  if constexpr (F == TextForm::nested) {
    *p++ = '\\';
    *p++ = '\\';
    if (e == '"' || e == '\\') *p++ = '\\';
  } else {
    *p++ = '\\';
  }
  *p++ = e;
  if (e != 'u') return p;
  p[0] = '0';
  p[1] = '0';
  p[2] = kHex[c >> 4];
  p[3] = kHex[c & 0xF];
  return p + 4;
}

// Writes the text into a string through a raw pointer: the layout's visitor
// whose state is the write position. The string is kept larger than the text
// by at least kSlack bytes, so that a block store of 16 bytes and a few
// punctuation marks never need a bounds check of their own; every token checks
// for room before it writes. The write position is passed along and returned
// rather than kept in a member: stores through a char pointer may alias any
// member, which would force a reload per store.
template <TextForm F>
class Writer : public detail::Untracked {
 public:
  explicit Writer(std::string& out, std::size_t expected) : out_(out) {
    const std::size_t base = out_.size();
    out_.resize(base + expected + kTokenMax + kSlack);
    start_ = out_.data() + base;
    limit_ = out_.data() + out_.size() - kSlack;
  }

  // start: where the text begins.
  [[nodiscard]] char* start() const noexcept { return start_; }
  // finish: trims the string to the text written up to `p`.
  void finish(const char* p) { out_.resize(static_cast<std::size_t>(p - out_.data())); }

  char* literal(char* p, std::string_view text) { return put(room(p, text.size()), text); }
  char* integer(char* p, std::int64_t i) {
    p = room(p, kTokenMax);
    return std::to_chars(p, p + kTokenMax, i).ptr;
  }
  char* real(char* p, double d) {
    p = room(p, detail::kDoubleTextMax);
    if constexpr (F == TextForm::json) {
      if (!std::isfinite(d)) return put(p, "null");
    }
    return p + detail::format_double(d, p);
  }
  char* string(char* p, const ResponseValue& v) {
    const std::string_view text = ValueAccess::text(v);
    return ValueAccess::overhead(v) == 2 ? plain_string(p, text) : escaped_string(p, text);
  }
  char* key(char* p, std::string_view key, bool plain, std::size_t /*index*/) {
    return plain ? plain_string(p, key) : escaped_string(p, key);
  }
  // An opening mark makes room for itself and for the closing one of an empty
  // container; separators ride on the room that every token leaves after it.
  char* open(char* p, char c) {
    p = room(p, 2);
    *p++ = c;
    return p;
  }
  char* close(char* p, char c) {
    p = room(p, 1);
    *p++ = c;
    return p;
  }
  static char* separator(char* p, char c) noexcept {
    *p++ = c;
    return p;
  }

  // splice: ends the text at `p`, lets `write` append to it, and goes on
  // after what it wrote with room for `more` bytes; returns where.
  template <class Write>
  char* splice(char* p, Write&& write, std::size_t more) {
    const auto begun = static_cast<std::size_t>(start_ - out_.data());
    finish(p);
    write(out_);
    const std::size_t used = out_.size();
    out_.resize(used + more + kTokenMax + kSlack);
    start_ = out_.data() + begun;
    limit_ = out_.data() + out_.size() - kSlack;
    return out_.data() + used;
  }

 private:
  static constexpr std::size_t kSlack = 64;
  // A token asks for room for its longest form (24 bytes for any integer),
  // more than it may write: with room for one such token beyond the bound, a
  // bound that holds means the buffer never grows.
  static constexpr std::size_t kTokenMax = detail::kDoubleTextMax;

  // room: makes sure that `n` more bytes fit before the slack; returns the
  // write position, which moves when the string grows. A mark or two written
  // without asking may already have run into the slack.
  char* room(char* p, std::size_t n) {
    if (limit_ - p < static_cast<std::ptrdiff_t>(n)) [[unlikely]]
      return grow(p, n);
    return p;
  }

  char* grow(char* p, std::size_t n) {
    const auto used = static_cast<std::size_t>(p - out_.data());
    const auto begun = static_cast<std::size_t>(start_ - out_.data());
    out_.resize(std::max(out_.size() * 2, used + n + kSlack));
    start_ = out_.data() + begun;
    limit_ = out_.data() + out_.size() - kSlack;
    return out_.data() + used;
  }

  char* escaped_string(char* p, std::string_view s);
  char* plain_string(char* p, std::string_view s);

  std::string& out_;
  char* start_ = nullptr;
  char* limit_ = nullptr;
};

// Copies 16 bytes at a time, stopping only at bytes that need an escape.
// Room for the text, its quotes and one mark after it is made up front; each
// escape makes room for its extra bytes.
template <TextForm F>
char* Writer<F>::escaped_string(char* p, std::string_view s) {
  constexpr std::size_t q = kQuote<F>.size();
  p = put(room(p, s.size() + 2 * q + 1), kQuote<F>);
  const char* in = s.data();
  std::size_t left = s.size();
  while (left > 0) {
    const detail::Block b = detail::load_block(in, left);
    detail::store_block(p, b);
    const unsigned mask = detail::escape_mask(b);
    if (mask == 0) {
      const std::size_t step = std::min(left, detail::kBlock);
      p += step;
      in += step;
      left -= step;
      continue;
    }
    const auto k = static_cast<std::size_t>(std::countr_zero(mask));
    p = room(p + k, left - k + kEscapeMax<F> + q + 1);
    p = escape<F>(p, static_cast<unsigned char>(in[k]));
    in += k + 1;
    left -= k + 1;
  }
  return put(p, kQuote<F>);
}

// A string known to need no escape: copied 16 bytes at a time.
template <TextForm F>
char* Writer<F>::plain_string(char* p, std::string_view s) {
  p = put(room(p, s.size() + 2 * kQuote<F>.size() + 1), kQuote<F>);
  const char* in = s.data();
  std::size_t left = s.size();
  for (; left >= detail::kBlock; left -= detail::kBlock, in += detail::kBlock, p += detail::kBlock) {
    detail::store_block(p, detail::load_block(in, detail::kBlock));
  }
  if (left > 0) detail::store_block(p, detail::load_block(in, left));
  return put(p + left, kQuote<F>);
}

// An upper bound of the text's size, so that the writer's buffer is made
// once: growing it would copy and clear the text written so far. It is the
// size, except that a double counts as its longest text (formatting it twice
// would cost more than the spare bytes), an ill-formed string or key as if
// each byte took the longest escape, a key of a map whose keys are not all
// plain as if it were ill-formed, and in nested text each escape of a string
// as if it took three bytes more. Strings' kept sizes make it a walk that
// reads no text.
template <TextForm F>
struct Bound : detail::Untracked {
  static constexpr bool counts = true;
  static constexpr std::size_t q = kQuote<F>.size();

  static std::size_t literal(std::size_t at, std::string_view text) noexcept { return at + text.size(); }
  static std::size_t integer(std::size_t at, std::int64_t i) noexcept { return at + detail::integer_text_size(i); }
  static std::size_t real(std::size_t at, double /*d*/) noexcept { return at + detail::kDoubleTextMax; }
  static std::size_t string(std::size_t at, const ResponseValue& v) noexcept {
    const std::size_t bytes = ValueAccess::text(v).size();
    const std::size_t overhead = ValueAccess::overhead(v);
    if (overhead == detail::kIllFormed) return at + kEscapeMax<F> * bytes + 2 * q;
    return at + (F == TextForm::nested ? bytes + 3 * overhead : bytes + overhead);
  }
  static std::size_t key(std::size_t at, std::string_view key, bool plain, std::size_t /*index*/) noexcept {
    return at + (plain ? key.size() + 2 * q : kEscapeMax<F> * key.size() + 2 * q);
  }
};

// Writes a message's map in json form, in which placeholder strings stand for
// responses written in their place (text_writer.hpp).
class MessageWriter : public Writer<TextForm::json> {
 public:
  MessageWriter(std::string& out, std::size_t expected, std::span<const detail::Stand> stands)
      : Writer(out, expected), expected_(expected), stands_(stands) {}

  char* string(char* p, const ResponseValue& v) {
    for (const detail::Stand& stand : stands_) {
      if (&v == stand.placeholder)
        return splice(
            p, [&](std::string& out) { write(out, stand); }, expected_);
    }
    return Writer::string(p, v);
  }

 private:
  static void write(std::string& out, const detail::Stand& stand) {
    if (stand.form == TextForm::nested) out += '"';
    detail::append_text(out, stand.response, stand.form);
    if (stand.form == TextForm::nested) out += '"';
  }

  std::size_t expected_;
  std::span<const detail::Stand> stands_;
};

template <TextForm F, class Value>
void append(std::string& out, const Value& value) {
  Bound<F> bound;
  Writer<F> w(out, detail::walk(bound, std::size_t{0}, value));
  w.finish(detail::walk(w, w.start(), value));
}

template <TextForm F>
void append(std::string& out, ResponseRef value) {
  value.visit([&](const auto& v) { append<F>(out, v); });
}

}  // namespace

namespace detail {

void append_text(std::string& out, ResponseRef value, TextForm form) {
  switch (form) {
    case TextForm::compact:
      return append<TextForm::compact>(out, value);
    case TextForm::json:
      return append<TextForm::json>(out, value);
    case TextForm::nested:
      return append<TextForm::nested>(out, value);
  }
}

void append_message(std::string& out, const ResponseDict& message, std::span<const Stand> stands) {
  Bound<TextForm::json> bound;
  const std::size_t expected = walk(bound, std::size_t{0}, message);
  MessageWriter w(out, expected, stands);
  w.finish(walk(w, w.start(), message));
}

}  // namespace detail

void append_tool_result_text(std::string& out, ResponseRef result) { append<TextForm::compact>(out, result); }

std::string tool_result_text(ResponseRef result) {
  std::string out;
  append<TextForm::compact>(out, result);
  return out;
}

}  // namespace kestrune::mcp_responses
