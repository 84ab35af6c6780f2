// kestrune/mcp_responses/types.hpp - the values that responses are made of.
//
// A response is a tree of ResponseValue: null, boolean, 64-bit integer, double,
// UTF-8 string, list or insertion-ordered map (ResponseDict). The kinds never
// mix: 3 and 3.0 are different values, and true is never a number.
//
//   ResponseDict row{{"fqn", "pkg.mod.f"}, {"line", 12}, {"score", 0.5}};
//   row.insert_or_assign("kind", "function");  // appended last
//   row.insert_or_assign("line", 13);          // keeps its place
//
// Strings never change in place: a string value and a map's keys keep the
// size that encoding adds to them from when they were made, so measuring a
// response reads no text. Replace a value to change it.
//
// The storage records (Symbol, Reference, ComponentInfo) are plain aggregates
// whose unknown attributes are empty optionals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace kestrune::mcp_responses {

class ResponseValue;
class ResponseDict;

namespace detail {
/// string_overhead: the bytes that the compact text adds to a string's own:
/// its two quotes and the extra bytes of its escapes; npos when `text` is not
/// well-formed UTF-8. Values and maps keep it for their strings and keys, so
/// that measuring or writing a response does not scan its text again.
[[nodiscard]] std::size_t string_overhead(std::string_view text) noexcept;
/// PlainKey: a key written in the source that needs no escape, checked when
/// compiling: its encoded size is its length and two quotes.
struct PlainKey {
  template <std::size_t N>
  consteval PlainKey(const char (&key)[N]) : text(key, N - 1) {  // NOLINT(google-explicit-constructor)
    for (const char c : text) {
      if (c < 0x20 || c == '"' || c == '\\' || c == '\x7f' || static_cast<unsigned char>(c) >= 0x80) {
        throw "a plain key is printable ASCII without quotes or backslashes";
      }
    }
  }
  std::string_view text;
};
/// append_plain: dict.append(key, value) for a key that needs no measuring;
/// the value is made in its place from `value` (anything a ResponseValue is
/// made from).
template <class T>
ResponseValue& append_plain(ResponseDict& dict, PlainKey key, T&& value);
/// stored_overhead: string_overhead of a string value, kept since it was
/// made (0 for other kinds).
[[nodiscard]] std::size_t stored_overhead(const ResponseValue& value) noexcept;
/// stored_keys_overhead: the sum of string_overhead over a map's keys, or
/// npos when one of them is not well-formed UTF-8.
[[nodiscard]] std::size_t stored_keys_overhead(const ResponseDict& dict) noexcept;
/// measured_string: the string value `text`, whose string_overhead the
/// caller already knows to be `overhead`, without scanning it again.
[[nodiscard]] ResponseValue measured_string(std::string&& text, std::size_t overhead) noexcept;
}  // namespace detail

/// A list of values; lists are plain vectors.
using ResponseList = std::vector<ResponseValue>;

/// The kind of a ResponseValue, in the order of the variant's alternatives.
enum class Kind : std::uint8_t { null, boolean, integer, number, string, list, dict };

/// ResponseDict: a map from string keys to values that keeps the order in
/// which keys were first inserted. Replacing a value keeps the key's place;
/// erasing a key and inserting it again puts it last. Lookups are linear:
/// responses have few keys, and a flat vector is the cheapest layout for them.
class ResponseDict {
 public:
  /// One key and its value; `first` and `second` as in std::map, so
  /// `for (const auto& [key, value] : dict)` reads naturally.
  struct Entry;
  using value_type = Entry;
  using const_iterator = std::vector<Entry>::const_iterator;

  // Special members are defined after Entry, which must be complete first.
  ResponseDict();
  ~ResponseDict();
  ResponseDict(const ResponseDict& other);
  ResponseDict(ResponseDict&& other) noexcept;
  ResponseDict& operator=(const ResponseDict& other);
  ResponseDict& operator=(ResponseDict&& other) noexcept;
  /// Builds from key/value pairs in order; a repeated key replaces the value
  /// in the place of its first occurrence.
  ResponseDict(std::initializer_list<value_type> entries);

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept;
  void reserve(std::size_t n);

  [[nodiscard]] const_iterator begin() const noexcept;
  [[nodiscard]] const_iterator end() const noexcept;

