#include "vela/mesh/MeshSample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "support/SampleMeshes.h"
#include "support/SharedData.h"
#include "vela/mesh/MeshBuilders.h"
#include "vela/mesh/MeshTopology.h"

namespace {

using ovo::MeshPrim;
using ovo::Path;
using ovo::Stage;
using ovo::Token;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::MeshSample;
using vela_test::SampleMesh;
using vela_test::sampleMesh;
using vela_test::sampleMeshes;

const double kDefault = tarn::defaultTimeValue();

// A scene of one mesh; the stage lives as long as the prim.
MeshPrim primOf(const SampleMesh& m, const char* scheme = "none") {
  MeshPrim prim = MeshPrim::define(Stage::createInMemory(), Path("/Mesh"));
  prim.setPoints(m.points);
  prim.createFaceVertexCountsAttr().set(m.counts);
  prim.createFaceVertexIndicesAttr().set(m.indices);
  prim.setSubdivisionScheme(scheme);
  return prim;
}
bool sampleAll(MeshSample& out, const MeshPrim& prim, double time = kDefault, int level = 0) {
  return out.sampleMeshPrim(prim, time, 0, level, true, true, true, true, true, true, Token());
}
MeshPrim textPrim(const std::string& body) {
  std::string error;
  const auto stage = Stage::openText("#usda 1.0\ndef Mesh \"Mesh\" {\n" + body + "\n}\n", &error);
  EXPECT_TRUE(stage) << error;
  return stage ? MeshPrim(stage->getPrimAtPath(Path("/Mesh"))) : MeshPrim();
}
const char* const kTwoFaces = R"(
  point3f[] points = [(0,0,0), (1,0,0), (1,1,0), (0,1,0), (2,0,0)]
  int[] faceVertexCounts = [4, 3]
  int[] faceVertexIndices = [0, 1, 2, 3, 1, 4, 2]
  uniform token subdivisionScheme = "none"
)";

TEST(MeshSample, IsEmptyAtFirst) {
  const MeshSample m;
  EXPECT_EQ(m.nPoints() + m.nFaces() + m.nVerts(), 0u);
  EXPECT_TRUE(tarn::isDefaultTime(m.time));
  EXPECT_EQ(m.tag, 0);
  EXPECT_TRUE(m.bounds.isEmpty());
  EXPECT_EQ(m.xform, tarn::Mat4d());
  EXPECT_EQ(m.inverseXform, tarn::Mat4d());
  EXPECT_TRUE(m.xformIsIdentity);
  EXPECT_FALSE(m.allTriangles || m.allQuads || m.reverseWinding);
  EXPECT_TRUE(m.subdivisionScheme.isEmpty());
  EXPECT_EQ(m.subdivisionLevel, 0);
}

TEST(MeshSample, TheFlagsOfAddTriAndAddQuadComeFromEachOther) {  // KEEP(flags-from-each-other)
  MeshSample m;
  m.addTri(0, 1, 2);
  EXPECT_TRUE(m.allTriangles);
  m.addQuad(0, 1, 2, 3);
  EXPECT_TRUE(m.allTriangles);
  EXPECT_FALSE(m.allQuads);
  MeshSample q;
  q.addQuad(0, 1, 2, 3);
  q.addTri(4, 5, 6);
  EXPECT_TRUE(q.allQuads);
  EXPECT_FALSE(q.allTriangles);
  EXPECT_EQ(q.nFaces(), 2u);
  EXPECT_EQ(q.nVerts(), 7u);
  EXPECT_EQ(q.vertsPerFace()[1], 3);
  EXPECT_EQ(q.faceVertPointIndices()[6], 6);
}

TEST(MeshSample, ReservingMoreThanAnArrayCanHoldIsALengthError) {
  MeshSample m;
  m.addTri(0, 1, 2);
  EXPECT_THROW(m.reserveFaceVertSpace(static_cast<std::size_t>(-1), 0), std::length_error);
  EXPECT_THROW(m.reserveFaceVertSpace(0, static_cast<std::size_t>(-1)), std::length_error);
  m.reserveFaceVertSpace(100, 400);
  const auto* before = m.vertsPerFace();
  for (int i = 0; i < 99; ++i) m.addQuad(0, 1, 2, 3);
  EXPECT_EQ(m.vertsPerFace(), before) << "no further allocation";
  m.reserveFaceVertSpace(1, 1);
  EXPECT_EQ(m.nFaces(), 100u);
}

TEST(MeshSample, APrimWithPointsButNoIndicesYieldsFalse) {
  MeshPrim prim = MeshPrim::define(Stage::createInMemory(), Path("/Mesh"));
  MeshSample m;
  EXPECT_FALSE(sampleAll(m, prim)) << "no points";
  prim.setPoints({{0, 0, 0}, {1, 0, 0}});
  EXPECT_FALSE(sampleAll(m, prim)) << "no faces";
  EXPECT_EQ(m.nPoints(), 2u);
  prim.createFaceVertexCountsAttr().set(ovo::Array<int>{3});
  EXPECT_FALSE(sampleAll(m, prim)) << "no indices";
  prim.createFaceVertexIndicesAttr().set(ovo::Array<int>{});
  EXPECT_FALSE(sampleAll(m, prim)) << "an empty list of indices";
  EXPECT_FALSE(sampleAll(m, MeshPrim()));
  EXPECT_FALSE(m.sampleMeshPrimFaceTopology(MeshPrim(), 1.0));
  EXPECT_FALSE(m.sampleMeshPrimFaceTopology(prim, 3.0));
  EXPECT_EQ(m.time, 3.0);
}

