// Reading one request line of JSON into a ResponseValue, with RapidJSON's SAX
// reader run twice: the first pass counts the entries of every list and
// object, the second builds each exactly as large as it needs to be. A
// request's tree then takes its values' 16 bytes each and nothing for growth.
#include "json_reader.hpp"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "internal/utf8.hpp"

namespace kestrune::tool {

namespace {

using mcp_responses::ResponseDict;
using mcp_responses::ResponseList;
using mcp_responses::ResponseValue;

// RapidJSON copies a stream of its own types for speed; this one is read in
// place, so the handler can see where the number just read ends.
struct RequestStream : rapidjson::MemoryStream {
  using rapidjson::MemoryStream::MemoryStream;
};

constexpr unsigned kParseFlags = rapidjson::kParseNanAndInfFlag | rapidjson::kParseIterativeFlag;

// Whether `literal` is an integer: no fraction, no exponent.
bool is_integer_literal(std::string_view literal) {
  return !literal.empty() && literal.find_first_of(".eE+") == std::string_view::npos &&
         literal.find('-', 1) == std::string_view::npos;
}

// What both passes check of the values they read, so that the first pass
// fails wherever the second would, and with the same message.
class Checks {
 public:
  explicit Checks(const RequestStream& stream) : stream_(stream) {}

  [[nodiscard]] const std::string& error() const { return error_; }

  // The double that the number just read stands for, or nullopt when it is
  // refused. `quick` is RapidJSON's reading of it.
  std::optional<double> read_double(double quick) {
    const std::string_view literal = number_literal();
    // Of the words for non-finite numbers, only those the encoder writes are
    // read: RapidJSON also takes Inf, -Inf and -NaN.
    if (literal == "NaN" || literal == "Infinity" || literal == "-Infinity") return quick;
    if (literal.find_first_of("INaf") != std::string_view::npos) return refuse("Invalid value.", literal);
    // RapidJSON reports integers too large for 64 bits as doubles; an
    // integer literal must stay an integer, so it is refused instead.
    if (is_integer_literal(literal)) return integer_out_of_range();
    // RapidJSON's quick conversion is only close, and its precise one
    // misreads a zero with an exponent (0e-45): the literal is read again to
    // the nearest double. One that rounds beyond the largest double is
    // refused, as RapidJSON refuses 1e400 (a finite number never becomes an
    // infinity); one that rounds to zero is that zero.
    double exact = 0;
    const auto [end, ec] = std::from_chars(literal.data(), literal.data() + literal.size(), exact);
    if (ec == std::errc::result_out_of_range) {
      if (std::fabs(quick) >= 1) return refuse("Number too big to be stored in double.", literal);
      exact = std::signbit(quick) || literal.starts_with('-') ? -0.0 : 0.0;
    }
    return exact;
  }

  // Whether an unsigned integer fits a 64-bit signed one.
  bool check_unsigned(std::uint64_t u) {
    if (u <= static_cast<std::uint64_t>(INT64_MAX)) return true;
    integer_out_of_range();
    return false;
  }

  // Whether a string or key is well-formed: the input bytes were checked, so
  // only an escape can make it otherwise.
  bool check_text(std::string_view text) {
    if (mcp_responses::detail::first_ill_formed(text) == std::string_view::npos) return true;
    error_ = "not accepted: lone surrogate escape in a string";
    return false;
  }

  bool check_depth(std::size_t open) {
    if (open < kMaxDepth) return true;
    error_ = "not accepted: nesting deeper than " + std::to_string(kMaxDepth) + " levels";
    return false;
  }

 private:
  std::nullopt_t integer_out_of_range() {
    error_ = "not accepted: integer out of the 64-bit signed range";
    return std::nullopt;
  }

  // Fails the way RapidJSON fails on text it does not read, at `literal`.
  std::nullopt_t refuse(std::string_view why, std::string_view literal) {
    error_ = "not JSON: " + std::string(why) + " (at byte " + std::to_string(literal.data() - stream_.begin_) + ")";
    return std::nullopt;
  }

  // The literal of the number just read: it ends where the stream now
  // stands and begins after the last character that no number holds (a
  // comma, colon, bracket or space: no token before a number ends in one).
  [[nodiscard]] std::string_view number_literal() const {
    const auto in_number = [](char c) {
      return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '+' || c == '-' ||
             c == '.';
    };
    const char* end = stream_.src_;
    const char* p = end;
    while (p != stream_.begin_ && in_number(p[-1])) --p;
    return {p, static_cast<std::size_t>(end - p)};
  }

