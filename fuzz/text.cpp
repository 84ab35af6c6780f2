// Text shaping against a character at a time: cut, trimmed, first_sentence,
// char_count and strip_end give what the plain versions give, whatever the
// block boundaries, for text of any characters, ill-formed bytes included.
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "bytes.hpp"
#include "check.hpp"
#include "internal/chars.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "support/oracles.hpp"
#include "text/cut.hpp"
#include "text/strip.hpp"

namespace mr = kestrune::mcp_responses;
namespace oracle = kestrune::oracle;

namespace {

// Whitespace of every width, lead bytes that do and do not begin whitespace
// (C2, E1, E2, E3), sentence ends, paragraph breaks and what only looks like
// one, and runs of words; then ill-formed and truncated sequences, which an
// input takes or leaves as a whole, so that long well-formed texts come up.
constexpr std::string_view kPieces[] = {"Word",
                                        " ",
                                        "  ",
                                        ". ",
                                        "! ",
                                        "?",
                                        "\n",
                                        "\n\n",
                                        "\t",
                                        "\u2003",
                                        "é",
                                        "x.y",
                                        "end.",
                                        "漢字",
                                        "\u00a0",
                                        "abc ",
                                        "\x7f",
                                        "\x1c",
                                        "a",
                                        "Why?",
                                        " ! ",
                                        "\x01",
                                        "\u2192",
                                        "\u1680",
                                        "\u2028",
                                        ".\u3000",
                                        "\u0085",
                                        "\u201cq\u201d",
                                        "\r\n",
                                        "\n \n",
                                        "\u00c2b",
                                        "\u1e9e",
                                        "\u3001",
                                        "word ",
                                        "\U0001F600",
                                        "\u00e9t\u00e9 ",
                                        "\u00fcber\u65e5 ",
                                        "\xe3\x80\x80",
                                        "\xff",
                                        "\xe2\x80",
                                        "\xc2",
                                        "\x80",
                                        "\xc3"};
constexpr std::size_t kWellFormedPieces = std::size(kPieces) - 5;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrune::fuzz::Bytes in(data, size);
  const auto raw = static_cast<std::int64_t>(in.next() | (in.next() << 8));
  const std::uint8_t mode = in.next();
  const std::span<const std::string_view> pieces(kPieces, mode % 2 == 0 ? kWellFormedPieces : std::size(kPieces));
  const std::string text = mode % 5 == 0 ? in.rest() : in.text(pieces, 120);
  const oracle::Chars chars = oracle::chars_of(text);

  FUZZ_CHECK(mr::detail::char_count(text) == chars.space.size());
  FUZZ_CHECK(mr::detail::strip_end(text) == oracle::plain_strip_end(text));
  const auto cut_limit = static_cast<std::size_t>(raw % 260 + 1);  // cut takes limits of at least 1
  FUZZ_CHECK(mr::detail::cut(text, cut_limit) == oracle::plain_cut(text, cut_limit));
  const std::int64_t trim_limit = raw % 270 - 5;  // trimmed also sees zero and negatives
  const std::string trimmed = mr::detail::trimmed(text, trim_limit);
  FUZZ_CHECK(trimmed == oracle::plain_trimmed(text, trim_limit));
  FUZZ_CHECK(mr::first_sentence(text) == oracle::plain_first_sentence(text));

  // Text known to be well-formed is counted without checking.
  if (kestrune::mcp_responses::detail::first_ill_formed(text) == std::string_view::npos) {
    FUZZ_CHECK(mr::detail::char_count(text, mr::detail::Utf8::well_formed) == chars.space.size());
    const mr::detail::Trim plan = mr::detail::plan_trimmed(text, trim_limit, mr::detail::Utf8::well_formed);
    FUZZ_CHECK(mr::detail::trimmed_text(text, plan) == trimmed);
    FUZZ_CHECK(plan.chars == mr::detail::kUnknownChars || plan.chars == oracle::chars_of(trimmed).space.size());
  }
  return 0;
}
