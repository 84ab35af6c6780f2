#include "indexer.hpp"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <ostream>
#include <set>
#include <unordered_set>

#include <sys/stat.h>

#include <cerrno>
#include <kestrune/mcp_responses/encoding.hpp>

#include "analyzer.hpp"
#include "ctags.hpp"
#include "git_worktree.hpp"
#include "include_graph.hpp"
#include "index_store.hpp"
#include "markdown_pages.hpp"
#include "references.hpp"
#include "repo_files.hpp"
#include "source_tokens.hpp"
#include "symbols.hpp"
#include "utf8.hpp"
#include "wiki_citations.hpp"
#include "writer_lock.hpp"

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

// shown: a path as a log line shows it: as it is when it is plain, quoted
// and escaped when it holds what could break the line or the terminal.
std::string shown(std::string_view path) {
  const bool plain = std::all_of(path.begin(), path.end(), [](char c) {
    const auto u = static_cast<unsigned char>(c);
    return u >= 0x20 && u != 0x7f && c != '"' && c != '\\';
  });
  return plain && !path.empty() && path.front() != ' ' && path.back() != ' ' ? std::string(path)
                                                                             : kestrune::mcp_responses::quote(path);
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
  std::optional<std::string> last_hash{};  ///< its content's hash when the last run read it
  bool indexed = false;                    ///< read, and its symbols written, this run
  bool stored = false;                     ///< in the index before this run
  bool by_analyzer = false;                ///< its language's analyzer reads it, not ctags
  bool unchanged = false;                  ///< read again only because its language's analyzer failed on it
};

// What reading a changed file came to.
struct ReadFile {
  enum class Outcome { index, same_content, leave_out };
  Outcome outcome = Outcome::leave_out;
  std::string bytes{};
};

class IndexRun {
 public:
  IndexRun(const IndexOptions& options, std::ostream& log)
      : options_(options),
        log_(log),
        lock_(WriterLock::acquire(options.db,
                                  [&] {
                                    log << "kestrune-index: another kestrune-index is updating " << options.db.string()
                                        << "; waiting for it to finish\n";
                                  })),
        store_(IndexStore::open(options.db)),
        ctags_(options.ctags),
        analyzers_(analyzers(options.python)) {}

