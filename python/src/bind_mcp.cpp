// The MCP messages: the CallToolResult map and the JSON-RPC lines, written
// straight from the Python objects into the str (or bytes) returned.
#include <array>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "bindings.hpp"
#include "encoder.hpp"
#include "kestrune/mcp_responses/mcp.hpp"

namespace kestrune::mcp_responses::python {
namespace {

Piece token(std::string_view t) { return Piece::of_token(t); }

Piece json(const py::handle& v) { return Piece::of_value(v.ptr(), NumberForm::json); }

// The id of a line: an int, a str or a finite float, and None where allowed.
Piece id_piece(const py::handle& id, bool null_allowed, const char* caller) {
  PyObject* p = id.ptr();
  const bool ok = (PyLong_Check(p) && !PyBool_Check(p)) || PyUnicode_Check(p) ||
                  (PyFloat_Check(p) && std::isfinite(PyFloat_AS_DOUBLE(p))) || (null_allowed && p == Py_None);
  if (!ok) {
    throw py::value_error(std::string(caller) + ": the id must be an integer, a string or a finite number" +
                          (null_allowed ? ", or null" : ""));
  }
  return json(id);
}

constexpr std::string_view kLineStart = R"({"jsonrpc":"2.0","id":)";

// jsonrpc_result_line(id, call_tool_result(response, ...)) as pieces: the
// text block holds the response's compact text, escaped as a JSON string.
std::vector<Piece> tool_call_pieces(const py::handle& id, const py::handle& response, bool structured, bool is_error,
                                    const char* caller) {
  std::vector<Piece> pieces = {token(kLineStart), id_piece(id, false, caller),
                               token(R"(,"result":{"content":[{"type":"text","text":")"),
                               Piece::of_quoted_text(response.ptr()), token("\"}]")};
  if (structured && PyDict_Check(response.ptr())) {
    pieces.push_back(token(R"(,"structuredContent":)"));
    pieces.push_back(json(response));
  }
  if (is_error) pieces.push_back(token(R"(,"isError":true)"));
  pieces.push_back(token("}}\n"));
  return pieces;
}

}  // namespace

void bind_mcp(py::module_& m) {
  using py::arg;
  m.attr("JSONRPC_PARSE_ERROR") = JSONRPC_PARSE_ERROR;
  m.attr("JSONRPC_INVALID_REQUEST") = JSONRPC_INVALID_REQUEST;
  m.attr("JSONRPC_METHOD_NOT_FOUND") = JSONRPC_METHOD_NOT_FOUND;
  m.attr("JSONRPC_INVALID_PARAMS") = JSONRPC_INVALID_PARAMS;
  m.attr("JSONRPC_INTERNAL_ERROR") = JSONRPC_INTERNAL_ERROR;
  m.def(
      "call_tool_result",
      [](const py::handle& response, bool structured, bool is_error) {
        py::dict block;
        block["type"] = "text";
        block["text"] = checked(text_of(response.ptr(), "call_tool_result"));
        py::list content;
        content.append(block);
        py::dict result;
        result["content"] = content;
        if (structured && PyDict_Check(response.ptr())) result["structuredContent"] = response;
        if (is_error) result["isError"] = true;
        return result;
      },
      arg("response"), py::kw_only(), arg("structured") = false, arg("is_error") = false,
      "The MCP CallToolResult of `response`: one text block of tool_result_text(response); with structured,\n"
      "the response itself (a dict) as structuredContent; with is_error, isError true.");
  m.def(
      "jsonrpc_result_line",
      [](const py::handle& id, const py::handle& result) {
        const std::array pieces = {token(kLineStart), id_piece(id, false, "jsonrpc_result_line"),
                                   token(R"(,"result":)"), json(result), token("}\n")};
        return checked(str_of(pieces, "jsonrpc_result_line"));
      },
      arg("id"), arg("result"),
      "{\"jsonrpc\":\"2.0\",\"id\":ID,\"result\":RESULT} and a line feed; a non-finite float is written null.");
  m.def(
      "jsonrpc_error_line",
      [](const py::handle& id, const py::handle& code, const py::handle& message) {
        if (!PyLong_Check(code.ptr()) || PyBool_Check(code.ptr()))
          throw py::type_error("jsonrpc_error_line: code must be an int");
        if (!PyUnicode_Check(message.ptr())) throw py::type_error("jsonrpc_error_line: message must be a str");
        const std::array pieces = {token(kLineStart),
                                   id_piece(id, true, "jsonrpc_error_line"),
                                   token(R"(,"error":{"code":)"),
                                   json(code),
                                   token(R"(,"message":)"),
                                   json(message),
                                   token("}}\n")};
        return checked(str_of(pieces, "jsonrpc_error_line"));
      },
      arg("id"), arg("code"), arg("message"),
      "{\"jsonrpc\":\"2.0\",\"id\":ID,\"error\":{\"code\":CODE,\"message\":MESSAGE}} and a line feed; id may be None.");
  m.def(
      "tool_call_line",
      [](const py::handle& id, const py::handle& response, bool structured, bool is_error) {
        return checked(
            str_of(tool_call_pieces(id, response, structured, is_error, "tool_call_line"), "tool_call_line"));
      },
      arg("id"), arg("response"), py::kw_only(), arg("structured") = false, arg("is_error") = false,
      "jsonrpc_result_line(id, call_tool_result(response, ...)), written in one pass from the response.");
  m.def(
      "tool_call_line_bytes",
      [](const py::handle& id, const py::handle& response, bool structured, bool is_error) {
        return checked(bytes_of(tool_call_pieces(id, response, structured, is_error, "tool_call_line_bytes"),
                                "tool_call_line_bytes"));
      },
      arg("id"), arg("response"), py::kw_only(), arg("structured") = false, arg("is_error") = false,
      "tool_call_line(id, response, ...) as UTF-8 bytes, for a server that writes bytes.\n"
      "Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form.");
}

}  // namespace kestrune::mcp_responses::python
