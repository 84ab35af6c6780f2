#include <gtest/gtest.h>

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/utils/pagination.hpp"

namespace kestrune::mcp_responses {
namespace {

ResponseList rows(int n) {
  ResponseList l;
  for (int i = 0; i < n; ++i) l.emplace_back(i);
  return l;
}

TEST(build_paginated_response, has_more_is_offset_plus_rows_below_total) {
  const struct {
    int rows;
    std::int64_t offset, total;
    bool more;
  } cases[] = {
      {3, 0, 3, false},
      {3, 0, 4, true},
      {10, 20, 30, false},
      {0, 0, 5, true},
      {0, 50, 30, false},
      {2, -5, 0, true},  // odd inputs pass through the same rule
      {1, INT64_MAX, INT64_MAX, false},
      {1, INT64_MIN, 0, true},
  };
  for (const auto& c : cases) {
    const ResponseDict r = build_paginated_response(rows(c.rows), c.total, c.offset);
    EXPECT_EQ(r.at("truncated"), ResponseValue(c.more)) << c.rows << " " << c.offset << " " << c.total;
    EXPECT_EQ(r.at("has_more"), ResponseValue(c.more));
    EXPECT_EQ(r.contains("hint"), c.more);
  }
}

TEST(build_paginated_response, key_order_and_hint) {
  EXPECT_EQ(tool_result_text(build_paginated_response(rows(2), 2, 0)),
            R"({"items":[0,1],"total_count":2,"truncated":false,"has_more":false,"offset":0})");
  EXPECT_EQ(tool_result_text(build_paginated_response(rows(2), 9, 4, {.items_key = "symbols"})),
            R"({"symbols":[0,1],"total_count":9,"truncated":true,"has_more":true,"offset":4,)"
            R"("hint":"Showing 2 of 9 results. Call again with offset=6 for more."})");
}

TEST(add_pagination_hint, leaves_untruncated_responses_alone) {
  const ResponseDict plain{{"items", ResponseList{}}, {"truncated", false}};
  EXPECT_EQ(utils::add_pagination_hint(plain, 0), plain);
  // An existing hint is replaced in place, not duplicated.
  const ResponseDict r = utils::add_pagination_hint(
      ResponseDict{{"hint", "old"}, {"total_count", 5}, {"truncated", true}, {"offset", 1}}, 2);
  EXPECT_EQ(tool_result_text(r),
            R"({"hint":"Showing 2 of 5 results. Call again with offset=3 for more.","total_count":5,)"
            R"("truncated":true,"offset":1})");
}

TEST(build_empty_paginated_response, shape_without_hint_and_fresh_lists) {
  EXPECT_EQ(tool_result_text(build_empty_paginated_response("files")),
            R"({"files":[],"total_count":0,"truncated":false,"has_more":false,"offset":0})");
  EXPECT_EQ(build_empty_paginated_response().begin()->first, "items");
  ResponseDict a = build_empty_paginated_response();
  a.at("items").as_list().emplace_back(1);
  EXPECT_TRUE(build_empty_paginated_response().at("items").as_list().empty());
}

}  // namespace
}  // namespace kestrune::mcp_responses
