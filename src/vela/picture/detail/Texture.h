/// \file
/// An image that surfaces are coloured by: decoded, filtered, of bounded size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarn/Vec.h"
#include "vela/picture/detail/ImageReader.h"

namespace vela::picture::detail {

/// What lies beyond the image's edges.
enum class Wrap {
  black,   ///< nothing: all four channels are 0
  clamp,   ///< the edge
  repeat,  ///< the image again
  mirror,  ///< the image turned round
};

/// What a texture's numbers are taken for.
enum class ColourSpace {
  automatic,  ///< what the image says; else sRGB for 8 bits and three or four channels
  raw,        ///< as they are
  srgb,       ///< encoded by the sRGB curve; alpha never is
};

/// Halves of a size, rounded up: the size at a level of a texture.
[[nodiscard]] int sizeAtLevel(int size, int level) noexcept;

/// An image and its reductions, each half the size of the one before, down to a single texel.
///
/// Coordinates: (0, 0) is the lower left corner of the image, (1, 1) the upper right one. Values
/// are linear where the image was decoded, with three or four channels as they are; grey is spread
/// over red, green and blue; alpha is 1 where the image has none. Reductions are means of the
/// decoded values, kept with 11 bits of precision unless the image has floats.
///
/// Threads: const calls may run from any number of threads at once.
class Texture {
 public:
  /// Reads an image whole, row by row: besides the texture itself only a few rows are in memory.
  ///
  /// \param bytes     of the file; not needed afterwards
  /// \param reduction how often the image is halved before it is kept
  /// \param mostBytes as for ImageReader::open
  /// \param error     why nothing came back; else untouched
  [[nodiscard]] static std::unique_ptr<const Texture> read(std::string_view bytes,
                                                           ColourSpace space, int reduction,
                                                           std::size_t mostBytes,
                                                           std::string* error);
  /// How much memory a texture takes.
  [[nodiscard]] static std::size_t bytesFor(const ImageInfo& info, int reduction);

  [[nodiscard]] int width() const { return levels_[0].width; }
  [[nodiscard]] int height() const { return levels_[0].height; }
  [[nodiscard]] std::size_t levelCount() const { return levels_.size(); }

  /// The value at a point, linear between the centres of texels and between the two reductions
  /// whose texels are about as large as the footprint.
  ///
  /// \param st        any numbers; where one is not finite all channels are 0
  /// \param footprint the width, in coordinates, of what the value is to stand for; 0: the image
  ///                  itself
  [[nodiscard]] tarn::Vec4f lookup(const tarn::Vec2f& st, float footprint, Wrap s, Wrap t) const;

 private:
  struct Level {
    int width = 0, height = 0;
    SampleType type = SampleType::uint8;
    std::vector<unsigned char> bytes;
  };

  Texture() = default;
  void makeLevels(const ImageInfo& info, int reduction);
  void storeRow(const float* row, int y, Level& level) const;
  [[nodiscard]] tarn::Vec4f texel(const Level& level, int x, int y) const;
  [[nodiscard]] tarn::Vec4f bilinear(const Level& level, double s, double t, Wrap wrapS,
                                     Wrap wrapT) const;

  std::vector<Level> levels_;
  int channels_ = 0;
  bool isEncoded_ = false;  // the first level is by the sRGB curve
};

/// The linear value of one encoded by the sRGB curve, both 0 to 1; beyond, the curve goes on.
[[nodiscard]] float decodeSrgb(float encoded) noexcept;

}  // namespace vela::picture::detail
