// mcp-responses: the response layer behind a pipe. See --help.
#include <cstring>
#include <fstream>
#include <iostream>
#include <string_view>

#include "calls.hpp"
#include "server.hpp"

namespace {

constexpr std::string_view kHelp = R"(Usage: mcp-responses [FILE...]

Answers requests, one JSON object per line, read from each FILE in turn or
from standard input when no FILE is named (or FILE is -). Writes one line per
request to standard output; blank lines are skipped.

A request:   {"call": NAME, "args": {PARAM: VALUE, ...}}

  NAME    a builder or helper of the response layer, e.g. tool_result_text,
          build_paginated_response, get_empty_response or
          build_wiki_ask_response; also the library's detail helpers, by
          their names: encoded_size, cut, trimmed and ask_citations.
  PARAM   the function's argument names; an optional argument left out takes
          its default. Storage records (symbol, reference, component) are
          objects keyed by attribute name; a missing attribute is null.

The answer is the compact MCP text of what the call returns (a string as a
JSON string, an integer as its digits, null as null); for tool_result_text
it is the text itself, and the MCP lines (tool_call_line, jsonrpc_result_line,
jsonrpc_error_line) are JSON strings holding the line, "\n" included. The
options of call_tool_result and tool_call_line are arguments of their own:
structured and is_error. Input JSON keeps key order and the integer/double
distinction (3 is an integer, 3.0 a double) and reads NaN, Infinity and
-Infinity, the words the encoder writes (not Inf or -NaN). A number is read
to the nearest double; one beyond the largest double (1e400, and also
1.7976931348623159e308) is refused like an integer beyond 64 bits, since it
would silently become Infinity, and one below the smallest reads as zero.
An integer argument given a double is an error; a double argument given an
integer takes its value.

A request that is not JSON (including ill-formed UTF-8 and lone surrogate
escapes), is nested deeper than 256 levels, is longer than 16 MiB, names an
unknown call or argument, lacks a required argument or has one of the wrong
kind is answered {"error":"..."}, and the next line is served. So is one
whose values would take more than 9 times its size in memory (64 MiB at
least): with the request and its answer, no request needs much more than ten
times its size. Only pathological shapes reach that, such as millions of
one-element lists.

Exit status: 0 when every request succeeded, 1 when any failed, 2 when an
input cannot be read.

Calls:
)";

void print_help() {
  std::cout << kHelp;
  for (const auto table : kestrune::tool::call_tables()) {
    std::string_view separator = "  ";
    for (const auto& call : table) {
      std::cout << separator << call.name;
      separator = ", ";
    }
    std::cout << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  bool all_ok = true;
  bool unreadable = false;
  if (argc < 2) {
    all_ok = kestrune::tool::serve(std::cin, std::cout);
  }
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      print_help();
      return 0;
    }
  }
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "-") {
      all_ok = kestrune::tool::serve(std::cin, std::cout) && all_ok;
      continue;
    }
    std::ifstream file(argv[i], std::ios::binary);
    if (!file) {
      std::cerr << "mcp-responses: cannot read " << arg << ": " << std::strerror(errno) << '\n';
      unreadable = true;
      continue;
    }
    all_ok = kestrune::tool::serve(file, std::cout) && all_ok;
    if (file.bad()) {
      std::cerr << "mcp-responses: error while reading " << arg << '\n';
      unreadable = true;
    }
  }
  if (unreadable) return 2;
  return all_ok ? 0 : 1;
}
