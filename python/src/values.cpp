// Crossing between Python objects and the library's values and text.
#include "values.hpp"

#include <cmath>
#include <string>

#include "encoder.hpp"

namespace kestrune::mcp_responses::python {

bool utf8_of(PyObject* s, std::string& scratch, std::string_view& out, std::string_view what) {
  if (!PyUnicode_Check(s)) {
    PyErr_SetString(PyExc_TypeError, (std::string(what) + " must be a str, not '" + Py_TYPE(s)->tp_name + "'").c_str());
    return false;
  }
  if (PyUnicode_IS_ASCII(s)) {
    out = {static_cast<const char*>(PyUnicode_DATA(s)), static_cast<std::size_t>(PyUnicode_GET_LENGTH(s))};
    return true;
  }
  Py_ssize_t n = 0;
  if (const char* data = PyUnicode_AsUTF8AndSize(s, &n)) {
    out = {data, static_cast<std::size_t>(n)};
    return true;
  }
  // A lone surrogate: its bytes as the library sees text that is not UTF-8.
  PyErr_Clear();
  PyObject* bytes = PyUnicode_AsEncodedString(s, "utf-8", "surrogatepass");
  if (bytes == nullptr) return false;
  scratch.assign(PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes)));
  Py_DECREF(bytes);
  out = scratch;
  return true;
}

std::string Where::str() const {
  std::string out = parent_ == nullptr ? std::string() : parent_->str();
  if (indexed_) return out + "[" + std::to_string(index_) + "]";
  if (parent_ != nullptr) out += ".";
  return out.append(text_);
}

namespace {

bool to_list(PyObject* v, ResponseValue& out, BigIntegers big, const Where& where) {
  const Py_ssize_t n = PySequence_Fast_GET_SIZE(v);
  ResponseList list;
  list.reserve(static_cast<std::size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (!to_value(PySequence_Fast_GET_ITEM(v, i), list.emplace_back(), big, Where(where, static_cast<std::size_t>(i))))
      return false;
  }
  out = std::move(list);
  return true;
}

bool to_dict(PyObject* items, ResponseValue& out, BigIntegers big, const Where& where) {
  // `items`: a list of (key, value) pairs.
  const Py_ssize_t n = PyList_GET_SIZE(items);
  ResponseDict dict;
  dict.reserve(static_cast<std::size_t>(n));
  std::string scratch;
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* pair = PyList_GET_ITEM(items, i);
    PyObject* key = PyTuple_GET_ITEM(pair, 0);
    std::string_view k;
    if (!PyUnicode_Check(key)) return utf8_of(key, scratch, k, "key #" + std::to_string(i) + " of " + where.str());
    if (!utf8_of(key, scratch, k, "")) return false;
    ResponseValue value;
    if (!to_value(PyTuple_GET_ITEM(pair, 1), value, big, Where(where, k))) return false;
    dict.insert_or_assign(k, std::move(value));
  }
  out = std::move(dict);
  return true;
}

}  // namespace

