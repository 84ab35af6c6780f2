// The parameters and local variables that C and C++ function bodies
// declare, read from their tokens: names that shadow the file's symbols
// there, and types that say which class a member access goes through.
#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "source_tokens.hpp"

namespace kestrune::indexer {

struct LocalName {
  std::string_view name;
  std::size_t declared = 0;  ///< the token that declares it
  std::size_t type = 0;      ///< the last name of its type ("Foo" of `const ns::Foo<int>& x`); 0: none known
};

/// is_cpp_keyword: whether a name is a C or C++ keyword, never a symbol's.
[[nodiscard]] bool is_cpp_keyword(std::string_view name) noexcept;

/// template_open: the "<" that the ">" at `close` closes, or 0 when it closes
/// none (a comparison).
[[nodiscard]] std::size_t template_open(const std::vector<Token>& tokens, std::size_t close);

class FunctionLocals {
 public:
  /// FunctionLocals: the names declared in tokens [first, last] of a
  /// function's definition, its parameters among them; tokens in `skip`
  /// (the names of its own definitions) declare nothing local.
  FunctionLocals(const std::vector<Token>& tokens, std::size_t first, std::size_t last,
                 const std::unordered_set<std::size_t>& skip);

  /// local: the local that the name at token `i` means, declared before it.
  [[nodiscard]] const LocalName* local(std::size_t i) const;
  [[nodiscard]] bool declares(std::size_t i) const { return declarations_.contains(i); }

 private:
  const std::vector<Token>* tokens_;
  std::unordered_map<std::string_view, std::vector<LocalName>> by_name_;
  std::unordered_set<std::size_t> declarations_;
};

}  // namespace kestrune::indexer
