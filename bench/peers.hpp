// The peer encoders' own trees, converted from ResponseValue trees before any
// timing, so that each encoder is timed on its native representation.
#pragma once

#include <rapidjson/document.h>
#include <nlohmann/json.hpp>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::bench {

/// to_rapidjson: a document holding the same tree, members in map order.
[[nodiscard]] rapidjson::Document to_rapidjson(const mcp_responses::ResponseValue& value);

/// to_nlohmann: the same tree as an ordered_json, members in map order.
[[nodiscard]] nlohmann::ordered_json to_nlohmann(const mcp_responses::ResponseValue& value);

}  // namespace kestrune::bench
