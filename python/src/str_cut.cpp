// trimmed over a str's characters.
#include "str_cut.hpp"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string_view>

#include "internal/utf8.hpp"
#include "text/cut.hpp"

namespace kestrune::mcp_responses::python {
namespace {

// A str's characters read for detail::plan_trim: positions are characters.
template <class C>
struct Chars {
  const C* s;
  std::size_t n;
  [[nodiscard]] std::size_t size() const noexcept { return n; }
  [[nodiscard]] static bool known_well_formed() noexcept { return true; }
  [[nodiscard]] detail::CharOffset offset(std::size_t k) const noexcept { return {std::min(k, n), true}; }
  [[nodiscard]] bool one_char_from(std::size_t pos) const noexcept { return n - pos <= 1; }
  [[nodiscard]] std::size_t last_space(std::size_t end) const noexcept {
    while (end > 0) {
      if (s[--end] == ' ') return end;
    }
    return std::string_view::npos;
  }
  [[nodiscard]] static std::size_t chars(std::size_t from, std::size_t to) noexcept { return to - from; }
  [[nodiscard]] std::size_t stripped(std::size_t end) const noexcept {
    while (end > 0 && detail::is_whitespace(static_cast<char32_t>(s[end - 1]))) --end;
    return end;
  }
};

constexpr Py_UCS4 kEllipsis = 0x2026;

// The first `kept` characters of `s` and the ellipsis, as a new str: of two
// bytes a character, or four when a kept one needs them.
template <class C>
PyObject* with_ellipsis(const C* s, std::size_t kept) {
  Py_UCS4 widest = kEllipsis;
  if constexpr (sizeof(C) == 4)
    widest = std::accumulate(s, s + kept, widest, [](Py_UCS4 a, Py_UCS4 b) { return std::max(a, b); });
  PyObject* out = PyUnicode_New(static_cast<Py_ssize_t>(kept + 1), widest);
  if (out == nullptr) return nullptr;
  const auto write = [&](auto* to) {
    std::copy(s, s + kept, to);
    to[kept] = static_cast<std::remove_pointer_t<decltype(to)>>(kEllipsis);
  };
  if (PyUnicode_KIND(out) == PyUnicode_2BYTE_KIND) {
    write(PyUnicode_2BYTE_DATA(out));
  } else {
    write(PyUnicode_4BYTE_DATA(out));
  }
  return out;
}

// The str that `trim` of str `str` (its characters `s`, n of them) makes.
template <class C>
PyObject* made(PyObject* str, const C* s, std::size_t n, const detail::Trim& trim) {
  if (!trim.ellipsis && trim.kept == n) return Py_NewRef(str);
  if (!trim.ellipsis) return PyUnicode_Substring(str, 0, static_cast<Py_ssize_t>(trim.kept));
  return with_ellipsis(s, trim.kept);
}

// `plan` (a generic lambda) applied to the characters of `str`, and the str
// its cut makes.
template <class Plan>
PyObject* cut_by(PyObject* str, const Plan& plan) {
  const auto n = static_cast<std::size_t>(PyUnicode_GET_LENGTH(str));
  switch (PyUnicode_KIND(str)) {
    case PyUnicode_1BYTE_KIND:
      return made(str, PyUnicode_1BYTE_DATA(str), n, plan(Chars<Py_UCS1>{PyUnicode_1BYTE_DATA(str), n}));
    case PyUnicode_2BYTE_KIND:
      return made(str, PyUnicode_2BYTE_DATA(str), n, plan(Chars<Py_UCS2>{PyUnicode_2BYTE_DATA(str), n}));
    default:
      return made(str, PyUnicode_4BYTE_DATA(str), n, plan(Chars<Py_UCS4>{PyUnicode_4BYTE_DATA(str), n}));
  }
}

}  // namespace

PyObject* trimmed_str(PyObject* s, std::int64_t chars) {
  return cut_by(s, [chars](const auto& text) { return detail::plan_trim(text, chars); });
}

PyObject* cut_str(PyObject* s, std::size_t chars) {
  return cut_by(s, [chars](const auto& text) { return detail::plan_cut(text, chars); });
}

}  // namespace kestrune::mcp_responses::python
