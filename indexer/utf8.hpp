// UTF-8 checks for text read from a work tree, which may hold any bytes.
#pragma once

#include <string>
#include <string_view>

namespace kestrune::indexer {

/// is_utf8: whether `text` is well-formed UTF-8.
[[nodiscard]] bool is_utf8(std::string_view text) noexcept;

/// valid_utf8: `text` with each ill-formed sequence replaced by U+FFFD, one
/// per maximal ill-formed subpart; well-formed text comes back unchanged.
[[nodiscard]] std::string valid_utf8(std::string_view text);

/// declared_encoding: the encoding a file declares in its first two lines
/// ("# -*- coding: latin-1 -*-", as Python's PEP 263 and Emacs write it),
/// if any.
[[nodiscard]] std::string declared_encoding(std::string_view text);

/// Text of a file as UTF-8.
struct DecodedText {
  std::string text{};
  bool well_formed = true;  ///< UTF-8, or decoded from its declared encoding; else ill-formed bytes became U+FFFD
};

/// decoded_text: `bytes` as UTF-8 text: as they are when they are UTF-8,
/// decoded from the encoding they declare (with iconv) when they declare
/// one, else with U+FFFD for each ill-formed sequence.
[[nodiscard]] DecodedText decoded_text(std::string_view bytes);

}  // namespace kestrune::indexer
