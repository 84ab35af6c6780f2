// The example server's error answers quote what they show of the arguments
// whole, whatever they hold: a NUL, a quote, or a byte that is not UTF-8
// (which no JSON line can carry, but a host calling the tools directly can).
#include <gtest/gtest.h>

#include <string>

#include "index_db.hpp"
#include "tools.hpp"

namespace kestrune::example {
namespace {

TEST(tools, quote_the_arguments_they_show_whole) {
  const Tools tools({.index = IndexDb::open(KESTRUNE_EXAMPLE_DB), .root = KESTRUNE_EXAMPLE_ROOT});
  const std::string odd("a\0\"b\xff", 5);
  const struct {
    std::string_view tool;
    mr::ResponseDict arguments;
    std::string_view error;
  } cases[] = {
      {"file", {{"path", odd}}, R"(no indexed file at "a\u0000\"b\xff")"},
      {"wiki", {{"action", "read"}, {"page_id", odd}}, R"(no wiki page "a\u0000\"b\xff")"},
      {"symbol", {{"fqn", "x"}, {odd, 1}}, R"(unknown argument "a\u0000\"b\xff")"},
  };
  for (const auto& c : cases) {
    const ToolAnswer answer = tools.call(c.tool, c.arguments);
    EXPECT_TRUE(answer.options.is_error) << c.tool;
    EXPECT_EQ(answer.response.get("error"), mr::ResponseValue(c.error)) << c.tool;
  }
}

}  // namespace
}  // namespace kestrune::example
