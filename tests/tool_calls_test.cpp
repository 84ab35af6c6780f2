// Every call of the request tool, driven in-process: arguments reach the
// right builder and wrong ones get clear errors.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "server.hpp"

namespace kestrune::tool {
namespace {

namespace fs = std::filesystem;
namespace mr = mcp_responses;

std::string text_of(const std::string& line) { return answer_request(line).text; }

struct Case {
  std::string_view request;
  std::string_view answer;
};

void expect_answers(std::span<const Case> cases, bool ok) {
  for (const Case& c : cases) {
    const Answer got = answer_request(c.request);
    EXPECT_EQ(got.text, c.answer) << c.request;
    EXPECT_EQ(got.ok, ok) << c.request;
  }
}

TEST(tool_calls, text_shaping_calls_answer_their_results) {
  const Case cases[] = {
      {R"({"call":"trimmed","args":{"text":"alpha beta gamma","chars":12}})", R"("alpha beta…")"},
      {R"({"call":"trimmed","args":{"text":"abc","chars":-3}})", R"("")"},
      {R"({"call":"cut","args":{"text":"ab cd","chars":4}})", R"("ab…")"},
      {R"({"call":"first_sentence","args":{"docstring":"What? Yes."}})", R"("What?")"},
      {R"({"call":"first_sentence","args":{"docstring":null}})", "null"},
      {R"({"call":"first_sentence","args":{"docstring":" \n "}})", "null"},
      {R"({"call":"without_nulls","args":{"row":{"a":1,"b":null,"c":false,"d":""}}})", R"({"a":1,"c":false,"d":""})"},
  };
  expect_answers(cases, true);
}

TEST(tool_calls, symbol_and_outline_calls_answer_their_rows) {
  const Case cases[] = {
      {R"({"call":"outline_module","args":{"fqns":["a.bc.x","a.b.y"]}})", R"("a")"},
      {R"({"call":"outline_module","args":{"fqns":[]}})", R"("")"},
      {R"({"call":"build_symbol_search_result","args":{"symbol":{"fqn":"pkg.f","name":"f","start_line":3,)"
       R"("end_line":9,"docstring":"Do it. More","is_export":true},"file_path":"a.py"}})",
       R"({"fqn":"pkg.f","name":"f","file":"a.py","line":3,"summary":"Do it."})"},
      {R"({"call":"build_symbol_search_result","args":{"symbol":{"fqn":"pkg.f"},"file_path":null}})",
       R"({"fqn":"pkg.f"})"},
      {R"({"call":"build_symbol_full_details","args":{"symbol":{"fqn":"pkg.f","start_line":0,"is_export":false}}})",
       R"({"found":true,"fqn":"pkg.f","name":null,"kind":null,"file":null,"start_line":0,"end_line":null,)"
       R"("signature":null,"is_export":false,"docstring":null,"docstring_truncated":null})"},
      {R"({"call":"build_file_symbol","args":{"symbol":{"fqn":"pkg.Cart.total","kind":"method","start_line":4,)"
       R"("end_line":8},"module":"pkg"}})",
       R"({"name":"Cart.total","kind":"method","line":4,"end_line":8})"},
      {R"({"call":"build_file_symbol","args":{"symbol":{"fqn":"pkg.f","start_line":4,"end_line":4}}})",
       R"({"name":"pkg.f","line":4})"},
      {R"({"call":"build_file_symbol","args":{"symbol":{"fqn":"pkg.f"},"module":null}})", R"({"name":"pkg.f"})"},
  };
  expect_answers(cases, true);
}

TEST(tool_calls, bad_arguments_get_clear_errors) {
  const Case cases[] = {
      {R"({"call":"build_symbol_search_result","args":{"symbol":{"fqn":"pkg.f","start_line":"3"}}})",
       R"({"error":"attribute \"start_line\" of argument \"symbol\" must be an integer or null, not a string"})"},
      {R"({"call":"build_symbol_full_details","args":{"symbol":{"fqn":"pkg.f","is_export":1}}})",
       R"({"error":"attribute \"is_export\" of argument \"symbol\" must be a boolean or null, not an integer"})"},
      {R"({"call":"build_file_symbol","args":{"symbol":{"fqn":7}}})",
       R"({"error":"attribute \"fqn\" of argument \"symbol\" must be a string or null, not an integer"})"},
      {R"({"call":"build_file_symbol","args":{"symbol":{"name":"f"}}})",
       R"({"error":"argument \"symbol\" needs its attribute \"fqn\", a string"})"},
      {R"({"call":"build_symbol_search_result","args":{"symbol":"pkg.f"}})",
       R"({"error":"argument \"symbol\" must be an object, not a string"})"},
      {R"({"call":"build_symbol_search_result","args":{"symbol":{"fqn":"f"},"file_path":3}})",
       R"({"error":"argument \"file_path\" must be a string or null, not an integer"})"},
      {R"({"call":"build_file_symbol","args":{"symbol":{"fqn":"f"},"modul":"pkg"}})",
       R"({"error":"unknown argument \"modul\" for call \"build_file_symbol\""})"},
      {R"({"call":"outline_module","args":{"fqns":["a.b",3]}})",
       R"({"error":"element 1 of argument \"fqns\" must be a string, not an integer"})"},
      {R"({"call":"outline_module","args":{"fqns":"a.b"}})",
       R"({"error":"argument \"fqns\" must be a list, not a string"})"},
      {R"({"call":"cut","args":{"text":"abc","chars":0}})",
       R"({"error":"argument \"chars\" of cut must be at least 1"})"},
      {R"({"call":"build_wiki_ask_response","args":{"mode":"m","query":"q","answer":null,"sections":[],)"
       R"("token_budget":"big"}})",
       R"({"error":"argument \"token_budget\" must be an integer or null, not a string"})"},
  };
  expect_answers(cases, false);
}

