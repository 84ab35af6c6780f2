// What tests/calls/code_lines.calls cannot set up: lines longer than a read,
// a FIFO, absolute paths and roots reached through links, links swapped in
// while reading, and the log's own format.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "code_lines/line_scanner.hpp"
#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/logging.hpp"

namespace kestrune::mcp_responses_test {
namespace {

namespace fs = std::filesystem;
namespace mr = mcp_responses;
using mr::Place;

// A fresh directory holding `repo` (the root) and `outside` with a file that
// must never be read. Log records are captured for the length of each test.
class code_lines : public testing::Test {
 protected:
  void SetUp() override {
    std::string tmpl = (fs::temp_directory_path() / "kestrune-code-lines-XXXXXX").string();
    ASSERT_NE(::mkdtemp(tmpl.data()), nullptr);
    dir_ = tmpl;
    root_ = dir_ / "repo";
    fs::create_directories(root_);
    write("../outside/secret.txt", "SECRET\n");
    mr::set_log_sink([this](std::string_view logger, mr::LogLevel level, std::string_view message) {
      const std::scoped_lock lock(mutex_);
      EXPECT_EQ(logger, "kestrune.mcp_responses");
      EXPECT_EQ(level, mr::LogLevel::info);
      logs_.emplace_back(message);
    });
  }
  void TearDown() override {
    mr::set_log_sink({});
    fs::remove_all(dir_);
  }

  // Writes `bytes` to `path` below the root, creating its directories.
  void write(const std::string& path, std::string_view bytes) const {
    const fs::path file = root_ / path;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  void link(const std::string& path, const fs::path& target) const { fs::create_symlink(target, root_ / path); }

  mr::CodeLines lines(const std::vector<Place>& places) const { return mr::code_lines(root_, places); }
  std::vector<std::string> logs() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(logs_, {});
  }

