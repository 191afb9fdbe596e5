#include "vela/channels/ChannelPack.h"

#include <algorithm>
#include <bitset>
#include <ostream>
#include <string>

namespace vela {

void ChannelPack::add(Channel channel, bool unique) noexcept {
  if (unique && (channel.index() <= 0 || std::find(begin(), end(), channel) != end())) return;
  append(channel);
}

void ChannelPack::add(const ChannelSet& channels, bool unique) noexcept {
  // A set names no channel twice, so only what the pack had before can repeat: registry numbers are
  // looked up in a table, larger ones by a scan, and neither needs storage that a large number
  // could blow up.
  const Channel* const newEnd = end();
  std::bitset<kCapacity> present;
  if (unique) {
    for (const Channel c : *this) {
      if (c.index() > 0 && static_cast<std::size_t>(c.index()) < kCapacity)
        present.set(static_cast<std::size_t>(c.index()));
    }
  }
  for (const Channel c : channels) {
    if (count_ == kCapacity) return;
    const std::size_t index = static_cast<std::size_t>(c.index());
    const bool repeated =
        unique &&
        (index < kCapacity ? present[index]
                           : std::find(static_cast<const Channel*>(begin()), newEnd, c) != newEnd);
    if (!repeated) append(c);
  }
}

void ChannelPack::set(Channel channel) noexcept {
  clear();
  append(channel);
}

void ChannelPack::set(const ChannelSet& channels) noexcept {
  clear();
  add(channels, false);
}

std::ostream& operator<<(std::ostream& out, const ChannelPack& pack) {
  if (pack.empty()) return out << "none";
  std::string text;
  for (const Channel c : pack) {
    if (!text.empty()) text += ", ";
    text += std::to_string(c.index());
  }
  return out << text;
}

}  // namespace vela
