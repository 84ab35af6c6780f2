#include "cpp_names.hpp"

#include <algorithm>

namespace kestrune::indexer {

namespace {

using Kind = Token::Kind;

constexpr int kDeepest = 8;  // aliases and bases followed at most this deep

bool is(const Token& t, std::string_view text) { return t.kind == Kind::punct && t.text == text; }

bool is_word(const Token& t, std::string_view text) { return t.kind == Kind::identifier && t.text == text; }

bool class_like(const IndexedSymbol& s) { return s.kind == "class" || s.kind == "struct" || s.kind == "union"; }

std::string_view scope_of(std::string_view fqn) {
  const std::size_t cut = fqn.rfind("::");
  return cut == std::string_view::npos ? std::string_view() : fqn.substr(0, cut);
}

bool is_name_char(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

// The last name path that a written type holds, template arguments left
// out: "const ns::Foo<int>&" is {"ns", "Foo"}, "public Base" is {"Base"}.
std::vector<std::string_view> last_path(std::string_view text) {
  std::vector<std::string_view> path;
  bool joined = false;  // the next name continues the path after "::"
  int depth = 0;
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (c == '<' || c == '(' || c == '[') ++depth;
    if (c == '>' || c == ')' || c == ']') --depth;
    if (depth == 0 && text.substr(i, 2) == "::") {
      joined = true;
      i += 2;
      continue;
    }
    if (depth != 0 || !is_name_char(c)) {
      ++i;
      continue;
    }
    const std::size_t start = i;
    while (i < text.size() && is_name_char(text[i])) ++i;
    const std::string_view name = text.substr(start, i - start);
    if (is_cpp_keyword(name) || !joined) path.clear();  // `const`, `public`, `typename` end no path
    if (!is_cpp_keyword(name)) path.push_back(name);
    joined = false;
  }
  return path;
}

// The pieces of a text split at `sep` outside brackets.
std::vector<std::string_view> split_outside(std::string_view text, char sep) {
  std::vector<std::string_view> parts;
  int depth = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '<' || c == '(' || c == '[') ++depth;
    if (c == '>' || c == ')' || c == ']') --depth;
    if (c == sep && depth == 0) {
      parts.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  parts.push_back(text.substr(start));
  return parts;
}

// The bases that a class's signature names ("class D : public B, C<T>").
std::vector<std::string_view> base_list(std::string_view signature) {
  int depth = 0;
  for (std::size_t i = 0; i < signature.size(); ++i) {
    const char c = signature[i];
    if (c == '<' || c == '(') ++depth;
    if (c == '>' || c == ')') --depth;
    if (c != ':' || depth != 0) continue;
    if (i + 1 < signature.size() && signature[i + 1] == ':') {
      ++i;
      continue;
    }
    return split_outside(signature.substr(i + 1), ',');
  }
  return {};
}

// What a typedef's signature names: "using X = T" and "typedef T X" give T.
std::string_view typedef_target(std::string_view signature, std::string_view name) {
  if (signature.starts_with("using ")) {
    const std::size_t eq = signature.find('=');
    return eq == std::string_view::npos ? std::string_view() : signature.substr(eq + 1);
  }
  if (!signature.starts_with("typedef ")) return {};
  signature.remove_prefix(8);
  if (signature.ends_with(name)) signature.remove_suffix(name.size());
  return signature;
}

std::string joined(const std::vector<std::string_view>& parts) {
  std::string text;
  for (const std::string_view part : parts) {
    if (!text.empty()) text += "::";
    text += part;
  }
  return text;
}

}  // namespace

CppNames::CppNames(std::string_view path, std::string_view source, const std::vector<Token>& tokens,
                   const SymbolTable& symbols, std::string_view language,
                   const std::unordered_set<std::string>* visible, const std::vector<const IndexedSymbol*>& innermost)
    : path_(path), tokens_(tokens), symbols_(symbols), language_(language), visible_(visible), innermost_(innermost) {
  read_directives(source);
  read_usings();
  read_templates();
  read_declarations();
}

void CppNames::read_directives(std::string_view source) {
  // Lines that a backslash continues.
  std::vector<bool> continued{false};
  for (std::size_t start = 0; start <= source.size();) {
    std::size_t end = source.find('\n', start);
    if (end == std::string_view::npos) end = source.size();
    std::string_view line = source.substr(start, end - start);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.remove_suffix(1);
    continued.push_back(line.ends_with('\\'));
    start = end + 1;
  }
  const auto continues = [&](int line) {
    return line > 0 && static_cast<std::size_t>(line) < continued.size() && continued[static_cast<std::size_t>(line)];
  };
  for (std::size_t i = 0; i + 2 < tokens_.size(); ++i) {
    if (!is(tokens_[i], "#")) continue;
    const Token& directive = tokens_[i + 1];
    if (is_word(directive, "include")) include_lines_.insert(directive.line);
    if (!is_word(directive, "define")) continue;
    // `#define NAME(a, b) body`: a and b in the body are the macro's own.
    const Token& name = tokens_[i + 2];
    if (i + 3 >= tokens_.size() || !is(tokens_[i + 3], "(") ||
        name.text.data() + name.text.size() != tokens_[i + 3].text.data())
      continue;
    std::unordered_set<std::string_view> parameters;
    std::size_t j = i + 4;
    for (; j < tokens_.size() && !is(tokens_[j], ")"); ++j) {
      if (tokens_[j].kind != Kind::identifier) continue;
      parameters.insert(tokens_[j].text);
      skipped_.insert(j);
    }
    for (int line = name.line; j < tokens_.size(); ++j) {
      while (tokens_[j].line > line && continues(line)) ++line;
      if (tokens_[j].line > line) break;
      if (tokens_[j].kind == Kind::identifier && parameters.contains(tokens_[j].text)) skipped_.insert(j);
    }
  }
}

void CppNames::read_usings() {
  for (std::size_t i = 0; i + 2 < tokens_.size(); ++i) {
    const bool alias =
        is_word(tokens_[i], "namespace") && tokens_[i + 1].kind == Kind::identifier && is(tokens_[i + 2], "=");
    if (!alias && !is_word(tokens_[i], "using")) continue;
    std::size_t j = alias ? i + 3 : i + 1;
    const bool whole = !alias && is_word(tokens_[j], "namespace");
    if (whole) ++j;
    std::string target;
    std::string_view last;
    for (; j < tokens_.size() && !is(tokens_[j], ";"); ++j) {
      const Token& t = tokens_[j];
      if (t.kind == Kind::identifier && t.text != "typename") {
        target += t.text;
        last = t.text;
      } else if (is(t, ":")) {
        target += ':';
      } else {
        break;  // `using X = T;` and the like: no name taken into the file
      }
    }
    if (j >= tokens_.size() || !is(tokens_[j], ";") || target.empty()) continue;
    if (alias) {
      namespace_aliases_[tokens_[i + 1].text] = target;
    } else if (whole) {
      using_namespaces_.push_back(target);
    } else if (target.find("::") != std::string::npos &&
               !target.ends_with(std::string(last) + "::" + std::string(last))) {
      using_names_[last] = target;  // not `using Base::Base;`, which inherits constructors
    }
  }
}

void CppNames::read_declarations() {
  // The name of each of the file's own definitions, on its line, declares it.
  const auto first_on = [&](int line) {
    return static_cast<std::size_t>(
        std::lower_bound(tokens_.begin(), tokens_.end(), line, [](const Token& t, int l) { return t.line < l; }) -
        tokens_.begin());
  };
  for (const std::size_t k : symbols_.in_file(path_)) {
    const IndexedSymbol& s = symbols_[k];
    std::string_view name = s.name;
    const bool destructor = name.starts_with('~');
    if (destructor) name.remove_prefix(1);
    for (std::size_t i = first_on(s.start_line); i < tokens_.size() && tokens_[i].line == s.start_line; ++i) {
      if (tokens_[i].text != name || tokens_[i].kind != Kind::identifier) continue;
      if (i + 1 < tokens_.size() && is(tokens_[i + 1], ":") && i + 2 < tokens_.size() && is(tokens_[i + 2], ":"))
        continue;
      if (destructor != (i > 0 && is(tokens_[i - 1], "~"))) continue;
      skipped_.insert(i);
      break;
    }
  }
  for (const std::size_t k : symbols_.in_file(path_)) {
    const IndexedSymbol& s = symbols_[k];
    if (s.kind != "function" || s.end_line <= 0) continue;
    const std::size_t first = first_on(s.start_line);
    const std::size_t end = first_on(s.end_line + 1);
    if (first + 2 >= end) continue;
    locals_.emplace(&s, FunctionLocals(tokens_, first, end - 1, skipped_));
  }
  // A macro's use with a body (`TEST(Suite, Name) { ... }`) defines a
  // function too, which ctags does not report.
  for (std::size_t i = 0; i + 1 < tokens_.size(); ++i) {
    if (tokens_[i].kind != Kind::identifier || !is(tokens_[i + 1], "(") || caller_function(tokens_[i].line) ||
        !names_macro(tokens_[i].text))
      continue;
    const std::size_t close = closing(i + 1);
    if (close + 1 >= tokens_.size() || !is(tokens_[close + 1], "{")) continue;
    const std::size_t last = closing(close + 1);
    if (last >= tokens_.size()) continue;
    bodies_.push_back({tokens_[i].line, tokens_[last].line, FunctionLocals(tokens_, i, last, skipped_)});
    i = last;
  }
}

void CppNames::read_templates() {
  for (std::size_t i = 0; i + 1 < tokens_.size(); ++i) {
    if (!is_word(tokens_[i], "template") || !is(tokens_[i + 1], "<")) continue;
    std::size_t close = i + 1;
    for (int depth = 0; close < tokens_.size() && !is(tokens_[close], ";") && !is(tokens_[close], "{"); ++close) {
      if (is(tokens_[close], "<")) ++depth;
      if (is(tokens_[close], ">") && --depth == 0) break;
    }
    if (close >= tokens_.size() || !is(tokens_[close], ">")) continue;
    // `typename T`, `class U`, `typename... Args`: names declared here.
    std::vector<std::string_view> names;
    for (std::size_t k = i + 2; k < close; ++k) {
      std::size_t key = k - 1;
      while (key > i && is(tokens_[key], ".")) --key;
      // Not `typename std::enable_if<...>::type = 0`, a value's type.
      const bool ends = is(tokens_[k + 1], ",") || is(tokens_[k + 1], ">") || is(tokens_[k + 1], "=");
      if (tokens_[k].kind != Kind::identifier || is_cpp_keyword(tokens_[k].text) || !ends ||
          !(is_word(tokens_[key], "typename") || is_word(tokens_[key], "class")))
        continue;
      names.push_back(tokens_[k].text);
      skipped_.insert(k);
    }
    // They name the parameters up to the end of what the template declares:
    // its body, when one opens before a ";" outside parentheses.
    std::size_t end = close + 1;
    for (int depth = 0; end < tokens_.size(); ++end) {
      if (is(tokens_[end], "(")) ++depth;
      if (is(tokens_[end], ")")) --depth;
      if (depth == 0 && is(tokens_[end], ";")) break;
      if (depth == 0 && is(tokens_[end], "{")) {
        end = closing(end);
        break;
      }
    }
    for (const std::string_view name : names) template_parameters_[name].emplace_back(close, end);
  }
}

bool CppNames::template_parameter(std::size_t i) const {
  const auto found = template_parameters_.find(tokens_[i].text);
  if (found == template_parameters_.end()) return false;
  return std::any_of(found->second.begin(), found->second.end(), [&](const std::pair<std::size_t, std::size_t>& span) {
    return span.first < i && i <= span.second;
  });
}

bool CppNames::names_macro(std::string_view name) const {
  const auto macros = symbols_.named(name);
  return std::any_of(macros.begin(), macros.end(), [&](std::size_t k) { return symbols_[k].kind == "macro"; });
}

std::size_t CppNames::closing(std::size_t open) const {
  const std::string_view close = tokens_[open].text == "(" ? ")" : "}";
  int depth = 0;
  for (std::size_t k = open; k < tokens_.size(); ++k) {
    if (tokens_[k].kind != Kind::punct) continue;
    if (tokens_[k].text == tokens_[open].text) ++depth;
    if (tokens_[k].text == close && --depth == 0) return k;
  }
  return tokens_.size();
}

bool CppNames::caller_function(int line) const {
  const IndexedSymbol* caller = caller_at(line);
  return caller != nullptr && caller->kind == "function";
}

const IndexedSymbol* CppNames::caller_at(int line) const {
  const auto l = static_cast<std::size_t>(line);
  return l < innermost_.size() ? innermost_[l] : nullptr;
}

const FunctionLocals* CppNames::locals_at(int line) const {
  if (const auto found = locals_.find(caller_at(line)); found != locals_.end()) return &found->second;
  for (const MacroBody& body : bodies_) {
    if (body.first <= line && line <= body.last) return &body.locals;
  }
  return nullptr;
}

CppNames::Scopes CppNames::scopes_of(std::string_view fqn) {
  Scopes scopes;
  for (std::string_view scope = scope_of(fqn); !scope.empty(); scope = scope_of(scope)) {
    scopes.push_back(std::string(scope) + "::");
  }
  scopes.emplace_back();
  return scopes;
}

CppNames::Scopes CppNames::scopes_at(int line) const {
  Scopes scopes;
  const IndexedSymbol* caller = caller_at(line);
  if (caller != nullptr && caller->kind == "macro") {
    // A macro's body means names as the code around its definition does.
    const IndexedSymbol* around = nullptr;
    for (const std::size_t k : symbols_.in_file(path_)) {
      const IndexedSymbol& s = symbols_[k];
      if (s.kind != "macro" && s.start_line <= line && line <= s.end_line &&
          (around == nullptr || s.end_line - s.start_line < around->end_line - around->start_line))
        around = &s;
    }
    caller = around;
  }
  if (caller != nullptr) {
    // A definition is itself a scope: a method's body sees its class.
    scopes.push_back(caller->fqn + "::");
    for (std::string_view scope = scope_of(caller->fqn); !scope.empty(); scope = scope_of(scope)) {
      scopes.push_back(std::string(scope) + "::");
    }
  }
  for (const std::string& ns : using_namespaces_) scopes.push_back(ns + "::");
  return scopes;
}

const IndexedSymbol* CppNames::find(std::string_view fqn) const {
  const IndexedSymbol* s = symbols_.find(fqn);
  return s != nullptr && s->language == language_ ? s : nullptr;
}

bool CppNames::near(const IndexedSymbol& s) const {
  if (s.language != language_) return false;
  if (s.kind == "namespace") return true;  // every file that names a namespace means the one namespace
  if (visible_ == nullptr) return true;
  // Several files may define one fqn (a macro defined where a platform
  // needs it): the file sees it when it sees any of them.
  const auto rows = symbols_.with_fqn(s.fqn);
  return std::any_of(rows.begin(), rows.end(),
                     [&](std::size_t k) { return visible_->contains(symbols_[k].file_path); });
}

const IndexedSymbol* CppNames::in_this_file(std::string_view name) const {
  for (const std::size_t k : symbols_.in_file(path_)) {
    if (symbols_[k].name == name && symbols_[k].fqn == name) return &symbols_[k];
  }
  return nullptr;
}

// The one symbol named `name` that the file can see, a member or not as
// `member` says; of several members, the one that the others' classes
// derive from (a virtual method and its overrides). Overloads share an fqn.
const IndexedSymbol* CppNames::only(std::string_view name, bool member) const {
  std::vector<const IndexedSymbol*> found;
  for (const std::size_t k : symbols_.named(name)) {
    const IndexedSymbol& s = symbols_[k];
    if (near(s) && s.member == member) found.push_back(&s);
  }
  if (found.size() <= 1) return found.empty() ? nullptr : found.front();
  if (!member) return nullptr;
  for (const IndexedSymbol* root : found) {
    const IndexedSymbol* root_class = find(scope_of(root->fqn));
    if (root_class == nullptr) continue;
    const bool all = std::all_of(found.begin(), found.end(), [&](const IndexedSymbol* other) {
      const IndexedSymbol* other_class = find(scope_of(other->fqn));
      return other == root || (other_class != nullptr && derives(*other_class, *root_class));
    });
    if (all) return root;
  }
  return nullptr;
}

std::vector<const IndexedSymbol*> CppNames::targets(std::size_t i) const {
  const Token& t = tokens_[i];
  if (symbols_.named(t.text).empty() || include_lines_.contains(t.line) || skipped_.contains(i) ||
      is_cpp_keyword(t.text))
    return {};
  const Token* before = i > 0 ? &tokens_[i - 1] : nullptr;
  const Token* after = i + 1 < tokens_.size() ? &tokens_[i + 1] : nullptr;
  // A destructor's or an operator's name, a namespace's; a type declared
  // ahead (a friend's is a use).
  if (before != nullptr && (is(*before, "~") || is_word(*before, "operator") || is_word(*before, "namespace")))
    return {};
  const bool keyed = before != nullptr && (is_word(*before, "class") || is_word(*before, "struct") ||
                                           is_word(*before, "union") || is_word(*before, "enum"));
  if (keyed && after != nullptr && is(*after, ";") && !(i >= 2 && is_word(tokens_[i - 2], "friend"))) return {};
  const bool dot = before != nullptr && is(*before, ".");
  const bool arrow = before != nullptr && is(*before, ">") && i >= 2 && is(tokens_[i - 2], "-");
  const IndexedSymbol* target = dot || arrow ? member(i) : bare(i);
  if (target == nullptr) return {};
  std::vector<const IndexedSymbol*> found{target};
  // `Class(...)` and `Class{...}` construct: a use of the constructors too
  // (not `class D : public Class {`, which opens D).
  if (class_like(*target) && after != nullptr && (is(*after, "(") || (is(*after, "{") && !in_class_head(i)))) {
    if (const IndexedSymbol* constructor = find(target->fqn + "::" + target->name)) found.push_back(constructor);
  }
  return found;
}

bool CppNames::in_class_head(std::size_t i) const {
  for (std::size_t k = i; k > 0 && i - k < 64; --k) {
    const Token& t = tokens_[k - 1];
    if (is_word(t, "class") || is_word(t, "struct") || is_word(t, "union")) return true;
    if (is(t, ";") || is(t, "{") || is(t, "}") || is(t, "(") || is(t, ")")) return false;
  }
  return false;
}

const IndexedSymbol* CppNames::bare(std::size_t i) const {
  const Token& t = tokens_[i];
  // The qualifier before the name: "a::b<T>::name", or "::name".
  std::vector<std::string_view> parts;
  bool global = false;
  for (std::size_t k = i; k >= 2 && is(tokens_[k - 1], ":") && is(tokens_[k - 2], ":");) {
    std::size_t j = k - 2;
    if (j > 0 && is(tokens_[j - 1], ">")) {
      const std::size_t open = template_open(tokens_, j - 1);
      if (open == 0) return nullptr;
      j = open;
    }
    // `GTEST_API_ ::std::string`: a name apart from the "::" qualifies nothing.
    if (j == 0 || tokens_[j - 1].kind != Kind::identifier || is_cpp_keyword(tokens_[j - 1].text) ||
        tokens_[j - 1].text.data() + tokens_[j - 1].text.size() != tokens_[j].text.data()) {
      global = true;
      break;
    }
    parts.insert(parts.begin(), tokens_[j - 1].text);
    k = j - 1;
  }
  if (global) return qualified(parts, t.text, Scopes{""});
  Scopes scopes = scopes_at(t.line);
  if (!parts.empty()) {
    scopes.emplace_back();
    return qualified(parts, t.text, scopes);
  }
  if (const FunctionLocals* locals = locals_at(t.line); locals != nullptr && (locals->declares(i) || locals->local(i)))
    return nullptr;
  if (template_parameter(i)) return nullptr;
  if (const IndexedSymbol* s = qualified({}, t.text, scopes)) return s;
  if (const auto u = using_names_.find(t.text); u != using_names_.end()) return path_named(u->second, Scopes{""});
  if (const IndexedSymbol* s = in_this_file(t.text)) return s;
  if (const IndexedSymbol* s = find(t.text); s != nullptr && near(*s)) return s;
  return only(t.text, false);
}

const IndexedSymbol* CppNames::qualified(const std::vector<std::string_view>& parts, std::string_view name,
                                         const Scopes& scopes) const {
  if (parts.empty()) {
    // Each scope from the innermost out, a class's bases with it.
    for (const std::string& scope : scopes) {
      if (const IndexedSymbol* s = find(scope + std::string(name))) {
        // In a class, its own name is the class, not its constructor.
        const IndexedSymbol* cls = find(scope_of(s->fqn));
        return cls != nullptr && class_like(*cls) && cls->name == name ? cls : s;
      }
      if (scope.empty()) continue;
      const IndexedSymbol* owner = find(std::string_view(scope).substr(0, scope.size() - 2));
      if (owner == nullptr || !class_like(*owner)) continue;
      for (const IndexedSymbol* base : bases_of(*owner)) {
        if (const IndexedSymbol* s = member_of(base, name)) return s;
      }
    }
    return nullptr;
  }
  const std::string path = joined(parts) + "::" + std::string(name);
  for (const std::string& scope : scopes) {
    if (const IndexedSymbol* s = find(scope + path)) return s;
  }
  // Step by step, through namespace aliases, typedefs and bases.
  const IndexedSymbol* head = nullptr;
  if (const auto a = namespace_aliases_.find(parts.front()); a != namespace_aliases_.end()) {
    head = path_named(a->second, Scopes{""});
  } else if (const auto u = using_names_.find(parts.front()); u != using_names_.end()) {
    head = path_named(u->second, Scopes{""});
  } else {
    head = qualified({}, parts.front(), scopes);
  }
  for (std::size_t k = 1; head != nullptr && k < parts.size(); ++k) head = member_of(head, parts[k]);
  return head == nullptr ? nullptr : member_of(head, name);
}

const IndexedSymbol* CppNames::path_named(std::string_view text, const Scopes& scopes) const {
  std::vector<std::string_view> parts = last_path(text);
  if (parts.empty()) return nullptr;
  const std::string_view name = parts.back();
  parts.pop_back();
  return qualified(parts, name, scopes);
}

const IndexedSymbol* CppNames::member_of(const IndexedSymbol* owner, std::string_view name, int depth) const {
  owner = aliased(owner);
  if (owner == nullptr || depth > kDeepest) return nullptr;
  // A class's own name in it is the class (`Base` in a class derived from it).
  if (class_like(*owner) && owner->name == name) return owner;
  if (const IndexedSymbol* s = find(owner->fqn + "::" + std::string(name))) return s;
  if (!class_like(*owner)) return nullptr;
  for (const IndexedSymbol* base : bases_of(*owner)) {
    if (const IndexedSymbol* s = member_of(base, name, depth + 1)) return s;
  }
  return nullptr;
}

const IndexedSymbol* CppNames::aliased(const IndexedSymbol* s, int depth) const {
  if (s == nullptr || s->kind != "typedef") return s;
  if (depth > kDeepest) return nullptr;
  const std::string_view target = typedef_target(s->signature, s->name);
  const IndexedSymbol* named = target.empty() ? nullptr : path_named(target, scopes_of(s->fqn));
  return named == s ? nullptr : aliased(named, depth + 1);
}

std::vector<const IndexedSymbol*> CppNames::bases_of(const IndexedSymbol& cls) const {
  if (const auto cached = bases_.find(&cls); cached != bases_.end()) return cached->second;
  bases_[&cls] = {};  // a class that names itself as its base has none
  std::vector<const IndexedSymbol*> bases;
  for (const std::string_view base : base_list(cls.signature)) {
    const IndexedSymbol* s = aliased(path_named(base, scopes_of(cls.fqn)));
    if (s != nullptr && class_like(*s) && s != &cls) bases.push_back(s);
  }
  bases_[&cls] = bases;
  return bases;
}

bool CppNames::derives(const IndexedSymbol& cls, const IndexedSymbol& base, int depth) const {
  if (depth > kDeepest) return false;
  for (const IndexedSymbol* b : bases_of(cls)) {
    if (b->fqn == base.fqn || derives(*b, base, depth + 1)) return true;
  }
  return false;
}

const IndexedSymbol* CppNames::enclosing_class(int line) const {
  const IndexedSymbol* s = caller_at(line);
  for (int level = 0; s != nullptr && level < kDeepest; ++level) {
    if (class_like(*s)) return s;
    s = find(scope_of(s->fqn));
  }
  return nullptr;
}

const IndexedSymbol* CppNames::type_named_at(std::size_t i) const { return bare(i); }

const IndexedSymbol* CppNames::member(std::size_t i) const {
  const Token& t = tokens_[i];
  const std::size_t owner = is(tokens_[i - 1], ".") ? i - 2 : i - 3;
  if (owner < tokens_.size() && tokens_[owner].kind == Kind::identifier) {
    const bool chained = owner > 0 && (is(tokens_[owner - 1], ".") || is(tokens_[owner - 1], ":") ||
                                       (owner > 1 && is(tokens_[owner - 1], ">") && is(tokens_[owner - 2], "-")));
    if (!chained && tokens_[owner].text == "this") {
      const IndexedSymbol* cls = enclosing_class(t.line);
      return cls == nullptr ? only(t.text, true) : member_of(cls, t.text);
    }
    const FunctionLocals* locals = locals_at(t.line);
    const LocalName* local = chained || locals == nullptr ? nullptr : locals->local(owner);
    if (local != nullptr && local->type != 0) {
      // The object's class, where its declaration names one the index holds.
      if (const IndexedSymbol* type = aliased(type_named_at(local->type)); type != nullptr && class_like(*type))
        return member_of(type, t.text);
      const std::size_t type = local->type;
      const bool outside = (tokens_[type].kind == Kind::identifier && is_cpp_keyword(tokens_[type].text)) ||
                           (type >= 3 && is(tokens_[type - 1], ":") && is_word(tokens_[type - 3], "std"));
      if (outside) return nullptr;
    }
  }
  return only(t.text, true);
}

}  // namespace kestrune::indexer
