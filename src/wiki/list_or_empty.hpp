// The list rule of the wiki responses: a null or empty list becomes a new
// empty list; a filled one is moved in as it is.
#pragma once

#include <optional>
#include <utility>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

[[nodiscard]] inline ResponseList list_or_empty(std::optional<ResponseList>& list) {
  if (!list || list->empty()) return {};
  return std::move(*list);
}

}  // namespace kestrune::mcp_responses::detail
