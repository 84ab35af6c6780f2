// The compact text of Python values. One walk over the objects, written for
// three sinks: the characters of a new str, the UTF-8 bytes of a new bytes
// object, and a count of bytes and characters (_encoded_size, and the count
// that comes first when a large str widens late).
#include "encoder.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "count_sink.hpp"
#include "encoding/double_text.hpp"
#include "errors.hpp"
#include "str_sink.hpp"
#include "utf8_sink.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {
namespace {

// Why a walk stopped, and where: the path is collected from the failing value
// outwards as the walk unwinds.
struct Failure {
  enum class Kind : std::uint8_t { none, type, key_type, ill_formed, ill_formed_key, python };
  Kind kind = Kind::none;
  std::string type_name;
  std::size_t byte = 0;
  std::vector<std::string> outward;  // path segments, innermost first
};

// The value of an int that fits 64 bits (overflow 0), read from the object
// itself when it has at most one digit, as nearly all ints in responses do.
long long small_integer(PyObject* v, int& overflow) {
  overflow = 0;
#if PY_VERSION_HEX < 0x030C0000
  if (Py_TYPE(v) == &PyLong_Type) {
    const Py_ssize_t size = Py_SIZE(v);
    const auto* digits = reinterpret_cast<const PyLongObject*>(v)->ob_digit;
    if (size == 0) return 0;
    if (size == 1) return static_cast<long long>(digits[0]);
    if (size == -1) return -static_cast<long long>(digits[0]);
  }
#else
  if (Py_TYPE(v) == &PyLong_Type && PyUnstable_Long_IsCompact(reinterpret_cast<PyLongObject*>(v))) {
    return static_cast<long long>(PyUnstable_Long_CompactValue(reinterpret_cast<PyLongObject*>(v)));
  }
#endif
  return PyLong_AsLongLongAndOverflow(v, &overflow);
}

struct DecRef {
  void operator()(PyObject* p) const noexcept { Py_DECREF(p); }
};
using Owned = std::unique_ptr<PyObject, DecRef>;

// One level deeper in the walk, counted against Python's recursion limit
// (so that a value nested too deep raises RecursionError) and left again
// however the level ends, a sink's exception included.
class Deeper {
 public:
  Deeper() : entered_(Py_EnterRecursiveCall(" while writing a response") == 0) {}
  Deeper(const Deeper&) = delete;
  Deeper& operator=(const Deeper&) = delete;
  ~Deeper() {
    if (entered_) Py_LeaveRecursiveCall();
  }
  [[nodiscard]] bool entered() const noexcept { return entered_; }

 private:
  bool entered_;
};

template <class Sink>
class Walker {
 public:
  Walker(Sink& sink, NumberForm form, Failure& failure) : sink_(sink), form_(form), failure_(failure) {}

  bool value(PyObject* v) {
    // The exact types first: one compare each, before the subclass checks.
    const PyTypeObject* type = Py_TYPE(v);
    if (type == &PyUnicode_Type) return string(v);
    if (type == &PyLong_Type) return integer(v);
    if (type == &PyDict_Type) return dict(v);
    if (type == &PyFloat_Type) return floating(PyFloat_AS_DOUBLE(v));
    if (type == &PyList_Type) return list(v);
    if (PyUnicode_Check(v)) return string(v);
    if (v == Py_None) return put("null");
    if (v == Py_True) return put("true");
    if (v == Py_False) return put("false");
    if (PyLong_Check(v)) return integer(v);
    if (PyFloat_Check(v)) return floating(PyFloat_AS_DOUBLE(v));
    if (PyDict_Check(v)) return dict(v);
    if (PyList_Check(v) || PyTuple_Check(v)) return list(v);
    if (is_mapping(v)) return mapping(v);
    return fail_type(v, Failure::Kind::type);
  }

 private:
  bool put(std::string_view s) {
    sink_.put(s);
    return true;
  }

