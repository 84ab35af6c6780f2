// The excerpt of one section of a wiki ask answer, held as a cut of the text
// it is cut from: the bytes kept and whether an ellipsis follows them. Cuts
// of cuts are worked out on the source, and no text is copied until the
// response is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "internal/chars.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "text/cut.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

/// ExcerptSource: the text a section's excerpt is cut from (a string as it
/// is, an empty value as "", any other value as its compact text), and what
/// is known of every cut of it.
struct ExcerptSource {
  std::string_view text;
  Utf8 utf8 = Utf8::unchecked;  ///< well_formed when the text is known to be
  bool escape_free = false;     ///< whether no character of it needs an escape
  /// The string value the text is, when it is one, so that an excerpt that is
  /// the whole text reuses it; null otherwise.
  ResponseValue* value = nullptr;
};

/// Excerpt: trimmed(source, chars) for some chars, as a cut of the source.
struct Excerpt {
  ExcerptSource source;
  Trim cut;          ///< of source.text
  std::size_t size;  ///< the encoded size of the excerpt as a string, or kIllFormed
};

/// empty_excerpt: the excerpt "" of `source`, before any of it is placed.
[[nodiscard]] Excerpt empty_excerpt(const ExcerptSource& source) noexcept;

/// trimmed_excerpt: trimmed(source.text, chars).
[[nodiscard]] Excerpt trimmed_excerpt(const ExcerptSource& source, std::int64_t chars) noexcept;

/// retrimmed_excerpt: trimmed(text of `excerpt`, chars). `excerpt` is a
/// trimmed excerpt of its source, and so is the result: a shorter cut of a
/// cut keeps fewer of the source's characters, at the same boundaries.
[[nodiscard]] Excerpt retrimmed_excerpt(const Excerpt& excerpt, std::int64_t chars) noexcept;

/// excerpt_chars: the number of characters of the excerpt's text.
[[nodiscard]] std::size_t excerpt_chars(const Excerpt& excerpt) noexcept;

/// excerpt_value: the excerpt's text as a string value: the source's own
/// value (moved out) when the excerpt is all of it, otherwise a new one.
[[nodiscard]] ResponseValue excerpt_value(Excerpt& excerpt);

}  // namespace kestrune::mcp_responses::detail
