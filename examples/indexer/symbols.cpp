#include "symbols.hpp"

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

std::optional<std::string> signature_of(const Tag& tag, std::string_view kind) {
  if (tag.language == "Python") {
    if (kind == "class") return "class " + tag.name + (tag.inherits.empty() ? "" : "(" + tag.inherits + ")");
    if (tag.signature.empty()) return std::nullopt;
    const bool is_async = tag.pattern.find("async def ") != std::string::npos;
    return std::string(is_async ? "async def " : "def ") + tag.name + tag.signature +
           (tag.type.empty() ? "" : " -> " + tag.type);
  }
  if (tag.signature.empty()) return std::nullopt;
  return (tag.type.empty() ? "" : tag.type + " ") + tag.name + tag.signature;
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
    const std::string kind = tag.language == "Python" && tag.kind == "member" ? "method" : tag.kind;
    const std::string scope = dotted_name(tag.scope);
    const bool definition = kind == "class" || kind == "function" || kind == "method";
    symbols.push_back({.fqn = join(module, join(scope, tag.name)),
                       .name = tag.name,
                       .kind = kind,
                       .file_path = std::string(path),
                       .start_line = tag.line,
                       .end_line = tag.end > 0 ? tag.end : tag.line,
                       .signature = signature_of(tag, kind),
                       .docstring = python && definition ? docstrings->at(tag.line) : std::nullopt,
                       .is_export = export_flag(tag, scope)});
  }
  return symbols;
}

}  // namespace kestrune::indexer
