#include "process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

extern char** environ;  // NOLINT: the process's environment, handed to the child as it is

namespace kestrune::indexer {

namespace {

// Closes a file descriptor when it goes out of scope.
struct Descriptor {
  int fd = -1;
  Descriptor() = default;
  explicit Descriptor(int d) : fd(d) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
};

// posix_spawn's file actions, destroyed when they go out of scope.
struct FileActions {
  posix_spawn_file_actions_t actions{};
  FileActions() { posix_spawn_file_actions_init(&actions); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
};

}  // namespace

std::optional<ProcessOutput> run_process(const std::vector<std::string>& argv, const ProcessOptions& options,
                                         std::string& error) {
  std::array<int, 2> pipe_ends{};
  if (::pipe2(pipe_ends.data(), O_CLOEXEC) != 0) {
    error = std::strerror(errno);
    return std::nullopt;
  }
  Descriptor read_end(pipe_ends[0]);
  Descriptor write_end(pipe_ends[1]);

  FileActions file_actions;
  posix_spawn_file_actions_t* actions = &file_actions.actions;
  posix_spawn_file_actions_addopen(actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(actions, write_end.fd, STDOUT_FILENO);
  if (options.quiet) posix_spawn_file_actions_addopen(actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  if (!options.directory.empty()) posix_spawn_file_actions_addchdir_np(actions, options.directory.c_str());

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));  // NOLINT: exec's signature
  args.push_back(nullptr);
  pid_t pid = 0;
  const int rc = posix_spawnp(&pid, args[0], actions, nullptr, args.data(), environ);
  if (rc != 0) {
    error = std::strerror(rc);
    return std::nullopt;
  }
  ::close(write_end.fd);
  write_end.fd = -1;

  ProcessOutput result;
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t n = ::read(read_end.fd, buffer.data(), buffer.size());
    if (n > 0) {
      result.output.append(buffer.data(), static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      break;
    }
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

}  // namespace kestrune::indexer
