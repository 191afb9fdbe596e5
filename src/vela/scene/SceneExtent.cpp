#include "vela/scene/SceneExtent.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <optional>

namespace vela::scene {

using tarn::Vec3d;
using tarn::Vec3f;

Extent extentOf(const MeshList& list, const Work& work) {
  // 98 directions, all over a cube's surface.
  constexpr std::size_t kDirections = 98;
  std::array<Vec3d, kDirections> directions, farthest;
  std::array<double, kDirections> reach;
  reach.fill(-std::numeric_limits<double>::infinity());
  std::size_t next = 0;
  for (int x = -2; x <= 2; ++x)
    for (int y = -2; y <= 2; ++y)
      for (int z = -2; z <= 2; ++z)
        if (std::max({std::abs(x), std::abs(y), std::abs(z)}) == 2)
          directions[next++] = Vec3d(x, y, z);

  Extent extent;
  const auto add = [&](const Vec3d& world) {
    if (!isFinite(world)) return;
    extent.box.extendBy(world);
    for (std::size_t d = 0; d < kDirections; ++d) {
      const double along = dot(world, directions[d]);
      if (along > reach[d]) {
        reach[d] = along;
        farthest[d] = world;
      }
    }
  };

  std::vector<std::optional<tarn::Box3d>> boxes(list.shapes.size());
  for (std::size_t i = 0; i < list.entries.size(); ++i) {
    if (work.isStopped()) break;
    work.report(static_cast<double>(i) / static_cast<double>(list.entries.size()));
    const MeshEntry& entry = list.entries[i];
    const ovo::Array<Vec3f>& points = list.shapes[entry.shape].points;
    if (entry.instance == kNoInstance) {
      for (const Vec3f& p : points)
        if (isFinite(p)) add(entry.worldFromObject.transformPoint(Vec3d(p)));
      continue;
    }
    // Instances are too many for all their points.
    std::optional<tarn::Box3d>& box = boxes[entry.shape];
    if (!box) {
      box.emplace();
      for (const Vec3f& p : points)
        if (isFinite(p)) box->extendBy(Vec3d(p));
    }
    if (box->isEmpty()) continue;
    for (int corner = 0; corner < 8; ++corner)
      add(entry.worldFromObject.transformPoint({corner & 1 ? box->max.x : box->min.x,
                                                corner & 2 ? box->max.y : box->min.y,
                                                corner & 4 ? box->max.z : box->min.z}));
  }
  if (!work.isStopped()) work.report(1.0);
  if (!extent.box.isEmpty()) extent.outermost.assign(farthest.begin(), farthest.end());
  return extent;
}

}  // namespace vela::scene
