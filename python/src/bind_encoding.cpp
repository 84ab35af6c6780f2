// tool_result_text, tool_result_bytes and _encoded_size.
#include <array>

#include "bindings.hpp"
#include "encoder.hpp"
#include "errors.hpp"
#include "fast_call.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "native_stubs.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {
namespace {

PyObject* tool_result_text(const std::array<PyObject*, 1>& a) {
  return text_of(a[0], stubs::tool_result_text.function);
}

PyObject* tool_result_bytes(const std::array<PyObject*, 1>& a) {
  const Piece piece = Piece::of_value(a[0], NumberForm::compact);
  return bytes_of({&piece, 1}, stubs::tool_result_bytes.function);
}

PyObject* encoded_size_of(const std::array<PyObject*, 1>& a) {
  const Py_ssize_t n = encoded_size(a[0], stubs::_encoded_size.function);
  return n < 0 ? nullptr : PyLong_FromSsize_t(n);
}

PyMethodDef kMethods[] = {
    method<bound<1, stubs::tool_result_text, tool_result_text>>("tool_result_text", stubs::tool_result_text_doc),
    method<bound<1, stubs::tool_result_bytes, tool_result_bytes>>("tool_result_bytes", stubs::tool_result_bytes_doc),
    method<bound<1, stubs::_encoded_size, encoded_size_of>>("_encoded_size", stubs::_encoded_size_doc),
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
  py::options options;  // the stub's doc carries the signature
  options.disable_function_signatures();
  m.def(
      "quote", [](const py::handle& s) { return text(quote(Utf8Arg(s, "quote: text").bytes)); },
      py::arg(stubs::quote.names[0]), stubs::quote_doc);
}

}  // namespace kestrune::mcp_responses::python
