// Prints the canned search response as a tool call line, then the same
// response through nlohmann/json.
#include <iostream>

#include "kestrune/mcp_responses.hpp"
#include "kestrune/mcp_responses/nlohmann.hpp"

int main() {
  namespace mr = kestrune::mcp_responses;
  const mr::ResponseDict response = mr::get_empty_response("search");
  std::cout << mr::tool_call_line(1, response);
  const nlohmann::ordered_json json = response;
  std::cout << json.dump() << '\n';
}
