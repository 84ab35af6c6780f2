// The example MCP server's request handling: every line gets exactly one
// line back, standard JSON, a JSON-RPC result or error carrying the
// request's id when it has a readable one; or nothing, exactly for a
// notification, a client's response or a blank line. Nothing throws.
#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

#include "bytes.hpp"
#include "check.hpp"
#include "protocol.hpp"

namespace ex = kestrune::example;
using Json = nlohmann::ordered_json;
using kestrune::fuzz::Bytes;

namespace {

const ex::McpServer& server(bool initialized) {
  static const ex::McpServer with_index(
      ex::Tools({.index = ex::IndexDb::open(KESTRUNE_EXAMPLE_DB), .root = KESTRUNE_EXAMPLE_ROOT, .page_bytes = 700}));
  static const ex::McpServer without_index(ex::Tools({.index = {}, .root = KESTRUNE_EXAMPLE_ROOT}));
  return initialized ? with_index : without_index;
}

// pick: the first of `choices` half the time, any of them otherwise.
std::string_view pick(Bytes& in, std::initializer_list<std::string_view> choices) {
  const std::uint8_t b = in.next();
  return choices.begin()[b < 128 ? 0 : b % choices.size()];
}

// A value of any kind, the kinds that tool arguments check for among them.
std::string value(Bytes& in) {
  return std::string(pick(
      in, {"\"\"", "\"cart\"", "\"shop.cart.Cart\"", "\"é\\n\"", "0", "3", "-1", "100", "1.5", "18446744073709551615",
           "null", "true", "[]", "{}", "\"ask\"", "\"read\"", "\"list\"", "\"status\"", "[{\"a\":[1]}]"}));
}

std::string arguments(Bytes& in) {
  std::string out = "{";
  for (int n = in.next() % 4; n > 0; --n) {
    out +=
        std::string(out.size() > 1 ? "," : "") + "\"" +
        std::string(pick(in, {"query", "offset", "limit", "fqn", "path", "action", "page_id", "token_budget", "x"})) +
        "\":" + value(in);
  }
  return out + "}";
}

// A request line: members drawn from good and bad choices, sometimes cut
// short or replaced by raw bytes.
std::string request(Bytes& in) {
  if (in.next() % 8 == 7) return in.raw(40);
  std::string line = "{";
  const auto member = [&](std::string_view key, std::string_view text) {
    line += std::string(line.size() > 1 ? "," : "") + "\"" + std::string(key) + "\":" + std::string(text);
  };
  // Each member is there most of the time, a client's result rarely; the
  // first choice of each is the good one, so that an input that runs out of
  // bytes (and reads zeros) still makes a valid request.
  const auto often = [&] { return in.next() % 8 != 7; };
  if (often()) member("jsonrpc", pick(in, {"\"2.0\"", "\"1.0\"", "2", "null"}));
  if (often()) member("id", pick(in, {"1", "\"a\"", "-7", "0", "\"é\"", "1.5", "null", "{}", "1e3"}));
  const std::string_view method = pick(in, {"\"tools/call\"", "\"tools/call\"", "\"tools/list\"", "\"initialize\"",
                                            "\"ping\"", "\"notifications/initialized\"", "\"x/y\"", "7"});
  if (often()) member("method", method);
  if (often()) {
    if (method == "\"tools/call\"") {
      const std::string name(
          pick(in, {"search", "symbol", "file", "references", "wiki", "status", "architecture", "no"}));
      member("params", "{\"name\":\"" + name + "\",\"arguments\":" + arguments(in) + "}");
    } else {
      member("params", pick(in, {"{}", "[]", "{\"protocolVersion\":\"2024-11-05\"}", "3"}));
    }
  }
  if (!often()) member("result", "{}");
  line += "}";
  if (!often()) line.resize(in.next() % (line.size() + 1));  // cut short
  return line;
}

// Whether `line` is a message that gets no answer.
bool unanswered(std::string_view line) {
  if (line.find_first_not_of(" \t\r") == std::string_view::npos) return true;
  const Json m = Json::parse(line, nullptr, false);
  if (!m.is_object() || m.value("jsonrpc", Json()) != "2.0") return false;
  const bool id = m.contains("id") && (m["id"].is_string() || m["id"].is_number_integer());
  const bool method = m.contains("method") && m["method"].is_string();
  return (method && !m.contains("id")) ||
         (!m.contains("method") && id && (m.contains("result") || m.contains("error")));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  const bool initialized = in.next() % 4 != 3;
  const std::string line = request(in);
  const std::optional<std::string> reply = server(initialized).answer(line);
  if (reply.has_value() == unanswered(line))
    std::fprintf(stderr, "line [%s] reply [%s]\n", line.c_str(), reply ? reply->c_str() : "none");
  FUZZ_CHECK(reply.has_value() != unanswered(line));
  if (!reply) return 0;
  FUZZ_CHECK(!reply->empty() && reply->find('\n') == reply->size() - 1);
  const Json answer = Json::parse(*reply);  // strict: no NaN, valid UTF-8; throws (and fails) otherwise
  FUZZ_CHECK(answer.size() == 3 && answer["jsonrpc"] == "2.0" && answer.contains("id"));
  FUZZ_CHECK(answer.contains("result") != answer.contains("error"));
  const Json request = Json::parse(line, nullptr, false);
  if (request.is_object() && request.contains("id") &&
      (request["id"].is_string() || request["id"].is_number_integer())) {
    FUZZ_CHECK(answer["id"] == request["id"]);
  } else {
    FUZZ_CHECK(answer["id"].is_null());
  }
  if (answer.contains("result") && request.value("method", Json()) == "tools/call") {
    FUZZ_CHECK(answer["result"]["content"][0]["type"] == "text");
  }
  return 0;
}
