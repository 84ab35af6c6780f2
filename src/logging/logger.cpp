// The library's one logger: a replaceable sink with a standard-error default.
#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>

#include "logging/logger.hpp"

namespace kestrune::mcp_responses {

namespace {

// The logger is the library's only mutable state. Records take the lock
// shared, so threads log in parallel; replacing the sink takes it exclusive,
// so it waits for calls of the old sink to finish.
struct Logger {
  std::shared_mutex mutex;
  LogSink sink;
};

Logger& logger() {
  static Logger instance;
  return instance;
}

constexpr std::string_view level_name(LogLevel level) noexcept {
  switch (level) {
    case LogLevel::debug:
      return "DEBUG";
    case LogLevel::info:
      return "INFO";
    case LogLevel::warning:
      return "WARNING";
    case LogLevel::error:
      return "ERROR";
  }
  return "LOG";
}

// Messages carry paths taken from the repository; control characters are
// written as \xNN so that no file name can forge or break a line of the log.
void write_to_stderr(LogLevel level, std::string_view message) {
  std::string line;
  line.reserve(LOGGER_NAME.size() + message.size() + 16);
  line.append(level_name(level)).append(":").append(LOGGER_NAME).append(":");
  for (const char c : message) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      constexpr std::string_view kHex = "0123456789abcdef";
      line.append("\\x").push_back(kHex[byte >> 4]);
      line.push_back(kHex[byte & 0xF]);
    } else {
      line.push_back(c);
    }
  }
  line.push_back('\n');
  // One write per record keeps the lines of concurrent records whole.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

void set_log_sink(LogSink sink) {
  Logger& l = logger();
  LogSink old;
  {
    const std::unique_lock lock(l.mutex);
    old = std::exchange(l.sink, std::move(sink));
  }
  // `old` is destroyed here, outside the lock, in case its captures log.
}

namespace detail {

void log(LogLevel level, std::string_view message) {
  Logger& l = logger();
  const std::shared_lock lock(l.mutex);
  if (l.sink) {
    l.sink(LOGGER_NAME, level, message);
  } else if (level >= LogLevel::info) {
    write_to_stderr(level, message);
  }
}

}  // namespace detail
}  // namespace kestrune::mcp_responses
