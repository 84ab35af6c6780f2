// kestrune/mcp_responses/nlohmann.hpp - responses to and from nlohmann/json.
//
// For servers whose MCP layer speaks nlohmann::ordered_json: a response
// becomes a JSON value with its key order and kinds kept, and arguments
// parsed by nlohmann become values that the builders take.
//
//   nlohmann::ordered_json j = build_component(info);   // keys in order
//   ResponseValue args = request["params"]["arguments"].get<ResponseValue>();
//
// Header-only; link kestrune::mcp_responses_nlohmann (or add nlohmann/json
// to the include path yourself). Integers stay integers and doubles stay
// doubles, both ways. nlohmann::json (with sorted keys) is left out on
// purpose: key order is part of every response.
#pragma once

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::mcp_responses {

/// to_ordered_json: `value` as nlohmann::ordered_json, keys in their order.
[[nodiscard]] inline nlohmann::ordered_json to_ordered_json(const ResponseValue& value) {
  switch (value.kind()) {
    case Kind::null:
      return nullptr;
    case Kind::boolean:
      return value.as_bool();
    case Kind::integer:
      return value.as_integer();
    case Kind::double_:
      return value.as_double();
    case Kind::string:
      return std::string(value.as_string());
    case Kind::list: {
      nlohmann::ordered_json list = nlohmann::ordered_json::array();
      for (const ResponseValue& element : value.as_list()) list.push_back(to_ordered_json(element));
      return list;
    }
    case Kind::dict: {
      nlohmann::ordered_json object = nlohmann::ordered_json::object();
      for (const auto& [key, member] : value.as_dict()) object[key] = to_ordered_json(member);
      return object;
    }
  }
  return nullptr;
}

/// from_ordered_json: the ResponseValue of `json`, keys in their order.
/// Throws std::overflow_error for an unsigned integer above INT64_MAX (it is
/// not made a double), as ResponseValue does, and std::invalid_argument for a
/// binary value.
[[nodiscard]] inline ResponseValue from_ordered_json(const nlohmann::ordered_json& json) {
  using Type = nlohmann::ordered_json::value_t;
  switch (json.type()) {
    case Type::null:
      return nullptr;
    case Type::boolean:
      return json.get<bool>();
    case Type::number_integer:
      return json.get<std::int64_t>();
    case Type::number_unsigned: {
      const auto u = json.get<std::uint64_t>();
      if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        throw std::overflow_error("from_ordered_json: " + std::to_string(u) + " does not fit a 64-bit signed integer");
      }
      return static_cast<std::int64_t>(u);
    }
    case Type::number_float:
      return json.get<double>();
    case Type::string:
      return json.get_ref<const std::string&>();
    case Type::array: {
      ResponseList list;
      list.reserve(json.size());
      for (const auto& element : json) list.push_back(from_ordered_json(element));
      return list;
    }
    case Type::object: {
      ResponseDict dict;
      dict.reserve(json.size());
      for (const auto& [key, member] : json.items()) dict.insert_or_assign(key, from_ordered_json(member));
      return dict;
    }
    case Type::binary:
    case Type::discarded:
      break;
  }
  throw std::invalid_argument(std::string("from_ordered_json: a ") + json.type_name() + " value has no response form");
}

// The conversions nlohmann finds by argument-dependent lookup, so that
// `ordered_json j = value;` and `j.get<ResponseValue>()` work.

inline void to_json(nlohmann::ordered_json& json, const ResponseValue& value) { json = to_ordered_json(value); }

inline void to_json(nlohmann::ordered_json& json, const ResponseDict& value) {
  json = nlohmann::ordered_json::object();
  for (const auto& [key, member] : value) json[key] = to_ordered_json(member);
}

inline void from_json(const nlohmann::ordered_json& json, ResponseValue& value) { value = from_ordered_json(json); }

inline void from_json(const nlohmann::ordered_json& json, ResponseDict& value) {
  if (!json.is_object())
    throw std::invalid_argument(std::string("from_json: a map needs an object, not a ") + json.type_name());
  value = std::move(from_ordered_json(json).as_dict());
}

}  // namespace kestrune::mcp_responses
