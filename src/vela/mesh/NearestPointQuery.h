/// \file
/// Candidates for the points nearest to a position, from a uniform grid over a fixed box.
///
/// Positions, boxes and cell sizes share one space and unit. Everything is single precision.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarn/Box3.h"
#include "tarn/Span.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

/// Buckets points by grid cell and hands out those of the 3 x 3 x 3 cells around a position:
/// candidates, whose distances are the caller's business. A point closer than one cell to the
/// position, inside the box, is always among them; one further away may be.
///
/// The cell of a coordinate p is floor(|p - min| * cellsPerUnit). It follows that a position below
/// the box's minimum counts as its mirror image inside the box, and that points which land beyond
/// the last cell are in no cell: a point on the maximum face is one of them wherever the product
/// reaches the cell count. A box without extent along an axis, an empty box, and coordinates that
/// are not finite put nothing into cells and find nothing.
///
/// Threads: queries are const and safe from several threads; addPoints needs the query to itself.
///
/// \code
///   const std::vector<tarn::Vec3f> points = {{0.1f, 0.1f, 0.1f}, {0.9f, 0.9f, 0.9f}};
///   vela::NearestPointQuery query(tarn::Box3f({0, 0, 0}, {1, 1, 1}), 0.25f);
///   query.addPoints(points);
///   std::vector<unsigned int> candidates;
///   query.getNeighbours({0.2f, 0.2f, 0.2f}, candidates);
///   assert(candidates == std::vector<unsigned int>{0});
/// \endcode
class VELA_API NearestPointQuery {
 public:
  /// Makes the grid: floor(extent / cellSize) cells an axis, at least one; while there are more
  /// than 1,000,000 in all, every count is halved and raised by one, so that cells may end up
  /// larger than asked for. A size that gives no count (zero, negative, not finite, or more cells
  /// than an int can count) gives one cell along that axis.
  NearestPointQuery(const tarn::Box3f& bounds, float cellSize);

  /// Replaces the points. Point i is known by i from now on; the positions themselves are not kept.
  /// Two linear passes; 4 bytes a point and 4 a cell stay, 4 a point more are used meanwhile. @{
  void addPoints(const tarn::Vec3f* points, std::size_t count);
  void addPoints(tarn::Span<const tarn::Vec3f> points) { addPoints(points.data(), points.size()); }
  /// @}

  /// Fills `ids`, emptied first, with the points of the up to 27 cells around a position: cells
  /// with x slowest and z fastest, the points of a cell in ascending order, none twice. Empty
  /// before addPoints, and for a position more than one cell beyond the box's maximum on any axis.
  /// Allocates only where `ids` has too little room.
  void getNeighbours(const tarn::Vec3f& position, std::vector<unsigned int>& ids) const;

  // The grid; to be read only

  tarn::Box3f bounds;  ///< as given
  /// Cells along the axis, at least 1. @{
  std::int32_t cellCountX = 1, cellCountY = 1, cellCountZ = 1;
  /// @}
  /// Cells along the axis over the box's extent there. @{
  float cellsPerUnitX = 0, cellsPerUnitY = 0, cellsPerUnitZ = 0;
  /// @}
  /// Point indices by cell; cell (x, y, z) has index (x * cellCountY + y) * cellCountZ + z.
  std::vector<std::uint32_t> pointIds;
  /// Cell k holds pointIds[cellStart[k]] up to but not including pointIds[cellStart[k + 1]]; all
  /// bits set before the first addPoints. One entry more than there are cells.
  std::vector<std::uint32_t> cellStart;

 private:
  tarn::Vec3i cellID(const tarn::Vec3f& position) const;
};

}  // namespace vela
