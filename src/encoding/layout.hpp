// The layout of the compact text in one place: which tokens a response is
// written as, and in which order. Every pass over a response follows it
// through a visitor: the writer and the bound of its buffer (writer.cpp),
// the size and the search for text that cannot be measured
// (encoded_size.cpp). The sizes that builders add up from parts come from
// the same place (list_size, dict_size, member_size).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

/// walk: hands the tokens of `value` to the visitor `v` in writing order,
/// threading `at` (its state: a write position, a running size) through
/// every call, and returns the last state. The visitor answers:
///   v.literal(at, text)            null, true, false
///   v.integer(at, i)  v.real(at, d)
///   v.string(at, value)            a string value
///   v.open(at, c)  v.close(at, c)  '{' '}' '[' ']'
///   v.separator(at, c)             ',' between members or elements, ':' after a key
///   v.key(at, key, plain, index)   a map's key; `plain` when every key of the
///                                  map needs no escape; `index` its position
///   v.enter(at, key or index), v.leave(at)  around a member's or an element's value
///   v.done(at)                     whether to stop (a search that has found)
/// A visitor whose state is a count of bytes (V::counts) is not handed the
/// punctuation mark by mark: the walk adds up each container's members and
/// takes the container's size from list_size and dict_size, which say the
/// same as the marks do. Visitors that do not track where they are derive
/// from Untracked.
template <class V, class At>
At walk(V& v, At at, const ResponseValue& value);
template <class V, class At>
At walk(V& v, At at, const ResponseDict& dict);
template <class V, class At>
At walk(V& v, At at, const ResponseList& list);

/// Untracked: the hooks of a visitor that neither tracks its place nor stops.
struct Untracked {
  static constexpr bool counts = false;
  template <class At, class Where>
  static At enter(At at, const Where& /*where*/) noexcept {
    return at;
  }
  template <class At>
  static At leave(At at) noexcept {
    return at;
  }
  template <class At>
  static constexpr bool done(const At& /*at*/) noexcept {
    return false;
  }
};

/// The literals the walk writes for null and the booleans.
inline constexpr std::string_view kNullText = "null";
inline constexpr std::string_view kTrueText = "true";
inline constexpr std::string_view kFalseText = "false";

// The sizes the walk's tokens add up to, for code that measures a response
// from the sizes of its parts.

/// list_size: a list of `count` elements that take `elements` bytes in all:
/// theirs, the brackets and the commas between them.
[[nodiscard]] constexpr std::size_t list_size(std::size_t elements, std::size_t count) noexcept {
  return elements + 2 + (count > 0 ? count - 1 : 0);
}

/// member_size: one member of a map whose key takes `key` bytes (quotes and
/// escapes included) and whose value takes `value`: the key, ':' and value.
[[nodiscard]] constexpr std::size_t member_size(std::size_t key, std::size_t value) noexcept { return key + 1 + value; }

/// plain_key_size: a key that needs no escape (a PlainKey): its bytes and
/// the two quotes around them.
[[nodiscard]] constexpr std::size_t plain_key_size(PlainKey key) noexcept { return key.text.size() + 2; }

/// dict_size: a map of `count` members that take `members` bytes in all
/// (each as member_size): theirs, the braces and the commas between them.
[[nodiscard]] constexpr std::size_t dict_size(std::size_t members, std::size_t count) noexcept {
  return list_size(members, count);
}

// ---- The walk --------------------------------------------------------------

template <class V, class At>
At walk_scalar_or_container(V& v, At at, const ResponseValue& value);

// A member or element: strings, most of them, without a call.
template <class V, class At>
inline At walk_child(V& v, At at, const ResponseValue& value) {
  return value.kind() == Kind::string ? v.string(at, value) : walk_scalar_or_container(v, at, value);
}

template <class V, class At>
At walk(V& v, At at, const ResponseDict& dict) {
  const bool plain_keys = ValueAccess::keys_overhead(dict) == 2 * dict.size();
  if constexpr (V::counts) {
    std::size_t members = 0;
    std::size_t index = 0;
    for (const auto& [key, value] : dict) {
      members += member_size(v.key(At{0}, key, plain_keys, index++), walk_child(v, At{0}, value));
    }
    return at + dict_size(members, dict.size());
  } else {
    at = v.open(at, '{');
    std::size_t index = 0;
    for (const auto& [key, value] : dict) {
      if (index > 0) at = v.separator(at, ',');
      at = v.key(at, key, plain_keys, index);
      if (v.done(at)) return at;
      at = v.separator(at, ':');
      at = v.enter(at, key);
      at = walk_child(v, at, value);
      if (v.done(at)) return at;
      at = v.leave(at);
      ++index;
    }
    return v.close(at, '}');
  }
}

template <class V, class At>
At walk(V& v, At at, const ResponseList& list) {
  if constexpr (V::counts) {
    std::size_t elements = 0;
    for (const ResponseValue& element : list) elements += walk_child(v, At{0}, element);
    return at + list_size(elements, list.size());
  } else {
    at = v.open(at, '[');
    for (std::size_t i = 0; i < list.size(); ++i) {
      if (i > 0) at = v.separator(at, ',');
      at = v.enter(at, i);
      at = walk_child(v, at, list[i]);
      if (v.done(at)) return at;
      at = v.leave(at);
    }
    return v.close(at, ']');
  }
}

template <class V, class At>
At walk_scalar_or_container(V& v, At at, const ResponseValue& value) {
  switch (value.kind()) {
    case Kind::null:
      return v.literal(at, kNullText);
    case Kind::boolean:
      return v.literal(at, ValueAccess::scalar<bool>(value) ? kTrueText : kFalseText);
    case Kind::integer:
      return v.integer(at, ValueAccess::scalar<std::int64_t>(value));
    case Kind::double_:
      return v.real(at, ValueAccess::scalar<double>(value));
    case Kind::string:
      return v.string(at, value);
    case Kind::list:
      if (const ResponseList* list = ValueAccess::list(value)) return walk(v, at, *list);
      if constexpr (V::counts) {
        return at + list_size(0, 0);
      } else {
        return v.close(v.open(at, '['), ']');
      }
    case Kind::dict:
      if (const ResponseDict* dict = ValueAccess::dict(value)) return walk(v, at, *dict);
      if constexpr (V::counts) {
        return at + dict_size(0, 0);
      } else {
        return v.close(v.open(at, '{'), '}');
      }
  }
  return at;
}

template <class V, class At>
At walk(V& v, At at, const ResponseValue& value) {
  return walk_child(v, at, value);
}

}  // namespace kestrune::mcp_responses::detail