  const RequestStream& stream_;
  std::string error_;
};

// The first pass: checks every value, counts the entries of each list and
// object in the order in which they open, and bounds the memory that the
// second pass's tree will take (with the allocator's rounding).
class Counter : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Counter> {
 public:
  explicit Counter(const RequestStream& stream) : checks_(stream) {}

  bool Default() {
    // A value takes 16 bytes in its list, or a 48-byte entry in its object.
    memory_ += open_.empty() || !open_.back().is_object ? 16 : 48;
    if (!open_.empty()) ++sizes_[open_.back().index];
    return true;
  }
  bool Uint64(std::uint64_t u) { return checks_.check_unsigned(u) && Default(); }
  bool Double(double d) { return checks_.read_double(d).has_value() && Default(); }
  bool String(const char* s, rapidjson::SizeType n, bool /*copy*/) {
    if (n > 14) memory_ += n + 32;  // held on the heap, with a header
    return checks_.check_text(std::string_view(s, n)) && Default();
  }
  bool Key(const char* s, rapidjson::SizeType n, bool /*copy*/) {
    if (n > 15) memory_ += n + 32;  // beyond std::string's own buffer
    return checks_.check_text(std::string_view(s, n));
  }
  bool StartObject() { return start(true); }
  bool StartArray() { return start(false); }
  bool EndObject(rapidjson::SizeType /*members*/) { return end(); }
  bool EndArray(rapidjson::SizeType /*elements*/) { return end(); }

  [[nodiscard]] const std::string& error() const { return checks_.error(); }
  [[nodiscard]] std::size_t memory() const { return memory_; }
  [[nodiscard]] std::vector<std::uint32_t> take_sizes() { return std::move(sizes_); }

 private:
  struct Open {
    std::size_t index;  // into sizes_
    bool is_object;
  };

  bool start(bool is_object) {
    if (!checks_.check_depth(open_.size())) return false;
    Default();
    memory_ += 2 * sizeof(std::uint32_t);  // its count, in a vector that may be twice its size
    open_.push_back({sizes_.size(), is_object});
    sizes_.push_back(0);
    return true;
  }
  bool end() {
    // A list or object with entries holds them through a heap object of its
    // own and a heap buffer.
    if (sizes_[open_.back().index] > 0) memory_ += 96;
    open_.pop_back();
    return true;
  }

  Checks checks_;
  std::vector<std::uint32_t> sizes_;  // a line of 16 MiB holds fewer entries than that
  std::vector<Open> open_;
  std::size_t memory_ = 0;
};

// A repeated key keeps its first place and takes its last value. Repeats are
// rare, so they are looked for without allocating in small objects and by
// sorting in large ones; only an object that has some is rebuilt.
void merge_repeated_keys(ResponseDict& dict) {
  const std::size_t n = dict.size();
  const auto key = [&](std::size_t i) {
    return std::string_view((dict.begin() + static_cast<std::ptrdiff_t>(i))->first);
  };
  bool repeated = false;
  if (n <= 16) {
    for (std::size_t i = 1; i < n && !repeated; ++i) {
      for (std::size_t j = 0; j < i && !repeated; ++j) repeated = key(i) == key(j);
    }
    if (!repeated) return;
  }
  std::vector<std::uint32_t> order(n);
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) { return key(a) < key(b); });
  std::vector<bool> gone(n, false);
  std::size_t removed = 0;
  for (std::size_t run = 0; run < n;) {
    std::size_t next = run + 1;
    while (next < n && key(order[next]) == key(order[run])) ++next;
    if (next - run > 1) {
      dict.value_at(order[run]) = std::move(dict.value_at(order[next - 1]));
      for (std::size_t k = run + 1; k < next; ++k) gone[order[k]] = true;
      removed += next - run - 1;
    }
    run = next;
  }
  if (removed == 0) return;
  ResponseDict merged;
  merged.reserve(n - removed);
  for (std::size_t i = 0; i < n; ++i) {
    if (!gone[i]) merged.append(std::string(key(i)), std::move(dict.value_at(i)));
  }
  dict = std::move(merged);
}

// The second pass, over text the first found good: builds the tree, each
// list and object reserved to the size the first pass counted.
class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Builder> {
 public:
  Builder(const RequestStream& stream, std::vector<std::uint32_t> sizes) : checks_(stream), sizes_(std::move(sizes)) {}

