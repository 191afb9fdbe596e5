#include "vela/mesh/MeshNormals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "support/SampleMeshes.h"

namespace {

using tarn::Vec2f;
using tarn::Vec3f;
using vela::calcPointNormals;
using vela::calcVertexNormals;
using vela::getPosFromImplicitUV;
using vela::MeshTopology;
using vela_test::SampleMesh;
using vela_test::sampleMesh;
using vela_test::sampleMeshes;
using vela_test::topologyOf;
using Normals = ovo::Array<Vec3f>;

constexpr unsigned kSeed = 20261121;

// Bit for bit, but that one NaN is as good as another.
bool same(const Vec3f& a, const Vec3f& b) {
  for (std::size_t i = 0; i < 3; ++i)
    if (std::memcmp(&a[i], &b[i], sizeof(float)) != 0 && !(std::isnan(a[i]) && std::isnan(b[i])))
      return false;
  return true;
}
void expectSame(const Normals& a, const Normals& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i)
    EXPECT_TRUE(same(a[i], b[i])) << i << ": " << a[i] << " " << b[i];
}

bool pointNormals(const SampleMesh& m, Normals& out, bool keepSign, bool triangles = false,
                  bool quads = false, bool withCounts = true) {
  return calcPointNormals(m.points.size(), m.points.data(), m.indices.size(), m.indices.data(),
                          m.counts.size(), withCounts ? m.counts.data() : nullptr, triangles, quads,
                          out, keepSign);
}
bool vertexNormals(const SampleMesh& m, float threshold, Normals& out) {
  return calcVertexNormals(m.points.size(), m.points.data(), m.indices.size(), m.indices.data(),
                           m.counts.size(), m.counts.data(), threshold, out);
}

Vec3f ruleNormal(const SampleMesh& m, const std::vector<int>& face) {
  const auto P = [&](std::size_t k) { return m.points[static_cast<std::size_t>(face[k])]; };
  const std::size_t n = face.size();
  return n == 3 ? cross(P(1) - P(0), P(2) - P(0)) : cross(P(n - 1) - P(1), P(0) - P(2));
}

// Face by face, point by point, the way it is described; the faces that can be used come in order
// with their place.
struct Face {
  std::size_t first;
  std::vector<int> points;
};
std::vector<Face> usableFaces(const SampleMesh& m, bool shortFacesMoveOn) {
  std::vector<Face> out;
  std::size_t cursor = 0;
  for (const int count : m.counts) {
    const std::size_t n = count > 0 ? static_cast<std::size_t>(count) : 0;
    if (n >= 3 && cursor + n <= m.indices.size()) {
      Face face{cursor, {}};
      bool good = true;
      for (std::size_t k = 0; k < n; ++k) {
        const int p = m.indices[cursor + k];
        good = good && p >= 0 && static_cast<std::size_t>(p) < m.points.size();
        face.points.push_back(p);
      }
      if (good) out.push_back(face);
    }
    if (n >= 3 || shortFacesMoveOn) cursor += n;
  }
  return out;
}
Normals modelPointNormals(const SampleMesh& m, bool keepSign) {
  Normals out(m.points.size());
  const auto faces = usableFaces(m, true);
  for (std::size_t p = 0; p < m.points.size(); ++p) {
    Vec3f sum;
    float count = 0;
    for (const Face& face : faces)
      for (const int q : face.points)
        if (static_cast<std::size_t>(q) == p) {
          sum = sum + ruleNormal(m, face.points);
          count += 1.0f;
        }
    if (count > 0) out[p] = ((keepSign ? sum : -sum) / count).normalized();
  }
  return out;
}
Normals modelVertexNormals(const SampleMesh& m, float threshold) {
  Normals out(m.indices.size());
  const auto faces = usableFaces(m, false);
  const auto three = [&](const Face& f) {
    const auto P = [&](std::size_t k) { return m.points[static_cast<std::size_t>(f.points[k])]; };
    return cross(P(1) - P(0), P(2) - P(0));
  };
  const float limit = 1.0f - std::min(std::fabs(threshold), 2.0f);
  for (const Face& f : faces)
    for (std::size_t k = 0; k < f.points.size(); ++k) {
      const Vec3f unit = three(f).normalized();
      Vec3f sum;
      for (const Face& g : faces)
        for (const int q : g.points)
          if (q == f.points[k] && dot(unit, three(g)) >= limit) sum = sum + three(g);
      out[f.first + k] = sum == Vec3f() ? unit : sum.normalized();
    }
  return out;
}

