#include "vela/intersect/BvhAcceleration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/TestOracles.h"

using namespace vela;
using namespace vela_test;

namespace {

TriangleAccelerationModel modelOf(const SampleMesh& mesh) {
  return {mesh.points, mesh.counts, mesh.indices};
}

struct FakeModel : AccelerationModel {
  std::vector<Box3f> boxes;
  std::vector<float> distances;
  mutable std::vector<std::size_t> asked;

  void add(const Box3f& box, float distance = kNan) {
    boxes.push_back(box);
    distances.push_back(distance);
  }
  std::size_t size() const override { return boxes.size(); }
  Box3f bounds(std::size_t i) const override { return boxes[i]; }
  Box3f bounds() const override {
    Box3f all;
    for (const auto& box : boxes) all.extendBy(box);
    return all;
  }
  bool intersect(const IntersectionContext&, const Ray3f& ray, std::size_t i,
                 CollisionResult& result) const override {
    asked.push_back(i);
    // Like the triangle test: a little past the range.
    if (std::isnan(distances[i]) || !(distances[i] <= ray.maxDistance + 1e-5f)) return false;
    result.distance = distances[i];
    result.hit = true;
    return true;
  }
  bool exclude(const IntersectionContext&, std::size_t) const override {
    ADD_FAILURE() << "exclude was asked";
    return true;
  }
};

Box3f boxAt(float x, float y = 0.0f, float z = 0.0f, float half = 0.25f) {
  return {Vec3f(x - half, y - half, z - half), Vec3f(x + half, y + half, z + half)};
}

struct Drawn {
  Box3f box;
  tarn::Vec4f colour;
};
std::vector<Drawn>& drawn() {
  static std::vector<Drawn> list;
  return list;
}
std::vector<Drawn> draw(const BvhAcceleration& bvh) {
  drawn().clear();
  bvh.draw([](const Box3f& box, const tarn::Vec4f& colour) { drawn().push_back({box, colour}); });
  return drawn();
}
const tarn::Vec4f kLeaf(1.0f, 0.8f, 0.0f, 0.5f), kInterior(0.6f, 0.6f, 1.0f, 0.2f);

TEST(Bvh, EmptyModelIsNeverHitAndDrawsNothing) {
  const FakeModel model;
  for (const bool sah : {false, true}) {
    const BvhAcceleration bvh(model, sah);
    CollisionResult result = marked();
    EXPECT_FALSE(bvh.intersect(IntersectionContext(), Ray3f({0, 0, 0}, {0, 0, 1}), result));
    EXPECT_TRUE(sameRecord(result, marked()));
    EXPECT_TRUE(draw(bvh).empty());
  }
}

TEST(Bvh, UpToThreePrimitivesAreOneLeaf) {
  FakeModel model;
  for (int n = 1; n <= 4; ++n) {
    model.add(boxAt(static_cast<float>(n)));
    for (const bool sah : {false, true}) {
      const auto nodes = draw(BvhAcceleration(model, sah));
      EXPECT_EQ(nodes.size() == 1, n <= 3) << n;
      EXPECT_EQ(nodes[0].colour, n <= 3 ? kLeaf : kInterior);
    }
  }
}

TEST(Bvh, NodesArePaddedByAHundredThousandth) {
  FakeModel model;
  model.add(boxAt(1));
  Box3f expected = boxAt(1);
  expected.pad(Vec3f(1e-5f, 1e-5f, 1e-5f));
  EXPECT_EQ(draw(BvhAcceleration(model, false))[0].box, expected);
}

TEST(Bvh, CentresThatCoincideEndInOneLeaf) {
  FakeModel model;
  for (int i = 1; i <= 20; ++i) model.add(boxAt(3, 4, 5, 0.1f * static_cast<float>(i)));
  for (const bool sah : {false, true}) {
    const auto nodes = draw(BvhAcceleration(model, sah));
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_EQ(nodes[0].colour, kLeaf);
  }
}

// Four boxes in a row: centres at 0, 1, 2 and 10. The middle is 5, so 10 goes right alone.
TEST(Bvh, MedianSplitsInTheMiddleOfTheCentres) {
  FakeModel model;
  for (const float x : {10.0f, 0.0f, 2.0f, 1.0f}) model.add(boxAt(x));
  const auto nodes = draw(BvhAcceleration(model, false));
  ASSERT_EQ(nodes.size(), 3u);
  // Right before left.
  EXPECT_EQ(nodes[0].colour, kInterior);
  EXPECT_NEAR(nodes[1].box.min.x, 9.75f, 2e-5f);
  EXPECT_NEAR(nodes[2].box.max.x, 2.25f, 2e-5f);
}

TEST(Bvh, CentreInTheMiddleGoesLeft) {
  FakeModel model;
  for (const float x : {0.0f, 2.0f, 4.0f, 4.0f}) model.add(boxAt(x));
  const auto nodes = draw(BvhAcceleration(model, false));
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_NEAR(nodes[1].box.min.x, 3.75f, 2e-5f);
  EXPECT_NEAR(nodes[2].box.max.x, 2.25f, 2e-5f);
}

TEST(Bvh, SurfaceAreaSplitsAwayWhatStandsApart) {
  FakeModel model;
  for (const float x : {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 12.0f}) model.add(boxAt(x));
  const auto median = draw(BvhAcceleration(model, false)), sah = draw(BvhAcceleration(model, true));
  EXPECT_NEAR(median[1].box.min.x, 11.75f, 2e-5f);
  // By areas: seven boxes of 6.5 long left and one right costs (14 * 0.25 + ...) more than four and
  // four.
  EXPECT_EQ(sah[0].colour, kInterior);
  EXPECT_NE(sah[1].box.min.x, median[1].box.min.x);
}

// The cost of all 11 planes by hand, in float and as told; the tree's first split is the cheapest,
// the lower on ties.
TEST(Bvh, SurfaceAreaTakesTheCheapestOfElevenPlanes) {
  std::mt19937 random(15);
  for (int round = 0; round < 200; ++round) {
    FakeModel model;
    const int n = 4 + static_cast<int>(random() % 30);
    for (int i = 0; i < n; ++i) {
      const auto place = [&] { return static_cast<float>(random() % 64); };
      model.add(boxAt(3.0f * place(), place(), place(), 0.5f + 0.1f * place()));
    }
    Box3f centres, total;
    for (const auto& box : model.boxes) {
      centres.extendBy((box.min + box.max) * 0.5f);
      total.extendBy(box);
    }
    const auto axis = static_cast<std::size_t>(centres.majorAxis());
    const float low = centres.min[axis], extent = centres.max[axis] - low;
    if (extent == 0.0f) continue;
    const auto binOf = [&](const Box3f& box) {
      const float at = (((box.min + box.max) * 0.5f)[axis] - low) * 12.0f / extent;
      return at >= 12.0f ? 11 : at < 0.0f ? 0 : static_cast<int>(at);
    };
    float best = kInf;
    int plane = 0;
    for (int k = 1; k <= 11; ++k) {
      Box3f left, right;
      int leftCount = 0, rightCount = 0;
      for (const auto& box : model.boxes) {
        (binOf(box) < k ? left : right).extendBy(box);
        ++(binOf(box) < k ? leftCount : rightCount);
      }
      const float cost = (left.surface() * static_cast<float>(leftCount) +
                          right.surface() * static_cast<float>(rightCount)) /
                         total.surface();
      if (cost < best) {
        best = cost;
        plane = k;
      }
    }
    const float position = low + extent * static_cast<float>(plane) / 12.0f;
    Box3f left, right;
    for (const auto& box : model.boxes)
      (((box.min + box.max) * 0.5f)[axis] > position ? right : left).extendBy(box);
    if (left.isEmpty() || right.isEmpty()) continue;
    right.pad(Vec3f(1e-5f));
    const auto nodes = draw(BvhAcceleration(model, true));
    ASSERT_GT(nodes.size(), 2u);
    EXPECT_EQ(nodes[1].box, right) << round;
  }
}

TEST(Bvh, WithoutAnyAreaTheSurfaceRuleSplitsLikeTheMedian) {
  FakeModel model;
  for (const float x : {0.0f, 1.0f, 2.0f, 3.0f, 20.0f}) model.add(Box3f({x, 0, 0}, {x, 0, 0}));
  const auto median = draw(BvhAcceleration(model, false)), sah = draw(BvhAcceleration(model, true));
  ASSERT_EQ(sah.size(), median.size());
  for (std::size_t i = 0; i < sah.size(); ++i) EXPECT_EQ(sah[i].box, median[i].box);
}

TEST(Bvh, EmptyBoxesMakeNoNodeLarger) {
  FakeModel model;
  for (const float x : {5.0f, 6.0f}) model.add(boxAt(x));
  for (int i = 0; i < 3; ++i) model.add(Box3f());
  for (const bool sah : {false, true}) {
    const auto nodes = draw(BvhAcceleration(model, sah));
    EXPECT_NEAR(nodes[0].box.min.x, 4.75f, 2e-5f);
    EXPECT_NEAR(nodes[0].box.max.x, 6.25f, 2e-5f);
    CollisionResult result;
    EXPECT_FALSE(BvhAcceleration(model, sah)
                     .intersect(IntersectionContext(), Ray3f({0, 0, 0}, {1, 0, 0}), result));
  }
}

TEST(Bvh, NearChildIsWalkedFirstByTheSignOfTheDirection) {
  FakeModel model;
  for (const float x : {0.0f, 1.0f, 2.0f, 10.0f, 11.0f, 12.0f}) model.add(boxAt(x));
  const BvhAcceleration bvh(model, false);
  CollisionResult result;
  EXPECT_FALSE(bvh.intersect(IntersectionContext(), Ray3f({-5, 0, 0}, {1, 0, 0}), result));
  ASSERT_EQ(model.asked.size(), 6u);
  EXPECT_LT(*std::max_element(model.asked.begin(), model.asked.begin() + 3), 3u);
  model.asked.clear();
  EXPECT_FALSE(bvh.intersect(IntersectionContext(), Ray3f({20, 0, 0}, {-1, 0, 0}), result));
  ASSERT_EQ(model.asked.size(), 6u);
  EXPECT_GE(*std::min_element(model.asked.begin(), model.asked.begin() + 3), 3u);
}

TEST(Bvh, AnyHitReturnsAtTheFirstReportedOne) {
  FakeModel model;
  for (const float x : {0.0f, 1.0f, 2.0f, 10.0f, 11.0f, 12.0f}) model.add(boxAt(x), 50.0f - x);
  const BvhAcceleration bvh(model, false);
  IntersectionContext ctx;
  ctx.nearestHit = false;
  CollisionResult result;
  EXPECT_TRUE(bvh.intersect(ctx, Ray3f({-5, 0, 0}, {1, 0, 0}), result));
  ASSERT_EQ(model.asked.size(), 1u);
  EXPECT_EQ(result.primitiveIndex, model.asked[0]);
  EXPECT_EQ(result.distance, 50.0f - static_cast<float>(model.asked[0]));
}

// KEEP(bvh-replaces): both lie in one leaf; the second is a rounding error farther, within what the
// model tolerates, and takes the place of the first.
TEST(Bvh, LaterHitWithinTheModelsToleranceReplacesANearerOne) {
  FakeModel model;
  model.add(boxAt(0), 5.0f);
  model.add(boxAt(0), 5.000005f);
  CollisionResult result;
  EXPECT_TRUE(BvhAcceleration(model, false)
                  .intersect(IntersectionContext(), Ray3f({-5, 0, 0}, {1, 0, 0}), result));
  EXPECT_EQ(result.primitiveIndex, 1u);
  EXPECT_EQ(result.distance, 5.000005f);
}

TEST(Bvh, ZeroComponentsOfEitherSignStillHit) {
  const TriangleAccelerationModel model = modelOf(makePlane(13));
  for (const bool sah : {false, true}) {
    const BvhAcceleration bvh(model, sah);
    for (const float zero : {0.0f, -0.0f}) {
      for (int x = 0; x <= 13; ++x) {
        CollisionResult result;
        EXPECT_TRUE(bvh.intersect(IntersectionContext(),
                                  Ray3f({static_cast<float>(x), 3, 1}, {zero, zero, -1}), result))
            << x;
        EXPECT_EQ(result.distance, 1.0f);
      }
    }
  }
}

// Centres at powers of two: each split in the middle takes one box off, and with the ray along the
// row every level leaves a sibling waiting, far more than the walk's own stack holds.
TEST(Bvh, TreeDeeperThanTheStackIsWalkedToItsEnd) {
  FakeModel model;
  for (int k = -120; k <= 120; ++k)
    model.add(Box3f({std::ldexp(1.0f, k), -1, -1}, {std::ldexp(1.0f, k), 1, 1}));
  for (const bool sah : {false, true}) {
    const BvhAcceleration bvh(model, sah);
    const auto nodes = draw(bvh);
    EXPECT_GT(nodes.size(), 220u);  // two a level
    for (const float side : {1.0f, -1.0f}) {
      model.asked.clear();
      CollisionResult result;
      EXPECT_FALSE(bvh.intersect(IntersectionContext(),
                                 Ray3f({side > 0 ? -1.0f : 2e36f, 0, 0}, {side, 0, 0}), result));
      std::sort(model.asked.begin(), model.asked.end());
      ASSERT_EQ(model.asked.size(), 241u) << side;
      for (std::size_t i = 0; i < 241; ++i) EXPECT_EQ(model.asked[i], i);
    }
  }
}

TEST(Bvh, EveryPrimitiveLiesInTheBoxesAboveIt) {
  for (const SampleMesh& mesh : sampleMeshes()) {
    const TriangleAccelerationModel model = modelOf(mesh);
    for (const bool sah : {false, true}) {
      const auto nodes = draw(BvhAcceleration(model, sah));
      if (model.size() == 0) {
        EXPECT_TRUE(nodes.empty());
        continue;
      }
      Box3f all;
      for (std::size_t i = 0; i < model.size(); ++i) all.extendBy(model.bounds(i));
      all.pad(Vec3f(1e-5f));
      EXPECT_EQ(nodes[0].box, all) << mesh.name;
      EXPECT_LE(nodes.size(), 2 * model.size() - 1);
    }
  }
}

// The tree against brute force: the same hit, or one that replaced it within the 1e-5 that the
// triangle test tolerates, or a hit at the range's very ends, which the tree leaves to the model
// and brute force does not take.
TEST(Bvh, DiffersFromBruteForceOnlyByTheToleranceOfTheTriangleTest) {
  const unsigned seed = 321;
  SCOPED_TRACE(seed);
  for (const SampleMesh& mesh : sampleMeshes()) {
    const TriangleAccelerationModel model = modelOf(mesh);
    const BvhAcceleration median(model, false), sah(model, true);
    RayMaker maker(mesh, seed);
    int hits = 0;
    for (int i = 0; i < 4000; ++i) {
      const Ray3f ray = maker.ordinary();
      CollisionResult nearest, a, b;
      const bool any = plainNearest(model, ray, nearest);
      const bool hitA = median.intersect(IntersectionContext(), ray, a),
                 hitB = sah.intersect(IntersectionContext(), ray, b);
      for (const auto& [hit, got] : {std::pair(hitA, a), std::pair(hitB, b)}) {
        if (hit == any && (!hit || bitsOf(got.distance) == bitsOf(nearest.distance))) continue;
        // A hit at the range's beginning, or up to 1e-5 before it, counts for the tree alone. Brute
        // force has then a later hit or none.
        if (hit && got.distance <= ray.minDistance && got.distance >= ray.minDistance - 1e-5f)
          continue;
        ASSERT_EQ(hit, any) << mesh.name << show(ray);
        ASSERT_LE(
            std::fabs(static_cast<double>(got.distance) - static_cast<double>(nearest.distance)),
            2e-5 + 1e-7 * static_cast<double>(nearest.distance))
            << mesh.name << show(ray) << show(got) << show(nearest);
      }
      hits += any ? 1 : 0;
    }
    EXPECT_TRUE(model.size() < 100 || hits > 100) << mesh.name << hits;
  }
}

}  // namespace
