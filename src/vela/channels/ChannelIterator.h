/// \file
/// The walk through a ChannelSet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "vela/channels/Channel.h"
#include "vela/channels/ChannelWords.h"

namespace vela {

/// Goes through a set's channels in ascending order; the set must outlive it and not change
/// meanwhile. A plain value.
///
/// \code
///   const vela::ChannelSet set(0x5u);
///   vela::ChannelIterator channel = set.begin();
///   assert(*channel == 1 && *++channel == 3);
///   assert(++channel == set.end());
/// \endcode
class ChannelIterator {
 public:
  /// The names that the standard's algorithms ask for. @{
  using iterator_category = std::forward_iterator_tag;
  using value_type = Channel;
  using difference_type = std::ptrdiff_t;
  using pointer = const Channel*;
  using reference = Channel;
  /// @}

  ChannelIterator() noexcept = default;
  /// The channel where it stands; not to be asked at the end.
  [[nodiscard]] Channel operator*() const noexcept {
    return Channel(base_ + detail::ChannelWords::lowestBit(bits_));
  }
  /// Goes on to the next channel; not to be called at the end. @{
  ChannelIterator& operator++() noexcept {
    bits_ &= bits_ - 1;
    if (bits_ == 0) goOn();
    return *this;
  }
  ChannelIterator operator++(int) noexcept {
    const ChannelIterator before = *this;
    ++*this;
    return before;
  }
  /// @}
  /// Equal at the same channel of one set, and at the ends of all sets. @{
  [[nodiscard]] bool operator==(const ChannelIterator& other) const noexcept {
    return bits_ == other.bits_ && base_ == other.base_;
  }
  [[nodiscard]] bool operator!=(const ChannelIterator& other) const noexcept {
    return !(*this == other);
  }
  /// @}

 private:
  friend class ChannelSet;

  explicit ChannelIterator(const detail::ChannelWords& words) noexcept
      : words_(&words), bits_(words.pairZero()) {
    if (bits_ == 0) goOn();
  }
  // To the next pair that has members; to the end, where both numbers are 0, when there is none.
  void goOn() noexcept {
    const Channel next = words_->hasExtension()
                             ? words_->lowestAbovePair(static_cast<unsigned>(base_) >> 6)
                             : Channel(0);
    base_ = next.index() & ~63;
    if (next) bits_ = words_->pair(static_cast<unsigned>(base_) >> 6);
  }

  const detail::ChannelWords* words_ = nullptr;
  std::uint64_t bits_ = 0;  // what is left of a pair: bit b stands for channel base_ + b
  int base_ = 0;
};

}  // namespace vela
