#include "vela/picture/detail/PixelValues.h"

#include <limits>

namespace vela::picture::detail {

using tarn::Vec3f;

float PixelCentre::depth() const {
  return hit_.hit ? depthOf(job_.view, ray_.direction, hit_.distance)
                  : std::numeric_limits<float>::infinity();
}

Vec3f PixelCentre::position() const { return hit_.hit ? Vec3f(hit_.position()) : Vec3f(); }

Vec3f PixelCentre::normal() const {
  if (!hit_.hit) return {};
  if (job_.smooth) return job_.smooth->normal(hit_);
  return job_.meshes.shapeOf(hit_.entry).leftHanded ? -hit_.normal : hit_.normal;
}

std::uint32_t PixelCentre::prim() const { return hit_.hit ? hit_.entry + 1 : 0; }

std::uint32_t PixelCentre::face() const {
  return hit_.hit ? static_cast<std::uint32_t>(job_.meshes.shapeOf(hit_.entry).sceneFace(hit_.face))
                  : 0;
}

}  // namespace vela::picture::detail
