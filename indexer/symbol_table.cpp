#include "symbol_table.hpp"

namespace kestrune::indexer {

namespace {

template <class Map>
std::span<const std::size_t> lookup(const Map& map, std::string_view key) {
  const auto it = map.find(key);
  if (it == map.end()) return {};
  return it->second;
}

}  // namespace

void SymbolTable::add(IndexedSymbol symbol) {
  const std::size_t i = symbols_.size();
  std::vector<std::size_t>& same = by_fqn_[symbol.fqn];
  if (same.empty()) by_name_[symbol.name].push_back(i);
  same.push_back(i);
  by_file_[symbol.file_path].push_back(i);
  symbols_.push_back(std::move(symbol));
}

void SymbolTable::mark_scoped_members() {
  for (std::size_t i = 0; i < symbols_.size(); ++i) {
    IndexedSymbol& symbol = symbols_[i];
    const std::size_t cut = symbol.fqn.rfind("::");
    if (cut == std::string::npos) continue;
    const std::string_view scope = std::string_view(symbol.fqn).substr(0, cut);
    const IndexedSymbol* parent = find(scope);
    symbol.member =
        parent != nullptr && (parent->kind == "class" || parent->kind == "struct" || parent->kind == "union");
    if (parent == nullptr || symbol.kind != "enumerator" || parent->kind != "enum" ||
        parent->signature.find("enum class") != std::string::npos ||
        parent->signature.find("enum struct") != std::string::npos)
      continue;
    const std::size_t outer = scope.rfind("::");
    const std::string alias =
        outer == std::string_view::npos ? symbol.name : std::string(scope.substr(0, outer)) + "::" + symbol.name;
    by_fqn_.emplace(alias, std::vector<std::size_t>{i});
  }
}

const IndexedSymbol* SymbolTable::find(std::string_view fqn) const {
  const auto it = by_fqn_.find(fqn);
  return it == by_fqn_.end() ? nullptr : &symbols_[it->second.front()];
}

std::span<const std::size_t> SymbolTable::with_fqn(std::string_view fqn) const { return lookup(by_fqn_, fqn); }

std::span<const std::size_t> SymbolTable::named(std::string_view name) const { return lookup(by_name_, name); }

std::span<const std::size_t> SymbolTable::in_file(std::string_view path) const { return lookup(by_file_, path); }

}  // namespace kestrune::indexer
