#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "json_reader.hpp"
#include "server.hpp"

namespace kestrune::tool {
namespace {

TEST(answer_request, answers_with_the_mcp_text_of_the_result) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {R"({"call":"tool_result_text","args":{"result":{"b":1,"a":[1.0,1e16,"é\n"]}}})",
       R"({"b":1,"a":[1.0,1e+16,"é\n"]})"},
      // Kinds, key order and non-finite numbers survive the round trip.
      {R"({"call":"tool_result_text","args":{"result":[3,3.0,-0.0,true,null,NaN,Infinity,-Infinity,"\u00e9\ud83d\ude00"]}})",
       R"([3,3.0,-0.0,true,null,NaN,Infinity,-Infinity,"é😀"])"},
      {R"({"call":"tool_result_text","args":{"result":{"z":1,"a":2,"z":3}}})", R"({"z":3,"a":2})"},
      {R"({"call":"tool_result_text","args":{"result":[9223372036854775807,-9223372036854775808,1E2,2e-5]}})",
       R"([9223372036854775807,-9223372036854775808,100.0,2e-05])"},
      // Doubles read to the nearest value: zero with an exponent, the last
      // digit of a long literal, subnormals, and literals below the range.
      {R"({"call":"tool_result_text","args":{"result":[0e-45,-0E+7,0.30000000000000004,9007199254740993.0,4.9e-324,1e-400]}})",
       R"([0.0,-0.0,0.30000000000000004,9007199254740992.0,5e-324,0.0])"},
      {R"({"args":{"result":{"a":"é"}},"call":"encoded_size"})", "10"},
      {R"(  {"call":"get_empty_response","args":{"tool_name":"nope"}}  )", R"({"error":"Repository not initialized"})"},
      {R"({"call":"build_empty_paginated_response"})",
       R"({"items":[],"total_count":0,"truncated":false,"has_more":false,"offset":0})"},
      {R"({"call":"build_index_status_response","args":{"status":"ready","health":"healthy","branch":null,"progress":5,"phase":"x"}})",
       R"({"status":"ready","health":"healthy","branch":null,"progress":5,"files_indexed":0,"symbols_indexed":0,"last_updated":null,"errors_count":0,"phase":"x"})"},
      {R"({"call":"first_sentence","args":{"docstring":null}})", "null"},
      {R"({"call":"cut","args":{"text":"abcd","chars":3}})", R"("ab…")"},
  };
  for (const auto& [request, expected] : cases) {
    const Answer a = answer_request(request);
    EXPECT_TRUE(a.ok) << request;
    EXPECT_EQ(a.text, expected) << request;
  }
}

TEST(answer_request, bad_requests_get_an_error_that_says_what_was_wrong) {
  const std::pair<std::string, std::string_view> cases[] = {
      {"{", "not JSON"},
      {"{\"call\":\"encoded_size\",\"args\":{\"result\":\"\xff\"}}", "not JSON"},
      {"{\"call\":\"encoded_size\",\"args\":{\"result\":\"\xf0",
       "ill-formed UTF-8 at byte 41"},                                                     // truncated at the end
      {"{\"call\":\"encoded_size\",\"args\":{\"result\":\"\xed\xa0\x80\"}}", "not JSON"},  // encoded surrogate
      {R"({"call":"encoded_size","args":{"result":"\ud800"}})", "not JSON"},
      {R"({"call":"encoded_size","args":{"result":"\udc00"}})", "lone surrogate"},
      {R"({"call":"encoded_size","args":{"result":123456789012345678901}})", "out of the 64-bit signed range"},
      {R"({"call":"encoded_size","args":{"result":9223372036854775808}})", "out of the 64-bit signed range"},
      {R"({"call":"encoded_size","args":{"result":1e999}})", "not JSON"},
      {R"({"call":"encoded_size","args":{"result":1}} x)", "not JSON"},
      {std::string(R"({"call":"encoded_size","args":{"result":"a)") + '\0' + "b\"}}", "NUL"},
      {"[1]", "must be a JSON object"},
      {R"({"call":"launch"})", "unknown call \"launch\""},
      {R"({"call":7})", "\"call\", a string"},
      {R"({"args":{}})", "\"call\", a string"},
      {R"({"call":"cut","args":[]})", "\"args\" must be an object"},
      {R"({"call":"cut","args":{"text":"abc"}})", "missing required argument \"chars\""},
      {R"({"call":"cut","args":{"text":"abc","chars":3.0}})",
       "argument \"chars\" must be an integer, not a floating-point number"},
      {R"({"call":"cut","args":{"text":1,"chars":3}})", "argument \"text\" must be a string, not an integer"},
      {R"({"call":"cut","args":{"text":"abc","chars":3,"char":1}})", "unknown argument \"char\""},
      {R"({"call":"cut","args":{"text":"abc","chars":0}})", "at least 1"},
      {R"({"call":"cut","args":{},"extra":1})", "unknown request key \"extra\""},
      {R"({"call":"build_paginated_response","args":{"items":[],"total_count":1,"offset":0,"items_key":null}})",
       "argument \"items_key\" must be a string, not null"},
  };
  for (const auto& [request, message] : cases) {
    const Answer a = answer_request(request);
    EXPECT_FALSE(a.ok) << request;
    const std::string error = parse_json(a.text).as_dict().at("error").as_string();
    EXPECT_NE(error.find(message), std::string::npos) << request << " -> " << error;
  }
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(parse_json, nesting_is_limited) {
  EXPECT_NO_THROW((void)parse_json(nested(kMaxDepth)));
  EXPECT_THROW((void)parse_json(nested(kMaxDepth + 1)), RequestError);
  // Far deeper input fails the same way, without exhausting the stack.
  EXPECT_THROW((void)parse_json(nested(1'000'000)), RequestError);
}

TEST(serve, one_answer_per_request_line_and_bad_lines_do_not_stop_the_rest) {
  std::istringstream in(
      "{\"call\":\"encoded_size\",\"args\":{\"result\":[]}}\r\n"
      "\n   \n"
      "not json\n"
      "{\"call\":\"encoded_size\",\"args\":{\"result\":\"ab\"}}");  // no final line break
  std::ostringstream out;
  EXPECT_FALSE(serve(in, out));
  const std::string text = out.str();
  EXPECT_TRUE(text.starts_with("2\n{\"error\":\"not JSON")) << text;
  EXPECT_TRUE(text.ends_with("\"}\n4\n")) << text;

  std::istringstream good("{\"call\":\"encoded_size\",\"args\":{\"result\":1}}\n");
  std::ostringstream good_out;
  EXPECT_TRUE(serve(good, good_out));
  EXPECT_EQ(good_out.str(), "1\n");
}

TEST(serve, an_overlong_line_is_refused_and_the_next_is_served) {
  std::string input = "{\"call\":\"encoded_size\",\"args\":{\"result\":\"";
  input.append(kMaxLineBytes, 'a');
  input += "\"}}\n{\"call\":\"encoded_size\",\"args\":{\"result\":7}}\n";
  std::istringstream in(std::move(input));
  std::ostringstream out;
  EXPECT_FALSE(serve(in, out));
  EXPECT_EQ(out.str(), "{\"error\":\"request line longer than 16777216 bytes\"}\n1\n");
}

}  // namespace
}  // namespace kestrune::tool
