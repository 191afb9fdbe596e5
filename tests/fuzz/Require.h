/// \file
/// What the fuzz targets share: how they fail, and numbers from the bytes that they are given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace vela_test {

/// Throws when something does not hold: a fuzz target ends by that and keeps the input, a unit test
/// fails.
inline void require(bool holds, const char* what) {
  if (!holds) throw std::logic_error(std::string("does not hold: ") + what);
}

/// Values taken one after the other out of bytes; zeros after their end.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  [[nodiscard]] bool empty() const { return left_ == 0; }
  [[nodiscard]] std::size_t left() const { return left_; }
  template <class T>
  T take() {
    T value{};
    const std::size_t size = left_ < sizeof value ? left_ : sizeof value;
    if (size > 0) std::memcpy(&value, at_, size);
    at_ += size;
    left_ -= size;
    return value;
  }
  /// A small whole number, so that many coincide; sometimes one that nobody expects.
  float coordinate() {
    switch (const auto byte = take<std::uint8_t>()) {
      case 255: return std::numeric_limits<float>::quiet_NaN();
      case 254: return std::numeric_limits<float>::infinity();
      case 253: return -std::numeric_limits<float>::max();
      case 252: return std::numeric_limits<float>::denorm_min();
      case 251: return -0.0f;
      case 250: return 1e-5f;
      default: return static_cast<float>(byte % 16) - 8.0f;
    }
  }
  /// All that is left, as text.
  std::string rest() {
    std::string text(reinterpret_cast<const char*>(at_), left_);
    at_ += left_;
    left_ = 0;
    return text;
  }

 private:
  const std::uint8_t* at_;
  std::size_t left_;
};

}  // namespace vela_test
