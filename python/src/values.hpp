// Crossing between Python objects and the library's values and text.
#pragma once

#include <Python.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::python {

/// utf8_of: the UTF-8 bytes of str `s` (a lone surrogate as its three
/// bytes, as the library keeps text that is not well-formed), viewed in `s`
/// itself or in `scratch`. Raises TypeError (returns false) for a non-str,
/// naming `what`.
[[nodiscard]] bool utf8_of(PyObject* s, std::string& scratch, std::string_view& out, std::string_view what);

/// Where: the place of a value among a call's arguments, as an error names
/// it ("$.sections[2].citations[0].path"): a root, or a parent and a key or
/// an index, made into text only when an error needs it. A Where refers to
/// its parent and key, which outlive it.
class Where {
 public:
  explicit Where(std::string_view root) noexcept : text_(root) {}
  Where(const Where& parent, std::string_view key) noexcept : parent_(&parent), text_(key) {}
  Where(const Where& parent, std::size_t index) noexcept : parent_(&parent), index_(index), indexed_(true) {}

  [[nodiscard]] std::string str() const;

 private:
  const Where* parent_ = nullptr;
  std::string_view text_;  // the root, or the key
  std::size_t index_ = 0;
  bool indexed_ = false;
};

/// BigIntegers: what a conversion makes of an int beyond 64 bits. The
/// library's values stop at 64 bits; where a value is only measured and the
/// caller's object is what the response holds, a string of the same encoded
/// size stands in for it.
enum class BigIntegers : bool { raise, stand_in };

/// to_value: `v` as a library value, or false with a Python exception set
/// naming `where`.
[[nodiscard]] bool to_value(PyObject* v, ResponseValue& out, BigIntegers big, const Where& where);

/// from_value: a new Python object for `v`; lists and maps made read-only
/// (tuples and mappingproxies) when `frozen`.
[[nodiscard]] PyObject* from_value(const ResponseValue& v, bool frozen = false);
[[nodiscard]] PyObject* from_dict(const ResponseDict& d, bool frozen = false);

/// is_mapping: whether `v` is a map, the one rule of every function: a dict,
/// or an instance of collections.abc.Mapping (a mappingproxy, a custom
/// Mapping). Nothing is imported: the ABCs' module is loaded at startup.
[[nodiscard]] bool is_mapping(PyObject* v) noexcept;

}  // namespace kestrune::mcp_responses::python
