// Calls of the code-index builders.
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "calls.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "records.hpp"

namespace kestrune::tool {

namespace mr = mcp_responses;

namespace {

// Where a call reads several arguments, it reads them last to first, the
// order in which the tool has always reported the first bad one.

mr::ResponseValue build_paginated_response(Args& a) {
  const std::string items_key = a.string_or("items_key", "items");
  const std::int64_t offset = a.integer("offset");
  const std::int64_t total_count = a.integer("total_count");
  return mr::build_paginated_response(a.list("items"), total_count, offset, {.items_key = items_key});
}

mr::ResponseValue build_empty_paginated_response(Args& a) {
  return mr::build_empty_paginated_response(a.string_or("items_key", "items"));
}

mr::ResponseValue build_index_status_response(Args& a) {
  const auto branch = a.nullable_string("branch");
  const auto last_updated = a.nullable_string("last_updated");
  const auto phase = a.nullable_string("phase");
  const auto phase_detail = a.nullable_string("phase_detail");
  const std::int64_t errors_count = a.integer_or("errors_count", 0);
  const std::int64_t symbols_indexed = a.integer_or("symbols_indexed", 0);
  const std::int64_t files_indexed = a.integer_or("files_indexed", 0);
  const std::int64_t progress = a.integer("progress");
  const std::string health = a.string("health");
  const std::string status = a.string("status");
  return mr::build_index_status_response({.status = status,
                                          .health = health,
                                          .branch = branch,
                                          .progress = progress,
                                          .files_indexed = files_indexed,
                                          .symbols_indexed = symbols_indexed,
                                          .last_updated = last_updated,
                                          .errors_count = errors_count,
                                          .phase = phase,
                                          .phase_detail = phase_detail});
}

mr::ResponseValue get_empty_response(Args& a) { return mr::get_empty_response(a.string("tool_name")); }

mr::ResponseValue build_symbol_search_result(Args& a) {
  const mr::Symbol symbol = symbol_arg(a, "symbol");
  const auto file_path = a.nullable_string("file_path");
  return mr::build_symbol_search_result(symbol, file_path);
}

mr::ResponseValue build_symbol_full_details(Args& a) {
  const mr::Symbol symbol = symbol_arg(a, "symbol");
  const auto file_path = a.nullable_string("file_path");
  return mr::build_symbol_full_details(symbol, file_path);
}

mr::ResponseValue outline_module(Args& a) {
  const mr::ResponseList fqns = a.list("fqns");
  std::vector<std::string_view> names;
  names.reserve(fqns.size());
  for (std::size_t i = 0; i < fqns.size(); ++i) {
    if (!fqns[i].is_string()) {
      throw wrong_kind("element " + std::to_string(i) + " of argument \"fqns\"", "a string", fqns[i]);
    }
    names.emplace_back(fqns[i].as_string());
  }
  return mr::outline_module(names);
}

// A null module counts as the empty one, as it does for the builder's callers.
mr::ResponseValue build_file_symbol(Args& a) {
  const mr::Symbol symbol = symbol_arg(a, "symbol");
  return mr::build_file_symbol(symbol, a.nullable_string("module").value_or(""));
}

mr::ResponseValue build_reference(Args& a) {
  const mr::Reference reference = reference_arg(a, "reference");
  return mr::build_reference(reference, a.nullable_string("code"));
}

mr::ResponseValue build_api_endpoint(Args& a) {
  const mr::Symbol symbol = symbol_arg(a, "symbol");
  auto file_path = a.nullable_string("file_path");
  auto component_name = a.nullable_string("component_name");
  return mr::build_api_endpoint(symbol,
                                {.file_path = std::move(file_path), .component_name = std::move(component_name)});
}

mr::ResponseValue build_component(Args& a) { return mr::build_component(component_arg(a, "component")); }

mr::ResponseValue build_test_coverage(Args& a) {
  std::optional<mr::ResponseList> symbols_imported = a.nullable_list("symbols_imported");
  std::string source_file = a.string("source_file");
  return mr::build_test_coverage({.test_file = a.string("test_file"),
                                  .source_file = std::move(source_file),
                                  .symbols_imported = std::move(symbols_imported)});
}

constexpr Call kCalls[] = {
    {"build_paginated_response", build_paginated_response},
    {"build_empty_paginated_response", build_empty_paginated_response},
    {"build_index_status_response", build_index_status_response},
    {"get_empty_response", get_empty_response},
    {"build_symbol_search_result", build_symbol_search_result},
    {"build_symbol_full_details", build_symbol_full_details},
    {"outline_module", outline_module},
    {"build_file_symbol", build_file_symbol},
    {"build_reference", build_reference},
    {"build_api_endpoint", build_api_endpoint},
    {"build_component", build_component},
    {"build_test_coverage", build_test_coverage},
};

}  // namespace

std::span<const Call> index_calls() { return kCalls; }

}  // namespace kestrune::tool
