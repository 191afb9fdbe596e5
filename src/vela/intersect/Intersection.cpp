#include "vela/intersect/Intersection.h"

#include <cmath>
#include <vector>

#include "vela/intersect/detail/FaceCheck.h"
#include "vela/intersect/detail/Kernels.h"
#include "vela/mesh/Triangulate.h"

namespace vela {
namespace {

constexpr double kDoubleEpsilon = std::numeric_limits<double>::epsilon();
constexpr float kFloatEpsilon = std::numeric_limits<float>::epsilon();

// Which sides of a triangle count.
enum class Sides { both, front, back };

tarn::Vec3d widened(const tarn::Vec3f& v) { return tarn::Vec3d(v); }

// What the ray differentials take from the main test.
struct Solved {
  tarn::Vec3f e1, e2;
  tarn::Vec3d s;
  tarn::Vec3f q;
};

bool solve(Sides sides, const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a, const tarn::Vec3f& b,
           const tarn::Vec3f& c, const RayContext& ray, Solved& solved, tarn::Vec2f& uv, float& t) {
  const tarn::Vec3f e1 = b - a, e2 = c - a;
  const tarn::Vec3f p = tarn::cross(ray.direction, e2);
  const double det = static_cast<double>(tarn::dot(e1, p));
  switch (sides) {
    case Sides::both:
      if (std::fabs(det) < kDoubleEpsilon) return false;
      break;
    case Sides::front:
      if (det < kDoubleEpsilon) return false;
      break;
    case Sides::back:
      if (det > -kDoubleEpsilon) return false;
      break;
  }
  const double inv = 1.0 / det;

  const tarn::Vec3d s = widened((ray.origin - tarn::Vec3f(meshOrigin)) - a);
  const float u = static_cast<float>(tarn::dot(widened(p), s) * inv);
  if (u < -kFloatEpsilon || u > 1.0f + kFloatEpsilon) return false;

  const tarn::Vec3f q(tarn::cross(s, widened(e1)));
  const double distance = static_cast<double>(tarn::dot(e2, q)) * inv;
  if (static_cast<double>(ray.minDistance) > distance ||
      distance > static_cast<double>(ray.maxDistance))
    return false;

  const float v = static_cast<float>(static_cast<double>(tarn::dot(q, ray.direction)) * inv);
  if (v < -kFloatEpsilon || u + v > 1.0f + 2.0f * kFloatEpsilon) return false;

  solved = {e1, e2, s, q};
  uv = tarn::Vec2f(u, v);
  t = static_cast<float>(distance);
  return true;
}

// Where the ray along `direction` meets the plane. Unguarded: along the plane it gives infinities
// or NaN.
tarn::Vec2f differential(const Solved& solved, const tarn::Vec3f& direction) {
  const tarn::Vec3f p = tarn::cross(direction, solved.e2);
  const double inv = 1.0 / static_cast<double>(tarn::dot(solved.e1, p));
  return tarn::Vec2f(static_cast<float>(tarn::dot(widened(p), solved.s) * inv),
                     static_cast<float>(static_cast<double>(tarn::dot(solved.q, direction)) * inv));
}

bool solveFull(Sides sides, const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a,
               const tarn::Vec3f& b, const tarn::Vec3f& c, const RayContext& ray, tarn::Vec2f& uv,
               tarn::Vec2f& uvDx, tarn::Vec2f& uvDy, float& t) {
  Solved solved;
  if (!solve(sides, meshOrigin, a, b, c, ray, solved, uv, t)) return false;
  uvDx = differential(solved, ray.xDirection);
  uvDy = differential(solved, ray.yDirection);
  return true;
}

}  // namespace

bool intersectTriangle(const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a, const tarn::Vec3f& b,
                       const tarn::Vec3f& c, const RayContext& ray, tarn::Vec2f& uv,
                       tarn::Vec2f& uvDx, tarn::Vec2f& uvDy, float& t) {
  return solveFull(Sides::both, meshOrigin, a, b, c, ray, uv, uvDx, uvDy, t);
}

bool intersectTriangle(const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a, const tarn::Vec3f& b,
                       const tarn::Vec3f& c, const RayContext& ray, tarn::Vec2f& uv, float& t) {
  Solved solved;
  return solve(Sides::both, meshOrigin, a, b, c, ray, solved, uv, t);
}

bool intersectTriangleSided(bool frontSide, const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a,
                            const tarn::Vec3f& b, const tarn::Vec3f& c, const RayContext& ray,
                            tarn::Vec2f& uv, tarn::Vec2f& uvDx, tarn::Vec2f& uvDy, float& t) {
  return solveFull(frontSide ? Sides::front : Sides::back, meshOrigin, a, b, c, ray, uv, uvDx, uvDy,
                   t);
}

bool intersectTriangleSided(bool frontSide, const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a,
                            const tarn::Vec3f& b, const tarn::Vec3f& c, const RayContext& ray,
                            tarn::Vec2f& uv, float& t) {
  Solved solved;
  return solve(frontSide ? Sides::front : Sides::back, meshOrigin, a, b, c, ray, solved, uv, t);
}

bool Intersect(const tarn::Ray3f& ray, const tarn::Box3f& box, float& tNear, float& tFar) {
  return detail::hitBox(ray, box, tNear, tFar);
}

bool Intersect(const tarn::Ray3f& ray, const tarn::Vec3f& a, const tarn::Vec3f& b,
               const tarn::Vec3f& c, CollisionResult& result) {
  return detail::hitTriangle(ray, a, b, c, result);
}

bool Intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
               const ovo::Array<tarn::Vec3f>& points, const ovo::Array<int>& counts,
               const ovo::Array<int>& indices, CollisionResult& result) {
  float best = ray.maxDistance;
  CollisionResult scratch;
  std::vector<int> triangles;
  const tarn::Vec3f* const at = points.cdata();

  for (const ovo::Face face : ovo::Faces(counts, indices)) {
    if (!face.isUsable(points.size())) continue;
    bool hit = false;
    const auto test = [&](int a, int b, int c) {
      const int* const corners = face.data();
      return detail::hitTriangle(ray, at[corners[a]], at[corners[b]], at[corners[c]], scratch);
    };
    if (face.size() == 3) {
      hit = test(0, 1, 2);
    } else if (face.size() == 4) {
      // Asked on hits only: a triangle with a NaN is never hit, but one half of a quad may be
      // without.
      hit = (test(0, 1, 2) || test(2, 3, 0)) && !detail::hasNan(at, face);
    } else {
      // KEEP(polygon-last-hit): every triangle is tested and a later hit replaces an earlier
      // one. Only a folded polygon is hit twice; which of its folds wins is in recorded picks.
      Triangulate(at, face.data(), static_cast<int>(face.size()), triangles);
      for (std::size_t k = 0; k + 2 < triangles.size(); k += 3)
        if (test(triangles[k], triangles[k + 1], triangles[k + 2])) hit = true;
    }

    // KEEP(untouched-record-no-hit): without `hit`, a ray that reaches to infinity would accept
    // the record of a missed face, whose distance is the largest finite float.
    if (hit && best > scratch.distance && scratch.distance > ray.minDistance) {
      result = scratch;
      result.faceIndex = static_cast<int>(face.index());
      result.hit = true;
      best = scratch.distance;
      if (!ctx.nearestHit) break;
    }
  }
  return ray.maxDistance > best;
}

}  // namespace vela
