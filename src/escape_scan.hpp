// Sixteen bytes of text at a time: which of them need a JSON escape and which
// are not ASCII. Used by the writer and the size counter of the compact text.
//
// A block never reads past the end of its text: a short tail is gathered with
// in-bounds loads and padded with 'A', which needs no escape and is ASCII.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define KESTRUNE_SSE2 1
#endif

namespace kestrune::mcp_responses::detail {

inline constexpr std::size_t kBlock = 16;

/// popcount16: the number of set bits of a block mask. Written out because
/// without a popcnt instruction in the target std::popcount is a library call.
constexpr unsigned popcount16(unsigned m) noexcept {
  m = m - ((m >> 1) & 0x5555u);
  m = (m & 0x3333u) + ((m >> 2) & 0x3333u);
  m = (m + (m >> 4)) & 0x0F0Fu;
  return (m + (m >> 8)) & 0x1Fu;
}
static_assert(popcount16(0xFFFFu) == 16 && popcount16(0x8001u) == 2 && popcount16(0) == 0);

// Loads: unaligned, in bounds, through memcpy so no aliasing rule is bent.
inline std::uint64_t load64(const char* s) noexcept {
  std::uint64_t w;
  std::memcpy(&w, s, 8);
  return w;
}

inline std::uint32_t load32(const char* s) noexcept {
  std::uint32_t w;
  std::memcpy(&w, s, 4);
  return w;
}

/// Tail: the `n` < 16 bytes at `s` as two little-endian words, the bytes past
/// `n` set to 'A'. Reads only s[0, n).
struct Tail {
  std::uint64_t lo;
  std::uint64_t hi;
};

inline Tail gather_tail(const char* s, std::size_t n) noexcept {
  static_assert(std::endian::native == std::endian::little, "the block gathering assumes a little-endian machine");
  constexpr std::uint64_t kPad = 0x4141414141414141u;
  if (n >= 8) {
    const std::uint64_t lo = load64(s);
    if (n == 8) return {lo, kPad};
    // The last eight bytes, shifted so that s[8] comes first.
    const unsigned shift = static_cast<unsigned>(16 - n) * 8;
    return {lo, (load64(s + n - 8) >> shift) | (kPad << (static_cast<unsigned>(n - 8) * 8))};
  }
  std::uint64_t lo = 0;
  if (n >= 4) {
    lo = load32(s) | (std::uint64_t{load32(s + n - 4)} << ((n - 4) * 8));
  } else if (n > 0) {
    const auto byte = [&](std::size_t k) { return std::uint64_t{static_cast<unsigned char>(s[k])} << (k * 8); };
    lo = byte(0) | byte(n / 2) | byte(n - 1);
  }
  return {lo | (kPad << (n * 8)), kPad};  // n < 8 here, so the shift is in range
}

#if defined(KESTRUNE_SSE2)

using Block = __m128i;

/// load_block: the block at `s`, of which `n` bytes are text (all 16 when
/// n >= 16).
inline Block load_block(const char* s, std::size_t n) noexcept {
  if (n >= kBlock) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  const Tail t = gather_tail(s, n);
  return _mm_set_epi64x(static_cast<long long>(t.hi), static_cast<long long>(t.lo));
}

/// store_block: writes all 16 bytes of `b` to `out`.
inline void store_block(char* out, Block b) noexcept { _mm_storeu_si128(reinterpret_cast<__m128i*>(out), b); }

/// escape_mask: bit k set when byte k needs an escape: below 0x20, '"' or '\'.
inline unsigned escape_mask(Block b) noexcept {
  const __m128i control = _mm_cmpeq_epi8(_mm_max_epu8(b, _mm_set1_epi8(0x1F)), _mm_set1_epi8(0x1F));
  const __m128i quote = _mm_cmpeq_epi8(b, _mm_set1_epi8('"'));
  const __m128i backslash = _mm_cmpeq_epi8(b, _mm_set1_epi8('\\'));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(control, _mm_or_si128(quote, backslash))));
}

/// high_mask: bit k set when byte k is not ASCII.
inline unsigned high_mask(Block b) noexcept { return static_cast<unsigned>(_mm_movemask_epi8(b)); }

