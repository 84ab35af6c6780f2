// The MCP protocol over JSON-RPC lines: one request line in, one answer
// line out (none for a notification), every line written by the response
// layer's MCP functions.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tools.hpp"

namespace kestrune::example {

/// The protocol versions this server speaks, newest first: a client that
/// asks for another gets the newest.
inline constexpr std::string_view kProtocolVersions[] = {"2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05",
                                                         "2024-10-07"};

/// Most bytes of one request line; a longer one is refused unread.
inline constexpr std::size_t kMaxLineBytes = std::size_t{4} << 20;

class McpServer {
 public:
  explicit McpServer(Tools tools) : tools_(std::move(tools)) {}

  /// answer: the line, "\n" included, that answers the request `line`; none
  /// for a notification, a client's response or a blank line. A line that is not a valid
  /// request gets the JSON-RPC error that says why; nothing throws.
  [[nodiscard]] std::optional<std::string> answer(std::string_view line) const;

  /// too_long: the answer to a line longer than kMaxLineBytes.
  [[nodiscard]] static std::string too_long();

 private:
  Tools tools_;
};

}  // namespace kestrune::example
