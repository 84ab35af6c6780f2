// Running another program (ctags) and reading what it prints.
#pragma once

#include <sys/types.h>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
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
  /// its whole environment ("NAME=value" each); nullopt: ours
  std::optional<std::vector<std::string>> environment{};
};

/// run_process: runs `argv` (argv[0] found on PATH) with no standard input
/// and waits for it. nullopt when it cannot be started, with `error` saying
/// why (such as "No such file or directory").
[[nodiscard]] std::optional<ProcessOutput> run_process(const std::vector<std::string>& argv,
                                                       const ProcessOptions& options, std::string& error);

/// A program that runs beside this one and answers what it is sent on its
/// standard input with lines on its standard output. It is killed when it
/// goes out of scope.
class Conversation {
 public:
  /// start: `argv` started (argv[0] found on PATH); an invalid Conversation
  /// with `error` set when it cannot be.
  [[nodiscard]] static Conversation start(const std::vector<std::string>& argv, const ProcessOptions& options,
                                          std::string& error);

  Conversation() = default;
  Conversation(Conversation&& other) noexcept;
  Conversation& operator=(Conversation&& other) noexcept;
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;
  ~Conversation();

  [[nodiscard]] bool valid() const { return pid_ > 0; }

  /// exchange: sends `input` whole and reads what the program prints until a
  /// line that starts with `last_line`, which ends the answer (it is not
  /// returned). nullopt, with `error` set, when the program ends, fails or
  /// takes longer than `timeout_ms` in all: it is then killed.
  [[nodiscard]] std::optional<std::string> exchange(std::string_view input, std::string_view last_line, int timeout_ms,
                                                    std::string& error);

  /// send: writes `input` whole, reading nothing meanwhile (for a program
  /// that answers only once it has read all it is sent). false, with `error`
  /// set, when it stops reading or takes longer than `timeout_ms`: it is
  /// then killed.
  [[nodiscard]] bool send(std::string_view input, int timeout_ms, std::string& error);

  /// read_line: the next line it prints, without its newline; nullopt, with
  /// `error` set, when it ends first or takes longer than `timeout_ms`: it
  /// is then killed.
  [[nodiscard]] std::optional<std::string> read_line(int timeout_ms, std::string& error);

 private:
  void stop() noexcept;
  // fail: `why` in `error`, and the program killed.
  void fail(std::string& error, std::string why) noexcept;
  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
  std::string pending_{};  // what it printed past the last answer
};

}  // namespace kestrune::indexer
