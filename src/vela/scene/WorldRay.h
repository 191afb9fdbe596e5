/// \file
/// Rays in world space, as views make them and ray casters take them.
#pragma once

#include <cstdint>
#include <limits>

#include "tarn/Vec.h"

namespace vela::scene {

/// The moment of a ray that sees the scene as it is at the time of its list.
constexpr std::uint32_t kNoMoment = 0xffffffffu;

/// A ray in world space. It starts at the point base + offset.
///
/// The two are kept apart because their sum, rounded to a double, would cost rays their precision
/// in scenes that stand far from the world's zero point. Whoever has a plain point gives it as the
/// base.
///
/// Directions need not have unit length; distances are multiples of them. The range is closed at
/// both ends.
struct WorldRay {
  tarn::Vec3d base;                                       ///< what points and rays are counted from
  tarn::Vec3d offset;                                     ///< of the origin from the base
  tarn::Vec3f direction;                                  ///< any length
  float minDistance = 0.0f;                               ///< in multiples of the direction
  float maxDistance = std::numeric_limits<float>::max();  ///< in multiples of the direction
  /// Index in SceneMotion::moments of when it is under way; any other number as kNoMoment. Casters
  /// without motion do not ask.
  std::uint32_t moment = kNoMoment;
};

}  // namespace vela::scene
