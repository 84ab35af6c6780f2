// build_api_endpoint: the ApiEndpointInfo of an endpoint's symbol.
#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_api_endpoint(const Symbol& symbol, std::optional<std::string_view> file_path,
                                std::optional<std::string_view> component_name) {
  ResponseDict row;
  row.reserve(7);
  detail::append_plain(row, "fqn", symbol.fqn);
  detail::append_plain(row, "name", symbol.name);
  detail::append_plain(row, "kind", symbol.kind);
  detail::append_plain(row, "file", file_path.value_or(""));
  detail::append_plain(row, "line", symbol.start_line);
  detail::append_plain(row, "signature", symbol.signature);
  detail::append_plain(row, "component", component_name);
  return row;
}

}  // namespace kestrune::mcp_responses
