// The canned responses for a repository that is not initialized.
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

constexpr std::string_view kNotInitialized = "Repository not initialized";

ResponseDict build_table() {
  ResponseDict t;
  t.reserve(14);
  detail::append_plain(t, "status",
                       ResponseDict{{"status", "not_initialized"},
                                    {"health", "unknown"},
                                    {"branch", nullptr},
                                    {"progress", 0},
                                    {"files_indexed", 0},
                                    {"symbols_indexed", 0},
                                    {"errors_count", 0}});
  detail::append_plain(t, "search", build_empty_paginated_response("symbols"));
  detail::append_plain(t, "symbol", ResponseDict{{"found", false}, {"message", kNotInitialized}});
  detail::append_plain(t, "file", ResponseDict{{"error", kNotInitialized}, {"symbols", ResponseList{}}});
  detail::append_plain(t, "files", build_empty_paginated_response("files"));
  detail::append_plain(t, "architecture", ResponseDict{{"components", ResponseList{}}});
  detail::append_plain(t, "git",
                       ResponseDict{{"error", kNotInitialized},
                                    {"files", ResponseList{}},
                                    {"total_count", 0},
                                    {"truncated", false},
                                    {"has_more", false},
                                    {"offset", 0}});
  detail::append_plain(t, "quality",
                       ResponseDict{{"dead_symbols", ResponseList{}},
                                    {"total_count", 0},
                                    {"truncated", false},
                                    {"has_more", false},
                                    {"offset", 0}});
  detail::append_plain(t, "context", ResponseDict{{"message", kNotInitialized}, {"status", "failed"}});
  detail::append_plain(t, "tests", ResponseDict{{"tests", ResponseList{}}, {"total_count", 0}});
  detail::append_plain(t, "explore", ResponseDict{{"error", kNotInitialized}, {"results", ResponseList{}}});
  detail::append_plain(t, "remember", ResponseDict{{"error", kNotInitialized}});
  detail::append_plain(t, "wiki",
                       ResponseDict{{"built", false}, {"message", kNotInitialized}, {"pages", ResponseList{}}});
  detail::append_plain(t, "force_reindex", ResponseDict{{"message", kNotInitialized}, {"status", "failed"}});
  return t;
}

}  // namespace

const ResponseDict& EmptyToolResponses::operator*() const noexcept {
  static const ResponseDict table = build_table();
  return table;
}

ResponseDict get_empty_response(std::string_view tool_name) {
  // The entries are copied whole, lists included, so a caller that fills a
  // list of its response never changes the table.
  if (const ResponseValue* entry = EMPTY_TOOL_RESPONSES->find(tool_name)) return entry->as_dict();
  return ResponseDict{{"error", kNotInitialized}};
}

}  // namespace kestrune::mcp_responses
