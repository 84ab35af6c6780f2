// Reading one request line of JSON into a ResponseValue.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kestrune/mcp_responses/types.hpp"

namespace kestrune::tool {

/// Deepest nesting of lists and objects that a request may have.
inline constexpr std::size_t kMaxDepth = 256;

/// The most memory that a request's values may take, per byte of request:
/// with the request itself and the answer, a request never needs much more
/// than ten times its size. Any request may take kMemoryFloor.
inline constexpr std::size_t kMemoryPerByte = 9;
inline constexpr std::size_t kMemoryFloor = std::size_t{64} << 20;

/// RequestError: the request cannot be served; message() says why, whole.
/// What it quotes of the request is quoted with quote(), so that what()
/// holds all of it too.
class RequestError : public std::runtime_error {
 public:
  explicit RequestError(const std::string& message) : std::runtime_error(message), message_(message) {}
  [[nodiscard]] const std::string& message() const noexcept { return message_; }

 private:
  std::string message_;
};

/// parse_json: reads `text` as one JSON value. Object keys keep their order
/// (a repeated key keeps its first place and its last value), `3` is an
/// integer and `3.0` a double, and NaN, Infinity and -Infinity are read as
/// doubles. Throws RequestError for text that is not JSON (ill-formed UTF-8
/// and lone surrogate escapes included), nesting deeper than kMaxDepth,
/// integers outside the 64-bit signed range, doubles beyond the largest
/// double, and values that would take more memory than kMemoryPerByte times
/// the text's size (and kMemoryFloor).
[[nodiscard]] mcp_responses::ResponseValue parse_json(std::string_view text);

}  // namespace kestrune::tool
