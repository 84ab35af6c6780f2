// The request reader: any bytes give one answer line per non-blank input
// line, each a JSON value, and never a crash.
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include "check.hpp"
#include "json_reader.hpp"
#include "server.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::size_t requests = 0;
  std::istringstream lines(input);
  for (std::string line; std::getline(lines, line);) {
    if (line.find_first_not_of(" \t\r") != std::string::npos) ++requests;
  }
  std::istringstream in(input);
  std::ostringstream out;
  kestrune::tool::serve(in, out);
  const std::string answers = out.str();
  std::size_t count = 0;
  std::istringstream answer_lines(answers);
  for (std::string line; std::getline(answer_lines, line);) {
    ++count;
    // Every answer line is itself readable JSON (errors included), as long
    // as the request was well-formed UTF-8: other bytes are echoed nowhere.
    (void)kestrune::tool::parse_json(line);
  }
  FUZZ_CHECK(count == requests);
  return 0;
}
