#include "repo_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "git_worktree.hpp"
#include "gitignore.hpp"

namespace kestrune::indexer {

namespace {

void walk(const fs::path& root, const std::string& directory, std::size_t depth, IgnoreRules& rules,
          FileListing& listing) {
  if (depth >= kMaxDepth) {
    listing.too_deep.push_back(directory);
    return;
  }
  const fs::path here = directory.empty() ? root : root / directory;
  std::string error;
  if (const std::optional<std::string> text = read_file(here / ".gitignore", error)) rules.add(directory, *text);
  std::error_code ec;
  std::vector<fs::directory_entry> entries;
  for (fs::directory_iterator it(here, fs::directory_options::skip_permission_denied, ec), end; !ec && it != end;
       it.increment(ec)) {
    entries.push_back(*it);
  }
  for (const fs::directory_entry& entry : entries) {
    const std::string name = entry.path().filename().string();
    std::string path = directory;
    if (!path.empty()) path += '/';
    path += name;
    std::error_code type_ec;
    // symlink_status: a linked folder is listed as a link, never entered.
    const bool is_directory = entry.symlink_status(type_ec).type() == fs::file_type::directory;
    if (name == ".git" || rules.ignored(path, is_directory)) continue;
    if (is_directory) {
      walk(root, path, depth + 1, rules, listing);
    } else {
      listing.paths.push_back(path);
    }
  }
}

}  // namespace

FileListing list_files(const fs::path& root) {
  FileListing listing;
  std::optional<GitListing> tracked = git_tracked_files(root);
  if (tracked && tracked->error.empty()) {
    listing.paths = std::move(tracked->paths);
    listing.from_git = true;
  } else {
    if (tracked) listing.git_error = std::move(tracked->error);
    IgnoreRules rules;
    walk(root, "", 0, rules, listing);
  }
  std::sort(listing.paths.begin(), listing.paths.end());
  return listing;
}

FileCheck check_file(const fs::path& root, const std::string& path, std::uintmax_t max_bytes) {
  FileCheck check;
  const fs::path full = root / path;
  struct stat info {};
  if (::lstat(full.c_str(), &info) != 0) {
    check.kind = FileCheck::Kind::missing;
    check.detail = std::strerror(errno);
    return check;
  }
  if (S_ISLNK(info.st_mode)) {
    std::error_code ec;
    const fs::path target = fs::canonical(full, ec);
    if (ec) {
      check.kind = FileCheck::Kind::link_loop;
      check.detail = ec.message();
      return check;
    }
    const fs::path base = fs::canonical(root, ec);
    const auto [end, _] = std::mismatch(base.begin(), base.end(), target.begin(), target.end());
    check.kind = end == base.end() ? FileCheck::Kind::link_in_tree : FileCheck::Kind::link_out_of_tree;
    check.detail = target.string();
    return check;
  }
  if (!S_ISREG(info.st_mode)) {
    check.kind = FileCheck::Kind::not_regular;
    return check;
  }
  check.size = static_cast<std::uintmax_t>(info.st_size);
  check.mtime_ns = static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
  if (check.size > max_bytes) check.kind = FileCheck::Kind::too_large;
  return check;
}

OpenFile::OpenFile(OpenFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), missing_(other.missing_), size_(other.size_), mtime_ns_(other.mtime_ns_) {}

OpenFile& OpenFile::operator=(OpenFile&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = std::exchange(other.fd_, -1);
    missing_ = other.missing_;
    size_ = other.size_;
    mtime_ns_ = other.mtime_ns_;
  }
  return *this;
}

OpenFile::~OpenFile() {
  if (fd_ >= 0) ::close(fd_);
}

std::string OpenFile::proc_path() const { return "/proc/self/fd/" + std::to_string(fd_); }

std::optional<std::string> OpenFile::read(std::size_t limit, std::string& error) {
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(std::min<std::uintmax_t>(size_, limit)));
  std::array<char, 65536> buffer{};
  while (bytes.size() < limit) {
    const ssize_t n = ::read(fd_, buffer.data(), std::min(buffer.size(), limit - bytes.size()));
    if (n > 0) {
      bytes.append(buffer.data(), static_cast<std::size_t>(n));
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      error = std::strerror(errno);
      return std::nullopt;
    }
  }
  return bytes;
}

OpenFile open_regular(const fs::path& path, std::string& error) {
  OpenFile file;
  // O_NOFOLLOW: a file replaced by a link after it was listed is not read;
  // O_NONBLOCK: nor is a FIFO waited on.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    file.missing_ = errno == ENOENT;
    error = errno == ELOOP ? "it is now a symbolic link" : std::strerror(errno);
    return file;
  }
  file.fd_ = fd;
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    error = "it is not a regular file";
    return OpenFile();
  }
  file.size_ = static_cast<std::uintmax_t>(info.st_size);
  file.mtime_ns_ = static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
  return file;
}

std::optional<std::string> read_file(const fs::path& path, std::string& error, std::size_t limit) {
  OpenFile file = open_regular(path, error);
  if (!file.valid()) return std::nullopt;
  return file.read(limit, error);
}

bool looks_binary(const std::string& head) { return head.find('\0') < std::min(head.size(), kSniffBytes); }

}  // namespace kestrune::indexer
