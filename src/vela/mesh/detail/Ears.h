/// \file
/// Ears with a tolerance: the corners of a polygon that `Triangulate` cuts off.
#pragma once

#include "tarn/Vec.h"

namespace vela::detail {

using Point2 = tarn::Vec2f;

// KEEP(triangulate-absolute-tolerance): a blocker counts by more than this, in the fourth power of
// a length. Models that hosts have pinned hits on are cut so; triangulatePolygon is the one without
// a tolerance.
constexpr float kEarTolerance = 0.0001f;

/// A corner with its neighbours, and what its test needs that does not depend on the other corner.
struct Ear {
  Point2 p, c, n;
  float turn, nSide, cSide;

  Ear(const Point2& before, const Point2& corner, const Point2& after)
      : p(before),
        c(corner),
        n(after),
        turn((p.y - c.y) * (n.x - c.x) - (p.x - c.x) * (n.y - c.y)),
        nSide((c.x - p.x) * (n.y - p.y) - (n.x - p.x) * (c.y - p.y)),
        cSide((p.x - n.x) * (c.y - n.y) - (c.x - n.x) * (p.y - n.y)) {}

  [[nodiscard]] bool isBlockedBy(const Point2& q) const {
    return nSide * ((c.x - p.x) * (q.y - p.y) - (q.x - p.x) * (c.y - p.y)) > kEarTolerance &&
           turn * ((n.x - c.x) * (q.y - c.y) - (q.x - c.x) * (n.y - c.y)) > kEarTolerance &&
           cSide * ((p.x - n.x) * (q.y - n.y) - (q.x - n.x) * (p.y - n.y)) > kEarTolerance;
  }
};

/// Corners that are tested at once.
constexpr int kEarBlock = 8;

/// Whether any of many corners blocks an ear, with the bits of Ear::isBlockedBy for each. NaN
/// blocks nothing.
///
/// \param x, y    coordinates of kEarBlock corners for each block
/// \param blocks  how many blocks
/// \param first   the block to begin with, below `blocks`; the ones before it come last
using AnyBlocks = bool (*)(const Ear& ear, const float* x, const float* y, int blocks, int first);

}  // namespace vela::detail
