// The library's cuts (cut, and trimmed at a word boundary) made on a str
// where it stands: the rules read over the str's own characters, no UTF-8
// made or decoded.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>

namespace kestrune::mcp_responses::python {

/// trimmed_str: trimmed(`s`, `chars`) as a new reference: `s` itself when
/// it is kept whole, else its kept characters and an ellipsis; nullptr with
/// MemoryError set.
[[nodiscard]] PyObject* trimmed_str(PyObject* s, std::int64_t chars);

/// cut_str: cut(`s`, `chars`), the same way.
[[nodiscard]] PyObject* cut_str(PyObject* s, std::size_t chars);

}  // namespace kestrune::mcp_responses::python
