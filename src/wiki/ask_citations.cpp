// The merged citation list of a wiki ask answer: each place once, capped.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/encoded_size.hpp"
#include "encoding/layout.hpp"
#include "internal/blocks.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "wiki/ask_citations.hpp"
#include "wiki/ask_limits.hpp"

namespace kestrune::mcp_responses::detail {

namespace {

// The integer that the double `d` holds exactly, if any. The range test
// comes first: casting a double outside int64 is undefined, and 2^63 itself
// is out.
std::optional<std::int64_t> exact_integer(double d) noexcept {
  if (!(d >= -0x1p63 && d < 0x1p63) || std::trunc(d) != d) return std::nullopt;
  return static_cast<std::int64_t>(d);
}

// Whether the double `d` is exactly the integer `i`.
bool same_number(std::int64_t i, double d) noexcept { return exact_integer(d) == i; }

// Equality of place values: numbers by numeric value whatever their kind,
// strings by their characters, null only with null, anything else by kind
// and then element by element under the same rule.
bool same_value(const ResponseValue& a, const ResponseValue& b) noexcept {
  if (a.is_integer() && b.is_double()) return same_number(a.as_integer(), b.as_double());
  if (a.is_double() && b.is_integer()) return same_number(b.as_integer(), a.as_double());
  if (a.kind() != b.kind()) return false;
  if (a.is_list()) {
    return std::equal(a.as_list().begin(), a.as_list().end(), b.as_list().begin(), b.as_list().end(), same_value);
  }
  if (a.is_dict()) {
    return std::equal(
        a.as_dict().begin(), a.as_dict().end(), b.as_dict().begin(), b.as_dict().end(),
        [](const auto& x, const auto& y) { return x.first == y.first && same_value(x.second, y.second); });
  }
  return a == b;  // scalars of one kind
}

// A quick hash of a path: a word at a time, multiplied and folded.
std::size_t text_hash(std::string_view s) noexcept {
  constexpr std::uint64_t kMul = 0x9E3779B97F4A7C15u;
  std::uint64_t h = s.size() * kMul;
  std::size_t i = 0;
  for (; i + 8 <= s.size(); i += 8) {
    h = (h ^ load64(s.data() + i)) * kMul;
    h ^= h >> 29;
  }
  std::uint64_t tail = 0;
  std::copy(s.begin() + static_cast<std::ptrdiff_t>(i), s.end(), reinterpret_cast<char*>(&tail));
  h = (h ^ tail) * kMul;
  return static_cast<std::size_t>(h ^ (h >> 32));
}

// A hash that agrees with same_value: a double holding an integer hashes as
// that integer. Lists and maps hash by kind and size only; they are not
// expected as place values and only need to be consistent.
std::size_t value_hash(const ResponseValue& v) noexcept {
  switch (v.kind()) {
    case Kind::integer:
      return std::hash<std::int64_t>{}(v.as_integer());
    case Kind::double_: {
      const double d = v.as_double();
      if (const std::optional<std::int64_t> i = exact_integer(d)) return std::hash<std::int64_t>{}(*i);
      return std::hash<double>{}(d);
    }
    case Kind::string:
      return text_hash(v.as_string());
    case Kind::boolean:
      return v.as_bool() ? 0x9e3779b9u : 0x7f4a7c15u;
    case Kind::list:
      return v.as_list().size() * 31 + 7;
    case Kind::dict:
      return v.as_dict().size() * 31 + 11;
    case Kind::null:
      break;
  }
  return 0;
}

// The place a citation points at; values live in the caller's citations (or
// are the shared null that a missing key reads as).
struct Place {
  const ResponseValue* path;
  const ResponseValue* line_start;
  const ResponseValue* line_end;
};

// The three keys are found in one pass over the citation's entries.
Place place_of(const ResponseValue& citation) noexcept {
  static const ResponseValue kNull;
  Place place{&kNull, &kNull, &kNull};
  if (!citation.is_dict()) return place;
  using namespace std::string_view_literals;
  for (const auto& [key, value] : citation.as_dict()) {
    if (key == "path"sv) {
      place.path = &value;
    } else if (key == "line_start"sv) {
      place.line_start = &value;
    } else if (key == "line_end"sv) {
      place.line_end = &value;
    }
  }
  return place;
}

struct PlaceHash {
  std::size_t operator()(const Place& p) const noexcept {
    std::size_t h = value_hash(*p.path);
    h = h * 1000003u ^ value_hash(*p.line_start);
    return h * 1000003u ^ value_hash(*p.line_end);
  }
};

struct PlaceEqual {
  bool operator()(const Place& a, const Place& b) const noexcept {
    return same_value(*a.path, *b.path) && same_value(*a.line_start, *b.line_start) &&
           same_value(*a.line_end, *b.line_end);
  }
};

// The citations a section offers: the first few of its own list.
std::span<const ResponseValue> offered_of(std::span<const ResponseValue> citations) noexcept {
  return citations.first(std::min(citations.size(), ASK_CITATIONS_PER_SECTION));
}

// A set of places. It never holds more than the cap (or, for the extra
// citations, a cap's worth), so a flat list searched by hash first beats a
// node-based set, which allocates per place.
class PlaceSet {
 public:
  void reserve(std::size_t n) { entries_.reserve(n); }
  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }

