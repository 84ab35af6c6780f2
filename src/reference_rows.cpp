// Reference, API endpoint, component and test coverage rows.
#include <utility>

#include "kestrune/mcp_responses/code_index.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_reference(const Reference& reference, std::optional<std::string_view> code) {
  ResponseDict row;
  row.reserve(6);
  detail::append_plain(row, "file", reference.file_path);
  detail::append_plain(row, "line", reference.line);
  if (code) detail::append_plain(row, "code", *code);
  if (reference.caller_symbol) {
    const ResponseDict& caller = *reference.caller_symbol;
    if (const ResponseValue& fqn = caller.get("fqn"); !fqn.is_null()) detail::append_plain(row, "caller", fqn);
    if (const ResponseValue& kind = caller.get("kind"); !kind.is_null()) detail::append_plain(row, "caller_kind", kind);
  }
  if (reference.usage_type) detail::append_plain(row, "usage_type", *reference.usage_type);
  return row;
}

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

ResponseDict build_test_coverage(std::string_view test_file, std::string_view source_file,
                                 std::optional<ResponseList> symbols_imported) {
  ResponseDict row;
  row.reserve(3);
  detail::append_plain(row, "test_file", test_file);
  detail::append_plain(row, "source_file", source_file);
  if (symbols_imported && !symbols_imported->empty())
    detail::append_plain(row, "symbols_imported", std::move(*symbols_imported));
  return row;
}

}  // namespace kestrune::mcp_responses
