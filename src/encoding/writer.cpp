// Writing the text of a response: the compact MCP text, its standard-JSON
// twin and its escaped form inside a JSON string.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "encoding/double_text.hpp"
#include "encoding/encoded_size.hpp"
#include "encoding/escapes.hpp"
#include "encoding/text_writer.hpp"
#include "internal/blocks.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

using detail::kEscape;
using detail::TextForm;

// The quote that opens and closes a string: escaped itself in nested text.
template <TextForm F>
constexpr std::string_view kQuote = F == TextForm::nested ? std::string_view("\\\"") : std::string_view("\"");

// The longest escape of one byte: \u00XX, or \\u00XX in nested text.
template <TextForm F>
constexpr std::size_t kEscapeMax = F == TextForm::nested ? 7 : 6;

// Writes the text into a string through a raw pointer. The string is kept
// larger than the text by at least kSlack bytes, so that a block store of 16
// bytes and a few punctuation marks never need a bounds check of their own;
// every token checks for room before it writes. The write position is passed
// along and returned rather than kept in a member: stores through a char
// pointer may alias any member, which would force a reload per store.
template <TextForm F>
class Writer {
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

  char* value(char* p, const ResponseValue& v);
  char* dict(char* p, const ResponseDict& d);
  char* list(char* p, const ResponseList& l);

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

  char* string(char* p, std::string_view s);
  char* plain_string(char* p, std::string_view s);

  std::string& out_;
  char* start_ = nullptr;
  char* limit_ = nullptr;
};

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

