// Writing a response's text in the forms that a tool result and the
// JSON-RPC line around it need.
#pragma once

#include <span>
#include <string>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

/// TextForm: how a response is written.
///  - compact: the MCP text (tool_result_text): NaN and the infinities bare.
///  - json: the compact text, except that a non-finite double is `null`, so
///    that the text is standard JSON (as JSON.stringify writes it).
///  - nested: the compact text escaped as the contents of a JSON string, as
///    it stands in a text block of a JSON-RPC line: each quote of the
///    compact text is `\"` and each backslash `\\`.
enum class TextForm { compact, json, nested };

/// append_text: appends `value` written in `form` to `out`.
void append_text(std::string& out, ResponseRef value, TextForm form);

/// Stand: a string value of a message's map that stands for a response,
/// written in its place in `form` (a nested response between quotes), so
/// that a message's layout is a map and its responses are never copied.
struct Stand {
  const ResponseValue* placeholder;
  ResponseRef response;
  TextForm form;
};

/// append_message: appends `message` written in the json form, each value
/// that `stands` names replaced by its response.
void append_message(std::string& out, const ResponseDict& message, std::span<const Stand> stands);

}  // namespace kestrune::mcp_responses::detail
