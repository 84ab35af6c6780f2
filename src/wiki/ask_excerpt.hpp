// The excerpt of one section of a wiki ask answer: what it is cut from, and
// each cut of it held as the bytes it keeps and whether an ellipsis follows,
// so that no text is copied until the response is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "internal/chars.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "text/cut.hpp"

namespace kestrune::mcp_responses::detail {

/// Excerpt: trimmed(source, chars) for some chars, as a cut of its source,
/// with its encoded size as a string (kIllFormed when not well-formed).
struct Excerpt {
  Trim cut;
  std::size_t size;
};

/// empty_excerpt: the excerpt "", before any of a source is placed.
[[nodiscard]] Excerpt empty_excerpt() noexcept;

/// ExcerptSource: the text a section's excerpt is cut from, owned: the
/// section's string as it is, the empty string for an empty value, and the
/// compact text of any other value; with what is known of every cut of it.
class ExcerptSource {
 public:
  /// ExcerptSource: the source of the section excerpt `excerpt` (null when
  /// the section has none), which is moved from when it is a string.
  explicit ExcerptSource(ResponseValue* excerpt);

  /// trimmed: trimmed(source, chars).
  [[nodiscard]] Excerpt trimmed(std::int64_t chars) const noexcept;
  /// retrimmed: trimmed(text of `excerpt`, chars), for a trimmed `excerpt` of
  /// this source and 0 <= `chars` below its character count (or an empty
  /// `excerpt`, which stays empty): a shorter cut of a cut keeps fewer of the
  /// source's characters, at the same boundaries.
  [[nodiscard]] Excerpt retrimmed(const Excerpt& excerpt, std::int64_t chars) const noexcept;
  /// chars: the number of characters of the excerpt's text.
  [[nodiscard]] std::size_t chars(const Excerpt& excerpt) const noexcept;
  /// well_formed: whether the whole source is known to be well-formed.
  [[nodiscard]] bool well_formed() const noexcept { return utf8_ == Utf8::well_formed; }

  /// value: the excerpt's text as a new string value.
  [[nodiscard]] ResponseValue value(const Excerpt& excerpt) const;
  /// take: the same, moving the source's own string out when the excerpt is
  /// all of it; the source is spent.
  [[nodiscard]] ResponseValue take(const Excerpt& excerpt);

 private:
  [[nodiscard]] std::string_view text() const noexcept;
  [[nodiscard]] Excerpt measured(const Trim& cut) const noexcept;

  ResponseValue text_;           // a string value
  Utf8 utf8_ = Utf8::unchecked;  // well_formed when the text is known to be
  bool escape_free_ = false;     // whether no character of it needs an escape
};

}  // namespace kestrune::mcp_responses::detail
