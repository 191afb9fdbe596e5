#include "vela/intersect/Acceleration.h"

#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/detail/Kernels.h"

namespace vela {

Acceleration::Acceleration(const AccelerationModel& model) : model_(&model) {}
Acceleration::~Acceleration() = default;
void Acceleration::draw(DrawBoxFunc) const {}

NoAcceleration::NoAcceleration(const AccelerationModel& model) : Acceleration(model) {}
NoAcceleration::~NoAcceleration() = default;

bool NoAcceleration::intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                               CollisionResult& result) const {
  if (detail::missesAllTriangles(ray) && detail::hasTrianglesAlone(model())) return false;
  float best = ray.maxDistance;
  const std::size_t size = model().size();
  for (std::size_t i = 0; i < size; ++i) {
    float tNear = 0.0f, tFar = 0.0f;
    if (!detail::hitBox(ray, model().bounds(i), tNear, tFar) || !(tNear < best)) continue;
    CollisionResult scratch;
    if (!model().intersect(ctx, ray, i, scratch)) continue;
    if (best > scratch.distance && scratch.distance > ray.minDistance) {
      scratch.primitiveIndex = static_cast<std::uint32_t>(i);
      best = scratch.distance;
      result = scratch;
    }
  }
  return ray.maxDistance > best;
}

}  // namespace vela
