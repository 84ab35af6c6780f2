// The encoder: encoded_size equals the text's byte length, or fails exactly
// when the tree holds ill-formed UTF-8; the text reads back to an equal tree.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "check.hpp"
#include "json_reader.hpp"
#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"

namespace mr = kestrune::mcp_responses;

namespace {

// Turns fuzz bytes into a tree; running out of bytes ends every level.
class TreeReader {
 public:
  TreeReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  mr::ResponseValue value(int depth) {
    switch (byte() % (depth >= 40 ? 5 : 7)) {
      case 0:
        return nullptr;
      case 1:
        return (byte() & 1) != 0;
      case 2:
        return static_cast<std::int64_t>(word());
      case 3: {
        double d = 0;
        const std::uint64_t w = word();
        std::memcpy(&d, &w, sizeof d);
        return d;
      }
      case 4:
        return text();
      case 5: {
        mr::ResponseList list;
        for (int n = byte() % 6; n > 0 && !done(); --n) list.push_back(value(depth + 1));
        return list;
      }
      default: {
        mr::ResponseDict dict;
        for (int n = byte() % 6; n > 0 && !done(); --n) {
          std::string key = text();
          dict.insert_or_assign(key, value(depth + 1));
        }
        return dict;
      }
    }
  }

 private:
  [[nodiscard]] bool done() const { return pos_ >= size_; }
  std::uint8_t byte() { return done() ? 0 : data_[pos_++]; }
  std::uint64_t word() {
    std::uint64_t w = 0;
    for (int i = 0; i < 8; ++i) w = (w << 8) | byte();
    return w;
  }
  std::string text() {
    std::string s;
    for (int n = byte() % 24; n > 0 && !done(); --n) s.push_back(static_cast<char>(byte()));
    return s;
  }

  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

bool holds_ill_formed(const mr::ResponseValue& v) {
  const auto bad = [](std::string_view s) { return mr::detail::first_ill_formed(s) != std::string_view::npos; };
  if (v.is_string()) return bad(v.as_string());
  if (v.is_list()) {
    for (const auto& e : v.as_list()) {
      if (holds_ill_formed(e)) return true;
    }
  }
  if (v.is_dict()) {
    for (const auto& [key, value] : v.as_dict()) {
      if (bad(key) || holds_ill_formed(value)) return true;
    }
  }
  return false;
}

// Equality in which NaN equals NaN, since NaN is written and read back.
bool same(const mr::ResponseValue& a, const mr::ResponseValue& b) {
  if (a.kind() != b.kind()) return false;
  if (a.is_number()) {
    const double x = a.as_number();
    const double y = b.as_number();
    return (std::isnan(x) && std::isnan(y)) || (x == y && std::signbit(x) == std::signbit(y));
  }
  if (a.is_list()) {
    const auto& x = a.as_list();
    const auto& y = b.as_list();
    if (x.size() != y.size()) return false;
    for (std::size_t i = 0; i < x.size(); ++i) {
      if (!same(x[i], y[i])) return false;
    }
    return true;
  }
  if (a.is_dict()) {
    const auto& x = a.as_dict();
    const auto& y = b.as_dict();
    if (x.size() != y.size()) return false;
    for (auto i = x.begin(), j = y.begin(); i != x.end(); ++i, ++j) {
      if (i->first != j->first || !same(i->second, j->second)) return false;
    }
    return true;
  }
  return a == b;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TreeReader reader(data, size);
  const mr::ResponseValue tree = reader.value(0);
  const std::string text = mr::tool_result_text(tree);
  const bool ill_formed = holds_ill_formed(tree);
  bool threw = false;
  try {
    FUZZ_CHECK(mr::detail::encoded_size(tree) == text.size());
  } catch (const mr::EncodingError&) {
    threw = true;
  }
  FUZZ_CHECK(threw == ill_formed);
  if (!ill_formed) FUZZ_CHECK(same(kestrune::tool::parse_json(text), tree));
  return 0;
}
