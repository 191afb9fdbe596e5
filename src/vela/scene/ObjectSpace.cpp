#include "vela/scene/ObjectSpace.h"

#include <cstddef>

namespace vela::scene {

using tarn::Vec3;

ObjectSpace::ObjectSpace(const tarn::Mat4<double>& worldFromObject, const Vec3<double>& base) {
  tarn::Mat4<double> worldFromOffset;
  worldFromOffset.translate(base.x, base.y, base.z);
  objectFromOffset_ = worldFromObject.inverse() * worldFromOffset;
}

Vec3<float> ObjectSpace::point(const SurfaceHit& hit) const {
  return Vec3<float>(objectFromOffset_.transformPoint(Vec3<double>(hit.offset)));
}

// Normals go through the inverse transpose of worldFromObject.
Vec3<float> ObjectSpace::worldNormal(const Vec3<float>& objectNormal) const {
  const Vec3<double> n(objectNormal);
  const auto along = [&](std::size_t c) {
    const tarn::Mat4<double>& m = objectFromOffset_;
    return m[4 * c] * n.x + m[4 * c + 1] * n.y + m[4 * c + 2] * n.z;
  };
  return Vec3<float>(Vec3<double>(along(0), along(1), along(2)).normalized());
}

Vec3<float> shadingNormal(const Surface& surface, const ObjectSpace& space,
                          const SurfacePoint& point, const SurfaceHit& hit) {
  const Vec3<float> ofFace = surface.isLeftHanded() ? -hit.normal : hit.normal;
  if (!surface.hasOwnNormals()) return ofFace;
  const Vec3<float> own = space.worldNormal(surface.normal(point));
  // Also false for a NaN. Close to a right angle the normal is of no use for light.
  return dot(own, ofFace) > 0.05f ? own : ofFace;
}

}  // namespace vela::scene