  fs::path dir_;
  fs::path root_;
  std::mutex mutex_;
  std::vector<std::string> logs_;
};

std::string not_read(std::string_view path, std::string_view why) {
  return "code_lines: " + std::string(path) + " is not read (" + std::string(why) + ")";
}

// Lines far longer than a read, whose text starts or ends megabytes in, and
// boundaries that straddle the reader's pieces.
TEST_F(code_lines, reads_lines_of_any_length) {
  std::string bytes(65535, 'a');
  bytes += "\r\n";                                   // CR and LF on either side of 64 KiB
  bytes += std::string(131071 - bytes.size(), 'b');  // U+2028 across 128 KiB
  bytes += "\u2028c\n";
  bytes += std::string(2 << 20, ' ') + "\t text \t" + std::string(1 << 20, ' ') + '\n';
  bytes += std::string(1 << 20, '\t') + std::string(199, 'x') + std::string(1 << 20, ' ') + "y\n";
  bytes += std::string(200, 'x') + std::string(1 << 20, ' ') + "\r\n";
  bytes += "last";
  write("big.txt", bytes);
  const std::vector<Place> places{{"big.txt", 1}, {"big.txt", 2}, {"big.txt", 3}, {"big.txt", 4},
                                  {"big.txt", 5}, {"big.txt", 6}, {"big.txt", 7}, {"big.txt", 8}};
  const mr::CodeLines found = lines(places);
  EXPECT_EQ(found.size(), 7u);
  EXPECT_EQ(found.find("big.txt", 1), std::string(199, 'a') + "\u2026");
  EXPECT_EQ(found.find("big.txt", 2), std::string(199, 'b') + "\u2026");
  EXPECT_EQ(found.find("big.txt", 3), "c");
  EXPECT_EQ(found.find("big.txt", 4), "text");
  EXPECT_EQ(found.find("big.txt", 5), std::string(199, 'x') + "\u2026");
  EXPECT_EQ(found.find("big.txt", 6), std::string(200, 'x'));
  EXPECT_EQ(found.find("big.txt", 7), "last");
  EXPECT_EQ(logs(), std::vector<std::string>{});
}

// A FIFO may never be written: it is not opened, and a regular file in the
// same call is still read.
TEST_F(code_lines, answers_at_once_for_a_fifo) {
  write("a.txt", "alpha\n");
  ASSERT_EQ(::mkfifo((root_ / "pipe").c_str(), 0600), 0);
  const mr::CodeLines found = lines({{"pipe", 1}, {"a.txt", 1}});
  EXPECT_EQ(found.size(), 1u);
  EXPECT_EQ(found.find("a.txt", 1), "alpha");
  EXPECT_EQ(logs(), std::vector<std::string>{not_read("pipe", "not a regular file")});
}

// An absolute path inside the root is read, and so is a root reached
// through a link (the host's choice, so followed).
TEST_F(code_lines, reads_absolute_paths_inside_and_roots_through_links) {
  write("a.txt", "alpha\n");
  fs::create_directory_symlink(root_, dir_ / "repo_link");
  const std::string absolute = (root_ / "a.txt").string();
  const std::vector<Place> places{{absolute, 1}, {"../repo_link/a.txt", 1}};
  for (const fs::path& root : {root_, dir_ / "repo_link"}) EXPECT_EQ(mr::code_lines(root, places).size(), 2u) << root;
  EXPECT_EQ(logs(), std::vector<std::string>{});
}

// A symbolic link swapped in between the check and the read: a thread keeps
// exchanging a file and a directory of the tree with links that lead
// outside. Whatever the timing, the outside file is never read.
TEST_F(code_lines, a_link_swapped_in_never_leads_outside) {
  write("f.txt", "inside\n");
  write("d/secret.txt", "inside too\n");
  link("evil_f", dir_ / "outside" / "secret.txt");
  link("evil_d", dir_ / "outside");
  const auto exchange = [&](const char* a, const char* b) {
    return ::renameat2(AT_FDCWD, (root_ / a).c_str(), AT_FDCWD, (root_ / b).c_str(), RENAME_EXCHANGE) == 0;
  };
  if (!exchange("f.txt", "evil_f") || !exchange("f.txt", "evil_f")) GTEST_SKIP() << "no atomic exchange here";
  std::atomic<bool> stop = false;
  std::thread swapper([&] {
    while (!stop) {
      exchange("f.txt", "evil_f");
      exchange("d", "evil_d");
    }
  });
  const std::vector<Place> places{{"f.txt", 1}, {"d/secret.txt", 1}};
  int read = 0;
  for (int i = 0; i < 3000; ++i) {
    const mr::CodeLines found = lines(places);
    for (const auto& file : found.files()) {
      for (const auto& l : file.lines) {
        EXPECT_NE(l.text, "SECRET") << file.path << " after " << i << " calls";
        ++read;
      }
    }
  }
  stop = true;
  swapper.join();
  EXPECT_GT(read, 0);
  logs();  // whatever failed mid-swap was logged; only what was read matters
}

TEST_F(code_lines, logs_to_standard_error_without_a_sink) {
  mr::set_log_sink({});
  const std::vector<Place> places{{"missing.txt", 1}, {"bad\nname\x7f", 1}};
  testing::internal::CaptureStderr();
  EXPECT_TRUE(lines(places).empty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "INFO:kestrune.mcp_responses:code_lines: missing.txt is not read (No such file or directory)\n"
            "INFO:kestrune.mcp_responses:code_lines: bad\\x0aname\\x7f is not read (No such file or directory)\n");
}

// Once the last wanted line has ended, nothing later is looked at.
TEST(line_scanner, is_done_when_the_last_wanted_line_ends) {
  mr::detail::LineScanner scanner({2, 3});
  scanner.feed("one\ntwo\nthree");
  EXPECT_FALSE(scanner.done());  // line 3 may go on
  scanner.feed("\r");
  EXPECT_FALSE(scanner.done());  // an LF may follow
  scanner.feed("\nfour\xE2");
  EXPECT_TRUE(scanner.done());
  scanner.feed("\x80\xA8");
  const auto found = scanner.finish();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].text, "two");
  EXPECT_EQ(found[1].text, "three");
  EXPECT_TRUE(mr::detail::LineScanner({}).done());
}

}  // namespace
}  // namespace kestrune::mcp_responses_test
