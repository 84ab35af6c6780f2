// File outline rows: the module that a file's symbols share, and each
// symbol's compact row named relative to it.
#include <algorithm>
#include <cstddef>

#include "code_index/rows.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

// Common parts are kept as a prefix of the first fqn's parent together with
// their count: the parts of any later parent can only shorten that prefix.
// No parts at all (count 0) differs from one empty part ("" of ".x"), though
// both join to the empty string.
struct Common {
  std::string_view joined;
  std::size_t parts = 0;
};

// The parent of `fqn` (all parts but the last) and its number of parts, which
// is the number of dots in `fqn`.
Common parent_of(std::string_view fqn) {
  const std::size_t last_dot = fqn.rfind('.');
  if (last_dot == std::string_view::npos) return {};
  return {fqn.substr(0, last_dot), static_cast<std::size_t>(std::count(fqn.begin(), fqn.end(), '.'))};
}

// The leading parts that `common` and `parent` share, compared whole.
Common shared(Common common, Common parent) {
  const std::size_t most = std::min(common.parts, parent.parts);
  std::size_t a = 0;  // start of the current part in common.joined
  std::size_t b = 0;  // and in parent.joined
  std::size_t n = 0;
  for (; n < most; ++n) {
    const std::size_t a_end = std::min(common.joined.find('.', a), common.joined.size());
    const std::size_t b_end = std::min(parent.joined.find('.', b), parent.joined.size());
    if (common.joined.substr(a, a_end - a) != parent.joined.substr(b, b_end - b)) break;
    a = a_end + 1;
    b = b_end + 1;
  }
  return {n == 0 ? std::string_view{} : common.joined.substr(0, a - 1), n};
}

template <class Text>
std::string common_module(std::span<const Text> fqns) {
  if (fqns.empty()) return {};
  Common common = parent_of(fqns.front());
  for (std::size_t i = 1; i < fqns.size() && common.parts > 0; ++i) {
    common = shared(common, parent_of(fqns[i]));
  }
  return std::string(common.joined);
}

}  // namespace

std::string outline_module(std::span<const std::string> fqns) { return common_module(fqns); }

std::string outline_module(std::span<const std::string_view> fqns) { return common_module(fqns); }

std::string outline_module(std::initializer_list<std::string_view> fqns) {
  return common_module(std::span<const std::string_view>(fqns.begin(), fqns.size()));
}

ResponseDict build_file_symbol(const Symbol& symbol, std::string_view module) {
  std::string_view name = symbol.fqn;
  if (!module.empty() && name.size() > module.size() && name.starts_with(module) && name[module.size()] == '.') {
    name.remove_prefix(module.size() + 1);
  }
  ResponseDict row;
  row.reserve(6);
  detail::append_plain(row, "name", name);
  detail::append_present(row, "kind", symbol.kind);
  detail::append_present(row, "line", symbol.start_line);
  if (symbol.end_line != symbol.start_line) detail::append_present(row, "end_line", symbol.end_line);
  detail::append_present(row, "signature", symbol.signature);
  detail::append_present(row, "summary", first_sentence(symbol.docstring));
  return row;
}

}  // namespace kestrune::mcp_responses
