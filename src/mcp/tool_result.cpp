// The MCP CallToolResult of a response: the map, and the JSON-RPC line
// written in one pass. Both are made by result_map, the one description of
// what a result holds; the line writes the response where the map's
// placeholders stand instead of copying it in.
#include <array>
#include <string>
#include <utility>

#include "encoding/text_writer.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "mcp/jsonrpc_line.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

// result_map: the CallToolResult whose text block holds `text` and, when
// the options and `is_dict` say so, whose structured content is `structured`.
ResponseDict result_map(ResponseValue text, ResponseValue structured, bool is_dict, CallToolOptions options) {
  ResponseDict block;
  block.reserve(2);
  detail::append_plain(block, "type", "text");
  detail::append_plain(block, "text", std::move(text));
  ResponseDict result;
  result.reserve(3);
  detail::append_plain(result, "content", ResponseList{ResponseValue(std::move(block))});
  if (options.structured && is_dict) detail::append_plain(result, "structuredContent", std::move(structured));
  if (options.is_error) detail::append_plain(result, "isError", true);
  return result;
}

}  // namespace

ResponseDict call_tool_result(ResponseValue response, CallToolOptions options) {
  std::string text = tool_result_text(response);
  const bool is_dict = response.is_dict();
  return result_map(std::move(text), std::move(response), is_dict, options);
}

void append_tool_call_line(std::string& out, const ResponseValue& id, ResponseRef response, CallToolOptions options) {
  detail::check_id(id, detail::IdRule::request, "tool_call_line");
  const ResponseDict line = detail::envelope(id, "result", result_map("", "", response.is_dict(), options));
  // The placeholders: the text block's text, and the structured content when there is one.
  const ResponseDict& result = line.value_at(2).as_dict();
  const ResponseValue& text = result.value_at(0).as_list()[0].as_dict().value_at(1);
  std::array<detail::Stand, 2> stands = {detail::Stand{&text, response, detail::TextForm::nested},
                                         detail::Stand{nullptr, response, detail::TextForm::json}};
  if (const ResponseValue* structured = result.find("structuredContent")) stands[1].placeholder = structured;
  detail::append_line(out, line, stands);
}

std::string tool_call_line(const ResponseValue& id, ResponseRef response, CallToolOptions options) {
  std::string out;
  append_tool_call_line(out, id, response, options);
  return out;
}

}  // namespace kestrune::mcp_responses
