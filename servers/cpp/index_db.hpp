// The repository index that the example server answers from: a SQLite
// database opened read-only, queried with bound parameters only.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::example {

namespace mr = mcp_responses;

/// The indexer's state, as the status tool reports it.
struct IndexState {
  std::string status;
  std::string health;
  std::optional<std::string> branch;
  std::int64_t progress = 0;
  std::int64_t files_indexed = 0;
  std::int64_t symbols_indexed = 0;
  std::optional<std::string> last_updated;
  std::int64_t errors_count = 0;
  std::optional<std::string> phase;
  std::optional<std::string> phase_detail;
};

/// A symbol with the path of its file, which the record itself leaves out.
struct SymbolRow {
  mr::Symbol symbol;
  std::optional<std::string> file_path;
};

/// One page of rows and how many match in all.
template <class Row>
struct Page {
  std::vector<Row> rows;
  std::int64_t total = 0;
};

/// The wiki's own facts; the counts come from its pages.
struct WikiState {
  bool built = false;
  std::string branch;
  bool enabled = false;
  bool configured = false;
  std::int64_t pages = 0;
  std::int64_t files_covered = 0;
  std::int64_t total_sources = 0;
  std::optional<std::string> last_built;
  std::optional<std::string> model;
  mr::ResponseList stale_pages{};
};

/// A section of a wiki page: its id, heading and body.
struct WikiSection {
  std::int64_t id = 0;
  std::string heading;
  std::string body;
};

/// A wiki page with its citations (each with the id of the section that
/// cites it first, in `cited_by`), sections, source files and related pages.
struct WikiPage {
  std::string page_id;
  std::string title;
  std::string content;
  mr::ResponseList citations{};
  std::vector<std::int64_t> cited_by{};
  std::vector<WikiSection> sections{};
  mr::ResponseList source_files{};
  mr::ResponseList related_pages{};
};

/// IndexDb: the index at a path, or none (a missing or empty database),
/// which every query reads as not initialized. Queries throw
/// std::runtime_error with SQLite's message when the database fails.
class IndexDb {
 public:
  /// open: the database at `path`, read-only. A file that does not exist,
  /// or holds no indexer state, gives an index that is not initialized.
  [[nodiscard]] static IndexDb open(const std::string& path);

  /// initialized: whether the index holds the indexer's state. One that
  /// did not is looked at again, so that a server started before an indexer
  /// made its database answers from it once the indexer has begun.
  [[nodiscard]] bool initialized() const;

  /// Snapshot: one read transaction on an initialized index. Every query
  /// made while it lives reads the index as one commit left it, so that a
  /// page's rows and its count agree while an indexer writes.
  class Snapshot {
   public:
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;
    ~Snapshot();

   private:
    friend class IndexDb;
    explicit Snapshot(sqlite3* db);
    sqlite3* db_;
  };
  /// snapshot: the read transaction that a tool call answers from.
  [[nodiscard]] Snapshot snapshot() const { return Snapshot(db_.get()); }

  [[nodiscard]] IndexState state() const;
  /// search: symbols whose fqn or name contains `query` (any case; one
  /// with "::" also in its dotted form): exact names first, then names that begin with it, then
  /// the rest, each by uses (most first), fqn and id.
  [[nodiscard]] Page<SymbolRow> search(std::string_view query, std::int64_t offset, std::int64_t limit) const;
  [[nodiscard]] std::optional<SymbolRow> symbol(std::string_view fqn) const;
  /// resolved_fqn: the fqn that `name`, written as users write it ("::",
  /// "/" or "." between parts, a module path without its first folders),
  /// stands for: the shortest fqn that is its dotted form or ends with it
  /// after a dot. nullopt when none does.
  [[nodiscard]] std::optional<std::string> resolved_fqn(std::string_view name) const;
  /// close_names: up to five fqns close to the missed `name`, closest first.
  [[nodiscard]] std::vector<std::string> close_names(std::string_view name) const;
  /// has_file: whether the file at `path` is in the index.
  [[nodiscard]] bool has_file(std::string_view path) const;
  /// resolved_file: the indexed path that `text` stands for: the shortest
  /// that ends with it after a slash, else the file of the module it names.
  [[nodiscard]] std::optional<std::string> resolved_file(std::string_view text) const;
  /// close_files: up to five indexed paths close to the missed `text`.
  [[nodiscard]] std::vector<std::string> close_files(std::string_view text) const;
  /// file_names: the fqn and kind of each symbol of the file at `path`, by
  /// start line and fqn.
  [[nodiscard]] std::vector<std::pair<std::string, std::optional<std::string>>> file_names(std::string_view path) const;
  /// file_symbols: a page of those symbols, whole.
  [[nodiscard]] std::vector<SymbolRow> file_symbols(std::string_view path, std::int64_t offset,
                                                    std::int64_t limit) const;
  /// references: the uses of the symbol `fqn`, by file and line.
  [[nodiscard]] Page<mr::Reference> references(std::string_view fqn, std::int64_t offset, std::int64_t limit) const;
  [[nodiscard]] std::vector<mr::ComponentInfo> components() const;
  /// problems: what the last run could not index, or not whole: a path (or
  /// program) and what was wrong, in the order the run met them.
  [[nodiscard]] Page<std::pair<std::string, std::string>> problems(std::int64_t offset, std::int64_t limit) const;

  /// wiki_state: nullopt when the wiki was never set up.
  [[nodiscard]] std::optional<WikiState> wiki_state() const;
  /// wiki_pages: page rows (page_id, title, stale, sections) in wiki order.
  [[nodiscard]] Page<mr::ResponseDict> wiki_pages(std::int64_t offset, std::int64_t limit) const;
  [[nodiscard]] std::optional<WikiPage> wiki_page(std::string_view page_id) const;
  /// question_words: the words of `question` that the ask searches for, in
  /// their order, each once, in ASCII lower case: runs of letters, digits,
  /// underscores and non-ASCII characters, less the stop words.
  [[nodiscard]] std::vector<std::string> question_words(std::string_view question) const;
  /// wiki_sections: the sections that hold `words`, best first (at most
  /// `limit`), as the wiki's ask takes them: page_id, title, heading,
  /// similarity (1.0 for the best), stale, excerpt and citations.
  [[nodiscard]] mr::ResponseList wiki_sections(const std::vector<std::string>& words, std::int64_t limit) const;

 private:
  struct Close {
    void operator()(sqlite3* db) const noexcept { sqlite3_close(db); }
  };
  using Connection = std::unique_ptr<sqlite3, Close>;
  // connect: the database at `path` when it holds the indexer's state.
  [[nodiscard]] static Connection connect(const std::string& path);

  std::string path_;
  mutable Connection db_;  // made on the first look that finds the indexer's state
};

}  // namespace kestrune::example
