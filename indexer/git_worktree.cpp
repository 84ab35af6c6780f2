#include "git_worktree.hpp"

#include <git2.h>

#include <algorithm>
#include <memory>

#include "repo_files.hpp"

namespace kestrune::indexer {

namespace fs = std::filesystem;

namespace {

// A .git file or HEAD is a line or two; an index is a few megabytes for the
// largest trees there are.
constexpr std::size_t kSmallFileBytes = 4096;
constexpr std::uintmax_t kIndexBytes = std::uintmax_t{1} << 30;

// The repository folder of a work tree and where the root sits in it.
struct GitPlace {
  fs::path git_dir{};
  std::string prefix{};  ///< the root relative to the work tree, "" or ending in "/"
};

void trim_line_end(std::string& text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
}

// The repository a ".git" entry names: a folder, or a file "gitdir: PATH"
// (a linked work tree or a submodule).
std::optional<fs::path> git_dir_of(const fs::path& dot_git) {
  std::error_code ec;
  const fs::file_status status = fs::symlink_status(dot_git, ec);
  if (ec) return std::nullopt;
  if (fs::is_directory(status)) return fs::exists(dot_git / "HEAD", ec) ? std::optional(dot_git) : std::nullopt;
  if (!fs::is_regular_file(status)) return std::nullopt;
  std::string error;
  std::optional<std::string> text = read_file(dot_git, error, kSmallFileBytes);
  if (!text || !text->starts_with("gitdir: ")) return std::nullopt;
  trim_line_end(*text);
  const fs::path named = text->substr(8);
  return named.is_absolute() ? named : dot_git.parent_path() / named;
}

// The work tree that holds `root`, found as git finds it: the nearest
// folder, from `root` up, with a ".git".
std::optional<GitPlace> find_git(const fs::path& root) {
  std::error_code ec;
  const fs::path start = fs::weakly_canonical(fs::absolute(root, ec), ec);
  if (ec) return std::nullopt;
  for (fs::path dir = start;; dir = dir.parent_path()) {
    if (std::optional<fs::path> git_dir = git_dir_of(dir / ".git")) {
      const fs::path below = start.lexically_relative(dir);
      std::string prefix;
      for (const fs::path& part : below) {
        if (part == ".git") return std::nullopt;  // inside the repository itself
        if (part != ".") prefix += part.string() + "/";
      }
      return GitPlace{.git_dir = std::move(*git_dir), .prefix = std::move(prefix)};
    }
    if (dir == dir.parent_path()) return std::nullopt;
  }
}

struct IndexFree {
  void operator()(git_index* index) const noexcept { git_index_free(index); }
};

// libgit2 set up for as long as it lives.
struct Libgit2 {
  Libgit2() { git_libgit2_init(); }
  Libgit2(const Libgit2&) = delete;
  Libgit2& operator=(const Libgit2&) = delete;
  ~Libgit2() { git_libgit2_shutdown(); }
};

}  // namespace

std::optional<GitListing> git_tracked_files(const fs::path& root) {
  const std::optional<GitPlace> place = find_git(root);
  if (!place) return std::nullopt;
  GitListing listing;
  // Opened here first, so that a FIFO or a huge file put in its place is
  // refused, then handed to libgit2 as this very descriptor.
  OpenFile file = open_regular(place->git_dir / "index", listing.error);
  if (!file.valid()) {
    if (file.missing()) listing.error.clear();  // nothing added yet: nothing tracked
    return listing;
  }
  if (file.size() > kIndexBytes) {
    listing.error = "git's index is larger than " + std::to_string(kIndexBytes) + " bytes";
    return listing;
  }
  const Libgit2 library;
  git_index* raw = nullptr;
  if (git_index_open(&raw, file.proc_path().c_str()) != 0 || git_index_read(raw, 1) != 0) {
    const git_error* e = git_error_last();
    listing.error = "git's index cannot be read (" + std::string(e != nullptr ? e->message : "unknown error") + ")";
    git_index_free(raw);
    return listing;
  }
  const std::unique_ptr<git_index, IndexFree> index(raw);
  const std::size_t count = git_index_entrycount(index.get());
  listing.paths.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const git_index_entry* entry = git_index_get_byindex(index.get(), i);
    if (entry == nullptr || entry->mode == GIT_FILEMODE_COMMIT) continue;  // a submodule
    if ((entry->flags_extended & GIT_INDEX_ENTRY_SKIP_WORKTREE) != 0) continue;
    const std::string_view path = entry->path;
    if (!path.starts_with(place->prefix)) continue;
    // A conflicted file has an entry per side, one after the other.
    if (!listing.paths.empty() && listing.paths.back() == path.substr(place->prefix.size())) continue;
    listing.paths.emplace_back(path.substr(place->prefix.size()));
  }
  return listing;
}

std::optional<std::string> git_branch(const fs::path& root) {
  const std::optional<GitPlace> place = find_git(root);
  if (!place) return std::nullopt;
  std::string error;
  std::optional<std::string> head = read_file(place->git_dir / "HEAD", error, kSmallFileBytes);
  constexpr std::string_view kBranch = "ref: refs/heads/";
  if (!head || !head->starts_with(kBranch)) return std::nullopt;
  trim_line_end(*head);
  std::string branch = head->substr(kBranch.size());
  if (branch.empty()) return std::nullopt;
  return branch;
}

}  // namespace kestrune::indexer
