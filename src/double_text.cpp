// The shortest decimal digits of a double, and their layout.
//
// The digits come from the Schubfach method (R. Giulietti, "The Schubfach way
// to render doubles"): one 126-bit approximation of a power of ten, three
// multiplications, and a choice among at most four candidates that gives the
// shortest decimal in the rounding interval, the nearest one when several are
// equally short. It measured about twice as fast as std::to_chars here and
// needs no parse of a formatted number to lay the digits out our way. The
// smallest subnormals, where it may keep a digit too many, use std::to_chars.
#include "double_text.hpp"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "pow10_table.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// Plain notation is used while the decimal point position p satisfies
// kPlainMinPoint <= p <= kPlainMaxPoint.
constexpr int kPlainMinPoint = -3;
constexpr int kPlainMaxPoint = 16;

constexpr int kSignificandBits = 52;
constexpr int kMinExponent = -1074;  // of the last significand bit of a subnormal
constexpr std::uint64_t kHiddenBit = std::uint64_t{1} << kSignificandBits;
constexpr std::uint64_t kMask63 = (std::uint64_t{1} << 63) - 1;
// Below this significand the method's candidates can have two digits where
// one suffices; such subnormals (under 5e-322) take std::to_chars instead.
constexpr std::uint64_t kSmallestSignificand = 100;

// floor(q log10 2), floor(log10(3/4 x 2^q)) and floor(e log2 10), exact over
// the exponents of doubles. Right shifts of negative values floor (C++20).
constexpr int floor_log10_pow2(int q) { return static_cast<int>((std::int64_t{q} * 661971961083) >> 41); }
constexpr int floor_log10_three_quarters_pow2(int q) {
  return static_cast<int>((std::int64_t{q} * 661971961083 - 274743187321) >> 41);
}
constexpr int floor_log2_pow10(int e) { return static_cast<int>((std::int64_t{e} * 913124641741) >> 38); }

#if defined(__SIZEOF_INT128__)
__extension__ using Uint128 = unsigned __int128;
std::uint64_t mul_high(std::uint64_t a, std::uint64_t b) noexcept {
  return static_cast<std::uint64_t>((static_cast<Uint128>(a) * b) >> 64);
}
#else
std::uint64_t mul_high(std::uint64_t a, std::uint64_t b) noexcept {
  const std::uint64_t a_lo = a & 0xFFFFFFFFu;
  const std::uint64_t a_hi = a >> 32;
  const std::uint64_t b_lo = b & 0xFFFFFFFFu;
  const std::uint64_t b_hi = b >> 32;
  const std::uint64_t lo_hi = a_lo * b_hi;
  const std::uint64_t hi_lo = a_hi * b_lo;
  const std::uint64_t mid = ((a_lo * b_lo) >> 32) + (lo_hi & 0xFFFFFFFFu) + (hi_lo & 0xFFFFFFFFu);
  return a_hi * b_hi + (lo_hi >> 32) + (hi_lo >> 32) + (mid >> 32);
}
#endif

// cp x g x 2^-127 rounded to odd, where g = g1 x 2^63 + g0.
std::uint64_t round_to_odd(const Pow10Entry& g, std::uint64_t cp) noexcept {
  const std::uint64_t x1 = mul_high(g.g0, cp);
  const std::uint64_t y0 = g.g1 * cp;
  const std::uint64_t y1 = mul_high(g.g1, cp);
  const std::uint64_t z = (y0 >> 1) + x1;
  const std::uint64_t vbp = y1 + (z >> 63);
  return vbp | (((z & kMask63) + kMask63) >> 63);
}

// A decimal f x 10^e.
struct Decimal {
  std::uint64_t f;
  int e;
};