TEST(CalcPointNormals, FailsOnEmptyInputAndLeavesTheOutputAlone) {
  const SampleMesh& cube = sampleMesh("cube");
  Normals out{{1, 2, 3}};
  const auto run = [&](std::size_t p, std::size_t v, std::size_t f) {
    return calcPointNormals(p, cube.points.data(), v, cube.indices.data(), f, cube.counts.data(),
                            true, true, out, true);
  };
  EXPECT_FALSE(run(0, 24, 6));
  EXPECT_FALSE(run(8, 0, 6));
  EXPECT_FALSE(run(8, 24, 0));
  EXPECT_EQ(out, (Normals{{1, 2, 3}}));
}

TEST(CalcPointNormals, AHintThatTheCountsDoNotBearOutFallsBackToTheCounts) {
  const SampleMesh& cube = sampleMesh("cube");
  Normals plain, hinted;
  EXPECT_TRUE(pointNormals(cube, plain, true));
  EXPECT_TRUE(pointNormals(cube, hinted, true, true, false));
  expectSame(plain, hinted);
  EXPECT_TRUE(pointNormals(cube, hinted, true, true, true))
      << "triangles fail the test, quadrilaterals pass it";
  expectSame(plain, hinted);
}

TEST(CalcPointNormals, AHintThatHoldsIsBelievedAndTheCountsAreNotRead) {
  // 12 indices are four triangles or three quadrilaterals: four faces make them triangles whatever
  // the counts say.
  const SampleMesh& m = sampleMesh("tetrahedron");
  const int nonsense[] = {4, 4, 4, 0};
  Normals plain, hinted;
  EXPECT_TRUE(pointNormals(m, plain, true));
  EXPECT_TRUE(calcPointNormals(4, m.points.data(), 12, m.indices.data(), 4, nonsense, true, false,
                               hinted, true));
  expectSame(plain, hinted);
  EXPECT_TRUE(pointNormals(m, hinted, true, true, false, false));
  expectSame(plain, hinted);
  const SampleMesh& cube = sampleMesh("cube");
  EXPECT_TRUE(pointNormals(cube, plain, true));
  EXPECT_TRUE(pointNormals(cube, hinted, true, false, true, false));
  expectSame(plain, hinted);
}

TEST(CalcPointNormals, WithoutAHintAndWithoutCountsItFailsWithZeroNormals) {
  Normals out{{1, 2, 3}};
  EXPECT_FALSE(pointNormals(sampleMesh("cube"), out, true, false, false, false));
  EXPECT_EQ(out, Normals(8));
  EXPECT_FALSE(pointNormals(sampleMesh("cube"), out, true, true, false, false));
  EXPECT_EQ(out, Normals(8));
}

TEST(CalcPointNormals, APointOfNoFaceGetsTheZeroNormal) {
  Normals out;
  EXPECT_TRUE(pointNormals(sampleMesh("unused points"), out, true));
  EXPECT_EQ(out, (Normals{{0, 0, 0}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 0}}));
}

TEST(CalcPointNormals, AUnitQuadSeenCounterClockwiseFromZLooksAlongZAndIsTurnedWithoutKeepSign) {
  Normals out;
  EXPECT_TRUE(pointNormals(sampleMesh("quad"), out, true));
  EXPECT_EQ(out, Normals(4, Vec3f(0, 0, 1)));
  EXPECT_TRUE(pointNormals(sampleMesh("quad"), out, false));
  EXPECT_EQ(out, Normals(4, Vec3f(0, 0, -1)));
}

