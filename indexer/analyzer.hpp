// A language analyzer run beside the indexer (see analyzers/README.md):
// handed every file of its language, it answers each file's symbols and the
// references in it, names resolved with the language's own parser.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "process.hpp"
#include "references.hpp"
#include "symbols.hpp"

namespace kestrune::indexer {

/// What an analyzer answered for one file.
struct AnalyzedFile {
  std::string path{};
  std::optional<std::string> error{};  ///< why it could not be parsed
  std::vector<SymbolRecord> symbols{};
  std::vector<ReferenceRecord> references{};
};

/// parse_analyzed_file: one answer line of an analyzer; nullopt for any
/// other line.
[[nodiscard]] std::optional<AnalyzedFile> parse_analyzed_file(std::string_view line);

/// An analyzer for one language.
class Analyzer {
 public:
  /// Analyzer: `language` as ctags names it ("Python", "Go"), the files it
  /// takes by their extensions and by their whole names (Go's "go.mod"),
  /// and the program that analyzes them.
  Analyzer(std::string language, std::vector<std::string> extensions, std::vector<std::string> argv,
           std::vector<std::string> file_names = {})
      : language_(std::move(language)),
        extensions_(std::move(extensions)),
        file_names_(std::move(file_names)),
        argv_(std::move(argv)) {}

  [[nodiscard]] const std::string& language() const { return language_; }
  /// takes: whether the file at `path` is of this analyzer's language.
  [[nodiscard]] bool takes(std::string_view path) const;

  /// start: a new conversation with the program, run in "/" with a fixed
  /// environment of its own (nothing of the user's shell, such as GOGC,
  /// GODEBUG or NODE_OPTIONS, changes what or how it analyzes); false, with
  /// `error` set, when it cannot run.
  [[nodiscard]] bool start(std::string& error);
  /// add: one file handed over; false, with `error` set, when the program failed.
  [[nodiscard]] bool add(std::string_view path, std::string_view bytes, std::string& error);
  /// analyze: the answers, `each` called on each as it comes; false, with
  /// `error` set, when the program fails before its last (those answered
  /// stay answered).
  [[nodiscard]] bool analyze(const std::function<void(AnalyzedFile)>& each, std::string& error);

 private:
  std::string language_;
  std::vector<std::string> extensions_;
  std::vector<std::string> file_names_;
  std::vector<std::string> argv_;
  Conversation session_{};
};

/// analyzers: those that can run here: Python through `python` (a program
/// on PATH or a path; empty: none), Go through the analyzer built beside
/// the indexer, JavaScript and TypeScript through the one installed beside
/// it with node, when they were.
[[nodiscard]] std::vector<Analyzer> analyzers(const std::string& python);

}  // namespace kestrune::indexer