/// attention_mask: bit k set when byte k needs an escape or is not ASCII.
inline unsigned attention_mask(Block b) noexcept {
  // Read as signed, the bytes below 0x20 and the non-ASCII ones are exactly
  // those below 0x20.
  const __m128i low = _mm_cmplt_epi8(b, _mm_set1_epi8(0x20));
  const __m128i quote = _mm_cmpeq_epi8(b, _mm_set1_epi8('"'));
  const __m128i backslash = _mm_cmpeq_epi8(b, _mm_set1_epi8('\\'));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(low, _mm_or_si128(quote, backslash))));
}

/// below_mask: bit k set when byte k, read as signed, is below `x` (signed).
/// Bytes 0x80..0xFF are the negative ones, in order; ASCII is never below a
/// negative `x`.
inline unsigned below_mask(Block b, signed char x) noexcept {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(b, _mm_set1_epi8(x))));
}

/// above_mask: bit k set when byte k, read as signed, is above `x`.
inline unsigned above_mask(Block b, signed char x) noexcept {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpgt_epi8(b, _mm_set1_epi8(x))));
}

/// equal_mask: bit k set when byte k is `x`.
inline unsigned equal_mask(Block b, unsigned char x) noexcept {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(b, _mm_set1_epi8(static_cast<char>(x)))));
}

#else  // Portable blocks: two words, tested a byte at a time by the compiler.

struct Block {
  unsigned char bytes[kBlock];
};

inline Block load_block(const char* s, std::size_t n) noexcept {
  Block b;
  if (n >= kBlock) {
    std::memcpy(b.bytes, s, kBlock);
  } else {
    const Tail t = gather_tail(s, n);
    std::memcpy(b.bytes, &t.lo, 8);
    std::memcpy(b.bytes + 8, &t.hi, 8);
  }
  return b;
}

inline void store_block(char* out, const Block& b) noexcept { std::memcpy(out, b.bytes, kBlock); }

inline unsigned escape_mask(const Block& b) noexcept {
  unsigned m = 0;
  for (std::size_t k = 0; k < kBlock; ++k) {
    const unsigned char c = b.bytes[k];
    m |= static_cast<unsigned>(c < 0x20 || c == '"' || c == '\\') << k;
  }
  return m;
}

inline unsigned high_mask(const Block& b) noexcept {
  unsigned m = 0;
  for (std::size_t k = 0; k < kBlock; ++k) m |= static_cast<unsigned>(b.bytes[k] >> 7) << k;
  return m;
}

inline unsigned attention_mask(const Block& b) noexcept { return escape_mask(b) | high_mask(b); }

inline unsigned below_mask(const Block& b, signed char x) noexcept {
  unsigned m = 0;
  for (std::size_t k = 0; k < kBlock; ++k) m |= static_cast<unsigned>(static_cast<signed char>(b.bytes[k]) < x) << k;
  return m;
}

inline unsigned above_mask(const Block& b, signed char x) noexcept {
  unsigned m = 0;
  for (std::size_t k = 0; k < kBlock; ++k) m |= static_cast<unsigned>(static_cast<signed char>(b.bytes[k]) > x) << k;
  return m;
}

inline unsigned equal_mask(const Block& b, unsigned char x) noexcept {
  unsigned m = 0;
  for (std::size_t k = 0; k < kBlock; ++k) m |= static_cast<unsigned>(b.bytes[k] == x) << k;
  return m;
}

#endif

/// count_continuations: the number of bytes 80..BF in s[0, n), where `n` is a
/// multiple of 16. The blocks' counts are added up without a test per block.
inline std::size_t count_continuations(const char* s, std::size_t n) noexcept {
  std::size_t total = 0;
#if defined(KESTRUNE_SSE2)
  const __m128i zero = _mm_setzero_si128();
  const __m128i below = _mm_set1_epi8(static_cast<char>(0xC0));
  while (n > 0) {
    // Byte lanes count up to 255 blocks before they are summed.
    // Two sets of lanes, so that consecutive blocks do not wait on each other.
    const std::size_t blocks = std::min<std::size_t>(n / kBlock, 255);
    __m128i lanes = zero;
    __m128i more = zero;
    std::size_t b = 0;
    for (; b + 2 <= blocks; b += 2, s += 2 * kBlock) {
      lanes = _mm_sub_epi8(lanes, _mm_cmplt_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s)), below));
      more = _mm_sub_epi8(more, _mm_cmplt_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + kBlock)), below));
    }
    if (b < blocks) {
      lanes = _mm_sub_epi8(lanes, _mm_cmplt_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s)), below));
      s += kBlock;
    }
    const __m128i sums = _mm_add_epi64(_mm_sad_epu8(lanes, zero), _mm_sad_epu8(more, zero));
    total += static_cast<std::size_t>(_mm_cvtsi128_si32(sums)) + static_cast<std::size_t>(_mm_extract_epi16(sums, 4));
    n -= blocks * kBlock;
  }
