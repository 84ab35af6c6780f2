// What the data files and the text fuzz target leave out: bytes that are not
// UTF-8 (which no request can carry) count as characters of their own and
// are kept; a cut to 0 characters acts as one to 1; and text known to be
// well-formed is counted in batches of 255 blocks.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "internal/chars.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "support/oracles.hpp"
#include "text/cut.hpp"

namespace kestrune::mcp_responses {
namespace {

std::string repeat(std::string_view s, std::size_t n) {
  std::string out;
  for (std::size_t i = 0; i < n; ++i) out.append(s);
  return out;
}

TEST(text, ill_formed_bytes_are_characters_of_their_own) {
  EXPECT_EQ(detail::cut("abc\xe2\x82", 5), "abc\xe2\x82");
  EXPECT_EQ(detail::cut("abcd\xe2\x82", 5), "abcd\u2026");
  EXPECT_EQ(detail::cut("ab\xff\xfe"
                        "cd",
                        5),
            "ab\xff\xfe\u2026");
  EXPECT_EQ(detail::cut("abc\xe2\x82\xac\xac"
                        "d",
                        5),
            "abc\u20ac\u2026");
  EXPECT_EQ(detail::trimmed("\xff\xff\xff \xff\xff\xff\xff", 6), "\xff\xff\xff\u2026");
  EXPECT_EQ(detail::trimmed("\xe2\x82"
                            "ab cdefgh",
                            8),
            "\xe2\x82"
            "ab\u2026");
  EXPECT_EQ(first_sentence(repeat("\xff", 160)), repeat("\xff", 160));
  EXPECT_EQ(first_sentence("\xe2\x82" + repeat("x", 157) + ". B"), "\xe2\x82" + repeat("x", 157) + ".");
  EXPECT_EQ(first_sentence("\xe2\x82" + repeat("x", 159)), "\xe2\x82" + repeat("x", 157) + "\u2026");
}

TEST(cut, to_zero_characters_acts_as_to_one) {
  EXPECT_EQ(detail::cut("abcd", 0), "\u2026");
  EXPECT_EQ(detail::cut("a", 0), "a");
  EXPECT_EQ(detail::cut("", 0), "");
}

TEST(trimmed, counts_long_well_formed_text_in_bulk) {
  const std::string dense = repeat("\u00e9", 5000);  // more than 255 blocks of continuation bytes
  const detail::Trim plan = detail::plan_trimmed(dense, 4500, detail::Utf8::well_formed);
  EXPECT_EQ(detail::trimmed_text(dense, plan), oracle::plain_trimmed(dense, 4500));
  EXPECT_EQ(plan.chars, 4500u);
  EXPECT_EQ(detail::char_count(dense, detail::Utf8::well_formed), 5000u);
}

}  // namespace
}  // namespace kestrune::mcp_responses
