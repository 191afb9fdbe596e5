// Rays against the meshes of a list: held against plain loops in double.
#include "vela/scene/RayCaster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "ovo/Stage.h"
#include "support/TextStage.h"

namespace {

using namespace vela::scene;
using tarn::Vec3d;
using tarn::Vec3f;
using vela_test::at;
using vela_test::squareText;
using vela_test::stageOf;
using Real3 = Vec3d;

const double kNow = tarn::defaultTimeValue();

// Squares one behind another along -z, at z = 0, -1, -2 ...
std::string stackText(int count, double x = 0.0) {
  std::string text;
  for (int i = 0; i < count; ++i) text += squareText("S" + std::to_string(i), at(x, 0, -i));
  return text;
}

struct Cast {
  explicit Cast(const std::string& text, CasterKind kind = CasterKind::tracer)
      : stage(stageOf(text)),
        list(listMeshes(*stage, MeshFilter()).value()),
        caster(kind, list, extentOf(list), kNow) {}
  std::shared_ptr<ovo::Stage> stage;
  MeshList list;
  RayCaster caster;
};

WorldRay rayOf(const Real3& from, const Vec3f& direction) {
  WorldRay ray;
  ray.base = from;
  ray.direction = direction;
  return ray;
}

TEST(RayCaster, TheNearestSurfaceInTheWorld) {
  for (const CasterKind kind : {CasterKind::tracer, CasterKind::hitDetector}) {
    const Cast cast(stackText(3, 4.0), kind);
    SurfaceHit hits[2];
    const WorldRay rays[2] = {rayOf({4.25, 0.5, 10}, {0, 0, -2}), rayOf({0, 0, 10}, {0, 0, -2})};
    cast.caster.intersect(rays, 2, hits);
    ASSERT_TRUE(hits[0].hit);
    EXPECT_EQ(hits[0].entry, 0u);
    EXPECT_EQ(hits[0].face, 0);
    EXPECT_NEAR(hits[0].distance, 5.0, 1e-5) << "in units of the direction";
    EXPECT_LT((hits[0].position() - Real3(4.25, 0.5, 0)).length(), 1e-5);
    EXPECT_EQ(hits[0].normal, Vec3f(0, 0, 1));
    EXPECT_FALSE(hits[1].hit);
    bool answers[2] = {};
    cast.caster.occluded(rays, 2, answers);
    EXPECT_TRUE(answers[0]);
    EXPECT_FALSE(answers[1]);
    EXPECT_TRUE(cast.caster.problems().empty());
  }
}

TEST(RayCaster, BaseAndOffsetOfARayAreOnePoint) {
  const Cast cast(stackText(1, 4.0));
  std::vector<double> distances;
  for (const auto& [base, offset] : {std::pair<Real3, Real3>({4.5, 0.25, 8}, {0, 0, 0}),
                                     {{0, 0, 0}, {4.5, 0.25, 8}},
                                     {{1024, -512, 64}, {-1019.5, 512.25, -56}}}) {
    WorldRay ray = rayOf(base, {0, 0, -1});
    ray.offset = offset;
    SurfaceHit hit;
    cast.caster.intersect(&ray, 1, &hit);
    ASSERT_TRUE(hit.hit);
    EXPECT_NEAR(hit.distance, 8.0, 1e-6);
    EXPECT_LT((hit.position() - Real3(4.5, 0.25, 0)).length(), 1e-6);
    distances.push_back(hit.distance);
  }
  EXPECT_EQ(distances, std::vector<double>(3, distances[0])) << "these sums are exact";
}

TEST(RayCaster, FarFromZeroNothingIsLost) {
  // Squares of two units a hundred million units away, where neighbouring floats are 8 apart.
  constexpr double kAway = 1.0e8;
  const Cast cast(squareText("Near", at(kAway, -kAway, kAway)) +
                  squareText("Behind", at(kAway, -kAway, kAway - 0.25)));
  const unsigned seed = 31;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(-0.99, 0.99);
  for (int i = 0; i < 200; ++i) {
    const Real3 offset(unit(random), unit(random), 3.0);
    WorldRay ray = rayOf({kAway, -kAway, kAway}, {0, 0, -1});
    ray.offset = offset;
    SurfaceHit hit;
    cast.caster.intersect(&ray, 1, &hit);
    ASSERT_TRUE(hit.hit);
    EXPECT_EQ(cast.list.entries[hit.entry].prim.getName(), ovo::Token("Near"));
    EXPECT_NEAR(hit.distance, 3.0, 1e-6);
    const Vec3f onSquare = cast.caster.objectSpace(hit.entry).point(hit);
    EXPECT_NEAR(onSquare.x, offset.x, 1e-6);
    EXPECT_NEAR(onSquare.y, offset.y, 1e-6);
  }
}

TEST(RayCaster, HitsHaveTheCornersAndBarycentricsOfTheirTriangle) {
  const std::string turned =
      " double3 xformOp:translate = (3, -2, 1)\n float3 xformOp:rotateXYZ = (20, -30, 40)\n"
      " float3 xformOp:scale = (2, 1, 0.5)\n uniform token[] xformOpOrder = "
      "[\"xformOp:translate\", \"xformOp:rotateXYZ\", \"xformOp:scale\"]\n";
  const Cast cast(squareText("Square", turned));
  const Shape& shape = cast.list.shapeOf(0);
  const unsigned seed = 32;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(-0.9, 0.9);
  for (int i = 0; i < 200; ++i) {
    const Real3 onSquare(unit(random), unit(random), 0);
    const Real3 world = cast.list.entries[0].worldFromObject.transformPoint(onSquare);
    const Real3 from = world + Real3(unit(random), unit(random), 4);
    const WorldRay ray = rayOf(from, Vec3f(world - from));
    SurfaceHit hit;
    cast.caster.intersect(&ray, 1, &hit);
    ASSERT_TRUE(hit.hit && hit.hasCorners);
    Real3 mixed;
    const double u = hit.u, v = hit.v;
    const double weights[3] = {1.0 - u - v, u, v};
    for (std::size_t k = 0; k < 3; ++k) {
      mixed += Real3(shape.points.view()[hit.points[k]]) * weights[k];
      EXPECT_EQ(shape.indices.view()[hit.faceVertices[k]], hit.points[k]);
    }
    EXPECT_LT((mixed - onSquare).length(), 1e-5);
    EXPECT_LT((Real3(cast.caster.objectSpace(0).point(hit)) - onSquare).length(), 1e-5);
    // The normal of the square in the world is square to what lies in it.
    const Vec3f normal = cast.caster.objectSpace(0).worldNormal({0, 0, 1});
    EXPECT_LT((normal - hit.normal).length(), 1e-6f);
  }
}

TEST(RayCaster, AllThatARayMeetsIsMetOnceEach) {
  // Eight squares, two of them exactly upon one another, and one aside.
  const std::string text = stackText(7) + squareText("Upon", at(0, 0, -3)) +
                           squareText("Aside", at(5, 0, 0)) +
                           squareText("Scaled",
                                      " float3 xformOp:scale = (0, 1, 1)\n uniform token[] "
                                      "xformOpOrder = [\"xformOp:scale\"]\n");
  for (const CasterKind kind : {CasterKind::tracer, CasterKind::hitDetector}) {
    const Cast cast(text, kind);
    const WorldRay rays[3] = {rayOf({0.3, 0.2, 10}, {0, 0, -1}), rayOf({5.5, 0, 10}, {0, 0, -1}),
                              rayOf({50, 0, 10}, {0, 0, -1})};
    std::map<std::pair<std::size_t, std::string>, std::vector<double>> met;
    EXPECT_TRUE(cast.caster.intersectAll(rays, 3, [&](std::size_t ray, const SurfaceHit& hit) {
      met[{ray, nameOf(cast.list, hit.entry)}].push_back(hit.distance);
    }));
    ASSERT_EQ(met.size(), 9u);
    for (int i = 0; i < 7; ++i) {
      const std::vector<double>& distances = met[{0, "/S" + std::to_string(i)}];
      ASSERT_EQ(distances.size(), 1u) << i;
      EXPECT_NEAR(distances[0], 10.0 + i, 1e-4);
    }
    EXPECT_EQ((met[{0, "/Upon"}].size()), 1u);
    EXPECT_EQ((met[{1, "/Aside"}].size()), 1u);
  }
}

TEST(RayCaster, AllThatARayMeetsInManyMeshesIsWhatEachOfThemSays) {
  // Random squares; the tree of boxes must not leave one out. Each is asked about alone as well.
  const unsigned seed = 33;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  std::string text;
  for (int i = 0; i < 60; ++i)
    text +=
        squareText("S" + std::to_string(i),
                   " double3 xformOp:translate = (" + std::to_string(4 * unit(random)) + ", " +
                       std::to_string(4 * unit(random)) + ", " + std::to_string(4 * unit(random)) +
                       ")\n float3 xformOp:rotateXYZ = (" + std::to_string(180 * unit(random)) +
                       ", " + std::to_string(180 * unit(random)) +
                       ", 0)\n uniform token[] xformOpOrder = [\"xformOp:translate\", "
                       "\"xformOp:rotateXYZ\"]\n");
  const Cast cast(text);
  const Extent extent = extentOf(cast.list);
  std::vector<WorldRay> rays;
  for (int i = 0; i < 300; ++i)
    rays.push_back(rayOf(Real3(unit(random), unit(random), unit(random)) * 8.0,
                         Vec3f(Real3(unit(random), unit(random), unit(random)))));
  std::vector<std::vector<int>> met(rays.size(), std::vector<int>(cast.list.entries.size(), 0));
  cast.caster.intersectAll(rays.data(), rays.size(),
                           [&](std::size_t ray, const SurfaceHit& hit) { ++met[ray][hit.entry]; });
  int total = 0;
  for (std::size_t e = 0; e < cast.list.entries.size(); ++e) {
    MeshList alone;
    alone.shapes = {cast.list.shapeOf(e)};
    alone.entries = {cast.list.entries[e]};
    alone.entries[0].shape = 0;
    const RayCaster caster(CasterKind::tracer, alone, extent, kNow);
    for (std::size_t i = 0; i < rays.size(); ++i) {
      bool answer = false;
      caster.occluded(&rays[i], 1, &answer);
      EXPECT_EQ(met[i][e], answer ? 1 : 0) << i << " " << e;
      total += answer;
    }
  }
  EXPECT_GT(total, 50);
}

TEST(RayCaster, TheHitDetectorTakesPlainMeshesAlone) {
  const std::string text = stackText(2) + "def Sphere \"Ball\"\n{\n}\n" +
                           "def PointInstancer \"Many\"\n{\n rel prototypes = </Many/P>\n int[] "
                           "protoIndices = [0, 0]\n point3f[] positions = [(9,0,0), (19,0,0)]\n" +
                           squareText("P") + "}\n";
  const Cast cast(text, CasterKind::hitDetector);
  ASSERT_EQ(cast.caster.problems().size(), 1u);
  EXPECT_EQ(cast.caster.problems()[0].kind, Problem::Kind::notCast);
  EXPECT_EQ(cast.caster.problems()[0].count, 3u);
  const WorldRay ray = rayOf({9, 0, 5}, {0, 0, -1});
  SurfaceHit hit;
  cast.caster.intersect(&ray, 1, &hit);
  EXPECT_FALSE(hit.hit);
  EXPECT_FALSE(hit.hasCorners);
  int met = 0;
  cast.caster.intersectAll(&ray, 1, [&](std::size_t, const SurfaceHit&) { ++met; });
  EXPECT_EQ(met, 0);
}

TEST(RayCaster, AStopEndsTheBuildBeforeTheNextMeshAndSaysSo) {
  const Cast cast(stackText(3));
  int asked = 0;
  Work work;
  work.stop = [&] { return ++asked == 3; };
  Problem problem;
  EXPECT_FALSE(
      RayCaster::make(CasterKind::tracer, cast.list, extentOf(cast.list), 0.0, &problem, work));
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(problem.kind, Problem::Kind::stopped);
  work.stop = [] { return true; };
  problem = {};
  EXPECT_FALSE(RayCaster::make(CasterKind::hitDetector, cast.list, extentOf(cast.list), 0.0,
                               &problem, work));
  EXPECT_EQ(problem.kind, Problem::Kind::stopped);
}

TEST(RayCaster, ACasterMadeWithProgressAnswersAsOneWithout) {
  const Cast cast(stackText(3));
  std::vector<double> shares;
  Work work;
  work.progress = [&](double share) { shares.push_back(share); };
  const std::optional<RayCaster> made =
      RayCaster::make(CasterKind::tracer, cast.list, extentOf(cast.list), 0.0, nullptr, work);
  ASSERT_TRUE(made);
  ASSERT_GE(shares.size(), 2u);
  EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
  EXPECT_EQ(shares.front(), 0.0);
  EXPECT_EQ(shares.back(), 1.0);
  const WorldRay ray = rayOf({0, 0, 5}, {0, 0, -1});
  SurfaceHit hit, plain;
  made->intersect(&ray, 1, &hit);
  cast.caster.intersect(&ray, 1, &plain);
  EXPECT_TRUE(plain.hit);
  EXPECT_EQ(hit.distance, plain.distance);
  EXPECT_EQ(hit.entry, plain.entry);
}

TEST(RayCaster, AStopEndsTheWorkAndProgressReachesItsEnd) {
  const Cast cast(stackText(2));
  const std::vector<WorldRay> rays(10, rayOf({0, 0, 5}, {0, 0, -1}));
  int met = 0;
  std::vector<double> shares;
  Work work;
  work.progress = [&](double share) { shares.push_back(share); };
  const auto count = [&](std::size_t, const SurfaceHit&) { ++met; };
  EXPECT_TRUE(cast.caster.intersectAll(rays.data(), rays.size(), count, work));
  EXPECT_EQ(met, 20);
  EXPECT_EQ(shares.back(), 1.0);
  EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));

  work.stop = [&] { return met >= 26; };
  EXPECT_FALSE(cast.caster.intersectAll(rays.data(), rays.size(), count, work));
  EXPECT_EQ(met, 26);
}

}  // namespace
