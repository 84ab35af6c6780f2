// .gitignore rules, for a work tree that is not a git repository: the walk
// that lists its files leaves out what git would ignore.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune::indexer {

/// A gitignore glob: "*" and "?" within one path component, "[...]" classes
/// (POSIX names too), "\\" escapes, and "**" across components where it
/// stands alone between slashes. Matching takes time in proportion to the
/// pattern's length times the text's, whatever the pattern.
class Glob {
 public:
  explicit Glob(std::string_view pattern);
  [[nodiscard]] bool matches(std::string_view text) const;

  struct Step;  ///< one element of the compiled pattern

 private:
  std::vector<Step> steps_;
};

/// One element of a compiled glob.
struct Glob::Step {
  enum class Kind : std::uint8_t {
    literal,   ///< one byte, itself
    any,       ///< "?": one byte but "/"
    set,       ///< "[...]": one byte of a class, never "/"
    star,      ///< "*": any run of bytes without "/"
    globstar,  ///< "**" at the pattern's end: any run of bytes
    skip,      ///< "**/": no byte, on to the step after `dirs`, or into `dirs`
    dirs,      ///< the folders "**/" may match: any run of bytes that ends in "/"
  };
  Kind kind = Kind::literal;
  char byte = 0;
  bool negated = false;
  std::array<std::uint64_t, 4> members{};  ///< the class's bytes, a bit each
};

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
    std::string base{};  ///< the directory of its .gitignore, "" or ending in "/"
    Glob pattern;        ///< without its "!", leading "/" and trailing "/"
    bool negated = false;
    bool directory_only = false;
    bool anchored = false;  ///< matched against the whole path below `base`, not any last component
  };
  std::vector<Rule> rules_{};
};

/// glob_match: whether `text` matches the gitignore glob `pattern`.
[[nodiscard]] inline bool glob_match(std::string_view pattern, std::string_view text) {
  return Glob(pattern).matches(text);
}

}  // namespace kestrune::indexer
