// The code-index builders over Python records and values. Values a row takes
// from a record are the record's own objects; only summaries, names relative
// to a module and hints are new text.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bindings.hpp"
#include "code_index/pagination.hpp"
#include "encoder.hpp"
#include "fast_call.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "native_stubs.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {
namespace {

struct Keys {
  PyObject* fqn = key("fqn");
  PyObject* name = key("name");
  PyObject* kind = key("kind");
  PyObject* file = key("file");
  PyObject* line = key("line");
  PyObject* start_line = key("start_line");
  PyObject* end_line = key("end_line");
  PyObject* signature = key("signature");
  PyObject* docstring = key("docstring");
  PyObject* summary = key("summary");
  PyObject* found = key("found");
  PyObject* is_export = key("is_export");
  PyObject* docstring_truncated = key("docstring_truncated");
  PyObject* file_path = key("file_path");
  PyObject* caller_symbol = key("caller_symbol");
  PyObject* usage_type = key("usage_type");
  PyObject* code = key("code");
  PyObject* caller = key("caller");
  PyObject* caller_kind = key("caller_kind");
  PyObject* component = key("component");
  PyObject* layer = key("layer");
  PyObject* path_pattern = key("path_pattern");
  PyObject* file_count = key("file_count");
  PyObject* symbol_count = key("symbol_count");
  PyObject* test_file = key("test_file");
  PyObject* source_file = key("source_file");
  PyObject* symbols_imported = key("symbols_imported");
  PyObject* total_count = key("total_count");
  PyObject* truncated = key("truncated");
  PyObject* has_more = key("has_more");
  PyObject* offset = key("offset");
  PyObject* hint = key("hint");
  PyObject* status = key("status");
  PyObject* health = key("health");
  PyObject* branch = key("branch");
  PyObject* progress = key("progress");
  PyObject* files_indexed = key("files_indexed");
  PyObject* symbols_indexed = key("symbols_indexed");
  PyObject* last_updated = key("last_updated");
  PyObject* errors_count = key("errors_count");
  PyObject* phase = key("phase");
  PyObject* phase_detail = key("phase_detail");
};

const Keys& keys() {
  static const Keys k;  // made once, read-only afterwards
  return k;
}

// Sets `k` only when `v` is not None: the rule of list rows.
void set_present(const py::dict& d, PyObject* k, const py::handle& v) {
  if (!v.is_none()) set(d, k, v);
}

bool truthy(const py::handle& v) {
  const int t = PyObject_IsTrue(v.ptr());
  if (t < 0) throw py::error_already_set();
  return t == 1;
}

bool is_int(const py::handle& v) { return PyLong_Check(v.ptr()) && !PyBool_Check(v.ptr()); }

// The value of an exact int that fits 64 bits.
std::optional<long long> small_int(PyObject* v) {
  if (!PyLong_CheckExact(v)) return std::nullopt;
  int overflow = 0;
  const long long n = PyLong_AsLongLongAndOverflow(v, &overflow);
  if (overflow != 0) return std::nullopt;
  return n;
}

// offset + count < total, in Python's arithmetic (no 64-bit limit).
bool more_after(const py::handle& offset, Py_ssize_t count, const py::handle& total) {
  const std::optional<long long> o = small_int(offset.ptr());
  const std::optional<long long> t = small_int(total.ptr());
  long long end = 0;
  if (o && t && !__builtin_add_overflow(*o, static_cast<long long>(count), &end)) return end < *t;
  const py::object sum = checked(PyNumber_Add(offset.ptr(), py::int_(count).ptr()));
  const int less = PyObject_RichCompareBool(sum.ptr(), total.ptr(), Py_LT);
  if (less < 0) throw py::error_already_set();
  return less == 1;
}

Py_ssize_t length(const py::handle& items) {
  const Py_ssize_t n = PyObject_Size(items.ptr());
  if (n < 0) throw py::error_already_set();
  return n;
}

void check_key(const py::handle& items_key, const char* caller) {
  if (!PyUnicode_Check(items_key.ptr())) {
    throw py::type_error(std::string(caller) + ": items_key must be a str, not '" + Py_TYPE(items_key.ptr())->tp_name +
                         "'");
  }
}

py::dict paging_facts(const py::handle& items, const py::handle& items_key, const py::handle& total_count,
                      const py::handle& offset, bool has_more) {
  const Keys& k = keys();
  py::dict page = presized(6);  // with room for the hint
  set(page, items_key.ptr(), items);
  set(page, k.total_count, total_count);
  set(page, k.truncated, has_more ? Py_True : Py_False);
  set(page, k.has_more, has_more ? Py_True : Py_False);
  set(page, k.offset, offset);
  return page;
}

// The digits of `v` (str() of it) as UTF-8 in `scratch`.
std::string_view digits_of(PyObject* v, py::object& scratch) {
  scratch = checked(PyObject_Str(v));
  Py_ssize_t n = 0;
  const char* s = PyUnicode_AsUTF8AndSize(scratch.ptr(), &n);
  if (s == nullptr) throw py::error_already_set();
  return {s, static_cast<std::size_t>(n)};
}

// The hint's text for a page of `count` rows, the library's words around
// Python's numbers; totals and offsets that are not integers show as 0, as
// the library shows them.
py::object hint_text(const py::handle& count, const py::handle& total, const py::handle& offset) {
  PyObject* t = is_int(total) ? total.ptr() : zero();
  PyObject* o = is_int(offset) ? offset.ptr() : zero();
  const std::optional<long long> c = small_int(count.ptr());
  const std::optional<long long> t64 = small_int(t);
  const std::optional<long long> o64 = small_int(o);
  long long next = 0;
  std::string text;
  if (c && t64 && o64 && !__builtin_add_overflow(*o64, *c, &next)) {
    text = detail::pagination_hint_text(*c, *t64, *o64);
  } else {
    py::object c_text;
    py::object t_text;
    py::object next_text;
    const py::object sum = checked(PyNumber_Add(o, count.ptr()));
    text = detail::pagination_hint_text(digits_of(count.ptr(), c_text), digits_of(t, t_text),
                                        digits_of(sum.ptr(), next_text));
  }
  return checked(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr));
}

