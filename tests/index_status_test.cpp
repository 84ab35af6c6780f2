#include <gtest/gtest.h>

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {
namespace {

TEST(build_index_status_response, defaults_and_conditional_phase_keys) {
  EXPECT_EQ(tool_result_text(build_index_status_response("ready", "healthy", "main", 100)),
            R"({"status":"ready","health":"healthy","branch":"main","progress":100,"files_indexed":0,)"
            R"("symbols_indexed":0,"last_updated":null,"errors_count":0})");
  const struct {
    std::optional<std::string_view> phase, detail;
    std::string_view tail;
  } cases[] = {
      {"indexing files", "1234/5000", R"("errors_count":3,"phase":"indexing files","phase_detail":"1234/5000"})"},
      {"", "1234/5000", R"("errors_count":3,"phase_detail":"1234/5000"})"},
      {"resolving", std::nullopt, R"("errors_count":3,"phase":"resolving"})"},
      {std::nullopt, "", R"("errors_count":3})"},
  };
  for (const auto& c : cases) {
    const std::string text = tool_result_text(
        build_index_status_response("indexing", "degraded", std::nullopt, 40, 7, 9, "t", 3, c.phase, c.detail));
    EXPECT_TRUE(text.starts_with(R"({"status":"indexing","health":"degraded","branch":null,"progress":40,)"
                                 R"("files_indexed":7,"symbols_indexed":9,"last_updated":"t",)"))
        << text;
    EXPECT_TRUE(text.ends_with(c.tail)) << text;
  }
}

TEST(empty_tool_responses, table_entries_in_order) {
  const std::pair<std::string_view, std::string_view> expected[] = {
      {"status", R"({"status":"not_initialized","health":"unknown","branch":null,"progress":0,"files_indexed":0,)"
                 R"("symbols_indexed":0,"errors_count":0})"},
      {"search", R"({"symbols":[],"total_count":0,"truncated":false,"has_more":false,"offset":0})"},
      {"symbol", R"({"found":false,"message":"Repository not initialized"})"},
      {"file", R"({"error":"Repository not initialized","symbols":[]})"},
      {"files", R"({"files":[],"total_count":0,"truncated":false,"has_more":false,"offset":0})"},
      {"architecture", R"({"components":[]})"},
      {"git", R"({"error":"Repository not initialized","files":[],"total_count":0,"truncated":false,)"
              R"("has_more":false,"offset":0})"},
      {"quality", R"({"dead_symbols":[],"total_count":0,"truncated":false,"has_more":false,"offset":0})"},
      {"context", R"({"message":"Repository not initialized","status":"failed"})"},
      {"tests", R"({"tests":[],"total_count":0})"},
      {"explore", R"({"error":"Repository not initialized","results":[]})"},
      {"remember", R"({"error":"Repository not initialized"})"},
      {"wiki", R"({"built":false,"message":"Repository not initialized","pages":[]})"},
      {"force_reindex", R"({"message":"Repository not initialized","status":"failed"})"},
  };
  ASSERT_EQ(EMPTY_TOOL_RESPONSES.size(), std::size(expected));
  auto it = EMPTY_TOOL_RESPONSES.begin();
  for (const auto& [name, text] : expected) {
    EXPECT_EQ(it->first, name);
    EXPECT_EQ(tool_result_text(it->second), text) << name;
    EXPECT_EQ(tool_result_text(get_empty_response(name)), text) << name;
    ++it;
  }
}

TEST(get_empty_response, unknown_names_and_isolation_from_the_table) {
  for (const std::string_view name : {"", "unknown", "Search", "STATUS", "search "}) {
    EXPECT_EQ(get_empty_response(name), (ResponseDict{{"error", "Repository not initialized"}})) << name;
  }
  ResponseDict search = get_empty_response("search");
  search.insert_or_assign("extra", 1);
  search.at("symbols").as_list().emplace_back("row");
  const ResponseDict again = get_empty_response("search");
  EXPECT_FALSE(again.contains("extra"));
  EXPECT_TRUE(again.at("symbols").as_list().empty());
  EXPECT_TRUE(EMPTY_TOOL_RESPONSES.at("search").as_dict().at("symbols").as_list().empty());
}

}  // namespace
}  // namespace kestrune::mcp_responses
