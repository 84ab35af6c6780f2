// Queries of the example index (index/queries.sql). Every value from a
// request is a bound parameter.
#include "index_db.hpp"

#include "writer_lock.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>
#include <tuple>

#include "lookup_names.hpp"
#include "queries.hpp"
#include "statement.hpp"

namespace kestrune::example {

namespace {

SymbolRow symbol_row(const Statement& s) {
  return {.symbol = {.fqn = s.text(0),
                     .name = s.optional_text(1),
                     .kind = s.optional_text(2),
                     .start_line = s.optional_integer(4),
                     .end_line = s.optional_integer(5),
                     .signature = s.optional_text(6),
                     .docstring = s.optional_text(7),
                     .is_export = s.optional_bool(8),
                     .docstring_truncated = s.optional_bool(9)},
          .file_path = s.optional_text(3)};
}

constexpr int kBusyMilliseconds = 2000;

std::size_t code_points(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// `text` with ASCII letters in lower case, as LIKE compares them.
std::string ascii_lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower;
}

// An FTS5 phrase of `text` with ASCII letters in lower case: in
// symbol_names, which holds fqns and names so, the rows that hold it as a
// substring in the sense of LIKE, which folds ASCII letters only.
std::string fts_phrase(std::string_view text) {
  std::string phrase = "\"";
  for (const char c : ascii_lower(text)) {
    phrase += c;
    if (c == '"') phrase += '"';
  }
  phrase += '"';
  return phrase;
}

// The ids that statement `s` returns, in its order.
std::vector<std::int64_t> ids_of(Statement s) {
  std::vector<std::int64_t> ids;
  while (s.step()) ids.push_back(s.integer(0));
  return ids;
}

// A LIKE pattern that matches `text` anywhere, its wildcards taken literally.
std::string contains_pattern(std::string_view text) {
  std::string pattern = "%";
  for (const char c : text) {
    if (c == '%' || c == '_' || c == '\\') pattern += '\\';
    pattern += c;
  }
  pattern += '%';
  return pattern;
}

// The first `n` code points of `text`.
std::string_view first_chars(std::string_view text, std::size_t n) {
  std::size_t i = 0;
  for (; i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 && n-- == 0) break;
  }
  return text.substr(0, i);
}

std::int64_t count_of(Statement s) { return s.step() ? s.integer(0) : 0; }

bool holds_nul(std::string_view text) { return text.find('\0') != std::string_view::npos; }

// The highest code point: a name that begins with a prefix sorts below the
// prefix followed by it.
constexpr std::string_view kLastChar = "\xF4\x8F\xBF\xBF";

std::string up_to_last(std::string_view prefix) { return std::string(prefix) + std::string(kLastChar); }

// The rows of the symbols `ids`, in that order.
std::vector<SymbolRow> rows_of(sqlite3* db, const std::vector<std::int64_t>& ids) {
  std::vector<SymbolRow> rows;
  Statement row(db, query("symbol_by_id"));
  for (const std::int64_t id : ids) {
    if (row.reset().bind(1, id).step()) rows.push_back(symbol_row(row));
  }
  return rows;
}

// The empty query: every named symbol by rank, then the unnamed ones.
Page<SymbolRow> every_symbol(sqlite3* db, std::int64_t offset, std::int64_t limit) {
  Page<SymbolRow> page;
  page.total = count_of(Statement(db, query("symbols_count")));
  const std::int64_t named = page.total - count_of(Statement(db, query("unnamed_count")));
  Statement s(db, query("ranked_named_page"));
  s.bind(1, limit).bind(2, offset);
  while (s.step()) page.rows.push_back(symbol_row(s));
  const auto more = limit - static_cast<std::int64_t>(page.rows.size());
  if (more > 0) {
    s = Statement(db, query("ranked_unnamed_page"));
    s.bind(1, more).bind(2, std::max<std::int64_t>(offset - named, 0));
    while (s.step()) page.rows.push_back(symbol_row(s));
  }
  return page;
}

// A query of one or two characters: the names that are it or begin with it.
Page<SymbolRow> short_search(sqlite3* db, std::string_view text, std::int64_t offset, std::int64_t limit) {
  Page<SymbolRow> page;
  const std::string last = up_to_last(text);
  page.total = count_of(std::move(Statement(db, query("short_count")).bind(1, text).bind(2, last)));
  page.rows = rows_of(
      db,
      ids_of(std::move(Statement(db, query("short_page")).bind(1, text).bind(2, last).bind(3, limit).bind(4, offset))));
  return page;
}

// A query that holds a NUL, which LIKE and FTS5 read a pattern up to, by a
// scan: instr takes it whole, compared in lower case as LIKE compares.
Page<SymbolRow> nul_search(sqlite3* db, std::string_view text, std::int64_t offset, std::int64_t limit) {
  const std::string lower = ascii_lower(text);
  Page<SymbolRow> page;
  page.total = count_of(std::move(Statement(db, query("scan_nul_count")).bind(1, lower)));
  Statement s(db, query("scan_nul_page"));
  s.bind(1, lower).bind(2, text).bind(3, limit).bind(4, offset);
  while (s.step()) page.rows.push_back(symbol_row(s));
  return page;
}

bool holds(const std::vector<std::int64_t>& sorted, std::int64_t id) {
  return std::binary_search(sorted.begin(), sorted.end(), id);
}

// The first `n` ids in rank order (uses, most first, then fqn and id) of
// the matches whose name `other` takes, of the `total` that it takes.
// Where they are dense, walking the rank's index finds them sooner than
// reading and sorting the rank of every one.
template <class Other>
std::vector<std::int64_t> first_by_rank(sqlite3* db, const std::vector<std::int64_t>& matches, const Other& other,
                                        std::int64_t total, std::int64_t n) {
  std::vector<std::int64_t> ids;
  const double symbols = static_cast<double>(count_of(Statement(db, query("last_symbol_id"))));
  if (static_cast<double>(n) * symbols < 4.0 * static_cast<double>(total) * static_cast<double>(total)) {
    Statement walk(db, query("ids_by_rank"));
    while (static_cast<std::int64_t>(ids.size()) < n && walk.step()) {
      const std::int64_t id = walk.integer(0);
      if (holds(matches, id) && other(walk.optional_text(1))) ids.push_back(id);
    }
    return ids;
  }
  std::vector<std::tuple<std::int64_t, std::string, std::int64_t>> keyed;
  Statement rank(db, query("rank_of_id"));
  for (const std::int64_t id : matches) {
    if (rank.reset().bind(1, id).step() && other(rank.optional_text(2))) {
      keyed.emplace_back(-rank.integer(0), rank.text(1), id);
    }
  }
  const auto end = keyed.begin() + std::min(n, static_cast<std::int64_t>(keyed.size()));
  std::partial_sort(keyed.begin(), end, keyed.end());
  for (auto it = keyed.begin(); it != end; ++it) ids.push_back(std::get<2>(*it));
  return ids;
}

// Search through the trigram index: it counts the matches, and gives every
// matching id where the page needs them. The answer's order is read as
// three groups, each in rank order: the symbols named `query`, those whose
// name begins with it (both counted and paged from the name index), and the
// other matches. Only the page's rows are read whole.
Page<SymbolRow> trigram_search(sqlite3* db, std::string_view text, std::int64_t offset, std::int64_t limit) {
  Page<SymbolRow> page;
  // A C++ name matches as written and as the dotted fqn of other languages.
  const std::string match = text.find("::") == std::string_view::npos
                                ? fts_phrase(text)
                                : fts_phrase(text) + " OR " + fts_phrase(dotted(text));
  page.total = count_of(std::move(Statement(db, query("trigram_count")).bind(1, match)));
  // A name equal to the query, or beginning with it, holds it: each is a match.
  const std::string last = up_to_last(text);
  const std::int64_t exact = count_of(std::move(Statement(db, query("named_exactly_count")).bind(1, text)));
  const std::int64_t prefixed =
      count_of(std::move(Statement(db, query("named_with_prefix_count")).bind(1, text).bind(2, last)));
  std::vector<std::int64_t> ids;
  const auto room = [&] { return limit - static_cast<std::int64_t>(ids.size()); };
  const auto add = [&](const std::vector<std::int64_t>& more) { ids.insert(ids.end(), more.begin(), more.end()); };
  if (offset < exact) {
    add(ids_of(std::move(Statement(db, query("named_exactly")).bind(1, text).bind(2, limit).bind(3, offset))));
  }
  const std::int64_t skip_prefixed = std::max<std::int64_t>(offset - exact, 0);
  if (room() > 0 && skip_prefixed < prefixed) {
    add(ids_of(std::move(
        Statement(db, query("named_with_prefix")).bind(1, text).bind(2, last).bind(3, room()).bind(4, skip_prefixed))));
  }
  const std::int64_t others = page.total - exact - prefixed;
  const std::int64_t skip_others = std::max<std::int64_t>(offset - exact - prefixed, 0);
  if (room() > 0 && skip_others < others) {
    const std::string lower = ascii_lower(text);
    const auto other = [&](const std::optional<std::string>& name) {
      return !name || !ascii_lower(*name).starts_with(lower);
    };
    const std::vector<std::int64_t> matches = ids_of(std::move(Statement(db, query("trigram_matches")).bind(1, match)));
    const std::vector<std::int64_t> ranked = first_by_rank(db, matches, other, others, skip_others + room());
    add(std::vector<std::int64_t>(
        ranked.begin() + std::min<std::int64_t>(skip_others, static_cast<std::int64_t>(ranked.size())), ranked.end()));
  }
  page.rows = rows_of(db, ids);
  return page;
}

// The runs of letters, digits, underscores and non-ASCII bytes of `text`,
// ASCII letters in lower case.
std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words;
  std::string word;
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (std::isalnum(u) != 0 || c == '_' || u >= 0x80) {
      word += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    } else if (!word.empty()) {
      words.push_back(std::move(word));
      word.clear();
    }
  }
  if (!word.empty()) words.push_back(std::move(word));
  return words;
}

