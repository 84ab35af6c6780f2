#include "args.hpp"

#include <type_traits>

#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::tool {

using mcp_responses::Kind;
using mcp_responses::ResponseDict;
using mcp_responses::ResponseList;
using mcp_responses::ResponseValue;

namespace {

// The value of `v`, which must be of `kind`, moved out.
template <class T>
T expect(std::string_view name, ResponseValue& v, Kind kind, std::string_view expected) {
  if (v.kind() != kind) throw wrong_kind(argument_text(name), expected, v);
  if constexpr (std::is_same_v<T, bool>) {
    return v.as_bool();
  } else if constexpr (std::is_same_v<T, std::int64_t>) {
    return v.as_integer();
  } else if constexpr (std::is_same_v<T, double>) {
    return v.as_double();
  } else if constexpr (std::is_same_v<T, std::string>) {
    return std::string(v.as_string());
  } else if constexpr (std::is_same_v<T, ResponseList>) {
    return std::move(v.as_list());
  } else {
    return std::move(v.as_dict());
  }
}

}  // namespace

std::string argument_text(std::string_view name) { return "argument " + mcp_responses::quote(name); }

std::string_view kind_name(const ResponseValue& v) {
  switch (v.kind()) {
    case Kind::null:
      return "null";
    case Kind::boolean:
      return "a boolean";
    case Kind::integer:
      return "an integer";
    case Kind::double_:
      return "a floating-point number";
    case Kind::string:
      return "a string";
    case Kind::list:
      return "a list";
    case Kind::dict:
      return "an object";
  }
  return "a value";
}

RequestError wrong_kind(std::string_view what, std::string_view expected, const ResponseValue& v) {
  return RequestError(std::string(what) + " must be " + std::string(expected) + ", not " + std::string(kind_name(v)));
}

ResponseValue* Args::lookup(std::string_view name, bool required) {
  read_.emplace(name);
  ResponseValue* v = args_.find(name);
  if (v == nullptr && required) throw RequestError("missing required " + argument_text(name));
  return v;
}

ResponseValue Args::value(std::string_view name, bool required) {
  ResponseValue* v = lookup(name, required);
  return v != nullptr ? std::move(*v) : ResponseValue();
}

std::string Args::string(std::string_view name) {
  return expect<std::string>(name, *lookup(name, true), Kind::string, "a string");
}

std::optional<std::string> Args::nullable_string(std::string_view name) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr || v->is_null()) return std::nullopt;
  return expect<std::string>(name, *v, Kind::string, "a string or null");
}

std::string Args::string_or(std::string_view name, std::string_view fallback) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr) return std::string(fallback);
  return expect<std::string>(name, *v, Kind::string, "a string");
}

std::int64_t Args::integer(std::string_view name) {
  return expect<std::int64_t>(name, *lookup(name, true), Kind::integer, "an integer");
}

std::int64_t Args::integer_or(std::string_view name, std::int64_t fallback) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr) return fallback;
  return expect<std::int64_t>(name, *v, Kind::integer, "an integer");
}

std::optional<std::int64_t> Args::nullable_integer(std::string_view name) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr || v->is_null()) return std::nullopt;
  return expect<std::int64_t>(name, *v, Kind::integer, "an integer or null");
}

double Args::number_or(std::string_view name, double fallback) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr) return fallback;
  if (v->is_integer()) return static_cast<double>(v->as_integer());
  return expect<double>(name, *v, Kind::double_, "a number");
}

bool Args::boolean(std::string_view name) {
  return expect<bool>(name, *lookup(name, true), Kind::boolean, "a boolean");
}

bool Args::boolean_or(std::string_view name, bool fallback) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr) return fallback;
  return expect<bool>(name, *v, Kind::boolean, "a boolean");
}

ResponseList Args::list(std::string_view name) {
  return expect<ResponseList>(name, *lookup(name, true), Kind::list, "a list");
}

std::optional<ResponseList> Args::nullable_list(std::string_view name) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr || v->is_null()) return std::nullopt;
  return expect<ResponseList>(name, *v, Kind::list, "a list or null");
}

ResponseDict Args::dict(std::string_view name) {
  return expect<ResponseDict>(name, *lookup(name, true), Kind::dict, "an object");
}

std::optional<ResponseDict> Args::nullable_dict(std::string_view name) {
  ResponseValue* v = lookup(name, false);
  if (v == nullptr || v->is_null()) return std::nullopt;
  return expect<ResponseDict>(name, *v, Kind::dict, "an object or null");
}

void Args::check_all_read(std::string_view call) const {
  for (const auto& [key, value] : args_) {
    if (!read_.contains(key)) {
      throw RequestError("unknown " + argument_text(key) + " for call " + mcp_responses::quote(call));
    }
  }
}

}  // namespace kestrune::tool
