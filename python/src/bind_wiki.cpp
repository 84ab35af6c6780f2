// The wiki builders. Status, list and read place the caller's values as they
// are. The ask is fitted by the library: the sections, citations and
// attachments cross into library values once, the library keeps, cuts and
// drops, and the response is made of the caller's own objects again, with
// only the section rows and their excerpts new.
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "bindings.hpp"
#include "encoder.hpp"
#include "fast_call.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "native_stubs.hpp"
#include "str_cut.hpp"
#include "text/cut.hpp"
#include "values.hpp"
#include "wiki/ask_citations.hpp"
#include "wiki/ask_limits.hpp"

namespace kestrune::mcp_responses::python {
namespace {

struct Keys {
  PyObject* built = key("built");
  PyObject* branch = key("branch");
  PyObject* enabled = key("enabled");
  PyObject* configured = key("configured");
  PyObject* pages = key("pages");
  PyObject* files_covered = key("files_covered");
  PyObject* total_sources = key("total_sources");
  PyObject* coverage_pct = key("coverage_pct");
  PyObject* last_built = key("last_built");
  PyObject* model = key("model");
  PyObject* stale_pages = key("stale_pages");
  PyObject* total_count = key("total_count");
  PyObject* offset = key("offset");
  PyObject* truncated = key("truncated");
  PyObject* has_more = key("has_more");
  PyObject* page_id = key("page_id");
  PyObject* title = key("title");
  PyObject* content = key("content");
  PyObject* citations = key("citations");
  PyObject* source_files = key("source_files");
  PyObject* related_pages = key("related_pages");
  PyObject* mode = key("mode");
  PyObject* query = key("query");
  PyObject* answer = key("answer");
  PyObject* sections = key("sections");
  PyObject* heading = key("heading");
  PyObject* similarity = key("similarity");
  PyObject* stale = key("stale");
  PyObject* excerpt = key("excerpt");
  PyObject* tokens = key("tokens");
  PyObject* note = key("note");
  PyObject* decisions = key("decisions");
  PyObject* code = key("code");
  PyObject* memories = key("memories");
  PyObject* path = key("path");
  PyObject* line_start = key("line_start");
  PyObject* line_end = key("line_end");
};

const Keys& keys() {
  static const Keys k;  // made once, read-only afterwards
  return k;
}

bool truthy(const py::handle& v) {
  const int t = PyObject_IsTrue(v.ptr());
  if (t < 0) throw py::error_already_set();
  return t == 1;
}

// The list rule: None or an empty list becomes a new empty list.
py::object list_or_empty(const py::handle& v) {
  if (v.is_none() || !truthy(v)) return py::list();
  return py::reinterpret_borrow<py::object>(v);
}

// member `name` of a map, None when missing; a section that is not a map
// reads as an empty one.
py::object member(const py::handle& map, PyObject* name) {
  if (PyDict_Check(map.ptr())) return field(map, name);
  if (!is_mapping(map.ptr())) return py::none();
  PyObject* v = PyObject_GetItem(map.ptr(), name);
  if (v != nullptr) return py::reinterpret_steal<py::object>(v);
  if (!PyErr_ExceptionMatches(PyExc_KeyError)) throw py::error_already_set();
  PyErr_Clear();
  return py::none();
}

// The keys of a section that its row takes as they are, as Python keys and
// as text.
const std::array<std::pair<PyObject*, std::string_view>, 4>& row_keys() {
  static const std::array<std::pair<PyObject*, std::string_view>, 4> kRow = {{{keys().page_id, "page_id"},
                                                                              {keys().title, "title"},
                                                                              {keys().heading, "heading"},
                                                                              {keys().similarity, "similarity"}}};
  return kRow;
}

// The keys of a citation's place, as Python keys and as text.
const std::array<std::pair<PyObject*, std::string_view>, 3>& place_keys() {
  static const std::array<std::pair<PyObject*, std::string_view>, 3> kPlace = {
      {{keys().path, "path"}, {keys().line_start, "line_start"}, {keys().line_end, "line_end"}}};
  return kPlace;
}

ResponseValue value_of(const py::handle& v, BigIntegers big, const Where& where) {
  ResponseValue out;
  if (!to_value(v.ptr(), out, big, where)) throw py::error_already_set();
  return out;
}

// A citation as a library value: its place keys must be comparable, so they
// take no stand-ins; its other values are only measured.
ResponseValue citation_of(const py::handle& c, const Where& where) {
  ResponseValue out = value_of(c, BigIntegers::stand_in, where);
  if (!out.is_dict()) return out;
  for (const auto& [name, text] : place_keys()) {
    const py::object v = member(c, name);
    if (PyLong_Check(v.ptr())) (void)value_of(v, BigIntegers::raise, Where(where, text));
  }
  return out;
}

// The citations a merge may take from one list: the first three of a
// section's, or all of the answer's own.
struct Citations {
  py::object items;  // the caller's list, as a sequence
  ResponseList values;
};

// CitationForm: a citation whole (its size counts), or only its place (the
// merge alone reads it).
enum class CitationForm : bool { whole, place };

ResponseValue place_of(const py::handle& c, const Where& where) {
  ResponseDict place;
  place.reserve(3);
  for (const auto& [name, text] : place_keys())
    place.append(std::string(text), value_of(member(c, name), BigIntegers::raise, Where(where, text)));
  return place;
}

Citations citations_of(const py::handle& list, std::size_t most, const Where& where,
                       CitationForm form = CitationForm::whole) {
  Citations c;
  if (list.is_none() || !(PyList_Check(list.ptr()) || PyTuple_Check(list.ptr()))) return c;
  c.items = py::reinterpret_borrow<py::object>(list);
  const auto n = std::min(static_cast<std::size_t>(PySequence_Fast_GET_SIZE(list.ptr())), most);
  c.values.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const py::handle item = PySequence_Fast_GET_ITEM(list.ptr(), static_cast<Py_ssize_t>(i));
    const Where at(where, i);
    c.values.push_back(form == CitationForm::whole ? citation_of(item, at) : place_of(item, at));
  }
  return c;
}

// The section's excerpt as text: a str as it is, an empty value as "", any
// other value as its compact text.
std::string excerpt_of(const py::handle& v) {
  std::string out;
  if (v.is_none() || (!PyUnicode_Check(v.ptr()) && !truthy(v))) return out;
  if (PyUnicode_Check(v.ptr())) {
    std::string_view bytes;
    if (!utf8_of(v.ptr(), out, bytes, "excerpt")) throw py::error_already_set();
    return std::string(bytes);
  }
  if (!append_text(out, v.ptr(), NumberForm::compact, "build_wiki_ask_response")) throw py::error_already_set();
  return out;
}

std::string required_text(const py::handle& v, const char* what);

std::optional<std::string> optional_text(const py::handle& v, const char* what) {
  if (v.is_none()) return std::nullopt;
  return required_text(v, what);
}

std::string required_text(const py::handle& v, const char* what) { return std::string(Utf8Arg(v, what).bytes); }

std::optional<ResponseDict> optional_map(const py::handle& v, const char* name) {
  if (v.is_none()) return std::nullopt;
  ResponseValue value = value_of(v, BigIntegers::stand_in, Where(Where("$"), name));
  if (!value.is_dict()) {
    throw py::type_error(std::string("build_wiki_ask_response: ") + name + " must be a dict or None, not '" +
                         Py_TYPE(v.ptr())->tp_name + "'");
  }
  return std::move(value.as_dict());
}

std::int64_t clamp_budget(const py::handle& budget) {
  int overflow = 0;
  const long long b = PyLong_AsLongLongAndOverflow(budget.ptr(), &overflow);
  if (b == -1 && PyErr_Occurred()) throw py::error_already_set();
  // Beyond what any text can reach, a budget means "everything fits" (or
  // "nothing does"); a quarter of the range keeps budget x 4 in range.
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / 4;
  if (overflow != 0) return overflow > 0 ? kMost : -kMost;
  return std::clamp<std::int64_t>(b, -kMost, kMost);
}

// The merged citations as the caller's objects.
py::list picked(const detail::CitationMerge& merge, std::size_t n, const std::vector<Citations>& lists,
                const Citations& extra) {
  py::list out;
  for (const detail::CitationPick& pick : merge.picks(n)) {
    const py::object& items = pick.section ? lists[*pick.section].items : extra.items;
    out.append(
        py::reinterpret_borrow<py::object>(PySequence_Fast_GET_ITEM(items.ptr(), static_cast<Py_ssize_t>(pick.index))));
  }
  return out;
}

std::vector<std::span<const ResponseValue>> spans_of(const std::vector<Citations>& lists) {
  std::vector<std::span<const ResponseValue>> spans;
  spans.reserve(lists.size());
  for (const Citations& c : lists) spans.emplace_back(c.values);
  return spans;
}

// The merged citations of all of `sections` (a sequence) and `extra`, their
// places read only as far as the merge reaches: sections only add to the
// list, so once the citations of the first sections fill the cap, later
// sections and the extra citations change nothing and are not read.
py::list merged_citations(const py::object& sections, const py::object& extra, const Where& sections_at,
                          const Where& extra_at) {
  const auto n = static_cast<std::size_t>(PySequence_Fast_GET_SIZE(sections.ptr()));
  const Citations own = citations_of(extra, static_cast<std::size_t>(-1), extra_at, CitationForm::place);
  std::vector<Citations> lists;
  lists.reserve(n);
  for (std::size_t read = std::min<std::size_t>(n, 8);; read = std::min(n, 2 * read)) {
    for (std::size_t i = lists.size(); i < read; ++i) {
      const Where at(sections_at, i);
      lists.push_back(
          citations_of(member(PySequence_Fast_GET_ITEM(sections.ptr(), static_cast<Py_ssize_t>(i)), keys().citations),
                       detail::ASK_CITATIONS_PER_SECTION, Where(at, "citations"), CitationForm::place));
    }
    const detail::CitationMerge merge(spans_of(lists), own.values);
    const std::vector<detail::CitationPick> picks = merge.picks(read);
    const bool full = picks.size() == detail::ASK_MAX_CITATIONS && picks.back().section.has_value();
    if (full || read == n) return picked(merge, read, lists, own);
  }
}

py::object sequence(const py::handle& v, const char* what) { return checked(PySequence_Fast(v.ptr(), what)); }

py::list ask_citations(const py::handle& sections, const py::handle& extra) {
  const py::object seq = sequence(sections, "_ask_citations: sections must be a sequence");
  const py::object extra_list = sequence(extra, "_ask_citations: extra must be a sequence");
  return merged_citations(seq, extra_list, Where("sections"), Where("extra"));
}

using Attachments = std::array<std::pair<PyObject*, const py::handle*>, 6>;

// A section's row: the section's own values, the staleness flag and the excerpt.
py::dict section_row(const py::handle& section, bool stale, const py::handle& excerpt) {
  const Keys& k = keys();
  py::dict row;
  for (PyObject* name : {k.page_id, k.title, k.heading, k.similarity}) set(row, name, member(section, name));
  set(row, k.stale, stale ? Py_True : Py_False);
  set(row, k.excerpt, excerpt);
  return row;
}

// The excerpt of an answer without a budget: cut to _ASK_EXCERPT_CHARS; a
// str within that is the caller's own, a longer one is cut where it stands.
py::object whole_excerpt(const py::handle& v) {
  if (PyUnicode_Check(v.ptr())) return checked(trimmed_str(v.ptr(), detail::ASK_EXCERPT_CHARS));
  return text(detail::trimmed(excerpt_of(v), detail::ASK_EXCERPT_CHARS));
}

// Without a budget nothing is measured: every section's row, the merge read
// from the places alone, the attachments that are not None.
py::dict ask_unbudgeted(const py::object& seq, const py::handle& mode, const py::handle& query,
                        const py::handle& answer, const py::handle& citations, const Attachments& attachments) {
  const Keys& k = keys();
  const Py_ssize_t n = PySequence_Fast_GET_SIZE(seq.ptr());
  py::list rows;
  for (Py_ssize_t i = 0; i < n; ++i) {
    const py::handle section = PySequence_Fast_GET_ITEM(seq.ptr(), i);
    rows.append(section_row(section, truthy(member(section, k.stale)), whole_excerpt(member(section, k.excerpt))));
  }
  const py::object extra_list = citations.is_none()
                                    ? py::object(py::list())
                                    : sequence(citations, "build_wiki_ask_response: citations must be a sequence");
  const Where root("$");
  const py::list merged = merged_citations(seq, extra_list, Where(root, "sections"), Where(root, "citations"));
  py::dict out;
  set(out, k.mode, mode);
  set(out, k.query, query);
  set(out, k.answer, answer);
  set(out, k.sections, rows);
  set(out, k.citations, merged);
  for (const auto& [name, value] : attachments) {
    if (!value->is_none()) set(out, name, *value);
  }
  return out;
}

py::dict wiki_ask(const py::handle& mode, const py::handle& query, const py::handle& answer, const py::handle& sections,
                  const py::handle& citations, const py::handle& model, const py::handle& tokens,
                  const py::handle& note, const py::handle& decisions, const py::handle& code,
                  const py::handle& memories, const py::handle& token_budget) {
  const Keys& k = keys();
  const py::object seq = sequence(sections, "build_wiki_ask_response: sections must be a sequence");
  const Py_ssize_t n_sections = PySequence_Fast_GET_SIZE(seq.ptr());
  const Attachments attachments = {{{k.model, &model},
                                    {k.tokens, &tokens},
                                    {k.note, &note},
                                    {k.decisions, &decisions},
                                    {k.code, &code},
                                    {k.memories, &memories}}};
  if (token_budget.is_none()) return ask_unbudgeted(seq, mode, query, answer, citations, attachments);

  // The sections as the library reads them, and what the rows take back.
  std::vector<Citations> lists;
  lists.reserve(static_cast<std::size_t>(n_sections));
  ResponseList section_values;
  section_values.reserve(static_cast<std::size_t>(n_sections));
  const Where root("$");
  const Where all_sections(root, "sections");
  for (Py_ssize_t i = 0; i < n_sections; ++i) {
    const py::handle section = PySequence_Fast_GET_ITEM(seq.ptr(), i);
    const Where at(all_sections, static_cast<std::size_t>(i));
    ResponseDict row;
    row.reserve(7);
    for (const auto& [name, text] : row_keys()) {
      row.append(std::string(text), value_of(member(section, name), BigIntegers::stand_in, Where(at, text)));
    }
    row.append("stale", truthy(member(section, k.stale)));
    row.append("excerpt", excerpt_of(member(section, k.excerpt)));
    lists.push_back(
        citations_of(member(section, k.citations), detail::ASK_CITATIONS_PER_SECTION, Where(at, "citations")));
    section_values.emplace_back(std::move(row));
  }
  const py::object extra_list = citations.is_none()
                                    ? py::object(py::list())
                                    : sequence(citations, "build_wiki_ask_response: citations must be a sequence");
  Citations extra = citations_of(extra_list, static_cast<std::size_t>(-1), Where(root, "citations"));
  const detail::CitationMerge merge(spans_of(lists), extra.values);
  for (std::size_t i = 0; i < lists.size(); ++i) {
    section_values[i].as_dict().append("citations", ResponseList(lists[i].values));
  }

  const std::optional<std::string> answer_text = optional_text(answer, "build_wiki_ask_response: answer");
  ResponseDict fitted = build_wiki_ask_response({
      .mode = required_text(mode, "build_wiki_ask_response: mode"),
      .query = required_text(query, "build_wiki_ask_response: query"),
      .answer = answer_text,
      .sections = std::move(section_values),
      .citations = std::move(extra.values),
      .model = optional_text(model, "build_wiki_ask_response: model"),
      .tokens = optional_map(tokens, "tokens"),
      .note = optional_text(note, "build_wiki_ask_response: note"),
      .decisions = optional_map(decisions, "decisions"),
      .code = optional_map(code, "code"),
      .memories = optional_map(memories, "memories"),
      .token_budget = token_budget.is_none() ? std::nullopt : std::optional(clamp_budget(token_budget)),
  });

  py::dict out;
  set(out, k.mode, mode);
  set(out, k.query, query);
  set(out, k.answer, answer);
  const ResponseList& rows = fitted.at("sections").as_list();
  py::list row_list;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const py::handle section = PySequence_Fast_GET_ITEM(seq.ptr(), static_cast<Py_ssize_t>(i));
    const ResponseDict& fitted_row = rows[i].as_dict();
    row_list.append(section_row(section, fitted_row.at("stale").as_bool(), text(fitted_row.at("excerpt").as_string())));
  }
  set(out, k.sections, row_list);
  set(out, k.citations, picked(merge, rows.size(), lists, extra));
  for (const auto& [name, value] : attachments) {
    if (fitted.contains(PyUnicode_AsUTF8(name))) set(out, name, *value);
  }
  return out;
}

