// build_wiki_list_response: the answer of the wiki tool's "list" action.
#include "internal/has_more.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_wiki_list_response(ResponseList pages, std::int64_t total, std::int64_t offset,
                                      Truncated truncated) {
  const bool has_more = detail::has_more(offset, static_cast<std::int64_t>(pages.size()), total);
  ResponseDict response;
  response.reserve(5);
  detail::append_plain(response, "pages", std::move(pages));
  detail::append_plain(response, "total_count", total);
  detail::append_plain(response, "offset", offset);
  detail::append_plain(response, "truncated", truncated == Truncated::yes);
  detail::append_plain(response, "has_more", has_more);
  return response;
}

}  // namespace kestrune::mcp_responses
