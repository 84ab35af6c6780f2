#include "utf8.hpp"

#include <iconv.h>

#include <algorithm>
#include <cctype>

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

std::string declared_encoding(std::string_view text) {
  for (int line = 0; line < 2 && !text.empty(); ++line) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view first = text.substr(0, end);
    text = end < text.size() ? text.substr(end + 1) : std::string_view();
    const std::size_t at = first.find("coding");
    if (at == std::string_view::npos || at + 6 >= first.size() || (first[at + 6] != ':' && first[at + 6] != '='))
      continue;
    std::size_t i = at + 7;
    while (i < first.size() && (first[i] == ' ' || first[i] == '\t')) ++i;
    std::string name;
    for (; i < first.size(); ++i) {
      const char c = first[i];
      if (!(std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.')) break;
      name += c;
    }
    if (!name.empty()) return name;
  }
  return {};
}

DecodedText decoded_text(std::string_view bytes) {
  if (is_utf8(bytes)) return {.text = std::string(bytes)};
  const std::string encoding = declared_encoding(bytes);
  if (!encoding.empty()) {
    // iconv knows "latin1" and "euc-jp"; Python also "latin-1" and "euc_jp".
    std::string plain = encoding;
    std::replace(plain.begin(), plain.end(), '_', '-');
    std::string bare = plain;
    bare.erase(std::remove(bare.begin(), bare.end(), '-'), bare.end());
    iconv_t converter = reinterpret_cast<iconv_t>(-1);  // NOLINT: iconv's failure value
    for (const std::string& name : {encoding, plain, bare}) {
      converter = ::iconv_open("UTF-8", name.c_str());
      if (converter != reinterpret_cast<iconv_t>(-1)) break;  // NOLINT: iconv's failure value
    }
    if (converter != reinterpret_cast<iconv_t>(-1)) {  // NOLINT: iconv's failure value
      std::string out(bytes.size() * 4 + 16, '\0');
      char* in_at = const_cast<char*>(bytes.data());  // NOLINT: iconv's signature; it does not write there
      std::size_t in_left = bytes.size();
      char* out_at = out.data();
      std::size_t out_left = out.size();
      const std::size_t done = ::iconv(converter, &in_at, &in_left, &out_at, &out_left);
      ::iconv_close(converter);
      if (done != static_cast<std::size_t>(-1) && in_left == 0) {
        out.resize(out.size() - out_left);
        if (is_utf8(out)) return {.text = std::move(out)};
      }
    }
  }
  return {.text = valid_utf8(bytes), .well_formed = false};
}

}  // namespace kestrune::indexer
