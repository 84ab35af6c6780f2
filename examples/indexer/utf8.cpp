#include "utf8.hpp"

#include <cstddef>

namespace kestrune::indexer {

namespace {

// The length of the well-formed sequence that starts at `i`, or 0 with
// `bad` set to the length of its maximal ill-formed subpart (at least 1).
std::size_t sequence_length(std::string_view text, std::size_t i, std::size_t& bad) noexcept {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  bad = 1;
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  for (std::size_t k = 1; k < length; ++k) {
    if (i + k >= text.size()) return 0;
    const unsigned char c = byte(i + k);
    if (c < (k == 1 ? low : 0x80) || c > (k == 1 ? high : 0xBF)) return 0;
    bad = k + 1;
  }
  return length;
}

}  // namespace

bool is_utf8(std::string_view text) noexcept {
  std::size_t bad = 0;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = sequence_length(text, i, bad);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string valid_utf8(std::string_view text) {
  if (is_utf8(text)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 16);
  std::size_t bad = 0;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = sequence_length(text, i, bad);
    if (n == 0) {
      out += "\xEF\xBF\xBD";
      i += bad;
    } else {
      out.append(text, i, n);
      i += n;
    }
  }
  return out;
}

}  // namespace kestrune::indexer