  /// contains: whether `key` is present.
  [[nodiscard]] bool contains(std::string_view key) const noexcept;
  /// find: the value under `key`, or nullptr when absent.
  [[nodiscard]] const ResponseValue* find(std::string_view key) const noexcept;
  [[nodiscard]] ResponseValue* find(std::string_view key) noexcept;
  /// at: the value under `key`; throws std::out_of_range when absent.
  [[nodiscard]] const ResponseValue& at(std::string_view key) const;
  [[nodiscard]] ResponseValue& at(std::string_view key);
  /// get: the value under `key`, or a null value when absent.
  [[nodiscard]] const ResponseValue& get(std::string_view key) const noexcept;
  /// value_at: the value of entry `i` (< size()) in insertion order.
  [[nodiscard]] const ResponseValue& value_at(std::size_t i) const noexcept;
  [[nodiscard]] ResponseValue& value_at(std::size_t i) noexcept;

  /// insert_or_assign: sets `key` to `value`; a new key goes last, an
  /// existing one keeps its place. Returns the stored value.
  ResponseValue& insert_or_assign(std::string_view key, ResponseValue value);
  /// append: adds a key known to be absent, without looking for it. Builders
  /// use it for their fixed keys; appending a present key is a caller bug.
  ResponseValue& append(std::string key, ResponseValue value);
  /// operator[]: the value under `key`, inserting null last when absent.
  ResponseValue& operator[](std::string_view key);
  /// erase: removes `key`; returns whether it was present.
  bool erase(std::string_view key);
  /// erase_if: removes every entry for which `pred(entry)` holds, keeping the
  /// order of the others; returns how many were removed.
  template <class Pred>
  std::size_t erase_if(Pred pred);

  friend bool operator==(const ResponseDict& a, const ResponseDict& b);
  friend std::size_t detail::stored_keys_overhead(const ResponseDict& dict) noexcept;

 private:
  template <class T>
  friend ResponseValue& detail::append_plain(ResponseDict& dict, detail::PlainKey key, T&& value);

  // push: appends an entry and counts its key.
  ResponseValue& push(std::string&& key, ResponseValue&& value);
  void add_key_overhead(std::size_t overhead) noexcept;
  void count_key(std::string_view key) noexcept;
  void recount_keys() noexcept;

  std::vector<value_type> entries_;
  std::size_t keys_overhead_ = 0;  // string_overhead summed over the keys, or npos
};

namespace detail {
template <class T>
inline constexpr bool is_integer_v =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> && !std::is_same_v<T, char8_t> &&
    !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t> && !std::is_same_v<T, wchar_t>;
}  // namespace detail

/// ResponseValue: one node of a response tree. Construction picks the kind
/// from the C++ type: string literals, std::string and std::string_view are
/// strings; integral types are integers; floating-point types are doubles;
/// bool is a boolean; nullptr and std::nullopt are null; an optional is its
/// value or null.
class ResponseValue {
 public:
  using Storage = std::variant<std::nullptr_t, bool, std::int64_t, double, std::string, ResponseList, ResponseDict>;

  ResponseValue() noexcept : v_(nullptr) {}
  ResponseValue(std::nullptr_t) noexcept : v_(nullptr) {}
  ResponseValue(std::nullopt_t) noexcept : v_(nullptr) {}

  // Only a real bool is a boolean: pointers and other types never convert.
  template <class T, std::enable_if_t<std::is_same_v<T, bool>, int> = 0>
  ResponseValue(T b) noexcept : v_(std::in_place_type<bool>, b) {}

  /// Integers: an unsigned value above INT64_MAX throws std::overflow_error
  /// rather than wrapping around to a negative number.
  template <class T, std::enable_if_t<detail::is_integer_v<T>, int> = 0>
  ResponseValue(T i) : v_(std::in_place_type<std::int64_t>, checked_integer(i)) {}

  template <class T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
  ResponseValue(T d) noexcept : v_(std::in_place_type<double>, static_cast<double>(d)) {}

  // A copied string is measured in its source: reading the copy right after
  // writing it would stall on loads that span the copy's stores.
  ResponseValue(const char* s) : ResponseValue(std::string_view(s)) {}
  ResponseValue(std::string_view s) : v_(std::in_place_type<std::string>, s), overhead_(detail::string_overhead(s)) {}
  ResponseValue(const std::string& s) : ResponseValue(std::string_view(s)) {}
  ResponseValue(std::string&& s) noexcept : v_(std::in_place_type<std::string>, std::move(s)) { measure(); }
  ResponseValue(ResponseList l) noexcept : v_(std::in_place_type<ResponseList>, std::move(l)) {}
  ResponseValue(ResponseDict d) noexcept : v_(std::in_place_type<ResponseDict>, std::move(d)) {}

