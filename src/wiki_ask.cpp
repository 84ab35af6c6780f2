// The wiki ask response, fitted to a token budget.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "ask_assembler.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"

namespace kestrune::mcp_responses {

namespace {

using detail::ASK_MIN_EXCERPT_CHARS;

std::int64_t size_of(const ResponseDict& candidate) {
  return static_cast<std::int64_t>(detail::encoded_size(candidate));
}

// Bytes reserved for the excerpts of `sections` sections not yet filled in.
std::int64_t reserve_for(std::size_t sections) { return static_cast<std::int64_t>(sections) * ASK_MIN_EXCERPT_CHARS; }

// The budget in bytes. Budgets beyond +-2^60 tokens are clamped: no response
// comes near that size, so every comparison comes out the same, and the
// arithmetic below cannot overflow.
std::int64_t byte_limit(std::int64_t token_budget) {
  constexpr std::int64_t kClamp = std::int64_t{1} << 60;
  return std::clamp(token_budget, -kClamp, kClamp) * detail::BYTES_PER_TOKEN;
}

}  // namespace

ResponseDict build_wiki_ask_response(WikiAskOptions options) {
  std::vector<std::string> full;
  full.reserve(options.sections.size());
  for (const ResponseValue& section : options.sections) full.push_back(detail::ask_excerpt(section));
  const std::optional<std::int64_t> token_budget = options.token_budget;
  detail::AskAssembler ask(std::move(options));
  if (!token_budget) return ask.assemble(full);

  const std::int64_t limit = byte_limit(*token_budget);

  // Keep as many leading sections as leave room for a minimal excerpt each.
  std::vector<std::string> excerpts(ask.section_count());
  std::size_t count = excerpts.size();
  while (count > 0 && size_of(ask.assemble(std::span(excerpts).first(count))) + reserve_for(count) > limit) --count;
  excerpts.resize(count);

  // Fill from the best section down; from where the budget runs out, cut each
  // excerpt to the room left while the sections below keep their reserve. The
  // overshoot is in bytes and the cut in characters: the slack of 8 and the
  // next pass's measurement absorb the difference.
  for (std::size_t i = 0; i < count; ++i) {
    excerpts[i] = full[i];
    const std::int64_t over = size_of(ask.assemble(excerpts)) + reserve_for(count - i - 1) - limit;
    if (over > 0) {
      const auto length = static_cast<std::int64_t>(detail::char_count(full[i]));
      excerpts[i] = detail::trimmed(full[i], std::max<std::int64_t>(0, length - over - 8));
    }
  }

  ResponseDict result = ask.assemble(excerpts);
  std::int64_t size = size_of(result);
  while (!excerpts.empty() && size > limit) {
    excerpts.pop_back();
    result = ask.assemble(excerpts);
    size = size_of(result);
  }
  for (const std::string_view key : {"memories", "code"}) {
    if (size <= limit) break;
    ask.drop(key);
    result = ask.assemble(excerpts);
    size = size_of(result);
  }
  return result;
}

}  // namespace kestrune::mcp_responses
