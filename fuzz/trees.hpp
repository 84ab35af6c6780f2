// Response trees drawn from a fuzz input: every kind, random-bit doubles
// and short decimals, strings and keys from a caller's string maker.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "bytes.hpp"
#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::fuzz {

inline double double_of_bits(std::uint64_t bits) {
  double d = 0;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

/// tree: a value from `in`, no deeper than 40 levels below `depth`;
/// `string(in, max)` makes a string of up to about `max` pieces or bytes.
template <class MakeString>
mcp_responses::ResponseValue tree(Bytes& in, int depth, MakeString&& string) {
  namespace mr = mcp_responses;
  constexpr double kPow10[] = {1, 10, 100, 1e3, 1e4, 1e5, 1e6};
  switch (in.next() % (depth >= 40 ? 6 : 8)) {
    case 0:
      return nullptr;
    case 1:
      return (in.next() & 1) != 0;
    case 2:
      return static_cast<std::int64_t>(in.word() >> (in.next() % 64));
    case 3: {  // any bits, or a power of two or its neighbour
      const std::uint8_t how = in.next();
      if (how % 2 == 0) return double_of_bits(in.word());
      const double p = std::ldexp(1.0, static_cast<int>(in.word() % 2098) - 1074);
      return how % 3 == 0 ? p : std::nextafter(p, how % 3 == 1 ? 0.0 : HUGE_VAL);
    }
    case 4:
      return static_cast<double>(static_cast<std::int64_t>(in.word() >> (in.next() % 64))) / kPow10[in.next() % 7];
    case 5:
      return string(in, 48);
    case 6: {
      mr::ResponseList list;
      for (int n = in.next() % 6; n > 0 && !in.done(); --n) list.push_back(tree(in, depth + 1, string));
      return list;
    }
    default: {
      mr::ResponseDict dict;
      for (int n = in.next() % 6; n > 0 && !in.done(); --n) {
        std::string key = string(in, 12);
        dict.insert_or_assign(key, tree(in, depth + 1, string));
      }
      return dict;
    }
  }
}

}  // namespace kestrune::fuzz
