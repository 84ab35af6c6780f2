#include "references.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "cpp_names.hpp"
#include "symbols.hpp"

namespace kestrune::indexer {

namespace {

using Kind = Token::Kind;

bool is(const Token& t, std::string_view text) { return t.text == text && t.kind != Kind::string; }

// The parent of a dotted name: "a.b.c" is "a.b"; "a" has none ("").
std::string_view parent_of(std::string_view fqn) {
  const std::size_t dot = fqn.rfind('.');
  return dot == std::string_view::npos ? std::string_view() : fqn.substr(0, dot);
}

// The top-level folder of a path ("" for a file at the root).
std::string_view component_of(std::string_view path) {
  const std::size_t slash = path.find('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

class FileScan {
 public:
  FileScan(std::string_view path, std::string_view source, Syntax syntax, const SymbolTable& symbols,
           const ScanScope& scope)
      : path_(path),
        syntax_(syntax),
        symbols_(symbols),
        scope_(scope),
        tokens_(tokenize(source, syntax)),
        module_(module_path(path)) {
    package_ = path.ends_with("__init__.py") ? module_ : std::string(parent_of(module_));
    map_callers(source);
    if (scope.language == "C" || scope.language == "C++" || scope.language == "CUDA")
      cpp_.emplace(path, source, tokens_, symbols, scope.language, scope.visible, innermost_);
  }

  std::vector<ReferenceRecord> run() {
    for (std::size_t i = 0; i < tokens_.size(); ++i) {
      const Token& t = tokens_[i];
      if (t.kind != Kind::identifier) continue;
      if (syntax_ == Syntax::python && t.text == "from" && from_import(i)) continue;
      if (syntax_ == Syntax::python && t.text == "import" && plain_import(i)) continue;
      use(i);
    }
    return std::move(found_);
  }

 private:
  // innermost_[line]: the innermost symbol of the file around the line,
  // other than its module.
  void map_callers(std::string_view source) {
    const auto lines = static_cast<std::size_t>(std::count(source.begin(), source.end(), '\n') + 2);
    innermost_.assign(lines, nullptr);
    std::vector<const IndexedSymbol*> mine;
    for (const std::size_t i : symbols_.in_file(path_)) {
      if (symbols_[i].kind != "module") mine.push_back(&symbols_[i]);
    }
    // Widest first, so that nested symbols overwrite their parents' lines.
    std::sort(mine.begin(), mine.end(), [](const IndexedSymbol* a, const IndexedSymbol* b) {
      return a->end_line - a->start_line > b->end_line - b->start_line;
    });
    for (const IndexedSymbol* s : mine) {
      const auto last = std::min(static_cast<std::size_t>(std::max(s->end_line, 0)), lines - 1);
      for (auto line = static_cast<std::size_t>(std::max(s->start_line, 1)); line <= last; ++line) innermost_[line] = s;
    }
  }

  const IndexedSymbol* caller_at(int line) const {
    const auto l = static_cast<std::size_t>(line);
    return l < innermost_.size() ? innermost_[l] : nullptr;
  }

  void add(const IndexedSymbol& target, int line, std::string usage) {
    // A definition is no use of itself, nor of a declaration of it elsewhere.
    for (const std::size_t k : symbols_.in_file(path_)) {
      if (symbols_[k].start_line == line && symbols_[k].fqn == target.fqn) return;
    }
    ReferenceRecord r{.symbol_fqn = target.fqn, .line = line, .usage_type = std::move(usage)};
    if (const IndexedSymbol* caller = caller_at(line)) {
      r.caller_fqn = caller->fqn;
      r.caller_kind = caller->kind;
    }
    found_.push_back(std::move(r));
  }

  const Token* at(std::size_t i) const { return i < tokens_.size() ? &tokens_[i] : nullptr; }

  // A dotted name from tokens_[i] on ("a.b.c"); `i` moves past it.
  std::string dotted(std::size_t& i) const {
    std::string name;
    while (at(i) != nullptr && tokens_[i].kind == Kind::identifier) {
      name += tokens_[i].text;
      if (at(i + 1) == nullptr || !is(tokens_[i + 1], ".")) {
        ++i;
        break;
      }
      name += '.';
      i += 2;
    }
    return name;
  }

  // An imported name: a use of its symbol, and what the file calls it.
  void bind(std::string_view target, const Token& name, std::string_view alias) {
    const IndexedSymbol* s = symbols_.find(target);
    if (s == nullptr) return;
    add(*s, name.line, "import");
    bindings_[alias] = s;
  }

  // "from [.]*module import a [as b], ...": true when it is one.
  bool from_import(std::size_t& i) {
    std::size_t j = i + 1;
    std::size_t dots = 0;
    for (; at(j) != nullptr && is(tokens_[j], "."); ++j) ++dots;
    const std::string name = dotted(j);
    if (at(j) == nullptr || !is(tokens_[j], "import") || (dots == 0 && name.empty())) return false;
    std::string module = name;
    if (dots > 0) {
      std::string_view base = package_;
      for (std::size_t up = 1; up < dots; ++up) base = parent_of(base);
      module = name.empty() ? std::string(base) : base.empty() ? name : std::string(base) + "." + name;
    }
    ++j;
    if (at(j) != nullptr && is(tokens_[j], "(")) ++j;
    while (at(j) != nullptr && tokens_[j].kind == Kind::identifier) {
      const Token& imported = tokens_[j];
      std::string_view alias = imported.text;
      if (at(j + 2) != nullptr && is(tokens_[j + 1], "as") && tokens_[j + 2].kind == Kind::identifier) {
        alias = tokens_[j + 2].text;
        j += 2;
      }
      bind(module.empty() ? std::string(imported.text) : module + "." + std::string(imported.text), imported, alias);
      ++j;
      if (at(j) == nullptr || !is(tokens_[j], ",")) break;
      ++j;
    }
    i = j - 1;
    return true;
  }

  // "import a.b [as c], d": true when it is one.
  bool plain_import(std::size_t& i) {
    std::size_t j = i + 1;
    while (at(j) != nullptr && tokens_[j].kind == Kind::identifier) {
      const Token& first = tokens_[j];
      const std::string name = dotted(j);
      if (at(j + 1) != nullptr && is(tokens_[j], "as") && tokens_[j + 1].kind == Kind::identifier) {
        bind(name, first, tokens_[j + 1].text);
        j += 2;
      } else {
        // "import a.b" makes "a" a name in the file; the use is of "a.b".
        if (const IndexedSymbol* s = symbols_.find(name)) add(*s, first.line, "import");
        if (const IndexedSymbol* top = symbols_.find(first.text)) bindings_[first.text] = top;
      }
      if (at(j) == nullptr || !is(tokens_[j], ",")) break;
      ++j;
    }
    i = j - 1;
    return true;
  }

  // The one symbol named `name` in the index, if there is exactly one and
  // `member` says whether it must be a member.
  // A unique name is not enough by itself: the symbol must be of the file's
  // language and in its own top-level folder. Overloads, which share an
  // fqn, count as one.
  const IndexedSymbol* only(std::string_view name, bool member) const {
    const IndexedSymbol* found = nullptr;
    for (const std::size_t k : symbols_.named(name)) {
      const IndexedSymbol& s = symbols_[k];
      if (!near(s) || (member && !s.member)) continue;
      if (found != nullptr && found->fqn != s.fqn) return nullptr;
      if (found == nullptr) found = &s;
    }
    return found;
  }

  bool near(const IndexedSymbol& s) const {
    if (s.language != scope_.language) return false;
    return component_of(s.file_path) == component_of(path_);
  }

  const IndexedSymbol* in_this_file(std::string_view name) const {
    for (const std::size_t k : symbols_.in_file(path_)) {
      if (symbols_[k].name == name) return &symbols_[k];
    }
    return nullptr;
  }

  // The class around `line` whose method the line is in: for `self.name`.
  const IndexedSymbol* enclosing_class(int line) const {
    for (const IndexedSymbol* s = caller_at(line); s != nullptr; s = symbols_.find(parent_of(s->fqn))) {
      if (s->kind == "class") return s;
    }
    return nullptr;
  }

  const IndexedSymbol* member_target(std::size_t i) const {
    const Token& t = tokens_[i];
    const Token* owner = i >= 2 && tokens_[i - 2].kind == Kind::identifier ? &tokens_[i - 2] : nullptr;
    const bool chained = i >= 3 && is(tokens_[i - 3], ".");
    if (owner != nullptr && !chained) {
      if (const auto b = bindings_.find(owner->text); b != bindings_.end()) {
        if (const IndexedSymbol* s = symbols_.find(b->second->fqn + "." + std::string(t.text))) return s;
      }
      if (syntax_ == Syntax::python && (owner->text == "self" || owner->text == "cls")) {
        if (const IndexedSymbol* c = enclosing_class(t.line)) {
          if (const IndexedSymbol* s = symbols_.find(c->fqn + "." + std::string(t.text))) return s;
        }
      }
    }
    return only(t.text, true);
  }

  const IndexedSymbol* name_target(std::size_t i) const {
    const Token& t = tokens_[i];
    if (const auto b = bindings_.find(t.text); b != bindings_.end()) return b->second;
    if (syntax_ == Syntax::python) {
      // Python names come from the file's own module or its imports.
      return module_.empty() ? nullptr : symbols_.find(module_ + "." + std::string(t.text));
    }
    if (const IndexedSymbol* s = in_this_file(t.text)) return s;
    return only(t.text, false);
  }

  void use(std::size_t i) {
    const Token& t = tokens_[i];
    const bool called = at(i + 1) != nullptr && is(tokens_[i + 1], "(");
    if (cpp_) {
      for (const IndexedSymbol* target : cpp_->targets(i)) add(*target, t.line, called ? "call" : "reference");
      return;
    }
    if (symbols_.named(t.text).empty()) return;
    const Token* before = i > 0 ? &tokens_[i - 1] : nullptr;
    if (before != nullptr && (is(*before, "def") || is(*before, "class"))) return;
    const bool scoped = before != nullptr && is(*before, ":") && i >= 2 && is(tokens_[i - 2], ":");
    const bool member =
        before != nullptr && (is(*before, ".") || (is(*before, ">") && i >= 2 && is(tokens_[i - 2], "-")) || scoped);
    const IndexedSymbol* target = member ? member_target(i) : name_target(i);
    if (target == nullptr) return;
    add(*target, t.line, called ? "call" : "reference");
  }

  std::string_view path_;
  Syntax syntax_;
  const SymbolTable& symbols_;
  const ScanScope& scope_;
  std::vector<Token> tokens_;
  std::string module_;
  std::string package_;
  std::vector<const IndexedSymbol*> innermost_;
  std::unordered_map<std::string_view, const IndexedSymbol*> bindings_;  // views of the source
  std::optional<CppNames> cpp_;  // C and C++ names, looked up as the language does
  std::vector<ReferenceRecord> found_;
};

}  // namespace

std::vector<ReferenceRecord> file_references(std::string_view path, std::string_view source, Syntax syntax,
                                             const SymbolTable& symbols, const ScanScope& scope) {
  return FileScan(path, source, syntax, symbols, scope).run();
}

}  // namespace kestrune::indexer
