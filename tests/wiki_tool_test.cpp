#include <gtest/gtest.h>

#include <string>

#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "server.hpp"

namespace kestrune::tool {
namespace {

namespace mr = mcp_responses;

TEST(wiki_tool, answers_an_ask_request_fitted_to_its_budget) {
  std::string excerpt;
  for (int k = 0; k < 120; ++k) excerpt += "word" + std::to_string(k) + " ";
  const mr::ResponseList sections = {
      mr::ResponseDict{
          {"page_id", "p1"}, {"excerpt", excerpt}, {"citations", mr::ResponseList{mr::ResponseDict{{"path", "a.py"}}}}},
      mr::ResponseDict{{"page_id", "p2"}, {"excerpt", excerpt}, {"stale", "yes"}}};
  const mr::ResponseDict expected = mr::build_wiki_ask_response({.mode = "explain",
                                                                 .query = "how?",
                                                                 .answer = "Like this.",
                                                                 .sections = sections,
                                                                 .tokens = mr::ResponseDict{{"in", 10}},
                                                                 .memories = mr::ResponseDict{{"m", "note"}},
                                                                 .token_budget = 350});
  // The budget cuts the excerpts but keeps both sections and the memories.
  ASSERT_EQ(expected.at("sections").as_list().size(), 2u);
  ASSERT_LE(mr::detail::encoded_size(expected), 1400u);
  ASSERT_TRUE(expected.contains("memories"));

  const mr::ResponseDict args{{"mode", "explain"},
                              {"query", "how?"},
                              {"answer", "Like this."},
                              {"sections", sections},
                              {"citations", nullptr},
                              {"tokens", mr::ResponseDict{{"in", 10}}},
                              {"memories", mr::ResponseDict{{"m", "note"}}},
                              {"token_budget", 350}};
  const Answer answer =
      answer_request(mr::tool_result_text(mr::ResponseDict{{"call", "build_wiki_ask_response"}, {"args", args}}));
  EXPECT_TRUE(answer.ok);
  EXPECT_EQ(answer.text, mr::tool_result_text(expected));
}

TEST(wiki_tool, passes_each_argument_to_its_builder) {
  const struct {
    std::string_view request, answer;
  } cases[] = {
      {R"({"call":"build_wiki_status_response","args":{"built":true,"branch":"b","pages":2,"coverage_pct":50,)"
       R"("model":"m","stale_pages":["s"],"configured":true}})",
       R"({"built":true,"branch":"b","enabled":false,"configured":true,"pages":2,"files_covered":0,)"
       R"("total_sources":0,"coverage_pct":50.0,"last_built":null,"model":"m","stale_pages":["s"]})"},
      {R"({"call":"build_wiki_list_response","args":{"pages":[1,2],"total":4,"offset":2,"truncated":true}})",
       R"({"pages":[1,2],"total_count":4,"offset":2,"truncated":true,"has_more":false})"},
      {R"({"call":"build_wiki_read_response","args":{"page_id":"p","title":"t","content":"c","related_pages":["q"]}})",
       R"({"page_id":"p","title":"t","content":"c","citations":[],"source_files":[],"related_pages":["q"]})"},
      {R"({"call":"ask_citations","args":{"sections":[{"citations":[{"path":"a","line_start":1}]}],)"
       R"("extra":[{"path":"a","line_start":1.0},{"path":"b"}]}})",
       R"([{"path":"a","line_start":1},{"path":"b"}])"},
      {R"({"call":"build_wiki_ask_response","args":{"mode":"m","query":"q","answer":null,"sections":[],)"
       R"("token_budget":"big"}})",
       R"({"error":"argument \"token_budget\" must be an integer or null, not a string"})"},
  };
  for (const auto& c : cases) EXPECT_EQ(answer_request(c.request).text, c.answer) << c.request;
}

}  // namespace
}  // namespace kestrune::tool
