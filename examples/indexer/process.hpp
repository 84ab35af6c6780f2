// Running another program (git, ctags) and reading what it prints.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestrune::indexer {

/// What a program printed on standard output, and how it ended.
struct ProcessOutput {
  int exit_code = 0;  ///< its exit status, or 128 + the signal that ended it
  std::string output{};
};

struct ProcessOptions {
  std::filesystem::path directory{};  ///< where it runs; empty: here
  bool quiet = false;                 ///< its standard error goes to /dev/null instead of ours
};

/// run_process: runs `argv` (argv[0] found on PATH) with no standard input
/// and waits for it. nullopt when it cannot be started, with `error` saying
/// why (such as "No such file or directory").
[[nodiscard]] std::optional<ProcessOutput> run_process(const std::vector<std::string>& argv,
                                                       const ProcessOptions& options, std::string& error);

}  // namespace kestrune::indexer