  bool string(PyObject* s) {
    if constexpr (Sink::kWrites) {
      if (PyUnicode_IS_ASCII(s)) {
        sink_.quoted_ascii(static_cast<const char*>(PyUnicode_DATA(s)),
                           static_cast<std::size_t>(PyUnicode_GET_LENGTH(s)));
        return true;
      }
    }
    sink_.quote();
    const bool ok = string_content(s);
    sink_.quote();
    if (!ok) failure_.kind = Failure::Kind::ill_formed;
    return ok;
  }

  bool string_content(PyObject* s) {
    const auto n = static_cast<std::size_t>(PyUnicode_GET_LENGTH(s));
    const void* data = PyUnicode_DATA(s);
    if (PyUnicode_IS_ASCII(s)) {
      sink_.ascii_text(static_cast<const char*>(data), n);
      return true;
    }
    if constexpr (Sink::kReadsUtf8) {
      // The UTF-8 form a str keeps once something asked for it (which only a
      // str of scalar values has).
      if (PyUnicode_IS_COMPACT(s)) {
        const auto* compact = reinterpret_cast<const PyCompactUnicodeObject*>(s);
        if (compact->utf8 != nullptr) {
          sink_.utf8_text(compact->utf8, static_cast<std::size_t>(compact->utf8_length), n,
                          static_cast<int>(PyUnicode_KIND(s)));
          return true;
        }
      }
    }
    switch (PyUnicode_KIND(s)) {
      case PyUnicode_1BYTE_KIND:
        return sink_.text(static_cast<const Py_UCS1*>(data), n);
      case PyUnicode_2BYTE_KIND:
        return sink_.text(static_cast<const Py_UCS2*>(data), n);
      default:
        return sink_.text(static_cast<const Py_UCS4*>(data), n);
    }
  }

  bool integer(PyObject* v) {
    int overflow = 0;
    const long long i = small_integer(v, overflow);
    if (overflow == 0) {
      if constexpr (Sink::kWrites) {
        if (char* at = sink_.at_most(20)) {
          sink_.advance(std::to_chars(at, at + 20, i).ptr);
          return true;
        }
      }
      char digits[24];
      return put(
          std::string_view(digits, static_cast<std::size_t>(std::to_chars(digits, digits + 24, i).ptr - digits)));
    }
    // Beyond 64 bits: Python's own digits, in full. int.__repr__ rather than
    // str(), so that an int subclass with its own __str__ writes its value.
    const Owned text(PyLong_Type.tp_repr(v));
    if (text == nullptr) return fail_python();
    Py_ssize_t n = 0;
    const char* digits = PyUnicode_AsUTF8AndSize(text.get(), &n);
    if (digits == nullptr) return fail_python();
    return put(std::string_view(digits, static_cast<std::size_t>(n)));
  }

  bool floating(double d) {
    if (form_ == NumberForm::json && !std::isfinite(d)) return put("null");
    if constexpr (Sink::kWrites) {
      if (char* at = sink_.at_most(detail::kDoubleTextMax)) {
        sink_.advance(at + detail::format_double(d, at));
        return true;
      }
    }
    char text[detail::kDoubleTextMax];
    return put(std::string_view(text, detail::format_double(d, text)));
  }

  bool list(PyObject* v) {
    const Deeper level;
    if (!level.entered()) return fail_python();
    sink_.put('[');
    const Py_ssize_t n = PySequence_Fast_GET_SIZE(v);
    PyObject** items = PySequence_Fast_ITEMS(v);
    bool ok = true;
    for (Py_ssize_t i = 0; i < n && ok; ++i) {
      if (i > 0) sink_.put(',');
      ok = value(items[i]);
      if (!ok) failure_.outward.push_back("[" + std::to_string(i) + "]");
    }
    sink_.put(']');
    return ok;
  }

