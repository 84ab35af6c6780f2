#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <ostream>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "support/ask_by_encoding.hpp"
#include "support/fresh.hpp"

namespace kestrune::mcp_responses {

// Failures show the compact text of a response.
void PrintTo(const ResponseDict& d, std::ostream* os) { *os << tool_result_text(d); }

namespace {

using detail::char_count;
using detail::encoded_size;
using detail::trimmed;

// Exactly `chars` characters of words from `vocabulary` separated by single
// spaces, never ending in a space.
std::string words(std::size_t chars, std::u32string_view vocabulary = U"alpha beta gamma delta epsilon zeta eta ") {
  std::string out;
  for (std::size_t k = 0; k < chars; ++k) {
    const char32_t c = vocabulary[k % vocabulary.size()];
    detail::append_utf8(out, k + 1 == chars && c == U' ' ? U'x' : c);
  }
  return out;
}

ResponseDict section(std::string page, ResponseValue excerpt, ResponseList citations = {}) {
  return ResponseDict{
      {"page_id", page},  {"title", "Title of " + page},   {"heading", "Overview"}, {"similarity", 0.75},
      {"stale", nullptr}, {"excerpt", std::move(excerpt)}, {"citations", citations}};
}

ResponseDict cite(std::string path, std::int64_t line) {
  return ResponseDict{{"path", std::move(path)}, {"line_start", line}, {"line_end", line + 4}};
}

// One ask call's inputs, and the candidate responses the budget steps build
// from them, made here independently of the builder.
struct Ask {
  std::string answer = "The answer.";
  ResponseList sections;
  ResponseList extra;
  std::optional<ResponseDict> code;
  std::optional<ResponseDict> memories;

  [[nodiscard]] WikiAskOptions options(std::optional<std::int64_t> budget) const {
    return {.mode = "explain",
            .query = "how?",
            .answer = answer,
            .sections = sections,
            .citations = extra,
            .model = "m",
            .code = code,
            .memories = memories,
            .token_budget = budget};
  }

  [[nodiscard]] ResponseDict candidate(const std::vector<std::string>& excerpts, bool with_code = true,
                                       bool with_memories = true) const {
    ResponseList rows;
    for (std::size_t k = 0; k < excerpts.size(); ++k) {
      const ResponseDict& s = sections[k].as_dict();
      rows.emplace_back(ResponseDict{{"page_id", s.get("page_id")},
                                     {"title", s.get("title")},
                                     {"heading", s.get("heading")},
                                     {"similarity", s.get("similarity")},
                                     {"stale", !is_empty(s.get("stale"))},
                                     {"excerpt", excerpts[k]}});
    }
    ResponseDict r{{"mode", "explain"},
                   {"query", "how?"},
                   {"answer", answer},
                   {"sections", std::move(rows)},
                   {"citations", detail::ask_citations(std::span(sections).first(excerpts.size()), extra)},
                   {"model", "m"}};
    if (code && with_code) r.append("code", *code);
    if (memories && with_memories) r.append("memories", *memories);
    return r;
  }

  [[nodiscard]] ResponseDict build(std::optional<std::int64_t> budget) const {
    return build_wiki_ask_response(options(budget));
  }

