#include "cpp_locals.hpp"

#include <algorithm>
#include <array>

namespace kestrune::indexer {

namespace {

using Kind = Token::Kind;

bool is(const Token& t, std::string_view text) { return t.kind == Kind::punct && t.text == text; }

// Keywords that name or qualify a type: a declaration's type may end in one.
bool is_type_keyword(std::string_view name) noexcept {
  static constexpr std::array<std::string_view, 18> kTypes = {
      "auto", "bool", "char",  "char8_t", "char16_t", "char32_t", "const",    "double",  "float",
      "int",  "long", "short", "signed",  "unsigned", "void",     "volatile", "wchar_t", "decltype"};
  return std::find(kTypes.begin(), kTypes.end(), name) != kTypes.end();
}

bool is_name(const Token& t) {
  return t.kind == Kind::identifier && (!is_cpp_keyword(t.text) || is_type_keyword(t.text));
}

}  // namespace

bool is_cpp_keyword(std::string_view name) noexcept {
  // Every keyword, each between spaces.
  static constexpr std::string_view kKeywords =
      " alignas alignof and asm auto bool break case catch char char8_t char16_t char32_t class co_await co_return "
      "co_yield concept const const_cast consteval constexpr constinit continue decltype default delete do double "
      "dynamic_cast else enum explicit export extern false float for friend goto if inline int long mutable namespace "
      "new noexcept not nullptr operator or private protected public register reinterpret_cast requires return short "
      "signed sizeof static static_assert static_cast struct switch template this thread_local throw true try typedef "
      "typeid typename union unsigned using virtual void volatile wchar_t while ";
  if (name.empty() || name.find(' ') != std::string_view::npos) return false;
  for (std::size_t at = kKeywords.find(name); at != std::string_view::npos; at = kKeywords.find(name, at + 1)) {
    if (kKeywords[at - 1] == ' ' && kKeywords[at + name.size()] == ' ') return true;
  }
  return false;
}

std::size_t template_open(const std::vector<Token>& tokens, std::size_t close) {
  // A type's template arguments hold names, "::", ",", "*", "&" and nested
  // brackets; a comparison ends at the first token of another expression.
  constexpr std::size_t kLongest = 48;
  int depth = 0;
  for (std::size_t k = close; k > 0 && close - k < kLongest; --k) {
    const Token& t = tokens[k];
    if (t.kind != Kind::punct) continue;
    if (t.text == ">") {
      ++depth;
    } else if (t.text == "<") {
      if (--depth == 0) return k;
    } else if (t.text == ";" || t.text == "{" || t.text == "}" || t.text == "|" || t.text == "?" || t.text == "=" ||
               t.text == "!" || (t.text == "&" && is(tokens[k - 1], "&"))) {
      return 0;
    }
  }
  return 0;
}

FunctionLocals::FunctionLocals(const std::vector<Token>& tokens, std::size_t first, std::size_t last,
                               const std::unordered_set<std::size_t>& skip)
    : tokens_(&tokens) {
  // The body opens at the first "{" outside brackets after the parameters.
  std::size_t body = last + 1;
  int depth = 0;
  bool parameters = false;
  for (std::size_t k = first; k <= last; ++k) {
    if (is(tokens[k], "(")) {
      ++depth;
      parameters = true;
    } else if (is(tokens[k], ")")) {
      --depth;
    } else if (is(tokens[k], "{") && depth == 0 && parameters) {
      body = k;
      break;
    }
  }
  for (std::size_t j = first + 1; j < last; ++j) {
    const Token& t = tokens[j];
    if (t.kind != Kind::identifier || is_cpp_keyword(t.text) || skip.contains(j)) continue;
    const Token& next = tokens[j + 1];
    const bool label = is(next, ":") && j + 2 < tokens.size() && !is(tokens[j + 2], ":");
    const bool ends = is(next, "=") || is(next, ";") || is(next, ",") || is(next, ")") || is(next, "(") ||
                      is(next, "{") || is(next, "[") || label;
    if (!ends) continue;
    std::size_t p = j - 1;
    const bool pointer = is(tokens[p], "*") || is(tokens[p], "&");
    while (p > first && (is(tokens[p], "*") || is(tokens[p], "&") || tokens[p].text == "const")) --p;
    // A directive's last word (`#ifndef X` above `MACRO(y);`) is no type.
    if (tokens[p].line != t.line) {
      std::size_t start = p;
      while (start > 0 && tokens[start - 1].line == tokens[p].line) --start;
      if (is(tokens[start], "#")) continue;
    }
    std::size_t type = 0;
    if (is(tokens[p], ">")) {
      // `->` ends no type; `std::vector<int> v` does.
      if (p == 0 || is(tokens[p - 1], "-")) continue;
      const std::size_t open = template_open(tokens, p);
      if (open == 0 || !is_name(tokens[open - 1])) continue;
      type = open - 1;
    } else if (is_name(tokens[p])) {
      // Not a member (`a.b c`), nor a directive's word (`#endif` before `MACRO(x);`).
      if (p > first && (is(tokens[p - 1], ".") || is(tokens[p - 1], "#") ||
                        (p >= 2 && is(tokens[p - 1], ">") && is(tokens[p - 2], "-"))))
        continue;
      type = p;
    } else {
      continue;
    }
    // `a * b)` and `a & b,` are expressions in a body, parameters in a header.
    if (pointer && j > body && !is(next, "=") && !is(next, ";") && !is(next, ":") && !is(next, "{")) continue;
    if (tokens[type].text == "auto" || tokens[type].text == "decltype") type = 0;
    by_name_[t.text].push_back({.name = t.text, .declared = j, .type = type});
    declarations_.insert(j);
  }
}

const LocalName* FunctionLocals::local(std::size_t i) const {
  const auto found = by_name_.find((*tokens_)[i].text);
  if (found == by_name_.end()) return nullptr;
  const LocalName* latest = nullptr;
  for (const LocalName& name : found->second) {
    if (name.declared < i) latest = &name;
  }
  return latest;
}

}  // namespace kestrune::indexer