  bool dict(PyObject* v) {
    const Deeper level;
    if (!level.entered()) return fail_python();
    sink_.put('{');
    Py_ssize_t pos = 0;
    PyObject* key = nullptr;
    PyObject* item = nullptr;
    bool ok = true;
    for (std::size_t i = 0; ok && PyDict_Next(v, &pos, &key, &item); ++i) {
      if (i > 0) sink_.put(',');
      ok = member(key, item, i);
    }
    sink_.put('}');
    return ok;
  }

  // A Mapping that is not a dict (a mappingproxy, a custom Mapping): its
  // items() in their order.
  bool mapping(PyObject* v) {
    const Owned items(PyMapping_Items(v));
    if (items == nullptr) return fail_python();
    const Deeper level;
    if (!level.entered()) return fail_python();
    sink_.put('{');
    bool ok = true;
    const Py_ssize_t n = PyList_GET_SIZE(items.get());
    for (Py_ssize_t i = 0; i < n && ok; ++i) {
      PyObject* pair = PyList_GET_ITEM(items.get(), i);
      if (i > 0) sink_.put(',');
      ok = PyTuple_Check(pair) && PyTuple_GET_SIZE(pair) == 2
               ? member(PyTuple_GET_ITEM(pair, 0), PyTuple_GET_ITEM(pair, 1), static_cast<std::size_t>(i))
               : fail_type(pair, Failure::Kind::type);
    }
    sink_.put('}');
    return ok;
  }

  bool member(PyObject* key, PyObject* item, std::size_t i) {
    if (!PyUnicode_Check(key)) {
      fail_type(key, Failure::Kind::key_type);
      failure_.outward.push_back("key #" + std::to_string(i) + " of ");
      return false;
    }
    if (!string(key)) {
      failure_.kind = Failure::Kind::ill_formed_key;
      failure_.outward.push_back("key #" + std::to_string(i) + " of ");
      return false;
    }
    sink_.put(':');
    if (value(item)) return true;
    failure_.outward.push_back(key_segment(key));
    return false;
  }

  // ".key", the key escaped as in the compact text.
  static std::string key_segment(PyObject* key) {
    Utf8Sink sink(false);
    Failure ignored;
    Walker<Utf8Sink>(sink, NumberForm::compact, ignored).string_content(key);
    return "." + std::string(sink.view());
  }

  bool fail_type(PyObject* v, Failure::Kind kind) {
    failure_.kind = kind;
    failure_.type_name = Py_TYPE(v)->tp_name;
    return false;
  }

  bool fail_python() {
    failure_.kind = Failure::Kind::python;
    return false;
  }

  Sink& sink_;
  NumberForm form_;
  Failure& failure_;

