/// \file
/// Right-handed frames about a given direction.
#pragma once

#include "tarn/Fwd.h"
#include "tarn/Vec.h"

namespace tarn {

/// Three directions with x cross y = z.
///
/// \code
///   const tarn::Frame3d level = tarn::frameAbout(tarn::Vec3d(0, 0, 1), tarn::Vec3d(0, 5, 0));
///   assert(level.x == tarn::Vec3d(1, 0, 0) && level.y == tarn::Vec3d(0, 1, 0));
/// \endcode
template <class T>
struct Frame {
  /// The axes of the frame, in the space that it stands in. @{
  Vec3<T> x, y, z;
  /// @}
};

/// The frame of unit vectors whose z is given and whose y leans towards `up`, as a camera stands
/// level: x = (up x z) normalised, y = z x x.
///
/// \param z   unit length
/// \param up  any length; along z, or zero, it makes x and y zero
template <class T>
[[nodiscard]] Frame<T> frameAbout(const Vec3<T>& z, const Vec3<T>& up) {
  const Vec3<T> x = cross(up, z).normalized();
  return {x, cross(z, x), z};
}

/// Some frame of unit vectors whose z is given, where it does not matter how x and y are turned.
/// They jump where |z.x| passes 0.6: where that would show, see Vec3::orientAroundNormal.
template <class T>
[[nodiscard]] Frame<T> frameAbout(const Vec3<T>& z) {
  // The axis of the two that lies further from z: the cross product is never shorter than 0.6.
  const bool isAcrossX = std::abs(z.x) < T(0.6);
  return frameAbout(z, isAcrossX ? Vec3<T>(T(1), T(0), T(0)) : Vec3<T>(T(0), T(1), T(0)));
}

}  // namespace tarn
