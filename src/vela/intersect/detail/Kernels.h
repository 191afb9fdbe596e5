/// \file
/// The single-precision tests, inline for the loops that live on them. Intersection.h says what
/// they promise.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "vela/intersect/Intersection.h"

namespace vela {
class AccelerationModel;
}

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

/// Whether a ray can hit no triangle at all, by its numbers alone. A search that takes NaN for "may
/// enter" would ask every triangle.
///
/// hitTriangle misses at a distance that is NaN. A NaN in the direction is in two of the
/// coordinates of p, so in det, inv and the distance; one in the origin is in s, so in two of q,
/// and in the distance; one in the range is in a comparison. With an infinity along each axis a
/// coordinate of p would be infinite only where those two coordinates of e2 that it is made of have
/// opposite signs, each turned by its infinity's. Three signs are not opposite in pairs, so one of
/// p's is NaN.
inline bool missesAllTriangles(const tarn::Ray3f& ray) {
  const tarn::Vec3f &o = ray.origin, &d = ray.direction;
  // NaN where any is; also where infinities of opposite signs meet, so it is looked at closely
  // then.
  const float sum =
      ((o.x + o.y) + (o.z + d.x)) + ((d.y + d.z) + (ray.minDistance + ray.maxDistance));
  const bool isEndless = std::isinf(d.x) && std::isinf(d.y) && std::isinf(d.z);
  if (!std::isnan(sum)) return isEndless;
  const auto hasNan = [](const tarn::Vec3f& v) {
    return std::isnan(v.x) || std::isnan(v.y) || std::isnan(v.z);
  };
  return isEndless || hasNan(o) || hasNan(d) || std::isnan(ray.minDistance) ||
         std::isnan(ray.maxDistance);
}

/// Whether a model's primitives are triangles, or meshes of triangles, and nothing else. Only the
/// very classes: one derived from them may answer differently.
bool hasTrianglesAlone(const AccelerationModel& model);

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
