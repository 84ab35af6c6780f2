// A fuzz input read as a source of choices. Running out of bytes gives
// zeros, which end every loop, so any input gives a finite value.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kestrune::fuzz {

class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  [[nodiscard]] bool done() const { return pos_ >= size_; }
  std::uint8_t next() { return done() ? 0 : data_[pos_++]; }
  std::uint64_t word() {
    std::uint64_t w = 0;
    for (int i = 0; i < 8; ++i) w = (w << 8) | next();
    return w;
  }
  /// rest: the bytes not read yet, as they are.
  std::string rest() {
    const std::string s(reinterpret_cast<const char*>(data_ + pos_), done() ? 0 : size_ - pos_);
    pos_ = size_;
    return s;
  }
  /// raw: up to `max` bytes as they are.
  std::string raw(std::size_t max) {
    std::string s;
    for (std::size_t n = next() % (max + 1); n > 0 && !done(); --n) s.push_back(static_cast<char>(next()));
    return s;
  }
  /// text: up to `max` pieces from `pieces`, each repeated 1 to 16 times.
  std::string text(std::span<const std::string_view> pieces, std::size_t max) {
    std::string s;
    for (std::size_t n = next() % (max + 1); n > 0 && !done(); --n) {
      const std::uint8_t b = next();
      for (int r = b >> 4; r >= 0; --r) s += pieces[b % pieces.size()];
    }
    return s;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

}  // namespace kestrune::fuzz
