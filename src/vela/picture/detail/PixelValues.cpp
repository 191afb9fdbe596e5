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

std::uint32_t PixelCentre::material() const {
  if (!hit_.hit || !job_.materials) return 0;
  const std::uint32_t material =
      job_.materials->entries[hit_.entry].of(job_.meshes.shapeOf(hit_.entry).sceneFace(hit_.face));
  return material == scene::kNoMaterial ? 0 : material + 1;
}

}  // namespace vela::picture::detail
