// The builders and the code-line reader from several threads at once, while
// another thread keeps replacing the log sink. Meant to be run under
// ThreadSanitizer too (the tsan preset).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/logging.hpp"

namespace kestrune::mcp_responses {
namespace {

namespace fs = std::filesystem;

// Everything one thread computes in one round, as compact text.
std::string one_round(const fs::path& root) {
  const std::vector<Place> places{{"a.py", 2}, {"missing.py", 1}, {"a.py", 1}};
  std::string out;
  for (const auto& file : code_lines(root, places).files()) {
    for (const auto& line : file.lines) out += file.path + ":" + std::to_string(line.line) + ":" + line.text + "\n";
  }
  const Reference ref{"a.py", 2, ResponseDict{{"fqn", "m.f"}, {"kind", "function"}}, "call"};
  out += tool_result_text(build_reference(ref, "y = 2"));
  out += tool_result_text(build_api_endpoint(Symbol{.fqn = "m.get", .start_line = 4}, "api.py", "api"));
  out += tool_result_text(build_component({"core", "domain", "src/**", 3, 9}));
  out += tool_result_text(build_test_coverage("t.py", "a.py", ResponseList{"f"}));
  return out;
}

TEST(concurrency, builders_and_code_lines_agree_across_threads) {
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
  const std::string expected = one_round(dir);
  ASSERT_EQ(records[0], 1);

  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
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
        if (one_round(dir) != expected) ++mismatches;
      }
    });
  }
  for (auto& w : workers) w.join();
  done = true;
  swapper.join();
  reset_log_sink();
  fs::remove_all(dir);

  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(records[0] + records[1], 1 + kThreads * kRounds);
}

}  // namespace
}  // namespace kestrune::mcp_responses
