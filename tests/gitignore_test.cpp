// .gitignore rules against a table of patterns and paths, each row also
// asked of git itself (git check-ignore) when git is there.
#include "gitignore.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "process.hpp"

namespace ix = kestrune::indexer;
namespace fs = std::filesystem;

namespace {

struct Row {
  std::string rules;
  std::string path;  // a trailing "/" makes it a folder
  bool ignored = false;
};

std::vector<Row> rows() {
  std::ifstream in(KESTRUNE_IGNORE_RULES);
  std::vector<Row> table;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line.front() == '#') continue;
    std::istringstream fields(line);
    Row row;
    std::string want;
    std::getline(fields, row.rules, '\t');
    std::getline(fields, row.path, '\t');
    std::getline(fields, want, '\t');
    for (std::size_t at; (at = row.rules.find("\\n")) != std::string::npos;) row.rules.replace(at, 2, "\n");
    row.ignored = want == "1";
    table.push_back(row);
  }
  return table;
}

// As the walk decides: a path is left out when it or a folder above it is.
bool walk_ignores(const ix::IgnoreRules& rules, std::string path) {
  const bool folder = path.ends_with('/');
  if (folder) path.pop_back();
  for (std::size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    if (rules.ignored(path.substr(0, slash), true)) return true;
  }
  return rules.ignored(path, folder);
}

std::optional<bool> git_ignores(const Row& row, const fs::path& scratch) {
  std::string error;
  const fs::path repo = scratch / "repo";
  fs::remove_all(repo);
  const auto init = ix::run_process({"git", "init", "-q", repo.string()}, {.quiet = true}, error);
  if (!init || init->exit_code != 0) return std::nullopt;
  std::ofstream(repo / ".gitignore") << row.rules << "\n";
  std::string path = row.path;
  if (path.ends_with('/')) {
    path.pop_back();
    fs::create_directories(repo / path);
  } else {
    fs::create_directories((repo / path).parent_path());
    std::ofstream(repo / path) << "";
  }
  const auto asked = ix::run_process({"git", "-C", repo.string(), "check-ignore", "--no-index", "-q", "--", path},
                                     {.quiet = true}, error);
  if (!asked || asked->exit_code > 1) return std::nullopt;
  return asked->exit_code == 0;
}

TEST(Gitignore, EachRowAsGitDecidesIt) {
  const fs::path scratch = fs::temp_directory_path() / ("kestrune-gitignore-" + std::to_string(::getpid()));
  std::size_t asked = 0;
  for (const Row& row : rows()) {
    ix::IgnoreRules rules;
    rules.add("", row.rules);
    EXPECT_EQ(walk_ignores(rules, row.path), row.ignored) << row.rules << " | " << row.path;
    if (const std::optional<bool> git = git_ignores(row, scratch)) {
      EXPECT_EQ(*git, row.ignored) << "git disagrees with the table: " << row.rules << " | " << row.path;
      ++asked;
    }
  }
  fs::remove_all(scratch);
  if (asked == 0) GTEST_SKIP() << "git is not there to ask";
}

TEST(Gitignore, RulesOfDeeperFoldersComeLaterAndWin) {
  ix::IgnoreRules rules;
  rules.add("", "*.gen\n");
  rules.add("sub", "!keep.gen\n/local\n");
  EXPECT_TRUE(rules.ignored("a.gen", false));
  EXPECT_FALSE(rules.ignored("sub/keep.gen", false));
  EXPECT_TRUE(rules.ignored("sub/other.gen", false));
  EXPECT_TRUE(rules.ignored("sub/local", false));
  EXPECT_FALSE(rules.ignored("local", false));
  EXPECT_FALSE(rules.ignored("subx/local", false));
}

// Patterns that make a backtracking matcher take minutes; a guard against
// one coming back, with a bound far above what the matcher needs.
TEST(Gitignore, BacktrackingPatternsStayFast) {
  ix::IgnoreRules rules;
  rules.add("", "**/a*a*a*a*a*a*a*a*b\n**/a*a*a*a*a*a*a*a*a*b\n" + std::string(50, 'a') + std::string(50, '*') + "b\n");
  const std::string name = std::string(100, 'a');
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(rules.ignored(name + "/" + name, false));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

}  // namespace
