/// \file
/// From a hit to the object that it lies on, and back to the world.
#pragma once

#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/Surface.h"
#include "vela/scene/SurfaceHit.h"

namespace vela::scene {

/// The space in which an entry's shape has its points. RayCaster::objectSpace makes it.
///
/// Threads: const calls may run from any number of threads at once.
///
/// \code
///   tarn::Mat4d worldFromObject;
///   worldFromObject.translate(10.0, 0.0, 0.0);
///   vela::scene::SurfaceHit hit;
///   hit.base = {8.0, 0.0, 0.0};
///   hit.offset = {3.0f, 1.0f, 0.0f};
///   const vela::scene::ObjectSpace space(worldFromObject, hit.base);
///   assert(space.point(hit) == tarn::Vec3f(1.0f, 1.0f, 0.0f));
/// \endcode
class VELA_API ObjectSpace {
 public:
  /// \param base that of the hits
  ObjectSpace(const tarn::Mat4d& worldFromObject, const tarn::Vec3d& base);

  /// Where a hit lies on the shape. The hit must be one of the caster and on the entry.
  [[nodiscard]] tarn::Vec3f point(const SurfaceHit& hit) const;
  /// The same, for questions to the shape's surface.
  [[nodiscard]] SurfacePoint surfacePoint(const SurfaceHit& hit) const {
    if (!hit.hasCorners) return {hit.face, point(hit)};
    return {hit.face, point(hit), hit.points[0], hit.points[1], hit.u};
  }
  /// The unit normal in the world of one in this space.
  [[nodiscard]] tarn::Vec3f worldNormal(const tarn::Vec3f& objectNormal) const;

 private:
  tarn::Mat4d objectFromOffset_;
};

/// The unit normal in the world to shade a hit with, pointing out: the surface's own between its
/// points where it has any, else the face's. The face's own is taken as well where the other is
/// NaN, has no length or lies on the far side of the face.
///
/// \param point where the hit lies on the shape
[[nodiscard]] VELA_API tarn::Vec3f shadingNormal(const Surface& surface, const ObjectSpace& space,
                                                 const SurfacePoint& point, const SurfaceHit& hit);

}  // namespace vela::scene
