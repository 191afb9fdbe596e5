#include "Layers.h"

#include <algorithm>

#include "Failure.h"
#include "Text.h"
#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"

namespace command {

namespace {

using vela::Channel;
using vela::ChannelAlias;
using vela::ChannelManager;
using vela::LayerAlias;

// A layer of channels that are made one by one: the registry's creator of colour layers only works
// when it is nearly full.
LayerAlias* createByChannels(ChannelManager& registry, const char* layer,
                             const std::vector<const char*>& names,
                             const std::vector<Channel::Type>& types, Channel::Type purpose) {
  ChannelAlias* members[4] = {};
  for (std::size_t i = 0; i < names.size(); ++i) {
    members[i] = registry.createChannel(layer, names[i], static_cast<int>(i), types[i]);
    if (!members[i]) return nullptr;
  }
  return registry.createLayer(layer, static_cast<unsigned>(names.size()), purpose, members[0],
                              members[1], members[2], members[3]);
}

// The registry's layer of that name, made when it is one that pictures add; null for all others.
LayerAlias* findOrCreate(ChannelManager& registry, const std::string& name) {
  if (LayerAlias* layer = registry.getLayer(name.c_str())) return layer;
  if (name == "P" || name == "N") return registry.createVec3Layer(name.c_str(), "xyz");
  if (name == "prim" || name == "face")
    return createByChannels(registry, name.c_str(), {"id"}, {Channel::Type::bitmaskId},
                            Channel::Type::bitmaskId);
  if (name == "albedo")
    return createByChannels(
        registry, name.c_str(), {"red", "green", "blue"},
        {Channel::Type::colorRed, Channel::Type::colorGreen, Channel::Type::colorBlue},
        Channel::Type::color3);
  return nullptr;
}

// What a channel holds, by its owning layer and its place there (not by its number: members of
// vectors are numbered last first). False when the renderer has nothing for it.
bool describeChannel(const ChannelAlias& alias, LayerChannel& out) {
  if (!alias.layer()) return false;
  const std::string layer = alias.layer()->name();
  out.channel = alias.channel();
  out.component = static_cast<int>(alias.position());
  out.exrName = layer + "." + alias.subname();
  static const char* const kBase[] = {"R", "G", "B", "A"};
  if (layer == "rgb" || layer == "rgba") {
    out.quantity = alias.position() < 3 ? Quantity::colour : Quantity::alpha;
    out.exrName = kBase[std::min(alias.position(), 3u)];
  } else if (layer == "depth") {
    out.quantity = Quantity::depth;
    out.exrName = "Z";
  } else if (layer == "albedo") {
    out.quantity = Quantity::albedo;
    out.exrName = layer + "." + kBase[std::min(alias.position(), 3u)];
  } else if (layer == "P") {
    out.quantity = Quantity::position;
  } else if (layer == "N") {
    out.quantity = Quantity::normal;
  } else if (layer == "prim") {
    out.quantity = Quantity::prim;
  } else if (layer == "face") {
    out.quantity = Quantity::face;
  } else {
    return false;
  }
  return true;
}

}  // namespace

bool LayerChoice::has(Quantity quantity) const {
  return std::any_of(channels.begin(), channels.end(),
                     [&](const LayerChannel& c) { return c.quantity == quantity; });
}

LayerChoice chooseLayers(const std::string& list) {
  constexpr const char* kAttempt = "try rgba, rgb, alpha, depth, P, N, prim, face or albedo";
  ChannelManager& registry = *vela::DefaultChannelManager();
  LayerChoice choice;
  const auto canRender = [&](Channel channel) {
    const ChannelAlias* alias = registry.channel(channel);
    LayerChannel described;
    return alias && describeChannel(*alias, described);
  };
  for (const std::string& name : splitList(list)) {
    const LayerAlias* layer = findOrCreate(registry, name);
    if (!layer) throw Failure{kUsage, "no such layer", name, "", kAttempt};
    const vela::ChannelSet& members = layer->channelSet();
    if (!std::all_of(members.begin(), members.end(), canRender))
      throw Failure{kUsage, "the layer cannot be rendered", name, "", kAttempt};
    choice.set += members;
  }
  for (const Channel channel : choice.set)
    describeChannel(*registry.channel(channel), choice.channels.emplace_back());
  if (choice.channels.empty())
    throw Failure{kUsage, "no layers", "--layers", "the list is empty", kAttempt};
  return choice;
}

}  // namespace command
