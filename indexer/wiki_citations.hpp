// The citations of a wiki section: the code spans of its text that name an
// indexed symbol or file.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "symbol_table.hpp"

namespace kestrune::indexer {

struct Citation {
  std::string path{};
  std::optional<int> line_start{};  ///< a symbol's lines; none for a whole file
  std::optional<int> line_end{};
};

/// section_citations: a citation for each code span of `body` that names an
/// indexed file (`is_file`) or one symbol: by its fqn, by the end of its fqn
/// (`Cart.total`), or by its name when that is the only symbol so named. A
/// trailing "()" is dropped; each place is cited once, in the order of the text.
[[nodiscard]] std::vector<Citation> section_citations(std::string_view body, const SymbolTable& symbols,
                                                      const std::function<bool(std::string_view)>& is_file);

}  // namespace kestrune::indexer
