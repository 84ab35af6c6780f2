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
  response.append("built", options.built);
  response.append("branch", std::move(options.branch));
  response.append("enabled", options.enabled);
  response.append("configured", options.configured);
  response.append("pages", options.pages);
  response.append("files_covered", options.files_covered);
  response.append("total_sources", options.total_sources);
  response.append("coverage_pct", options.coverage_pct);
  response.append("last_built", std::move(options.last_built));
  response.append("model", std::move(options.model));
  response.append("stale_pages", list_or_empty(options.stale_pages));
  return response;
}

ResponseDict build_wiki_list_response(ResponseList pages, std::int64_t total, std::int64_t offset, bool truncated) {
  const bool has_more = detail::has_more(offset, static_cast<std::int64_t>(pages.size()), total);
  ResponseDict response;
  response.reserve(5);
  response.append("pages", std::move(pages));
  response.append("total_count", total);
  response.append("offset", offset);
  response.append("truncated", truncated);
  response.append("has_more", has_more);
  return response;
}

ResponseDict build_wiki_read_response(WikiReadOptions options) {
  ResponseDict response;
  response.reserve(6);
  response.append("page_id", std::move(options.page_id));
  response.append("title", std::move(options.title));
  response.append("content", std::move(options.content));
  response.append("citations", list_or_empty(options.citations));
  response.append("source_files", list_or_empty(options.source_files));
  response.append("related_pages", list_or_empty(options.related_pages));
  return response;
}

}  // namespace kestrune::mcp_responses
