#include "vela/intersect/GridAcceleration.h"

#include <gtest/gtest.h>

#include <thread>

#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/TestOracles.h"
#include "vela/intersect/detail/TriangleBlocks.h"

// The kernels of every instruction set, built here beside the library's own.
#define TARN_LANES_ALL_SETS 1
#define TARN_LANES_KERNEL "vela/intersect/detail/TriangleBlocksLanes.h"
#include "tarn/ForEachInstructionSet.h"

using namespace vela;
using namespace vela_test;

namespace {

TriangleAccelerationModel modelOf(const SampleMesh& mesh) {
  return {mesh.points, mesh.counts, mesh.indices};
}

std::array<std::uint32_t, 3> cells(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
  return {x, y, z};
}

// Boxes and answers as the test wants them.
struct FakeModel : AccelerationModel {
  std::vector<Box3f> boxes;
  Box3f all;
  std::vector<float> distances;  ///< of each primitive; what every ray hits
  mutable std::vector<std::size_t> asked;

  std::size_t size() const override { return boxes.size(); }
  Box3f bounds(std::size_t i) const override { return boxes[i]; }
  Box3f bounds() const override { return all; }
  bool intersect(const IntersectionContext&, const Ray3f&, std::size_t i,
                 CollisionResult& result) const override {
    asked.push_back(i);
    if (std::isnan(distances[i])) return false;
    result.distance = distances[i];
    result.hit = true;
    return true;
  }
  bool exclude(const IntersectionContext&, std::size_t) const override { return false; }
};

FakeModel rowOfCells(int n) {
  FakeModel model;
  for (int i = 0; i < n; ++i) {
    model.boxes.emplace_back(Vec3f(static_cast<float>(i) + 0.25f, 0.25f, 0.25f),
                             Vec3f(static_cast<float>(i) + 0.75f, 0.75f, 0.75f));
    model.distances.push_back(kNan);
  }
  model.all = Box3f({0, 0, 0}, {static_cast<float>(n), 1, 1});
  return model;
}

TEST(Grid, UnitSquareOfTwoTrianglesIsThirtyThreeByThirtyThreeByOne) {
  const TriangleAccelerationModel model = modelOf(makePlane(1));
  ASSERT_EQ(model.size(), 2u);
  EXPECT_EQ(GridAcceleration(model).resolution(), cells(33, 33, 1));
}

TEST(Grid, ResolutionStopsAtSixtyFour) {
  const TriangleAccelerationModel model = modelOf(makePlane(60));
  EXPECT_EQ(GridAcceleration(model).resolution(), cells(64, 64, 1));
}

TEST(Grid, ModelWithoutPrimitivesIsNeverHit) {
  FakeModel model;
  model.all = Box3f({0, 0, 0}, {1, 1, 1});
  CollisionResult result = marked();
  const GridAcceleration grid(model);
  EXPECT_FALSE(grid.intersect(IntersectionContext(), Ray3f({0.5f, 0.5f, -1}, {0, 0, 1}), result));
  EXPECT_TRUE(sameRecord(result, marked()));
  model.all = Box3f();
  EXPECT_FALSE(GridAcceleration(model).intersect(IntersectionContext(), Ray3f({0, 0, 0}, {0, 0, 1}),
                                                 result));
}

TEST(Grid, BoxThatIsNoNumberGivesAnEmptyGrid) {
  FakeModel model = rowOfCells(4);
  model.all.max.y = kNan;
  model.distances.assign(4, 1.0f);
  const GridAcceleration grid(model);
  EXPECT_EQ(grid.resolution(), cells(0, 0, 0));
  CollisionResult result;
  EXPECT_FALSE(grid.intersect(IntersectionContext(), Ray3f({0, 0.5f, 0.5f}, {1, 0, 0}), result));
}

TEST(Grid, BoxWithoutVolumeGivesAnEmptyGrid) {
  FakeModel model = rowOfCells(4);
  model.all.max.z = 0.0f;
  model.distances.assign(4, 1.0f);
  const GridAcceleration grid(model);
  EXPECT_EQ(grid.resolution(), cells(0, 0, 0));
  CollisionResult result;
  EXPECT_FALSE(grid.intersect(IntersectionContext(), Ray3f({-1, 0.5f, 0}, {1, 0, 0}), result));
}

TEST(Grid, InfiniteBoxGivesAnEmptyGrid) {
  FakeModel model = rowOfCells(4);
  model.all = Box3f(Vec3f(-kMax), Vec3f(kMax));
  model.distances.assign(4, 1.0f);
  EXPECT_EQ(GridAcceleration(model).resolution(), cells(0, 0, 0));
}

TEST(Grid, RayThatStartsInsideStartsInTheCellOfItsOrigin) {
  FakeModel model = rowOfCells(6);
  const GridAcceleration grid(model);
  ASSERT_EQ(grid.resolution()[0], 5u);
  CollisionResult result;
  EXPECT_FALSE(grid.intersect(IntersectionContext(), Ray3f({3.5f, 0.5f, 0.5f}, {1, 0, 0}), result));
  // The cell from 2.4 to 3.6 lists 2 and 3; what lies before it is not asked.
  ASSERT_GE(model.asked.size(), 4u);
  EXPECT_EQ(model.asked.front(), 2u);
  EXPECT_EQ(model.asked.back(), 5u);
  for (const std::size_t primitive : model.asked) EXPECT_GE(primitive, 2u);
}

TEST(Grid, PrimitiveOverManyCellsIsInEachOfTheirLists) {
  const TriangleAccelerationModel model = modelOf(makePlane(1));
  const GridAcceleration grid(model);
  const IntersectionContext ctx;
  for (int y = 0; y < 33; ++y)
    for (int x = 0; x < 33; ++x) {
      CollisionResult result;
      const Ray3f ray(
          {(static_cast<float>(x) + 0.5f) / 33.0f, (static_cast<float>(y) + 0.25f) / 33.0f, 1},
          {0, 0, -1});
      EXPECT_TRUE(grid.intersect(ctx, ray, result)) << x << ' ' << y;
    }
}

// KEEP(grid-first-cell): primitive 0 lies in the first cell and reports a far hit; primitive 5,
// nearer, is listed in later cells only and is never asked.
TEST(Grid, FirstCellWithAHitEndsTheQuery) {
  FakeModel model = rowOfCells(6);
  model.distances[0] = 5.5f;
  model.distances[5] = 1.0f;
  const GridAcceleration grid(model);
  CollisionResult result;
  EXPECT_TRUE(grid.intersect(IntersectionContext(), Ray3f({-1, 0.5f, 0.5f}, {1, 0, 0}), result));
  EXPECT_EQ(result.primitiveIndex, 0u);
  EXPECT_EQ(result.distance, 5.5f);
}

TEST(Grid, OfOneCellTheNearestCountsAndAnyHitTakesTheFirst) {
  FakeModel model = rowOfCells(1);
  model.boxes.assign(3, model.boxes[0]);
  model.distances = {3.0f, 2.0f, 2.0f};
  const GridAcceleration grid(model);
  const Ray3f ray({-1, 0.5f, 0.5f}, {1, 0, 0});
  IntersectionContext ctx;
  CollisionResult result = marked();
  EXPECT_TRUE(grid.intersect(ctx, ray, result));
  EXPECT_EQ(result.primitiveIndex, 1u);
  EXPECT_TRUE(result.hit);
  ctx.nearestHit = false;
  EXPECT_TRUE(grid.intersect(ctx, ray, result));
  EXPECT_EQ(result.primitiveIndex, 0u);
}

TEST(Grid, HitsAtTheEndsOfTheRangeAreNone) {
  FakeModel model = rowOfCells(1);
  model.distances = {1.5f};
  const GridAcceleration grid(model);
  CollisionResult result = marked();
  const Vec3f o(-1, 0.5f, 0.5f), d(1, 0, 0);
  EXPECT_FALSE(grid.intersect(IntersectionContext(), Ray3f(o, d, 1.5f, 9.0f), result));
  EXPECT_FALSE(grid.intersect(IntersectionContext(), Ray3f(o, d, 0.0f, 1.5f), result));
  EXPECT_TRUE(sameRecord(result, marked()));
  EXPECT_TRUE(grid.intersect(IntersectionContext(), Ray3f(o, d, 1.4f, 1.6f), result));
}

// KEEP(grid-minus-zero)
TEST(Grid, MinusZeroWalksLikeZero) {
  const TriangleAccelerationModel model = modelOf(makeRoughSphere(24, 40, 0.3f));
  const GridAcceleration grid(model);
  const IntersectionContext ctx;
  std::mt19937 random(8);
  std::uniform_real_distribution<float> place(-1.0f, 1.0f);
  int hits = 0;
  for (int i = 0; i < 2000; ++i) {
    const Vec3f o(place(random), place(random), -3.0f);
    CollisionResult plus, minus;
    const bool hit = grid.intersect(ctx, Ray3f(o, {0.0f, 0.0f, 1.0f}), plus);
    ASSERT_EQ(grid.intersect(ctx, Ray3f(o, {-0.0f, -0.0f, 1.0f}), minus), hit);
    ASSERT_EQ(plus.primitiveIndex, minus.primitiveIndex);
    ASSERT_EQ(plus.distance, minus.distance);
    hits += hit ? 1 : 0;
  }
  EXPECT_GT(hits, 500);
}

// Half of the points of a box lie a rounding error below its minimum when they are computed from a
// ray.
TEST(Grid, EntryBelowTheBoxByARoundingErrorBelongsToTheFirstCell) {
  const SampleMesh mesh = makeRoughSphere(40, 60, 0.0f);
  const TriangleAccelerationModel model = modelOf(mesh);
  const GridAcceleration grid(model);
  const NoAcceleration all(model);
  RayMaker maker(mesh, 6);
  int lost = 0, hits = 0;
  for (int i = 0; i < 3000; ++i) {
    const Ray3f ray = maker.ordinary();
    CollisionResult a, b;
    if (!all.intersect(IntersectionContext(), ray, a)) continue;
    ++hits;
    lost += grid.intersect(IntersectionContext(), ray, b) ? 0 : 1;
  }
  EXPECT_GT(hits, 1000);
  EXPECT_EQ(lost, 0);
}

TEST(Grid, DrawShowsTheOccupiedCells) {
  static std::vector<Box3f> boxes;
  static tarn::Vec4f colour;
  boxes.clear();
  FakeModel model = rowOfCells(2);
  model.boxes.resize(1);
  const GridAcceleration grid(model);
  grid.draw([](const Box3f& box, const tarn::Vec4f& c) {
    boxes.push_back(box);
    colour = c;
  });
  ASSERT_FALSE(boxes.empty());
  EXPECT_EQ(colour, tarn::Vec4f(0.4f, 0.9f, 0.5f, 0.2f));
  Box3f all;
  for (const auto& box : boxes) {
    EXPECT_LT(box.min.x, 0.75f);
    all.extendBy(box);
  }
  EXPECT_LE(all.min.x, 0.25f);
  EXPECT_GE(all.max.x, 0.75f);

  boxes.clear();
  model.all = Box3f();
  GridAcceleration(model).draw([](const Box3f& box, const tarn::Vec4f&) { boxes.push_back(box); });
  EXPECT_TRUE(boxes.empty());
}

TEST(Grid, ResolutionIsThatOfThePlainRule) {
  for (const SampleMesh& mesh : sampleMeshes()) {
    const TriangleAccelerationModel model = modelOf(mesh);
    const GridAcceleration grid(model);
    const PlainGrid plain(model);
    for (const std::size_t axis : {0u, 1u, 2u})
      EXPECT_EQ(grid.resolution()[axis], plain.resolution(axis)) << mesh.name;
  }
}

// Triangles that the grid has to ask one by one, because they might answer differently.
struct AskedTriangles : TriangleAccelerationModel {
  using TriangleAccelerationModel::TriangleAccelerationModel;
};

void expectPlainAnswers(const SampleMesh& mesh, const AccelerationModel& model, int rays,
                        unsigned seed) {
  const GridAcceleration grid(model);
  const PlainGrid plain(model);
  RayMaker maker(mesh, seed);
  IntersectionContext ctx;
  for (int i = 0; i < rays; ++i) {
    const Ray3f ray = i % 3 ? maker.hostile() : maker.ordinary();
    ctx.nearestHit = i % 4 != 0;
    CollisionResult expected = marked(), got = marked();
    const bool hit = plain.intersect(ctx, ray, expected);
    ASSERT_EQ(grid.intersect(ctx, ray, got), hit) << mesh.name << " " << show(ray);
    ASSERT_TRUE(sameRecord(got, expected))
        << mesh.name << " " << show(ray) << show(got) << show(expected);
  }
}

TEST(Grid, AnswersLikeThePlainRuleBitForBit) {
  const unsigned seed = 2024;
  SCOPED_TRACE(seed);
  for (const SampleMesh& mesh : sampleMeshes()) {
    expectPlainAnswers(mesh, modelOf(mesh), 30000, seed);
    expectPlainAnswers(mesh, AskedTriangles(mesh.points, mesh.counts, mesh.indices), 6000,
                       seed + 1);
  }
}

// Ten thousand triangles, each across the whole mesh: their lists would take more memory than they
// are worth.
TEST(Grid, TrianglesAcrossTheWholeMeshAreKeptOnceAndAnswerTheSame) {
  SampleMesh mesh;
  std::mt19937 random(41);
  const auto corner = [&](float x) {
    const auto place = [&] { return static_cast<float>(random() % 2001u) / 1000.0f - 1.0f; };
    return Vec3f(x, x + 0.1f * place(), 0.3f * x + place());
  };
  for (int i = 0; i < 11000; ++i) {
    if (i % 5 == 0) {
      const Vec3f at = corner(static_cast<float>(random() % 200u) / 100.0f - 1.0f);
      for (const auto& p : {at, at + Vec3f(0.02f, 0, 0), at + Vec3f(0, 0.02f, 0.01f)})
        mesh.points.push_back(p);
    } else {
      for (const float x : {-1.0f, 1.0f, i % 2 ? -1.0f : 1.0f}) mesh.points.push_back(corner(x));
    }
    mesh.addFace({3 * i, 3 * i + 1, 3 * i + 2});
  }
  mesh.name = "all across";
  expectPlainAnswers(mesh, modelOf(mesh), 150, 42);
}

// The grid may give another hit than the nearest, for one reason only: the hit of the first cell
// lies beyond it. Then the nearest one is listed in later cells and not in the one that answered.
TEST(Grid, DiffersFromBruteForceOnlyByTheFirstCell) {
  const unsigned seed = 99;
  SCOPED_TRACE(seed);
  for (const SampleMesh& mesh : {makeRoughSphere(24, 40, 0.3f), makeRoughSphere(6, 8, 0.0f),
                                 makeSoup(400, 11), makeCube()}) {
    const TriangleAccelerationModel model = modelOf(mesh);
    const GridAcceleration grid(model);
    RayMaker maker(mesh, seed);
    int hits = 0, farther = 0, missed = 0;
    for (int i = 0; i < 20000; ++i) {
      const Ray3f ray = maker.ordinary();
      CollisionResult nearest, got;
      const bool any = plainNearest(model, ray, nearest),
                 hit = grid.intersect(IntersectionContext(), ray, got);
      ASSERT_LE(hit, any) << show(ray);
      hits += any ? 1 : 0;
      if (any && !hit) ++missed;
      if (!hit || bitsOf(got.distance) == bitsOf(nearest.distance)) continue;
      ++farther;
      ASSERT_GT(got.distance, nearest.distance);
      // The triangle that answered reaches back into a cell that the ray crosses before the nearest
      // hit: its box is entered before the nearest hit's point is reached, give or take a cell.
      float tNear = 0, tFar = 0;
      Box3f grown = model.bounds(got.primitiveIndex);
      grown.pad((model.bounds().max - model.bounds().min) /
                Vec3f(static_cast<float>(grid.resolution()[0]),
                      static_cast<float>(grid.resolution()[1]),
                      static_cast<float>(grid.resolution()[2])));
      ASSERT_TRUE(plainBox(ray, grown, tNear, tFar)) << show(ray);
      ASSERT_LE(tNear, nearest.distance) << show(ray);
    }
    EXPECT_GT(hits, 1000) << mesh.name;
    EXPECT_EQ(missed, 0) << mesh.name;
    RecordProperty(mesh.name, farther);
  }
}

// Every kernel over one list: same verdict, number and bits, for any number of triangles and any
// ray.
TEST(TriangleBlocks, KernelsAgreeBitForBitWithTheSingleTest) {
  std::vector<detail::TestTriangleBlocks> kernels{detail::plain::testTriangleBlocks,
                                                  detail::bestTriangleBlockTest()};
#if TARN_LANES_HAVE_SSE2
  kernels.push_back(detail::sse2::testTriangleBlocks);
  if (tarn::runsAvx2()) kernels.push_back(detail::avx2::testTriangleBlocks);
#endif
  const unsigned seed = 7;
  SCOPED_TRACE(seed);
  const SampleMesh mesh = makeSoup(300, seed);
  RayMaker maker(mesh, seed);
  std::mt19937 random(seed);
  int hits = 0;
  for (int i = 0; i < 150000; ++i) {
    // A list of 1 to 40 triangles, some twice, some scaled to the edge of what floats hold.
    const std::size_t count = 1 + random() % 40;
    const float scale =
        i % 10 == 0 ? std::ldexp(1.0f, static_cast<int>(random() % 120) - 60) : 1.0f;
    std::vector<detail::TriangleBlock> blocks((count + 7) / 8);
    std::vector<Vec3f> corners;
    for (std::size_t p = 0; p < count; ++p) {
      const std::size_t k = 3 * (random() % 300);
      for (std::size_t j = 0; j < 3; ++j) corners.push_back(mesh.points[k + j] * scale);
      const Vec3f a = corners[3 * p], e1 = corners[3 * p + 1] - a, e2 = corners[3 * p + 2] - a;
      detail::TriangleBlock& b = blocks[p / 8];
      const std::size_t lane = p % 8;
      b.ax[lane] = a.x, b.ay[lane] = a.y, b.az[lane] = a.z;
      b.e1x[lane] = e1.x, b.e1y[lane] = e1.y, b.e1z[lane] = e1.z;
      b.e2x[lane] = e2.x, b.e2y[lane] = e2.y, b.e2z[lane] = e2.z;
      b.primitive[lane] = static_cast<std::uint32_t>(100 + p);
    }
    Ray3f ray = i % 2 ? maker.hostile() : maker.ordinary();
    const std::size_t target = 3 * (random() % count);
    if (i % 3 == 0)
      ray.direction = corners[target] + (corners[target + 1] - corners[target]) * 0.5f - ray.origin;

    const bool nearest = i % 4 != 0;
    float best = ray.maxDistance;
    std::uint32_t primitive = 7;
    bool hit = false;
    for (std::size_t p = 0; p < count && !(hit && !nearest); ++p) {
      CollisionResult one;
      if (!plainTriangle(ray, corners[3 * p], corners[3 * p + 1], corners[3 * p + 2], one))
        continue;
      if (!(best > one.distance && one.distance > ray.minDistance)) continue;
      best = one.distance;
      primitive = static_cast<std::uint32_t>(100 + p);
      hit = true;
    }
    hits += hit ? 1 : 0;
    for (const auto kernel : kernels) {
      float gotBest = ray.maxDistance;
      detail::BlockHit got;
      ASSERT_EQ(kernel(blocks.data(), blocks.data() + blocks.size(), ray, nearest, gotBest, got),
                hit)
          << show(ray);
      ASSERT_EQ(got.block == nullptr ? 7 : got.block->primitive[got.lane], primitive) << show(ray);
      ASSERT_EQ(bitsOf(gotBest), bitsOf(best)) << show(ray);
    }
  }
  EXPECT_GT(hits, 20000);
}

TEST(Grid, ThreadsGetTheSameAnswers) {
  const SampleMesh mesh = makeRoughSphere(24, 40, 0.3f);
  const TriangleAccelerationModel model = modelOf(mesh);
  const GridAcceleration grid(model);
  const auto run = [&](std::vector<CollisionResult>& out) {
    RayMaker maker(mesh, 5);
    for (auto& result : out) grid.intersect(IntersectionContext(), maker.ordinary(), result);
  };
  std::vector<CollisionResult> expected(3000);
  run(expected);
  std::vector<std::vector<CollisionResult>> got(4, std::vector<CollisionResult>(3000));
  std::vector<std::thread> threads;
  for (auto& out : got) threads.emplace_back([&] { run(out); });
  for (auto& thread : threads) thread.join();
  for (const auto& out : got)
    for (std::size_t i = 0; i < out.size(); ++i) ASSERT_TRUE(sameRecord(out[i], expected[i]));
}

}  // namespace
