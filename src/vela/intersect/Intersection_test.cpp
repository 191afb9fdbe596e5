#include "vela/intersect/Intersection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "vela/camera/RayContext.h"
#include "vela/intersect/TestOracles.h"
#include "vela/intersect/detail/Kernels.h"
#include "vela/mesh/Triangulate.h"

using namespace vela;
using namespace vela_test;
using tarn::Vec2f;
using tarn::Vec3d;

namespace {

// ---- The two records

TEST(IntersectionContext, WantsTheNearestHitOfAnything) {
  const IntersectionContext ctx;
  EXPECT_TRUE(ctx.nearestHit);
  EXPECT_TRUE(ctx.excludedPaths.empty());
  EXPECT_TRUE(ctx.includedTypeNames.empty());
}

TEST(IntersectionContext, SetsStartWithEightBucketsAtLeastAndLoadOne) {
  const IntersectionContext ctx;
  EXPECT_GE(ctx.excludedPaths.bucket_count(), 8u);
  EXPECT_GE(ctx.includedTypeNames.bucket_count(), 8u);
  EXPECT_EQ(ctx.excludedPaths.max_load_factor(), 1.0f);
  EXPECT_EQ(ctx.includedTypeNames.max_load_factor(), 1.0f);
}

TEST(IntersectionContext, CopiesAndMovesCarryEverything) {
  IntersectionContext ctx;
  ctx.nearestHit = false;
  ctx.excludedPaths.insert(ovo::Path("/A"));
  ctx.includedTypeNames.insert(ovo::Token("Mesh"));
  IntersectionContext copy(ctx);
  IntersectionContext moved(std::move(copy));
  IntersectionContext assigned;
  assigned = moved;
  EXPECT_FALSE(assigned.nearestHit);
  EXPECT_EQ(assigned.excludedPaths.count(ovo::Path("/A")), 1u);
  EXPECT_EQ(assigned.includedTypeNames.count(ovo::Token("Mesh")), 1u);
}

TEST(CollisionResult, DefaultsAreNoHit) {
  const CollisionResult result;
  EXPECT_EQ(result.distance, 3.4028235e38f);
  EXPECT_EQ(result.normal, Vec3f());
  EXPECT_EQ(result.position, Vec3f());
  EXPECT_EQ(result.primitiveIndex, 0u);
  EXPECT_EQ(result.faceIndex, 0);
  EXPECT_FALSE(result.hit);
}

// ---- IntersectTriangle

const Vec3f kA(0, 0, 0), kB(1, 0, 0), kC(0, 1, 0);
const Vec3d kNoOrigin;

RayContext contextRay(const Vec3f& origin, const Vec3f& direction, float tMin = 0.0f,
                      float tMax = 100.0f) {
  RayContext ray;
  ray.setGeom(origin, direction, tMin, tMax);
  return ray;
}

TEST(IntersectTriangle, GivesBarycentricsAndDistance) {
  Vec2f uv;
  float t = 0;
  EXPECT_TRUE(
      intersectTriangle(kNoOrigin, kA, kB, kC, contextRay({0.25f, 0.5f, 3}, {0, 0, -2}), uv, t));
  EXPECT_EQ(uv, Vec2f(0.25f, 0.5f));
  EXPECT_EQ(t, 1.5f);
}

TEST(IntersectTriangle, MissWritesNothing) {
  Vec2f uv(7, 7), uvDx(8, 8), uvDy(9, 9);
  float t = 6;
  for (const Vec3f& origin : {Vec3f(2, 0.5f, 1), Vec3f(0.6f, 0.6f, 1), Vec3f(0.25f, 0.25f, -1)}) {
    const RayContext ray = contextRay(origin, {0, 0, -1});
    EXPECT_FALSE(intersectTriangle(kNoOrigin, kA, kB, kC, ray, uv, t));
    EXPECT_FALSE(intersectTriangle(kNoOrigin, kA, kB, kC, ray, uv, uvDx, uvDy, t));
    EXPECT_FALSE(intersectTriangleSided(true, kNoOrigin, kA, kB, kC, ray, uv, uvDx, uvDy, t));
  }
  EXPECT_EQ(uv, Vec2f(7, 7));
  EXPECT_EQ(uvDx, Vec2f(8, 8));
  EXPECT_EQ(uvDy, Vec2f(9, 9));
  EXPECT_EQ(t, 6.0f);
}

TEST(IntersectTriangle, SharedEdgeIsHitFromBothTriangles) {
  Vec2f uv;
  float t = 0;
  const Vec3f d(1, 1, 0);
  for (const float x : {0.0f, 0.1f, 1.0f / 3.0f, 0.7f, 1.0f}) {
    const RayContext ray = contextRay({x, 1.0f - x, 1}, {0, 0, -1});
    EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC, ray, uv, t)) << x;
    EXPECT_TRUE(intersectTriangle(kNoOrigin, d, kC, kB, ray, uv, t)) << x;
  }
}

