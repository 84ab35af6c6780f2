// without_nulls: a row without its null fields.
#include <utility>

#include "kestrune/mcp_responses/text.hpp"

namespace kestrune::mcp_responses {

ResponseDict without_nulls(const ResponseDict& row) {
  ResponseDict out;
  out.reserve(row.size());
  for (const auto& [key, value] : row) {
    if (!value.is_null()) out.append(key, value);
  }
  return out;
}

ResponseDict without_nulls(ResponseDict&& row) {
  row.erase_if([](const ResponseDict::value_type& e) { return e.second.is_null(); });
  return std::move(row);
}

}  // namespace kestrune::mcp_responses
