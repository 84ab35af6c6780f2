// What git knows of a work tree, read from the repository's files without
// running git: the files its index tracks and the branch checked out. No
// configuration of the repository is read, so nothing it names (hooks,
// fsmonitor, filters, includes) can run or stall a run.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestrune::indexer {

/// The files git tracks at a root, or why they could not be read.
struct GitListing {
  std::vector<std::string> paths{};  ///< relative to the root, "/" between parts; not sorted
  std::string error{};               ///< non-empty when the index could not be read
};

/// git_tracked_files: the files in the git index of the work tree that
/// holds `root`, those below `root` only; nullopt when `root` is in no work
/// tree (no repository, a bare one, or a folder inside .git). Submodules and
/// files outside a sparse checkout are left out.
[[nodiscard]] std::optional<GitListing> git_tracked_files(const std::filesystem::path& root);

/// git_branch: the branch checked out in the work tree that holds `root`;
/// nullopt without git or with a detached HEAD.
[[nodiscard]] std::optional<std::string> git_branch(const std::filesystem::path& root);

}  // namespace kestrune::indexer