  // Lengthens the answer so that `candidate` of `excerpts` measures a
  // multiple of 4 bytes plus `remainder`.
  void align(const std::vector<std::string>& excerpts, std::size_t remainder = 0) {
    while (encoded_size(candidate(excerpts)) % 4 != remainder) answer += '.';
  }
};

std::vector<std::string> excerpts_of(const ResponseDict& response) {
  std::vector<std::string> out;
  for (const auto& row : response.at("sections").as_list()) out.push_back(row.as_dict().at("excerpt").as_string());
  return out;
}

std::int64_t tokens_for(std::size_t bytes) { return static_cast<std::int64_t>(bytes / 4); }

TEST(wiki_ask_response, worked_example_three_sections_under_2800_bytes) {
  // With these words the last space among the first 852 characters is at 848.
  const std::string full = words(900, U"alphabet gammadelta epsilon zeta eta pi ");
  Ask ask;
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

  const ResponseDict result = ask.build(kLimit / 4);
  EXPECT_EQ(result, ask.candidate({full, cut1, cut2}));
  EXPECT_LE(encoded_size(result), 2800u);
}

TEST(wiki_ask_response, without_budget_keeps_every_section_cut_to_1200) {
  Ask ask;
  ask.sections = {section("a", words(1500)), section("b", "short"), section("c", nullptr)};
  ask.extra = {cite("x.py", 1)};
  ask.code = ResponseDict{{"body", words(5000)}};
  ask.memories = ResponseDict{{"m", words(5000)}};
  const ResponseDict r = ask.build(std::nullopt);
  EXPECT_EQ(r, ask.candidate({trimmed(words(1500), 1200), "short", ""}));
}

TEST(wiki_ask_response, lays_out_rows_and_keys) {
  const ResponseDict r = build_wiki_ask_response({.mode = "m",
                                                  .query = "q",
                                                  .answer = std::nullopt,
                                                  .sections = {ResponseDict{{"excerpt", 7}, {"other", 1}}},
                                                  .note = "n",
                                                  .decisions = ResponseDict{{"calls", 1}}});
  EXPECT_EQ(tool_result_text(r),
            R"({"mode":"m","query":"q","answer":null,"sections":[{"page_id":null,"title":null,"heading":null,)"
            R"("similarity":null,"stale":false,"excerpt":"7"}],"citations":[],"note":"n","decisions":{"calls":1}})");
}

TEST(wiki_ask_response, turns_excerpts_and_staleness_into_text_and_flags) {
  const struct {
    ResponseValue excerpt;
    std::string_view text;
  } excerpts[] = {
      {nullptr, ""},
      {"", ""},
      {0, ""},
      {0.0, ""},
      {false, ""},
      {ResponseList{}, ""},
      {7, "7"},
      {2.5, "2.5"},
      {true, "true"},
      {ResponseList{1, "x"}, R"([1,"x"])"},
      {ResponseDict{{"a", nullptr}}, R"({"a":null})"},
  };
  for (const auto& c : excerpts) {
    const ResponseDict r = build_wiki_ask_response(
        {.mode = "m", .query = "q", .answer = "a", .sections = {ResponseDict{{"excerpt", c.excerpt}}}});
    EXPECT_EQ(excerpts_of(r), std::vector<std::string>{std::string(c.text)}) << tool_result_text(c.excerpt);
  }
  const struct {
    ResponseValue stale;
    bool shown;
  } stales[] = {{nullptr, false}, {"", false}, {0, false},   {ResponseList{}, false},
                {"yes", true},    {1, true},   {true, true}, {ResponseList{"p"}, true}};
  for (const auto& c : stales) {
    const ResponseDict r = build_wiki_ask_response(
        {.mode = "m", .query = "q", .answer = "a", .sections = {ResponseDict{{"stale", c.stale}}}});
    EXPECT_EQ(r.at("sections").as_list()[0].as_dict().at("stale"), ResponseValue(c.shown)) << tool_result_text(c.stale);
  }
}

TEST(wiki_ask_response, fits_at_the_limit_and_shrinks_one_token_below) {
  // One section: the whole excerpt stays while the response fits exactly.
  Ask one;
  one.sections = {section("a", words(900))};
  one.align({words(900)});
  const std::size_t whole = encoded_size(one.candidate({words(900)}));
  EXPECT_EQ(one.build(tokens_for(whole)), one.build(std::nullopt));
  const ResponseDict cut = one.build(tokens_for(whole) - 1);  // 4 bytes over: cut to 900 - 4 - 8
  EXPECT_EQ(cut, one.candidate({trimmed(words(900), 888)}));

  // Three sections: 200 bytes stay reserved below each excerpt being filled.
  Ask three;
  const std::vector<std::string> full = {words(300), words(500), words(300)};
  three.sections = {section("a", full[0]), section("b", full[1]), section("c", full[2])};
  three.memories = ResponseDict{{"m", "remembered"}};
  three.align(full);
  const std::size_t all = encoded_size(three.candidate(full));
  EXPECT_EQ(three.build(tokens_for(all)), three.build(std::nullopt));
  EXPECT_EQ(three.build(tokens_for(all) - 1), three.candidate({full[0], full[1], trimmed(full[2], 300 - 4 - 8)}));

  // The middle excerpt is measured with 200 bytes reserved for the last one.
  three.align({full[0], full[1], ""});
  const std::size_t middle = encoded_size(three.candidate({full[0], full[1], ""})) + 200;
  const auto over_last = static_cast<std::int64_t>(encoded_size(three.candidate(full)) - middle);
  EXPECT_EQ(three.build(tokens_for(middle)),
            three.candidate({full[0], full[1], trimmed(full[2], 300 - over_last - 8)}));
  const std::string cut_middle = trimmed(full[1], 500 - 4 - 8);
  const auto over_after = static_cast<std::int64_t>(encoded_size(three.candidate({full[0], cut_middle, full[2]}))) -
                          static_cast<std::int64_t>(middle - 4);
  ASSERT_GT(over_after, 0);
  EXPECT_EQ(three.build(tokens_for(middle) - 1),
            three.candidate({full[0], cut_middle, trimmed(full[2], 300 - over_after - 8)}));

  // Room for the whole response plus 200 bytes per section (rounded up to a
  // whole token) keeps it all.
  EXPECT_EQ(three.build(tokens_for(encoded_size(three.candidate(full)) + 600 + 3)), three.build(std::nullopt));
}

TEST(wiki_ask_response, short_excerpts_still_reserve_200_bytes) {
  Ask ask;
  ask.sections = {section("a", words(10)), section("b", words(10)), section("c", words(10))};
  ask.align({"", "", ""});
  const std::size_t empty3 = encoded_size(ask.candidate({"", "", ""}));
  const std::size_t empty2 = encoded_size(ask.candidate({"", ""}));
  // Exactly the reserve of three sections: all three stay, whole.
  EXPECT_EQ(ask.build(tokens_for(empty3 + 600)), ask.build(std::nullopt));
  // One byte short of it, yet far more than the whole response needs.
  ask.answer += '.';
  ASSERT_LT(encoded_size(ask.candidate({words(10), words(10), words(10)})) + 500, empty3 + 600);
  ASSERT_LE(empty2 + 1 + 400, empty3 + 600);
  EXPECT_EQ(ask.build(tokens_for(empty3 + 600)), ask.candidate({words(10), words(10)}));
}

TEST(wiki_ask_response, drops_memories_before_code) {
  Ask ask;
  ask.code = ResponseDict{{"snippet", words(400)}};
  ask.memories = ResponseDict{{"notes", words(300)}};
  ask.align({});
  const std::size_t both = encoded_size(ask.candidate({}));
  const std::size_t code_only = encoded_size(ask.candidate({}, true, false));
  const std::size_t neither = encoded_size(ask.candidate({}, false, false));
  const struct {
    std::size_t limit;
    bool code, memories;
  } cases[] = {
      {both, true, true},
      {both - 4, true, false},  // a few bytes over: dropping memories suffices
      {code_only - code_only % 4, true, false},
      {code_only - code_only % 4 - 4, false, false},
      {neither - neither % 4 + 4, false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ask.build(tokens_for(c.limit)), ask.candidate({}, c.code, c.memories)) << c.limit;
  }
}

TEST(wiki_ask_response, drops_sections_with_their_citations_before_attachments) {
  Ask ask;
  ask.sections = {section("a", words(600), {cite("a.py", 1), cite("shared.py", 1)}),
                  section("b", words(600), {cite("b.py", 1)})};
  ask.extra = {cite("shared.py", 1), cite("x.py", 1)};
  ask.memories = ResponseDict{{"notes", "n"}};
  // One token short of room for both sections: the second goes, with its citation.
  ask.align({"", ""});
  const std::size_t limit = encoded_size(ask.candidate({"", ""})) + 400 - 4;
  const ResponseDict r = ask.build(tokens_for(limit));
  const auto over = static_cast<std::int64_t>(encoded_size(ask.candidate({words(600)})) - limit);
  EXPECT_EQ(r, ask.candidate({trimmed(words(600), 600 - over - 8)}));
  EXPECT_EQ(r.at("citations"), ResponseValue(ResponseList{cite("a.py", 1), cite("shared.py", 1), cite("x.py", 1)}));
  EXPECT_TRUE(r.contains("memories"));
}

TEST(wiki_ask_response, unmeetable_budgets_keep_only_the_fixed_parts) {
  Ask ask;
  ask.sections = {section("a", words(100), {cite("a.py", 1)})};
  ask.extra = {cite("x.py", 1), cite("x.py", 1)};
  ask.code = ResponseDict{{"snippet", "c"}};
  ask.memories = ResponseDict{{"notes", "n"}};
  const ResponseDict bare = ask.candidate({}, false, false);
  for (const std::int64_t budget : {std::int64_t{0}, std::int64_t{-5}, std::numeric_limits<std::int64_t>::min()}) {
    EXPECT_EQ(ask.build(budget), bare) << budget;
  }
  ask.answer = words(5000);  // far over the budget, never cut
  EXPECT_EQ(ask.build(100), ask.candidate({}, false, false));
  EXPECT_EQ(ask.build(std::numeric_limits<std::int64_t>::max()), ask.build(std::nullopt));
}

TEST(wiki_ask_response, cuts_multibyte_excerpts_by_characters) {
  // Each excerpt character is 2 or 3 bytes: the overshoot is taken off in
  // characters all the same, so the cut frees more bytes than needed.
  for (const std::u32string_view vocabulary : {std::u32string_view(U"éèà çù"), std::u32string_view(U"漢字 仮名 文")}) {
    const std::string full = words(900, vocabulary);
    Ask ask;
    ask.sections = {section("a", full)};
    ask.align({full});
    const std::size_t whole = encoded_size(ask.candidate({full}));
    const std::int64_t over = 400;
    const ResponseDict r = ask.build(tokens_for(whole) - over / 4);
    EXPECT_EQ(r, ask.candidate({trimmed(full, 900 - over - 8)}));
    EXPECT_LT(encoded_size(r), whole - over - over / 2);  // freed well beyond the overshoot
  }
}

TEST(wiki_ask_response, ill_formed_text_cannot_be_measured) {
  const auto options = [](std::optional<std::int64_t> budget) {
    return WikiAskOptions{.mode = "m", .query = "q", .answer = "a\xff", .sections = {}, .token_budget = budget};
  };
  EXPECT_THROW((void)build_wiki_ask_response(options(100)), EncodingError);
  EXPECT_EQ(build_wiki_ask_response(options(std::nullopt)).at("answer"), ResponseValue("a\xff"));
}

// Random ask inputs: excerpts of many lengths with multi-byte text and
// escapes, non-string excerpts, citations drawn from a few places so that
// they repeat, attachments present or not, and now and then a byte that is
// not UTF-8.
class RandomAsk {
 public:
  explicit RandomAsk(std::uint64_t seed) : rng_(seed) {}

