// What the data files in tests/calls cannot show of the builders: the
// canned table is never changed through a response, lists are moved in,
// an existing hint is replaced, and required options must be set.
#include <gtest/gtest.h>

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/wiki.hpp"

namespace kestrune::mcp_responses {
namespace {

TEST(get_empty_response, gives_copies_that_share_nothing_with_the_table) {
  ASSERT_EQ(EMPTY_TOOL_RESPONSES->size(), 14u);
  const ResponseDict& table = EMPTY_TOOL_RESPONSES;
  EXPECT_EQ(&table, &*EMPTY_TOOL_RESPONSES);
  ResponseDict search = get_empty_response("search");
  search.insert_or_assign("extra", 1);
  search.at("symbols").as_list().emplace_back("row");
  const ResponseDict again = get_empty_response("search");
  EXPECT_FALSE(again.contains("extra"));
  EXPECT_TRUE(again.at("symbols").as_list().empty());
  EXPECT_TRUE(EMPTY_TOOL_RESPONSES->at("search").as_dict().at("symbols").as_list().empty());
}

TEST(builders, move_the_lists_they_are_given) {
  ResponseList rows{"a", "b", "c"};
  const ResponseValue* first = rows.data();
  const ResponseDict page = build_paginated_response(std::move(rows), 3, 0, {.items_key = "symbols"});
  EXPECT_EQ(page.at("symbols").as_list().data(), first);
  ResponseList stale{"p"};
  const ResponseValue* stale_first = stale.data();
  const ResponseDict status =
      build_wiki_status_response({.built = true, .branch = "b", .stale_pages = std::move(stale)});
  EXPECT_EQ(status.at("stale_pages").as_list().data(), stale_first);
}

TEST(add_pagination_hint, replaces_a_hint_in_place_and_leaves_other_pages_alone) {
  const ResponseDict plain{{"items", ResponseList{}}, {"truncated", false}};
  EXPECT_EQ(add_pagination_hint(plain, 0), plain);
  const ResponseDict hinted =
      add_pagination_hint(ResponseDict{{"hint", "old"}, {"total_count", 5}, {"truncated", true}, {"offset", 1}}, 2);
  EXPECT_EQ(hinted.begin()->first, "hint");
  EXPECT_EQ(hinted.at("hint"), ResponseValue("Showing 2 of 5 results. Call again with offset=3 for more."));
}

// Leaving a required member out of a designated initializer does not compile.
template <class Options>
constexpr bool sets_branch_only = requires {
  Options{.branch = "b"};
};
template <class Options>
constexpr bool sets_mode_and_query_only = requires {
  Options{.mode = "m", .query = "q"};
};
template <class Options>
constexpr bool sets_status_only = requires {
  Options{.status = "ready"};
};
static_assert(!sets_branch_only<WikiStatusOptions>);
static_assert(!sets_mode_and_query_only<WikiAskOptions>);
static_assert(!sets_status_only<IndexStatusOptions>);
template <class Options>
constexpr bool sets_test_file_only = requires {
  Options{.test_file = "t"};
};
static_assert(!sets_test_file_only<TestCoverageOptions>);
static_assert(requires {
  WikiAskOptions{.mode = "m", .query = "q", .answer = std::nullopt, .sections = ResponseList{}};
});

}  // namespace
}  // namespace kestrune::mcp_responses
