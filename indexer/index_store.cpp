#include "index_store.hpp"

#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "schema_sql.hpp"
#include "statement.hpp"

namespace kestrune::indexer {

using example::Statement;

namespace {

// The version that the schema sets ("PRAGMA user_version = N").
int schema_version() {
  const std::string_view schema = kSchemaSql;
  constexpr std::string_view kSet = "PRAGMA user_version = ";
  const std::size_t at = schema.find(kSet);
  return at == std::string_view::npos ? 0 : std::atoi(schema.data() + at + kSet.size());
}

bool has_table(sqlite3* db, const char* name) {
  Statement s(db, "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = ?1");
  s.bind(1, name);
  return s.step() && s.integer(0) > 0;
}

}  // namespace

IndexStore IndexStore::open(const std::filesystem::path& path) {
  {
    IndexStore store = open_as_is(path);
    if (!has_table(store.db_.get(), "files") || store.user_version() == schema_version()) return store;
    // An index of another schema that kestrune-index made: emptied in place
    // (the file stays, and with it the writer's lock), then built anew.
    sqlite3* db = store.db_.get();
    sqlite3_db_config(db, SQLITE_DBCONFIG_RESET_DATABASE, 1, nullptr);
    store.execute("VACUUM");
    sqlite3_db_config(db, SQLITE_DBCONFIG_RESET_DATABASE, 0, nullptr);
  }
  return open_as_is(path);
}

int IndexStore::user_version() const {
  Statement s(db_.get(), "PRAGMA user_version");
  return s.step() ? static_cast<int>(s.integer(0)) : 0;
}

IndexStore IndexStore::open_as_is(const std::filesystem::path& path) {
  IndexStore store;
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  store.db_.reset(db);
  if (rc != SQLITE_OK) throw std::runtime_error("cannot open " + path.string() + ": " + sqlite3_errmsg(db));
  sqlite3_busy_timeout(db, 5000);
  // WAL: a server reading the index is never blocked by the indexer's
  // writes and sees each committed batch. Durability of the last batch
  // matters less than speed: a lost batch is read again next run.
  store.execute("PRAGMA journal_mode = WAL");
  store.execute("PRAGMA synchronous = NORMAL");
  if (!has_table(db, "index_status")) {
    store.transaction([&] { store.execute(kSchemaSql); });
  } else if (!has_table(db, "files")) {
    throw std::runtime_error(path.string() +
                             " holds an index that kestrune-index did not make; remove it or name another --db");
  }
  return store;
}

void IndexStore::execute(const char* sql) const {
  char* error = nullptr;
  if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, &error) != SQLITE_OK) {
    const std::string message = error != nullptr ? error : sqlite3_errmsg(db_.get());
    sqlite3_free(error);
    throw std::runtime_error("index database: " + message);
  }
}

void IndexStore::transaction(const std::function<void()>& work) {
  execute("BEGIN IMMEDIATE");
  try {
    work();
  } catch (...) {
    execute("ROLLBACK");
    throw;
  }
  execute("COMMIT");
}

Statement& IndexStore::cached(const char* sql) {
  auto it = statements_.find(sql);
  if (it == statements_.end()) it = statements_.emplace(sql, Statement(db_.get(), sql)).first;
  return it->second.reset();
}

std::optional<IndexStatusRow> IndexStore::last_status() const {
  Statement s(db_.get(), "SELECT status, last_updated FROM index_status");
  if (!s.step()) return std::nullopt;
  return IndexStatusRow{.status = s.text(0), .last_updated = s.optional_text(1)};
}

void IndexStore::write_status(const IndexStatusRow& row) {
  cached(
      "INSERT OR REPLACE INTO index_status (id, status, health, branch, progress, files_indexed, symbols_indexed, "
      "last_updated, errors_count, phase, phase_detail) VALUES (1, ?1, ?2, ?3, ?4, (SELECT count(*) FROM files), "
      "(SELECT count(*) FROM symbols), ?5, ?6, ?7, ?8)")
      .bind(1, row.status)
      .bind(2, row.health)
      .bind(3, row.branch)
      .bind(4, row.progress)
      .bind(5, row.last_updated)
      .bind(6, row.errors_count)
      .bind(7, row.phase)
      .bind(8, row.phase_detail)
      .step();
}

void IndexStore::replace_problems(const std::vector<std::pair<std::string, std::string>>& problems) {
  execute("DELETE FROM index_problems");
  for (const auto& [path, what] : problems) {
    cached("INSERT INTO index_problems (path, problem) VALUES (?1, ?2)").bind(1, path).bind(2, what).step();
  }
}

std::unordered_map<std::string, StoredFile> IndexStore::stored_files() const {
  std::unordered_map<std::string, StoredFile> files;
  Statement s(db_.get(), "SELECT path, size, mtime_ns, content_hash, problem, language FROM files");
  while (s.step()) {
    files.emplace(s.text(0), StoredFile{.size = s.integer(1),
                                        .mtime_ns = s.integer(2),
                                        .content_hash = s.text(3),
                                        .problem = s.optional_text(4),
                                        .language = s.optional_text(5)});
  }
  return files;
}