  template <class T>
  ResponseValue(const std::optional<T>& o) : ResponseValue(o ? ResponseValue(*o) : ResponseValue()) {}
  template <class T>
  ResponseValue(std::optional<T>&& o) : ResponseValue(o ? ResponseValue(std::move(*o)) : ResponseValue()) {}

  ResponseValue(const ResponseValue&) = default;
  ResponseValue& operator=(const ResponseValue&) = default;
  ResponseValue(ResponseValue&& other) noexcept : v_(std::move(other.v_)), overhead_(other.overhead_) {
    other.moved_from();
  }
  ResponseValue& operator=(ResponseValue&& other) noexcept {
    v_ = std::move(other.v_);
    overhead_ = other.overhead_;
    other.moved_from();
    return *this;
  }
  ~ResponseValue() = default;

  [[nodiscard]] Kind kind() const noexcept { return static_cast<Kind>(v_.index()); }
  [[nodiscard]] bool is_null() const noexcept { return kind() == Kind::null; }
  [[nodiscard]] bool is_bool() const noexcept { return kind() == Kind::boolean; }
  [[nodiscard]] bool is_integer() const noexcept { return kind() == Kind::integer; }
  [[nodiscard]] bool is_number() const noexcept { return kind() == Kind::number; }
  [[nodiscard]] bool is_string() const noexcept { return kind() == Kind::string; }
  [[nodiscard]] bool is_list() const noexcept { return kind() == Kind::list; }
  [[nodiscard]] bool is_dict() const noexcept { return kind() == Kind::dict; }

  // Typed access; each throws std::bad_variant_access on the wrong kind.
  [[nodiscard]] bool as_bool() const { return std::get<bool>(v_); }
  [[nodiscard]] std::int64_t as_integer() const { return std::get<std::int64_t>(v_); }
  [[nodiscard]] double as_number() const { return std::get<double>(v_); }
  [[nodiscard]] const std::string& as_string() const& { return std::get<std::string>(v_); }
  /// as_string on an rvalue moves the string out: std::move(v).as_string().
  [[nodiscard]] std::string as_string() && {
    std::string s = std::move(std::get<std::string>(v_));
    moved_from();
    return s;
  }
  [[nodiscard]] const ResponseList& as_list() const { return std::get<ResponseList>(v_); }
  [[nodiscard]] ResponseList& as_list() { return std::get<ResponseList>(v_); }
  [[nodiscard]] const ResponseDict& as_dict() const { return std::get<ResponseDict>(v_); }
  [[nodiscard]] ResponseDict& as_dict() { return std::get<ResponseDict>(v_); }

  /// storage: the underlying variant, for std::visit.
  [[nodiscard]] const Storage& storage() const noexcept { return v_; }

  /// Equal when kinds and values are equal (doubles compare as IEEE numbers,
  /// so NaN is unequal to itself; 3 and 3.0 are different kinds).
  friend bool operator==(const ResponseValue& a, const ResponseValue& b) { return a.v_ == b.v_; }

 private:
  friend std::size_t detail::stored_overhead(const ResponseValue& value) noexcept;
  friend ResponseValue detail::measured_string(std::string&& text, std::size_t overhead) noexcept;

  // measure: records the string's overhead; strings never change in place.
  void measure() noexcept { overhead_ = detail::string_overhead(*std::get_if<std::string>(&v_)); }
  // moved_from: a moved-from string is valid but unspecified; measure what
  // is left (nothing, in practice).
  void moved_from() noexcept {
    if (const auto* s = std::get_if<std::string>(&v_)) overhead_ = s->empty() ? 2 : detail::string_overhead(*s);
  }

  template <class T>
  static std::int64_t checked_integer(T i) {
    if constexpr (std::is_unsigned_v<T> && sizeof(T) >= sizeof(std::int64_t)) {
      if (i > static_cast<T>(std::numeric_limits<std::int64_t>::max())) {
        throw std::overflow_error("ResponseValue: unsigned value does not fit a 64-bit signed integer");
      }
    }
    return static_cast<std::int64_t>(i);
  }

  Storage v_;
  std::size_t overhead_ = 0;  // of a string: string_overhead, kept from when it was made
};

/// is_empty: the emptiness test that builders use for "non-empty": null,
/// false, 0, 0.0, and an empty string, list or map are empty.
[[nodiscard]] bool is_empty(const ResponseValue& value) noexcept;

// ResponseDict members that need a complete ResponseValue. The entry type is
// defined only here: std::pair of an incomplete type is not portable.

