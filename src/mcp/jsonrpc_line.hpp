// The JSON-RPC response line around a result or an error, shared by the
// result and error lines and the one-pass tool call line.
#pragma once

#include <span>
#include <string>

#include "encoding/text_writer.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

/// IdRule: whether the line may carry a null id (only an error line may).
enum class IdRule { request, request_or_null };

/// check_id: throws std::invalid_argument, naming `caller`, unless `id` is
/// an integer, a string, a finite double, or null where `rule` allows it.
void check_id(const ResponseValue& id, IdRule rule, std::string_view caller);

/// envelope: the line's map, {"jsonrpc": "2.0", "id": id, member: value}.
[[nodiscard]] ResponseDict envelope(const ResponseValue& id, PlainKey member, ResponseValue value);

/// append_line: appends `envelope` as one line, each value that `stands`
/// names written as its response.
void append_line(std::string& out, const ResponseDict& envelope, std::span<const Stand> stands = {});

}  // namespace kestrune::mcp_responses::detail
