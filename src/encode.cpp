// Compact MCP text: writing it, and counting its bytes without writing it.
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <system_error>

#include "double_text.hpp"
#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

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

void append_string(std::string& out, std::string_view s) {
  static constexpr char kHex[] = "0123456789abcdef";
  out.push_back('"');
  std::size_t run = 0;  // start of the bytes not yet written
  for (std::size_t i = 0; i < s.size(); ++i) {
    const auto c = static_cast<unsigned char>(s[i]);
    const char e = kEscape[c];
    if (e == 0) continue;
    out.append(s.data() + run, i - run);
    run = i + 1;
    if (e == 'u') {
      const char u[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
      out.append(u, 6);
    } else {
      const char esc[2] = {'\\', e};
      out.append(esc, 2);
    }
  }
  out.append(s.data() + run, s.size() - run);
  out.push_back('"');
}

void append_integer(std::string& out, std::int64_t i) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, i);
  out.append(buf, r.ptr);
}

void append_value(std::string& out, const ResponseValue& v);

void append_dict(std::string& out, const ResponseDict& d) {
  out.push_back('{');
  bool first = true;
  for (const auto& [key, value] : d) {
    if (!first) out.push_back(',');
    first = false;
    append_string(out, key);
    out.push_back(':');
    append_value(out, value);
  }
  out.push_back('}');
}

void append_list(std::string& out, const ResponseList& l) {
  out.push_back('[');
  bool first = true;
  for (const auto& value : l) {
    if (!first) out.push_back(',');
    first = false;
    append_value(out, value);
  }
  out.push_back(']');
}

void append_value(std::string& out, const ResponseValue& v) {
  const auto& s = v.storage();
  switch (v.kind()) {
    case Kind::null:
      out.append("null", 4);
      return;
    case Kind::boolean:
      if (*std::get_if<bool>(&s)) {
        out.append("true", 4);
      } else {
        out.append("false", 5);
      }
      return;
    case Kind::integer:
      append_integer(out, *std::get_if<std::int64_t>(&s));
      return;
    case Kind::number: {
      char buf[detail::kDoubleTextMax];
      out.append(buf, detail::format_double(*std::get_if<double>(&s), buf));
      return;
    }
    case Kind::string:
      append_string(out, *std::get_if<std::string>(&s));
      return;
    case Kind::list:
      append_list(out, *std::get_if<ResponseList>(&s));
      return;
    case Kind::dict:
      append_dict(out, *std::get_if<ResponseDict>(&s));
      return;
  }
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

// Returns the size, or npos when the string is not well-formed UTF-8.
std::size_t string_size(std::string_view s) noexcept {
  std::size_t size = s.size() + 2;
  std::size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      size += kExtra[c];
      ++i;
      continue;
    }
    const detail::Decoded d = detail::decode_at(s, i);
    if (!d.ok) return std::string_view::npos;
    i += d.len;
  }
  return size;
}

std::size_t integer_size(std::int64_t i) noexcept {
  std::size_t n = i < 0 ? 2 : 1;
  // Work on the magnitude as unsigned so INT64_MIN does not overflow.
  std::uint64_t m = i < 0 ? 0 - static_cast<std::uint64_t>(i) : static_cast<std::uint64_t>(i);
  while (m >= 10) {
    m /= 10;
    ++n;
  }
  return n;
}

constexpr std::size_t kBad = std::string_view::npos;

std::size_t value_size(const ResponseValue& v) noexcept;

std::size_t dict_size(const ResponseDict& d) noexcept {
  std::size_t size = 2 + (d.empty() ? 0 : d.size() - 1);  // braces and commas
  for (const auto& [key, value] : d) {
    const std::size_t k = string_size(key);
    const std::size_t x = value_size(value);
    if (k == kBad || x == kBad) return kBad;
    size += k + 1 + x;  // key, colon, value
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
      return string_size(*std::get_if<std::string>(&s));
    case Kind::list: {
      const auto& l = *std::get_if<ResponseList>(&s);
      std::size_t size = 2 + (l.empty() ? 0 : l.size() - 1);
      for (const auto& e : l) {
        const std::size_t x = value_size(e);
        if (x == kBad) return kBad;
        size += x;
      }
      return size;
    }
    case Kind::dict:
      return dict_size(*std::get_if<ResponseDict>(&s));
  }
  return kBad;
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

void append_tool_result_text(std::string& out, const ResponseValue& result) { append_value(out, result); }
void append_tool_result_text(std::string& out, const ResponseDict& result) { append_dict(out, result); }

std::string tool_result_text(const ResponseValue& result) {
  std::string out;
  append_value(out, result);
  return out;
}

std::string tool_result_text(const ResponseDict& result) {
  std::string out;
  append_dict(out, result);
  return out;
}

std::string tool_result_text(const ResponseList& result) {
  std::string out;
  append_list(out, result);
  return out;
}

namespace detail {

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
