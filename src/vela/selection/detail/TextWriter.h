/// \file
/// Words and numbers for a stream, as its default formatting in the classic locale would write
/// them, in large pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string_view>

namespace vela::Selection::detail {

/// Collects text and hands it on piece by piece. The stream's flags, width and locale neither
/// matter nor change.
class TextWriter {
 public:
  explicit TextWriter(std::ostream& out) : out_(out) {}
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  void text(std::string_view text);
  void number(std::uint64_t value);
  /// Six significant digits, as "%g" has them.
  void number(float value);

  /// Hands on what was collected. To be called last: a destructor could not let the stream's own
  /// exceptions out.
  void flush();

 private:
  static constexpr std::size_t kCapacity = std::size_t{1} << 16;
  static constexpr std::size_t kLongestNumber = 32;

  // At least kLongestNumber bytes of room.
  char* roomForNumber() {
    if (kCapacity - size_ < kLongestNumber) flush();
    return buffer_ + size_;
  }

  std::ostream& out_;
  std::size_t size_ = 0;
  char buffer_[kCapacity];
};

}  // namespace vela::Selection::detail
