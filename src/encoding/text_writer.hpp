// Writing a response's text in the forms that a tool result and the
// JSON-RPC line around it need.
#pragma once

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
void append_text(std::string& out, const ResponseValue& value, TextForm form);
void append_text(std::string& out, const ResponseDict& value, TextForm form);
void append_text(std::string& out, const ResponseList& value, TextForm form);

}  // namespace kestrune::mcp_responses::detail
