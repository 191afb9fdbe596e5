#include "vela/channels/ChannelSet.h"

#include <algorithm>
#include <ostream>
#include <string>

#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"

namespace vela {

void ChannelSet::insert(const Channel* list, int n) {
  if (list == nullptr || n < 1) return;
  // Grow once, to the highest channel.
  words_.extendTo(std::max_element(list, list + n)->index());
  for (int i = 0; i < n; ++i) insert(list[i]);
}

void ChannelSet::erase(const Channel* list, int n) {
  if (list == nullptr) return;
  for (int i = 0; i < n; ++i) erase(list[i]);
}

ChannelSet& ChannelSet::operator&=(Channel channel) {
  if (words_.has(channel.index())) {
    words_.assign(channel.index());
  } else {
    clear();
  }
  return *this;
}

// ---- Registry

ChannelManager* ChannelSet::context() const {
  return context_ != nullptr ? context_ : DefaultChannelManager();
}

void ChannelSet::changeContext(ChannelManager* context) {
  ChannelManager* const target = context != nullptr ? context : DefaultChannelManager();
  if (target == this->context()) return;
  context_ = target;
  clear();
}

std::ostream& operator<<(std::ostream& out, const ChannelSet& set) {
  if (set.empty()) return out << "none";
  if (set.all()) return out << "all";

  std::string text;
  ChannelSet printed;
  const ChannelManager* registry = set.context();
  for (const Channel c : set) {
    if (printed & c) continue;
    if (!text.empty()) text += ',';

    // The first four channels are named by themselves: their layers overlap.
    if (c == 1 && set.contains(0x7u)) {
      text += set.contains(0xFu) ? "rgba" : "rgb";
      printed += 0xFu;
      continue;
    }

    // A layer that is here as a whole goes by its name, anything else by its number.
    const ChannelAlias* alias = registry->channel(c);
    const LayerAlias* layer = alias != nullptr ? alias->layer() : nullptr;
    bool whole = layer != nullptr;
    for (unsigned i = 0; whole && layer->channel(i) > 0; ++i) whole = set & layer->channel(i);
    if (whole) {
      text += layer->name();
      for (unsigned i = 0; layer->channel(i) > 0; ++i) printed += layer->channel(i);
    } else {
      text += std::to_string(c.index());
    }
  }
  return out << text;
}

}  // namespace vela