  template <class>
  friend class Walker;
};

// The path of the failure: `root`, then the segments outermost first. A key
// segment ("key #i of ") goes in front of the path of its map.
std::string where_of(const Failure& failure, std::string_view root) {
  std::string path(root);
  std::string prefix;
  for (std::size_t i = failure.outward.size(); i-- > 0;) {
    const std::string& segment = failure.outward[i];
    if (segment.starts_with("key #")) {
      prefix = segment;
    } else {
      path += segment;
    }
  }
  return prefix + path;
}

// Sets the Python exception that `failure` stands for.
void raise(const Failure& failure, std::string_view caller, std::string_view root) {
  using Kind = Failure::Kind;
  const std::string where = where_of(failure, root);
  switch (failure.kind) {
    case Kind::type:
      PyErr_SetString(
          PyExc_TypeError,
          (std::string(caller) + ": cannot write a value of type '" + failure.type_name + "' at " + where).c_str());
      return;
    case Kind::key_type:
      PyErr_SetString(
          PyExc_TypeError,
          (std::string(caller) + ": a map key must be a str, not '" + failure.type_name + "': " + where).c_str());
      return;
    case Kind::ill_formed:
    case Kind::ill_formed_key:
      set_encoding_error(where, failure.byte);
      return;
    case Kind::python:
    case Kind::none:
      break;
  }
}

// Writes `pieces` to `sink`; false with `failure` (and `root`, the path of
// the failing value's piece) set.
template <class Sink>
bool write(Sink& sink, std::span<const Piece> pieces, Failure& failure) {
  for (const Piece& piece : pieces) {
    switch (piece.kind) {
      case Piece::Kind::token:
        sink.put(piece.token);
        break;
      case Piece::Kind::value:
        if (!Walker<Sink>(sink, piece.form, failure).value(piece.value)) return false;
        break;
      case Piece::Kind::quoted_text:
        sink.nest(true);
        if (!Walker<Sink>(sink, NumberForm::compact, failure).value(piece.value)) return false;
        sink.nest(false);
        break;
    }
  }
  return true;
}

// The str of `pieces` written at the width counted first: the way for a
// large text whose first wider string came late.
PyObject* counted_str(std::span<const Piece> pieces, std::string_view caller) {
  CountSink count(false);
  Failure failure;
  if (!write(count, pieces, failure)) {
    raise(failure, caller, "$");
    return nullptr;
  }
  StrSink sink(count.chars(), count.max_char());
  if (!write(sink, pieces, failure)) {
    raise(failure, caller, "$");
    return nullptr;
  }
  if (!sink.as_counted()) {
    PyErr_SetString(PyExc_RuntimeError, (std::string(caller) + ": the value changed while it was written").c_str());
    return nullptr;
  }
  return sink.str();
}

}  // namespace

PyObject* str_of(std::span<const Piece> pieces, std::string_view caller) {
  Failure failure;
  try {
    try {
      StrSink sink;
      if (write(sink, pieces, failure)) return sink.str();
    } catch (const WidenedLate&) {
      return counted_str(pieces, caller);  // the first attempt's memory is given back by now
    }
  } catch (const NoMemory&) {
    return nullptr;
  }
  raise(failure, caller, "$");
  return nullptr;
}

PyObject* bytes_of(std::span<const Piece> pieces, std::string_view caller) {
  Failure failure;
  try {
    Utf8Sink sink(true);
    if (write(sink, pieces, failure)) return sink.bytes();
    failure.byte = sink.bad_byte();
  } catch (const NoMemory&) {
    return nullptr;
  }
  raise(failure, caller, "$");
  return nullptr;
}

PyObject* text_of(PyObject* value, std::string_view caller) {
  const Piece piece = Piece::of_value(value, NumberForm::compact);
  return str_of({&piece, 1}, caller);
}

PyObject* str_from_utf8(std::string_view bytes) {
  const bool ascii =
      std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (ascii) {
    PyObject* str = PyUnicode_New(static_cast<Py_ssize_t>(bytes.size()), 127);
    if (str != nullptr) std::memcpy(PyUnicode_1BYTE_DATA(str), bytes.data(), bytes.size());
    return str;
  }
  return PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogatepass");
}

bool append_text(std::string& out, PyObject* value, NumberForm form, std::string_view caller) {
  Failure failure;
  try {
    Utf8Sink sink(false);
    if (Walker<Utf8Sink>(sink, form, failure).value(value)) {
      out.append(sink.view());
      return true;
    }
  } catch (const NoMemory&) {
    return false;
  }
  raise(failure, caller, "$");
  return false;
}

Py_ssize_t encoded_size(PyObject* value, std::string_view caller, std::string_view root) {
  CountSink count(true);
  Failure failure;
  if (Walker<CountSink>(count, NumberForm::compact, failure).value(value)) {
    return static_cast<Py_ssize_t>(count.size());
  }
  failure.byte = count.bad_byte();
  raise(failure, caller, root);
  return -1;
}

void append_escaped_utf8(std::string& out, std::string_view text) {
  try {
    Utf8Sink sink(false);
    sink.ascii_text(text.data(), text.size());
    out.append(sink.view());
  } catch (const NoMemory&) {
    throw std::bad_alloc();
  }
}

}  // namespace kestrune::mcp_responses::python