  WikiAskOptions next() {
    WikiAskOptions o{.mode = "explain",
                     .query = text(20),
                     .answer = pick(8) == 0 ? std::nullopt : std::optional(text(300)),
                     .sections = {}};
    for (std::uint64_t k = pick(13); k > 0; --k) o.sections.emplace_back(section());
    if (pick(4) != 0) o.citations = citations(pick(30));
    if (pick(2) == 0) o.model = "m";
    if (pick(2) == 0) o.tokens = ResponseDict{{"in", 10}, {"out", 2}};
    if (pick(3) == 0) o.note = text(40);
    if (pick(3) == 0) o.decisions = ResponseDict{{"calls", 1}, {"cost", 0.25}};
    if (pick(2) == 0) o.code = ResponseDict{{"text", text(pick(800))}};
    if (pick(2) == 0) o.memories = ResponseDict{{"items", ResponseList{text(pick(600))}}};
    return o;
  }

  std::uint64_t pick(std::uint64_t n) { return rng_() % n; }

 private:
  std::string text(std::uint64_t chars) {
    static const std::string_view kPieces[] = {"word ", "a",  "b ", "é", "漢字", "\U0001F600", "\"", "\\",
                                               "\n",    "\t", " ",  "x", "yz",   "\x01",       "  "};
    std::string s;
    for (std::uint64_t k = 0; k < chars; ++k) s += kPieces[pick(std::size(kPieces))];
    if (pick(150) == 0) s.insert(pick(s.size() + 1), "\xff");
    return s;
  }

