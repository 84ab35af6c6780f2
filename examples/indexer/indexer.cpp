#include "indexer.hpp"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <ostream>
#include <set>
#include <unordered_set>

#include "ctags.hpp"
#include "index_store.hpp"
#include "markdown_pages.hpp"
#include "references.hpp"
#include "repo_files.hpp"
#include "source_tokens.hpp"
#include "symbols.hpp"
#include "utf8.hpp"
#include "wiki_citations.hpp"

namespace kestrune::indexer {

namespace {

constexpr std::size_t kBatchFiles = 256;

// 64-bit FNV-1a, written as hex: enough to tell a changed file, whose size
// is compared too.
std::string content_hash(std::string_view bytes) {
  std::uint64_t h = 14695981039346656037ULL;
  for (const char c : bytes) {
    h ^= static_cast<unsigned char>(c);
    h *= 1099511628211ULL;
  }
  constexpr char kHex[] = "0123456789abcdef";
  std::string text(16, '0');
  for (int i = 15; i >= 0; --i, h >>= 4) text[static_cast<std::size_t>(i)] = kHex[h & 0xF];
  return text;
}

std::int64_t line_count(std::string_view text) {
  const auto newlines = static_cast<std::int64_t>(std::count(text.begin(), text.end(), '\n'));
  return newlines + (!text.empty() && text.back() != '\n' ? 1 : 0);
}

std::string utc_now() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

// A file to read and index this run.
struct Changed {
  FileRow row{};
  bool markdown = false;
  bool indexed = true;  ///< still readable after its symbols were taken
};

class IndexRun {
 public:
  IndexRun(const IndexOptions& options, std::ostream& log)
      : options_(options), log_(log), store_(IndexStore::open(options.db)), ctags_(options.ctags) {}

  IndexSummary run() {
    const std::optional<IndexStatusRow> last = store_.last_status();
    // A run that did not finish may have left files without their references.
    full_ = options_.full || (last && last->status != "ready");
    last_updated_ = last ? last->last_updated : std::nullopt;
    report(0, "listing files", "");
    const FileListing listing = list_files(options_.repo);
    branch_ = git_branch(options_.repo);
    read_changed_files(listing);
    // Nothing new, changed or gone: the index stands as it is.
    if (!changed_.empty() || summary_.files_removed > 0) {
      extract_symbols();
      resolve_references();
      build_wiki();
      report(98, "counting components", "");
      store_.transaction([&] { store_.rebuild_components(); });
    }

    last_updated_ = utc_now();
    store_.write_status({.status = "ready",
                         .health = summary_.errors > 0 ? "degraded" : "healthy",
                         .branch = branch_,
                         .progress = 100,
                         .errors_count = summary_.errors,
                         .last_updated = last_updated_});
    summary_.files_indexed = store_.count("files");
    summary_.symbols = store_.count("symbols");
    summary_.references = store_.count("symbol_refs");
    summary_.wiki_pages = store_.count("wiki_pages");
    return summary_;
  }

  // fail: the status of a run that stopped on `what`.
  void fail(const std::string& what) {
    store_.write_status({.status = "error",
                         .health = "unhealthy",
                         .branch = branch_,
                         .progress = progress_,
                         .errors_count = summary_.errors + 1,
                         .last_updated = last_updated_,
                         .phase = phase_,
                         .phase_detail = what});
  }

 private:
  void problem(std::string_view path, std::string_view what) {
    ++summary_.errors;
    log_ << "kestrune-index: " << path << ": " << what << "\n";
  }

  void report(std::int64_t progress, std::string phase, std::string detail) {
    progress_ = progress;
    phase_ = std::move(phase);
    store_.write_status({.status = "indexing",
                         .health = "healthy",
                         .branch = branch_,
                         .progress = progress,
                         .errors_count = summary_.errors,
                         .last_updated = last_updated_,
                         .phase = phase_,
                         .phase_detail = std::move(detail)});
  }

  // report_step: progress `done` of `total` in the phase that spans `from`
  // to `to` percent.
  void report_step(std::int64_t from, std::int64_t to, std::size_t done, std::size_t total, const char* phase) {
    const auto d = static_cast<std::int64_t>(done);
    const auto t = static_cast<std::int64_t>(std::max<std::size_t>(total, 1));
    report(from + (to - from) * d / t, phase, std::to_string(done) + "/" + std::to_string(total));
  }

