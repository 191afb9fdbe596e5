/// \file
/// The random numbers of one pixel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarn/Vec.h"
#include "vela/sampling/SamplingRng.h"

namespace vela::picture::detail {

/// Random points for one pixel's samples, drawn in a fixed order from the pixel's own stream, so
/// that a picture depends neither on threads nor on the order of work.
class PixelSamples {
 public:
  /// \param grid        samples of the pixel are grid * grid
  /// \param ambientGrid rays into the open for each of them are ambientGrid * ambientGrid
  PixelSamples(int grid, int ambientGrid)
      : grid_(grid), ambientGrid_(ambientGrid), ambient_(ambientGrid * ambientGrid) {}

  /// Draws the samples' points within the picture's pixel (x, y) for a frame. A single sample is
  /// its centre.
  void start(int x, int y, int frame, bool jittered);
  /// Draws the samples' points of the lens, and their moments; each once after start(), in this
  /// order, where a picture has such.
  void drawLens();
  /// \param count of the moments, at least 1
  void drawMoments(std::size_t count);
  /// Draws all that shading needs. To be called once after start(), when anything was hit.
  void drawLights();
  /// Draws what the lights of the scene need; after drawLights() where both shine.
  /// \param slots how many lights a sample asks
  void drawSceneLights(std::size_t slots);

  [[nodiscard]] std::size_t count() const {
    return static_cast<std::size_t>(grid_) * static_cast<std::size_t>(grid_);
  }
  /// In pixels, from the pixel's centre; as all points below within [-0.5, 0.5].
  [[nodiscard]] tarn::Vec2f offset(std::size_t sample) const { return offsets_[sample]; }
  /// A point of the lens: of the unit disk, unlike all others.
  [[nodiscard]] tarn::Vec2f lens(std::size_t sample) const { return lens_[sample]; }
  /// Index of a moment.
  [[nodiscard]] std::uint32_t moment(std::size_t sample) const { return moments_[sample]; }
  /// A point of the key light.
  [[nodiscard]] tarn::Vec2f key(std::size_t sample) const { return key_[sample]; }
  /// A point of the fill light.
  [[nodiscard]] tarn::Vec2f fill(std::size_t sample) const { return fill_[sample]; }
  /// A direction of daylight; i is less than the square of the ambient grid.
  [[nodiscard]] tarn::Vec2f ambient(std::size_t sample, std::size_t i) const {
    return ambientPoints_[sample * static_cast<std::size_t>(ambient_) + i];
  }
  /// How far that ray looks, from 0 to 1.
  [[nodiscard]] float reach(std::size_t sample, std::size_t i) const {
    return reaches_[sample * static_cast<std::size_t>(ambient_) + i];
  }

  // For the lights of the scene, within the unit square, below 1.

  /// A point of a light.
  [[nodiscard]] tarn::Vec2f light(std::size_t sample, std::size_t slot) const;
  /// A direction that light is scattered from.
  [[nodiscard]] tarn::Vec2f scattered(std::size_t sample) const;
  /// A direction that light is reflected from.
  [[nodiscard]] tarn::Vec2f reflected(std::size_t sample) const;
  /// Which of many lights are asked.
  [[nodiscard]] float which(std::size_t sample) const { return which_[sample]; }
  /// The next numbers of the stream, for what lies farther along the way of a sample.
  [[nodiscard]] float next() { return rng_.newFloatValue(); }
  [[nodiscard]] tarn::Vec2f nextPoint();

 private:
  int grid_, ambientGrid_, ambient_;
  SamplingRng rng_;
  std::vector<tarn::Vec2f> offsets_, lens_, key_, fill_, ambientPoints_;
  std::vector<float> reaches_, times_;
  std::vector<std::uint32_t> moments_;
  std::vector<tarn::Vec2f> lights_, shifts_, scattered_, reflected_;
  std::vector<float> which_;
};

}  // namespace vela::picture::detail
