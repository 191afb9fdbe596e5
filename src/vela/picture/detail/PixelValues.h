/// \file
/// What layers are made of, pixel by pixel.
#pragma once

#include <cstdint>

#include "tarn/Vec.h"
#include "vela/picture/detail/RenderJob.h"
#include "vela/scene/SurfaceHit.h"
#include "vela/scene/WorldRay.h"

namespace vela::picture::detail {

/// What the ray through a pixel's centre met. Each value is computed when it is asked for.
class PixelCentre {
 public:
  /// All three must outlive the object.
  PixelCentre(const RenderJob& job, const scene::WorldRay& ray, const scene::SurfaceHit& hit)
      : job_(job), ray_(ray), hit_(hit) {}

  /// Infinite when nothing was met.
  [[nodiscard]] float depth() const;
  /// In the world; zero when nothing was met.
  [[nodiscard]] tarn::Vec3f position() const;
  /// In the world, of unit length, pointing out by the prim's orientation: the face's own or the
  /// one that is shaded with, as the job says. Zero when nothing was met.
  [[nodiscard]] tarn::Vec3f normal() const;
  /// 1 for the first entry of the meshes, 0 when nothing was met.
  [[nodiscard]] std::uint32_t prim() const;
  /// The scene's index of the face; 0 when nothing was met.
  [[nodiscard]] std::uint32_t face() const;
  /// 1 for the first of the scene's materials; 0 when nothing was met or it has none.
  [[nodiscard]] std::uint32_t material() const;

 private:
  const RenderJob& job_;
  const scene::WorldRay& ray_;
  const scene::SurfaceHit& hit_;
};

/// The means over a pixel's samples; those that met nothing count as zeros.
struct PixelMean {
  tarn::Vec3f colour;  ///< light, so that alpha is multiplied in
  tarn::Vec3f albedo;  ///< plain colour
  float alpha = 0.0f;
};

}  // namespace vela::picture::detail