// Copies 16 bytes at a time, stopping only at bytes that need an escape.
// Room for the text, its quotes and one mark after it is made up front; each
// escape makes room for its extra bytes.
template <TextForm F>
char* Writer<F>::string(char* p, std::string_view s) {
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

template <TextForm F>
char* Writer<F>::dict(char* p, const ResponseDict& d) {
  p = room(p, 2);
  *p++ = '{';
  bool first = true;
  // Keys are usually plain names; then none of them needs the escape scan.
  const bool plain_keys = detail::stored_keys_overhead(d) == 2 * d.size();
  for (const auto& [key, value] : d) {
    if (!first) *p++ = ',';
    first = false;
    p = plain_keys ? plain_string(p, key) : string(p, key);
    *p++ = ':';
    p = this->value(p, value);
  }
  p = room(p, 1);
  *p++ = '}';
  return p;
}

template <TextForm F>
char* Writer<F>::list(char* p, const ResponseList& l) {
  p = room(p, 2);
  *p++ = '[';
  bool first = true;
  for (const auto& element : l) {
    if (!first) *p++ = ',';
    first = false;
    p = value(p, element);
  }
  p = room(p, 1);
  *p++ = ']';
  return p;
}

template <TextForm F>
char* Writer<F>::value(char* p, const ResponseValue& v) {
  using detail::ValueAccess;
  switch (v.kind()) {
    case Kind::null:
      return put(room(p, 4), "null");
    case Kind::boolean:
      p = room(p, 5);
      return ValueAccess::scalar<bool>(v) ? put(p, "true") : put(p, "false");
    case Kind::integer:
      p = room(p, 24);
      return std::to_chars(p, p + 24, ValueAccess::scalar<std::int64_t>(v)).ptr;
    case Kind::double_: {
      p = room(p, detail::kDoubleTextMax);
      const auto d = ValueAccess::scalar<double>(v);
      if constexpr (F == TextForm::json) {
        if (!std::isfinite(d)) return put(p, "null");
      }
      return p + detail::format_double(d, p);
    }
    case Kind::string: {
      const std::string_view text = ValueAccess::text(v);
      return ValueAccess::overhead(v) == 2 ? plain_string(p, text) : string(p, text);
    }
    case Kind::list:
      if (const ResponseList* l = ValueAccess::list(v)) return list(p, *l);
      return put(room(p, 2), "[]");
    case Kind::dict:
      if (const ResponseDict* d = ValueAccess::dict(v)) return dict(p, *d);
      return put(room(p, 2), "{}");
  }
  return p;
}

// An upper bound of the text's size, so that the writer's buffer is made
// once: growing it would copy and clear the text written so far. It is the
// size, except that a double counts as its longest text (formatting it twice
// would cost more than the spare bytes), an ill-formed string as if each
// byte took the longest escape, and in nested text each escape of a string
// as if it took three bytes more. Strings' kept sizes make it a walk that
// reads no text.
constexpr std::size_t kBad = detail::kIllFormed;

// The bound of strings of `bytes` bytes in all, whose compact text adds
// `overhead` bytes to them (kBad when one is ill-formed), `count` strings.
template <TextForm F>
std::size_t strings_bound(std::size_t bytes, std::size_t overhead, std::size_t count) noexcept {
  if (overhead == kBad) return kEscapeMax<F> * bytes + 2 * kQuote<F>.size() * count;
  return F == TextForm::nested ? bytes + 3 * overhead : bytes + overhead;
}

template <TextForm F>
std::size_t bound(const ResponseValue& v) noexcept;

template <TextForm F>
std::size_t bound(const ResponseList& l) noexcept {
  std::size_t size = 2 + l.size();  // brackets and commas, one to spare
  for (const auto& e : l) size += bound<F>(e);
  return size;
}

template <TextForm F>
std::size_t bound(const ResponseDict& d) noexcept {
  std::size_t size = 2 + 2 * d.size();  // braces, commas and colons
  std::size_t key_bytes = 0;
  for (const auto& [key, value] : d) {
    key_bytes += key.size();
    size += bound<F>(value);
  }
  return size + strings_bound<F>(key_bytes, detail::stored_keys_overhead(d), d.size());
}

template <TextForm F>
std::size_t bound(const ResponseValue& v) noexcept {
  using detail::ValueAccess;
  switch (v.kind()) {
    case Kind::double_:
      return detail::kDoubleTextMax;
    case Kind::string:
      return strings_bound<F>(ValueAccess::text(v).size(), ValueAccess::overhead(v), 1);
    case Kind::list: {
      const ResponseList* l = ValueAccess::list(v);
      return l != nullptr ? bound<F>(*l) : 2;
    }
    case Kind::dict: {
      const ResponseDict* d = ValueAccess::dict(v);
      return d != nullptr ? bound<F>(*d) : 2;
    }
    default:
      return detail::size_or_ill_formed(v);
  }
}

template <TextForm F, class Value>
void append(std::string& out, const Value& value) {
  Writer<F> w(out, bound<F>(value));
  if constexpr (std::is_same_v<Value, ResponseDict>) {
    w.finish(w.dict(w.start(), value));
  } else if constexpr (std::is_same_v<Value, ResponseList>) {
    w.finish(w.list(w.start(), value));
  } else {
    w.finish(w.value(w.start(), value));
  }
}

template <class Value>
void append_in(std::string& out, const Value& value, TextForm form) {
  switch (form) {
    case TextForm::compact:
      return append<TextForm::compact>(out, value);
    case TextForm::json:
      return append<TextForm::json>(out, value);
    case TextForm::nested:
      return append<TextForm::nested>(out, value);
  }
}

}  // namespace

namespace detail {

void append_text(std::string& out, const ResponseValue& value, TextForm form) { append_in(out, value, form); }
void append_text(std::string& out, const ResponseDict& value, TextForm form) { append_in(out, value, form); }
void append_text(std::string& out, const ResponseList& value, TextForm form) { append_in(out, value, form); }

}  // namespace detail

void append_tool_result_text(std::string& out, const ResponseValue& result) { append<TextForm::compact>(out, result); }

void append_tool_result_text(std::string& out, const ResponseDict& result) { append<TextForm::compact>(out, result); }

std::string tool_result_text(const ResponseValue& result) {
  std::string out;
  append<TextForm::compact>(out, result);
  return out;
}

std::string tool_result_text(const ResponseDict& result) {
  std::string out;
  append<TextForm::compact>(out, result);
  return out;
}

std::string tool_result_text(const ResponseList& result) {
  std::string out;
  append<TextForm::compact>(out, result);
  return out;
}

}  // namespace kestrune::mcp_responses
