#include "vela/intersect/AccelerationModel.h"

#include <gtest/gtest.h>

#include "vela/intersect/TestOracles.h"
#include "vela/mesh/Triangulate.h"

using namespace vela;
using namespace vela_test;

namespace {

TriangleAccelerationModel modelOf(const SampleMesh& mesh) {
  return {mesh.points, mesh.counts, mesh.indices};
}

TEST(TriangleModel, QuadIsCutFromZeroToTwoAndTwoToZero) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  mesh.addFace({0, 1});
  mesh.addFace({0, 1, 2, 3});
  const TriangleAccelerationModel model = modelOf(mesh);
  ASSERT_EQ(model.size(), 2u);
  EXPECT_EQ(model.faceIndex(0), 1);
  EXPECT_EQ(model.faceIndex(1), 1);
  EXPECT_EQ(model.bounds(0), Box3f({0, 0, 0}, {1, 1, 0}));

  // Triangle 0 holds the corner below the diagonal, triangle 1 the one above it.
  const IntersectionContext ctx;
  CollisionResult result;
  EXPECT_TRUE(model.intersect(ctx, Ray3f({0.75f, 0.25f, 1}, {0, 0, -1}), 0, result));
  EXPECT_FALSE(model.intersect(ctx, Ray3f({0.75f, 0.25f, 1}, {0, 0, -1}), 1, result));
  EXPECT_TRUE(model.intersect(ctx, Ray3f({0.25f, 0.75f, 1}, {0, 0, -1}), 1, result));
}

// Of (2, 3, 0) and (0, 2, 3) only the first has corner 2 as its a: the rounding of a distance
// tells.
TEST(TriangleModel, CornersOfTheSecondHalfStartAtCornerTwo) {
  SampleMesh mesh;
  mesh.points = {{0.1f, 0.2f, 0.3f}, {1.7f, 0.1f, 0.2f}, {1.3f, 1.9f, 0.7f}, {0.2f, 1.1f, 0.9f}};
  mesh.addFace({0, 1, 2, 3});
  const TriangleAccelerationModel model = modelOf(mesh);
  RayMaker maker(mesh, 3);
  int hits = 0, tells = 0;
  for (int i = 0; i < 20000; ++i) {
    const Ray3f ray = maker.ordinary();
    CollisionResult got, expected, other;
    const auto& p = mesh.points;
    const bool hit = plainTriangle(ray, p[2], p[3], p[0], expected);
    ASSERT_EQ(model.intersect(IntersectionContext(), ray, 1, got), hit);
    if (!hit) continue;
    ++hits;
    ASSERT_TRUE(sameRecord(got, expected));
    tells += !plainTriangle(ray, p[0], p[2], p[3], other) ||
                     bitsOf(other.distance) != bitsOf(got.distance)
                 ? 1
                 : 0;
  }
  EXPECT_GT(hits, 100);
  EXPECT_GT(tells, 0);
}

TEST(TriangleModel, LargerFacesAreCutByTriangulateInItsOrder) {
  const SampleMesh mesh = makePolygons();
  const TriangleAccelerationModel model = modelOf(mesh);
  std::size_t at = 0, offset = 0;
  for (std::size_t f = 0; f < mesh.counts.size(); ++f) {
    std::vector<int> triplets;
    Triangulate(mesh.points.cdata(), mesh.indices.cdata() + offset, mesh.counts[f], triplets);
    for (std::size_t k = 0; k < triplets.size(); k += 3, ++at) {
      Box3f box;
      for (std::size_t j = 0; j < 3; ++j)
        box.extendBy(mesh.points[static_cast<std::size_t>(
            mesh.indices[offset + static_cast<std::size_t>(triplets[k + j])])]);
      ASSERT_LT(at, model.size());
      EXPECT_EQ(model.faceIndex(at), static_cast<int>(f));
      EXPECT_EQ(model.bounds(at), box);
    }
    offset += static_cast<std::size_t>(mesh.counts[f]);
  }
  EXPECT_EQ(at, model.size());
}

TEST(TriangleModel, BoxHoldsAllPointsUsedOrNotAndAHundredThousandthMore) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-5, 7, 2}};
  mesh.addFace({0, 1, 2});
  const Box3f box = modelOf(mesh).bounds();
  EXPECT_EQ(box.min, Vec3f(static_cast<float>(-5 - 1e-5), static_cast<float>(0 - 1e-5),
                           static_cast<float>(0 - 1e-5)));
  EXPECT_EQ(box.max, Vec3f(static_cast<float>(1 + 1e-5), static_cast<float>(7 + 1e-5),
                           static_cast<float>(2 + 1e-5)));
}

TEST(TriangleModel, MeshWithoutPointsHasAnEmptyBoxAndNoTriangles) {
  SampleMesh mesh;
  mesh.addFace({0, 1, 2});
  const TriangleAccelerationModel model = modelOf(mesh);
  EXPECT_EQ(model.size(), 0u);
  EXPECT_TRUE(model.bounds().isEmpty());
  EXPECT_EQ(model.bounds().min, Vec3f(kMax));
}

