// Fitting a page to a size: the longest prefix of the rows whose response
// stays within the bytes a host accepts.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "code_index/pagination.hpp"
#include "encoding/encoded_size.hpp"
#include "encoding/escapes.hpp"
#include "encoding/layout.hpp"
#include "internal/has_more.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {

namespace {

// The size of the page of the first n rows, from the sizes of its parts:
// the paging facts with an empty list, measured once for each value of the
// flags; the hint's member, measured once and grown by the digits that its
// numbers gain; and the rows with their commas.
class PageSizes {
 public:
  PageSizes(std::string_view items_key, std::int64_t total_count, std::int64_t offset)
      : total_(total_count), offset_(offset) {
    using detail::encoded_size;
    ResponseDict last_page = detail::paging_facts({}, std::string(items_key), total_count, offset, false);
    without_more_ = encoded_size(last_page) - kEmptyList;
    if (detail::has_more(offset, 0, total_count)) {
      ResponseDict facts = detail::paging_facts({}, std::string(items_key), total_count, offset, true);
      with_more_ = encoded_size(add_pagination_hint(std::move(facts), 0)) - kEmptyList -
                   detail::pagination_hint_size(0, total_count, offset);
    }
  }

  // size: the response's size for the first n rows, whose sizes sum to `rows`.
  [[nodiscard]] std::size_t size(std::size_t n, std::size_t rows) const noexcept {
    const auto count = static_cast<std::int64_t>(n);
    const std::size_t facts = detail::has_more(offset_, count, total_)
                                  ? with_more_ + detail::pagination_hint_size(count, total_, offset_)
                                  : without_more_;
    return facts + detail::list_size(rows, n);
  }

 private:
  static constexpr std::size_t kEmptyList = detail::list_size(0, 0);
  std::int64_t total_;
  std::int64_t offset_;
  std::size_t without_more_ = 0;  // the facts without the list, has_more false
  std::size_t with_more_ = 0;     // with has_more true and the hint, less the hint's text
};

// Throws the EncodingError of the page of all rows for its row `i`.
[[noreturn]] void throw_ill_formed(const ResponseValue& row, std::string_view items_key, std::size_t i) {
  std::string where = "$.";
  detail::append_escaped(where, items_key);
  where += '[' + std::to_string(i) + ']';
  std::optional<detail::IllFormedAt> at = detail::locate_ill_formed(row, std::move(where));
  throw EncodingError(std::move(at->where), at->byte);
}

}  // namespace

ResponseDict fit_paginated_response(ResponseList items, std::int64_t total_count, std::int64_t offset,
                                    std::size_t max_bytes, PaginatedOptions options) {
  const PageSizes page(options.items_key, total_count, offset);
  // rows[n]: the sizes of the first n rows, summed.
  std::vector<std::size_t> rows(items.size() + 1, 0);
  for (std::size_t i = 0; i < items.size(); ++i) {
    const std::size_t size = detail::size_or_ill_formed(items[i]);
    if (size == detail::kIllFormed) throw_ill_formed(items[i], options.items_key, i);
    rows[i + 1] = rows[i] + size;
  }
  // A page that holds the last rows carries no hint, so a longer page may
  // fit where a shorter one does not: every length is checked.
  std::size_t n = items.size();
  while (n > 0 && page.size(n, rows[n]) > max_bytes) --n;
  items.erase(items.begin() + static_cast<std::ptrdiff_t>(n), items.end());
  return build_paginated_response(std::move(items), total_count, offset, std::move(options));
}

}  // namespace kestrune::mcp_responses