// One rounding step past 1 in u, two in u + v, and one machine epsilon below 0: the next float on
// is out.
TEST(IntersectTriangle, TolerancesReachExactlyAsFarAsStated) {
  Vec2f uv;
  float t = 0;
  const auto hits = [&](float x, float y) {
    return intersectTriangle(kNoOrigin, kA, kB, kC, contextRay({x, y, 1}, {0, 0, -1}), uv, t);
  };
  const float eps = std::numeric_limits<float>::epsilon();
  EXPECT_TRUE(hits(1.0f + eps, 0.0f));
  EXPECT_FALSE(hits(1.0f + 2 * eps, 0.0f));
  EXPECT_TRUE(hits(-eps, 0.5f));
  EXPECT_FALSE(hits(std::nextafter(-eps, -1.0f), 0.5f));
  EXPECT_TRUE(hits(0.5f, -eps));
  EXPECT_FALSE(hits(0.5f, std::nextafter(-eps, -1.0f)));
  EXPECT_TRUE(hits(0.5f, 0.5f + 2 * eps));
  EXPECT_FALSE(hits(0.5f, 0.5f + 4 * eps));
  EXPECT_TRUE(hits(1.0f + eps, eps));
}

TEST(IntersectTriangle, ParallelRayMissesInEveryForm) {
  Vec2f uv, uvDx, uvDy;
  float t = 0;
  for (const float z : {0.0f, 0.5f}) {
    const RayContext ray = contextRay({-1, 0.25f, z}, {1, 0, 0});
    EXPECT_FALSE(intersectTriangle(kNoOrigin, kA, kB, kC, ray, uv, t));
    EXPECT_FALSE(intersectTriangle(kNoOrigin, kA, kB, kC, ray, uv, uvDx, uvDy, t));
    for (const bool front : {true, false}) {
      EXPECT_FALSE(intersectTriangleSided(front, kNoOrigin, kA, kB, kC, ray, uv, t));
      EXPECT_FALSE(intersectTriangleSided(front, kNoOrigin, kA, kB, kC, ray, uv, uvDx, uvDy, t));
    }
    CollisionResult result;
    EXPECT_FALSE(Intersect(Ray3f(ray.origin, ray.direction), kA, kB, kC, result));
  }
}

TEST(IntersectTriangle, SidesAreToldApart) {
  Vec2f uv, uvDx, uvDy;
  float t = 0;
  const RayContext fromFront = contextRay({0.25f, 0.25f, 1}, {0, 0, -1}),
                   fromBack = contextRay({0.25f, 0.25f, -1}, {0, 0, 1});
  EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC, fromFront, uv, t));
  EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC, fromBack, uv, t));
  EXPECT_TRUE(intersectTriangleSided(true, kNoOrigin, kA, kB, kC, fromFront, uv, t));
  EXPECT_FALSE(intersectTriangleSided(true, kNoOrigin, kA, kB, kC, fromBack, uv, t));
  EXPECT_FALSE(intersectTriangleSided(false, kNoOrigin, kA, kB, kC, fromFront, uv, t));
  EXPECT_TRUE(intersectTriangleSided(false, kNoOrigin, kA, kB, kC, fromBack, uv, t));
  EXPECT_TRUE(intersectTriangleSided(true, kNoOrigin, kA, kB, kC, fromFront, uv, uvDx, uvDy, t));
  EXPECT_FALSE(intersectTriangleSided(true, kNoOrigin, kA, kB, kC, fromBack, uv, uvDx, uvDy, t));
  EXPECT_FALSE(intersectTriangleSided(false, kNoOrigin, kA, kB, kC, fromFront, uv, uvDx, uvDy, t));
  EXPECT_TRUE(intersectTriangleSided(false, kNoOrigin, kA, kB, kC, fromBack, uv, uvDx, uvDy, t));
}

TEST(IntersectTriangle, BothEndsOfTheRangeAreHits) {
  Vec2f uv;
  float t = 0;
  EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC,
                                contextRay({0.25f, 0.25f, 1}, {0, 0, -1}, 1.0f, 2.0f), uv, t));
  EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC,
                                contextRay({0.25f, 0.25f, 1}, {0, 0, -1}, 0.0f, 1.0f), uv, t));
  const float after = std::nextafter(1.0f, 2.0f), before = std::nextafter(1.0f, 0.0f);
  EXPECT_FALSE(intersectTriangle(kNoOrigin, kA, kB, kC,
                                 contextRay({0.25f, 0.25f, 1}, {0, 0, -1}, after, 2.0f), uv, t));
  EXPECT_FALSE(intersectTriangle(kNoOrigin, kA, kB, kC,
                                 contextRay({0.25f, 0.25f, 1}, {0, 0, -1}, 0.0f, before), uv, t));
}

