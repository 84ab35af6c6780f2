// Universal Ctags run as a process over a batch of files, its JSON lines
// read into tags.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune::indexer {

/// One definition that ctags found.
struct Tag {
  std::string path{};  ///< as it was given, relative to the root
  std::string name{};
  std::string kind{};      ///< the long kind name ("function", "member", "file"...)
  std::string language{};  ///< ctags's name ("Python", "C++"...)
  int line = 0;
  int end = 0;              ///< 0 when ctags does not know it
  std::string scope{};      ///< the enclosing definitions, as ctags joins them
  std::string signature{};  ///< the parameter list, when there is one
  std::string type{};       ///< the return or variable type (typeref without its "typename:")
  std::string inherits{};   ///< the base classes, comma-separated
  std::string access{};     ///< "public", "private"..., when the language has it
  std::string pattern{};    ///< the definition's line as a search pattern
  bool file_scope = false;  ///< visible in its file only (a static C function)
};

/// parse_tag: the tag of one line of ctags's JSON output; nullopt for any
/// other line (a pseudo-tag, or one that is not JSON). Ill-formed UTF-8 in
/// the line becomes U+FFFD.
[[nodiscard]] std::optional<Tag> parse_tag(std::string_view line);

/// What ctags said of a batch.
struct CtagsBatch {
  std::vector<Tag> tags{};
  bool ok = false;      ///< it ran and exited 0
  std::string error{};  ///< otherwise why not
};

class Ctags {
 public:
  /// Ctags: the program `program` (a name on PATH, or a path). Call
  /// `usable` before any batch.
  explicit Ctags(std::string program) : program_(std::move(program)) {}

  /// usable: whether the program runs and is Universal Ctags with JSON
  /// output; otherwise `error` says what is wrong.
  [[nodiscard]] bool usable(std::string& error) const;

  /// run: the tags of the files at `paths`, relative to `root`.
  [[nodiscard]] CtagsBatch run(const std::filesystem::path& root, const std::vector<std::string>& paths) const;

 private:
  std::string program_{};
};

}  // namespace kestrune::indexer
