// The text of a double in the compact encoding.
#pragma once

#include <cstddef>

namespace kestrune::mcp_responses::detail {

/// Longest text format_double writes: "-1.2345678901234567e-308". The plain
/// forms are shorter: at most 17 digits, a point and a sign, or "-0.000"
/// and 17 digits.
inline constexpr std::size_t kDoubleTextMax = 24;

/// format_double: writes `v` to `out` and returns the number of bytes. The
/// digits are the shortest that read back to the same double (the nearest
/// such when several are equally short); with the decimal point at p (value
/// = 0.d1..dn x 10^p) the layout is scientific when p <= -4 or p > 16 and
/// plain otherwise, and a plain number always has a fraction ("100.0").
/// NaN, Infinity and -Infinity are written bare.
std::size_t format_double(double v, char* out) noexcept;

}  // namespace kestrune::mcp_responses::detail
