// Calls of the encoding and text-shaping helpers and of the code-line reader.
#include <filesystem>
#include <string>
#include <vector>

#include "calls.hpp"
#include "encoding/encoded_size.hpp"
#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "text/cut.hpp"

namespace kestrune::tool {

namespace mr = mcp_responses;

namespace {

// The answer line is the MCP text of the result, which is this call's own output.
mr::ResponseValue tool_result_text(Args& a) { return a.value("result"); }

mr::ResponseValue encoded_size(Args& a) { return mr::detail::encoded_size(a.value("result")); }

mr::ResponseValue first_sentence(Args& a) { return mr::first_sentence(a.nullable_string("docstring")); }

mr::ResponseValue cut(Args& a) {
  const std::int64_t chars = a.integer("chars");
  if (chars < 1) throw RequestError("argument \"chars\" of cut must be at least 1");
  return mr::detail::cut(a.string("text"), static_cast<std::size_t>(chars));
}

mr::ResponseValue trimmed(Args& a) {
  // Read last to first, as the other calls of several arguments.
  const std::int64_t chars = a.integer("chars");
  return mr::detail::trimmed(a.string("text"), chars);
}

mr::ResponseValue without_nulls(Args& a) { return mr::without_nulls(a.dict("row")); }

// `places` is a list of [path, line] pairs. The answer lists [path, line,
// text] for each line found: paths in order of first appearance, lines
// ascending. Files that cannot be read are logged on standard error.
mr::ResponseValue code_lines(Args& a) {
  const std::optional<std::string> root = a.nullable_string("root");
  const mr::ResponseList given = a.list("places");
  std::vector<mr::Place> places;
  places.reserve(given.size());
  for (std::size_t i = 0; i < given.size(); ++i) {
    const mr::ResponseValue& pair = given[i];
    if (!pair.is_list() || pair.as_list().size() != 2 || !pair.as_list()[0].is_string() ||
        !pair.as_list()[1].is_integer()) {
      throw RequestError("item " + std::to_string(i) + " of argument \"places\" must be a [path, line] pair");
    }
    places.push_back({std::string(pair.as_list()[0].as_string()), pair.as_list()[1].as_integer()});
  }
  std::optional<std::filesystem::path> root_path;
  if (root) root_path = *root;
  mr::ResponseList rows;
  for (const auto& file : mr::code_lines(root_path, places).files()) {
    for (const auto& line : file.lines) rows.emplace_back(mr::ResponseList{file.path, line.line, line.text});
  }
  return rows;
}

constexpr Call kCalls[] = {
    {"tool_result_text", tool_result_text},
    {"encoded_size", encoded_size},
    {"first_sentence", first_sentence},
    {"cut", cut},
    {"trimmed", trimmed},
    {"without_nulls", without_nulls},
    {"code_lines", code_lines},
};

}  // namespace

std::span<const Call> encoding_calls() { return kCalls; }

}  // namespace kestrune::tool
