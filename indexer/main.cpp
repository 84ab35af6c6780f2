// kestrune-index: builds the example server's index of a repository. See --help.
#include <charconv>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "indexer.hpp"

namespace {

constexpr std::string_view kHelp =
    R"(Usage: kestrune-index REPO --db PATH [--ctags PROGRAM] [--python PROGRAM] [--max-file-bytes N] [--full]

Builds the index that kestrune-example-server answers from, a SQLite
database, from the work tree at REPO: the files git tracks there (or, without
git, every file that .gitignore does not exclude), their symbols from
Universal Ctags, the uses of those symbols, a component per top-level
folder, and a wiki of the Markdown files. A server may read the index while
it is built: its status tool shows the phase and the progress. Nothing in
the tree runs or configures a tool: git's files are read with libgit2, and
ctags reads no option file. One run writes an index at a time; another
waits for it.

  --db PATH            the index; made when missing, else brought up to date:
                       only files whose content changed are read again
  --ctags PROGRAM      Universal Ctags (default: ctags on PATH)
  --python PROGRAM     the Python that reads Python files with its own parser
                       (default: python3 on PATH; "" to leave them to ctags)
  --max-file-bytes N   larger files are skipped (default 1048576)
  --full               read every file again

A file that cannot be read, is not UTF-8, is a link out of the tree, changes
kind or vanishes during the run, or that ctags fails on is reported on
standard error and counted in the status's errors; the rest is indexed. Exit status: 0 when the index is built (errors
or not), 1 when the database fails, 2 for a bad command line.
)";

int usage_error(std::string_view message) {
  std::cerr << "kestrune-index: " << message << " (see --help)\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  namespace ix = kestrune::indexer;
  ix::IndexOptions options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kHelp;
      return 0;
    }
    if (arg == "--full") {
      options.full = true;
      continue;
    }
    if (!arg.starts_with("--")) {
      if (!options.repo.empty()) return usage_error("one repository at a time");
      options.repo = arg;
      continue;
    }
    if (i + 1 >= argc) return usage_error("unknown option or missing value: " + std::string(arg));
    const std::string value = argv[++i];
    if (arg == "--db") {
      options.db = value;
    } else if (arg == "--ctags") {
      options.ctags = value;
    } else if (arg == "--python") {
      options.python = value;
    } else if (arg == "--max-file-bytes") {
      // Decimal digits only: no sign, no space, nothing beyond its type.
      const char* end = value.data() + value.size();
      const auto [stop, error] = std::from_chars(value.data(), end, options.max_file_bytes);
      if (value.empty() || error != std::errc{} || stop != end) return usage_error("--max-file-bytes needs a number");
    } else {
      return usage_error("unknown option: " + std::string(arg));
    }
  }
  if (options.repo.empty() || options.db.empty()) return usage_error("REPO and --db PATH are needed");
  std::error_code ec;
  if (!std::filesystem::is_directory(options.repo, ec)) return usage_error(options.repo.string() + " is not a folder");
  try {
    const ix::IndexSummary s = ix::build_index(options, std::cerr);
    std::cout << "kestrune-index: " << s.files_indexed << " files (" << s.files_read << " read, " << s.files_removed
              << " removed; skipped: " << s.skipped_binary << " binary, " << s.skipped_large << " too large), "
              << s.symbols << " symbols, " << s.references << " references, " << s.wiki_pages << " wiki pages; "
              << s.errors << " errors\n";
  } catch (const std::exception& e) {
    std::cerr << "kestrune-index: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