TEST(TriangleModel, NothingIsExcludedAndTheContextIsNotAsked) {
  IntersectionContext ctx;
  ctx.includedTypeNames.insert(ovo::Token("Sphere"));
  const TriangleAccelerationModel model = modelOf(makeCube());
  EXPECT_FALSE(model.exclude(ctx, 0));
  CollisionResult result;
  EXPECT_TRUE(model.intersect(ctx, Ray3f({0.25f, 0.5f, -5}, {0, 0, 1}), 1, result) ||
              model.intersect(ctx, Ray3f({0.25f, 0.5f, -5}, {0, 0, 1}), 0, result));
}

TEST(TriangleModel, HitHasTheRawNormalAndMissTouchesNothing) {
  SampleMesh mesh;
  mesh.points = {{0, 0, 0}, {3, 0, 0}, {0, 3, 0}};
  mesh.addFace({0, 1, 2});
  const TriangleAccelerationModel model = modelOf(mesh);
  CollisionResult result = marked();
  EXPECT_FALSE(model.intersect(IntersectionContext(), Ray3f({5, 5, 1}, {0, 0, -1}), 0, result));
  EXPECT_TRUE(sameRecord(result, marked()));
  EXPECT_TRUE(model.intersect(IntersectionContext(), Ray3f({1, 1, 1}, {0, 0, -1}), 0, result));
  EXPECT_EQ(result.normal, Vec3f(0, 0, 9));
  EXPECT_EQ(result.primitiveIndex, 4711u);
  EXPECT_EQ(result.faceIndex, 0);
}

TEST(TriangleModel, BrokenFacesGiveNoTriangleAndLaterOnesKeepTheirNumbers) {
  const TriangleAccelerationModel model = modelOf(makeBroken());
  ASSERT_EQ(model.size(), 4u);
  EXPECT_EQ(model.faceIndex(0), 6);
  EXPECT_EQ(model.faceIndex(1), 7);
  EXPECT_EQ(model.faceIndex(2), 10);
  EXPECT_EQ(model.faceIndex(3), 10);
}

TEST(TriangleModel, CopiesAnswerLikeTheirSource) {
  const SampleMesh mesh = makeCube();
  TriangleAccelerationModel model = modelOf(mesh);
  const TriangleAccelerationModel copy(model);
  TriangleAccelerationModel assigned = modelOf(makePlane(1));
  assigned = copy;
  const TriangleAccelerationModel moved(std::move(model));
  for (const TriangleAccelerationModel* m :
       {&copy, &static_cast<const TriangleAccelerationModel&>(assigned), &moved}) {
    EXPECT_EQ(m->size(), 12u);
    EXPECT_EQ(m->bounds(5), copy.bounds(5));
    EXPECT_EQ(m->faceIndex(11), 5);
  }
}

// The order of the slots is part of the interface: a table of functions as a host of another
// compiler would call it.
TEST(AccelerationModel, VirtualFunctionsStandInTheirOrder) {
  struct Probe : AccelerationModel {
    mutable int called = 0;
    std::size_t size() const override {
      called = 1;
      return 0;
    }
    Box3f bounds(std::size_t) const override {
      called = 2;
      return {};
    }
    Box3f bounds() const override {
      called = 3;
      return {};
    }
    bool intersect(const IntersectionContext&, const Ray3f&, std::size_t,
                   CollisionResult&) const override {
      called = 4;
      return false;
    }
    bool exclude(const IntersectionContext&, std::size_t) const override {
      called = 5;
      return false;
    }
  };
#if defined(__GNUC__) && !defined(_WIN32)
  // Two slots of the destructor come first in this ABI.
  const Probe probe{};
  using Slot = std::size_t (*)(const AccelerationModel*);
  const AccelerationModel* const model = &probe;
  const Slot* table = nullptr;
  std::memcpy(&table, static_cast<const void*>(model), sizeof table);
  table[2](&probe);
  EXPECT_EQ(probe.called, 1);
  using Excludes = bool (*)(const AccelerationModel*, const IntersectionContext&, std::size_t);
  const IntersectionContext ctx;
  Excludes excludes = nullptr;
  std::memcpy(&excludes, &table[6], sizeof excludes);
  excludes(&probe, ctx, 0);
  EXPECT_EQ(probe.called, 5);
  using Hits = bool (*)(const AccelerationModel*, const IntersectionContext&, const Ray3f&,
                        std::size_t, CollisionResult&);
  Hits hits = nullptr;
  std::memcpy(&hits, &table[5], sizeof hits);
  CollisionResult result;
  hits(&probe, ctx, Ray3f(), 0, result);
  EXPECT_EQ(probe.called, 4);
  using One = Box3f (*)(const AccelerationModel*, std::size_t);
  One one = nullptr;
  std::memcpy(&one, &table[3], sizeof one);
  one(&probe, 0);
  EXPECT_EQ(probe.called, 2);
#endif
}

}  // namespace
