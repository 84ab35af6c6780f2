// Calls of the wiki builders.
#include "calls.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "wiki/ask_citations.hpp"

namespace kestrune::tool {

namespace mr = mcp_responses;

namespace {

// A parameter that must be given but may be null.
std::optional<std::string> required_nullable_string(Args& a, std::string_view name) {
  const mr::ResponseValue v = a.value(name);
  if (v.is_null()) return std::nullopt;
  if (!v.is_string()) throw wrong_kind(argument_text(name), "a string or null", v);
  return std::string(v.as_string());
}

mr::ResponseValue build_wiki_status_response(Args& a) {
  return mr::build_wiki_status_response({.built = a.boolean("built"),
                                         .branch = a.string("branch"),
                                         .pages = a.integer_or("pages", 0),
                                         .files_covered = a.integer_or("files_covered", 0),
                                         .total_sources = a.integer_or("total_sources", 0),
                                         .coverage_pct = a.number_or("coverage_pct", 0.0),
                                         .last_built = a.nullable_string("last_built"),
                                         .model = a.nullable_string("model"),
                                         .stale_pages = a.nullable_list("stale_pages"),
                                         .enabled = a.boolean_or("enabled", false),
                                         .configured = a.boolean_or("configured", false)});
}

mr::ResponseValue build_wiki_list_response(Args& a) {
  // Read last to first, as the other calls of several arguments.
  const bool truncated = a.boolean_or("truncated", false);
  const std::int64_t offset = a.integer_or("offset", 0);
  const std::int64_t total = a.integer("total");
  return mr::build_wiki_list_response(a.list("pages"), total, offset, mr::Truncated{truncated});
}

mr::ResponseValue build_wiki_read_response(Args& a) {
  return mr::build_wiki_read_response({.page_id = a.string("page_id"),
                                       .title = a.string("title"),
                                       .content = a.string("content"),
                                       .citations = a.nullable_list("citations"),
                                       .source_files = a.nullable_list("source_files"),
                                       .related_pages = a.nullable_list("related_pages")});
}

mr::ResponseValue ask_citations(Args& a) {
  const mr::ResponseList sections = a.list("sections");
  return mr::detail::ask_citations(sections, a.list("extra"));
}

mr::ResponseValue build_wiki_ask_response(Args& a) {
  return mr::build_wiki_ask_response({.mode = a.string("mode"),
                                      .query = a.string("query"),
                                      .answer = required_nullable_string(a, "answer"),
                                      .sections = a.list("sections"),
                                      .citations = a.nullable_list("citations"),
                                      .model = a.nullable_string("model"),
                                      .tokens = a.nullable_dict("tokens"),
                                      .note = a.nullable_string("note"),
                                      .decisions = a.nullable_dict("decisions"),
                                      .code = a.nullable_dict("code"),
                                      .memories = a.nullable_dict("memories"),
                                      .token_budget = a.nullable_integer("token_budget")});
}

constexpr Call kCalls[] = {
    {"build_wiki_status_response", build_wiki_status_response}, {"build_wiki_list_response", build_wiki_list_response},
    {"build_wiki_read_response", build_wiki_read_response},     {"ask_citations", ask_citations},
    {"build_wiki_ask_response", build_wiki_ask_response},
};

}  // namespace

std::span<const Call> wiki_calls() { return kCalls; }

}  // namespace kestrune::tool
