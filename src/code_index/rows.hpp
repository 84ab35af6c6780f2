// Appending a row's optional fields: an absent value adds no key, which is
// the row without its null fields, built without making and dropping them.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "kestrune/mcp_responses/types.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses::detail {

template <class T>
void append_present(ResponseDict& row, PlainKey key, const std::optional<T>& value) {
  if (value) append_plain(row, key, *value);
}

template <class T>
void append_present(ResponseDict& row, PlainKey key, std::optional<T>&& value) {
  if (value) append_plain(row, key, std::move(*value));
}

}  // namespace kestrune::mcp_responses::detail
