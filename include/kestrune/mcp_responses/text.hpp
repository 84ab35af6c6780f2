// kestrune/mcp_responses/text.hpp - the text that list rows carry.
//
// A list row shows the first sentence of a docstring and leaves out what is
// unknown:
//
//   first_sentence("Return the sum.  Second sentence.") == "Return the sum."
//   without_nulls({{"a", 1}, {"b", nullptr}}) == ResponseDict{{"a", 1}}
//
// Lengths count code points, never bytes, and no cut splits a character; a
// byte that is not part of well-formed UTF-8 counts as one character and is
// kept as it is. Whitespace is these 29 characters: U+0009..U+000D,
// U+001C..U+0020, U+0085, U+00A0, U+1680, U+2000..U+200A, U+2028, U+2029,
// U+202F, U+205F and U+3000 (not U+200B, U+FEFF or U+180E).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses {

/// Most characters of a docstring summary, its ellipsis included.
inline constexpr std::size_t SUMMARY_CHARS = 160;

/// first_sentence: the first sentence of the first paragraph of `docstring`,
/// whitespace collapsed to single spaces, cut to SUMMARY_CHARS with "…";
/// nullopt when the docstring is null, empty or only whitespace. A sentence
/// ends at whitespace right after ".", "!" or "?"; paragraphs end at two
/// line feeds in a row.
[[nodiscard]] std::optional<std::string> first_sentence(std::optional<std::string_view> docstring);

/// without_nulls: `row` without its null-valued entries, the others in their
/// order. Only null is dropped (false, 0 and "" stay), and nested values are
/// not looked into.
[[nodiscard]] ResponseDict without_nulls(const ResponseDict& row);
[[nodiscard]] ResponseDict without_nulls(ResponseDict&& row);

}  // namespace kestrune::mcp_responses
