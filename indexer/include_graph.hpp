// Which files a C or C++ file sees: itself and what it includes, directly or
// through the headers it includes, each include resolved to the indexed
// files whose path ends with the included name.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace kestrune::indexer {

/// includes_of: the names a C or C++ source includes (`#include "a/b.h"`
/// and `#include <a/b.h>` both give "a/b.h").
[[nodiscard]] std::vector<std::string> includes_of(std::string_view source);

class IncludeGraph {
 public:
  /// IncludeGraph: over the indexed files at `paths`; `read` gives the
  /// text of one of them, when it can be read.
  IncludeGraph(const std::vector<std::string>& paths,
               std::function<std::optional<std::string>(const std::string&)> read);

  /// visible: the file at `path` and every file it includes, at any depth;
  /// `source` is its text when the caller holds it.
  [[nodiscard]] const std::unordered_set<std::string>& visible(const std::string& path,
                                                               std::optional<std::string_view> source = std::nullopt);

 private:
  [[nodiscard]] std::vector<std::string> resolve(std::string_view name) const;
  const std::vector<std::string>& direct(const std::string& path, std::optional<std::string_view> source);

  std::unordered_map<std::string, std::vector<std::string>> by_file_name_;  // "b.h": every path ending in it
  std::function<std::optional<std::string>(const std::string&)> read_;
  std::unordered_map<std::string, std::vector<std::string>> direct_;
  std::unordered_map<std::string, std::unordered_set<std::string>> visible_;
};

}  // namespace kestrune::indexer
