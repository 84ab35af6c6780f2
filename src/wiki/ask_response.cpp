// build_wiki_ask_response: the answer of the wiki tool's "ask" action, fitted
// to a token budget.
//
// The steps measure the same candidates, in the same order, as building and
// encoding each candidate whole would; ask_parts.hpp says how a candidate is
// measured without building it. Only the answer returned is made.
#include <algorithm>
#include <cstdint>

#include "encoding/encoded_size.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "wiki/ask_excerpt.hpp"
#include "wiki/ask_layout.hpp"
#include "wiki/ask_limits.hpp"
#include "wiki/ask_parts.hpp"

namespace kestrune::mcp_responses {

namespace {

using detail::Excerpt;
using detail::Excerpts;

// The slack, in characters, taken off an excerpt beyond its overshoot.
constexpr std::int64_t kCutSlack = 8;

// Bytes reserved for the excerpts of `sections` sections not yet filled in.
std::int64_t reserve_for(std::size_t sections) {
  return static_cast<std::int64_t>(sections) * detail::ASK_MIN_EXCERPT_CHARS;
}

// The budget in bytes. Budgets beyond +-2^60 tokens are clamped: no response
// comes near that size, so every comparison comes out the same, and the
// arithmetic below cannot overflow.
std::int64_t byte_limit(std::int64_t token_budget) {
  constexpr std::int64_t kClamp = std::int64_t{1} << 60;
  return std::clamp(token_budget, -kClamp, kClamp) * detail::BYTES_PER_TOKEN;
}

}  // namespace

ResponseDict build_wiki_ask_response(WikiAskOptions options) {
  const std::optional<std::int64_t> token_budget = options.token_budget;
  detail::AskParts parts(std::move(options));
  const std::size_t sections = parts.section_count();
  const auto full_excerpt = [&](std::size_t i) { return parts.excerpt_source(i).trimmed(detail::ASK_EXCERPT_CHARS); };
  if (!token_budget) {
    // Every section, each excerpt cut to its first length.
    Excerpts excerpts(sections);
    for (std::size_t i = 0; i < sections; ++i) excerpts.set(i, full_excerpt(i));
    return std::move(parts).response(excerpts);
  }

  const std::int64_t limit = byte_limit(*token_budget);
  parts.measure();
  // A candidate's size; one that holds ill-formed text cannot be measured.
  const auto size = [&](const Excerpts& excerpts) {
    const std::size_t bytes = parts.size(excerpts);
    if (bytes == detail::kIllFormed) parts.throw_ill_formed(excerpts);
    return static_cast<std::int64_t>(bytes);
  };

  // Keep as many leading sections as leave room for a minimal excerpt each.
  Excerpts excerpts(sections);
  while (excerpts.count() > 0 && size(excerpts) + reserve_for(excerpts.count()) > limit) excerpts.pop_back();

  // Fill from the best section down; from where the budget runs out, cut each
  // excerpt to the room left while the sections below keep their reserve. The
  // overshoot is in bytes and the cut in characters: the slack and the next
  // pass's measurement absorb the difference.
  const std::size_t count = excerpts.count();
  for (std::size_t i = 0; i < count; ++i) {
    const std::int64_t reserve = reserve_for(count - i - 1);
    const detail::ExcerptSource& source = parts.excerpt_source(i);
    // When the candidate overshoots with this excerpt still empty, any cut of
    // it is empty too: one known to be well-formed, which measuring could not
    // fail on, need not be made.
    if (source.well_formed() && size(excerpts) + reserve >= limit) continue;
    const Excerpt full = full_excerpt(i);
    excerpts.set(i, full);
    const std::int64_t over = size(excerpts) + reserve - limit;
    if (over > 0) {
      const auto room = static_cast<std::int64_t>(source.chars(full)) - over - kCutSlack;
      excerpts.set(i, source.retrimmed(full, std::max<std::int64_t>(0, room)));
    }
  }

  // Drop sections from the bottom, then the attachments in their order.
  while (excerpts.count() > 0 && size(excerpts) > limit) excerpts.pop_back();
  for (const detail::AskMember attachment : detail::kDropOrder) {
    if (size(excerpts) <= limit) break;
    parts.drop(attachment);
  }
  return std::move(parts).response(excerpts);
}

}  // namespace kestrune::mcp_responses