TEST(IntersectTriangle, MeshOriginMovesTheTriangle) {
  Vec2f uv;
  float t = 0;
  const RayContext ray = contextRay({1000000.25f, 0.5f, 3}, {0, 0, -1});
  EXPECT_TRUE(intersectTriangle({1e6, 0, 1}, kA, kB, kC, ray, uv, t));
  EXPECT_EQ(uv, Vec2f(0.25f, 0.5f));
  EXPECT_EQ(t, 2.0f);
}

TEST(IntersectTriangle, DifferentialsAreWhereTheNeighbouringRaysMeetThePlane) {
  RayContext ray = contextRay({0.25f, 0.25f, 1}, {0, 0, -1});
  ray.xDirection = Vec3f(0.5f, 0, -1);
  ray.yDirection = Vec3f(0, -2, -1);
  Vec2f uv, uvDx, uvDy;
  float t = 0;
  EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC, ray, uv, uvDx, uvDy, t));
  EXPECT_EQ(uvDx, Vec2f(0.75f, 0.25f));
  EXPECT_EQ(uvDy, Vec2f(0.25f, -1.75f));
}

TEST(IntersectTriangle, DifferentialAlongThePlaneIsNotGuarded) {
  RayContext ray = contextRay({0.25f, 0.25f, 1}, {0, 0, -1});
  ray.xDirection = Vec3f(1, 0, 0);
  Vec2f uv, uvDx, uvDy;
  float t = 0;
  EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC, ray, uv, uvDx, uvDy, t));
  EXPECT_TRUE(std::isinf(uvDx.x));
  EXPECT_TRUE(std::isnan(uvDy.x));  // the zero direction
}

TEST(IntersectTriangle, NotANumberDoesNotReject) {
  Vec2f uv;
  float t = 0;
  EXPECT_TRUE(
      intersectTriangle(kNoOrigin, kA, kB, kC, contextRay({kNan, kNan, kNan}, {0, 0, -1}), uv, t));
  EXPECT_TRUE(std::isnan(t));
  EXPECT_TRUE(intersectTriangle(kNoOrigin, kA, kB, kC,
                                contextRay({0.25f, 0.25f, 1}, {0, 0, -1}, kNan, kNan), uv, t));
}

// The mixed-precision steps by components.
bool plainContextTest(int side, const Vec3d& o, const Vec3f& a, const Vec3f& b, const Vec3f& c,
                      const RayContext& r, float (&out)[7]) {
  const float e1[3] = {b.x - a.x, b.y - a.y, b.z - a.z}, e2[3] = {c.x - a.x, c.y - a.y, c.z - a.z};
  const auto pOf = [&](const Vec3f& d, float(&p)[3]) {
    p[0] = d.y * e2[2] - d.z * e2[1];
    p[1] = d.z * e2[0] - d.x * e2[2];
    p[2] = d.x * e2[1] - d.y * e2[0];
  };
  float p[3];
  pOf(r.direction, p);
  const float detF = e1[0] * p[0] + e1[1] * p[1] + e1[2] * p[2];
  const double det = static_cast<double>(detF);
  const double eps = 2.220446049250313e-16;
  if (side == 0 && std::fabs(det) < eps) return false;
  if (side == 1 && det < eps) return false;
  if (side == 2 && det > -eps) return false;
  const double inv = 1.0 / det;
  const float sf[3] = {(r.origin.x - static_cast<float>(o.x)) - a.x,
                       (r.origin.y - static_cast<float>(o.y)) - a.y,
                       (r.origin.z - static_cast<float>(o.z)) - a.z};
  const double s[3] = {static_cast<double>(sf[0]), static_cast<double>(sf[1]),
                       static_cast<double>(sf[2])};
  const auto d = [](float v) { return static_cast<double>(v); };
  const float u = static_cast<float>((d(p[0]) * s[0] + d(p[1]) * s[1] + d(p[2]) * s[2]) * inv);
  if (u < -1.1920929e-7f || u > 1.0000001f) return false;
  const float q[3] = {static_cast<float>(s[1] * d(e1[2]) - s[2] * d(e1[1])),
                      static_cast<float>(s[2] * d(e1[0]) - s[0] * d(e1[2])),
                      static_cast<float>(s[0] * d(e1[1]) - s[1] * d(e1[0]))};
  const float e2q = e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2];
  const double t = d(e2q) * inv;
  if (d(r.minDistance) > t || t > d(r.maxDistance)) return false;
  const auto qDot = [&](const Vec3f& dir) { return q[0] * dir.x + q[1] * dir.y + q[2] * dir.z; };
  const float v = static_cast<float>(d(qDot(r.direction)) * inv);
  if (v < -1.1920929e-7f || u + v > 1.0000002f) return false;
  out[0] = u;
  out[1] = v;
  out[2] = static_cast<float>(t);
  int at = 3;
  for (const Vec3f& dir : {r.xDirection, r.yDirection}) {
    float pd[3];
    pOf(dir, pd);
    const float detd = e1[0] * pd[0] + e1[1] * pd[1] + e1[2] * pd[2];
    const double invd = 1.0 / d(detd);
    out[at++] = static_cast<float>((d(pd[0]) * s[0] + d(pd[1]) * s[1] + d(pd[2]) * s[2]) * invd);
    out[at++] = static_cast<float>(d(qDot(dir)) * invd);
  }
  return true;
}

