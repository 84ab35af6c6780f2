// The budgeted wiki ask done the plain way, as the oracle of the builder's
// summed sizes. Shared by the ask tests and the ask fuzz target.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "encoding/encoded_size.hpp"
#include "internal/chars.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "text/cut.hpp"
#include "wiki/ask_citations.hpp"

namespace kestrune::mcp_responses::oracle {

using detail::char_count;
using detail::encoded_size;
using detail::trimmed;

// The budget steps done the plain way: every candidate assembled whole and
// measured by encoding it. The builder adds up part sizes instead, and must
// give the same response, and the same error, for every input.
inline ResponseDict ask_by_encoding(const WikiAskOptions& o) {
  static const ResponseValue kNull;
  const auto get = [&](const ResponseValue& section, std::string_view key) -> const ResponseValue& {
    return section.is_dict() ? section.as_dict().get(key) : kNull;
  };
  std::vector<std::string> full;
  for (const ResponseValue& section : *o.sections) {
    const ResponseValue& e = get(section, "excerpt");
    full.push_back(is_falsy(e) ? std::string() : trimmed(e.is_string() ? e.as_string() : tool_result_text(e), 1200));
  }
  const ResponseList extra = o.citations.value_or(ResponseList{});
  ResponseDict optional{{"model", o.model},         {"tokens", o.tokens}, {"note", o.note},
                        {"decisions", o.decisions}, {"code", o.code},     {"memories", o.memories}};
  const auto assemble = [&](const std::vector<std::string>& excerpts) {
    ResponseList rows;
    for (std::size_t k = 0; k < excerpts.size(); ++k) {
      const ResponseValue& s = (*o.sections)[k];
      rows.emplace_back(ResponseDict{{"page_id", get(s, "page_id")},
                                     {"title", get(s, "title")},
                                     {"heading", get(s, "heading")},
                                     {"similarity", get(s, "similarity")},
                                     {"stale", !is_falsy(get(s, "stale"))},
                                     {"excerpt", excerpts[k]}});
    }
    ResponseDict r{{"mode", *o.mode},
                   {"query", *o.query},
                   {"answer", *o.answer},
                   {"sections", std::move(rows)},
                   {"citations", detail::ask_citations(std::span(*o.sections).first(excerpts.size()), extra)}};
    for (const auto& [key, value] : optional) {
      if (!value.is_null()) r.insert_or_assign(key, value);
    }
    return r;
  };
  if (!o.token_budget) return assemble(full);
  const auto size = [&](const std::vector<std::string>& excerpts) {
    return static_cast<std::int64_t>(encoded_size(assemble(excerpts)));
  };
  const std::int64_t limit = std::clamp(*o.token_budget, -(std::int64_t{1} << 60), std::int64_t{1} << 60) * 4;
  std::size_t count = o.sections->size();
  while (count > 0 && size(std::vector<std::string>(count)) + static_cast<std::int64_t>(count) * 200 > limit) --count;
  std::vector<std::string> excerpts(count);
  for (std::size_t i = 0; i < count; ++i) {
    excerpts[i] = full[i];
    const std::int64_t over = size(excerpts) + static_cast<std::int64_t>(count - i - 1) * 200 - limit;
    if (over > 0) {
      excerpts[i] =
          trimmed(full[i], std::max<std::int64_t>(0, static_cast<std::int64_t>(char_count(full[i])) - over - 8));
    }
  }
  while (!excerpts.empty() && size(excerpts) > limit) excerpts.pop_back();
  for (const std::string_view key : {"memories", "code"}) {
    if (size(excerpts) <= limit) break;
    optional.at(key) = nullptr;
  }
  return assemble(excerpts);
}

}  // namespace kestrune::mcp_responses::oracle
