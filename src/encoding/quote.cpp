// Quoting an argument in a message: whole, escaped, always well-formed.
#include <string>
#include <string_view>

#include "encoding/escapes.hpp"
#include "internal/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {

namespace detail {

void append_escaped(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  out.reserve(out.size() + text.size());
  for (std::size_t i = 0; i < text.size();) {
    const Decoded d = decode_at(text, i);
    if (!d.ok) {
      for (std::size_t k = 0; k < d.len; ++k) {
        const auto byte = static_cast<unsigned char>(text[i + k]);
        out += "\\x";
        out += kHex[byte >> 4];
        out += kHex[byte & 0xF];
      }
    } else if (const char e = kEscape[static_cast<unsigned char>(text[i])]; e != 0) {
      out += '\\';
      out += e;
      if (e == 'u') {
        const auto byte = static_cast<unsigned char>(text[i]);
        out += "00";
        out += kHex[byte >> 4];
        out += kHex[byte & 0xF];
      }
    } else {
      out.append(text.substr(i, d.len));
    }
    i += d.len;
  }
}

}  // namespace detail

std::string quote(std::string_view text) {
  std::string out = "\"";
  detail::append_escaped(out, text);
  out += '"';
  return out;
}

}  // namespace kestrune::mcp_responses
