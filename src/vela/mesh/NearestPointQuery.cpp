#include "vela/mesh/NearestPointQuery.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "tarn/Convert.h"

namespace vela {

namespace {

constexpr std::uint32_t kNoPoint = 0xFFFFFFFFu;
constexpr std::int64_t kMaxCells = 1000000;

std::int32_t cellsAlong(float extent, float cellSize) {
  return std::max<std::int32_t>(tarn::truncToInt32(std::floor(extent / cellSize)), 1);
}

// In two steps, since three counts may overflow even 64 bits; each is at least 1.
bool tooManyCells(std::int64_t x, std::int64_t y, std::int64_t z) {
  return x * y > kMaxCells || x * y * z > kMaxCells;
}

// KEEP(mirrored-cell): a position below the minimum takes the cell of its mirror image. Positions
// that rounding puts just below the box so find what lies just inside it, and callers that look
// further outside rely on getting candidates at all; which are near is for them to measure.
//
// Truncation is floor here, since the product is never negative. An axis without extent has an
// infinite or NaN count of cells per unit, and no cell.
std::int32_t cellAlong(float p, float min, float cellsPerUnit) {
  const float cell = std::fabs(p - min) * cellsPerUnit;
  // A pair of comparisons lets the common case through; NaN and what is out of range is rare and
  // may take longer.
  return cell >= 0.0f && cell < 2147483648.0f ? static_cast<std::int32_t>(cell)
                                              : tarn::truncToInt32(cell);
}

}  // namespace

NearestPointQuery::NearestPointQuery(const tarn::Box3f& box, float cellSize) : bounds(box) {
  const tarn::Vec3f extent = bounds.size();
  cellCountX = cellsAlong(extent.x, cellSize);
  cellCountY = cellsAlong(extent.y, cellSize);
  cellCountZ = cellsAlong(extent.z, cellSize);
  while (tooManyCells(cellCountX, cellCountY, cellCountZ)) {
    cellCountX = cellCountX / 2 + 1;
    cellCountY = cellCountY / 2 + 1;
    cellCountZ = cellCountZ / 2 + 1;
  }
  cellsPerUnitX = static_cast<float>(cellCountX) / extent.x;
  cellsPerUnitY = static_cast<float>(cellCountY) / extent.y;
  cellsPerUnitZ = static_cast<float>(cellCountZ) / extent.z;
  cellStart.assign(static_cast<std::size_t>(cellCountX) * static_cast<std::size_t>(cellCountY) *
                           static_cast<std::size_t>(cellCountZ) +
                       1,
                   kNoPoint);
}

tarn::Vec3i NearestPointQuery::cellID(const tarn::Vec3f& position) const {
  return tarn::Vec3i(cellAlong(position.x, bounds.min.x, cellsPerUnitX),
                     cellAlong(position.y, bounds.min.y, cellsPerUnitY),
                     cellAlong(position.z, bounds.min.z, cellsPerUnitZ));
}

void NearestPointQuery::addPoints(const tarn::Vec3f* points, std::size_t count) {
  if (points == nullptr) count = 0;
  count = std::min<std::size_t>(count, kNoPoint);  // one index must stay free to mean "no point"
  const std::size_t cells = cellStart.size() - 1;

  // The cell of each point, and how many points each cell has. Compared unsigned, so that NaN,
  // which converts to the lowest int, is dropped with what lies beyond the last cell.
  std::vector<std::uint32_t> cellOfPoint(count);
  cellStart.assign(cells + 1, 0);
  const auto nx = static_cast<std::uint32_t>(cellCountX),
             ny = static_cast<std::uint32_t>(cellCountY),
             nz = static_cast<std::uint32_t>(cellCountZ);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const tarn::Vec3i id = cellID(points[i]);
    const auto x = static_cast<std::uint32_t>(id.x), y = static_cast<std::uint32_t>(id.y),
               z = static_cast<std::uint32_t>(id.z);
    std::uint32_t cell = kNoPoint;
    if (x < nx && y < ny && z < nz) {
      cell = (x * ny + y) * nz + z;
      ++cellStart[cell];
      ++kept;
    }
    cellOfPoint[i] = cell;
  }

  // Counts become the ends of the cells; filling from the last point to the first then turns them
  // into the starts and leaves every cell in ascending order.
  std::uint32_t end = 0;
  for (std::size_t k = 0; k < cells; ++k) cellStart[k] = end += cellStart[k];
  cellStart[cells] = end;
  pointIds.resize(kept);
  for (std::size_t i = count; i-- > 0;)
    if (cellOfPoint[i] != kNoPoint)
      pointIds[--cellStart[cellOfPoint[i]]] = static_cast<std::uint32_t>(i);
}

void NearestPointQuery::getNeighbours(const tarn::Vec3f& position,
                                      std::vector<unsigned int>& ids) const {
  ids.clear();
  if (pointIds.empty()) return;
  const tarn::Vec3i id = cellID(position);
  // More than one cell beyond the last, or NaN (which converts to the lowest int).
  const auto outside = [](int cell, int cellCount) {
    return static_cast<std::uint32_t>(cell) > static_cast<std::uint32_t>(cellCount);
  };
  if (outside(id.x, cellCountX) || outside(id.y, cellCountY) || outside(id.z, cellCountZ)) return;
  const int x0 = std::max(id.x - 1, 0), x1 = std::min(cellCountX - 1, id.x + 1);
  const int y0 = std::max(id.y - 1, 0), y1 = std::min(cellCountY - 1, id.y + 1);
  const int z0 = std::max(id.z - 1, 0), z1 = std::min(cellCountZ - 1, id.z + 1);

  // Cells that follow one another along z are neighbours in pointIds: up to nine runs instead of 27
  // lists.
  struct Run {
    std::uint32_t first, last;
  };
  Run runs[9];
  int runCount = 0;
  std::size_t total = 0;
  for (int x = x0; x <= x1; ++x)
    for (int y = y0; y <= y1; ++y) {
      const auto row =
          static_cast<std::size_t>(x * cellCountY + y) * static_cast<std::size_t>(cellCountZ);
      const Run run{cellStart[row + static_cast<std::size_t>(z0)],
                    cellStart[row + static_cast<std::size_t>(z1) + 1]};
      runs[runCount++] = run;
      total += run.last - run.first;
    }
  ids.reserve(total);
  for (int r = 0; r < runCount; ++r)
    ids.insert(ids.end(), pointIds.data() + runs[r].first, pointIds.data() + runs[r].last);
}

}  // namespace vela
