#include "vela/scene/ObjectSpace.h"

#include <cstddef>

namespace vela::scene {

using tarn::Vec3d;
using tarn::Vec3f;

ObjectSpace::ObjectSpace(const tarn::Mat4d& worldFromObject, const Vec3d& base) {
  tarn::Mat4d worldFromOffset;
  worldFromOffset.translate(base.x, base.y, base.z);
  objectFromOffset_ = worldFromObject.inverse() * worldFromOffset;
}

Vec3f ObjectSpace::point(const SurfaceHit& hit) const {
  return Vec3f(objectFromOffset_.transformPoint(Vec3d(hit.offset)));
}

// Normals go through the inverse transpose of worldFromObject.
Vec3f ObjectSpace::worldNormal(const Vec3f& objectNormal) const {
  const Vec3d n(objectNormal);
  const auto along = [&](std::size_t c) {
    const tarn::Mat4d& m = objectFromOffset_;
    return m[4 * c] * n.x + m[4 * c + 1] * n.y + m[4 * c + 2] * n.z;
  };
  return Vec3f(Vec3d(along(0), along(1), along(2)).normalized());
}

Vec3f shadingNormal(const Surface& surface, const ObjectSpace& space, const SurfacePoint& point,
                    const SurfaceHit& hit) {
  const Vec3f ofFace = surface.isLeftHanded() ? -hit.normal : hit.normal;
  if (!surface.hasOwnNormals()) return ofFace;
  const Vec3f own = space.worldNormal(surface.normal(point));
  // Also false for a NaN. Close to a right angle the normal is of no use for light.
  return dot(own, ofFace) > 0.05f ? own : ofFace;
}

}  // namespace vela::scene
