// The symbols of one file, as the index holds them: ctags's tags given
// fully qualified names, signatures, export flags and (for Python) the
// docstrings and a symbol for the module itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctags.hpp"

namespace kestrune::indexer {

struct SymbolRecord {
  std::string fqn{};
  std::string name{};
  std::string kind{};
  std::string file_path{};
  int start_line = 0;
  int end_line = 0;
  std::optional<std::string> signature{};
  std::optional<std::string> docstring{};
  std::optional<bool> is_export{};  ///< nullopt where the language has no convention we know
};

/// dotted_name: a scoped name with its parts joined by "." as fqns join
/// them: "ns::Class" and "pkg/Type" are "ns.Class" and "pkg.Type".
[[nodiscard]] std::string dotted_name(std::string_view name);

/// module_path: the dotted module of a file: its path without the
/// extension, "/" read as "." ("shop/cart.py" is "shop.cart"); a package's
/// __init__ file names the package.
[[nodiscard]] std::string module_path(std::string_view file_path);

/// file_symbols: the symbols of the file at `path` from its `tags` (ctags's
/// kinds, file tags left out) and its text `source`, which has
/// `line_count` lines. Python imports are uses, not symbols; a Python file
/// also gets its module as a symbol.
[[nodiscard]] std::vector<SymbolRecord> file_symbols(std::string_view path, const std::vector<Tag>& tags,
                                                     std::string_view source, int line_count);

}  // namespace kestrune::indexer
