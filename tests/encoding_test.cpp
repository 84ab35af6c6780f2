#include "kestrune/mcp_responses/encoding.hpp"

#include "kestrune/mcp_responses/detail/utf8.hpp"

#include <gtest/gtest.h>

#include "support/fresh.hpp"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace kestrune::mcp_responses {
namespace {

using detail::encoded_size;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(tool_result_text, writes_each_kind_compactly) {
  const struct {
    ResponseValue value;
    std::string_view text;
  } cases[] = {
      {nullptr, "null"},
      {true, "true"},
      {false, "false"},
      {3, "3"},
      {0, "0"},
      {-42, "-42"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036854775807"},
      {3.0, "3.0"},
      {"café", "\"café\""},
      {ResponseList{}, "[]"},
      {ResponseDict{}, "{}"},
      {ResponseDict{{"b", 1}, {"a", 2}}, R"({"b":1,"a":2})"},
      {ResponseDict{{"k", ResponseList{1, ResponseDict{{"x", nullptr}}}}}, R"({"k":[1,{"x":null}]})"},
      {ResponseList{"a", ResponseList{}, ResponseDict{}, 1.5, false}, R"(["a",[],{},1.5,false])"},
  };
  for (const auto& c : cases) {
    const std::string text = tool_result_text(c.value);
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(encoded_size(c.value), text.size()) << c.text;
  }
}

TEST(tool_result_text, sizes_of_multibyte_text_count_bytes) {
  EXPECT_EQ(encoded_size(ResponseValue("café")), 7u);  // 6 characters
  EXPECT_EQ(tool_result_text(ResponseDict{{"a", "é"}}), "{\"a\":\"é\"}");
  EXPECT_EQ(encoded_size(ResponseDict{{"a", "é"}}), 10u);
  EXPECT_EQ(tool_result_text(ResponseValue("\U0001F600")), "\"\U0001F600\"");  // never a surrogate pair
  EXPECT_EQ(encoded_size(ResponseValue("\U0001F600")), 6u);
  EXPECT_EQ(encoded_size(ResponseDict{}), 2u);
  EXPECT_EQ(encoded_size(ResponseValue(kNaN)), 3u);
  EXPECT_EQ(encoded_size(ResponseDict{{"k", ResponseList{1, ResponseDict{{"x", nullptr}}}}}), 20u);
}

TEST(tool_result_text, escapes_exactly_the_json_set) {
  // All 32 control characters.
  const char* expected[32] = {"\\u0000", "\\u0001", "\\u0002", "\\u0003", "\\u0004", "\\u0005", "\\u0006", "\\u0007",
                              "\\b",     "\\t",     "\\n",     "\\u000b", "\\f",     "\\r",     "\\u000e", "\\u000f",
                              "\\u0010", "\\u0011", "\\u0012", "\\u0013", "\\u0014", "\\u0015", "\\u0016", "\\u0017",
                              "\\u0018", "\\u0019", "\\u001a", "\\u001b", "\\u001c", "\\u001d", "\\u001e", "\\u001f"};
  for (int c = 0; c < 32; ++c) {
    const ResponseValue v(std::string(1, static_cast<char>(c)));
    const std::string want = '"' + std::string(expected[c]) + '"';
    EXPECT_EQ(tool_result_text(v), want) << c;
    EXPECT_EQ(encoded_size(v), want.size()) << c;
  }
  EXPECT_EQ(tool_result_text(ResponseValue("a\"b\\c")), R"("a\"b\\c")");
  // Written as themselves: solidus, DELETE, U+2028, U+2029.
  EXPECT_EQ(tool_result_text(ResponseValue("/\x7f\u2028\u2029")), "\"/\x7f\u2028\u2029\"");
  // Keys are escaped like values.
  EXPECT_EQ(tool_result_text(ResponseDict{{"a\nb", 1}}), R"({"a\nb":1})");
}

// The plain escaping rule, one byte at a time: the oracle for the block writer.
std::string escaped(std::string_view s) {
  std::string out = "\"";
  for (const char ch : s) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += ch;
    } else if (c < 0x20) {
      const char e = c == 8 ? 'b' : c == 9 ? 't' : c == 10 ? 'n' : c == 12 ? 'f' : c == 13 ? 'r' : '\0';
      char u[8];
      std::snprintf(u, sizeof u, "\\u%04x", c);
      out += e != '\0' ? std::string{'\\', e} : std::string(u);
    } else {
      out += ch;
    }
  }
  return out + '"';
}

