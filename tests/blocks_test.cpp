// The 16-byte block primitives against a byte-at-a-time reference. Built
// twice: with the target's SIMD blocks and with KESTRUNE_PORTABLE_BLOCKS, so
// that every build checks both (the header is self-contained, so the portable
// build links nothing else).
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "internal/blocks.hpp"

namespace {

namespace d = kestrune::mcp_responses::detail;

using Predicate = bool (*)(unsigned char);

// The mask of the bytes of `text` (its first 16, padded with 'A') for which
// `p` holds.
unsigned reference_mask(const std::string& text, Predicate p) {
  unsigned m = 0;
  for (std::size_t k = 0; k < d::kBlock; ++k) {
    const unsigned char c = k < text.size() ? static_cast<unsigned char>(text[k]) : 'A';
    if (p(c)) m |= 1u << k;
  }
  return m;
}

// Texts of every length up to a block and past it, over bytes that sit on
// the edges of every mask.
std::vector<std::string> texts() {
  constexpr std::array<unsigned char, 16> kEdges = {0x00, 0x1F, 0x20, '"',  '\\', 'A',  0x7E, 0x7F,
                                                    0x80, 0xBF, 0xC0, 0xC2, 0xDF, 0xE2, 0xF4, 0xFF};
  std::vector<std::string> out;
  std::mt19937 rng(7);
  for (std::size_t n = 0; n <= 2 * d::kBlock; ++n) {
    for (int round = 0; round < 40; ++round) {
      std::string s(n, '\0');
      for (char& c : s) c = static_cast<char>(round % 2 == 0 ? kEdges[rng() % kEdges.size()] : rng() % 256);
      out.push_back(s);
    }
  }
  return out;
}

TEST(Blocks, MasksMatchTheByteReference) {
  for (const std::string& s : texts()) {
    const std::string head = s.substr(0, d::kBlock);
    const d::Block b = d::load_block(s.data(), s.size());
    SCOPED_TRACE(testing::PrintToString(s));
    EXPECT_EQ(d::escape_mask(b),
              reference_mask(head, [](unsigned char c) { return c < 0x20 || c == '"' || c == '\\'; }));
    EXPECT_EQ(d::high_mask(b), reference_mask(head, [](unsigned char c) { return c >= 0x80; }));
    EXPECT_EQ(d::attention_mask(b),
              reference_mask(head, [](unsigned char c) { return c < 0x20 || c == '"' || c == '\\' || c >= 0x80; }));
    // Signed comparisons: 0xC0 is -64, so below it are 0x80..0xBF; above
    // 0xDF (-33) are E0..FF and ASCII.
    EXPECT_EQ(d::below_mask(b, static_cast<signed char>(0xC0)),
              reference_mask(head, [](unsigned char c) { return c >= 0x80 && c < 0xC0; }));
    EXPECT_EQ(d::above_mask(b, static_cast<signed char>(0xDF)),
              reference_mask(head, [](unsigned char c) { return c > 0xDF || c < 0x80; }));
    EXPECT_EQ(d::above_mask(b, 0x20), reference_mask(head, [](unsigned char c) { return c > 0x20 && c < 0x80; }));
    EXPECT_EQ(d::equal_mask(b, 0xE2), reference_mask(head, [](unsigned char c) { return c == 0xE2; }));
    EXPECT_EQ(d::equal_mask(b, 'A'), reference_mask(head, [](unsigned char c) { return c == 'A'; }));
    EXPECT_EQ(d::popcount16(d::high_mask(b)), static_cast<unsigned>(std::popcount(d::high_mask(b))));
  }
}

TEST(Blocks, LoadsPadShortTextsAndStoreWhatTheyLoad) {
  for (const std::string& s : texts()) {
    const d::Block b = d::load_block(s.data(), s.size());
    std::array<char, d::kBlock> out{};
    d::store_block(out.data(), b);
    for (std::size_t k = 0; k < d::kBlock; ++k) {
      EXPECT_EQ(out[k], k < s.size() ? s[k] : 'A') << "byte " << k << " of a text of " << s.size();
    }
  }
}

TEST(Blocks, CountsContinuationBytesOfWholeBlocks) {
  for (const std::string& s : texts()) {
    const std::size_t whole = s.size() / d::kBlock * d::kBlock;
    std::size_t expected = 0;
    for (std::size_t k = 0; k < whole; ++k) expected += (static_cast<unsigned char>(s[k]) & 0xC0) == 0x80 ? 1 : 0;
    EXPECT_EQ(d::count_continuations(s.data(), whole), expected);
  }
  // Past the 255 blocks that byte lanes hold before they are summed.
  const std::string long_text(300 * d::kBlock, '\x80');
  EXPECT_EQ(d::count_continuations(long_text.data(), long_text.size()), long_text.size());
}

}  // namespace
