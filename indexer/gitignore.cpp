#include "gitignore.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

namespace kestrune::indexer {

namespace {

using Step = Glob::Step;

bool in_set(const Step& step, unsigned char c) { return ((step.members[c >> 6] >> (c & 63)) & 1) != 0; }

bool posix_class(std::string_view name, unsigned char c) {
  const auto between = [c](char lo, char hi) {
    return c >= static_cast<unsigned char>(lo) && c <= static_cast<unsigned char>(hi);
  };
  if (name == "alnum") return between('a', 'z') || between('A', 'Z') || between('0', '9');
  if (name == "alpha") return between('a', 'z') || between('A', 'Z');
  if (name == "blank") return c == ' ' || c == '\t';
  if (name == "cntrl") return c < 0x20 || c == 0x7f;
  if (name == "digit") return between('0', '9');
  if (name == "graph") return c > 0x20 && c < 0x7f;
  if (name == "lower") return between('a', 'z');
  if (name == "print") return c >= 0x20 && c < 0x7f;
  if (name == "punct") return c > 0x20 && c < 0x7f && !between('a', 'z') && !between('A', 'Z') && !between('0', '9');
  if (name == "space") return c == ' ' || (c >= '\t' && c <= '\r');
  if (name == "upper") return between('A', 'Z');
  if (name == "xdigit") return between('0', '9') || between('a', 'f') || between('A', 'F');
  return false;
}

// Reads the class that starts at pattern[p] ("[") into `step`; returns the
// position after its "]", or 0 when it has none.
std::size_t read_class(std::string_view pattern, std::size_t p, Step& step) {
  std::size_t i = p + 1;
  step.kind = Step::Kind::set;
  step.negated = i < pattern.size() && (pattern[i] == '!' || pattern[i] == '^');
  if (step.negated) ++i;
  const auto add = [&step](unsigned char lo, unsigned char hi) {
    for (unsigned c = lo; c <= hi; ++c) step.members[c >> 6] |= std::uint64_t{1} << (c & 63);
  };
  const std::size_t first = i;
  while (i < pattern.size() && (pattern[i] != ']' || i == first)) {
    if (pattern.substr(i, 2) == "[:") {
      const std::size_t close = pattern.find(":]", i + 2);
      if (close == std::string_view::npos) return 0;
      const std::string_view name = pattern.substr(i + 2, close - i - 2);
      for (unsigned c = 0; c < 256; ++c) {
        if (posix_class(name, static_cast<unsigned char>(c)))
          add(static_cast<unsigned char>(c), static_cast<unsigned char>(c));
      }
      i = close + 2;
      continue;
    }
    if (pattern[i] == '\\' && i + 1 < pattern.size()) ++i;
    auto lo = static_cast<unsigned char>(pattern[i]);
    if (i + 2 < pattern.size() && pattern[i + 1] == '-' && pattern[i + 2] != ']') {
      std::size_t hi_at = i + 2;
      if (pattern[hi_at] == '\\' && hi_at + 1 < pattern.size()) ++hi_at;
      const auto hi = static_cast<unsigned char>(pattern[hi_at]);
      if (lo <= hi) add(lo, hi);
      i = hi_at + 1;
    } else {
      add(lo, lo);
      ++i;
    }
  }
  return i < pattern.size() ? i + 1 : 0;
}

// The glob as steps, "**" read as git reads it: across components only when
// it stands alone between slashes (or the pattern's ends), else as "*".
std::vector<Step> compile(std::string_view pattern) {
  std::vector<Step> steps;
  for (std::size_t p = 0; p < pattern.size();) {
    const char c = pattern[p];
    if (c == '*') {
      std::size_t end = p;
      while (end < pattern.size() && pattern[end] == '*') ++end;
      const bool at_start = p == 0 || pattern[p - 1] == '/';
      const bool at_end = end == pattern.size() || pattern[end] == '/';
      if (end - p >= 2 && at_start && at_end) {
        if (end < pattern.size()) {  // "**/": no folder at all, or any folders
          steps.push_back({.kind = Step::Kind::skip});
          steps.push_back({.kind = Step::Kind::dirs});
          ++end;
        } else {
          steps.push_back({.kind = Step::Kind::globstar});
        }
      } else {
        steps.push_back({.kind = Step::Kind::star});
      }
      p = end;
    } else if (c == '?') {
      steps.push_back({.kind = Step::Kind::any});
      ++p;
    } else if (c == '[') {
      Step step;
      const std::size_t next = read_class(pattern, p, step);
      if (next == 0) {  // no closing bracket: git matches nothing
        return {{.kind = Step::Kind::set}};
      } else {
        steps.push_back(step);
        p = next;
      }
    } else {
      if (c == '\\' && p + 1 < pattern.size()) ++p;
      steps.push_back({.byte = pattern[p]});
      ++p;
    }
  }
  return steps;
}

// Adds step `s` to `states` with every step it may pass without a byte.
void enter(const std::vector<Step>& steps, std::size_t s, std::vector<char>& states) {
  while (s <= steps.size() && states[s] == 0) {
    states[s] = 1;
    if (s == steps.size()) return;
    const Step::Kind kind = steps[s].kind;
    if (kind == Step::Kind::skip) enter(steps, s + 2, states);  // "**/" matching no folder
    if (kind != Step::Kind::star && kind != Step::Kind::globstar && kind != Step::Kind::skip) return;
    ++s;  // a star matching nothing, or "**/" into its folders
  }
}

}  // namespace

// The glob runs as a set of steps reached so far, advanced a byte at a time:
// time grows with the pattern's length times the text's, never exponentially.
Glob::Glob(std::string_view pattern) : steps_(compile(pattern)) {}

bool Glob::matches(std::string_view text) const {
  const std::vector<Step>& steps = steps_;
  std::vector<char> states(steps.size() + 1, 0);
  std::vector<char> next(steps.size() + 1, 0);
  enter(steps, 0, states);
  for (const char byte : text) {
    const auto c = static_cast<unsigned char>(byte);
    std::fill(next.begin(), next.end(), 0);
    bool alive = false;
    for (std::size_t s = 0; s < steps.size(); ++s) {
      if (states[s] == 0) continue;
      const Step& step = steps[s];
      switch (step.kind) {
        case Step::Kind::literal:
          if (byte == step.byte) enter(steps, s + 1, next);
          break;
        case Step::Kind::any:
          if (byte != '/') enter(steps, s + 1, next);
          break;
        case Step::Kind::set:
          if (byte != '/' && in_set(step, c) != step.negated) enter(steps, s + 1, next);
          break;
        case Step::Kind::star:
          if (byte != '/') enter(steps, s, next);
          break;
        case Step::Kind::globstar:
          enter(steps, s, next);
          break;
        case Step::Kind::skip:  // passed on entry, never holds a byte
          break;
        case Step::Kind::dirs:
          next[s] = 1;  // its own step again, not the one after: that takes a "/"
          if (byte == '/') enter(steps, s + 1, next);
          break;
      }
    }
    states.swap(next);
    for (const char live : states) alive = alive || live != 0;
    if (!alive) return false;
  }
  return states[steps.size()] != 0;
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
    Rule rule{.base = base, .pattern = Glob("")};
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
    rule.pattern = Glob(line);
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
    if (rule.pattern.matches(subject)) return !rule.negated;
  }
  return false;
}

}  // namespace kestrune::indexer
