// Counting the bytes of the compact MCP text without writing it, and the
// error for text that has no UTF-8 form.
#include <array>
#include <bit>
#include <cstdint>
#include <string>

#include "encoding/double_text.hpp"
#include "encoding/encoded_size.hpp"
#include "encoding/escapes.hpp"
#include "internal/blocks.hpp"
#include "internal/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

using detail::kEscapeExtra;

// A string costs its bytes, two quotes, and one extra byte per two-character
// escape or five per \u00XX escape.

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
      size += kEscapeExtra[static_cast<unsigned char>(s[i + static_cast<std::size_t>(std::countr_zero(escapes))])];
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

}  // namespace

namespace detail {

std::size_t integer_text_size(std::int64_t i) noexcept {
  // Work on the magnitude as unsigned so INT64_MIN does not overflow.
  // Zero has one digit, as 1 has.
  const std::uint64_t m = (i < 0 ? 0 - static_cast<std::uint64_t>(i) : static_cast<std::uint64_t>(i)) | 1;
  const auto t = static_cast<std::size_t>((std::bit_width(m) * 1233) >> 12);
  const std::size_t digits = t + (m >= kPow10[t] ? 1 : 0);
  return digits + (i < 0 ? 1 : 0);
}

}  // namespace detail

namespace {

constexpr std::size_t kBad = detail::kIllFormed;

std::size_t value_size(const ResponseValue& v) noexcept;

// The size of a string value, from what it keeps.
std::size_t string_value_size(const ResponseValue& v) noexcept { return detail::ValueAccess::encoded_size(v); }

// The size of an element or map value: strings, most of them, are added up
// here without a call.
std::size_t child_size(const ResponseValue& v) noexcept {
  return v.kind() == Kind::string ? string_value_size(v) : value_size(v);
}

std::size_t list_size(const ResponseList& l) noexcept {
  std::size_t elements = 0;
  for (const auto& e : l) {
    const std::size_t x = child_size(e);
    if (x == kBad) return kBad;
    elements += x;
  }
  return detail::list_size(elements, l.size());
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
  using detail::ValueAccess;
  switch (v.kind()) {
    case Kind::null:
      return 4;
    case Kind::boolean:
      return ValueAccess::scalar<bool>(v) ? 4 : 5;
    case Kind::integer:
      return detail::integer_text_size(ValueAccess::scalar<std::int64_t>(v));
    case Kind::double_: {
      char buf[detail::kDoubleTextMax];
      return detail::format_double(ValueAccess::scalar<double>(v), buf);
    }
    case Kind::string:
      return string_value_size(v);
    case Kind::list: {
      const ResponseList* l = ValueAccess::list(v);
      return l != nullptr ? list_size(*l) : detail::list_size(0, 0);
    }
    case Kind::dict: {
      const ResponseDict* d = ValueAccess::dict(v);
      return d != nullptr ? dict_size(*d) : 2;
    }
  }
  return kBad;
}

// Finds the first ill-formed string in writing order, for the error message.
bool find_ill_formed(const ResponseValue& v, std::string& where, std::size_t& byte);

bool find_ill_formed(const ResponseDict& d, std::string& where, std::size_t& byte) {
  std::size_t index = 0;
  for (const auto& [key, value] : d) {
    byte = detail::first_ill_formed(key);
    if (byte != std::string_view::npos) {
      where.insert(0, "key #" + std::to_string(index) + " of ");
      return true;
    }
    const std::size_t mark = where.size();
    where += '.';
    where += key;
    if (find_ill_formed(value, where, byte)) return true;
    where.resize(mark);
    ++index;
  }
  return false;
}

bool find_ill_formed(const ResponseValue& v, std::string& where, std::size_t& byte) {
  if (v.is_string()) {
    byte = detail::first_ill_formed(v.as_string());
    return byte != std::string_view::npos;
  }
  if (v.is_list()) {
    const auto& l = v.as_list();
    for (std::size_t i = 0; i < l.size(); ++i) {
      const std::size_t mark = where.size();
      where += '[' + std::to_string(i) + ']';
      if (find_ill_formed(l[i], where, byte)) return true;
      where.resize(mark);
    }
    return false;
  }
  return v.is_dict() && find_ill_formed(v.as_dict(), where, byte);
}

template <class Value>
[[noreturn]] void throw_ill_formed(const Value& v) {
  std::optional<detail::IllFormedAt> at = detail::locate_ill_formed(v, "$");
  throw EncodingError(std::move(at->where), at->byte);
}

}  // namespace

EncodingError::EncodingError(std::string where, std::size_t byte)
    : std::runtime_error("encoded_size: the string at " + where + " is not well-formed UTF-8 (byte " +
                         std::to_string(byte) + ")"),
      where_(std::move(where)),
      byte_(byte) {}

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
      size += kEscapeExtra[static_cast<unsigned char>(text[i + static_cast<std::size_t>(std::countr_zero(escapes))])];
    }
  }
  return size;
}

std::optional<IllFormedAt> locate_ill_formed(const ResponseValue& value, std::string where) {
  std::size_t byte = 0;
  if (!find_ill_formed(value, where, byte)) return std::nullopt;
  return IllFormedAt{std::move(where), byte};
}

std::optional<IllFormedAt> locate_ill_formed(const ResponseDict& value, std::string where) {
  std::size_t byte = 0;
  if (!find_ill_formed(value, where, byte)) return std::nullopt;
  return IllFormedAt{std::move(where), byte};
}

std::size_t encoded_size(const ResponseValue& result) {
  const std::size_t size = value_size(result);
  if (size == kBad) throw_ill_formed(result);
  return size;
}

std::size_t encoded_size(const ResponseDict& result) {
  const std::size_t size = dict_size(result);
  if (size == kBad) throw_ill_formed(result);
  return size;
}

}  // namespace detail
}  // namespace kestrune::mcp_responses
