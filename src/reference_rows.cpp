// Reference, API endpoint, component and test coverage rows.
#include <utility>

#include "kestrune/mcp_responses/code_index.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_reference(const Reference& reference, std::optional<std::string_view> code) {
  ResponseDict row;
  row.reserve(6);
  row.append("file", reference.file_path);
  row.append("line", reference.line);
  if (code) row.append("code", *code);
  if (reference.caller_symbol) {
    const ResponseDict& caller = *reference.caller_symbol;
    if (const ResponseValue& fqn = caller.get("fqn"); !fqn.is_null()) row.append("caller", fqn);
    if (const ResponseValue& kind = caller.get("kind"); !kind.is_null()) row.append("caller_kind", kind);
  }
  if (reference.usage_type) row.append("usage_type", *reference.usage_type);
  return row;
}

ResponseDict build_api_endpoint(const Symbol& symbol, std::optional<std::string_view> file_path,
                                std::optional<std::string_view> component_name) {
  ResponseDict row;
  row.reserve(7);
  row.append("fqn", symbol.fqn);
  row.append("name", symbol.name);
  row.append("kind", symbol.kind);
  row.append("file", file_path.value_or(""));
  row.append("line", symbol.start_line);
  row.append("signature", symbol.signature);
  row.append("component", component_name);
  return row;
}

ResponseDict build_component(const ComponentInfo& component) {
  ResponseDict row;
  row.reserve(5);
  row.append("name", component.name);
  row.append("layer", component.layer);
  row.append("path_pattern", component.path_pattern);
  row.append("file_count", component.file_count);
  row.append("symbol_count", component.symbol_count);
  return row;
}

ResponseDict build_test_coverage(std::string_view test_file, std::string_view source_file,
                                 std::optional<ResponseList> symbols_imported) {
  ResponseDict row;
  row.reserve(3);
  row.append("test_file", test_file);
  row.append("source_file", source_file);
  if (symbols_imported && !symbols_imported->empty()) row.append("symbols_imported", std::move(*symbols_imported));
  return row;
}

}  // namespace kestrune::mcp_responses
