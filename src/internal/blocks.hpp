// Sixteen bytes of text at a time: loads that never read past the text, and
// masks of which bytes need a JSON escape, are not ASCII, or lie in a range.
// The writer, the size counter, the UTF-8 check and the character counter
// are built on these.
//
// A block never reads past the end of its text: a short tail is gathered with
// in-bounds loads and padded with 'A', which needs no escape and is ASCII.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// SSE2 where the target has it, unless the build asks for the portable
// blocks (KESTRUNE_PORTABLE_BLOCKS), which CI also builds and tests.
#if (defined(__SSE2__) || defined(_M_X64)) && !defined(KESTRUNE_PORTABLE_BLOCKS)
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
    static_assert(sizeof t == kBlock, "a tail is the block's two words, low first");
    std::memcpy(b.bytes, &t, kBlock);
  }
  return b;
}

inline void store_block(char* out, const Block& b) noexcept { std::memcpy(out, b.bytes, kBlock); }

// The mask of the bytes of `b` for which `p` holds.
template <class P>
unsigned mask_of(const Block& b, P p) noexcept {
  unsigned m = 0;
  unsigned bit = 1;
  for (const unsigned char c : b.bytes) {
    if (p(c)) m |= bit;
    bit <<= 1;
  }
  return m;
}

inline unsigned escape_mask(const Block& b) noexcept {
  return mask_of(b, [](unsigned char c) { return c < 0x20 || c == '"' || c == '\\'; });
}

inline unsigned high_mask(const Block& b) noexcept {
  return mask_of(b, [](unsigned char c) { return c >= 0x80; });
}

inline unsigned attention_mask(const Block& b) noexcept { return escape_mask(b) | high_mask(b); }

inline unsigned below_mask(const Block& b, signed char x) noexcept {
  return mask_of(b, [x](unsigned char c) { return static_cast<signed char>(c) < x; });
}

inline unsigned above_mask(const Block& b, signed char x) noexcept {
  return mask_of(b, [x](unsigned char c) { return static_cast<signed char>(c) > x; });
}

inline unsigned equal_mask(const Block& b, unsigned char x) noexcept {
  return mask_of(b, [x](unsigned char c) { return c == x; });
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
  for (const char c : std::string_view(s, n)) total += (static_cast<unsigned char>(c) & 0xC0u) == 0x80u ? 1 : 0;
#endif
  return total;
}

}  // namespace kestrune::mcp_responses::detail
