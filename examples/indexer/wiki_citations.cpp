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
  const IndexedSymbol* found = nullptr;
  for (const std::size_t i : symbols.named(name)) {
    const IndexedSymbol& s = symbols[i];
    const bool names_it = s.fqn == span || (s.fqn.size() > span.size() && s.fqn.ends_with(span) &&
                                            s.fqn[s.fqn.size() - span.size() - 1] == '.');
    if (!names_it) continue;
    if (s.fqn == span) return &s;
    if (found != nullptr) return nullptr;  // more than one: the text does not say which
    found = &s;
  }
  return found;
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
