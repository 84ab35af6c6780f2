// The line finder of the code-line reader, fed a file in pieces.
//
// The text is split and decoded exactly as code_lines describes, whatever
// the sizes of the pieces: a character, an ill-formed sequence or a CR LF
// pair may be split between two pieces. Memory does not grow with the file
// nor with a line: unwanted lines are scanned and dropped, and of a wanted
// line only what its stripped, cut text can show is kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/code_lines.hpp"

namespace kestrune::mcp_responses::detail {

/// LineScanner: finds the wanted lines of one text that arrives in pieces.
class LineScanner {
 public:
  /// LineScanner: wants the lines `wanted`, ascending and distinct; numbers
  /// below 1 are never found.
  explicit LineScanner(std::vector<std::int64_t> wanted);

  /// feed: scans the next piece of the text; pieces may have any size.
  void feed(std::string_view bytes);
  /// done: whether every wanted line has been found, so that no further
  /// piece can change the result.
  [[nodiscard]] bool done() const noexcept { return next_ == wanted_.size(); }
  /// finish: ends the text and hands over the found lines, ascending, each
  /// with its stripped text cut to CODE_LINE_CHARS.
  [[nodiscard]] std::vector<CodeLines::Line> finish();

 private:
  // The text of one wanted line, shortened as it grows: the stripped line's
  // first CODE_LINE_CHARS characters, then its first later character that
  // is not whitespace, if any. Stripping and cutting this gives what
  // stripping and cutting the whole line gives.
  class CutLine {
   public:
    void add(std::string_view bytes, bool whitespace);
    [[nodiscard]] bool full() const noexcept { return full_; }
    [[nodiscard]] std::string text() const;
    void clear() noexcept;

   private:
    std::string kept_;
    std::size_t chars_ = 0;
    bool full_ = false;  // a character past the cut was kept: nothing more can matter
  };

  // Scans the characters of `s` that begin before `limit`, from `i`, and
  // returns where it stopped: at or past `limit`, or earlier at a character
  // (or a CR) that may go on past the end of `s` unless `last`.
  std::size_t scan(std::string_view s, std::size_t i, std::size_t limit, bool last);
  // Scan the current line from `i` up to its end, `limit`, or a settled cut
  // (keep_line); false when stopped at a character that may go on past `s`.
  bool skip_line(std::string_view s, std::size_t& i, std::size_t limit, bool last);
  bool keep_line(std::string_view s, std::size_t& i, std::size_t limit, bool last);
  void end_line();

  std::vector<std::int64_t> wanted_;
  std::size_t next_ = 0;   // the first wanted line not yet found
  std::int64_t line_ = 1;  // the number of the line being scanned
  bool in_line_ = false;   // whether the line being scanned has a byte yet
  std::string pending_;    // an unfinished character (at most 3 bytes) from the last piece
  CutLine cut_;
  std::vector<CodeLines::Line> found_;
};

}  // namespace kestrune::mcp_responses::detail
