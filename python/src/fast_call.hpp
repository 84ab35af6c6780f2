// Functions called the vectorcall way (METH_FASTCALL | METH_KEYWORDS)
// rather than through pybind11's dispatcher, whose overhead is more than a
// small builder's whole work and a quarter of encoding a 1 KB response: the
// arguments matched to the parameters, and C++ exceptions turned into
// Python ones where the call returns.
#pragma once

#include <Python.h>

#include <array>
#include <cstddef>

namespace kestrune::mcp_responses::python {

/// Params: a function's parameters, in order. The first `positional` may be
/// passed by position, the others by keyword only; the first `required`
/// must be given.
template <std::size_t N>
struct Params {
  const char* function;
  std::array<const char*, N> names;
  std::size_t positional;
  std::size_t required;
};

/// bind_arguments: the arguments of one call (`args`, `nargs` positional,
/// then the values of `kwnames`) in parameter order, nullptr where one is
/// not given; false with TypeError set, as Python words it, for a missing,
/// unexpected, repeated or surplus argument. `interned` holds the names as
/// interned str objects, which keywords nearly always are: they are matched
/// by identity first.
[[nodiscard]] bool bind_arguments(const char* function, const char* const* names, PyObject* const* interned,
                                  std::size_t count, std::size_t positional, std::size_t required,
                                  PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames, PyObject** out);

/// interned_names: `names` as interned str objects, made once, never freed.
template <std::size_t N>
std::array<PyObject*, N> interned_names(const std::array<const char*, N>& names) {
  std::array<PyObject*, N> out{};
  for (std::size_t i = 0; i < N; ++i) out[i] = PyUnicode_InternFromString(names[i]);
  return out;
}

/// bound: a body that takes its arguments bound to `params`, as a
/// FastBody.
template <std::size_t N, const Params<N>& params, PyObject* (*Body)(const std::array<PyObject*, N>& args)>
PyObject* bound(PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const std::array<PyObject*, N> kInterned = interned_names(params.names);
  std::array<PyObject*, N> a{};
  if (!bind_arguments(params.function, params.names.data(), kInterned.data(), N, params.positional, params.required,
                      args, nargs, kwnames, a.data())) {
    return nullptr;
  }
  return Body(a);
}

/// given_or: the argument `given`, or `fallback` where it was not given.
inline PyObject* given_or(PyObject* given, PyObject* fallback) noexcept { return given != nullptr ? given : fallback; }

/// int_argument: the int `v`, held within [least, most]; TypeError (thrown as
/// pybind11's) naming `what` for anything but an int.
[[nodiscard]] long long int_argument(PyObject* v, const char* what, long long least, long long most);

/// truth_argument: the truth of `v`, false where it was not given.
[[nodiscard]] bool truth_argument(PyObject* v);

/// set_error_of_current_exception: the Python exception for the C++
/// exception being handled (pybind11's, the library's EncodingError,
/// bad_alloc, any other).
void set_error_of_current_exception() noexcept;

using FastBody = PyObject* (*)(PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);

/// fast: `Body` as a method of the module: nullptr with the Python
/// exception set for any C++ exception that leaves it.
template <FastBody Body>
PyObject* fast(PyObject* /*module*/, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) noexcept {
  try {
    return Body(args, nargs, kwnames);
  } catch (...) {
    set_error_of_current_exception();
    return nullptr;
  }
}

/// method: the PyMethodDef of `Body` named `name`. `doc` begins with the
/// text signature that inspect.signature reads ("name(a, *, b=False)\n--\n\n"),
/// as the stubs give it (native_stubs.hpp).
template <FastBody Body>
constexpr PyMethodDef method(const char* name, const char* doc) {
  return {name, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&fast<Body>)), METH_FASTCALL | METH_KEYWORDS,
          doc};
}

}  // namespace kestrune::mcp_responses::python