TEST(CalcPointNormals, LargerFacesWeighMore) {
  SampleMesh m{
      "two", {{0, 0, 0}, {0, 0, -3}, {3, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {3, 3}, {0, 1, 2, 0, 3, 4}};
  Normals out;
  EXPECT_TRUE(pointNormals(m, out, true));
  // Nine parts of the first, whose normal is -y, and one of the second, whose normal is z.
  EXPECT_TRUE(same(out[0], Vec3f(0, -9, 1).normalized())) << out[0];
}

TEST(CalcPointNormals, ShortFacesAreStillMovedPast) {
  Normals out;
  EXPECT_TRUE(pointNormals(sampleMesh("short faces between"), out, true));
  EXPECT_EQ(out[0], Vec3f(0, 0, 1));
  EXPECT_EQ(out[4], Vec3f(0, 0, 1)) << "the last face reads its own indices";
}

TEST(CalcPointNormals, EverySampleMeshAgreesWithTheModelUnderBothSigns) {
  for (const auto& m : sampleMeshes())
    for (const bool keepSign : {true, false}) {
      SCOPED_TRACE(m.name);
      Normals out;
      const bool done = pointNormals(m, out, keepSign);
      EXPECT_EQ(done, !m.points.empty() && !m.indices.empty() && !m.counts.empty());
      if (done) expectSame(out, modelPointNormals(m, keepSign));
    }
}

TEST(CalcPointNormals, AnySoupAgreesWithTheModelBitForBit) {
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<float> place(-1.0f, 1.0f);
  const float odd[] = {0.0f,
                       -0.0f,
                       1e-23f,
                       1e-40f,
                       3e19f,
                       -1e30f,
                       std::numeric_limits<float>::infinity(),
                       std::numeric_limits<float>::quiet_NaN()};
  for (int round = 0; round < 400; ++round) {
    // All triangles, all quads or a mixture; some points unused, some indices bad, some coordinates
    // at the ends of what floats are.
    const int kind = round % 3;
    SampleMesh m;
    const int pointCount = 1 + round % 23;
    for (int p = 0; p < pointCount; ++p) {
      m.points.emplace_back(place(random), place(random), place(random));
      if (round % 5 == 0) m.points.back()[random() % 3] = odd[random() % 8];
    }
    for (int f = 0; f < 1 + round % 17; ++f) {
      m.counts.push_back(kind == 0 ? 3 : kind == 1 ? 4 : static_cast<int>(random() % 8));
      for (int k = 0; k < m.counts.back(); ++k)
        m.indices.push_back(static_cast<int>(random() % static_cast<unsigned>(pointCount)));
    }
    if (m.indices.empty()) continue;
    if (round % 4 == 0)
      m.indices[random() % m.indices.size()] =
          round % 8 ? pointCount : std::numeric_limits<int>::min();
    for (const bool keepSign : {true, false})
      for (const bool hinted : {true, false}) {
        Normals out;
        ASSERT_TRUE(pointNormals(m, out, keepSign, hinted && kind == 0, hinted && kind == 1));
        expectSame(out, modelPointNormals(m, keepSign));
      }
  }
}

TEST(CalcPointNormals, HintsOnEverySampleMeshStayInBounds) {
  for (const auto& m : sampleMeshes())
    for (int flags = 0; flags < 8; ++flags) {
      SCOPED_TRACE(m.name);
      Normals out;
      if (pointNormals(m, out, true, flags & 1, flags & 2, flags & 4)) {
        EXPECT_EQ(out.size(), m.points.size());
      }
    }
}

TEST(CalcPointNormals, NormalsOfConvexMeshesPointOutward) {
  for (const auto& m : sampleMeshes()) {
    if (!m.convex) continue;
    SCOPED_TRACE(m.name);
    Vec3f centre;
    for (const auto& p : m.points) centre += p;
    centre /= static_cast<float>(m.points.size());
    Normals out;
    ASSERT_TRUE(pointNormals(m, out, true));
    for (std::size_t i = 0; i < out.size(); ++i) {
      EXPECT_GT(dot(out[i], m.points[i] - centre), 0.0f);
      EXPECT_NEAR(out[i].length(), 1.0f, 1e-6f);
    }
  }
}

TEST(CalcPointNormals, TurningAndMovingAMeshTurnsItsNormals) {
  // A quarter turn is exact: x to y, y to -x.
  const SampleMesh& torus = sampleMesh("torus");
  SampleMesh turned = torus;
  for (auto& p : turned.points) p = Vec3f(-p.y, p.x, p.z);
  Normals a, b;
  ASSERT_TRUE(pointNormals(torus, a, true));
  ASSERT_TRUE(pointNormals(turned, b, true));
  for (std::size_t i = 0; i < a.size(); ++i) {
    const Vec3f expected(-a[i].y, a[i].x, a[i].z);
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(b[i][k], expected[k], 1e-6f);
  }
}

TEST(CalcVertexNormals, FailsOnEmptyInput) {
  const SampleMesh& cube = sampleMesh("cube");
  Normals out{{1, 2, 3}};
  const auto run = [&](std::size_t p, std::size_t v, std::size_t f) {
    return calcVertexNormals(p, cube.points.data(), v, cube.indices.data(), f, cube.counts.data(),
                             0.5f, out);
  };
  EXPECT_FALSE(run(0, 24, 6));
  EXPECT_FALSE(run(8, 0, 6));
  EXPECT_FALSE(run(8, 24, 0));
  EXPECT_EQ(out, (Normals{{1, 2, 3}}));
}

TEST(CalcVertexNormals, ThresholdZeroKeepsACubeFlat) {
  const SampleMesh& cube = sampleMesh("cube");
  Normals out;
  ASSERT_TRUE(vertexNormals(cube, 0, out));
  for (std::size_t f = 0; f < 6; ++f) {
    const auto P = [&](std::size_t k) {
      return cube.points[static_cast<std::size_t>(cube.indices[f * 4 + k])];
    };
    for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(out[f * 4 + k], cross(P(1) - P(0), P(2) - P(0)));
  }
}

TEST(CalcVertexNormals, ThresholdTwoSumsTheThreeFacesOfEveryCorner) {
  const SampleMesh& cube = sampleMesh("cube");
  for (const float threshold : {2.0f, -2.0f, 7.0f, std::numeric_limits<float>::infinity()}) {
    Normals out;
    ASSERT_TRUE(vertexNormals(cube, threshold, out));
    for (std::size_t i = 0; i < 24; ++i) {
      const Vec3f outward =
          (cube.points[static_cast<std::size_t>(cube.indices[i])] - Vec3f(0.5f)) * 2.0f;
      EXPECT_EQ(out[i], outward.normalized());
    }
  }
}

TEST(CalcVertexNormals, ANeighboursAreaEntersTheTest) {  // KEEP(weighted-threshold)
  // Two faces at 45 degrees. With threshold 0 a small neighbour fails; a large one passes.
  SampleMesh m{"hinge",
               {{0, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0.5f, 0, 0.5f}, {0, 0, 0}},
               {3, 3},
               {0, 1, 2, 1, 0, 3}};
  Normals out;
  ASSERT_TRUE(vertexNormals(m, 0, out));
  const Vec3f flat = out[2];
  EXPECT_TRUE(same(out[0], flat));
  m.points[3] = {8, 0, 8};
  ASSERT_TRUE(vertexNormals(m, 0, out));
  EXPECT_FALSE(same(out[0], flat)) << "the large neighbour is smoothed over";
  EXPECT_TRUE(same(out[2], flat)) << "its corner away from the hinge stays";
}

TEST(CalcVertexNormals, AfterAShortFaceTheIndicesAreReadShifted) {  // KEEP(short-face-cursor)
  // The second face has two vertices; the third reads 4, 5, 6, the indices of the second and the
  // first of its own.
  SampleMesh m{"shifted", {}, {3, 2, 3}, {0, 1, 2, 3, 4, 5, 6, 7}};
  for (int i = 0; i < 8; ++i)
    m.points.emplace_back(static_cast<float>(i), static_cast<float>(i * i),
                          static_cast<float>(i % 3));
  Normals out;
  ASSERT_TRUE(vertexNormals(m, 0, out));
  const auto& P = m.points;
  EXPECT_TRUE(same(out[3], cross(P[4] - P[3], P[5] - P[3]).normalized())) << out[3];
  EXPECT_EQ(out[6], Vec3f());
  EXPECT_EQ(out[7], Vec3f());
}

TEST(CalcVertexNormals, EverySampleMeshAgreesWithTheModelAtEveryThreshold) {
  for (const auto& m : sampleMeshes())
    for (const float threshold :
         {0.0f, 0.1f, 0.5f, 1.0f, -1.5f, 2.0f, std::numeric_limits<float>::quiet_NaN()}) {
      SCOPED_TRACE(m.name);
      Normals out;
      const bool done = vertexNormals(m, threshold, out);
      EXPECT_EQ(done, !m.points.empty() && !m.indices.empty() && !m.counts.empty());
      if (!done) continue;
      if (std::isnan(threshold))
        EXPECT_EQ(out.size(), m.indices.size());
      else
        expectSame(out, modelVertexNormals(m, threshold));
    }
}

TEST(GetPosFromImplicitUV, OneVertexIsThatPointAndTwoALine) {
  MeshTopology t;
  t.points = {{1, 2, 3}, {3, 2, 1}};
  t.vertsPerFace = {1, 2};
  t.faceVertPointIndices = {1, 0, 1};
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {0.3f, 0.7f}), Vec3f(3, 2, 1));
  EXPECT_EQ(getPosFromImplicitUV(t, 1, {0.25f, 0.7f}), Vec3f(1.5f, 2, 2.5f));
}

