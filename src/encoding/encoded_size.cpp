// Counting the bytes of the compact MCP text without writing it, and the
// error for text that has no UTF-8 form.
#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "encoding/double_text.hpp"
#include "encoding/encoded_size.hpp"
#include "encoding/escapes.hpp"
#include "encoding/layout.hpp"
#include "internal/blocks.hpp"
#include "internal/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

using detail::kEscapeExtra;

// A string costs its bytes, two quotes, and one extra byte per two-character
// escape or five per \u00XX escape.

// Returns the size, or npos when the string is not well-formed UTF-8. Each
// block goes through the UTF-8 check and adds its escapes' extra bytes.
[[gnu::noinline]] std::size_t mixed_string_size(std::string_view s) noexcept {
  std::size_t size = s.size() + 2;
  detail::Utf8Check utf8;
  for (std::size_t i = 0; i < s.size(); i += detail::kBlock) {
    const detail::Block b = detail::load_block(s.data() + i, s.size() - i);
    if (detail::attention_mask(b) == 0 && utf8.done()) continue;
    if (!utf8.block(b)) return std::string_view::npos;
    for (unsigned escapes = detail::escape_mask(b); escapes != 0; escapes &= escapes - 1) {
      size += kEscapeExtra[static_cast<unsigned char>(s[i + static_cast<std::size_t>(std::countr_zero(escapes))])];
    }
  }
  return utf8.done() ? size : std::string_view::npos;
}

// The size of `s` whose first `plain` bytes are ASCII that needs no escape,
// which leaves no sequence open.
std::size_t string_size_after(std::string_view s, std::size_t plain) noexcept {
  const std::size_t rest = mixed_string_size(s.substr(plain));
  return rest == std::string_view::npos ? rest : plain + rest;
}

// The same as mixed_string_size. Most strings are ASCII that needs no escape,
// which costs one test per block; the rest of a string from its first other
// block is measured in full.
std::size_t string_size(std::string_view s) noexcept {
  const char* in = s.data();
  std::size_t left = s.size();
  for (; left >= detail::kBlock; left -= detail::kBlock, in += detail::kBlock) {
    if (detail::attention_mask(detail::load_block(in, detail::kBlock)) != 0) {
      return string_size_after(s, s.size() - left);
    }
  }
  if (left == 0) return s.size() + 2;
  // The last bytes: in the block that ends with them when the string is long
  // enough, which needs one load instead of a gathered tail.
  const std::size_t back = s.size() >= detail::kBlock ? detail::kBlock - left : 0;
  const detail::Block b = detail::load_block(in - back, left + back);
  if ((detail::attention_mask(b) >> back) == 0) return s.size() + 2;
  return string_size_after(s, s.size() - left);
}

constexpr std::size_t kBad = detail::kIllFormed;

using detail::ValueAccess;

// The size of the compact text: the layout's visitor whose state is the
// running count. Strings and keys carry their overhead from when they were
// made, so measuring walks the tree without reading any text. A string that
// is not well-formed sets `ill_formed` and counts nothing.
struct Size : detail::Untracked {
  static constexpr bool counts = true;
  bool ill_formed = false;

  static std::size_t literal(std::size_t at, std::string_view text) noexcept { return at + text.size(); }
  static std::size_t integer(std::size_t at, std::int64_t i) noexcept { return at + detail::integer_text_size(i); }
  static std::size_t real(std::size_t at, double d) noexcept {
    char buf[detail::kDoubleTextMax];
    return at + detail::format_double(d, buf);
  }
  std::size_t string(std::size_t at, const ResponseValue& v) noexcept { return add(at, ValueAccess::encoded_size(v)); }
  // The keys of a map whose keys are not all plain are measured one by one:
  // only their sum is kept.
  std::size_t key(std::size_t at, std::string_view key, bool plain, std::size_t /*index*/) noexcept {
    return plain ? at + key.size() + 2 : add(at, string_size(key));
  }

 private:
  std::size_t add(std::size_t at, std::size_t bytes) noexcept {
    if (bytes == kBad) [[unlikely]] {
      ill_formed = true;
      return at;
    }
    return at + bytes;
  }
};

