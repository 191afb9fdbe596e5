/// \file
/// The rows behind layerTable(): what the renderer and the registry need of a layer beside what
/// everybody may know.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vela/channels/Channel.h"
#include "vela/picture/LayerTable.h"

namespace vela::picture::detail {

class PixelCentre;
class PixelCoverage;
struct PixelMean;

/// The values of one pixel in one layer; which of the two counts is the layer's type.
struct LayerValues {
  float floats[4] = {};
  std::uint32_t integers[4] = {};
};

/// How a layer's values are made, from what one of the samplings gives.
struct LayerFunction {
  using AtCentre = void (*)(const PixelCentre& centre, LayerValues& out);
  using OfMean = void (*)(const PixelMean& mean, LayerValues& out);
  using OfCoverage = void (*)(const PixelCoverage& coverage, LayerValues& out);

  LayerFunction() = default;
  LayerFunction(AtCentre function) : atCentre(function) {}
  LayerFunction(OfMean function) : ofMean(function) {}
  LayerFunction(OfCoverage function) : ofCoverage(function) {}

  /// True when there is one.
  [[nodiscard]] explicit operator bool() const { return atCentre || ofMean || ofCoverage; }

  AtCentre atCentre = nullptr;
  OfMean ofMean = nullptr;
  OfCoverage ofCoverage = nullptr;
};

struct LayerRow {
  LayerInfo info;               ///< `sampling` and `isPart` follow from the function
  LayerFunction function = {};  ///< none for a part of another layer
  /// Of the layer in the registry, and of each of its channels where they have a type of their own.
  /// None for layers that the default registry always has.
  Channel::Type purpose = Channel::none;
  std::vector<Channel::Type> channelTypes = {};
  /// Needs the surfaces, and not only the caster's hit, when pictures are smooth.
  bool usesNormals = false;
  /// The name that this row and its neighbours are chosen by together; empty for rows alone.
  std::string group = {};
};

/// The rows in the order of layerTable(), index by index.
[[nodiscard]] const std::vector<LayerRow>& layerRows();

/// The row that a table entry belongs to.
[[nodiscard]] const LayerRow& rowOf(const LayerInfo& info);

}  // namespace vela::picture::detail