bool sameFloat(float a, float b) {
  return bitsOf(a) == bitsOf(b) || (std::isnan(a) && std::isnan(b));
}

TEST(IntersectTriangle, AllFormsFollowTheStepsBitForBit) {
  const unsigned seed = 31;
  SCOPED_TRACE(seed);
  const SampleMesh mesh = makeSoup(200, seed);
  RayMaker maker(mesh, seed);
  std::mt19937 random(seed);
  int hits = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::size_t k = 3 * (random() % 200);
    const Vec3f &a = mesh.points[k], &b = mesh.points[k + 1], &c = mesh.points[k + 2];
    const Ray3f from = i % 2 ? maker.hostile() : maker.ordinary();
    RayContext ray = contextRay(from.origin, from.direction, from.minDistance, from.maxDistance);
    if (i % 3 == 0) {
      // At the triangle, at its edges and corners.
      const float u = static_cast<float>(random() % 5) / 4.0f,
                  v = static_cast<float>(random() % 5) / 4.0f * (1.0f - u);
      ray.direction = a + (b - a) * u + (c - a) * v - ray.origin;
    }
    ray.xDirection = maker.ordinary().direction;
    ray.yDirection = maker.ordinary().direction;
    const Vec3d o = i % 4 ? Vec3d() : Vec3d(0.1, -0.2, 0.3);
    for (int side = 0; side < 3; ++side) {
      float expected[7] = {};
      const bool hit = plainContextTest(side, o, a, b, c, ray, expected);
      hits += hit ? 1 : 0;
      Vec2f uv, uvShort, uvDx, uvDy;
      float t = 0, tShort = 0;
      if (side == 0) {
        ASSERT_EQ(intersectTriangle(o, a, b, c, ray, uv, uvDx, uvDy, t), hit) << show(from);
        ASSERT_EQ(intersectTriangle(o, a, b, c, ray, uvShort, tShort), hit) << show(from);
      } else {
        ASSERT_EQ(intersectTriangleSided(side == 1, o, a, b, c, ray, uv, uvDx, uvDy, t), hit)
            << show(from);
        ASSERT_EQ(intersectTriangleSided(side == 1, o, a, b, c, ray, uvShort, tShort), hit)
            << show(from);
      }
      if (!hit) continue;
      const float got[7] = {uv.x, uv.y, t, uvDx.x, uvDx.y, uvDy.x, uvDy.y};
      for (int f = 0; f < 7; ++f)
        ASSERT_TRUE(sameFloat(got[f], expected[f])) << f << " " << show(from);
      ASSERT_TRUE(sameFloat(uvShort.x, expected[0]) && sameFloat(uvShort.y, expected[1]) &&
                  sameFloat(tShort, expected[2]));
    }
  }
  EXPECT_GT(hits, 20000);
}

// ---- Ray/box

TEST(IntersectBox, GivesThePartOfTheRangeInside) {
  float tNear = 0, tFar = 0;
  const Box3f box({0, 0, 0}, {1, 1, 1});
  EXPECT_TRUE(Intersect(Ray3f({-1, 0.5f, 0.5f}, {2, 0, 0}), box, tNear, tFar));
  EXPECT_EQ(tNear, 0.5f);
  EXPECT_EQ(tFar, 1.0f);
  EXPECT_TRUE(Intersect(Ray3f({0.5f, 0.5f, 0.5f}, {-1, 0, 0}), box, tNear, tFar));
  EXPECT_EQ(tNear, 0.0f);
  EXPECT_EQ(tFar, 0.5f);
  EXPECT_TRUE(Intersect(Ray3f({-1, 0.5f, 0.5f}, {1, 0, 0}, 1.25f, 1.5f), box, tNear, tFar));
  EXPECT_EQ(tNear, 1.25f);
  EXPECT_EQ(tFar, 1.5f);
}

TEST(IntersectBox, MissWritesNothing) {
  float tNear = 5, tFar = 6;
  EXPECT_FALSE(
      Intersect(Ray3f({-1, 2, 0.5f}, {1, 0, 0}), Box3f({0, 0, 0}, {1, 1, 1}), tNear, tFar));
  EXPECT_FALSE(Intersect(Ray3f({-1, 0.5f, 0.5f}, {1, 0, 0}, 0, 0.5f), Box3f({0, 0, 0}, {1, 1, 1}),
                         tNear, tFar));
  EXPECT_EQ(tNear, 5.0f);
  EXPECT_EQ(tFar, 6.0f);
}

