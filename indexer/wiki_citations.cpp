#include "wiki_citations.hpp"

#include <algorithm>

#include "markdown_pages.hpp"
#include "symbols.hpp"

namespace kestrune::indexer {

namespace {

const IndexedSymbol* symbol_named_by(std::string_view text, const SymbolTable& symbols) {
  const std::string span = dotted_name(text);
  const std::size_t dot = span.rfind('.');
  const std::string_view name = std::string_view(span).substr(dot == std::string::npos ? 0 : dot + 1);
  std::vector<const IndexedSymbol*> named_by;
  for (const std::size_t i : symbols.named(name)) {
    const IndexedSymbol& s = symbols[i];
    if (s.fqn == span) return &s;
    if (s.fqn.size() > span.size() && s.fqn.ends_with(span) && s.fqn[s.fqn.size() - span.size() - 1] == '.')
      named_by.push_back(&s);
  }
  if (named_by.size() == 1) return named_by.front();
  // `checkout` for a module shop.checkout and its function: the function.
  const auto not_module = [](const IndexedSymbol* s) { return s->kind != "module"; };
  if (std::count_if(named_by.begin(), named_by.end(), not_module) == 1)
    return *std::find_if(named_by.begin(), named_by.end(), not_module);
  return nullptr;  // the text does not say which
}

}  // namespace

std::vector<Citation> section_citations(std::string_view body, const SymbolTable& symbols,
                                        const std::function<bool(std::string_view)>& is_file) {
  std::vector<Citation> citations;
  const auto cite = [&](Citation c) {
    const bool seen = std::any_of(citations.begin(), citations.end(), [&](const Citation& o) {
      return o.path == c.path && o.line_start == c.line_start && o.line_end == c.line_end;
    });
    if (!seen) citations.push_back(std::move(c));
  };
  for (std::string_view span : code_spans(body)) {
    if (span.ends_with("()")) span.remove_suffix(2);
    if (span.empty() || span.find_first_of(" \t\n") != std::string_view::npos) continue;
    if (is_file(span)) {
      cite({std::string(span), std::nullopt, std::nullopt});
    } else if (const IndexedSymbol* s = symbol_named_by(span, symbols)) {
      cite({s->file_path, s->start_line, s->end_line});
    }
  }
  return citations;
}

}  // namespace kestrune::indexer
