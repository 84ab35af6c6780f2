#include "source_tokens.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace kestrune::indexer {

namespace {

bool is_name_start(char c) noexcept {
  const auto u = static_cast<unsigned char>(c);
  return std::isalpha(u) != 0 || c == '_' || u >= 0x80;
}

bool is_name_char(char c) noexcept { return is_name_start(c) || std::isdigit(static_cast<unsigned char>(c)) != 0; }

// Whether an identifier directly before a quote is a Python string prefix.
bool is_string_prefix(std::string_view word) noexcept {
  if (word.empty() || word.size() > 2) return false;
  for (const char c : word) {
    switch (std::tolower(static_cast<unsigned char>(c))) {
      case 'r':
      case 'u':
      case 'b':
      case 'f':
        break;
      default:
        return false;
    }
  }
  return true;
}

class Lexer {
 public:
  Lexer(std::string_view source, Syntax syntax) : s_(source), syntax_(syntax) {}

  std::vector<Token> run() {
    std::vector<Token> tokens;
    while (i_ < s_.size()) {
      const char c = s_[i_];
      if (c == '\n') {
        ++line_;
        ++i_;
      } else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
        ++i_;
      } else if (starts_line_comment()) {
        while (i_ < s_.size() && s_[i_] != '\n') ++i_;
      } else if (syntax_ == Syntax::c_like && s_.substr(i_, 2) == "/*") {
        skip_block_comment();
      } else if (c == '"' || c == '\'' || (c == '`' && syntax_ != Syntax::python)) {
        tokens.push_back(string_token(i_, line_));
      } else if (is_name_start(c)) {
        const std::size_t start = i_;
        while (i_ < s_.size() && is_name_char(s_[i_])) ++i_;
        const std::string_view word = s_.substr(start, i_ - start);
        if (syntax_ == Syntax::python && i_ < s_.size() && (s_[i_] == '"' || s_[i_] == '\'') &&
            is_string_prefix(word)) {
          tokens.push_back(string_token(start, line_));
        } else {
          tokens.push_back({Token::Kind::identifier, word, line_});
        }
      } else if (std::isdigit(static_cast<unsigned char>(c)) != 0) {
        while (i_ < s_.size() && (is_name_char(s_[i_]) || s_[i_] == '.')) ++i_;
      } else {
        tokens.push_back({Token::Kind::punct, s_.substr(i_, 1), line_});
        ++i_;
      }
    }
    return tokens;
  }

 private:
  bool starts_line_comment() const {
    switch (syntax_) {
      case Syntax::python:
      case Syntax::hash:
        return s_[i_] == '#';
      case Syntax::c_like:
        return s_.substr(i_, 2) == "//";
      case Syntax::plain:
        return false;
    }
    return false;
  }

  void skip_block_comment() {
    i_ += 2;
    while (i_ < s_.size() && s_.substr(i_, 2) != "*/") {
      if (s_[i_] == '\n') ++line_;
      ++i_;
    }
    i_ = std::min(s_.size(), i_ + 2);
  }

  // The string literal that starts at `start` (its prefix, if any) and
  // whose quote is at i_.
  Token string_token(std::size_t start, int line) {
    const char quote = s_[i_];
    const std::string triple_quote(3, quote);
    const bool triple = syntax_ == Syntax::python && s_.substr(i_, 3) == triple_quote;
    i_ += triple ? 3 : 1;
    while (i_ < s_.size()) {
      const char c = s_[i_];
      if (c == '\\' && i_ + 1 < s_.size()) {
        if (s_[i_ + 1] == '\n') ++line_;
        i_ += 2;
        continue;
      }
      if (c == '\n') {
        // A one-line string ends at its line's end, closed or not (a Rust
        // lifetime, an apostrophe in text); JavaScript's backquotes span lines.
        if (!triple && quote != '`') break;
        ++line_;
      }
      if (c == quote && (!triple || s_.substr(i_, 3) == triple_quote)) {
        i_ += triple ? 3 : 1;
        break;
      }
      ++i_;
    }
    return {Token::Kind::string, s_.substr(start, i_ - start), line};
  }

  std::string_view s_;
  Syntax syntax_;
  std::size_t i_ = 0;
  int line_ = 1;
};

}  // namespace

Syntax syntax_of(std::string_view language) noexcept {
  constexpr std::array<std::string_view, 16> kCLike = {"C",   "C++",        "CUDA",   "C#",    "Java",  "JavaScript",
                                                       "Go",  "Rust",       "Kotlin", "Swift", "Scala", "TypeScript",
                                                       "PHP", "ObjectiveC", "D",      "Dart"};
  constexpr std::array<std::string_view, 9> kHash = {"Sh", "Ruby", "Perl", "Make", "CMake", "Yaml", "Tcl", "R", "Awk"};
  if (language == "Python" || language == "Cython") return Syntax::python;
  for (const std::string_view l : kCLike) {
    if (l == language) return Syntax::c_like;
  }
  for (const std::string_view l : kHash) {
    if (l == language) return Syntax::hash;
  }
  return Syntax::plain;
}

std::vector<Token> tokenize(std::string_view source, Syntax syntax) { return Lexer(source, syntax).run(); }

std::string_view python_string_body(std::string_view literal, bool& is_docstring) noexcept {
  std::size_t prefix = 0;
  is_docstring = true;
  while (prefix < literal.size() && literal[prefix] != '"' && literal[prefix] != '\'') {
    const int c = std::tolower(static_cast<unsigned char>(literal[prefix]));
    if (c == 'b' || c == 'f') is_docstring = false;
    ++prefix;
  }
  if (prefix >= literal.size()) {
    is_docstring = false;
    return {};
  }
  const char quote = literal[prefix];
  const std::size_t quotes = literal.substr(prefix, 3) == std::string(3, quote) ? 3 : 1;
  std::string_view body = literal.substr(prefix + quotes);
  const std::string closing(quotes, quote);
  if (body.size() >= quotes && body.substr(body.size() - quotes) == closing) body.remove_suffix(quotes);
  return body;
}

}  // namespace kestrune::indexer
