#include "vela/scene/SceneExtent.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <optional>

#include "vela/scene/CurvePrims.h"

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

  // The balls about the points of tubes, which become ellipsoids in the world. Along a direction
  // one reaches as far as its matrix is long there.
  const auto addTubes = [&](const MeshEntry& entry, const Shape& shape) {
    const tarn::Mat4d& m = entry.worldFromObject;
    const auto reached = [&](const Vec3d& direction) {
      Vec3d local;
      for (std::size_t c = 0; c < 3; ++c)
        local[c] = m[4 * c] * direction.x + m[4 * c + 1] * direction.y + m[4 * c + 2] * direction.z;
      const double length = local.length();
      return length > 0.0 ? m.transformVector(local / length) : Vec3d();
    };
    std::array<Vec3d, kDirections> reaches;
    for (std::size_t d = 0; d < kDirections; ++d) reaches[d] = reached(directions[d]);
    const Vec3d half(reached({1, 0, 0}).x, reached({0, 1, 0}).y, reached({0, 0, 1}).z);
    const auto points = shape.points.view();
    for (std::size_t i = 0; i < points.size(); ++i) {
      const float radius = shape.tubes->radii.view()[i];
      if (!isFinite(points[i]) || !(radius >= 0.0f)) continue;
      const Vec3d world = m.transformPoint(Vec3d(points[i]));
      const double r = static_cast<double>(radius);
      if (!isFinite(world) || !isFinite(half * r)) continue;
      extent.box.extendBy({world - half * r, world + half * r});
      for (std::size_t d = 0; d < kDirections; ++d) {
        const Vec3d point = world + reaches[d] * r;
        const double along = dot(point, directions[d]);
        if (along > reach[d]) {
          reach[d] = along;
          farthest[d] = point;
        }
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
      if (list.shapes[entry.shape].tubes) {
        addTubes(entry, list.shapes[entry.shape]);
        continue;
      }
      for (const Vec3f& p : points)
        if (isFinite(p)) add(entry.worldFromObject.transformPoint(Vec3d(p)));
      continue;
    }
    // Instances are too many for all their points.
    std::optional<tarn::Box3d>& box = boxes[entry.shape];
    if (!box) box = boxOf(list.shapes[entry.shape]);
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
