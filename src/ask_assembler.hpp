// Candidate responses of one wiki ask call, and their sizes from their parts.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ask_citations.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "trim.hpp"

namespace kestrune::mcp_responses::detail {

/// ExcerptSource: what the value a section's excerpt is made from says about
/// every excerpt cut from it.
struct ExcerptSource {
  bool well_formed;  // known to be well-formed UTF-8
  bool escape_free;  // and no character of it needs an escape
};

/// SectionFields: the values of a section that its row and excerpt are made
/// from, found in one pass over the section; null where absent.
struct SectionFields {
  enum Field : std::size_t { kPageId, kTitle, kHeading, kSimilarity, kStale, kExcerpt, kCitations, kCount };
  std::array<ResponseValue*, kCount> at{};

  /// operator[]: the value of field `f`, or a null value when absent.
  [[nodiscard]] const ResponseValue& operator[](Field f) const noexcept;
};

/// AskAssembler: everything of an ask response but its excerpts, fixed once
/// per call, so that a candidate is assembled from a list of excerpts alone.
/// The first n excerpts keep the first n sections, with their citations.
///
/// A candidate's encoded size is also known without assembling it: the size
/// of the fixed parts, of each section row without its excerpt and of the
/// merged citation list for each number of kept sections are computed once
/// (measure()), and size() adds them up with the excerpts' sizes. Sizes are
/// kIllFormed when the candidate holds text that is not well-formed UTF-8.
class AskAssembler {
 public:
  /// The attachments a response may carry: model, tokens, note, decisions,
  /// code and memories, each left out when null.
  static constexpr std::size_t kAttachmentCount = 6;

  /// Takes the fixed parts of `options`; `options.sections` is moved from.
  explicit AskAssembler(WikiAskOptions&& options);

  [[nodiscard]] std::size_t section_count() const noexcept { return sections_.size(); }
  [[nodiscard]] std::span<const ResponseValue> sections() const noexcept { return sections_; }

  /// assemble: a new candidate from `excerpts` (at most section_count()).
  [[nodiscard]] ResponseDict assemble(std::span<const std::string> excerpts) const;

  /// take: the candidate of `excerpts` (string values), built by moving this
  /// object's parts into it; the assembler is spent afterwards.
  [[nodiscard]] ResponseDict take(std::vector<ResponseValue>&& excerpts) &&;

  /// take_excerpt: the text section i's excerpt starts from (a string as it
  /// is, an empty value as "", any other value as its compact text), cut at a
  /// word boundary to ASK_EXCERPT_CHARS. A string is moved out of the
  /// section and cut in place; the section's excerpt is spent afterwards.
  /// Sets `well_formed` when the result is known to be well-formed UTF-8
  /// (false: unknown) and `count` to its number of characters when known
  /// (otherwise kUnknownCount).
  [[nodiscard]] std::string take_excerpt(std::size_t i, bool& well_formed, std::size_t& count);

  /// excerpt_source: what section i's excerpt source says of its excerpts.
  [[nodiscard]] ExcerptSource excerpt_source(std::size_t i) const noexcept;

  /// drop: leaves the attachment `key` out of every later candidate.
  void drop(std::string_view key);

  /// measure: computes the sizes of the parts; needed before size(), and
  /// kept up to date by drop().
  void measure();

  /// size: the encoded size of the candidate with the first `rows` sections,
  /// given the sum of those rows' excerpt sizes (as encoded strings) and how
  /// many of those excerpts are ill-formed.
  [[nodiscard]] std::size_t size(std::size_t rows, std::size_t excerpts_size, std::size_t ill_formed_excerpts) const;

 private:
  // The size of everything but the values of `sections` and `citations`.
  [[nodiscard]] std::size_t fixed_size() const noexcept;

  ResponseValue mode_;  // strings, measured once
  ResponseValue query_;
  ResponseValue answer_;
  ResponseList sections_;
  std::vector<SectionFields> fields_;  // of each section, pointing into sections_
  ResponseList extra_;
  std::array<ResponseValue, kAttachmentCount> attachments_;  // model, tokens, note, decisions, code, memories

  // Sizes, from measure(): everything but the two lists' values, with the
  // attachments still present; the rows without their excerpts' text, summed
  // over the first n rows (and how many of those are ill-formed); the merged
  // citation list for n kept sections.
  std::size_t fixed_size_ = 0;
  std::vector<std::size_t> row_sizes_;
  std::vector<std::size_t> ill_formed_rows_;
  std::optional<CitationMerge> citations_;
};

}  // namespace kestrune::mcp_responses::detail
