// The calls the tool answers. Each subsystem lists its own calls in its own
// file; adding a call is one entry in that file's table.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "args.hpp"
#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::tool {

/// Call: a request name and the function that answers it. The answer line
/// is tool_result_text of what `run` returns.
struct Call {
  std::string_view name;
  mcp_responses::ResponseValue (*run)(Args& args);
};

[[nodiscard]] std::span<const Call> encoding_calls();  // encoding, text shaping, code lines
[[nodiscard]] std::span<const Call> index_calls();     // code-index builders
[[nodiscard]] std::span<const Call> wiki_calls();      // wiki builders
[[nodiscard]] std::span<const Call> mcp_calls();       // MCP messages

/// call_tables: every table, in the order --help lists them.
[[nodiscard]] std::array<std::span<const Call>, 4> call_tables();

/// find_call: the call named `name`, or nullptr.
[[nodiscard]] const Call* find_call(std::string_view name);

}  // namespace kestrune::tool