// An FTS5 query for `words` (no quotes in them): any of them, and each two
// that follow each other in the question again when they stand near each
// other in a section, so that nearness adds to the score.
std::string ask_query(const std::vector<std::string>& words) {
  std::string query;
  for (const std::string& word : words) {
    if (!query.empty()) query += " OR ";
    query += '"' + word + '"';
  }
  for (std::size_t i = 1; i < words.size(); ++i) {
    query += " OR NEAR(\"" + words[i - 1] + "\" \"" + words[i] + "\", 4)";
  }
  return query;
}

// The citations that query `name` lists for `key` (a section or a page).
template <class Key>
mr::ResponseList citation_rows(sqlite3* db, std::string_view name, const Key& key) {
  Statement s(db, query(name));
  s.bind(1, key);
  mr::ResponseList citations;
  while (s.step()) {
    citations.emplace_back(mr::ResponseDict{
        {"path", s.text(0)}, {"line_start", s.optional_integer(1)}, {"line_end", s.optional_integer(2)}});
  }
  return citations;
}

mr::ResponseList citations_of(sqlite3* db, std::int64_t section_id) {
  return citation_rows(db, "section_citations", section_id);
}

}  // namespace

IndexDb IndexDb::open(const std::string& path) {
  IndexDb index;
  index.path_ = path;
  index.db_ = connect(path);
  return index;
}

