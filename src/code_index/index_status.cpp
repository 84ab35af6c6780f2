// build_index_status_response: the IndexStatusResponse of the status tool.
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

ResponseValue text_or_null(std::optional<std::string_view> s) { return s ? ResponseValue(*s) : ResponseValue(); }

}  // namespace

ResponseDict build_index_status_response(const IndexStatusOptions& options) {
  ResponseDict response;
  response.reserve(10);
  detail::append_plain(response, "status", *options.status);
  detail::append_plain(response, "health", *options.health);
  detail::append_plain(response, "branch", text_or_null(*options.branch));
  detail::append_plain(response, "progress", *options.progress);
  detail::append_plain(response, "files_indexed", options.files_indexed);
  detail::append_plain(response, "symbols_indexed", options.symbols_indexed);
  detail::append_plain(response, "last_updated", text_or_null(options.last_updated));
  detail::append_plain(response, "errors_count", options.errors_count);
  if (options.phase && !options.phase->empty()) detail::append_plain(response, "phase", *options.phase);
  if (options.phase_detail && !options.phase_detail->empty()) {
    detail::append_plain(response, "phase_detail", *options.phase_detail);
  }
  return response;
}

}  // namespace kestrune::mcp_responses
