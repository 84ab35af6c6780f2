// The uses of indexed symbols in one file, found by a scan of its tokens:
// each with its line, the symbol that holds it and how the symbol is used.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "source_tokens.hpp"
#include "symbol_table.hpp"

namespace kestrune::indexer {

struct ReferenceRecord {
  std::string symbol_fqn{};
  int line = 0;
  std::optional<std::string> caller_fqn{};  ///< the innermost symbol of the file around the line
  std::optional<std::string> caller_kind{};
  std::string usage_type{};  ///< "import", "call" (the name is called) or "reference"
};

/// file_references: the uses in the file at `path`, whose text is `source`.
/// A name resolves to a symbol only where the file says which one it means:
/// Python through its imports, `self.` and its own module; any language
/// through the file's own symbols; a member access (`x.name`) or, outside
/// Python, any name also to the one symbol of that name in the index, when
/// there is only one. A definition is no use of itself.
[[nodiscard]] std::vector<ReferenceRecord> file_references(std::string_view path, std::string_view source,
                                                           Syntax syntax, const SymbolTable& symbols);

}  // namespace kestrune::indexer
