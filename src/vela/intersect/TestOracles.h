/// \file
/// For the tests of this folder: rays that look for trouble, and the rules written down once more,
/// as plainly as they can be said and by components, so that the tests do not ask the code under
/// test.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/SampleMeshes.h"
#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/Intersection.h"

namespace vela_test {

using tarn::Box3f;
using tarn::Ray3f;
using tarn::Vec3f;
using vela::CollisionResult;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kMax = std::numeric_limits<float>::max();

// ---- Comparing

inline std::uint32_t bitsOf(float v) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  return bits;
}
inline bool sameBits(const Vec3f& a, const Vec3f& b) {
  return bitsOf(a.x) == bitsOf(b.x) && bitsOf(a.y) == bitsOf(b.y) && bitsOf(a.z) == bitsOf(b.z);
}
inline bool sameRecord(const CollisionResult& a, const CollisionResult& b) {
  return bitsOf(a.distance) == bitsOf(b.distance) && sameBits(a.normal, b.normal) &&
         sameBits(a.position, b.position) && a.primitiveIndex == b.primitiveIndex &&
         a.faceIndex == b.faceIndex && a.hit == b.hit;
}
inline std::string show(const Ray3f& r) {
  char text[400];
  std::snprintf(text, sizeof text, "ray from %a %a %a along %a %a %a in %a %a",
                static_cast<double>(r.origin.x), static_cast<double>(r.origin.y),
                static_cast<double>(r.origin.z), static_cast<double>(r.direction.x),
                static_cast<double>(r.direction.y), static_cast<double>(r.direction.z),
                static_cast<double>(r.minDistance), static_cast<double>(r.maxDistance));
  return text;
}
inline std::string show(const CollisionResult& c) {
  char text[200];
  std::snprintf(text, sizeof text, "{t %a, primitive %u, face %d, hit %d}",
                static_cast<double>(c.distance), c.primitiveIndex, c.faceIndex, c.hit ? 1 : 0);
  return text;
}
/// A record that no query writes: shows whether a miss leaves it alone.
inline CollisionResult marked() {
  CollisionResult r;
  r.distance = -77.0f;
  r.normal = Vec3f(1, 2, 3);
  r.position = Vec3f(4, 5, 6);
  r.primitiveIndex = 4711;
  r.faceIndex = -12;
  return r;
}

// ---- Plain rules

/// The single-precision triangle test by components.
inline bool plainTriangle(const Ray3f& r, const Vec3f& a, const Vec3f& b, const Vec3f& c,
                          CollisionResult& out) {
  const float e1x = b.x - a.x, e1y = b.y - a.y, e1z = b.z - a.z, e2x = c.x - a.x, e2y = c.y - a.y,
              e2z = c.z - a.z;
  const float dx = r.direction.x, dy = r.direction.y, dz = r.direction.z;
  const float px = dy * e2z - dz * e2y, py = dz * e2x - dx * e2z, pz = dx * e2y - dy * e2x;
  const float det = e1x * px + e1y * py + e1z * pz;
  if (-1e-10f < det && det < 1e-10f) return false;
  const float inv = 1.0f / det;
  const float sx = r.origin.x - a.x, sy = r.origin.y - a.y, sz = r.origin.z - a.z;
  const float u = (sx * px + sy * py + sz * pz) * inv;
  if (u < 0.0f || u > 1.0f) return false;
  const float qx = sy * e1z - sz * e1y, qy = sz * e1x - sx * e1z, qz = sx * e1y - sy * e1x;
  const float v = (dx * qx + dy * qy + dz * qz) * inv;
  if (v < 0.0f || u + v > 1.0f) return false;
  const float t = (e2x * qx + e2y * qy + e2z * qz) * inv;
  if (!(t >= r.minDistance - 1e-5f) || !(r.maxDistance + 1e-5f >= t)) return false;
  out.distance = t;
  out.position = Vec3f(r.origin.x + t * dx, r.origin.y + t * dy, r.origin.z + t * dz);
  out.normal = Vec3f(e1y * e2z - e1z * e2y, e1z * e2x - e1x * e2z, e1x * e2y - e1y * e2x);
  out.hit = true;
  return true;
}

