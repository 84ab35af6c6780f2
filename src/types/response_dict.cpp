// ResponseDict: lookup and update of an insertion-ordered map.
#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "internal/blocks.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

namespace {

// Keys are short: up to 16 bytes they are compared as two overlapping words
// (or less), with no call; longer ones by memcmp.
bool same_key(std::string_view a, std::string_view b) noexcept {
  const std::size_t n = a.size();
  if (n != b.size()) return false;
  using detail::load32;
  using detail::load64;
  if (n >= 8 && n <= 16) {
    return load64(a.data()) == load64(b.data()) && load64(a.data() + n - 8) == load64(b.data() + n - 8);
  }
  if (n >= 4 && n < 8) {
    return load32(a.data()) == load32(b.data()) && load32(a.data() + n - 4) == load32(b.data() + n - 4);
  }
  return std::memcmp(a.data(), b.data(), n) == 0;
}

template <class Entries>
auto find_entry(Entries& entries, std::string_view key) noexcept {
  return std::find_if(entries.begin(), entries.end(), [key](const auto& e) { return same_key(e.first, key); });
}

const ResponseValue kNull;

}  // namespace

bool ResponseDict::contains(std::string_view key) const noexcept { return find(key) != nullptr; }

const ResponseValue* ResponseDict::find(std::string_view key) const noexcept {
  auto it = find_entry(entries_, key);
  return it == entries_.end() ? nullptr : &it->second;
}

ResponseValue* ResponseDict::find(std::string_view key) noexcept {
  auto it = find_entry(entries_, key);
  return it == entries_.end() ? nullptr : &it->second;
}

const ResponseValue& ResponseDict::at(std::string_view key) const {
  if (const ResponseValue* v = find(key)) return *v;
  throw std::out_of_range("ResponseDict: no key " + quote(key));
}

ResponseValue& ResponseDict::at(std::string_view key) {
  if (ResponseValue* v = find(key)) return *v;
  throw std::out_of_range("ResponseDict: no key " + quote(key));
}

const ResponseValue& ResponseDict::get(std::string_view key) const noexcept {
  const ResponseValue* v = find(key);
  return v != nullptr ? *v : kNull;
}

ResponseValue& ResponseDict::insert_or_assign(std::string_view key, ResponseValue value) {
  if (ResponseValue* v = find(key)) {
    *v = std::move(value);
    return *v;
  }
  return push(std::string(key), std::move(value));
}

ResponseValue& ResponseDict::append(std::string key, ResponseValue value) {
  return push(std::move(key), std::move(value));
}

ResponseValue& ResponseDict::push(std::string&& key, ResponseValue&& value) {
  Entry& entry = entries_.emplace_back(std::move(key), std::move(value));
  count_key(entry.first);
  return entry.second;
}

ResponseValue& ResponseDict::operator[](std::string_view key) {
  if (ResponseValue* v = find(key)) return *v;
  return push(std::string(key), ResponseValue());
}

bool ResponseDict::erase(std::string_view key) {
  auto it = find_entry(entries_, key);
  if (it == entries_.end()) return false;
  entries_.erase(it);
  recount_keys();
  return true;
}

void ResponseDict::add_key_overhead(std::size_t overhead) noexcept {
  constexpr std::size_t kNone = std::string_view::npos;
  keys_overhead_ = keys_overhead_ == kNone || overhead == kNone ? kNone : keys_overhead_ + overhead;
}

void ResponseDict::count_key(std::string_view key) noexcept { add_key_overhead(detail::string_overhead(key)); }

void ResponseDict::recount_keys() noexcept {
  keys_overhead_ = 0;
  for (const Entry& e : entries_) count_key(e.first);
}

}  // namespace kestrune::mcp_responses
