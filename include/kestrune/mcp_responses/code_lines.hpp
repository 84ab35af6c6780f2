// kestrune/mcp_responses/code_lines.hpp - single lines of code from the work tree.
//
// The handler that lists references collects the places of one answer and
// reads them in one call; each path is read once however many places name
// it, and the root is a boundary that no path or link leads out of:
//
//   std::vector<Place> places{{"shop/cart.py", 22}, {"tests/test_cart.py", 5}};
//   const CodeLines found = code_lines(repo_root, places);
//   auto code = found.find("shop/cart.py", 22);  // "return apply_discounts(self, subtotal)"
//
// Files that cannot be read are logged (logging.hpp) and left out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kestrune::mcp_responses {

/// Most characters of one line of code, its ellipsis included.
inline constexpr std::size_t CODE_LINE_CHARS = 200;

/// Place: a line of a file of the work tree. `path` is relative to the root
/// (an absolute path inside the root also serves); `line` counts from 1.
struct Place {
  std::string path;
  std::int64_t line = 0;
};

/// CodeLines: the lines that code_lines found, keyed by place as passed.
/// Files come in the order in which their path first appeared, the lines of
/// a file in ascending order; only found lines are present.
class CodeLines {
 public:
  /// One found line: its number and its stripped, cut text.
  struct Line {
    std::int64_t line;
    std::string text;
  };
  /// The found lines of one path, as passed.
  struct File {
    std::string path;
    std::vector<Line> lines;
  };

  /// find: the text found at (`path`, `line`), or nullopt. The view lives as
  /// long as this object.
  [[nodiscard]] std::optional<std::string_view> find(std::string_view path, std::int64_t line) const&;
  std::optional<std::string_view> find(std::string_view path, std::int64_t line) const&& = delete;
  /// files: the paths with found lines, in order of first appearance; moved
  /// out of a temporary, so `for (auto& f : code_lines(...).files())` is safe.
  [[nodiscard]] const std::vector<File>& files() const& noexcept { return files_; }
  [[nodiscard]] std::vector<File> files() && noexcept { return std::move(files_); }
  /// size: the number of places found.
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }

 private:
  friend CodeLines code_lines(const std::optional<std::filesystem::path>& root, std::span<const Place> places);
  // Records the found `lines` of `path`: ascending, at least one, path new.
  void add(std::string path, std::vector<Line> lines);

  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
  };
  std::vector<File> files_;
  std::unordered_map<std::string, std::size_t, Hash, std::equal_to<>> index_;
  std::size_t size_ = 0;
};

/// code_lines: the text of each place's line in the work tree under `root`,
/// stripped and cut to CODE_LINE_CHARS. A null root reads nothing. Each
/// distinct path text is read once, whatever it names. A path that leads
/// outside the root (resolving `..` and symbolic links) gives nothing, and
/// so does a line below 1 or past the end. Only regular files are read: a
/// device, FIFO or socket is logged as "not a regular file". A file that
/// cannot be read, or whose path cannot be resolved, is logged at info level
/// and skipped.
[[nodiscard]] CodeLines code_lines(const std::optional<std::filesystem::path>& root, std::span<const Place> places);

}  // namespace kestrune::mcp_responses
