// A RapidJSON SAX handler that builds ResponseValue trees directly.
#include "json_reader.hpp"

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kestrune/mcp_responses/detail/utf8.hpp"

namespace kestrune::tool {

namespace {

using mcp_responses::ResponseDict;
using mcp_responses::ResponseList;
using mcp_responses::ResponseValue;

// RapidJSON copies a plain StringStream for speed; this type is read in
// place, so the handler can see where the number just read ends.
struct RequestStream : rapidjson::StringStream {
  using rapidjson::StringStream::StringStream;
};

// One open list or object. Object members are gathered in a vector with an
// index by key, so that a request with many keys stays linear.
struct Frame {
  bool is_object = false;
  ResponseList list;
  std::vector<std::pair<std::string, ResponseValue>> members;
  std::unordered_map<std::string, std::size_t> index;
  std::string key;
};

class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Builder> {
 public:
  explicit Builder(const RequestStream& stream) : stream_(stream) {}

  bool Null() { return add(ResponseValue()); }
  bool Bool(bool b) { return add(ResponseValue(b)); }
  bool Int(int i) { return add(ResponseValue(i)); }
  bool Uint(unsigned u) { return add(ResponseValue(u)); }
  bool Int64(std::int64_t i) { return add(ResponseValue(i)); }
  bool Uint64(std::uint64_t u) {
    if (u > static_cast<std::uint64_t>(INT64_MAX)) return fail("integer out of the 64-bit signed range");
    return add(ResponseValue(static_cast<std::int64_t>(u)));
  }
  bool Double(double d) {
    // RapidJSON reports integers too large for 64 bits as doubles; an
    // integer literal must stay an integer, so it is refused instead.
    if (number_literal_is_integer()) return fail("integer out of the 64-bit signed range");
    // RapidJSON's quick conversion is only close, and its precise one
    // misreads a zero with an exponent (0e-45); the literal is read again
    // here to the nearest double. A literal below the smallest double keeps
    // RapidJSON's zero.
    if (std::isfinite(d)) {
      const std::string_view literal = number_literal();
      double exact = 0;
      const auto [end, ec] = std::from_chars(literal.data(), literal.data() + literal.size(), exact);
      if (ec == std::errc() && end == literal.data() + literal.size()) d = exact;
    }
    return add(ResponseValue(d));
  }
  bool String(const char* s, rapidjson::SizeType n, bool /*copy*/) {
    std::string_view text(s, n);
    if (!well_formed(text)) return false;
    return add(ResponseValue(text));
  }
  bool Key(const char* s, rapidjson::SizeType n, bool /*copy*/) {
    std::string_view text(s, n);
    if (!well_formed(text)) return false;
    stack_.back().key.assign(text);
    return true;
  }
  bool StartObject() { return open(true); }
  bool EndObject(rapidjson::SizeType /*members*/) {
    Frame frame = std::move(stack_.back());
    stack_.pop_back();
    ResponseDict dict;
    dict.reserve(frame.members.size());
    for (auto& [key, value] : frame.members) dict.append(std::move(key), std::move(value));
    return add(ResponseValue(std::move(dict)));
  }
  bool StartArray() { return open(false); }
  bool EndArray(rapidjson::SizeType /*elements*/) {
    ResponseList list = std::move(stack_.back().list);
    stack_.pop_back();
    return add(ResponseValue(std::move(list)));
  }

  [[nodiscard]] const std::string& error() const { return error_; }
  [[nodiscard]] ResponseValue take_result() { return std::move(result_); }

 private:
  bool fail(std::string message) {
    error_ = std::move(message);
    return false;
  }

  bool well_formed(std::string_view text) {
    // The input bytes were checked, so only an escape can produce this.
    if (mcp_responses::detail::first_ill_formed(text) == std::string_view::npos) return true;
    return fail("lone surrogate escape in a string");
  }

  bool open(bool is_object) {
    if (stack_.size() >= kMaxDepth) {
      return fail("nesting deeper than " + std::to_string(kMaxDepth) + " levels");
    }
    stack_.emplace_back().is_object = is_object;
    return true;
  }

  bool add(ResponseValue value) {
    if (stack_.empty()) {
      result_ = std::move(value);
      return true;
    }
    Frame& top = stack_.back();
    if (!top.is_object) {
      top.list.push_back(std::move(value));
      return true;
    }
    auto [it, inserted] = top.index.try_emplace(std::move(top.key), top.members.size());
    if (inserted) {
      top.members.emplace_back(it->first, std::move(value));
    } else {
      top.members[it->second].second = std::move(value);
    }
    return true;
  }

  // The number just read ends where the stream now stands, and begins after
  // the last character that no number holds (a comma, colon, bracket or
  // space: no token before a number ends in one of these).
  [[nodiscard]] std::string_view number_literal() const {
    const char* end = stream_.src_;
    const char* p = end;
    while (p != stream_.head_ && std::string_view("0123456789+-.eE").find(p[-1]) != std::string_view::npos) --p;
    return {p, static_cast<std::size_t>(end - p)};
  }

  // Whether the number just read is an integer literal: no fraction, no
  // exponent, not NaN or Infinity.
  [[nodiscard]] bool number_literal_is_integer() const {
    const std::string_view literal = number_literal();
    return !literal.empty() && literal.find_first_of(".eE+") == std::string_view::npos &&
           literal.find('-', 1) == std::string_view::npos;
  }

  const RequestStream& stream_;
  std::vector<Frame> stack_;
  ResponseValue result_;
  std::string error_;
};

}  // namespace

mcp_responses::ResponseValue parse_json(std::string_view text) {
  // RapidJSON reads up to a NUL; a NUL byte is never valid JSON text anyway.
  if (text.find('\0') != std::string_view::npos) throw RequestError("not JSON: NUL byte in the request");
  // Checked here rather than by RapidJSON 1.1, whose validator reads a
  // truncated sequence's missing bytes past the end of the text.
  if (const std::size_t bad = mcp_responses::detail::first_ill_formed(text); bad != std::string_view::npos) {
    throw RequestError("not JSON: ill-formed UTF-8 at byte " + std::to_string(bad));
  }
  const std::string copy(text);  // NUL-terminated for the stream
  RequestStream stream(copy.c_str());
  Builder builder(stream);
  rapidjson::Reader reader;
  // Doubles are read again exactly by the handler, so RapidJSON's quick
  // conversion serves.
  constexpr unsigned kFlags = rapidjson::kParseNanAndInfFlag | rapidjson::kParseIterativeFlag;
  const rapidjson::ParseResult ok = reader.Parse<kFlags>(stream, builder);
  if (!ok) {
    if (!builder.error().empty()) throw RequestError("not accepted: " + builder.error());
    throw RequestError(std::string("not JSON: ") + rapidjson::GetParseError_En(ok.Code()) + " (at byte " +
                       std::to_string(ok.Offset()) + ")");
  }
  return builder.take_result();
}

}  // namespace kestrune::tool
