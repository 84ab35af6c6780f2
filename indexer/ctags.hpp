// Universal Ctags run beside the indexer in its interactive mode: it is
// handed each file's bytes as the indexer read them, under the file's name,
// and answers JSON lines read into tags. It reads no option file, no file of
// the tree and no name as an option.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "process.hpp"

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

class Ctags {
 public:
  /// Ctags: the program `program` (a name on PATH, or a path). Call
  /// `usable` before the first file.
  explicit Ctags(std::string program) : program_(std::move(program)) {}

  /// usable: whether the program runs and is Universal Ctags with JSON
  /// output and the interactive mode; otherwise `error` says what is wrong.
  [[nodiscard]] bool usable(std::string& error);

  /// tags: the tags of the file `path` (relative to the root, which tells
  /// ctags its language) whose text is `source`. nullopt, with `error` set,
  /// when ctags fails on it or takes too long; it is started again for the
  /// next file.
  [[nodiscard]] std::optional<std::vector<Tag>> tags(std::string_view path, std::string_view source,
                                                     std::string& error);

 private:
  [[nodiscard]] Conversation start(std::string& error) const;
  std::string program_{};
  std::string mode_{};  ///< the interactive mode that works here: "sandbox" where the system allows it
  Conversation session_{};
};

}  // namespace kestrune::indexer
