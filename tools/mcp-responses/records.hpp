// Storage records given as request objects: keys are attribute names, a
// missing key is null, other keys are ignored.
#pragma once

#include <string_view>

#include "args.hpp"
#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::tool {

[[nodiscard]] mcp_responses::Symbol symbol_arg(Args& args, std::string_view name);
[[nodiscard]] mcp_responses::Reference reference_arg(Args& args, std::string_view name);
[[nodiscard]] mcp_responses::ComponentInfo component_arg(Args& args, std::string_view name);

}  // namespace kestrune::tool
