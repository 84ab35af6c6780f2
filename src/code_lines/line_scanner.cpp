// The line finder of the code-line reader.
//
// Lines that are not wanted are split on raw bytes, which is exact: every
// boundary is an ASCII byte or a well-formed sequence that opens with a lead
// byte (C2 85, E2 80 A8, E2 80 A9), and a maximal ill-formed subpart never
// takes in such a byte, so decoding never reaches across a boundary. Wanted
// lines are decoded character by character. Either way, a character or a CR
// at the end of a piece that the next piece may complete is held back and
// scanned again with the bytes that follow it.
#include "code_lines/line_scanner.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "internal/utf8.hpp"
#include "text/cut.hpp"
#include "text/strip.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// The bytes that end a line or may open a boundary of several bytes.
constexpr std::array<bool, 256> kBreakBytes = [] {
  std::array<bool, 256> breaks{};
  for (const std::size_t b : {0x0A, 0x0B, 0x0C, 0x0D, 0x1C, 0x1D, 0x1E, 0xC2, 0xE2}) breaks[b] = true;
  return breaks;
}();

// boundary_at: tells that the bytes after `i` are needed.
constexpr std::size_t kNeedMore = std::numeric_limits<std::size_t>::max();

unsigned char byte_at(std::string_view s, std::size_t i) noexcept { return static_cast<unsigned char>(s[i]); }

// The byte length of the line boundary at `i` (0 for none), or kNeedMore
// when that depends on bytes past the end of `s` and `s` is not the `last`.
// s[i] is one of kBreakBytes.
std::size_t boundary_at(std::string_view s, std::size_t i, bool last) noexcept {
  const std::size_t left = s.size() - i;
  switch (byte_at(s, i)) {
    case '\r':
      if (left > 1) return byte_at(s, i + 1) == '\n' ? 2 : 1;
      return last ? 1 : kNeedMore;
    case '\n':
    case '\v':
    case '\f':
    case 0x1C:
    case 0x1D:
    case 0x1E:
      return 1;
    case 0xC2:
      if (left > 1) return byte_at(s, i + 1) == 0x85 ? 2 : 0;
      return last ? 0 : kNeedMore;
    default:  // 0xE2
      if (left > 1 && byte_at(s, i + 1) != 0x80) return 0;
      if (left > 2) return byte_at(s, i + 2) == 0xA8 || byte_at(s, i + 2) == 0xA9 ? 3 : 0;
      return last ? 0 : kNeedMore;
  }
}

constexpr bool is_boundary(char32_t c) noexcept {
  return (c >= 0x0A && c <= 0x0D) || (c >= 0x1C && c <= 0x1E) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

}  // namespace

void LineScanner::CutLine::add(std::string_view bytes, bool whitespace) {
  if (full_ || (chars_ == 0 && whitespace)) return;  // leading whitespace is stripped
  if (chars_ < CODE_LINE_CHARS) {
    kept_.append(bytes);
    ++chars_;
  } else if (!whitespace) {
    // The stripped line is longer than the cut allows: one more character
    // says so, and the cut shows none of it.
    kept_.append(bytes);
    full_ = true;
  }
}

std::string LineScanner::CutLine::text() const { return cut(strip(kept_), CODE_LINE_CHARS); }

void LineScanner::CutLine::clear() noexcept {
  kept_.clear();
  chars_ = 0;
  full_ = false;
}

LineScanner::LineScanner(std::vector<std::int64_t> wanted) : wanted_(std::move(wanted)) {
  wanted_.erase(wanted_.begin(), std::lower_bound(wanted_.begin(), wanted_.end(), 1));
}

void LineScanner::feed(std::string_view bytes) {
  if (done()) return;
  std::size_t start = 0;
  if (!pending_.empty()) {
    // A character that begins in the held bytes ends within 3 more bytes, so
    // it is finished here unless `bytes` is shorter than that.
    const std::size_t held = pending_.size();
    const std::size_t taken = std::min<std::size_t>(bytes.size(), 3);
    pending_.append(bytes.substr(0, taken));
    const std::size_t stop = scan(pending_, 0, held, false);
    if (stop < held) {  // still unfinished: all of `bytes` is in pending_
      pending_.erase(0, stop);
      return;
    }
    pending_.clear();
    start = stop - held;
  }
  const std::size_t stop = scan(bytes, start, bytes.size(), false);
  if (!done()) pending_.assign(bytes.substr(stop));
}

std::vector<CodeLines::Line> LineScanner::finish() {
  if (!done()) {
    if (!pending_.empty()) scan(pending_, 0, pending_.size(), true);
    // A boundary at the very end starts no further line.
    if (in_line_) end_line();
  }
  pending_.clear();
  return std::move(found_);
}

std::size_t LineScanner::scan(std::string_view s, std::size_t i, std::size_t limit, bool last) {
  while (i < limit && !done()) {
    // A wanted line whose cut is settled is only looked through for its end.
    const bool keep = line_ == wanted_[next_] && !cut_.full();
    if (!(keep ? keep_line(s, i, limit, last) : skip_line(s, i, limit, last))) break;
  }
  return i;
}

bool LineScanner::skip_line(std::string_view s, std::size_t& i, std::size_t limit, bool last) {
  while (i < limit) {
    const std::size_t from = i;
    while (i < limit && !kBreakBytes[byte_at(s, i)]) ++i;
    if (i > from) in_line_ = true;
    if (i == limit) break;
    const std::size_t len = boundary_at(s, i, last);
    if (len == kNeedMore) return false;
    if (len != 0) {
      i += len;
      end_line();
      break;
    }
    in_line_ = true;
    ++i;
  }
  return true;
}

bool LineScanner::keep_line(std::string_view s, std::size_t& i, std::size_t limit, bool last) {
  while (i < limit && !cut_.full()) {
    const unsigned char b = byte_at(s, i);
    if (b < 0x80) {
      if (is_boundary(b)) {
        const std::size_t len = boundary_at(s, i, last);
        if (len == kNeedMore) return false;
        i += len;
        end_line();
        break;
      }
      in_line_ = true;
      cut_.add(s.substr(i, 1), is_whitespace(b));
      ++i;
      continue;
    }
    const Decoded d = decode_at(s, i);
    // A lead byte whose sequence is cut short by the end of the piece.
    if (!d.ok && !last && i + d.len == s.size() && b >= 0xC2 && b <= 0xF4) return false;
    if (d.ok && is_boundary(d.cp)) {
      i += d.len;
      end_line();
      break;
    }
    in_line_ = true;
    cut_.add(d.ok ? s.substr(i, d.len) : std::string_view("\uFFFD"), d.ok && is_whitespace(d.cp));
    i += d.len;
  }
  return true;
}

void LineScanner::end_line() {
  if (!done() && line_ == wanted_[next_]) {
    found_.push_back({line_, cut_.text()});
    cut_.clear();
    ++next_;
  }
  ++line_;
  in_line_ = false;
}

}  // namespace kestrune::mcp_responses::detail
