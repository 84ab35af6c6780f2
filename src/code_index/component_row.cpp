// build_component: the ComponentInfoResponse of an architecture component.
#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_component(const ComponentInfo& component) {
  ResponseDict row;
  row.reserve(5);
  detail::append_plain(row, "name", component.name);
  detail::append_plain(row, "layer", component.layer);
  detail::append_plain(row, "path_pattern", component.path_pattern);
  detail::append_plain(row, "file_count", component.file_count);
  detail::append_plain(row, "symbol_count", component.symbol_count);
  return row;
}

}  // namespace kestrune::mcp_responses
