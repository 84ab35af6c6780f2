// The line finder of the code-line reader, fed a text in pieces of any size:
// it finds what splitting the whole text gives, for all lines, every other
// line and the last, however characters, ill-formed sequences and CR LF
// pairs fall across the pieces.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.hpp"
#include "check.hpp"
#include "code_lines/line_scanner.hpp"
#include "support/oracles.hpp"

namespace mr = kestrune::mcp_responses;

namespace {

// Boundaries of every kind and their broken forms, whitespace, ill-formed
// sequences, and long runs that make lines longer than a cut keeps.
constexpr std::string_view kPieces[] = {"a",
                                        " ",
                                        "\t",
                                        "\r",
                                        "\n",
                                        "\r\n",
                                        "\xC2",
                                        "\x85",
                                        "\xE2",
                                        "\x80",
                                        "\xA8",
                                        "\u00A0",
                                        "\u3000",
                                        "\U0001F600",
                                        "\xF0\x9F",
                                        "\xED\xA0\x80",
                                        "\v",
                                        "\x1C",
                                        "\x1F",
                                        "\xFF",
                                        "\u2028",
                                        "\u2029",
                                        "wwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwwww",
                                        "                    "};

std::vector<std::string> scanned(std::string_view text, const std::vector<std::int64_t>& wanted, std::size_t piece) {
  mr::detail::LineScanner scanner(wanted);
  for (std::size_t i = 0; i < text.size(); i += piece) scanner.feed(text.substr(i, piece));
  std::vector<std::string> found;
  for (const auto& line : scanner.finish()) found.push_back(std::to_string(line.line) + ":" + line.text);
  return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrune::fuzz::Bytes in(data, size);
  const std::size_t piece = in.next() % 17 + 1;
  const std::string text = in.text(kPieces, 60);
  const std::vector<std::string> whole = kestrune::oracle::whole_text_lines(text);
  const auto count = static_cast<std::int64_t>(whole.size());
  std::vector<std::int64_t> all{-1, 0};
  std::vector<std::int64_t> odd;
  std::vector<std::string> all_expected;
  std::vector<std::string> odd_expected;
  for (std::int64_t n = 1; n <= count + 1; ++n) {
    all.push_back(n);
    if (n % 2 == 1) odd.push_back(n);
    if (n > count) continue;
    const std::string line = std::to_string(n) + ":" + whole[static_cast<std::size_t>(n - 1)];
    all_expected.push_back(line);
    if (n % 2 == 1) odd_expected.push_back(line);
  }
  FUZZ_CHECK(scanned(text, all, piece) == all_expected);
  FUZZ_CHECK(scanned(text, odd, piece) == odd_expected);
  const std::vector<std::string> last(all_expected.end() - (count > 0 ? 1 : 0), all_expected.end());
  FUZZ_CHECK(scanned(text, {count}, piece) == last);
  return 0;
}
