#include "wiki/ask_parts.hpp"

#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include "encoding/encoded_size.hpp"
#include "encoding/layout.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// Whether the first members of `section` are the row's, in the row's order.
bool has_row_keys_first(const ResponseDict& section) noexcept {
  if (section.size() < kRowMembers) return false;
  for (std::size_t f = 0; f < kRowMembers; ++f) {
    if ((section.begin() + static_cast<std::ptrdiff_t>(f))->first != kRowKeys[f].text) return false;
  }
  return true;
}

// Where a section's members stand: the row's keys, then its citations; null
// where absent. When the row's keys come first, as they usually do, only the
// members after them are looked at.
constexpr std::size_t kCitationsField = kRowMembers;
std::array<ResponseValue*, kRowMembers + 1> fields_of(ResponseDict& section, bool row_keys_first) {
  std::array<ResponseValue*, kRowMembers + 1> fields{};
  std::size_t i = 0;
  if (row_keys_first) {
    for (; i < kRowMembers; ++i) fields[i] = &section.value_at(i);
  }
  for (; i < section.size(); ++i) {
    const std::string_view key = (section.begin() + static_cast<std::ptrdiff_t>(i))->first;
    for (std::size_t f = 0; f < kRowMembers; ++f) {
      if (key == kRowKeys[f].text) fields[f] = &section.value_at(i);
    }
    if (key == "citations") fields[kCitationsField] = &section.value_at(i);
  }
  return fields;
}

// A part placed in a candidate: moved out of parts that are spent, copied
// out of parts that are kept.
ResponseValue take(ResponseValue& value) { return std::move(value); }
ResponseValue take(const ResponseValue& value) { return value; }
ResponseValue take(ExcerptSource& source, const Excerpt& excerpt) { return source.take(excerpt); }
ResponseValue take(const ExcerptSource& source, const Excerpt& excerpt) { return source.value(excerpt); }

// member_size of a member whose key is `key` and whose value takes `value`
// bytes, or kIllFormed.
std::size_t member_of(PlainKey key, std::size_t value) noexcept {
  return value == kIllFormed ? kIllFormed : member_size(plain_key_size(key), value);
}

}  // namespace

Excerpts::Excerpts(std::size_t count) : items_(count, empty_excerpt()) {
  for (const Excerpt& excerpt : items_) add(excerpt);
}

void Excerpts::add(const Excerpt& excerpt) noexcept {
  if (excerpt.size == kIllFormed) {
    ++ill_formed_;
  } else {
    total_ += excerpt.size;
  }
}

void Excerpts::remove(const Excerpt& excerpt) noexcept {
  if (excerpt.size == kIllFormed) {
    --ill_formed_;
  } else {
    total_ -= excerpt.size;
  }
}

void Excerpts::set(std::size_t i, const Excerpt& excerpt) noexcept {
  remove(items_[i]);
  items_[i] = excerpt;
  add(excerpt);
}

void Excerpts::pop_back() noexcept {
  remove(items_.back());
  items_.pop_back();
}

AskParts::AskParts(WikiAskOptions&& options) : rows_(*std::move(options.sections)) {
  if (options.citations) extra_ = std::move(*options.citations);
  taken_.reserve(rows_.size());
  for (ResponseValue& section : rows_) {
    if (!section.is_dict()) section = ResponseDict();
    ResponseDict& row = section.as_dict();
    // The row is made in the section's own map: its staleness becomes a flag,
    // its excerpt's source and its citations are taken out, and it keeps the
    // row's members in their order.
    const bool row_keys_first = has_row_keys_first(row);
    const std::array<ResponseValue*, kRowMembers + 1> fields = fields_of(row, row_keys_first);
    const ResponseValue* stale = fields[index(RowMember::stale)];
    const bool is_stale = stale != nullptr && !is_falsy(*stale);
    Taken& taken = taken_.emplace_back(Taken{ExcerptSource(fields[index(RowMember::excerpt)]), {}});
    ResponseValue* citations = fields[kCitationsField];
    if (citations != nullptr && citations->is_list()) taken.citations = std::move(citations->as_list());
    if (row_keys_first) {
      // The common case: the section's first members are the row's.
      row.value_at(index(RowMember::stale)) = is_stale;
      row.value_at(index(RowMember::excerpt)) = "";
      ValueAccess::truncate(row, kRowMembers);
      continue;
    }
    std::array<ResponseValue, kRowCopied> copied;
    for (std::size_t f = 0; f < kRowCopied; ++f) {
      if (fields[f] != nullptr) copied[f] = std::move(*fields[f]);
    }
    row.clear();
    row.reserve(kRowMembers);
    for (std::size_t f = 0; f < kRowCopied; ++f) append_plain(row, kRowKeys[f], std::move(copied[f]));
    append_plain(row, kRowKeys[index(RowMember::stale)], is_stale);
    append_plain(row, kRowKeys[index(RowMember::excerpt)], "");
  }
  const auto give = [&](AskMember m, ResponseValue value) {
    if (!is_attachment(m) || !value.is_null()) given_[index(m)] = std::move(value);
  };
  give(AskMember::mode, *std::move(options.mode));
  give(AskMember::query, *std::move(options.query));
  give(AskMember::answer, *std::move(options.answer));
  give(AskMember::model, std::move(options.model));
  give(AskMember::tokens, std::move(options.tokens));
  give(AskMember::note, std::move(options.note));
  give(AskMember::decisions, std::move(options.decisions));
  give(AskMember::code, std::move(options.code));
  give(AskMember::memories, std::move(options.memories));
}

