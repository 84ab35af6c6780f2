// The MCP CallToolResult of a response, as a map and as a JSON-RPC line
// written in one pass.
#include <string>
#include <string_view>
#include <type_traits>

#include "encoding/text_writer.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "mcp/jsonrpc_line.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

// The line's text around the response: from the result's opening brace to
// the text block's string, and from its end to the result's other members.
constexpr std::string_view kTextOpen = R"({"content":[{"type":"text","text":")";
constexpr std::string_view kTextClose = R"("}])";
constexpr std::string_view kStructured = R"(,"structuredContent":)";
constexpr std::string_view kIsError = R"(,"isError":true)";
constexpr std::string_view kResultClose = "}";

// The text block is written straight from the response, escaped as it is
// written. Each part makes room for itself: without structured content the
// text's room leaves enough for the line's end.
template <class Response>
void append_line(std::string& out, const ResponseValue& id, const Response& response, CallToolOptions options) {
  detail::check_id(id, detail::IdRule::request, "tool_call_line");
  bool structured = options.structured;
  if constexpr (!std::is_same_v<Response, ResponseDict>) structured = structured && response.is_dict();
  detail::append_line_head(out, id, "result");
  out += kTextOpen;
  detail::append_text(out, response, detail::TextForm::nested);
  out += kTextClose;
  if (structured) {
    out += kStructured;
    detail::append_text(out, response, detail::TextForm::json);
  }
  if (options.is_error) out += kIsError;
  out += kResultClose;
  out += detail::kLineEnd;
}

}  // namespace

ResponseDict call_tool_result(ResponseValue response, CallToolOptions options) {
  ResponseDict block;
  detail::append_plain(block, "type", "text");
  detail::append_plain(block, "text", tool_result_text(response));
  ResponseDict result;
  detail::append_plain(result, "content", ResponseList{ResponseValue(std::move(block))});
  if (options.structured && response.is_dict()) detail::append_plain(result, "structuredContent", std::move(response));
  if (options.is_error) detail::append_plain(result, "isError", true);
  return result;
}

void append_tool_call_line(std::string& out, const ResponseValue& id, const ResponseValue& response,
                           CallToolOptions options) {
  append_line(out, id, response, options);
}

void append_tool_call_line(std::string& out, const ResponseValue& id, const ResponseDict& response,
                           CallToolOptions options) {
  append_line(out, id, response, options);
}

std::string tool_call_line(const ResponseValue& id, const ResponseValue& response, CallToolOptions options) {
  std::string out;
  append_line(out, id, response, options);
  return out;
}

std::string tool_call_line(const ResponseValue& id, const ResponseDict& response, CallToolOptions options) {
  std::string out;
  append_line(out, id, response, options);
  return out;
}

}  // namespace kestrune::mcp_responses
