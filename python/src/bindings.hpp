// What the binding files share: the registration of each family, and small
// helpers over the C API for building dicts with interned keys.
#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>

namespace kestrune::mcp_responses::python {

namespace py = pybind11;

void bind_encoding(py::module_& m);
void bind_text(py::module_& m);
void bind_code_lines(py::module_& m);
void bind_code_index(py::module_& m);
void bind_wiki(py::module_& m);
void bind_mcp(py::module_& m);

/// checked: `p` (a new reference) owned, or the pending Python error thrown.
inline py::object checked(PyObject* p) {
  if (p == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(p);
}

/// key: the interned str of a response key or attribute name; made once,
/// never freed (like the names of a type's slots).
inline PyObject* key(const char* name) { return PyUnicode_InternFromString(name); }

/// presized: a new dict with room for `n` keys, so that filling it never
/// grows it.
inline py::dict presized(Py_ssize_t n) {
  PyObject* d = _PyDict_NewPresized(n);
  if (d == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::dict>(d);
}

/// zero, float_zero: the defaults 0 and 0.0; made once, never freed.
inline PyObject* zero() {
  static PyObject* const kZero = PyLong_FromLong(0);
  return kZero;
}
inline PyObject* float_zero() {
  static PyObject* const kZero = PyFloat_FromDouble(0.0);
  return kZero;
}

/// set: dict[k] = v, throwing on failure; `v` borrowed.
inline void set(const py::dict& d, PyObject* k, PyObject* v) {
  if (PyDict_SetItem(d.ptr(), k, v) != 0) throw py::error_already_set();
}
inline void set(const py::dict& d, PyObject* k, const py::handle& v) { set(d, k, v.ptr()); }

/// field: attribute `name` of a storage record: by key for a dict (a missing
/// key reads as None), by attribute for any other object.
py::object field(const py::handle& record, PyObject* name);

/// summary_of: first_sentence of a docstring that is None or a str.
py::object summary_of(const py::handle& docstring, std::string_view caller);

/// Utf8Arg: the UTF-8 bytes of a str argument (see utf8_of); a non-str
/// raises TypeError naming `what`.
struct Utf8Arg {
  Utf8Arg(const py::handle& s, std::string_view what);
  std::string scratch;
  std::string_view bytes;
};

/// text: str of UTF-8 bytes (lone surrogates kept).
py::object text(std::string_view utf8);

}  // namespace kestrune::mcp_responses::python
