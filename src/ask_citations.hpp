// The citation merge of a wiki ask answer as positions in its inputs, and the
// encoded size of the merged list for every number of kept sections.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

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

/// ask_citation_list_sizes: for n = 0 to sections.size(), the encoded size of
/// the list ask_citations(sections.first(n), extra), or kIllFormed when that
/// list holds text that is not well-formed UTF-8. One pass over the sections,
/// plus a walk over the distinct extra citations per n.
[[nodiscard]] std::vector<std::size_t> ask_citation_list_sizes(std::span<const ResponseValue> sections,
                                                               const ResponseList& extra);

}  // namespace kestrune::mcp_responses::detail
