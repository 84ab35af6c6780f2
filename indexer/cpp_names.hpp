// What a name written in C or C++ means, found as the language looks it up
// but from tokens and the index alone: the scopes around it and the bases
// of their classes, its "::" qualifier through namespaces, classes,
// typedefs and namespace aliases, `using` in the file, the parameters and
// locals that shadow it, and for a member access the class of the object
// when its declaration says it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cpp_locals.hpp"
#include "source_tokens.hpp"
#include "symbol_table.hpp"

namespace kestrune::indexer {

class CppNames {
 public:
  /// CppNames: over the file at `path` whose tokens are `tokens`;
  /// `visible` holds the files it sees (null: any of its language);
  /// `innermost[line]` is the innermost symbol of the file around a line.
  CppNames(std::string_view path, std::string_view source, const std::vector<Token>& tokens, const SymbolTable& symbols,
           std::string_view language, const std::unordered_set<std::string>* visible,
           const std::vector<const IndexedSymbol*>& innermost);

  /// targets: the symbols the name at token `i` is a use of: none (a
  /// declaration, a local, a name the file cannot mean), one, or a class
  /// and the constructor that `Class(...)` calls.
  [[nodiscard]] std::vector<const IndexedSymbol*> targets(std::size_t i) const;

 private:
  using Scopes = std::vector<std::string>;

  void read_directives(std::string_view source);
  void read_usings();
  void read_templates();
  void read_declarations();

  [[nodiscard]] const IndexedSymbol* caller_at(int line) const;
  [[nodiscard]] bool caller_function(int line) const;
  [[nodiscard]] bool names_macro(std::string_view name) const;
  [[nodiscard]] std::size_t closing(std::size_t open) const;
  [[nodiscard]] bool in_class_head(std::size_t i) const;
  [[nodiscard]] bool template_parameter(std::size_t i) const;
  [[nodiscard]] const FunctionLocals* locals_at(int line) const;
  [[nodiscard]] Scopes scopes_at(int line) const;
  [[nodiscard]] static Scopes scopes_of(std::string_view fqn);

  [[nodiscard]] const IndexedSymbol* find(std::string_view fqn) const;
  [[nodiscard]] bool near(const IndexedSymbol& s) const;
  [[nodiscard]] const IndexedSymbol* only(std::string_view name, bool member) const;
  [[nodiscard]] const IndexedSymbol* in_this_file(std::string_view name) const;

  [[nodiscard]] const IndexedSymbol* bare(std::size_t i) const;
  [[nodiscard]] const IndexedSymbol* qualified(const std::vector<std::string_view>& parts, std::string_view name,
                                               const Scopes& scopes) const;
  [[nodiscard]] const IndexedSymbol* member(std::size_t i) const;
  [[nodiscard]] const IndexedSymbol* type_named_at(std::size_t i) const;

  [[nodiscard]] const IndexedSymbol* member_of(const IndexedSymbol* owner, std::string_view name, int depth = 0) const;
  [[nodiscard]] const IndexedSymbol* aliased(const IndexedSymbol* s, int depth = 0) const;
  [[nodiscard]] std::vector<const IndexedSymbol*> bases_of(const IndexedSymbol& cls) const;
  [[nodiscard]] bool derives(const IndexedSymbol& cls, const IndexedSymbol& base, int depth = 0) const;
  [[nodiscard]] const IndexedSymbol* enclosing_class(int line) const;
  [[nodiscard]] const IndexedSymbol* path_named(std::string_view text, const Scopes& scopes) const;

  std::string_view path_;
  const std::vector<Token>& tokens_;
  const SymbolTable& symbols_;
  std::string_view language_;
  const std::unordered_set<std::string>* visible_;
  const std::vector<const IndexedSymbol*>& innermost_;
  std::vector<std::string> using_namespaces_;
  std::unordered_map<std::string_view, std::string> using_names_;  // `using a::b::S;`: "S" -> "a::b::S"
  std::unordered_map<std::string_view, std::string> namespace_aliases_;
  std::unordered_set<int> include_lines_;
  std::unordered_set<std::size_t> skipped_;  // names of the file's own definitions, macro parameters
  std::unordered_map<const IndexedSymbol*, FunctionLocals> locals_;
  struct MacroBody {
    int first = 0;
    int last = 0;
    FunctionLocals locals;
  };
  std::vector<MacroBody> bodies_;
  // A template's parameter names: the tokens after its header that they name.
  std::unordered_map<std::string_view, std::vector<std::pair<std::size_t, std::size_t>>> template_parameters_;
  mutable std::unordered_map<const IndexedSymbol*, std::vector<const IndexedSymbol*>> bases_;
};

}  // namespace kestrune::indexer
