// Text shaping: first sentences, cuts with an ellipsis, null-free rows.
#include <algorithm>
#include <bit>
#include <string>
#include <string_view>

#include "escape_scan.hpp"
#include "kestrune/mcp_responses/detail/utf8.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "trim.hpp"

namespace kestrune::mcp_responses {

namespace {

constexpr std::string_view kEllipsis = "\u2026";

// Whether the character at byte `i` is whitespace; sets `len` to its length.
bool whitespace_at(std::string_view s, std::size_t i, std::size_t& len) noexcept {
  const detail::Decoded d = detail::decode_at(s, i);
  len = d.ok ? d.len : 1;
  return d.ok && detail::is_whitespace(d.cp);
}

// The same as whitespace_at, without decoding ASCII.
bool space_at(std::string_view s, std::size_t i, std::size_t& len) noexcept {
  const auto c = static_cast<unsigned char>(s[i]);
  if (c < 0x80) {
    len = 1;
    return detail::is_whitespace(c);
  }
  return whitespace_at(s, i, len);
}

// Byte offset just past the first `chars` characters of `s` (or s.size()),
// one character at a time; an ill-formed byte counts as a character.
std::size_t byte_offset_slow(std::string_view s, std::size_t chars) noexcept {
  std::size_t i = 0;
  for (std::size_t k = 0; k < chars && i < s.size(); ++k) i += detail::char_length(s, i);
  return i;
}

// Bytes 80..BF, which continue a character.
unsigned continuation_mask(const detail::Block& b) noexcept {
  return detail::below_mask(b, static_cast<signed char>(0xC0));
}

// The bit position of the n-th (from 0) set bit of `mask`, which has more.
unsigned nth_set_bit(unsigned mask, std::size_t n) noexcept {
  for (; n > 0; --n) mask &= mask - 1;
  return static_cast<unsigned>(std::countr_zero(mask));
}

// The same, 16 bytes at a time: in well-formed text every byte but the
// continuation bytes starts a character. Text found ill-formed before the
// answer is known is counted the slow way.
// With `checked`, tells whether the text up to the answer was found
// well-formed (rather than counted the slow way).
std::size_t byte_offset(std::string_view s, std::size_t chars, bool* checked = nullptr) noexcept {
  if (checked != nullptr) *checked = false;
  detail::Utf8Check utf8;
  std::size_t i = 0;
  std::size_t k = 0;  // characters started before byte i
  while (i < s.size()) {
    const std::size_t left = s.size() - i;
    const std::size_t step = std::min(left, detail::kBlock);
    const detail::Block b = detail::load_block(s.data() + i, left);
    const unsigned high = detail::high_mask(b);
    unsigned starts = (1u << step) - 1;
    if (high != 0 || !utf8.done()) {
      if (!utf8.block(b, high)) return byte_offset_slow(s, chars);
      starts &= ~continuation_mask(b);
    }
    const auto here = static_cast<std::size_t>(detail::popcount16(starts));
    if (k + here > chars) {
      if (checked != nullptr) *checked = true;
      return i + nth_set_bit(starts, chars - k);
    }
    k += here;
    i += step;
  }
  if (!utf8.done()) return byte_offset_slow(s, chars);
  if (checked != nullptr) *checked = true;
  return s.size();
}

// byte_offset for text known to be well-formed: every byte but the
// continuation bytes starts a character, so nothing needs checking.
std::size_t well_formed_byte_offset(std::string_view s, std::size_t chars) noexcept {
  // The first `chars` bytes start at most `chars` characters: their whole
  // blocks are counted in bulk, and the rest a block at a time.
  std::size_t i = std::min(chars, s.size()) / detail::kBlock * detail::kBlock;
  std::size_t k = i - detail::count_continuations(s.data(), i);  // characters started before byte i
  for (; i < s.size(); i += detail::kBlock) {
    const std::size_t left = s.size() - i;
    const std::size_t step = std::min(left, detail::kBlock);
    const unsigned starts = ((1u << step) - 1) & ~continuation_mask(detail::load_block(s.data() + i, left));
    const auto here = static_cast<std::size_t>(detail::popcount16(starts));
    if (k + here > chars) return i + nth_set_bit(starts, chars - k);
    k += here;
  }
  return s.size();
}

// Whether `rest` holds at most one character.
bool fits_one_char(std::string_view rest) noexcept {
  return rest.empty() || detail::char_length(rest, 0) == rest.size();
}

// `kept` and the ellipsis.
std::string with_ellipsis_after(std::string_view kept) {
  std::string out;
  out.reserve(kept.size() + kEllipsis.size());
  out.append(kept);
  out.append(kEllipsis);
  return out;
}

std::string with_ellipsis(std::string_view prefix) {
  const std::string_view kept = detail::strip_end(prefix);
  std::string out;
  out.reserve(kept.size() + kEllipsis.size());
  out.append(kept);
  out.append(kEllipsis);
  return out;
}

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
      std::size_t len = 0;
      const auto at = static_cast<unsigned>(std::countr_zero(leads));
      if (whitespace_at(text, i + at, len)) {
        stop = 1u << at;
        break;
      }
    }
    const unsigned run_starts = valid & ~continuation_mask(b) & below_first(stop);
    const auto here = static_cast<std::size_t>(detail::popcount16(run_starts));
    if (chars + here > max_chars) {  // the limit comes first
      end = i + nth_set_bit(run_starts, max_chars - chars);
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

// The end of the whitespace at `i`; `paragraph` tells whether it holds two
// line feeds in a row, which end the paragraph.
std::size_t skip_whitespace(std::string_view text, std::size_t i, bool& paragraph) noexcept {
  paragraph = false;
  bool line_feed = false;
  std::size_t len = 0;
  while (i < text.size() && space_at(text, i, len)) {
    const bool here = text[i] == '\n';
    paragraph = paragraph || (here && line_feed);
    line_feed = here;
    i += len;
  }
  return i;
}

}  // namespace

namespace detail {

namespace {

std::string_view strip_end_slow(std::string_view text) noexcept {
  std::size_t end = 0;  // just past the last character that is not whitespace
  std::size_t len = 0;
  for (std::size_t i = 0; i < text.size(); i += len) {
    if (!whitespace_at(text, i, len)) end = i + len;
  }
  return text.substr(0, end);
}

std::size_t char_count_slow(std::string_view text) noexcept {
  std::size_t n = 0;
  for (std::size_t i = 0; i < text.size(); i += char_length(text, i)) ++n;
  return n;
}

}  // namespace

std::size_t char_count(std::string_view text) noexcept {
  // Well-formed text has a character per byte that is not a continuation
  // byte; text found ill-formed is counted a character at a time.
  Utf8Check utf8;
  std::size_t n = 0;
  for (std::size_t i = 0; i < text.size(); i += kBlock) {
    const std::size_t left = text.size() - i;
    const Block b = load_block(text.data() + i, left);
    const unsigned high = high_mask(b);
    n += std::min(left, kBlock);
    if (high == 0 && utf8.done()) continue;
    if (!utf8.block(b, high)) return char_count_slow(text);
    n -= static_cast<std::size_t>(popcount16(continuation_mask(b)));
  }
  return utf8.done() ? n : char_count_slow(text);
}

std::string_view strip_end(std::string_view text) noexcept {
  // From the end, while the last character is well-formed and unambiguous;
  // ill-formed bytes there are only grouped right when read from the start.
  std::size_t end = text.size();
  while (end > 0) {
    std::size_t start = end - 1;
    while (start > 0 && end - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
    const Decoded d = decode_at(text, start);
    if (!d.ok || start + d.len != end) return strip_end_slow(text.substr(0, end));
    if (!is_whitespace(d.cp)) break;
    end = start;
  }
  return text.substr(0, end);
}

std::string_view strip(std::string_view text) noexcept {
  std::size_t i = 0;
  std::size_t len = 0;
  while (i < text.size() && whitespace_at(text, i, len)) i += len;
  return strip_end(text.substr(i));
}

std::string cut(std::string_view text, std::size_t chars) {
  if (chars == 0) chars = 1;
  // Counting stops after `chars` - 1 characters: only whether more than one
  // follows matters.
  const std::string_view head = text.substr(0, byte_offset(text, chars - 1));
  if (fits_one_char(text.substr(head.size()))) return std::string(text);
  return with_ellipsis(head);
}

std::string trimmed(std::string_view text, std::int64_t chars) {
  bool well_formed = false;
  std::size_t count = 0;
  return trimmed_checked(text, chars, well_formed, count);
}

namespace {

// Where trimmed() cuts a text: all of it, none of it, or its first `kept`
// bytes followed by the ellipsis.
struct TrimPlan {
  enum Kind { kWhole, kNothing, kCut } kind;
  std::size_t kept = 0;
};

TrimPlan plan_trim(std::string_view text, std::int64_t chars, bool& well_formed, std::size_t& count,
                   bool known_well_formed) {
  well_formed = known_well_formed;
  count = kUnknownCount;
  if (chars <= 1) {
    if (chars >= 0 && byte_offset(text, static_cast<std::size_t>(chars)) == text.size()) return {TrimPlan::kWhole};
    return {TrimPlan::kNothing};
  }
  const auto limit = static_cast<std::size_t>(chars);
  // The first limit - 1 characters; the text is kept whole when at most one
  // character follows them.
  bool checked = known_well_formed;
  const std::size_t head_size =
      known_well_formed ? well_formed_byte_offset(text, limit - 1) : byte_offset(text, limit - 1, &checked);
  const std::string_view head = text.substr(0, head_size);
  if (fits_one_char(text.substr(head.size()))) return {TrimPlan::kWhole};
  // A cut keeps a prefix of the head, which the scan found well-formed.
  well_formed = checked;
  // The last space among those characters. A space byte always starts a
  // character, so a byte search finds it; a space before the middle of the
  // allowed length is not used: cut hard.
  std::string_view prefix = head;
  std::size_t prefix_chars = limit - 1;
  if (const std::size_t space = head.rfind(' '); space != std::string_view::npos) {
    const std::size_t space_chars = limit - 1 - char_count(head.substr(space));
    if (space_chars >= limit / 2) {
      prefix = head.substr(0, space);
      prefix_chars = space_chars;
    }
  }
  const std::string_view kept = strip_end(prefix);
  count = prefix_chars - char_count(prefix.substr(kept.size())) + 1;
  return {TrimPlan::kCut, kept.size()};
}

}  // namespace

std::string trimmed_checked(std::string_view text, std::int64_t chars, bool& well_formed, std::size_t& count,
                            bool known_well_formed) {
  const TrimPlan plan = plan_trim(text, chars, well_formed, count, known_well_formed);
  switch (plan.kind) {
    case TrimPlan::kWhole:
      return std::string(text);
    case TrimPlan::kNothing:
      return {};
    case TrimPlan::kCut:
      break;
  }
  return with_ellipsis_after(text.substr(0, plan.kept));
}

void trim_in_place(std::string& text, std::int64_t chars, bool& well_formed, std::size_t& count,
                   bool known_well_formed) {
  const TrimPlan plan = plan_trim(text, chars, well_formed, count, known_well_formed);
  switch (plan.kind) {
    case TrimPlan::kWhole:
      return;
    case TrimPlan::kNothing:
      text.clear();
      return;
    case TrimPlan::kCut:
      break;
  }
  text.resize(plan.kept);
  text.append(kEllipsis);
}

}  // namespace detail

std::optional<std::string> first_sentence(std::optional<std::string_view> docstring) {
  if (!docstring) return std::nullopt;
  const std::string_view text = *docstring;
  // Stripping, cutting the first paragraph and collapsing its whitespace
  // happen in one pass that stops at the sentence's end, or once the sentence
  // has more characters than a cut keeps: a long docstring is never read to
  // its end. Pieces that need no collapsing are taken whole, and while the
  // sentence is a slice of the docstring it is copied once, at the end.
  constexpr std::size_t kLimit = SUMMARY_CHARS + 1;
  std::size_t len = 0;
  std::size_t i = 0;
  while (i < text.size() && space_at(text, i, len)) i += len;
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
      space_at(text, i, len);
      i += len;
      ++chars;
    }
    if (!slice) collapsed.append(text.substr(from, i - from));
    if (chars > SUMMARY_CHARS || i == text.size()) break;
    if (!space_at(text, i, len)) continue;
    bool paragraph = false;
    const std::size_t next = skip_whitespace(text, i, paragraph);
    if (next == text.size() || paragraph || ends_sentence(text[i - 1])) break;
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

ResponseDict without_nulls(const ResponseDict& row) {
  ResponseDict out;
  out.reserve(row.size());
  for (const auto& [key, value] : row) {
    if (!value.is_null()) out.append(key, value);
  }
  return out;
}

ResponseDict without_nulls(ResponseDict&& row) {
  row.erase_if([](const ResponseDict::value_type& e) { return e.second.is_null(); });
  return std::move(row);
}

}  // namespace kestrune::mcp_responses
