/// \file
/// Even points of a disk.
#pragma once

#include <cmath>

#include "tarn/Constants.h"
#include "tarn/Vec.h"

namespace vela::picture::detail {

/// From the square [-0.5, 0.5]^2 to the unit disk, keeping neighbours together.
/// Source: Shirley and Chiu, JGT 2(3), 1997.
inline tarn::Vec2f toDisk(const tarn::Vec2f& point) {
  constexpr float kPi = tarn::kPi<float>;
  const float a = 2.0f * point.x, b = 2.0f * point.y;
  if (a == 0.0f && b == 0.0f) return {};
  const bool wide = std::abs(a) > std::abs(b);
  const float r = wide ? a : b;
  const float angle = wide ? 0.25f * kPi * (b / a) : 0.5f * kPi - 0.25f * kPi * (a / b);
  return {r * std::cos(angle), r * std::sin(angle)};
}

}  // namespace vela::picture::detail
