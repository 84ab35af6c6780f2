#include "records.hpp"

#include <string>
#include <type_traits>

#include "kestrune/mcp_responses/encoding.hpp"

namespace kestrune::tool {

using mcp_responses::Kind;
using mcp_responses::ResponseDict;
using mcp_responses::ResponseValue;

namespace {

// One attribute of a record object, checked for its kind; null when absent.
class Record {
 public:
  Record(Args& args, std::string_view name) : name_(name), fields_(args.dict(name)) {}

  template <class T>
  std::optional<T> get(std::string_view attribute, Kind kind, std::string_view expected) const {
    const ResponseValue& v = fields_.get(attribute);
    if (v.is_null()) return std::nullopt;
    if (v.kind() != kind) {
      throw wrong_kind("attribute " + mcp_responses::quote(attribute) + " of " + argument_text(name_), expected, v);
    }
    if constexpr (std::is_same_v<T, bool>) {
      return v.as_bool();
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
      return v.as_integer();
    } else if constexpr (std::is_same_v<T, std::string>) {
      return std::string(v.as_string());
    } else {
      return v.as_dict();
    }
  }
  std::optional<std::string> text(std::string_view attribute) const {
    return get<std::string>(attribute, Kind::string, "a string or null");
  }
  std::optional<std::int64_t> integer(std::string_view attribute) const {
    return get<std::int64_t>(attribute, Kind::integer, "an integer or null");
  }
  std::optional<bool> boolean(std::string_view attribute) const {
    return get<bool>(attribute, Kind::boolean, "a boolean or null");
  }
  std::optional<ResponseDict> dict(std::string_view attribute) const {
    return get<ResponseDict>(attribute, Kind::dict, "an object or null");
  }

 private:
  std::string_view name_;
  ResponseDict fields_;
};

}  // namespace

mcp_responses::Symbol symbol_arg(Args& args, std::string_view name) {
  const Record r(args, name);
  auto fqn = r.text("fqn");
  if (!fqn) throw RequestError(argument_text(name) + " needs its attribute \"fqn\", a string");
  return {.fqn = std::move(*fqn),
          .name = r.text("name"),
          .kind = r.text("kind"),
          .start_line = r.integer("start_line"),
          .end_line = r.integer("end_line"),
          .signature = r.text("signature"),
          .docstring = r.text("docstring"),
          .is_export = r.boolean("is_export"),
          .docstring_truncated = r.boolean("docstring_truncated")};
}

mcp_responses::Reference reference_arg(Args& args, std::string_view name) {
  const Record r(args, name);
  return {.file_path = r.text("file_path"),
          .line = r.integer("line"),
          .caller_symbol = r.dict("caller_symbol"),
          .usage_type = r.text("usage_type")};
}

mcp_responses::ComponentInfo component_arg(Args& args, std::string_view name) {
  const Record r(args, name);
  return {.name = r.text("name"),
          .layer = r.text("layer"),
          .path_pattern = r.text("path_pattern"),
          .file_count = r.integer("file_count"),
          .symbol_count = r.integer("symbol_count")};
}

}  // namespace kestrune::tool
