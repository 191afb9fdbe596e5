/// \file
/// Rays that break what takes rays for granted.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <utility>

#include "tarn/Ray.h"
#include "tarn/Vec.h"

namespace vela_test {

/// An ordinary ray made into one that a kernel might take wrongly.
inline tarn::Ray3f hostile(std::mt19937_64& random, tarn::Ray3f ray) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const std::size_t axis = random() % 3;
  switch (random() % 14) {
    case 0: ray.direction[axis] = 0.0f; break;
    case 1: ray.direction[axis] = -0.0f; break;
    case 2: ray.direction[axis] = ray.direction[(axis + 1) % 3] = -0.0f; break;
    case 3: ray.direction = tarn::Vec3f(); break;
    case 4: ray.origin[axis] = random() % 2 == 0 ? kNan : kInf; break;
    case 5: ray.direction[axis] = random() % 2 == 0 ? kNan : -kInf; break;
    case 6: std::swap(ray.minDistance, ray.maxDistance); break;
    case 7: ray.minDistance = -kInf; break;
    case 8: ray.maxDistance = kNan; break;
    case 9:
      ray.minDistance = -2.0f;
      ray.maxDistance = -0.1f;
      break;
    case 10:
      // From far away, towards the same point.
      ray.origin = ray.origin + ray.direction * -1e4f;
      break;
    case 11: ray.direction = ray.direction * 1e-38f; break;
    case 12: ray.direction = ray.direction * 1e30f; break;
    default: ray.direction[axis] = std::ldexp(ray.direction[axis], -40); break;
  }
  return ray;
}

}  // namespace vela_test