py::dict add_hint(py::dict response, const py::handle& count) {
  const Keys& k = keys();
  PyObject* truncated = PyDict_GetItemWithError(response.ptr(), k.truncated);
  if (truncated != Py_True) {
    if (PyErr_Occurred()) throw py::error_already_set();
    return response;
  }
  const py::object total = field(response, k.total_count);
  const py::object offset = field(response, k.offset);
  set(response, k.hint, hint_text(count, total, offset));
  return response;
}

py::dict paginated(const py::handle& items, const py::handle& total_count, const py::handle& offset,
                   const py::handle& items_key) {
  check_key(items_key, "build_paginated_response");
  const Py_ssize_t count = length(items);
  const bool has_more = more_after(offset, count, total_count);
  return add_hint(paging_facts(items, items_key, total_count, offset, has_more), py::int_(count));
}

// fit_paginated_response: the page sizes from the sizes of its parts, as the
// library works them out: the facts measured once for each value of the
// flags, the hint's text for each length, the rows with their commas.
py::dict fit_paginated(const py::handle& items, const py::handle& total_count, const py::handle& offset,
                       Py_ssize_t max_bytes, const py::handle& items_key) {
  check_key(items_key, "fit_paginated_response");
  if (max_bytes < 0) throw py::value_error("fit_paginated_response: max_bytes must be at least 0");
  const py::object rows = checked(PySequence_Fast(items.ptr(), "fit_paginated_response: items must be a sequence"));
  const Py_ssize_t n_rows = PySequence_Fast_GET_SIZE(rows.ptr());
  std::string root = "$.";
  append_escaped_utf8(root, Utf8Arg(items_key, "items_key").bytes);
  std::vector<Py_ssize_t> prefix(static_cast<std::size_t>(n_rows) + 1, 0);
  for (Py_ssize_t i = 0; i < n_rows; ++i) {
    const std::string where = root + "[" + std::to_string(i) + "]";
    const Py_ssize_t size = encoded_size(PySequence_Fast_GET_ITEM(rows.ptr(), i), "fit_paginated_response", where);
    if (size < 0) throw py::error_already_set();
    prefix[static_cast<std::size_t>(i) + 1] = prefix[static_cast<std::size_t>(i)] + size;
  }
  const py::list empty;
  const auto facts_size = [&](bool has_more) {
    py::dict facts = paging_facts(empty, items_key, total_count, offset, has_more);
    if (has_more) set(facts, keys().hint, py::str(""));
    const Py_ssize_t size = encoded_size(facts.ptr(), "fit_paginated_response");
    if (size < 0) throw py::error_already_set();
    return size - 2;  // less the empty list
  };
  const Py_ssize_t without_more = facts_size(false);
  const Py_ssize_t with_more = more_after(offset, 0, total_count) ? facts_size(true) : 0;
  const auto page_size = [&](Py_ssize_t n) {
    const Py_ssize_t list = 2 + prefix[static_cast<std::size_t>(n)] + (n > 0 ? n - 1 : 0);
    if (!more_after(offset, n, total_count)) return without_more + list;
    return with_more + PyUnicode_GET_LENGTH(hint_text(py::int_(n), total_count, offset).ptr()) + list;  // ASCII
  };
  // A page that holds the last rows carries no hint, so a longer page may fit
  // where a shorter one does not: every length is checked.
  Py_ssize_t n = n_rows;
  while (n > 0 && page_size(n) > max_bytes) --n;
  if (n == n_rows && PyList_Check(items.ptr())) return paginated(items, total_count, offset, items_key);
  py::object kept = checked(PySequence_GetSlice(rows.ptr(), 0, n));
  if (!PyList_Check(kept.ptr())) kept = checked(PySequence_List(kept.ptr()));
  return paginated(kept, total_count, offset, items_key);
}

