/// \file
/// Bounds on how far along a ray something may lie, rounded so that no walk through the trees loses
/// a hit.
#pragma once

#include <cmath>
#include <limits>

#include "vela/trace/detail/TracerMath.h"

namespace vela::tracer {

/// std::fmin and std::fmax would be calls into the C library.
inline double least(double a, double b) { return b < a ? b : a; }
inline double largest(double a, double b) { return b > a ? b : a; }

/// A float that no s of a crossing up to the distance exceeds.
///
/// A crossing's distance carries the roundings of start + s, of distancePerS and of their product,
/// and here sPerDistance adds a fourth; the subtraction of start is the fifth. All are roundings of
/// doubles no larger than |s| + |start|. Narrowing the result costs one rounding of a float. The
/// absolute slack, far below any coordinate in scaled space, keeps the result from being a
/// denormal, which slows the processor by some hundred cycles.
constexpr double kDoubleSlack = 2e-15, kFloatSlack = 2.4e-7, kAbsoluteSlack = 1e-30;
static_assert(kDoubleSlack > 5.0 * kDoubleRounding && kFloatSlack > 2.0 * kFloatRounding);
inline float upperS(double distance, double sPerDistance, double start) {
  const double s = distance * sPerDistance, v = s - start;
  const double up = v + ((std::fabs(s) + std::fabs(start)) * kDoubleSlack +
                         std::fabs(v) * kFloatSlack + kAbsoluteSlack);
  if (!(up < 3e38)) return std::numeric_limits<float>::infinity();
  return up < -3e38 ? -3e38f : static_cast<float>(up);
}
/// The other end: no s of a crossing from the distance on is below it.
inline float lowerS(double distance, double sPerDistance, double start) {
  return -upperS(-distance, sPerDistance, -start);
}

/// The relative error of a slab value against a box that was not grown for it: the roundings of the
/// inverse, of the difference and of the product, with ample room. 2^-20.
constexpr float kSlabSlack = 9.5367432e-7f;
static_assert(static_cast<double>(kSlabSlack) > 5 * kFloatRounding);

/// A stack's entry with a key above this cannot be reached at an s of up to \p high. Keys are
/// clamped to 0 and up to 7 units in the last place too large (pushSorted), and slab values carry
/// kSlabSlack. The absolute part stands above the keys of 0, which are denormals.
inline float storedLimit(float high) {
  constexpr float kSlack = 3.8146973e-6f, kAbsolute = 1e-30f;  // 2^-18
  static_assert(static_cast<double>(kSlack) > 16.0 * kFloatRounding + 20.0 * kFloatRounding);
  return (high > 0.0f ? high : 0.0f) * (1.0f + kSlack) + kAbsolute;
}

/// A coordinate of a ray's origin as a float for the box test in world space: exact where it is
/// one, else the next one up or down. Beyond the range of float: the last one or infinity.
inline float roundOrigin(float v, bool) { return v; }
inline float roundOrigin(double v, bool isUp) {
  constexpr float most = std::numeric_limits<float>::max(), infinity = HUGE_VALF;
  if (v > static_cast<double>(most)) return isUp ? infinity : most;
  if (v < -static_cast<double>(most)) return isUp ? -most : -infinity;
  const auto rounded = static_cast<float>(v);
  if (static_cast<double>(rounded) == v) return rounded;
  if ((static_cast<double>(rounded) > v) == isUp) return rounded;
  return std::nextafter(rounded, isUp ? infinity : -infinity);
}

}  // namespace vela::tracer
