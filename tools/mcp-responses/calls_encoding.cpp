// Calls of the encoding and text-shaping helpers.
#include "calls.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::tool {

namespace mr = mcp_responses;

namespace {

// The answer line is the MCP text of the result, which is this call's own output.
mr::ResponseValue tool_result_text(const Args& a) { return a.value("result"); }

mr::ResponseValue encoded_size(const Args& a) { return mr::detail::encoded_size(a.value("result")); }

mr::ResponseValue first_sentence(const Args& a) { return mr::first_sentence(a.nullable_string("docstring")); }

mr::ResponseValue cut(const Args& a) {
  const std::int64_t chars = a.integer("chars");
  if (chars < 1) throw RequestError("argument \"chars\" of cut must be at least 1");
  return mr::detail::cut(a.string("text"), static_cast<std::size_t>(chars));
}

mr::ResponseValue trimmed(const Args& a) { return mr::detail::trimmed(a.string("text"), a.integer("chars")); }

mr::ResponseValue without_nulls(const Args& a) { return mr::without_nulls(a.dict("row")); }

constexpr Call kCalls[] = {
    {"tool_result_text", tool_result_text},
    {"encoded_size", encoded_size},
    {"first_sentence", first_sentence},
    {"cut", cut},
    {"trimmed", trimmed},
    {"without_nulls", without_nulls},
};

}  // namespace

std::span<const Call> encoding_calls() { return kCalls; }

}  // namespace kestrune::tool
