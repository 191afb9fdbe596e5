/// \file
/// The single-precision tests, inline for the loops that live on them. Intersection.h says what
/// they promise.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "vela/intersect/Intersection.h"

namespace vela::detail {

inline bool hitBox(const tarn::Ray3f& ray, const tarn::Box3f& box, float& tNear, float& tFar) {
  // The swap below would turn an empty box into an endless one.
  if (box.isEmpty()) return false;
  float t0 = ray.minDistance, t1 = ray.maxDistance;
  for (std::size_t i = 0; i < 3; ++i) {
    const float d = ray.direction[i], o = ray.origin[i];
    if (std::fabs(d) < 1e-6f) {
      if (box.min[i] > o || o > box.max[i]) return false;
      continue;
    }
    const float inv = 1.0f / d;
    float tn = (box.min[i] - o) * inv, tf = (box.max[i] - o) * inv;
    if (tn > tf) std::swap(tn, tf);
    t0 = std::max(tn, t0);
    t1 = std::min(tf, t1);
    if (t0 > t1) return false;
  }
  tNear = t0;
  tFar = t1;
  return true;
}

inline bool hitTriangle(const tarn::Ray3f& ray, const tarn::Vec3f& a, const tarn::Vec3f& b,
                        const tarn::Vec3f& c, CollisionResult& result) {
  const tarn::Vec3f e1 = b - a, e2 = c - a;
  const tarn::Vec3f p = tarn::cross(ray.direction, e2);
  const float det = tarn::dot(e1, p);
  if (-1e-10f < det && det < 1e-10f) return false;

  const float inv = 1.0f / det;
  const tarn::Vec3f s = ray.origin - a;
  const float u = tarn::dot(s, p) * inv;
  if (u < 0.0f || u > 1.0f) return false;

  const tarn::Vec3f q = tarn::cross(s, e1);
  const float v = tarn::dot(ray.direction, q) * inv;
  if (v < 0.0f || u + v > 1.0f) return false;

  // Spelled so that a NaN distance is a miss.
  const float t = tarn::dot(e2, q) * inv;
  if (!(t >= ray.minDistance - 1e-5f && ray.maxDistance + 1e-5f >= t)) return false;

  result.distance = t;
  result.position = ray.origin + ray.direction * t;
  result.normal = tarn::cross(e1, e2);
  result.hit = true;
  return true;
}

}  // namespace vela::detail
