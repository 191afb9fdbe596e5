/// \file
/// Which layers a picture has, by the channel registry.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vela/channels/ChannelSet.h"
#include "vela/picture/Api.h"
#include "vela/picture/LayerTable.h"
#include "vela/picture/Picture.h"

namespace vela::picture {

/// One layer of a choice.
struct ChosenLayer {
  std::string name;           ///< what the picture calls it
  const LayerInfo* info;      ///< the row that its values come from; never a part
  std::vector<int> elements;  ///< which of that row's channels, ascending
};

/// The layers of a picture, each channel once.
struct VELA_PICTURE_API LayerChoice {
  vela::ChannelSet set;             ///< the same channels in the default registry
  std::vector<ChosenLayer> layers;  ///< in the order of layerTable()

  /// True when any channel of the choice is sampled that way.
  [[nodiscard]] bool has(Sampling sampling) const noexcept;
  /// True when some channel of the choice comes from the row of that name.
  [[nodiscard]] bool has(std::string_view name) const noexcept;

  /// A picture with these layers, all values 0.
  [[nodiscard]] Picture makePicture(int width, int height) const;
  /// Takes from a picture all channels that are not of this choice, and the attributes of mattes
  /// that it then has no more. Of channels that the picture does not have nothing comes.
  void reduce(Picture& picture) const;
};

/// Finds layers in the default registry by their names and creates there what is missing. Besides
/// the rows of layerTable() a name may be one of layerGroups(), for all of its rows, or any layer
/// of the registry all of whose channels belong to such rows.
///
/// \param error why nothing came back, one line that names the layer and what to try; else
///              untouched
/// \return nothing for an empty list, and when a layer is unknown or cannot be rendered
///
/// Threads: creating layers changes the default registry, which takes no lock: callers serialise
/// first choices with other uses of it.
///
/// \code
///   std::string error;
///   const std::optional<vela::picture::LayerChoice> choice =
///       vela::picture::chooseLayers({"rgba", "depth"}, &error);
///   assert(choice && choice->layers.size() == 2);
///   assert(!vela::picture::chooseLayers({"heat"}, &error));
///   assert(error.substr(0, 19) == "no such layer: heat");
/// \endcode
[[nodiscard]] VELA_PICTURE_API std::optional<LayerChoice> chooseLayers(
    const std::vector<std::string>& names, std::string* error = nullptr);

/// `try rgba, rgb ... or albedo`: layerNames(), for messages.
[[nodiscard]] VELA_PICTURE_API std::string layersToTry();

}  // namespace vela::picture
