#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/detail/utf8.hpp"

#include "kestrune/mcp_responses/encoding.hpp"
#include "trim.hpp"

namespace kestrune::mcp_responses {
namespace {

using detail::char_count;
using detail::cut;
using detail::strip;
using detail::trimmed;

std::string repeat(std::string_view s, std::size_t n) {
  std::string out;
  for (std::size_t i = 0; i < n; ++i) out.append(s);
  return out;
}

const std::string kWord200 = repeat("w", 200);

TEST(first_sentence, takes_the_first_sentence_of_the_first_paragraph) {
  const struct {
    std::optional<std::string_view> docstring;
    std::optional<std::string> want;
  } cases[] = {
      {std::nullopt, std::nullopt},
      {"", std::nullopt},
      {"   \n  ", std::nullopt},
      {"Return the sum.  Second sentence.", "Return the sum."},
      {"Line one\ncontinues here. Next.", "Line one continues here."},
      {"First para\n\nSecond para.", "First para"},
      {"\n\n  Summary here.\n\nMore", "Summary here."},
      {"Para one line\r\n\r\nPara two", "Para one line Para two"},
      {"A para \n \nstill one", "A para still one"},
      {"What? Yes.", "What?"},
      {"Use e.g. this.", "Use e.g."},
      {"Version 1.2 is out. Next", "Version 1.2 is out."},
      {"He said \"hi.\" Then left. End", "He said \"hi.\" Then left."},
      {"(see x.) b. c", "(see x.) b."},
      {"Tab.\tNext", "Tab."},
      {"Wow! Such.", "Wow!"},
      {"Trailing.", "Trailing."},
      {kWord200, repeat("w", 159) + "\u2026"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(first_sentence(c.docstring), c.want) << c.docstring.value_or("<null>");
  }
}

TEST(first_sentence, knows_exactly_the_29_whitespace_characters) {
  const std::string_view spaces[] = {"\t",     "\n",     "\v",     "\f",     "\r",     "\x1c",   "\x1d",   "\x1e",
                                     "\x1f",   " ",      "\u0085", "\u00a0", "\u1680", "\u2000", "\u2001", "\u2002",
                                     "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200a",
                                     "\u2028", "\u2029", "\u202f", "\u205f", "\u3000"};
  for (std::size_t i = 0; i < std::size(spaces); ++i) {
    const std::string_view ws = spaces[i];
    const std::string text =
        std::string(ws) + "One" + std::string(ws) + "two." + std::string(ws) + "Three" + std::string(ws);
    EXPECT_EQ(first_sentence(text), "One two.") << "whitespace #" << i;
    EXPECT_EQ(strip(text), text.substr(ws.size(), text.size() - 2 * ws.size())) << "whitespace #" << i;
  }
  for (const std::string_view other : {"\u200b", "\ufeff", "\u180e"}) {
    const std::string text = std::string(other) + "One." + std::string(other) + "Two";
    EXPECT_EQ(first_sentence(text), text);
    EXPECT_EQ(strip(text), text);
  }
}

TEST(first_sentence, counts_characters_not_bytes_at_the_summary_limit) {
  const std::string e160 = repeat("é", SUMMARY_CHARS);
  const struct {
    std::string docstring;
    std::string want;
  } cases[] = {
      {repeat("é", 159), repeat("é", 159)},
      {e160, e160},
      {e160 + "€", repeat("é", 159) + "\u2026"},
      {repeat("\U0001F600", 161), repeat("\U0001F600", 159) + "\u2026"},
      // Collapsing first: 160 characters once the runs of whitespace are single spaces.
      {repeat("ab \u3000\n\u00a0", 53) + "a", repeat("ab ", 53) + "a"},
      {repeat("x", 159) + ". Next", repeat("x", 159) + "."},
      {repeat("x", 160) + ". Next", repeat("x", 159) + "\u2026"},
      // The character before the ellipsis would be a space: it goes.
      {repeat("x", 158) + " yz", repeat("x", 158) + "\u2026"},
      // Ill-formed bytes count one character each and stay.
      {repeat("\xff", 160), repeat("\xff", 160)},
      {"\xe2\x82" + repeat("x", 157) + ". B", "\xe2\x82" + repeat("x", 157) + "."},
      {"\xe2\x82" + repeat("x", 159), "\xe2\x82" + repeat("x", 157) + "\u2026"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(first_sentence(c.docstring), c.want) << c.docstring;
    EXPECT_LE(char_count(first_sentence(c.docstring).value()), SUMMARY_CHARS);
  }
}

TEST(cut, marks_a_cut_with_an_ellipsis_within_the_limit) {
  const struct {
    std::string text;
    std::size_t chars;
    std::string_view want;
  } cases[] = {
      {"abc", 3, "abc"},
      {"abcd", 3, "ab…"},
      {"ab cd", 4, "ab…"},
      {"", 160, ""},
      {"abcd", 1, "…"},
      {" ab ", 4, " ab "},  // within the limit: not stripped
      // Multi-byte and astral characters at, before and after the cut.
      {"abcé€", 5, "abcé€"},
      {"abcé€x", 5, "abcé…"},
      {"ab\U0001F600cd", 5, "ab\U0001F600cd"},
      {"ab\U0001F600cde", 5, "ab\U0001F600c…"},
      {"abc\U0001F600de", 5, "abc\U0001F600…"},
      {"éééééé", 5, "éééé…"},
      // Whitespace other than the space before the cut is stripped too; U+200B is not whitespace.
      {"abc\u00a0de", 5, "abc…"},
      {"abc\u2028de", 5, "abc…"},
      {"ab\u3000\u0085de", 5, "ab…"},
      {"abc\u200bde", 5, "abc\u200b…"},
      // Ill-formed bytes are characters of their own, never split from or merged into others.
      {"abc\xe2\x82", 5, "abc\xe2\x82"},
      {"abcd\xe2\x82", 5, "abcd…"},
      {"ab\xff\xfe"
       "cd",
       5, "ab\xff\xfe…"},
      {"abc\xe2\x82\xac\xac"
       "d",
       5, "abc€…"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(cut(c.text, c.chars), c.want) << c.text << " / " << c.chars;
  }
}

TEST(cut, keeps_texts_at_the_limit_and_cuts_one_over) {
  for (const std::size_t limit : {SUMMARY_CHARS, CODE_LINE_CHARS}) {
    for (const std::string_view ch : {"a", "é", "\U0001F600"}) {
      EXPECT_EQ(cut(repeat(ch, limit - 1), limit), repeat(ch, limit - 1));
      EXPECT_EQ(cut(repeat(ch, limit), limit), repeat(ch, limit));
      EXPECT_EQ(cut(repeat(ch, limit + 1), limit), repeat(ch, limit - 1) + "…");
    }
  }
}

TEST(trimmed, breaks_at_a_late_space_or_cuts_hard) {
  const struct {
    std::string text;
    std::int64_t chars;
    std::string_view want;
  } cases[] = {
      {"alpha beta gamma", 12, "alpha beta…"},
      {"ab cdefghijklmnop", 12, "ab cdefghij…"},
      {"word1 word2", 8, "word1…"},
      {"abcdefg hij", 8, "abcdefg…"},
      {"ab cd", 3, "ab…"},
      {"abc", 1, ""},
      {"a", 1, "a"},
      {"abc", 0, ""},
      {"abc", -1, ""},
      {"", 0, ""},
      // At the limit, one under and one over.
      {"alpha beta g", 12, "alpha beta g"},
      {"alpha beta ", 12, "alpha beta "},
      {"alpha beta ga", 12, "alpha beta…"},
      // A space exactly at chars / 2 is used, one before it is not.
      {"abcd efghijk", 8, "abcd…"},
      {"abc defghijk", 8, "abc def…"},
      // The space after the first chars - 1 characters is not looked at.
      {"abcdefg hijk", 8, "abcdefg…"},
      // Multi-byte and astral text; only U+0020 is a break.
      {"éééé ééééé", 8, "éééé…"},
      {"éééé\u00a0ééééé", 8, "éééé\u00a0éé…"},
      {"😀😀😀 😀😀😀😀", 6, "😀😀😀…"},
      {"abc\u3000 defgh", 8, "abc…"},
      {"ab cdef\u2028gh", 8, "ab cdef…"},
      {"\xff\xff\xff \xff\xff\xff\xff", 6, "\xff\xff\xff…"},
      {"\xe2\x82"
       "ab cdefgh",
       8,
       "\xe2\x82"
       "ab…"},
  };
  for (const auto& c : cases) {
    const std::string got = trimmed(c.text, c.chars);
    EXPECT_EQ(got, c.want) << c.text << " / " << c.chars;
    if (c.chars >= 0) {
      EXPECT_LE(char_count(got), static_cast<std::size_t>(c.chars)) << c.text;
    }
  }
}

// The text helpers, one character at a time: the oracle for their block
// scans. An ill-formed byte is one character of its own.
struct Chars {
  std::vector<std::size_t> starts;  // byte offset of each character, then the end
  std::vector<bool> space;          // whether each character is whitespace
};

Chars chars_of(std::string_view s) {
  Chars c;
  for (std::size_t i = 0; i < s.size();) {
    const detail::Decoded d = detail::decode_at(s, i);
    c.starts.push_back(i);
    c.space.push_back(d.ok && detail::is_whitespace(d.cp));
    i += d.ok ? d.len : 1;
  }
  c.starts.push_back(s.size());
  return c;
}

std::string plain_trimmed(std::string_view s, std::int64_t n) {
  const Chars c = chars_of(s);
  const std::size_t count = c.space.size();
  if (n >= 0 && count <= static_cast<std::size_t>(n)) return std::string(s);
  if (n <= 1) return {};
  const auto limit = static_cast<std::size_t>(n);
  std::size_t end = c.starts[limit - 1];
  for (std::size_t k = limit - 1; k-- > limit / 2;) {
    if (s[c.starts[k]] == ' ') {
      end = c.starts[k];
      break;
    }
  }
  std::string_view kept = s.substr(0, end);
  const Chars kc = chars_of(kept);
  std::size_t last = 0;
  for (std::size_t k = 0; k < kc.space.size(); ++k) {
    if (!kc.space[k]) last = kc.starts[k + 1];
  }
  return std::string(kept.substr(0, last)) + "\u2026";
}

TEST(trimmed, block_scans_agree_with_a_character_at_a_time) {
  // Multi-byte characters, whitespace of every width and ill-formed bytes,
  // over lengths that cross the 16-byte blocks.
  static const std::string_view kPieces[] = {"a",        "bc ",  " ",    "\u00e9", "\u2000", "\u3000", "\U0001F600",
                                             "\xe2\x82", "\x80", "\xff", "\t",     "\u0085", "word ",  "\xc3"};
  std::mt19937_64 rng(5);
  for (int i = 0; i < 20000; ++i) {
    std::string s;
    for (std::uint64_t k = rng() % 40; k > 0; --k) s += kPieces[rng() % std::size(kPieces)];
    if (i % 2 == 0) s.insert(0, 16 - s.size() % 16, 'a');  // ends at a block boundary
    const Chars c = chars_of(s);
    ASSERT_EQ(char_count(s), c.space.size()) << testing::PrintToString(s);
    std::size_t last = 0;
    for (std::size_t k = 0; k < c.space.size(); ++k) {
      if (!c.space[k]) last = c.starts[k + 1];
    }
    ASSERT_EQ(detail::strip_end(s), s.substr(0, last)) << testing::PrintToString(s);
    const auto n = static_cast<std::int64_t>(rng() % (c.space.size() + 2));
    ASSERT_EQ(trimmed(s, n), plain_trimmed(s, n)) << testing::PrintToString(s) << " " << n;
  }
}

TEST(trimmed, counting_known_well_formed_text_agrees) {
  // Text known to be well-formed is counted without checking, its leading
  // blocks in bulk: long texts, cut anywhere, with few or many multi-byte
  // characters before the cut.
  static const std::string_view kPieces[] = {"word ", "a", "\u00e9", "\u20ac ", "\U0001F600", "\u3000", "x"};
  std::mt19937_64 rng(23);
  for (int i = 0; i < 3000; ++i) {
    std::string s;
    const std::uint64_t dense = rng() % 4;  // how often a multi-byte piece comes up
    for (std::uint64_t k = rng() % 2500; k > 0; --k) {
      s += rng() % 4 < dense ? kPieces[rng() % std::size(kPieces)] : std::string_view("word ");
    }
    const auto n = static_cast<std::int64_t>(rng() % (s.size() + 3));
    bool well_formed = false;
    std::size_t count = 0;
    const std::string got = detail::trimmed_checked(s, n, well_formed, count, true);
    ASSERT_EQ(got, plain_trimmed(s, n)) << s.size() << " " << n;
    ASSERT_TRUE(well_formed);
    if (count != detail::kUnknownCount) {
      ASSERT_EQ(count, char_count(got));
    }
  }
  // More than 255 blocks counted in bulk, each with continuation bytes in the
  // same places.
  std::string dense;
  for (int k = 0; k < 5000; ++k) dense += "\u00e9";
  bool well_formed = false;
  std::size_t count = 0;
  EXPECT_EQ(detail::trimmed_checked(dense, 4500, well_formed, count, true), plain_trimmed(dense, 4500));
}

std::optional<std::string> plain_first_sentence(std::string_view doc) {
  if (doc.empty()) return std::nullopt;
  std::string_view text = strip(doc);
  text = text.substr(0, text.find("\n\n"));
  const Chars c = chars_of(text);
  std::string sentence;
  bool pending = false;
  for (std::size_t k = 0; k < c.space.size() && char_count(sentence) <= SUMMARY_CHARS; ++k) {
    if (c.space[k]) {
      pending = !sentence.empty();
      continue;
    }
    if (pending) {
      const char last = sentence.back();
      if (last == '.' || last == '!' || last == '?') break;
      sentence += ' ';
      pending = false;
    }
    sentence += text.substr(c.starts[k], c.starts[k + 1] - c.starts[k]);
  }
  std::string summary = cut(sentence, SUMMARY_CHARS);
  if (summary.empty()) return std::nullopt;
  return summary;
}

TEST(first_sentence, copies_runs_like_a_character_at_a_time) {
  // Lead bytes that may begin whitespace (C2, E1, E2, E3) both do and do
  // not; controls that are and are not whitespace; ill-formed and truncated
  // sequences; paragraph breaks and what only looks like one.
  static const std::string_view kPieces[] = {"Word",    " ",
                                             "  ",      ". ",
                                             "! ",      "?",
                                             "\n",      "\n\n",
                                             "\t",      "\u2003",
                                             "é",       "\xff",
                                             "x.y",     "end.",
                                             "漢字",    "\u00a0",
                                             "abc ",    "\x7f",
                                             "\x1c",    "a",
                                             "Why?",    " ! ",
                                             "\x01",    "\u201cq\u201d",
                                             "\u2192",  "\u1680",
                                             "\u2028",  ".\u3000",
                                             "\u0085",  "\xe2\x80",
                                             "\xc2",    "\r\n",
                                             "\n \n",   "\u00e9t\u00e9 ",
                                             "\u00c2b", "\u1e9e",
                                             "\u3001",  "\xe3\x80\x80"};
  std::mt19937_64 rng(17);
  for (int i = 0; i < 20000; ++i) {
    std::string s;
    // Sentence ends are rare enough that many sentences pass the limit;
    // some texts are mostly words beyond ASCII.
    const std::string_view filler = i % 4 == 0 ? "\u00fcber\u65e5 " : "word ";
    for (std::uint64_t k = rng() % 160; k > 0; --k) {
      s += rng() % 3 == 0 ? kPieces[rng() % std::size(kPieces)] : filler;
    }
    ASSERT_EQ(first_sentence(s), plain_first_sentence(s)) << testing::PrintToString(s);
  }
}

TEST(without_nulls, drops_only_null_values_in_order) {
  const ResponseDict row{{"a", 1},
                         {"b", nullptr},
                         {"c", false},
                         {"d", ""},
                         {"e", 0.0},
                         {"f", ResponseList{nullptr}},
                         {"g", ResponseDict{{"x", nullptr}}}};
  const ResponseDict want{
      {"a", 1}, {"c", false}, {"d", ""}, {"e", 0.0}, {"f", ResponseList{nullptr}}, {"g", ResponseDict{{"x", nullptr}}}};
  const ResponseDict copy = row;
  EXPECT_EQ(without_nulls(row), want);
  EXPECT_EQ(row, copy);
  EXPECT_EQ(without_nulls(ResponseDict(row)), want);
  EXPECT_EQ(tool_result_text(without_nulls(row)), R"({"a":1,"c":false,"d":"","e":0.0,"f":[null],"g":{"x":null}})");

  EXPECT_TRUE(without_nulls(ResponseDict{}).empty());
  const ResponseDict all_null{{"a", nullptr}, {"b", nullptr}};
  EXPECT_TRUE(without_nulls(all_null).empty());
  EXPECT_TRUE(without_nulls(ResponseDict(all_null)).empty());
}

}  // namespace
}  // namespace kestrune::mcp_responses
