#include "text/strip.hpp"

#include "internal/utf8.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

std::string_view strip_end_slow(std::string_view text) noexcept {
  std::size_t end = 0;  // just past the last character that is not whitespace
  for (std::size_t i = 0; i < text.size();) {
    const CharAt c = char_at(text, i);
    i += c.len;
    if (!c.whitespace) end = i;
  }
  return text.substr(0, end);
}

}  // namespace

std::string_view strip_end(std::string_view text) noexcept {
  // From the end, while the last character is well-formed and unambiguous;
  // ill-formed bytes there are only grouped right when read from the start.
  std::size_t end = text.size();
  while (end > 0) {
    std::size_t start = end - 1;
    while (start > 0 && end - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
    const Decoded d = decode_at(text, start);
    if (!d.ok || start + d.len != end) return strip_end_slow(text.substr(0, end));
    if (!is_whitespace(d.cp)) break;
    end = start;
  }
  return text.substr(0, end);
}

std::string_view strip(std::string_view text) noexcept {
  std::size_t i = 0;
  for (CharAt c{}; i < text.size() && (c = char_at(text, i)).whitespace;) i += c.len;
  return strip_end(text.substr(i));
}

}  // namespace kestrune::mcp_responses::detail