inline bool plainBox(const Ray3f& r, const Box3f& box, float& tNear, float& tFar) {
  for (const std::size_t i : {0u, 1u, 2u})
    if (box.min[i] > box.max[i]) return false;
  float t0 = r.minDistance, t1 = r.maxDistance;
  for (const std::size_t i : {0u, 1u, 2u}) {
    const float d = r.direction[i];
    if (std::fabs(d) < 1e-6f) {
      if (box.min[i] > r.origin[i] || r.origin[i] > box.max[i]) return false;
    } else {
      const float inv = 1.0f / d;
      float tn = (box.min[i] - r.origin[i]) * inv, tf = (box.max[i] - r.origin[i]) * inv;
      if (tn > tf) {
        const float swap = tn;
        tn = tf;
        tf = swap;
      }
      t0 = tn < t0 ? t0 : tn;
      t1 = t1 < tf ? t1 : tf;
      if (t0 > t1) return false;
    }
  }
  tNear = t0;
  tFar = t1;
  return true;
}

/// The grid as its header describes it: each cell has a list of primitive numbers.
class PlainGrid {
 public:
  explicit PlainGrid(const vela::AccelerationModel& model) : model_(model), box_(model.bounds()) {
    const std::size_t n = model.size();
    float extent[3];
    for (const std::size_t i : {0u, 1u, 2u}) {
      extent[i] = box_.max[i] - box_.min[i];
      if (std::isnan(extent[i])) return;
    }
    const float k = std::cbrt(0.33333334f) /
                    std::cbrt(extent[0] * extent[1] * extent[2] / static_cast<float>(n));
    std::uint32_t res[3];
    for (const std::size_t i : {0u, 1u, 2u}) {
      const float count = std::floor(extent[i] * k) + 1.0f;
      if (!(std::fabs(count) < 9.2e18f)) return;
      res[i] =
          static_cast<std::uint32_t>(static_cast<std::uint64_t>(static_cast<std::int64_t>(count)));
      if (res[i] > 64) res[i] = 64;
      if (res[i] == 0) return;
    }
    for (const std::size_t i : {0u, 1u, 2u}) {
      res_[i] = res[i];
      size_[i] = extent[i] / static_cast<float>(res[i]);
    }
    cells_.resize(std::size_t{res[0]} * res[1] * res[2]);
    isFilled_ = n * cells_.size() < 4000000;
    for (std::size_t p = 0; isFilled_ && p < n; ++p) {
      const Box3f b = model.bounds(p);
      for (std::uint32_t z = cell(b.min.z - box_.min.z, 2); z <= cell(b.max.z - box_.min.z, 2); ++z)
        for (std::uint32_t y = cell(b.min.y - box_.min.y, 1); y <= cell(b.max.y - box_.min.y, 1);
             ++y)
          for (std::uint32_t x = cell(b.min.x - box_.min.x, 0); x <= cell(b.max.x - box_.min.x, 0);
               ++x) {
            auto& list = cells_[(std::size_t{z} * res_[1] + y) * res_[0] + x];
            if (!list) list = std::make_unique<std::vector<std::size_t>>();
            list->push_back(p);
          }
    }
  }

  std::uint32_t resolution(std::size_t axis) const { return res_[axis]; }

