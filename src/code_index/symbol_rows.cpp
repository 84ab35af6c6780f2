// Symbol rows: the compact search row and the full detail answer of a symbol.
#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_symbol_search_result(const Symbol& symbol, std::optional<std::string_view> file_path) {
  ResponseDict row;
  row.reserve(7);
  detail::append_plain(row, "fqn", symbol.fqn);
  detail::append_present(row, "name", symbol.name);
  detail::append_present(row, "kind", symbol.kind);
  detail::append_present(row, "file", file_path);
  detail::append_present(row, "line", symbol.start_line);
  detail::append_present(row, "signature", symbol.signature);
  detail::append_present(row, "summary", first_sentence(symbol.docstring));
  return row;
}

ResponseDict build_symbol_full_details(const Symbol& symbol, std::optional<std::string_view> file_path) {
  ResponseDict details;
  details.reserve(11);
  detail::append_plain(details, "found", true);
  detail::append_plain(details, "fqn", symbol.fqn);
  detail::append_plain(details, "name", symbol.name);
  detail::append_plain(details, "kind", symbol.kind);
  detail::append_plain(details, "file", file_path);
  detail::append_plain(details, "start_line", symbol.start_line);
  detail::append_plain(details, "end_line", symbol.end_line);
  detail::append_plain(details, "signature", symbol.signature);
  detail::append_plain(details, "is_export", symbol.is_export);
  detail::append_plain(details, "docstring", symbol.docstring);
  detail::append_plain(details, "docstring_truncated", symbol.docstring_truncated);
  return details;
}

}  // namespace kestrune::mcp_responses
