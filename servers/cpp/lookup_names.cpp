// Names as users write them, and the close names of a missed lookup.
#include "lookup_names.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <tuple>

#include "internal/chars.hpp"
#include "internal/utf8.hpp"

namespace kestrune::example {

namespace {

namespace detail = mcp_responses::detail;

char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The code points of `text`, ASCII letters in lower case; a byte that is
// not well-formed UTF-8 is one unit of its own.
std::u32string folded(std::string_view text) {
  std::u32string out;
  for (std::size_t i = 0; i < text.size();) {
    const detail::Decoded d = detail::decode_at(text, i);
    if (d.ok) {
      out += d.cp < 0x80 ? static_cast<char32_t>(ascii_lower(static_cast<char>(d.cp))) : d.cp;
      i += d.len;
    } else {
      out += static_cast<char32_t>(0xDC00U + static_cast<unsigned char>(text[i]));
      ++i;
    }
  }
  return out;
}

// The parts of dotted `text` split at ".", empty ones left out.
std::vector<std::string_view> parts_of(std::string_view text) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '.') {
      if (i > start) parts.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  return parts;
}

}  // namespace

std::string dotted(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.substr(i, 2) == "::") {
      out += '.';
      ++i;
    } else {
      out += text[i] == '/' ? '.' : text[i];
    }
  }
  return out;
}

std::string_view last_part(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? name : name.substr(dot + 1);
}

std::string file_stem(std::string_view text) {
  const std::size_t slash = text.rfind('/');
  if (slash == std::string_view::npos) return std::string(last_part(dotted(text)));
  const std::string_view segment = text.substr(slash + 1);
  return std::string(segment.substr(0, segment.find('.')));
}

std::size_t edit_distance(std::string_view a, std::string_view b) {
  const std::u32string x = folded(a);
  const std::u32string y = folded(b);
  std::vector<std::size_t> row(y.size() + 1);
  for (std::size_t j = 0; j <= y.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= x.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= y.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] == y[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[y.size()];
}

std::vector<std::string> closest(std::string_view wanted_name, std::string_view wanted,
                                 std::vector<Candidate> candidates) {
  const std::vector<std::string_view> wanted_parts = parts_of(wanted);
  using Key = std::tuple<std::size_t, std::int64_t, std::size_t, std::string>;
  std::vector<Key> keyed;
  std::set<std::string> seen;
  for (Candidate& c : candidates) {
    if (!seen.insert(c.shown).second) continue;
    const std::string shown = dotted(c.shown);
    const std::vector<std::string_view> parts = parts_of(shown);
    std::int64_t shared = 0;
    for (const std::string_view p : wanted_parts) shared += std::find(parts.begin(), parts.end(), p) != parts.end();
    keyed.emplace_back(edit_distance(wanted_name, c.name), -shared, detail::char_count(c.shown), std::move(c.shown));
  }
  const auto end = keyed.begin() + static_cast<std::ptrdiff_t>(std::min(keyed.size(), kMostSuggestions));
  std::partial_sort(keyed.begin(), end, keyed.end());
  std::vector<std::string> names;
  for (auto it = keyed.begin(); it != end; ++it) names.push_back(std::move(std::get<3>(*it)));
  return names;
}

std::string suggestion_text(const std::vector<std::string>& names) {
  if (names.empty()) return {};
  std::string text = " Close names:";
  for (std::size_t i = 0; i < names.size(); ++i) text += (i == 0 ? " " : ", ") + names[i];
  return text + ".";
}

}  // namespace kestrune::example
