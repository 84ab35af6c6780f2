#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"

namespace kestrune::mcp_responses {
namespace {

using detail::ask_citations;

ResponseValue cite(ResponseValue path, ResponseValue start, ResponseValue end, std::string tag) {
  return ResponseDict{{"path", std::move(path)},
                      {"line_start", std::move(start)},
                      {"line_end", std::move(end)},
                      {"tag", std::move(tag)}};
}

ResponseValue section(ResponseList citations) { return ResponseDict{{"page_id", "p"}, {"citations", citations}}; }

// The tags of the merged citations, in order: which input won each place.
std::string tags(const ResponseList& merged) {
  std::string out;
  for (const auto& c : merged) out += c.as_dict().at("tag").as_string() + " ";
  return out;
}

TEST(ask_citations, takes_three_per_section_before_deduplicating) {
  const ResponseList sections = {
      section({cite("a", 1, 2, "s1a"), cite("b", 1, 2, "s1b")}),
      // Its first three repeat earlier places; its fourth is never considered.
      section({cite("a", 1, 2, "x"), cite("b", 1, 2, "x"), cite("a", 1, 2, "x"), cite("z", 9, 9, "s2d")}),
      section({cite("c", 1, 2, "s3a"), cite("c", 1, 3, "s3b"), cite("c", 0, 2, "s3c"), cite("d", 1, 1, "s3d"),
               cite("e", 1, 1, "s3e")}),
  };
  const ResponseList extra = {cite("b", 1, 2, "xb"), cite("e", 1, 1, "xe"), cite("e", 1, 1, "xe2"),
                              cite("z", 9, 9, "xz")};
  EXPECT_EQ(tags(ask_citations(sections, extra)), "s1a s1b s3a s3b s3c xe xz ");
  EXPECT_TRUE(ask_citations({}, {}).empty());
}

TEST(ask_citations, compares_places_by_value) {
  constexpr std::int64_t k2p53 = std::int64_t{1} << 53;
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  const ResponseValue missing = ResponseDict{{"tag", "second"}};
  const struct {
    ResponseValue first, second;
    bool same;
  } cases[] = {
      {cite("a", 10, 12, "first"), cite("a", 10.0, 12.0, "second"), true},
      {cite("a", 10, 12, "first"), cite("a", 10.5, 12, "second"), false},
      {cite("a", 0, 0, "first"), cite("a", -0.0, 0.0, "second"), true},
      {cite("a", k2p53, 1, "first"), cite("a", static_cast<double>(k2p53), 1, "second"), true},
      {cite("a", k2p53 + 1, 1, "first"), cite("a", static_cast<double>(k2p53), 1, "second"), false},
      {cite("a", kMax, 1, "first"), cite("a", 0x1p63, 1, "second"), false},
      {cite("a", kMin, 1, "first"), cite("a", -0x1p63, 1, "second"), true},
      {cite("a", 1, 2, "first"), cite("a", "1", 2, "second"), false},
      {cite("a", nullptr, 2, "first"), cite("a", 0, 2, "second"), false},
      {cite("a", nullptr, 2, "first"), cite("a", "", 2, "second"), false},
      {cite("é", 1, 2, "first"), cite("é", 1, 2, "second"), true},
      {cite("a", 1, 2, "first"), cite("A", 1, 2, "second"), false},
      {cite(nullptr, nullptr, nullptr, "first"), missing, true},
      {ResponseDict{{"tag", "first"}}, missing, true},
      {cite("a", 1, 2, "first"), cite("a", 1, 3, "second"), false},
  };
  for (const auto& c : cases) {
    const ResponseList merged = ask_citations({}, {c.first, c.second});
    EXPECT_EQ(tags(merged), c.same ? "first " : "first second ") << tool_result_text(ResponseList{c.first, c.second});
  }
}

TEST(ask_citations, caps_at_24_with_sections_first) {
  ResponseList sections;
  for (int s = 0; s < 9; ++s) {
    ResponseList own;
    for (int k = 0; k < 3; ++k) own.push_back(cite("f", s, k, std::to_string(s * 3 + k)));
    sections.push_back(section(std::move(own)));
  }
  const ResponseList merged = ask_citations(sections, {cite("x", 1, 1, "extra")});
  ASSERT_EQ(merged.size(), 24u);
  EXPECT_EQ(merged.back().as_dict().at("tag"), ResponseValue("23"));
  // A skipped duplicate does not count toward the cap.
  ResponseList extra;
  for (int k = 0; k < 30; ++k) extra.push_back(cite("g", k / 2, 0, std::to_string(k)));
  const ResponseList deduplicated = ask_citations({}, extra);
  ASSERT_EQ(deduplicated.size(), 15u);
  EXPECT_EQ(deduplicated.back().as_dict().at("tag"), ResponseValue("28"));
}

TEST(ask_citations, keeps_citations_whole_and_reads_missing_lists_as_none) {
  const ResponseValue rich = ResponseDict{{"kind", "code"}, {"path", "a"}, {"note", ResponseList{1, nullptr}}};
  const ResponseList sections = {ResponseDict{{"page_id", "no citations key"}}, ResponseDict{{"citations", nullptr}},
                                 ResponseDict{{"citations", ResponseList{}}}, section({rich})};
  const ResponseList merged = ask_citations(sections, {});
  ASSERT_EQ(merged.size(), 1u);
  EXPECT_EQ(merged[0], rich);
}

}  // namespace
}  // namespace kestrune::mcp_responses
