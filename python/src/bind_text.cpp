// first_sentence, _cut, _trimmed and without_nulls.
#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "bindings.hpp"
#include "fast_call.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "native_stubs.hpp"
#include "str_cut.hpp"
#include "text/cut.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {
py::object summary_of(const py::handle& docstring, std::string_view caller) {
  if (docstring.is_none()) return py::none();
  const Utf8Arg doc(docstring, caller);
  const std::optional<std::string> sentence = first_sentence(doc.bytes);
  return sentence ? text(*sentence) : py::none();
}

namespace {

PyObject* first_sentence_call(const std::array<PyObject*, 1>& a) {
  return summary_of(a[0], "first_sentence: docstring").release().ptr();
}

PyObject* cut_call(const std::array<PyObject*, 2>& a) {
  const long long chars = int_argument(a[1], "_cut: chars", 0, INT64_MAX);
  if (chars < 1) throw py::value_error("_cut: chars must be at least 1");
  if (!PyUnicode_Check(a[0])) static_cast<void>(Utf8Arg(a[0], "_cut: text"));  // raises TypeError
  return cut_str(a[0], static_cast<std::size_t>(chars));
}

PyObject* trimmed_call(const std::array<PyObject*, 2>& a) {
  const long long chars = int_argument(a[1], "_trimmed: chars", INT64_MIN, INT64_MAX);
  if (!PyUnicode_Check(a[0])) static_cast<void>(Utf8Arg(a[0], "_trimmed: text"));  // raises TypeError
  return trimmed_str(a[0], chars);
}

PyObject* without_nulls_call(const std::array<PyObject*, 1>& a) {
  if (!PyDict_Check(a[0])) {
    throw py::type_error(std::string("without_nulls: row must be a dict, not '") + Py_TYPE(a[0])->tp_name + "'");
  }
  py::dict out = presized(PyDict_GET_SIZE(a[0]));
  Py_ssize_t pos = 0;
  PyObject* k = nullptr;
  PyObject* v = nullptr;
  while (PyDict_Next(a[0], &pos, &k, &v)) {
    if (v != Py_None) set(out, k, v);
  }
  return out.release().ptr();
}

PyMethodDef kMethods[] = {
    method<bound<1, stubs::first_sentence, first_sentence_call>>("first_sentence", stubs::first_sentence_doc),
    method<bound<2, stubs::_cut, cut_call>>("_cut", stubs::_cut_doc),
    method<bound<2, stubs::_trimmed, trimmed_call>>("_trimmed", stubs::_trimmed_doc),
    method<bound<1, stubs::without_nulls, without_nulls_call>>("without_nulls", stubs::without_nulls_doc),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

void bind_text(py::module_& m) {
  m.attr("SUMMARY_CHARS") = SUMMARY_CHARS;
  if (PyModule_AddFunctions(m.ptr(), kMethods) != 0) throw py::error_already_set();
}

}  // namespace kestrune::mcp_responses::python
