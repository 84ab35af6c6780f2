// The server's tools: their descriptions and input schemas for tools/list,
// and their answers, made from the index with the response layer.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

#include "index_db.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::example {

/// A tool's answer and how to send it.
struct ToolAnswer {
  mr::ResponseDict response;
  mr::CallToolOptions options;
};

/// Where the tools read from and how much one answer may hold.
struct ToolsConfig {
  IndexDb index;
  std::filesystem::path root;      ///< the work tree that code lines are read from
  std::size_t page_bytes = 10000;  ///< most bytes of any answer's text: what common hosts keep
};

class Tools {
 public:
  explicit Tools(ToolsConfig config) : config_(std::move(config)) {}

  /// list: the result of tools/list: {"tools": [...]}, each with its input
  /// schema (and the status tool with its output schema).
  [[nodiscard]] static mr::ResponseDict list();

  /// exists: whether a tool is named `name`.
  [[nodiscard]] static bool exists(std::string_view name);

  /// call: tool `name`'s answer to `arguments`. Arguments that the schema
  /// does not allow give an error answer (isError) that says what is wrong;
  /// an index that is not initialized gives the tool's canned answer.
  [[nodiscard]] ToolAnswer call(std::string_view name, const mr::ResponseDict& arguments) const;

 private:
  ToolsConfig config_;
};

}  // namespace kestrune::example