std::vector<std::span<const ResponseValue>> AskParts::offered() const {
  std::vector<std::span<const ResponseValue>> lists;
  lists.reserve(taken_.size());
  for (const Taken& taken : taken_) lists.emplace_back(taken.citations);
  return lists;
}

void AskParts::measure() {
  for (std::size_t m = 0; m < kAskMembers; ++m) {
    if (given_[m]) member_sizes_[m] = member_of(kAskKeys[m], value_size_or_ill_formed(*given_[m]));
  }
  // A row's size without its excerpt's value: its other members, and the
  // excerpt's key and colon.
  row_sizes_.assign(1, 0);
  ill_formed_rows_.assign(1, 0);
  constexpr std::size_t kExcerpt = index(RowMember::excerpt);
  for (const ResponseValue& row : rows_) {
    const ResponseDict& values = row.as_dict();
    std::size_t members = member_of(kRowKeys[kExcerpt], 0);
    for (std::size_t f = 0; f < kRowMembers; ++f) {
      if (f != kExcerpt) members = plus(members, member_of(kRowKeys[f], value_size_or_ill_formed(values.value_at(f))));
    }
    const bool ill_formed = members == kIllFormed;
    row_sizes_.push_back(row_sizes_.back() + (ill_formed ? 0 : dict_size(members, kRowMembers)));
    ill_formed_rows_.push_back(ill_formed_rows_.back() + (ill_formed ? 1 : 0));
  }
  citations_.emplace(offered(), extra_);
}

std::size_t AskParts::size(const Excerpts& excerpts) const noexcept {
  const std::size_t n = excerpts.count();
  if (ill_formed_rows_[n] > 0 || excerpts.size() == kIllFormed) return kIllFormed;
  std::size_t members = 0;
  std::size_t count = 0;
  for (std::size_t m = 0; m < kAskMembers; ++m) {
    const auto member = static_cast<AskMember>(m);
    std::size_t size = 0;
    if (member == AskMember::sections) {
      size = member_of(kAskKeys[m], list_size(row_sizes_[n] + excerpts.size(), n));
    } else if (member == AskMember::citations) {
      size = member_of(kAskKeys[m], citations_->list_size(n));
    } else if (given_[m]) {
      size = member_sizes_[m];
    } else {
      continue;
    }
    if (size == kIllFormed) return kIllFormed;
    members += size;
    ++count;
  }
  return dict_size(members, count);
}

template <class Parts>
ResponseDict AskParts::assemble(Parts& parts, const Excerpts& excerpts) {
  const std::size_t n = excerpts.count();
  ResponseDict response;
  response.reserve(kAskMembers);
  for (std::size_t m = 0; m < kAskMembers; ++m) {
    const auto member = static_cast<AskMember>(m);
    if (member == AskMember::sections) {
      // The first n rows, each with its excerpt: the sections' own list, cut
      // to them, when the parts are spent.
      ResponseList rows;
      if constexpr (std::is_const_v<Parts>) {
        rows.assign(parts.rows_.begin(), parts.rows_.begin() + static_cast<std::ptrdiff_t>(n));
      } else {
        parts.rows_.resize(n);
        rows = std::move(parts.rows_);
      }
      for (std::size_t k = 0; k < n; ++k) {
        rows[k].as_dict().value_at(index(RowMember::excerpt)) = take(parts.taken_[k].excerpt, excerpts[k]);
      }
      append_plain(response, kAskKeys[m], std::move(rows));
    } else if (member == AskMember::citations) {
      const std::vector<CitationPick> picks =
          parts.citations_ ? parts.citations_->picks(n) : CitationMerge(parts.offered(), parts.extra_).picks(n);
      ResponseList citations;
      citations.reserve(picks.size());
      for (const CitationPick& pick : picks) {
        auto& list = pick.section ? parts.taken_[*pick.section].citations : parts.extra_;
        citations.push_back(take(list[pick.index]));
      }
      append_plain(response, kAskKeys[m], std::move(citations));
    } else if (parts.given_[m]) {
      append_plain(response, kAskKeys[m], take(*parts.given_[m]));
    }
  }
  return response;
}

void AskParts::throw_ill_formed(const Excerpts& excerpts) const {
  // A copy of the candidate, located as the encoder would.
  if (std::optional<IllFormedAt> at = locate_ill_formed(assemble(*this, excerpts), "$")) {
    throw EncodingError(std::move(at->where), at->byte);
  }
  throw EncodingError("$", 0);  // not reached when size() found ill-formed text
}

ResponseDict AskParts::response(const Excerpts& excerpts) && { return assemble(*this, excerpts); }

}  // namespace kestrune::mcp_responses::detail