template <class Value>
std::size_t size_of(const Value& value) noexcept {
  Size size;
  const std::size_t bytes = detail::walk(size, std::size_t{0}, value);
  return size.ill_formed ? kBad : bytes;
}

// The first string or key that is not well-formed, in writing order, and
// where it stands: the layout's visitor that tracks its place and stops when
// it has found. Its state says whether it has.
class FindIllFormed {
 public:
  static constexpr bool counts = false;

  explicit FindIllFormed(std::string where) : where_(std::move(where)) {}

  [[nodiscard]] std::optional<detail::IllFormedAt> result(bool found) && {
    if (!found) return std::nullopt;
    return detail::IllFormedAt{std::move(where_), byte_};
  }

  static bool literal(bool at, std::string_view /*text*/) noexcept { return at; }
  static bool integer(bool at, std::int64_t /*i*/) noexcept { return at; }
  static bool real(bool at, double /*d*/) noexcept { return at; }
  bool string(bool /*at*/, const ResponseValue& v) noexcept { return check(ValueAccess::text(v)); }
  bool key(bool /*at*/, std::string_view key, bool plain, std::size_t index) {
    if (plain || !check(key)) return false;
    where_.insert(0, "key #" + std::to_string(index) + " of ");
    return true;
  }
  static bool open(bool at, char /*c*/) noexcept { return at; }
  static bool close(bool at, char /*c*/) noexcept { return at; }
  static bool separator(bool at, char /*c*/) noexcept { return at; }

  bool enter(bool at, std::string_view key) {
    marks_.push_back(where_.size());
    where_ += '.';
    detail::append_escaped(where_, key);
    return at;
  }
  bool enter(bool at, std::size_t index) {
    marks_.push_back(where_.size());
    where_ += '[' + std::to_string(index) + ']';
    return at;
  }
  bool leave(bool at) {
    where_.resize(marks_.back());
    marks_.pop_back();
    return at;
  }
  static bool done(bool at) noexcept { return at; }

 private:
  bool check(std::string_view text) noexcept {
    byte_ = detail::first_ill_formed(text);
    return byte_ != std::string_view::npos;
  }

  std::string where_;
  std::vector<std::size_t> marks_;
  std::size_t byte_ = 0;
};

}  // namespace

EncodingError::EncodingError(std::string where, std::size_t byte)
    : std::runtime_error("the response cannot be measured: the string at " + where +
                         " is not well-formed UTF-8 (byte " + std::to_string(byte) + ")"),
      where_(std::move(where)),
      byte_(byte) {}

namespace detail {

std::size_t string_overhead(std::string_view text) noexcept {
  const std::size_t size = string_size(text);
  return size == kBad ? kBad : size - text.size();
}

std::size_t size_or_ill_formed(ResponseRef value) noexcept {
  return value.visit([](const auto& v) { return size_of(v); });
}
std::size_t string_size_or_ill_formed(std::string_view text) noexcept { return string_size(text); }
std::size_t well_formed_string_size(std::string_view text) noexcept {
  std::size_t size = text.size() + 2;
  for (std::size_t i = 0; i < text.size(); i += kBlock) {
    const Block b = load_block(text.data() + i, text.size() - i);
    for (unsigned escapes = escape_mask(b); escapes != 0; escapes &= escapes - 1) {
      size += kEscapeExtra[static_cast<unsigned char>(text[i + static_cast<std::size_t>(std::countr_zero(escapes))])];
    }
  }
  return size;
}

std::optional<IllFormedAt> locate_ill_formed(ResponseRef value, std::string where) {
  FindIllFormed find(std::move(where));
  const bool found = value.visit([&](const auto& v) { return walk(find, false, v); });
  return std::move(find).result(found);
}

std::size_t encoded_size(ResponseRef result) {
  const std::size_t size = size_or_ill_formed(result);
  if (size == kBad) {
    std::optional<IllFormedAt> at = locate_ill_formed(result, "$");
    throw EncodingError(std::move(at->where), at->byte);
  }
  return size;
}

}  // namespace detail
}  // namespace kestrune::mcp_responses