void IndexStore::put_file(const FileRow& file) {
  cached(
      "INSERT OR REPLACE INTO files (path, size, mtime_ns, content_hash, language, lines, problem) "
      "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)")
      .bind(1, file.path)
      .bind(2, file.stored.size)
      .bind(3, file.stored.mtime_ns)
      .bind(4, file.stored.content_hash)
      .bind(5, file.stored.language)
      .bind(6, file.lines)
      .bind(7, file.stored.problem)
      .step();
}

void IndexStore::clear_symbols(const std::string& path) {
  cached("DELETE FROM symbols WHERE file_path = ?1").bind(1, path).step();
}

void IndexStore::clear_references(const std::string& path) {
  cached("DELETE FROM symbol_refs WHERE file_path = ?1").bind(1, path).step();
}

void IndexStore::forget_file(const std::string& path) {
  clear_symbols(path);
  clear_references(path);
  cached("DELETE FROM files WHERE path = ?1").bind(1, path).step();
}

void IndexStore::insert_symbol(const SymbolRecord& symbol) {
  // Every definition is kept, also where several share an fqn (a
  // property's getter and setter, overloads, files whose module paths meet).
  cached(
      "INSERT INTO symbols (fqn, name, kind, file_path, start_line, end_line, signature, docstring, "
      "is_export, docstring_truncated) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, 0)")
      .bind(1, symbol.fqn)
      .bind(2, symbol.name)
      .bind(3, symbol.kind)
      .bind(4, symbol.file_path)
      .bind(5, std::int64_t{symbol.start_line})
      .bind(6, std::int64_t{symbol.end_line})
      .bind(7, symbol.signature)
      .bind(8, symbol.docstring)
      .bind(9, symbol.is_export)
      .step();
}

SymbolTable IndexStore::load_symbols() const {
  SymbolTable table;
  Statement s(db_.get(),
              "SELECT s.fqn, s.name, s.kind, s.file_path, s.start_line, s.end_line, f.language, s.signature "
              "FROM symbols AS s LEFT JOIN files AS f ON f.path = s.file_path ORDER BY s.id");
  while (s.step()) {
    IndexedSymbol symbol{.fqn = s.text(0),
                         .name = s.text(1),
                         .kind = s.text(2),
                         .file_path = s.text(3),
                         .start_line = static_cast<int>(s.integer(4)),
                         .end_line = static_cast<int>(s.integer(5)),
                         .language = s.optional_text(6).value_or(""),
                         .signature = s.optional_text(7).value_or("")};
    // At its module's top the fqn is the module and the name; in a
    // language of "::" scopes, a member's scope is a class.
    const std::string module = module_path(symbol.file_path);
    symbol.member = symbol.kind == "member" || symbol.kind == "field" || symbol.kind == "method" ||
                    (symbol.fqn.find("::") == std::string::npos && symbol.kind != "module" &&
                     symbol.fqn != (module.empty() ? symbol.name : module + "." + symbol.name));
    table.add(std::move(symbol));
  }
  table.mark_scoped_members();
  return table;
}

void IndexStore::insert_reference(const std::string& path, const ReferenceRecord& reference) {
  cached(
      "INSERT INTO symbol_refs (symbol_fqn, file_path, line, caller_fqn, caller_kind, usage_type) "
      "VALUES (?1, ?2, ?3, ?4, ?5, ?6)")
      .bind(1, reference.symbol_fqn)
      .bind(2, path)
      .bind(3, std::int64_t{reference.line})
      .bind(4, reference.caller_fqn)
      .bind(5, reference.caller_kind)
      .bind(6, reference.usage_type)
      .step();
}

void IndexStore::drop_dangling_references() {
  execute("DELETE FROM symbol_refs WHERE symbol_fqn NOT IN (SELECT fqn FROM symbols)");
  execute(
      "UPDATE symbol_refs SET caller_fqn = NULL, caller_kind = NULL "
      "WHERE caller_fqn IS NOT NULL AND caller_fqn NOT IN (SELECT fqn FROM symbols)");
}

void IndexStore::forget_page(const std::string& source_path) {
  cached(
      "DELETE FROM wiki_citations WHERE section_id IN (SELECT s.id FROM wiki_sections AS s JOIN wiki_pages AS p "
      "ON p.page_id = s.page_id WHERE p.source_path = ?1)")
      .bind(1, source_path)
      .step();
  cached("DELETE FROM wiki_sections WHERE page_id IN (SELECT page_id FROM wiki_pages WHERE source_path = ?1)")
      .bind(1, source_path)
      .step();
  cached("DELETE FROM wiki_pages WHERE source_path = ?1").bind(1, source_path).step();
}