TEST(IntersectBox, RayInAFaceAndParallelToItPasses) {
  float tNear = 0, tFar = 0;
  const Box3f box({0, 0, 0}, {1, 1, 1});
  for (const float y : {0.0f, 1.0f}) {
    EXPECT_TRUE(Intersect(Ray3f({-1, y, y}, {1, 0, -0.0f}), box, tNear, tFar));
    EXPECT_EQ(tNear, 1.0f);
    EXPECT_EQ(tFar, 2.0f);
  }
}

TEST(IntersectBox, UnderAMillionthIsParallel) {
  float tNear = 0, tFar = 0;
  const Box3f box({0, 0, 0}, {1e9f, 1, 1});
  const float below = std::nextafter(1e-6f, 0.0f);
  EXPECT_FALSE(Intersect(Ray3f({0, -0.5f, 0.5f}, {1, below, 0}), box, tNear, tFar));
  EXPECT_TRUE(Intersect(Ray3f({0, -0.5f, 0.5f}, {1, 1e-6f, 0}), box, tNear, tFar));
}

TEST(IntersectBox, EmptyBoxIsMissedByEveryRay) {
  float tNear = 0, tFar = 0;
  for (const Box3f& box : {Box3f(), Box3f({1, 0, 0}, {0, 1, 1}), Box3f({0, 0, 1}, {1, 1, 0})})
    for (const Vec3f& d : {Vec3f(1, 0, 0), Vec3f(-1, 0.5f, 2), Vec3f(0, 0, 0), Vec3f(kNan, 1, 1)})
      EXPECT_FALSE(Intersect(Ray3f({0.5f, 0.5f, 0.5f}, d, -kInf, kInf), box, tNear, tFar));
}

TEST(IntersectBox, FollowsTheStepsBitForBit) {
  const unsigned seed = 9;
  SCOPED_TRACE(seed);
  const SampleMesh mesh = makeSoup(100, seed);
  RayMaker maker(mesh, seed);
  for (int i = 0; i < 300000; ++i) {
    const Ray3f ray = i % 2 ? maker.hostile() : maker.ordinary();
    Box3f box;
    box.extendBy(mesh.points[static_cast<std::size_t>(i) % 300]);
    box.extendBy(mesh.points[static_cast<std::size_t>(i * 7 + 1) % 300]);
    float expected[2] = {1, 2}, got[2] = {1, 2};
    ASSERT_EQ(Intersect(ray, box, got[0], got[1]), plainBox(ray, box, expected[0], expected[1]))
        << show(ray);
    ASSERT_TRUE(sameFloat(got[0], expected[0]) && sameFloat(got[1], expected[1])) << show(ray);
  }
}

// ---- Ray/triangle

TEST(IntersectRayTriangle, WritesDistancePositionAndRawNormal) {
  CollisionResult result = marked();
  EXPECT_TRUE(
      Intersect(Ray3f({0.5f, 0.5f, 3}, {0, 0, -2}), {0, 0, 0}, {2, 0, 0}, {0, 2, 0}, result));
  EXPECT_EQ(result.distance, 1.5f);
  EXPECT_EQ(result.position, Vec3f(0.5f, 0.5f, 0));
  EXPECT_EQ(result.normal, Vec3f(0, 0, 4));
  EXPECT_TRUE(result.hit);
  EXPECT_EQ(result.primitiveIndex, 4711u);
  EXPECT_EQ(result.faceIndex, -12);
}

TEST(IntersectRayTriangle, MissLeavesResultUntouched) {
  CollisionResult result = marked();
  EXPECT_FALSE(Intersect(Ray3f({2, 2, 1}, {0, 0, -1}), kA, kB, kC, result));
  EXPECT_TRUE(sameRecord(result, marked()));
}

TEST(IntersectRayTriangle, EdgesAndCornersAreHitFromBothSides) {
  for (const Vec3f& at : {Vec3f(0, 0, 0), Vec3f(1, 0, 0), Vec3f(0, 1, 0), Vec3f(0.5f, 0, 0),
                          Vec3f(0, 0.25f, 0), Vec3f(0.5f, 0.5f, 0)}) {
    CollisionResult result;
    EXPECT_TRUE(Intersect(Ray3f(at + Vec3f(0, 0, 1), {0, 0, -1}), kA, kB, kC, result));
    EXPECT_TRUE(Intersect(Ray3f(at - Vec3f(0, 0, 1), {0, 0, 1}), kA, kB, kC, result));
  }
}

TEST(IntersectRayTriangle, RangeReachesAHundredThousandthPastBothEnds) {
  CollisionResult result;
  const auto hits = [&](float tMin, float tMax) {
    return Intersect(Ray3f({0.25f, 0.25f, 1}, {0, 0, -1}, tMin, tMax), kA, kB, kC, result);
  };
  EXPECT_TRUE(hits(1.00001f, 5.0f));
  EXPECT_FALSE(hits(1.00002f, 5.0f));
  EXPECT_TRUE(hits(0.0f, 0.99999f));
  EXPECT_FALSE(hits(0.0f, 0.99998f));
}

