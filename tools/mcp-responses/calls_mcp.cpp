// Calls of the MCP message helpers. A line is answered as a string: the
// line's own text, "\n" included.
#include <string>

#include "calls.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/mcp.hpp"

namespace kestrune::tool {

namespace mr = mcp_responses;

namespace {

// Read last to first, as the other calls of several arguments.
mr::CallToolOptions call_tool_options(Args& a) {
  const bool is_error = a.boolean_or("is_error", false);
  const bool structured = a.boolean_or("structured", false);
  return {.structured = structured, .is_error = is_error};
}

mr::ResponseValue call_tool_result(Args& a) {
  const mr::CallToolOptions options = call_tool_options(a);
  return mr::call_tool_result(a.value("response"), options);
}

mr::ResponseValue jsonrpc_result_line(Args& a) {
  const mr::ResponseValue result = a.value("result");
  return mr::jsonrpc_result_line(a.value("id"), result);
}

mr::ResponseValue jsonrpc_error_line(Args& a) {
  const std::string message = a.string("message");
  const std::int64_t code = a.integer("code");
  return mr::jsonrpc_error_line(a.value("id", false), code, message);
}

mr::ResponseValue tool_call_line(Args& a) {
  const mr::CallToolOptions options = call_tool_options(a);
  const mr::ResponseValue response = a.value("response");
  return mr::tool_call_line(a.value("id"), response, options);
}

mr::ResponseValue fit_paginated_response(Args& a) {
  const std::string items_key = a.string_or("items_key", "items");
  const std::int64_t max_bytes = a.integer("max_bytes");
  if (max_bytes < 0) throw RequestError("argument \"max_bytes\" of fit_paginated_response must be at least 0");
  const std::int64_t offset = a.integer("offset");
  const std::int64_t total_count = a.integer("total_count");
  return mr::fit_paginated_response(a.list("items"), total_count, offset, static_cast<std::size_t>(max_bytes),
                                    {.items_key = items_key});
}

constexpr Call kCalls[] = {
    {"call_tool_result", call_tool_result},
    {"jsonrpc_result_line", jsonrpc_result_line},
    {"jsonrpc_error_line", jsonrpc_error_line},
    {"tool_call_line", tool_call_line},
    {"fit_paginated_response", fit_paginated_response},
};

}  // namespace

std::span<const Call> mcp_calls() { return kCalls; }

}  // namespace kestrune::tool
