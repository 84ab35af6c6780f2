// Compact MCP text: writing it, and counting its bytes without writing it.
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <system_error>

#include "double_text.hpp"
#include "escape_scan.hpp"
#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "measure.hpp"

namespace kestrune::mcp_responses {

namespace {

// For each byte: 0 when written as itself, otherwise the escape's second
// character ('u' for the six-byte \u00XX form).
constexpr std::array<char, 256> kEscape = [] {
  std::array<char, 256> t{};
  for (int c = 0; c < 0x20; ++c) t[c] = 'u';
  t['"'] = '"';
  t['\\'] = '\\';
  t['\b'] = 'b';
  t['\t'] = 't';
  t['\n'] = 'n';
  t['\f'] = 'f';
  t['\r'] = 'r';
  return t;
}();

// Writes the compact text into a string through a raw pointer. The string is
// kept larger than the text by at least kSlack bytes, so that a block store
// of 16 bytes and a few punctuation marks never need a bounds check of their
// own; every token checks for room before it writes. The write position is
// passed along and returned rather than kept in a member: stores through a
// char pointer may alias any member, which would force a reload per store.
class Writer {
 public:
  explicit Writer(std::string& out, std::size_t expected) : out_(out) {
    const std::size_t base = out_.size();
    out_.resize(base + expected + kSlack);
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

char* put(char* p, const char* s, std::size_t n) noexcept {
  std::memcpy(p, s, n);
  return p + n;
}

char* escape(char* p, unsigned char c) noexcept {
  static constexpr char kHex[] = "0123456789abcdef";
  const char e = kEscape[c];
  p[0] = '\\';
  if (e != 'u') {
    p[1] = e;
    return p + 2;
  }
  p[1] = 'u';
  p[2] = '0';
  p[3] = '0';
  p[4] = kHex[c >> 4];
  p[5] = kHex[c & 0xF];
  return p + 6;
}

// Copies 16 bytes at a time, stopping only at bytes that need an escape.
// Room for the text, its quotes and one mark after it is made up front; each
// escape makes room for its extra bytes.
char* Writer::string(char* p, std::string_view s) {
  p = room(p, s.size() + 3);
  *p++ = '"';
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
    p = room(p + k, left - k + 8);
    p = escape(p, static_cast<unsigned char>(in[k]));
    in += k + 1;
    left -= k + 1;
  }
  *p++ = '"';
  return p;
}

// A string known to need no escape: copied 16 bytes at a time.
char* Writer::plain_string(char* p, std::string_view s) {
  p = room(p, s.size() + 3);
  *p++ = '"';
  const char* in = s.data();
  std::size_t left = s.size();
  for (; left >= detail::kBlock; left -= detail::kBlock, in += detail::kBlock, p += detail::kBlock) {
    detail::store_block(p, detail::load_block(in, detail::kBlock));
  }
  if (left > 0) detail::store_block(p, detail::load_block(in, left));
  p += left;
  *p++ = '"';
  return p;
}

char* Writer::dict(char* p, const ResponseDict& d) {
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

char* Writer::list(char* p, const ResponseList& l) {
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

char* Writer::value(char* p, const ResponseValue& v) {
  const auto& s = v.storage();
  switch (v.kind()) {
    case Kind::null:
      return put(room(p, 4), "null", 4);
    case Kind::boolean:
      p = room(p, 5);
      return *std::get_if<bool>(&s) ? put(p, "true", 4) : put(p, "false", 5);
    case Kind::integer:
      p = room(p, 24);
      return std::to_chars(p, p + 24, *std::get_if<std::int64_t>(&s)).ptr;
    case Kind::number:
      p = room(p, detail::kDoubleTextMax);
      return p + detail::format_double(*std::get_if<double>(&s), p);
    case Kind::string: {
      const std::string& text = *std::get_if<std::string>(&s);
      return detail::stored_overhead(v) == 2 ? plain_string(p, text) : string(p, text);
    }
    case Kind::list:
      return list(p, *std::get_if<ResponseList>(&s));
    case Kind::dict:
      return dict(p, *std::get_if<ResponseDict>(&s));
  }
  return p;
}

// Counting. A string costs its bytes, two quotes, and one extra byte per
// two-character escape or five per \u00XX escape.

constexpr std::array<std::uint8_t, 256> kExtra = [] {
  std::array<std::uint8_t, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) {
    t[c] = kEscape[c] == 0 ? 0 : kEscape[c] == 'u' ? 5 : 1;
  }
  return t;
}();

// Returns the size, or npos when the string is not well-formed UTF-8. Each
// block goes through the UTF-8 check and adds its escapes' extra bytes.
[[gnu::noinline]] std::size_t mixed_string_size(std::string_view s) noexcept {
  std::size_t size = s.size() + 2;
  detail::Utf8Check utf8;
  for (std::size_t i = 0; i < s.size(); i += detail::kBlock) {
    const detail::Block b = detail::load_block(s.data() + i, s.size() - i);
    if (detail::attention_mask(b) == 0 && utf8.done()) continue;
    if (!utf8.block(b)) return std::string_view::npos;
    for (unsigned escapes = detail::escape_mask(b); escapes != 0; escapes &= escapes - 1) {
      size += kExtra[static_cast<unsigned char>(s[i + static_cast<std::size_t>(std::countr_zero(escapes))])];
    }
  }
  return utf8.done() ? size : std::string_view::npos;
}

// The size of `s` whose first `plain` bytes are ASCII that needs no escape,
// which leaves no sequence open.
std::size_t string_size_after(std::string_view s, std::size_t plain) noexcept {
  const std::size_t rest = mixed_string_size(s.substr(plain));
  return rest == std::string_view::npos ? rest : plain + rest;
}

// The same as mixed_string_size. Most strings are ASCII that needs no escape,
// which costs one test per block; the rest of a string from its first other
// block is measured in full.
std::size_t string_size(std::string_view s) noexcept {
  const char* in = s.data();
  std::size_t left = s.size();
  for (; left >= detail::kBlock; left -= detail::kBlock, in += detail::kBlock) {
    if (detail::attention_mask(detail::load_block(in, detail::kBlock)) != 0) {
      return string_size_after(s, s.size() - left);
    }
  }
  if (left == 0) return s.size() + 2;
  // The last bytes: in the block that ends with them when the string is long
  // enough, which needs one load instead of a gathered tail.
  const std::size_t back = s.size() >= detail::kBlock ? detail::kBlock - left : 0;
  const detail::Block b = detail::load_block(in - back, left + back);
  if ((detail::attention_mask(b) >> back) == 0) return s.size() + 2;
  return string_size_after(s, s.size() - left);
}

// The digits of an integer, from its bit width: 1233/4096 is just above
// log10(2), so t below is the number of digits or one less, and one
// comparison with a power of ten settles which.
constexpr std::array<std::uint64_t, 20> kPow10 = [] {
  std::array<std::uint64_t, 20> t{};
  std::uint64_t p = 1;
  for (std::uint64_t& x : t) {
    x = p;
    p *= 10;  // wraps after the last entry is set; the wrapped value is never stored
  }
  return t;
}();

std::size_t integer_size(std::int64_t i) noexcept {
  // Work on the magnitude as unsigned so INT64_MIN does not overflow.
  // Zero has one digit, as 1 has.
  const std::uint64_t m = (i < 0 ? 0 - static_cast<std::uint64_t>(i) : static_cast<std::uint64_t>(i)) | 1;
  const auto t = static_cast<std::size_t>((std::bit_width(m) * 1233) >> 12);
  const std::size_t digits = t + (m >= kPow10[t] ? 1 : 0);
  return digits + (i < 0 ? 1 : 0);
}

constexpr std::size_t kBad = detail::kIllFormed;

std::size_t value_size(const ResponseValue& v) noexcept;

// The size of a string value, from the overhead it keeps.
std::size_t string_value_size(const ResponseValue& v) noexcept {
  const std::size_t overhead = detail::stored_overhead(v);
  return overhead == kBad ? kBad : std::get_if<std::string>(&v.storage())->size() + overhead;
}

// The size of an element or map value: strings, most of them, are added up
// here without a call.
std::size_t child_size(const ResponseValue& v) noexcept {
  return v.kind() == Kind::string ? string_value_size(v) : value_size(v);
}

std::size_t list_size(const ResponseList& l) noexcept {
  std::size_t size = 2 + (l.empty() ? 0 : l.size() - 1);  // brackets and commas
  for (const auto& e : l) {
    const std::size_t x = child_size(e);
    if (x == kBad) return kBad;
    size += x;
  }
  return size;
}

// Strings and keys carry their overhead from when they were made, so
// measuring walks the tree without reading any text.
std::size_t dict_size(const ResponseDict& d) noexcept {
  const std::size_t keys = detail::stored_keys_overhead(d);
  if (keys == kBad) return kBad;
  // Braces, commas, colons and the keys' quotes and escapes.
  std::size_t size = 2 + (d.empty() ? 0 : d.size() - 1) + d.size() + keys;
  for (const auto& [key, value] : d) {
    const std::size_t x = child_size(value);
    if (x == kBad) return kBad;
    size += key.size() + x;
  }
  return size;
}

std::size_t value_size(const ResponseValue& v) noexcept {
  const auto& s = v.storage();
  switch (v.kind()) {
    case Kind::null:
      return 4;
    case Kind::boolean:
      return *std::get_if<bool>(&s) ? 4 : 5;
    case Kind::integer:
      return integer_size(*std::get_if<std::int64_t>(&s));
    case Kind::number: {
      char buf[detail::kDoubleTextMax];
      return detail::format_double(*std::get_if<double>(&s), buf);
    }
    case Kind::string:
      return string_value_size(v);
    case Kind::list:
      return list_size(*std::get_if<ResponseList>(&s));
    case Kind::dict:
      return dict_size(*std::get_if<ResponseDict>(&s));
  }
  return kBad;
}

// An upper bound of the text's size, so that the writer's buffer is made
// once: growing it would copy and clear the text written so far. It is the
// size, except that a double counts as its longest text (formatting it twice
// would cost more than the spare bytes) and an ill-formed string as if each
// byte took a six-byte escape. Strings' kept sizes make it a walk that reads
// no text.
std::size_t bound(const ResponseValue& v) noexcept;

std::size_t bound(const ResponseList& l) noexcept {
  std::size_t size = 2 + l.size();  // brackets and commas, one to spare
  for (const auto& e : l) size += bound(e);
  return size;
}

std::size_t bound(const ResponseDict& d) noexcept {
  std::size_t size = 2 + 2 * d.size();  // braces, commas and colons
  std::size_t key_bytes = 0;
  for (const auto& [key, value] : d) {
    key_bytes += key.size();
    size += bound(value);
  }
  const std::size_t keys = detail::stored_keys_overhead(d);
  return size + key_bytes + (keys == kBad ? 5 * key_bytes + 2 * d.size() : keys);
}

std::size_t bound(const ResponseValue& v) noexcept {
  const auto& s = v.storage();
  switch (v.kind()) {
    case Kind::number:
      return detail::kDoubleTextMax;
    case Kind::string: {
      const std::size_t bytes = std::get_if<std::string>(&s)->size();
      const std::size_t overhead = detail::stored_overhead(v);
      return bytes + (overhead == kBad ? 5 * bytes + 2 : overhead);
    }
    case Kind::list:
      return bound(*std::get_if<ResponseList>(&s));
    case Kind::dict:
      return bound(*std::get_if<ResponseDict>(&s));
    default:
      return value_size(v);
  }
}

// Finds the first ill-formed string in writing order, for the error message.
bool locate_ill_formed(const ResponseValue& v, std::string& where, std::size_t& byte) {
  if (v.is_string()) {
    byte = detail::first_ill_formed(v.as_string());
    return byte != std::string_view::npos;
  }
  if (v.is_list()) {
    const auto& l = v.as_list();
    for (std::size_t i = 0; i < l.size(); ++i) {
      const std::size_t mark = where.size();
      where += '[' + std::to_string(i) + ']';
      if (locate_ill_formed(l[i], where, byte)) return true;
      where.resize(mark);
    }
    return false;
  }
  if (v.is_dict()) {
    std::size_t index = 0;
    for (const auto& [key, value] : v.as_dict()) {
      byte = detail::first_ill_formed(key);
      if (byte != std::string_view::npos) {
        where.insert(0, "key #" + std::to_string(index) + " of ");
        return true;
      }
      const std::size_t mark = where.size();
      where += '.';
      where += key;
      if (locate_ill_formed(value, where, byte)) return true;
      where.resize(mark);
      ++index;
    }
  }
  return false;
}

[[noreturn]] void throw_ill_formed(const ResponseValue& v) {
  std::string where = "$";
  std::size_t byte = 0;
  locate_ill_formed(v, where, byte);
  throw EncodingError(std::move(where), byte);
}

}  // namespace

EncodingError::EncodingError(std::string where, std::size_t byte)
    : std::runtime_error("encoded_size: the string at " + where + " is not well-formed UTF-8 (byte " +
                         std::to_string(byte) + ")"),
      where_(std::move(where)),
      byte_(byte) {}

void append_tool_result_text(std::string& out, const ResponseValue& result) {
  Writer w(out, bound(result));
  w.finish(w.value(w.start(), result));
}

void append_tool_result_text(std::string& out, const ResponseDict& result) {
  Writer w(out, bound(result));
  w.finish(w.dict(w.start(), result));
}

std::string tool_result_text(const ResponseValue& result) {
  std::string out;
  append_tool_result_text(out, result);
  return out;
}

std::string tool_result_text(const ResponseDict& result) {
  std::string out;
  append_tool_result_text(out, result);
  return out;
}

std::string tool_result_text(const ResponseList& result) {
  std::string out;
  Writer w(out, bound(result));
  w.finish(w.list(w.start(), result));
  return out;
}

namespace detail {

std::size_t string_overhead(std::string_view text) noexcept {
  const std::size_t size = string_size(text);
  return size == kBad ? kBad : size - text.size();
}

std::size_t size_or_ill_formed(const ResponseValue& value) noexcept { return value_size(value); }
std::size_t size_or_ill_formed(const ResponseDict& value) noexcept { return dict_size(value); }
std::size_t string_size_or_ill_formed(std::string_view text) noexcept { return string_size(text); }
std::size_t well_formed_string_size(std::string_view text) noexcept {
  std::size_t size = text.size() + 2;
  for (std::size_t i = 0; i < text.size(); i += kBlock) {
    const Block b = load_block(text.data() + i, text.size() - i);
    for (unsigned escapes = escape_mask(b); escapes != 0; escapes &= escapes - 1) {
      size += kExtra[static_cast<unsigned char>(text[i + static_cast<std::size_t>(std::countr_zero(escapes))])];
    }
  }
  return size;
}

std::size_t well_formed_char_count(std::string_view text) noexcept {
  std::size_t continuations = 0;
  for (std::size_t i = 0; i < text.size(); i += kBlock) {
    continuations +=
        popcount16(below_mask(load_block(text.data() + i, text.size() - i), static_cast<signed char>(0xC0)));
  }
  return text.size() - continuations;
}

std::size_t encoded_size(const ResponseValue& result) {
  const std::size_t size = value_size(result);
  if (size == kBad) throw_ill_formed(result);
  return size;
}

std::size_t encoded_size(const ResponseDict& result) {
  const std::size_t size = dict_size(result);
  if (size == kBad) {
    // Only the error path pays for wrapping the map in a value.
    throw_ill_formed(ResponseValue(result));
  }
  return size;
}

}  // namespace detail
}  // namespace kestrune::mcp_responses