TEST(IntersectRayTriangle, SmallDeterminantIsAMiss) {
  CollisionResult result;
  const float size = 0.99e-5f;
  EXPECT_FALSE(
      Intersect(Ray3f({0, 0, 1}, {0, 0, -1}), {0, 0, 0}, {size, 0, 0}, {0, size, 0}, result));
  EXPECT_TRUE(
      Intersect(Ray3f({0, 0, 1}, {0, 0, -1}), {0, 0, 0}, {1.1e-5f, 0, 0}, {0, 1.1e-5f, 0}, result));
}

TEST(IntersectRayTriangle, ANumberThatIsNoneIsAMiss) {
  CollisionResult result;
  EXPECT_FALSE(Intersect(Ray3f({kNan, 0.25f, 1}, {0, 0, -1}), kA, kB, kC, result));
  EXPECT_FALSE(Intersect(Ray3f({0.25f, 0.25f, 1}, {0, 0, kNan}), kA, kB, kC, result));
  EXPECT_FALSE(Intersect(Ray3f({0.25f, 0.25f, 1}, {0, 0, -1}), {kNan, 0, 0}, kB, kC, result));
  EXPECT_FALSE(Intersect(Ray3f({0.25f, 0.25f, 1}, {0, 0, -1}, kNan, 5), kA, kB, kC, result));
}

TEST(IntersectRayTriangle, FollowsTheStepsBitForBit) {
  const unsigned seed = 12;
  SCOPED_TRACE(seed);
  const SampleMesh mesh = makeSoup(200, seed);
  RayMaker maker(mesh, seed);
  int hits = 0;
  for (int i = 0; i < 400000; ++i) {
    Ray3f ray = i % 2 ? maker.hostile() : maker.ordinary();
    const std::size_t k = 3 * (static_cast<std::size_t>(i) % 200);
    if (i % 3 == 0) ray.direction = (mesh.points[k] + mesh.points[k + 1]) * 0.5f - ray.origin;
    CollisionResult expected = marked(), got = marked();
    const bool hit =
        plainTriangle(ray, mesh.points[k], mesh.points[k + 1], mesh.points[k + 2], expected);
    hits += hit ? 1 : 0;
    ASSERT_EQ(Intersect(ray, mesh.points[k], mesh.points[k + 1], mesh.points[k + 2], got), hit)
        << show(ray);
    ASSERT_TRUE(sameRecord(got, expected)) << show(ray);
  }
  EXPECT_GT(hits, 10000);
}

TEST(IntersectRayTriangle, ARayWithANanOrWithoutADirectionAtAllMissesEveryTriangle) {
  const unsigned seed = 31;
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  constexpr float kInf = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const float values[] = {0.0f,   -0.0f, 1.0f,   -1.0f, 0.25f, -3.0f,
                          1e-40f, 1e38f, -1e38f, kInf,  -kInf};
  // Corners may be infinite, but have no NaN: such faces are never tested.
  const auto number = [&] { return values[random() % std::size(values)]; };
  const auto vector = [&] { return Vec3f(number(), number(), number()); };
  int all = 0, endless = 0;
  for (int i = 0; i < 1000000; ++i) {
    Ray3f ray(vector(), vector(), number(), number());
    float* const numbers[] = {&ray.origin.x,    &ray.origin.y,    &ray.origin.z,
                              &ray.direction.x, &ray.direction.y, &ray.direction.z,
                              &ray.minDistance, &ray.maxDistance};
    const bool isNan = random() % 2 == 0;
    if (isNan) *numbers[random() % std::size(numbers)] = kNan;
    if (random() % 16 == 0)
      for (std::size_t k = 0; k < 3; ++k) ray.direction[k] = random() % 2 == 0 ? kInf : -kInf;
    bool hasNan = false;
    for (const float* const value : numbers) hasNan |= std::isnan(*value);
    const bool isEndless =
        std::isinf(ray.direction.x) && std::isinf(ray.direction.y) && std::isinf(ray.direction.z);
    ASSERT_EQ(detail::missesAllTriangles(ray), hasNan || isEndless) << show(ray);
    if (!hasNan && !isEndless) continue;
    ++all;
    endless += hasNan ? 0 : 1;
    CollisionResult result = marked();
    ASSERT_FALSE(Intersect(ray, vector(), vector(), vector(), result)) << show(ray);
    ASSERT_TRUE(sameRecord(result, marked()));
  }
  EXPECT_GT(all, 400000);
  EXPECT_GT(endless, 20000);
}

// ---- Ray/mesh

bool intersectMesh(const SampleMesh& mesh, const Ray3f& ray, CollisionResult& result,
                   bool nearest = true) {
  IntersectionContext ctx;
  ctx.nearestHit = nearest;
  return Intersect(ctx, ray, mesh.points, mesh.counts, mesh.indices, result);
}

