// Every builder, the canned responses, the encoder and the code-line reader
// from eight threads at once, checked against a single-threaded run, while
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
#include "kestrune/mcp_responses/wiki.hpp"

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

  const Symbol symbol{.fqn = "pkg.mod.Cart.total",
                      .name = "total",
                      .kind = "method",
                      .start_line = 10,
                      .end_line = 14,
                      .signature = "def total(self)",
                      .docstring = "Sum the lines. Then more.",
                      .is_export = true,
                      .docstring_truncated = false};
  ResponseList rows{build_symbol_search_result(symbol, "pkg/mod.py")};
  out += tool_result_text(build_paginated_response(std::move(rows), 5, 0, {.items_key = "symbols"}));
  out += tool_result_text(build_symbol_full_details(symbol, std::nullopt));
  const std::string module = outline_module({"pkg.mod.Cart.total", "pkg.mod.parse"});
  out += tool_result_text(build_file_symbol(symbol, module));
  out += tool_result_text(build_empty_paginated_response("files"));
  out += tool_result_text(build_index_status_response("indexing", "healthy", "main", 40, 1, 2, "t", 0, "p", "1/2"));
  for (const auto& [name, entry] : EMPTY_TOOL_RESPONSES) out += tool_result_text(get_empty_response(name));
  out +=
      tool_result_text(build_wiki_status_response({.built = true, .branch = "main", .stale_pages = ResponseList{"a"}}));
  out += tool_result_text(build_wiki_list_response(ResponseList{ResponseDict{{"page_id", "p"}}}, 3, 1, true));
  out += tool_result_text(build_wiki_read_response({.page_id = "p", .title = "T", .content = "C"}));
  const ResponseDict citation{{"path", "a.py"}, {"line_start", 1}, {"line_end", 2}};
  ResponseList sections;
  for (int i = 0; i < 4; ++i) {
    sections.emplace_back(ResponseDict{{"page_id", "p" + std::to_string(i)},
                                       {"excerpt", std::string(300, static_cast<char>('a' + i)) + " \u00e9 tail"},
                                       {"citations", ResponseList{citation}}});
  }
  out += tool_result_text(build_wiki_ask_response({.mode = "answer",
                                                   .query = "q",
                                                   .answer = "a",
                                                   .sections = std::move(sections),
                                                   .code = ResponseDict{{"k", "v"}},
                                                   .memories = ResponseDict{{"m", "w"}},
                                                   .token_budget = 150}));
  out += std::to_string(detail::encoded_size(
      ResponseDict{{"cut", detail::cut("abc def", 4)}, {"trimmed", detail::trimmed("alpha beta gamma", 12)}}));
  out += tool_result_text(without_nulls(ResponseDict{{"a", nullptr}, {"b", 1}}));
  return out;
}

TEST(concurrency, every_builder_and_code_lines_agree_across_threads) {
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
