// tool_result_text, tool_result_bytes and _encoded_size.
#include <array>

#include "bindings.hpp"
#include "encoder.hpp"
#include "errors.hpp"
#include "fast_call.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {
namespace {

constexpr Params<1> kTextParams{"tool_result_text", {"result"}, 1, 1};
PyObject* tool_result_text(const std::array<PyObject*, 1>& a) { return text_of(a[0], kTextParams.function); }

constexpr Params<1> kBytesParams{"tool_result_bytes", {"result"}, 1, 1};
PyObject* tool_result_bytes(const std::array<PyObject*, 1>& a) {
  const Piece piece = Piece::of_value(a[0], NumberForm::compact);
  return bytes_of({&piece, 1}, kBytesParams.function);
}

constexpr Params<1> kSizeParams{"_encoded_size", {"result"}, 1, 1};
PyObject* encoded_size_of(const std::array<PyObject*, 1>& a) {
  const Py_ssize_t n = encoded_size(a[0], kSizeParams.function);
  return n < 0 ? nullptr : PyLong_FromSsize_t(n);
}

PyMethodDef kMethods[] = {
    method<bound<1, kTextParams, tool_result_text>>(
        "tool_result_text",
        "tool_result_text(result: object) -> str\n\n"
        "The compact MCP text of `result`: JSON without whitespace, keys in insertion order, non-ASCII\n"
        "characters as themselves, floats in their shortest round-trip form, NaN/Infinity bare."),
    method<bound<1, kBytesParams, tool_result_bytes>>(
        "tool_result_bytes",
        "tool_result_bytes(result: object) -> bytes\n\n"
        "tool_result_text(result) as UTF-8 bytes, for a server that writes bytes (sys.stdout.buffer, an HTTP\n"
        "body). Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form."),
    method<bound<1, kSizeParams, encoded_size_of>>(
        "_encoded_size",
        "_encoded_size(result: object) -> int\n\n"
        "The number of bytes of the UTF-8 form of tool_result_text(result), counted without writing it.\n"
        "Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form."),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

void bind_encoding(py::module_& m) {
  py::register_exception_translator(
      [](std::exception_ptr p) {  // NOLINT(performance-unnecessary-value-param): pybind11 fixes the type
        try {
          if (p) std::rethrow_exception(p);
        } catch (const EncodingError& e) {
          set_encoding_error(e.where(), e.byte());
        }
      });
  if (PyModule_AddFunctions(m.ptr(), kMethods) != 0) throw py::error_already_set();
  m.def(
      "quote", [](const py::handle& s) { return text(quote(Utf8Arg(s, "quote: text").bytes)); }, py::arg("text"),
      "`text` in double quotes as an error message shows an argument: whole, with the compact text's\n"
      "escapes (a NUL as \\u0000).");
}

}  // namespace kestrune::mcp_responses::python