py::dict wiki_status(const std::array<PyObject*, 11>& a) {
  const Keys& k = keys();
  py::dict r = presized(11);
  set(r, k.built, a[0]);
  set(r, k.branch, a[1]);
  set(r, k.enabled, given_or(a[9], Py_False));
  set(r, k.configured, given_or(a[10], Py_False));
  set(r, k.pages, given_or(a[2], zero()));
  set(r, k.files_covered, given_or(a[3], zero()));
  set(r, k.total_sources, given_or(a[4], zero()));
  set(r, k.coverage_pct, given_or(a[5], float_zero()));
  set(r, k.last_built, given_or(a[6], Py_None));
  set(r, k.model, given_or(a[7], Py_None));
  set(r, k.stale_pages, list_or_empty(given_or(a[8], Py_None)));
  return r;
}

py::dict wiki_list(const std::array<PyObject*, 4>& a) {
  const Keys& k = keys();
  PyObject* offset = given_or(a[2], zero());
  const Py_ssize_t count = PyObject_Size(a[0]);
  if (count < 0) throw py::error_already_set();
  const py::object end = checked(PyNumber_Add(offset, py::int_(count).ptr()));
  const int more = PyObject_RichCompareBool(end.ptr(), a[1], Py_LT);
  if (more < 0) throw py::error_already_set();
  py::dict r = presized(5);
  set(r, k.pages, a[0]);
  set(r, k.total_count, a[1]);
  set(r, k.offset, offset);
  set(r, k.truncated, given_or(a[3], Py_False));
  set(r, k.has_more, more == 1 ? Py_True : Py_False);
  return r;
}

