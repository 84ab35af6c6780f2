// The tokens of a source file, enough to find names in code: identifiers,
// string literals and single punctuation characters, with their lines;
// comments are left out.
#pragma once

#include <string_view>
#include <vector>

namespace kestrune::indexer {

/// How a language writes comments and strings.
enum class Syntax {
  python,  ///< "#" comments; strings with prefixes and triple quotes
  c_like,  ///< "//" and "/* */" comments
  hash,    ///< "#" comments (shell, Ruby, Perl, YAML...)
  plain,   ///< no comments known
};

/// syntax_of: the syntax of a ctags language name; plain when unknown.
[[nodiscard]] Syntax syntax_of(std::string_view language) noexcept;

struct Token {
  enum class Kind { identifier, string, punct };
  Kind kind = Kind::punct;
  std::string_view text;  ///< a view of the source: the whole literal for a string, prefix and quotes included
  int line = 0;           ///< where it starts, from 1
};

/// tokenize: the tokens of `source`, which must outlive them. Any bytes are
/// accepted; an unterminated string or comment runs to the end.
[[nodiscard]] std::vector<Token> tokenize(std::string_view source, Syntax syntax);

/// python_string_body: the text between the quotes of a Python string
/// literal token, as the source holds it; nullopt-like empty view with
/// `is_docstring` false for bytes and f-strings, which are no docstrings.
[[nodiscard]] std::string_view python_string_body(std::string_view literal, bool& is_docstring) noexcept;

}  // namespace kestrune::indexer
