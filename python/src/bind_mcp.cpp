// The MCP messages: the CallToolResult map and the JSON-RPC lines, written
// straight from the Python objects into the str (or bytes) returned.
#include <array>
#include <cmath>
#include <span>
#include <string>
#include <string_view>

#include "bindings.hpp"
#include "encoder.hpp"
#include "fast_call.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "native_stubs.hpp"

namespace kestrune::mcp_responses::python {
namespace {

Piece token(std::string_view t) { return Piece::of_token(t); }

Piece json(PyObject* v) { return Piece::of_value(v, NumberForm::json); }

// The id of a line: an int, a str or a finite float, and None where allowed.
Piece id_piece(PyObject* p, bool null_allowed, const char* caller) {
  const bool ok = (PyLong_Check(p) && !PyBool_Check(p)) || PyUnicode_Check(p) ||
                  (PyFloat_Check(p) && std::isfinite(PyFloat_AS_DOUBLE(p))) || (null_allowed && p == Py_None);
  if (!ok) {
    throw py::value_error(std::string(caller) + ": the id must be an integer, a string or a finite number" +
                          (null_allowed ? ", or null" : ""));
  }
  return Piece::of_value(p, NumberForm::json);
}

constexpr std::string_view kLineStart = R"({"jsonrpc":"2.0","id":)";

// jsonrpc_result_line(id, call_tool_result(response, ...)) as pieces: the
// text block holds the response's compact text, escaped as a JSON string.
struct CallLine {
  std::array<Piece, 9> pieces;
  std::size_t count = 0;

  CallLine(PyObject* id, PyObject* response, bool structured, bool is_error, const char* caller) {
    add(token(kLineStart));
    add(id_piece(id, false, caller));
    add(token(R"(,"result":{"content":[{"type":"text","text":")"));
    add(Piece::of_quoted_text(response));
    add(token("\"}]"));
    if (structured && PyDict_Check(response)) {
      add(token(R"(,"structuredContent":)"));
      add(json(response));
    }
    if (is_error) add(token(R"(,"isError":true)"));
    add(token("}}\n"));
  }
  void add(const Piece& p) { pieces.at(count++) = p; }
  [[nodiscard]] std::span<const Piece> span() const { return {pieces.data(), count}; }
};

PyObject* result_line(const std::array<PyObject*, 2>& a) {
  const std::array pieces = {token(kLineStart), id_piece(a[0], false, stubs::jsonrpc_result_line.function),
                             token(R"(,"result":)"), json(a[1]), token("}\n")};
  return str_of(pieces, stubs::jsonrpc_result_line.function);
}

PyObject* error_line(const std::array<PyObject*, 3>& a) {
  if (!PyLong_Check(a[1]) || PyBool_Check(a[1])) throw py::type_error("jsonrpc_error_line: code must be an int");
  if (!PyUnicode_Check(a[2])) throw py::type_error("jsonrpc_error_line: message must be a str");
  const std::array pieces = {token(kLineStart),
                             id_piece(a[0], true, stubs::jsonrpc_error_line.function),
                             token(R"(,"error":{"code":)"),
                             json(a[1]),
                             token(R"(,"message":)"),
                             json(a[2]),
                             token("}}\n")};
  return str_of(pieces, stubs::jsonrpc_error_line.function);
}

// tool_call_line and tool_call_line_bytes.
template <bool Bytes>
PyObject* call_line(const std::array<PyObject*, 4>& a) {
  const char* function = Bytes ? stubs::tool_call_line_bytes.function : stubs::tool_call_line.function;
  const CallLine line(a[0], a[1], truth_argument(a[2]), truth_argument(a[3]), function);
  return Bytes ? bytes_of(line.span(), function) : str_of(line.span(), function);
}

PyObject* call_tool_result(const std::array<PyObject*, 3>& a) {
  static PyObject* const kType = key("type");
  static PyObject* const kText = key("text");  // the key, and the block's type
  static PyObject* const kContent = key("content");
  static PyObject* const kStructured = key("structuredContent");
  static PyObject* const kIsError = key("isError");
  py::dict block = presized(2);
  set(block, kType, kText);
  set(block, kText, checked(text_of(a[0], stubs::call_tool_result.function)));
  py::list content(1);
  PyList_SET_ITEM(content.ptr(), 0, block.release().ptr());
  py::dict result = presized(3);
  set(result, kContent, content);
  if (truth_argument(a[1]) && PyDict_Check(a[0])) set(result, kStructured, a[0]);
  if (truth_argument(a[2])) set(result, kIsError, Py_True);
  return result.release().ptr();
}

PyMethodDef kMethods[] = {
    method<bound<3, stubs::call_tool_result, call_tool_result>>("call_tool_result", stubs::call_tool_result_doc),
    method<bound<2, stubs::jsonrpc_result_line, result_line>>("jsonrpc_result_line", stubs::jsonrpc_result_line_doc),
    method<bound<3, stubs::jsonrpc_error_line, error_line>>("jsonrpc_error_line", stubs::jsonrpc_error_line_doc),
    method<bound<4, stubs::tool_call_line, call_line<false>>>("tool_call_line", stubs::tool_call_line_doc),
    method<bound<4, stubs::tool_call_line_bytes, call_line<true>>>("tool_call_line_bytes",
                                                                   stubs::tool_call_line_bytes_doc),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

void bind_mcp(py::module_& m) {
  m.attr("JSONRPC_PARSE_ERROR") = JSONRPC_PARSE_ERROR;
  m.attr("JSONRPC_INVALID_REQUEST") = JSONRPC_INVALID_REQUEST;
  m.attr("JSONRPC_METHOD_NOT_FOUND") = JSONRPC_METHOD_NOT_FOUND;
  m.attr("JSONRPC_INVALID_PARAMS") = JSONRPC_INVALID_PARAMS;
  m.attr("JSONRPC_INTERNAL_ERROR") = JSONRPC_INTERNAL_ERROR;
  if (PyModule_AddFunctions(m.ptr(), kMethods) != 0) throw py::error_already_set();
}

}  // namespace kestrune::mcp_responses::python
