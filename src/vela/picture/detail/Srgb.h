/// \file
/// The encoding of sRGB displays.
#pragma once

#include <cmath>

namespace vela::picture::detail {

/// \param linear from 0 to 1
[[nodiscard]] inline float srgbFromLinear(float linear) {
  return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1.0f / 2.4f) - 0.055f;
}

/// \param encoded from 0 to 1
[[nodiscard]] inline float linearFromSrgb(float encoded) {
  return encoded <= 0.04045f ? encoded / 12.92f : std::pow((encoded + 0.055f) / 1.055f, 2.4f);
}

}  // namespace vela::picture::detail
