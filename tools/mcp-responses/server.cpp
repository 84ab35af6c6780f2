#include "server.hpp"

#include <algorithm>
#include <exception>
#include <string>

#include "calls.hpp"
#include "json_reader.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::tool {

namespace mr = mcp_responses;

std::array<std::span<const Call>, 4> call_tables() {
  return {encoding_calls(), index_calls(), wiki_calls(), mcp_calls()};
}

const Call* find_call(std::string_view name) {
  for (const auto table : call_tables()) {
    const auto it = std::find_if(table.begin(), table.end(), [name](const Call& c) { return c.name == name; });
    if (it != table.end()) return &*it;
  }
  return nullptr;
}

namespace {

Answer error_answer(std::string_view message) {
  return {mr::tool_result_text(mr::ResponseDict{{"error", message}}), false};
}

// A line's buffer is kept for the next line unless it is large.
constexpr std::size_t kKeptLineBytes = std::size_t{1} << 20;

mr::ResponseValue run_request(mr::ResponseValue request) {
  if (!request.is_dict()) throw RequestError("a request must be a JSON object, not " + std::string(kind_name(request)));
  mr::ResponseDict& fields = request.as_dict();
  for (const auto& [key, value] : fields) {
    if (key != "call" && key != "args") throw RequestError("unknown request key " + mr::quote(key));
  }
  const mr::ResponseValue* name = fields.find("call");
  if (name == nullptr || !name->is_string()) throw RequestError("a request needs \"call\", a string");
  const Call* call = find_call(name->as_string());
  if (call == nullptr) throw RequestError("unknown call " + mr::quote(name->as_string()));

  mr::ResponseDict args;
  if (mr::ResponseValue* given = fields.find("args")) {
    if (!given->is_dict()) throw wrong_kind("\"args\"", "an object", *given);
    args = std::move(given->as_dict());
  }
  Args reader(std::move(args));
  mr::ResponseValue result = call->run(reader);
  reader.check_all_read(call->name);
  return result;
}

// Reads one line into `line`; beyond kMaxLineBytes the rest is skipped and
// `too_long` set. Returns false at the end of the input.
bool read_line(std::istream& in, std::string& line, bool& too_long) {
  line.clear();
  too_long = false;
  std::streambuf* buf = in.rdbuf();
  bool any = false;
  for (;;) {
    const int c = buf->sbumpc();
    if (c == std::char_traits<char>::eof()) {
      in.setstate(std::ios::eofbit);
      return any;
    }
    any = true;
    if (c == '\n') break;
    if (line.size() < kMaxLineBytes) {
      line.push_back(static_cast<char>(c));
    } else {
      too_long = true;
    }
  }
  // Growth may have left the buffer twice the line's size, for as long as
  // the line's tree is being built.
  if (line.capacity() - line.size() > kKeptLineBytes) line.shrink_to_fit();
  return true;
}

bool blank(std::string_view line) { return line.find_first_not_of(" \t\r") == std::string_view::npos; }

// The answer to `line`. `buffer`, when given, holds the line and is released
// once the line is read, so that a large request is not held twice over
// while its call runs.
Answer answer(std::string_view line, std::string* buffer) {
  try {
    mr::ResponseValue request = parse_json(line);
    if (buffer != nullptr && buffer->capacity() > kKeptLineBytes) std::string().swap(*buffer);
    return {mr::tool_result_text(run_request(std::move(request))), true};
  } catch (const RequestError& e) {
    return error_answer(e.message());
  } catch (const std::exception& e) {
    return error_answer(e.what());
  }
}

}  // namespace

Answer answer_request(std::string_view line) { return answer(line, nullptr); }

bool serve(std::istream& in, std::ostream& out) {
  bool all_ok = true;
  std::string line;
  bool too_long = false;
  while (read_line(in, line, too_long)) {
    if (too_long) {
      all_ok = false;
      out << error_answer("request line longer than " + std::to_string(kMaxLineBytes) + " bytes").text << '\n';
      continue;
    }
    if (blank(line)) continue;
    const Answer reply = answer(line, &line);
    all_ok = all_ok && reply.ok;
    out << reply.text << '\n';
  }
  out.flush();
  return all_ok;
}

}  // namespace kestrune::tool
