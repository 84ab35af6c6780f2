// Paginated responses: one page of rows with its paging facts.
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/utils/pagination.hpp"
#include "paging.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_paginated_response(ResponseList items, std::int64_t total_count, std::int64_t offset,
                                      PaginatedOptions options) {
  const auto count = static_cast<std::int64_t>(items.size());
  const bool has_more = detail::has_more(offset, count, total_count);
  ResponseDict response;
  response.reserve(6);  // room for the hint
  response.append(std::string(options.items_key), std::move(items));
  detail::append_plain(response, "total_count", total_count);
  detail::append_plain(response, "truncated", has_more);
  detail::append_plain(response, "has_more", has_more);
  detail::append_plain(response, "offset", offset);
  return utils::add_pagination_hint(std::move(response), count);
}

ResponseDict build_empty_paginated_response(std::string_view items_key) {
  ResponseDict response;
  response.reserve(5);
  response.append(std::string(items_key), ResponseList{});
  detail::append_plain(response, "total_count", 0);
  detail::append_plain(response, "truncated", false);
  detail::append_plain(response, "has_more", false);
  detail::append_plain(response, "offset", 0);
  return response;
}

}  // namespace kestrune::mcp_responses
