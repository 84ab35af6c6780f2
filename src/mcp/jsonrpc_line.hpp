// The JSON-RPC response line around a result, shared by the result lines
// and the one-pass tool call line.
#pragma once

#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

/// IdRule: whether the line may carry a null id (only an error line may).
enum class IdRule { request, request_or_null };

/// check_id: throws std::invalid_argument, naming `caller`, unless `id` is
/// an integer, a string, a finite double, or null where `rule` allows it.
void check_id(const ResponseValue& id, IdRule rule, std::string_view caller);

/// append_line_head: `{"jsonrpc":"2.0","id":ID,"result":` (or `"error":`
/// when `member` says so) for a checked id.
void append_line_head(std::string& out, const ResponseValue& id, std::string_view member);

/// kLineEnd: what closes the line after the result or error.
inline constexpr std::string_view kLineEnd = "}\n";

}  // namespace kestrune::mcp_responses::detail
