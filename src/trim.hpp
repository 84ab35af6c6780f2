// A cut that also tells whether its result is known to be well-formed UTF-8,
// so that callers who measure it can skip checking it again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrune::mcp_responses::detail {

/// kUnknownCount: a character count that trimmed_checked did not work out.
inline constexpr std::size_t kUnknownCount = std::string_view::npos;

/// trimmed_checked: trimmed(text, chars); sets `well_formed` when the result
/// was cut from a stretch of `text` found well-formed (false: unknown), and
/// `count` to the result's number of characters when it was cut (otherwise
/// kUnknownCount). A caller that knows `text` to be well-formed says so with
/// `known_well_formed`, and the characters are then counted without checking.
[[nodiscard]] std::string trimmed_checked(std::string_view text, std::int64_t chars, bool& well_formed,
                                          std::size_t& count, bool known_well_formed = false);
/// trim_in_place: the same, changing `text` itself into the result, which
/// reuses its storage.
void trim_in_place(std::string& text, std::int64_t chars, bool& well_formed, std::size_t& count,
                   bool known_well_formed = false);

}  // namespace kestrune::mcp_responses::detail