py::dict wiki_read(const std::array<PyObject*, 6>& a) {
  const Keys& k = keys();
  py::dict r = presized(6);
  set(r, k.page_id, a[0]);
  set(r, k.title, a[1]);
  set(r, k.content, a[2]);
  set(r, k.citations, list_or_empty(given_or(a[3], Py_None)));
  set(r, k.source_files, list_or_empty(given_or(a[4], Py_None)));
  set(r, k.related_pages, list_or_empty(given_or(a[5], Py_None)));
  return r;
}

PyObject* status_call(const std::array<PyObject*, 11>& a) { return wiki_status(a).release().ptr(); }

PyObject* list_call(const std::array<PyObject*, 4>& a) { return wiki_list(a).release().ptr(); }

PyObject* read_call(const std::array<PyObject*, 6>& a) { return wiki_read(a).release().ptr(); }

PyObject* ask_call(const std::array<PyObject*, 12>& a) {
  const auto or_none = [&](std::size_t i) { return py::handle(given_or(a[i], Py_None)); };
  return wiki_ask(a[0], a[1], a[2], a[3], or_none(4), or_none(5), or_none(6), or_none(7), or_none(8), or_none(9),
                  or_none(10), or_none(11))
      .release()
      .ptr();
}

PyObject* ask_citations_call(const std::array<PyObject*, 2>& a) { return ask_citations(a[0], a[1]).release().ptr(); }

