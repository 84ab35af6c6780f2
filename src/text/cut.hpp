// Cutting text to a number of characters and marking the cut with an
// ellipsis: hard (cut) or at a word boundary (trimmed).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "internal/chars.hpp"

namespace kestrune::mcp_responses::detail {

/// kEllipsis: the mark of a cut, U+2026, one character.
inline constexpr std::string_view kEllipsis = "\u2026";

/// cut: `text` when it has at most `chars` characters; otherwise its first
/// `chars` - 1 characters, end stripped, then "…". A `chars` of 0 acts as 1.
[[nodiscard]] std::string cut(std::string_view text, std::size_t chars);

/// trimmed: like cut, but breaks at the last space among the first
/// `chars` - 1 characters when that space lies at position `chars` / 2 or
/// later. A `chars` of 1 or less gives the empty text for a longer text.
[[nodiscard]] std::string trimmed(std::string_view text, std::int64_t chars);

/// kUnknownChars: a character count that was not worked out.
inline constexpr std::size_t kUnknownChars = std::string_view::npos;

/// Trim: what trimmed() makes of a text, worked out without copying it: the
/// text's first `kept` bytes, followed by the ellipsis when `ellipsis` is
/// set. A text kept whole has kept == its size and no ellipsis.
struct Trim {
  std::size_t kept = 0;
  bool ellipsis = false;
  std::size_t chars = kUnknownChars;  ///< the result's characters, when the scan found them
  bool well_formed = false;           ///< whether the kept bytes are known to be well-formed
};

/// plan_trimmed: where trimmed(text, chars) cuts `text`. A text known to be
/// well-formed is counted without checking it.
[[nodiscard]] Trim plan_trimmed(std::string_view text, std::int64_t chars, Utf8 known = Utf8::unchecked) noexcept;

/// trimmed_text: the text that `trim` says to make of `text`.
[[nodiscard]] std::string trimmed_text(std::string_view text, const Trim& trim);

}  // namespace kestrune::mcp_responses::detail