py::dict empty_page(const py::handle& items_key) {
  return paging_facts(py::list(), items_key, py::int_(0), py::int_(0), false);
}

py::dict symbol_search_result(const py::handle& symbol, const py::handle& file_path) {
  const Keys& k = keys();
  py::dict row;
  set_present(row, k.fqn, field(symbol, k.fqn));
  set_present(row, k.name, field(symbol, k.name));
  set_present(row, k.kind, field(symbol, k.kind));
  set_present(row, k.file, file_path);
  set_present(row, k.line, field(symbol, k.start_line));
  set_present(row, k.signature, field(symbol, k.signature));
  set_present(row, k.summary, summary_of(field(symbol, k.docstring), "build_symbol_search_result: docstring"));
  return row;
}

py::dict symbol_full_details(const py::handle& symbol, const py::handle& file_path) {
  const Keys& k = keys();
  py::dict row;
  set(row, k.found, Py_True);
  set(row, k.fqn, field(symbol, k.fqn));
  set(row, k.name, field(symbol, k.name));
  set(row, k.kind, field(symbol, k.kind));
  set(row, k.file, file_path);
  set(row, k.start_line, field(symbol, k.start_line));
  set(row, k.end_line, field(symbol, k.end_line));
  set(row, k.signature, field(symbol, k.signature));
  set(row, k.is_export, field(symbol, k.is_export));
  set(row, k.docstring, field(symbol, k.docstring));
  set(row, k.docstring_truncated, field(symbol, k.docstring_truncated));
  return row;
}

py::str module_of(const py::iterable& fqns) {
  std::vector<std::string> texts;
  for (const auto& fqn : fqns) texts.emplace_back(Utf8Arg(fqn, "outline_module: an fqn").bytes);
  return text(outline_module(std::span<const std::string>(texts)));
}