// The shortest decimal that rounds to c x 2^q, for c >= kSmallestSignificand.
Decimal shortest(int q, std::uint64_t c) noexcept {
  const std::uint64_t out = c & 1;  // an odd significand excludes the interval's ends
  const std::uint64_t cb = c << 2;
  const std::uint64_t cbr = cb + 2;
  std::uint64_t cbl = 0;
  int k = 0;
  if (c != kHiddenBit || q == kMinExponent) {
    cbl = cb - 2;
    k = floor_log10_pow2(q);
  } else {  // at a power of two the interval below is half as wide
    cbl = cb - 1;
    k = floor_log10_three_quarters_pow2(q);
  }
  const int h = q + floor_log2_pow10(-k) + 2;
  const Pow10Entry& g = kPow10[k - kPow10MinK];
  const std::uint64_t vb = round_to_odd(g, cb << h);
  const std::uint64_t vbl = round_to_odd(g, cbl << h);
  const std::uint64_t vbr = round_to_odd(g, cbr << h);

  const std::uint64_t s = vb >> 2;
  if (s >= 100) {
    // One digit fewer: s' = floor(s / 10), by a multiplication.
    const std::uint64_t sp10 = 10 * mul_high(s, std::uint64_t{115292150460684698} << 4);
    const std::uint64_t tp10 = sp10 + 10;
    const bool upin = vbl + out <= sp10 << 2;
    const bool wpin = (tp10 << 2) + out <= vbr;
    if (upin != wpin) return {upin ? sp10 : tp10, k};
  }
  const std::uint64_t t = s + 1;
  const bool uin = vbl + out <= s << 2;
  const bool win = (t << 2) + out <= vbr;
  if (uin != win) return {uin ? s : t, k};
  // Both candidates round back: take the nearer, the even one on a tie.
  const auto cmp = static_cast<std::int64_t>(vb - ((s + t) << 1));
  return {cmp < 0 || (cmp == 0 && (s & 1) == 0) ? s : t, k};
}

// The shortest decimal of |v| read from std::to_chars's scientific form.
Decimal shortest_by_to_chars(double v) noexcept {
  char sci[kDoubleTextMax];
  const auto r = std::to_chars(sci, sci + sizeof sci, std::fabs(v), std::chars_format::scientific);
  Decimal d{0, 0};
  const char* p = sci;
  int fraction_digits = -1;  // the leading digit is not a fraction digit
  for (; *p != 'e'; ++p) {
    if (*p == '.') continue;
    d.f = d.f * 10 + static_cast<std::uint64_t>(*p - '0');
    ++fraction_digits;
  }
  int exp10 = 0;
  std::from_chars(p + (p[1] == '+' ? 2 : 1), r.ptr, exp10);
  d.e = exp10 - fraction_digits;
  return d;
}

// The shortest decimal of a finite, non-zero |v|.
Decimal shortest(double v) noexcept {
  const auto bits = std::bit_cast<std::uint64_t>(v);
  const std::uint64_t fraction = bits & (kHiddenBit - 1);
  const auto biased = static_cast<int>((bits >> kSignificandBits) & 0x7FF);
  if (biased == 0) {  // subnormal
    return fraction < kSmallestSignificand ? shortest_by_to_chars(v) : shortest(kMinExponent, fraction);
  }
  const int minus_q = 1075 - biased;
  const std::uint64_t c = kHiddenBit | fraction;
  // Integers below 2^53 are exact and their own shortest digits.
  if (minus_q > 0 && minus_q < kSignificandBits + 1) {
    const std::uint64_t f = c >> minus_q;
    if (f << minus_q == c) return {f, 0};
  }
  return shortest(-minus_q, c);
}

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes the decimal digits of f > 0 so that they end at `end`; returns their start.
char* digits_before(char* end, std::uint64_t f) noexcept {
  while (f >= 100) {
    end -= 2;
    std::memcpy(end, kDigitPairs + (f % 100) * 2, 2);
    f /= 100;
  }
  if (f >= 10) {
    end -= 2;
    std::memcpy(end, kDigitPairs + f * 2, 2);
  } else {
    *--end = static_cast<char>('0' + f);
  }
  return end;
}

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

  const Decimal d = shortest(v);
  char buf[24];
  char* const digits = digits_before(buf + sizeof buf, d.f);
  const auto count = static_cast<int>(buf + sizeof buf - digits);
  const int point = d.e + count;  // value = 0.d1..dn x 10^point
  int n = count;
  while (digits[n - 1] == '0') --n;  // f may end in zeros; the digits do not

  char* o = out;
  if (std::signbit(v)) *o++ = '-';
  if (point < kPlainMinPoint || point > kPlainMaxPoint) {
    const int exp10 = point - 1;
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