  ResponseValue place_value(int which) {
    switch (pick(5)) {
      case 0:
        return nullptr;
      case 1:
        return which;
      case 2:
        return static_cast<double>(which);
      default:
        return which == 0 ? ResponseValue("a.py") : ResponseValue(std::string(static_cast<std::size_t>(which), 'p'));
    }
  }

  ResponseList citations(std::uint64_t n) {
    ResponseList list;
    for (; n > 0; --n) {
      ResponseDict c;
      if (pick(4) != 0) c.append("path", place_value(static_cast<int>(pick(3))));
      if (pick(4) != 0) c.append("line_start", place_value(static_cast<int>(pick(3))));
      if (pick(4) != 0) c.append("line_end", place_value(static_cast<int>(pick(2))));
      if (pick(2) == 0) c.append("note", text(pick(6)));
      list.emplace_back(std::move(c));
    }
    return list;
  }

  ResponseValue section() {
    ResponseDict s;
    if (pick(6) != 0) s.append("page_id", text(3));
    if (pick(6) != 0) s.append("title", text(5));
    if (pick(6) != 0) s.append("heading", text(4));
    if (pick(6) != 0) s.append("similarity", static_cast<double>(pick(1000)) / 1000.0);
    static const ResponseValue kStale[] = {nullptr, false, true, "", "yes", 0, 2};
    if (pick(3) != 0) s.append("stale", kStale[pick(std::size(kStale))]);
    switch (pick(8)) {
      case 0:
        break;
      case 1:
        s.append("excerpt", ResponseList{1, "two", ResponseDict{{"k", text(3)}}});
        break;
      case 2:
        s.append("excerpt", static_cast<std::int64_t>(pick(100000)));
        break;
      default:
        s.append("excerpt", text(pick(3) == 0 ? pick(60) : pick(1600)));
        break;
    }
    if (pick(5) != 0) s.append("citations", citations(pick(7)));
    return s;
  }

