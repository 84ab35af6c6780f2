// The module's EncodingError, raised from native code.
#include "errors.hpp"

#include <string>

#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses::python {

void set_encoding_error(const std::string& where, std::size_t byte) {
  // The exception type lives in the package's Python part, so that it can be
  // caught and subclassed like any other.
  PyObject* errors = PyImport_ImportModule("kestrune_mcp_responses._errors");
  if (errors == nullptr) return;
  PyObject* type = PyObject_GetAttrString(errors, "EncodingError");
  Py_DECREF(errors);
  if (type == nullptr) return;
  const EncodingError e(where, byte);  // the library's own message
  PyObject* exc = PyObject_CallFunction(type, "ssn", e.what(), where.c_str(), static_cast<Py_ssize_t>(byte));
  Py_DECREF(type);
  if (exc == nullptr) return;
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc)), exc);
  Py_DECREF(exc);
}

}  // namespace kestrune::mcp_responses::python
