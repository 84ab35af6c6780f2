// The text of a double. The digits are the shortest that read back to the
// same double, the nearest such when several are equally short: those of
// std::to_chars, except for two kinds of value that responses are full of and
// whose shortest digits are found exactly for less: integers, and numbers of
// a few decimals such as scores and percentages.
#include "encoding/double_text.hpp"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kestrune::mcp_responses::detail {

namespace {

// Plain notation is used while the decimal point's position p (value =
// 0.d1..dn x 10^p) satisfies kPlainMinPoint <= p <= kPlainMaxPoint.
constexpr int kPlainMinPoint = -3;
constexpr int kPlainMaxPoint = 16;

// The most decimals of the short path, and 10 to that power.
constexpr int kShortDecimals = 4;
constexpr double kPow10 = 10000.0;

// Writes `text` without a terminator; returns where it ends.
char* copy_to(char* out, std::string_view text) noexcept { return std::copy(text.begin(), text.end(), out); }

// Lays out the digits d1..dn at `out` (n of them, the last not zero), whose
// value is 0.d1..dn x 10^point, in place; returns the end of the text. Only
// short_text calls it, whose values (10^-4 <= a < 2^50 / 10^4) put the point
// within -3..12: always the plain layout.
char* lay_out(char* out, int n, int point) noexcept {
  if (point <= 0) {
    // "0.", -point zeros, the digits.
    const auto shift = static_cast<std::size_t>(2 - point);
    std::memmove(out + shift, out, static_cast<std::size_t>(n));
    copy_to(out, std::string_view("0.000").substr(0, shift));
    return out + shift + n;
  }
  if (point < n) {
    std::memmove(out + point + 1, out + point, static_cast<std::size_t>(n - point));
    out[point] = '.';
    return out + n + 1;
  }
  // A plain number always has a fraction: "100.0".
  std::memset(out + n, '0', static_cast<std::size_t>(point - n));
  return copy_to(out + point, ".0");
}

// The text of |v| = a at `out` when its shortest digits have at most
// kShortDecimals decimals, or nullptr. An integer below 2^53 is exact, and
// no decimal with fewer digits reads back to it. Otherwise m = round(a x
// 10^4) is the only candidate with four decimals (a x 10^4 < 2^50 leaves one
// integer within reach), and m and 10^4, both exact, divide to the double
// nearest to the decimal m / 10^4: when that is a, the decimal reads back to
// a. A shorter decimal that reads back would be a candidate too, so it is m
// with its trailing zeros dropped. A product that is not within two units in
// the last place of an integer cannot be a candidate, which spares most
// values the division. Rounding goes through integer conversions, which
// compile to two instructions where std::round may be a library call. (The
// subtraction is exact: p and its integer part are within a unit of each
// other, below 2^50.)
char* short_text(char* out, double a) noexcept {
  const double p = a * kPow10;
  if (p >= 0x1p50) return nullptr;
  std::uint64_t m = static_cast<std::uint64_t>(a);
  int decimals = 0;
  if (static_cast<double>(m) != a) {
    m = static_cast<std::uint64_t>(p);  // p rounded to the nearest integer, exactly
    if (p - static_cast<double>(m) >= 0.5) ++m;
    const auto md = static_cast<double>(m);
    if (m == 0 || std::fabs(p - md) > p * 0x1p-51 || md / kPow10 != a) return nullptr;
    decimals = kShortDecimals;
  }
  const int length = static_cast<int>(std::to_chars(out, out + kDoubleTextMax, m).ptr - out);
  int n = length;
  while (out[n - 1] == '0') --n;
  return lay_out(out, n, length - decimals);
}

// |v| = a laid out from std::to_chars's shortest scientific form,
// d1[.d2..dn]e±x, written at `out`: that is the scientific layout already,
// and a plain one is made from it in place. Its exponent then has two
// digits, so the point's position is read from the last three characters.
char* to_chars_text(char* out, double a) noexcept {
  char* end = std::to_chars(out, out + kDoubleTextMax, a, std::chars_format::scientific).ptr;
  char* const e = end - 4;
  if (*e != 'e') return end;  // three exponent digits: scientific
  const int magnitude = (e[2] - '0') * 10 + (e[3] - '0');
  const int point = (e[1] == '-' ? -magnitude : magnitude) + 1;
  if (point < kPlainMinPoint || point > kPlainMaxPoint) return end;
  const int n = out[1] == '.' ? static_cast<int>(e - out) - 1 : 1;  // digits
  char* const rest = out + 2;                                       // d2..dn, when n > 1
  if (point <= 0) {
    // "0.", -point zeros, the digits: the digits move right by 1 - point,
    // d1 over the point.
    const auto shift = static_cast<std::size_t>(1 - point);
    std::memmove(rest + shift, rest, static_cast<std::size_t>(n - 1));
    out[1 + shift] = out[0];
    std::memcpy(out, "0.000", 1 + shift);
    return out + 2 - point + n;
  }
  // The first `point` digits, then the point and the others; or all the
  // digits, zeros up to the point, and ".0".
  const int whole = std::min(point, n);
  std::memmove(out + 1, rest, static_cast<std::size_t>(whole - 1));
  if (point < n) {
    out[point] = '.';
    return out + n + 1;
  }
  std::memset(out + n, '0', static_cast<std::size_t>(point - n));
  return copy_to(out + point, ".0");
}

}  // namespace

std::size_t format_double(double v, char* out) noexcept {
  const auto written = [out](const char* end) { return static_cast<std::size_t>(end - out); };
  // NaN, the infinities and the zeros in one test: an exponent of all ones,
  // or nothing but the sign bit.
  const auto bits = std::bit_cast<std::uint64_t>(v);
  if ((~bits & 0x7FF0000000000000u) == 0 || (bits << 1) == 0) [[unlikely]] {
    if (std::isnan(v)) return written(copy_to(out, "NaN"));
    if (std::isinf(v)) return written(copy_to(out, v < 0 ? "-Infinity" : "Infinity"));
    return written(copy_to(out, std::signbit(v) ? "-0.0" : "0.0"));
  }

  char* const o = std::signbit(v) ? copy_to(out, "-") : out;
  const double a = std::fabs(v);
  char* end = short_text(o, a);
  if (end == nullptr) end = to_chars_text(o, a);
  return written(end);
}

}  // namespace kestrune::mcp_responses::detail
