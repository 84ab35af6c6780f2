// The pagination hint appended to truncated pages.
#include "kestrune/utils/pagination.hpp"

#include <string>

namespace kestrune::utils {

namespace {

// The paging keys are integers when the response was made by the builders;
// anything else is shown as 0 rather than failing the whole response.
std::int64_t integer_or_zero(const mcp_responses::ResponseValue& v) { return v.is_integer() ? v.as_integer() : 0; }

}  // namespace

mcp_responses::ResponseDict add_pagination_hint(mcp_responses::ResponseDict response, std::int64_t count) {
  const mcp_responses::ResponseValue& truncated = response.get("truncated");
  if (!truncated.is_bool() || !truncated.as_bool()) return response;
  const std::int64_t total = integer_or_zero(response.get("total_count"));
  // Wrap-around arithmetic: absurd offsets near INT64_MAX must not be UB.
  const auto next = static_cast<std::int64_t>(static_cast<std::uint64_t>(integer_or_zero(response.get("offset"))) +
                                              static_cast<std::uint64_t>(count));
  std::string hint = "Showing " + std::to_string(count) + " of " + std::to_string(total) +
                     " results. Call again with offset=" + std::to_string(next) + " for more.";
  response.insert_or_assign("hint", std::move(hint));
  return response;
}

}  // namespace kestrune::utils