PyMethodDef kMethods[] = {
    method<bound<11, stubs::build_wiki_status_response, status_call>>("build_wiki_status_response",
                                                                      stubs::build_wiki_status_response_doc),
    method<bound<4, stubs::build_wiki_list_response, list_call>>("build_wiki_list_response",
                                                                 stubs::build_wiki_list_response_doc),
    method<bound<6, stubs::build_wiki_read_response, read_call>>("build_wiki_read_response",
                                                                 stubs::build_wiki_read_response_doc),
    method<bound<12, stubs::build_wiki_ask_response, ask_call>>("build_wiki_ask_response",
                                                                stubs::build_wiki_ask_response_doc),
    method<bound<2, stubs::_ask_citations, ask_citations_call>>("_ask_citations", stubs::_ask_citations_doc),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

void bind_wiki(py::module_& m) {
  m.attr("_ASK_EXCERPT_CHARS") = detail::ASK_EXCERPT_CHARS;
  m.attr("_ASK_MIN_EXCERPT_CHARS") = detail::ASK_MIN_EXCERPT_CHARS;
  m.attr("_ASK_CITATIONS_PER_SECTION") = detail::ASK_CITATIONS_PER_SECTION;
  m.attr("_ASK_MAX_CITATIONS") = detail::ASK_MAX_CITATIONS;
  m.attr("_BYTES_PER_TOKEN") = detail::BYTES_PER_TOKEN;
  if (PyModule_AddFunctions(m.ptr(), kMethods) != 0) throw py::error_already_set();
}

}  // namespace kestrune::mcp_responses::python