bool IndexDb::initialized() const {
  if (db_ == nullptr && !path_.empty()) {
    try {
      db_ = connect(path_);
    } catch (const std::runtime_error&) {
      // Still not a database: not initialized, as before.
    }
  }
  return db_ != nullptr;
}

IndexDb::Snapshot::Snapshot(sqlite3* db) : db_(db) {
  // Deferred: the snapshot is taken by the first read, and kept to the end.
  if (sqlite3_exec(db_, std::string(query("begin_snapshot")).c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(std::string("index database: ") + sqlite3_errmsg(db_));
  }
}

// Nothing was written: ending the transaction is all there is to do.
IndexDb::Snapshot::~Snapshot() {
  sqlite3_exec(db_, std::string(query("end_snapshot")).c_str(), nullptr, nullptr, nullptr);
}

IndexDb::Connection IndexDb::connect(const std::string& path) {
  if (path.empty() || !std::filesystem::exists(path)) return nullptr;
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  Connection connection(db);
  if (rc != SQLITE_OK) throw std::runtime_error("cannot open " + path + ": " + sqlite3_errmsg(db));
  // An indexer may be writing: a read waits out its brief locks.
  sqlite3_busy_timeout(db, kBusyMilliseconds);
  sqlite3_exec(db, std::string(query("reader_settings")).c_str(), nullptr, nullptr, nullptr);
  // Without the indexer's state the repository was never indexed.
  Statement has_state(db, query("has_state_table"));
  if (!has_state.step() || has_state.integer(0) == 0) return nullptr;
  Statement rows(db, query("has_state"));
  if (!rows.step() || rows.integer(0) == 0) return nullptr;
  return connection;
}

IndexState IndexDb::state() const {
  Statement s(db_.get(), query("state"));
  if (!s.step()) throw std::runtime_error("index database: no indexer state");
  // A run holds the writer's lock while it goes on: "indexing" without it
  // is a run that died.
  if (s.text(0) == "indexing" && !kestrune::indexer::writer_active(path_)) {
    s = Statement(db_.get(), query("state_of_stopped_run"));
    if (!s.step()) throw std::runtime_error("index database: no indexer state");
  }
  return {.status = s.text(0),
          .health = s.text(1),
          .branch = s.optional_text(2),
          .progress = s.integer(3),
          .files_indexed = s.integer(4),
          .symbols_indexed = s.integer(5),
          .last_updated = s.optional_text(6),
          .errors_count = s.integer(7),
          .phase = s.optional_text(8),
          .phase_detail = s.optional_text(9)};
}

Page<SymbolRow> IndexDb::search(std::string_view text, std::int64_t offset, std::int64_t limit) const {
  if (text.empty()) return every_symbol(db_.get(), offset, limit);
  if (holds_nul(text)) return nul_search(db_.get(), text, offset, limit);
  // Below three characters a query has no trigram.
  if (code_points(text) < 3) return short_search(db_.get(), text, offset, limit);
  return trigram_search(db_.get(), text, offset, limit);
}

std::optional<SymbolRow> IndexDb::symbol(std::string_view fqn) const {
  Statement s(db_.get(), query("symbol_by_fqn"));
  s.bind(1, fqn);
  if (!s.step()) return std::nullopt;
  return symbol_row(s);
}

std::optional<std::string> IndexDb::resolved_fqn(std::string_view name) const {
  const std::string whole = dotted(name);
  Statement s(db_.get(), query("fqn_ending_with"));
  s.bind(1, last_part(whole)).bind(2, whole);
  if (!s.step()) return std::nullopt;
  return s.text(0);
}

std::vector<std::string> IndexDb::close_names(std::string_view name) const {
  constexpr std::int64_t kAlike = 50;
  const std::string whole = dotted(name);
  const std::string_view last = last_part(whole);
  if (last.empty()) return {};
  // Names that begin as it does: with its first three characters, and with
  // its first half (a common start holds too many names for the first).
  const std::string_view head = first_chars(last, 3);
  const std::string_view half = first_chars(last, std::max<std::size_t>(3, code_points(last) / 2));
  std::vector<Candidate> candidates;
  const auto add = [&](std::string_view q, std::string_view begin) {
    Statement s(db_.get(), query(q));
    s.bind(1, last).bind(2, begin).bind(3, up_to_last(begin)).bind(4, kAlike);
    while (s.step()) candidates.push_back({s.text(0), s.optional_text(1).value_or("")});
  };
  add("named_alike", head);
  add("names_beginning_alike", head);
  if (half != head) add("names_beginning_alike", half);
  return closest(last, whole, std::move(candidates));
}

bool IndexDb::has_file(std::string_view path) const {
  Statement s(db_.get(), query("file_indexed"));
  s.bind(1, path);
  return s.step() && s.integer(0) > 0;
}

std::optional<std::string> IndexDb::resolved_file(std::string_view text) const {
  Statement by_path(db_.get(), query("file_ending_with"));
  by_path.bind(1, text);
  if (by_path.step()) return by_path.text(0);
  const std::string whole = dotted(text);
  Statement by_module(db_.get(), query("module_file"));
  by_module.bind(1, last_part(whole)).bind(2, whole);
  if (by_module.step()) return by_module.text(0);
  return std::nullopt;
}

std::vector<std::string> IndexDb::close_files(std::string_view text) const {
  constexpr std::int64_t kAlike = 200;
  const std::string stem = file_stem(text);
  if (stem.empty()) return {};
  // Paths that hold the stem's first three characters: a typo after them
  // is still found.
  Statement s(db_.get(), query("files_alike"));
  s.bind(1, contains_pattern(first_chars(stem, 3))).bind(2, kAlike);
  std::vector<Candidate> candidates;
  while (s.step()) candidates.push_back({s.text(0), file_stem(s.text(0))});
  return closest(stem, dotted(text), std::move(candidates));
}

std::vector<std::pair<std::string, std::optional<std::string>>> IndexDb::file_names(std::string_view path) const {
  Statement s(db_.get(), query("file_names"));
  s.bind(1, path);
  std::vector<std::pair<std::string, std::optional<std::string>>> names;
  while (s.step()) names.emplace_back(s.text(0), s.optional_text(1));
  return names;
}

std::vector<SymbolRow> IndexDb::file_symbols(std::string_view path, std::int64_t offset, std::int64_t limit) const {
  Statement s(db_.get(), query("file_symbols"));
  s.bind(1, path).bind(2, limit).bind(3, offset);
  std::vector<SymbolRow> rows;
  while (s.step()) rows.push_back(symbol_row(s));
  return rows;
}

Page<mr::Reference> IndexDb::references(std::string_view fqn, std::int64_t offset, std::int64_t limit) const {
  Page<mr::Reference> page;
  Statement count(db_.get(), query("references_count"));
  count.bind(1, fqn);
  if (count.step()) page.total = count.integer(0);
  Statement s(db_.get(), query("references_page"));
  s.bind(1, fqn).bind(2, limit).bind(3, offset);
  while (s.step()) {
    std::optional<mr::ResponseDict> caller;
    if (!s.is_null(2)) caller = mr::ResponseDict{{"fqn", s.text(2)}, {"kind", s.optional_text(3)}};
    page.rows.push_back({.file_path = s.optional_text(0),
                         .line = s.optional_integer(1),
                         .caller_symbol = std::move(caller),
                         .usage_type = s.optional_text(4)});
  }
  return page;
}

std::vector<mr::ComponentInfo> IndexDb::components() const {
  Statement s(db_.get(), query("components"));
  std::vector<mr::ComponentInfo> rows;
  while (s.step()) {
    rows.push_back({.name = s.optional_text(0),
                    .layer = s.optional_text(1),
                    .path_pattern = s.optional_text(2),
                    .file_count = s.optional_integer(3),
                    .symbol_count = s.optional_integer(4)});
  }
  return rows;
}

Page<std::pair<std::string, std::string>> IndexDb::problems(std::int64_t offset, std::int64_t limit) const {
  Page<std::pair<std::string, std::string>> page;
  page.total = count_of(Statement(db_.get(), query("problems_count")));
  Statement s(db_.get(), query("problems_page"));
  s.bind(1, limit).bind(2, offset);
  while (s.step()) page.rows.emplace_back(s.text(0), s.text(1));
  return page;
}

std::optional<WikiState> IndexDb::wiki_state() const {
  Statement s(db_.get(), query("wiki_state"));
  if (!s.step()) return std::nullopt;
  WikiState state{.built = s.integer(0) != 0,
                  .branch = s.text(1),
                  .enabled = s.integer(2) != 0,
                  .configured = s.integer(3) != 0,
                  .pages = s.integer(7),
                  .files_covered = s.integer(8),
                  .total_sources = s.integer(4),
                  .last_built = s.optional_text(5),
                  .model = s.optional_text(6)};
  Statement stale(db_.get(), query("stale_pages"));
  while (stale.step()) state.stale_pages.emplace_back(stale.text(0));
  return state;
}

Page<mr::ResponseDict> IndexDb::wiki_pages(std::int64_t offset, std::int64_t limit) const {
  Page<mr::ResponseDict> page;
  Statement count(db_.get(), query("wiki_pages_count"));
  if (count.step()) page.total = count.integer(0);
  Statement s(db_.get(), query("wiki_pages_page"));
  s.bind(1, limit).bind(2, offset);
  while (s.step()) {
    page.rows.push_back(
        {{"page_id", s.text(0)}, {"title", s.text(1)}, {"stale", s.integer(2) != 0}, {"sections", s.integer(3)}});
  }
  return page;
}

std::optional<WikiPage> IndexDb::wiki_page(std::string_view page_id) const {
  Statement s(db_.get(), query("wiki_page"));
  s.bind(1, page_id);
  if (!s.step()) return std::nullopt;
  WikiPage page{.page_id = s.text(0), .title = s.text(1), .content = s.text(2)};
  Statement cited(db_.get(), query("page_citations"));
  cited.bind(1, page_id);
  while (cited.step()) {
    page.citations.emplace_back(mr::ResponseDict{
        {"path", cited.text(0)}, {"line_start", cited.optional_integer(1)}, {"line_end", cited.optional_integer(2)}});
    page.cited_by.push_back(cited.integer(3));
  }
  Statement sections(db_.get(), query("page_sections"));
  sections.bind(1, page_id);
  while (sections.step()) page.sections.push_back({sections.integer(0), sections.text(1), sections.text(2)});
  Statement files(db_.get(), query("page_source_files"));
  files.bind(1, page_id);
  while (files.step()) page.source_files.emplace_back(files.text(0));
  Statement related(db_.get(), query("related_pages"));
  related.bind(1, page_id);
  while (related.step()) page.related_pages.emplace_back(related.text(0));
  return page;
}

std::vector<std::string> IndexDb::question_words(std::string_view question) const {
  std::vector<std::string> stop;
  Statement s(db_.get(), query("stop_words"));
  while (s.step()) stop.push_back(s.text(0));
  std::vector<std::string> words;
  for (std::string& word : words_of(question)) {
    if (std::find(stop.begin(), stop.end(), word) == stop.end() &&
        std::find(words.begin(), words.end(), word) == words.end()) {
      words.push_back(std::move(word));
    }
  }
  return words;
}

mr::ResponseList IndexDb::wiki_sections(const std::vector<std::string>& words, std::int64_t limit) const {
  mr::ResponseList sections;
  if (words.empty()) return sections;
  Statement s(db_.get(), query("ask_sections"));
  s.bind(1, ask_query(words)).bind(2, limit);
  while (s.step()) {
    sections.emplace_back(mr::ResponseDict{{"page_id", s.text(1)},
                                           {"title", s.text(2)},
                                           {"heading", s.text(3)},
                                           {"similarity", s.real(4)},
                                           {"stale", s.integer(5) != 0},
                                           {"excerpt", s.text(6)},
                                           {"citations", citations_of(db_.get(), s.integer(0))}});
  }
  return sections;
}

}  // namespace kestrune::example
