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

/// kMaxDepth: how many folders deep a walk goes; deeper folders are not
/// entered (git's own limit on a tree's depth is of the same order).
inline constexpr std::size_t kMaxDepth = 256;

/// The paths of a work tree, relative to its root with "/" between parts.
struct FileListing {
  std::vector<std::string> paths{};     ///< sorted
  bool from_git = false;                ///< git's index; otherwise a walk
  std::string git_error{};              ///< why git's index could not be read, when the tree was walked instead
  std::vector<std::string> too_deep{};  ///< folders the walk did not enter, kMaxDepth deep
};

/// list_files: the files git tracks under `root` when it is in a git work
/// tree, otherwise every file below it, less `.git` folders and what the
/// .gitignore files ignore. The walk enters no linked folder and none
/// deeper than kMaxDepth.
[[nodiscard]] FileListing list_files(const fs::path& root);

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

/// A file opened to be read as data: never through a symbolic link, never
/// waiting on a FIFO or a device, and only when it is a regular file (as the
/// opened descriptor tells, whatever the path held when it was listed).
class OpenFile {
 public:
  OpenFile() = default;
  OpenFile(OpenFile&& other) noexcept;
  OpenFile& operator=(OpenFile&& other) noexcept;
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile();

  [[nodiscard]] bool valid() const { return fd_ >= 0; }
  /// missing: whether it could not be opened because nothing is there.
  [[nodiscard]] bool missing() const { return missing_; }
  [[nodiscard]] std::uintmax_t size() const { return size_; }
  [[nodiscard]] std::int64_t mtime_ns() const { return mtime_ns_; }
  /// proc_path: a path that opens this very file, for a library that takes paths.
  [[nodiscard]] std::string proc_path() const;
  /// read: the bytes from here on, at most `limit` of them; nullopt with
  /// `error` set when a read fails.
  [[nodiscard]] std::optional<std::string> read(std::size_t limit, std::string& error);

 private:
  friend OpenFile open_regular(const fs::path& path, std::string& error);
  int fd_ = -1;
  bool missing_ = false;
  std::uintmax_t size_ = 0;
  std::int64_t mtime_ns_ = 0;
};

/// open_regular: `path` opened as an OpenFile; an invalid one with `error`
/// set to what is wrong otherwise.
[[nodiscard]] OpenFile open_regular(const fs::path& path, std::string& error);

/// read_file: the file's bytes (at most `limit` of them), or nullopt with
/// `error` set to what is wrong when it cannot be read (it vanished, or it
/// is no longer a regular file).
[[nodiscard]] std::optional<std::string> read_file(const fs::path& path, std::string& error,
                                                   std::size_t limit = std::string::npos);

/// kSniffBytes: how much of a file tells whether it is binary.
inline constexpr std::size_t kSniffBytes = 8000;

/// looks_binary: whether text starting with `head` is binary, as git
/// decides it: a NUL byte in the first kSniffBytes bytes.
[[nodiscard]] bool looks_binary(const std::string& head);

}  // namespace kestrune::indexer
