// The index database as the indexer writes it: created on the example
// server's schema in WAL mode, so that a server reading it sees each batch
// as it is committed, the indexer's progress among them.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "markdown_pages.hpp"
#include "references.hpp"
#include "statement.hpp"
#include "symbol_table.hpp"
#include "symbols.hpp"
#include "wiki_citations.hpp"

namespace kestrune::indexer {

/// The index_status row.
struct IndexStatusRow {
  std::string status{};
  std::string health{};
  std::optional<std::string> branch{};
  std::int64_t progress = 0;
  std::int64_t errors_count = 0;
  std::optional<std::string> last_updated{};
  std::optional<std::string> phase{};
  std::optional<std::string> phase_detail{};
};

/// A file as the last run left it.
struct StoredFile {
  std::int64_t size = 0;
  std::int64_t mtime_ns = 0;
  std::string content_hash{};            ///< empty when its symbols must be read again
  std::optional<std::string> problem{};  ///< what was wrong with it (not UTF-8), counted as an error each run
  std::optional<std::string> language{};
};

struct FileRow {
  std::string path{};
  StoredFile stored{};
  std::int64_t lines = 0;
};

/// A wiki section as stored, for citations made after every page is in.
struct StoredSection {
  std::int64_t id = 0;
  std::string body{};
};

class IndexStore {
 public:
  /// open: the database at `path`, made with the schema when it is new, or
  /// made anew when an older kestrune-index made it. Throws
  /// std::runtime_error when it cannot be opened or holds tables that
  /// another program made.
  [[nodiscard]] static IndexStore open(const std::filesystem::path& path);

  /// transaction: runs `work` in one write transaction, committed when it
  /// returns and rolled back when it throws.
  void transaction(const std::function<void()>& work);

  /// last_status: the status row as the last run left it (its status and
  /// last update), if any.
  [[nodiscard]] std::optional<IndexStatusRow> last_status() const;
  void write_status(const IndexStatusRow& row);

  /// replace_problems: the run's problems, (path, what) in the order they came.
  void replace_problems(const std::vector<std::pair<std::string, std::string>>& problems);

  [[nodiscard]] std::unordered_map<std::string, StoredFile> stored_files() const;
  void put_file(const FileRow& file);
  /// forget_file: the file, its symbols and the references in it.
  void forget_file(const std::string& path);
  /// clear_symbols: the symbols of the file; its row and the references in it stay.
  void clear_symbols(const std::string& path);
  /// clear_references: the references in the file.
  void clear_references(const std::string& path);

  void insert_symbol(const SymbolRecord& symbol);
  [[nodiscard]] SymbolTable load_symbols() const;
  void insert_reference(const std::string& path, const ReferenceRecord& reference);
  /// drop_dangling_references: references to symbols that are gone.
  void drop_dangling_references();

  /// forget_page: the wiki page made from the Markdown file at `source_path`.
  void forget_page(const std::string& source_path);
  void insert_page(const std::string& source_path, const MarkdownPage& page);
  /// link_and_order_pages: the pages' order (the root README first, then by
  /// path) and the links between them.
  void link_and_order_pages();
  [[nodiscard]] std::vector<StoredSection> sections() const;
  void replace_citations(std::int64_t section_id, const std::vector<Citation>& citations);
  /// write_wiki_state: the wiki's state when it has pages; none otherwise.
  void write_wiki_state(const std::string& branch, const std::string& built_at);

  /// rebuild_components: a component per top-level folder (and one for the
  /// files at the root), with their file and symbol counts.
  void rebuild_components();
  /// count_uses: each symbol's `uses`, the references to its fqn, by which
  /// search ranks.
  void count_uses();

  [[nodiscard]] std::int64_t count(const char* table) const;

 private:
  struct Close {
    void operator()(sqlite3* db) const noexcept { sqlite3_close(db); }
  };
  [[nodiscard]] static IndexStore open_as_is(const std::filesystem::path& path);
  [[nodiscard]] int user_version() const;
  void execute(const char* sql) const;
  // cached: the prepared statement of `sql` (a constant), reset for a new run.
  example::Statement& cached(const char* sql);

  std::unique_ptr<sqlite3, Close> db_;  // declared first: closed after the statements are finalized
  std::unordered_map<const char*, example::Statement> statements_;
};

}  // namespace kestrune::indexer
