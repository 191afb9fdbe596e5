// Any box, cell size and points: candidates are points, each once, and those closer than a cell are
// among them.
#include <algorithm>
#include <cmath>
#include <vector>

#include "fuzz/FuzzMesh.h"
#include "vela/mesh/NearestPointQuery.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tarn::Vec3f;
  using vela_test::require;
  vela_test::Bytes bytes(data, size);
  const auto takePoint = [&bytes] {
    const float x = bytes.coordinate(), y = bytes.coordinate(), z = bytes.coordinate();
    return Vec3f(x, y, z);
  };
  const Vec3f low = takePoint(), high = takePoint();
  const auto kind = bytes.take<std::uint8_t>();
  const float cell = kind < 16 ? bytes.take<float>() : static_cast<float>(kind) / 64.0f;
  vela::NearestPointQuery query(tarn::Box3f(low, high), cell);
  const auto cells =
      static_cast<std::int64_t>(query.cellCountX) * query.cellCountY * query.cellCountZ;
  require(cells >= 1 && cells <= 1000000, "no more than a million cells");

  const Vec3f position = takePoint();
  std::vector<unsigned int> ids = {7};
  query.getNeighbours(position, ids);
  require(ids.empty(), "nothing before there are points");
  std::vector<Vec3f> points;
  while (!bytes.empty()) points.push_back(takePoint());
  query.addPoints(points);
  query.getNeighbours(position, ids);
  for (const unsigned id : ids) require(id < points.size(), "candidates are points");
  std::vector<unsigned int> sorted = ids;
  std::sort(sorted.begin(), sorted.end());
  require(std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end(), "none comes twice");

  // What is promised, with room for the roundings of products at the borders of cells: a point on
  // the box's maximum may be in no cell.
  const auto isInside = [&](const Vec3f& p) {
    for (std::size_t axis = 0; axis < 3; ++axis)
      if (!(p[axis] >= low[axis] && p[axis] < high[axis] - (high[axis] - low[axis]) * 1e-4f))
        return false;
    return true;
  };
  if (!vela_test::isFinite(low) || !vela_test::isFinite(high) || !isInside(position)) return 0;
  const Vec3f cellSize(1.0f / query.cellsPerUnitX, 1.0f / query.cellsPerUnitY,
                       1.0f / query.cellsPerUnitZ);
  const float reach = 0.999f * std::min({cellSize.x, cellSize.y, cellSize.z});
  for (std::size_t i = 0; i < points.size(); ++i)
    if (isInside(points[i]) && (points[i] - position).length() < reach)
      require(std::binary_search(sorted.begin(), sorted.end(), static_cast<unsigned>(i)),
              "a point closer than a cell is a candidate");
  return 0;
}
