#include "text/cut.hpp"

#include "internal/utf8.hpp"
#include "text/strip.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// Whether `rest` holds at most one character.
bool fits_one_char(std::string_view rest) noexcept { return rest.empty() || char_length(rest, 0) == rest.size(); }

std::string with_ellipsis(std::string_view kept) {
  std::string out;
  out.reserve(kept.size() + kEllipsis.size());
  out.append(kept);
  out.append(kEllipsis);
  return out;
}

}  // namespace

std::string cut(std::string_view text, std::size_t chars) {
  if (chars == 0) chars = 1;
  // Counting stops after `chars` - 1 characters: only whether more than one
  // follows matters.
  const std::string_view head = text.substr(0, char_offset(text, chars - 1).bytes);
  if (fits_one_char(text.substr(head.size()))) return std::string(text);
  return with_ellipsis(strip_end(head));
}

std::string trimmed(std::string_view text, std::int64_t chars) { return trimmed_text(text, plan_trimmed(text, chars)); }

Trim plan_trimmed(std::string_view text, std::int64_t chars, Utf8 known) noexcept {
  const Trim whole{.kept = text.size(), .well_formed = known == Utf8::well_formed};
  const Trim nothing{.chars = 0, .well_formed = true};
  if (chars <= 1) {
    if (chars >= 0 && char_offset(text, static_cast<std::size_t>(chars)).bytes == text.size()) return whole;
    return nothing;
  }
  const auto limit = static_cast<std::size_t>(chars);
  // The first limit - 1 characters; the text is kept whole when at most one
  // character follows them.
  const CharOffset head_end = char_offset(text, limit - 1, known);
  const std::string_view head = text.substr(0, head_end.bytes);
  if (fits_one_char(text.substr(head.size()))) return whole;
  // The last space among those characters. A space byte always starts a
  // character, so a byte search finds it; a space before the middle of the
  // allowed length is not used: cut hard.
  std::string_view prefix = head;
  std::size_t prefix_chars = limit - 1;
  if (const std::size_t space = head.rfind(' '); space != std::string_view::npos) {
    const std::size_t space_chars = limit - 1 - char_count(head.substr(space));
    if (space_chars >= limit / 2) {
      prefix = head.substr(0, space);
      prefix_chars = space_chars;
    }
  }
  // A cut keeps a prefix of the head, which is as well-formed as the head.
  const std::string_view kept = strip_end(prefix);
  return {.kept = kept.size(),
          .ellipsis = true,
          .chars = prefix_chars - char_count(prefix.substr(kept.size())) + 1,
          .well_formed = head_end.well_formed};
}

std::string trimmed_text(std::string_view text, const Trim& trim) {
  const std::string_view kept = text.substr(0, trim.kept);
  return trim.ellipsis ? with_ellipsis(kept) : std::string(kept);
}

}  // namespace kestrune::mcp_responses::detail
