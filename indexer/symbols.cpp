#include "symbols.hpp"

#include <algorithm>
#include <cctype>

#include "source_tokens.hpp"
#include "utf8.hpp"

namespace kestrune::indexer {

namespace {

// Languages of prose, whose headings are no symbols: the wiki reads Markdown.
bool is_prose(std::string_view language) {
  return language == "Markdown" || language == "ReStructuredText" || language == "Asciidoc" || language == "RMarkdown";
}

// ctags's Python kinds that name an imported thing rather than define one.
bool is_python_import(std::string_view kind) { return kind == "namespace" || kind == "unknown" || kind == "module"; }

std::string join(std::string_view a, std::string_view b) {
  if (a.empty()) return std::string(b);
  if (b.empty()) return std::string(a);
  std::string out(a);
  out += '.';
  out += b;
  return out;
}

// Python's convention: a name with a leading underscore, or one inside such
// a name, is private.
bool python_public(std::string_view scope, std::string_view name) {
  if (name.starts_with('_')) return false;
  for (std::size_t start = 0; start < scope.size();) {
    if (scope[start] == '_') return false;
    const std::size_t dot = scope.find('.', start);
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  return true;
}

std::optional<bool> export_flag(const Tag& tag, std::string_view scope) {
  if (tag.language == "Python") return python_public(scope, tag.name);
  if (tag.file_scope) return false;
  if (tag.language == "Go") return !tag.name.empty() && std::isupper(static_cast<unsigned char>(tag.name[0])) != 0;
  if (tag.access == "public") return true;
  if (tag.access == "private" || tag.access == "protected") return false;
  return std::nullopt;
}

// Languages whose names are scoped with "::", and written so in their fqns.
bool colon_scoped(std::string_view language) { return language == "C" || language == "C++" || language == "CUDA"; }

// The definition's line as the source writes it, from ctags's pattern
// ("/^func (c *Command) Execute() error {$/"): the header in the language's
// own form, without the body that may start on the same line.
std::optional<std::string> header_of(const Tag& tag) {
  std::string_view line = tag.pattern;
  if (!line.starts_with("/^")) return std::nullopt;
  line.remove_prefix(2);
  if (line.ends_with("$/")) {
    line.remove_suffix(2);
  } else if (line.ends_with('/')) {
    line.remove_suffix(1);
  }
  const std::size_t name = line.find(tag.name);
  if (name == std::string_view::npos) return std::nullopt;
  // The body starts at the first "{" after the name outside brackets.
  int depth = 0;
  std::size_t end = line.size();
  for (std::size_t i = name; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '(' || c == '[' || c == '<') ++depth;
    if (c == ')' || c == ']' || c == '>') --depth;
    if ((c == '{' || c == ';') && depth <= 0) {
      end = i;
      break;
    }
  }
  std::string header;
  bool space = false;
  for (const char c : line.substr(0, end)) {
    const bool blank = c == ' ' || c == '\t';
    if (blank) {
      space = !header.empty();
      continue;
    }
    if (space) header += ' ';
    space = false;
    header += c;
  }
  // ctags escapes "/" and "\\" in its patterns.
  std::string unescaped;
  for (std::size_t i = 0; i < header.size(); ++i) {
    if (header[i] == '\\' && i + 1 < header.size() && (header[i + 1] == '/' || header[i + 1] == '\\')) ++i;
    unescaped += header[i];
  }
  if (unescaped.empty()) return std::nullopt;
  return valid_utf8(unescaped);
}

// The signature of a C or C++ type as the source writes it: the head of a
// class, struct, union or enum ("class D : public B", its bases from ctags
// when they are on later lines), a typedef's declaration ("using value_t =
// detail::value_t", "typedef int size_type"). References read the bases and
// what a typedef names from it.
std::optional<std::string> type_signature(const Tag& tag, std::string_view kind) {
  std::optional<std::string> header = header_of(tag);
  if (kind == "typedef") {
    if (header && (header->starts_with("using ") || header->starts_with("typedef "))) return header;
    if (tag.type.empty()) return std::nullopt;
    return "typedef " + tag.type + " " + tag.name;
  }
  const bool record = kind == "class" || kind == "struct" || kind == "union";
  if (!record && kind != "enum") return std::nullopt;
  if (!record || tag.inherits.empty()) return header;
  if (!header) return std::string(kind) + " " + tag.name + " : " + tag.inherits;
  // A base list on the header's line starts with a ":" that is not "::".
  for (std::size_t i = header->find(tag.name); i < header->size(); ++i) {
    if ((*header)[i] != ':') continue;
    if (i + 1 < header->size() && (*header)[i + 1] == ':') {
      ++i;
      continue;
    }
    return header;
  }
  return *header + " : " + tag.inherits;
}

std::optional<std::string> signature_of(const Tag& tag, std::string_view kind) {
  if (colon_scoped(tag.language)) {
    if (std::optional<std::string> type = type_signature(tag, kind)) return type;
  }
  if (tag.language == "Python") {
    if (kind == "class") return "class " + tag.name + (tag.inherits.empty() ? "" : "(" + tag.inherits + ")");
    if (tag.signature.empty()) return std::nullopt;
    const bool is_async = tag.pattern.find("async def ") != std::string::npos;
    return std::string(is_async ? "async def " : "def ") + tag.name + tag.signature +
           (tag.type.empty() ? "" : " -> " + tag.type);
  }
  if (tag.signature.empty()) return std::nullopt;
  if (std::optional<std::string> header = header_of(tag); header && header->find('(') != std::string::npos)
    return header;
  return (tag.type.empty() ? "" : tag.type + " ") + tag.name + tag.signature;
}

// The comment block right above a definition, as languages with comment
// docs write it: "///" or "//" lines, or a "/** ... */" block (C, C++, Go,
// Java, JavaScript, TypeScript, Rust, C#, Kotlin, Swift). Lines of the
// definition's preamble between the two (a template header, annotations,
// attributes) are passed over; a blank line ends the block.
class CommentDocs {
 public:
  CommentDocs(std::string_view source, std::string_view language)
      : rust_(language == "Rust"), c_family_(colon_scoped(language)) {
    for (std::size_t start = 0; start <= source.size();) {
      const std::size_t end = source.find('\n', start);
      lines_.push_back(source.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
      if (end == std::string_view::npos) break;
      start = end + 1;
    }
  }

  [[nodiscard]] static bool has_comment_docs(std::string_view language) {
    return language == "C" || language == "C++" || language == "CUDA" || language == "Go" || language == "Java" ||
           language == "JavaScript" || language == "TypeScript" || language == "Rust" || language == "C#" ||
           language == "Kotlin" || language == "Swift" || language == "ObjectiveC" || language == "Scala";
  }

  // at: the doc of the definition on `line` (1-based).
  [[nodiscard]] std::optional<std::string> at(int line) const {
    const bool on_line = c_family_ && line >= 1 && static_cast<std::size_t>(line) <= lines_.size();
    const std::string_view text = on_line ? lines_[static_cast<std::size_t>(line) - 1] : std::string_view();
    if (on_line) {
      if (std::optional<std::string> after = trailing(text)) return after;
    }
    std::optional<std::string> doc = above(line);
    if (!doc && on_line) doc = trailing_plain(text);
    return doc;
  }

 private:
  // The comment block over the definition on `line`, its preamble between.
  // In C and C++ one blank line may come between, as clang allows, unless
  // the block opens the file (a licence).
  [[nodiscard]] std::optional<std::string> above(int line) const {
    std::ptrdiff_t i = above_preamble(static_cast<std::ptrdiff_t>(line) - 2);
    if (i < 0) return std::nullopt;
    if (c_family_ && i >= 1 && trimmed(i).empty()) {
      const std::string_view before = trimmed(i - 1);
      if (before.ends_with("*/") || line_comment(before)) {
        std::ptrdiff_t open = i - 1;
        if (before.ends_with("*/")) {
          while (open >= 0 && trimmed(open).find("/*") == std::string_view::npos) --open;
        } else {
          while (open > 0 && line_comment(trimmed(open - 1))) --open;
        }
        if (open > 0) i -= 1;
      }
    }
    std::vector<std::string_view> body;
    std::string_view last = trimmed(i);
    if (last.ends_with("*/")) {
      // A block: up to its opening "/*"; "/**" marks a doc in every
      // language, any block in C and C++ (as `//` lines do).
      std::ptrdiff_t open = i;
      while (open >= 0 && trimmed(open).find("/*") == std::string_view::npos) --open;
      if (open < 0 || !(trimmed(open).starts_with("/**") || (c_family_ && trimmed(open).starts_with("/*"))) ||
          (rust_ && trimmed(open).starts_with("/**/")))
        return std::nullopt;
      for (std::ptrdiff_t k = open; k <= i; ++k) body.push_back(block_line(trimmed(k)));
    } else {
      std::ptrdiff_t k = i;
      while (k >= 0 && line_comment(trimmed(k))) --k;
      for (std::ptrdiff_t j = k + 1; j <= i; ++j) body.push_back(strip_slashes(trimmed(j)));
    }
    std::optional<std::string> doc = joined(body);
    // Doxygen's @brief (or \brief) only marks the summary, which the doc's
    // first sentence already is.
    if (c_family_ && doc && (doc->starts_with("@brief ") || doc->starts_with("\\brief "))) doc->erase(0, 7);
    return doc;
  }

  [[nodiscard]] std::string_view trimmed(std::ptrdiff_t i) const {
    std::string_view l = lines_[static_cast<std::size_t>(i)];
    while (!l.empty() && (l.front() == ' ' || l.front() == '\t')) l.remove_prefix(1);
    while (!l.empty() && (l.back() == ' ' || l.back() == '\t' || l.back() == '\r')) l.remove_suffix(1);
    return l;
  }

  static bool preamble(std::string_view l) {
    return l.starts_with("template") || l.starts_with('@') || l.starts_with("#[") || l.starts_with("[[");
  }

  // The line above a definition's preamble, from `i` up. In C and C++ the
  // preamble also holds lines of a macro alone (`GTEST_API_`,
  // `JSON_HEDLEY_NON_NULL(2)`) and template headers over several lines.
  [[nodiscard]] std::ptrdiff_t above_preamble(std::ptrdiff_t i) const {
    while (i >= 0) {
      const std::string_view l = trimmed(i);
      if (preamble(l) || (c_family_ && macro_alone(l))) {
        --i;
        continue;
      }
      if (!c_family_) break;
      std::ptrdiff_t k = i;
      for (; k >= 0 && i - k < 8; --k) {
        const std::string_view t = trimmed(k);
        if (t.starts_with("template") || t.empty() || t.starts_with("//") || t.starts_with("/*") || t.ends_with("*/") ||
            t.find_first_of(";{}") != std::string_view::npos)
          break;
      }
      if (k < 0 || k == i || !trimmed(k).starts_with("template")) break;
      i = k - 1;
    }
    return i;
  }

  static bool macro_alone(std::string_view l) {
    const std::size_t open = l.find('(');
    const std::string_view name = l.substr(0, open);
    if (name.size() < 2 || name.front() < 'A' || name.front() > 'Z') return false;
    if (open != std::string_view::npos && !l.ends_with(')')) return false;
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'; });
  }

  // A C or C++ doc after the definition on its line: `int x;  ///< doc`.
  static std::optional<std::string> trailing(std::string_view line) {
    for (const std::string_view mark : {"///<", "//!<", "/**<", "/*!<"}) {
      const std::size_t at = line.find(mark);
      if (at == std::string_view::npos) continue;
      std::string_view text = line.substr(at + mark.size());
      if (mark.starts_with("/*")) text = text.substr(0, text.find("*/"));
      while (text.starts_with(' ') || text.starts_with('\t')) text.remove_prefix(1);
      return joined({text});
    }
    return std::nullopt;
  }

  // A plain `//` comment after a declaration that ends on its line
  // (`std::string name_;  // Test name`), taken when none is above it.
  static std::optional<std::string> trailing_plain(std::string_view line) {
    for (std::size_t at = line.find("//"); at != std::string_view::npos; at = line.find("//", at + 2)) {
      std::string_view code = line.substr(0, at);
      while (!code.empty() && (code.back() == ' ' || code.back() == '\t')) code.remove_suffix(1);
      if (!code.ends_with(';') && !code.ends_with(',')) continue;
      std::string_view text = line.substr(at + 2);
      while (text.starts_with('/') || text.starts_with(' ') || text.starts_with('\t')) text.remove_prefix(1);
      while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
      return text.empty() ? std::nullopt : joined({text});
    }
    return std::nullopt;
  }

  [[nodiscard]] bool line_comment(std::string_view l) const {
    if (rust_) return l.starts_with("///") && !l.starts_with("////");
    return l.starts_with("//");
  }

  static std::string_view strip_slashes(std::string_view l) {
    while (l.starts_with('/')) l.remove_prefix(1);
    if (l.starts_with('!') || l.starts_with('<')) l.remove_prefix(1);
    if (l.starts_with(' ')) l.remove_prefix(1);
    return l;
  }

  static std::string_view block_line(std::string_view l) {
    if (l.starts_with("/**") || l.starts_with("/*!")) {
      l.remove_prefix(3);
    } else if (l.starts_with("/*")) {
      l.remove_prefix(2);
    }
    if (l.ends_with("*/")) l.remove_suffix(2);
    while (!l.empty() && l.back() == '*') l.remove_suffix(1);
    if (l.starts_with('*')) l.remove_prefix(1);
    if (l.starts_with(' ')) l.remove_prefix(1);
    while (!l.empty() && l.back() == ' ') l.remove_suffix(1);
    return l;
  }

  static std::optional<std::string> joined(const std::vector<std::string_view>& body) {
    std::string text;
    for (const std::string_view l : body) {
      if (!text.empty() || !l.empty()) text.append(l).push_back('\n');
    }
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    if (text.empty()) return std::nullopt;
    return valid_utf8(text);
  }

  bool rust_;
  bool c_family_;
  std::vector<std::string_view> lines_;
};

// Whether an argument of a C or C++ call declares a parameter: a type and a
// name (`int x`, `const Foo& f`), a pointer or a reference.
bool declares_parameter(std::string_view argument) {
  int words = 0;
  int depth = 0;
  bool in_word = false;
  for (const char c : argument) {
    if (c == '(' || c == '<' || c == '[') ++depth;
    if (c == ')' || c == '>' || c == ']') --depth;
    if (depth > 0) continue;
    if (c == '*' || c == '&') return true;
    const bool word = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == ':';
    words += word && !in_word ? 1 : 0;
    in_word = word;
  }
  return words > 1;
}

// Whether a C or C++ "function" that ctags reports is a macro's use at the
// top of a file, as `TEST(Suite, Name) { ... }` is: a name in capitals and
// arguments none of which declares a parameter (a lone word is none: a
// function of unnamed parameters in capitals is rarer than `TEST(A, int)`).
bool is_macro_call(const Tag& tag) {
  if (tag.kind != "function" && tag.kind != "prototype") return false;
  const bool capitals =
      std::all_of(tag.name.begin(), tag.name.end(),
                  [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'; }) &&
      tag.name.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::string::npos;
  std::string_view arguments = tag.signature;
  if (!capitals || !arguments.starts_with('(') || !arguments.ends_with(')') || arguments.size() <= 2) return false;
  arguments = arguments.substr(1, arguments.size() - 2);
  int depth = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= arguments.size(); ++i) {
    const char c = i < arguments.size() ? arguments[i] : ',';
    if (c == '(' || c == '<' || c == '[') ++depth;
    if (c == ')' || c == '>' || c == ']') --depth;
    if (c != ',' || depth > 0) continue;
    if (declares_parameter(arguments.substr(start, i - start))) return false;
    start = i + 1;
  }
  return true;
}

// The fqn of a tag: the module path and the scope, dotted; for languages of
// "::" scopes, the scope as the language writes it ("fmt::detail::write").
std::string fqn_of(std::string_view module, const Tag& tag) {
  if (colon_scoped(tag.language)) return tag.scope.empty() ? tag.name : tag.scope + "::" + tag.name;
  return join(module, join(dotted_name(tag.scope), tag.name));
}

// The docstrings of a Python file: the string literal that opens the body
// of the definition on a line, found from its tokens.
class PythonDocstrings {
 public:
  explicit PythonDocstrings(std::string_view source) : tokens_(tokenize(source, Syntax::python)) {}

  // module: the string that opens the file.
  [[nodiscard]] std::optional<std::string> module() const { return literal_at(0); }

  // at: the docstring of the def or class that starts on `line`.
  [[nodiscard]] std::optional<std::string> at(int line) const {
    std::size_t i = first_on_line(line);
    while (i < tokens_.size() && tokens_[i].line == line && tokens_[i].text != "def" && tokens_[i].text != "class") ++i;
    if (i >= tokens_.size() || tokens_[i].line != line) return std::nullopt;
    // The header ends at the first ":" outside brackets.
    int depth = 0;
    for (++i; i < tokens_.size(); ++i) {
      const std::string_view t = tokens_[i].text;
      if (tokens_[i].kind != Token::Kind::punct) continue;
      if (t == "(" || t == "[" || t == "{") {
        ++depth;
      } else if (t == ")" || t == "]" || t == "}") {
        --depth;
      } else if (t == ":" && depth <= 0) {
        return literal_at(i + 1);
      }
    }
    return std::nullopt;
  }

 private:
  [[nodiscard]] std::optional<std::string> literal_at(std::size_t i) const {
    if (i >= tokens_.size() || tokens_[i].kind != Token::Kind::string) return std::nullopt;
    bool is_docstring = false;
    const std::string_view body = python_string_body(tokens_[i].text, is_docstring);
    if (!is_docstring) return std::nullopt;
    return valid_utf8(body);
  }

  [[nodiscard]] std::size_t first_on_line(int line) const {
    std::size_t lo = 0;
    std::size_t hi = tokens_.size();
    while (lo < hi) {
      const std::size_t mid = (lo + hi) / 2;
      if (tokens_[mid].line < line) {
        lo = mid + 1;
      } else {
        hi = mid;
      }
    }
    return lo;
  }

  std::vector<Token> tokens_;
};

}  // namespace

std::string dotted_name(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name.substr(i, 2) == "::") {
      out += '.';
      ++i;
    } else {
      out += name[i] == '/' ? '.' : name[i];
    }
  }
  return out;
}

std::string module_path(std::string_view file_path) {
  std::string_view stem = file_path;
  const std::size_t slash = stem.rfind('/');
  const std::size_t dot = stem.rfind('.');
  if (dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash + 1)) stem = stem.substr(0, dot);
  std::string module(stem);
  for (char& c : module) {
    if (c == '/') c = '.';
  }
  if (module == "__init__") return {};
  if (module.ends_with(".__init__")) module.resize(module.size() - 9);
  return module;
}