TEST(GetPosFromImplicitUV, BeyondTheDiagonalATriangleIsMirrored) {
  const MeshTopology t = topologyOf(sampleMesh("triangle"));
  const Vec3f a = getPosFromImplicitUV(t, 0, {0.8f, 0.6f}),
              b = getPosFromImplicitUV(t, 0, {0.2f, 0.4f});
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-6f);
  EXPECT_NEAR(b.x, 0.4f, 1e-6f);
  EXPECT_NEAR(b.y, 0.4f, 1e-6f);
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {0, 0}), Vec3f(0, 0, 0));
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {1, 0}), Vec3f(2, 0, 0));
}

TEST(GetPosFromImplicitUV, AQuadIsBilinear) {
  const MeshTopology t = topologyOf(sampleMesh("saddle"));
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {0, 0}), Vec3f(0, 0, 0));
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {1, 0}), Vec3f(1, 0, 1));
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {1, 1}), Vec3f(1, 1, 0));
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {0, 1}), Vec3f(0, 1, 1));
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {0.5f, 0.5f}), Vec3f(0.5f, 0.5f, 0.5f));
}

TEST(GetPosFromImplicitUV, APolygonRunsAroundItsBorderAndInwardToItsMiddle) {
  const SampleMesh& m = sampleMesh("pentagon");
  const MeshTopology t = topologyOf(m);
  for (std::size_t k = 0; k < 5; ++k) {
    const float u = static_cast<float>(k) / 5.0f + 0.1f;
    const Vec3f middle = (m.points[k] + m.points[(k + 1) % 5]) * 0.5f,
                p = getPosFromImplicitUV(t, 0, {u, 0});
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(p[i], middle[i], 1e-5f);
  }
  EXPECT_EQ(getPosFromImplicitUV(t, 0, {0.3f, 1}), Vec3f(1, 1.4f, 0));
}

