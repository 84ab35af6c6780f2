#include "wiki/ask_parts.hpp"

#include <array>
#include <span>
#include <utility>

#include "encoding/encoded_size.hpp"
#include "encoding/layout.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "types/value_access.hpp"
#include "wiki/ask_limits.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// The keys of a section that the answer reads.
enum Field : std::size_t { kPageId, kTitle, kHeading, kSimilarity, kStale, kExcerpt, kFieldCount };
constexpr std::array<std::string_view, kFieldCount> kFieldKeys = {"page_id",    "title", "heading",
                                                                  "similarity", "stale", "excerpt"};

// The fields of a section, found in one pass over it; null where absent.
std::array<ResponseValue*, kFieldCount> fields_of(ResponseValue& section) {
  std::array<ResponseValue*, kFieldCount> fields{};
  if (!section.is_dict()) return fields;
  ResponseDict& dict = section.as_dict();
  for (std::size_t i = 0; i < dict.size(); ++i) {
    const std::string_view key = (dict.begin() + static_cast<std::ptrdiff_t>(i))->first;
    for (std::size_t f = 0; f < kFieldCount; ++f) {
      if (key == kFieldKeys[f]) fields[f] = &dict.value_at(i);
    }
  }
  return fields;
}

// A section's row: its page, title, heading and score moved out of it, its
// staleness as a flag, and an empty excerpt.
ResponseDict section_row(const std::array<ResponseValue*, kFieldCount>& fields) {
  const auto take = [&](Field f) { return fields[f] != nullptr ? std::move(*fields[f]) : ResponseValue(); };
  ResponseDict row;
  row.reserve(6);
  append_plain(row, "page_id", take(kPageId));
  append_plain(row, "title", take(kTitle));
  append_plain(row, "heading", take(kHeading));
  append_plain(row, "similarity", take(kSimilarity));
  append_plain(row, "stale", fields[kStale] != nullptr && !is_falsy(*fields[kStale]));
  append_plain(row, "excerpt", "");
  return row;
}

// What a section's excerpt is cut from: a string as it is, an empty value
// as "", any other value as its compact text, kept in `text`.
ExcerptSource excerpt_source(ResponseValue* excerpt, std::string& text) {
  if (excerpt == nullptr || is_falsy(*excerpt)) return {.text = {}, .utf8 = Utf8::well_formed, .escape_free = true};
  if (!excerpt->is_string()) {
    text = tool_result_text(*excerpt);
    return {.text = text};
  }
  const std::size_t overhead = ValueAccess::overhead(*excerpt);
  return {.text = ValueAccess::text(*excerpt),
          .utf8 = overhead != kIllFormed ? Utf8::well_formed : Utf8::unchecked,
          .escape_free = overhead == string_size_or_ill_formed({}),
          .value = excerpt};
}

// The attachments, in the order they follow the citations.
constexpr PlainKey kAttachments[] = {"model", "tokens", "note", "decisions", "code", "memories"};

}  // namespace

Excerpts::Excerpts(const std::vector<ExcerptSource>& sources, std::size_t count) {
  items_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    items_.push_back(empty_excerpt(sources[i]));
    add(items_.back(), 1);
  }
}

void Excerpts::add(const Excerpt& excerpt, int sign) noexcept {
  if (excerpt.size == kIllFormed) {
    ill_formed_ = sign > 0 ? ill_formed_ + 1 : ill_formed_ - 1;
  } else {
    total_ = sign > 0 ? total_ + excerpt.size : total_ - excerpt.size;
  }
}

void Excerpts::set(std::size_t i, const Excerpt& excerpt) noexcept {
  add(items_[i], -1);
  items_[i] = excerpt;
  add(excerpt, 1);
}

void Excerpts::pop_back() noexcept {
  add(items_.back(), -1);
  items_.pop_back();
}

AskParts::AskParts(WikiAskOptions&& options) : sections_(*std::move(options.sections)) {
  if (options.citations) extra_ = std::move(*options.citations);
  const std::size_t n = sections_.size();
  rows_.reserve(n);
  sources_.reserve(n);
  texts_.resize(n);  // never resized again: sources view these strings
  for (std::size_t i = 0; i < n; ++i) {
    const std::array<ResponseValue*, kFieldCount> fields = fields_of(sections_[i]);
    rows_.push_back(section_row(fields));
    sources_.push_back(excerpt_source(fields[kExcerpt], texts_[i]));
  }
  skeleton_.reserve(11);
  append_plain(skeleton_, "mode", *std::move(options.mode));
  append_plain(skeleton_, "query", *std::move(options.query));
  append_plain(skeleton_, "answer", *std::move(options.answer));
  append_plain(skeleton_, "sections", ResponseList{});
  append_plain(skeleton_, "citations", ResponseList{});
  std::array<ResponseValue, std::size(kAttachments)> attachments = {
      std::move(options.model),     std::move(options.tokens), std::move(options.note),
      std::move(options.decisions), std::move(options.code),   std::move(options.memories)};
  for (std::size_t a = 0; a < attachments.size(); ++a) {
    if (!attachments[a].is_null()) append_plain(skeleton_, kAttachments[a], std::move(attachments[a]));
  }
}

