// The escapes of the compact text, shared by the writer and the size counter.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrune::mcp_responses::detail {

/// kEscape: for each byte, 0 when it is written as itself, otherwise the
/// second character of its escape ('u' for the six-byte \u00XX form).
inline constexpr std::array<char, 256> kEscape = [] {
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

/// kEscapeExtra: for each byte, the bytes its escape adds to its own one.
inline constexpr std::array<std::uint8_t, 256> kEscapeExtra = [] {
  std::array<std::uint8_t, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) {
    t[c] = kEscape[c] == 0 ? 0 : kEscape[c] == 'u' ? 5 : 1;
  }
  return t;
}();

/// append_escaped: appends `text` as it stands between the quotes of the
/// compact text (each escape as the table above), except that a byte that is
/// not part of well-formed UTF-8 is written \xNN: what messages quote stays
/// well-formed, one line and whole.
void append_escaped(std::string& out, std::string_view text);

}  // namespace kestrune::mcp_responses::detail
