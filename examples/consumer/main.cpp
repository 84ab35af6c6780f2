#include <iostream>

#include "kestrune/mcp_responses.hpp"

int main() {
  namespace mr = kestrune::mcp_responses;
  std::cout << mr::tool_result_text(mr::get_empty_response("search")) << '\n';
}
