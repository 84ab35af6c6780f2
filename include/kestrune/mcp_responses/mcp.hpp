// kestrune/mcp_responses/mcp.hpp - the MCP messages that carry a response.
//
// A tool handler's answer to `tools/call` is one JSON-RPC line on stdout:
//
//   ResponseDict page = fit_paginated_response(std::move(rows), total, offset, 10'000, {.items_key = "symbols"});
//   std::cout << tool_call_line(request_id, page);
//   // {"jsonrpc":"2.0","id":7,"result":{"content":[{"type":"text","text":"{\"symbols\":[...],...}"}]}}
//
// The text block holds tool_result_text of the response, escaped as a JSON
// string; the line itself is standard JSON (a NaN outside a string would
// stall the official clients), one object ending in "\n".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses {

/// Options of call_tool_result and tool_call_line.
struct CallToolOptions {
  /// Also send the response as `structuredContent` (a map response only):
  /// for tools that declare an output schema. Off by default, since it
  /// sends the payload twice and clients disagree on which one they show.
  bool structured = false;
  /// Mark the result as a tool failure (`isError`): the model sees the text
  /// as an error message.
  bool is_error = false;
};

/// call_tool_result: the MCP CallToolResult of `response`: `content`, a list
/// of one text block {"type": "text", "text": tool_result_text(response)};
/// then `structuredContent`, the response itself, when `options.structured`
/// is set and the response is a map; then `isError` true when
/// `options.is_error` is set.
[[nodiscard]] ResponseDict call_tool_result(ResponseValue response, CallToolOptions options = {});

/// jsonrpc_result_line: {"jsonrpc":"2.0","id":ID,"result":RESULT} and "\n",
/// where RESULT is the compact text of `result` except that a non-finite
/// double is written `null`, as JSON.stringify writes it. `id` is the
/// request's id as given: an integer, a string or a finite double; anything
/// else throws std::invalid_argument.
[[nodiscard]] std::string jsonrpc_result_line(const ResponseValue& id, ResponseRef result);
void append_jsonrpc_result_line(std::string& out, const ResponseValue& id, ResponseRef result);

/// jsonrpc_error_line: {"jsonrpc":"2.0","id":ID,"error":{"code":CODE,
/// "message":MESSAGE}} and "\n". `id` may also be null, for a request whose
/// id could not be read.
[[nodiscard]] std::string jsonrpc_error_line(const ResponseValue& id, std::int64_t code, std::string_view message);
void append_jsonrpc_error_line(std::string& out, const ResponseValue& id, std::int64_t code, std::string_view message);

/// JSON-RPC error codes for jsonrpc_error_line.
inline constexpr std::int64_t JSONRPC_PARSE_ERROR = -32700;
inline constexpr std::int64_t JSONRPC_INVALID_REQUEST = -32600;
inline constexpr std::int64_t JSONRPC_METHOD_NOT_FOUND = -32601;
inline constexpr std::int64_t JSONRPC_INVALID_PARAMS = -32602;
inline constexpr std::int64_t JSONRPC_INTERNAL_ERROR = -32603;

/// tool_call_line: exactly jsonrpc_result_line(id, call_tool_result(response,
/// options)), written in one pass from the response: the text block is the
/// compact text escaped as it is written, never built on its own.
[[nodiscard]] std::string tool_call_line(const ResponseValue& id, ResponseRef response, CallToolOptions options = {});
void append_tool_call_line(std::string& out, const ResponseValue& id, ResponseRef response,
                           CallToolOptions options = {});

}  // namespace kestrune::mcp_responses
