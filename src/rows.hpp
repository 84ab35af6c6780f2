// Appending a row's optional fields: an absent value adds no key, which is
// the row without its null fields, built without making and dropping them.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses::detail {

template <class T>
void append_present(ResponseDict& row, std::string key, const std::optional<T>& value) {
  if (value) row.append(std::move(key), ResponseValue(*value));
}

template <class T>
void append_present(ResponseDict& row, std::string key, std::optional<T>&& value) {
  if (value) row.append(std::move(key), ResponseValue(std::move(*value)));
}

}  // namespace kestrune::mcp_responses::detail
