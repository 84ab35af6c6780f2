// The bridge to nlohmann/json where the fuzz target's round trip does not
// reach: what nlohmann holds that a response cannot, and the conversions
// that nlohmann finds on its own.
#include "kestrune/mcp_responses/nlohmann.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {
namespace {

using nlohmann::ordered_json;

TEST(nlohmann_bridge, parsed_text_keeps_order_and_kinds) {
  const char* text = R"({"b":1,"a":[2.0,-3,"é",null,true,{}],"c":9223372036854775807})";
  EXPECT_EQ(tool_result_text(ordered_json::parse(text).get<ResponseValue>()), text);
  const ordered_json back = ResponseDict{{"z", 1}, {"y", 1.0}};
  EXPECT_EQ(back.dump(), R"({"z":1,"y":1.0})");
  EXPECT_THROW((void)ordered_json(1).get<ResponseDict>(), std::invalid_argument);
}

TEST(nlohmann_bridge, refuses_what_has_no_response_form) {
  EXPECT_THROW((void)from_ordered_json(ordered_json::parse("[18446744073709551615]")), std::overflow_error);
  EXPECT_THROW((void)from_ordered_json(ordered_json::binary({1, 2})), std::invalid_argument);
}

}  // namespace
}  // namespace kestrune::mcp_responses
