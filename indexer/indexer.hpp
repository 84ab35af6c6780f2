// kestrune-index's run: a repository's work tree into the example server's
// index, phase by phase, its progress written as it goes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>

namespace kestrune::indexer {

struct IndexOptions {
  std::filesystem::path repo{};    ///< the work tree's root
  std::filesystem::path db{};      ///< the index; made when missing, brought up to date otherwise
  std::string ctags = "ctags";     ///< Universal Ctags: a name on PATH or a path
  std::string python = "python3";  ///< runs the Python analyzer; empty: Python is read by ctags too
  std::uintmax_t max_file_bytes = std::uintmax_t{1} << 20;  ///< larger files are skipped
  bool full = false;                                        ///< read every file, changed or not
};

/// What a run did.
struct IndexSummary {
  std::int64_t files_indexed = 0;  ///< in the index when it ended
  std::int64_t files_read = 0;     ///< new or changed, read and indexed this run
  std::int64_t files_removed = 0;  ///< gone from the work tree (or now skipped), taken out
  std::int64_t skipped_binary = 0;
  std::int64_t skipped_large = 0;
  std::int64_t symbols = 0;
  std::int64_t references = 0;
  std::int64_t wiki_pages = 0;
  std::int64_t errors = 0;  ///< also the status's errors_count
};

/// build_index: indexes `options.repo` into `options.db`. A file that is
/// not UTF-8, cannot be read, is a link out of the tree or that ctags fails
/// on is an error: a line on `log` and one more in the status's count; the
/// rest is indexed. Files whose size and time, or else whose content, are
/// as the last complete run left them are not read again. Throws
/// std::runtime_error when the database fails.
IndexSummary build_index(const IndexOptions& options, std::ostream& log);

}  // namespace kestrune::indexer
