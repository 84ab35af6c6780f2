// Wiki status, list and read responses: fixed keys, order and defaults.
#include "kestrune/mcp_responses/wiki.hpp"
#include "paging.hpp"

namespace kestrune::mcp_responses {

namespace {

// A null or empty list becomes a new empty list; a filled one is moved in.
ResponseList list_or_empty(std::optional<ResponseList>& list) {
  if (!list || list->empty()) return {};
  return std::move(*list);
}

}  // namespace

ResponseDict build_wiki_status_response(WikiStatusOptions options) {
  ResponseDict response;
  response.reserve(11);
  detail::append_plain(response, "built", options.built);
  detail::append_plain(response, "branch", std::move(options.branch));
  detail::append_plain(response, "enabled", options.enabled);
  detail::append_plain(response, "configured", options.configured);
  detail::append_plain(response, "pages", options.pages);
  detail::append_plain(response, "files_covered", options.files_covered);
  detail::append_plain(response, "total_sources", options.total_sources);
  detail::append_plain(response, "coverage_pct", options.coverage_pct);
  detail::append_plain(response, "last_built", std::move(options.last_built));
  detail::append_plain(response, "model", std::move(options.model));
  detail::append_plain(response, "stale_pages", list_or_empty(options.stale_pages));
  return response;
}

ResponseDict build_wiki_list_response(ResponseList pages, std::int64_t total, std::int64_t offset, bool truncated) {
  const bool has_more = detail::has_more(offset, static_cast<std::int64_t>(pages.size()), total);
  ResponseDict response;
  response.reserve(5);
  detail::append_plain(response, "pages", std::move(pages));
  detail::append_plain(response, "total_count", total);
  detail::append_plain(response, "offset", offset);
  detail::append_plain(response, "truncated", truncated);
  detail::append_plain(response, "has_more", has_more);
  return response;
}

ResponseDict build_wiki_read_response(WikiReadOptions options) {
  ResponseDict response;
  response.reserve(6);
  detail::append_plain(response, "page_id", std::move(options.page_id));
  detail::append_plain(response, "title", std::move(options.title));
  detail::append_plain(response, "content", std::move(options.content));
  detail::append_plain(response, "citations", list_or_empty(options.citations));
  detail::append_plain(response, "source_files", list_or_empty(options.source_files));
  detail::append_plain(response, "related_pages", list_or_empty(options.related_pages));
  return response;
}

}  // namespace kestrune::mcp_responses
