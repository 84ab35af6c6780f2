// JSON-RPC as MCP uses it: requests parsed with nlohmann/json (through the
// response layer's bridge), answers written by the response layer.
#include "protocol.hpp"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "kestrune/mcp_responses/mcp.hpp"
#include "kestrune/mcp_responses/nlohmann.hpp"

namespace kestrune::example {

namespace {

using Json = nlohmann::ordered_json;

// Most arrays and objects nested in one another: a request that opens one
// more is refused there, before any tree of it is walked.
constexpr int kMaxDepth = 64;

struct TooDeep {};

// A request that gets a JSON-RPC error instead of a result.
struct Refusal {
  std::int64_t code;
  std::string message;
};

Json parse(std::string_view line) {
  // `depth` counts the containers open around the event, not one it opens.
  return Json::parse(line.begin(), line.end(), [](int depth, Json::parse_event_t event, Json& /*parsed*/) {
    const bool opens = event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
    if (opens && depth >= kMaxDepth) throw TooDeep{};
    return true;
  });
}

// The request's id: a string or an integer, as MCP allows.
mr::ResponseValue id_of(const Json& id) {
  if (id.is_string() || id.is_number_integer()) {
    try {
      return mr::from_ordered_json(id);
    } catch (const std::overflow_error&) {
      // an unsigned id beyond 64-bit signed integers: refused below
    }
  }
  throw Refusal{mr::JSONRPC_INVALID_REQUEST, "Invalid Request: the id must be a string or a 64-bit integer"};
}

mr::ResponseDict initialize(const Json& params) {
  std::string_view version = kProtocolVersions[0];
  if (const auto asked = params.find("protocolVersion"); asked != params.end() && asked->is_string()) {
    const auto& text = asked->get_ref<const std::string&>();
    if (std::find(std::begin(kProtocolVersions), std::end(kProtocolVersions), text) != std::end(kProtocolVersions)) {
      version = text;
    }
  }
  return {{"protocolVersion", version},
          {"capabilities", mr::ResponseDict{{"tools", mr::ResponseDict{}}}},
          {"serverInfo", mr::ResponseDict{{"name", "kestrune-example"}, {"version", "0.1.0"}}},
          {"instructions",
           "Answers questions about one indexed repository: find symbols with search, read one with symbol, "
           "outline a file with file, see uses with references, and read or ask its wiki with wiki."}};
}

std::string call_tool(const Tools& tools, const mr::ResponseValue& id, const Json& params) {
  const auto name = params.find("name");
  if (name == params.end() || !name->is_string()) {
    throw Refusal{mr::JSONRPC_INVALID_PARAMS, "Invalid params: tools/call needs the tool's \"name\", a string"};
  }
  const auto& tool = name->get_ref<const std::string&>();
  if (!Tools::exists(tool)) throw Refusal{mr::JSONRPC_INVALID_PARAMS, "Unknown tool: " + tool};
  mr::ResponseDict arguments;
  if (const auto given = params.find("arguments"); given != params.end() && !given->is_null()) {
    if (!given->is_object()) throw Refusal{mr::JSONRPC_INVALID_PARAMS, "Invalid params: arguments must be an object"};
    try {
      arguments = given->get<mr::ResponseDict>();
    } catch (const std::overflow_error&) {
      throw Refusal{mr::JSONRPC_INVALID_PARAMS, "Invalid params: an integer argument beyond 64 bits"};
    }
  }
  const ToolAnswer answer = tools.call(tool, arguments);
  return mr::tool_call_line(id, answer.response, answer.options);
}

std::string dispatch(const Tools& tools, const std::string& method, const mr::ResponseValue& id, const Json& params) {
  if (method == "initialize") return mr::jsonrpc_result_line(id, initialize(params));
  if (method == "ping") return mr::jsonrpc_result_line(id, mr::ResponseDict{});
  if (method == "tools/list") return mr::jsonrpc_result_line(id, Tools::list());
  if (method == "tools/call") return call_tool(tools, id, params);
  throw Refusal{mr::JSONRPC_METHOD_NOT_FOUND, "Method not found: " + method};
}

}  // namespace

std::string McpServer::too_long() {
  return mr::jsonrpc_error_line(nullptr, mr::JSONRPC_INVALID_REQUEST,
                                "Invalid Request: a line longer than " + std::to_string(kMaxLineBytes) + " bytes");
}

std::optional<std::string> McpServer::answer(std::string_view line) const {
  if (line.find_first_not_of(" \t\r") == std::string_view::npos) return std::nullopt;  // a blank line says nothing
  Json request;
  try {
    request = parse(line);
    // nlohmann/json stops at a NUL byte as at the end of the text; no JSON
    // holds one, so a line that does is not JSON, whatever came before it.
    if (const std::size_t nul = line.find('\0'); nul != std::string_view::npos) {
      return mr::jsonrpc_error_line(nullptr, mr::JSONRPC_PARSE_ERROR,
                                    "Parse error: not JSON at byte " + std::to_string(nul + 1));
    }
  } catch (const TooDeep&) {
    return mr::jsonrpc_error_line(nullptr, mr::JSONRPC_PARSE_ERROR,
                                  "Parse error: nested deeper than " + std::to_string(kMaxDepth) + " levels");
  } catch (const Json::parse_error& e) {
    return mr::jsonrpc_error_line(nullptr, mr::JSONRPC_PARSE_ERROR,
                                  "Parse error: not JSON at byte " + std::to_string(e.byte));
  } catch (const Json::out_of_range&) {  // the parser's only other error: 1e400 and the like
    return mr::jsonrpc_error_line(nullptr, mr::JSONRPC_PARSE_ERROR, "Parse error: a number overflows a double");
  }
  mr::ResponseValue id;  // null until the request's own is read
  try {
    if (!request.is_object()) throw Refusal{mr::JSONRPC_INVALID_REQUEST, "Invalid Request: not a JSON object"};
    const auto given_id = request.find("id");
    if (given_id != request.end()) id = id_of(*given_id);
    const auto version = request.find("jsonrpc");
    if (version == request.end() || *version != "2.0") {
      throw Refusal{mr::JSONRPC_INVALID_REQUEST, "Invalid Request: \"jsonrpc\" must be \"2.0\""};
    }
    const auto method = request.find("method");
    if (method == request.end()) {
      // A client's answer to a request of ours: this server sends none, so
      // there is nothing to match it with and nothing to say.
      if (given_id != request.end() && (request.contains("result") || request.contains("error"))) return std::nullopt;
      throw Refusal{mr::JSONRPC_INVALID_REQUEST, "Invalid Request: no \"method\""};
    }
    if (!method->is_string())
      throw Refusal{mr::JSONRPC_INVALID_REQUEST, "Invalid Request: the method must be a string"};
    if (given_id == request.end()) return std::nullopt;  // a notification is never answered
    const auto params = request.find("params");
    if (params != request.end() && !params->is_object()) {
      throw Refusal{mr::JSONRPC_INVALID_PARAMS, "Invalid params: params must be an object"};
    }
    return dispatch(tools_, method->get_ref<const std::string&>(), id,
                    params != request.end() ? *params : Json::object());
  } catch (const Refusal& r) {
    return mr::jsonrpc_error_line(id, r.code, r.message);
  } catch (const std::exception& e) {
    return mr::jsonrpc_error_line(id, mr::JSONRPC_INTERNAL_ERROR, std::string("Internal error: ") + e.what());
  }
}

}  // namespace kestrune::example
