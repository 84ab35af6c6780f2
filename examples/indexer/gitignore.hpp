// .gitignore rules, for a work tree that is not a git repository: the walk
// that lists its files leaves out what git would ignore.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune::indexer {

class IgnoreRules {
 public:
  /// add: the rules of the .gitignore file in `directory` (relative to the
  /// root, "" for the root itself), whose text is `text`. Rules added later
  /// (deeper directories) take precedence, as in git.
  void add(std::string_view directory, std::string_view text);

  /// ignored: whether the root-relative `path` is ignored by the rules;
  /// `is_directory` for rules that end in "/".
  [[nodiscard]] bool ignored(std::string_view path, bool is_directory) const;

 private:
  struct Rule {
    std::string base{};     ///< the directory of its .gitignore, "" or ending in "/"
    std::string pattern{};  ///< without its "!", leading "/" and trailing "/"
    bool negated = false;
    bool directory_only = false;
    bool anchored = false;  ///< matched against the whole path below `base`, not any last component
  };
  std::vector<Rule> rules_{};
};

/// glob_match: whether `text` matches the gitignore glob `pattern`: "*" and
/// "?" within one path component, "[...]" classes, and "**" across them.
[[nodiscard]] bool glob_match(std::string_view pattern, std::string_view text);

}  // namespace kestrune::indexer
