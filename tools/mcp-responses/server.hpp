// Serving request lines: one JSON request in, one answer line out.
#pragma once

#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>

namespace kestrune::tool {

/// Longest request line that is read; a longer one is answered with an error.
inline constexpr std::size_t kMaxLineBytes = std::size_t{16} << 20;

/// Answer: the answer line (without its line break) and whether it succeeded.
struct Answer {
  std::string text;
  bool ok;
};

/// answer_request: the answer to one request line. Never throws: every
/// failure becomes {"error":"..."}.
[[nodiscard]] Answer answer_request(std::string_view line);

/// serve: answers every non-blank line of `in` on `out`, one line each.
/// Returns whether every request succeeded.
bool serve(std::istream& in, std::ostream& out);

}  // namespace kestrune::tool
