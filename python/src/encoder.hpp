// The compact text of Python values, written straight from the objects:
// no tree of library values is built first. The rules are the library's
// (tool_result_text); a tuple is written as a list, any Mapping as a map.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kestrune::mcp_responses::python {

/// NumberForm: how a non-finite float is written: bare NaN/Infinity in the
/// compact text, null in a JSON-RPC line (standard JSON).
enum class NumberForm : bool { compact, json };

/// Piece: one part of a message: a token as it is, a value written in a
/// number form, or the compact text of a value as the contents of a JSON
/// string (its quotes and escapes escaped again).
struct Piece {
  enum class Kind : std::uint8_t { token, value, quoted_text };
  Kind kind;
  std::string_view token;
  PyObject* value;
  NumberForm form;

  static Piece of_token(std::string_view t) { return {Kind::token, t, nullptr, NumberForm::compact}; }
  static Piece of_value(PyObject* v, NumberForm f) { return {Kind::value, {}, v, f}; }
  static Piece of_quoted_text(PyObject* v) { return {Kind::quoted_text, {}, v, NumberForm::compact}; }
};

/// str_of/bytes_of: `pieces` one after another as a new str, or as the bytes
/// of its UTF-8 form; nullptr with a Python exception set (TypeError naming
/// where an unwritable value sits; for bytes, EncodingError for a string
/// holding a lone surrogate). `caller` starts the messages.
[[nodiscard]] PyObject* str_of(std::span<const Piece> pieces, std::string_view caller);
[[nodiscard]] PyObject* bytes_of(std::span<const Piece> pieces, std::string_view caller);

/// text_of: the compact text of `value` as a new str (str_of of the value).
[[nodiscard]] PyObject* text_of(PyObject* value, std::string_view caller);

/// append_text: appends the text of `value` in `form` to `out` as UTF-8 (a
/// lone surrogate as its three bytes); false with a Python exception set.
[[nodiscard]] bool append_text(std::string& out, PyObject* value, NumberForm form, std::string_view caller);

/// encoded_size: the bytes of the UTF-8 form of the compact text of `value`,
/// counted without writing it; -1 with a Python exception set. A string
/// holding a lone surrogate has no UTF-8 form: EncodingError, located from
/// `root` ("$", or the path of `value` in a larger response).
[[nodiscard]] Py_ssize_t encoded_size(PyObject* value, std::string_view caller, std::string_view root = "$");

/// str_from_utf8: a new str of UTF-8 `bytes` (lone surrogates allowed), or
/// nullptr with a Python exception set.
[[nodiscard]] PyObject* str_from_utf8(std::string_view bytes);

/// append_escaped_utf8: appends `text` escaped as between the quotes of a
/// JSON string, bytes at or above 0x80 as they are.
void append_escaped_utf8(std::string& out, std::string_view text);

}  // namespace kestrune::mcp_responses::python
