// first_sentence, _cut, _trimmed and without_nulls.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "bindings.hpp"
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

void bind_text(py::module_& m) {
  m.attr("SUMMARY_CHARS") = SUMMARY_CHARS;
  m.def(
      "first_sentence", [](const py::handle& docstring) { return summary_of(docstring, "first_sentence: docstring"); },
      py::arg("docstring"),
      "The first sentence of the first paragraph of `docstring`, whitespace collapsed, cut to\n"
      "SUMMARY_CHARS with an ellipsis; None for None, empty or blank text.");
  m.def(
      "_cut",
      [](const py::handle& s, std::int64_t chars) {
        if (chars < 1) throw py::value_error("_cut: chars must be at least 1");
        const Utf8Arg t(s, "_cut: text");
        return text(detail::cut(t.bytes, static_cast<std::size_t>(chars)));
      },
      py::arg("text"), py::arg("chars"),
      "`text` when it has at most `chars` characters, else its first chars - 1, end stripped, and an ellipsis.");
  m.def(
      "_trimmed",
      [](const py::handle& s, std::int64_t chars) {
        if (!PyUnicode_Check(s.ptr())) static_cast<void>(Utf8Arg(s, "_trimmed: text"));  // raises TypeError
        return checked(trimmed_str(s.ptr(), chars));
      },
      py::arg("text"), py::arg("chars"),
      "Like _cut, but breaking at the last space in the second half of the kept text.");
  m.def(
      "without_nulls",
      [](const py::dict& row) {
        py::dict out;
        for (const auto& [k, v] : row) {
          if (!v.is_none()) set(out, k.ptr(), v);
        }
        return out;
      },
      py::arg("row"), "A new dict of `row`'s entries whose value is not None, in their order.");
}

}  // namespace kestrune::mcp_responses::python
