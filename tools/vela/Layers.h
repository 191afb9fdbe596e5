/// \file
/// Which layers a picture has, by the channel registry.
#pragma once

#include <string>
#include <vector>

#include "vela/channels/Channel.h"
#include "vela/channels/ChannelSet.h"

namespace command {

/// What the renderer can put into a channel.
enum class Quantity { colour, alpha, depth, position, normal, prim, face, albedo };

struct LayerChannel {
  vela::Channel channel;
  std::string exrName;  ///< R, G, B, A and Z in the base layer, all else as layer.channel
  Quantity quantity = Quantity::colour;
  int component = 0;  ///< place of the channel in its layer

  /// Numbers that name things are stored as integers.
  [[nodiscard]] bool isInteger() const {
    return quantity == Quantity::prim || quantity == Quantity::face;
  }
};

struct LayerChoice {
  vela::ChannelSet set;
  std::vector<LayerChannel> channels;  ///< one for each channel of the set, in its order
  [[nodiscard]] bool has(Quantity quantity) const;
};

inline constexpr const char* kDefaultLayers = "rgba,depth,P,N,prim,face";

/// Finds the layers of a comma-separated list in the default registry and creates there what is
/// missing:
/// - rgba, rgb, alpha, depth: the registry's own;
/// - P, N: world position and geometric normal, x y z;
/// - prim: the number of the prim, as the manifest has it; face: the number of its face;
/// - albedo: displayColor without light.
/// \throws Failure (usage) for a layer that cannot be rendered
[[nodiscard]] LayerChoice chooseLayers(const std::string& list);

}  // namespace command
