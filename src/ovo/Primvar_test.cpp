#include "ovo/Primvar.h"

#include <gtest/gtest.h>

#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "ovo/detail/TestScene.h"

namespace {

using ovo::Array;
using ovo::Prim;
using ovo::Primvar;
using ovo::Token;
using ovo_test::sceneOf;

TEST(Primvar, IsFoundWithThePrefixFirstThenByTheNameAsGiven) {
  const auto stage =
      sceneOf("def Mesh \"M\" { float[] primvars:a = [1]\n float[] a = [2]\n float[] b = [3] }");
  const Prim mesh = stage->getPrimAtPath("/M");
  EXPECT_EQ(mesh.getPrimvar("a").name(), Token("primvars:a"));
  EXPECT_EQ(mesh.getPrimvar("a").primvarName(), Token("a"));
  EXPECT_EQ(mesh.getPrimvar("b").name(), Token("b"));
  EXPECT_EQ(mesh.getPrimvar("primvars:a").name(), Token("primvars:a"));
  EXPECT_FALSE(mesh.getPrimvar("c").isValid() || mesh.getPrimvar("").isValid());
  EXPECT_FALSE(Primvar().isValid());
}

TEST(Primvar, InterpolationFallsBackToConstantAndForNormalsToVertex) {
  const auto stage = sceneOf(R"(def Mesh "M" {
    normal3f[] normals = [(0, 0, 1)]
    float[] primvars:a = [1]
    float[] primvars:b = [1] ( interpolation = "faceVarying" )
    normal3f[] primvars:normals = [(0, 0, 1)] })");
  const Prim mesh = stage->getPrimAtPath("/M");
  EXPECT_EQ(Primvar(mesh.getAttr("normals")).interpolation(), Token("vertex"));
  EXPECT_EQ(mesh.getPrimvar("normals").name(), Token("primvars:normals"));
  EXPECT_EQ(mesh.getPrimvar("normals").interpolation(), Token("constant"));
  EXPECT_EQ(mesh.getPrimvar("a").interpolation(), Token("constant"));
  EXPECT_EQ(mesh.getPrimvar("b").interpolation(), Token("faceVarying"));
  EXPECT_EQ(Primvar().interpolation(), Token());
}

TEST(Primvar, FlatteningAppliesIndicesByElement) {
  const auto stage = sceneOf(R"(def Mesh "M" {
    float[] primvars:a = [10, 20, 30]
    int[] primvars:a:indices = [2, 0, 0, 1]
    float[] primvars:pairs = [1, 2, 3, 4] ( elementSize = 2 )
    int[] primvars:pairs:indices = [1, 0, 1]
    float[] primvars:bad = [1]
    int[] primvars:bad:indices = [0, 1]
    float[] primvars:negative = [1]
    int[] primvars:negative:indices = [-1]
    float[] primvars:blocked = [5, 6]
    int[] primvars:blocked:indices = None
    float primvars:single = 4 })");
  const Prim mesh = stage->getPrimAtPath("/M");
  Array<float> flat{9};
  EXPECT_TRUE(mesh.getPrimvar("a").computeFlattened(flat));
  EXPECT_EQ(flat, (Array<float>{30, 10, 10, 20}));
  EXPECT_EQ(mesh.getPrimvar("a").elementCount(), 4u);
  EXPECT_TRUE(mesh.getPrimvar("pairs").computeFlattened(flat));
  EXPECT_EQ(flat, (Array<float>{3, 4, 1, 2, 3, 4}));
  EXPECT_EQ(mesh.getPrimvar("pairs").elementSize(), 2);
  flat = {9};
  EXPECT_FALSE(mesh.getPrimvar("bad").computeFlattened(flat) ||
               mesh.getPrimvar("negative").computeFlattened(flat));
  EXPECT_EQ(flat, (Array<float>{9}));
  EXPECT_TRUE(mesh.getPrimvar("blocked").computeFlattened(flat));
  EXPECT_EQ(flat, (Array<float>{5, 6}));
  EXPECT_FALSE(mesh.getPrimvar("blocked").isIndexed());
  EXPECT_EQ(mesh.getPrimvar("blocked").elementCount(), 2u);
  EXPECT_TRUE(mesh.getPrimvar("single").computeFlattened(flat));
  EXPECT_EQ(flat, (Array<float>{4}));
  EXPECT_EQ(mesh.getPrimvar("single").elementCount(), 1u);
  EXPECT_EQ(mesh.getPrimvar("none").elementCount(), 0u);
}

TEST(Primvar, OnlyConstantOnesAreInherited) {
  const auto stage = sceneOf(R"(
def Xform "A" {
  color3f[] primvars:c = [(1, 0, 0)]
  float[] primvars:v = [1] ( interpolation = "constant" )
  float plain = 1
  def Xform "B" {
    float[] primvars:v = [1, 2] ( interpolation = "vertex" )
    color3f[] primvars:c = None
    def Mesh "C" { float[] primvars:own = [3] }
  }
})");
  const Prim mesh = stage->getPrimAtPath("/A/B/C");
  const Primvar c = mesh.findInheritedPrimvar("c");
  EXPECT_TRUE(c.isValid());
  EXPECT_EQ(c.prim().getPath().asString(), "/A")
      << "a prim without a value does not stand in the way";
  EXPECT_FALSE(mesh.findInheritedPrimvar("v").isValid())
      << "a varying one in between hides what is above it";
  EXPECT_FALSE(mesh.findInheritedPrimvar("plain").isValid());
  EXPECT_EQ(mesh.findInheritedPrimvar("own").prim(), mesh);
  EXPECT_EQ(stage->getPrimAtPath("/A/B").findInheritedPrimvar("v").interpolation(),
            Token("vertex"));
}

TEST(Primvar, IsCreatedUnderItsPrefixWithAnInterpolation) {
  const auto stage = ovo::Stage::createInMemory();
  const Prim mesh = stage->definePrim("/M", "Mesh");
  const Primvar a = mesh.createPrimvar("a", "float[]", "uniform");
  EXPECT_EQ(a.name(), Token("primvars:a"));
  EXPECT_EQ(a.interpolation(), Token("uniform"));
  EXPECT_TRUE(a.set(Array<float>{1, 2}) && a.setIndices({1, 1, 0}) && a.setElementSize(1));
  EXPECT_EQ(mesh.getPrimvarNames(), std::vector<Token>{"a"}) << "a list of indices is no primvar";
  EXPECT_EQ(mesh.createPrimvar("primvars:b", ovo::Value::float_).name(), Token("primvars:b"));
  EXPECT_FALSE(a.setInterpolation("sideways") || a.setElementSize(0));
  EXPECT_FALSE(mesh.createPrimvar("a", "int[]").isValid());
  EXPECT_FALSE(mesh.createPrimvar("d", "float", "sideways").isValid());
  Array<float> flat;
  EXPECT_TRUE(a.computeFlattened(flat));
  EXPECT_EQ(flat, (Array<float>{2, 2, 1}));
}

}  // namespace
