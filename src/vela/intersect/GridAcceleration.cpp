#include "vela/intersect/GridAcceleration.h"

#include <algorithm>
#include <cmath>

#include "tarn/Convert.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/detail/Kernels.h"

namespace vela {
namespace {

constexpr std::uint32_t kMaxResolution = 64;

}  // namespace

GridAcceleration::GridAcceleration(const AccelerationModel& model) : Acceleration(model), box_(model.bounds()) {
  const std::size_t count = model.size();
  const tarn::Vec3<float> extent = box_.max - box_.min;
  if (std::isnan(extent.x) || std::isnan(extent.y) || std::isnan(extent.z)) return;

  // Resolution. A box without volume makes k infinite and the counts 0; an enormous count keeps its low 32 bits only.
  const float k = std::cbrt(0.33333334f) / std::cbrt(extent.x * extent.y * extent.z / static_cast<float>(count));
  std::array<std::uint32_t, 3> resolution{};
  for (std::size_t i = 0; i < 3; ++i)
    resolution[i] = std::min(tarn::truncToUint32(std::floor(extent[i] * k) + 1.0f), kMaxResolution);
  const std::size_t cells = std::size_t{resolution[0]} * resolution[1] * resolution[2];
  if (cells == 0) return;
  resolution_ = resolution;
  for (std::size_t i = 0; i < 3; ++i) cellSize_[i] = extent[i] / static_cast<float>(resolution[i]);

  // Two passes over the primitives' cell ranges: count, then fill in primitive order.
  const auto forEachCell = [&](std::size_t primitive, auto visit) {
    const tarn::Box3<float> b = model.bounds(primitive);
    std::array<std::uint32_t, 3> low{}, high{};
    for (std::size_t i = 0; i < 3; ++i) {
      low[i] = cellOf(b.min[i] - box_.min[i], i);
      high[i] = cellOf(b.max[i] - box_.min[i], i);
    }
    for (std::uint32_t z = low[2]; z <= high[2]; ++z)
      for (std::uint32_t y = low[1]; y <= high[1]; ++y)
        for (std::uint32_t x = low[0]; x <= high[0]; ++x) visit((std::size_t{z} * resolution_[1] + y) * resolution_[0] + x);
  };
  cellStart_.assign(cells + 1, 0);
  for (std::size_t i = 0; i < count; ++i) forEachCell(i, [&](std::size_t cell) { ++cellStart_[cell + 1]; });
  for (std::size_t cell = 0; cell < cells; ++cell) cellStart_[cell + 1] += cellStart_[cell];
  primitives_.resize(cellStart_[cells]);
  std::vector<std::size_t> next(cellStart_.begin(), cellStart_.end() - 1);
  for (std::size_t i = 0; i < count; ++i)
    forEachCell(i, [&](std::size_t cell) { primitives_[next[cell]++] = static_cast<std::uint32_t>(i); });
}

GridAcceleration::~GridAcceleration() = default;

// Clamped on both sides: a point a rounding error below the box belongs to cell 0. NaN gives 0.
std::uint32_t GridAcceleration::cellOf(float distanceFromMin, std::size_t axis) const {
  const std::uint32_t last = resolution_[axis] - 1;
  const float cell = std::floor(distanceFromMin / cellSize_[axis]);
  if (!(cell > 0.0f)) return 0;
  return cell < static_cast<float>(last) ? static_cast<std::uint32_t>(cell) : last;
}

bool GridAcceleration::intersect(const IntersectionContext& ctx, const tarn::Ray<float>& ray, CollisionResult& result) const {
  float tEnter = 0.0f, tLeave = 0.0f;
  if (isEmpty() || !detail::hitBox(ray, box_, tEnter, tLeave)) return false;

  // Entry cell, and per axis the distance of the next boundary and from boundary to boundary.
  const tarn::Vec3<float> entry = ray.origin + ray.direction * tEnter - box_.min;
  std::array<std::uint32_t, 3> cell{}, step{}, stop{};
  tarn::Vec3<float> tNext, tDelta;
  for (std::size_t i = 0; i < 3; ++i) {
    // KEEP(grid-minus-zero): -0 becomes +0. Divided by -0 the next boundary would lie at minus infinity, and the walk
    // would run out of the grid along an axis that the ray does not move on.
    const float d = ray.direction[i] + 0.0f, size = cellSize_[i], r = entry[i];
    cell[i] = cellOf(r, i);
    if (d < 0.0f) {
      tDelta[i] = -size / d;
      tNext[i] = (static_cast<float>(cell[i]) * size - r) / d;
      step[i] = stop[i] = ~std::uint32_t{0};
    } else {
      tDelta[i] = size / d;
      tNext[i] = (static_cast<float>(cell[i] + 1) * size - r) / d;
      step[i] = 1;
      stop[i] = resolution_[i];
    }
  }

  while (true) {
    const std::size_t number = (std::size_t{cell[2]} * resolution_[1] + cell[1]) * resolution_[0] + cell[0];
    float best = ray.maxDistance;
    for (std::size_t k = cellStart_[number]; k < cellStart_[number + 1]; ++k) {
      CollisionResult scratch;
      if (!model().intersect(ctx, ray, primitives_[k], scratch)) continue;
      if (!(best > scratch.distance && scratch.distance > ray.minDistance)) continue;
      result = scratch;
      result.primitiveIndex = primitives_[k];
      result.hit = true;
      best = scratch.distance;
      if (!ctx.nearestHit) break;
    }
    // KEEP(grid-first-cell): the first cell with a hit ends the query, though the hit may lie beyond it and a nearer one be
    // listed further on. Hosts have pinned picks on this.
    if (best < ray.maxDistance) return true;

    // The axis whose boundary comes first; on ties z before y before x.
    static constexpr std::size_t kAxis[8] = {2, 1, 2, 1, 2, 2, 0, 0};
    const std::size_t axis =
        kAxis[4u * (tNext.x < tNext.y) + 2u * (tNext.x < tNext.z) + 1u * (tNext.y < tNext.z)];
    if (tNext[axis] > ray.maxDistance) return false;
    cell[axis] += step[axis];
    if (cell[axis] == stop[axis]) return false;
    tNext[axis] += tDelta[axis];
  }
}

void GridAcceleration::draw(DrawBoxFunc drawBox) const {
  if (isEmpty()) return;
  const tarn::Vec4<float> colour(0.4f, 0.9f, 0.5f, 0.2f);
  std::size_t number = 0;
  for (std::uint32_t z = 0; z < resolution_[2]; ++z)
    for (std::uint32_t y = 0; y < resolution_[1]; ++y)
      for (std::uint32_t x = 0; x < resolution_[0]; ++x, ++number) {
        if (cellStart_[number] == cellStart_[number + 1]) continue;
        const tarn::Vec3<float> low(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
        drawBox(tarn::Box3<float>(box_.min + cellSize_ * low, box_.min + cellSize_ * (low + tarn::Vec3<float>(1.0f))), colour);
      }
}

}  // namespace vela
