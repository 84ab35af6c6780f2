// Paginated responses: one page of rows with its paging facts.
#include "code_index/pagination.hpp"
#include "internal/has_more.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace detail {

ResponseDict paging_facts(ResponseList items, std::string items_key, std::int64_t total_count, std::int64_t offset,
                          bool has_more) {
  ResponseDict response;
  response.reserve(6);  // room for the hint
  response.append(std::move(items_key), std::move(items));
  append_plain(response, "total_count", total_count);
  append_plain(response, "truncated", has_more);
  append_plain(response, "has_more", has_more);
  append_plain(response, "offset", offset);
  return response;
}

}  // namespace detail

ResponseDict build_paginated_response(ResponseList items, std::int64_t total_count, std::int64_t offset,
                                      PaginatedOptions options) {
  const auto count = static_cast<std::int64_t>(items.size());
  const bool has_more = detail::has_more(offset, count, total_count);
  return add_pagination_hint(
      detail::paging_facts(std::move(items), std::move(options.items_key), total_count, offset, has_more), count);
}

ResponseDict build_empty_paginated_response(std::string_view items_key) {
  return detail::paging_facts({}, std::string(items_key), 0, 0, false);
}

}  // namespace kestrune::mcp_responses
