#include "vela/intersect/Acceleration.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/intersect/TestOracles.h"

using namespace vela;
using namespace vela_test;

namespace {

static_assert(std::is_copy_constructible_v<NoAcceleration> &&
              std::is_move_constructible_v<NoAcceleration>);
static_assert(std::is_abstract_v<Acceleration> && std::has_virtual_destructor_v<Acceleration>);

TriangleAccelerationModel modelOf(const SampleMesh& mesh) {
  return {mesh.points, mesh.counts, mesh.indices};
}

TEST(NoAcceleration, KeepsItsModelAndDrawsNothing) {
  const TriangleAccelerationModel model = modelOf(makeCube());
  const NoAcceleration all(model);
  const NoAcceleration copy(all);
  EXPECT_EQ(&copy.model(), &model);
  all.draw([](const Box3f&, const tarn::Vec4f&) { ADD_FAILURE() << "a box"; });
}

TEST(NoAcceleration, GivesTheNearestWhateverTheContextAsks) {
  const TriangleAccelerationModel model = modelOf(makeCube());
  const NoAcceleration all(model);
  IntersectionContext ctx;
  for (const bool nearest : {true, false}) {
    ctx.nearestHit = nearest;
    CollisionResult result;
    EXPECT_TRUE(all.intersect(ctx, Ray3f({0.25f, 0.5f, 5}, {0, 0, -1}), result));
    EXPECT_EQ(result.faceIndex, 1);
    EXPECT_EQ(result.distance, 4.0f);
    EXPECT_EQ(model.faceIndex(result.primitiveIndex), 1);
  }
}

TEST(NoAcceleration, MissLeavesResultUntouched) {
  const TriangleAccelerationModel model = modelOf(makeCube());
  CollisionResult result = marked();
  EXPECT_FALSE(
      NoAcceleration(model).intersect(IntersectionContext(), Ray3f({5, 5, 5}, {0, 0, 1}), result));
  EXPECT_TRUE(sameRecord(result, marked()));
}

TEST(NoAcceleration, ModelWithoutPrimitivesIsNeverHit) {
  const TriangleAccelerationModel model = modelOf(SampleMesh());
  CollisionResult result;
  EXPECT_FALSE(
      NoAcceleration(model).intersect(IntersectionContext(), Ray3f({0, 0, 0}, {0, 0, 1}), result));
}

TEST(NoAcceleration, RangeIsOpenAtBothEnds) {
  const TriangleAccelerationModel model = modelOf(makePlane(1));
  const NoAcceleration all(model);
  CollisionResult result;
  const Vec3f o(0.5f, 0.25f, 1), d(0, 0, -1);
  EXPECT_FALSE(all.intersect(IntersectionContext(), Ray3f(o, d, 1.0f, 5.0f), result));
  EXPECT_FALSE(all.intersect(IntersectionContext(), Ray3f(o, d, 0.0f, 1.0f), result));
  EXPECT_TRUE(all.intersect(IntersectionContext(), Ray3f(o, d, 0.5f, 1.5f), result));
}

// A box that the ray enters behind the best hit so far is passed over, and so is one that it
// misses: with exact boxes that may cost a hit in a box's very face, so the comparison repeats the
// box test.
TEST(NoAcceleration, AnswersLikeThePlainLoopOverBoxesBitForBit) {
  const unsigned seed = 404;
  SCOPED_TRACE(seed);
  for (const SampleMesh& mesh : sampleMeshes()) {
    const TriangleAccelerationModel model = modelOf(mesh);
    const NoAcceleration all(model);
    RayMaker maker(mesh, seed);
    for (int i = 0; i < 2000; ++i) {
      const Ray3f ray = i % 2 ? maker.hostile() : maker.ordinary();
      CollisionResult expected = marked(), got = marked();
      float best = ray.maxDistance;
      for (std::size_t p = 0; p < model.size(); ++p) {
        float tNear = 0, tFar = 0;
        CollisionResult scratch;
        if (plainBox(ray, model.bounds(p), tNear, tFar) && tNear < best &&
            model.intersect(IntersectionContext(), ray, p, scratch) && best > scratch.distance &&
            scratch.distance > ray.minDistance) {
          expected = scratch;
          expected.primitiveIndex = static_cast<std::uint32_t>(p);
          best = scratch.distance;
        }
      }
      ASSERT_EQ(all.intersect(IntersectionContext(), ray, got), ray.maxDistance > best)
          << mesh.name << show(ray);
      ASSERT_TRUE(sameRecord(got, expected))
          << mesh.name << show(ray) << show(got) << show(expected);
    }
  }
}

// Triangles whose answers are others than those of their class.
class Always : public TriangleAccelerationModel {
 public:
  using TriangleAccelerationModel::TriangleAccelerationModel;
  bool intersect(const IntersectionContext&, const Ray3f&, std::size_t,
                 CollisionResult& result) const override {
    result.distance = 1.0f;
    result.hit = true;
    return true;
  }
};

TEST(Structures, ARayWithANanReachesTheModelsThatMayAnswerIt) {
  const SampleMesh mesh = makePlane(4);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Always own(mesh.points, mesh.counts, mesh.indices);
  const TriangleAccelerationModel given = modelOf(mesh);
  const Ray3f ray(Vec3f(0.5f, 0.25f, 1.0f), Vec3f(nan, 0, -1), 0.0f, 5.0f);
  const IntersectionContext ctx;
  CollisionResult result = marked();
  EXPECT_FALSE(NoAcceleration(given).intersect(ctx, ray, result));
  EXPECT_FALSE(BvhAcceleration(given, true).intersect(ctx, ray, result));
  EXPECT_FALSE(GridAcceleration(given).intersect(ctx, ray, result));
  EXPECT_TRUE(sameRecord(result, marked()));
  EXPECT_TRUE(NoAcceleration(own).intersect(ctx, ray, result));
  EXPECT_TRUE(BvhAcceleration(own, true).intersect(ctx, ray, result));
  EXPECT_TRUE(GridAcceleration(own).intersect(ctx, ray, result));
}

}  // namespace
