// Text shaping: first sentences, cuts with an ellipsis, null-free rows.
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {

namespace {

constexpr std::string_view kEllipsis = "\u2026";

// Whether the character at byte `i` is whitespace; sets `len` to its length.
bool whitespace_at(std::string_view s, std::size_t i, std::size_t& len) noexcept {
  const detail::Decoded d = detail::decode_at(s, i);
  len = d.ok ? d.len : 1;
  return d.ok && detail::is_whitespace(d.cp);
}

// Byte offset just past the first `chars` characters of `s` (or s.size()).
std::size_t byte_offset(std::string_view s, std::size_t chars) noexcept {
  std::size_t i = 0;
  for (std::size_t k = 0; k < chars && i < s.size(); ++k) i += detail::char_length(s, i);
  return i;
}

std::string with_ellipsis(std::string_view prefix) {
  const std::string_view kept = detail::strip_end(prefix);
  std::string out;
  out.reserve(kept.size() + kEllipsis.size());
  out.append(kept);
  out.append(kEllipsis);
  return out;
}

// A sentence ends at a space that follows one of these marks.
constexpr bool ends_sentence(char c) noexcept { return c == '.' || c == '!' || c == '?'; }

}  // namespace

namespace detail {

std::size_t char_count(std::string_view text) noexcept {
  std::size_t n = 0;
  for (std::size_t i = 0; i < text.size(); i += char_length(text, i)) ++n;
  return n;
}

std::string_view strip_end(std::string_view text) noexcept {
  std::size_t end = 0;  // just past the last character that is not whitespace
  std::size_t len = 0;
  for (std::size_t i = 0; i < text.size(); i += len) {
    if (!whitespace_at(text, i, len)) end = i + len;
  }
  return text.substr(0, end);
}

std::string_view strip(std::string_view text) noexcept {
  std::size_t i = 0;
  std::size_t len = 0;
  while (i < text.size() && whitespace_at(text, i, len)) i += len;
  return strip_end(text.substr(i));
}

std::string cut(std::string_view text, std::size_t chars) {
  if (chars == 0) chars = 1;
  // Counting stops after `chars` characters: only whether more follow matters.
  const std::size_t limit = byte_offset(text, chars);
  if (limit == text.size()) return std::string(text);
  return with_ellipsis(text.substr(0, byte_offset(text, chars - 1)));
}

std::string trimmed(std::string_view text, std::int64_t chars) {
  if (chars >= 0 && byte_offset(text, static_cast<std::size_t>(chars)) == text.size()) {
    return std::string(text);
  }
  if (chars <= 1) return {};
  const auto limit = static_cast<std::size_t>(chars);
  // Find the last space among the first limit - 1 characters.
  std::size_t i = 0;
  std::size_t space_char = 0;
  std::size_t space_byte = 0;
  bool found = false;
  for (std::size_t k = 0; k + 1 < limit; ++k) {
    if (text[i] == ' ') {
      found = true;
      space_char = k;
      space_byte = i;
    }
    i += char_length(text, i);
  }
  // A space before the middle of the allowed length is not used: cut hard.
  if (found && space_char >= limit / 2) return with_ellipsis(text.substr(0, space_byte));
  return with_ellipsis(text.substr(0, i));
}

}  // namespace detail

std::optional<std::string> first_sentence(std::optional<std::string_view> docstring) {
  if (!docstring || docstring->empty()) return std::nullopt;
  std::string_view text = detail::strip(*docstring);
  if (const std::size_t para = text.find("\n\n"); para != std::string_view::npos) {
    text = text.substr(0, para);
  }
  // Collapse whitespace runs to single spaces and stop at the first sentence
  // end. Past SUMMARY_CHARS + 1 characters the cut result no longer changes,
  // so long paragraphs are not collapsed to their end.
  std::string sentence;
  std::size_t chars = 0;
  bool pending_space = false;
  std::size_t len = 0;
  for (std::size_t i = 0; i < text.size() && chars <= SUMMARY_CHARS; i += len) {
    if (whitespace_at(text, i, len)) {
      pending_space = !sentence.empty();
      continue;
    }
    if (pending_space) {
      if (ends_sentence(sentence.back())) break;
      sentence.push_back(' ');
      ++chars;
      pending_space = false;
    }
    sentence.append(text.substr(i, len));
    ++chars;
  }
  std::string summary = detail::cut(sentence, SUMMARY_CHARS);
  if (summary.empty()) return std::nullopt;
  return summary;
}

ResponseDict without_nulls(const ResponseDict& row) {
  ResponseDict out;
  out.reserve(row.size());
  for (const auto& [key, value] : row) {
    if (!value.is_null()) out.append(key, value);
  }
  return out;
}

ResponseDict without_nulls(ResponseDict&& row) {
  row.erase_if([](const ResponseDict::value_type& e) { return e.second.is_null(); });
  return std::move(row);
}

}  // namespace kestrune::mcp_responses
