// Assembling wiki ask candidates: fixed parts, section rows, merged citations.
#include "ask_assembler.hpp"

#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

const ResponseValue& field(const ResponseValue& section, std::string_view key) noexcept {
  static const ResponseValue kNull;
  return section.is_dict() ? section.as_dict().get(key) : kNull;
}

// The five keys of a section row that do not depend on the budget.
ResponseDict row_head(const ResponseValue& section) {
  ResponseDict row;
  row.reserve(6);
  row.append("page_id", field(section, "page_id"));
  row.append("title", field(section, "title"));
  row.append("heading", field(section, "heading"));
  row.append("similarity", field(section, "similarity"));
  row.append("stale", !is_empty(field(section, "stale")));
  return row;
}

}  // namespace

std::string ask_excerpt(const ResponseValue& section) {
  const ResponseValue& excerpt = field(section, "excerpt");
  if (is_empty(excerpt)) return {};
  if (excerpt.is_string()) return trimmed(excerpt.as_string(), ASK_EXCERPT_CHARS);
  return trimmed(tool_result_text(excerpt), ASK_EXCERPT_CHARS);
}

AskAssembler::AskAssembler(WikiAskOptions&& options)
    : mode_(std::move(options.mode)),
      query_(std::move(options.query)),
      answer_(std::move(options.answer)),
      sections_(std::move(options.sections)) {
  row_heads_.reserve(sections_.size());
  for (const ResponseValue& section : sections_) row_heads_.push_back(row_head(section));
  if (options.citations) extra_ = std::move(*options.citations);
  attachments_.reserve(6);
  attachments_.append("model", std::move(options.model));
  attachments_.append("tokens", std::move(options.tokens));
  attachments_.append("note", std::move(options.note));
  attachments_.append("decisions", std::move(options.decisions));
  attachments_.append("code", std::move(options.code));
  attachments_.append("memories", std::move(options.memories));
}

ResponseDict AskAssembler::assemble(std::span<const std::string> excerpts) const {
  ResponseDict response;
  response.reserve(11);
  response.append("mode", mode_);
  response.append("query", query_);
  response.append("answer", answer_);
  ResponseList rows;
  rows.reserve(excerpts.size());
  for (std::size_t k = 0; k < excerpts.size(); ++k) {
    ResponseDict row = row_heads_[k];
    row.append("excerpt", excerpts[k]);
    rows.emplace_back(std::move(row));
  }
  response.append("sections", std::move(rows));
  response.append("citations", ask_citations(sections().first(excerpts.size()), extra_));
  for (const auto& [key, value] : attachments_) {
    if (!value.is_null()) response.append(key, value);
  }
  return response;
}

void AskAssembler::drop(std::string_view key) { attachments_.at(key) = nullptr; }

}  // namespace kestrune::mcp_responses::detail
