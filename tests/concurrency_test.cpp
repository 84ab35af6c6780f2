// The code-line reader from eight threads at once, each logging through the
// library's one logger while another thread keeps replacing the sink: every
// thread reads what a single thread reads, and no record is lost. The
// builders keep no state, so only the reader and the logger are run here.
// Meant to be run under ThreadSanitizer too (the tsan preset).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/logging.hpp"

namespace kestrune::mcp_responses {
namespace {

namespace fs = std::filesystem;

std::string read_lines(const fs::path& root) {
  const std::vector<Place> places{{"a.py", 2}, {"missing.py", 1}, {"a.py", 1}};
  std::string out;
  for (const auto& file : code_lines(root, places).files()) {
    for (const auto& line : file.lines) out += file.path + ":" + std::to_string(line.line) + ":" + line.text + "\n";
  }
  return out;
}

TEST(concurrency, code_lines_and_the_logger_from_many_threads) {
  std::string dir = (fs::temp_directory_path() / "kestrune-threads-XXXXXX").string();
  ASSERT_NE(::mkdtemp(dir.data()), nullptr);
  std::ofstream(fs::path(dir) / "a.py") << "x = 1\n  y = 2\n";

  // Two counting sinks swapped back and forth: no record may be lost.
  std::atomic<int> records[2] = {0, 0};
  const auto sink = [&records](int k) {
    return [&records, k](std::string_view, LogLevel, std::string_view message) {
      if (message == "code_lines: missing.py is not read (No such file or directory)") ++records[k];
    };
  };
  set_log_sink(sink(0));
  const std::string expected = read_lines(dir);
  ASSERT_EQ(expected, "a.py:1:x = 1\na.py:2:y = 2\n");

  constexpr int kThreads = 8;
  constexpr int kRounds = 100;
  std::atomic<int> mismatches = 0;
  std::atomic<bool> done = false;
  std::thread swapper([&] {
    for (int k = 1; !done; k ^= 1) {
      set_log_sink(sink(k));
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        if (read_lines(dir) != expected) ++mismatches;
      }
    });
  }
  for (auto& w : workers) w.join();
  done = true;
  swapper.join();
  set_log_sink({});
  fs::remove_all(dir);

  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(records[0] + records[1], 1 + kThreads * kRounds);
}

}  // namespace
}  // namespace kestrune::mcp_responses
