// The layout of the wiki ask answer in one place: the response's members in
// their order, which of them stand only when given, and the members of a
// section's row. The parts (ask_parts.hpp) make the response, add up its
// size and fit it to a budget from these tables alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

/// AskMember: the response's members, in their order.
enum class AskMember : std::uint8_t {
  mode,
  query,
  answer,
  sections,   ///< the kept sections' rows
  citations,  ///< the merged citations of the kept sections and the answer
  model,
  tokens,
  note,
  decisions,
  code,
  memories,
};
inline constexpr std::size_t kAskMembers = 11;

/// kAskKeys: each member's key, by AskMember.
inline constexpr std::array<PlainKey, kAskMembers> kAskKeys = {
    "mode", "query", "answer", "sections", "citations", "model", "tokens", "note", "decisions", "code", "memories"};

/// is_attachment: whether `member` stands only when its value is not null;
/// the others always stand, null included.
[[nodiscard]] constexpr bool is_attachment(AskMember member) noexcept { return member >= AskMember::model; }

/// is_listed: whether `member` is a list made for each candidate (the rows
/// and the citations) rather than a value given with the question.
[[nodiscard]] constexpr bool is_listed(AskMember member) noexcept {
  return member == AskMember::sections || member == AskMember::citations;
}

/// kDropOrder: the attachments that the budget drops, in the order it does.
inline constexpr std::array<AskMember, 2> kDropOrder = {AskMember::memories, AskMember::code};

/// RowMember: a section row's members, in their order; all always stand.
/// The first four are the section's own values under the same keys.
enum class RowMember : std::uint8_t { page_id, title, heading, similarity, stale, excerpt };
inline constexpr std::size_t kRowMembers = 6;
inline constexpr std::size_t kRowCopied = 4;  ///< page_id to similarity, placed as the section has them

/// kRowKeys: each row member's key, by RowMember.
inline constexpr std::array<PlainKey, kRowMembers> kRowKeys = {"page_id",    "title", "heading",
                                                               "similarity", "stale", "excerpt"};

/// index: a member's position in its table.
[[nodiscard]] constexpr std::size_t index(AskMember member) noexcept { return static_cast<std::size_t>(member); }
[[nodiscard]] constexpr std::size_t index(RowMember member) noexcept { return static_cast<std::size_t>(member); }

}  // namespace kestrune::mcp_responses::detail
