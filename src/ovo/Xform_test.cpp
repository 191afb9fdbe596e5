#include "ovo/Xform.h"

#include <gtest/gtest.h>

#include <cmath>

#include "ovo/Stage.h"
#include "ovo/detail/TestScene.h"

namespace {

using ovo::XformablePrim;
using ovo::XformCache;
using ovo_test::sceneOf;
using Matrix = tarn::Mat4d;
using Point = tarn::Vec3d;

Matrix localOf(const std::string& body, double time = tarn::defaultTimeValue()) {
  const auto stage = sceneOf("def Xform \"A\" {\n" + body + "\n}\n");
  return XformablePrim(stage->getPrimAtPath("/A")).getLocalXform(time);
}

void expectSame(const Matrix& a, const Matrix& b) {
  for (std::size_t i = 0; i < 16; ++i)
    EXPECT_NEAR(a[i], b[i], 1e-12) << "element " << i << "\n" << a << "\n" << b;
}

constexpr double kQuarter = 1.5707963267948966;

TEST(Xform, TheFirstOperationIsTheOutermost) {
  const Matrix m = localOf(R"(double3 xformOp:translate = (1, 2, 3)
float3 xformOp:rotateXYZ = (90, 0, 90)
half3 xformOp:scale = (2, 2, 2)
uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateXYZ", "xformOp:scale"])");
  expectSame(m, Matrix().translate(1, 2, 3).rotateZ(kQuarter).rotateX(kQuarter).scale(2, 2, 2));
}

TEST(Xform, WithoutAnOrderNothingCounts) {
  EXPECT_EQ(localOf("double3 xformOp:translate = (1, 2, 3)"), Matrix());
}

TEST(Xform, RotationsTurnInTheOrderOfTheirLetters) {
  const double x = 0.3, y = -0.4, z = 0.5, degrees = 57.29577951308232;
  const std::string angles = "(" + std::to_string(x * degrees) + ", " +
                             std::to_string(y * degrees) + ", " + std::to_string(z * degrees) + ")";
  struct Row {
    const char* letters;
    Matrix expected;
  };
  for (const Row& row : {Row{"XYZ", Matrix().rotateZ(z).rotateY(y).rotateX(x)},
                         Row{"XZY", Matrix().rotateY(y).rotateZ(z).rotateX(x)},
                         Row{"YXZ", Matrix().rotateZ(z).rotateX(x).rotateY(y)},
                         Row{"YZX", Matrix().rotateX(x).rotateZ(z).rotateY(y)},
                         Row{"ZXY", Matrix().rotateY(y).rotateX(x).rotateZ(z)},
                         Row{"ZYX", Matrix().rotateX(x).rotateY(y).rotateZ(z)}}) {
    const std::string op = std::string("xformOp:rotate") + row.letters;
    const Matrix m = localOf("double3 " + op + " = " + angles +
                             "\nuniform token[] xformOpOrder = [\"" + op + "\"]");
    for (std::size_t i = 0; i < 16; ++i)
      EXPECT_NEAR(m[i], row.expected[i], 1e-6) << row.letters << i;
  }
}

TEST(Xform, SingleAxesAndSuffixesAndInverses) {
  expectSame(localOf("float xformOp:rotateX:pivot:more = 90\nuniform token[] xformOpOrder = "
                     "[\"xformOp:rotateX:pivot:more\"]"),
             Matrix().rotateX(kQuarter));
  expectSame(localOf("float xformOp:rotateY = 90\nuniform token[] xformOpOrder = "
                     "[\"!invert!xformOp:rotateY\"]"),
             Matrix().rotateY(-kQuarter));
  expectSame(
      localOf(
          "double xformOp:translateY = 4\nfloat xformOp:scaleZ = 3\nuniform token[] xformOpOrder = "
          "[\"xformOp:translateY\", \"xformOp:scaleZ\"]"),
      Matrix().translate(0, 4, 0).scale(1, 1, 3));
  expectSame(localOf(R"(double3 xformOp:translate:pivot = (1, 0, 0)
float xformOp:rotateZ = 90
uniform token[] xformOpOrder = ["xformOp:translate:pivot", "xformOp:rotateZ", "!invert!xformOp:translate:pivot"])"),
             Matrix().translate(1, 0, 0).rotateZ(kQuarter).translate(-1, 0, 0));
}

TEST(Xform, NeighboursThatUndoEachOtherLeaveNothingEvenWithoutAnInverse) {
  EXPECT_EQ(localOf("float3 xformOp:scale = (0, 1, 1)\nuniform token[] xformOpOrder = "
                    "[\"xformOp:scale\", \"!invert!xformOp:scale\"]"),
            Matrix());
  EXPECT_EQ(localOf("float3 xformOp:scale = (0, 1, 1)\nuniform token[] xformOpOrder = "
                    "[\"!invert!xformOp:scale\", \"xformOp:scale\"]"),
            Matrix());
}

TEST(Xform, OrientTurnsByTheQuaternionWhateverItsLength) {
  const double half = std::sqrt(0.5);
  const std::string unit = std::to_string(half);
  const Matrix m = localOf(
      "quatd xformOp:orient = (0.7071067811865476, 0, 0, 0.7071067811865476)\nuniform token[] "
      "xformOpOrder = "
      "[\"xformOp:orient\"]");
  expectSame(m, Matrix().rotateZ(kQuarter));
  EXPECT_EQ(localOf("quatf xformOp:orient = (1, 0, 0, 0)\nuniform token[] xformOpOrder = "
                    "[\"xformOp:orient\"]"),
            Matrix());
  EXPECT_EQ(localOf("quath xformOp:orient = (0, 0, 0, 0)\nuniform token[] xformOpOrder = "
                    "[\"xformOp:orient\"]"),
            Matrix());
}

TEST(Xform, UnknownAndMissingOperationsArePassedOver) {
  EXPECT_EQ(localOf(R"(float xformOp:twist = 90
double3 xformOp:translate = (1, 0, 0)
double xformOp:rotateXYZ = 4
uniform token[] xformOpOrder = ["xformOp:twist", "xformOp:missing", "", "nonsense", "xformOp:", "!invert!", "xformOp:rotateXYZ", "xformOp:rotateABC", "xformOp:translate"])"),
            Matrix().translate(1, 0, 0));
}

TEST(Xform, DefaultTimeTakesTheFirstSampleUnlessOpenUsdsWayIsAskedFor) {
  const auto stage = sceneOf(
      R"(def Xform "A" { double3 xformOp:translate.timeSamples = {1: (1, 0, 0), 3: (3, 0, 0)}
uniform token[] xformOpOrder = ["xformOp:translate"] })");
  const XformablePrim a(stage->getPrimAtPath("/A"));
  EXPECT_EQ(a.getLocalXform(), Matrix().translate(1, 0, 0));
  EXPECT_EQ(a.getLocalXform(2), Matrix().translate(2, 0, 0));
  EXPECT_EQ(XformCache().getLocalToWorld(a), Matrix().translate(1, 0, 0));
  EXPECT_EQ(XformCache(tarn::defaultTimeValue(), XformCache::authored).getLocalToWorld(a),
            Matrix());
  EXPECT_EQ(XformCache(2, XformCache::authored).getLocalToWorld(a), Matrix().translate(2, 0, 0));
  EXPECT_TRUE(a.mightBeTimeVarying());
}

