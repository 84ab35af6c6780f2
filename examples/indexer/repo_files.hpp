// The files of a work tree: those git tracks, or those a walk finds that
// .gitignore does not exclude; and what each one is before it is read.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestrune::indexer {

namespace fs = std::filesystem;

/// The paths of a work tree, relative to its root with "/" between parts.
struct FileListing {
  std::vector<std::string> paths{};  ///< sorted
  bool from_git = false;             ///< `git ls-files`; otherwise a walk
};

/// list_files: the files git tracks under `root` when it is in a git work
/// tree, otherwise every file below it, less `.git` folders and what the
/// .gitignore files ignore. The walk enters no linked folder.
[[nodiscard]] FileListing list_files(const fs::path& root);

/// git_branch: the branch checked out at `root`; nullopt without git or
/// with a detached HEAD.
[[nodiscard]] std::optional<std::string> git_branch(const fs::path& root);

/// What a listed path is, from its metadata alone.
struct FileCheck {
  enum class Kind {
    regular,           ///< a regular file within the size limit
    too_large,         ///< a regular file over the size limit
    link_in_tree,      ///< a symbolic link to a place in the tree (indexed there, if at all)
    link_out_of_tree,  ///< a symbolic link that leads out of the tree
    link_loop,         ///< a symbolic link that never resolves (a loop, or one that leads nowhere)
    not_regular,       ///< a folder, device, FIFO or socket
    missing,           ///< nothing is there (listed, then removed)
  };
  Kind kind = Kind::regular;
  std::uintmax_t size = 0;
  std::int64_t mtime_ns = 0;
  std::string detail{};  ///< for the kinds that are errors: the system's words
};

/// check_file: what `path` (relative to `root`) is; `max_bytes` is the size
/// limit. Symbolic links are never followed to read.
[[nodiscard]] FileCheck check_file(const fs::path& root, const std::string& path, std::uintmax_t max_bytes);

/// read_file: the file's bytes (at most `limit` of them), or nullopt with
/// `error` set to the system's description when it cannot be read (it
/// vanished, say).
[[nodiscard]] std::optional<std::string> read_file(const fs::path& path, std::string& error,
                                                   std::size_t limit = std::string::npos);

/// kSniffBytes: how much of a file tells whether it is binary.
inline constexpr std::size_t kSniffBytes = 8000;

/// looks_binary: whether text starting with `head` is binary, as git
/// decides it: a NUL byte in the first kSniffBytes bytes.
[[nodiscard]] bool looks_binary(const std::string& head);

}  // namespace kestrune::indexer
