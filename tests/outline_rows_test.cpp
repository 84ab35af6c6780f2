#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {
namespace {

Symbol symbol(std::string fqn, std::optional<std::int64_t> line = 10, std::optional<std::int64_t> end_line = 10) {
  Symbol s;
  s.fqn = std::move(fqn);
  s.kind = "function";
  s.start_line = line;
  s.end_line = end_line;
  return s;
}

TEST(outline_module, keeps_the_whole_parts_that_all_parents_share) {
  const struct {
    std::vector<std::string> fqns;
    std::string_view want;
  } cases[] = {
      {{}, ""},
      {{"pkg.mod.Cart.total", "pkg.mod.Cart.items", "pkg.mod.parse"}, "pkg.mod"},
      {{"pkg.mod.Cart.total"}, "pkg.mod.Cart"},
      {{"pkg.mod.f", "main"}, ""},
      {{"main", "pkg.mod.f"}, ""},
      {{"a.bc.x", "a.b.y"}, "a"},
      {{"a.b.y", "a.bc.x"}, "a"},
      {{"ab.x", "a.y"}, ""},
      // Once empty the common parts stay empty, even when later fqns agree again.
      {{"a.b.x", "c.d", "a.b.y"}, ""},
      // Empty pieces are parts too.
      {{"a..x", "a..y"}, "a."},
      {{"a..x", "a.b.y"}, "a"},
      {{".x", ".y"}, ""},
      {{"a.b.c.d", "a.b.c", "a.b.c.d.e"}, "a.b"},
      {{"é.ü.x", "é.ü.y"}, "é.ü"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(outline_module(c.fqns), c.want) << testing::PrintToString(c.fqns);
    std::vector<std::string_view> views(c.fqns.begin(), c.fqns.end());
    EXPECT_EQ(outline_module(views), c.want) << testing::PrintToString(c.fqns);
  }
  EXPECT_EQ(outline_module({"a.bc.x", "a.b.y"}), "a");
  EXPECT_EQ(outline_module({}), "");
}

TEST(build_file_symbol, names_each_symbol_relative_to_the_module) {
  const struct {
    std::string fqn;
    std::string_view module;
    std::string_view want;
  } cases[] = {
      {"pkg.mod.Cart.total", "pkg.mod", "Cart.total"},
      {"pkg.mod.parse", "pkg.mod", "parse"},
      {"pkg.mod.Cart.total", "pkg.mod.Cart", "total"},
      {"pkg.mod.f", "", "pkg.mod.f"},
      {"main", "", "main"},
      {"pkgx.y", "pkg", "pkgx.y"},
      {"pkg", "pkg", "pkg"},
      {"pkg.", "pkg", ""},
      {"other.pkg.f", "pkg", "other.pkg.f"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(build_file_symbol(symbol(c.fqn), c.module).at("name"), ResponseValue(c.want)) << c.fqn;
  }
  EXPECT_EQ(build_file_symbol(symbol("pkg.mod.f")).at("name"), ResponseValue("pkg.mod.f"));
}

TEST(build_file_symbol, keeps_known_fields_in_order_and_end_line_only_when_it_differs) {
  Symbol full = symbol("pkg.mod.Cart.total", 10, 14);
  full.kind = "method";
  full.name = "total";  // not part of the row
  full.signature = "def total(self) -> int";
  full.docstring = "Sum it. Then more.";
  full.is_export = true;
  full.docstring_truncated = false;

  Symbol one_line = full;
  one_line.end_line = 10;
  Symbol bare = symbol("pkg.mod.x", std::nullopt, std::nullopt);
  bare.kind = std::nullopt;
  Symbol zero = symbol("pkg.mod.z", 0, std::nullopt);
  zero.signature = "";
  Symbol end_only = symbol("pkg.mod.e", std::nullopt, 7);

  const struct {
    Symbol symbol;
    std::string_view want;
  } cases[] = {
      {full, R"({"name":"Cart.total","kind":"method","line":10,"end_line":14,"signature":"def total(self) -> int",)"
             R"("summary":"Sum it."})"},
      {one_line,
       R"({"name":"Cart.total","kind":"method","line":10,"signature":"def total(self) -> int","summary":"Sum it."})"},
      {bare, R"({"name":"x"})"},
      {zero, R"({"name":"z","kind":"function","line":0,"signature":""})"},
      {end_only, R"({"name":"e","kind":"function","end_line":7})"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(tool_result_text(build_file_symbol(c.symbol, "pkg.mod")), c.want) << c.symbol.fqn;
  }
}

}  // namespace
}  // namespace kestrune::mcp_responses
