// tool_result_text, tool_result_bytes and _encoded_size.
#include "bindings.hpp"
#include "encoder.hpp"
#include "errors.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {

void bind_encoding(py::module_& m) {
  py::register_exception_translator(
      [](std::exception_ptr p) {  // NOLINT(performance-unnecessary-value-param): pybind11 fixes the type
        try {
          if (p) std::rethrow_exception(p);
        } catch (const EncodingError& e) {
          set_encoding_error(e.where(), e.byte());
        }
      });
  m.def(
      "tool_result_text", [](const py::handle& value) { return checked(text_of(value.ptr(), "tool_result_text")); },
      py::arg("result"),
      "The compact MCP text of `result`: JSON without whitespace, keys in insertion order, non-ASCII\n"
      "characters as themselves, floats in their shortest round-trip form, NaN/Infinity bare.");
  m.def(
      "tool_result_bytes",
      [](const py::handle& value) {
        const Piece piece = Piece::of_value(value.ptr(), NumberForm::compact);
        return checked(bytes_of({&piece, 1}, "tool_result_bytes"));
      },
      py::arg("result"),
      "tool_result_text(result) as UTF-8 bytes, for a server that writes bytes (sys.stdout.buffer, an HTTP\n"
      "body). Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form.");
  m.def(
      "_encoded_size",
      [](const py::handle& value) {
        const Py_ssize_t n = encoded_size(value.ptr(), "_encoded_size");
        if (n < 0) throw py::error_already_set();
        return n;
      },
      py::arg("result"),
      "The number of bytes of the UTF-8 form of tool_result_text(result), counted without writing it.\n"
      "Raises EncodingError for a string holding a lone surrogate, which has no UTF-8 form.");
  m.def(
      "quote", [](const py::handle& s) { return text(quote(Utf8Arg(s, "quote: text").bytes)); }, py::arg("text"),
      "`text` in double quotes as an error message shows an argument: whole, with the compact text's\n"
      "escapes (a NUL as \\u0000).");
}

}  // namespace kestrune::mcp_responses::python
