// Assembling wiki ask candidates: fixed parts, section rows, merged citations;
// and their sizes from the sizes of those parts.
#include "ask_assembler.hpp"

#include "ask_citations.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "measure.hpp"
#include "trim.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// The bytes of `"key":` for the response's own keys, which need no escapes.
constexpr std::size_t key_size(std::string_view key) noexcept { return key.size() + 3; }

constexpr PlainKey kFields[] = {"page_id", "title", "heading", "similarity", "stale", "excerpt", "citations"};
static_assert(std::size(kFields) == SectionFields::kCount);

// The fields copied into a row as they are, in the row's order.
constexpr SectionFields::Field kCopied[] = {SectionFields::kPageId, SectionFields::kTitle, SectionFields::kHeading,
                                            SectionFields::kSimilarity};

SectionFields fields_of(ResponseValue& section) noexcept {
  SectionFields fields;
  if (!section.is_dict()) return fields;
  ResponseDict& dict = section.as_dict();
  std::size_t i = 0;
  for (const auto& entry : dict) {
    for (std::size_t f = 0; f < SectionFields::kCount; ++f) {
      if (entry.first == kFields[f].text) fields.at[f] = &dict.value_at(i);
    }
    ++i;
  }
  return fields;
}

// The five keys of a section row that do not depend on the budget, copied.
ResponseDict row_head(const SectionFields& fields) {
  ResponseDict row;
  row.reserve(6);
  for (const SectionFields::Field f : kCopied) append_plain(row, kFields[f], fields[f]);
  append_plain(row, "stale", !is_empty(fields[SectionFields::kStale]));
  return row;
}

// The same, moved out of the section, which is spent afterwards.
ResponseDict take_row_head(const SectionFields& fields) {
  ResponseDict row;
  row.reserve(6);
  for (const SectionFields::Field f : kCopied) {
    append_plain(row, kFields[f], fields.at[f] != nullptr ? std::move(*fields.at[f]) : ResponseValue());
  }
  append_plain(row, "stale", !is_empty(fields[SectionFields::kStale]));
  return row;
}

// The bytes of a row's text but its excerpt's: braces, five commas, the six
// keys and the five values of its head.
std::size_t row_size_without_excerpt(const SectionFields& fields) noexcept {
  std::size_t size = 2 + 5 + key_size("stale") + key_size("excerpt");
  size += is_empty(fields[SectionFields::kStale]) ? 5 : 4;
  for (const SectionFields::Field f : kCopied) {
    size = plus(size, plus(key_size(kFields[f].text), size_or_ill_formed(fields[f])));
  }
  return size;
}

constexpr PlainKey kAttachments[] = {"model", "tokens", "note", "decisions", "code", "memories"};
static_assert(std::size(kAttachments) == AskAssembler::kAttachmentCount);

}  // namespace

const ResponseValue& SectionFields::operator[](Field f) const noexcept {
  static const ResponseValue kNull;
  return at[f] != nullptr ? *at[f] : kNull;
}

std::string AskAssembler::take_excerpt(std::size_t i, bool& well_formed, std::size_t& count) {
  well_formed = false;
  count = kUnknownCount;
  ResponseValue* excerpt = fields_[i].at[SectionFields::kExcerpt];
  // An absent or empty value gives "", any other value but a string its
  // compact text.
  if (excerpt == nullptr || is_empty(*excerpt)) return {};
  if (!excerpt->is_string()) return trimmed_checked(tool_result_text(*excerpt), ASK_EXCERPT_CHARS, well_formed, count);
  const bool known_well_formed = stored_overhead(*excerpt) != kIllFormed;
  std::string text = std::move(*excerpt).as_string();
  trim_in_place(text, ASK_EXCERPT_CHARS, well_formed, count, known_well_formed);
  return text;
}

ExcerptSource AskAssembler::excerpt_source(std::size_t i) const noexcept {
  const ResponseValue& excerpt = fields_[i][SectionFields::kExcerpt];
  if (is_empty(excerpt)) return {.well_formed = true, .escape_free = true};
  if (!excerpt.is_string()) return {.well_formed = false, .escape_free = false};
  // A cut keeps a prefix and adds "…", which needs no escape.
  const std::size_t overhead = stored_overhead(excerpt);
  return {.well_formed = overhead != kIllFormed, .escape_free = overhead == 2};
}

AskAssembler::AskAssembler(WikiAskOptions&& options)
    : mode_(std::move(options.mode)),
      query_(std::move(options.query)),
      answer_(std::move(options.answer)),
      sections_(std::move(options.sections)) {
  fields_.reserve(sections_.size());
  for (ResponseValue& section : sections_) fields_.push_back(fields_of(section));
  if (options.citations) extra_ = std::move(*options.citations);
  // In the order of kAttachments.
  attachments_ = {std::move(options.model),     std::move(options.tokens), std::move(options.note),
                  std::move(options.decisions), std::move(options.code),   std::move(options.memories)};
}

