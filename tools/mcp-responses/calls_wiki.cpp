// Calls of the wiki builders.
#include "calls.hpp"
#include "kestrune/mcp_responses/wiki.hpp"

namespace kestrune::tool {

std::span<const Call> wiki_calls() { return {}; }

}  // namespace kestrune::tool
