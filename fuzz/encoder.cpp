// The encoder: encoded_size equals the text's byte length, or fails exactly
// when the tree holds ill-formed UTF-8; the text reads back to the same tree;
// strings are escaped as a byte at a time would; every double is written in
// its shortest digits (the nearest such) and reads back to itself.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bytes.hpp"
#include "check.hpp"
#include "encoding/encoded_size.hpp"
#include "json_reader.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "support/oracles.hpp"
#include "trees.hpp"

namespace mr = kestrune::mcp_responses;

namespace {

bool ill_formed(std::string_view s) { return mr::detail::first_ill_formed(s) != std::string_view::npos; }

// Checks every string and double of `v`; returns whether it holds ill-formed text.
bool check_parts(const mr::ResponseValue& v) {
  if (v.is_string()) {
    FUZZ_CHECK(mr::tool_result_text(v) == kestrune::oracle::escaped(v.as_string()));
    return ill_formed(v.as_string());
  }
  if (v.is_double() && std::isfinite(v.as_double()) && v.as_double() != 0.0) {
    const double d = v.as_double();
    const std::string text = mr::tool_result_text(v);
    FUZZ_CHECK(std::strtod(text.c_str(), nullptr) == d);
    // The digits: as many as the text has, the correctly rounded ones when
    // those read back (at a power of two they may not), and no fewer would
    // read back.
    std::string digits;
    for (const char c : text.substr(0, text.find('e'))) {
      if (c >= '0' && c <= '9' && !(digits.empty() && c == '0')) digits += c;
    }
    while (!digits.empty() && digits.back() == '0') digits.pop_back();
    const auto n = static_cast<int>(digits.size());
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*e", n - 1, std::fabs(d));
    std::string rounded;
    for (const char c : std::string_view(buf).substr(0, std::string_view(buf).find('e'))) {
      if (c != '.') rounded += c;
    }
    while (rounded.size() > 1 && rounded.back() == '0') rounded.pop_back();
    if (std::strtod(buf, nullptr) == std::fabs(d)) FUZZ_CHECK(rounded == digits);
    if (n > 1) {
      std::snprintf(buf, sizeof buf, "%.*e", n - 2, d);
      FUZZ_CHECK(std::strtod(buf, nullptr) != d);
    }
  }
  bool bad = false;
  if (v.is_list()) {
    for (const auto& e : v.as_list()) bad = check_parts(e) || bad;
  }
  if (v.is_dict()) {
    for (const auto& [key, value] : v.as_dict()) bad = check_parts(value) || ill_formed(key) || bad;
  }
  return bad;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrune::fuzz::Bytes in(data, size);
  // Strings and keys of raw bytes: ill-formed UTF-8 included.
  const mr::ResponseValue value =
      kestrune::fuzz::tree(in, 0, [](kestrune::fuzz::Bytes& b, std::size_t max) { return b.raw(max); });
  const std::string text = mr::tool_result_text(value);
  const bool bad = check_parts(value);
  bool threw = false;
  try {
    FUZZ_CHECK(mr::detail::encoded_size(value) == text.size());
  } catch (const mr::EncodingError&) {
    threw = true;
  }
  FUZZ_CHECK(threw == bad);
  // The text reads back to the same tree: the encoding tells every tree
  // apart (3 and 3.0, 0.0 and -0.0, key order), so the same text will do.
  if (!bad) FUZZ_CHECK(mr::tool_result_text(kestrune::tool::parse_json(text)) == text);
  return 0;
}
