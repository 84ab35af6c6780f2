// build_reference: one place where a symbol is used.
#include <utility>

#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_reference(const Reference& reference, std::optional<std::string_view> code) {
  ResponseDict row;
  row.reserve(6);
  detail::append_plain(row, "file", reference.file_path);
  detail::append_plain(row, "line", reference.line);
  if (code) detail::append_plain(row, "code", *code);
  if (reference.caller_symbol) {
    const ResponseDict& caller = *reference.caller_symbol;
    if (const ResponseValue& fqn = caller.get("fqn"); !fqn.is_null()) detail::append_plain(row, "caller", fqn);
    if (const ResponseValue& kind = caller.get("kind"); !kind.is_null()) detail::append_plain(row, "caller_kind", kind);
  }
  if (reference.usage_type) detail::append_plain(row, "usage_type", *reference.usage_type);
  return row;
}

}  // namespace kestrune::mcp_responses