std::vector<SymbolRecord> file_symbols(std::string_view path, const std::vector<Tag>& tags, std::string_view source,
                                       int line_count) {
  const std::string module = module_path(path);
  const bool python = !tags.empty() && tags.front().language == "Python";
  std::optional<PythonDocstrings> docstrings;
  if (python) docstrings.emplace(source);
  std::optional<CommentDocs> comments;
  if (!tags.empty() && CommentDocs::has_comment_docs(tags.front().language))
    comments.emplace(source, tags.front().language);
  std::vector<SymbolRecord> symbols;
  if (python && !module.empty()) {
    const std::size_t dot = module.rfind('.');
    std::string name = dot == std::string::npos ? module : module.substr(dot + 1);
    const bool exported = !name.starts_with('_');
    symbols.push_back({.fqn = module,
                       .name = std::move(name),
                       .kind = "module",
                       .file_path = std::string(path),
                       .start_line = 1,
                       .end_line = std::max(line_count, 1),
                       .docstring = docstrings->module(),
                       .is_export = exported});
  }
  for (const Tag& tag : tags) {
    if (tag.kind == "file" || tag.name.empty() || is_prose(tag.language)) continue;
    if (tag.language == "Python" && is_python_import(tag.kind)) continue;
    if (colon_scoped(tag.language) && is_macro_call(tag)) continue;
    const std::string kind = tag.language == "Python" && tag.kind == "member" ? "method" : tag.kind;
    const std::string scope = dotted_name(tag.scope);
    const bool definition = kind == "class" || kind == "function" || kind == "method";
    std::optional<std::string> doc;
    if (python && definition) {
      doc = docstrings->at(tag.line);
    } else if (comments) {
      doc = comments->at(tag.line);
    }
    symbols.push_back({.fqn = fqn_of(module, tag),
                       .name = tag.name,
                       .kind = kind,
                       .file_path = std::string(path),
                       .start_line = tag.line,
                       .end_line = tag.end > 0 ? tag.end : tag.line,
                       .signature = signature_of(tag, kind),
                       .docstring = std::move(doc),
                       .is_export = export_flag(tag, scope)});
  }
  return symbols;
}

}  // namespace kestrune::indexer
