// A cut that also tells whether its result is known to be well-formed UTF-8,
// so that callers who measure it can skip checking it again.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrune::mcp_responses::detail {

/// trimmed_checked: trimmed(text, chars); sets `well_formed` when the result
/// was cut from a stretch of `text` found well-formed. False means unknown.
[[nodiscard]] std::string trimmed_checked(std::string_view text, std::int64_t chars, bool& well_formed);

}  // namespace kestrune::mcp_responses::detail
