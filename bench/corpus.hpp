// The benchmark corpus: realistic responses made through the library's own
// builders from generated, deterministic inputs (fixed seeds, no files).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kestrune/mcp_responses/types.hpp"
#include "kestrune/mcp_responses/wiki.hpp"

namespace kestrune::bench {

namespace mr = kestrune::mcp_responses;

/// One response of the encoding mix, with its name in the ratio table.
struct Response {
  std::string name;
  bool text_heavy;
  mr::ResponseDict value;
};

/// The inputs of a symbol search page: the records and their resolved paths.
struct SymbolHits {
  std::vector<mr::Symbol> symbols;
  std::vector<std::string> paths;
  std::int64_t total = 0;
};

/// symbol_hits: `n` generated symbols as a search would return them.
[[nodiscard]] SymbolHits symbol_hits(std::size_t n, std::uint64_t seed);

/// symbol_page: the search page of `hits`, built as a handler builds it.
[[nodiscard]] mr::ResponseDict symbol_page(const SymbolHits& hits);

/// AskShape: the excerpts and citations of each section of an ask call.
struct AskShape {
  std::size_t excerpt_chars = 1300;  ///< each excerpt has about this many characters,
  std::size_t excerpt_spread = 600;  ///< plus fewer than this many more (at least 1)
  std::size_t citations = 2;         ///< each section has this many citations,
  std::size_t citation_spread = 4;   ///< plus fewer than this many more (at least 1)
};

/// ask_inputs: an ask call over `sections` sections of prose excerpts with
/// citations, an answer, extra citations and every attachment.
[[nodiscard]] mr::WikiAskOptions ask_inputs(std::size_t sections, std::uint64_t seed, AskShape shape = {});

/// mix: the six responses of the encoding mix, in table order: a 50-row symbol
/// page, a 200-row outline, 100 reference rows, a 10-section ask answer, a map
/// of 1000 doubles and an index status response.
[[nodiscard]] std::vector<Response> mix();

}  // namespace kestrune::bench