#else
  for (std::size_t i = 0; i < n; ++i) total += (static_cast<unsigned char>(s[i]) & 0xC0u) == 0x80u ? 1 : 0;
#endif
  return total;
}

/// Utf8Check: well-formedness of UTF-8 checked a block at a time. Each lead
/// byte says which of the next bytes must be continuation bytes; the text is
/// well-formed when exactly those are, no byte is one that never occurs
/// (C0, C1, F5..FF), the second bytes after E0, ED, F0 and F4 lie in their
/// narrower ranges, and nothing is left pending at the end. What a block's
/// last bytes require of the next block is carried over.
class Utf8Check {
 public:
  /// block: checks one block; false when it is not well-formed so far. ASCII
  /// blocks with nothing pending cost one test.
  bool block(const Block& b) noexcept { return block(b, high_mask(b)); }

  /// block: the same, given the block's high_mask.
  bool block(const Block& b, unsigned high) noexcept {
    if ((high | pending_ | narrow_) == 0) return true;
    constexpr auto s = [](unsigned char c) { return static_cast<signed char>(c); };
    const unsigned cont = below_mask(b, s(0xC0));          // 80..BF
    const unsigned lead = high & ~cont;                    // C0..FF
    const unsigned lead3 = above_mask(b, s(0xDF)) & high;  // E0..FF
    unsigned need = lead << 1 | pending_;
    unsigned bad = below_mask(b, s(0xC2)) & lead;  // C0 and C1 never occur
    if ((lead3 | narrow_) != 0) {
      // Three- and four-byte sequences; F5..FF never occur.
      const unsigned lead4 = above_mask(b, s(0xEF)) & high;  // F0..FF
      need |= lead3 << 2 | lead4 << 3;
      bad |= above_mask(b, s(0xF4)) & high;
      // The narrower second-byte ranges after E0, ED, F0 and F4, checked only
      // when one of those occurs: most three-byte text starts with E2 or E3.
      const unsigned e0 = equal_mask(b, 0xE0);
      const unsigned ed = equal_mask(b, 0xED);
      if ((e0 | ed | lead4 | narrow_) != 0) {
        const unsigned below_a0 = below_mask(b, s(0xA0));  // 80..9F
        const unsigned below_90 = below_mask(b, s(0x90));  // 80..8F
        const unsigned after_e0 = e0 << 1 | (narrow_ & 1u);
        const unsigned after_ed = ed << 1 | (narrow_ >> 1 & 1u);
        const unsigned after_f0 = equal_mask(b, 0xF0) << 1 | (narrow_ >> 2 & 1u);
        const unsigned after_f4 = equal_mask(b, 0xF4) << 1 | (narrow_ >> 3 & 1u);
        bad |= ((after_e0 & below_a0) | (after_ed & cont & ~below_a0) | (after_f0 & below_90) |
                (after_f4 & cont & ~below_90)) &
               0xFFFFu;
        narrow_ =
            (after_e0 >> kBlock) | (after_ed >> kBlock) << 1 | (after_f0 >> kBlock) << 2 | (after_f4 >> kBlock) << 3;
      }
    }
    pending_ = need >> kBlock;
    return (need & 0xFFFFu) == cont && bad == 0;
  }

  /// done: whether no sequence is left incomplete at the end of the text.
  [[nodiscard]] bool done() const noexcept { return pending_ == 0; }

 private:
  unsigned pending_ = 0;  // continuation bytes required at the next block's start
  unsigned narrow_ = 0;   // the next block's first byte follows E0, ED, F0 or F4
};

}  // namespace kestrune::mcp_responses::detail
