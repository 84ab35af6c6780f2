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
// A value takes 16 bytes: scalars and strings of up to 14 bytes are held in
// place, longer strings, lists and maps on the heap (an empty list or map
// allocates nothing). Strings never change in place; replace a value to
// change it. Each string and key keeps the bytes that encoding adds to it
// from when it was made, so measuring a response reads no text.
//
// The storage records (Symbol, Reference, ComponentInfo) are plain aggregates
// whose unknown attributes are empty optionals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
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
struct ValueAccess;  // the library's own access to what values keep
}  // namespace detail

/// A list of values; lists are plain vectors.
using ResponseList = std::vector<ResponseValue>;

/// The kind of a ResponseValue. `double_` is a floating-point number (a
/// double); `integer` a 64-bit signed integer.
enum class Kind : std::uint8_t { null, boolean, integer, double_, string, list, dict };

/// Required<T>: a member of an options struct that the caller must set. A
/// designated initializer that leaves it out does not compile, since a
/// Required has no default:
///
///   build_wiki_status_response({.built = true, .branch = "main"});  // ok
///   build_wiki_status_response({.built = true});  // error: branch not set
///
/// It converts from anything its T is made from; * and -> reach the value.
template <class T>
class Required {
 public:
  template <class U, std::enable_if_t<
                         !std::is_same_v<std::remove_cvref_t<U>, Required> && std::is_constructible_v<T, U&&>, int> = 0>
  Required(U&& value) : value_(std::forward<U>(value)) {}  // NOLINT(google-explicit-constructor)

  [[nodiscard]] T& operator*() & noexcept { return value_; }
  [[nodiscard]] const T& operator*() const& noexcept { return value_; }
  [[nodiscard]] T&& operator*() && noexcept { return std::move(value_); }
  [[nodiscard]] T* operator->() noexcept { return &value_; }
  [[nodiscard]] const T* operator->() const noexcept { return &value_; }

 private:
  T value_;
};

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
  /// clear: removes every entry; the room for them is kept.
  void clear() noexcept;

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

 private:
  friend struct detail::ValueAccess;

  // push: appends an entry and counts its key.
  ResponseValue& push(std::string&& key, ResponseValue&& value);
  void add_key_overhead(std::size_t overhead) noexcept;
  void count_key(std::string_view key) noexcept;
  void recount_keys() noexcept;

  std::vector<value_type> entries_;
  std::size_t keys_overhead_ = 0;  // what encoding adds to the keys, summed; npos when one is ill-formed
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
/// value or null. Typed access (as_bool, as_string, ...) throws
/// std::bad_variant_access on the wrong kind.
class ResponseValue {
 public:
  ResponseValue() noexcept { tag_ = static_cast<std::uint8_t>(Kind::null); }
  ResponseValue(std::nullptr_t) noexcept : ResponseValue() {}
  ResponseValue(std::nullopt_t) noexcept : ResponseValue() {}

  // Only a real bool is a boolean: pointers and other types never convert.
  template <class T, std::enable_if_t<std::is_same_v<T, bool>, int> = 0>
  ResponseValue(T b) noexcept {
    set_scalar(Kind::boolean, b);
  }

  /// Integers: an unsigned value above INT64_MAX throws std::overflow_error
  /// rather than wrapping around to a negative number (as the nlohmann/json
  /// bridge does for the same value).
  template <class T, std::enable_if_t<detail::is_integer_v<T>, int> = 0>
  ResponseValue(T i) {
    set_scalar(Kind::integer, checked_integer(i));
  }

  template <class T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
  ResponseValue(T d) noexcept {
    set_scalar(Kind::double_, static_cast<double>(d));
  }

  ResponseValue(const char* s) : ResponseValue(std::string_view(s)) {}
  ResponseValue(std::string_view s);
  ResponseValue(const std::string& s) : ResponseValue(std::string_view(s)) {}
  ResponseValue(std::string&& s) : ResponseValue(std::string_view(s)) {}
  /// Lists and maps are moved in; their elements are not copied.
  ResponseValue(ResponseList l);
  ResponseValue(ResponseDict d);