TEST(MeshSample, SamplingSetsEveryField) {
  MeshPrim prim = primOf(sampleMesh("cube"), "catmullClark");
  tarn::Mat4d local;
  local.translate(1, 2, 3).scale(2, 2, 2);
  prim.setLocalXform(local);
  MeshSample m;
  m.bounds.extendBy(Vec3f(1));
  m.allQuads = m.allTriangles = m.reverseWinding = true;
  m.subdivisionLevel = 7;
  EXPECT_TRUE(
      m.sampleMeshPrim(prim, 4.0, 42, 0, false, false, false, false, false, false, Token()));
  EXPECT_EQ(m.tag, 42);
  EXPECT_EQ(m.time, 4.0);
  EXPECT_TRUE(m.bounds.isEmpty());
  EXPECT_EQ(m.xform, local);
  EXPECT_FALSE(m.xformIsIdentity);
  EXPECT_EQ(m.inverseXform, local.inverse());
  EXPECT_FALSE(m.allQuads || m.allTriangles || m.reverseWinding);
  EXPECT_EQ(m.subdivisionScheme, Token("catmullClark"));
  EXPECT_TRUE(m.isSubdMesh());
  EXPECT_EQ(m.subdivisionLevel, 0);
  EXPECT_EQ(m.nPoints(), 8u);
  EXPECT_EQ(m.nFaces(), 6u);
  EXPECT_TRUE(m.uvs.empty() && m.normals.empty());
  prim.setLocalXform(tarn::Mat4d());
  EXPECT_TRUE(
      m.sampleMeshPrim(prim, m.time, 1, 0, false, false, false, false, false, false, Token()));
  EXPECT_TRUE(m.xformIsIdentity);
  EXPECT_EQ(m.inverseXform, tarn::Mat4d());
  EXPECT_EQ(m.time, 4.0) << "its own time may be handed in";
  prim.setSubdivisionScheme("none");
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_FALSE(m.isSubdMesh());
}

TEST(MeshSample, AnEarlyReturnKeepsPointsFacesAndPointData) {  // KEEP(points-outlive-reset)
  MeshPrim prim = primOf(sampleMesh("cube"));
  prim.createAttr(ovo::tokens().accelerations, "vector3f[]").set(ovo::Array<Vec3f>{{1, 2, 3}});
  prim.createAttr(ovo::tokens().velocities, "vector3f[]").set(ovo::Array<Vec3f>{{4, 5, 6}});
  MeshSample m;
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_EQ(m.normals.size(), 24u);
  EXPECT_EQ(m.pointVectors.size(), 1u);
  EXPECT_FALSE(sampleAll(m, MeshPrim()));
  EXPECT_EQ(m.nPoints(), 8u);
  EXPECT_EQ(m.nFaces(), 6u);
  EXPECT_EQ(m.pointData, (ovo::Array<Vec3f>{{1, 2, 3}}));
  EXPECT_TRUE(m.normals.empty() && m.pointVectors.empty());
  EXPECT_TRUE(tarn::isDefaultTime(m.time));
  EXPECT_TRUE(m.sampleMeshPrim(primOf(sampleMesh("quad")), kDefault, 0, 0, true, true, true, true,
                               false, false, Token()));
  EXPECT_EQ(m.pointData.size(), 1u) << "without its flag it is not even emptied";
  EXPECT_TRUE(m.pointVectors.empty());
}

TEST(MeshSample, TheShortConstructorReadsPrimvarsAndNoPointData) {
  MeshPrim prim = primOf(sampleMesh("quad"));
  prim.createPrimvar("st", "texCoord2f[]", "vertex")
      .set(ovo::Array<Vec2f>{{0, 0}, {1, 0}, {1, 1}, {0, 1}});
  prim.createPrimvar("displayColor", "color3f[]", "constant").set(ovo::Array<Vec3f>{{1, 0, 0}});
  prim.createAttr(ovo::tokens().velocities, "vector3f[]").set(ovo::Array<Vec3f>(4));
  const MeshSample m(prim, kDefault);
  EXPECT_EQ(m.uvs.size(), 4u);
  EXPECT_EQ(m.vectors, (ovo::Array<Vec3f>(4, Vec3f(1, 0, 0))));
  EXPECT_EQ(m.normals.size(), 4u);
  EXPECT_TRUE(m.pointVectors.empty() && m.pointData.empty());
  EXPECT_EQ(m.tag, 0);
  const MeshSample n(prim, kDefault, 5, 0, false, false, false, false, true, true, Token());
  EXPECT_EQ(n.pointVectors.size(), 4u);
  EXPECT_TRUE(n.uvs.empty() && n.normals.empty() && n.vectors.empty());
  EXPECT_EQ(n.tag, 5);
}

