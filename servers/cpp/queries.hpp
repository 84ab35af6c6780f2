// The server's SQL, written once in index/queries.sql (which the Python
// server reads too) and built in: each query by its name.
#pragma once

#include <string_view>

namespace kestrune::example {

/// query: the SQL of the query named `name`. Throws std::logic_error for a
/// name that index/queries.sql does not hold.
[[nodiscard]] std::string_view query(std::string_view name);

}  // namespace kestrune::example