  template <class T>
  ResponseValue(const std::optional<T>& o) : ResponseValue(o ? ResponseValue(*o) : ResponseValue()) {}
  template <class T>
  ResponseValue(std::optional<T>&& o) : ResponseValue(o ? ResponseValue(std::move(*o)) : ResponseValue()) {}

  ResponseValue(const ResponseValue& other) {
    if (other.owns_heap()) {
      copy_heap(other);
    } else {
      copy_bits(other);
    }
  }
  ResponseValue(ResponseValue&& other) noexcept {
    copy_bits(other);
    other.leave_empty();
  }
  ResponseValue& operator=(const ResponseValue& other) {
    if (this != &other) *this = ResponseValue(other);
    return *this;
  }
  ResponseValue& operator=(ResponseValue&& other) noexcept {
    if (this != &other) {
      if (owns_heap()) release_heap();
      copy_bits(other);
      other.leave_empty();
    }
    return *this;
  }
  ~ResponseValue() {
    if (owns_heap()) release_heap();
  }

  [[nodiscard]] Kind kind() const noexcept { return static_cast<Kind>(tag_ & kKindMask); }
  [[nodiscard]] bool is_null() const noexcept { return kind() == Kind::null; }
  [[nodiscard]] bool is_bool() const noexcept { return kind() == Kind::boolean; }
  [[nodiscard]] bool is_integer() const noexcept { return kind() == Kind::integer; }
  [[nodiscard]] bool is_double() const noexcept { return kind() == Kind::double_; }
  [[nodiscard]] bool is_string() const noexcept { return kind() == Kind::string; }
  [[nodiscard]] bool is_list() const noexcept { return kind() == Kind::list; }
  [[nodiscard]] bool is_dict() const noexcept { return kind() == Kind::dict; }

  [[nodiscard]] bool as_bool() const { return scalar<bool>(Kind::boolean); }
  [[nodiscard]] std::int64_t as_integer() const { return scalar<std::int64_t>(Kind::integer); }
  [[nodiscard]] double as_double() const { return scalar<double>(Kind::double_); }
  /// as_string: the text, valid while this value lives and is not assigned.
  [[nodiscard]] std::string_view as_string() const& {
    expect(Kind::string);
    return text();
  }
  /// as_string on an rvalue gives an owned copy, so a temporary never
  /// leaves a dangling view.
  [[nodiscard]] std::string as_string() && { return std::string(as_string()); }
  [[nodiscard]] const ResponseList& as_list() const;
  /// as_list on a mutable value may be filled in place.
  [[nodiscard]] ResponseList& as_list();
  [[nodiscard]] const ResponseDict& as_dict() const;
  [[nodiscard]] ResponseDict& as_dict();

  /// Equal when kinds and values are equal (doubles compare as IEEE numbers,
  /// so NaN is unequal to itself; 3 and 3.0 are different kinds).
  friend bool operator==(const ResponseValue& a, const ResponseValue& b);

 private:
  friend struct detail::ValueAccess;

  // The representation: 14 bytes of payload, then two bytes that say what
  // the payload is. Every payload is read and written through memcpy.
  //   null, boolean, integer, double: the scalar in the first bytes.
  //   string of up to 14 bytes: its bytes; tag_ holds its length and aux_
  //     the bytes encoding adds to it (kAuxIllFormed: not well-formed).
  //   longer string: a pointer to a StringBlock, marked by kHeapString,
  //     then its encoded size (bytes and overhead) in 48 bits, so that
  //     measuring it reads no memory beyond the value (kSizeIllFormed: not
  //     well-formed).
  //   list, map: a pointer to the ResponseList or ResponseDict this value
  //     owns, or null while it is empty.
  static constexpr std::size_t kInlineMax = 14;
  static constexpr std::uint8_t kKindMask = 0x07;
  static constexpr std::uint8_t kHeapString = 0x08;
  static constexpr unsigned kLengthShift = 4;
  static constexpr std::uint8_t kAuxIllFormed = 0xFF;
  static constexpr std::size_t kSizeBytes = 6;
  static constexpr std::uint64_t kSizeIllFormed = (std::uint64_t{1} << 48) - 1;