ResponseDict AskAssembler::assemble(std::span<const std::string> excerpts) const {
  ResponseDict response;
  response.reserve(11);
  detail::append_plain(response, "mode", mode_);
  detail::append_plain(response, "query", query_);
  detail::append_plain(response, "answer", answer_);
  ResponseList rows;
  rows.reserve(excerpts.size());
  for (std::size_t k = 0; k < excerpts.size(); ++k) {
    ResponseDict row = row_head(fields_[k]);
    detail::append_plain(row, "excerpt", excerpts[k]);
    rows.emplace_back(std::move(row));
  }
  detail::append_plain(response, "sections", std::move(rows));
  detail::append_plain(response, "citations", ask_citations(sections().first(excerpts.size()), extra_));
  for (std::size_t a = 0; a < attachments_.size(); ++a) {
    if (!attachments_[a].is_null()) append_plain(response, kAttachments[a], attachments_[a]);
  }
  return response;
}

ResponseDict AskAssembler::take(std::vector<ResponseValue>&& excerpts) && {
  const std::size_t n = excerpts.size();
  // The picks point into the sections, so they are read before anything moves.
  const std::vector<CitationPick> picks =
      citations_ ? citations_->picks(n) : ask_citation_picks(sections().first(n), extra_);
  ResponseList citations;
  citations.reserve(picks.size());
  // Picks come section by section: each section's list is looked up once.
  std::size_t listed = kFromExtra;
  ResponseList* list = nullptr;
  for (const CitationPick& p : picks) {
    if (p.section == kFromExtra) {
      citations.push_back(std::move(extra_[p.index]));
      continue;
    }
    if (p.section != listed) {
      listed = p.section;
      list = &fields_[p.section].at[SectionFields::kCitations]->as_list();
    }
    citations.push_back(std::move((*list)[p.index]));
  }
  ResponseDict response;
  response.reserve(11);
  detail::append_plain(response, "mode", std::move(mode_));
  detail::append_plain(response, "query", std::move(query_));
  detail::append_plain(response, "answer", std::move(answer_));
  ResponseList rows;
  rows.reserve(n);
  for (std::size_t k = 0; k < n; ++k) {
    ResponseDict row = take_row_head(fields_[k]);
    detail::append_plain(row, "excerpt", std::move(excerpts[k]));
    rows.emplace_back(std::move(row));
  }
  detail::append_plain(response, "sections", std::move(rows));
  detail::append_plain(response, "citations", std::move(citations));
  for (std::size_t a = 0; a < attachments_.size(); ++a) {
    if (!attachments_[a].is_null()) append_plain(response, kAttachments[a], std::move(attachments_[a]));
  }
  return response;
}

void AskAssembler::drop(std::string_view key) {
  for (std::size_t a = 0; a < attachments_.size(); ++a) {
    if (kAttachments[a].text == key) attachments_[a] = nullptr;
  }
  fixed_size_ = fixed_size();
}

std::size_t AskAssembler::fixed_size() const noexcept {
  // `{"mode":…,"query":…,"answer":…,"sections":…,"citations":…` and the
  // attachments, each after a comma, then `}`.
  std::size_t size =
      2 + 4 + key_size("mode") + key_size("query") + key_size("answer") + key_size("sections") + key_size("citations");
  size = plus(size, size_or_ill_formed(mode_));
  size = plus(size, size_or_ill_formed(query_));
  size = plus(size, size_or_ill_formed(answer_));
  for (std::size_t a = 0; a < attachments_.size(); ++a) {
    const ResponseValue& value = attachments_[a];
    if (!value.is_null()) size = plus(size, plus(1 + key_size(kAttachments[a].text), size_or_ill_formed(value)));
  }
  return size;
}

void AskAssembler::measure() {
  fixed_size_ = fixed_size();

  row_sizes_.clear();
  ill_formed_rows_.clear();
  row_sizes_.reserve(sections_.size() + 1);
  ill_formed_rows_.reserve(sections_.size() + 1);
  row_sizes_.push_back(0);
  ill_formed_rows_.push_back(0);
  for (const SectionFields& fields : fields_) {
    const std::size_t row = row_size_without_excerpt(fields);
    row_sizes_.push_back(row_sizes_.back() + (row == kIllFormed ? 0 : row));
    ill_formed_rows_.push_back(ill_formed_rows_.back() + (row == kIllFormed ? 1 : 0));
  }
  citations_.emplace(sections_, extra_);
}

std::size_t AskAssembler::size(std::size_t rows, std::size_t excerpts_size, std::size_t ill_formed_excerpts) const {
  if (ill_formed_excerpts > 0 || ill_formed_rows_[rows] > 0) return kIllFormed;
  // The rows, their commas and the list's brackets.
  const std::size_t list = 2 + (rows > 0 ? rows - 1 : 0) + row_sizes_[rows] + excerpts_size;
  return plus(plus(fixed_size_, list), citations_->list_size(rows));
}

}  // namespace kestrune::mcp_responses::detail
