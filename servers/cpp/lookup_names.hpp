// Names as users write them: a C++ `ns::name`, a Go `net/http.Client`, a
// Python module path without its src/ folder. The index names every symbol
// with dots; these helpers turn a written name into that form and rank
// close names for a lookup that missed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune::example {

/// dotted: `text` with "::" and "/" written as ".".
[[nodiscard]] std::string dotted(std::string_view text);

/// last_part: what follows the last "." of a dotted name (all of it when
/// it has none).
[[nodiscard]] std::string_view last_part(std::string_view name);

/// file_stem: the name of the file that `text` points at: for a path, its
/// last segment up to its first "."; for a module name, its last part.
[[nodiscard]] std::string file_stem(std::string_view text);

/// edit_distance: the Levenshtein distance between `a` and `b` with ASCII
/// letters in lower case, counted in code points (a byte that is not
/// well-formed UTF-8 counts as one).
[[nodiscard]] std::size_t edit_distance(std::string_view a, std::string_view b);

/// Candidate: a name that a missed lookup may have meant: `name` is what
/// the edit distance is taken to, `shown` what is suggested.
struct Candidate {
  std::string shown;
  std::string name;
};

/// closest: up to kMostSuggestions of `candidates`, each shown once, the
/// closest first: by edit distance of their name to `wanted_name`, then by
/// how many of the parts of `wanted` (a dotted name) their shown text holds
/// (read dotted), then the shorter, then in text order.
[[nodiscard]] std::vector<std::string> closest(std::string_view wanted_name, std::string_view wanted,
                                               std::vector<Candidate> candidates);
inline constexpr std::size_t kMostSuggestions = 5;

/// suggestion_text: " Close names: a, b." for `names`, or nothing when
/// there are none.
[[nodiscard]] std::string suggestion_text(const std::vector<std::string>& names);

}  // namespace kestrune::example