  // The heap form of a long string: this header, then its bytes.
  struct StringBlock {
    std::size_t size;
    std::size_t overhead;  // the bytes encoding adds; npos when not well-formed
  };

  template <class T>
  void set_scalar(Kind kind, T value) noexcept {
    std::memcpy(bytes_, &value, sizeof value);
    tag_ = static_cast<std::uint8_t>(kind);
  }
  template <class T>
  [[nodiscard]] T scalar(Kind kind) const {
    expect(kind);
    T value;
    std::memcpy(&value, bytes_, sizeof value);
    return value;
  }
  [[nodiscard]] void* pointer() const noexcept {
    void* p = nullptr;
    std::memcpy(&p, bytes_, sizeof p);
    return p;
  }
  void set_pointer(Kind kind, void* p) noexcept {
    std::memcpy(bytes_, &p, sizeof p);
    tag_ = static_cast<std::uint8_t>(kind);
  }
  [[nodiscard]] bool heap_string() const noexcept { return (tag_ & kHeapString) != 0; }
  // Whether this value owns memory: a long string, or a list or map with entries.
  [[nodiscard]] bool owns_heap() const noexcept {
    return heap_string() || ((kind() == Kind::list || kind() == Kind::dict) && pointer() != nullptr);
  }
  [[nodiscard]] std::string_view text() const noexcept {
    if (!heap_string()) return {bytes_, static_cast<std::size_t>(tag_ >> kLengthShift)};
    const auto* block = static_cast<const StringBlock*>(pointer());
    return {reinterpret_cast<const char*>(block + 1), block->size};
  }
  void expect(Kind kind) const {
    if (this->kind() != kind) throw std::bad_variant_access();
  }
  void copy_bits(const ResponseValue& other) noexcept {
    std::memcpy(bytes_, other.bytes_, sizeof bytes_);
    aux_ = other.aux_;
    tag_ = other.tag_;
  }
  // Sets the string `s`, or `head` followed by `tail`, of which encoding
  // adds `overhead` bytes.
  void set_string(std::string_view s, std::size_t overhead);
  void set_string(std::string_view head, std::string_view tail, std::size_t overhead);
  void copy_heap(const ResponseValue& other);
  void release_heap() noexcept;
  // After a move: a string, list or map is left empty; a scalar keeps its value.
  void leave_empty() noexcept {
    if (kind() == Kind::string) {
      tag_ = static_cast<std::uint8_t>(Kind::string);
      aux_ = 2;
    } else if (kind() == Kind::list || kind() == Kind::dict) {
      set_pointer(kind(), nullptr);
    }
  }

  template <class T>
  static std::int64_t checked_integer(T i) {
    if constexpr (std::is_unsigned_v<T> && sizeof(T) >= sizeof(std::int64_t)) {
      if (i > static_cast<T>(std::numeric_limits<std::int64_t>::max())) {
        throw std::overflow_error("ResponseValue: " + std::to_string(i) + " does not fit a 64-bit signed integer");
      }
    }
    return static_cast<std::int64_t>(i);
  }

  alignas(8) char bytes_[kInlineMax] = {};
  std::uint8_t aux_ = 0;
  std::uint8_t tag_;
};
static_assert(sizeof(ResponseValue) == 16);

/// is_falsy: whether `value` is null, false, 0, 0.0, or an empty string,
/// list or map: the values that builders treat as not given where a response
/// keeps only what is "non-empty" (Python calls them false).
[[nodiscard]] bool is_falsy(const ResponseValue& value) noexcept;

/// ResponseRef: a read-only view of a response or any part of it: a
/// ResponseValue, a ResponseDict or a ResponseList. The writers take it, so
/// that a map or a list is written where it stands instead of being copied
/// into a value first. Like std::string_view it does not own what it views;
/// as a function argument that is always alive.
class ResponseRef {
 public:
  ResponseRef(const ResponseValue& value) noexcept
      : form_(Form::value), p_(&value) {}  // NOLINT(google-explicit-constructor)
  ResponseRef(const ResponseDict& dict) noexcept
      : form_(Form::dict), p_(&dict) {}  // NOLINT(google-explicit-constructor)
  ResponseRef(const ResponseList& list) noexcept
      : form_(Form::list), p_(&list) {}  // NOLINT(google-explicit-constructor)

