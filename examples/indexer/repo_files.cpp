#include "repo_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "gitignore.hpp"
#include "process.hpp"

namespace kestrune::indexer {

namespace {

std::optional<std::string> git_output(const fs::path& root, std::vector<std::string> args) {
  args.insert(args.begin(), {"git", "-C", root.string()});
  std::string error;
  const std::optional<ProcessOutput> run = run_process(args, {.quiet = true}, error);
  if (!run || run->exit_code != 0) return std::nullopt;
  return run->output;
}

std::optional<std::vector<std::string>> git_files(const fs::path& root) {
  // Only a work tree: a folder inside .git, or a bare repository, is walked.
  const std::optional<std::string> inside = git_output(root, {"rev-parse", "--is-inside-work-tree"});
  if (!inside || inside->rfind("true", 0) != 0) return std::nullopt;
  const std::optional<std::string> listed = git_output(root, {"ls-files", "-z"});
  if (!listed) return std::nullopt;
  std::vector<std::string> paths;
  for (std::size_t start = 0; start < listed->size();) {
    const std::size_t end = listed->find('\0', start);
    paths.emplace_back(*listed, start, end - start);
    start = end == std::string::npos ? listed->size() : end + 1;
  }
  return paths;
}

void walk(const fs::path& root, const std::string& directory, IgnoreRules& rules, std::vector<std::string>& paths) {
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
      walk(root, path, rules, paths);
    } else {
      paths.push_back(path);
    }
  }
}

}  // namespace

FileListing list_files(const fs::path& root) {
  FileListing listing;
  if (std::optional<std::vector<std::string>> tracked = git_files(root)) {
    listing.paths = std::move(*tracked);
    listing.from_git = true;
  } else {
    IgnoreRules rules;
    walk(root, "", rules, listing.paths);
  }
  std::sort(listing.paths.begin(), listing.paths.end());
  return listing;
}

std::optional<std::string> git_branch(const fs::path& root) {
  std::optional<std::string> branch = git_output(root, {"symbolic-ref", "--short", "-q", "HEAD"});
  if (!branch) return std::nullopt;
  while (!branch->empty() && (branch->back() == '\n' || branch->back() == '\r')) branch->pop_back();
  if (branch->empty()) return std::nullopt;
  return branch;
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

std::optional<std::string> read_file(const fs::path& path, std::string& error, std::size_t limit) {
  // O_NOFOLLOW: a file replaced by a link after it was checked is not read.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) {
    error = std::strerror(errno);
    return std::nullopt;
  }
  std::string bytes;
  std::array<char, 65536> buffer{};
  while (bytes.size() < limit) {
    const ssize_t n = ::read(fd, buffer.data(), std::min(buffer.size(), limit - bytes.size()));
    if (n > 0) {
      bytes.append(buffer.data(), static_cast<std::size_t>(n));
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      error = std::strerror(errno);
      ::close(fd);
      return std::nullopt;
    }
  }
  ::close(fd);
  return bytes;
}

bool looks_binary(const std::string& head) { return head.find('\0') < std::min(head.size(), kSniffBytes); }

}  // namespace kestrune::indexer
