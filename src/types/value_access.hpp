// What values keep for the encoder, reachable only from inside the library:
// the bytes that encoding adds to each string and key, kept from when it was
// made, and the builders' way to append keys known to need no escape.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

/// kIllFormed: the kept size of text that is not well-formed UTF-8; any sum
/// with it is kIllFormed too.
inline constexpr std::size_t kIllFormed = std::string_view::npos;

/// string_overhead: the bytes that the compact text adds to a string's own:
/// its two quotes and the extra bytes of its escapes; kIllFormed when `text`
/// is not well-formed UTF-8.
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

struct ValueAccess {
  /// overhead: string_overhead of a string value, kept since it was made
  /// (0 for other kinds).
  [[nodiscard]] static std::size_t overhead(const ResponseValue& v) noexcept {
    if (!v.is_string()) return 0;
    if (v.heap_string()) return static_cast<const ResponseValue::StringBlock*>(v.pointer())->overhead;
    return v.aux_ == ResponseValue::kAuxIllFormed ? kIllFormed : v.aux_;
  }
  /// scalar: the boolean, integer or double of a value of that kind, without
  /// checking its kind.
  template <class T>
  [[nodiscard]] static T scalar(const ResponseValue& v) noexcept {
    T value;
    std::memcpy(&value, v.bytes_, sizeof value);
    return value;
  }
  /// encoded_size: the bytes of a string value's compact text, from what the
  /// value keeps: its bytes, quotes and escapes; kIllFormed when it is not
  /// well-formed. The kind is not checked.
  [[nodiscard]] static std::size_t encoded_size(const ResponseValue& v) noexcept {
    if (!v.heap_string()) {
      return v.aux_ == ResponseValue::kAuxIllFormed ? kIllFormed : (v.tag_ >> ResponseValue::kLengthShift) + v.aux_;
    }
    // One load of the eight bytes that end with the size: a six-byte copy
    // would go through memory and stall.
    std::uint64_t word = 0;
    std::memcpy(&word, v.bytes_ + ResponseValue::kInlineMax - sizeof word, sizeof word);
    const std::uint64_t size = word >> (8 * (sizeof word - ResponseValue::kSizeBytes));
    return size == ResponseValue::kSizeIllFormed ? kIllFormed : static_cast<std::size_t>(size);
  }
  /// text: the bytes of a string value, without checking its kind.
  [[nodiscard]] static std::string_view text(const ResponseValue& v) noexcept { return v.text(); }
  /// list, dict: the list or map a value of that kind holds, without checking
  /// its kind; nullptr while it is empty.
  [[nodiscard]] static const ResponseList* list(const ResponseValue& v) noexcept {
    return static_cast<const ResponseList*>(v.pointer());
  }
  [[nodiscard]] static const ResponseDict* dict(const ResponseValue& v) noexcept {
    return static_cast<const ResponseDict*>(v.pointer());
  }
  /// measured_string: the string value `head` followed by `tail`, whose
  /// string_overhead the caller already knows to be `overhead`, made in one
  /// allocation without scanning it again.
  [[nodiscard]] static ResponseValue measured_string(std::string_view head, std::string_view tail,
                                                     std::size_t overhead) {
    ResponseValue value;
    value.set_string(head, tail, overhead);
    return value;
  }
  /// keys_overhead: string_overhead summed over a map's keys, or kIllFormed.
  [[nodiscard]] static std::size_t keys_overhead(const ResponseDict& dict) noexcept { return dict.keys_overhead_; }
  /// cut_in_place: makes the string value `v` its first `kept` bytes followed
  /// by `tail`, whose compact text adds `overhead` bytes to it, in the memory
  /// it has: only a string held on the heap, and only when kept +
  /// tail.size() is at most its size. Returns whether it did.
  static bool cut_in_place(ResponseValue& v, std::size_t kept, std::string_view tail, std::size_t overhead) noexcept {
    if (!v.heap_string()) return false;
    auto* block = static_cast<ResponseValue::StringBlock*>(v.pointer());
    if (kept + tail.size() > block->size) return false;
    std::copy(tail.begin(), tail.end(), reinterpret_cast<char*>(block + 1) + kept);
    block->size = kept + tail.size();
    block->overhead = overhead;
    const std::uint64_t encoded = overhead == kIllFormed ? ResponseValue::kSizeIllFormed : block->size + overhead;
    std::memcpy(v.bytes_ + ResponseValue::kInlineMax - ResponseValue::kSizeBytes, &encoded, ResponseValue::kSizeBytes);
    return true;
  }
  /// truncate: keeps the first `n` (at most size()) entries of `dict`.
  static void truncate(ResponseDict& dict, std::size_t n) {
    const auto cut = dict.entries_.begin() + static_cast<std::ptrdiff_t>(n);
    std::size_t removed = 0;
    for (auto it = cut; it != dict.entries_.end() && removed != kIllFormed; ++it) {
      const std::size_t overhead = string_overhead(it->first);
      removed = overhead == kIllFormed ? kIllFormed : removed + overhead;
    }
    dict.entries_.erase(cut, dict.entries_.end());
    if (removed == kIllFormed || dict.keys_overhead_ == kIllFormed) {
      dict.recount_keys();
    } else {
      dict.keys_overhead_ -= removed;
    }
  }
  /// append_plain: dict.append(key, value) for a key that needs no measuring;
  /// the value is made in its place from `value`.
  template <class T>
  static ResponseValue& append_plain(ResponseDict& dict, PlainKey key, T&& value) {
    ResponseDict::Entry& entry = dict.entries_.emplace_back(std::in_place, key.text, std::forward<T>(value));
    dict.add_key_overhead(2);
    return entry.second;
  }
};

template <class T>
ResponseValue& append_plain(ResponseDict& dict, PlainKey key, T&& value) {
  return ValueAccess::append_plain(dict, key, std::forward<T>(value));
}

}  // namespace kestrune::mcp_responses::detail