TEST(MeshSample, PrimvarsOfEveryInterpolationComeOutPerFaceVertex) {
  const auto uvs = [](const std::string& interpolation, const std::string& values,
                      const std::string& more = "") {
    const MeshPrim prim = textPrim(std::string(kTwoFaces) + "texCoord2f[] primvars:st = " + values +
                                   " (interpolation = \"" + interpolation + "\")\n" + more);
    MeshSample m;
    EXPECT_TRUE(sampleAll(m, prim));
    std::vector<float> out;
    for (const auto& uv : std::as_const(m.uvs)) out.push_back(uv.x);
    return out;
  };
  using F = std::vector<float>;
  EXPECT_EQ(uvs("faceVarying", "[(0,0),(1,0),(2,0),(3,0),(4,0),(5,0),(6,0)]"),
            (F{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(uvs("faceVarying", "[(0,0),(1,0)]"), (F{0, 1})) << "kept whatever the count";
  EXPECT_EQ(uvs("vertex", "[(0,0),(1,0),(2,0),(3,0),(4,0)]"), (F{0, 1, 2, 3, 1, 4, 2}));
  EXPECT_EQ(uvs("varying", "[(0,0),(1,0),(2,0),(3,0),(4,0)]"), (F{0, 1, 2, 3, 1, 4, 2}));
  EXPECT_EQ(uvs("uniform", "[(7,0),(8,0)]"), (F{7, 7, 7, 7, 8, 8, 8}));
  EXPECT_EQ(uvs("constant", "[(9,0)]"), F(7, 9));
  EXPECT_EQ(uvs("constant", "[(9,0),(1,0)]"), F(7, 9)) << "the first one everywhere";
  EXPECT_EQ(uvs("vertex", "[(5,0),(1,0)]"), F(7, 5));
  EXPECT_EQ(uvs("uniform", "[(6,0)]"), F(7, 6));
  EXPECT_EQ(uvs("vertex", "[]"), F());
  EXPECT_EQ(
      uvs("faceVarying", "[(0,0),(1,0),(2,0)]", "int[] primvars:st:indices = [2,1,0,0,2,2,1]"),
      (F{2, 1, 0, 0, 2, 2, 1}));
  EXPECT_EQ(uvs("vertex", "[(0,0),(10,0)]", "int[] primvars:st:indices = [1,0,0,1,1]"),
            (F{10, 0, 0, 10, 0, 10, 0}));
  EXPECT_EQ(uvs("uniform", "[(0,0),(10,0)]", "int[] primvars:st:indices = [1,0]"),
            (F{10, 10, 10, 10, 0, 0, 0}));
  EXPECT_EQ(uvs("vertex", "[(0,0)]", "int[] primvars:st:indices = [1,0,0,1,1]"), F())
      << "indices out of range: no value";
}

TEST(MeshSample, TheNamesOfTextureCoordinatesAreTriedInTheirOrder) {
  const std::vector<std::string> order = {"primvars:st",    "primvars:uv",  "primvars:map1",
                                          "primvars:UVMap", "primvars:st0", "primars:st1",
                                          "primvars:uv0"};
  for (std::size_t first = 0; first < order.size(); ++first) {
    std::string body = kTwoFaces;
    for (std::size_t k = first; k < order.size(); ++k)
      body += "texCoord2f[] " + order[k] + " = [(" + std::to_string(k) +
              ",0)] (interpolation = \"constant\")\n";
    MeshSample m;
    EXPECT_TRUE(sampleAll(m, textPrim(body)));
    ASSERT_EQ(m.uvs.size(), 7u) << order[first];
    EXPECT_EQ(m.uvs[0].x, static_cast<float>(first));
  }
}

TEST(MeshSample, UVsComeFromTheNameWithTheMissingLetter) {  // KEEP(primars-st1)
  MeshPrim prim = primOf(sampleMesh("quad"));
  prim.createPrimvar("st1", "texCoord2f[]", "constant").set(ovo::Array<Vec2f>{{1, 1}});
  MeshSample m;
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_TRUE(m.uvs.empty()) << "the name with all its letters is none of them";
  prim.createPrimvar("primars:st1", "texCoord2f[]", "constant").set(ovo::Array<Vec2f>{{2, 2}});
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_EQ(m.uvs, (ovo::Array<Vec2f>(4, Vec2f(2, 2))));
  EXPECT_TRUE(m.sampleMeshPrim(prim, kDefault, 0, 0, true, false, false, false, false, false,
                               Token("st1")));
  EXPECT_EQ(m.uvs, (ovo::Array<Vec2f>(4, Vec2f(1, 1))));
  EXPECT_TRUE(m.sampleMeshPrim(prim, kDefault, 0, 0, true, false, false, false, false, false,
                               Token("nowhere")));
  EXPECT_TRUE(m.uvs.empty()) << "a given name is the only one";
}

TEST(MeshSample, AThirdTextureCoordinateIsReadWithTheUVs) {
  MeshPrim prim = primOf(sampleMesh("quad"));
  prim.createPrimvar("uv_w", "float[]", "uniform").set(ovo::Array<float>{0.5f});
  MeshSample m;
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_EQ(m.uvExtra, ovo::Array<float>(4, 0.5f));
  prim.createPrimvar("st_w", "float[]", "uniform").set(ovo::Array<float>{0.75f});
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_EQ(m.uvExtra, ovo::Array<float>(4, 0.75f));
}

TEST(MeshSample, ScalarsStayEmptyWithAValidPrimvar) {  // KEEP(scalars-stay-empty)
  MeshPrim prim = primOf(sampleMesh("quad"));
  prim.createPrimvar("displayOpacity", "float[]", "constant").set(ovo::Array<float>{0.5f});
  MeshSample m;
  m.scalars = {1, 2, 3};
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_TRUE(m.scalars.empty());
}

TEST(MeshSample, ConstantPrimvarsOfThePrimsAboveApplyWhereThePrimHasNone) {
  const auto stage = Stage::openText(R"(#usda 1.0
def Xform "Top" {
  color3f[] primvars:displayColor = [(0, 1, 0)] (interpolation = "constant")
  def Mesh "Mesh" {
    point3f[] points = [(0,0,0), (1,0,0), (1,1,0)]
    int[] faceVertexCounts = [3]
    int[] faceVertexIndices = [0, 1, 2]
  }
}
)");
  ASSERT_TRUE(stage);
  const MeshPrim prim(stage->getPrimAtPath(Path("/Top/Mesh")));
  EXPECT_EQ(MeshSample(prim, kDefault).vectors, ovo::Array<Vec3f>(3, Vec3f(0, 1, 0)));
  prim.createPrimvar("Cd", "color3f[]", "constant").set(ovo::Array<Vec3f>{{1, 0, 0}});
  EXPECT_EQ(MeshSample(prim, kDefault).vectors[0], Vec3f(1, 0, 0))
      << "its own second name comes before";
}

TEST(MeshSample, NormalsOfAnotherCountAreComputedAnew) {
  MeshPrim prim = primOf(sampleMesh("cube"));
  prim.setNormals({{9, 9, 9}, {8, 8, 8}}, "faceVarying");
  MeshSample m;
  EXPECT_TRUE(sampleAll(m, prim));
  ASSERT_EQ(m.normals.size(), 24u);
  for (std::size_t i = 0; i < 24; ++i) {
    const Vec3f p = m.points[static_cast<std::size_t>(m.faceVertPointIndices()[i])];
    EXPECT_EQ(m.normals[i], ((p - Vec3f(0.5f)) * 2.0f).normalized());
  }
  prim.setNormals(ovo::Array<Vec3f>(8, Vec3f(0, 0, 1)), "vertex");
  EXPECT_TRUE(sampleAll(m, prim));
  EXPECT_EQ(m.normals, ovo::Array<Vec3f>(24, Vec3f(0, 0, 1))) << "those that fit stay";
  prim.setNormals({{9, 9, 9}, {8, 8, 8}}, "faceVarying");
  EXPECT_TRUE(m.sampleMeshPrim(prim, kDefault, 0, 0, true, false, true, true, true, true, Token()));
  EXPECT_TRUE(m.normals.empty());
}

TEST(MeshSample, ComputedNormalsPointOutwardForBothOrientations) {
  for (const auto& shape : sampleMeshes()) {
    if (!shape.convex) continue;
    SCOPED_TRACE(shape.name);
    Vec3f centre;
    for (const auto& p : shape.points) centre += p;
    centre /= static_cast<float>(shape.points.size());
    SampleMesh turned = shape;
    std::size_t first = 0;
    for (const int n : turned.counts) {
      std::reverse(turned.indices.begin() + static_cast<std::ptrdiff_t>(first),
                   turned.indices.begin() + static_cast<std::ptrdiff_t>(first) + n);
      first += static_cast<std::size_t>(n);
    }
    for (const int level : {0, 2})
      for (const bool leftHanded : {false, true}) {
        MeshPrim prim = primOf(leftHanded ? turned : shape, "catmullClark");
        if (leftHanded) prim.setOrientation("leftHanded");
        MeshSample m;
        ASSERT_TRUE(sampleAll(m, prim, kDefault, level));
        ASSERT_EQ(m.normals.size(), m.nVerts());
        EXPECT_FALSE(m.reverseWinding);
        if (level == 0) {
          EXPECT_EQ(m.faceVertPointIndices()[0], (leftHanded ? turned : shape).indices[0])
              << "the stored winding stays";
        }
        for (std::size_t i = 0; i < m.nVerts(); ++i)
          EXPECT_GT(dot(m.normals[i],
                        m.points[static_cast<std::size_t>(m.faceVertPointIndices()[i])] - centre),
                    0.0f);
      }
  }
}

TEST(
    MeshSample,
    RefiningTakesDataAlongAndComputesNormals) {  // KEEP(level-stays-zero) KEEP(uvextra-not-refined)
  MeshPrim prim = primOf(sampleMesh("cube"), "catmullClark");
  prim.createPrimvar("st", "texCoord2f[]", "vertex").set(ovo::Array<Vec2f>(8, Vec2f(0.5f, 0.25f)));
  prim.createPrimvar("st_w", "float[]", "constant").set(ovo::Array<float>{3});
  prim.createPrimvar("displayColor", "color3f[]", "uniform")
      .set(ovo::Array<Vec3f>{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {3, 3, 3}, {4, 4, 4}, {5, 5, 5}});
  prim.createAttr(ovo::tokens().velocities, "vector3f[]")
      .set(ovo::Array<Vec3f>(24, Vec3f(1, 2, 3)));
  prim.createAttr(ovo::tokens().accelerations, "vector3f[]").set(ovo::Array<Vec3f>(24));
  prim.setNormals(ovo::Array<Vec3f>(24, Vec3f(0, 0, 1)), "faceVarying");
  prim.createAttr(ovo::tokens().cornerIndices, "int[]").set(ovo::Array<int>{0});
  prim.createAttr(ovo::tokens().cornerSharpnesses, "float[]").set(ovo::Array<float>{10});
  MeshSample m;
  ASSERT_TRUE(sampleAll(m, prim, kDefault, 2));
  EXPECT_EQ(m.nFaces(), 96u);
  EXPECT_EQ(m.nPoints(), 98u);
  EXPECT_EQ(m.subdivisionLevel, 0);
  EXPECT_EQ(m.points[0], Vec3f(0, 0, 0)) << "the sharp corner stays";
  EXPECT_NE(m.points[6], Vec3f(1, 1, 1));
  EXPECT_EQ(m.cornerIndices, ovo::Array<int>{0});
  ASSERT_EQ(m.uvs.size(), m.nVerts());
  EXPECT_EQ(m.uvExtra, ovo::Array<float>(24, 3.0f)) << "that of the unrefined faces";
  ASSERT_EQ(m.vectors.size(), m.nVerts());
  ASSERT_EQ(m.pointVectors.size(), m.nVerts());
  EXPECT_EQ(m.pointData.size(), 24u) << "as stored";
  for (std::size_t i = 0; i < m.nVerts(); ++i) {
    EXPECT_NEAR(m.uvs[i].x, 0.5f, 1e-6f);
    EXPECT_NEAR(m.vectors[i].x, static_cast<float>(i / 64), 1e-5f)
        << "one colour a face, with seams between them";
  }
  ASSERT_EQ(m.normals.size(), m.nVerts());
  EXPECT_LT(m.normals[0].z, 0.0f) << "the stored ones all looked along z";
  ASSERT_TRUE(m.sampleMeshPrim(prim, kDefault, 0, 2, true, false, true, true, true, true, Token()));
  EXPECT_TRUE(m.normals.empty());
  ASSERT_TRUE(sampleAll(m, prim, kDefault, 0));
  EXPECT_EQ(m.nFaces(), 6u);
  EXPECT_TRUE(m.cornerIndices.empty());
  prim.setSubdivisionScheme("none");
  ASSERT_TRUE(sampleAll(m, prim, kDefault, 3));
  EXPECT_EQ(m.nFaces(), 6u) << "a polygon mesh is not refined";
  prim.setSubdivisionScheme("loop");
  prim.setNormals({{9, 9, 9}}, "faceVarying");
  ASSERT_TRUE(sampleAll(m, prim, kDefault, 1));
  EXPECT_EQ(m.nFaces(), 6u) << "quadrilaterals cannot be refined by triangles";
  EXPECT_EQ(m.normals.size(), 24u);
}

TEST(MeshSample, AnimatedMeshesAreReadAtTheirTime) {
  MeshPrim prim = primOf(sampleMesh("quad"));
  const SampleMesh& quad = sampleMesh("quad");
  auto moved = quad.points;
  for (auto& p : moved) p.z += 4;
  const auto stage = prim.getStage();
  MeshPrim animated = MeshPrim::define(stage, Path("/Animated"));
  animated.setPoints(quad.points, 1);
  animated.setPoints(moved, 3);
  animated.createFaceVertexCountsAttr().set(quad.counts);
  animated.createFaceVertexIndicesAttr().set(quad.indices);
  animated.setSubdivisionScheme("none");
  tarn::Mat4d a, b;
  b.translate(8, 0, 0);
  animated.setLocalXform(a, 1);
  animated.setLocalXform(b, 3);
  MeshSample m;
  for (const auto& [time, z] :
       {std::pair{0.0, 0.0f}, {1.0, 0.0f}, {2.0, 2.0f}, {3.0, 4.0f}, {9.0, 4.0f}}) {
    ASSERT_TRUE(sampleAll(m, animated, time));
    EXPECT_EQ(m.points[0].z, z);
    EXPECT_EQ(m.xform[12], 2.0 * static_cast<double>(z));
    EXPECT_EQ(m.time, time);
  }
  ASSERT_TRUE(sampleAll(m, animated)) << "at the default time the first sample counts";
  EXPECT_EQ(m.points[0].z, 0.0f);
}

TEST(MeshSample,
     WritingPointsWithoutBoundsWritesThemAndReturnsFalse) {  // KEEP(points-without-bounds)
  MeshPrim prim = MeshPrim::define(Stage::createInMemory(), Path("/Mesh"));
  MeshSample m;
  EXPECT_FALSE(m.setMeshPrimPointsAndBounds(prim, true)) << "no points";
  EXPECT_FALSE(prim.getAttr(ovo::tokens().points).hasAuthoredValue());
  m.points = {{1, 2, 3}, {-1, 5, 0}};
  EXPECT_FALSE(m.setMeshPrimPointsAndBounds(prim, false));
  ovo::Array<Vec3f> read;
  EXPECT_TRUE(prim.getPoints(read));
  EXPECT_EQ(read, m.points);
  EXPECT_FALSE(prim.getAttr(ovo::tokens().extent).hasAuthoredValue());
  EXPECT_TRUE(m.setMeshPrimPointsAndBounds(prim, true));
  EXPECT_TRUE(prim.getAttr(ovo::tokens().extent).get(read));
  EXPECT_EQ(read, (ovo::Array<Vec3f>{{-1, 2, 0}, {1, 5, 3}}));
  MeshPrim invalid;
  EXPECT_FALSE(m.setMeshPrimPointsAndBounds(invalid, true));
}

TEST(MeshSample, WritingFacesIsTrueWhenEitherListWasWritten) {
  MeshPrim prim = MeshPrim::define(Stage::createInMemory(), Path("/Mesh")), invalid;
  MeshSample m;
  EXPECT_FALSE(m.setMeshPrimFaceTopology(prim));
  m.addTri(0, 1, 2);
  m.addQuad(3, 4, 5, 6);
  EXPECT_TRUE(m.setMeshPrimFaceTopology(prim));
  EXPECT_FALSE(m.setMeshPrimFaceTopology(invalid));
  MeshSample back;
  EXPECT_TRUE(back.sampleMeshPrimFaceTopology(prim, kDefault));
  EXPECT_EQ(back.nFaces(), 2u);
  EXPECT_EQ(back.nVerts(), 7u);
  EXPECT_EQ(back.faceVertPointIndices()[6], 6);
}

TEST(MeshSample, EachFlagWritesItsOwnVectorsBeforeScalars) {
  MeshSample m;
  vela::buildCube(m, tarn::Box3d(Vec3d(0), Vec3d(1)), 1, 1, true, true, true, true, true);
  m.uvExtra.assign(24, 0.5f);
  m.vectors.assign(24, Vec3f(1, 2, 3));
  m.scalars.assign(24, 0.25f);
  m.pointVectors.assign(8, Vec3f(4));
  m.pointData.assign(8, Vec3f(5));
  const std::vector<std::set<std::string>> names = {
      {"primvars:st", "primvars:st_w"}, {"normals"},    {"primvars:displayColor"},
      {"primvars:displayOpacity"},      {"velocities"}, {"accelerations"}};
  for (int flags = 0; flags < 64; ++flags) {
    MeshPrim prim = MeshPrim::define(Stage::createInMemory(), Path("/Mesh"));
    const auto on = [&](int i) { return (flags >> i & 1) != 0; };
    EXPECT_EQ(m.setMeshPrimProperties(prim, on(0), on(1), on(2), on(3), on(4), on(5)), flags != 0);
    std::set<std::string> expected, found;
    for (int i = 0; i < 6; ++i)
      if (on(i))
        expected.insert(names[static_cast<std::size_t>(i)].begin(),
                        names[static_cast<std::size_t>(i)].end());
    for (const Token& name : prim.getAttrNames()) found.insert(name.asString());
    EXPECT_EQ(found, expected);
  }
  MeshPrim prim = MeshPrim::define(Stage::createInMemory(), Path("/Mesh")), invalid;
  EXPECT_FALSE(MeshSample().setMeshPrimProperties(prim, true, true, true, true, true, true))
      << "nothing to write";
  EXPECT_FALSE(m.setMeshPrimProperties(invalid, true, true, true, true, true, true));
}

TEST(MeshSample, UVsAndNormalsGetTheInterpolationThatTheirCountFits) {
  for (const auto& [count, word] : {std::pair{7, "faceVarying"},
                                    {5, "vertex"},
                                    {2, "uniform"},
                                    {1, "constant"},
                                    {3, "faceVarying"}}) {
    MeshPrim prim = textPrim(kTwoFaces);
    MeshSample m;
    ASSERT_TRUE(sampleAll(m, prim));
    m.uvs.assign(static_cast<std::size_t>(count), Vec2f(0.5f, 1));
    m.uvExtra.assign(static_cast<std::size_t>(count), 2.0f);
    m.normals.assign(static_cast<std::size_t>(count), Vec3f(0, 1, 0));
    EXPECT_TRUE(m.setMeshPrimProperties(prim, true, true, false, false, false, false));
    EXPECT_EQ(prim.getPrimvar("st").interpolation(), Token(word));
    EXPECT_EQ(prim.getNormalsPrimvar().interpolation(), Token(word));
    EXPECT_EQ(prim.getPrimvar("st_w").interpolation(), Token("faceVarying"));
  }
}

TEST(MeshSample, WhatWasIndexedIsWrittenFlat) {
  MeshPrim prim = textPrim(std::string(kTwoFaces) + R"(
    texCoord2f[] primvars:st = [(0,0),(1,0)] (interpolation = "faceVarying")
    int[] primvars:st:indices = [1,0,0,1,1,0,0]
    normal3f[] primvars:normals = [(0,0,1),(0,1,0)] (interpolation = "uniform")
    int[] primvars:normals:indices = [1,0]
  )");
  MeshSample m;
  ASSERT_TRUE(sampleAll(m, prim));
  EXPECT_EQ(m.normals[0], Vec3f(0, 1, 0));
  for (std::size_t i = 0; i < 7; ++i) {
    m.uvs[i] = Vec2f(static_cast<float>(i), 7);
    m.normals[i] = Vec3f(1, 0, 0);
  }
  ASSERT_TRUE(m.setMeshPrimProperties(prim, true, true, false, false, false, false));
  MeshSample back;
  ASSERT_TRUE(sampleAll(back, prim));
  EXPECT_EQ(back.uvs, m.uvs);
  EXPECT_EQ(back.normals, m.normals);
}

TEST(MeshSample, WhatIsWrittenExportedAndOpenedAgainIsTheSame) {
  const auto folder = std::filesystem::temp_directory_path() /
                      ("vela_mesh_sample_" + std::to_string(std::random_device()()));
  std::filesystem::create_directory(folder);
  for (const char* file : {"a.usda", "b.usdc"})
    for (const double time : {kDefault, 5.0})
      for (const auto& shape : sampleMeshes()) {
        if (shape.points.empty() || shape.indices.empty() || shape.counts.empty()) continue;
        SCOPED_TRACE(shape.name);
        MeshSample m;
        ASSERT_TRUE(sampleAll(m, primOf(shape)));
        m.time = time;
        const std::size_t n = m.nVerts();
        for (std::size_t i = 0; i < n; ++i) {
          m.uvs.push_back(Vec2f(0.1f * static_cast<float>(i), 1.0f / static_cast<float>(i + 1)));
          m.uvExtra.push_back(static_cast<float>(i) / 3);
          m.vectors.push_back(Vec3f(static_cast<float>(i), 0.3f, 1e-20f));
          m.scalars.push_back(static_cast<float>(i) * 0.7f);
        }
        m.normals = m.vectors;
        m.pointVectors = m.points;
        m.pointData = m.points;
        const auto stage = Stage::createInMemory();
        MeshPrim prim = MeshPrim::define(stage, Path("/World/Mesh"));
        prim.setSubdivisionScheme("none");
        EXPECT_TRUE(m.setMeshPrimFaceTopology(prim));
        m.setMeshPrimPointsAndBounds(prim, true);
        EXPECT_TRUE(m.setMeshPrimProperties(prim, true, true, true, true, true, true));
        std::string error;
        ASSERT_TRUE(stage->exportTo((folder / file).string(), &error)) << error;
        const auto again = Stage::open((folder / file).string(), &error);
        ASSERT_TRUE(again) << error;
        MeshSample back;
        const MeshPrim read(again->getPrimAtPath(Path("/World/Mesh")));
        ASSERT_TRUE(sampleAll(back, read, time));
        EXPECT_TRUE(std::equal(m.vertsPerFace(), m.vertsPerFace() + m.nFaces(), back.vertsPerFace(),
                               back.vertsPerFace() + back.nFaces()));
        EXPECT_TRUE(std::equal(m.faceVertPointIndices(), m.faceVertPointIndices() + n,
                               back.faceVertPointIndices(),
                               back.faceVertPointIndices() + back.nVerts()));
        EXPECT_EQ(back.uvs, m.uvs);
        EXPECT_EQ(back.uvExtra, m.uvExtra);
        EXPECT_EQ(back.normals, m.normals);
        EXPECT_EQ(back.vectors, m.vectors);
        ovo::Array<float> opacity;
        EXPECT_TRUE(read.getPrimvar("displayOpacity").computeFlattened(opacity, time));
        EXPECT_EQ(opacity, m.scalars);
        ASSERT_EQ(back.nPoints(), m.nPoints());
        ASSERT_EQ(back.pointVectors.size(), m.nPoints());
        ASSERT_EQ(back.pointData.size(), m.nPoints());
        for (std::size_t i = 0; i < m.nPoints(); ++i)
          for (std::size_t k = 0; k < 3; ++k) {
            if (std::isnan(m.points[i][k])) continue;
            EXPECT_EQ(back.points[i][k], m.points[i][k]);
            EXPECT_EQ(back.pointVectors[i][k], m.pointVectors[i][k]);
            EXPECT_EQ(back.pointData[i][k], m.pointData[i][k]);
          }
      }
  std::filesystem::remove_all(folder);
}

TEST(MeshSample, EverySampleMeshIsReadRefinedAndMeasuredWithoutFault) {
  for (const auto& shape : sampleMeshes())
    for (const char* scheme : {"none", "catmullClark", "loop", "bilinear"})
      for (const int level : {0, 1, 2}) {
        SCOPED_TRACE(shape.name);
        MeshPrim prim = primOf(shape, scheme);
        prim.createPrimvar("st", "texCoord2f[]", "vertex")
            .set(ovo::Array<Vec2f>(shape.points.size(), Vec2f(1, 2)));
        prim.createPrimvar("displayColor", "color3f[]", "uniform")
            .set(ovo::Array<Vec3f>(shape.counts.size(), Vec3f(1)));
        MeshSample m;
        EXPECT_EQ(sampleAll(m, prim, kDefault, level),
                  !shape.points.empty() && !shape.indices.empty());
        if (shape.points.empty() || shape.indices.empty()) continue;
        if (!shape.broken) {
          EXPECT_EQ(m.uvs.size(), m.nVerts());
          EXPECT_EQ(m.vectors.size(), m.nVerts());
          EXPECT_EQ(m.normals.size(), m.nVerts());
        }
        const vela::MeshTopology t(prim, kDefault);
        EXPECT_EQ(t.points.size(), shape.points.size());
        EXPECT_EQ(t.vertsPerFace.size(), shape.counts.size());
        if (!shape.counts.empty()) {
          EXPECT_EQ(t.faceVertPointIndices.size(), shape.indices.size());
        }
      }
}

TEST(MeshTopologyOfAPrim, StopsAtTheFirstArrayThatIsEmpty) {
  MeshPrim prim = MeshPrim::define(Stage::createInMemory(), Path("/Mesh"));
  prim.createFaceVertexCountsAttr().set(ovo::Array<int>{3});
  prim.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2});
  EXPECT_TRUE(vela::MeshTopology(prim, kDefault).vertsPerFace.empty()) << "no points";
  prim.setPoints(ovo::Array<Vec3f>(3));
  EXPECT_EQ(vela::MeshTopology(prim, kDefault).faceVertPointIndices.size(), 3u);
  prim.createFaceVertexCountsAttr().set(ovo::Array<int>{});
  EXPECT_TRUE(vela::MeshTopology(prim, kDefault).faceVertPointIndices.empty()) << "no counts";
  EXPECT_TRUE(vela::MeshTopology(MeshPrim(), kDefault).points.empty());
}

TEST(MeshSample, CopiesShareAndMovesCarryEverything) {
  MeshSample m;
  ASSERT_TRUE(sampleAll(m, primOf(sampleMesh("cube"))));
  m.tag = 3;
  MeshSample copy = m;
  EXPECT_EQ(copy.pointLocations(), m.pointLocations()) << "shared until written";
  copy.points[0] = Vec3f(7);
  EXPECT_NE(copy.points, m.points);
  const MeshSample moved = std::move(copy);
  EXPECT_EQ(moved.tag, 3);
  EXPECT_EQ(moved.nFaces(), 6u);
  EXPECT_EQ(moved.points[0], Vec3f(7));
}

TEST(MeshSample, EveryMeshOfTheSharedScenesIsSampledWithoutFault) {
  requireSharedData("usd");
  std::size_t files = 0, meshes = 0, sampled = 0, refined = 0;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(vela_test::sharedDataPath("usd"))) {
    const std::string suffix = entry.path().extension().string();
    if (suffix != ".usd" && suffix != ".usda" && suffix != ".usdc" && suffix != ".usdz") continue;
    const auto stage = Stage::open(entry.path().string());
    if (!stage) continue;
    ++files;
    std::vector<ovo::Prim> prims;
    stage->findDescendentPrims({Path("/")}, prims);
    for (const ovo::Prim& p : prims) {
      const MeshPrim prim(p);
      if (!prim.isValid()) continue;
      SCOPED_TRACE(entry.path().filename().string() + " " + prim.getPath().asString());
      ++meshes;
      for (const double time : {kDefault, stage->getStartTimeCode(), stage->getEndTimeCode()}) {
        MeshSample m;
        if (!sampleAll(m, prim, time)) continue;
        ++sampled;
        EXPECT_GT(m.nVerts(), 0u);
        EXPECT_EQ(m.normals.size(), m.nVerts());
        EXPECT_TRUE(m.scalars.empty());
        // Every primvar has one of the counts that the rules allow.
        const ovo::Primvar st = prim.getPrimvar("st");
        if (!m.uvs.empty() && st.isValid() && st.interpolation() != Token("faceVarying")) {
          EXPECT_EQ(m.uvs.size(), m.nVerts());
        }
        if (std::isnan(time) && m.nVerts() < 20000 && sampleAll(m, prim, time, 1))
          refined += m.isSubdMesh() ? 1u : 0u;
        EXPECT_EQ(m.normals.size(), m.nVerts());
      }
    }
  }
  EXPECT_GT(files, 200u);
  EXPECT_GT(meshes, 400u);
  EXPECT_GT(sampled, 1000u);
  EXPECT_GT(refined, 10u);
  RecordProperty("meshes", static_cast<int>(meshes));
  RecordProperty("samples", static_cast<int>(sampled));
}

// KEEP(cut-off-run): a face that reaches past the indices has the values of those that are there.
TEST(MeshSample, ValuesOfAFaceThatIsCutOffStayWithItsIndices) {
  const MeshPrim prim = textPrim(R"(
  point3f[] points = [(0,0,0), (1,0,0), (1,1,0), (0,1,0), (2,0,0)]
  int[] faceVertexCounts = [3, 4, 3]
  int[] faceVertexIndices = [0,1,2, 1,4]
  uniform token subdivisionScheme = "none"
  texCoord2f[] primvars:st = [(7,0), (8,0), (9,0)] (interpolation = "uniform")
)");
  MeshSample mesh;
  ASSERT_TRUE(sampleAll(mesh, prim));
  const ovo::Array<Vec2f> expected = {{7, 0}, {7, 0}, {7, 0}, {8, 0}, {8, 0}};
  EXPECT_EQ(mesh.uvs, expected);
}

}  // namespace
