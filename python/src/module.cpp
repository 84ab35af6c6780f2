// The native part of kestrune_mcp_responses: the response builders, the
// encoder and the MCP messages over Python objects.
#include <string_view>

#include "bindings.hpp"
#include "encoder.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {

py::object field(const py::handle& record, PyObject* name) {
  if (PyDict_Check(record.ptr())) {
    PyObject* v = PyDict_GetItemWithError(record.ptr(), name);
    if (v == nullptr && PyErr_Occurred()) throw py::error_already_set();
    return py::reinterpret_borrow<py::object>(v != nullptr ? v : Py_None);
  }
  return checked(PyObject_GetAttr(record.ptr(), name));
}

Utf8Arg::Utf8Arg(const py::handle& s, std::string_view what) {
  if (!utf8_of(s.ptr(), scratch, bytes, what)) throw py::error_already_set();
}

py::object text(std::string_view utf8) { return checked(str_from_utf8(utf8)); }

}  // namespace kestrune::mcp_responses::python

PYBIND11_MODULE(_native, m) {
  namespace kp = kestrune::mcp_responses::python;
  m.doc() = "Native part of kestrune_mcp_responses; import the package, not this module.";
  kp::bind_encoding(m);
  kp::bind_text(m);
  kp::bind_code_lines(m);
  kp::bind_code_index(m);
  kp::bind_wiki(m);
  kp::bind_mcp(m);
}
