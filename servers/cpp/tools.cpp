// The tools: what each takes (its params, which are its input schema) and
// how it answers from the index with the response layer's builders.
#include "tools.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "internal/chars.hpp"
#include "kestrune/mcp_responses.hpp"
#include "lookup_names.hpp"
#include "text/cut.hpp"
#include "tool_args.hpp"

namespace kestrune::example {

namespace {

using Type = Param::Type;

constexpr std::int64_t kDefaultLimit = 20;
constexpr std::int64_t kMaxLimit = 100;
constexpr std::int64_t kAskSections = 5;
// Outlines and component lists are cut by the budget rather than by a count.
constexpr std::int64_t kWholeListLimit = kMaxLimit;

constexpr Param kOffset{"offset", Type::integer, false, "rows to skip: the offset a truncated page's hint names"};
constexpr Param kLimit{"limit", Type::integer, false, "most rows in the page (default 20)", {}, 1, kMaxLimit};
constexpr Param kWholeLimit{"limit", Type::integer, false, "most rows in the page (default 100)", {}, 1, kMaxLimit};

constexpr Param kSearchParams[] = {
    {"query", Type::string, true,
     "text that the symbol's qualified name or name contains (any case); one or two characters: the start of its "
     "name"},
    kOffset,
    kLimit,
};
constexpr Param kSymbolParams[] = {
    {"fqn", Type::string, true, "the symbol's fully qualified name (\"::\", \"/\" or \".\" between its parts)"}};
constexpr Param kFileParams[] = {
    {"path", Type::string, true, "the file's path in the repository, or its module's name"},
    kOffset,
    kWholeLimit,
};
constexpr Param kArchitectureParams[] = {kOffset, kWholeLimit};
constexpr Param kReferencesParams[] = {
    {"fqn", Type::string, true, "the fully qualified name of the symbol that is used"},
    kOffset,
    kLimit,
};
constexpr Param kProblemsParams[] = {kOffset, kLimit};
constexpr std::string_view kWikiActions[] = {"status", "list", "read", "ask"};
constexpr Param kWikiParams[] = {
    {"action", Type::string, true, "what to do: the wiki's status, a list of its pages, read a page, or ask",
     kWikiActions},
    {"page_id", Type::string, false, "read: the page to read"},
    {"query", Type::string, false, "ask: the question"},
    {"token_budget", Type::integer, false, "ask: most tokens of the answer (4 bytes each)", {}, 1},
    kOffset,
    kLimit,
};

bool fits(std::size_t budget, const mr::ResponseDict& response) {
  return mr::tool_result_text(response).size() <= budget;
}

// `response` with each string longer than `chars` code points cut to them.
mr::ResponseDict capped(mr::ResponseDict response, std::size_t chars) {
  for (std::size_t i = 0; i < response.size(); ++i) {
    mr::ResponseValue& value = response.value_at(i);
    if (value.is_string() && mr::detail::char_count(value.as_string()) > chars) {
      value = mr::detail::cut(value.as_string(), chars);
    }
  }
  return response;
}

// `response` whole when `fit` holds for it; else with its strings cut to
// the most code points for which it does (to one when none does), so
// that an answer too long for the budget still answers.
template <class Fit>
mr::ResponseDict shrunk(mr::ResponseDict response, const Fit& fit) {
  if (fit(response)) return response;
  std::size_t high = 1;
  for (const auto& [key, value] : response) {
    if (value.is_string()) high = std::max(high, mr::detail::char_count(value.as_string()));
  }
  std::size_t low = 1;  // fits, or is the floor
  while (low < high) {
    const std::size_t mid = high - (high - low) / 2;
    if (fit(capped(response, mid))) {
      low = mid;
    } else {
      high = mid - 1;
    }
  }
  return capped(std::move(response), low);
}

mr::ResponseDict status(const ToolsConfig& c, const Args& /*args*/) {
  const IndexState s = c.index.state();
  return shrunk(mr::build_index_status_response({.status = s.status,
                                                 .health = s.health,
                                                 .branch = s.branch,
                                                 .progress = s.progress,
                                                 .files_indexed = s.files_indexed,
                                                 .symbols_indexed = s.symbols_indexed,
                                                 .last_updated = s.last_updated,
                                                 .errors_count = s.errors_count,
                                                 .phase = s.phase,
                                                 .phase_detail = s.phase_detail}),
                [&](const mr::ResponseDict& r) { return fits(c.page_bytes, r); });
}

// A page of rows, cut to `budget` bytes: its hint names the offset of the
// first row left out. A first row too long for the budget by itself is
// shown cut, so that every page goes on from the last.
mr::ResponseDict fitted_page(std::size_t budget, mr::ResponseList rows, std::int64_t total, std::int64_t offset,
                             std::string_view key) {
  std::optional<mr::ResponseDict> first;
  if (!rows.empty() && rows.front().is_dict()) first = rows.front().as_dict();
  mr::ResponseDict page =
      mr::fit_paginated_response(std::move(rows), total, offset, budget, {.items_key = std::string(key)});
  if (!first || !page.at(key).as_list().empty()) return page;
  const auto alone = [&](mr::ResponseDict row) {
    return mr::build_paginated_response({std::move(row)}, total, offset, {.items_key = std::string(key)});
  };
  return alone(shrunk(std::move(*first), [&](const mr::ResponseDict& row) { return fits(budget, alone(row)); }));
}

mr::ResponseDict fitted_page(const ToolsConfig& c, mr::ResponseList rows, std::int64_t total, std::int64_t offset,
                             std::string_view key) {
  return fitted_page(c.page_bytes, std::move(rows), total, offset, key);
}

// The same page after keys of its own (`head`, not empty): the rows get what
// the budget leaves. `head`'s text adds itself without its braces, plus a comma.
mr::ResponseDict fitted_page_after(const ToolsConfig& c, mr::ResponseDict head, mr::ResponseList rows,
                                   std::int64_t total, std::int64_t offset, std::string_view key) {
  const std::size_t head_bytes = mr::tool_result_text(head).size() - 1;
  const std::size_t room = c.page_bytes > head_bytes ? c.page_bytes - head_bytes : 0;
  const mr::ResponseDict page = fitted_page(room, std::move(rows), total, offset, key);
  for (const auto& [k, v] : page) head.insert_or_assign(k, v);
  return head;
}

// Rows [offset, offset + limit) of a list held whole.
template <class Row, class Build>
mr::ResponseList slice(const std::vector<Row>& all, std::int64_t offset, std::int64_t limit, Build build) {
  const auto size = static_cast<std::int64_t>(all.size());
  const std::int64_t begin = std::clamp<std::int64_t>(offset, 0, size);
  const std::int64_t end = begin + std::min(limit, size - begin);
  mr::ResponseList rows;
  rows.reserve(static_cast<std::size_t>(end - begin));
  for (std::int64_t i = begin; i < end; ++i) rows.emplace_back(build(all[static_cast<std::size_t>(i)]));
  return rows;
}

mr::ResponseDict search(const ToolsConfig& c, const Args& args) {
  const std::int64_t offset = args.integer_or("offset", 0);
  const Page<SymbolRow> hits = c.index.search(args.string("query"), offset, args.integer_or("limit", kDefaultLimit));
  mr::ResponseList rows;
  rows.reserve(hits.rows.size());
  for (const SymbolRow& hit : hits.rows) rows.emplace_back(mr::build_symbol_search_result(hit.symbol, hit.file_path));
  return fitted_page(c, std::move(rows), hits.total, offset, "symbols");
}

// The symbol that `name` names as it is written, or as the index writes it.
std::optional<SymbolRow> named_symbol(const ToolsConfig& c, std::string_view name) {
  std::optional<SymbolRow> hit = c.index.symbol(name);
  if (hit) return hit;
  const std::optional<std::string> fqn = c.index.resolved_fqn(name);
  return fqn ? c.index.symbol(*fqn) : std::nullopt;
}

// A symbol's details within the budget: a docstring too long is trimmed to
// what fits and marked truncated; should that not do, the other texts are
// cut too.
mr::ResponseDict fitted_details(const ToolsConfig& c, mr::ResponseDict details) {
  const auto fit = [&](const mr::ResponseDict& r) { return fits(c.page_bytes, r); };
  if (fit(details) || !details.at("docstring").is_string()) return shrunk(std::move(details), fit);
  const std::string docstring(details.at("docstring").as_string());
  const auto with_docstring = [&](std::int64_t chars) {
    mr::ResponseDict cut = details;
    cut.insert_or_assign("docstring", mr::detail::trimmed(docstring, chars));
    cut.insert_or_assign("docstring_truncated", true);
    return cut;
  };
  if (!fit(with_docstring(0))) return shrunk(with_docstring(0), fit);
  std::int64_t low = 0;  // fits
  auto high = static_cast<std::int64_t>(mr::detail::char_count(docstring));
  while (low < high) {
    const std::int64_t mid = high - (high - low) / 2;
    if (fit(with_docstring(mid))) {
      low = mid;
    } else {
      high = mid - 1;
    }
  }
  return with_docstring(low);
}

mr::ResponseDict symbol(const ToolsConfig& c, const Args& args) {
  const std::string fqn = args.string("fqn");
  const std::optional<SymbolRow> hit = named_symbol(c, fqn);
  if (!hit) {
    return shrunk(
        mr::ResponseDict{{"found", false},
                         {"message", "No symbol is named " + fqn + "." + suggestion_text(c.index.close_names(fqn))}},
        [&](const mr::ResponseDict& r) { return fits(c.page_bytes, r); });
  }
  return fitted_details(c, mr::build_symbol_full_details(hit->symbol, hit->file_path));
}

mr::ResponseDict file(const ToolsConfig& c, const Args& args) {
  std::string path = args.string("path");
  auto names = c.index.file_names(path);
  if (names.empty() && !c.index.has_file(path)) {
    const std::optional<std::string> found = c.index.resolved_file(path);
    if (!found) {
      const std::vector<std::string> close = c.index.close_files(path);
      throw InputError("no indexed file at " + mr::quote(path) + (close.empty() ? "" : "." + suggestion_text(close)));
    }
    path = *found;
    names = c.index.file_names(path);
  }
  // The module is the one the file's definitions sit in: its own module
  // symbol, when it has one, would make that the module's parent. That row
  // is listed all the same, under its whole fqn.
  std::vector<std::string_view> fqns;
  fqns.reserve(names.size());
  for (const auto& [fqn, kind] : names) {
    if (kind != "module") fqns.emplace_back(fqn);
  }
  if (fqns.empty()) {
    for (const auto& [fqn, kind] : names) fqns.emplace_back(fqn);
  }
  const std::string module = mr::outline_module(fqns);
  const std::int64_t offset = args.integer_or("offset", 0);
  mr::ResponseList rows;
  for (const SymbolRow& s : c.index.file_symbols(path, offset, args.integer_or("limit", kWholeListLimit))) {
    rows.emplace_back(mr::build_file_symbol(s.symbol, module));
  }
  return fitted_page_after(c, {{"file", path}, {"module", module}}, std::move(rows),
                           static_cast<std::int64_t>(names.size()), offset, "symbols");
}

mr::ResponseDict references(const ToolsConfig& c, const Args& args) {
  const std::int64_t offset = args.integer_or("offset", 0);
  const std::int64_t limit = args.integer_or("limit", kDefaultLimit);
  const std::string fqn = args.string("fqn");
  Page<mr::Reference> refs = c.index.references(fqn, offset, limit);
  if (refs.total == 0 && !c.index.symbol(fqn)) {
    const std::optional<std::string> resolved = c.index.resolved_fqn(fqn);
    if (!resolved) {
      throw InputError("no symbol is named " + mr::quote(fqn) + "." + suggestion_text(c.index.close_names(fqn)));
    }
    refs = c.index.references(*resolved, offset, limit);
  }
  // One read of the work tree for the whole page.
  std::vector<mr::Place> places;
  for (const mr::Reference& r : refs.rows) {
    if (r.file_path && r.line) places.push_back({*r.file_path, *r.line});
  }
  const mr::CodeLines code = mr::code_lines(c.root, places);
  mr::ResponseList rows;
  for (const mr::Reference& r : refs.rows) {
    std::optional<std::string_view> line;
    if (r.file_path && r.line) line = code.find(*r.file_path, *r.line);
    rows.emplace_back(mr::build_reference(r, line));
  }
  return fitted_page(c, std::move(rows), refs.total, offset, "references");
}

mr::ResponseDict architecture(const ToolsConfig& c, const Args& args) {
  const std::vector<mr::ComponentInfo> components = c.index.components();
  const std::int64_t offset = args.integer_or("offset", 0);
  mr::ResponseList rows = slice(components, offset, args.integer_or("limit", kWholeListLimit),
                                [](const mr::ComponentInfo& component) { return mr::build_component(component); });
  return fitted_page(c, std::move(rows), static_cast<std::int64_t>(components.size()), offset, "components");
}

mr::ResponseDict problems(const ToolsConfig& c, const Args& args) {
  const std::int64_t offset = args.integer_or("offset", 0);
  const Page<std::pair<std::string, std::string>> found =
      c.index.problems(offset, args.integer_or("limit", kDefaultLimit));
  mr::ResponseList rows;
  rows.reserve(found.rows.size());
  for (const auto& [path, problem] : found.rows)
    rows.emplace_back(mr::ResponseDict{{"path", path}, {"problem", problem}});
  return fitted_page(c, std::move(rows), found.total, offset, "problems");
}

// The largest k in [low, high] for which `fits(k)` holds, found by halving,
// `fits` holding for every k up to some bound; `low` when it holds for none.
template <class Fits>
std::int64_t largest_fitting(std::int64_t low, std::int64_t high, const Fits& fits) {
  while (low < high) {
    const std::int64_t mid = high - (high - low) / 2;
    if (fits(mid)) {
      low = mid;
    } else {
      high = mid - 1;
    }
  }
  return low;
}

bool within(const mr::ResponseDict& response, std::size_t bytes) {
  return mr::tool_result_text(response).size() <= bytes;
}

// The first `count` entries of `list`.
mr::ResponseList prefix(const mr::ResponseList& list, std::int64_t count) {
  return {list.begin(), list.begin() + count};
}

// The wiki's status; a list of stale pages too long for the budget is cut to
// the pages that fit (the wiki list marks each stale page).
mr::ResponseDict wiki_status(const ToolsConfig& c) {
  std::optional<WikiState> s = c.index.wiki_state();
  if (!s) return mr::build_wiki_status_response({.built = false, .branch = c.index.state().branch.value_or("")});
  const auto status = [&](std::int64_t stale) {
    return mr::build_wiki_status_response(
        {.built = s->built,
         .branch = s->branch,
         .pages = s->pages,
         .files_covered = s->files_covered,
         .total_sources = s->total_sources,
         .coverage_pct = s->total_sources > 0
                             ? 100.0 * static_cast<double>(s->files_covered) / static_cast<double>(s->total_sources)
                             : 0.0,
         .last_built = s->last_built,
         .model = s->model,
         .stale_pages = prefix(s->stale_pages, stale),
         .enabled = s->enabled,
         .configured = s->configured});
  };
  const auto all = static_cast<std::int64_t>(s->stale_pages.size());
  return status(largest_fitting(0, all, [&](std::int64_t n) { return within(status(n), c.page_bytes); }));
}

// The list of the longest prefix of `rows` whose text fits the budget (of
// none when even one row is too long): its truncated flag tells that more
// follow, from its offset plus its rows.
mr::ResponseDict fitted_wiki_list(const ToolsConfig& c, const std::vector<mr::ResponseDict>& rows, std::int64_t total,
                                  std::int64_t offset) {
  const auto list = [&](std::int64_t count) {
    return mr::build_wiki_list_response(mr::ResponseList(rows.begin(), rows.begin() + count), total, offset,
                                        mr::Truncated{offset + count < total});
  };
  const auto size = static_cast<std::int64_t>(rows.size());
  return list(largest_fitting(0, size, [&](std::int64_t n) { return within(list(n), c.page_bytes); }));
}

// The number of code points of well-formed UTF-8 `text`.
std::int64_t char_count(std::string_view text) {
  return std::count_if(text.begin(), text.end(),
                       [](char b) { return (static_cast<unsigned char>(b) & 0xC0U) != 0x80U; });
}

// The byte after the first `chars` code points of `text` (its end when it
// has fewer).
std::size_t byte_after(std::string_view text, std::int64_t chars) {
  std::size_t i = 0;
  for (; i < text.size() && chars > 0; --chars) {
    ++i;
    while (i < text.size() && (static_cast<unsigned char>(text[i]) & 0xC0U) == 0x80U) ++i;
  }
  return i;
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Where a page's sections start in its text, in code points: the line of a
// section's heading, found before its body, each body after the one before.
// A section whose body the text does not hold starts where the one before it
// does (at 0 for the first).
struct SectionStart {
  std::int64_t at = 0;
  std::int64_t id = 0;
  std::string_view heading;
  bool found = false;
};

std::vector<SectionStart> section_starts(const WikiPage& page) {
  const std::string_view text = page.content;
  std::vector<SectionStart> starts;
  std::size_t cursor = 0;  // the end of the last body found, in bytes
  std::int64_t cursor_chars = 0;
  std::int64_t last = 0;
  for (const WikiSection& section : page.sections) {
    const std::size_t body = section.body.empty() ? std::string_view::npos : text.find(section.body, cursor);
    if (body == std::string_view::npos) {
      starts.push_back({last, section.id, section.heading, false});
      continue;
    }
    std::size_t line = body;
    while (line > cursor && is_blank(text[line - 1])) --line;
    while (line > cursor && text[line - 1] != '\n') --line;
    last = cursor_chars + char_count(text.substr(cursor, line - cursor));
    starts.push_back({last, section.id, section.heading, true});
    cursor = body + section.body.size();
    cursor_chars = last + char_count(text.substr(line, cursor - line));
  }
  return starts;
}

// The first `kept` entries of `lists`, taken in their order: `kept` counts
// through the first list, then the second, and so on.
std::vector<mr::ResponseList> keep_entries(const std::vector<mr::ResponseList>& lists, std::int64_t kept) {
  std::vector<mr::ResponseList> out;
  for (const mr::ResponseList& list : lists) {
    const std::int64_t n = std::min(kept, static_cast<std::int64_t>(list.size()));
    out.push_back(prefix(list, n));
    kept -= n;
  }
  return out;
}

// A wiki page too long for one answer, read in parts that end where a
// section starts: from code point `offset`, as many whole sections as fit;
// a section too long for one part is cut at a line's end (or a space) and
// goes on in the next. The text ends with the way on: the offset to call
// again with and the section it starts, or that this was the end. Each part
// carries the citations of the sections that start in it, the first one the
// page's source files and related pages too; these lists are cut to what
// half the budget holds.
mr::ResponseDict wiki_part(const ToolsConfig& c, const WikiPage& page, std::int64_t offset) {
  const std::int64_t length = char_count(page.content);
  const std::int64_t from = std::clamp<std::int64_t>(offset, 0, length);
  const std::size_t from_byte = byte_after(page.content, from);
  const std::vector<SectionStart> starts = section_starts(page);
  // The ends a part may have: the starts of later sections, then the page's end.
  std::vector<const SectionStart*> ends;
  for (const SectionStart& s : starts) {
    if (s.found && s.at > from && (ends.empty() || ends.back()->at < s.at)) ends.push_back(&s);
  }
  const auto end_at = [&](std::int64_t i) {
    return i < static_cast<std::int64_t>(ends.size()) ? ends[static_cast<std::size_t>(i)]->at : length;
  };
  const auto home = [&](std::int64_t section_id) {
    const auto it =
        std::find_if(starts.begin(), starts.end(), [&](const SectionStart& s) { return s.id == section_id; });
    return it == starts.end() ? 0 : it->at;
  };
  // The part that ends at code point `end`, `whole` when that is where a
  // section starts or the page ends.
  const auto part = [&](std::int64_t end, bool whole) {
    std::string way = "(The page's end.)";
    if (end < length && whole) {
      const auto next = std::find_if(ends.begin(), ends.end(), [&](const SectionStart* s) { return s->at == end; });
      way = "(The page goes on with " + mr::quote((*next)->heading) +
            ": call again with offset=" + std::to_string(end) + ".)";
    } else if (end < length) {
      way = "(The section goes on: call again with offset=" + std::to_string(end) + ".)";
    }
    std::vector<mr::ResponseList> lists(3);
    for (std::size_t i = 0; i < page.citations.size(); ++i) {
      const std::int64_t at = home(page.cited_by[i]);
      if (at >= from && at < end) lists[0].push_back(page.citations[i]);
    }
    if (from == 0) {
      lists[1] = page.source_files;
      lists[2] = page.related_pages;
    }
    const auto read = [&](std::string content, std::int64_t kept) {
      std::vector<mr::ResponseList> l = keep_entries(lists, kept);
      return mr::build_wiki_read_response({.page_id = page.page_id,
                                           .title = page.title,
                                           .content = std::move(content),
                                           .citations = std::move(l[0]),
                                           .source_files = std::move(l[1]),
                                           .related_pages = std::move(l[2])});
    };
    const auto entries = static_cast<std::int64_t>(lists[0].size() + lists[1].size() + lists[2].size());
    std::int64_t kept = entries;
    if (!within(read("", entries), c.page_bytes / 2)) {
      kept = largest_fitting(0, entries, [&](std::int64_t n) { return within(read("", n), c.page_bytes / 2); });
    }
    // Counted from the part's start: a page may be long, and parts are tried many times.
    const std::size_t stop = from_byte + byte_after(std::string_view(page.content).substr(from_byte), end - from);
    return read(page.content.substr(from_byte, stop - from_byte) + "\n\n" + way, kept);
  };
  const auto fits = [&](const mr::ResponseDict& response) { return within(response, c.page_bytes); };
  // A part of more code points than the budget has bytes cannot fit: the
  // search need not try it (nor encode it).
  std::int64_t most_ends = 0;
  while (most_ends <= static_cast<std::int64_t>(ends.size()) &&
         end_at(most_ends) - from <= static_cast<std::int64_t>(std::min<std::size_t>(c.page_bytes, INT64_MAX)))
    ++most_ends;
  const std::int64_t sections =
      largest_fitting(0, most_ends, [&](std::int64_t n) { return n == 0 || fits(part(end_at(n - 1), true)); });
  if (sections > 0) return part(end_at(sections - 1), true);
  // The first section alone is too long: as many of its code points as fit,
  // back to the last line's end (or else space) in their second half; one
  // at least, so that every part goes on.
  const std::int64_t most = std::min(std::max<std::int64_t>(end_at(0) - from - 1, 1),
                                     static_cast<std::int64_t>(std::min<std::size_t>(c.page_bytes, INT64_MAX)));
  std::int64_t chars = largest_fitting(1, most, [&](std::int64_t n) { return fits(part(from + n, false)); });
  const std::string_view cut =
      std::string_view(page.content)
          .substr(from_byte, byte_after(std::string_view(page.content).substr(from_byte), chars));
  for (const char mark : {'\n', ' '}) {
    const std::size_t at = cut.rfind(mark);
    if (at != std::string_view::npos && char_count(cut.substr(0, at + 1)) * 2 > chars) {
      chars = char_count(cut.substr(0, at + 1));
      break;
    }
  }
  return part(from + chars, false);
}

constexpr std::int64_t kBytesPerToken = 4;  // as the ask's token budget counts them

// "HEADING" (page PAGE), ... for the best sections of an ask.
std::string named_sections(const mr::ResponseList& sections) {
  std::string names;
  for (const mr::ResponseValue& value : sections) {
    const mr::ResponseDict& section = value.as_dict();
    if (!names.empty()) names += ", ";
    names +=
        mr::quote(section.at("heading").as_string()) + " (page " + mr::quote(section.at("page_id").as_string()) + ")";
  }
  return names;
}

// The ask: the sections that hold the question's meaningful words, fitted to
// the token budget asked for, and never beyond the server's budget. The
// note says what was found, and when the budget leaves sections out, which
// are the best, so that the model can read them or ask with a larger budget.
mr::ResponseDict wiki_ask(const ToolsConfig& c, const std::string& question, std::optional<std::int64_t> token_budget) {
  const auto room = static_cast<std::int64_t>(c.page_bytes / kBytesPerToken);
  const bool server_bound = !token_budget || *token_budget >= room;
  const std::int64_t budget = server_bound ? room : *token_budget;
  const auto ask = [&](mr::ResponseList sections, std::string note) {
    return mr::build_wiki_ask_response({.mode = "sections",
                                        .query = question,
                                        .answer = std::nullopt,
                                        .sections = std::move(sections),
                                        .note = std::move(note),
                                        .token_budget = budget});
  };
  const std::vector<std::string> words = c.index.question_words(question);
  if (words.empty()) {
    return ask({},
               "The question has no word to search for: words such as \"how\", \"do\" and \"the\" are in every "
               "page. Ask with the names or terms the answer holds.");
  }
  const mr::ResponseList sections = c.index.wiki_sections(words, kAskSections);
  if (sections.empty()) return ask({}, "No wiki section holds any of the question's words.");
  mr::ResponseDict answer =
      ask(sections, "No answer model is configured: these are the wiki sections that match, best first.");
  const auto kept_of = [](const mr::ResponseDict& a) { return a.at("sections").as_list().size(); };
  // The note names how many sections the budget keeps, which its own length
  // can change: written again until they agree, a few times at most.
  for (int tries = 0; tries < 4 && kept_of(answer) < sections.size(); ++tries) {
    const std::size_t kept = kept_of(answer);
    std::string note = kept == 0
                           ? "No answer model is configured, and the token budget is too small for any section "
                             "that matches."
                           : "No answer model is configured: the token budget holds the best " + std::to_string(kept) +
                                 " of the " + std::to_string(sections.size()) + " sections that match.";
    note += " The best: " + named_sections(sections) + ". Read one with the action \"read\"";
    note += server_bound ? " (the server's budget holds no more)." : ", or ask again with a larger token_budget.";
    answer = ask(sections, std::move(note));
    if (kept_of(answer) == kept) break;
  }
  return answer;
}

mr::ResponseDict wiki(const ToolsConfig& c, const Args& args) {
  const std::string action = args.string("action");
  if (action == "status") return wiki_status(c);
  if (action == "list") {
    const std::int64_t offset = args.integer_or("offset", 0);
    const Page<mr::ResponseDict> pages = c.index.wiki_pages(offset, args.integer_or("limit", kDefaultLimit));
    return fitted_wiki_list(c, pages.rows, pages.total, offset);
  }
  if (action == "read") {
    const std::optional<std::string> id = args.optional_string("page_id");
    if (!id) throw InputError("the read action needs \"page_id\"");
    const std::optional<WikiPage> page = c.index.wiki_page(*id);
    if (!page) throw InputError("no wiki page " + mr::quote(*id));
    const std::optional<std::int64_t> offset = args.optional_integer("offset");
    if (!offset) {
      mr::ResponseDict whole = mr::build_wiki_read_response({.page_id = page->page_id,
                                                             .title = page->title,
                                                             .content = page->content,
                                                             .citations = page->citations,
                                                             .source_files = page->source_files,
                                                             .related_pages = page->related_pages});
      if (within(whole, c.page_bytes)) return whole;
    }
    return wiki_part(c, *page, offset.value_or(0));
  }
  const std::optional<std::string> query = args.optional_string("query");
  if (!query) throw InputError("the ask action needs \"query\"");
  // The note and the question echoed may be long: cut to the server's budget.
  return shrunk(wiki_ask(c, *query, args.optional_integer("token_budget")),
                [&](const mr::ResponseDict& r) { return fits(c.page_bytes, r); });
}

// The status tool's output schema: the keys that every status answer has,
// the canned one for a repository that is not initialized included.
mr::ResponseDict status_output_schema() {
  const mr::ResponseDict text{{"type", "string"}};
  const mr::ResponseDict count{{"type", "integer"}};
  const mr::ResponseDict text_or_null{{"type", mr::ResponseList{"string", "null"}}};
  return {{"type", "object"},
          {"properties", mr::ResponseDict{{"status", text},
                                          {"health", text},
                                          {"branch", text_or_null},
                                          {"progress", count},
                                          {"files_indexed", count},
                                          {"symbols_indexed", count},
                                          {"last_updated", text_or_null},
                                          {"errors_count", count},
                                          {"phase", text},
                                          {"phase_detail", text}}},
          {"required", mr::ResponseList{"status", "health", "branch", "progress", "files_indexed", "symbols_indexed",
                                        "errors_count"}}};
}

struct Tool {
  std::string_view name;
  std::string_view description;
  std::span<const Param> params;
  mr::ResponseDict (*run)(const ToolsConfig&, const Args&);
  // A tool with an output schema also sends its answers as structuredContent.
  mr::ResponseDict (*output_schema)() = nullptr;
};

const std::array kTools = {
    Tool{"status",
         "The indexer's state: status, health, branch, progress and counts. The problems tool lists the errors.",
         {},
         status,
         status_output_schema},
    Tool{"search", "Find symbols by name. Pages of rows; a truncated page's hint names the offset to go on from.",
         kSearchParams, search},
    Tool{"symbol",
         "Everything known about one symbol, its whole docstring included (trimmed, and docstring_truncated set, when "
         "too long for one answer). A name that matches no symbol is answered with close names.",
         kSymbolParams, symbol},
    Tool{"file",
         "The outline of one file: its module and a row per symbol, named relative to the module. Pages of rows, "
         "like search.",
         kFileParams, file},
    Tool{"references", "Where a symbol is used, with the line of code at each place. Pages of rows, like search.",
         kReferencesParams, references},
    Tool{"architecture", "The repository's components with their layers and counts. Pages of rows, like search.",
         kArchitectureParams, architecture},
    Tool{"problems",
         "The files that the last index run could not index, or not whole, with the reason. Pages of rows, like "
         "search.",
         kProblemsParams, problems},
    Tool{"wiki",
         "The repository's wiki: its status, its pages, one page, or the sections that answer a question. The list "
         "comes in pages: while has_more is true, call again with offset plus the rows it gave. A page too long for "
         "one answer is read in parts; each part's text ends naming the offset to read on from.",
         kWikiParams, wiki},
};

const Tool* find_tool(std::string_view name) {
  const auto it = std::find_if(kTools.begin(), kTools.end(), [&](const Tool& t) { return t.name == name; });
  return it == kTools.end() ? nullptr : &*it;
}

}  // namespace

mr::ResponseDict Tools::list() {
  mr::ResponseList tools;
  for (const Tool& t : kTools) {
    mr::ResponseDict entry{{"name", t.name}, {"description", t.description}, {"inputSchema", input_schema(t.params)}};
    if (t.output_schema != nullptr) entry.insert_or_assign("outputSchema", t.output_schema());
    tools.emplace_back(std::move(entry));
  }
  return {{"tools", std::move(tools)}};
}

bool Tools::exists(std::string_view name) { return find_tool(name) != nullptr; }

ToolAnswer Tools::call(std::string_view name, const mr::ResponseDict& arguments) const {
  const Tool* tool = find_tool(name);
  if (tool == nullptr) throw std::out_of_range("no tool is named " + mr::quote(name));
  const mr::CallToolOptions options{.structured = tool->output_schema != nullptr};
  try {
    const Args args(arguments, tool->params);
    if (!config_.index.initialized()) return {mr::get_empty_response(name), options};
    const IndexDb::Snapshot snapshot = config_.index.snapshot();
    return {tool->run(config_, args), options};
  } catch (const InputError& e) {
    return {{{"error", e.message()}}, {.is_error = true}};
  }
}

}  // namespace kestrune::example
