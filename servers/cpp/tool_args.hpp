// A tool's arguments: declared once, as the input schema that tools/list
// shows and as the checks that a call's arguments pass before the tool runs.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::example {

namespace mr = mcp_responses;

/// Param: one argument of a tool.
struct Param {
  enum class Type { string, integer };
  std::string_view name;
  Type type = Type::string;
  bool required = false;
  std::string_view description;
  std::span<const std::string_view> choices{};  ///< the strings allowed, when not any
  std::int64_t min = 0;                         ///< integers: the smallest allowed
  std::int64_t max = std::numeric_limits<std::int64_t>::max();
};

/// InputError: arguments that the schema does not allow, or that name
/// nothing in the index; message() says which and why, for the model to
/// correct its call, quoting what it shows of them with quote().
class InputError : public std::runtime_error {
 public:
  explicit InputError(const std::string& message) : std::runtime_error(message), message_(message) {}
  [[nodiscard]] const std::string& message() const noexcept { return message_; }

 private:
  std::string message_;
};

/// input_schema: the JSON schema of an object with `params`.
[[nodiscard]] mr::ResponseDict input_schema(std::span<const Param> params);

/// Args: arguments checked against their params: every required one is
/// there, none is unknown, each has its type, choice and range.
class Args {
 public:
  /// Throws InputError naming the first argument that fails.
  Args(const mr::ResponseDict& arguments, std::span<const Param> params);

  [[nodiscard]] std::string string(std::string_view name) const;
  [[nodiscard]] std::optional<std::string> optional_string(std::string_view name) const;
  [[nodiscard]] std::optional<std::int64_t> optional_integer(std::string_view name) const;
  [[nodiscard]] std::int64_t integer_or(std::string_view name, std::int64_t fallback) const {
    return optional_integer(name).value_or(fallback);
  }

 private:
  const mr::ResponseDict& arguments_;
};

}  // namespace kestrune::example
