/// \file
/// The lights of a picture's scene, with their images, ready to be asked what arrives at a point.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tarn/Vec.h"
#include "vela/look/LightSource.h"
#include "vela/picture/detail/TextureSet.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneLights.h"
#include "vela/scene/Work.h"

namespace vela::picture::detail {

/// The source of light that comes from none of the scene's lights.
inline constexpr std::uint32_t kOwnLight = 0xffffffffu;

/// Directions, likelier where an image of all of them is bright.
///
/// The image is summed over a grid; within a cell all places are equally likely. Cells have at
/// least a thousandth of the mean brightness, so that none is left out.
/// Source: Pharr, Jakob and Humphreys, Physically Based Rendering, on infinite area lights.
class DomeGrid {
 public:
  static constexpr std::size_t kColumns = 512, kRows = 256;

  /// \param weights one a cell, row by row from the lowest; not negative, finite
  explicit DomeGrid(const std::vector<double>& weights);

  /// \param u, v below 1
  /// \return a point of the unit square, v up
  [[nodiscard]] tarn::Vec2d sample(double u, double v) const;
  /// How likely a point is; 1 in the mean.
  [[nodiscard]] double density(const tarn::Vec2d& point) const;

 private:
  std::vector<double> rows_;   // sums up to and with each row
  std::vector<double> cells_;  // of each row the same of its cells
};

/// Threads: const calls may run from any number of threads at once.
class Lights {
 public:
  /// Reads the lights' images. One that is missing or cannot be read counts as if there were none.
  /// \param sources      must outlive this
  /// \param textureBytes as for TextureSet::load
  Lights(const scene::SceneLights& sources, std::size_t textureBytes, const scene::Work& work = {});

  [[nodiscard]] std::size_t count() const { return sources_.lights.size(); }
  [[nodiscard]] const scene::SceneLight& operator[](std::uint32_t light) const {
    return sources_.lights[light];
  }
  /// How many lights a sample asks: all, or so many of more.
  static constexpr std::size_t kMostAsked = 32;
  [[nodiscard]] std::size_t asked() const { return count() < kMostAsked ? count() : kMostAsked; }

  /// As look::sampleLight(), with the light's image.
  [[nodiscard]] look::LightSample sample(std::uint32_t light, const tarn::Vec3d& point,
                                         const tarn::Vec3f& normal, const tarn::Vec2f& draw) const;
  /// As look::meetLight(), with the light's image.
  [[nodiscard]] look::LightSample meet(std::uint32_t light, const tarn::Vec3d& point,
                                       const tarn::Vec3f& normal, const tarn::Vec3f& toLight) const;

  /// Of images, as notes.
  [[nodiscard]] const std::vector<scene::Problem>& problems() const { return textures_.problems(); }
  [[nodiscard]] std::size_t textureBytes() const { return textures_.bytes(); }

 private:
  struct Image {
    std::optional<std::uint32_t> texture;
    std::optional<DomeGrid> grid;  // of domes
  };
  [[nodiscard]] tarn::Vec3f imageAt(std::uint32_t light, const tarn::Vec2f& at,
                                    float footprint) const;

  const scene::SceneLights& sources_;
  std::vector<Image> images_;  // of each light
  TextureSet textures_;
};

}  // namespace vela::picture::detail
