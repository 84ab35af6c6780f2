#include "gitignore.hpp"

namespace kestrune::indexer {

namespace {

// Matches the class that starts at pattern[p] ("[") against `c`; moves `p`
// past its "]". A class without "]" matches a literal "[".
bool class_match(std::string_view pattern, std::size_t& p, char c) {
  std::size_t i = p + 1;
  const bool negate = i < pattern.size() && (pattern[i] == '!' || pattern[i] == '^');
  if (negate) ++i;
  bool found = false;
  const std::size_t first = i;
  for (; i < pattern.size() && (pattern[i] != ']' || i == first); ++i) {
    if (i + 2 < pattern.size() && pattern[i + 1] == '-' && pattern[i + 2] != ']') {
      found = found || (c >= pattern[i] && c <= pattern[i + 2]);
      i += 2;
    } else {
      found = found || c == pattern[i];
    }
  }
  if (i >= pattern.size()) {  // no closing bracket: a literal "["
    ++p;
    return c == '[';
  }
  p = i + 1;
  return found != negate;
}

}  // namespace

bool glob_match(std::string_view pattern, std::string_view text) {
  std::size_t p = 0;
  std::size_t t = 0;
  while (p < pattern.size()) {
    const char c = pattern[p];
    if (c == '*') {
      const bool across = p + 1 < pattern.size() && pattern[p + 1] == '*';
      std::size_t rest = p + (across ? 2 : 1);
      // "**/" also matches no directory at all.
      if (across && rest < pattern.size() && pattern[rest] == '/' &&
          glob_match(pattern.substr(rest + 1), text.substr(t)))
        return true;
      for (std::size_t k = t;; ++k) {
        if (glob_match(pattern.substr(rest), text.substr(k))) return true;
        if (k >= text.size() || (!across && text[k] == '/')) return false;
      }
    }
    if (t >= text.size()) return false;
    if (c == '?') {
      if (text[t] == '/') return false;
      ++p;
    } else if (c == '[') {
      if (!class_match(pattern, p, text[t])) return false;
    } else {
      if (c == '\\' && p + 1 < pattern.size()) ++p;
      if (pattern[p] != text[t]) return false;
      ++p;
    }
    ++t;
  }
  return t == text.size();
}

void IgnoreRules::add(std::string_view directory, std::string_view text) {
  std::string base(directory);
  if (!base.empty() && base.back() != '/') base += '/';
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    while (!line.empty() && line.back() == ' ' && !(line.size() > 1 && line[line.size() - 2] == '\\'))
      line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    Rule rule{.base = base};
    if (line.front() == '!') {
      rule.negated = true;
      line.remove_prefix(1);
    }
    if (!line.empty() && line.back() == '/') {
      rule.directory_only = true;
      line.remove_suffix(1);
    }
    // A slash anywhere but at the end ties the pattern to its directory.
    rule.anchored = line.find('/') != std::string_view::npos;
    if (!line.empty() && line.front() == '/') line.remove_prefix(1);
    if (line.empty()) continue;
    rule.pattern = line;
    rules_.push_back(std::move(rule));
  }
}

bool IgnoreRules::ignored(std::string_view path, bool is_directory) const {
  // The last rule that matches decides.
  for (std::size_t i = rules_.size(); i-- > 0;) {
    const Rule& rule = rules_[i];
    if (rule.directory_only && !is_directory) continue;
    if (path.substr(0, rule.base.size()) != rule.base) continue;
    const std::string_view below = path.substr(rule.base.size());
    const std::size_t slash = below.rfind('/');
    const std::string_view subject =
        rule.anchored ? below : below.substr(slash == std::string_view::npos ? 0 : slash + 1);
    if (glob_match(rule.pattern, subject)) return !rule.negated;
  }
  return false;
}

}  // namespace kestrune::indexer