TEST(Xform, WorldIsParentTimesLocalAndPrimsWithoutATransformPassItOn) {
  const auto stage = sceneOf(R"(
def Xform "A" { double3 xformOp:translate = (10, 0, 0)
  uniform token[] xformOpOrder = ["xformOp:translate"]
  def Scope "S" { double3 xformOp:translate = (500, 0, 0)
    uniform token[] xformOpOrder = ["xformOp:translate"]
    def "untyped" {
      def Mesh "M" { float xformOp:rotateZ = 90
        uniform token[] xformOpOrder = ["xformOp:rotateZ"] }
      def Mesh "Reset" { double3 xformOp:translate = (0, 1, 0)
        double3 xformOp:translate:ignored = (7, 7, 7)
        uniform token[] xformOpOrder = ["xformOp:translate:ignored", "!resetXformStack!", "xformOp:translate"] }
    } } })");
  XformCache cache;
  EXPECT_EQ(cache.getLocalToWorld(stage->getPrimAtPath("/A/S/untyped")),
            Matrix().translate(10, 0, 0));
  const Matrix m = cache.getLocalToWorld(stage->getPrimAtPath("/A/S/untyped/M"));
  const Point p = m.transformPoint(Point(1, 0, 0));
  EXPECT_NEAR(p.x, 10, 1e-12);
  EXPECT_NEAR(p.y, 1, 1e-12);
  EXPECT_EQ(cache.getLocalToWorld(stage->getPrimAtPath("/A/S/untyped/Reset")),
            Matrix().translate(0, 1, 0));
  EXPECT_TRUE(XformablePrim(stage->getPrimAtPath("/A/S/untyped/Reset")).resetsXformStack());
  EXPECT_EQ(cache.getLocalToWorld(stage->getRootPrim()), Matrix());
  EXPECT_EQ(cache.getLocalToWorld(ovo::Prim()), Matrix());
}

