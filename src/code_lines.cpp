// Code line lookup: single lines of code read from the repository's work tree.
//
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
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kestrune/mcp_responses/detail/line_scanner.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "logger.hpp"

namespace kestrune::mcp_responses {

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

// Files are read in pieces of this size: memory does not grow with a file.
constexpr std::size_t kChunkBytes = 65536;

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
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  [[nodiscard]] int get() const noexcept { return fd_; }

 private:
  int fd_ = -1;
};

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
  Fd opened(::openat(at, names.back().c_str(), kFileFlags));
  if (opened.get() < 0) return errno;
  file = std::move(opened);
  return 0;
}

// Reads the open file `fd` through `scanner`, in chunks, until the scanner
// has settled every wanted line or the file ends: asking for line 10 of a
// huge file reads one chunk. At least one read is always made, so that a
// directory or an unreadable file fails as it would if read whole. The one
// difference from reading the whole file: an I/O error past the last wanted
// line goes unseen, and the lines found are kept. Returns the errno of a
// failure.
int scan_file(int fd, detail::LineScanner& scanner) {
  char buffer[kChunkBytes];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n == 0) return 0;
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    scanner.feed(std::string_view(buffer, static_cast<std::size_t>(n)));
    if (scanner.done()) return 0;
  }
}

// strerror_r comes in two flavours: the GNU one returns the text, the POSIX
// one fills the buffer and returns 0. strerror itself is not thread-safe.
[[maybe_unused]] std::string error_text(const char* text, const char* /*buffer*/) { return text; }
[[maybe_unused]] std::string error_text(int result, const char* buffer) {
  return result == 0 ? buffer : "Unknown error";
}

std::string describe(int error) {
  char buffer[256] = {};
  return error_text(::strerror_r(error, buffer, sizeof buffer), buffer);
}

void log_not_read(std::string_view path, int error) {
  std::string message = "code_lines: ";
  message.append(path).append(" is not read (").append(describe(error)).append(")");
  detail::log(LogLevel::info, message);
}

// The root, resolved, and a descriptor of it opened on first use.
class Root {
 public:
  explicit Root(const std::filesystem::path& root) {
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

  // The errno that stopped the root's resolution, or 0.
  [[nodiscard]] int error() const noexcept { return error_; }
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  // A descriptor of the root, or -1 with `error` set. The root is the
  // host's own choice, so a link there is followed.
  int fd(int& error) {
    if (!opened_) {
      opened_ = true;
      fd_ = Fd(::open(path_.c_str(), kDirFlags & ~O_NOFOLLOW));
      fd_error_ = fd_.get() < 0 ? errno : 0;
    }
    error = fd_error_;
    return fd_.get();
  }

 private:
  std::string path_;
  int error_ = 0;
  bool opened_ = false;
  Fd fd_;
  int fd_error_ = 0;
};

struct Group {
  std::string_view path;
  std::set<std::int64_t> lines;
};

std::vector<Group> group_by_path(std::span<const Place> places) {
  std::vector<Group> groups;
  std::unordered_map<std::string_view, std::size_t> index;
  for (const Place& place : places) {
    const auto [it, added] = index.try_emplace(place.path, groups.size());
    if (added) groups.push_back({place.path, {}});
    groups[it->second].lines.insert(place.line);
  }
  return groups;
}

enum class Outcome : std::uint8_t { read, outside, failed };

// Reads the file at `path` (as passed) under `root` through `scanner`. A
// failure to resolve, open or read sets `error` to its errno.
Outcome read_file(Root& root, std::string_view path, detail::LineScanner& scanner, int& error) {
  // A C path would end at the NUL and name another file.
  error = path.find('\0') != std::string_view::npos ? EINVAL : root.error();
  if (error != 0) return Outcome::failed;
  const Resolved target = resolve(path.starts_with('/') ? std::string("/") : root.path(), path);
  error = target.error;
  if (error != 0) return Outcome::failed;
  if (!is_within(target.path, root.path())) return Outcome::outside;
  const int base_fd = root.fd(error);
  if (base_fd < 0) return Outcome::failed;
  Fd file;
  error = open_within(base_fd, root.path(), target.path, file);
  if (error == 0) error = scan_file(file.get(), scanner);
  return error == 0 ? Outcome::read : Outcome::failed;
}

}  // namespace

std::optional<std::string_view> CodeLines::find(std::string_view path, std::int64_t line) const& {
  const auto it = index_.find(path);
  if (it == index_.end()) return std::nullopt;
  const std::vector<Line>& lines = files_[it->second].lines;
  const auto found =
      std::lower_bound(lines.begin(), lines.end(), line, [](const Line& l, std::int64_t n) { return l.line < n; });
  if (found == lines.end() || found->line != line) return std::nullopt;
  return found->text;
}

void CodeLines::add(std::string path, std::vector<Line> lines) {
  size_ += lines.size();
  index_.emplace(path, files_.size());
  files_.push_back({std::move(path), std::move(lines)});
}

CodeLines code_lines(const std::optional<std::filesystem::path>& root, std::span<const Place> places) {
  CodeLines found;
  if (!root) return found;
  Root base(*root);
  for (const Group& group : group_by_path(places)) {
    detail::LineScanner scanner({group.lines.begin(), group.lines.end()});
    int error = 0;
    const Outcome outcome = read_file(base, group.path, scanner, error);
    if (outcome == Outcome::failed) log_not_read(group.path, error);
    if (outcome != Outcome::read) continue;
    std::vector<CodeLines::Line> texts = scanner.finish();
    if (!texts.empty()) found.add(std::string(group.path), std::move(texts));
  }
  return found;
}

}  // namespace kestrune::mcp_responses
