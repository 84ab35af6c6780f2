#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "json_reader.hpp"
#include "server.hpp"

namespace kestrune::tool {
namespace {

// What tests/calls/requests.calls cannot hold: bytes that are not UTF-8,
// and a NUL byte.
TEST(answer_request, refuses_bytes_that_no_json_text_holds) {
  const std::pair<std::string, std::string_view> cases[] = {
      {"{\"call\":\"encoded_size\",\"args\":{\"result\":\"\xff\"}}", "not JSON: ill-formed UTF-8 at byte 41"},
      {"{\"call\":\"encoded_size\",\"args\":{\"result\":\"\xf0", "not JSON: ill-formed UTF-8 at byte 41"},
      {"{\"call\":\"encoded_size\",\"args\":{\"result\":\"\xed\xa0\x80\"}}", "not JSON: ill-formed UTF-8 at byte 41"},
      {std::string(R"({"call":"encoded_size","args":{"result":"a)") + '\0' + "b\"}}",
       "not JSON: NUL byte in the request"},
  };
  for (const auto& [request, message] : cases) {
    const Answer a = answer_request(request);
    EXPECT_FALSE(a.ok) << request;
    EXPECT_EQ(std::string(parse_json(a.text).as_dict().at("error").as_string()), message);
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
      "{\"call\":\"encoded_size\",\"args\":{\"result\":-NaN}}\n"
      "{\"call\":\"encoded_size\",\"args\":{\"result\":\"ab\"}}");  // no final line break
  std::ostringstream out;
  EXPECT_FALSE(serve(in, out));
  const std::string text = out.str();
  EXPECT_TRUE(text.starts_with("2\n{\"error\":\"not JSON")) << text;
  EXPECT_NE(text.find("\"}\n{\"error\":\"not JSON: Invalid value."), std::string::npos) << text;
  EXPECT_TRUE(text.ends_with("\"}\n4\n")) << text;

  std::istringstream good("{\"call\":\"encoded_size\",\"args\":{\"result\":1}}\n");
  std::ostringstream good_out;
  EXPECT_TRUE(serve(good, good_out));
  EXPECT_EQ(good_out.str(), "1\n");
}

// 8 million zeros, near the line limit: the tree is built at its exact size
// and answered; tiny lists whose tree would take far more memory than the
// request's size are refused, and the next line is still served.
TEST(serve, near_limit_requests_of_tiny_elements) {
  const auto request = [](std::string_view element, std::size_t n) {
    std::string r = R"({"call":"encoded_size","args":{"result":[)";
    r.reserve(r.size() + n * (element.size() + 1) + 8);
    for (std::size_t i = 0; i < n; ++i) r.append(element).push_back(',');
    r.back() = ']';
    return r + "}}\n";
  };
  std::istringstream in(request("0", 8'000'000) + request("[0]", 1'000'000) + request("1", 2));
  std::ostringstream out;
  EXPECT_FALSE(serve(in, out));
  EXPECT_EQ(out.str(),
            "16000001\n"
            "{\"error\":\"not accepted: its values would take 129 MiB, more than 9 times the request's size\"}\n"
            "5\n");
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
