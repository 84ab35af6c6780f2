// The index status response and the canned not-initialized responses.
#include "kestrune/mcp_responses/code_index.hpp"

namespace kestrune::mcp_responses {

namespace {

constexpr std::string_view kNotInitialized = "Repository not initialized";

ResponseValue text_or_null(std::optional<std::string_view> s) { return s ? ResponseValue(*s) : ResponseValue(); }

ResponseDict build_table() {
  ResponseDict t;
  t.reserve(14);
  t.append("status", ResponseDict{{"status", "not_initialized"},
                                  {"health", "unknown"},
                                  {"branch", nullptr},
                                  {"progress", 0},
                                  {"files_indexed", 0},
                                  {"symbols_indexed", 0},
                                  {"errors_count", 0}});
  t.append("search", build_empty_paginated_response("symbols"));
  t.append("symbol", ResponseDict{{"found", false}, {"message", kNotInitialized}});
  t.append("file", ResponseDict{{"error", kNotInitialized}, {"symbols", ResponseList{}}});
  t.append("files", build_empty_paginated_response("files"));
  t.append("architecture", ResponseDict{{"components", ResponseList{}}});
  t.append("git", ResponseDict{{"error", kNotInitialized},
                               {"files", ResponseList{}},
                               {"total_count", 0},
                               {"truncated", false},
                               {"has_more", false},
                               {"offset", 0}});
  t.append("quality", ResponseDict{{"dead_symbols", ResponseList{}},
                                   {"total_count", 0},
                                   {"truncated", false},
                                   {"has_more", false},
                                   {"offset", 0}});
  t.append("context", ResponseDict{{"message", kNotInitialized}, {"status", "failed"}});
  t.append("tests", ResponseDict{{"tests", ResponseList{}}, {"total_count", 0}});
  t.append("explore", ResponseDict{{"error", kNotInitialized}, {"results", ResponseList{}}});
  t.append("remember", ResponseDict{{"error", kNotInitialized}});
  t.append("wiki", ResponseDict{{"built", false}, {"message", kNotInitialized}, {"pages", ResponseList{}}});
  t.append("force_reindex", ResponseDict{{"message", kNotInitialized}, {"status", "failed"}});
  return t;
}

}  // namespace

ResponseDict build_index_status_response(std::string_view status, std::string_view health,
                                         std::optional<std::string_view> branch, std::int64_t progress,
                                         std::int64_t files_indexed, std::int64_t symbols_indexed,
                                         std::optional<std::string_view> last_updated, std::int64_t errors_count,
                                         std::optional<std::string_view> phase,
                                         std::optional<std::string_view> phase_detail) {
  ResponseDict response;
  response.reserve(10);
  response.append("status", status);
  response.append("health", health);
  response.append("branch", text_or_null(branch));
  response.append("progress", progress);
  response.append("files_indexed", files_indexed);
  response.append("symbols_indexed", symbols_indexed);
  response.append("last_updated", text_or_null(last_updated));
  response.append("errors_count", errors_count);
  if (phase && !phase->empty()) response.append("phase", *phase);
  if (phase_detail && !phase_detail->empty()) response.append("phase_detail", *phase_detail);
  return response;
}

namespace detail {

const ResponseDict& empty_tool_responses() noexcept {
  static const ResponseDict table = build_table();
  return table;
}

}  // namespace detail

ResponseDict get_empty_response(std::string_view tool_name) {
  // The entries are copied whole, lists included, so a caller that fills a
  // list of its response never changes the table.
  if (const ResponseValue* entry = detail::empty_tool_responses().find(tool_name)) return entry->as_dict();
  return ResponseDict{{"error", kNotInitialized}};
}

}  // namespace kestrune::mcp_responses