  // insert: adds `place`, whose PlaceHash is `hash`; false when it was
  // already there.
  bool insert(const Place& place, std::size_t hash) {
    if (find(place, hash)) return false;
    entries_.push_back({hash, place});
    return true;
  }
  bool insert(const Place& place) { return insert(place, PlaceHash{}(place)); }

 private:
  struct Entry {
    std::size_t hash;
    Place place;
  };

  [[nodiscard]] bool find(const Place& place, std::size_t hash) const noexcept {
    return std::any_of(entries_.begin(), entries_.end(),
                       [&](const Entry& e) { return e.hash == hash && PlaceEqual{}(e.place, place); });
  }

  std::vector<Entry> entries_;
};

}  // namespace

// At most a cap's worth of distinct extra citations can ever be listed: each
// place the sections took skips at most one of them and fills one place of
// the cap. Extra citations that repeat an earlier extra place never count,
// whatever n is.
CitationMerge::CitationMerge(std::span<const std::span<const ResponseValue>> sections, const ResponseList& extra) {
  struct Candidate {
    Place place;
    std::size_t hash;
    std::size_t size;
  };
  std::vector<Candidate> extra_candidates;
  extra_candidates.reserve(std::min(extra.size(), ASK_MAX_CITATIONS));
  extra_.reserve(std::min(extra.size(), ASK_MAX_CITATIONS));
  {
    PlaceSet seen;
    seen.reserve(ASK_MAX_CITATIONS);
    for (std::size_t j = 0; j < extra.size() && seen.size() < ASK_MAX_CITATIONS; ++j) {
      const Place place = place_of(extra[j]);
      const std::size_t hash = PlaceHash{}(place);
      if (!seen.insert(place, hash)) continue;
      extra_candidates.push_back({place, hash, size_or_ill_formed(extra[j])});
      extra_.push_back({j, std::nullopt});
    }
  }

  sizes_.reserve(sections.size() + 1);
  own_.reserve(ASK_MAX_CITATIONS);
  PlaceSet taken;  // places of the sections' citations so far
  taken.reserve(ASK_MAX_CITATIONS);
  std::size_t own_size = 0;
  for (std::size_t n = 0; n <= sections.size(); ++n) {
    if (n > 0) {
      const std::span<const ResponseValue> offered = offered_of(sections[n - 1]);
      for (std::size_t j = 0; j < offered.size() && own_.size() < ASK_MAX_CITATIONS; ++j) {
        const Place place = place_of(offered[j]);
        const std::size_t hash = PlaceHash{}(place);
        if (!taken.insert(place, hash)) continue;
        own_.push_back({n - 1, j});
        own_size = plus(own_size, size_or_ill_formed(offered[j]));
        for (std::size_t e = 0; e < extra_.size(); ++e) {
          const Candidate& c = extra_candidates[e];
          if (!extra_[e].taken_by && c.hash == hash && PlaceEqual{}(c.place, place)) extra_[e].taken_by = n;
        }
      }
    }
    std::size_t count = own_.size();
    std::size_t size = own_size;
    for (std::size_t e = 0; e < extra_.size() && count < ASK_MAX_CITATIONS; ++e) {
      if (extra_[e].taken_by) continue;
      size = plus(size, extra_candidates[e].size);
      ++count;
    }
    sizes_.push_back(size == kIllFormed ? kIllFormed : detail::list_size(size, count));
  }
}

std::vector<CitationPick> CitationMerge::picks(std::size_t n) const {
  std::vector<CitationPick> picks;
  picks.reserve(ASK_MAX_CITATIONS);
  for (const CitationPick& p : own_) {
    if (*p.section >= n) break;
    picks.push_back(p);
  }
  for (const Extra& e : extra_) {
    if (picks.size() == ASK_MAX_CITATIONS) break;
    if (!e.taken_by || *e.taken_by > n) picks.push_back({std::nullopt, e.index});
  }
  return picks;
}

ResponseList ask_citations(std::span<const ResponseValue> sections, const ResponseList& extra) {
  std::vector<std::span<const ResponseValue>> lists;
  lists.reserve(sections.size());
  for (const ResponseValue& section : sections) {
    const ResponseValue* list = section.is_dict() ? section.as_dict().find("citations") : nullptr;
    lists.push_back(list != nullptr && list->is_list() ? std::span(list->as_list()) : std::span<const ResponseValue>());
  }
  const std::vector<CitationPick> picks = CitationMerge(lists, extra).picks(sections.size());
  ResponseList result;
  result.reserve(picks.size());
  for (const CitationPick& pick : picks)
    result.push_back(pick.section ? lists[*pick.section][pick.index] : extra[pick.index]);
  return result;
}

}  // namespace kestrune::mcp_responses::detail
