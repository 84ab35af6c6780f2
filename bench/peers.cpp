// Conversions of ResponseValue trees into the peer libraries' trees.
#include "peers.hpp"

#include <string>

namespace kestrune::bench {

namespace {

namespace mr = kestrune::mcp_responses;

// Sets `out` to the value of `v`; strings are copied into the document.
void fill(rapidjson::Value& out, const mr::ResponseValue& v, rapidjson::Document::AllocatorType& a) {
  const auto size = [](std::string_view s) { return static_cast<rapidjson::SizeType>(s.size()); };
  switch (v.kind()) {
    case mr::Kind::null:
      out.SetNull();
      return;
    case mr::Kind::boolean:
      out.SetBool(v.as_bool());
      return;
    case mr::Kind::integer:
      out.SetInt64(v.as_integer());
      return;
    case mr::Kind::double_:
      out.SetDouble(v.as_double());
      return;
    case mr::Kind::string:
      out.SetString(v.as_string().data(), size(v.as_string()), a);
      return;
    case mr::Kind::list:
      out.SetArray();
      out.Reserve(static_cast<rapidjson::SizeType>(v.as_list().size()), a);
      for (const auto& e : v.as_list()) {
        rapidjson::Value element;
        fill(element, e, a);
        out.PushBack(element, a);
      }
      return;
    case mr::Kind::dict:
      out.SetObject();
      for (const auto& [key, value] : v.as_dict()) {
        rapidjson::Value member;
        fill(member, value, a);
        out.AddMember(rapidjson::Value(key.data(), size(key), a), member, a);
      }
      return;
  }
}

}  // namespace

rapidjson::Document to_rapidjson(const mcp_responses::ResponseValue& value) {
  rapidjson::Document doc;
  fill(doc, value, doc.GetAllocator());
  return doc;
}

nlohmann::ordered_json to_nlohmann(const mcp_responses::ResponseValue& value) {
  switch (value.kind()) {
    case mr::Kind::null:
      return nullptr;
    case mr::Kind::boolean:
      return value.as_bool();
    case mr::Kind::integer:
      return value.as_integer();
    case mr::Kind::double_:
      return value.as_double();
    case mr::Kind::string:
      return std::string(value.as_string());
    case mr::Kind::list: {
      nlohmann::ordered_json list = nlohmann::ordered_json::array();
      for (const auto& e : value.as_list()) list.push_back(to_nlohmann(e));
      return list;
    }
    case mr::Kind::dict: {
      nlohmann::ordered_json map = nlohmann::ordered_json::object();
      for (const auto& [key, v] : value.as_dict()) map[key] = to_nlohmann(v);
      return map;
    }
  }
  return nullptr;
}

}  // namespace kestrune::bench
