#include "vela/mesh/NearestPointQuery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include <nanoflann.hpp>

#include "support/SampleMeshes.h"

namespace {

using tarn::Box3f;
using tarn::Vec3f;
using vela::NearestPointQuery;

constexpr unsigned kSeed = 20261121;

Box3f boxOf(float min, float max) { return Box3f(Vec3f(min), Vec3f(max)); }

std::vector<Vec3f> randomPoints(std::mt19937& rng, std::size_t count, float min, float max) {
  std::uniform_real_distribution<float> coordinate(min, max);
  std::vector<Vec3f> out(count);
  for (auto& p : out) p = {coordinate(rng), coordinate(rng), coordinate(rng)};
  return out;
}

// The rules by lists, cell by cell, as a model that shares nothing with the tables under test.
struct Model {
  Box3f box;
  int n[3];
  float perUnit[3];
  std::vector<std::vector<unsigned>> cells;

  Model(const Box3f& b, float cellSize) : box(b) {
    for (std::size_t a = 0; a < 3; ++a)
      n[a] = std::max(1, static_cast<int>(std::floor((b.max[a] - b.min[a]) / cellSize)));
    while (static_cast<long long>(n[0]) * n[1] * n[2] > 1000000)
      for (int& count : n) count = count / 2 + 1;
    for (std::size_t a = 0; a < 3; ++a)
      perUnit[a] = static_cast<float>(n[a]) / (b.max[a] - b.min[a]);
  }
  int cell(const Vec3f& p, std::size_t a) const {
    return static_cast<int>(std::floor(std::fabs(p[a] - box.min[a]) * perUnit[a]));
  }
  void add(const std::vector<Vec3f>& points) {
    cells.assign(static_cast<std::size_t>(n[0] * n[1] * n[2]), {});
    for (unsigned i = 0; i < points.size(); ++i) {
      const int x = cell(points[i], 0), y = cell(points[i], 1), z = cell(points[i], 2);
      if (x < n[0] && y < n[1] && z < n[2])
        cells[static_cast<std::size_t>((x * n[1] + y) * n[2] + z)].push_back(i);
    }
  }
  std::vector<unsigned> near(const Vec3f& p) const {
    std::vector<unsigned> out;
    const int c[3] = {cell(p, 0), cell(p, 1), cell(p, 2)};
    for (int x = std::max(c[0] - 1, 0); x <= std::min(n[0] - 1, c[0] + 1); ++x)
      for (int y = std::max(c[1] - 1, 0); y <= std::min(n[1] - 1, c[1] + 1); ++y)
        for (int z = std::max(c[2] - 1, 0); z <= std::min(n[2] - 1, c[2] + 1); ++z)
          for (const unsigned i : cells[static_cast<std::size_t>((x * n[1] + y) * n[2] + z)])
            out.push_back(i);
    return out;
  }
};

// One point in the middle of every cell of a grid of 4 x 4 x 4 unit cells; point number = cell
// number.
std::vector<Vec3f> cellCentres() {
  std::vector<Vec3f> out;
  for (int x = 0; x < 4; ++x)
    for (int y = 0; y < 4; ++y)
      for (int z = 0; z < 4; ++z)
        out.emplace_back(static_cast<float>(x) + 0.5f, static_cast<float>(y) + 0.5f,
                         static_cast<float>(z) + 0.5f);
  return out;
}

TEST(NearestPointQuery, AnExtentSmallerThanTheCellSizeGetsOneCell) {
  const NearestPointQuery query(Box3f({0, 0, 0}, {10, 0.5f, 3}), 1.0f);
  EXPECT_EQ(query.cellCountX, 10);
  EXPECT_EQ(query.cellCountY, 1);
  EXPECT_EQ(query.cellCountZ, 3);
  EXPECT_EQ(query.cellsPerUnitY, 2.0f);
}

TEST(NearestPointQuery, TooManyCellsAreHalvedAndRaisedByOneUntilTheyFit) {
  const NearestPointQuery query(boxOf(0, 200), 1.0f);
  EXPECT_EQ(query.cellCountX, 51);
  EXPECT_EQ(query.cellCountY, 51);
  EXPECT_EQ(query.cellCountZ, 51);
  EXPECT_EQ(query.cellsPerUnitX, 51.0f / 200.0f);
  EXPECT_EQ(query.cellStart.size(), 132651u + 1u);
}

TEST(NearestPointQuery, ExactlyAMillionCellsAreKept) {
  const NearestPointQuery query(boxOf(0, 100), 1.0f);
  EXPECT_EQ(query.cellCountX, 100);
  EXPECT_EQ(query.cellCountZ, 100);
}

TEST(NearestPointQuery, APointOnTheMaximumFaceIsDropped) {
  NearestPointQuery query(boxOf(0, 4), 1.0f);
  const Vec3f points[] = {{4, 1, 1}, {1, 4, 1}, {1, 1, 4}, {1, 1, 1}};
  query.addPoints(points, 4);
  EXPECT_EQ(query.pointIds, std::vector<std::uint32_t>{3});
  std::vector<unsigned> ids;
  query.getNeighbours({3.9f, 1, 1}, ids);
  EXPECT_TRUE(ids.empty());
}

TEST(NearestPointQuery, AddingPointsTwiceKeepsTheSecondSet) {
  NearestPointQuery query(boxOf(0, 4), 1.0f);
  const std::vector<Vec3f> first(9, Vec3f(1.5f)), second(2, Vec3f(2.5f));
  query.addPoints(first.data(), first.size());
  query.addPoints(second.data(), second.size());
  std::vector<unsigned> ids;
  query.getNeighbours(Vec3f(1.5f), ids);
  EXPECT_EQ(ids, (std::vector<unsigned>{0, 1}));
  query.addPoints(nullptr, 0);
  query.getNeighbours(Vec3f(1.5f), ids);
  EXPECT_TRUE(ids.empty());
}

TEST(NearestPointQuery, InnerCellsSee27CellsAndCornerCellsEight) {
  NearestPointQuery query(boxOf(0, 4), 1.0f);
  const auto points = cellCentres();
  query.addPoints(points.data(), points.size());
  std::vector<unsigned> ids{7, 7, 7};
  query.getNeighbours(Vec3f(1.5f), ids);
  std::vector<unsigned> expected;
  for (unsigned x = 0; x < 3; ++x)
    for (unsigned y = 0; y < 3; ++y)
      for (unsigned z = 0; z < 3; ++z) expected.push_back((x * 4 + y) * 4 + z);
  EXPECT_EQ(ids, expected) << "x slowest, z fastest";
  query.getNeighbours(Vec3f(0.5f), ids);
  EXPECT_EQ(ids, (std::vector<unsigned>{0, 1, 4, 5, 16, 17, 20, 21}));
  query.getNeighbours(Vec3f(3.5f), ids);
  EXPECT_EQ(ids.size(), 8u);
  EXPECT_EQ(ids.back(), 63u);
}

TEST(NearestPointQuery, PointsOfACellComeInAscendingOrder) {
  NearestPointQuery query(boxOf(0, 2), 1.0f);
  const Vec3f points[] = {{1.5f, 0, 0}, {0.5f, 0, 0}, {1.6f, 0, 0}, {0.1f, 0, 0}, {1.1f, 0, 0}};
  query.addPoints(points, 5);
  std::vector<unsigned> ids;
  query.getNeighbours({0, 0, 0}, ids);
  EXPECT_EQ(ids, (std::vector<unsigned>{1, 3, 0, 2, 4}));
}

TEST(NearestPointQuery, APositionBelowTheMinimumCountsAsItsMirrorImage) {  // KEEP(mirrored-cell)
  NearestPointQuery query(boxOf(0, 8), 1.0f);
  const Vec3f points[] = {{5.5f, 0.5f, 0.5f}, {-5.5f, 0.5f, 0.5f}};
  query.addPoints(points, 2);
  std::vector<unsigned> ids;
  query.getNeighbours({-5.5f, 0.5f, 0.5f}, ids);
  EXPECT_EQ(ids, (std::vector<unsigned>{0, 1}));
  query.getNeighbours({-1.5f, 0.5f, 0.5f}, ids);
  EXPECT_TRUE(ids.empty());
}

TEST(NearestPointQuery, OneCellBeyondTheMaximumStillSeesTheLastOneAndNoFurther) {
  NearestPointQuery query(boxOf(0, 4), 1.0f);
  const auto points = cellCentres();
  query.addPoints(points.data(), points.size());
  std::vector<unsigned> ids;
  query.getNeighbours({4.5f, 1.5f, 1.5f}, ids);
  EXPECT_EQ(ids.size(), 9u);
  for (const unsigned id : ids) EXPECT_EQ(id / 16, 3u);
  for (const Vec3f p : {Vec3f(5, 1, 1), Vec3f(1, 5, 1), Vec3f(1, 1, 5)}) {
    ids = {1, 2, 3};
    query.getNeighbours(p, ids);
    EXPECT_TRUE(ids.empty()) << p;
  }
}

TEST(NearestPointQuery, BeforePointsAreAddedNothingIsFound) {
  const NearestPointQuery query(boxOf(0, 4), 1.0f);
  std::vector<unsigned> ids{1};
  query.getNeighbours(Vec3f(1), ids);
  EXPECT_TRUE(ids.empty());
  EXPECT_EQ(query.cellStart, std::vector<std::uint32_t>(65, 0xFFFFFFFFu));
  EXPECT_TRUE(query.pointIds.empty());
}

TEST(NearestPointQuery, WhatIsNoNumberFindsNothingAndIsNotKept) {
  const float nan = std::numeric_limits<float>::quiet_NaN(),
              inf = std::numeric_limits<float>::infinity();
  NearestPointQuery query(boxOf(0, 4), 1.0f);
  std::vector<unsigned> ids;
  const Vec3f points[] = {{nan, 1, 1},   {1, inf, 1}, {1, 1, -inf},
                          {1e30f, 1, 1}, {1, 1, 1},   {1, -3e9f, 1}};
  query.addPoints(points, 6);
  EXPECT_EQ(query.pointIds, std::vector<std::uint32_t>{4});
  for (const Vec3f& p : {points[0], points[1], points[2], points[3], points[5]}) {
    query.getNeighbours(p, ids);
    EXPECT_TRUE(ids.empty()) << p;
  }
}

TEST(NearestPointQuery, BoxesAndCellSizesThatMakeNoGridAreHarmless) {
  const float nan = std::numeric_limits<float>::quiet_NaN(),
              inf = std::numeric_limits<float>::infinity();
  const auto points = cellCentres();
  std::vector<unsigned> ids;
  for (const Box3f& box : {Box3f(), boxOf(1, 1), boxOf(2, 1), boxOf(-inf, inf), boxOf(nan, nan),
                           boxOf(0, 4), boxOf(-3e38f, 3e38f)})
    for (const float size : {1.0f, 0.0f, -1.0f, 1e-30f, nan, inf}) {
      NearestPointQuery query(box, size);
      EXPECT_GE(query.cellCountX, 1);
      EXPECT_LE(static_cast<long long>(query.cellCountX) * query.cellCountY * query.cellCountZ,
                1000000);
      query.addPoints(points.data(), points.size());
      for (const auto& p : points) query.getNeighbours(p, ids);
      EXPECT_LE(ids.size(), points.size());
    }
  NearestPointQuery flat(Box3f({0, 0, 0}, {4, 4, 0}), 1.0f);
  flat.addPoints(points.data(), points.size());
  EXPECT_TRUE(flat.pointIds.empty()) << "without extent along an axis there are no cells to be in";
}

TEST(NearestPointQuery, AgreesWithListsOfCellsOnRandomPoints) {
  SCOPED_TRACE(kSeed);
  std::mt19937 rng(kSeed);
  for (int round = 0; round < 40; ++round) {
    const float size = std::uniform_real_distribution<float>(0.3f, 3.0f)(rng);
    const Box3f box({-3, -1, 2}, {5, 4, std::uniform_real_distribution<float>(2.5f, 9.0f)(rng)});
    const auto points = randomPoints(rng, 500, -6, 10);
    Model model(box, size);
    model.add(points);
    NearestPointQuery query(box, size);
    query.addPoints(points.data(), points.size());
    std::vector<unsigned> ids;
    for (const auto& p : randomPoints(rng, 200, -12, 16)) {
      query.getNeighbours(p, ids);
      ASSERT_EQ(ids, model.near(p)) << p << " cell size " << size;
    }
  }
}

struct Cloud {
  std::vector<Vec3f> points;
  std::size_t kdtree_get_point_count() const { return points.size(); }
  float kdtree_get_pt(std::size_t i, std::size_t axis) const { return points[i][axis]; }
  template <class B>
  bool kdtree_get_bbox(B&) const {
    return false;
  }
};

TEST(NearestPointQuery, TheNearestPointIsAmongTheCandidatesOfAScanAndOfATree) {
  SCOPED_TRACE(kSeed);
  std::mt19937 rng(kSeed + 1);
  const Cloud cloud{randomPoints(rng, 20000, 0.0f, 9.99f)};
  nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3> tree(
      3, cloud);
  tree.buildIndex();
  NearestPointQuery query(boxOf(0, 10), 1.0f);
  query.addPoints(cloud.points.data(), cloud.points.size());
  std::vector<unsigned> ids;
  for (const auto& p : randomPoints(rng, 500, 0, 10)) {
    query.getNeighbours(p, ids);
    ASSERT_FALSE(ids.empty());
    const auto distance = [&](unsigned i) { return (cloud.points[i] - p).lengthSquared(); };
    const unsigned best = *std::min_element(
        ids.begin(), ids.end(), [&](unsigned a, unsigned b) { return distance(a) < distance(b); });
    float scanned = std::numeric_limits<float>::max();
    for (unsigned i = 0; i < cloud.points.size(); ++i) scanned = std::min(scanned, distance(i));
    ASSERT_EQ(distance(best), scanned);
    unsigned treeIndex = 0;
    float treeDistance = 0;
    const float at[3] = {p.x, p.y, p.z};
    ASSERT_EQ(tree.knnSearch(at, 1, &treeIndex, &treeDistance), 1u);
    ASSERT_EQ(distance(treeIndex), scanned);
  }
}

TEST(NearestPointQuery, FindsEveryPointOfEverySampleMesh) {
  for (const auto& mesh : vela_test::sampleMeshes()) {
    SCOPED_TRACE(mesh.name);
    Box3f box;
    for (const auto& p : mesh.points) box.extendBy(p);
    box.pad(Vec3f(std::max(box.size().x, 1e-3f)));
    NearestPointQuery query(box, box.size().x / 5);
    query.addPoints(mesh.points.data(), mesh.points.size());
    std::vector<unsigned> ids;
    for (unsigned i = 0; i < mesh.points.size(); ++i) {
      query.getNeighbours(mesh.points[i], ids);
      if (!mesh.broken) {
        EXPECT_NE(std::find(ids.begin(), ids.end(), i), ids.end()) << i;
      }
      EXPECT_EQ(std::set<unsigned>(ids.begin(), ids.end()).size(), ids.size())
          << "none comes twice";
    }
  }
}

TEST(NearestPointQuery, CopiesAndMovesCarryEverything) {
  NearestPointQuery query(boxOf(0, 4), 1.0f);
  const auto points = cellCentres();
  query.addPoints(points.data(), points.size());
  const NearestPointQuery copy = query;
  const NearestPointQuery moved = std::move(query);
  std::vector<unsigned> a, b;
  copy.getNeighbours(Vec3f(1.5f), a);
  moved.getNeighbours(Vec3f(1.5f), b);
  EXPECT_EQ(a.size(), 27u);
  EXPECT_EQ(a, b);
}

}  // namespace