TEST(tool_calls, code_lines_lists_rows_by_first_appearance_then_line) {
  std::string dir = (fs::temp_directory_path() / "kestrune-tool-XXXXXX").string();
  ASSERT_NE(::mkdtemp(dir.data()), nullptr);
  std::ofstream(fs::path(dir) / "b.py") << "b1\nb2\n";
  std::ofstream(fs::path(dir) / "a.py") << "a1\n";
  const std::string root = "\"root\":\"" + dir + "\"";
  EXPECT_EQ(text_of(R"({"call":"code_lines","args":{)" + root +
                    R"(,"places":[["b.py",2],["a.py",1],["b.py",1],["b.py",2],["a.py",7]]}})"),
            R"([["b.py",1,"b1"],["b.py",2,"b2"],["a.py",1,"a1"]])");
  EXPECT_EQ(text_of(R"({"call":"code_lines","args":{"root":null,"places":[["b.py",1]]}})"), "[]");
  for (const std::string bad : {R"([["b.py"]])", R"([["b.py",1.0]])", R"([[1,"b.py"]])", R"(["b.py",1])"}) {
    EXPECT_EQ(text_of(R"({"call":"code_lines","args":{)" + root + R"(,"places":)" + bad + "}}"),
              R"({"error":"item 0 of argument \"places\" must be a [path, line] pair"})")
        << bad;
  }
  fs::remove_all(dir);
}

TEST(tool_calls, row_and_wiki_calls_answer_their_results) {
  const Case cases[] = {
      {R"({"call":"build_reference","args":{"reference":{"file_path":"a.py","line":3,)"
       R"("caller_symbol":{"kind":"method"},"usage_type":"call"},"code":"go"}})",
       R"({"file":"a.py","line":3,"code":"go","caller_kind":"method","usage_type":"call"})"},
      {R"({"call":"build_api_endpoint","args":{"symbol":{"fqn":"m.get"},"file_path":null}})",
       R"({"fqn":"m.get","name":null,"kind":null,"file":"","line":null,"signature":null,"component":null})"},
      {R"({"call":"build_component","args":{"component":{"layer":"web","symbol_count":2}}})",
       R"({"name":null,"layer":"web","path_pattern":null,"file_count":null,"symbol_count":2})"},
      {R"({"call":"build_test_coverage","args":{"test_file":"t","source_file":"s","symbols_imported":["f"]}})",
       R"({"test_file":"t","source_file":"s","symbols_imported":["f"]})"},
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
  };
  expect_answers(cases, true);
}

TEST(tool_calls, wiki_answers_an_ask_request_fitted_to_its_budget) {
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

}  // namespace
}  // namespace kestrune::tool
