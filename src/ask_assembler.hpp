// Candidate responses of one wiki ask call.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/wiki.hpp"

namespace kestrune::mcp_responses::detail {

/// ask_excerpt: the text a section's excerpt starts from: a string as it is,
/// an empty value as "", any other value as its compact text; then cut at a
/// word boundary to ASK_EXCERPT_CHARS.
[[nodiscard]] std::string ask_excerpt(const ResponseValue& section);

/// AskAssembler: everything of an ask response but its excerpts, fixed once
/// per call, so that a candidate is assembled from a list of excerpts alone.
/// The first n excerpts keep the first n sections, with their citations.
class AskAssembler {
 public:
  /// Takes the fixed parts of `options`; `options.sections` is moved from.
  explicit AskAssembler(WikiAskOptions&& options);

  [[nodiscard]] std::size_t section_count() const noexcept { return sections_.size(); }
  [[nodiscard]] std::span<const ResponseValue> sections() const noexcept { return sections_; }

  /// assemble: a new candidate from `excerpts` (at most section_count()).
  [[nodiscard]] ResponseDict assemble(std::span<const std::string> excerpts) const;

  /// drop: leaves the attachment `key` out of every later candidate.
  void drop(std::string_view key);

 private:
  std::string mode_;
  std::string query_;
  ResponseValue answer_;
  ResponseList sections_;
  std::vector<ResponseDict> row_heads_;  // each section row but its excerpt
  ResponseList extra_;
  ResponseDict attachments_;  // model, tokens, note, decisions, code, memories; null ones left out
};

}  // namespace kestrune::mcp_responses::detail
