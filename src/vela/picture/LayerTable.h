/// \file
/// The layers that can be rendered: one table, which the renderer, the files, the choice of layers
/// and every help text read. A new layer is one more row of it, in detail/LayerRows.cpp.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vela/picture/Api.h"
#include "vela/picture/Picture.h"

namespace vela::picture {

/// Where in a pixel a layer is taken.
enum class Sampling {
  pixelCentre,        ///< by the one ray through the pixel's centre: no value is ever a mixture
  meanOfSamples,      ///< the mean over all samples of the pixel
  coverageOfSamples,  ///< which share of the samples each name covers, the greatest first
};

/// What is known of a layer without rendering it.
struct LayerInfo {
  std::string name;                     ///< in the channel registry, and to be chosen by
  std::vector<std::string> subnames;    ///< of its channels in the registry, by position
  std::vector<std::string> channels;    ///< what files call the same channels; at most 4
  ValueType type = ValueType::float32;  ///< of all channels
  bool isDefault = false;               ///< rendered when nothing is chosen
  std::string help;  ///< what the values are, to stand behind the channels' names
  Sampling sampling = Sampling::pixelCentre;  ///< where in a pixel it is taken
  /// True for a layer that is some of the channels of another, such as `rgb` of `rgba`.
  bool isPart = false;
};

/// Layers that go by one name, such as those of a matte.
struct LayerGroup {
  std::string name;                 ///< to choose all of them by
  std::vector<std::string> layers;  ///< rows of layerTable(), in its order
  std::string help;                 ///< as LayerInfo::help, to stand behind the layers' names
};

/// All layers, in the order in which help texts name them. A part comes after the layer that it is
/// a part of.
[[nodiscard]] VELA_PICTURE_API const std::vector<LayerInfo>& layerTable();

/// The row of that name; null when there is none.
[[nodiscard]] VELA_PICTURE_API const LayerInfo* findLayerInfo(std::string_view name);

/// The groups of the table, in its order. No layer belongs to two of them.
[[nodiscard]] VELA_PICTURE_API const std::vector<LayerGroup>& layerGroups();

/// The names to choose layers by: rows and groups in the order of the table, a group in the place
/// of its rows.
[[nodiscard]] VELA_PICTURE_API std::vector<std::string> layerNames();

/// The names of the layers that are rendered when nothing is chosen.
[[nodiscard]] VELA_PICTURE_API std::vector<std::string> defaultLayers();

}  // namespace vela::picture