void IndexStore::insert_page(const std::string& source_path, const MarkdownPage& page) {
  // Two files whose names give one id ("a b.md", "a-b.md"): the later one
  // gets a number.
  std::string id = page.page_id;
  for (int n = 2;; ++n) {
    Statement taken(db_.get(), "SELECT count(*) FROM wiki_pages WHERE page_id = ?1");
    taken.bind(1, id);
    if (!taken.step() || taken.integer(0) == 0) break;
    id = page.page_id + "-" + std::to_string(n);
  }
  cached(
      "INSERT INTO wiki_pages (page_id, title, content, stale, position, source_path) "
      "VALUES (?1, ?2, ?3, 0, 0, ?4)")
      .bind(1, id)
      .bind(2, page.title)
      .bind(3, page.content)
      .bind(4, source_path)
      .step();
  for (const MarkdownSection& section : page.sections) {
    cached("INSERT INTO wiki_sections (page_id, heading, body) VALUES (?1, ?2, ?3)")
        .bind(1, id)
        .bind(2, section.heading)
        .bind(3, section.body)
        .step();
  }
}

void IndexStore::link_and_order_pages() {
  execute(
      "UPDATE wiki_pages SET position = (SELECT n FROM (SELECT page_id AS id, row_number() OVER "
      "(ORDER BY source_path NOT LIKE 'README%' ESCAPE '\\' OR instr(source_path, '/') > 0, source_path) AS n "
      "FROM wiki_pages) WHERE id = wiki_pages.page_id)");
  execute("DELETE FROM wiki_links");
  Statement pages(db_.get(), "SELECT page_id, source_path, content FROM wiki_pages WHERE source_path IS NOT NULL");
  while (pages.step()) {
    const std::string id = pages.text(0);
    for (const std::string& target : read_markdown_page(pages.text(1), pages.text(2)).links) {
      cached(
          "INSERT OR IGNORE INTO wiki_links (page_id, related_page_id) "
          "SELECT ?1, page_id FROM wiki_pages WHERE source_path = ?2 AND page_id != ?1")
          .bind(1, id)
          .bind(2, target)
          .step();
    }
  }
}

std::vector<StoredSection> IndexStore::sections() const {
  std::vector<StoredSection> sections;
  Statement s(db_.get(), "SELECT id, body FROM wiki_sections ORDER BY id");
  while (s.step()) sections.push_back({s.integer(0), s.text(1)});
  return sections;
}

void IndexStore::replace_citations(std::int64_t section_id, const std::vector<Citation>& citations) {
  cached("DELETE FROM wiki_citations WHERE section_id = ?1").bind(1, section_id).step();
  for (const Citation& c : citations) {
    cached("INSERT INTO wiki_citations (section_id, path, line_start, line_end) VALUES (?1, ?2, ?3, ?4)")
        .bind(1, section_id)
        .bind(2, c.path)
        .bind(3, c.line_start)
        .bind(4, c.line_end)
        .step();
  }
}

void IndexStore::write_wiki_state(const std::string& branch, const std::string& built_at) {
  if (count("wiki_pages") == 0) {
    execute("DELETE FROM wiki_state");
    return;
  }
  // Its sources are the files it can cite: every indexed file but its own pages.
  cached(
      "INSERT OR REPLACE INTO wiki_state (id, built, branch, enabled, configured, total_sources, last_built, model) "
      "VALUES (1, 1, ?1, 1, 1, (SELECT count(*) FROM files WHERE path NOT IN "
      "(SELECT source_path FROM wiki_pages WHERE source_path IS NOT NULL)), ?2, NULL)")
      .bind(1, branch)
      .bind(2, built_at)
      .step();
}

void IndexStore::rebuild_components() {
  execute("DELETE FROM components");
  execute(
      "WITH f AS (SELECT path, CASE WHEN instr(path, '/') = 0 THEN '(root)' "
      "ELSE substr(path, 1, instr(path, '/') - 1) END AS part FROM files), "
      "s AS (SELECT f.part, count(*) AS n FROM symbols JOIN f ON f.path = symbols.file_path GROUP BY f.part) "
      "INSERT INTO components (name, layer, path_pattern, file_count, symbol_count) "
      "SELECT f.part, CASE WHEN lower(f.part) IN ('test', 'tests', 'testing', 'spec', 'specs') THEN 'test' "
      "WHEN lower(f.part) IN ('doc', 'docs', 'documentation') THEN 'docs' "
      "WHEN lower(f.part) IN ('example', 'examples') THEN 'examples' ELSE 'source' END, "
      "CASE WHEN f.part = '(root)' THEN '*' ELSE f.part || '/**' END, count(*), coalesce(s.n, 0) "
      "FROM f LEFT JOIN s ON s.part = f.part GROUP BY f.part");
}

void IndexStore::count_uses() {
  execute(
      "UPDATE symbols SET uses = (SELECT count(*) FROM symbol_refs WHERE symbol_fqn = symbols.fqn) "
      "WHERE uses != (SELECT count(*) FROM symbol_refs WHERE symbol_fqn = symbols.fqn)");
}

std::int64_t IndexStore::count(const char* table) const {
  Statement s(db_.get(), std::string("SELECT count(*) FROM ") + table);
  return s.step() ? s.integer(0) : 0;
}

}  // namespace kestrune::indexer
