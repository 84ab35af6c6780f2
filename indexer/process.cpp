#include "process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

extern char** environ;  // NOLINT: the process's environment, a child's unless it is given its own

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

// spawn: `argv` started with `input` as its standard input (-1: /dev/null)
// and `output` as its standard output; its pid, or -1 with `error` set.
pid_t spawn(const std::vector<std::string>& argv, const ProcessOptions& options, int input, int output,
            std::string& error) {
  FileActions file_actions;
  posix_spawn_file_actions_t* actions = &file_actions.actions;
  if (input < 0) {
    posix_spawn_file_actions_addopen(actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  } else {
    posix_spawn_file_actions_adddup2(actions, input, STDIN_FILENO);
  }
  posix_spawn_file_actions_adddup2(actions, output, STDOUT_FILENO);
  if (options.quiet) posix_spawn_file_actions_addopen(actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  if (!options.directory.empty()) posix_spawn_file_actions_addchdir_np(actions, options.directory.c_str());
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));  // NOLINT: exec's signature
  args.push_back(nullptr);
  std::vector<char*> variables;
  if (options.environment) {
    for (const std::string& v : *options.environment) variables.push_back(const_cast<char*>(v.c_str()));  // NOLINT
    variables.push_back(nullptr);
  }
  pid_t pid = -1;
  const int rc =
      posix_spawnp(&pid, args[0], actions, nullptr, args.data(), options.environment ? variables.data() : environ);
  if (rc != 0) {
    error = std::strerror(rc);
    return -1;
  }
  return pid;
}

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

  const pid_t pid = spawn(argv, options, -1, write_end.fd, error);
  if (pid < 0) return std::nullopt;
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

Conversation Conversation::start(const std::vector<std::string>& argv, const ProcessOptions& options,
                                 std::string& error) {
  // Its input is a socket, not a pipe: a write to a program that died fails
  // with an error (MSG_NOSIGNAL) instead of a SIGPIPE that would end us.
  std::array<int, 2> input{};
  std::array<int, 2> output{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input.data()) != 0) {
    error = std::strerror(errno);
    return {};
  }
  Descriptor ours_in(input[0]);
  Descriptor theirs_in(input[1]);
  if (::pipe2(output.data(), O_CLOEXEC) != 0) {
    error = std::strerror(errno);
    return {};
  }
  Descriptor ours_out(output[0]);
  Descriptor theirs_out(output[1]);

  Conversation child;
  child.pid_ = spawn(argv, options, theirs_in.fd, theirs_out.fd, error);
  if (child.pid_ < 0) return {};
  child.to_child_ = std::exchange(ours_in.fd, -1);
  child.from_child_ = std::exchange(ours_out.fd, -1);
  ::fcntl(child.to_child_, F_SETFL, O_NONBLOCK);
  ::fcntl(child.from_child_, F_SETFL, O_NONBLOCK);
  return child;
}

Conversation::Conversation(Conversation&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      to_child_(std::exchange(other.to_child_, -1)),
      from_child_(std::exchange(other.from_child_, -1)),
      pending_(std::move(other.pending_)) {}

Conversation& Conversation::operator=(Conversation&& other) noexcept {
  if (this != &other) {
    stop();
    pid_ = std::exchange(other.pid_, -1);
    to_child_ = std::exchange(other.to_child_, -1);
    from_child_ = std::exchange(other.from_child_, -1);
    pending_ = std::move(other.pending_);
  }
  return *this;
}

Conversation::~Conversation() { stop(); }

void Conversation::stop() noexcept {
  if (to_child_ >= 0) ::close(to_child_);
  if (from_child_ >= 0) ::close(from_child_);
  to_child_ = from_child_ = -1;
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  pid_ = -1;
  pending_.clear();
}

void Conversation::fail(std::string& error, std::string why) noexcept {
  error = std::move(why);
  stop();
}

bool Conversation::send(std::string_view input, int timeout_ms, std::string& error) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!input.empty()) {
    if (!valid()) {
      error = "the program is not running";
      return false;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd fd{to_child_, POLLOUT, 0};
    if (left <= 0 || (::poll(&fd, 1, static_cast<int>(left)) < 0 && errno != EINTR)) {
      fail(error, "it stopped reading for " + std::to_string(timeout_ms / 1000) + " s");
      return false;
    }
    const ssize_t n = ::send(to_child_, input.data(), input.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno != EAGAIN && errno != EINTR) {
      fail(error, "it stopped reading (" + std::string(std::strerror(errno)) + ")");
      return false;
    }
    if (n > 0) input.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

std::optional<std::string> Conversation::read_line(int timeout_ms, std::string& error) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  std::array<char, 65536> buffer{};
  for (std::size_t scanned = 0;;) {
    if (const std::size_t end = pending_.find('\n', scanned); end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    scanned = pending_.size();
    if (!valid()) {
      error = "the program is not running";
      return std::nullopt;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd fd{from_child_, POLLIN, 0};
    if (left <= 0 || (::poll(&fd, 1, static_cast<int>(left)) < 0 && errno != EINTR)) {
      fail(error, "no answer in " + std::to_string(timeout_ms / 1000) + " s");
      return std::nullopt;
    }
    const ssize_t n = ::read(from_child_, buffer.data(), buffer.size());
    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
      fail(error, "it ended without an answer");
      return std::nullopt;
    }
    if (n > 0) pending_.append(buffer.data(), static_cast<std::size_t>(n));
  }
}

std::optional<std::string> Conversation::exchange(std::string_view input, std::string_view last_line, int timeout_ms,
                                                  std::string& error) {
  if (!valid()) {
    error = "the program is not running";
    return std::nullopt;
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  std::string answer = std::exchange(pending_, {});
  std::size_t scanned = 0;  // lines of `answer` before this are not the last
  std::array<char, 65536> buffer{};
  for (;;) {
    // The answer ends at a line that starts with `last_line`.
    for (std::size_t end; (end = answer.find('\n', scanned)) != std::string::npos; scanned = end + 1) {
      if (std::string_view(answer).substr(scanned).starts_with(last_line)) {
        pending_ = answer.substr(end + 1);
        answer.resize(scanned);
        return answer;
      }
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      error = "no answer in " + std::to_string(timeout_ms / 1000) + " s";
      stop();
      return std::nullopt;
    }
    std::array<pollfd, 2> fds{{{from_child_, POLLIN, 0}, {input.empty() ? -1 : to_child_, POLLOUT, 0}}};
    if (::poll(fds.data(), fds.size(), static_cast<int>(left)) < 0 && errno != EINTR) {
      error = std::strerror(errno);
      stop();
      return std::nullopt;
    }
    if ((fds[1].revents & (POLLOUT | POLLERR | POLLHUP)) != 0) {
      const ssize_t n = ::send(to_child_, input.data(), input.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n < 0 && errno != EAGAIN && errno != EINTR) {
        error = "it stopped reading (" + std::string(std::strerror(errno)) + ")";
        stop();
        return std::nullopt;
      }
      if (n > 0) input.remove_prefix(static_cast<std::size_t>(n));
    }
    if ((fds[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
      const ssize_t n = ::read(from_child_, buffer.data(), buffer.size());
      if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
        error = "it ended without an answer";
        stop();
        return std::nullopt;
      }
      if (n > 0) answer.append(buffer.data(), static_cast<std::size_t>(n));
    }
  }
}

}  // namespace kestrune::indexer
