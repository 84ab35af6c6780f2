// build_test_coverage: a test file, its source file and what it imports.
#include <utility>

#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_test_coverage(TestCoverageOptions options) {
  ResponseDict row;
  row.reserve(3);
  detail::append_plain(row, "test_file", *std::move(options.test_file));
  detail::append_plain(row, "source_file", *std::move(options.source_file));
  if (options.symbols_imported && !options.symbols_imported->empty())
    detail::append_plain(row, "symbols_imported", *std::move(options.symbols_imported));
  return row;
}

}  // namespace kestrune::mcp_responses
