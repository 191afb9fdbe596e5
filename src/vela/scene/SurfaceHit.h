/// \file
/// What a ray met.
#pragma once

#include <cstdint>

#include "tarn/Vec.h"

namespace vela::scene {

/// A point on the surface of an entry. On a miss only `hit` says anything.
struct SurfaceHit {
  double distance = 0.0;  ///< in units of the ray's direction
  /// The point is base + offset. The base is the same for all hits of one caster; the offset has
  /// been rounded to single precision.
  tarn::Vec3d base;
  tarn::Vec3f offset;       ///< from the base
  tarn::Vec3f normal;       ///< world space, unit length, by the stored winding of the face
  std::uint32_t entry = 0;  ///< index in MeshList::entries
  std::int32_t face = 0;    ///< of the entry's shape; Shape::sceneFace has the scene's index
  /// Of the triangle that was cut from the face: the point indices of its corners, and where those
  /// stand in Shape::indices. All zero where hasCorners is not set.
  std::int32_t points[3] = {0, 0, 0};
  std::int32_t faceVertices[3] = {0, 0, 0};  ///< where those corners stand in Shape::indices
  /// Barycentrics: a value that varies over the triangle is (1 - u - v) a + u b + v c. @{
  float u = 0.0f, v = 0.0f;
  /// @}
  bool hasCorners = false;  ///< the tracer's hits have corners, the hit detector's have none
  bool hit = false;         ///< false: nothing was met

  /// The point in the world.
  [[nodiscard]] tarn::Vec3d position() const { return tarn::Vec3d(offset) + base; }
};

}  // namespace vela::scene
