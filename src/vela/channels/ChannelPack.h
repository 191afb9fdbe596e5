/// \file
/// An ordered list of up to 1024 channels, without heap storage.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "vela/Api.h"
#include "vela/channels/Channel.h"
#include "vela/channels/ChannelSet.h"

namespace vela {

/// Up to 1024 channels in the order in which they were added; what is added to a full pack is
/// ignored. A plain value without heap storage; const calls are safe from several threads.
///
/// \code
///   vela::ChannelPack pack;
///   pack += vela::Channel(4);
///   pack += vela::ChannelSet(0x7u);  // channels 1 to 3, behind what is there
///   pack += vela::Channel(4);        // is there already
///
///   std::ostringstream text;
///   text << pack;
///   assert(text.str() == "4, 1, 2, 3");
///
///   const vela::ChannelSet set = pack;
///   assert(set.mask32() == 0xFu);
/// \endcode
class VELA_API ChannelPack {
 public:
  static constexpr std::size_t kCapacity = 1024;  ///< entries that a pack has room for

  ChannelPack() noexcept = default;
  /// A pack of one, whatever its number.
  ChannelPack(Channel channel) noexcept { set(channel); }  // implicit
  /// The set's channels in ascending order, as far as its iteration goes.
  ChannelPack(const ChannelSet& channels) noexcept { set(channels); }  // implicit
  /// Replaces the content by a set's channels in ascending order.
  ChannelPack& operator=(const ChannelSet& channels) noexcept {
    set(channels);
    return *this;
  }

  /// Appends a channel.
  /// \param unique  true: only a channel above 0 that the pack does not have yet; false:
  ///                unconditionally
  void add(Channel channel, bool unique) noexcept;
  /// Appends a set's channels in ascending order, each under the rule of `add(Channel, unique)`.
  void add(const ChannelSet& channels, bool unique) noexcept;
  /// Appends what the pack does not have yet, as add() does with `unique`. @{
  ChannelPack& operator+=(Channel channel) noexcept {
    add(channel, true);
    return *this;
  }
  ChannelPack& operator+=(const ChannelSet& channels) noexcept {
    add(channels, true);
    return *this;
  }
  /// @}
  /// Replaces the content by one channel, whatever its number.
  void set(Channel channel) noexcept;
  /// Replaces the content by a set's channels in ascending order.
  void set(const ChannelSet& channels) noexcept;
  /// Forgets all entries. The array keeps what it held.
  void clear() noexcept { count_ = 0; }

  /// True when no entry is in use.
  [[nodiscard]] bool empty() const noexcept { return count_ == 0; }
  /// How many entries are in use, 0 to 1024.
  [[nodiscard]] std::size_t size() const noexcept { return count_; }
  /// The entries; the first `size()` are in use. @{
  [[nodiscard]] const Channel* array() const noexcept { return entries_.data(); }
  [[nodiscard]] Channel* array() noexcept { return entries_.data(); }
  /// @}
  /// The first entry, and behind the last one in use. @{
  [[nodiscard]] const Channel* begin() const noexcept { return entries_.data(); }
  [[nodiscard]] const Channel* end() const noexcept { return entries_.data() + count_; }
  [[nodiscard]] Channel* begin() noexcept { return entries_.data(); }
  [[nodiscard]] Channel* end() noexcept { return entries_.data() + count_; }
  /// @}
  /// The entry at a position, which must be below 1024.
  [[nodiscard]] Channel& operator[](unsigned position) noexcept {
    assert(position < kCapacity);
    return entries_[position];
  }
  /// The entry at a position; channel 0 from 1024 on.
  [[nodiscard]] Channel operator[](unsigned position) const noexcept {
    return position < kCapacity ? entries_[position] : Channel(0);
  }
  /// The set of the entries, of the default registry.
  operator ChannelSet() const { return ChannelSet(entries_.data(), static_cast<int>(count_)); }

 private:
  void append(Channel channel) noexcept {
    if (count_ < kCapacity) entries_[count_++] = channel;
  }

  std::array<Channel, kCapacity> entries_{};
  std::uint32_t count_ = 0;
};

static_assert(sizeof(ChannelPack) == 1024 * 4 + 4,
              "1024 numbers, then how many of them are in use");

/// "none" for an empty pack, else the numbers in pack order, separated by ", ". The stream's base
/// is not used.
VELA_API std::ostream& operator<<(std::ostream& out, const ChannelPack& pack);

}  // namespace vela