  /// visit: `f` called with the viewed object as what it is: a const
  /// ResponseValue&, ResponseDict& or ResponseList&.
  template <class F>
  decltype(auto) visit(F&& f) const {
    switch (form_) {
      case Form::dict:
        return std::forward<F>(f)(*static_cast<const ResponseDict*>(p_));
      case Form::list:
        return std::forward<F>(f)(*static_cast<const ResponseList*>(p_));
      case Form::value:
        break;
    }
    return std::forward<F>(f)(*static_cast<const ResponseValue*>(p_));
  }

  /// is_dict: whether the view is of a map, in whichever form.
  [[nodiscard]] bool is_dict() const noexcept {
    return form_ == Form::dict || (form_ == Form::value && static_cast<const ResponseValue*>(p_)->is_dict());
  }

 private:
  enum class Form : std::uint8_t { value, dict, list };
  Form form_;
  const void* p_;
};

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
inline void ResponseDict::clear() noexcept {
  entries_.clear();
  keys_overhead_ = 0;
}
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

// ResponseValue members that need a complete ResponseDict.

// A list or map is owned through the pointer in the representation, made
// here and deleted by release_heap().
inline ResponseValue::ResponseValue(ResponseList l) {
  set_pointer(Kind::list, l.empty() ? nullptr : std::make_unique<ResponseList>(std::move(l)).release());
}

inline ResponseValue::ResponseValue(ResponseDict d) {
  set_pointer(Kind::dict, d.empty() ? nullptr : std::make_unique<ResponseDict>(std::move(d)).release());
}

inline const ResponseList& ResponseValue::as_list() const {
  expect(Kind::list);
  static const ResponseList kEmpty;
  const void* p = pointer();
  return p != nullptr ? *static_cast<const ResponseList*>(p) : kEmpty;
}

inline ResponseList& ResponseValue::as_list() {
  expect(Kind::list);
  if (pointer() == nullptr) set_pointer(Kind::list, std::make_unique<ResponseList>().release());
  return *static_cast<ResponseList*>(pointer());
}

inline const ResponseDict& ResponseValue::as_dict() const {
  expect(Kind::dict);
  static const ResponseDict kEmpty;
  const void* p = pointer();
  return p != nullptr ? *static_cast<const ResponseDict*>(p) : kEmpty;
}

inline ResponseDict& ResponseValue::as_dict() {
  expect(Kind::dict);
  if (pointer() == nullptr) set_pointer(Kind::dict, std::make_unique<ResponseDict>().release());
  return *static_cast<ResponseDict*>(pointer());
}

/// Symbol: one code symbol from storage. `fqn` is always known; every other
/// attribute is empty when unknown.
struct Symbol {
  std::string fqn;
  std::optional<std::string> name = std::nullopt;
  std::optional<std::string> kind = std::nullopt;
  std::optional<std::int64_t> start_line = std::nullopt;
  std::optional<std::int64_t> end_line = std::nullopt;
  std::optional<std::string> signature = std::nullopt;
  std::optional<std::string> docstring = std::nullopt;
  std::optional<bool> is_export = std::nullopt;
  std::optional<bool> docstring_truncated = std::nullopt;
};

/// Reference: one use of a symbol at a place. `caller_symbol` is a map of
/// which only the keys "fqn" and "kind" are read.
struct Reference {
  std::optional<std::string> file_path = std::nullopt;
  std::optional<std::int64_t> line = std::nullopt;
  std::optional<ResponseDict> caller_symbol = std::nullopt;
  std::optional<std::string> usage_type = std::nullopt;
};

/// ComponentInfo: one architecture component with its counts.
struct ComponentInfo {
  std::optional<std::string> name = std::nullopt;
  std::optional<std::string> layer = std::nullopt;
  std::optional<std::string> path_pattern = std::nullopt;
  std::optional<std::int64_t> file_count = std::nullopt;
  std::optional<std::int64_t> symbol_count = std::nullopt;
};

}  // namespace kestrune::mcp_responses
