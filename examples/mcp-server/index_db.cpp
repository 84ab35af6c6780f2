// Queries of the example index. Every value from a request is a bound
// parameter; the SQL texts are constants.
#include "index_db.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>

#include "statement.hpp"

namespace kestrune::example {

namespace {

constexpr std::string_view kSymbolColumns =
    "fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated";

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

std::string symbols_query(std::string_view tail) {
  std::string sql = "SELECT ";
  sql += kSymbolColumns;
  sql += " FROM symbols ";
  sql += tail;
  return sql;
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

std::int64_t count_of(Statement s) { return s.step() ? s.integer(0) : 0; }

bool holds_nul(std::string_view text) { return text.find('\0') != std::string_view::npos; }

// Search by scanning every symbol: for queries too short to have a trigram,
// and for those that hold a NUL, which LIKE and FTS5 read a pattern up to.
// instr takes such a query whole, compared in lower case as LIKE compares.
Page<SymbolRow> scan_search(sqlite3* db, std::string_view query, std::int64_t offset, std::int64_t limit) {
  const bool nul = holds_nul(query);
  const std::string contains = nul ? "WHERE instr(lower(fqn), ?1) OR instr(lower(name), ?1) "
                                   : "WHERE fqn LIKE ?1 ESCAPE '\\' OR name LIKE ?1 ESCAPE '\\' ";
  const std::string pattern = nul ? ascii_lower(query) : contains_pattern(query);
  Page<SymbolRow> page;
  page.total = count_of(std::move(Statement(db, "SELECT count(*) FROM symbols " + contains).bind(1, pattern)));
  Statement s(db, symbols_query(contains + "ORDER BY name = ?2 COLLATE NOCASE DESC, fqn LIMIT ?3 OFFSET ?4"));
  s.bind(1, pattern).bind(2, query).bind(3, limit).bind(4, offset);
  while (s.step()) page.rows.push_back(symbol_row(s));
  return page;
}

// The ids that statement `s` returns, in its order.
std::vector<std::int64_t> ids_of(Statement s) {
  std::vector<std::int64_t> ids;
  while (s.step()) ids.push_back(s.integer(0));
  return ids;
}

bool holds(const std::vector<std::int64_t>& sorted, std::int64_t id) {
  return std::binary_search(sorted.begin(), sorted.end(), id);
}

// The first `n` ids in fqn order of which `wanted` holds, of the `total`
// that it holds for. Where they are dense, walking the fqn index finds them
// sooner than reading and sorting the fqn of every one.
template <class Wanted>
std::vector<std::int64_t> first_by_fqn(sqlite3* db, const std::vector<std::int64_t>& candidates, const Wanted& wanted,
                                       std::int64_t total, std::int64_t n) {
  std::vector<std::int64_t> ids;
  const double symbols = static_cast<double>(count_of(Statement(db, "SELECT max(id) FROM symbols")));
  if (static_cast<double>(n) * symbols < 4.0 * static_cast<double>(total) * static_cast<double>(total)) {
    Statement walk(db, "SELECT id FROM symbols INDEXED BY symbols_by_fqn ORDER BY fqn");
    while (static_cast<std::int64_t>(ids.size()) < n && walk.step()) {
      if (wanted(walk.integer(0))) ids.push_back(walk.integer(0));
    }
    return ids;
  }
  std::vector<std::pair<std::string, std::int64_t>> keyed;
  Statement fqn(db, "SELECT fqn FROM symbols WHERE id = ?1");
  for (const std::int64_t id : candidates) {
    if (wanted(id) && fqn.reset().bind(1, id).step()) keyed.emplace_back(fqn.text(0), id);
  }
  const auto end = keyed.begin() + std::min(n, static_cast<std::int64_t>(keyed.size()));
  std::partial_sort(keyed.begin(), end, keyed.end());
  for (auto it = keyed.begin(); it != end; ++it) ids.push_back(it->second);
  return ids;
}

// Search through the trigram index, read once: it gives every matching id,
// and so the count. The answer's order (exact names first, then by fqn) is
// read as three groups, each in fqn order: the symbols named `query`, the
// other matches, and those without a name (after the others, as NULL sorts
// last in the descending order). Only the page's rows are read whole.
Page<SymbolRow> trigram_search(sqlite3* db, std::string_view query, std::int64_t offset, std::int64_t limit) {
  Page<SymbolRow> page;
  const std::vector<std::int64_t> matches =
      ids_of(std::move(Statement(db, "SELECT rowid FROM symbol_names WHERE symbol_names MATCH ?1 ORDER BY rowid")
                           .bind(1, fts_phrase(query))));
  page.total = static_cast<std::int64_t>(matches.size());
  // A name equal to the query holds it: each is a match.
  const std::vector<std::int64_t> exact = ids_of(
      std::move(Statement(db, "SELECT id FROM symbols WHERE name = ?1 COLLATE NOCASE ORDER BY fqn").bind(1, query)));
  std::vector<std::int64_t> unnamed;
  for (const std::int64_t id : ids_of(Statement(db, "SELECT id FROM symbols WHERE name IS NULL ORDER BY fqn"))) {
    if (holds(matches, id)) unnamed.push_back(id);
  }
  std::vector<std::int64_t> grouped = exact;
  grouped.insert(grouped.end(), unnamed.begin(), unnamed.end());
  std::sort(grouped.begin(), grouped.end());
  const auto other = [&](std::int64_t id) { return holds(matches, id) && !holds(grouped, id); };

  std::vector<std::int64_t> ids;
  std::int64_t skip = offset;
  const auto take = [&](const std::vector<std::int64_t>& group) {
    for (const std::int64_t id : group) {
      if (static_cast<std::int64_t>(ids.size()) >= limit) return;
      if (skip > 0) {
        --skip;
      } else {
        ids.push_back(id);
      }
    }
  };
  take(exact);
  const std::int64_t others = page.total - static_cast<std::int64_t>(grouped.size());
  if (static_cast<std::int64_t>(ids.size()) < limit) {
    if (skip >= others) {
      skip -= others;
    } else {
      take(first_by_fqn(db, matches, other, others, skip + limit - static_cast<std::int64_t>(ids.size())));
    }
  }
  take(unnamed);
  Statement row(db, symbols_query("WHERE id = ?1"));
  for (const std::int64_t id : ids) {
    if (row.reset().bind(1, id).step()) page.rows.push_back(symbol_row(row));
  }
  return page;
}

// An FTS5 query for any word of `text`: letters, digits and underscores
// (and every non-ASCII byte), each quoted, joined by OR. Empty when `text`
// has no word.
std::string any_word_query(std::string_view text) {
  std::string query;
  std::string word;
  const auto flush = [&] {
    if (word.empty()) return;
    if (!query.empty()) query += " OR ";
    query += '"' + word + '"';
    word.clear();
  };
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (std::isalnum(u) != 0 || c == '_' || u >= 0x80) {
      word += c;
    } else {
      flush();
    }
  }
  flush();
  return query;
}

mr::ResponseList citations_of(sqlite3* db, std::int64_t section_id) {
  Statement s(db, "SELECT path, line_start, line_end FROM wiki_citations WHERE section_id = ?1 ORDER BY id");
  s.bind(1, section_id);
  mr::ResponseList citations;
  while (s.step()) {
    citations.emplace_back(mr::ResponseDict{
        {"path", s.text(0)}, {"line_start", s.optional_integer(1)}, {"line_end", s.optional_integer(2)}});
  }
  return citations;
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
  if (sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(std::string("index database: ") + sqlite3_errmsg(db_));
  }
}

// Nothing was written: ending the transaction is all there is to do.
IndexDb::Snapshot::~Snapshot() { sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr); }

IndexDb::Connection IndexDb::connect(const std::string& path) {
  if (path.empty() || !std::filesystem::exists(path)) return nullptr;
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  Connection connection(db);
  if (rc != SQLITE_OK) throw std::runtime_error("cannot open " + path + ": " + sqlite3_errmsg(db));
  // An indexer may be writing: a read waits out its brief locks.
  sqlite3_busy_timeout(db, kBusyMilliseconds);
  // Without the indexer's state the repository was never indexed.
  Statement has_state(db, "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = 'index_status'");
  if (!has_state.step() || has_state.integer(0) == 0) return nullptr;
  Statement rows(db, "SELECT count(*) FROM index_status");
  if (!rows.step() || rows.integer(0) == 0) return nullptr;
  return connection;
}

IndexState IndexDb::state() const {
  Statement s(db_.get(),
              "SELECT status, health, branch, progress, files_indexed, symbols_indexed, last_updated, errors_count, "
              "phase, phase_detail FROM index_status");
  if (!s.step()) throw std::runtime_error("index database: no indexer state");
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

Page<SymbolRow> IndexDb::search(std::string_view query, std::int64_t offset, std::int64_t limit) const {
  // Below three characters a query has no trigram.
  if (code_points(query) < 3 || holds_nul(query)) return scan_search(db_.get(), query, offset, limit);
  return trigram_search(db_.get(), query, offset, limit);
}

std::optional<SymbolRow> IndexDb::symbol(std::string_view fqn) const {
  Statement s(db_.get(), symbols_query("WHERE fqn = ?1"));
  s.bind(1, fqn);
  if (!s.step()) return std::nullopt;
  return symbol_row(s);
}

std::vector<SymbolRow> IndexDb::file_symbols(std::string_view path) const {
  Statement s(db_.get(), symbols_query("WHERE file_path = ?1 ORDER BY start_line, fqn"));
  s.bind(1, path);
  std::vector<SymbolRow> rows;
  while (s.step()) rows.push_back(symbol_row(s));
  return rows;
}

Page<mr::Reference> IndexDb::references(std::string_view fqn, std::int64_t offset, std::int64_t limit) const {
  Page<mr::Reference> page;
  Statement count(db_.get(), "SELECT count(*) FROM symbol_refs WHERE symbol_fqn = ?1");
  count.bind(1, fqn);
  if (count.step()) page.total = count.integer(0);
  Statement s(db_.get(),
              "SELECT file_path, line, caller_fqn, caller_kind, usage_type FROM symbol_refs WHERE symbol_fqn = ?1 "
              "ORDER BY file_path, line LIMIT ?2 OFFSET ?3");
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
  Statement s(db_.get(), "SELECT name, layer, path_pattern, file_count, symbol_count FROM components ORDER BY name");
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

std::optional<WikiState> IndexDb::wiki_state() const {
  Statement s(db_.get(),
              "SELECT built, branch, enabled, configured, total_sources, last_built, model, "
              "(SELECT count(*) FROM wiki_pages), "
              "(SELECT count(DISTINCT path) FROM wiki_citations) FROM wiki_state");
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
  Statement stale(db_.get(), "SELECT page_id FROM wiki_pages WHERE stale ORDER BY position");
  while (stale.step()) state.stale_pages.emplace_back(stale.text(0));
  return state;
}

Page<mr::ResponseDict> IndexDb::wiki_pages(std::int64_t offset, std::int64_t limit) const {
  Page<mr::ResponseDict> page;
  Statement count(db_.get(), "SELECT count(*) FROM wiki_pages");
  if (count.step()) page.total = count.integer(0);
  Statement s(db_.get(),
              "SELECT page_id, title, stale, (SELECT count(*) FROM wiki_sections WHERE page_id = p.page_id) "
              "FROM wiki_pages AS p ORDER BY position LIMIT ?1 OFFSET ?2");
  s.bind(1, limit).bind(2, offset);
  while (s.step()) {
    page.rows.push_back(
        {{"page_id", s.text(0)}, {"title", s.text(1)}, {"stale", s.integer(2) != 0}, {"sections", s.integer(3)}});
  }
  return page;
}

std::optional<WikiPage> IndexDb::wiki_page(std::string_view page_id) const {
  Statement s(db_.get(), "SELECT page_id, title, content FROM wiki_pages WHERE page_id = ?1");
  s.bind(1, page_id);
  if (!s.step()) return std::nullopt;
  WikiPage page{.page_id = s.text(0), .title = s.text(1), .content = s.text(2)};
  Statement sections(db_.get(), "SELECT id FROM wiki_sections WHERE page_id = ?1 ORDER BY id");
  sections.bind(1, page_id);
  while (sections.step()) {
    for (mr::ResponseValue& c : citations_of(db_.get(), sections.integer(0))) page.citations.push_back(std::move(c));
  }
  Statement files(db_.get(),
                  "SELECT DISTINCT c.path FROM wiki_citations AS c JOIN wiki_sections AS s ON s.id = c.section_id "
                  "WHERE s.page_id = ?1 ORDER BY c.path");
  files.bind(1, page_id);
  while (files.step()) page.source_files.emplace_back(files.text(0));
  Statement related(db_.get(), "SELECT related_page_id FROM wiki_links WHERE page_id = ?1 ORDER BY related_page_id");
  related.bind(1, page_id);
  while (related.step()) page.related_pages.emplace_back(related.text(0));
  return page;
}

mr::ResponseList IndexDb::wiki_sections(std::string_view query, std::int64_t limit) const {
  const std::string match = any_word_query(query);
  mr::ResponseList sections;
  if (match.empty()) return sections;
  // bm25 is negative, best lowest: the best section's similarity is 1.0.
  Statement s(db_.get(),
              "WITH hits AS (SELECT rowid AS id, bm25(wiki_search) AS score FROM wiki_search "
              "WHERE wiki_search MATCH ?1 ORDER BY score LIMIT ?2) "
              "SELECT h.id, p.page_id, p.title, s.heading, round(h.score / min(h.score) OVER (), 3), p.stale, s.body "
              "FROM hits AS h JOIN wiki_sections AS s ON s.id = h.id JOIN wiki_pages AS p ON p.page_id = s.page_id "
              "ORDER BY h.score, h.id");
  s.bind(1, match).bind(2, limit);
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
