#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses {
namespace {

const Symbol kFull{.fqn = "pkg.mod.Cart.total",
                   .name = "total",
                   .kind = "method",
                   .start_line = 10,
                   .end_line = 14,
                   .signature = "def total(self) -> int",
                   .docstring = "Sum the cart.  Taxes\nincluded.\n\nMore.",
                   .is_export = true,
                   .docstring_truncated = false};

// A symbol of which only the fqn is known.
Symbol only_fqn(std::string fqn) {
  Symbol s;
  s.fqn = std::move(fqn);
  return s;
}

Symbol with(Symbol s, auto change) {
  change(s);
  return s;
}

TEST(build_symbol_search_result, keeps_known_fields_in_order_and_drops_nulls) {
  const struct {
    Symbol symbol;
    std::optional<std::string_view> file_path;
    std::string_view want;
  } cases[] = {
      {kFull, "src/pkg/mod.py",
       R"({"fqn":"pkg.mod.Cart.total","name":"total","kind":"method","file":"src/pkg/mod.py","line":10,)"
       R"("signature":"def total(self) -> int","summary":"Sum the cart."})"},
      {kFull, std::nullopt,
       R"({"fqn":"pkg.mod.Cart.total","name":"total","kind":"method","line":10,)"
       R"("signature":"def total(self) -> int","summary":"Sum the cart."})"},
      // Only null leaves the row: a line of 0, an empty signature and an empty path stay.
      {with(kFull,
            [](Symbol& s) {
              s.start_line = 0;
              s.signature = "";
              s.docstring = std::nullopt;
            }),
       "", R"({"fqn":"pkg.mod.Cart.total","name":"total","kind":"method","file":"","line":0,"signature":""})"},
      {with(kFull, [](Symbol& s) { s.docstring = ""; }), "m.py",
       R"({"fqn":"pkg.mod.Cart.total","name":"total","kind":"method","file":"m.py","line":10,)"
       R"("signature":"def total(self) -> int"})"},
      {with(kFull, [](Symbol& s) { s.docstring = " \n\t "; }), std::nullopt,
       R"({"fqn":"pkg.mod.Cart.total","name":"total","kind":"method","line":10,"signature":"def total(self) -> int"})"},
      {with(kFull,
            [](Symbol& s) {
              s.name = std::nullopt;
              s.start_line = std::nullopt;
            }),
       "m.py",
       R"({"fqn":"pkg.mod.Cart.total","kind":"method","file":"m.py","signature":"def total(self) -> int",)"
       R"("summary":"Sum the cart."})"},
      {only_fqn("f"), std::nullopt, R"({"fqn":"f"})"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(tool_result_text(build_symbol_search_result(c.symbol, c.file_path)), c.want);
  }
}

TEST(build_symbol_full_details, always_has_the_same_eleven_keys) {
  const struct {
    Symbol symbol;
    std::optional<std::string_view> file_path;
    std::string_view want;
  } cases[] = {
      {kFull, "src/pkg/mod.py",
       R"({"found":true,"fqn":"pkg.mod.Cart.total","name":"total","kind":"method","file":"src/pkg/mod.py",)"
       R"("start_line":10,"end_line":14,"signature":"def total(self) -> int","is_export":true,)"
       R"("docstring":"Sum the cart.  Taxes\nincluded.\n\nMore.","docstring_truncated":false})"},
      {with(kFull,
            [](Symbol& s) {
              s.docstring = "";
              s.start_line = 0;
              s.is_export = false;
            }),
       std::nullopt,
       R"({"found":true,"fqn":"pkg.mod.Cart.total","name":"total","kind":"method","file":null,)"
       R"("start_line":0,"end_line":14,"signature":"def total(self) -> int","is_export":false,)"
       R"("docstring":"","docstring_truncated":false})"},
      {only_fqn("f"), std::nullopt,
       R"({"found":true,"fqn":"f","name":null,"kind":null,"file":null,"start_line":null,"end_line":null,)"
       R"("signature":null,"is_export":null,"docstring":null,"docstring_truncated":null})"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(tool_result_text(build_symbol_full_details(c.symbol, c.file_path)), c.want);
  }
}

TEST(build_symbol_search_result, summary_is_the_cut_first_sentence) {
  const std::string long_doc(300, 'x');
  const ResponseDict row = build_symbol_search_result(with(kFull, [&](Symbol& s) { s.docstring = long_doc; }));
  EXPECT_EQ(row.at("summary"), ResponseValue(std::string(159, 'x') + "\u2026"));
  // The detail answer keeps the whole docstring.
  EXPECT_EQ(build_symbol_full_details(with(kFull, [&](Symbol& s) { s.docstring = long_doc; })).at("docstring"),
            ResponseValue(long_doc));
}

}  // namespace
}  // namespace kestrune::mcp_responses
