#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
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

#include "kestrune/mcp_responses/detail/line_scanner.hpp"
#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/logging.hpp"

namespace kestrune::mcp_responses_test {
namespace {

namespace fs = std::filesystem;
namespace mr = mcp_responses;
using mr::Place;

// A fresh directory holding `repo` (the root), a sibling `repo2` whose name
// begins with the root's, and `outside` with a file that must never be read.
// Log records are captured for the length of each test.
class code_lines : public testing::Test {
 protected:
  void SetUp() override {
    std::string tmpl = (fs::temp_directory_path() / "kestrune-code-lines-XXXXXX").string();
    ASSERT_NE(::mkdtemp(tmpl.data()), nullptr);
    dir_ = tmpl;
    root_ = dir_ / "repo";
    fs::create_directories(root_);
    write("../repo2/x.txt", "sibling\n");
    write("../outside/secret.txt", "SECRET\n");
    mr::set_log_sink([this](std::string_view logger, mr::LogLevel level, std::string_view message) {
      const std::scoped_lock lock(mutex_);
      EXPECT_EQ(logger, "kestrune.mcp_responses");
      EXPECT_EQ(level, mr::LogLevel::info);
      logs_.emplace_back(message);
    });
  }
  void TearDown() override {
    mr::reset_log_sink();
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
  std::optional<std::string> line(std::string_view path, std::int64_t n) const {
    const std::vector<Place> places{{path, n}};
    const mr::CodeLines found = lines(places);
    const auto text = found.find(path, n);
    return text ? std::optional<std::string>(*text) : std::nullopt;
  }
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

TEST_F(code_lines, splits_decodes_strips_and_cuts_lines) {
  const std::string long_line(250, 'x');
  const struct {
    std::string_view bytes;
    std::int64_t line;
    std::optional<std::string> text;
  } cases[] = {
      {"a\r\nb\r\n", 1, "a"},
      {"a\r\nb\r\n", 2, "b"},
      {"a\r\nb\r\n", 3, std::nullopt},
      {"a\r\r\nb", 3, "b"},
      {"one\ftwo\u2028three\n", 2, "two"},
      {"one\ftwo\u2028three\n", 3, "three"},
      {"1\n2\r3\v4\f5\x1c"
       "6\x1d"
       "7\x1e"
       "8\u00859\u2028A\u2029B",
       11, "B"},
      {"1\n2\r3\v4\f5\x1c"
       "6\x1d"
       "7\x1e"
       "8\u00859\u2028A\u2029B",
       8, "8"},
      {"a\x1f"
       "b\n",
       1,
       "a\x1f"
       "b"},  // U+001F is whitespace but ends no line
      {"\xEF\xBB\xBFimport os\n", 1, "\uFEFFimport os"},
      {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64", 1, "a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
      {"\xE2\x80\n\xE2\x80\xA8z", 3, "z"},  // a broken U+2028 ends no line
      {"a\n\nb", 2, ""},
      {"a\n\nb", 3, "b"},
      {" \t\u3000 \n", 1, ""},
      {"    return x;  \r\n", 1, "return x;"},
      {long_line, 1, std::string(199, 'x') + "\u2026"},
      {"a\n", 1, "a"},
      {"a\n", 2, std::nullopt},
      {"a\nlast", 2, "last"},
      {"", 1, std::nullopt},
      {"a\n", 0, std::nullopt},
      {"a\n", -1, std::nullopt},
  };
  int n = 0;
  for (const auto& c : cases) {
    const std::string path = "f" + std::to_string(n++) + ".txt";
    write(path, c.bytes);
    EXPECT_EQ(line(path, c.line), c.text) << path << " line " << c.line;
  }
  EXPECT_EQ(logs(), std::vector<std::string>{});
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

TEST_F(code_lines, groups_places_by_exact_path_text) {
  write("docs/a.txt", "first\nsecond\n");
  write("b.txt", "b1\n");
  const std::vector<Place> places{{"b.txt", 1},      {"docs/a.txt", 2}, {"./docs/a.txt", 1}, {"docs/a.txt", 2},
                                  {"docs/a.txt", 1}, {"missing", 1},    {"missing", 2},      {"b.txt", 9}};
  const mr::CodeLines found = lines(places);
  EXPECT_EQ(found.size(), 4u);
  EXPECT_EQ(found.find("docs/a.txt", 1), "first");
  EXPECT_EQ(found.find("docs/a.txt", 2), "second");
  EXPECT_EQ(found.find("./docs/a.txt", 1), "first");
  EXPECT_EQ(found.find("./docs/a.txt", 2), std::nullopt);
  EXPECT_EQ(found.find("b.txt", 9), std::nullopt);
  std::vector<std::string> order;
  for (const auto& file : found.files()) {
    order.push_back(file.path);
    for (const auto& l : file.lines) order.push_back(std::to_string(l.line));
  }
  EXPECT_EQ(order, (std::vector<std::string>{"b.txt", "1", "docs/a.txt", "1", "2", "./docs/a.txt", "1"}));
  EXPECT_EQ(logs(), std::vector<std::string>{not_read("missing", "No such file or directory")});  // read once
}

TEST_F(code_lines, null_root_reads_nothing) {
  const std::vector<Place> places{{"missing", 1}};
  EXPECT_TRUE(mr::code_lines(std::nullopt, places).empty());
  EXPECT_EQ(logs(), std::vector<std::string>{});
}

TEST_F(code_lines, logs_files_that_cannot_be_read) {
  write("dir/file.txt", "x\n");
  link("loop1", "loop2");
  link("loop2", "loop1");
  const std::string nul("a\0b", 3);
  const std::string long_name(300, 'n');
  const std::vector<Place> places{{"missing.txt", 1}, {"dir", 1}, {"", 1},        {"dir/file.txt/x", 1}, {"loop1", 1},
                                  {"loop2/x.txt", 1}, {nul, 1},   {long_name, 1}, {"dir/file.txt", 1}};
  const mr::CodeLines found = lines(places);
  EXPECT_EQ(found.size(), 1u);  // the readable file goes on after the others
  EXPECT_EQ(found.find("dir/file.txt", 1), "x");
  EXPECT_EQ(logs(), (std::vector<std::string>{
                        not_read("missing.txt", "No such file or directory"),
                        not_read("dir", "Is a directory"),
                        not_read("", "Is a directory"),
                        not_read("dir/file.txt/x", "Not a directory"),
                        not_read("loop1", "Too many levels of symbolic links"),
                        not_read("loop2/x.txt", "Too many levels of symbolic links"),
                        not_read(nul, "Invalid argument"),
                        not_read(long_name, "File name too long"),
                    }));
}

TEST_F(code_lines, paths_that_leave_the_root_give_nothing_and_log_nothing) {
  const fs::path secret = dir_ / "outside" / "secret.txt";
  write("sub/deeper/in.txt", "in\n");
  link("out_file", secret);
  link("out_rel", "../outside/secret.txt");
  link("sub/deeper/out_dir", dir_ / "outside");
  link("sub/up", "../../outside");
  link("sub/hop", "deeper/out_dir");  // a link to a link that leaves
  link("to_sibling", "../repo2");
  const std::string escapes[] = {
      "../outside/secret.txt",
      secret.string(),
      "../repo2/x.txt",
      (dir_ / "repo2" / "x.txt").string(),
      "to_sibling/x.txt",
      "out_file",
      "out_rel",
      "sub/deeper/out_dir/secret.txt",
      "sub/up/secret.txt",
      "sub/hop/secret.txt",
      "missing/../out_file",
      "sub/deeper/out_dir/../outside/secret.txt",
      "sub/deeper/../../../outside/secret.txt",
      "..",
      "/",
  };
  std::vector<Place> places;
  for (const auto& path : escapes) places.push_back({path, 1});
  EXPECT_TRUE(lines(places).empty());
  EXPECT_EQ(logs(), std::vector<std::string>{});
}

TEST_F(code_lines, paths_that_stay_inside_are_read) {
  write("a.txt", "alpha\n");
  write("sub/b.txt", "beta\n");
  link("sub/to_a", "../a.txt");
  link("sub_link", "sub");
  fs::create_directory_symlink(root_, dir_ / "repo_link");
  const std::string inside[] = {
      "../repo/a.txt", (root_ / "a.txt").string(), "sub/to_a", "sub_link/b.txt", "sub/../a.txt", "../repo_link/a.txt",
  };
  std::vector<Place> places;
  for (const auto& path : inside) places.push_back({path, 1});
  const fs::path cwd = fs::current_path();
  fs::current_path(dir_);  // for the relative root
  for (const fs::path& root : {root_, dir_ / "repo_link", dir_ / "repo" / "sub" / "..", fs::path("repo")}) {
    const mr::CodeLines found = mr::code_lines(root, places);
    EXPECT_EQ(found.size(), std::size(inside)) << root;
    for (const auto& path : inside) {
      EXPECT_EQ(found.find(path, 1), path.find("b.txt") != std::string::npos ? "beta" : "alpha") << path;
    }
  }
  fs::current_path(cwd);
  EXPECT_EQ(logs(), std::vector<std::string>{});
}

TEST_F(code_lines, a_missing_root_logs_each_path) {
  const std::vector<Place> places{{"a.txt", 1}, {"../outside/secret.txt", 1}};
  EXPECT_TRUE(mr::code_lines(dir_ / "nowhere", places).empty());
  EXPECT_EQ(logs(), std::vector<std::string>{not_read("a.txt", "No such file or directory")});
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
  mr::reset_log_sink();
  const std::vector<Place> places{{"missing.txt", 1}, {"bad\nname\x7f", 1}};
  testing::internal::CaptureStderr();
  EXPECT_TRUE(lines(places).empty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "INFO:kestrune.mcp_responses:code_lines: missing.txt is not read (No such file or directory)\n"
            "INFO:kestrune.mcp_responses:code_lines: bad\\x0aname\\x7f is not read (No such file or directory)\n");
}

// The lines of `bytes` as found from the whole text at once: decoded first,
// then split on the decoded boundaries, then stripped and cut.
std::vector<std::string> whole_text_lines(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    const mr::detail::Decoded d = mr::detail::decode_at(bytes, i);
    text.append(d.ok ? bytes.substr(i, d.len) : "\uFFFD");
    i += d.len;
  }
  std::vector<std::string> lines;
  std::string line;
  for (std::size_t i = 0; i < text.size();) {
    const mr::detail::Decoded d = mr::detail::decode_at(text, i);
    const char32_t c = d.cp;
    const std::string_view chars(text.data() + i, d.len);
    i += d.len;
    if ((c >= 0x0A && c <= 0x0D) || (c >= 0x1C && c <= 0x1E) || c == 0x85 || c == 0x2028 || c == 0x2029) {
      if (c == '\r' && i < text.size() && text[i] == '\n') ++i;
      lines.push_back(mr::detail::cut(mr::detail::strip(line), mr::CODE_LINE_CHARS));
      line.clear();
    } else {
      line.append(chars);
    }
  }
  if (!line.empty()) lines.push_back(mr::detail::cut(mr::detail::strip(line), mr::CODE_LINE_CHARS));
  return lines;
}

// Feeds `bytes` to a scanner in pieces of `piece` bytes; the found lines as
// "number:text".
std::vector<std::string> scanned(std::string_view bytes, const std::vector<std::int64_t>& wanted, std::size_t piece) {
  mr::detail::LineScanner scanner(wanted);
  for (std::size_t i = 0; i < bytes.size(); i += piece) scanner.feed(bytes.substr(i, piece));
  std::vector<std::string> found;
  for (const auto& l : scanner.finish()) found.push_back(std::to_string(l.line) + ":" + l.text);
  return found;
}

// Every input through pieces of 1 to 16 bytes and whole, for all lines, the
// odd ones and the last: characters, ill-formed sequences, CR LF pairs and
// long lines split at every place must give what the whole text gives.
TEST(line_scanner, finds_what_the_whole_text_gives_in_pieces_of_any_size) {
  std::vector<std::string> inputs = {
      "",
      "a\r\nb\r\n",
      "a\r\r\nb\r",
      "\r\n\r\n\n\r",
      "1\n2\r3\v4\f5\x1c"
      "6\x1d"
      "7\x1e"
      "8\u00859\u2028A\u2029B\x1f",
      "\xEF\xBB\xBFimport os\n",
      "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
      "\xE2\x80\n\xE2\x80\xA8z\xE2\xE2\x80\xA9y\xC2\xC2\x85x\x80\x85w\xC2",
      "\xF0\x9F\x98\x80 \xED\xA0\x80 \xF4\x90\x80\x80 \xE0\x80\x80\n\xF0\x9F\x98",
      std::string(3, ' ') + std::string(250, 'x') + "\r\n" + std::string(199, 'x') + "  \t y",
      std::string(200, 'x') + " \t\u3000\n" + std::string(200, 'x') + " y\n" + std::string(199, 'x') + "\xFF\xFF ",
      "\u3000\u00A0" + std::string(300, ' ') + "\xC3\xA9" + std::string(201 * 2, '\xA9') + "\n z ",
  };
  // Random texts from fragments that make boundaries, ill-formed sequences,
  // whitespace and long lines likely.
  const std::vector<std::string> fragments = {"a",
                                              " ",
                                              "\t",
                                              "\r",
                                              "\n",
                                              "\r\n",
                                              "\xC2",
                                              "\x85",
                                              "\xE2",
                                              "\x80",
                                              "\xA8",
                                              "\u00A0",
                                              "\u3000",
                                              "\xF0\x9F\x98\x80",
                                              "\xF0\x9F",
                                              "\xED\xA0\x80",
                                              "\v",
                                              "\x1C",
                                              "\x1F",
                                              "\xFF",
                                              std::string(90, 'w'),
                                              std::string(90, ' ')};
  std::uint64_t state = 42;
  const auto next = [&](std::uint64_t n) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return (state >> 33) % n;
  };
  for (int k = 0; k < 300; ++k) {
    std::string text;
    for (std::uint64_t n = next(40); n > 0; --n) text += fragments[next(fragments.size())];
    inputs.push_back(std::move(text));
  }
  for (const std::string& input : inputs) {
    const std::vector<std::string> whole = whole_text_lines(input);
    const auto count = static_cast<std::int64_t>(whole.size());
    std::vector<std::int64_t> all{-1, 0};
    std::vector<std::int64_t> odd;
    std::vector<std::string> all_expected;
    std::vector<std::string> odd_expected;
    for (std::int64_t n = 1; n <= count + 1; ++n) {
      all.push_back(n);
      if (n % 2 == 1) odd.push_back(n);
      if (n > count) continue;
      const std::string line = std::to_string(n) + ":" + whole[static_cast<std::size_t>(n - 1)];
      all_expected.push_back(line);
      if (n % 2 == 1) odd_expected.push_back(line);
    }
    const std::vector<std::string> last_expected(all_expected.end() - (count > 0 ? 1 : 0), all_expected.end());
    for (std::size_t piece = 1; piece <= 17; ++piece) {
      const std::size_t size = piece == 17 ? input.size() + 1 : piece;
      EXPECT_EQ(scanned(input, all, size), all_expected) << testing::PrintToString(input) << " in " << size;
      EXPECT_EQ(scanned(input, odd, size), odd_expected) << testing::PrintToString(input) << " in " << size;
      EXPECT_EQ(scanned(input, {count}, size), last_expected) << testing::PrintToString(input) << " in " << size;
    }
  }
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