void AskParts::measure() {
  empty_string_ = string_size_or_ill_formed({});
  empty_list_ = list_size(0, 0);
  skeleton_size_ = size_or_ill_formed(skeleton_);
  row_sizes_.assign(1, 0);
  ill_formed_rows_.assign(1, 0);
  for (const ResponseDict& row : rows_) {
    const std::size_t size = size_or_ill_formed(row);
    row_sizes_.push_back(row_sizes_.back() + (size == kIllFormed ? 0 : size));
    ill_formed_rows_.push_back(ill_formed_rows_.back() + (size == kIllFormed ? 1 : 0));
  }
  citations_.emplace(sections_, extra_);
}

std::size_t AskParts::size(const Excerpts& excerpts) const noexcept {
  const std::size_t n = excerpts.count();
  const std::size_t excerpt_sizes = excerpts.size();
  if (ill_formed_rows_[n] > 0 || excerpt_sizes == kIllFormed) return kIllFormed;
  // Each row's empty excerpt gives way to its own; the rows fill the
  // skeleton's empty list, and so do the citations.
  const std::size_t rows = list_size(row_sizes_[n] + excerpt_sizes - n * empty_string_, n);
  const std::size_t citations = citations_->list_size(n);
  if (skeleton_size_ == kIllFormed || citations == kIllFormed) return kIllFormed;
  return skeleton_size_ - 2 * empty_list_ + rows + citations;
}

void AskParts::throw_ill_formed(const Excerpts& excerpts) {
  const std::size_t n = excerpts.count();
  const auto check = [](const std::optional<IllFormedAt>& at) {
    if (at) throw EncodingError(at->where, at->byte);
  };
  for (const auto& [key, value] : skeleton_) {
    if (key == "sections") {
      for (std::size_t k = 0; k < n; ++k) {
        // The row with its excerpt in place, then "" again.
        ResponseValue& slot = *rows_[k].find("excerpt");
        Excerpt excerpt = excerpts[k];
        excerpt.source.value = nullptr;  // a copy: the source stays for later candidates
        slot = excerpt_value(excerpt);
        const std::optional<IllFormedAt> at = locate_ill_formed(rows_[k], "$.sections[" + std::to_string(k) + "]");
        slot = "";
        check(at);
      }
    } else if (key == "citations") {
      const std::vector<CitationPick> picks = citations_->picks(n);
      for (std::size_t j = 0; j < picks.size(); ++j) {
        check(locate_ill_formed(cited(sections_, extra_, picks[j]), "$.citations[" + std::to_string(j) + "]"));
      }
    } else {
      check(locate_ill_formed(value, "$." + key));
    }
  }
  // Not reached when size() found ill-formed text.
  throw EncodingError("$", 0);
}

void AskParts::drop(std::string_view key) {
  skeleton_.erase(key);
  skeleton_size_ = size_or_ill_formed(skeleton_);
}

ResponseDict AskParts::response(Excerpts&& excerpts) && {
  const std::size_t n = excerpts.count();
  // The picks point into the sections, so they are read before anything moves.
  const std::vector<CitationPick> picks =
      citations_ ? citations_->picks(n) : ask_citation_picks(std::span(sections_).first(n), extra_);
  ResponseList citations;
  citations.reserve(picks.size());
  for (const CitationPick& pick : picks) citations.push_back(std::move(cited(sections_, extra_, pick)));
  ResponseList rows;
  rows.reserve(n);
  for (std::size_t k = 0; k < n; ++k) {
    *rows_[k].find("excerpt") = excerpt_value(excerpts.items()[k]);
    rows.emplace_back(std::move(rows_[k]));
  }
  *skeleton_.find("sections") = std::move(rows);
  *skeleton_.find("citations") = std::move(citations);
  return std::move(skeleton_);
}

}  // namespace kestrune::mcp_responses::detail
