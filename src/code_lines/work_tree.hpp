// The work tree's root as a security boundary: a path is opened only when it
// names a regular file at or below the root, and what is opened is the file
// that was checked.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

namespace kestrune::mcp_responses::detail {

/// kNotRegular: the failure of a path that names something other than a
/// regular file or a directory (a device, a FIFO, a socket). Not an errno.
inline constexpr int kNotRegular = -1;

/// Fd: an open file descriptor, closed by its owner.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) noexcept : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd();
  [[nodiscard]] int get() const noexcept { return fd_; }

 private:
  int fd_ = -1;
};

/// Opened: what opening a path of the work tree gave.
struct Opened {
  enum class Outcome : std::uint8_t { opened, outside, failed };
  Outcome outcome;
  Fd file;        ///< when opened: the file, for reading
  int error = 0;  ///< when failed: an errno, or kNotRegular
};

/// WorkTree: the root, resolved once, and a descriptor of it opened on
/// first use.
class WorkTree {
 public:
  explicit WorkTree(const std::filesystem::path& root);

  /// open: opens `path` (relative to the root, or absolute inside it). A
  /// path whose resolved location is not the root or below it is outside;
  /// one that cannot be resolved or opened, or that is not a regular file,
  /// fails.
  [[nodiscard]] Opened open(std::string_view path);

 private:
  // A descriptor of the root, or -1 with `error` set.
  int root_fd(int& error);

  std::string path_;
  int error_ = 0;  // what stopped the root's resolution
  bool opened_ = false;
  Fd fd_;
  int fd_error_ = 0;
};

}  // namespace kestrune::mcp_responses::detail
