// The budgeted ask on the worked example of three sections under 2800
// bytes, step by step, and the errors of input that cannot be measured. The
// data files pin its answers at the budget's boundaries, and the ask fuzz
// target compares it with encoding every candidate on random inputs.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "encoding/encoded_size.hpp"
#include "internal/chars.hpp"
#include "internal/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "text/cut.hpp"

namespace kestrune::mcp_responses {

// Failures show the compact text of a response.
void PrintTo(const ResponseDict& d, std::ostream* os) { *os << tool_result_text(d); }

namespace {

using detail::char_count;
using detail::encoded_size;
using detail::trimmed;

// Exactly `chars` characters of words from `vocabulary` separated by single
// spaces, never ending in a space.
std::string words(std::size_t chars, std::u32string_view vocabulary) {
  std::string out;
  for (std::size_t k = 0; k < chars; ++k) {
    const char32_t c = vocabulary[k % vocabulary.size()];
    detail::append_utf8(out, k + 1 == chars && c == U' ' ? U'x' : c);
  }
  return out;
}

ResponseDict section(std::string page, ResponseValue excerpt, ResponseList citations = {}) {
  return ResponseDict{{"page_id", page},    {"title", "Title of " + page},   {"heading", "Overview"},
                      {"similarity", 0.75}, {"excerpt", std::move(excerpt)}, {"citations", citations}};
}

ResponseDict cite(std::string path, std::int64_t line) {
  return ResponseDict{{"path", std::move(path)}, {"line_start", line}, {"line_end", line + 4}};
}

// The example of three sections, each excerpt 900 characters, and the
// candidates of its budget steps, made here independently of the builder.
struct Example {
  std::string answer = "The answer.";
  ResponseList sections;

  [[nodiscard]] ResponseDict candidate(const std::vector<std::string>& excerpts) const {
    ResponseList rows;
    for (std::size_t k = 0; k < excerpts.size(); ++k) {
      const ResponseDict& s = sections[k].as_dict();
      rows.emplace_back(ResponseDict{{"page_id", s.get("page_id")},
                                     {"title", s.get("title")},
                                     {"heading", s.get("heading")},
                                     {"similarity", s.get("similarity")},
                                     {"stale", false},
                                     {"excerpt", excerpts[k]}});
    }
    return ResponseDict{{"mode", "explain"},
                        {"query", "how?"},
                        {"answer", answer},
                        {"sections", std::move(rows)},
                        {"citations", ResponseList{}}};
  }
};

TEST(wiki_ask_response, worked_example_three_sections_under_2800_bytes) {
  // With these words the last space among the first 852 characters is at 848.
  const std::string full = words(900, U"alphabet gammadelta epsilon zeta eta pi ");
  Example ask;
  for (const char* page : {"a", "b", "c"}) ask.sections.emplace_back(section(page, full));
  // Pad the answer so that the response with three empty excerpts measures 839.
  ask.answer += std::string(839 - encoded_size(ask.candidate({"", "", ""})), '.');
  constexpr std::int64_t kLimit = 2800;

  // Step 3: 839 + 3 x 200 <= 2800, so all three sections are kept.
  ASSERT_EQ(encoded_size(ask.candidate({"", "", ""})), 839u);
  // i = 0: 1739 + 400 - 2800 < 0, the first excerpt stays whole.
  ASSERT_EQ(encoded_size(ask.candidate({full, "", ""})), 1739u);
  // i = 1: 2639 + 200 - 2800 = 39, the second is cut to at most 853 characters.
  ASSERT_EQ(encoded_size(ask.candidate({full, full, ""})), 2639u);
  const std::string cut1 = trimmed(full, 900 - 39 - 8);
  EXPECT_EQ(char_count(cut1), 849u);  // 848 letters and the ellipsis: 851 bytes
  // i = 2: 3490 - 2800 = 690, the third is cut to at most 202 characters.
  const std::size_t third = encoded_size(ask.candidate({full, cut1, full}));
  ASSERT_EQ(third, 3490u);
  const std::string cut2 = trimmed(full, 900 - static_cast<std::int64_t>(third - kLimit) - 8);
  EXPECT_LE(char_count(cut2), 202u);
  EXPECT_GT(char_count(cut2), 101u);  // cut at a word boundary in the second half

  const ResponseDict result = build_wiki_ask_response(
      {.mode = "explain", .query = "how?", .answer = ask.answer, .sections = ask.sections, .token_budget = kLimit / 4});
  EXPECT_EQ(result, ask.candidate({full, cut1, cut2}));
  EXPECT_LE(encoded_size(result), 2800u);
}

// A budgeted answer that holds text which is not UTF-8 cannot be measured:
// the error names the first such string of the first candidate measured, in
// writing order, wherever it stands; without a budget nothing is measured.
TEST(wiki_ask_response, ill_formed_text_is_named_where_it_stands) {
  const auto error = [](WikiAskOptions options) -> std::string {
    try {
      (void)build_wiki_ask_response(std::move(options));
    } catch (const EncodingError& e) {
      return e.where() + " @" + std::to_string(e.byte());
    }
    return "no error";
  };
  const auto ask = [](ResponseList sections) {
    return WikiAskOptions{.mode = "m",
                          .query = "q",
                          .answer = "a",
                          .sections = std::move(sections),
                          .citations = ResponseList{cite("x.py", 1)},
                          .memories = ResponseDict{{"m", "ok"}},
                          .token_budget = 2000};
  };
  ResponseDict stale = section("s", "fine");
  stale.insert_or_assign("stale", "yes");
  ResponseDict bad_title = section("b", "fine");
  bad_title.insert_or_assign("title", "ti\xfftle");
  ResponseDict bad_excerpt = section("e", "ex\xc3");
  ResponseDict bad_key = section("k", "fine", {ResponseDict{{"path", "c.py"}, {"no\xfe", 1}}});
  EXPECT_EQ(error(ask({stale, bad_title})), "$.sections[1].title @2");
  EXPECT_EQ(error(ask({stale, bad_excerpt})), "$.sections[1].excerpt @2");
  EXPECT_EQ(error(ask({bad_excerpt, bad_title})), "$.sections[1].title @2");  // rows come before excerpts are placed
  EXPECT_EQ(error(ask({stale, bad_key})), "key #1 of $.citations[0] @2");
  WikiAskOptions memories = ask({stale});
  memories.memories = ResponseDict{{"m", "\xff"}};
  EXPECT_EQ(error(std::move(memories)), "$.memories.m @0");
  WikiAskOptions answer = ask({bad_title});
  answer.answer = "\xed\xa0\x80";
  EXPECT_EQ(error(std::move(answer)), "$.answer @0");
  WikiAskOptions unbudgeted = ask({bad_title});
  unbudgeted.token_budget.reset();
  EXPECT_EQ(error(std::move(unbudgeted)), "no error");
}

}  // namespace
}  // namespace kestrune::mcp_responses
