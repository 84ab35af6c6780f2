// build_wiki_status_response: the answer of the wiki tool's "status" action.
#include "kestrune/mcp_responses/wiki.hpp"
#include "types/value_access.hpp"
#include "wiki/list_or_empty.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_wiki_status_response(WikiStatusOptions options) {
  ResponseDict response;
  response.reserve(11);
  detail::append_plain(response, "built", *options.built);
  detail::append_plain(response, "branch", *std::move(options.branch));
  detail::append_plain(response, "enabled", options.enabled);
  detail::append_plain(response, "configured", options.configured);
  detail::append_plain(response, "pages", options.pages);
  detail::append_plain(response, "files_covered", options.files_covered);
  detail::append_plain(response, "total_sources", options.total_sources);
  detail::append_plain(response, "coverage_pct", options.coverage_pct);
  detail::append_plain(response, "last_built", std::move(options.last_built));
  detail::append_plain(response, "model", std::move(options.model));
  detail::append_plain(response, "stale_pages", detail::list_or_empty(options.stale_pages));
  return response;
}

}  // namespace kestrune::mcp_responses
