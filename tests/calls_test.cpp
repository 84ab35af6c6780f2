// The exact answers of the tool's calls, from data files in tests/calls/:
//
//   # a comment
//   > {"call":"cut","args":{"text":"abcd","chars":3}}     a request
//   < "ab…"                                               its answer
//   ! "code_lines: gone.py is not read (No such ...)"     a log line it writes
//
// Every request is answered in-process, as the tool answers it, and must
// give exactly its answer and log lines. Paths are relative to the project.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "calls.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/logging.hpp"
#include "server.hpp"

namespace kestrune::tool {
namespace {

namespace fs = std::filesystem;

TEST(calls, answer_as_the_data_files_say) {
  std::mutex mutex;
  std::vector<std::string> logs;
  mcp_responses::set_log_sink([&](std::string_view, mcp_responses::LogLevel, std::string_view message) {
    const std::scoped_lock lock(mutex);
    logs.emplace_back(message);
  });
  std::size_t requests = 0;
  std::set<std::string, std::less<>> called;
  for (const auto& entry : fs::directory_iterator(KESTRUNE_CALLS_DIR)) {
    std::ifstream in(entry.path(), std::ios::binary);
    std::string line;
    std::string request;
    std::string where;
    std::vector<std::string> answers;  // "< answer", then "! log" lines, as given and as got
    const auto settle = [&] {
      if (request.empty()) return;
      std::vector<std::string> got{"< " + answer_request(request).text};
      for (const std::string& log : std::exchange(logs, {})) {
        got.push_back("! " + mcp_responses::tool_result_text(mcp_responses::ResponseValue(log)));
      }
      EXPECT_EQ(got, answers) << where << ": " << request;
      ++requests;
      request.clear();
      answers.clear();
    };
    for (int number = 1; std::getline(in, line); ++number) {
      if (line.starts_with("> ")) {
        settle();
        request = line.substr(2);
        if (const std::size_t at = request.find(R"("call":")"); at != std::string::npos) {
          called.insert(request.substr(at + 8, request.find('"', at + 8) - at - 8));
        }
        where = entry.path().filename().string() + ":" + std::to_string(number);
      } else if (line.starts_with("< ") || line.starts_with("! ")) {
        answers.push_back(line);
      } else {
        ASSERT_TRUE(line.empty() || line.starts_with('#')) << entry.path() << ":" << number << ": " << line;
      }
    }
    settle();
  }
  mcp_responses::set_log_sink({});
  EXPECT_GT(requests, 0u);
  for (const auto table : call_tables()) {
    for (const Call& call : table) EXPECT_TRUE(called.contains(call.name)) << "no data calls " << call.name;
  }
}

}  // namespace
}  // namespace kestrune::tool
