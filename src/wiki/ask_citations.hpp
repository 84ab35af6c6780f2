// The merged citations of a wiki ask answer: as a list, as positions in its
// inputs, and as the encoded size of the merged list for every number of
// kept sections.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/types.hpp"
#include "wiki/ask_limits.hpp"

namespace kestrune::mcp_responses::detail {

/// ask_citations: the first three citations of each section of `sections` in
/// order (read from its "citations" list), then every citation of `extra`,
/// each place (path, line_start, line_end) once, the first occurrence winning,
/// at most 24. Place values compare by value: an integer equals a double of the
/// same value, null (or a missing key) equals only null. Entries are copies.
[[nodiscard]] ResponseList ask_citations(std::span<const ResponseValue> sections, const ResponseList& extra);

/// CitationPick: a merged citation: entry `index` of the "citations" list of
/// section `section`, or of the extra citations when `section` is kFromExtra.
struct CitationPick {
  std::size_t section;
  std::size_t index;
};
inline constexpr std::size_t kFromExtra = std::string_view::npos;

/// ask_citation_picks: where the entries of ask_citations(sections, extra)
/// come from, in order.
[[nodiscard]] std::vector<CitationPick> ask_citation_picks(std::span<const ResponseValue> sections,
                                                           const ResponseList& extra);

/// cited: the citation that `pick` names, to be moved into a response.
[[nodiscard]] ResponseValue& cited(std::span<ResponseValue> sections, ResponseList& extra, const CitationPick& pick);

/// CitationMerge: ask_citations for every number n of kept sections at once.
/// The merged list for n sections is the distinct citations of those sections
/// (a prefix of one list, since sections only add to it) followed by the
/// distinct extra citations whose places those sections did not take, up to
/// the cap. One pass over the sections; each citation's place is found and
/// hashed once.
class CitationMerge {
 public:
  CitationMerge(std::span<const ResponseValue> sections, const ResponseList& extra);

  /// list_size: the encoded size of the merged list for `n` sections, or
  /// kIllFormed when that list holds text that is not well-formed UTF-8.
  [[nodiscard]] std::size_t list_size(std::size_t n) const noexcept { return sizes_[n]; }

  /// picks: where the entries of the merged list for `n` sections come from.
  [[nodiscard]] std::vector<CitationPick> picks(std::size_t n) const;

 private:
  struct Extra {
    std::size_t index;       // in the extra citations
    std::size_t taken_from;  // the first n whose sections take this place, or npos
  };
  std::vector<CitationPick> own_;  // the sections' distinct citations, in order, at most the cap
  std::vector<Extra> extra_;       // the first distinct extra citations, at most the cap
  std::vector<std::size_t> sizes_;
};

}  // namespace kestrune::mcp_responses::detail
