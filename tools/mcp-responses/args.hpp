// Typed access to the arguments of one request.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "json_reader.hpp"
#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::tool {

/// Args: the `args` object of a request. Each getter names one parameter,
/// moves its value out (a call reads each argument once, so a request's
/// values are never copied) and throws RequestError when it is missing (for
/// a required one) or of the wrong kind. A nullable parameter reads null and
/// absent alike. Getters record what they read, so that unread (unknown)
/// arguments are reported.
class Args {
 public:
  explicit Args(mcp_responses::ResponseDict args) : args_(std::move(args)) {}

  /// value: any value; a missing optional one reads as null.
  [[nodiscard]] mcp_responses::ResponseValue value(std::string_view name, bool required = true);

  [[nodiscard]] std::string string(std::string_view name);
  [[nodiscard]] std::optional<std::string> nullable_string(std::string_view name);
  [[nodiscard]] std::string string_or(std::string_view name, std::string_view fallback);

  [[nodiscard]] std::int64_t integer(std::string_view name);
  [[nodiscard]] std::int64_t integer_or(std::string_view name, std::int64_t fallback);
  [[nodiscard]] std::optional<std::int64_t> nullable_integer(std::string_view name);

  /// number: a double; an integer argument gives its value.
  [[nodiscard]] double number_or(std::string_view name, double fallback);

  [[nodiscard]] bool boolean(std::string_view name);
  [[nodiscard]] bool boolean_or(std::string_view name, bool fallback);

  [[nodiscard]] mcp_responses::ResponseList list(std::string_view name);
  [[nodiscard]] std::optional<mcp_responses::ResponseList> nullable_list(std::string_view name);
  [[nodiscard]] mcp_responses::ResponseDict dict(std::string_view name);
  [[nodiscard]] std::optional<mcp_responses::ResponseDict> nullable_dict(std::string_view name);

  /// check_all_read: throws RequestError naming the first argument no getter read.
  void check_all_read(std::string_view call) const;

 private:
  // nullptr when absent; throws when absent and required.
  mcp_responses::ResponseValue* lookup(std::string_view name, bool required);

  mcp_responses::ResponseDict args_;
  std::set<std::string, std::less<>> read_;
};

/// argument_text: `argument "NAME"`, the name quoted whole (quote()).
[[nodiscard]] std::string argument_text(std::string_view name);

/// kind_name: "an integer", "a string", ... for error messages.
[[nodiscard]] std::string_view kind_name(const mcp_responses::ResponseValue& v);

/// wrong_kind: the error for `what` (e.g. "argument \"chars\"") holding `v`
/// where `expected` (e.g. "an integer") was wanted.
[[nodiscard]] RequestError wrong_kind(std::string_view what, std::string_view expected,
                                      const mcp_responses::ResponseValue& v);

}  // namespace kestrune::tool
