#include "text/cut.hpp"

#include "internal/utf8.hpp"
#include "text/strip.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// Whether `rest` holds at most one character.
bool fits_one_char(std::string_view rest) noexcept { return rest.empty() || char_length(rest, 0) == rest.size(); }

std::string with_ellipsis(std::string_view kept) {
  std::string out;
  out.reserve(kept.size() + kEllipsis.size());
  out.append(kept);
  out.append(kEllipsis);
  return out;
}

// UTF-8 read for plan_trim and plan_cut: positions are bytes. A space byte
// always starts a character, so a byte search finds the last space.
struct Utf8Text {
  std::string_view s;
  Utf8 known;
  [[nodiscard]] std::size_t size() const noexcept { return s.size(); }
  [[nodiscard]] bool known_well_formed() const noexcept { return known == Utf8::well_formed; }
  [[nodiscard]] CharOffset offset(std::size_t n) const noexcept { return char_offset(s, n, known); }
  [[nodiscard]] bool one_char_from(std::size_t pos) const noexcept { return fits_one_char(s.substr(pos)); }
  [[nodiscard]] std::size_t last_space(std::size_t end) const noexcept { return s.substr(0, end).rfind(' '); }
  [[nodiscard]] std::size_t chars(std::size_t from, std::size_t to) const noexcept {
    return char_count(s.substr(from, to - from));
  }
  [[nodiscard]] std::size_t stripped(std::size_t end) const noexcept { return strip_end(s.substr(0, end)).size(); }
};

}  // namespace

std::string cut(std::string_view text, std::size_t chars) {
  return trimmed_text(text, plan_cut(Utf8Text{text, Utf8::unchecked}, chars));
}

std::string trimmed(std::string_view text, std::int64_t chars) { return trimmed_text(text, plan_trimmed(text, chars)); }

Trim plan_trimmed(std::string_view text, std::int64_t chars, Utf8 known) noexcept {
  return plan_trim(Utf8Text{text, known}, chars);
}

std::string trimmed_text(std::string_view text, const Trim& trim) {
  const std::string_view kept = text.substr(0, trim.kept);
  return trim.ellipsis ? with_ellipsis(kept) : std::string(kept);
}

}  // namespace kestrune::mcp_responses::detail