TEST(Xform, TypesWithATransformAreKnown) {
  const auto stage = ovo::Stage::createInMemory();
  for (const char* type :
       {"Xform",     "Mesh",        "Cube",           "Sphere",       "Cylinder",    "Cone",
        "Capsule",   "Plane",       "Points",         "BasisCurves",  "NurbsCurves", "NurbsPatch",
        "TetMesh",   "Camera",      "PointInstancer", "DistantLight", "DomeLight",   "RectLight",
        "DiskLight", "SphereLight", "CylinderLight",  "Volume",       "SkelRoot",    "Skeleton"})
    EXPECT_TRUE(XformablePrim(stage->definePrim("/P", type)).isValid()) << type;
  for (const char* type : {"Scope", "Material", "Shader", "NodeGraph", "GeomSubset", "Unknown"})
    EXPECT_FALSE(XformablePrim(stage->definePrim("/P", type)).isValid()) << type;
  EXPECT_FALSE(XformablePrim(stage->definePrim("/Untyped")).isValid());
  EXPECT_FALSE(XformablePrim(stage->getRootPrim()).isValid());
  EXPECT_FALSE(XformablePrim().isValid());
  EXPECT_EQ(XformablePrim().getLocalXform(), Matrix());
  EXPECT_FALSE(XformablePrim().setLocalXform(Matrix()));
}

TEST(Xform, SetReplacesTheOperationsAndKeepsTheReset) {
  const auto stage = sceneOf(R"(def Xform "P" { double3 xformOp:translate = (9, 9, 9)
uniform token[] xformOpOrder = ["xformOp:translate"]
  def Xform "A" { double3 xformOp:translate = (1, 2, 3)
uniform token[] xformOpOrder = ["!resetXformStack!", "xformOp:translate"] } })");
  const XformablePrim a(stage->getPrimAtPath("/P/A"));
  const Matrix m = Matrix().translate(5, 6, 7).rotateX(0.25);
  EXPECT_TRUE(a.setLocalXform(m));
  EXPECT_EQ(a.getLocalXform(), m);
  EXPECT_EQ(XformCache().getLocalToWorld(a), m);
  EXPECT_TRUE(a.setLocalXform(Matrix().translate(1, 0, 0), 1.0) &&
              a.setLocalXform(Matrix().translate(3, 0, 0), 2.0));
  EXPECT_EQ(a.getLocalXform(1.5), Matrix().translate(2, 0, 0));
}

}  // namespace
