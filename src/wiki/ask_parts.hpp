// The parts of one wiki ask answer, from which every candidate of the token
// budget is measured and the answer is made, both by the layout of
// ask_layout.hpp: the values given with the question; each section turned
// into its row in place (its excerpt still empty), with its excerpt's source
// and its citations taken out of it; and the citations merged for every
// number of kept sections. A candidate's encoded size is the sum of its
// parts' sizes, each measured once by the encoder; only the answer returned
// is made, from the sections' own maps and list.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "kestrune/mcp_responses/wiki.hpp"
#include "wiki/ask_citations.hpp"
#include "wiki/ask_excerpt.hpp"
#include "wiki/ask_layout.hpp"

namespace kestrune::mcp_responses::detail {

/// Excerpts: the excerpts of the first sections of a candidate, with their
/// encoded sizes summed.
class Excerpts {
 public:
  /// Excerpts: the empty excerpts of the first `count` sections.
  explicit Excerpts(std::size_t count);

  [[nodiscard]] std::size_t count() const noexcept { return items_.size(); }
  [[nodiscard]] const Excerpt& operator[](std::size_t i) const noexcept { return items_[i]; }
  /// size: the sum of the excerpts' encoded sizes, or kIllFormed.
  [[nodiscard]] std::size_t size() const noexcept { return ill_formed_ > 0 ? kIllFormed : total_; }

  void set(std::size_t i, const Excerpt& excerpt) noexcept;
  /// pop_back: leaves the last section out.
  void pop_back() noexcept;

 private:
  // Counts `excerpt` in the sums, or out of them.
  void add(const Excerpt& excerpt) noexcept;
  void remove(const Excerpt& excerpt) noexcept;

  std::vector<Excerpt> items_;
  std::size_t total_ = 0;
  std::size_t ill_formed_ = 0;
};

/// AskParts: the parts of one answer; see above.
class AskParts {
 public:
  /// Takes `options` apart (its token budget is not read).
  explicit AskParts(WikiAskOptions&& options);

  [[nodiscard]] std::size_t section_count() const noexcept { return rows_.size(); }
  /// excerpt_source: what section `i`'s excerpt is cut from.
  [[nodiscard]] const ExcerptSource& excerpt_source(std::size_t i) const noexcept { return taken_[i].excerpt; }

  /// measure: measures the parts; needed before size().
  void measure();
  /// size: the encoded size of the candidate with the sections and excerpts
  /// of `excerpts`, or kIllFormed when it holds text that is not well-formed.
  [[nodiscard]] std::size_t size(const Excerpts& excerpts) const noexcept;
  /// throw_ill_formed: throws the EncodingError that measuring the candidate
  /// of `excerpts` raises: its first string that is not well-formed, in
  /// writing order.
  [[noreturn]] void throw_ill_formed(const Excerpts& excerpts) const;
  /// drop: leaves the attachment `member` out of every later candidate.
  void drop(AskMember member) noexcept { given_[index(member)].reset(); }

  /// response: the candidate of `excerpts`, made from the parts, which are
  /// spent.
  [[nodiscard]] ResponseDict response(const Excerpts& excerpts) &&;

 private:
  // What is taken out of a section to make its row: its excerpt's source
  // and its own citations.
  struct Taken {
    ExcerptSource excerpt;
    ResponseList citations;
  };

  // The candidate of `excerpts`, from `parts` (const: copied; not: moved).
  template <class Parts>
  static ResponseDict assemble(Parts& parts, const Excerpts& excerpts);
  // The citations that section k offers, for every k.
  [[nodiscard]] std::vector<std::span<const ResponseValue>> offered() const;

  std::array<std::optional<ResponseValue>, kAskMembers> given_;  // by AskMember; none for absent ones and the lists
  ResponseList rows_;  // the sections, each made its row with an empty excerpt
  std::vector<Taken> taken_;
  ResponseList extra_;  // the answer's own citations
  std::optional<CitationMerge> citations_;

  // Sizes, from measure(): each given member's, as member_size; each row's
  // without its excerpt's value, summed over the first n rows, with how many
  // of those are not well-formed.
  std::array<std::size_t, kAskMembers> member_sizes_{};
  std::vector<std::size_t> row_sizes_;
  std::vector<std::size_t> ill_formed_rows_;
};

}  // namespace kestrune::mcp_responses::detail