TEST(tool_result_text, escapes_at_every_position_of_every_length) {
  // Lengths around the 16-byte blocks; one or two escapes at every place.
  for (const char special : {'"', '\\', '\n', '\x01', '\x1f', '\t'}) {
    for (std::size_t length = 0; length <= 40; ++length) {
      const std::string base = std::string(length, 'a');
      for (std::size_t at = 0; at <= length; ++at) {
        std::string s = base;
        s.insert(at, 1, special);
        if (at % 3 == 0) s.insert(0, "\xc3\xa9");  // multi-byte text moves the blocks
        if (at % 5 == 0 && length > 0) s.back() = special;
        const ResponseValue v(s);
        ASSERT_EQ(tool_result_text(v), escaped(s)) << length << " " << at;
        ASSERT_EQ(encoded_size(v), escaped(s).size()) << length << " " << at;
      }
    }
  }
}

TEST(tool_result_text, long_escape_heavy_text_and_appending) {
  std::string s;
  for (int k = 0; k < 3000; ++k) s += (k % 7 == 0) ? "\x02" : (k % 5 == 0) ? "\"x" : "ab\\c";
  const ResponseDict d{{"s", s}, {"t", ResponseList{s, s}}};
  const std::string want = "{\"s\":" + escaped(s) + ",\"t\":[" + escaped(s) + "," + escaped(s) + "]}";
  EXPECT_EQ(tool_result_text(d), want);
  EXPECT_EQ(encoded_size(d), want.size());
  std::string out = "prefix:";
  append_tool_result_text(out, d);
  EXPECT_EQ(out, "prefix:" + want);
}

TEST(tool_result_text, lays_out_doubles) {
  const struct {
    double value;
    std::string_view text;
  } cases[] = {
      {1.0, "1.0"},
      {100.0, "100.0"},
      {0.0001, "0.0001"},
      {0.00001, "1e-05"},
      {0.00012, "0.00012"},
      {1.5e-7, "1.5e-07"},
      {1e15, "1000000000000000.0"},
      {1e16, "1e+16"},
      {9999999999999998.0, "9999999999999998.0"},  // p = 16: still plain
      {1.5e16, "1.5e+16"},
      {123456789012345680.0, "1.2345678901234568e+17"},
      {2.5e20, "2.5e+20"},
      {1e100, "1e+100"},
      {0.1 + 0.2, "0.30000000000000004"},
      {0.5, "0.5"},
      {-0.5, "-0.5"},
      {12.25, "12.25"},
      {-1e-5, "-1e-05"},
      {0.0, "0.0"},
      {-0.0, "-0.0"},
      {5e-324, "5e-324"},
      {2.2250738585072014e-308, "2.2250738585072014e-308"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {-std::numeric_limits<double>::max(), "-1.7976931348623157e+308"},
      {kNaN, "NaN"},
      {kInf, "Infinity"},
      {-kInf, "-Infinity"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(tool_result_text(ResponseValue(c.value)), c.text);
    EXPECT_EQ(encoded_size(ResponseValue(c.value)), c.text.size()) << c.text;
  }
}

// Digits and decimal exponent of the text of a finite non-zero double.
struct Decimal {
  std::string digits;
  int point;  // value = 0.digits x 10^point
};

Decimal decimal_of(std::string_view text) {
  Decimal d{{}, 0};
  std::size_t i = text[0] == '-' ? 1 : 0;
  int seen_point = -1;
  int exp10 = 0;
  for (; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '.') {
      seen_point = static_cast<int>(d.digits.size());
    } else if (c == 'e') {
      exp10 = std::atoi(std::string(text.substr(i + 1)).c_str());
      break;
    } else {
      d.digits.push_back(c);
    }
  }
  if (seen_point < 0) seen_point = static_cast<int>(d.digits.size());
  int point = seen_point + exp10;
  const std::size_t lead = d.digits.find_first_not_of('0');
  d.digits.erase(0, lead);
  point -= static_cast<int>(lead);
  d.digits.erase(d.digits.find_last_not_of('0') + 1);
  d.point = point;
  return d;
}

// Digits of `v` correctly rounded to `n` significant digits, by the C library.
Decimal printf_digits(double v, int n) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*e", n - 1, v);
  return decimal_of(buf);
}

TEST(tool_result_text, random_doubles_read_back_exactly_and_are_shortest) {
  std::mt19937_64 rng(20261123);
  for (int i = 0; i < 200000; ++i) {
    double v = std::bit_cast<double>(rng());
    if (!std::isfinite(v) || v == 0.0) continue;
    if (i % 4 == 0) v = static_cast<double>(static_cast<std::int64_t>(rng() % 2000000) - 1000000) / 1000.0;
    if (v == 0.0) continue;
    const std::string text = tool_result_text(ResponseValue(v));
    ASSERT_EQ(std::strtod(text.c_str(), nullptr), v) << text;

    // The layout follows the decimal point's position.
    const Decimal d = decimal_of(text);
    const bool scientific = text.find('e') != std::string::npos;
    ASSERT_EQ(scientific, d.point <= -4 || d.point > 16) << text;
    if (!scientific) {
      ASSERT_NE(text.find('.'), std::string::npos) << text;
    }

    // Shortest: no text with one digit fewer reads back to v; nearest: the
    // digits are the correctly rounded ones of that length.
    const int n = static_cast<int>(d.digits.size());
    const Decimal nearest = printf_digits(v, n);
    ASSERT_EQ(d.digits, nearest.digits) << text;
    if (n > 1) {
      char shorter[64];
      std::snprintf(shorter, sizeof shorter, "%.*e", n - 2, v);
      ASSERT_NE(std::strtod(shorter, nullptr), v) << text << " could be " << shorter;
    }
  }
}

