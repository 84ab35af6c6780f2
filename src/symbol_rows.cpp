// Symbol rows: the compact search row and the full detail answer of a symbol.
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "rows.hpp"

namespace kestrune::mcp_responses {

ResponseDict build_symbol_search_result(const Symbol& symbol, std::optional<std::string_view> file_path) {
  ResponseDict row;
  row.reserve(7);
  row.append("fqn", symbol.fqn);
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
  details.append("found", true);
  details.append("fqn", symbol.fqn);
  details.append("name", symbol.name);
  details.append("kind", symbol.kind);
  details.append("file", file_path);
  details.append("start_line", symbol.start_line);
  details.append("end_line", symbol.end_line);
  details.append("signature", symbol.signature);
  details.append("is_export", symbol.is_export);
  details.append("docstring", symbol.docstring);
  details.append("docstring_truncated", symbol.docstring_truncated);
  return details;
}

}  // namespace kestrune::mcp_responses
