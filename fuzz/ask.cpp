// The budgeted wiki ask: the summed sizes give the response that encoding
// every candidate gives; kept sections are a prefix of the input, every
// citation comes from a kept section's first three or from the answer's own,
// and the result fits whenever the bare response (no sections, no memories,
// no code) fits.
#include <cstdint>
#include <string>

#include "check.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "support/ask_by_encoding.hpp"

namespace mr = kestrune::mcp_responses;

namespace {

class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint8_t next() { return pos_ < size_ ? data_[pos_++] : 0; }
  [[nodiscard]] bool done() const { return pos_ >= size_; }

  // Text built from pieces that stress the byte/character arithmetic.
  std::string text(std::size_t max_pieces) {
    static const std::string_view pieces[] = {"word ", "a", "é", "\"", "\\", "\n", "😀", "  ", "€uro ", "x\ty"};
    std::string s;
    const std::size_t n = next() % (max_pieces + 1);
    for (std::size_t k = 0; k < n && !done(); ++k) {
      const std::uint8_t b = next();
      for (int r = b >> 4; r >= 0; --r) s += pieces[b % std::size(pieces)];
    }
    return s;
  }

  mr::ResponseValue line() {
    const std::uint8_t b = next();
    if (b % 5 == 0) return nullptr;
    if (b % 5 == 1) return static_cast<double>(b % 7);  // equal to the integer of the same value
    return static_cast<std::int64_t>(b % 7);
  }

  mr::ResponseDict citation() {
    mr::ResponseDict c{{"path", "f" + std::to_string(next() % 4) + ".py"}, {"line_start", line()}};
    if (next() % 2 == 0) c.insert_or_assign("line_end", line());
    c.insert_or_assign("id", static_cast<std::int64_t>(pos_));  // tells equal places apart
    return c;
  }

  mr::ResponseList citations(std::size_t max) {
    mr::ResponseList l;
    for (std::size_t n = next() % (max + 1); n > 0; --n) l.emplace_back(citation());
    return l;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

bool contains(const mr::ResponseList& list, const mr::ResponseValue& v, std::size_t first_n) {
  for (std::size_t i = 0; i < list.size() && i < first_n; ++i) {
    if (list[i] == v) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  const auto budget = static_cast<std::int64_t>(in.next() | (in.next() << 8)) - 200;  // -200 .. 65335 tokens
  mr::ResponseList sections;
  for (std::size_t n = in.next() % 12; n > 0; --n) {
    const std::uint8_t flags = in.next();
    mr::ResponseDict s{{"page_id", "p" + std::to_string(sections.size())}, {"title", in.text(3)}};
    if ((flags & 1) != 0) s.insert_or_assign("stale", (flags & 2) != 0);
    if ((flags & 4) != 0) s.insert_or_assign("similarity", 0.5);
    if ((flags & 8) != 0) {
      s.insert_or_assign("excerpt", static_cast<std::int64_t>(flags));  // not a string
    } else {
      s.insert_or_assign("excerpt", in.text(200));
    }
    s.insert_or_assign("citations", in.citations(6));
    sections.emplace_back(std::move(s));
  }
  const mr::ResponseList extra = in.citations(30);
  const std::uint8_t attach = in.next();
  const auto dict_or_null = [&](int bit, std::size_t len) -> std::optional<mr::ResponseDict> {
    if ((attach & (1 << bit)) == 0) return std::nullopt;
    return mr::ResponseDict{{"v", in.text(len)}};
  };
  mr::WikiAskOptions options{.mode = "answer",
                             .query = in.text(4),
                             .answer = in.text(10),
                             .sections = sections,
                             .citations = extra,
                             .model = (attach & 1) != 0 ? std::optional<std::string>("m") : std::nullopt,
                             .decisions = dict_or_null(1, 4),
                             .code = dict_or_null(2, 60),
                             .memories = dict_or_null(3, 60),
                             .token_budget = budget};
  mr::WikiAskOptions bare = options;
  bare.sections.clear();
  bare.code.reset();
  bare.memories.reset();
  bare.token_budget.reset();

  const mr::ResponseDict expected = mr::oracle::ask_by_encoding(options);
  const mr::ResponseDict result = mr::build_wiki_ask_response(std::move(options));
  FUZZ_CHECK(result == expected);
  const auto limit = static_cast<std::size_t>(budget < 0 ? 0 : budget) * 4;
  // The sizes the result keeps for its strings are those of its text.
  const std::size_t result_size = mr::detail::encoded_size(result);
  FUZZ_CHECK(result_size == mr::tool_result_text(result).size());
  if (budget >= 0 && mr::detail::encoded_size(mr::build_wiki_ask_response(std::move(bare))) <= limit) {
    FUZZ_CHECK(result_size <= limit);
  }

  const mr::ResponseList& kept = result.at("sections").as_list();
  FUZZ_CHECK(kept.size() <= sections.size());
  for (std::size_t k = 0; k < kept.size(); ++k) {
    FUZZ_CHECK(kept[k].as_dict().at("page_id") == sections[k].as_dict().at("page_id"));
  }
  for (const mr::ResponseValue& c : result.at("citations").as_list()) {
    bool from_kept = contains(extra, c, extra.size());
    for (std::size_t k = 0; k < kept.size() && !from_kept; ++k) {
      from_kept = contains(sections[k].as_dict().at("citations").as_list(), c, mr::detail::ASK_CITATIONS_PER_SECTION);
    }
    FUZZ_CHECK(from_kept);
  }
  return 0;
}
