#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"

namespace kestrune::mcp_responses {
namespace {

TEST(wiki_status_response, defaults_fill_every_key_in_order) {
  EXPECT_EQ(tool_result_text(build_wiki_status_response({.built = false, .branch = "main"})),
            R"({"built":false,"branch":"main","enabled":false,"configured":false,"pages":0,"files_covered":0,)"
            R"("total_sources":0,"coverage_pct":0.0,"last_built":null,"model":null,"stale_pages":[]})");
}

TEST(wiki_status_response, places_enabled_and_configured_third_and_fourth) {
  const ResponseDict r = build_wiki_status_response({.built = true,
                                                     .branch = "dev",
                                                     .pages = 4,
                                                     .files_covered = 9,
                                                     .total_sources = 12,
                                                     .coverage_pct = 75.0,
                                                     .last_built = "2024-05-01T10:00:00",
                                                     .model = "m-1",
                                                     .stale_pages = ResponseList{"a", "b"},
                                                     .enabled = true,
                                                     .configured = true});
  EXPECT_EQ(tool_result_text(r),
            R"({"built":true,"branch":"dev","enabled":true,"configured":true,"pages":4,"files_covered":9,)"
            R"("total_sources":12,"coverage_pct":75.0,"last_built":"2024-05-01T10:00:00","model":"m-1",)"
            R"("stale_pages":["a","b"]})");
  const ResponseDict empty = build_wiki_status_response({.branch = "b", .stale_pages = ResponseList{}});
  EXPECT_EQ(empty.at("stale_pages"), ResponseValue(ResponseList{}));
}

TEST(wiki_list_response, has_more_and_truncated_are_independent) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  const struct {
    std::size_t rows;
    std::int64_t total, offset;
    bool truncated, has_more;
  } cases[] = {
      {2, 5, 0, false, true},  {5, 5, 0, true, false},        {3, 10, 7, false, false},
      {3, 10, 6, false, true}, {0, 0, 0, false, false},       {0, 1, 0, false, true},
      {2, 1, 0, true, false},  {1, kMax, kMax, false, false}, {1, kMax, kMax - 2, false, true},
  };
  for (const auto& c : cases) {
    const ResponseDict r =
        build_wiki_list_response(ResponseList(c.rows, ResponseDict{{"id", 1}}), c.total, c.offset, c.truncated);
    const std::string text = tool_result_text(r);
    EXPECT_EQ(r.at("truncated"), ResponseValue(c.truncated)) << text;
    EXPECT_EQ(r.at("has_more"), ResponseValue(c.has_more)) << text;
  }
  EXPECT_EQ(tool_result_text(build_wiki_list_response(ResponseList{"p"}, 3)),
            R"({"pages":["p"],"total_count":3,"offset":0,"truncated":false,"has_more":true})");
}

TEST(wiki_read_response, lists_default_to_empty_after_content) {
  EXPECT_EQ(tool_result_text(build_wiki_read_response({.page_id = "p1", .title = "T", .content = "body"})),
            R"({"page_id":"p1","title":"T","content":"body","citations":[],"source_files":[],"related_pages":[]})");
  const ResponseDict r = build_wiki_read_response({.page_id = "p",
                                                   .title = "t",
                                                   .content = "c",
                                                   .citations = ResponseList{ResponseDict{{"path", "a.py"}}},
                                                   .source_files = ResponseList{},
                                                   .related_pages = ResponseList{"q"}});
  EXPECT_EQ(tool_result_text(r),
            R"({"page_id":"p","title":"t","content":"c","citations":[{"path":"a.py"}],"source_files":[],)"
            R"("related_pages":["q"]})");
}

}  // namespace
}  // namespace kestrune::mcp_responses
