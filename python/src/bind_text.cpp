// first_sentence, _cut, _trimmed and without_nulls.
#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "bindings.hpp"
#include "fast_call.hpp"
#include "kestrune/mcp_responses/text.hpp"
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

constexpr Params<1> kFirstSentence{"first_sentence", {"docstring"}, 1, 1};
PyObject* first_sentence_call(const std::array<PyObject*, 1>& a) {
  return summary_of(a[0], "first_sentence: docstring").release().ptr();
}

constexpr Params<2> kCut{"_cut", {"text", "chars"}, 2, 2};
PyObject* cut_call(const std::array<PyObject*, 2>& a) {
  const long long chars = int_argument(a[1], "_cut: chars", 0, INT64_MAX);
  if (chars < 1) throw py::value_error("_cut: chars must be at least 1");
  if (!PyUnicode_Check(a[0])) static_cast<void>(Utf8Arg(a[0], "_cut: text"));  // raises TypeError
  return cut_str(a[0], static_cast<std::size_t>(chars));
}

constexpr Params<2> kTrimmed{"_trimmed", {"text", "chars"}, 2, 2};
PyObject* trimmed_call(const std::array<PyObject*, 2>& a) {
  const long long chars = int_argument(a[1], "_trimmed: chars", INT64_MIN, INT64_MAX);
  if (!PyUnicode_Check(a[0])) static_cast<void>(Utf8Arg(a[0], "_trimmed: text"));  // raises TypeError
  return trimmed_str(a[0], chars);
}

constexpr Params<1> kWithoutNulls{"without_nulls", {"row"}, 1, 1};
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
    method<bound<1, kFirstSentence, first_sentence_call>>(
        "first_sentence",
        "first_sentence(docstring: str | None) -> str | None\n\n"
        "The first sentence of the first paragraph of `docstring`, whitespace collapsed, cut to\n"
        "SUMMARY_CHARS with an ellipsis; None for None, empty or blank text."),
    method<bound<2, kCut, cut_call>>(
        "_cut",
        "_cut(text: str, chars: int) -> str\n\n"
        "`text` when it has at most `chars` characters, else its first chars - 1, end stripped, and an ellipsis."),
    method<bound<2, kTrimmed, trimmed_call>>(
        "_trimmed",
        "_trimmed(text: str, chars: int) -> str\n\n"
        "Like _cut, but breaking at the last space in the second half of the kept text."),
    method<bound<1, kWithoutNulls, without_nulls_call>>(
        "without_nulls",
        "without_nulls(row: dict) -> dict\n\n"
        "A new dict of `row`'s entries whose value is not None, in their order."),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

void bind_text(py::module_& m) {
  m.attr("SUMMARY_CHARS") = SUMMARY_CHARS;
  if (PyModule_AddFunctions(m.ptr(), kMethods) != 0) throw py::error_already_set();
}

}  // namespace kestrune::mcp_responses::python
