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

}  // namespace kestrune::indexer