  std::mt19937_64 rng_;
};

TEST(wiki_ask_response, adds_up_the_same_sizes_as_encoding_every_candidate) {
  RandomAsk random(2718);
  int thrown = 0;
  for (int i = 0; i < 1500; ++i) {
    WikiAskOptions o = random.next();
    // Budgets from hopeless to roomy, around the unbudgeted size.
    std::size_t whole = 0;
    try {
      whole = encoded_size(build_wiki_ask_response(o));
    } catch (const EncodingError&) {
      whole = 4000;
    }
    const auto tokens = static_cast<std::int64_t>(whole / 4);
    switch (random.pick(6)) {
      case 0:
        o.token_budget = std::nullopt;
        break;
      case 1:
        o.token_budget = static_cast<std::int64_t>(random.pick(50)) - 10;
        break;
      default:
        o.token_budget = static_cast<std::int64_t>(random.pick(static_cast<std::uint64_t>(tokens) + 300));
        break;
    }
    std::optional<ResponseDict> want;
    std::string want_error;
    try {
      want = oracle::ask_by_encoding(o);
    } catch (const EncodingError& e) {
      want_error = e.what();
    }
    try {
      const ResponseDict got = build_wiki_ask_response(o);
      ASSERT_TRUE(want.has_value()) << i << ": expected " << want_error;
      ASSERT_EQ(got, *want) << i;
      ASSERT_TRUE(fresh::kept_sizes_hold(got)) << i;
    } catch (const EncodingError& e) {
      ASSERT_EQ(e.what(), want_error) << i;
      ++thrown;
    }
  }
  EXPECT_GT(thrown, 0);  // the ill-formed inputs did come up
}

}  // namespace
}  // namespace kestrune::mcp_responses