  IndexSummary run() {
    const std::optional<IndexStatusRow> last = store_.last_status();
    // A run that did not finish may have left files without their references.
    full_ = options_.full || (last && last->status != "ready");
    last_updated_ = last ? last->last_updated : std::nullopt;
    report(0, "listing files", "");
    const FileListing listing = list_files(options_.repo);
    branch_ = git_branch(options_.repo);
    read_changed_files(listing);
    for (Analyzer& analyzer : analyzers_) analyze(analyzer);
    extract_symbols();
    // Nothing new, changed or gone (files read again for their time, or
    // binary ones, change nothing): the index stands as it is.
    const bool changed = summary_.files_read > 0 || summary_.files_removed > 0 || dropped_;
    if (changed) {
      resolve_references();
      build_wiki();
    }
    forget_vanished();
    if (changed || summary_.files_removed > 0) {
      report(98, "counting components", "");
      store_.transaction([&] {
        store_.rebuild_components();
        store_.count_uses();
      });
    }

    last_updated_ = utc_now();
    store_.transaction([&] { store_.replace_problems(problems_); });
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
    problems_.emplace_back(path, what);
    log_ << "kestrune-index: " << shown(path) << ": " << what << "\n";
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

  // Which files are new or changed since the last run (by size and time;
  // their content is read when their batch is indexed), and which are gone.
  void read_changed_files(const FileListing& listing) {
    if (!listing.git_error.empty())
      problem(options_.repo.string(), listing.git_error + ": its files are found by a walk");
    for (const std::string& folder : listing.too_deep)
      problem(folder, "is more than " + std::to_string(kMaxDepth) + " folders deep: not walked");
    const std::unordered_map<std::string, StoredFile> stored = store_.stored_files();
    for (std::size_t i = 0; i < listing.paths.size(); ++i) {
      if (i % kBatchFiles == 0) report_step(2, 15, i, listing.paths.size(), "reading files");
      const std::string& path = listing.paths[i];
      if (!is_utf8(path)) {
        problem(path, "its name is not UTF-8 text: not indexed");
        continue;
      }
      const FileCheck check = check_file(options_.repo, path, options_.max_file_bytes);
      if (!admit(path, check)) continue;
      kept_.insert(path);
      const auto last = stored.find(path);
      const bool known = !full_ && last != stored.end() && !last->second.content_hash.empty();
      if (known && last->second.size == static_cast<std::int64_t>(check.size) &&
          last->second.mtime_ns == check.mtime_ns) {
        if (last->second.problem) problem(path, *last->second.problem);
        continue;
      }
      Changed file;
      file.row.path = path;
      file.markdown = is_markdown(path);
      file.stored = last != stored.end();
      file.by_analyzer = analyzer_of(path) != nullptr;
      if (known) {
        file.last_hash = last->second.content_hash;
        file.row.stored.language = last->second.language;
      }
      changed_.push_back(std::move(file));
    }
    std::vector<std::string> gone;
    for (const auto& [path, file] : stored) {
      if (!kept_.contains(path)) gone.push_back(path);
    }
    for (const std::string& path : gone) {
      if (const Analyzer* analyzer = analyzer_of(path)) languages_gone_.insert(analyzer->language());
    }
    store_.transaction([&] {
      for (const std::string& path : gone) forget(path);
    });
    summary_.files_removed = static_cast<std::int64_t>(gone.size());
  }

  // forget: the file and all that was made of it, out of the index.
  void forget(const std::string& path) {
    store_.forget_file(path);
    if (is_markdown(path)) store_.forget_page(path);
    kept_.erase(path);
  }

  // read_listed: the changed file's bytes, read once and within the size
  // limit, with its row filled in from them.
  ReadFile read_listed(Changed& file, bool unchanged = false) {
    ReadFile read;
    const std::string& path = file.row.path;
    std::string error;
    OpenFile opened = open_regular(options_.repo / path, error);
    if (!opened.valid()) {
      problem(path, opened.missing() ? "was removed during the run: not indexed"
                                     : "cannot be read (" + error + "): not indexed");
      return read;
    }
    // One byte past the limit tells a file that grew over it since it was listed.
    const std::size_t limit =
        static_cast<std::size_t>(std::min<std::uintmax_t>(options_.max_file_bytes, SIZE_MAX - 1)) + 1;
    std::optional<std::string> bytes = opened.read(std::min(limit, kSniffBytes), error);
    if (bytes && looks_binary(*bytes)) {
      ++summary_.skipped_binary;
      return read;
    }
    if (bytes && bytes->size() == kSniffBytes && limit > kSniffBytes) {
      std::optional<std::string> rest = opened.read(limit - kSniffBytes, error);
      if (rest) {
        *bytes += *rest;
      } else {
        bytes.reset();
      }
    }
    if (!bytes) {
      problem(path, "cannot be read (" + error + "): not indexed");
      return read;
    }
    if (bytes->size() >= limit) {
      ++summary_.skipped_large;
      log_ << "kestrune-index: " << shown(path) << ": grew over the limit of " << options_.max_file_bytes
           << " bytes after it was listed: not indexed\n";
      return read;
    }
    file.row.stored.size = static_cast<std::int64_t>(bytes->size());
    file.row.stored.mtime_ns = opened.mtime_ns();
    file.row.stored.content_hash = content_hash(*bytes);
    file.row.lines = line_count(*bytes);
    if (!is_utf8(*bytes) && !decoded_text(*bytes).well_formed) {
      file.row.stored.problem =
          "its text is not UTF-8 and declares no encoding it is in: ill-formed bytes are read as U+FFFD";
      if (!unchanged) problem(path, *file.row.stored.problem);  // else reported as the listing found it
    }
    read.outcome =
        file.last_hash == file.row.stored.content_hash ? ReadFile::Outcome::same_content : ReadFile::Outcome::index;
    read.bytes = std::move(*bytes);
    return read;
  }

  // read_again: the bytes of a file indexed this run, for a later phase;
  // nullopt when it vanished (it is then forgotten) or changed since its
  // symbols were read (it is read again next run).
  std::optional<std::string> read_again(Changed& file, std::string_view phase) {
    const std::string& path = file.row.path;
    std::string error;
    OpenFile opened = open_regular(options_.repo / path, error);
    std::optional<std::string> bytes;
    if (opened.valid()) bytes = opened.read(static_cast<std::size_t>(file.row.stored.size) + 1, error);
    if (!bytes) {
      problem(path, opened.missing() ? "was removed during the run: removed from the index"
                                     : "cannot be read (" + error + "): removed from the index");
      store_.transaction([&] { forget(path); });
      file.indexed = false;
      return std::nullopt;
    }
    if (content_hash(*bytes) != file.row.stored.content_hash) {
      problem(path, "changed while it was indexed: its " + std::string(phase) + " wait for the next run");
      file.row.stored.content_hash.clear();
      store_.transaction([&] { store_.put_file(file.row); });
      return std::nullopt;
    }
    return bytes;
  }

  // admit: whether the listed file is one to index; the others are counted.
  bool admit(const std::string& path, const FileCheck& check) {
    using Kind = FileCheck::Kind;
    switch (check.kind) {
      case Kind::regular:
        return true;
      case Kind::too_large:
        ++summary_.skipped_large;
        log_ << "kestrune-index: " << shown(path) << ": " << check.size << " bytes, over the limit of "
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

  const Analyzer* analyzer_of(std::string_view path) const {
    for (const Analyzer& analyzer : analyzers_) {
      if (analyzer.takes(path)) return &analyzer;
    }
    return nullptr;
  }

  // analyze: every file of the analyzer's language handed to it, when one of
  // them is new, changed or gone, and its answers swapped in a batch at a
  // time: each file's symbols and references at once. A file it cannot
  // parse, or every file when it cannot run, goes to ctags instead.
  void analyze(Analyzer& analyzer) {
    const std::string& language = analyzer.language();
    const bool changes = std::any_of(changed_.begin(), changed_.end(),
                                     [&](const Changed& c) { return c.by_analyzer && analyzer.takes(c.row.path); });
    if (!changes && !languages_gone_.contains(language)) return;
    report(15, "analyzing " + language, "");
    symbols_from_ = 30;  // ctags's part of the symbols phase comes after
    std::unordered_map<std::string, Changed*> changed;
    for (Changed& c : changed_) {
      if (c.by_analyzer && analyzer.takes(c.row.path)) changed.emplace(c.row.path, &c);
    }
    std::vector<std::string> paths;
    for (const std::string& path : kept_) {
      if (analyzer.takes(path)) paths.push_back(path);
    }
    std::sort(paths.begin(), paths.end());

    std::string error;
    std::unordered_map<std::string, Changed> handed;  // what each file was when it was read
    std::unordered_set<std::string> answered;
    bool ok = analyzer.start(error);
    for (std::size_t i = 0; ok && i < paths.size(); ++i) {
      if (i % kBatchFiles == 0) report_step(15, 30, i, paths.size(), ("analyzing " + language).c_str());
      const auto c = changed.find(paths[i]);
      Changed file;
      if (c != changed.end()) {
        file = *c->second;
      } else {
        file.row.path = paths[i];
      }
      ReadFile read = read_listed(file, c == changed.end());
      if (read.outcome == ReadFile::Outcome::leave_out) {
        store_.transaction([&] { forget(file.row.path); });
        dropped_ = true;
        continue;
      }
      ok = analyzer.add(file.row.path, read.bytes, error);
      handed.emplace(file.row.path, std::move(file));
    }
    std::vector<AnalyzedFile> batch;
    const auto write = [&] {
      store_.transaction([&] {
        for (AnalyzedFile& answer : batch) {
          const auto h = handed.find(answer.path);
          if (h == handed.end() || answer.error) continue;
          answered.insert(answer.path);
          FileRow row = h->second.row;
          row.stored.language = language;
          store_.clear_symbols(row.path);
          for (const SymbolRecord& symbol : answer.symbols) store_.insert_symbol(symbol);
          store_.clear_references(row.path);
          for (const ReferenceRecord& reference : answer.references) store_.insert_reference(row.path, reference);
          store_.put_file(row);
          if (const auto c = changed.find(row.path); c != changed.end()) c->second->indexed = true;
        }
      });
      batch.clear();
    };
    if (ok) {
      report(30, "analyzing " + language, std::to_string(paths.size()) + " files");
      ok = analyzer.analyze(
          [&](AnalyzedFile answer) {
            if (answer.error)
              log_ << "kestrune-index: " << shown(answer.path) << ": read by ctags instead, as it does not parse as "
                   << language << " (" << *answer.error << ")\n";
            batch.push_back(std::move(answer));
            if (batch.size() == kBatchFiles) write();
          },
          error);
      write();
    }
    if (!ok)
      problem(language, "the analyzer failed (" + error + "): its files that it did not answer are read by ctags");
    // What the analyzer did not answer is read by ctags, its references by the token scan.
    for (auto& [path, file] : handed) {
      if (answered.contains(path)) continue;
      if (const auto c = changed.find(path); c != changed.end()) {
        c->second->by_analyzer = false;
      } else {
        file.by_analyzer = false;
        file.unchanged = true;
        changed_.push_back(std::move(file));
      }
    }
  }

  void extract_symbols() {
    std::vector<Changed*> files;
    for (Changed& c : changed_) {
      if (!c.by_analyzer) files.push_back(&c);
    }
    for (std::size_t start = 0; start < files.size(); start += kBatchFiles) {
      report_step(symbols_from_, 50, start, files.size(), "extracting symbols");
      const std::size_t end = std::min(files.size(), start + kBatchFiles);
      // Read and parsed first; then the batch is swapped in at once.
      std::vector<std::pair<ReadFile::Outcome, std::vector<SymbolRecord>>> done;
      for (std::size_t i = start; i < end; ++i) done.push_back(take_symbols(*files[i]));
      store_.transaction([&] {
        for (std::size_t i = start; i < end; ++i) {
          Changed& file = *files[i];
          auto& [outcome, symbols] = done[i - start];
          if (outcome == ReadFile::Outcome::leave_out) {
            forget(file.row.path);
            dropped_ = dropped_ || file.stored;
            continue;
          }
          if (outcome == ReadFile::Outcome::index) {
            store_.clear_symbols(file.row.path);
            for (const SymbolRecord& s : symbols) store_.insert_symbol(s);
            file.indexed = true;
          }
          store_.put_file(file.row);
        }
      });
    }
    summary_.files_read =
        std::count_if(changed_.begin(), changed_.end(), [](const Changed& c) { return c.indexed && !c.unchanged; });
  }

  // ctags_usable: whether ctags can run, asked once, when the first file
  // needs it.
  bool ctags_usable() {
    if (!ctags_usable_) {
      std::string error;
      ctags_usable_ = ctags_.usable(error);
      if (!*ctags_usable_) problem(options_.ctags, error + "; files are indexed without symbols");
    }
    return *ctags_usable_;
  }

  // take_symbols: the file read and its symbols taken from its bytes.
  std::pair<ReadFile::Outcome, std::vector<SymbolRecord>> take_symbols(Changed& file) {
    ReadFile read = read_listed(file, file.unchanged);
    if (read.outcome != ReadFile::Outcome::index) return {read.outcome, {}};
    if (file.markdown) {
      file.row.stored.language = "Markdown";
      return {read.outcome, {}};
    }
    if (!ctags_usable()) {
      file.row.stored.content_hash.clear();  // an empty hash: the next run reads it again
      return {read.outcome, {}};
    }
    std::string error;
    const std::string text = decoded_text(read.bytes).text;
    const std::optional<std::vector<Tag>> tags = ctags_.tags(file.row.path, text, error);
    if (!tags) {
      problem(file.row.path, "ctags failed on it (" + error + "): its symbols are not indexed");
      // Read again next run, unless its language's analyzer could not parse
      // it: that would run the analyzer over every file of the language
      // again, for the same answer, until the file changes.
      if (analyzer_of(file.row.path) == nullptr) file.row.stored.content_hash.clear();
      return {read.outcome, {}};
    }
    file.row.stored.language.reset();
    for (const Tag& t : *tags) {
      if (!t.language.empty()) {
        file.row.stored.language = t.language;
        break;
      }
    }
    return {read.outcome, file_symbols(file.row.path, *tags, text, static_cast<int>(file.row.lines))};
  }

  void resolve_references() {
    report(50, "resolving references", "");
    symbols_ = store_.load_symbols();
    std::vector<std::string> paths(kept_.begin(), kept_.end());
    std::sort(paths.begin(), paths.end());
    IncludeGraph includes(paths, [&](const std::string& path) {
      std::string error;
      return read_file(options_.repo / path, error, static_cast<std::size_t>(options_.max_file_bytes));
    });
    std::vector<Changed*> scanned;
    for (Changed& c : changed_) {
      if (c.indexed && !c.by_analyzer && !c.markdown && c.row.stored.language &&
          syntax_of(*c.row.stored.language) != Syntax::plain)
        scanned.push_back(&c);
    }
    for (std::size_t start = 0; start < scanned.size(); start += kBatchFiles) {
      report_step(50, 90, start, scanned.size(), "resolving references");
      const std::size_t end = std::min(scanned.size(), start + kBatchFiles);
      std::vector<std::pair<const Changed*, std::vector<ReferenceRecord>>> found;
      for (std::size_t i = start; i < end; ++i) {
        Changed& file = *scanned[i];
        if (const std::optional<std::string> bytes = read_again(file, "references")) {
          const std::string& language = *file.row.stored.language;
          ScanScope scope{.language = language};
          if (language == "C" || language == "C++" || language == "CUDA")
            scope.visible = &includes.visible(file.row.path, *bytes);
          const std::string text = decoded_text(*bytes).text;
          found.emplace_back(&file, file_references(file.row.path, text, syntax_of(language), symbols_, scope));
        }
      }
      // A file's references are replaced in one step: a reader sees the old
      // ones or the new, never none.
      store_.transaction([&] {
        for (const auto& [file, references] : found) {
          store_.clear_references(file->row.path);
          for (const ReferenceRecord& r : references) store_.insert_reference(file->row.path, r);
        }
      });
    }
    store_.transaction([&] { store_.drop_dangling_references(); });
  }

  void build_wiki() {
    report(90, "building the wiki", "");
    std::vector<std::pair<std::string, MarkdownPage>> pages;
    for (Changed& c : changed_) {
      if (!c.markdown || !c.indexed) continue;
      if (const std::optional<std::string> bytes = read_again(c, "wiki page")) {
        pages.emplace_back(c.row.path, read_markdown_page(c.row.path, decoded_text(*bytes).text));
      }
    }
    const auto is_file = [&](std::string_view path) { return kept_.contains(std::string(path)); };
    store_.transaction([&] {
      for (const auto& [path, page] : pages) {
        store_.forget_page(path);
        store_.insert_page(path, page);
      }
      store_.link_and_order_pages();
      // Citations name symbols, which any changed file may have moved.
      for (const StoredSection& section : store_.sections())
        store_.replace_citations(section.id, section_citations(section.body, symbols_, is_file));
      store_.write_wiki_state(branch_.value_or(""), utc_now());
    });
  }

  // forget_vanished: the files that were removed while the run went on,
  // out of the index (those read this run were checked as they were read).
  void forget_vanished() {
    std::vector<std::string> vanished;
    for (const std::string& path : kept_) {
      struct stat info {};
      if (::lstat((options_.repo / path).c_str(), &info) != 0 && errno == ENOENT) vanished.push_back(path);
    }
    std::sort(vanished.begin(), vanished.end());
    if (vanished.empty()) return;
    store_.transaction([&] {
      for (const std::string& path : vanished) {
        problem(path, "was removed during the run: removed from the index");
        forget(path);
      }
    });
    summary_.files_removed += static_cast<std::int64_t>(vanished.size());
  }

  const IndexOptions& options_;
  std::ostream& log_;
  WriterLock lock_;  // taken before the store is opened, held until it is closed
  IndexStore store_;
  Ctags ctags_;
  std::optional<bool> ctags_usable_{};
  bool dropped_ = false;            // a file the index held was left out this run
  std::int64_t symbols_from_ = 15;  // the progress at which ctags's files start
  std::vector<Analyzer> analyzers_;
  std::vector<std::pair<std::string, std::string>> problems_;  // as standard error showed them
  std::set<std::string> languages_gone_;                       // of the analyzers whose files were removed
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
