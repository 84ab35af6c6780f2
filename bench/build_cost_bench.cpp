// Building a 50-row symbol search page against encoding it: what the build
// costs with the C library's allocator, and what it costs when allocating is
// free, which no allocator or arena can go below.
//
//   build/release/bench/build_cost_bench
//
// Replaces the global operator new of this program only: it counts
// allocations, and while the arena is on it hands out memory from a bump
// arena that is reset after each page, and deleting arena memory does
// nothing. Times are medians of batches of pages built and dropped.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "corpus.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace {

namespace mr = kestrune::mcp_responses;
namespace kb = kestrune::bench;

struct Arena {
  static constexpr std::size_t kSize = std::size_t{64} << 20;
  char* base = nullptr;  // taken from malloc by main, before the arena is on
  std::size_t used = 0;
  bool on = false;
  std::size_t allocations = 0;

  [[nodiscard]] bool owns(const void* p) const noexcept {
    const char* c = static_cast<const char*>(p);
    return base != nullptr && c >= base && c < base + kSize;
  }
};

Arena arena;  // this program's allocator state; single-threaded

void* allocate(std::size_t n) {
  ++arena.allocations;
  if (arena.on) {
    const std::size_t size = (n + 15) & ~std::size_t{15};
    if (arena.used + size > Arena::kSize) throw std::bad_alloc();
    void* p = arena.base + arena.used;
    arena.used += size;
    return p;
  }
  if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
  throw std::bad_alloc();
}

void release(void* p) noexcept {
  if (!arena.owns(p)) std::free(p);
}

// The median time of one call of `f`, in nanoseconds, over batches. Keeps
// its times on the stack: `f` may reset the arena.
template <class F>
double median_ns(F f) {
  constexpr std::size_t kBatches = 15;
  constexpr int kCalls = 2000;
  std::array<double, kBatches> times{};
  for (double& t : times) {
    const auto start = std::chrono::steady_clock::now();
    for (int k = 0; k < kCalls; ++k) f();
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
    t = took.count() / kCalls;
  }
  std::nth_element(times.begin(), times.begin() + kBatches / 2, times.end());
  return times[kBatches / 2];
}

}  // namespace

void* operator new(std::size_t n) { return allocate(n); }
void* operator new[](std::size_t n) { return allocate(n); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t /*n*/) noexcept { release(p); }
void operator delete[](void* p, std::size_t /*n*/) noexcept { release(p); }

int main() {
  const kb::SymbolHits hits = kb::symbol_hits(50, 11);
  const mr::ResponseDict page = kb::symbol_page(hits);
  const std::size_t bytes = mr::tool_result_text(page).size();

  arena.allocations = 0;
  { const mr::ResponseDict counted = kb::symbol_page(hits); }
  const std::size_t allocations = arena.allocations;

  const double encode = median_ns([&] {
    const std::string text = mr::tool_result_text(page);
    if (text.size() != bytes) std::abort();
  });
  const double build = median_ns([&] {
    const mr::ResponseDict built = kb::symbol_page(hits);
    if (built.size() != page.size()) std::abort();
  });
  arena.base = static_cast<char*>(std::malloc(Arena::kSize));
  if (arena.base == nullptr) return 1;
  arena.on = true;
  const double build_free = median_ns([&] {
    {
      const mr::ResponseDict built = kb::symbol_page(hits);
      if (built.size() != page.size()) std::abort();
    }
    arena.used = 0;
  });
  arena.on = false;
  std::free(arena.base);
  arena.base = nullptr;

  std::printf("50-row symbol page: %zu bytes of text, %zu allocations to build\n", bytes, allocations);
  std::printf("| step | median | / encode |\n|---|---:|---:|\n");
  std::printf("| encode the finished page | %.2f us | 1.00x |\n", encode / 1000);
  std::printf("| build it (C library allocator) | %.2f us | %.2fx |\n", build / 1000, build / encode);
  std::printf("| build it (allocation free) | %.2f us | %.2fx |\n", build_free / 1000, build_free / encode);
  std::printf("| build + encode (C library allocator) | %.2f us | %.2fx |\n", (build + encode) / 1000,
              (build + encode) / encode);
  std::printf("| build + encode (allocation free) | %.2f us | %.2fx |\n", (build_free + encode) / 1000,
              (build_free + encode) / encode);
  return 0;
}
