#include "vela/scene/detail/EntriesAlong.h"

#include <algorithm>
#include <cmath>

namespace vela::scene::detail {

using tarn::Box3f;
using tarn::Ray3f;
using tarn::Vec3f;

EntriesAlong::EntriesAlong(const std::vector<Box3f>& boxes, const std::vector<Ray3f>& rays) {
  float farthest = 0.0f;
  for (const Ray3f& ray : rays)
    for (std::size_t i = 0; i < 3; ++i) farthest = std::max(farthest, std::fabs(ray.origin[i]));
  for (std::size_t entry = 0; entry < boxes.size(); ++entry) {
    if (boxes[entry].isEmpty()) continue;
    // The box is off by the rounding of its matrix and of its own floats, its test by the rounding
    // of a few operations on coordinates as large as `reach`: some units of 6e-8 each. 1e-5 is more
    // than a hundred such units.
    Box3f box = boxes[entry];
    float reach = farthest;
    for (std::size_t i = 0; i < 3; ++i)
      reach = std::max({reach, std::fabs(box.min[i]), std::fabs(box.max[i])});
    box.pad(Vec3f(reach * 1e-5f));
    const bool isFinite = std::isfinite(reach) && std::isfinite(box.max.x - box.min.x) &&
                          std::isfinite(box.max.y - box.min.y) &&
                          std::isfinite(box.max.z - box.min.z);
    if (!isFinite) {
      always_.push_back(entry);
      continue;
    }
    boxes_.push_back(box);
    entries_.push_back(entry);
    bounds_.extendBy(box);
  }
  tree_ = std::make_unique<BvhAcceleration>(*this, false);
}

void EntriesAlong::find(const Ray3f& ray, std::vector<std::size_t>& entries) const {
  entries = always_;
  found_ = &entries;
  CollisionResult none;
  tree_->intersect(context_, ray, none);
}

}  // namespace vela::scene::detail
