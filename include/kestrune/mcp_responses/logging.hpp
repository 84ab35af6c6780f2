// kestrune/mcp_responses/logging.hpp - where the library's log records go.
//
// The library has one logger, named "kestrune.mcp_responses"; only the
// code-line reader writes to it, at info level, when a file cannot be read.
// A host routes the records with a sink, called from whichever thread logs:
//
//   set_log_sink([](std::string_view logger, LogLevel level, std::string_view message) {
//     my_log(logger, level, message);  // must be safe to call from any thread
//   });
//
// With no sink installed, records at info level and above are written to
// standard error, one line each. The library writes nothing anywhere else.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace kestrune::mcp_responses {

/// The name of the library's logger.
inline constexpr std::string_view LOGGER_NAME = "kestrune.mcp_responses";

/// The severity of a log record.
enum class LogLevel : std::uint8_t { debug, info, warning, error };

/// LogSink: receives each record as the logger's name, its level and the
/// formatted message. It may be called from several threads at once.
using LogSink = std::function<void(std::string_view logger, LogLevel level, std::string_view message)>;

/// set_log_sink: sends every later record to `sink`; an empty sink
/// (set_log_sink({})) restores the standard-error default. Safe from any thread: when it returns, no call
/// of the previous sink is still running and none will start. A sink must
/// not call set_log_sink or the code-line reader itself.
void set_log_sink(LogSink sink);

}  // namespace kestrune::mcp_responses