// Where shortest-digit methods go wrong: powers of two (whose rounding interval
// is narrower below), the smallest subnormals, integers near 2^53, the ends of
// the range. The digits must match std::to_chars's shortest ones.
TEST(tool_result_text, doubles_at_the_edges_match_to_chars_digits) {
  std::vector<double> edges;
  for (int e = -1074; e <= 1023; ++e) {
    const double p = std::ldexp(1.0, e);
    edges.insert(edges.end(), {p, std::nextafter(p, 0.0), std::nextafter(p, kInf), 3 * p, -p});
  }
  for (std::uint64_t bits = 1; bits < 400; ++bits) edges.push_back(std::bit_cast<double>(bits));
  for (std::int64_t i = -3; i <= 3; ++i) {
    edges.push_back(static_cast<double>((std::int64_t{1} << 53) + i * 2));
    edges.push_back(1e16 + static_cast<double>(i * 2));
    edges.push_back(1e23 + static_cast<double>(i) * 1e8);
  }
  edges.push_back(std::numeric_limits<double>::max());
  edges.push_back(std::numeric_limits<double>::min());
  for (const double v : edges) {
    if (v == 0.0 || !std::isfinite(v)) continue;
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::scientific);
    const Decimal want = decimal_of(std::string_view(buf, static_cast<std::size_t>(r.ptr - buf)));
    const std::string text = tool_result_text(ResponseValue(v));
    const Decimal got = decimal_of(text);
    ASSERT_EQ(got.digits, want.digits) << text << " vs " << buf;
    ASSERT_EQ(got.point, want.point) << text << " vs " << buf;
  }
}

// A random tree with strings of every awkward kind.
ResponseValue random_tree(std::mt19937_64& rng, int depth) {
  static const std::string_view pieces[] = {"a",      "\"",         "\\", "\n", "\x01", "\x1f", "\x7f",  "é",
                                            "\u2028", "\U0001F600", "/",  " ",  "\t",   "€",    "\u00a0"};
  const auto pick = [&](std::uint64_t n) { return rng() % n; };
  const auto random_string = [&] {
    std::string s;
    for (std::uint64_t k = pick(12); k > 0; --k) s += pieces[pick(std::size(pieces))];
    return s;
  };
  switch (depth > 3 ? pick(5) : pick(7)) {
    case 0:
      return nullptr;
    case 1:
      return pick(2) == 0;
    case 2:
      return static_cast<std::int64_t>(rng());
    case 3:
      return std::bit_cast<double>(rng());
    case 4:
      return random_string();
    case 5: {
      ResponseList l;
      for (std::uint64_t k = pick(5); k > 0; --k) l.push_back(random_tree(rng, depth + 1));
      return l;
    }
    default: {
      ResponseDict d;
      for (std::uint64_t k = pick(5); k > 0; --k) d.insert_or_assign(random_string(), random_tree(rng, depth + 1));
      return d;
    }
  }
}

TEST(encoded_size, equals_the_byte_length_of_the_text_for_random_trees) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 20000; ++i) {
    const ResponseValue tree = random_tree(rng, 0);
    const std::string text = tool_result_text(tree);
    ASSERT_EQ(encoded_size(tree), text.size()) << text;
    ASSERT_EQ(tool_result_text(tree), text);  // the same text on every call
  }
}

TEST(encoded_size, counts_integer_digits_at_every_power_of_ten) {
  std::vector<std::int64_t> values{0, std::numeric_limits<std::int64_t>::min(),
                                   std::numeric_limits<std::int64_t>::max()};
  for (std::int64_t p = 1; p <= std::numeric_limits<std::int64_t>::max() / 10; p *= 10) {
    for (const std::int64_t v : {p - 1, p, p + 1, 10 * p - 1}) {
      values.push_back(v);
      values.push_back(-v);
    }
  }
  for (const std::int64_t v : values) EXPECT_EQ(encoded_size(ResponseValue(v)), std::to_string(v).size()) << v;
}

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
}

}  // namespace
}  // namespace kestrune::mcp_responses
