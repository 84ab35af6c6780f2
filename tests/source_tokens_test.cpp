// The lexer that finds names in code: each row is a language's syntax, a
// source, and its tokens written as kind:text@line (i identifier, s
// string, p punctuation), comments and numbers left out.
#include "source_tokens.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ix = kestrune::indexer;

namespace {

std::string shown(const std::vector<ix::Token>& tokens) {
  std::string out;
  for (const ix::Token& t : tokens) {
    if (!out.empty()) out += ' ';
    out += t.kind == ix::Token::Kind::identifier ? "i:" : t.kind == ix::Token::Kind::string ? "s:" : "p:";
    out.append(t.text).append("@").append(std::to_string(t.line));
  }
  return out;
}

struct Row {
  const char* what;
  ix::Syntax syntax;
  const char* source;
  const char* tokens;
};

const Row kRows[] = {
    {"Python comment and call", ix::Syntax::python, "f(x)  # g(y)\nh", "i:f@1 p:(@1 i:x@1 p:)@1 i:h@2"},
    {"Python triple quotes span lines and hold quotes and #", ix::Syntax::python, "a = '''x ' # y\nz'''\nb",
     "i:a@1 p:=@1 s:'''x ' # y\nz'''@1 i:b@3"},
    {"Python prefixes are part of the string; a longer word is a name", ix::Syntax::python, "rb'x' F\"y\" bar'z'",
     "s:rb'x'@1 s:F\"y\"@1 i:bar@1 s:'z'@1"},
    {"an escaped quote and an escaped newline stay in the string", ix::Syntax::python, "s = 'a\\'b' + \"c\\\nd\"\ne",
     "i:s@1 p:=@1 s:'a\\'b'@1 p:+@1 s:\"c\\\nd\"@1 i:e@3"},
    {"a one-line string ends at its line's end", ix::Syntax::c_like, "x = 'a\ny", "i:x@1 p:=@1 s:'a@1 i:y@2"},
    {"C comments, both kinds, and lines after a block", ix::Syntax::c_like, "a /* b\nc */ d // e\nf",
     "i:a@1 i:d@2 i:f@3"},
    {"numbers are no names; a name may hold digits", ix::Syntax::c_like, "x1 = 0x1f + 2.5e3;",
     "i:x1@1 p:=@1 p:+@1 p:;@1"},
    {"backquotes span lines outside Python", ix::Syntax::c_like, "`a\nb` c", "s:`a\nb`@1 i:c@2"},
    {"a backquote is punctuation in Python", ix::Syntax::python, "`a`", "p:`@1 i:a@1 p:`@1"},
    {"hash comments; // is no comment there", ix::Syntax::hash, "a # b\n// c", "i:a@1 p:/@2 p:/@2 i:c@2"},
    {"no comments known", ix::Syntax::plain, "a # b", "i:a@1 p:#@1 i:b@1"},
    {"an unterminated block comment runs to the end", ix::Syntax::c_like, "a /* b\nc", "i:a@1"},
    {"non-ASCII bytes are name characters", ix::Syntax::python, "caf\xc3\xa9 = 1", "i:caf\xc3\xa9@1 p:=@1"},
};

TEST(SourceTokens, Rows) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(shown(ix::tokenize(row.source, row.syntax)), row.tokens);
  }
}

TEST(SourceTokens, SyntaxOfLanguages) {
  EXPECT_EQ(ix::syntax_of("Python"), ix::Syntax::python);
  EXPECT_EQ(ix::syntax_of("TypeScript"), ix::Syntax::c_like);
  EXPECT_EQ(ix::syntax_of("Ruby"), ix::Syntax::hash);
  EXPECT_EQ(ix::syntax_of("Markdown"), ix::Syntax::plain);
}

TEST(SourceTokens, PythonStringBodies) {
  struct Body {
    const char* literal;
    const char* body;
    bool docstring;
  };
  const Body bodies[] = {
      {"'''Doc.'''", "Doc.", true}, {"r\"x\\n\"", "x\\n", true}, {"b'raw'", "raw", false},
      {"f\"{x}\"", "{x}", false},   {"'open", "open", true},     {"rb", "", false},
  };
  for (const Body& b : bodies) {
    SCOPED_TRACE(b.literal);
    bool docstring = !b.docstring;
    EXPECT_EQ(ix::python_string_body(b.literal, docstring), b.body);
    EXPECT_EQ(docstring, b.docstring);
  }
}

}  // namespace