py::dict file_symbol(const py::handle& symbol, const py::handle& module) {
  const Keys& k = keys();
  const py::object fqn = field(symbol, k.fqn);
  py::object name = fqn;
  std::string s1;
  std::string s2;
  std::string_view fqn_bytes;
  std::string_view module_bytes;
  if (!utf8_of(fqn.ptr(), s1, fqn_bytes, "build_file_symbol: fqn") ||
      (!module.is_none() && !utf8_of(module.ptr(), s2, module_bytes, "build_file_symbol: module"))) {
    throw py::error_already_set();
  }
  if (!module_bytes.empty() && fqn_bytes.size() > module_bytes.size() && fqn_bytes.starts_with(module_bytes) &&
      fqn_bytes[module_bytes.size()] == '.') {
    name = text(fqn_bytes.substr(module_bytes.size() + 1));
  }
  py::dict row;
  set(row, k.name, name);
  set_present(row, k.kind, field(symbol, k.kind));
  const py::object start = field(symbol, k.start_line);
  const py::object end = field(symbol, k.end_line);
  set_present(row, k.line, start);
  if (!end.is_none() && !end.equal(start)) set(row, k.end_line, end);
  set_present(row, k.signature, field(symbol, k.signature));
  set_present(row, k.summary, summary_of(field(symbol, k.docstring), "build_file_symbol: docstring"));
  return row;
}

py::dict reference_row(const py::handle& reference, const py::handle& code) {
  const Keys& k = keys();
  py::dict row;
  set(row, k.file, field(reference, k.file_path));
  set(row, k.line, field(reference, k.line));
  set_present(row, k.code, code);
  const py::object caller = field(reference, k.caller_symbol);
  if (!caller.is_none()) {
    if (!is_mapping(caller.ptr())) {
      throw py::type_error(std::string("build_reference: caller_symbol must be a dict, not '") +
                           Py_TYPE(caller.ptr())->tp_name + "'");
    }
    const auto get = [&](PyObject* name) -> py::object {
      if (PyDict_Check(caller.ptr())) return field(caller, name);
      PyObject* v = PyObject_GetItem(caller.ptr(), name);
      if (v != nullptr) return py::reinterpret_steal<py::object>(v);
      if (!PyErr_ExceptionMatches(PyExc_KeyError)) throw py::error_already_set();
      PyErr_Clear();
      return py::none();
    };
    set_present(row, k.caller, get(k.fqn));
    set_present(row, k.caller_kind, get(k.kind));
  }
  set_present(row, k.usage_type, field(reference, k.usage_type));
  return row;
}

py::dict api_endpoint(const py::handle& symbol, const py::handle& file_path, const py::handle& component_name) {
  const Keys& k = keys();
  py::dict row;
  set(row, k.fqn, field(symbol, k.fqn));
  set(row, k.name, field(symbol, k.name));
  set(row, k.kind, field(symbol, k.kind));
  set(row, k.file, truthy(file_path) ? py::reinterpret_borrow<py::object>(file_path) : py::str(""));
  set(row, k.line, field(symbol, k.start_line));
  set(row, k.signature, field(symbol, k.signature));
  set(row, k.component, component_name);
  return row;
}

py::dict component_row(const py::handle& component) {
  const Keys& k = keys();
  py::dict row;
  for (PyObject* name : {k.name, k.layer, k.path_pattern, k.file_count, k.symbol_count})
    set(row, name, field(component, name));
  return row;
}

py::dict test_coverage(const py::handle& test_file, const py::handle& source_file, const py::handle& imported) {
  const Keys& k = keys();
  py::dict row;
  set(row, k.test_file, test_file);
  set(row, k.source_file, source_file);
  if (!imported.is_none() && truthy(imported)) set(row, k.symbols_imported, imported);
  return row;
}

