// build_index_status_response: the IndexStatusResponse of the status tool.
#include <utility>

#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_index_status_response(IndexStatusOptions options) {
  ResponseDict response;
  response.reserve(10);
  detail::append_plain(response, "status", *std::move(options.status));
  detail::append_plain(response, "health", *std::move(options.health));
  detail::append_plain(response, "branch", *std::move(options.branch));
  detail::append_plain(response, "progress", *options.progress);
  detail::append_plain(response, "files_indexed", options.files_indexed);
  detail::append_plain(response, "symbols_indexed", options.symbols_indexed);
  detail::append_plain(response, "last_updated", std::move(options.last_updated));
  detail::append_plain(response, "errors_count", options.errors_count);
  if (options.phase && !options.phase->empty()) detail::append_plain(response, "phase", *std::move(options.phase));
  if (options.phase_detail && !options.phase_detail->empty()) {
    detail::append_plain(response, "phase_detail", *std::move(options.phase_detail));
  }
  return response;
}

}  // namespace kestrune::mcp_responses
