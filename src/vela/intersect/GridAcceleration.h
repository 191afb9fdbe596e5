/// \file
/// A uniform grid, made for the triangles of one mesh.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "vela/Api.h"
#include "vela/Fwd.h"
#include "vela/intersect/Acceleration.h"

namespace vela {

/// About one cell for three primitives, at most 64 along each axis.
///
/// What it answers: cells are visited along the ray, and the first cell in which any of its
/// primitives is hit ends the query with the best hit of that cell (with nearestHit false: the
/// first in primitive order), even when that hit lies beyond the cell. A nearer primitive that is
/// only listed in a later cell is then missed; whoever needs the true nearest hit takes
/// SceneTracer. Hits count strictly inside the ray's range.
///
/// A model without primitives or without volume (an extent of exactly 0), or with a box that is
/// empty or has a NaN, gives a grid that hits nothing.
///
/// \code
///   const ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 1}};
///   const vela::TriangleAccelerationModel model(points, {3}, {0, 1, 2});
///   const vela::GridAcceleration grid(model);
///   assert(grid.resolution()[0] >= 1 && grid.resolution()[0] <= 64);
///
///   vela::CollisionResult result;
///   const bool isHit = grid.intersect({}, {{0.25f, 0.25f, 5.0f}, {0, 0, -1}}, result);
///   assert(isHit && result.faceIndex == 0);
/// \endcode
///
/// Source: Amanatides and Woo, A Fast Voxel Traversal Algorithm for Ray Tracing, Eurographics 1987.
class VELA_API GridAcceleration : public Acceleration {
 public:
  /// Sorts the model's primitives into cells, by their boxes. The model must outlive it.
  explicit GridAcceleration(const AccelerationModel& model);
  GridAcceleration(const GridAcceleration&) = delete;
  GridAcceleration& operator=(const GridAcceleration&) = delete;
  ~GridAcceleration() override;

  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                 CollisionResult& result) const override;

  /// The box of every cell that lists a primitive, x fastest, then y, then z, in (0.4, 0.9, 0.5,
  /// 0.2).
  void draw(DrawBoxFunc drawBox) const override;

  /// Cells along x, y and z, 1 to 64 each; all 0 when the grid is empty.
  [[nodiscard]] const std::array<std::uint32_t, 3>& resolution() const { return resolution_; }

 private:
  struct Cells;
  void fill(const AccelerationModel& model);
  template <class ForEachCell>
  static void fillTriangles(const TriangleAccelerationModel& triangles,
                            const std::vector<std::uint32_t>& begin, const ForEachCell& forEachCell,
                            Cells& cells);

  std::array<std::uint32_t, 3> resolution_{};
  tarn::Vec3f cellSize_;
  tarn::Box3f box_;
  std::unique_ptr<const Cells> cells_;  // null when the grid is empty
};

}  // namespace vela
