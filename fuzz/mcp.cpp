// The MCP messages: the one-pass tool call line is the result line of the
// call tool result, byte for byte; every line is standard JSON whose text
// block reads back to the response's MCP text; a fitted page is the one
// that encoding every candidate picks; nlohmann/json round-trips any tree.
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bytes.hpp"
#include "check.hpp"
#include "encoding/encoded_size.hpp"
#include "internal/utf8.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "kestrune/mcp_responses/nlohmann.hpp"
#include "trees.hpp"

namespace mr = kestrune::mcp_responses;
using kestrune::fuzz::Bytes;

namespace {

// Every escape of the encoding, non-ASCII text and, rarely, a stray byte.
constexpr std::string_view kPieces[] = {
    "a", "\"", "\\", "\n", "\x1b", "\x7f", "/", "\xc3\xa9", "\xe2\x80\xa8", "\xf0\x9f\x98\x80", "NaN", "\xff"};

std::string text(Bytes& in, std::size_t max) {
  // The stray byte only when the input says so, so that most lines parse.
  const bool stray = in.next() % 16 == 0;
  return in.text(std::span(kPieces, stray ? std::size(kPieces) : std::size(kPieces) - 1), max / 4);
}

mr::ResponseValue id_of(Bytes& in) {
  switch (in.next() % 3) {
    case 0:
      return static_cast<std::int64_t>(in.word());
    case 1:
      return text(in, 8);
    default:
      return static_cast<double>(in.next()) / 4;
  }
}

// The page of the longest prefix whose text fits, found by encoding every
// candidate from the longest down.
mr::ResponseDict fit_by_encoding(const mr::ResponseList& items, std::int64_t total, std::int64_t offset,
                                 std::size_t max_bytes, std::string_view key) {
  for (std::size_t n = items.size();; --n) {
    mr::ResponseDict page =
        mr::build_paginated_response(mr::ResponseList(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(n)),
                                     total, offset, {.items_key = std::string(key)});
    if (mr::detail::encoded_size(page) <= max_bytes || n == 0) return page;
  }
}

// What a call gives: its page's text, or where its EncodingError points.
template <class Fit>
std::string outcome(Fit&& fit) {
  try {
    return mr::tool_result_text(fit());
  } catch (const mr::EncodingError& e) {
    return "error at " + e.where() + " byte " + std::to_string(e.byte());
  }
}

void check_line(const std::string& line, const mr::ResponseValue& response, mr::CallToolOptions options) {
  FUZZ_CHECK(!line.empty() && line.find('\n') == line.size() - 1);
  if (mr::detail::first_ill_formed(line) != std::string_view::npos) return;
  rapidjson::Document doc;  // strict: no NaN, no trailing commas, valid UTF-8
  doc.Parse<rapidjson::kParseValidateEncodingFlag>(line.data(), line.size());
  if (doc.HasParseError()) {
    std::fprintf(stderr, "%s at %zu in %s", rapidjson::GetParseError_En(doc.GetParseError()), doc.GetErrorOffset(),
                 line.c_str());
  }
  FUZZ_CHECK(!doc.HasParseError());
  const auto& result = doc["result"];
  const auto& block = result["content"][0]["text"];
  FUZZ_CHECK(std::string_view(block.GetString(), block.GetStringLength()) == mr::tool_result_text(response));
  FUZZ_CHECK(result.HasMember("structuredContent") == (options.structured && response.is_dict()));
  FUZZ_CHECK(result.HasMember("isError") == options.is_error);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  const std::uint8_t flags = in.next();
  const mr::CallToolOptions options{.structured = (flags & 1) != 0, .is_error = (flags & 2) != 0};
  const mr::ResponseValue id = id_of(in);
  const mr::ResponseValue response = kestrune::fuzz::tree(in, 0, text);

  const std::string line = mr::tool_call_line(id, response, options);
  FUZZ_CHECK(line == mr::jsonrpc_result_line(id, mr::call_tool_result(response, options)));
  check_line(line, response, options);
  std::string appended = "x";  // the append forms keep what the buffer holds
  mr::append_tool_call_line(appended, id, response, options);
  mr::append_jsonrpc_result_line(appended, id, response);
  FUZZ_CHECK(appended == "x" + line + mr::jsonrpc_result_line(id, response));

  // The bridge keeps kinds, values and key order: the same text.
  FUZZ_CHECK(mr::tool_result_text(mr::from_ordered_json(mr::to_ordered_json(response))) ==
             mr::tool_result_text(response));

  // A page: a few shallow rows, counts near the rows' own or anywhere, and
  // a budget from nothing to a little over the whole page's size.
  mr::ResponseList items;
  for (int n = in.next() % 10; n > 0; --n) items.push_back(kestrune::fuzz::tree(in, 38, text));
  const bool near = (flags & 4) != 0;
  const auto total = near ? std::int64_t{in.next() % 16} : static_cast<std::int64_t>(in.word());
  const auto offset = near ? std::int64_t{in.next() % 16} - 4 : static_cast<std::int64_t>(in.word());
  const std::string key = text(in, 8);
  std::size_t whole = 4096;
  try {
    whole = mr::detail::encoded_size(mr::build_paginated_response(items, total, offset, {.items_key = key}));
  } catch (const mr::EncodingError&) {
  }
  const std::size_t max_bytes = whole * in.next() / 240;
  const std::string fitted =
      outcome([&] { return mr::fit_paginated_response(items, total, offset, max_bytes, {.items_key = key}); });
  FUZZ_CHECK(fitted == outcome([&] { return fit_by_encoding(items, total, offset, max_bytes, key); }));
  return 0;
}
