// ResponseValue: its heap forms (long strings, lists and maps), equality,
// and the falsiness test.
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "kestrune/mcp_responses/types.hpp"
#include "types/value_access.hpp"

namespace kestrune::mcp_responses {

ResponseValue::ResponseValue(std::string_view s) {
  if (s.empty()) {  // nothing to copy or scan: "" is its two quotes
    tag_ = static_cast<std::uint8_t>(Kind::string);
    aux_ = 2;
    return;
  }
  // A copied string is measured in its source: reading the copy right after
  // writing it would stall on loads that span the copy's stores.
  set_string(s, detail::string_overhead(s));
}

void ResponseValue::set_string(std::string_view s, std::size_t overhead) { set_string(s, {}, overhead); }

void ResponseValue::set_string(std::string_view head, std::string_view tail, std::size_t overhead) {
  const std::size_t size = head.size() + tail.size();
  char* text = bytes_;
  if (size <= kInlineMax) {
    aux_ = overhead == detail::kIllFormed ? kAuxIllFormed : static_cast<std::uint8_t>(overhead);
    tag_ = static_cast<std::uint8_t>(static_cast<unsigned>(Kind::string) | size << kLengthShift);
  } else {
    // One allocation: the header, then the bytes, aligned for any object.
    // It is freed without its size, so that a string cut in place
    // (ValueAccess::cut_in_place) frees the same.
    char* memory = static_cast<char*>(::operator new(sizeof(StringBlock) + size));
    auto* block = new (memory) StringBlock{size, overhead};
    set_pointer(Kind::string, block);
    tag_ |= kHeapString;
    const std::uint64_t encoded = overhead == detail::kIllFormed ? kSizeIllFormed : size + overhead;
    static_assert(std::endian::native == std::endian::little, "the size is kept in its low bytes");
    std::memcpy(bytes_ + kInlineMax - kSizeBytes, &encoded, kSizeBytes);
    text = reinterpret_cast<char*>(block + 1);
  }
  // An empty view may hold a null pointer, which memcpy must not be given.
  if (!head.empty()) std::memcpy(text, head.data(), head.size());
  if (!tail.empty()) std::memcpy(text + head.size(), tail.data(), tail.size());
}

void ResponseValue::copy_heap(const ResponseValue& other) {
  switch (other.kind()) {
    case Kind::string: {
      const auto* block = static_cast<const StringBlock*>(other.pointer());
      set_string(other.text(), block->overhead);
      return;
    }
    case Kind::list:
      set_pointer(Kind::list, std::make_unique<ResponseList>(other.as_list()).release());
      return;
    case Kind::dict:
      set_pointer(Kind::dict, std::make_unique<ResponseDict>(other.as_dict()).release());
      return;
    default:
      copy_bits(other);
  }
}

void ResponseValue::release_heap() noexcept {
  void* p = pointer();
  if (heap_string()) {
    ::operator delete(p);
  } else if (kind() == Kind::list) {
    std::unique_ptr<ResponseList>{static_cast<ResponseList*>(p)};
  } else {
    std::unique_ptr<ResponseDict>{static_cast<ResponseDict*>(p)};
  }
}

bool operator==(const ResponseValue& a, const ResponseValue& b) {
  if (a.kind() != b.kind()) return false;
  switch (a.kind()) {
    case Kind::null:
      return true;
    case Kind::boolean:
      return a.as_bool() == b.as_bool();
    case Kind::integer:
      return a.as_integer() == b.as_integer();
    case Kind::double_:
      return a.as_double() == b.as_double();
    case Kind::string:
      return a.as_string() == b.as_string();
    case Kind::list:
      return a.as_list() == b.as_list();
    case Kind::dict:
      return a.as_dict() == b.as_dict();
  }
  return false;
}

bool is_falsy(const ResponseValue& value) noexcept {
  switch (value.kind()) {
    case Kind::null:
      return true;
    case Kind::boolean:
      return !value.as_bool();
    case Kind::integer:
      return value.as_integer() == 0;
    case Kind::double_:
      return value.as_double() == 0.0;
    case Kind::string:
      return value.as_string().empty();
    case Kind::list:
      return value.as_list().empty();
    case Kind::dict:
      return value.as_dict().empty();
  }
  return false;
}

}  // namespace kestrune::mcp_responses
