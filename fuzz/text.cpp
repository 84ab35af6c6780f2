// Text shaping: cuts keep to their limit, never split a character, and
// return either the text itself or a stripped prefix plus the ellipsis.
#include <cstdint>
#include <string>
#include <string_view>

#include "check.hpp"
#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace mr = kestrune::mcp_responses;

namespace {

constexpr std::string_view kEllipsis = "\u2026";

bool at_char_boundary(std::string_view text, std::size_t pos) {
  std::size_t i = 0;
  while (i < pos) i += mr::detail::char_length(text, i);
  return i == pos;
}

// `result` is `text` unchanged, or (when `text` is longer than `limit`) a
// prefix ending at a character boundary, end stripped, plus the ellipsis.
void check_cut(std::string_view text, const std::string& result, std::int64_t limit, bool empty_below_two) {
  const std::size_t chars = mr::detail::char_count(text);
  if (limit >= 0 && chars <= static_cast<std::size_t>(limit)) {
    FUZZ_CHECK(result == text);
    return;
  }
  if (empty_below_two && limit <= 1) {
    FUZZ_CHECK(result.empty());
    return;
  }
  FUZZ_CHECK(std::string_view(result).ends_with(kEllipsis));
  const std::string_view prefix = std::string_view(result).substr(0, result.size() - kEllipsis.size());
  FUZZ_CHECK(text.starts_with(prefix));
  FUZZ_CHECK(at_char_boundary(text, prefix.size()));
  FUZZ_CHECK(mr::detail::strip_end(prefix) == prefix);
  FUZZ_CHECK(mr::detail::char_count(result) <= static_cast<std::size_t>(limit));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const auto raw = static_cast<std::int64_t>(data[0] | (data[1] << 8));
  const std::string_view text(reinterpret_cast<const char*>(data + 2), size - 2);

  const std::int64_t cut_limit = raw % 260 + 1;  // cut takes limits of at least 1
  check_cut(text, mr::detail::cut(text, static_cast<std::size_t>(cut_limit)), cut_limit, false);

  const std::int64_t trim_limit = raw % 270 - 5;  // trimmed also sees zero and negatives
  check_cut(text, mr::detail::trimmed(text, trim_limit), trim_limit, true);

  if (const auto summary = mr::first_sentence(text)) {
    const std::size_t chars = mr::detail::char_count(*summary);
    FUZZ_CHECK(chars >= 1 && chars <= mr::SUMMARY_CHARS);
    FUZZ_CHECK(mr::detail::strip(*summary) == *summary);
    FUZZ_CHECK(summary->find("  ") == std::string::npos);
  }
  return 0;
}
