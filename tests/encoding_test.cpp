// What the data files and the encoder's fuzz target leave out: kept sizes
// after every kind of change, UTF-8 at the edges of its ranges, and where
// an error points.
#include "kestrune/mcp_responses/encoding.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "encoding/encoded_size.hpp"
#include "internal/utf8.hpp"
#include "support/fresh.hpp"

namespace kestrune::mcp_responses {
namespace {

using detail::encoded_size;

TEST(encoded_size, kept_string_sizes_follow_every_change) {
  // Strings and keys keep their sizes from when they were made; each change
  // below must leave the tree measuring and writing as one made afresh.
  const std::string escapes = "tab\there \"quoted\" back\\slash \x01 and more than sixteen bytes";
  const std::string ill_formed = "bad \xff byte";
  using Change = void (*)(ResponseDict&, const std::string&, const std::string&);
  const std::pair<const char*, Change> kChanges[] = {
      {"value replaced through find",
       [](ResponseDict& d, const std::string& e, const std::string&) { *d.find("plain") = e; }},
      {"value replaced through at and operator[]",
       [](ResponseDict& d, const std::string& e, const std::string&) {
         d.at("escaped") = "plain now";
         d["new \"key\""] = e;
       }},
      {"string moved out",
       [](ResponseDict& d, const std::string&, const std::string&) {
         const ResponseValue taken = std::move(*d.find("escaped"));
         EXPECT_FALSE(taken.as_string().empty());
       }},
      {"string moved out of its value",
       [](ResponseDict& d, const std::string& e, const std::string&) {
         EXPECT_EQ(std::move(*d.find("escaped")).as_string(), e);
       }},
      {"string moved over by an assignment",
       [](ResponseDict& d, const std::string&, const std::string&) {
         ResponseValue& plain = *d.find("plain");
         ResponseValue& escaped = *d.find("escaped");
         plain = std::move(escaped);
       }},
      {"ill-formed key erased",
       [](ResponseDict& d, const std::string&, const std::string& bad) {
         d.insert_or_assign(bad, 1);
         EXPECT_TRUE(d.erase(bad));
       }},
      {"escaped keys erased by a predicate",
       [](ResponseDict& d, const std::string&, const std::string&) {
         d.insert_or_assign("a\nb", 2);
         d.erase_if([](const ResponseDict::value_type& e) { return e.first.find('\n') != std::string::npos; });
       }},
      {"dict moved out and refilled",
       [](ResponseDict& d, const std::string& e, const std::string&) {
         ResponseDict& inner = d.find("inner")->as_dict();
         const ResponseDict taken = std::move(inner);
         inner.append("x\ty", e);
         EXPECT_EQ(taken.size(), 1u);
       }},
      {"list element replaced",
       [](ResponseDict& d, const std::string& e, const std::string&) { d.find("list")->as_list()[0] = e; }},
  };
  for (const auto& [name, change] : kChanges) {
    ResponseDict d{{"plain", "plain text"},
                   {"escaped", escapes},
                   {"inner", ResponseDict{{"k\"", escapes}}},
                   {"list", ResponseList{"a", escapes}},
                   {ill_formed, nullptr}};
    d.erase(ill_formed);
    change(d, escapes, ill_formed);
    EXPECT_TRUE(fresh::kept_sizes_hold(d)) << name;
  }
  // Copies keep what the original kept; an ill-formed key or value still
  // cannot be measured after a copy.
  const ResponseDict bad_key{{ill_formed, 1}};
  const ResponseList bad_value{ResponseValue(ill_formed)};
  EXPECT_THROW((void)encoded_size(ResponseDict(bad_key)), EncodingError);
  EXPECT_THROW((void)encoded_size(ResponseList(bad_value)), EncodingError);
}

TEST(encoded_size, agrees_with_the_plain_utf8_check_on_random_bytes) {
  // Bytes and sequences at the edges of the UTF-8 ranges, so that every kind
  // of ill-formed sequence turns up, at every offset of the 16-byte blocks.
  static const unsigned char kBytes[] = {'a',  '"',  '\n', 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2,
                                         0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF3, 0xF4, 0xF5, 0xFF};
  static const std::string_view kPieces[] = {"\u00e9", "\u0800", "\ud7ff", "\ue000", "\uffff", "\U00010000",
                                             "\U0010ffff", "abcdefghijklmno",
                                             // Just outside the narrower second-byte ranges, and overlong forms.
                                             "\xe0\x9f\xbf", "\xed\xa0\x80", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80",
                                             "\xc1\xbf", "\xe0\x80\x80", "\xf5\x80\x80\x80"};
  std::mt19937_64 rng(99);
  for (int i = 0; i < 100000; ++i) {
    std::string s;
    for (std::uint64_t k = rng() % 24; k > 0; --k) {
      if (rng() % 3 == 0) {
        s += static_cast<char>(kBytes[rng() % std::size(kBytes)]);
      } else {
        s += kPieces[rng() % std::size(kPieces)];
      }
    }
    const ResponseValue v(s);
    if (detail::first_ill_formed(s) == std::string_view::npos) {
      ASSERT_EQ(encoded_size(v), tool_result_text(v).size()) << testing::PrintToString(s);
    } else {
      ASSERT_THROW((void)encoded_size(v), EncodingError) << testing::PrintToString(s);
    }
  }
}

TEST(encoded_size, refuses_ill_formed_utf8_and_says_where) {
  const struct {
    ResponseDict value;
    std::string_view where;
    std::size_t byte;
  } cases[] = {
      {ResponseDict{{"a", "ok\xed\xa0\x80"}}, "$.a", 2},  // an encoded surrogate
      {ResponseDict{{"s", ResponseList{"x", ResponseDict{{"e", "\xff"}}}}}, "$.s[1].e", 0},
      {ResponseDict{{"ok", 1}, {"bad\xc3", 2}}, "key #1 of $", 3},
      {ResponseDict{{"t", "\xc3\xa9\xe2\x82"}}, "$.t", 2},  // truncated sequence
      {ResponseDict{{"o", "\xc0\xaf"}}, "$.o", 0},          // overlong form
      // A key on the path is written as the compact text writes it.
      {ResponseDict{{std::string("q\"\0\\", 4), "\xff"}}, R"($.q\"\u0000\\)", 0},
  };
  for (const auto& c : cases) {
    try {
      (void)encoded_size(c.value);
      ADD_FAILURE() << c.where << ": no error";
    } catch (const EncodingError& e) {
      EXPECT_EQ(e.where(), c.where);
      EXPECT_EQ(e.byte(), c.byte) << c.where;
      EXPECT_NE(std::string(e.what()).find(std::string(c.where)), std::string::npos) << e.what();
    }
    // The text itself is still written, the bytes passed through unchanged.
    EXPECT_FALSE(tool_result_text(c.value).empty());
  }
  EXPECT_EQ(tool_result_text(ResponseValue("a\xff")), "\"a\xff\"");
  std::string out = "prefix:";
  append_tool_result_text(out, ResponseDict{{"a", "\xff"}});
  EXPECT_EQ(out, "prefix:{\"a\":\"\xff\"}");
}

// What a message quotes of an argument comes whole, one line, well-formed.
TEST(quote, writes_an_argument_whole_and_escaped) {
  const struct {
    std::string text;
    std::string_view quoted;
  } cases[] = {
      {"cart", R"("cart")"},
      {std::string("cart\0zzz", 8), R"("cart\u0000zzz")"},
      {"say \"hi\"\n\t\\", R"("say \"hi\"\n\t\\")"},
      {"caf\xc3\xa9 \xf0\x9f\x98\x80 /\x7f", "\"caf\xc3\xa9 \xf0\x9f\x98\x80 /\x7f\""},  // as themselves
      {"a\xff\xc3(\xed\xa0\x80z", R"("a\xff\xc3(\xed\xa0\x80z")"},  // each byte of ill-formed UTF-8
      {"\x1b\xe2\x82", R"("\u001b\xe2\x82")"},                      // a truncated sequence at the end
  };
  for (const auto& c : cases) EXPECT_EQ(quote(c.text), c.quoted) << testing::PrintToString(c.text);
  try {
    (void)ResponseDict{{"a", 1}}.at(std::string("n\0\"", 3));
    ADD_FAILURE() << "no error";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), R"(ResponseDict: no key "n\u0000\"")");
  }
}

}  // namespace
}  // namespace kestrune::mcp_responses