  // Which files are new or changed since the last run, and which are gone.
  void read_changed_files(const FileListing& listing) {
    const std::unordered_map<std::string, StoredFile> stored = store_.stored_files();
    std::vector<FileRow> touched;  // unchanged content, new time
    for (std::size_t i = 0; i < listing.paths.size(); ++i) {
      if (i % kBatchFiles == 0) report_step(2, 15, i, listing.paths.size(), "reading files");
      const std::string& path = listing.paths[i];
      if (path.find('\n') != std::string::npos || !is_utf8(path)) {
        problem(valid_utf8(path), "its name is not UTF-8 text: not indexed");
        continue;
      }
      const FileCheck check = check_file(options_.repo, path, options_.max_file_bytes);
      if (!admit(path, check)) continue;
      const auto last = stored.find(path);
      const bool known = !full_ && last != stored.end() && !last->second.content_hash.empty();
      if (known && last->second.size == static_cast<std::int64_t>(check.size) &&
          last->second.mtime_ns == check.mtime_ns) {
        if (last->second.problem) problem(path, *last->second.problem);
        kept_.insert(path);
        continue;
      }
      // A binary file's head is enough: it is never read whole.
      std::string error;
      std::optional<std::string> bytes = read_file(options_.repo / path, error, kSniffBytes);
      if (bytes && looks_binary(*bytes)) {
        ++summary_.skipped_binary;
        continue;
      }
      if (bytes && bytes->size() == kSniffBytes) bytes = read_file(options_.repo / path, error);
      if (!bytes) {
        problem(path, "cannot be read (" + error + "): not indexed");
        continue;
      }
      FileRow row{.path = path,
                  .stored = {.size = static_cast<std::int64_t>(bytes->size()),
                             .mtime_ns = check.mtime_ns,
                             .content_hash = content_hash(*bytes)},
                  .lines = line_count(*bytes)};
      if (!is_utf8(*bytes)) {
        row.stored.problem = "its text is not UTF-8: ill-formed bytes are read as U+FFFD";
        problem(path, *row.stored.problem);
      }
      kept_.insert(path);
      if (known && last->second.content_hash == row.stored.content_hash) {
        row.stored.language = last->second.language;
        touched.push_back(std::move(row));
        continue;
      }
      changed_.push_back({.row = std::move(row), .markdown = is_markdown(path)});
    }
    std::vector<std::string> gone;
    for (const auto& [path, file] : stored) {
      if (!kept_.contains(path)) gone.push_back(path);
    }
    store_.transaction([&] {
      for (const FileRow& row : touched) store_.put_file(row);
      for (const std::string& path : gone) {
        store_.forget_file(path);
        if (is_markdown(path)) store_.forget_page(path);
      }
    });
    summary_.files_removed = static_cast<std::int64_t>(gone.size());
    summary_.files_read = static_cast<std::int64_t>(changed_.size());
  }

  // admit: whether the listed file is one to index; the others are counted.
  bool admit(const std::string& path, const FileCheck& check) {
    using Kind = FileCheck::Kind;
    switch (check.kind) {
      case Kind::regular:
        return true;
      case Kind::too_large:
        ++summary_.skipped_large;
        log_ << "kestrune-index: " << path << ": " << check.size << " bytes, over the limit of "
             << options_.max_file_bytes << ": not indexed\n";
        return false;
      case Kind::missing:
        problem(path, "is listed but cannot be read (" + check.detail + "): not indexed");
        return false;
      case Kind::link_loop:
        problem(path, "is a symbolic link that does not resolve (" + check.detail + "): not indexed");
        return false;
      case Kind::link_out_of_tree:
        problem(path, "is a symbolic link out of the work tree (to " + check.detail + "): not read");
        return false;
      case Kind::link_in_tree:
      case Kind::not_regular:
        return false;
    }
    return false;
  }

  void extract_symbols() {
    std::vector<Changed*> code;
    for (Changed& c : changed_) {
      if (!c.markdown) code.push_back(&c);
    }
    std::string error;
    const bool usable = code.empty() || ctags_.usable(error);
    if (!usable) problem(options_.ctags, error + "; files are indexed without symbols");
    for (std::size_t start = 0; start < changed_.size(); start += kBatchFiles) {
      report_step(15, 50, start, changed_.size(), "extracting symbols");
      const std::size_t end = std::min(changed_.size(), start + kBatchFiles);
      std::map<std::string, std::vector<Tag>, std::less<>> tags;
      std::set<std::string, std::less<>> failed;
      if (usable) run_ctags(start, end, tags, failed);
      store_.transaction([&] {
        for (std::size_t i = start; i < end; ++i) index_symbols(changed_[i], usable, tags, failed);
      });
    }
  }

