// Where a StrSink keeps its text: growing, widening, and the finished str.
#include "str_sink.hpp"

#include <utility>

#include "buffer_memory.hpp"

namespace kestrune::mcp_responses::python {
namespace {

constexpr std::uint32_t kMaxChars[] = {0x7F, 0xFF, 0xFFFF, 0x10FFFF};
constexpr std::size_t kWidths[] = {1, 1, 2, 4};

// `n` characters `from` (width `from_width`) written `to` at `to_width`.
template <class To>
void widened(const char* from, std::size_t from_width, To* to, std::size_t n) {
  if (from_width == 1) {
    const auto* f = reinterpret_cast<const Py_UCS1*>(from);
    for (std::size_t i = 0; i < n; ++i) to[i] = f[i];
  } else {
    const auto* f = reinterpret_cast<const Py_UCS2*>(from);
    for (std::size_t i = 0; i < n; ++i) to[i] = f[i];
  }
}

}  // namespace

StrSink::StrSink(std::size_t chars, std::uint32_t max_char) : counted_(chars), preset_(true) {
  kind_ = max_char <= 0x7F     ? Kind::ascii
          : max_char <= 0xFF   ? Kind::latin1
          : max_char <= 0xFFFF ? Kind::ucs2
                               : Kind::ucs4;
  width_ = kWidths[static_cast<int>(kind_)];
  counted_kind_ = kind_;
  // Room beyond the count for the most any one write asks for before it
  // knows what it writes, so that a right count never grows the str.
  const std::size_t units = chars + kMaxEscape * kChunk + 64;
  relocate(units, units, kind_);
}

void StrSink::grow(std::size_t n) {
  const std::size_t least = (size() + n + width_ - 1) / width_;
  relocate(grown_capacity(capacity(), least * width_) / width_, least, kind_);
}

void StrSink::widen(Kind k) {
  if (str_ == nullptr && kind_ == Kind::ascii && k == Kind::latin1) {
    kind_ = k;  // one byte a character either way: nothing moves yet
    return;
  }
  if (str_ != nullptr && !preset_ && size() > kCopyWidenMost) throw WidenedLate{};
  const std::size_t least = size() / width_ + kLocalBytes;
  relocate(std::max(2 * size() / width_, least), least, k);
}

void StrSink::relocate(std::size_t units, std::size_t least, Kind k) {
  const std::size_t count = size() / width_;
  const std::size_t to_width = kWidths[static_cast<int>(k)];
  if (str_ != nullptr && k == kind_ && units * to_width < kHugeFrom) {
    // The same kind: realloc, in place or remapped.
    if (PyUnicode_Resize(&str_, static_cast<Py_ssize_t>(units)) != 0) throw NoMemory{};
  } else {
    PyObject* fresh = PyUnicode_New(static_cast<Py_ssize_t>(units), kMaxChars[static_cast<int>(k)]);
    if (fresh == nullptr && units > least) {
      PyErr_Clear();  // a generous request refused: what is needed
      units = least;
      fresh = PyUnicode_New(static_cast<Py_ssize_t>(units), kMaxChars[static_cast<int>(k)]);
    }
    if (fresh == nullptr) throw NoMemory{};
    const std::size_t bytes = units * to_width;
    auto* data = static_cast<char*>(PyUnicode_DATA(fresh));
    if (bytes >= kHugeFrom) advise_huge(data, data + bytes);
    if (to_width == width_) {
      moved_by_hand(data, begin_, size(), capacity());
    } else if (to_width == 2) {
      widened(begin_, width_, reinterpret_cast<Py_UCS2*>(data), count);
    } else {
      widened(begin_, width_, reinterpret_cast<Py_UCS4*>(data), count);
    }
    Py_XDECREF(str_);
    str_ = fresh;
    kind_ = k;
    width_ = to_width;
  }
  begin_ = static_cast<char*>(PyUnicode_DATA(str_));
  p_ = begin_ + count * width_;
  end_ = begin_ + units * width_;
}

PyObject* StrSink::str() {
  const auto count = static_cast<Py_ssize_t>(size() / width_);
  if (str_ == nullptr) {
    PyObject* out = PyUnicode_New(count, kMaxChars[static_cast<int>(kind_)]);
    if (out != nullptr) std::memcpy(PyUnicode_DATA(out), begin_, size());
    return out;
  }
  if (PyUnicode_Resize(&str_, count) != 0) return nullptr;
  return std::exchange(str_, nullptr);
}

bool StrSink::as_counted() const noexcept {
  return !preset_ || (seen_ == counted_kind_ && kind_ == counted_kind_ && size() / width_ == counted_);
}

}  // namespace kestrune::mcp_responses::python