  bool intersect(const vela::IntersectionContext& ctx, const Ray3f& ray,
                 CollisionResult& result) const {
    if (cells_.empty()) return false;
    float t0 = 0, t1 = 0;
    if (!plainBox(ray, box_, t0, t1)) return false;
    std::uint32_t at[3], stop[3];
    int step[3];
    float next[3], delta[3];
    for (const std::size_t i : {0u, 1u, 2u}) {
      const float d = ray.direction[i] == 0.0f ? 0.0f : ray.direction[i];
      const float r = ray.origin[i] + t0 * ray.direction[i] - box_.min[i];
      at[i] = cell(r, i);
      if (d < 0.0f) {
        delta[i] = -size_[i] / d;
        step[i] = -1;
        stop[i] = 0xFFFFFFFFu;
        next[i] = (static_cast<float>(at[i]) * size_[i] - r) / d;
      } else {
        delta[i] = size_[i] / d;
        step[i] = 1;
        stop[i] = res_[i];
        next[i] = (static_cast<float>(at[i] + 1) * size_[i] - r) / d;
      }
    }
    for (;;) {
      const auto* list = cells_[(std::size_t{at[2]} * res_[1] + at[1]) * res_[0] + at[0]].get();
      std::vector<std::size_t> gathered;
      if (!isFilled_) {
        // Lists that would take too much memory are made anew at each step.
        for (std::size_t p = 0; p < model_.size(); ++p) {
          const Box3f b = model_.bounds(p);
          bool touches = true;
          for (const std::size_t i : {0u, 1u, 2u})
            touches = touches && cell(b.min[i] - box_.min[i], i) <= at[i] &&
                      at[i] <= cell(b.max[i] - box_.min[i], i);
          if (touches) gathered.push_back(p);
        }
        list = &gathered;
      }
      if (list) {
        float best = ray.maxDistance;
        for (const std::size_t p : *list) {
          CollisionResult scratch;
          if (model_.intersect(ctx, ray, p, scratch) && best > scratch.distance &&
              scratch.distance > ray.minDistance) {
            result = scratch;
            result.primitiveIndex = static_cast<std::uint32_t>(p);
            result.hit = true;
            best = scratch.distance;
            if (!ctx.nearestHit) break;
          }
        }
        if (best < ray.maxDistance) return true;
      }
      const int table[8] = {2, 1, 2, 1, 2, 2, 0, 0};
      const int axis =
          table[4 * (next[0] < next[1]) + 2 * (next[0] < next[2]) + (next[1] < next[2])];
      if (next[axis] > ray.maxDistance) return false;
      at[axis] += static_cast<std::uint32_t>(step[axis]);
      if (at[axis] == stop[axis]) return false;
      next[axis] += delta[axis];
    }
  }

 private:
  std::uint32_t cell(float r, std::size_t axis) const {
    const float c = std::floor(r / size_[axis]);
    const float last = static_cast<float>(res_[axis] - 1);
    return c >= last ? res_[axis] - 1 : c >= 0.0f ? static_cast<std::uint32_t>(c) : 0u;
  }

  const vela::AccelerationModel& model_;
  Box3f box_;
  std::uint32_t res_[3] = {};
  float size_[3] = {};
  bool isFilled_ = false;
  std::vector<std::unique_ptr<std::vector<std::size_t>>> cells_;
};

/// The nearest hit strictly inside the range over all primitives, without boxes; of equal ones the
/// first.
inline bool plainNearest(const vela::AccelerationModel& model, const Ray3f& ray,
                         CollisionResult& result) {
  const vela::IntersectionContext ctx;
  float best = ray.maxDistance;
  for (std::size_t i = 0; i < model.size(); ++i) {
    CollisionResult scratch;
    if (model.intersect(ctx, ray, i, scratch) && best > scratch.distance &&
        scratch.distance > ray.minDistance) {
      scratch.primitiveIndex = static_cast<std::uint32_t>(i);
      best = scratch.distance;
      result = scratch;
    }
  }
  return ray.maxDistance > best;
}

// ---- Rays