py::dict index_status(const py::handle& status, const py::handle& health, const py::handle& branch,
                      const py::handle& progress, const py::handle& files_indexed, const py::handle& symbols_indexed,
                      const py::handle& last_updated, const py::handle& errors_count, const py::handle& phase,
                      const py::handle& phase_detail) {
  const Keys& k = keys();
  py::dict r;
  set(r, k.status, status);
  set(r, k.health, health);
  set(r, k.branch, branch);
  set(r, k.progress, progress);
  set(r, k.files_indexed, files_indexed);
  set(r, k.symbols_indexed, symbols_indexed);
  set(r, k.last_updated, last_updated);
  set(r, k.errors_count, errors_count);
  if (truthy(phase)) set(r, k.phase, phase);
  if (truthy(phase_detail)) set(r, k.phase_detail, phase_detail);
  return r;
}

// The canned table as read-only Python values: a mappingproxy of
// mappingproxies whose lists are tuples.
py::object empty_tool_responses() {
  py::dict table;
  for (const auto& [tool, response] : *EMPTY_TOOL_RESPONSES) {
    set(table, text(tool).ptr(), checked(from_value(response, true)));
  }
  return checked(PyDictProxy_New(table.ptr()));
}

// The module's functions over the builders above: their arguments bound,
// defaults filled in, values of a fixed type checked.

PyObject* items_text() {
  static PyObject* const kItems = key("items");  // made once, never freed
  return kItems;
}

PyObject* empty_text() {
  static PyObject* const kEmpty = key("");  // made once, never freed
  return kEmpty;
}

PyObject* paginated_call(const std::array<PyObject*, 4>& a) {
  return paginated(a[0], a[1], a[2], given_or(a[3], items_text())).release().ptr();
}

PyObject* fit_paginated_call(const std::array<PyObject*, 5>& a) {
  const long long max_bytes = int_argument(a[3], "fit_paginated_response: max_bytes", -1, PY_SSIZE_T_MAX);
  return fit_paginated(a[0], a[1], a[2], static_cast<Py_ssize_t>(max_bytes), given_or(a[4], items_text()))
      .release()
      .ptr();
}

PyObject* add_hint_call(const std::array<PyObject*, 2>& a) {
  if (!PyDict_Check(a[0])) {
    throw py::type_error(std::string("add_pagination_hint: response must be a dict, not '") + Py_TYPE(a[0])->tp_name +
                         "'");
  }
  return add_hint(py::reinterpret_borrow<py::dict>(a[0]), a[1]).release().ptr();
}

PyObject* empty_page_call(const std::array<PyObject*, 1>& a) {
  return empty_page(given_or(a[0], items_text())).release().ptr();
}

PyObject* index_status_call(const std::array<PyObject*, 10>& a) {
  return index_status(a[0], a[1], a[2], a[3], given_or(a[4], zero()), given_or(a[5], zero()), given_or(a[6], Py_None),
                      given_or(a[7], zero()), given_or(a[8], Py_None), given_or(a[9], Py_None))
      .release()
      .ptr();
}

// The canned responses as Python dicts, by tool name, and the one for any
// other name: made once from the library's table, never changed or freed
// (like the interned keys, they outlive every call).
struct CannedResponses {
  PyObject* by_tool;
  PyObject* otherwise;
};

const CannedResponses& canned() {
  static const CannedResponses kCanned = [] {
    py::dict by_tool;
    for (const auto& [tool, response] : *EMPTY_TOOL_RESPONSES) {
      set(by_tool, text(tool).ptr(), checked(from_value(response)));
    }
    return CannedResponses{by_tool.release().ptr(), checked(from_dict(get_empty_response(""))).release().ptr()};
  }();
  return kCanned;
}

PyObject* empty_response_call(const std::array<PyObject*, 1>& a) {
  if (!PyUnicode_Check(a[0])) static_cast<void>(Utf8Arg(a[0], "get_empty_response: tool_name"));  // raises TypeError
  const CannedResponses& c = canned();
  PyObject* found = PyDict_GetItemWithError(c.by_tool, a[0]);
  if (found == nullptr && PyErr_Occurred() != nullptr) throw py::error_already_set();
  // A copy of its own, whose lists are new (the table's are all empty).
  py::dict copy = py::reinterpret_borrow<py::dict>(checked(PyDict_Copy(found != nullptr ? found : c.otherwise)));
  Py_ssize_t pos = 0;
  PyObject* k = nullptr;
  PyObject* v = nullptr;
  while (PyDict_Next(copy.ptr(), &pos, &k, &v)) {
    if (PyList_Check(v)) set(copy, k, checked(PyList_New(0)));
  }
  return copy.release().ptr();
}

