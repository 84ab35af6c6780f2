// kestrune/mcp_responses/encoding.hpp - compact result text and text shaping.
//
// tool_result_text turns a response into the text of an MCP text content
// block: JSON with no whitespace between tokens, keys in insertion order,
// non-ASCII characters written as themselves, doubles in their shortest
// round-trip form, and NaN/Infinity/-Infinity written bare.
//
//   tool_result_text(ResponseDict{{"b", 1}, {"a", ResponseList{1.0, "é\n"}}})
//     == R"({"b":1,"a":[1.0,"é\n"]})"
//
// The text helpers count code points, never bytes, and never split a
// character; a byte that is not part of well-formed UTF-8 counts as one
// character and is kept as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses {

/// Most characters of a docstring summary, its ellipsis included.
inline constexpr std::size_t SUMMARY_CHARS = 160;
/// Most characters of one line of code, its ellipsis included.
inline constexpr std::size_t CODE_LINE_CHARS = 200;

/// EncodingError: a result cannot be measured because a string in it is not
/// well-formed UTF-8. `where()` is the path to the string ("sections[2].excerpt",
/// or "<key>" for a key), `byte()` the offset of the bad sequence in it.
class EncodingError : public std::runtime_error {
 public:
  EncodingError(std::string where, std::size_t byte);
  [[nodiscard]] const std::string& where() const noexcept { return where_; }
  [[nodiscard]] std::size_t byte() const noexcept { return byte_; }

 private:
  std::string where_;
  std::size_t byte_;
};

/// tool_result_text: the compact MCP text of `result`. Strings are written
/// byte for byte apart from their escapes, so text that is not well-formed
/// UTF-8 passes through unchanged.
[[nodiscard]] std::string tool_result_text(const ResponseValue& result);
[[nodiscard]] std::string tool_result_text(const ResponseDict& result);
[[nodiscard]] std::string tool_result_text(const ResponseList& result);

/// append_tool_result_text: appends the MCP text of `result` to `out`.
void append_tool_result_text(std::string& out, const ResponseValue& result);
void append_tool_result_text(std::string& out, const ResponseDict& result);

/// first_sentence: the first sentence of the first paragraph of `docstring`,
/// whitespace collapsed, cut to SUMMARY_CHARS; nullopt when the docstring is
/// null, empty or only whitespace.
[[nodiscard]] std::optional<std::string> first_sentence(std::optional<std::string_view> docstring);

/// without_nulls: a copy of `row` without its null-valued entries, other
/// entries in their order. Nested values are not looked into.
[[nodiscard]] ResponseDict without_nulls(const ResponseDict& row);
[[nodiscard]] ResponseDict without_nulls(ResponseDict&& row);

namespace detail {

/// encoded_size: the byte length of tool_result_text(result), counted without
/// building the text. Throws EncodingError when a string or key in `result`
/// is not well-formed UTF-8.
[[nodiscard]] std::size_t encoded_size(const ResponseValue& result);
[[nodiscard]] std::size_t encoded_size(const ResponseDict& result);

/// cut: `text` when it has at most `chars` characters; otherwise its first
/// `chars` - 1 characters, end stripped, then "…". A `chars` of 0 acts as 1.
[[nodiscard]] std::string cut(std::string_view text, std::size_t chars);

/// trimmed: like cut, but breaks at the last space among the first
/// `chars` - 1 characters when that space lies at position `chars` / 2 or
/// later. A `chars` of 1 or less gives the empty text for a longer text.
[[nodiscard]] std::string trimmed(std::string_view text, std::int64_t chars);

/// char_count: the number of characters of `text`.
[[nodiscard]] std::size_t char_count(std::string_view text) noexcept;

/// strip, strip_end: `text` without whitespace at both ends / at its end.
[[nodiscard]] std::string_view strip(std::string_view text) noexcept;
[[nodiscard]] std::string_view strip_end(std::string_view text) noexcept;

}  // namespace detail

// ---- Code line lookup ------------------------------------------------------

/// Place: a line of a file of the work tree. `path` is relative to the root
/// (an absolute path inside the root also serves); `line` counts from 1.
struct Place {
  std::string_view path;
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
/// so does a line below 1 or past the end. A file that cannot be read, or
/// whose path cannot be resolved, is logged at info level and skipped.
[[nodiscard]] CodeLines code_lines(const std::optional<std::filesystem::path>& root, std::span<const Place> places);

}  // namespace kestrune::mcp_responses
