// kestrune/mcp_responses/encoding.hpp - the compact text of a tool result.
//
// tool_result_text turns a response into the text of an MCP text content
// block: JSON with no whitespace between tokens, keys in insertion order,
// non-ASCII characters written as themselves, doubles in their shortest
// round-trip form, and NaN/Infinity/-Infinity written bare.
//
//   tool_result_text(ResponseDict{{"b", 1}, {"a", ResponseList{1.0, "é\n"}}})
//     == R"({"b":1,"a":[1.0,"é\n"]})"
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses {

/// tool_result_text: the compact MCP text of `result`. Strings are written
/// byte for byte apart from their escapes, so text that is not well-formed
/// UTF-8 passes through unchanged.
[[nodiscard]] std::string tool_result_text(ResponseRef result);

/// append_tool_result_text: appends the MCP text of `result` to `out`.
void append_tool_result_text(std::string& out, ResponseRef result);

/// quote: `text` in double quotes, as a message shows an argument it quotes:
/// whole, with the compact text's escapes (a quote as \", a NUL as \u0000),
/// and each byte that is not part of well-formed UTF-8 as \xNN, so that the
/// message stays one well-formed line however odd the argument.
///
///   "no wiki page " + quote(page_id)  // no wiki page "cart\u0000zzz"
[[nodiscard]] std::string quote(std::string_view text);

/// EncodingError: a response cannot be measured in bytes because a string
/// in it is not well-formed UTF-8 (the wiki ask with a token budget and
/// fit_paginated_response measure). `where()` is the path to the first such
/// string in writing order: `$` for the response, `.key` for a map's value
/// (the key escaped as in the compact text), `[i]` for a list's element, as
/// in "$.sections[1].excerpt"; for a key itself, "key #i of " and the path
/// of its map, as in "key #0 of $.tokens". `byte()` is the offset of the bad
/// sequence in that string.
class EncodingError : public std::runtime_error {
 public:
  EncodingError(std::string where, std::size_t byte);
  [[nodiscard]] const std::string& where() const noexcept { return where_; }
  [[nodiscard]] std::size_t byte() const noexcept { return byte_; }

 private:
  std::string where_;
  std::size_t byte_;
};

}  // namespace kestrune::mcp_responses
