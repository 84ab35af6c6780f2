// Shortest round-trip digits come from std::to_chars; the layout is ours.
#include "double_text.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

namespace kestrune::mcp_responses::detail {

namespace {

// Plain notation is used while the decimal point position p satisfies
// kPlainMinPoint <= p <= kPlainMaxPoint.
constexpr int kPlainMinPoint = -3;
constexpr int kPlainMaxPoint = 16;

// Writes `text` without a terminator: callers use the returned length.
std::size_t copy(char* out, std::string_view text) noexcept {
  std::copy(text.begin(), text.end(), out);
  return text.size();
}

}  // namespace

std::size_t format_double(double v, char* out) noexcept {
  if (std::isnan(v)) return copy(out, "NaN");
  if (std::isinf(v)) return copy(out, v < 0 ? "-Infinity" : "Infinity");
  if (v == 0.0) return copy(out, std::signbit(v) ? "-0.0" : "0.0");

  // Shortest scientific form, e.g. "-1.5e-07": sign, d1, optional ".d2..dn", exponent.
  char sci[kDoubleTextMax];
  const auto r = std::to_chars(sci, sci + sizeof sci, v, std::chars_format::scientific);
  const char* p = sci;
  char* o = out;
  if (*p == '-') {
    *o++ = '-';
    ++p;
  }
  char digits[20];
  int n = 0;
  for (; *p != 'e'; ++p) {
    if (*p != '.') digits[n++] = *p;
  }
  int exp10 = 0;
  std::from_chars(p + (p[1] == '+' ? 2 : 1), r.ptr, exp10);
  const int point = exp10 + 1;  // value = 0.d1..dn x 10^point

  if (point < kPlainMinPoint || point > kPlainMaxPoint) {
    *o++ = digits[0];
    if (n > 1) {
      *o++ = '.';
      std::memcpy(o, digits + 1, static_cast<std::size_t>(n - 1));
      o += n - 1;
    }
    *o++ = 'e';
    *o++ = exp10 < 0 ? '-' : '+';
    const int mag = exp10 < 0 ? -exp10 : exp10;
    if (mag >= 100) *o++ = static_cast<char>('0' + mag / 100);
    *o++ = static_cast<char>('0' + mag / 10 % 10);
    *o++ = static_cast<char>('0' + mag % 10);
  } else if (point <= 0) {
    *o++ = '0';
    *o++ = '.';
    for (int k = 0; k < -point; ++k) *o++ = '0';
    std::memcpy(o, digits, static_cast<std::size_t>(n));
    o += n;
  } else if (point < n) {
    std::memcpy(o, digits, static_cast<std::size_t>(point));
    o += point;
    *o++ = '.';
    std::memcpy(o, digits + point, static_cast<std::size_t>(n - point));
    o += n - point;
  } else {
    std::memcpy(o, digits, static_cast<std::size_t>(n));
    o += n;
    for (int k = n; k < point; ++k) *o++ = '0';
    *o++ = '.';
    *o++ = '0';
  }
  return static_cast<std::size_t>(o - out);
}

}  // namespace kestrune::mcp_responses::detail
