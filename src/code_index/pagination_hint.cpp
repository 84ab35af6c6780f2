// add_pagination_hint: how a truncated page tells the model to go on.
#include <array>
#include <charconv>
#include <string>
#include <string_view>

#include "code_index/pagination.hpp"
#include "encoding/encoded_size.hpp"
#include "kestrune/mcp_responses/code_index.hpp"

namespace kestrune::mcp_responses {

namespace {

// The hint's words, around its three numbers: the rows shown, the total and
// the next offset.
constexpr std::array<std::string_view, 4> kWords = {"Showing ", " of ",
                                                    " results. Call again with offset=", " for more."};

constexpr std::size_t kWordsSize = [] {
  std::size_t n = 0;
  for (const std::string_view w : kWords) n += w.size();
  return n;
}();

std::array<std::int64_t, 3> hint_numbers(std::int64_t count, std::int64_t total_count, std::int64_t offset) {
  // Wrap-around arithmetic: absurd offsets near INT64_MAX must not be UB.
  const auto next = static_cast<std::int64_t>(static_cast<std::uint64_t>(offset) + static_cast<std::uint64_t>(count));
  return {count, total_count, next};
}

// The paging keys are integers when the response was made by the builders;
// anything else is shown as 0 rather than failing the whole response.
std::int64_t integer_or_zero(const ResponseValue& v) { return v.is_integer() ? v.as_integer() : 0; }

}  // namespace

namespace detail {

std::string pagination_hint_text(std::string_view count, std::string_view total_count, std::string_view next_offset) {
  const std::array<std::string_view, 3> numbers = {count, total_count, next_offset};
  std::string text;
  text.reserve(kWordsSize + count.size() + total_count.size() + next_offset.size());
  for (std::size_t i = 0; i < kWords.size(); ++i) {
    text += kWords[i];
    if (i < numbers.size()) text += numbers[i];
  }
  return text;
}

std::string pagination_hint_text(std::int64_t count, std::int64_t total_count, std::int64_t offset) {
  const auto numbers = hint_numbers(count, total_count, offset);
  std::array<std::array<char, 20>, 3> digits{};
  std::array<std::string_view, 3> texts;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    char* end = std::to_chars(digits[i].data(), digits[i].data() + digits[i].size(), numbers[i]).ptr;
    texts[i] = std::string_view(digits[i].data(), static_cast<std::size_t>(end - digits[i].data()));
  }
  return pagination_hint_text(texts[0], texts[1], texts[2]);
}

std::size_t pagination_hint_size(std::int64_t count, std::int64_t total_count, std::int64_t offset) noexcept {
  std::size_t size = kWordsSize;
  for (const std::int64_t n : hint_numbers(count, total_count, offset)) size += integer_text_size(n);
  return size;
}

}  // namespace detail

ResponseDict add_pagination_hint(ResponseDict response, std::int64_t count) {
  const ResponseValue& truncated = response.get("truncated");
  if (!truncated.is_bool() || !truncated.as_bool()) return response;
  std::string hint = detail::pagination_hint_text(count, integer_or_zero(response.get("total_count")),
                                                  integer_or_zero(response.get("offset")));
  response.insert_or_assign("hint", std::move(hint));
  return response;
}

}  // namespace kestrune::mcp_responses
