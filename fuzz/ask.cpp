// The budgeted wiki ask: it gives the response (or the error) that building
// and encoding every candidate gives, its strings keep the sizes of their
// text, and it fits whenever the bare response (no sections, no memories, no
// code) fits.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "bytes.hpp"
#include "check.hpp"
#include "encoding/encoded_size.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "support/ask_by_encoding.hpp"
#include "wiki/ask_citations.hpp"

namespace mr = kestrune::mcp_responses;

namespace {

// Pieces that stress the byte and character arithmetic; the last is not
// UTF-8, and comes up only in some inputs.
constexpr std::string_view kPieces[] = {"word ", "a",  "é",     "\"",   "\\",   "\n",
                                        "😀",     "  ", "€uro ", "x\ty", "漢字", "\xff"};

class AskInput {
 public:
  explicit AskInput(kestrune::fuzz::Bytes& in) : in_(in), pieces_(kPieces, in.next() % 8 == 0 ? 12 : 11) {}

  std::string text(std::size_t max) { return in_.text(pieces_, max); }

  // A place value: null, an integer, the same as a double, or a path.
  mr::ResponseValue place_value() {
    const std::uint8_t b = in_.next();
    switch (b % 5) {
      case 0:
        return nullptr;
      case 1:
        return static_cast<double>(b % 7);
      case 2:
        return "f" + std::to_string(b % 3) + ".py";
      default:
        return static_cast<std::int64_t>(b % 7);
    }
  }

  mr::ResponseList citations(std::size_t max) {
    mr::ResponseList list;
    for (std::size_t n = in_.next() % (max + 1); n > 0; --n) {
      mr::ResponseDict c;
      const std::uint8_t keys = in_.next();
      if ((keys & 1) != 0) c.append("path", place_value());
      if ((keys & 2) != 0) c.append("line_start", place_value());
      if ((keys & 4) != 0) c.append("line_end", place_value());
      if ((keys & 8) != 0) c.append("note", text(2));
      c.append("id", static_cast<std::int64_t>(list.size()));  // tells equal places apart
      list.emplace_back(std::move(c));
    }
    return list;
  }

  // A section's members: any of the row's, most often in the row's order
  // (which the ask reuses in place), sometimes reversed or behind a key of
  // its own, and citations.
  mr::ResponseValue section(std::size_t index) {
    const std::uint8_t flags = in_.next();
    const std::uint8_t shape = in_.next();
    mr::ResponseList members;  // [key, value] pairs, in the row's order
    const auto add = [&](std::string_view key, mr::ResponseValue value) {
      members.emplace_back(mr::ResponseList{key, std::move(value)});
    };
    if ((flags & 1) != 0) add("page_id", "p" + std::to_string(index));
    if ((flags & 2) != 0) add("title", text(3));
    if ((shape & 1) != 0) add("heading", text(3));
    if ((flags & 4) != 0) add("similarity", 0.5);
    if ((flags & 8) != 0) {
      static const mr::ResponseValue kStale[] = {nullptr, false, true, "", "yes", 0, 2};
      add("stale", kStale[in_.next() % std::size(kStale)]);
    }
    switch (flags >> 4) {
      case 0:
        break;
      case 1:
        add("excerpt", mr::ResponseList{1, "two", mr::ResponseDict{{"k", text(2)}}});
        break;
      case 2:
        add("excerpt", static_cast<std::int64_t>(in_.word() % 100000));
        break;
      default:
        add("excerpt", text(flags % 3 == 0 ? 10 : 200));
        break;
    }
    if (in_.next() % 5 != 0) add("citations", citations(6));
    if ((shape & 2) != 0) std::reverse(members.begin(), members.end());
    mr::ResponseDict s;
    if ((shape & 4) != 0) s.append("rank", static_cast<std::int64_t>(index));
    for (mr::ResponseValue& member : members) {
      mr::ResponseList& pair = member.as_list();
      s.append(std::string(pair[0].as_string()), std::move(pair[1]));
    }
    return s;
  }

  std::optional<mr::ResponseDict> attachment(std::size_t len) {
    if (in_.next() % 2 == 0) return std::nullopt;
    return mr::ResponseDict{{"v", text(len)}};
  }

 private:
  kestrune::fuzz::Bytes& in_;
  std::span<const std::string_view> pieces_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrune::fuzz::Bytes bytes(data, size);
  AskInput in(bytes);
  const std::uint8_t mode = bytes.next();
  const std::int64_t budget = static_cast<std::int64_t>(bytes.next() | (bytes.next() << 8)) - 200;
  mr::ResponseList sections;
  for (std::size_t n = bytes.next() % 13; n > 0; --n) sections.push_back(in.section(sections.size()));
  const mr::ResponseList extra = in.citations(30);
  mr::WikiAskOptions options{.mode = "answer",
                             .query = in.text(4),
                             .answer = mode % 8 == 0 ? std::nullopt : std::optional<std::string>(in.text(10)),
                             .sections = sections,
                             .citations = mode % 4 == 0 ? std::nullopt : std::optional<mr::ResponseList>(extra),
                             .model = (mode & 16) != 0 ? std::optional<std::string>("m") : std::nullopt,
                             .tokens = in.attachment(1),
                             .note = (mode & 32) != 0 ? std::optional<std::string>(in.text(4)) : std::nullopt,
                             .decisions = in.attachment(4),
                             .code = in.attachment(60),
                             .memories = in.attachment(60),
                             .token_budget = (mode & 64) != 0 ? std::nullopt : std::optional<std::int64_t>(budget)};
  const bool budgeted = options.token_budget.has_value();
  mr::WikiAskOptions bare = options;
  bare.sections->clear();
  bare.code.reset();
  bare.memories.reset();
  bare.token_budget.reset();

  std::optional<mr::ResponseDict> expected;
  std::string expected_error;
  try {
    expected = mr::oracle::ask_by_encoding(options);
  } catch (const mr::EncodingError& e) {
    expected_error = e.what();
  }
  mr::ResponseDict result;
  try {
    result = mr::build_wiki_ask_response(std::move(options));
  } catch (const mr::EncodingError& e) {
    FUZZ_CHECK(e.what() == expected_error);
    return 0;
  }
  FUZZ_CHECK(expected.has_value() && result == *expected);
  // The sizes the result keeps for its strings are those of its text.
  const std::size_t result_size = mr::tool_result_text(result).size();
  try {
    FUZZ_CHECK(mr::detail::encoded_size(result) == result_size);
  } catch (const mr::EncodingError&) {
    return 0;  // unbudgeted, with ill-formed text: nothing was measured
  }
  // A budgeted answer fits whenever the same ask fits without its sections,
  // code and memories and without a budget.
  if (!budgeted || budget < 0) return 0;
  const auto limit = static_cast<std::size_t>(budget) * 4;
  std::size_t bare_size = 0;
  try {
    bare_size = mr::detail::encoded_size(mr::build_wiki_ask_response(std::move(bare)));
  } catch (const mr::EncodingError&) {
    return 0;  // ill-formed text that the budget trimmed away: no bound to check
  }
  if (bare_size <= limit) FUZZ_CHECK(result_size <= limit);
  return 0;
}
