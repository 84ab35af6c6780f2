// Checks that the sizes a tree keeps for its strings and keys are those of
// the text it holds now: the tree is rebuilt with every string made anew, and
// both must measure and write alike.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "encoding/encoded_size.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::fresh {

inline ResponseValue rebuilt(const ResponseValue& v) {
  if (v.is_string()) return ResponseValue(std::string(v.as_string()));
  if (v.is_list()) {
    ResponseList l;
    for (const ResponseValue& e : v.as_list()) l.push_back(rebuilt(e));
    return l;
  }
  if (v.is_dict()) {
    ResponseDict d;
    for (const auto& [key, value] : v.as_dict()) d.append(std::string(key), rebuilt(value));
    return d;
  }
  return v;
}

// The encoded size, or npos when the tree holds ill-formed text.
inline std::size_t size_or_npos(const ResponseValue& v) {
  try {
    return detail::encoded_size(v);
  } catch (const EncodingError&) {
    return std::string::npos;
  }
}

/// kept_sizes_hold: whether `v` measures and writes as its rebuilt copy.
inline ::testing::AssertionResult kept_sizes_hold(const ResponseValue& v) {
  const ResponseValue copy = rebuilt(v);
  const std::size_t size = size_or_npos(v);
  if (size != size_or_npos(copy)) return ::testing::AssertionFailure() << "sizes differ";
  const std::string text = tool_result_text(v);
  if (text != tool_result_text(copy)) return ::testing::AssertionFailure() << "texts differ: " << text;
  if (size != std::string::npos && size != text.size()) {
    return ::testing::AssertionFailure() << "size " << size << " of a text of " << text.size() << " bytes";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace kestrune::mcp_responses::fresh