  // The tags of changed_[start, end): one ctags run, or one a file when the
  // batch's fails, so that one bad file costs only its own symbols.
  void run_ctags(std::size_t start, std::size_t end, std::map<std::string, std::vector<Tag>, std::less<>>& tags,
                 std::set<std::string, std::less<>>& failed) {
    std::vector<std::string> paths;
    for (std::size_t i = start; i < end; ++i) {
      if (!changed_[i].markdown) paths.push_back(changed_[i].row.path);
    }
    if (paths.empty()) return;
    CtagsBatch batch = ctags_.run(options_.repo, paths);
    if (!batch.ok) {
      for (const std::string& path : paths) {
        CtagsBatch one = ctags_.run(options_.repo, {path});
        if (!one.ok) {
          problem(path, "ctags failed on it (" + one.error + "): its symbols are not indexed");
          failed.insert(path);
          continue;
        }
        for (Tag& t : one.tags) batch.tags.push_back(std::move(t));
      }
    }
    for (Tag& t : batch.tags) tags[t.path].push_back(std::move(t));
  }

  void index_symbols(Changed& file, bool usable, const std::map<std::string, std::vector<Tag>, std::less<>>& tags,
                     const std::set<std::string, std::less<>>& failed) {
    const std::string& path = file.row.path;
    store_.clear_file(path);
    if (file.markdown) {
      file.row.stored.language = "Markdown";
      store_.put_file(file.row);
      return;
    }
    const auto found = tags.find(path);
    if (!usable || failed.contains(path)) {
      // An empty hash: the next run reads it again.
      file.row.stored.content_hash.clear();
    } else if (found != tags.end()) {
      file.row.stored.language = found->second.front().language;
      std::string error;
      const std::optional<std::string> bytes = read_file(options_.repo / path, error);
      if (!bytes) {
        problem(path, "cannot be read (" + error + "): not indexed");
        store_.forget_file(path);
        file.indexed = false;
        return;
      }
      for (const SymbolRecord& s : file_symbols(path, found->second, *bytes, static_cast<int>(file.row.lines)))
        store_.insert_symbol(s);
    }
    store_.put_file(file.row);
  }

  void resolve_references() {
    report(50, "resolving references", "");
    symbols_ = store_.load_symbols();
    std::vector<const Changed*> scanned;
    for (const Changed& c : changed_) {
      if (c.indexed && !c.markdown && c.row.stored.language && syntax_of(*c.row.stored.language) != Syntax::plain)
        scanned.push_back(&c);
    }
    for (std::size_t start = 0; start < scanned.size(); start += kBatchFiles) {
      report_step(50, 90, start, scanned.size(), "resolving references");
      const std::size_t end = std::min(scanned.size(), start + kBatchFiles);
      store_.transaction([&] {
        for (std::size_t i = start; i < end; ++i) {
          const FileRow& row = scanned[i]->row;
          std::string error;
          const std::optional<std::string> bytes = read_file(options_.repo / row.path, error);
          if (!bytes) {
            problem(row.path, "cannot be read (" + error + "): its references are not indexed");
            continue;
          }
          for (const ReferenceRecord& r : file_references(row.path, *bytes, syntax_of(*row.stored.language), symbols_))
            store_.insert_reference(row.path, r);
        }
      });
    }
    store_.transaction([&] { store_.drop_dangling_references(); });
  }

  void build_wiki() {
    report(90, "building the wiki", "");
    const auto is_file = [&](std::string_view path) { return kept_.contains(std::string(path)); };
    store_.transaction([&] {
      for (const Changed& c : changed_) {
        if (!c.markdown) continue;
        store_.forget_page(c.row.path);
        std::string error;
        const std::optional<std::string> bytes = read_file(options_.repo / c.row.path, error);
        if (!bytes) {
          problem(c.row.path, "cannot be read (" + error + "): no wiki page is made of it");
          continue;
        }
        store_.insert_page(c.row.path, read_markdown_page(c.row.path, valid_utf8(*bytes)));
      }
      store_.link_and_order_pages();
      // Citations name symbols, which any changed file may have moved.
      for (const StoredSection& section : store_.sections())
        store_.replace_citations(section.id, section_citations(section.body, symbols_, is_file));
      store_.write_wiki_state(branch_.value_or(""), utc_now());
    });
  }

  const IndexOptions& options_;
  std::ostream& log_;
  IndexStore store_;
  Ctags ctags_;
  bool full_ = false;
  std::optional<std::string> branch_{};
  std::optional<std::string> last_updated_{};
  std::int64_t progress_ = 0;
  std::string phase_{};
  std::vector<Changed> changed_{};
  std::unordered_set<std::string> kept_;  // every file the index keeps, changed or not
  SymbolTable symbols_;
  IndexSummary summary_;
};

}  // namespace

IndexSummary build_index(const IndexOptions& options, std::ostream& log) {
  IndexRun run(options, log);
  try {
    return run.run();
  } catch (const std::exception& e) {
    try {
      run.fail(e.what());
    } catch (const std::exception&) {
      // The database itself failed: the error below says so.
    }
    throw;
  }
}

}  // namespace kestrune::indexer
