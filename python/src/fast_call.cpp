// Matching the arguments of a vectorcall to parameters, and the Python
// exceptions of C++ ones.
#include "fast_call.hpp"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <exception>
#include <new>
#include <string>

#include "errors.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses::python {

bool bind_arguments(const char* function, const char* const* names, PyObject* const* interned, std::size_t count,
                    std::size_t positional, std::size_t required, PyObject* const* args, Py_ssize_t nargs,
                    PyObject* kwnames, PyObject** out) {
  const auto given = static_cast<std::size_t>(nargs);
  if (kwnames == nullptr && given == count && given <= positional) {
    std::copy(args, args + count, out);  // the common call: every argument by position
    return true;
  }
  if (given > positional) {
    PyErr_Format(PyExc_TypeError, "%s() takes at most %zu positional arguments (%zd given)", function, positional,
                 nargs);
    return false;
  }
  for (std::size_t i = 0; i < count; ++i) out[i] = i < given ? args[i] : nullptr;
  const Py_ssize_t keywords = kwnames == nullptr ? 0 : PyTuple_GET_SIZE(kwnames);
  for (Py_ssize_t k = 0; k < keywords; ++k) {
    PyObject* keyword = PyTuple_GET_ITEM(kwnames, k);
    std::size_t i = 0;
    while (i < count && interned[i] != keyword) ++i;
    if (i == count) {
      i = 0;
      while (i < count && PyUnicode_CompareWithASCIIString(keyword, names[i]) != 0) ++i;
    }
    if (i == count) {
      PyErr_Format(PyExc_TypeError, "%s() got an unexpected keyword argument '%U'", function, keyword);
      return false;
    }
    if (out[i] != nullptr) {
      PyErr_Format(PyExc_TypeError, "%s() got multiple values for argument '%s'", function, names[i]);
      return false;
    }
    out[i] = args[nargs + k];
  }
  for (std::size_t i = 0; i < required; ++i) {
    if (out[i] == nullptr) {
      PyErr_Format(PyExc_TypeError, "%s() missing required argument '%s'", function, names[i]);
      return false;
    }
  }
  return true;
}

long long int_argument(PyObject* v, const char* what, long long least, long long most) {
  if (!PyLong_Check(v)) {
    throw pybind11::type_error(std::string(what) + " must be an int, not '" + Py_TYPE(v)->tp_name + "'");
  }
  int overflow = 0;
  const long long n = PyLong_AsLongLongAndOverflow(v, &overflow);
  if (n == -1 && PyErr_Occurred() != nullptr) throw pybind11::error_already_set();
  if (overflow != 0) return overflow > 0 ? most : least;
  return std::clamp(n, least, most);
}

bool truth_argument(PyObject* v) {
  if (v == nullptr) return false;
  const int t = PyObject_IsTrue(v);
  if (t < 0) throw pybind11::error_already_set();
  return t == 1;
}

void set_error_of_current_exception() noexcept {
  try {
    throw;
  } catch (pybind11::error_already_set& e) {
    e.restore();
  } catch (const pybind11::builtin_exception& e) {
    e.set_error();
  } catch (const EncodingError& e) {
    set_encoding_error(e.where(), e.byte());
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
  } catch (...) {
    PyErr_SetString(PyExc_RuntimeError, "unknown C++ exception");
  }
}

}  // namespace kestrune::mcp_responses::python
