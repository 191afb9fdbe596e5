#include "ovo/MeshPrim.h"

#include <gtest/gtest.h>

#include <limits>

#include "ovo/Stage.h"
#include "ovo/detail/TestScene.h"

namespace {

using ovo::Array;
using ovo::MeshPrim;
using ovo::Token;
using ovo_test::sceneOf;
using Box = tarn::Box3f;
using Points = Array<tarn::Vec3f>;

TEST(MeshPrim, IsDefinedOnAStage) {
  const auto stage = ovo::Stage::createInMemory();
  const MeshPrim mesh = MeshPrim::define(stage, "/World/Mesh");
  EXPECT_TRUE(mesh.isValid());
  EXPECT_EQ(mesh.getTypeName(), Token("Mesh"));
  EXPECT_FALSE(MeshPrim::define(nullptr, "/A").isValid());
  EXPECT_FALSE(MeshPrim::define(stage, "no path").isValid());
  EXPECT_FALSE(MeshPrim(stage->definePrim("/X", "Xform")).isValid());
  EXPECT_FALSE(MeshPrim(stage->getPrimAtPath("/none")).isValid());
}

TEST(MeshPrim, GivesBackPointsAndFaces) {
  const auto stage = ovo::Stage::createInMemory();
  const MeshPrim mesh = MeshPrim::define(stage, "/M");
  Points points{{7, 7, 7}};
  Array<int> counts{9}, indices{9};
  bool reverse = true;
  EXPECT_FALSE(mesh.getPoints(points));
  EXPECT_FALSE(mesh.getFaceTopology(counts, indices, reverse));
  EXPECT_FALSE(reverse);
  EXPECT_EQ(points.size(), 1u);
  EXPECT_EQ(counts, Array<int>({9}));

  EXPECT_TRUE(mesh.setPoints({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}));
  EXPECT_TRUE(mesh.createFaceVertexCountsAttr().set(Array<int>{3}));
  EXPECT_FALSE(mesh.getFaceTopology(counts, indices, reverse)) << "indices are missing";
  EXPECT_EQ(counts, Array<int>({9}));
  EXPECT_TRUE(mesh.createFaceVertexIndicesAttr().set(Array<int>{0, 1, 2}));
  EXPECT_TRUE(mesh.getPoints(points) && mesh.getFaceTopology(counts, indices, reverse));
  EXPECT_EQ(points, (Points{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}));
  EXPECT_EQ(counts, Array<int>({3}));
  EXPECT_EQ(indices, Array<int>({0, 1, 2}));
}

TEST(MeshPrim, StoredWindingStaysWhateverTheOrientation) {
  const auto stage = sceneOf(R"(def Mesh "M" { uniform token orientation = "leftHanded"
    int[] faceVertexCounts = [3]
    int[] faceVertexIndices = [2, 1, 0] })");
  Array<int> counts, indices;
  bool reverse = true;
  EXPECT_TRUE(MeshPrim(stage->getPrimAtPath("/M")).getFaceTopology(counts, indices, reverse));
  EXPECT_FALSE(reverse);
  EXPECT_EQ(indices, Array<int>({2, 1, 0}));
}

TEST(MeshPrim, BoxesComeFromThePointsOrTheExtent) {
  const auto stage = sceneOf(R"(
def Mesh "M" { point3f[] points = [(1, 2, 3), (-1, 5, 0)]
  float3[] extent = [(0, 0, 0), (1, 1, 1)] }
def Mesh "Bad" { point3f[] points = [(1, 2, 3)]
  float3[] extent = [(0, 0, 0)] }
def Mesh "Empty" {}
def Mesh "Moving" { point3f[] points.timeSamples = {1: [(1, 0, 0)], 3: [(3, 0, 0)]} })");
  const auto boxOf = [&](const char* path, double time, bool useExtent) {
    return MeshPrim(stage->getPrimAtPath(path)).getBoundsBox(time, useExtent);
  };
  const double none = tarn::defaultTimeValue();
  EXPECT_EQ(boxOf("/M", none, false), Box({-1, 2, 0}, {1, 5, 3}));
  EXPECT_EQ(boxOf("/M", none, true), Box({0, 0, 0}, {1, 1, 1}));
  EXPECT_EQ(boxOf("/Bad", none, true), Box({1, 2, 3}, {1, 2, 3}));
  EXPECT_TRUE(boxOf("/Empty", none, true).isEmpty() && boxOf("/Empty", none, false).isEmpty());
  EXPECT_EQ(boxOf("/Moving", none, false), Box({1, 0, 0}, {1, 0, 0}));
  EXPECT_EQ(boxOf("/Moving", 2, false), Box({2, 0, 0}, {2, 0, 0}));
  EXPECT_TRUE(MeshPrim().getBoundsBox().isEmpty());
}

