// kestrune-example-server: an MCP server over stdio that answers questions
// about one indexed repository. See --help.
#include <charconv>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "index_db.hpp"
#include "protocol.hpp"
#include "tools.hpp"
#include "usage.hpp"

namespace {

// Reads one line into `line`, without its "\n"; past kMaxLineBytes the rest
// is skipped and `too_long` set. False at the end of the input.
bool read_line(std::streambuf& in, std::string& line, bool& too_long) {
  line.clear();
  too_long = false;
  bool any = false;
  for (int c = in.sbumpc(); c != std::char_traits<char>::eof(); c = in.sbumpc()) {
    any = true;
    if (c == '\n') return true;
    if (line.size() < kestrune::example::kMaxLineBytes) {
      line.push_back(static_cast<char>(c));
    } else {
      too_long = true;
    }
  }
  return any;
}

int usage_error(std::string_view message) {
  std::cerr << "kestrune-example-server: " << message << " (see --help)\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  namespace ex = kestrune::example;
  std::string db;
  std::string root = ".";
  std::size_t page_bytes = ex::ToolsConfig{}.page_bytes;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kestrune::example::kUsage;  // servers/usage.txt
      return 0;
    }
    if (i + 1 >= argc) return usage_error("unknown option or missing value: " + std::string(arg));
    const std::string value = argv[++i];
    if (arg == "--db") {
      db = value;
    } else if (arg == "--root") {
      root = value;
    } else if (arg == "--budget") {
      // Decimal digits only: no sign, no space, nothing beyond a size_t.
      const char* end = value.data() + value.size();
      const auto [stop, error] = std::from_chars(value.data(), end, page_bytes);
      if (error != std::errc{} || stop != end) return usage_error("--budget needs a number of bytes");
    } else {
      return usage_error("unknown option: " + std::string(arg));
    }
  }
  ex::IndexDb index;
  try {
    index = ex::IndexDb::open(db);
  } catch (const std::exception& e) {
    return usage_error(e.what());
  }
  std::cerr << "kestrune-example-server: index " << (db.empty() ? "(none)" : db)
            << (index.initialized() ? "" : ", not initialized") << "\n";

  const ex::McpServer server(ex::Tools({.index = std::move(index), .root = root, .page_bytes = page_bytes}));
  std::ios::sync_with_stdio(false);
  std::string line;
  bool too_long = false;
  while (read_line(*std::cin.rdbuf(), line, too_long)) {
    const std::optional<std::string> reply = too_long ? ex::McpServer::too_long() : server.answer(line);
    if (!reply) continue;
    std::fwrite(reply->data(), 1, reply->size(), stdout);
    std::fflush(stdout);
  }
  return 0;
}
