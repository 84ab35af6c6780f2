// The library's logger, for its own sources.
#pragma once

#include <string_view>

#include "kestrune/mcp_responses/logging.hpp"

namespace kestrune::mcp_responses::detail {

/// log: hands one record of the library's logger to the installed sink, or
/// writes it to standard error when none is installed and `level` is info or
/// above. Safe from any thread.
void log(LogLevel level, std::string_view message);

}  // namespace kestrune::mcp_responses::detail
