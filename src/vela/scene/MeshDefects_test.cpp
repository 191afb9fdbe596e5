// What is wrong with meshes, each kind by a mesh that has it.
#include "vela/scene/MeshDefects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "support/SampleMeshes.h"

namespace {

using namespace vela::scene;
using tarn::Vec3f;
using Kind = MeshDefect::Kind;
using Points = std::vector<Vec3f>;

MeshReport reportOf(const Points& points, const std::vector<int>& counts,
                    const std::vector<int>& indices) {
  vela::MeshTopology mesh;
  mesh.points = points;
  mesh.vertsPerFace = counts;
  mesh.faceVertPointIndices = indices;
  return inspectMesh(mesh).value();
}

// The one defect that a mesh has.
void expectOnly(const MeshReport& report, Kind kind, std::size_t count, std::size_t first) {
  ASSERT_EQ(report.defects.size(), 1u)
      << describe(report.defects.empty() ? kind : report.defects[0].kind);
  EXPECT_EQ(report.defects[0].kind, kind) << describe(report.defects[0].kind);
  EXPECT_EQ(report.defects[0].count, count);
  EXPECT_EQ(report.defects[0].first, first);
}

const Points kSquare = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};

TEST(MeshDefects, AWholeMeshHasNone) {
  const MeshReport report = reportOf(kSquare, {3, 3}, {0, 1, 2, 0, 2, 3});
  EXPECT_TRUE(report.defects.empty());
  EXPECT_EQ(report.points, 4u);
  EXPECT_EQ(report.faces, 2u);
  EXPECT_EQ(report.faceVertices, 6u);
  EXPECT_EQ(report.triangles, 2u);
  EXPECT_EQ(report.quads, 0u);
  EXPECT_EQ(report.edges, 5u);
  EXPECT_EQ(report.borderEdges, 4u);
  EXPECT_EQ(report.crowdedEdges, 0u);
}

TEST(MeshDefects, EachKindIsFoundWithItsFirstPlace) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  expectOnly(reportOf(kSquare, {4, 2}, {0, 1, 2, 3, 0, 1}), Kind::smallFace, 1, 1);
  expectOnly(reportOf(kSquare, {4}, {0, 1, 2, 3, 0}), Kind::countsOff, 1, 4);
  expectOnly(reportOf(kSquare, {4, 3}, {0, 1, 2, 3, 0, 9, -1}), Kind::indexOutOfRange, 2, 5);
  expectOnly(reportOf(kSquare, {4, 4}, {0, 1, 2, 3, 2, 1, 1, 0}), Kind::pointTwice, 1, 1);
  expectOnly(reportOf({{0, 0, 0}, {1, 1, 0}, {1, 0, 0}, {0, 1, 0}}, {4}, {0, 1, 2, 3}),
             Kind::foldedFace, 1, 0);
  expectOnly(reportOf({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, {3}, {0, 1, 2}), Kind::flatFace, 1, 0);
  expectOnly(reportOf(kSquare, {4, 4}, {0, 1, 2, 3, 0, 1, 2, 3}), Kind::sameWayEdge, 4, 1);
  expectOnly(reportOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {5, 5, 5}}, {4}, {0, 1, 2, 3}),
             Kind::unusedPoint, 1, 4);
  const MeshReport bad =
      reportOf({{0, 0, 0}, {nan, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {4}, {0, 1, 2, 3});
  expectOnly(bad, Kind::badPoint, 1, 1);
}

TEST(MeshDefects, SidesOfALargePolygonThatCrossAreFoundInAnyPlane) {
  // A star drawn in one go crosses itself; the same corners in order do not.
  for (const int axis : {0, 1, 2}) {
    Points points;
    for (int i = 0; i < 5; ++i) {
      const float a = std::cos(1.2566371f * static_cast<float>(i)),
                  b = std::sin(1.2566371f * static_cast<float>(i));
      points.push_back(axis == 0 ? Vec3f(0, a, b) : axis == 1 ? Vec3f(b, 0, a) : Vec3f(a, b, 0));
    }
    expectOnly(reportOf(points, {5}, {0, 2, 4, 1, 3}), Kind::foldedFace, 1, 0);
    EXPECT_TRUE(reportOf(points, {5}, {0, 1, 2, 3, 4}).defects.empty());
  }
}

TEST(MeshDefects, PrimvarsMustFitTheirInterpolation) {
  const auto stage = ovo::Stage::createInMemory();
  ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/M"));
  prim.setPoints(kSquare);
  prim.createFaceVertexCountsAttr().set(ovo::Array<int>{4});
  prim.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2, 3});
  prim.createPrimvar(ovo::Token("displayColor"), "color3f[]", ovo::Token("vertex"))
      .set(ovo::Array<Vec3f>(kSquare));
  const double now = tarn::defaultTimeValue();
  EXPECT_TRUE(inspectMesh(prim, now)->defects.empty());
  EXPECT_EQ(inspectMesh(prim, now)->path, "/M");
  EXPECT_EQ(inspectMesh(prim, now)->bounds.max, Vec3f(1, 1, 0));

  prim.createPrimvar(ovo::Token("st"), "float2[]", ovo::Token("faceVarying"))
      .set(ovo::Array<tarn::Vec2f>(3));
  const MeshReport report = inspectMesh(prim, now).value();
  ASSERT_EQ(report.primvars.size(), 2u);
  expectOnly(report, Kind::primvarCount, 1, report.primvars[0].elements == 3 ? 0 : 1);
  for (const PrimvarReport& p : report.primvars) EXPECT_EQ(p.fits, p.elements == 4) << p.name;
}

