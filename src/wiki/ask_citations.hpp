// The merged citations of a wiki ask answer, worked out once for every number
// of kept sections: where each merged citation comes from, and the encoded
// size of the merged list.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

/// CitationPick: a merged citation: entry `index` of the citations of
/// section `section`, or of the answer's own citations when `section` is
/// empty.
struct CitationPick {
  std::optional<std::size_t> section;
  std::size_t index;
};

/// CitationMerge: the merged citation list for every number n of kept
/// sections: the first three citations of each of the first n sections'
/// lists in `offered`, then every citation of `extra`, each place
/// (path, line_start, line_end) once, the first occurrence winning, at most
/// 24. Place values compare by value: an integer equals a double of the same
/// value, and null (or a missing key) equals only null.
///
/// The list for n sections is the distinct citations of those sections (a
/// prefix of one list, since sections only add to it) followed by the
/// distinct extra citations whose places those sections did not take, up to
/// the cap; one pass over the sections finds them all, each citation's place
/// found and hashed once.
class CitationMerge {
 public:
  CitationMerge(std::span<const std::span<const ResponseValue>> offered, const ResponseList& extra);

  /// picks: where the entries of the merged list for `n` sections come from,
  /// in order.
  [[nodiscard]] std::vector<CitationPick> picks(std::size_t n) const;

  /// list_size: the encoded size of the merged list for `n` sections, or
  /// kIllFormed when that list holds text that is not well-formed UTF-8.
  [[nodiscard]] std::size_t list_size(std::size_t n) const noexcept { return sizes_[n]; }

 private:
  struct Extra {
    std::size_t index;                    // in the extra citations
    std::optional<std::size_t> taken_by;  // the fewest sections that take its place, when some do
  };
  std::vector<CitationPick> own_;  // the sections' distinct citations, in order, at most the cap
  std::vector<Extra> extra_;       // the first distinct extra citations, at most the cap
  std::vector<std::size_t> sizes_;
};

/// ask_citations: the merged list for all of `sections` (read from each
/// one's "citations" list), as copies.
[[nodiscard]] ResponseList ask_citations(std::span<const ResponseValue> sections, const ResponseList& extra);

}  // namespace kestrune::mcp_responses::detail
