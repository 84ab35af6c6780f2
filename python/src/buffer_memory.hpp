// How the sinks keep large texts: in blocks of huge pages, moved by hand
// when they grow.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace kestrune::mcp_responses::python {

/// kHugeFrom: the size from which a sink's buffer asks for huge pages and is
/// moved by hand when it grows (see moved_by_hand).
inline constexpr std::size_t kHugeFrom = std::size_t{4} << 20;

/// kGiveBackFrom: the size from which the C library maps a block apart,
/// whatever it has seen (its largest threshold), and unmaps it when freed.
inline constexpr std::size_t kGiveBackFrom = std::size_t{32} << 20;

/// grown_capacity: the capacity that a buffer of `capacity` bytes, which
/// needs `needed`, grows to: twice its size, and from kGiveBackFrom on
/// eight times (at most 1 GiB more). Blocks that large are always fresh
/// memory, and each move by hand copies what is written and makes the
/// kernel clear the pages it lands in, while pages never written cost only
/// address space: fewer, larger moves save both. Smaller blocks grow by
/// doubling, sizes the allocator's heap serves again warm. A caller whose
/// generous request fails asks again for what it needs.
inline std::size_t grown_capacity(std::size_t capacity, std::size_t needed) noexcept {
  constexpr std::size_t kMostMore = std::size_t{1} << 30;
  const std::size_t grown = 2 * capacity >= kGiveBackFrom ? std::min(8 * capacity, capacity + kMostMore) : 2 * capacity;
  return std::max(grown, needed);
}

/// advise_pages: madvise `advice` for the whole `align`-byte pages of
/// [begin, end), where the system has it; a hint only.
inline void advise_pages([[maybe_unused]] char* begin, [[maybe_unused]] char* end, [[maybe_unused]] std::size_t align,
                         [[maybe_unused]] int advice) noexcept {
#if defined(__linux__)
  char* from = begin + (align - reinterpret_cast<std::uintptr_t>(begin) % align) % align;
  char* to = end - reinterpret_cast<std::uintptr_t>(end) % align;
  if (from < to) static_cast<void>(madvise(from, static_cast<std::size_t>(to - from), advice));
#endif
}

/// advise_huge: asks the kernel to back the whole 2 MiB pages of
/// [begin, end), which a sink is about to fill, with huge pages: one fault
/// for each 2 MiB instead of 512, where faults are most of what writing
/// fresh memory costs (a large text is written into memory the allocator has
/// just mapped).
inline void advise_huge(char* begin, char* end) noexcept {
#if defined(MADV_HUGEPAGE)
  advise_pages(begin, end, std::size_t{2} << 20, MADV_HUGEPAGE);
#endif
}

/// moved_by_hand: copies `size` bytes of a buffer of `capacity` bytes at
/// `from` to its larger successor at `to`. From kGiveBackFrom on, the pages
/// of `from` (freed next, and unmapped then anyway) are given back as they
/// are copied, so that a large text is not held twice; a smaller buffer may
/// live in the allocator's heap, whose pages the next text reuses warm.
/// Buffers from kHugeFrom on are not grown by realloc: it would remap a
/// block that advise_huge split, which the kernel refuses, and the
/// allocator would then copy it while holding it twice.
inline void moved_by_hand(char* to, char* from, std::size_t size, [[maybe_unused]] std::size_t capacity) noexcept {
  constexpr std::size_t step = std::size_t{8} << 20;
  for (std::size_t done = 0; done < size; done += step) {
    const std::size_t n = std::min(step, size - done);
    std::memcpy(to + done, from + done, n);
#if defined(MADV_DONTNEED)
    if (capacity >= kGiveBackFrom) advise_pages(from + done, from + done + n, 4096, MADV_DONTNEED);
#endif
  }
}

}  // namespace kestrune::mcp_responses::python
