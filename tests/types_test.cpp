#include "kestrune/mcp_responses/types.hpp"

#include <gtest/gtest.h>

#include "kestrune/mcp_responses/encoding.hpp"
#include "support/fresh.hpp"

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace kestrune::mcp_responses {
namespace {

TEST(response_value, construction_picks_the_kind_from_the_cpp_type) {
  const std::string owned = "s";
  const std::string_view view = "v";
  const std::size_t size = 3;
  const struct {
    ResponseValue value;
    Kind kind;
  } cases[] = {
      {ResponseValue(), Kind::null},
      {nullptr, Kind::null},
      {std::nullopt, Kind::null},
      {true, Kind::boolean},
      {3, Kind::integer},
      {size, Kind::integer},
      {std::int64_t{-7}, Kind::integer},
      {std::uint8_t{200}, Kind::integer},
      {3.0, Kind::double_},
      {1.5f, Kind::double_},
      {"text", Kind::string},
      {owned, Kind::string},
      {view, Kind::string},
      {ResponseList{1, "a"}, Kind::list},
      {ResponseDict{{"a", 1}}, Kind::dict},
      {std::optional<std::string>{}, Kind::null},
      {std::optional<std::string>{"x"}, Kind::string},
      {std::optional<std::int64_t>{0}, Kind::integer},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.value.kind(), c.kind) << static_cast<int>(c.kind);
  }
  EXPECT_EQ(ResponseValue("text").as_string(), "text");
  EXPECT_EQ(ResponseValue(size).as_integer(), 3);
}

// Strings up to 14 bytes live in the value, longer ones on the heap; lists
// and maps are allocated only once they hold something. Every way a value
// is copied, moved or assigned keeps its text, kind and kept size.
TEST(response_value, copies_moves_and_assignments_keep_values_of_every_size) {
  std::vector<ResponseValue> originals{
      nullptr, true, -5, 2.5, ResponseList{}, ResponseDict{}, ResponseList{"x", 1}, ResponseDict{{"k", "v"}}};
  for (std::size_t n = 0; n <= 40; ++n) {
    originals.emplace_back(std::string(n, 'a'));
    originals.emplace_back(std::string(n, '\n'));    // escapes change the kept size
    originals.emplace_back(std::string(n, '\xff'));  // ill-formed text is kept as such
  }
  for (const ResponseValue& original : originals) {
    const std::string text = tool_result_text(original);
    ResponseValue copy = original;
    EXPECT_EQ(copy, original) << text;
    ResponseValue moved = std::move(copy);
    EXPECT_EQ(tool_result_text(moved), text);
    // Moved from: a string, list or map is left empty, a scalar as it was.
    EXPECT_EQ(copy.kind(), original.kind()) << text;
    if (original.is_string() || original.is_list() || original.is_dict()) {
      EXPECT_TRUE(is_falsy(copy)) << text;
    } else {
      EXPECT_EQ(copy, original) << text;
    }
    ResponseValue assigned = 7;
    assigned = moved;
    EXPECT_EQ(tool_result_text(assigned), text);
    assigned = std::move(moved);
    assigned = assigned;  // self-assignment keeps the value
    EXPECT_EQ(tool_result_text(assigned), text);
    EXPECT_TRUE(fresh::kept_sizes_hold(assigned)) << text;
  }
  ResponseValue list = ResponseList{};
  list.as_list().emplace_back("filled in place");
  EXPECT_EQ(tool_result_text(list), R"(["filled in place"])");
  ResponseValue dict = ResponseDict{};
  dict.as_dict().insert_or_assign("k", 1);
  EXPECT_EQ(tool_result_text(dict), R"({"k":1})");
  EXPECT_THROW((void)ResponseValue(1).as_string(), std::bad_variant_access);
  EXPECT_EQ(sizeof(ResponseValue), 16u);
}

TEST(response_value, unsigned_values_beyond_int64_are_refused) {
  const std::uint64_t big = std::uint64_t{1} << 63;
  EXPECT_THROW(ResponseValue{big}, std::overflow_error);
  EXPECT_EQ(ResponseValue(big - 1).as_integer(), std::numeric_limits<std::int64_t>::max());
}

std::string keys(const ResponseDict& d) {
  std::string out;
  for (const auto& [key, value] : d) out += key;
  return out;
}

TEST(response_dict, keeps_first_insertion_order) {
  ResponseDict d{{"b", 1}, {"a", 2}, {"b", 3}};
  EXPECT_EQ(keys(d), "ba");
  EXPECT_EQ(d.at("b"), ResponseValue(3));  // a repeated key replaces in place

  d.insert_or_assign("c", 4);
  d.insert_or_assign("b", 5);
  EXPECT_EQ(keys(d), "bac");
  EXPECT_EQ(d.at("b"), ResponseValue(5));
  EXPECT_EQ(d.value_at(2), ResponseValue(4));  // by position, in insertion order
  d.value_at(1) = 20;
  EXPECT_EQ(d.at("a"), ResponseValue(20));

  EXPECT_TRUE(d.erase("b"));
  EXPECT_FALSE(d.erase("b"));
  d["b"] = 6;
  EXPECT_EQ(keys(d), "acb");

  EXPECT_EQ(d.erase_if([](const ResponseDict::value_type& e) { return e.second.as_integer() % 2 == 0; }), 3u);
  EXPECT_TRUE(d.empty());
}

TEST(response_dict, lookup_tells_keys_apart_in_any_byte) {
  // Keys of every length up to past two words, differing in one byte each.
  for (std::size_t n = 1; n <= 20; ++n) {
    ResponseDict d;
    const std::string base(n, 'k');
    d.insert_or_assign(base, -1);
    for (std::size_t k = 0; k < n; ++k) {
      std::string other = base;
      other[k] = 'x';
      d.insert_or_assign(other, static_cast<std::int64_t>(k));
    }
    ASSERT_EQ(d.size(), n + 1) << n;
    EXPECT_EQ(d.at(base), ResponseValue(-1)) << n;
    for (std::size_t k = 0; k < n; ++k) {
      std::string other = base;
      other[k] = 'x';
      EXPECT_EQ(d.at(other), ResponseValue(static_cast<std::int64_t>(k))) << n << " " << k;
    }
    EXPECT_FALSE(d.contains(base + "k"));
  }
}

TEST(response_dict, lookup_of_missing_keys) {
  const ResponseDict d{{"a", nullptr}};
  EXPECT_TRUE(d.contains("a"));
  EXPECT_FALSE(d.contains("b"));
  EXPECT_EQ(d.find("b"), nullptr);
  EXPECT_TRUE(d.get("b").is_null());
  EXPECT_THROW((void)d.at("b"), std::out_of_range);
}

}  // namespace
}  // namespace kestrune::mcp_responses