// How many quads have halves that face opposite ways whichever diagonal cuts them.
std::size_t countFoldedQuads(const vela_test::SampleMesh& m) {
  std::size_t folded = 0, first = 0;
  for (const int n : m.counts) {
    const auto half = [&](std::size_t a, std::size_t b, std::size_t c) {
      const auto corner = [&](std::size_t k) {
        return tarn::Vec3d(m.points[static_cast<std::size_t>(m.indices[first + k])]);
      };
      return cross(corner(b) - corner(a), corner(c) - corner(a));
    };
    if (n == 4 && dot(half(0, 1, 2), half(0, 2, 3)) < 0 && dot(half(1, 2, 3), half(1, 3, 0)) < 0)
      ++folded;
    first += static_cast<std::size_t>(n);
  }
  return folded;
}

TEST(MeshDefects, OfTheSampleMeshesTheClosedOnesHaveNoneAndTheBrokenOnesSome) {
  for (const vela_test::SampleMesh& m : vela_test::sampleMeshes()) {
    SCOPED_TRACE(m.name);
    const MeshReport report = inspectMesh(vela_test::topologyOf(m)).value();
    EXPECT_EQ(report.faces, m.counts.size());
    // Of no points at all nothing is wrong, and the largest floats are finite.
    const bool isSound =
        m.name == "empty" || m.name == "largest floats" || m.name == "wider than the largest float";
    if ((m.broken || m.degenerate) && !isSound) {
      EXPECT_FALSE(report.defects.empty());
    }
    if (m.degenerate) {
      EXPECT_TRUE(
          std::any_of(report.defects.begin(), report.defects.end(), [](const MeshDefect& d) {
            return d.kind == Kind::flatFace || d.kind == Kind::pointTwice;
          }));
    }
    if (m.closed && !m.broken) {
      EXPECT_EQ(report.borderEdges, 0u);
      // The quads of the rough spheres are so bent that some fold over.
      std::size_t folded = 0;
      for (const MeshDefect& d : report.defects) {
        EXPECT_EQ(d.kind, Kind::foldedFace) << describe(d.kind);
        folded += d.count;
      }
      EXPECT_EQ(folded, m.convex ? 0 : countFoldedQuads(m));
    }
  }
}

TEST(MeshDefects, AStopGivesNoReport) {
  Work work;
  work.stop = [] { return true; };
  vela::MeshTopology mesh;
  mesh.points = kSquare;
  mesh.vertsPerFace = {4};
  mesh.faceVertPointIndices = {0, 1, 2, 3};
  EXPECT_FALSE(inspectMesh(mesh, work));
}

}  // namespace
