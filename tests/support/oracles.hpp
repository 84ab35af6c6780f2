// Plain versions of what the library does with blocks of bytes, sums of
// kept sizes and streamed reads: a character at a time, a byte at a time,
// the whole text at once. Unit tests and fuzz targets compare with them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "internal/utf8.hpp"
#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "text/cut.hpp"
#include "text/strip.hpp"

namespace kestrune::oracle {

namespace mr = mcp_responses;

/// Chars: the characters of a text, an ill-formed byte one of its own.
struct Chars {
  std::vector<std::size_t> starts;  ///< byte offset of each character, then the end
  std::vector<bool> space;          ///< whether each character is whitespace
};

inline Chars chars_of(std::string_view s) {
  Chars c;
  for (std::size_t i = 0; i < s.size();) {
    const mr::detail::Decoded d = mr::detail::decode_at(s, i);
    c.starts.push_back(i);
    c.space.push_back(d.ok && mr::detail::is_whitespace(d.cp));
    i += d.ok ? d.len : 1;
  }
  c.starts.push_back(s.size());
  return c;
}

/// plain_strip_end: `s` without whitespace at its end.
inline std::string_view plain_strip_end(std::string_view s) {
  const Chars c = chars_of(s);
  std::size_t end = 0;
  for (std::size_t k = 0; k < c.space.size(); ++k) {
    if (!c.space[k]) end = c.starts[k + 1];
  }
  return s.substr(0, end);
}

/// plain_cut: cut(s, n) for n >= 1.
inline std::string plain_cut(std::string_view s, std::size_t n) {
  const Chars c = chars_of(s);
  if (c.space.size() <= n) return std::string(s);
  return std::string(plain_strip_end(s.substr(0, c.starts[n - 1]))) + "\u2026";
}

/// plain_trimmed: trimmed(s, n).
inline std::string plain_trimmed(std::string_view s, std::int64_t n) {
  const Chars c = chars_of(s);
  if (n >= 0 && c.space.size() <= static_cast<std::size_t>(n)) return std::string(s);
  if (n <= 1) return {};
  const auto limit = static_cast<std::size_t>(n);
  std::size_t end = c.starts[limit - 1];
  for (std::size_t k = limit - 1; k-- > limit / 2;) {
    if (s[c.starts[k]] == ' ') {
      end = c.starts[k];
      break;
    }
  }
  return std::string(plain_strip_end(s.substr(0, end))) + "\u2026";
}

/// plain_first_sentence: first_sentence(doc).
inline std::optional<std::string> plain_first_sentence(std::string_view doc) {
  if (doc.empty()) return std::nullopt;
  std::string_view text = mr::detail::strip(doc);
  text = text.substr(0, text.find("\n\n"));
  const Chars c = chars_of(text);
  std::string sentence;
  bool pending = false;
  for (std::size_t k = 0; k < c.space.size(); ++k) {
    if (c.space[k]) {
      pending = !sentence.empty();
      continue;
    }
    if (pending) {
      const char last = sentence.back();
      if (last == '.' || last == '!' || last == '?') break;
      sentence += ' ';
      pending = false;
    }
    sentence += text.substr(c.starts[k], c.starts[k + 1] - c.starts[k]);
  }
  std::string summary = mr::detail::cut(sentence, mr::SUMMARY_CHARS);
  if (summary.empty()) return std::nullopt;
  return summary;
}

/// escaped: `s` as a JSON string, a byte at a time.
inline std::string escaped(std::string_view s) {
  std::string out = "\"";
  for (const char ch : s) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += ch;
    } else if (c < 0x20) {
      const char e = c == 8 ? 'b' : c == 9 ? 't' : c == 10 ? 'n' : c == 12 ? 'f' : c == 13 ? 'r' : '\0';
      char u[8];
      std::snprintf(u, sizeof u, "\\u%04x", c);
      out += e != '\0' ? std::string{'\\', e} : std::string(u);
    } else {
      out += ch;
    }
  }
  return out + '"';
}

/// whole_text_lines: the lines of `bytes` as code_lines gives them, from the
/// whole text at once: decoded first, then split on the decoded boundaries,
/// then stripped and cut.
inline std::vector<std::string> whole_text_lines(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    const mr::detail::Decoded d = mr::detail::decode_at(bytes, i);
    text.append(d.ok ? bytes.substr(i, d.len) : "\uFFFD");
    i += d.len;
  }
  std::vector<std::string> lines;
  std::string line;
  for (std::size_t i = 0; i < text.size();) {
    const mr::detail::Decoded d = mr::detail::decode_at(text, i);
    const char32_t c = d.cp;
    const std::string_view chars(text.data() + i, d.len);
    i += d.len;
    if ((c >= 0x0A && c <= 0x0D) || (c >= 0x1C && c <= 0x1E) || c == 0x85 || c == 0x2028 || c == 0x2029) {
      if (c == '\r' && i < text.size() && text[i] == '\n') ++i;
      lines.push_back(mr::detail::cut(mr::detail::strip(line), mr::CODE_LINE_CHARS));
      line.clear();
    } else {
      line.append(chars);
    }
  }
  if (!line.empty()) lines.push_back(mr::detail::cut(mr::detail::strip(line), mr::CODE_LINE_CHARS));
  return lines;
}

}  // namespace kestrune::oracle
