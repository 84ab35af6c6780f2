// JSON-RPC response lines: a result, or an error.
#include <cmath>
#include <stdexcept>
#include <string>

#include "kestrune/mcp_responses/mcp.hpp"
#include "mcp/jsonrpc_line.hpp"

namespace kestrune::mcp_responses {

namespace detail {

void check_id(const ResponseValue& id, IdRule rule, std::string_view caller) {
  const bool ok = id.is_integer() || id.is_string() || (id.is_double() && std::isfinite(id.as_double())) ||
                  (id.is_null() && rule == IdRule::request_or_null);
  if (ok) return;
  throw std::invalid_argument(std::string(caller) + ": the id must be an integer, a string or a finite number" +
                              (rule == IdRule::request_or_null ? ", or null" : ""));
}

ResponseDict envelope(const ResponseValue& id, PlainKey member, ResponseValue value) {
  ResponseDict line;
  line.reserve(3);
  append_plain(line, "jsonrpc", "2.0");
  append_plain(line, "id", id);
  append_plain(line, member, std::move(value));
  return line;
}

void append_line(std::string& out, const ResponseDict& envelope, std::span<const Stand> stands) {
  append_message(out, envelope, stands);
  out += '\n';
}

}  // namespace detail

void append_jsonrpc_result_line(std::string& out, const ResponseValue& id, ResponseRef result) {
  detail::check_id(id, detail::IdRule::request, "jsonrpc_result_line");
  const ResponseDict line = detail::envelope(id, "result", "");
  const detail::Stand stand{&line.value_at(2), result, detail::TextForm::json};
  detail::append_line(out, line, {&stand, 1});
}

std::string jsonrpc_result_line(const ResponseValue& id, ResponseRef result) {
  std::string out;
  append_jsonrpc_result_line(out, id, result);
  return out;
}

void append_jsonrpc_error_line(std::string& out, const ResponseValue& id, std::int64_t code, std::string_view message) {
  detail::check_id(id, detail::IdRule::request_or_null, "jsonrpc_error_line");
  ResponseDict error;
  detail::append_plain(error, "code", code);
  detail::append_plain(error, "message", message);
  detail::append_line(out, detail::envelope(id, "error", std::move(error)));
}

std::string jsonrpc_error_line(const ResponseValue& id, std::int64_t code, std::string_view message) {
  std::string out;
  append_jsonrpc_error_line(out, id, code, message);
  return out;
}

}  // namespace kestrune::mcp_responses