TEST(GetPosFromImplicitUV, OnAPolygonUOfOneReadsTheIndexBehindTheFace) {  // KEEP(unwrapped-corner)
  SampleMesh m = sampleMesh("pentagon");
  m.points.push_back({10, 20, 30});
  m.counts.push_back(3);
  for (const int p : {5, 0, 1}) m.indices.push_back(p);
  EXPECT_EQ(getPosFromImplicitUV(topologyOf(m), 0, {1, 0}), Vec3f(10, 20, 30));
  EXPECT_EQ(getPosFromImplicitUV(topologyOf(sampleMesh("pentagon")), 0, {1, 0}), Vec3f(0, 0, 0))
      << "at the end of the array the border closes";
}

TEST(GetPosFromImplicitUV, FacesThatCannotBeUsedGiveTheZeroVector) {
  for (const auto& m : sampleMeshes()) {
    SCOPED_TRACE(m.name);
    const MeshTopology t = topologyOf(m);
    const float nan = std::numeric_limits<float>::quiet_NaN(),
                inf = std::numeric_limits<float>::infinity();
    for (int face = -2; face < static_cast<int>(m.counts.size()) + 2; ++face)
      for (const Vec2f uv : {Vec2f(0, 0), Vec2f(1, 1), Vec2f(0.3f, 0.4f), Vec2f(-5, 3),
                             Vec2f(1e30f, 2), Vec2f(nan, 0), Vec2f(-inf, inf)}) {
        const Vec3f p = getPosFromImplicitUV(t, face, uv);
        const bool exists = face >= 0 && face < static_cast<int>(m.counts.size());
        if (!exists || (m.counts[static_cast<std::size_t>(face)] >= 3 &&
                        !m.usable(static_cast<std::size_t>(face)))) {
          EXPECT_EQ(p, Vec3f());
        }
      }
    EXPECT_EQ(getPosFromImplicitUV(t, std::numeric_limits<int>::min(), {0, 0}), Vec3f());
    EXPECT_EQ(getPosFromImplicitUV(t, std::numeric_limits<int>::max(), {0, 0}), Vec3f());
  }
}

