// JSON-RPC response lines: a result, or an error.
#include <cmath>
#include <stdexcept>
#include <string>

#include "encoding/text_writer.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "mcp/jsonrpc_line.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace detail {

void check_id(const ResponseValue& id, IdRule rule, std::string_view caller) {
  const bool ok = id.is_integer() || id.is_string() || (id.is_double() && std::isfinite(id.as_double())) ||
                  (id.is_null() && rule == IdRule::request_or_null);
  if (ok) return;
  throw std::invalid_argument(std::string(caller) + ": the id must be an integer, a string or a finite number" +
                              (rule == IdRule::request_or_null ? ", or null" : ""));
}

void append_line_head(std::string& out, const ResponseValue& id, std::string_view member) {
  out += R"({"jsonrpc":"2.0","id":)";
  append_text(out, id, TextForm::json);
  out += ",\"";
  out += member;
  out += "\":";
}

}  // namespace detail

namespace {

template <class Result>
void append_result_line(std::string& out, const ResponseValue& id, const Result& result) {
  detail::check_id(id, detail::IdRule::request, "jsonrpc_result_line");
  detail::append_line_head(out, id, "result");
  detail::append_text(out, result, detail::TextForm::json);
  out += detail::kLineEnd;
}

}  // namespace

void append_jsonrpc_result_line(std::string& out, const ResponseValue& id, const ResponseValue& result) {
  append_result_line(out, id, result);
}

void append_jsonrpc_result_line(std::string& out, const ResponseValue& id, const ResponseDict& result) {
  append_result_line(out, id, result);
}

std::string jsonrpc_result_line(const ResponseValue& id, const ResponseValue& result) {
  std::string out;
  append_result_line(out, id, result);
  return out;
}

std::string jsonrpc_result_line(const ResponseValue& id, const ResponseDict& result) {
  std::string out;
  append_result_line(out, id, result);
  return out;
}

std::string jsonrpc_error_line(const ResponseValue& id, std::int64_t code, std::string_view message) {
  detail::check_id(id, detail::IdRule::request_or_null, "jsonrpc_error_line");
  ResponseDict error;
  detail::append_plain(error, "code", code);
  detail::append_plain(error, "message", message);
  std::string out;
  detail::append_line_head(out, id, "error");
  detail::append_text(out, error, detail::TextForm::json);
  out += detail::kLineEnd;
  return out;
}

}  // namespace kestrune::mcp_responses
