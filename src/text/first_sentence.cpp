// first_sentence: the summary of a docstring that list rows show.
#include <algorithm>
#include <bit>
#include <string>
#include <string_view>

#include "internal/blocks.hpp"
#include "internal/chars.hpp"
#include "internal/utf8.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "text/cut.hpp"

namespace kestrune::mcp_responses {

namespace {

// A sentence ends at a space that follows one of these marks.
constexpr bool ends_sentence(char c) noexcept { return c == '.' || c == '!' || c == '?'; }

// Lead bytes of the whitespace characters beyond ASCII: C2 (U+0085, U+00A0),
// E1 (U+1680), E2 (U+2000..U+205F) and E3 (U+3000).
unsigned space_lead_mask(const detail::Block& b) noexcept {
  return detail::equal_mask(b, 0xC2) | detail::equal_mask(b, 0xE1) | detail::equal_mask(b, 0xE2) |
         detail::equal_mask(b, 0xE3);
}

// The bits of a block mask below its lowest set bit; all of them for none.
constexpr unsigned below_first(unsigned mask) noexcept { return mask != 0 ? (mask & (0u - mask)) - 1 : 0xFFFFu; }

// A piece of a paragraph that collapsing leaves as it is.
struct PlainRun {
  std::size_t end = 0;    // byte offset just past it
  std::size_t chars = 0;  // its characters
  bool well_formed = false;
};

// The longest piece of `text` from `from`, a character that is not
// whitespace, of at most `max_chars` characters, that collapsing leaves as it
// is and that holds no sentence end: words of any characters but whitespace,
// separated by single spaces, none of which follows a sentence mark. It never
// ends in a space. Sixteen bytes at a time; ASCII controls stop it, and so
// does a lead byte of a whitespace character beyond ASCII once decoding shows
// it is one. Not well_formed (and empty) when the text up to where it stops
// is found ill-formed: the caller then goes a character at a time.
PlainRun plain_run(std::string_view text, std::size_t from, std::size_t max_chars) noexcept {
  detail::Utf8Check utf8;
  std::size_t chars = 0;
  std::size_t end = text.size();
  unsigned space_before = 0;  // the byte before the block is a space
  unsigned mark_before = 0;   // ... or a sentence mark
  for (std::size_t i = from; i < text.size(); i += detail::kBlock) {
    const std::size_t left = text.size() - i;
    const detail::Block b = detail::load_block(text.data() + i, left);
    const unsigned high = detail::high_mask(b);
    if (!utf8.block(b, high)) return {from, 0, false};
    const unsigned valid = left >= detail::kBlock ? 0xFFFFu : (1u << left) - 1;
    const unsigned space = detail::equal_mask(b, ' ');
    // ASCII controls and whitespace other than the space: as signed bytes,
    // they and the bytes beyond ASCII are below '!'.
    const unsigned controls = detail::below_mask(b, '!') & ~high & ~space;
    const unsigned mark = detail::equal_mask(b, '.') | detail::equal_mask(b, '!') | detail::equal_mask(b, '?');
    unsigned stop = (controls | (space & (space << 1 | space_before | mark << 1 | mark_before))) & valid;
    // A lead byte before the first stop stops the run when it begins whitespace.
    for (unsigned leads = space_lead_mask(b) & valid & below_first(stop); leads != 0; leads &= leads - 1) {
      const auto at = static_cast<unsigned>(std::countr_zero(leads));
      if (detail::char_at(text, i + at).whitespace) {
        stop = 1u << at;
        break;
      }
    }
    const unsigned run_starts = valid & ~detail::continuation_mask(b) & below_first(stop);
    const auto here = static_cast<std::size_t>(detail::popcount16(run_starts));
    if (chars + here > max_chars) {  // the limit comes first
      end = i + detail::nth_set_bit(run_starts, max_chars - chars);
      chars = max_chars;
      break;
    }
    chars += here;
    if (stop != 0) {
      end = i + static_cast<std::size_t>(std::countr_zero(stop));
      break;
    }
    space_before = space >> (detail::kBlock - 1);
    mark_before = mark >> (detail::kBlock - 1);
  }
  if (end == text.size() && !utf8.done()) return {from, 0, false};
  if (end > from && text[end - 1] == ' ') {
    --end;
    --chars;
  }
  return {end, chars, true};
}

// The whitespace from `i`: where it ends, and whether it holds two line feeds
// in a row, which end the paragraph.
struct Gap {
  std::size_t end;
  bool ends_paragraph;
};

Gap skip_whitespace(std::string_view text, std::size_t i) noexcept {
  Gap gap{i, false};
  bool line_feed = false;
  for (detail::CharAt c{}; gap.end < text.size() && (c = detail::char_at(text, gap.end)).whitespace;) {
    const bool here = text[gap.end] == '\n';
    gap.ends_paragraph = gap.ends_paragraph || (here && line_feed);
    line_feed = here;
    gap.end += c.len;
  }
  return gap;
}

}  // namespace

std::optional<std::string> first_sentence(std::optional<std::string_view> docstring) {
  if (!docstring) return std::nullopt;
  const std::string_view text = *docstring;
  // Stripping, cutting the first paragraph and collapsing its whitespace
  // happen in one pass that stops at the sentence's end, or once the sentence
  // has more characters than a cut keeps: a long docstring is never read to
  // its end. Pieces that need no collapsing are taken whole, and while the
  // sentence is a slice of the docstring it is copied once, at the end.
  constexpr std::size_t kLimit = SUMMARY_CHARS + 1;
  std::size_t i = skip_whitespace(text, 0).end;
  const std::size_t start = i;
  std::string collapsed;  // the sentence, once it is no longer a slice
  bool slice = true;
  bool blocks = true;  // false once the text is found ill-formed
  std::size_t chars = 0;
  while (i < text.size()) {
    // A piece of words, then the whitespace after it.
    const std::size_t from = i;
    const PlainRun run = blocks ? plain_run(text, i, kLimit - chars) : PlainRun{};
    blocks = run.well_formed;
    if (run.well_formed && run.end > from) {
      i = run.end;
      chars += run.chars;
    } else {  // a character the run stopped at, or ill-formed text
      i += detail::char_at(text, i).len;
      ++chars;
    }
    if (!slice) collapsed.append(text.substr(from, i - from));
    if (chars > SUMMARY_CHARS || i == text.size()) break;
    if (!detail::char_at(text, i).whitespace) continue;
    const Gap gap = skip_whitespace(text, i);
    const std::size_t next = gap.end;
    if (next == text.size() || gap.ends_paragraph || ends_sentence(text[i - 1])) break;
    if (slice && (next != i + 1 || text[i] != ' ')) {
      slice = false;
      collapsed.reserve(std::min(text.size() - start, 4 * kLimit));
      collapsed.assign(text.substr(start, i - start));
    }
    if (!slice) collapsed.push_back(' ');
    ++chars;
    i = next;
  }
  const std::string_view sentence = slice ? text.substr(start, i - start) : std::string_view(collapsed);
  if (sentence.empty()) return std::nullopt;
  if (chars > SUMMARY_CHARS) return detail::cut(sentence, SUMMARY_CHARS);
  if (slice) return std::string(sentence);
  return collapsed;
}

}  // namespace kestrune::mcp_responses
