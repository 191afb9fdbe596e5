#include "vela/trace/detail/Placement.h"

#include <cmath>

namespace vela::tracer {

bool placementBox(const Affine& localFromWorld, const MeshFrame& frame, BuildBox& out) {
  // What can be hit is what the ray's matrix says, so the box comes from its inverse and not from
  // the caller's matrix.
  Affine world;
  if (!invert(localFromWorld, world)) return false;

  // How much the two matrices together multiply rounding errors: the largest row sum of
  // |world| |local|. Rotations with one scale factor stay below 3. Beyond 4096 the pad below, which
  // grows with the square, passes a millionth of the box's distance from the origin, and the box
  // would keep few rays out.
  constexpr double kLargestCondition = 4096.0;
  double condition = 0.0;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      double sum = 0.0;
      for (int k = 0; k < 3; ++k)
        sum += std::fabs(world.at(i, k)) * std::fabs(localFromWorld.at(k, j));
      condition = std::fmax(condition, sum);
    }
  if (!(condition <= kLargestCondition)) return false;

  // The grown local box, in world space. The ray's local origin lies within five radius of the
  // centre; rounding it to float moves it by at most half a unit in the last place of each
  // coordinate. Twice that is allowed for.
  double center[3], half[3], reach = 0.0;
  for (int i = 0; i < 3; ++i) {
    center[i] = world.at(i, 3);
    half[i] = 0.0;
    for (int j = 0; j < 3; ++j) {
      const auto axis = static_cast<std::size_t>(j);
      const double rounding =
          2.0 * kFloatRounding * (std::fabs(frame.center[axis]) + 5.0 * frame.radius);
      center[i] += world.at(i, j) * frame.center[axis];
      half[i] += std::fabs(world.at(i, j)) * (frame.halfSize[axis] + frame.growth() + rounding);
    }
    reach = std::fmax(reach, std::fabs(center[i]) + half[i]);
  }

  // Roundings of the doubles, e = kDoubleRounding each, relative to reach. Taking a world point
  // near the box to local space and back: 4 e condition. The inverse of the inverse: each of its
  // entries is a quotient of cofactor and determinant, 8 e condition each, once more through the
  // other matrix, 16 e condition^2 in all. The sums above: 7 e condition. That is less than 27 e
  // condition^2; 512 e leaves ample room and is still far below a float's rounding. Errors that
  // grow with the distance of the ray's own origin are the business of the box test, whose slack is
  // relative.
  constexpr double kPad = 512.0 * kDoubleRounding;
  static_assert(kPad == 5.684341886080802e-14 && kPad > 27.0 * kDoubleRounding);
  const double pad = reach * condition * condition * kPad;
  // Past 1e30 the box test's floats could overflow.
  for (int i = 0; i < 3; ++i) {
    const double low = center[i] - half[i] - pad, high = center[i] + half[i] + pad;
    if (!(std::fabs(low) <= 1e30 && std::fabs(high) <= 1e30)) return false;
    out.low[i] = floatBelow(low);
    out.high[i] = floatAbove(high);
  }
  return true;
}

}  // namespace vela::tracer
