// Every symbol of the index in memory, looked up by fqn, by name and by
// file: what references and wiki citations are resolved against.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrune::indexer {

struct IndexedSymbol {
  std::string fqn{};
  std::string name{};
  std::string kind{};
  std::string file_path{};
  int start_line = 0;
  int end_line = 0;
  bool member = false;      ///< defined inside another symbol (a method, a nested class), not at its module's top
  std::string language{};   ///< of its file, as ctags names it
  std::string signature{};  ///< C and C++ types': a class's head with its bases, what a typedef names
};

class SymbolTable {
 public:
  /// add: a symbol. Several may share an fqn (overloads, a declaration and
  /// its definition): `find` and `named` give the first, `in_file` each.
  void add(IndexedSymbol symbol);

  /// mark_scoped_members: in languages of "::" scopes, the symbols whose
  /// scope is a class, struct or union made members; the constants of an
  /// enum that is not `enum class` found by `find` in the enum's scope too
  /// ("ns::red" as well as "ns::Color::red"), as the language sees them.
  void mark_scoped_members();

  [[nodiscard]] const IndexedSymbol* find(std::string_view fqn) const;
  /// with_fqn: every symbol of the fqn `fqn`, the first one first.
  [[nodiscard]] std::span<const std::size_t> with_fqn(std::string_view fqn) const;
  /// named: the symbols whose own name is `name`.
  [[nodiscard]] std::span<const std::size_t> named(std::string_view name) const;
  /// in_file: the symbols of the file at `path`.
  [[nodiscard]] std::span<const std::size_t> in_file(std::string_view path) const;
  [[nodiscard]] const IndexedSymbol& operator[](std::size_t i) const { return symbols_[i]; }
  [[nodiscard]] std::size_t size() const noexcept { return symbols_.size(); }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
  };
  template <class V>
  using Map = std::unordered_map<std::string, V, Hash, std::equal_to<>>;

  std::vector<IndexedSymbol> symbols_{};
  Map<std::vector<std::size_t>> by_fqn_;
  Map<std::vector<std::size_t>> by_name_;
  Map<std::vector<std::size_t>> by_file_;
};

}  // namespace kestrune::indexer