TEST(GetPosFromImplicitUV, PositionsLieInsideConvexFaces) {
  SCOPED_TRACE(kSeed);
  std::mt19937 rng(kSeed);
  std::uniform_real_distribution<float> unit(0, 0.999f);
  for (const char* name : {"triangle", "quad", "pentagon", "hexagonal prism"}) {
    const SampleMesh& m = sampleMesh(name);
    const MeshTopology t = topologyOf(m);
    const Vec3f normal =
        ruleNormal(m, std::vector<int>(m.indices.begin(), m.indices.begin() + m.counts[0]));
    for (int round = 0; round < 300; ++round) {
      const Vec3f p = getPosFromImplicitUV(t, 0, {unit(rng), unit(rng)});
      for (std::size_t k = 0; k < static_cast<std::size_t>(m.counts[0]); ++k) {
        const Vec3f a = m.points[static_cast<std::size_t>(m.indices[k])];
        const Vec3f b = m.points[static_cast<std::size_t>(
            m.indices[(k + 1) % static_cast<std::size_t>(m.counts[0])])];
        EXPECT_GE(dot(cross(b - a, p - a), normal), -1e-4f) << name;
      }
    }
  }
}

TEST(MeshNormals, ArraysThatKnowTheirSizesGiveTheSame) {
  for (const SampleMesh& m : sampleMeshes()) {
    SCOPED_TRACE(m.name);
    for (const bool keepSign : {true, false}) {
      Normals one, other;
      const bool is = pointNormals(m, one, keepSign);
      EXPECT_EQ(calcPointNormals(m.points, m.indices, m.counts, other, keepSign), is);
      expectSame(one, other);
    }
    Normals one, other;
    const bool is = vertexNormals(m, 0.4f, one);
    EXPECT_EQ(calcVertexNormals(m.points, m.indices, m.counts, 0.4f, other), is);
    expectSame(one, other);
  }
}

}  // namespace
