/// \file
/// Light on surfaces: a key and a fill light, and daylight that corners keep out.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "tarn/Vec.h"
#include "vela/sampling/SamplingRng.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Surface.h"
#include "vela/scene/View.h"
#include "vela/selection/GeoSelection.h"

namespace command {

using vela::scene::MeshList;
using vela::scene::RayCaster;
using vela::scene::Surface;
using vela::scene::SurfaceHit;
using vela::scene::View;
using vela::scene::WorldRay;

/// Random places for one pixel's samples, drawn in a fixed order from the pixel's own stream, so
/// that a picture depends neither on threads nor on the order of work.
class PixelSamples {
 public:
  /// \param grid        samples of the pixel are grid * grid
  /// \param ambientGrid rays into the open for each of them are ambientGrid * ambientGrid
  PixelSamples(int grid, int ambientGrid)
      : grid_(grid), ambientGrid_(ambientGrid), ambient_(ambientGrid * ambientGrid) {}

  /// Draws the places within the pixel for the picture's pixel (x, y) and frame. With one sample
  /// that is its centre.
  void start(int x, int y, int frame, bool jittered);
  /// Draws all that shading needs. To be called once after start(), when anything was hit.
  void drawLights();

  [[nodiscard]] std::size_t count() const {
    return static_cast<std::size_t>(grid_) * static_cast<std::size_t>(grid_);
  }
  /// In pixels, from the centre, within [-0.5, 0.5].
  [[nodiscard]] tarn::Vec2<float> offset(std::size_t sample) const { return offsets_[sample]; }
  [[nodiscard]] tarn::Vec2<float> key(std::size_t sample) const { return key_[sample]; }
  [[nodiscard]] tarn::Vec2<float> fill(std::size_t sample) const { return fill_[sample]; }
  [[nodiscard]] tarn::Vec2<float> ambient(std::size_t sample, std::size_t i) const {
    return ambientPlaces_[sample * static_cast<std::size_t>(ambient_) + i];
  }
  [[nodiscard]] float reach(std::size_t sample, std::size_t i) const {
    return reaches_[sample * static_cast<std::size_t>(ambient_) + i];
  }

 private:
  int grid_, ambientGrid_, ambient_;
  vela::SamplingRng rng_;
  std::vector<tarn::Vec2<float>> offsets_, key_, fill_, ambientPlaces_;
  std::vector<float> reaches_;
};

/// Where light may come from: the scene's meshes as surfaces, and the lights.
class Shader {
 public:
  /// \param list      must outlive the shader
  /// \param caster    what the hits come from
  /// \param radius    half the size of what is shown: how far corners darken
  /// \param ambientGrid as for PixelSamples
  /// \param smooth      as for Surface
  Shader(const MeshList& list, const RayCaster& caster, double time, const View& view,
         double radius, int ambientGrid, bool smooth = false);

  /// Tints what the selection has, from now on. \param selection its status of prims is brought up
  /// to date by \p stage
  void tint(vela::Selection::GeoSelection& selection, const std::shared_ptr<ovo::Stage>& stage,
            const MeshList& list);

  /// A ray that decides over some light, and the light.
  struct Light {
    std::size_t target;        ///< the caller's number of the sample
    tarn::Vec3<float> colour;  ///< what arrives when nothing is in the way
  };
  struct Batch {
    std::vector<WorldRay> rays;
    std::vector<Light> lights;
    void clear() {
      rays.clear();
      lights.clear();
    }
  };

  /// Adds the rays and lights of one hit. \return displayColor there
  tarn::Vec3<float> light(const WorldRay& ray, const SurfaceHit& hit, const PixelSamples& samples,
                          std::size_t sample, std::size_t target, Batch& batch) const;

  /// displayColor at a hit.
  [[nodiscard]] tarn::Vec3<float> colour(const SurfaceHit& hit) const;
  /// The normal that a hit is shaded with, see vela::scene::shadingNormal.
  [[nodiscard]] tarn::Vec3<float> normal(const SurfaceHit& hit) const;

 private:
  struct Placed {
    vela::scene::ObjectSpace space;
    const Surface* surface;
    const tarn::Vec3<float>* colour;  ///< of the instance; null where the surface's own counts
    float scale;                      ///< the most that a length in the object grows in the world
  };
  [[nodiscard]] tarn::Vec3<float> colour(const Placed& placed, int face,
                                         const tarn::Vec3<float>& objectPoint) const;

  struct Directional {
    tarn::Vec3<float> direction, across, along;
    tarn::Vec3<float> colour;
    float spread;  ///< tangent of the half angle that the light fills
  };

  const MeshList& list_;
  std::vector<Surface> surfaces_;
  std::vector<Placed> placed_;
  Directional key_, fill_;
  tarn::Vec3<float> up_;
  float reach_;
  int ambient_;
};

/// What is seen where no surface is, linear, for pictures without transparency. `height` runs from
/// 0 at the bottom to 1 at the top.
[[nodiscard]] tarn::Vec3<float> backdrop(float height);

}  // namespace command
