// kestrune/utils/pagination.hpp - the pagination hint of paginated responses.
//
//   auto page = add_pagination_hint(std::move(response), rows_in_page);
//
// When the response says `truncated` is true, the hint tells the model how to
// ask for the next page, under the key `hint`, placed last:
//   "Showing 50 of 120 results. Call again with offset=50 for more."
#pragma once

#include <cstdint>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::utils {

/// add_pagination_hint: `response` with the key `hint` appended when its
/// `truncated` is true: "Showing C of T results. Call again with offset=N for
/// more." (C = `count`, T = `total_count`, N = `offset` + C). Otherwise the
/// response is returned unchanged.
[[nodiscard]] mcp_responses::ResponseDict add_pagination_hint(mcp_responses::ResponseDict response, std::int64_t count);

}  // namespace kestrune::utils