  bool Null() { return add(ResponseValue()); }
  bool Bool(bool b) { return add(ResponseValue(b)); }
  bool Int(int i) { return add(ResponseValue(i)); }
  bool Uint(unsigned u) { return add(ResponseValue(u)); }
  bool Int64(std::int64_t i) { return add(ResponseValue(i)); }
  bool Uint64(std::uint64_t u) { return add(ResponseValue(static_cast<std::int64_t>(u))); }
  bool Double(double d) {
    const std::optional<double> value = checks_.read_double(d);
    return value && add(ResponseValue(*value));
  }
  bool String(const char* s, rapidjson::SizeType n, bool /*copy*/) {
    return add(ResponseValue(std::string_view(s, n)));
  }
  bool Key(const char* s, rapidjson::SizeType n, bool /*copy*/) {
    stack_.back().key.assign(s, n);
    return true;
  }
  bool StartObject() { return open(true); }
  bool EndObject(rapidjson::SizeType /*members*/) {
    ResponseDict dict = std::move(stack_.back().dict);
    stack_.pop_back();
    merge_repeated_keys(dict);
    return add(ResponseValue(std::move(dict)));
  }
  bool StartArray() { return open(false); }
  bool EndArray(rapidjson::SizeType /*elements*/) {
    ResponseList list = std::move(stack_.back().list);
    stack_.pop_back();
    return add(ResponseValue(std::move(list)));
  }

  [[nodiscard]] const std::string& error() const { return checks_.error(); }
  [[nodiscard]] ResponseValue take_result() { return std::move(result_); }

 private:
  // One open list or object.
  struct Frame {
    bool is_object = false;
    ResponseList list;
    ResponseDict dict;
    std::string key;
  };

  bool open(bool is_object) {
    Frame& frame = stack_.emplace_back();
    frame.is_object = is_object;
    const std::size_t size = sizes_[next_size_++];
    if (is_object) {
      frame.dict.reserve(size);
    } else {
      frame.list.reserve(size);
    }
    return true;
  }

  bool add(ResponseValue value) {
    if (stack_.empty()) {
      result_ = std::move(value);
      return true;
    }
    Frame& top = stack_.back();
    if (top.is_object) {
      top.dict.append(std::move(top.key), std::move(value));
    } else {
      top.list.push_back(std::move(value));
    }
    return true;
  }

  Checks checks_;
  std::vector<std::uint32_t> sizes_;
  std::size_t next_size_ = 0;
  std::vector<Frame> stack_;
  ResponseValue result_;
};

[[noreturn]] void throw_not_json(const rapidjson::ParseResult& result) {
  throw RequestError(std::string("not JSON: ") + rapidjson::GetParseError_En(result.Code()) + " (at byte " +
                     std::to_string(result.Offset()) + ")");
}

}  // namespace

mcp_responses::ResponseValue parse_json(std::string_view text) {
  // RapidJSON's stream ends at a NUL; a NUL byte is never valid JSON text anyway.
  if (text.find('\0') != std::string_view::npos) throw RequestError("not JSON: NUL byte in the request");
  // Checked here rather than by RapidJSON 1.1, whose validator reads a
  // truncated sequence's missing bytes past the end of the text.
  if (const std::size_t bad = mcp_responses::detail::first_ill_formed(text); bad != std::string_view::npos) {
    throw RequestError("not JSON: ill-formed UTF-8 at byte " + std::to_string(bad));
  }
  rapidjson::Reader reader;
  const auto parse = [&](auto& handler, RequestStream& stream) {
    if (const rapidjson::ParseResult ok = reader.Parse<kParseFlags>(stream, handler); !ok) {
      if (!handler.error().empty()) throw RequestError(handler.error());
      throw_not_json(ok);
    }
  };
  RequestStream counting(text.data(), text.size());
  Counter counter(counting);
  parse(counter, counting);
  if (counter.memory() > std::max(kMemoryFloor, kMemoryPerByte * text.size())) {
    throw RequestError("not accepted: its values would take " + std::to_string(counter.memory() >> 20) +
                       " MiB, more than " + std::to_string(kMemoryPerByte) + " times the request's size");
  }
  // Doubles are read again exactly by the checks, so RapidJSON's quick
  // conversion serves.
  RequestStream stream(text.data(), text.size());
  Builder builder(stream, counter.take_sizes());
  parse(builder, stream);
  return builder.take_result();
}

}  // namespace kestrune::tool
