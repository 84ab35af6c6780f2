// kestrune/mcp_responses/wiki.hpp - responses of the wiki tool's actions.
//
// "status", "list" and "read" fix the keys, order and defaults of what the
// wiki side gathered; "ask" merges the citations of the matching sections and
// fits the whole answer to a token budget:
//
//   auto r = build_wiki_ask_response({.mode = "answer", .query = q, .answer = a,
//                                     .sections = std::move(sections), .token_budget = 2000});
//
// List-valued keys are never null: a null or empty list becomes a new empty list.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses {

/// Arguments of build_wiki_status_response: `built` and `branch` must be
/// set, the rest default as shown.
struct WikiStatusOptions {
  Required<bool> built;
  Required<std::string> branch;
  std::int64_t pages = 0;
  std::int64_t files_covered = 0;
  std::int64_t total_sources = 0;
  double coverage_pct = 0.0;
  std::optional<std::string> last_built = std::nullopt;
  std::optional<std::string> model = std::nullopt;
  std::optional<ResponseList> stale_pages = std::nullopt;
  bool enabled = false;
  bool configured = false;
};

/// build_wiki_status_response: the eleven keys `built`, `branch`, `enabled`,
/// `configured`, `pages`, `files_covered`, `total_sources`, `coverage_pct`,
/// `last_built`, `model`, `stale_pages`, in that order, always all present.
[[nodiscard]] ResponseDict build_wiki_status_response(WikiStatusOptions options);

/// Truncated: the wiki side's own flag of a list response, passed through.
enum class Truncated : bool { no = false, yes = true };

/// build_wiki_list_response: `pages`, `total_count` (`total`: the list
/// builder's own name for it), `offset`, `truncated` (the caller's flag, which
/// may differ from has_more) and `has_more` (offset + rows < total), in that
/// order. The arguments are positional, in the list builder's order.
///
///   build_wiki_list_response(std::move(rows), total, offset, Truncated{offset + count < total});
[[nodiscard]] ResponseDict build_wiki_list_response(ResponseList pages, std::int64_t total, std::int64_t offset = 0,
                                                    Truncated truncated = Truncated::no);

/// Arguments of build_wiki_read_response: the three strings must be set.
struct WikiReadOptions {
  Required<std::string> page_id;
  Required<std::string> title;
  Required<std::string> content;
  std::optional<ResponseList> citations = std::nullopt;
  std::optional<ResponseList> source_files = std::nullopt;
  std::optional<ResponseList> related_pages = std::nullopt;
};

/// build_wiki_read_response: `page_id`, `title`, `content`, then `citations`,
/// `source_files` and `related_pages`, each a list (empty when null or empty).
[[nodiscard]] ResponseDict build_wiki_read_response(WikiReadOptions options);

/// Arguments of build_wiki_ask_response: `mode`, `query`, `answer` (which
/// may be null) and `sections` must be set; the rest default to null.
struct WikiAskOptions {
  Required<std::string> mode;
  Required<std::string> query;
  Required<std::optional<std::string>> answer;  ///< null is written as null
  Required<ResponseList> sections;              ///< section maps, best first
  std::optional<ResponseList> citations = std::nullopt;
  std::optional<std::string> model = std::nullopt;
  std::optional<ResponseDict> tokens = std::nullopt;
  std::optional<std::string> note = std::nullopt;
  std::optional<ResponseDict> decisions = std::nullopt;
  std::optional<ResponseDict> code = std::nullopt;
  std::optional<ResponseDict> memories = std::nullopt;
  std::optional<std::int64_t> token_budget = std::nullopt;  ///< tokens of 4 bytes; null means no budget
};

/// build_wiki_ask_response: `mode`, `query`, `answer`, the section rows
/// (`page_id`, `title`, `heading`, `similarity`, `stale`, `excerpt`), the
/// merged `citations` of the kept sections and `citations`, then the
/// attachments that are not null. Excerpts are first cut to 1200 characters;
/// one that is neither a string nor empty is first turned into its compact
/// text. With a token budget the response is fitted to token_budget x 4 bytes
/// of encoded text by keeping fewer sections, cutting excerpts, dropping
/// sections from the bottom, then dropping `memories` and then `code`; it is
/// returned over the budget when even that does not fit. The answer is never
/// cut. Throws EncodingError when a budget is given and an input string is not
/// well-formed UTF-8, since such a response cannot be measured.
[[nodiscard]] ResponseDict build_wiki_ask_response(WikiAskOptions options);

}  // namespace kestrune::mcp_responses
