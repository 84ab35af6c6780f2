// The MCP messages: the CallToolResult map and the JSON-RPC lines, written
// straight from the Python objects.
#include <cmath>
#include <string>
#include <string_view>

#include "bindings.hpp"
#include "encoder.hpp"
#include "kestrune/mcp_responses/mcp.hpp"

namespace kestrune::mcp_responses::python {
namespace {

// The id of a line: an int, a str or a finite float, and None where allowed.
void append_id(std::string& out, const py::handle& id, bool null_allowed, const char* caller) {
  PyObject* p = id.ptr();
  const bool ok = (PyLong_Check(p) && !PyBool_Check(p)) || PyUnicode_Check(p) ||
                  (PyFloat_Check(p) && std::isfinite(PyFloat_AS_DOUBLE(p))) || (null_allowed && p == Py_None);
  if (!ok) {
    throw py::value_error(std::string(caller) + ": the id must be an integer, a string or a finite number" +
                          (null_allowed ? ", or null" : ""));
  }
  out += R"({"jsonrpc":"2.0","id":)";
  if (!append_text(out, p, NumberForm::json, caller)) throw py::error_already_set();
}

void append_value(std::string& out, const py::handle& v, NumberForm form, const char* caller) {
  if (!append_text(out, v.ptr(), form, caller)) throw py::error_already_set();
}

py::object tool_call_line(const py::handle& id, const py::handle& response, bool structured, bool is_error) {
  std::string out;
  append_id(out, id, false, "tool_call_line");
  out += R"(,"result":{"content":[{"type":"text","text":")";
  std::string text;
  append_value(text, response, NumberForm::compact, "tool_call_line");
  append_escaped_utf8(out, text);
  out += "\"}]";
  if (structured && PyDict_Check(response.ptr())) {
    out += R"(,"structuredContent":)";
    append_value(out, response, NumberForm::json, "tool_call_line");
  }
  if (is_error) out += R"(,"isError":true)";
  out += "}}\n";
  return checked(str_from_utf8(out));
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
        std::string out;
        append_id(out, id, false, "jsonrpc_result_line");
        out += R"(,"result":)";
        append_value(out, result, NumberForm::json, "jsonrpc_result_line");
        out += "}\n";
        return checked(str_from_utf8(out));
      },
      arg("id"), arg("result"),
      "{\"jsonrpc\":\"2.0\",\"id\":ID,\"result\":RESULT} and a line feed; a non-finite float is written null.");
  m.def(
      "jsonrpc_error_line",
      [](const py::handle& id, const py::handle& code, const py::handle& message) {
        if (!PyLong_Check(code.ptr()) || PyBool_Check(code.ptr()))
          throw py::type_error("jsonrpc_error_line: code must be an int");
        if (!PyUnicode_Check(message.ptr())) throw py::type_error("jsonrpc_error_line: message must be a str");
        std::string out;
        append_id(out, id, true, "jsonrpc_error_line");
        out += R"(,"error":{"code":)";
        append_value(out, code, NumberForm::json, "jsonrpc_error_line");
        out += R"(,"message":)";
        append_value(out, message, NumberForm::json, "jsonrpc_error_line");
        out += "}}\n";
        return checked(str_from_utf8(out));
      },
      arg("id"), arg("code"), arg("message"),
      "{\"jsonrpc\":\"2.0\",\"id\":ID,\"error\":{\"code\":CODE,\"message\":MESSAGE}} and a line feed; id may be None.");
  m.def("tool_call_line", &tool_call_line, arg("id"), arg("response"), py::kw_only(), arg("structured") = false,
        arg("is_error") = false,
        "jsonrpc_result_line(id, call_tool_result(response, ...)), written in one pass from the response.");
}

}  // namespace kestrune::mcp_responses::python