PyObject* search_result_call(const std::array<PyObject*, 2>& a) {
  return symbol_search_result(a[0], given_or(a[1], Py_None)).release().ptr();
}

PyObject* full_details_call(const std::array<PyObject*, 2>& a) {
  return symbol_full_details(a[0], given_or(a[1], Py_None)).release().ptr();
}

PyObject* outline_module_call(const std::array<PyObject*, 1>& a) {
  return module_of(py::reinterpret_borrow<py::iterable>(checked(PyObject_GetIter(a[0])))).release().ptr();
}

PyObject* file_symbol_call(const std::array<PyObject*, 2>& a) {
  return file_symbol(a[0], given_or(a[1], empty_text())).release().ptr();
}

PyObject* reference_call(const std::array<PyObject*, 2>& a) {
  return reference_row(a[0], given_or(a[1], Py_None)).release().ptr();
}

PyObject* api_endpoint_call(const std::array<PyObject*, 3>& a) {
  return api_endpoint(a[0], given_or(a[1], Py_None), given_or(a[2], Py_None)).release().ptr();
}

PyObject* component_call(const std::array<PyObject*, 1>& a) { return component_row(a[0]).release().ptr(); }

PyObject* test_coverage_call(const std::array<PyObject*, 3>& a) {
  return test_coverage(a[0], a[1], given_or(a[2], Py_None)).release().ptr();
}

PyMethodDef kMethods[] = {
    method<bound<4, stubs::build_paginated_response, paginated_call>>("build_paginated_response",
                                                                      stubs::build_paginated_response_doc),
    method<bound<5, stubs::fit_paginated_response, fit_paginated_call>>("fit_paginated_response",
                                                                        stubs::fit_paginated_response_doc),
    method<bound<2, stubs::add_pagination_hint, add_hint_call>>("add_pagination_hint", stubs::add_pagination_hint_doc),
    method<bound<1, stubs::build_empty_paginated_response, empty_page_call>>("build_empty_paginated_response",
                                                                             stubs::build_empty_paginated_response_doc),
    method<bound<10, stubs::build_index_status_response, index_status_call>>("build_index_status_response",
                                                                             stubs::build_index_status_response_doc),
    method<bound<1, stubs::get_empty_response, empty_response_call>>("get_empty_response",
                                                                     stubs::get_empty_response_doc),
    method<bound<2, stubs::build_symbol_search_result, search_result_call>>("build_symbol_search_result",
                                                                            stubs::build_symbol_search_result_doc),
    method<bound<2, stubs::build_symbol_full_details, full_details_call>>("build_symbol_full_details",
                                                                          stubs::build_symbol_full_details_doc),
    method<bound<1, stubs::outline_module, outline_module_call>>("outline_module", stubs::outline_module_doc),
    method<bound<2, stubs::build_file_symbol, file_symbol_call>>("build_file_symbol", stubs::build_file_symbol_doc),
    method<bound<2, stubs::build_reference, reference_call>>("build_reference", stubs::build_reference_doc),
    method<bound<3, stubs::build_api_endpoint, api_endpoint_call>>("build_api_endpoint", stubs::build_api_endpoint_doc),
    method<bound<1, stubs::build_component, component_call>>("build_component", stubs::build_component_doc),
    method<bound<3, stubs::build_test_coverage, test_coverage_call>>("build_test_coverage",
                                                                     stubs::build_test_coverage_doc),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

void bind_code_index(py::module_& m) {
  m.attr("EMPTY_TOOL_RESPONSES") = empty_tool_responses();
  if (PyModule_AddFunctions(m.ptr(), kMethods) != 0) throw py::error_already_set();
}

}  // namespace kestrune::mcp_responses::python