bool to_value(PyObject* v, ResponseValue& out, BigIntegers big, const Where& where) {
  if (PyUnicode_Check(v)) {
    std::string scratch;
    std::string_view text;
    if (!utf8_of(v, scratch, text, "")) return false;
    out = text;
    return true;
  }
  if (v == Py_None) {
    out = nullptr;
  } else if (PyBool_Check(v)) {
    out = v == Py_True;
  } else if (PyLong_Check(v)) {
    int overflow = 0;
    const long long i = PyLong_AsLongLongAndOverflow(v, &overflow);
    if (overflow == 0) {
      out = static_cast<std::int64_t>(i);
      return true;
    }
    if (big == BigIntegers::raise) {
      PyErr_Format(PyExc_OverflowError, "the integer at %s is compared here and must fit 64 bits", where.str().c_str());
      return false;
    }
    const Py_ssize_t size = encoded_size(v, "build_wiki_ask_response");
    if (size < 0) return false;
    out = std::string(static_cast<std::size_t>(size) - 2, '0');  // "000…": as many bytes as the digits
  } else if (PyFloat_Check(v)) {
    out = PyFloat_AS_DOUBLE(v);
  } else if (PyList_Check(v) || PyTuple_Check(v)) {
    if (Py_EnterRecursiveCall(" while reading a value") != 0) return false;
    const bool ok = to_list(v, out, big, where);
    Py_LeaveRecursiveCall();
    return ok;
  } else if (is_mapping(v)) {
    PyObject* items = PyMapping_Items(v);
    if (items == nullptr) return false;
    bool ok = Py_EnterRecursiveCall(" while reading a value") == 0;
    if (ok) {
      ok = to_dict(items, out, big, where);
      Py_LeaveRecursiveCall();
    }
    Py_DECREF(items);
    return ok;
  } else {
    PyErr_Format(PyExc_TypeError, "cannot write a value of type '%s' at %s", Py_TYPE(v)->tp_name, where.str().c_str());
    return false;
  }
  return true;
}

PyObject* from_value(const ResponseValue& v, bool frozen) {
  switch (v.kind()) {
    case Kind::null:
      Py_RETURN_NONE;
    case Kind::boolean:
      return PyBool_FromLong(v.as_bool() ? 1 : 0);
    case Kind::integer:
      return PyLong_FromLongLong(v.as_integer());
    case Kind::double_:
      return PyFloat_FromDouble(v.as_double());
    case Kind::string:
      return str_from_utf8(v.as_string());
    case Kind::list: {
      const ResponseList& list = v.as_list();
      const auto n = static_cast<Py_ssize_t>(list.size());
      PyObject* out = frozen ? PyTuple_New(n) : PyList_New(n);
      if (out == nullptr) return nullptr;
      for (Py_ssize_t i = 0; i < n; ++i) {
        PyObject* item = from_value(list[static_cast<std::size_t>(i)], frozen);
        if (item == nullptr) {
          Py_DECREF(out);
          return nullptr;
        }
        if (frozen) {
          PyTuple_SET_ITEM(out, i, item);
        } else {
          PyList_SET_ITEM(out, i, item);
        }
      }
      return out;
    }
    case Kind::dict:
      return from_dict(v.as_dict(), frozen);
  }
  Py_RETURN_NONE;
}

PyObject* from_dict(const ResponseDict& d, bool frozen) {
  PyObject* out = PyDict_New();
  if (out == nullptr) return nullptr;
  for (const auto& [key, value] : d) {
    PyObject* k = str_from_utf8(key);
    PyObject* item = k != nullptr ? from_value(value, frozen) : nullptr;
    const bool ok = item != nullptr && PyDict_SetItem(out, k, item) == 0;
    Py_XDECREF(k);
    Py_XDECREF(item);
    if (!ok) {
      Py_DECREF(out);
      return nullptr;
    }
  }
  if (!frozen) return out;
  PyObject* proxy = PyDictProxy_New(out);
  Py_DECREF(out);
  return proxy;
}

bool is_mapping(PyObject* v) noexcept {
  if (PyDict_Check(v)) return true;
  // collections.abc re-exports _collections_abc, which the interpreter
  // loads at startup (os imports it): looked up, not imported. The names
  // are made once and kept (interning them releases no lock).
  static PyObject* const kModule = PyUnicode_InternFromString("_collections_abc");
  static PyObject* const kMapping = PyUnicode_InternFromString("Mapping");
  PyObject* abc = PyImport_GetModule(kModule);
  PyObject* mapping = abc != nullptr ? PyObject_GetAttr(abc, kMapping) : nullptr;
  Py_XDECREF(abc);
  const int is = mapping != nullptr ? PyObject_IsInstance(v, mapping) : -1;
  Py_XDECREF(mapping);
  if (is < 0) PyErr_Clear();
  return is == 1;
}

}  // namespace kestrune::mcp_responses::python
