// code_lines on small and large files: the time to find an early line, the
// time to look for a line past the end, and the peak memory of the process.
//
//   code_lines_bench [directory]
//
// Writes a 1 MiB and a 200 MiB file of code-like lines, and a file whose
// line 10 is 100 MiB of whitespace around a few words, into a fresh
// directory (under the temporary directory by default), reads them while
// they are in the page cache, and removes them. Times are the fastest and
// the median of several calls; peak memory is getrusage's ru_maxrss, taken
// before the first call and after the last.
#include <stdlib.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace {

namespace fs = std::filesystem;
namespace mr = kestrune::mcp_responses;

constexpr std::int64_t kWantedLine = 10;

long peak_rss_kib() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Writes `bytes` bytes of numbered, indented lines of about 60 bytes,
// a block at a time so that writing costs the process no memory.
void write_file(const fs::path& path, std::uintmax_t bytes) {
  std::ofstream out(path, std::ios::binary);
  std::string block;
  std::uintmax_t written = 0;
  for (std::uint64_t n = 1; written < bytes; ++n) {
    block += "    total_" + std::to_string(n) + " = compute(items[" + std::to_string(n) + "], scale);\n";
    if (block.size() >= 65536 || written + block.size() >= bytes) {
      const std::size_t take = static_cast<std::size_t>(std::min<std::uintmax_t>(block.size(), bytes - written));
      out.write(block.data(), static_cast<std::streamsize>(take));
      written += take;
      block.clear();
    }
  }
}

// Writes nine short lines, then a line of `bytes` bytes: whitespace with a
// few words in its middle.
void write_wide_file(const fs::path& path, std::uintmax_t bytes) {
  std::ofstream out(path, std::ios::binary);
  for (int n = 1; n < kWantedLine; ++n) out << "line " << n << '\n';
  const std::string blanks(65536, ' ');
  for (std::uintmax_t k = 0; k < bytes / 2 / blanks.size(); ++k) out << blanks;
  out << "return total;";
  for (std::uintmax_t k = 0; k < bytes / 2 / blanks.size(); ++k) out << blanks;
  out << '\n';
}

struct Timing {
  double fastest_ms;
  double median_ms;
  std::size_t found;
};

Timing time_calls(const fs::path& root, const std::string& name, std::int64_t line, int calls) {
  const std::vector<mr::Place> places{{name, line}};
  std::vector<double> times;
  std::size_t found = 0;
  for (int i = 0; i < calls; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const mr::CodeLines result = mr::code_lines(root, places);
    const auto stop = std::chrono::steady_clock::now();
    times.push_back(std::chrono::duration<double, std::milli>(stop - start).count());
    found = result.size();
  }
  std::sort(times.begin(), times.end());
  return {times.front(), times[times.size() / 2], found};
}

void report(const char* what, const Timing& t) {
  std::printf("%-34s fastest %9.3f ms   median %9.3f ms   found %zu\n", what, t.fastest_ms, t.median_ms, t.found);
}

}  // namespace

int main(int argc, char** argv) {
  std::string tmpl = ((argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path()) / "code-lines-bench-XXXXXX").string();
  if (::mkdtemp(tmpl.data()) == nullptr) {
    std::perror("mkdtemp");
    return 2;
  }
  const fs::path dir = tmpl;
  write_file(dir / "small.txt", std::uintmax_t{1} << 20);
  write_file(dir / "large.txt", std::uintmax_t{200} << 20);
  write_wide_file(dir / "wide.txt", std::uintmax_t{100} << 20);
  (void)time_calls(dir, "small.txt", kWantedLine, 1);  // first-use costs out of the baseline

  const long before = peak_rss_kib();
  const Timing small = time_calls(dir, "small.txt", kWantedLine, 51);
  const Timing large = time_calls(dir, "large.txt", kWantedLine, 11);
  const Timing past_end = time_calls(dir, "large.txt", 1 << 30, 5);
  const Timing wide = time_calls(dir, "wide.txt", kWantedLine, 5);
  const long after = peak_rss_kib();
  fs::remove_all(dir);

  report("line 10 of 1 MiB", small);
  report("line 10 of 200 MiB", large);
  report("line past the end of 200 MiB", past_end);
  report("line 10 of 100 MiB, in the line", wide);
  std::printf("200 MiB / 1 MiB, line 10 (median)   %.2fx\n", large.median_ms / small.median_ms);
  std::printf("peak RSS: %ld KiB before the calls, %ld KiB after, +%ld KiB\n", before, after, after - before);
  const bool ok = small.found == 1 && large.found == 1 && past_end.found == 0 && wide.found == 1;
  if (!ok) std::fprintf(stderr, "unexpected result: line 10 not found, or a line past the end found\n");
  return ok ? 0 : 1;
}