TEST(IntersectMesh, NearestFaceComesBackWithItsNumber) {
  CollisionResult result = marked();
  EXPECT_TRUE(intersectMesh(makeCube(), Ray3f({0.25f, 0.5f, 5}, {0, 0, -1}), result));
  EXPECT_EQ(result.distance, 4.0f);
  EXPECT_EQ(result.faceIndex, 1);
  EXPECT_EQ(result.primitiveIndex, 0u);
  EXPECT_EQ(result.position, Vec3f(0.25f, 0.5f, 1));
  EXPECT_TRUE(result.hit);
}

TEST(IntersectMesh, AnyHitIsTheFirstFaceInOrder) {
  CollisionResult result;
  EXPECT_TRUE(intersectMesh(makeCube(), Ray3f({0.25f, 0.5f, 5}, {0, 0, -1}), result, false));
  EXPECT_EQ(result.faceIndex, 0);
  EXPECT_EQ(result.distance, 6.0f);
}

TEST(IntersectMesh, MissLeavesResultUntouched) {
  CollisionResult result = marked();
  EXPECT_FALSE(intersectMesh(makeCube(), Ray3f({5, 5, 5}, {0, 0, -1}), result));
  EXPECT_TRUE(sameRecord(result, marked()));
}

TEST(IntersectMesh, TwoCornersStillCountAsAFace) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  mesh.addFace({0, 1});
  mesh.addFace({0, 1, 2});
  CollisionResult result;
  EXPECT_TRUE(intersectMesh(mesh, Ray3f({0.25f, 0.25f, 1}, {0, 0, -1}), result));
  EXPECT_EQ(result.faceIndex, 1);
}

TEST(IntersectMesh, RangeIsOpenAtBothEnds) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  mesh.addFace({0, 1, 2});
  CollisionResult result;
  const Vec3f o(0.25f, 0.25f, 1), d(0, 0, -1);
  EXPECT_FALSE(intersectMesh(mesh, Ray3f(o, d, 1.0f, 5.0f), result));
  EXPECT_FALSE(intersectMesh(mesh, Ray3f(o, d, 0.0f, 1.0f), result));
  EXPECT_FALSE(intersectMesh(mesh, Ray3f(o, d, 1.000005f, 5.0f), result));
  EXPECT_TRUE(intersectMesh(mesh, Ray3f(o, d, 0.99999f, 1.00001f), result));
}

// The second triangle of a folded quad is nearer, but the first one answers.
TEST(IntersectMesh, SecondHalfOfAQuadIsAskedOnlyWhenTheFirstIsMissed) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {3, 1, 2}};
  mesh.addFace({0, 1, 2, 3});
  CollisionResult result;
  EXPECT_TRUE(intersectMesh(mesh, Ray3f({2.5f, 1.5f, 9}, {0, 0, -1}), result));
  EXPECT_EQ(result.distance, 9.0f);
  EXPECT_TRUE(intersectMesh(mesh, Ray3f({1.0f, 0.9f, 9}, {0, 0, -1}), result));
  EXPECT_EQ(result.distance, 9.0f);
}

TEST(IntersectMesh, HalvesOfAQuadMeetInTheDiagonalFromItsFirstCorner) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 1}};  // only corner 3 is raised
  mesh.addFace({0, 1, 2, 3});
  CollisionResult result;
  EXPECT_TRUE(intersectMesh(mesh, Ray3f({0.75f, 0.25f, 5}, {0, 0, -1}), result));
  EXPECT_EQ(result.distance, 5.0f);
  EXPECT_TRUE(intersectMesh(mesh, Ray3f({0.25f, 0.75f, 5}, {0, 0, -1}), result));
  EXPECT_EQ(result.distance, 4.5f);
}

// KEEP(polygon-last-hit): a polygon folded over itself answers with the triangle that is tested
// last.
TEST(IntersectMesh, OfAPolygonTheLastTriangleHitCounts) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {1, 2, 3}, {0.5f, 1, 3}};
  mesh.addFace({0, 1, 2, 3, 4, 5});
  std::vector<int> triplets;
  Triangulate(mesh.points.cdata(), mesh.indices.cdata(), 6, triplets);
  RayMaker maker(mesh, 4);
  int different = 0;
  for (int i = 0; i < 20000; ++i) {
    const Ray3f ray = maker.ordinary();
    CollisionResult last, nearest, got;
    bool any = false;
    for (std::size_t k = 0; k < triplets.size(); k += 3) {
      const auto at = [&](std::size_t j) {
        return mesh.points[static_cast<std::size_t>(triplets[k + j])];
      };
      if (plainTriangle(ray, at(0), at(1), at(2), last)) {
        any = true;
        if (last.distance < nearest.distance) nearest = last;
      }
    }
    const bool hit = any && last.distance > ray.minDistance && last.distance < ray.maxDistance;
    ASSERT_EQ(intersectMesh(mesh, ray, got), hit) << show(ray);
    if (hit) {
      ASSERT_EQ(bitsOf(got.distance), bitsOf(last.distance)) << show(ray);
      different += last.distance != nearest.distance ? 1 : 0;
    }
  }
  EXPECT_GT(different, 0);
}

