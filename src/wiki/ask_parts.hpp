// The parts of one wiki ask answer, from which every candidate of the token
// budget is measured and the answer is made.
//
// The skeleton is the response itself with its `sections` and `citations`
// lists still empty; each section's row is made once, with an empty excerpt;
// and the merged citations are worked out for every number of kept sections.
// The encoder measures each of these once. A candidate, the response with its
// first n rows and their excerpts, is these parts put together, so its
// encoded size is the sum of theirs and the layout is written down only
// where the parts are made.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/wiki.hpp"
#include "wiki/ask_citations.hpp"
#include "wiki/ask_excerpt.hpp"

namespace kestrune::mcp_responses::detail {

/// Excerpts: the excerpts of the first sections, with their sizes summed.
class Excerpts {
 public:
  /// Excerpts: the empty excerpts of the sections of `sources`.
  explicit Excerpts(const std::vector<ExcerptSource>& sources, std::size_t count);

  [[nodiscard]] std::size_t count() const noexcept { return items_.size(); }
  [[nodiscard]] const Excerpt& operator[](std::size_t i) const noexcept { return items_[i]; }
  [[nodiscard]] std::vector<Excerpt>& items() noexcept { return items_; }
  /// size: the sum of the excerpts' encoded sizes, or kIllFormed.
  [[nodiscard]] std::size_t size() const noexcept { return ill_formed_ > 0 ? kIllFormed : total_; }

  void set(std::size_t i, const Excerpt& excerpt) noexcept;
  /// pop_back: leaves the last section out.
  void pop_back() noexcept;

 private:
  void add(const Excerpt& excerpt, int sign) noexcept;

  std::vector<Excerpt> items_;
  std::size_t total_ = 0;
  std::size_t ill_formed_ = 0;
};

/// AskParts: the parts of one answer; see above.
class AskParts {
 public:
  /// Takes `options` apart (its token budget is not read).
  explicit AskParts(WikiAskOptions&& options);

  [[nodiscard]] std::size_t section_count() const noexcept { return sources_.size(); }
  /// sources: what each section's excerpt is cut from, in section order.
  [[nodiscard]] const std::vector<ExcerptSource>& sources() const noexcept { return sources_; }

  /// measure: measures the parts; needed before size().
  void measure();
  /// size: the encoded size of the candidate with the sections and excerpts
  /// of `excerpts`, or kIllFormed when it holds text that is not well-formed.
  [[nodiscard]] std::size_t size(const Excerpts& excerpts) const noexcept;
  /// throw_ill_formed: throws the EncodingError that measuring the candidate
  /// of `excerpts` raises: its first string that is not well-formed, found
  /// part by part in writing order.
  [[noreturn]] void throw_ill_formed(const Excerpts& excerpts);
  /// drop: leaves the attachment `key` out of every later candidate.
  void drop(std::string_view key);

  /// response: the candidate of `excerpts`, made from the parts, which are
  /// spent.
  [[nodiscard]] ResponseDict response(Excerpts&& excerpts) &&;

 private:
  ResponseList sections_;               // as given; rows and citations are taken from them
  ResponseList extra_;                  // the answer's own citations
  ResponseDict skeleton_;               // the response, its two lists empty
  std::vector<ResponseDict> rows_;      // each section's row, its excerpt ""
  std::vector<ExcerptSource> sources_;  // each section's excerpt source
  std::vector<std::string> texts_;      // the compact text of excerpts that are not strings
  std::optional<CitationMerge> citations_;

  // Sizes, from measure(): the skeleton's; the rows' summed over the first n,
  // with how many of those are ill-formed; the empty string's and list's.
  std::size_t skeleton_size_ = 0;
  std::vector<std::size_t> row_sizes_;
  std::vector<std::size_t> ill_formed_rows_;
  std::size_t empty_string_ = 0;
  std::size_t empty_list_ = 0;
};

}  // namespace kestrune::mcp_responses::detail
