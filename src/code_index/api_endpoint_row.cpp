// build_api_endpoint: the ApiEndpointInfo of an endpoint's symbol.
#include <utility>

#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_api_endpoint(const Symbol& symbol, ApiEndpointOptions options) {
  ResponseDict row;
  row.reserve(7);
  detail::append_plain(row, "fqn", symbol.fqn);
  detail::append_plain(row, "name", symbol.name);
  detail::append_plain(row, "kind", symbol.kind);
  detail::append_plain(row, "file", std::move(options.file_path).value_or(""));
  detail::append_plain(row, "line", symbol.start_line);
  detail::append_plain(row, "signature", symbol.signature);
  detail::append_plain(row, "component", std::move(options.component_name));
  return row;
}

}  // namespace kestrune::mcp_responses
