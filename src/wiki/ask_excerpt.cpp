#include "wiki/ask_excerpt.hpp"

#include <utility>

#include "encoding/encoded_size.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// The excerpt of `source` that `cut` keeps, measured. The ellipsis needs no
// escape, so it adds its own bytes.
Excerpt measured(const ExcerptSource& source, const Trim& cut) noexcept {
  const std::string_view kept = source.text.substr(0, cut.kept);
  const bool well_formed = cut.well_formed || source.utf8 == Utf8::well_formed;
  std::size_t size = kIllFormed;
  if (well_formed && source.escape_free) {
    size = kept.size() + string_size_or_ill_formed({});
  } else if (well_formed) {
    size = well_formed_string_size(kept);
  } else {
    size = string_size_or_ill_formed(kept);
  }
  if (cut.ellipsis) size = plus(size, kEllipsis.size());
  return {source, cut, size};
}

}  // namespace

Excerpt empty_excerpt(const ExcerptSource& source) noexcept {
  return {source, Trim{.chars = 0, .well_formed = true}, string_size_or_ill_formed({})};
}

Excerpt trimmed_excerpt(const ExcerptSource& source, std::int64_t chars) noexcept {
  return measured(source, plan_trimmed(source.text, chars, source.utf8));
}

Excerpt retrimmed_excerpt(const Excerpt& excerpt, std::int64_t chars) noexcept {
  // Within its length the excerpt is returned as it is. Below it, the cut's
  // first chars - 1 characters are the source's, and more than one character
  // follows them in both, so both are cut at the same place.
  if (chars >= 0 && static_cast<std::size_t>(chars) >= excerpt_chars(excerpt)) return excerpt;
  // The new cut lies within the part of the source that a first cut found
  // well-formed, so it is counted without checking.
  ExcerptSource source = excerpt.source;
  if (excerpt.cut.ellipsis && excerpt.cut.well_formed) source.utf8 = Utf8::well_formed;
  return trimmed_excerpt(source, chars);
}

std::size_t excerpt_chars(const Excerpt& excerpt) noexcept {
  if (excerpt.cut.chars != kUnknownChars) return excerpt.cut.chars;
  const Utf8 known = excerpt.cut.well_formed ? Utf8::well_formed : excerpt.source.utf8;
  return char_count(excerpt.source.text.substr(0, excerpt.cut.kept), known) + (excerpt.cut.ellipsis ? 1 : 0);
}

ResponseValue excerpt_value(Excerpt& excerpt) {
  const std::string_view kept = excerpt.source.text.substr(0, excerpt.cut.kept);
  if (!excerpt.cut.ellipsis && kept.size() == excerpt.source.text.size() && excerpt.source.value != nullptr) {
    return std::move(*excerpt.source.value);
  }
  const std::size_t overhead = excerpt.size == kIllFormed
                                   ? kIllFormed
                                   : excerpt.size - kept.size() - (excerpt.cut.ellipsis ? kEllipsis.size() : 0);
  return ValueAccess::measured_string(kept, excerpt.cut.ellipsis ? kEllipsis : std::string_view(), overhead);
}

}  // namespace kestrune::mcp_responses::detail