/// Rays at a mesh: chords and camera rays, and those that find trouble: through vertices, along
/// edges, in planes, parallel to axes, from cell corners, from points of the mesh, with clipped,
/// empty and endless ranges, zeros of both signs, NaN and infinity.
class RayMaker {
 public:
  RayMaker(const SampleMesh& mesh, unsigned seed) : mesh_(mesh), random_(seed) {
    for (const auto& p : mesh.points)
      if (std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z)) box_.extendBy(p);
    if (box_.isEmpty()) box_ = Box3f(Vec3f(-1.0f), Vec3f(1.0f));
    size_ = std::max(
        {box_.max.x - box_.min.x, box_.max.y - box_.min.y, box_.max.z - box_.min.z, 1e-3f});
    if (!(size_ < kMax)) size_ = 1e30f;
  }

  Ray3f ordinary() {
    const Vec3f from = around(1.5f), to = around(0.6f);
    return Ray3f(from, pick(2) ? to - from : (to - from).normalized());
  }

  Ray3f hostile() {
    Ray3f ray = ordinary();
    switch (pick(9)) {
      case 0: ray.direction = meshPoint() - ray.origin; break;  // through a vertex
      case 1: ray = between(meshPoint(), meshPoint()); break;   // along or between vertices
      case 2: ray = inPlane(); break;
      case 3: ray = axisParallel(around(0.7f)); break;
      case 4: ray = axisParallel(cellCorner()); break;
      case 5: ray.origin = cellCorner(); break;
      case 6: ray.direction = cellCorner() - ray.origin; break;
      case 7: ray = axisParallel(meshPoint()); break;
      default: ray = between(edgePoint(), edgePoint()); break;
    }
    switch (pick(8)) {
      case 0: ray.maxDistance = unit() * 2.0f; break;
      case 1: ray.minDistance = unit(); break;
      case 2: ray.minDistance = -unit(); break;
      case 3: ray.maxDistance = kInf; break;
      case 4: ray.maxDistance = ray.minDistance; break;
      default: break;
    }
    for (const std::size_t i : {0u, 1u, 2u}) {
      if (ray.direction[i] == 0.0f && pick(2)) ray.direction[i] = -0.0f;
      if (pick(200) == 0) ray.direction[i] = pick(2) ? 1e-7f : 0.0f;
      if (pick(500) == 0) ray.direction[i] = pick(3) ? kNan : kInf;
      if (pick(500) == 0) ray.origin[i] = pick(3) ? kNan : -kInf;
    }
    return ray;
  }

 private:
  unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }
  float unit() { return static_cast<float>(random_() % 100001u) / 100000.0f; }
  Vec3f around(float reach) {
    const Vec3f centre = box_.min * 0.5f + box_.max * 0.5f;
    return centre + Vec3f(unit() - 0.5f, unit() - 0.5f, unit() - 0.5f) * (2.0f * reach * size_);
  }
  Vec3f meshPoint() {
    return mesh_.points.empty() ? around(0.5f)
                                : mesh_.points[pick(static_cast<unsigned>(mesh_.points.size()))];
  }
  Vec3f edgePoint() {
    const Vec3f a = meshPoint(), b = meshPoint();
    return a + (b - a) * (pick(2) ? 0.5f : unit());
  }
  Vec3f cellCorner() {
    Vec3f p;
    for (const std::size_t i : {0u, 1u, 2u}) {
      // The resolution that a grid over this mesh is likely to have, and others.
      const float cells = static_cast<float>(1 + pick(64)), at = static_cast<float>(pick(65));
      const float low = box_.min[i] - 1e-5f, extent = box_.max[i] - box_.min[i] + 2e-5f;
      p[i] = pick(6) == 0 ? box_.max[i] : low + extent / cells * at;
    }
    return p;
  }
  Ray3f between(const Vec3f& a, const Vec3f& b) {
    return Ray3f(a - (b - a) * static_cast<float>(pick(3)), b - a);
  }
  Ray3f axisParallel(const Vec3f& through) {
    Vec3f direction;
    const std::size_t axis = pick(3);
    direction[axis] = pick(2) ? 1.0f : -1.0f;
    if (pick(3) == 0) direction[(axis + 1) % 3] = pick(2) ? 1.0f : -1.0f;
    return Ray3f(through - direction * (pick(2) ? size_ : 0.0f), direction);
  }
  Ray3f inPlane() {
    if (mesh_.counts.empty()) return ordinary();
    const Vec3f a = meshPoint(), b = meshPoint(), c = meshPoint();
    const Vec3f from = a + (b - a) * (unit() * 3.0f - 1.0f),
                to = a + (c - a) * (unit() * 3.0f - 1.0f);
    return between(from, to);
  }

  const SampleMesh& mesh_;
  std::mt19937 random_;
  Box3f box_;
  float size_ = 1.0f;
};

}  // namespace vela_test
