// build_test_coverage: a test file, its source file and what it imports.
#include <utility>

#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_test_coverage(std::string_view test_file, std::string_view source_file,
                                 std::optional<ResponseList> symbols_imported) {
  ResponseDict row;
  row.reserve(3);
  detail::append_plain(row, "test_file", test_file);
  detail::append_plain(row, "source_file", source_file);
  if (symbols_imported && !symbols_imported->empty())
    detail::append_plain(row, "symbols_imported", std::move(*symbols_imported));
  return row;
}

}  // namespace kestrune::mcp_responses
