// The uses of indexed symbols in one file, found by a scan of its tokens:
// each with its line, the symbol that holds it and how the symbol is used.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
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

/// What a scanned file can mean by a name: symbols of its language only,
/// and in C and C++ those of the files it sees (itself and what it
/// includes; null: no include information, its own top-level folder).
struct ScanScope {
  std::string language{};
  const std::unordered_set<std::string>* visible = nullptr;
};

/// file_references: the uses in the file at `path`, whose text is `source`.
/// A name resolves to a symbol only where the file says which one it means:
/// Python through its imports, `self.` and its own module; C and C++ as
/// CppNames looks them up; any other language through the file's own
/// symbols; a member access (`x.name`) or, outside Python, any name also to
/// the one symbol of that name of the file's language in its own top-level
/// folder. A definition is no use of itself.
[[nodiscard]] std::vector<ReferenceRecord> file_references(std::string_view path, std::string_view source,
                                                           Syntax syntax, const SymbolTable& symbols,
                                                           const ScanScope& scope);

}  // namespace kestrune::indexer
