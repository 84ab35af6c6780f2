#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {
namespace {

TEST(build_reference, keeps_file_and_line_and_only_the_known_rest) {
  const ResponseDict full_caller{{"fqn", "pkg.mod.f"}, {"kind", "function"}, {"line", 3}};
  const struct {
    Reference reference;
    std::optional<std::string_view> code;
    std::string_view row;
  } cases[] = {
      {{"a.py", 12, std::nullopt, std::nullopt}, std::nullopt, R"j({"file":"a.py","line":12})j"},
      {{std::nullopt, std::nullopt, std::nullopt, "call"},
       std::nullopt,
       R"j({"file":null,"line":null,"usage_type":"call"})j"},
      {{"a.py", 12, ResponseDict{}, std::nullopt}, "", R"j({"file":"a.py","line":12,"code":""})j"},
      {{"a.py", 12, ResponseDict{{"fqn", "pkg.f"}}, std::nullopt},
       std::nullopt,
       R"j({"file":"a.py","line":12,"caller":"pkg.f"})j"},
      {{"a.py", 12, ResponseDict{{"kind", "class"}, {"fqn", nullptr}}, std::nullopt},
       std::nullopt,
       R"j({"file":"a.py","line":12,"caller_kind":"class"})j"},
      {{"a.py", 12, full_caller, std::nullopt},
       "f(x)",
       R"j({"file":"a.py","line":12,"code":"f(x)","caller":"pkg.mod.f","caller_kind":"function"})j"},
      {{"a.py", 12, full_caller, "import"},
       "import f",
       R"j({"file":"a.py","line":12,"code":"import f","caller":"pkg.mod.f","caller_kind":"function","usage_type":"import"})j"},
  };
  for (const auto& c : cases) EXPECT_EQ(tool_result_text(build_reference(c.reference, c.code)), c.row);
}

TEST(build_api_endpoint, always_has_its_seven_keys) {
  const Symbol full{
      .fqn = "api.users.get", .name = "get", .kind = "function", .start_line = 40, .signature = "get(id)"};
  EXPECT_EQ(tool_result_text(build_api_endpoint(full, "api/users.py", "api")),
            R"j({"fqn":"api.users.get","name":"get","kind":"function","file":"api/users.py","line":40,)j"
            R"j("signature":"get(id)","component":"api"})j");
  const std::string_view bare =
      R"j({"fqn":"x","name":null,"kind":null,"file":"","line":null,"signature":null,"component":null})j";
  EXPECT_EQ(tool_result_text(build_api_endpoint(Symbol{.fqn = "x"})), bare);
  EXPECT_EQ(tool_result_text(build_api_endpoint(Symbol{.fqn = "x"}, "")), bare);
  EXPECT_EQ(tool_result_text(build_api_endpoint(Symbol{.fqn = "x"}, std::nullopt, "")),
            R"j({"fqn":"x","name":null,"kind":null,"file":"","line":null,"signature":null,"component":""})j");
}

TEST(build_component, passes_every_count_through) {
  EXPECT_EQ(tool_result_text(build_component({"core", "domain", "src/core/**", 12, 340})),
            R"j({"name":"core","layer":"domain","path_pattern":"src/core/**","file_count":12,"symbol_count":340})j");
  EXPECT_EQ(tool_result_text(build_component({"web", std::nullopt, std::nullopt, 0, std::nullopt})),
            R"j({"name":"web","layer":null,"path_pattern":null,"file_count":0,"symbol_count":null})j");
}

TEST(build_test_coverage, leaves_out_an_empty_import_list) {
  EXPECT_EQ(tool_result_text(build_test_coverage("t/test_a.py", "a.py")),
            R"j({"test_file":"t/test_a.py","source_file":"a.py"})j");
  EXPECT_EQ(tool_result_text(build_test_coverage("t/test_a.py", "a.py", ResponseList{})),
            R"j({"test_file":"t/test_a.py","source_file":"a.py"})j");
  EXPECT_EQ(tool_result_text(build_test_coverage("t/test_a.py", "a.py", ResponseList{"f"})),
            R"j({"test_file":"t/test_a.py","source_file":"a.py","symbols_imported":["f"]})j");
}

}  // namespace
}  // namespace kestrune::mcp_responses
