/// \file
/// A rendered picture in memory.
///
/// Holds for the whole file: rows run from the top, pixels from the left, and pixel (0, 0) is top
/// left. Colour is linear, with alpha multiplied in. Records are plain values: copies share
/// nothing, const reads are safe from any number of threads. Nothing throws but allocation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/picture/Api.h"

namespace vela::picture {

/// What the values of a channel are: measures are floats, numbers that name things are integers.
enum class ValueType {
  float32,  ///< a measure
  uint32,   ///< a number that names something, or counts
};

/// The channels of one layer.
struct Layer {
  std::string name;  ///< `rgba`, `depth` ...: a row of layerTable()
  /// As files name them, in the order of their values: `R`, `G`, `B`, `A`; `P.x`, `P.y`, `P.z`.
  std::vector<std::string> channels;
  ValueType type = ValueType::float32;  ///< which of the two lists counts
  /// width * height * channels.size() values, the channels of a pixel side by side. The other of
  /// the two lists is empty. @{
  std::vector<float> floats;
  std::vector<std::uint32_t> integers;
  /// @}
};

/// Neighbouring channels of a picture, read where they are. Steps are counted in values; the
/// channels of a pixel are one value apart. Valid while the picture lives and keeps its layers.
template <class T>
struct PixelView {
  const T* data = nullptr;  ///< the first channel of pixel (0, 0); null when there is nothing
  /// How many there are each way. @{
  int width = 0, height = 0, channels = 0;
  /// @}
  std::ptrdiff_t pixelStep = 0;  ///< from a pixel to its right neighbour
  std::ptrdiff_t rowStep = 0;    ///< from a pixel to the one below

  /// True when there is something to read.
  [[nodiscard]] explicit operator bool() const noexcept { return data != nullptr; }
  /// \param x, y, channel within width, height and channels; not checked
  [[nodiscard]] const T& operator()(int x, int y, int channel = 0) const noexcept {
    return data[y * rowStep + x * pixelStep + channel];
  }
};

/// A layer of a picture or a part of one, such as `rgb` of `rgba`. False in a condition when the
/// picture does not have it; its type and both views are then empty.
struct LayerView {
  ValueType type = ValueType::float32;  ///< which of the two views counts
  PixelView<float> floats;              ///< empty when the values are integers
  PixelView<std::uint32_t> integers;    ///< empty when the values are floats

  /// True when the picture has the layer.
  [[nodiscard]] explicit operator bool() const noexcept { return floats || integers; }
};

/// One fact about the whole picture, written to files that have room for such.
struct Attribute {
  std::string name;  ///< as files have it
  /// Of one of the types that files have
  std::variant<std::string, int, float, tarn::Vec2f, tarn::Mat4f> value;
};

/// \code
///   vela::picture::Picture picture;
///   picture.width = 2;
///   picture.height = 1;
///   vela::picture::Layer depth;
///   depth.name = "depth";
///   depth.channels = {"Z"};
///   depth.floats = {1.5f, 2.5f};
///   picture.layers.push_back(depth);
///   const vela::picture::PixelView<float> z = picture.layer("depth").floats;
///   assert(z(1, 0) == 2.5f);
///   assert(picture.channel("Z").floats(0, 0) == 1.5f);
///   assert(!picture.layer("rgba"));
/// \endcode
struct VELA_PICTURE_API Picture {
  /// Pixels. @{
  int width = 0, height = 0;
  /// @}
  std::vector<Layer> layers;          ///< in the order of layerTable()
  std::vector<Attribute> attributes;  ///< in the order in which they are written
  /// What the values of the layer `prim` stand for: value n is manifest[n - 1], 0 is nothing.
  std::vector<std::string> manifest;

  /// The layer of that name, or the part of another layer that has its channels: `rgb` and `alpha`
  /// are found in `rgba`.
  [[nodiscard]] LayerView layer(std::string_view name) const;
  /// The single channel of that name, as files name it.
  [[nodiscard]] LayerView channel(std::string_view name) const;
  /// True when there is a layer of exactly that name.
  [[nodiscard]] bool hasLayer(std::string_view name) const noexcept;

  /// A rectangle of it, with all that it says of the whole.
  /// \param x, y, width, height is cut off where it lies outside the picture
  [[nodiscard]] Picture part(int x, int y, int width, int height) const;

  /// width * height.
  [[nodiscard]] std::size_t pixelCount() const noexcept {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  }
};

}  // namespace vela::picture
