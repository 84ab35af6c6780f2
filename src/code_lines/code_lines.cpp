// Code line lookup: single lines of code read from the repository's work
// tree, each file once, through the root's boundary (work_tree.hpp).
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "code_lines/line_scanner.hpp"
#include "code_lines/work_tree.hpp"
#include "kestrune/mcp_responses/code_lines.hpp"
#include "logging/logger.hpp"

namespace kestrune::mcp_responses {

namespace {

// Files are read in pieces of this size: memory does not grow with a file.
constexpr std::size_t kChunkBytes = 65536;

// Reads the open file `fd` through `scanner`, in chunks, until the scanner
// has settled every wanted line or the file ends: asking for line 10 of a
// huge file reads one chunk. At least one read is always made, so that an
// unreadable file fails as it would if read whole. The one
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
  if (error == detail::kNotRegular) return "not a regular file";
  char buffer[256] = {};
  return error_text(::strerror_r(error, buffer, sizeof buffer), buffer);
}

void log_not_read(std::string_view path, int error) {
  std::string message = "code_lines: ";
  message.append(path).append(" is not read (").append(describe(error)).append(")");
  detail::log(LogLevel::info, message);
}

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
  detail::WorkTree tree(*root);
  for (const Group& group : group_by_path(places)) {
    detail::Opened opened = tree.open(group.path);
    if (opened.outcome == detail::Opened::Outcome::outside) continue;
    detail::LineScanner scanner({group.lines.begin(), group.lines.end()});
    const int error =
        opened.outcome == detail::Opened::Outcome::failed ? opened.error : scan_file(opened.file.get(), scanner);
    if (error != 0) {
      log_not_read(group.path, error);
      continue;
    }
    std::vector<CodeLines::Line> texts = scanner.finish();
    if (!texts.empty()) found.add(std::string(group.path), std::move(texts));
  }
  return found;
}

}  // namespace kestrune::mcp_responses