TEST(MeshPrim, NaNCoordinatesCountOnTheirOtherAxesOnly) {
  const auto stage = ovo::Stage::createInMemory();
  const MeshPrim mesh = MeshPrim::define(stage, "/M");
  const float nan = std::numeric_limits<float>::quiet_NaN();
  mesh.setPoints({{nan, 5, 0}, {1, 2, 3}});
  EXPECT_EQ(mesh.getBoundsBox(tarn::defaultTimeValue(), false), Box({1, 2, 0}, {1, 5, 3}));
}

TEST(MeshPrim, WriteExtentWritesTheBoxOfThePoints) {
  const auto stage = ovo::Stage::createInMemory();
  const MeshPrim mesh = MeshPrim::define(stage, "/M");
  EXPECT_FALSE(mesh.writeExtent());
  EXPECT_FALSE(mesh.getAttr("extent").isValid());
  mesh.setPoints({{1, 2, 3}, {-1, 5, 0}});
  EXPECT_TRUE(mesh.writeExtent());
  Points extent;
  EXPECT_TRUE(mesh.getAttr("extent").get(extent));
  EXPECT_EQ(extent, (Points{{-1, 2, 0}, {1, 5, 3}}));
  EXPECT_EQ(mesh.getAttr("extent").typeName(), Token("float3[]"));
  EXPECT_FALSE(MeshPrim().writeExtent());
}

TEST(MeshPrim, SchemeAndOrientationHaveFallbacks) {
  const auto stage = ovo::Stage::createInMemory();
  const MeshPrim mesh = MeshPrim::define(stage, "/M");
  EXPECT_EQ(mesh.getSubdivisionScheme(), Token("catmullClark"));
  EXPECT_EQ(mesh.getOrientation(), Token("rightHanded"));
  EXPECT_FALSE(mesh.isDoubleSided());
  EXPECT_TRUE(mesh.setSubdivisionScheme("none") && mesh.setOrientation("leftHanded"));
  EXPECT_EQ(mesh.getSubdivisionScheme(), Token("none"));
  EXPECT_EQ(mesh.getOrientation(), Token("leftHanded"));
  EXPECT_EQ(MeshPrim().getSubdivisionScheme(), Token());
}

TEST(MeshPrim, NormalsComeFromThePrimvarFirst) {
  const auto stage = sceneOf(R"(
def Mesh "Both" { normal3f[] normals = [(0, 0, 1)]
  normal3f[] primvars:normals = [(1, 0, 0), (0, 1, 0)] ( interpolation = "uniform" )
  int[] primvars:normals:indices = [1, 0, 1] }
def Mesh "Plain" { normal3f[] normals = [(0, 0, 1)] }
def Mesh "None" {})");
  Points normals;
  Token interpolation;
  EXPECT_TRUE(MeshPrim(stage->getPrimAtPath("/Both")).getNormals(normals, interpolation));
  EXPECT_EQ(normals, (Points{{0, 1, 0}, {1, 0, 0}, {0, 1, 0}}));
  EXPECT_EQ(interpolation, Token("uniform"));
  EXPECT_TRUE(MeshPrim(stage->getPrimAtPath("/Plain")).getNormals(normals, interpolation));
  EXPECT_EQ(interpolation, Token("vertex"));
  normals = {{5, 5, 5}};
  EXPECT_FALSE(MeshPrim(stage->getPrimAtPath("/None")).getNormals(normals, interpolation));
  EXPECT_EQ(normals.size(), 1u);
  const MeshPrim none(stage->getPrimAtPath("/None"));
  EXPECT_FALSE(none.setNormals({{0, 0, 1}}, "sideways"));
  EXPECT_TRUE(none.setNormals({{0, 0, 1}}, "faceVarying"));
  EXPECT_TRUE(none.getNormals(normals, interpolation));
  EXPECT_EQ(interpolation, Token("faceVarying"));
}

}  // namespace
