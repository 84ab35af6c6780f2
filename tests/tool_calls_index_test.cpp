#include <gtest/gtest.h>

#include <span>
#include <string_view>

#include "server.hpp"

namespace kestrune::tool {
namespace {

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

TEST(tool_calls_index, text_shaping_calls_answer_their_results) {
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

TEST(tool_calls_index, symbol_and_outline_calls_answer_their_rows) {
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

TEST(tool_calls_index, bad_arguments_get_clear_errors) {
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
  };
  expect_answers(cases, false);
}

}  // namespace
}  // namespace kestrune::tool