struct ResponseDict::Entry {
  Entry() = default;
  Entry(std::string&& key, ResponseValue&& value) noexcept : first(std::move(key)), second(std::move(value)) {}
  Entry(const std::string& key, const ResponseValue& value) : first(key), second(value) {}
  /// Makes the value in its place from `value`.
  template <class T>
  Entry(std::in_place_t /*unused*/, std::string_view key, T&& value) : first(key), second(std::forward<T>(value)) {}

  std::string first;
  ResponseValue second;
  friend bool operator==(const Entry&, const Entry&) = default;
};

inline ResponseDict::ResponseDict() = default;
inline ResponseDict::~ResponseDict() = default;
inline ResponseDict::ResponseDict(const ResponseDict& other) = default;
inline ResponseDict::ResponseDict(ResponseDict&& other) noexcept
    : entries_(std::move(other.entries_)), keys_overhead_(std::exchange(other.keys_overhead_, 0)) {
  other.entries_.clear();
}
inline ResponseDict& ResponseDict::operator=(const ResponseDict& other) = default;
inline ResponseDict& ResponseDict::operator=(ResponseDict&& other) noexcept {
  entries_ = std::move(other.entries_);
  keys_overhead_ = std::exchange(other.keys_overhead_, 0);
  other.entries_.clear();
  return *this;
}

inline std::size_t ResponseDict::size() const noexcept { return entries_.size(); }
inline bool ResponseDict::empty() const noexcept { return entries_.empty(); }
inline void ResponseDict::reserve(std::size_t n) { entries_.reserve(n); }
inline ResponseDict::const_iterator ResponseDict::begin() const noexcept { return entries_.begin(); }
inline ResponseDict::const_iterator ResponseDict::end() const noexcept { return entries_.end(); }
inline const ResponseValue& ResponseDict::value_at(std::size_t i) const noexcept { return entries_[i].second; }
inline ResponseValue& ResponseDict::value_at(std::size_t i) noexcept { return entries_[i].second; }

template <class Pred>
std::size_t ResponseDict::erase_if(Pred pred) {
  const std::size_t removed = std::erase_if(entries_, [&](const Entry& e) { return pred(e); });
  if (removed > 0) recount_keys();
  return removed;
}

inline ResponseDict::ResponseDict(std::initializer_list<value_type> entries) {
  entries_.reserve(entries.size());
  for (const auto& [key, value] : entries) insert_or_assign(key, value);
}

inline bool operator==(const ResponseDict& a, const ResponseDict& b) { return a.entries_ == b.entries_; }

inline std::size_t detail::stored_overhead(const ResponseValue& value) noexcept { return value.overhead_; }
inline ResponseValue detail::measured_string(std::string&& text, std::size_t overhead) noexcept {
  ResponseValue value;
  value.v_.emplace<std::string>(std::move(text));
  value.overhead_ = overhead;
  return value;
}
inline std::size_t detail::stored_keys_overhead(const ResponseDict& dict) noexcept { return dict.keys_overhead_; }
template <class T>
ResponseValue& detail::append_plain(ResponseDict& dict, PlainKey key, T&& value) {
  ResponseDict::Entry& entry = dict.entries_.emplace_back(std::in_place, key.text, std::forward<T>(value));
  dict.add_key_overhead(2);
  return entry.second;
}

/// Symbol: one code symbol from storage. `fqn` is always known; every other
/// attribute is empty when unknown.
struct Symbol {
  std::string fqn;
  std::optional<std::string> name{};
  std::optional<std::string> kind{};
  std::optional<std::int64_t> start_line{};
  std::optional<std::int64_t> end_line{};
  std::optional<std::string> signature{};
  std::optional<std::string> docstring{};
  std::optional<bool> is_export{};
  std::optional<bool> docstring_truncated{};
};

/// Reference: one use of a symbol at a place. `caller_symbol` is a map of
/// which only the keys "fqn" and "kind" are read.
struct Reference {
  std::optional<std::string> file_path{};
  std::optional<std::int64_t> line{};
  std::optional<ResponseDict> caller_symbol{};
  std::optional<std::string> usage_type{};
};

/// ComponentInfo: one architecture component with its counts.
struct ComponentInfo {
  std::optional<std::string> name{};
  std::optional<std::string> layer{};
  std::optional<std::string> path_pattern{};
  std::optional<std::int64_t> file_count{};
  std::optional<std::int64_t> symbol_count{};
};

}  // namespace kestrune::mcp_responses
