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

/// plan_trim: where trimmed() cuts a text of `chars` characters at most, read
/// through `text`, which gives positions in it (bytes of UTF-8, or the code
/// points of a text held as such) and answers:
///   size(): the end position;
///   known_well_formed(): whether the text is known to be well-formed;
///   offset(n): the CharOffset where its first n characters end;
///   one_char_from(pos): whether at most one character follows `pos`;
///   last_space(end): the position of the last space before `end`, or npos;
///   chars(from, to): the characters between two positions;
///   stripped(end): `end` moved back over the whitespace before it.
/// Trim::kept is then a position of `text`.
template <class Text>
[[nodiscard]] Trim plan_trim(const Text& text, std::int64_t chars) noexcept {
  const Trim whole{.kept = text.size(), .well_formed = text.known_well_formed()};
  const Trim nothing{.chars = 0, .well_formed = true};
  if (chars <= 1) {
    if (chars >= 0 && text.offset(static_cast<std::size_t>(chars)).bytes == text.size()) return whole;
    return nothing;
  }
  const auto limit = static_cast<std::size_t>(chars);
  // The first limit - 1 characters; the text is kept whole when at most one
  // character follows them.
  const CharOffset head_end = text.offset(limit - 1);
  if (text.one_char_from(head_end.bytes)) return whole;
  // The last space among those characters; a space before the middle of the
  // allowed length is not used: cut hard.
  std::size_t prefix = head_end.bytes;
  std::size_t prefix_chars = limit - 1;
  if (const std::size_t space = text.last_space(head_end.bytes); space != std::string_view::npos) {
    const std::size_t space_chars = limit - 1 - text.chars(space, head_end.bytes);
    if (space_chars >= limit / 2) {
      prefix = space;
      prefix_chars = space_chars;
    }
  }
  // A cut keeps a prefix of the head, which is as well-formed as the head.
  const std::size_t kept = text.stripped(prefix);
  return {.kept = kept,
          .ellipsis = true,
          .chars = prefix_chars - text.chars(kept, prefix) + 1,
          .well_formed = head_end.well_formed};
}

/// plan_cut: where cut() cuts a text of `chars` characters at most, read
/// through `text` as for plan_trim. Trim::chars is left unknown.
template <class Text>
[[nodiscard]] Trim plan_cut(const Text& text, std::size_t chars) noexcept {
  if (chars == 0) chars = 1;
  // Counting stops after chars - 1 characters: only whether more than one
  // follows matters.
  const CharOffset head_end = text.offset(chars - 1);
  if (text.one_char_from(head_end.bytes)) return {.kept = text.size(), .well_formed = text.known_well_formed()};
  return {.kept = text.stripped(head_end.bytes), .ellipsis = true, .well_formed = head_end.well_formed};
}

/// plan_trimmed: where trimmed(text, chars) cuts UTF-8 `text`. A text known
/// to be well-formed is counted without checking it.
[[nodiscard]] Trim plan_trimmed(std::string_view text, std::int64_t chars, Utf8 known = Utf8::unchecked) noexcept;

/// trimmed_text: the text that `trim` says to make of `text`.
[[nodiscard]] std::string trimmed_text(std::string_view text, const Trim& trim);

}  // namespace kestrune::mcp_responses::detail
