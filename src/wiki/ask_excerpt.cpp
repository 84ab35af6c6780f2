#include "wiki/ask_excerpt.hpp"

#include <utility>

#include "encoding/encoded_size.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

ExcerptSource::ExcerptSource(ResponseValue* excerpt) {
  if (excerpt == nullptr || is_falsy(*excerpt)) {
    text_ = "";
  } else if (excerpt->is_string()) {
    text_ = std::move(*excerpt);
  } else {
    text_ = tool_result_text(*excerpt);
  }
  const std::size_t overhead = ValueAccess::overhead(text_);
  utf8_ = overhead != kIllFormed ? Utf8::well_formed : Utf8::unchecked;
  escape_free_ = overhead == string_size_or_ill_formed({});
}

std::string_view ExcerptSource::text() const noexcept { return ValueAccess::text(text_); }

// The excerpt that `cut` keeps, measured. The ellipsis needs no escape, so
// it adds its own bytes.
Excerpt ExcerptSource::measured(const Trim& cut) const noexcept {
  const std::string_view kept = text().substr(0, cut.kept);
  const bool well_formed = cut.well_formed || utf8_ == Utf8::well_formed;
  std::size_t size = kIllFormed;
  if (well_formed && escape_free_) {
    size = kept.size() + string_size_or_ill_formed({});
  } else if (well_formed) {
    size = well_formed_string_size(kept);
  } else {
    size = string_size_or_ill_formed(kept);
  }
  if (cut.ellipsis) size = plus(size, kEllipsis.size());
  return {cut, size};
}

Excerpt empty_excerpt() noexcept { return {Trim{.chars = 0, .well_formed = true}, string_size_or_ill_formed({})}; }

Excerpt ExcerptSource::trimmed(std::int64_t chars) const noexcept {
  return measured(plan_trimmed(text(), chars, utf8_));
}

Excerpt ExcerptSource::retrimmed(const Excerpt& excerpt, std::int64_t chars) const noexcept {
  // The cut's first chars - 1 characters are the source's, and more than one
  // character follows them in both, so both are cut at the same place. The
  // new cut lies within the part of the source that a first cut found
  // well-formed, so it is counted without checking.
  const Utf8 known = excerpt.cut.ellipsis && excerpt.cut.well_formed ? Utf8::well_formed : utf8_;
  return measured(plan_trimmed(text(), chars, known));
}

std::size_t ExcerptSource::chars(const Excerpt& excerpt) const noexcept {
  if (excerpt.cut.chars != kUnknownChars) return excerpt.cut.chars;
  const Utf8 known = excerpt.cut.well_formed ? Utf8::well_formed : utf8_;
  return char_count(text().substr(0, excerpt.cut.kept), known) + (excerpt.cut.ellipsis ? 1 : 0);
}

namespace {

// What follows the kept bytes of `excerpt`, and the bytes that its compact
// text adds to the whole.
std::string_view tail_of(const Excerpt& excerpt) noexcept {
  return excerpt.cut.ellipsis ? kEllipsis : std::string_view();
}
std::size_t overhead_of(const Excerpt& excerpt) noexcept {
  return excerpt.size == kIllFormed ? kIllFormed : excerpt.size - excerpt.cut.kept - tail_of(excerpt).size();
}

}  // namespace

ResponseValue ExcerptSource::value(const Excerpt& excerpt) const {
  return ValueAccess::measured_string(text().substr(0, excerpt.cut.kept), tail_of(excerpt), overhead_of(excerpt));
}

ResponseValue ExcerptSource::take(const Excerpt& excerpt) {
  // The source's own string, cut where it stands when it can be.
  if (!excerpt.cut.ellipsis && excerpt.cut.kept == text().size()) return std::move(text_);
  if (ValueAccess::cut_in_place(text_, excerpt.cut.kept, tail_of(excerpt), overhead_of(excerpt))) {
    return std::move(text_);
  }
  return value(excerpt);
}

}  // namespace kestrune::mcp_responses::detail
