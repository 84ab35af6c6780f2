// build_wiki_read_response: the answer of the wiki tool's "read" action.
#include "kestrune/mcp_responses/wiki.hpp"
#include "types/value_access.hpp"
#include "wiki/list_or_empty.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_wiki_read_response(WikiReadOptions options) {
  ResponseDict response;
  response.reserve(6);
  detail::append_plain(response, "page_id", *std::move(options.page_id));
  detail::append_plain(response, "title", *std::move(options.title));
  detail::append_plain(response, "content", *std::move(options.content));
  detail::append_plain(response, "citations", detail::list_or_empty(options.citations));
  detail::append_plain(response, "source_files", detail::list_or_empty(options.source_files));
  detail::append_plain(response, "related_pages", detail::list_or_empty(options.related_pages));
  return response;
}

}  // namespace kestrune::mcp_responses
