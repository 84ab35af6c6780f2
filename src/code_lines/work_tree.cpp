// Repository contents are untrusted, so the root is a security boundary. A
// path is first resolved the way the file system would: made absolute,
// symbolic links followed, `.` dropped and `..` applied component by
// component; a path whose resolved location is not the root or below it is
// left out without a word. The file is then opened by walking the resolved
// location from a descriptor of the root, one component at a time, with
// O_NOFOLLOW: the resolved location holds no symbolic link, so a link found
// on that walk was swapped in after the check, and the open fails instead of
// following it. What is opened is therefore always the file that was checked
// or nothing at all.
#include "code_lines/work_tree.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace kestrune::mcp_responses::detail {

namespace {

// Linux's own limit on symbolic links followed in one lookup.
constexpr int kMaxSymlinks = 40;

#ifdef O_PATH
// Directories on the walk are only passed through: search permission suffices.
constexpr int kDirFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
#else
constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
#endif
// O_NONBLOCK so that a FIFO in the tree cannot hold the call up.
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// An absolute, resolved path, or the errno that stopped its resolution.
struct Resolved {
  std::string path;
  int error = 0;
};

// Pushes the components of `path` onto `pending` so that the first comes off
// the back first.
void push_components(std::vector<std::string>& pending, std::string_view path) {
  std::size_t end = path.size();
  while (end > 0) {
    const std::size_t slash = path.rfind('/', end - 1);
    const std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
    if (begin < end) pending.emplace_back(path.substr(begin, end - begin));
    if (slash == std::string_view::npos) break;
    end = slash;
  }
}

int read_link(const std::string& path, std::size_t size_hint, std::string& target) {
  std::size_t size = size_hint + 1;
  for (;;) {
    target.resize(size);
    const ssize_t n = ::readlink(path.c_str(), target.data(), size);
    if (n < 0) return errno;
    if (static_cast<std::size_t>(n) < size) {
      target.resize(static_cast<std::size_t>(n));
      return 0;
    }
    size *= 2;
  }
}

// Resolves `path` against `start` (an absolute path without symbolic links,
// "/" for an absolute `path`): each existing component has its links
// followed, `..` takes the resolved prefix up one level, and components that
// do not exist stay as written.
Resolved resolve(std::string start, std::string_view path) {
  if (start == "/") start.clear();  // the resolved prefix is kept without a trailing slash
  std::vector<std::string> pending;
  push_components(pending, path);
  int links = 0;
  std::string link;
  while (!pending.empty()) {
    std::string name = std::move(pending.back());
    pending.pop_back();
    if (name == ".") continue;
    if (name == "..") {
      start.erase(std::min(start.rfind('/'), start.size()));
      continue;
    }
    std::string next = start;
    next += '/';
    next += name;
    struct stat st {};
    if (::lstat(next.c_str(), &st) != 0) {
      if (errno != ENOENT && errno != ENOTDIR) return {{}, errno};
      start = std::move(next);  // does not exist: kept as written
      continue;
    }
    if (!S_ISLNK(st.st_mode)) {
      start = std::move(next);
      continue;
    }
    if (++links > kMaxSymlinks) return {{}, ELOOP};
    if (const int error = read_link(next, static_cast<std::size_t>(st.st_size), link); error != 0) {
      return {{}, error};
    }
    if (link.starts_with('/')) start.clear();
    push_components(pending, link);
  }
  if (start.empty()) start.push_back('/');
  return {std::move(start), 0};
}

// Whether `target` is `base` or below it, comparing whole components.
bool is_within(std::string_view target, std::string_view base) {
  if (base == "/") return true;
  return target.starts_with(base) && (target.size() == base.size() || target[base.size()] == '/');
}

// 0 for a regular file; EISDIR for a directory, which fails as reading it
// would; kNotRegular for anything else.
int regular_file_error(const struct stat& st) noexcept {
  if (S_ISREG(st.st_mode)) return 0;
  return S_ISDIR(st.st_mode) ? EISDIR : kNotRegular;
}

// Opens `target` (resolved, within `base`) from `base_fd` without following
// any symbolic link. Returns the errno of a failure.
int open_within(int base_fd, std::string_view base, std::string_view target, Fd& file) {
  std::vector<std::string> names;
  push_components(names, target.substr(base == "/" ? 0 : base.size()));
  if (names.empty()) names.emplace_back(".");  // the root itself
  Fd dir;
  int at = base_fd;
  while (names.size() > 1) {
    Fd next(::openat(at, names.back().c_str(), kDirFlags));
    if (next.get() < 0) return errno;
    dir = std::move(next);
    at = dir.get();
    names.pop_back();
  }
  // Only regular files are read: a device such as /dev/zero never ends, and
  // opening one may act on the hardware, so the kind is checked before the
  // open. It is checked again on the opened descriptor, which is what is read,
  // in case another kind of file was swapped in between.
  struct stat st {};
  if (::fstatat(at, names.back().c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (const int error = regular_file_error(st); error != 0) return error;
  Fd opened(::openat(at, names.back().c_str(), kFileFlags));
  if (opened.get() < 0) return errno;
  if (::fstat(opened.get(), &st) != 0) return errno;
  if (const int error = regular_file_error(st); error != 0) return error;
  file = std::move(opened);
  return 0;
}

}  // namespace

Fd::~Fd() {
  if (fd_ >= 0) ::close(fd_);
}

WorkTree::WorkTree(const std::filesystem::path& root) {
  const std::string& text = root.native();
  if (text.find('\0') != std::string::npos) {
    error_ = EINVAL;
    return;
  }
  std::string start = "/";
  if (!root.is_absolute()) {
    const std::unique_ptr<char, decltype(&std::free)> cwd(::getcwd(nullptr, 0), &std::free);
    if (!cwd) {
      error_ = errno;
      return;
    }
    start = cwd.get();
  }
  Resolved base = resolve(start, text);
  path_ = std::move(base.path);
  error_ = base.error;
}

// The root is the host's own choice, so a link there is followed.
int WorkTree::root_fd(int& error) {
  if (!opened_) {
    opened_ = true;
    fd_ = Fd(::open(path_.c_str(), kDirFlags & ~O_NOFOLLOW));
    fd_error_ = fd_.get() < 0 ? errno : 0;
  }
  error = fd_error_;
  return fd_.get();
}

Opened WorkTree::open(std::string_view path) {
  const auto failed = [](int error) { return Opened{Opened::Outcome::failed, Fd(), error}; };
  // A C path would end at the NUL and name another file.
  if (path.find('\0') != std::string_view::npos) return failed(EINVAL);
  if (error_ != 0) return failed(error_);
  const Resolved target = resolve(path.starts_with('/') ? std::string("/") : path_, path);
  if (target.error != 0) return failed(target.error);
  if (!is_within(target.path, path_)) return {Opened::Outcome::outside, Fd()};
  int error = 0;
  const int base_fd = root_fd(error);
  if (base_fd < 0) return failed(error);
  Fd file;
  error = open_within(base_fd, path_, target.path, file);
  if (error != 0) return failed(error);
  return {Opened::Outcome::opened, std::move(file)};
}

}  // namespace kestrune::mcp_responses::detail
