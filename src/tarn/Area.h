/// \file
/// Area vectors: along the normal of a triangle or polygon, as long as twice its area.
///
/// The normal is the one that the corners run about counter-clockwise.
#pragma once

#include <cstddef>
#include <type_traits>

#include "tarn/Vec.h"

namespace tarn {

/// (b - a) x (c - a).
template <class T>
[[nodiscard]] constexpr Vec3<T> areaVector(const Vec3<T>& a, const Vec3<T>& b, const Vec3<T>& c) {
  return cross(b - a, c - a);
}

/// Newell's sum for a polygon, flat or not: the triangles from corner 0 to each side in turn. Taken
/// about that corner, so that polygons far from the origin do not cancel out.
///
/// \param count   corners; fewer than three have no area
/// \param corner  gives corner k in [0, count) as a Vec3; called twice for some
///
/// Of float corners widened to double it is finite exactly when they all are: no product of two
/// differences of floats overflows a double, and a NaN or an infinity spreads through every product
/// that it meets.
template <class Corner>
[[nodiscard]] constexpr auto areaVector(std::size_t count, Corner&& corner) {
  using V = std::decay_t<decltype(corner(count))>;
  V sum;
  if (count < 3) return sum;
  const V origin = corner(0);
  for (std::size_t k = 1; k + 1 < count; ++k)
    sum += cross(corner(k) - origin, corner(k + 1) - origin);
  return sum;
}

}  // namespace tarn