// KEEP(untouched-record-no-hit)
TEST(IntersectMesh, EndlessRayPastTheMeshIsAMiss) {
  CollisionResult result = marked();
  EXPECT_FALSE(intersectMesh(makeCube(), Ray3f({5, 5, 5}, {0, 0, -1}, 0.0f, kInf), result));
  EXPECT_TRUE(sameRecord(result, marked()));
  EXPECT_TRUE(intersectMesh(makeCube(), Ray3f({0, 0, 5}, {0.01f, 0.02f, -1}, 0.0f, kInf), result));
}

TEST(IntersectMesh, BrokenFacesAreSkippedAndLaterOnesKeepTheirNumbers) {
  const SampleMesh mesh = makeBroken();
  CollisionResult result;
  EXPECT_TRUE(intersectMesh(mesh, Ray3f({0.25f, 0.25f, 1}, {0, 0, -1}), result));
  EXPECT_EQ(result.faceIndex, 6);
  EXPECT_TRUE(intersectMesh(mesh, Ray3f({0.75f, 0.875f, 1}, {0, 0, -1}), result));
  EXPECT_EQ(result.faceIndex, 10);
}

TEST(IntersectMesh, QuadWithACornerThatIsNoNumberIsSkippedWhole) {
  for (const int bad : {1, 3}) {
    SampleMesh mesh;
    mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    mesh.points[static_cast<std::size_t>(bad)].z = kNan;
    mesh.addFace({0, 1, 2, 3});
    CollisionResult result = marked();
    EXPECT_FALSE(intersectMesh(mesh, Ray3f({0.75f, 0.25f, 1}, {0, 0, -1}), result));
    EXPECT_FALSE(intersectMesh(mesh, Ray3f({0.25f, 0.75f, 1}, {0, 0, -1}), result));
    EXPECT_TRUE(sameRecord(result, marked()));
    EXPECT_EQ(TriangleAccelerationModel(mesh.points, mesh.counts, mesh.indices).size(), 0u);
  }
}

TEST(IntersectMesh, FollowsTheStepsBitForBitOverTheSampleMeshes) {
  const unsigned seed = 21;
  SCOPED_TRACE(seed);
  for (const SampleMesh& mesh : sampleMeshes()) {
    if (mesh.counts.size() > 500) continue;  // the loop over faces would take minutes
    RayMaker maker(mesh, seed);
    for (int i = 0; i < 3000; ++i) {
      const Ray3f ray = i % 2 ? maker.hostile() : maker.ordinary();
      for (const bool nearest : {true, false}) {
        // Face by face, as told. A count below zero takes no indices; a face that cannot be used,
        // or that has a corner with a NaN, is passed over.
        CollisionResult expected = marked();
        float best = ray.maxDistance;
        std::size_t offset = 0;
        for (std::size_t f = 0; f < mesh.counts.size(); ++f) {
          const int n = std::max(mesh.counts[f], 0);
          CollisionResult scratch;
          const auto test = [&](int a, int b, int c) {
            const auto at = [&](int k) {
              return mesh.points[static_cast<std::size_t>(
                  mesh.indices[offset + static_cast<std::size_t>(k)])];
            };
            return plainTriangle(ray, at(a), at(b), at(c), scratch);
          };
          bool isSound = mesh.usable(f);
          for (int k = 0; isSound && k < n; ++k) {
            const Vec3f& p = mesh.points[static_cast<std::size_t>(
                mesh.indices[offset + static_cast<std::size_t>(k)])];
            isSound = !std::isnan(p.x) && !std::isnan(p.y) && !std::isnan(p.z);
          }
          if (isSound && n == 3) test(0, 1, 2);
          if (isSound && n == 4 && !test(0, 1, 2)) test(2, 3, 0);
          if (isSound && n > 4) {
            std::vector<int> triplets;
            Triangulate(mesh.points.cdata(), mesh.indices.cdata() + offset, n, triplets);
            for (std::size_t k = 0; k < triplets.size(); k += 3)
              test(triplets[k], triplets[k + 1], triplets[k + 2]);
          }
          offset += static_cast<std::size_t>(n);
          if (!scratch.hit || !(best > scratch.distance && scratch.distance > ray.minDistance))
            continue;
          expected = scratch;
          expected.faceIndex = static_cast<int>(f);
          best = scratch.distance;
          if (!nearest) break;
        }
        CollisionResult got = marked();
        ASSERT_EQ(intersectMesh(mesh, ray, got, nearest), ray.maxDistance > best)
            << mesh.name << " " << show(ray);
        ASSERT_TRUE(sameRecord(got, expected))
            << mesh.name << " " << show(ray) << show(got) << show(expected);
      }
    }
  }
}

}  // namespace
