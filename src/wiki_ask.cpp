// The wiki ask response, fitted to a token budget.
//
// Every candidate of the budget steps is measured, in the order the steps
// give, by adding up the sizes of its parts (AskAssembler::size), which is
// exactly the size of its encoded text; only the response returned is built.
// When a candidate holds text that is not well-formed UTF-8 it is assembled
// and measured whole instead, which raises the error that measuring it
// raises.
#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ask_assembler.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "measure.hpp"
#include "trim.hpp"

namespace kestrune::mcp_responses {

namespace {

using detail::ASK_MIN_EXCERPT_CHARS;

// Bytes reserved for the excerpts of `sections` sections not yet filled in.
std::int64_t reserve_for(std::size_t sections) { return static_cast<std::int64_t>(sections) * ASK_MIN_EXCERPT_CHARS; }

// The budget in bytes. Budgets beyond +-2^60 tokens are clamped: no response
// comes near that size, so every comparison comes out the same, and the
// arithmetic below cannot overflow.
std::int64_t byte_limit(std::int64_t token_budget) {
  constexpr std::int64_t kClamp = std::int64_t{1} << 60;
  return std::clamp(token_budget, -kClamp, kClamp) * detail::BYTES_PER_TOKEN;
}

// The excerpts of the kept sections, with the sum of their encoded sizes as
// strings and the number of them that are not well-formed UTF-8.
class Excerpts {
 public:
  explicit Excerpts(std::size_t count)
      : texts_(count), sizes_(count, kEmpty), counts_(count, 0), total_(kEmpty * count) {}

  [[nodiscard]] std::size_t count() const noexcept { return texts_.size(); }
  [[nodiscard]] const std::string& operator[](std::size_t i) const noexcept { return texts_[i]; }
  [[nodiscard]] std::span<const std::string> texts() const noexcept { return texts_; }
  [[nodiscard]] bool well_formed(std::size_t i) const noexcept { return sizes_[i] != detail::kIllFormed; }
  // release: moves excerpt i out, to be set again.
  [[nodiscard]] std::string release(std::size_t i) noexcept { return std::move(texts_[i]); }

  // take: the excerpts as string values, which keep the sizes found here.
  [[nodiscard]] std::vector<ResponseValue> take() && {
    std::vector<ResponseValue> values;
    values.reserve(texts_.size());
    for (std::size_t i = 0; i < texts_.size(); ++i) {
      const std::size_t overhead = well_formed(i) ? sizes_[i] - texts_[i].size() : detail::kIllFormed;
      values.push_back(detail::measured_string(std::move(texts_[i]), overhead));
    }
    return values;
  }

  // size: the encoded size of the candidate with these excerpts.
  [[nodiscard]] std::size_t size(const detail::AskAssembler& ask) const {
    return ask.size(count(), total_, ill_formed_);
  }

  // set: makes `text` excerpt i. A text known to be well-formed is not
  // checked again, nor one known to need no escape scanned; `count` is its
  // number of characters, if known.
  void set(std::size_t i, std::string text, bool well_formed, std::size_t count, bool escape_free) {
    forget(i);
    texts_[i] = std::move(text);
    counts_[i] = count;
    if (well_formed && escape_free) {
      sizes_[i] = texts_[i].size() + 2;
    } else {
      sizes_[i] =
          well_formed ? detail::well_formed_string_size(texts_[i]) : detail::string_size_or_ill_formed(texts_[i]);
    }
    remember(i);
  }

  // chars: the number of characters of excerpt i.
  [[nodiscard]] std::size_t chars(std::size_t i) const noexcept {
    if (counts_[i] != detail::kUnknownCount) return counts_[i];
    return well_formed(i) ? detail::well_formed_char_count(texts_[i]) : detail::char_count(texts_[i]);
  }

  void pop_back() {
    forget(texts_.size() - 1);
    texts_.pop_back();
    sizes_.pop_back();
    counts_.pop_back();
  }

 private:
  static constexpr std::size_t kEmpty = 2;  // ""

