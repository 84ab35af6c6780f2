// Input schemas and argument checks from one declaration of the params.
#include "tool_args.hpp"

#include <algorithm>

#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::example {

namespace {

std::string_view type_name(Param::Type type) { return type == Param::Type::string ? "string" : "integer"; }

std::string_view kind_name(const mr::ResponseValue& v) {
  switch (v.kind()) {
    case mr::Kind::null:
      return "null";
    case mr::Kind::boolean:
      return "a boolean";
    case mr::Kind::integer:
      return "an integer";
    case mr::Kind::double_:
      return "a number with a fraction";
    case mr::Kind::string:
      return "a string";
    case mr::Kind::list:
      return "an array";
    case mr::Kind::dict:
      return "an object";
  }
  return "a value";
}

void check(const Param& p, const mr::ResponseValue& v) {
  const std::string what = "argument " + mr::quote(p.name);
  const bool is_string = p.type == Param::Type::string;
  if (is_string ? !v.is_string() : !v.is_integer()) {
    throw InputError(what + " must be " + (is_string ? "a string" : "an integer") + ", not " +
                     std::string(kind_name(v)));
  }
  if (!p.choices.empty() && std::find(p.choices.begin(), p.choices.end(), v.as_string()) == p.choices.end()) {
    std::string list;
    for (const std::string_view c : p.choices) list += (list.empty() ? "" : ", ") + mr::quote(c);
    throw InputError(what + " must be one of " + list);
  }
  if (!is_string && (v.as_integer() < p.min || v.as_integer() > p.max)) {
    std::string range = "at least " + std::to_string(p.min);
    if (p.max != std::numeric_limits<std::int64_t>::max()) range += " and at most " + std::to_string(p.max);
    throw InputError(what + " must be " + range);
  }
}

}  // namespace

mr::ResponseDict input_schema(std::span<const Param> params) {
  mr::ResponseDict properties;
  mr::ResponseList required;
  for (const Param& p : params) {
    mr::ResponseDict property{{"type", type_name(p.type)}, {"description", p.description}};
    if (!p.choices.empty()) property.insert_or_assign("enum", mr::ResponseList(p.choices.begin(), p.choices.end()));
    if (p.type == Param::Type::integer) {
      property.insert_or_assign("minimum", p.min);
      if (p.max != std::numeric_limits<std::int64_t>::max()) property.insert_or_assign("maximum", p.max);
    }
    properties.insert_or_assign(p.name, std::move(property));
    if (p.required) required.emplace_back(p.name);
  }
  mr::ResponseDict schema{{"type", "object"}, {"properties", std::move(properties)}};
  if (!required.empty()) schema.insert_or_assign("required", std::move(required));
  schema.insert_or_assign("additionalProperties", false);
  return schema;
}

Args::Args(const mr::ResponseDict& arguments, std::span<const Param> params) : arguments_(arguments) {
  for (const auto& entry : arguments) {
    const std::string& name = entry.first;
    const auto p = std::find_if(params.begin(), params.end(), [&](const Param& q) { return q.name == name; });
    if (p == params.end()) throw InputError("unknown argument " + mr::quote(name));
    if (!(entry.second.is_null() && !p->required)) check(*p, entry.second);  // null leaves an optional one out
  }
  for (const Param& p : params) {
    if (p.required && !arguments.contains(p.name)) throw InputError("missing argument " + mr::quote(p.name));
  }
}

std::string Args::string(std::string_view name) const { return std::string(arguments_.at(name).as_string()); }

std::optional<std::string> Args::optional_string(std::string_view name) const {
  const mr::ResponseValue* v = arguments_.find(name);
  return v != nullptr && !v->is_null() ? std::optional<std::string>(v->as_string()) : std::nullopt;
}

std::optional<std::int64_t> Args::optional_integer(std::string_view name) const {
  const mr::ResponseValue* v = arguments_.find(name);
  return v != nullptr && !v->is_null() ? std::optional<std::int64_t>(v->as_integer()) : std::nullopt;
}

}  // namespace kestrune::example