  void forget(std::size_t i) {
    if (sizes_[i] == detail::kIllFormed) {
      --ill_formed_;
    } else {
      total_ -= sizes_[i];
    }
  }
  void remember(std::size_t i) {
    if (sizes_[i] == detail::kIllFormed) {
      ++ill_formed_;
    } else {
      total_ += sizes_[i];
    }
  }

  std::vector<std::string> texts_;
  std::vector<std::size_t> sizes_;
  std::vector<std::size_t> counts_;  // characters, or kUnknownCount
  std::size_t total_;
  std::size_t ill_formed_ = 0;
};

// A candidate's size as added up from its parts; when it holds ill-formed
// text, the candidate is assembled and measured whole, which raises the error.
std::int64_t checked(std::size_t size, const detail::AskAssembler& ask, std::span<const std::string> excerpts) {
  if (size == detail::kIllFormed) size = detail::encoded_size(ask.assemble(excerpts));
  return static_cast<std::int64_t>(size);
}

}  // namespace

ResponseDict build_wiki_ask_response(WikiAskOptions options) {
  const std::optional<std::int64_t> token_budget = options.token_budget;
  detail::AskAssembler ask(std::move(options));
  if (!token_budget) {
    std::vector<ResponseValue> full;
    full.reserve(ask.section_count());
    for (std::size_t i = 0; i < ask.section_count(); ++i) {
      bool well_formed = false;
      std::size_t chars = 0;
      full.emplace_back(ask.take_excerpt(i, well_formed, chars));
    }
    return std::move(ask).take(std::move(full));
  }

  const std::int64_t limit = byte_limit(*token_budget);
  ask.measure();

  // Keep as many leading sections as leave room for a minimal excerpt each.
  std::size_t count = ask.section_count();
  {
    const auto size_with_empty = [&](std::size_t n) {
      const std::size_t size = ask.size(n, 2 * n, 0);
      // Empty excerpts are made only to assemble a candidate that fails.
      return size != detail::kIllFormed ? static_cast<std::int64_t>(size)
                                        : checked(size, ask, std::vector<std::string>(n));
    };
    while (count > 0 && size_with_empty(count) + reserve_for(count) > limit) --count;
  }

  // Fill from the best section down; from where the budget runs out, cut each
  // excerpt to the room left while the sections below keep their reserve. The
  // overshoot is in bytes and the cut in characters: the slack of 8 and the
  // next pass's measurement absorb the difference. Excerpts are made only for
  // the sections kept.
  Excerpts excerpts(count);
  for (std::size_t i = 0; i < count; ++i) {
    const detail::ExcerptSource source = ask.excerpt_source(i);
    const std::int64_t reserve = reserve_for(count - i - 1);
    // When the candidate overshoots with this excerpt still empty, the cut
    // below leaves nothing of any excerpt: one known to be well-formed (so
    // that measuring it could not fail) need not be made at all.
    if (source.well_formed && checked(excerpts.size(ask), ask, excerpts.texts()) + reserve >= limit) continue;
    bool well_formed = false;
    std::size_t chars = 0;
    std::string full = ask.take_excerpt(i, well_formed, chars);
    excerpts.set(i, std::move(full), well_formed, chars, source.escape_free);
    const std::int64_t over = checked(excerpts.size(ask), ask, excerpts.texts()) + reserve - limit;
    if (over > 0) {
      const auto room = static_cast<std::int64_t>(excerpts.chars(i)) - over - 8;
      // A cut of a well-formed excerpt is well-formed.
      const bool known = excerpts.well_formed(i);
      std::string cut = excerpts.release(i);
      detail::trim_in_place(cut, std::max<std::int64_t>(0, room), well_formed, chars, known);
      excerpts.set(i, std::move(cut), known, chars, source.escape_free);
    }
  }

  const auto size_now = [&] { return checked(excerpts.size(ask), ask, excerpts.texts()); };
  std::int64_t size = size_now();
  while (excerpts.count() > 0 && size > limit) {
    excerpts.pop_back();
    size = size_now();
  }
  for (const std::string_view key : {"memories", "code"}) {
    if (size <= limit) break;
    ask.drop(key);
    size = size_now();
  }
  return std::move(ask).take(std::move(excerpts).take());
}

}  // namespace kestrune::mcp_responses
