// Curves and points as tubes, held against values that were computed apart from this library.
#include "vela/scene/CurvePrims.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "support/SharedData.h"
#include "support/TextStage.h"
#include "tarn/Time.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Surface.h"

namespace {

using namespace vela::scene;
using nlohmann::json;
using tarn::Vec3d;
using tarn::Vec3f;
using vela_test::stageOf;

constexpr double kDefault = tarn::defaultTimeValue();

Shape shapeOf(const std::string& type, const std::string& body) {
  const auto stage = stageOf("def " + type + " \"C\"\n{\n" + body + "\n}\n");
  return readCurves(stage->getPrimAtPath(ovo::Path("/C")), kDefault).value();
}

// The distance of a point from the middle line of a shape's tubes.
double distanceTo(const Shape& shape, const Vec3d& p) {
  double nearest = 1e30;
  std::size_t at = 0;
  for (const int count : shape.counts.view()) {
    for (int k = 0; k + 1 < count; ++k) {
      const Vec3d a(shape.points[at + static_cast<std::size_t>(k)]);
      const Vec3d axis = Vec3d(shape.points[at + static_cast<std::size_t>(k) + 1]) - a;
      const double l = axis.lengthSquared();
      const double t = l > 0.0 ? std::clamp(dot(p - a, axis) / l, 0.0, 1.0) : 0.0;
      nearest = std::min(nearest, (p - a - axis * t).length());
    }
    at += static_cast<std::size_t>(count);
  }
  return nearest;
}

TEST(CurvePrims, SegmentsAndPositionsAreTheOracles) {
  requireSharedData("usd/oracle-materials");
  std::ifstream in(vela_test::sharedDataPath("usd/oracle-materials/own.json"));
  const json oracle = json::parse(in);
  const std::string name = "materials/17_curves.usda";
  const auto stage = ovo::Stage::open(vela_test::sharedDataPath("usd/" + name));
  ASSERT_TRUE(stage);
  std::size_t compared = 0;
  for (const json& expected : oracle["scenes"][name]["curves"]) {
    const auto path = expected["path"].get<std::string>();
    SCOPED_TRACE(path);
    const Shape shape = readCurves(stage->getPrimAtPath(ovo::Path(path)), kDefault).value();
    std::size_t segments = 0;
    for (const json& count : expected["segments"]) segments += count.get<std::size_t>();
    EXPECT_EQ(shape.tubes->pieces.size(), segments);
    EXPECT_EQ(shape.counts.size(), expected["curveVertexCounts"].size());
    if (!expected.contains("positions")) continue;
    for (const json& segment : expected["positions"]) {
      double size = 0.0;
      std::vector<Vec3d> three;
      for (const json& p : segment) {
        three.push_back({p[0].get<double>(), p[1].get<double>(), p[2].get<double>()});
        if (three.size() > 1) size += (three[three.size() - 1] - three[three.size() - 2]).length();
      }
      ASSERT_EQ(three.size(), 3u);
      EXPECT_LT(distanceTo(shape, three[0]), 1e-6);
      EXPECT_LT(distanceTo(shape, three[1]), 2e-3 * size);
      EXPECT_LT(distanceTo(shape, three[2]), 1e-6);
      ++compared;
    }
  }
  EXPECT_GT(compared, 30u);
}

TEST(CurvePrims, WidthsAreSpreadAsTheSceneSays) {
  const auto radii = [](const std::string& body) {
    const Shape shape = shapeOf("BasisCurves", body);
    return std::vector<float>(shape.tubes->radii.begin(), shape.tubes->radii.end());
  };
  const std::string linear =
      " uniform token type = \"linear\"\n int[] curveVertexCounts = [3, 2]\n"
      " point3f[] points = [(0, 0, 0), (1, 0, 0), (2, 0, 0), (3, 0, 0), (4, 0, 0)]\n";
  using Floats = std::vector<float>;
  EXPECT_EQ(radii(linear + " float[] widths = [2] (interpolation = \"constant\")"),
            Floats({1, 1, 1, 1, 1}));
  EXPECT_EQ(radii(linear + " float[] widths = [2, 4] (interpolation = \"uniform\")"),
            Floats({1, 1, 1, 2, 2}));
  for (const char* interpolation : {"vertex", "varying"})
    EXPECT_EQ(radii(linear + " float[] widths = [2, 4, 6, 8, 10] (interpolation = \"" +
                    interpolation + "\")"),
              Floats({1, 2, 3, 4, 5}));
  // Without a word for it widths are vertex ones; as a primvar one for all, and first of both.
  EXPECT_EQ(radii(linear + " float[] widths = [2, 4, 6, 8, 10]"), Floats({1, 2, 3, 4, 5}));
  EXPECT_EQ(radii(linear + " float[] widths = [2]"), Floats({1, 1, 1, 1, 1}));
  EXPECT_EQ(radii(linear + " float[] widths = [2]\n float[] primvars:widths = [4, 6]"),
            Floats({2, 2, 2, 2, 2}));
  // What is no width leaves its points out; a tip of no width is one.
  EXPECT_EQ(radii(linear + " float[] widths = [2, nan, -6, inf, 0]"), Floats({1, -1, -1, -1, 0}));

  // Of a cubic: by the basis, and in a straight line.
  const std::string cubic =
      " int[] curveVertexCounts = [4]\n"
      " point3f[] points = [(0, 0, 0), (1, 3, 0), (2, -3, 0), (3, 0, 0)]\n";
  const Floats vertex = radii(cubic + " float[] widths = [0, 8, 8, 0]");
  const Floats varying = radii(cubic + " float[] widths = [0, 8] (interpolation = \"varying\")");
  ASSERT_EQ(vertex.size(), varying.size());
  ASSERT_GT(vertex.size(), 8u);
  const std::size_t last = vertex.size() - 1;
  for (std::size_t i = 0; i <= last; ++i) {
    const double t = static_cast<double>(i) / static_cast<double>(last);
    EXPECT_NEAR(static_cast<double>(vertex[i]), 12.0 * t * (1.0 - t), 1e-6);
    EXPECT_NEAR(static_cast<double>(varying[i]), 4.0 * t, 1e-6);
  }
}

TEST(CurvePrims, WithoutWidthsThatFitTubesAreThin) {
  for (const char* widths : {"", " float[] widths = [1, 2]", " float[] widths = []"}) {
    const Shape shape =
        shapeOf("BasisCurves", std::string(" uniform token type = \"linear\"\n"
                                           " int[] curveVertexCounts = [3]\n"
                                           " point3f[] points = [(0, 0, 0), (3, 4, 0), (3, 0, 0)]"
                                           "\n") +
                                   widths);
    EXPECT_FALSE(shape.tubes->hasWidths);
    EXPECT_NEAR(static_cast<double>(shape.tubes->radii[0]), 0.0025, 1e-8) << widths;
  }
  // Of one point there is no size to go by.
  EXPECT_EQ(shapeOf("Points", " point3f[] points = [(7, 7, 7)]").tubes->radii[0], 0.0005f);
}

TEST(CurvePrims, BrokenCountsCostTheirOwnCurvesAlone) {
  const std::string points =
      " point3f[] points = [(0, 0, 0), (1, 0, 0), (2, 0, 0), (3, 0, 0), (4, 0, 0), (5, 0, 0)]\n"
      " float[] widths = [1]\n";
  struct Case {
    const char* body;
    std::vector<int> counts;
    std::size_t broken;
  };
  for (const Case& c : std::vector<Case>{
           {" int[] curveVertexCounts = [1, 4]", {0, 2}, 1},
           {" int[] curveVertexCounts = [5]", {0}, 1},
           {" int[] curveVertexCounts = [-4, 4]", {0, 2}, 1},
           {" int[] curveVertexCounts = [4, 4]", {2, 0}, 1},
           {" int[] curveVertexCounts = [2147483647, 4]", {0, 0}, 2},
           {" int[] curveVertexCounts = [0, 4]", {0, 2}, 1},
           {" int[] curveVertexCounts = []", {}, 0},
           {" int[] curveVertexCounts = [2]\n uniform token wrap = \"periodic\"", {0}, 1},
           {" int[] curveVertexCounts = [1, 2]\n uniform token wrap = \"pinned\"\n"
            " uniform token basis = \"bspline\"",
            {0, 2},
            1},
           {" int[] curveVertexCounts = [3, 2]\n uniform token wrap = \"periodic\"\n"
            " uniform token type = \"linear\"",
            {4, 3},
            0},
       }) {
    SCOPED_TRACE(c.body);
    const Shape shape = shapeOf("BasisCurves", points + c.body);
    EXPECT_EQ(std::vector<int>(shape.counts.begin(), shape.counts.end()), c.counts);
    EXPECT_EQ(shape.tubes->broken, c.broken);
    EXPECT_EQ(shape.points.size(), shape.tubes->radii.size());
    EXPECT_EQ(shape.points.size(), shape.indices.size());
  }
  // A point that is not finite spoils its own pieces.
  const Shape shape =
      shapeOf("BasisCurves",
              " uniform token type = \"linear\"\n int[] curveVertexCounts = [4, 2]\n"
              " point3f[] points = [(0, 0, 0), (1, 0, 0), (nan, 0, 0), (3, 0, 0),"
              " (0, 1, 0), (1, 1, 0)]\n float[] widths = [1]");
  EXPECT_EQ(shape.tubes->broken, 1u);
  EXPECT_EQ(shape.points[1], Vec3f(1, 0, 0));
}

TEST(CurvePrims, ClosedCurvesEndInTheBitsTheyBeginWith) {
  for (const char* basis : {"bezier", "bspline", "catmullRom"}) {
    const Shape shape =
        shapeOf("BasisCurves", std::string(" uniform token wrap = \"periodic\"\n uniform token "
                                           "basis = \"") +
                                   basis +
                                   "\"\n int[] curveVertexCounts = [6]\n float[] widths = [0.1, "
                                   "0.2, 0.3, 0.1, 0.3, 0.2]\n point3f[] points = [(1, 0, 0.1), "
                                   "(0.7, 0.8, 0), (-0.6, 0.7, 0.3), (-1.1, 0, 0), (-0.3, -0.9, "
                                   "0), (0.6, -0.7, 0)]");
    const std::size_t last = shape.points.size() - 1;
    EXPECT_GT(last, 6u);
    EXPECT_EQ(shape.points[0], shape.points[last]) << basis;
    EXPECT_EQ(shape.tubes->radii[0], shape.tubes->radii[last]) << basis;
  }
}

TEST(CurvePrims, OtherPrimsAreNone) {
  const auto stage = stageOf("def Mesh \"M\" { }\ndef NurbsCurves \"N\" { }\n");
  EXPECT_FALSE(readCurves(stage->getPrimAtPath(ovo::Path("/M")), kDefault));
  EXPECT_FALSE(readCurves(stage->getPrimAtPath(ovo::Path("/N")), kDefault));
  EXPECT_FALSE(readCurves(ovo::Prim(), kDefault));
}

// In a list of meshes, under rays.

const char* const kScene = R"(def Xform "World"
{
    def BasisCurves "Worm"
    {
        uniform token type = "linear"
        int[] curveVertexCounts = [2, 3]
        point3f[] points = [(-9, 9, 0), (9, 9, 0), (0, 0, 0), (4, 0, 0), (8, 0, 0)]
        float[] widths = [2]
        color3f[] primvars:displayColor = [(1, 1, 1), (1, 1, 1), (1, 0, 0), (0, 1, 0), (0, 0, 1)] (
            interpolation = "vertex"
        )
        color3f[] primvars:each = [(1, 0, 0), (0, 1, 0)] ( interpolation = "uniform" )
        float primvars:wrong = 3 ( interpolation = "vertex" )
    }
    def Points "Dust"
    {
        point3f[] points = [(0, -9, 0), (4, -9, 0)]
        float[] widths = [2, 4]
        color3f[] primvars:displayColor = [(1, 0, 0), (0, 1, 0)] ( interpolation = "varying" )
    }
    def PointInstancer "Many"
    {
        int[] protoIndices = [0, 0]
        point3f[] positions = [(100, 0, 0), (200, 0, 0)]
        rel prototypes = </World/Many/Hair>
        def BasisCurves "Hair"
        {
            uniform token type = "linear"
            int[] curveVertexCounts = [2]
            point3f[] points = [(0, -1, 0), (0, 1, 0)]
            float[] widths = [1]
        }
    }
}
)";

TEST(CurvesInScenes, RaysMeetThemAndTheirNumbersAreTheScenes) {
  const auto stage = stageOf(kScene);
  const MeshList list = listMeshes(*stage, {}).value();
  ASSERT_EQ(list.entries.size(), 4u);
  EXPECT_EQ(list.shapes.size(), 3u);
  EXPECT_TRUE(list.notShown.empty());
  const RayCaster caster(CasterKind::tracer, list, extentOf(list), kDefault);
  const auto hitAt = [&](double x, double y) {
    WorldRay ray;
    ray.base = {x, y, 50.0};
    ray.direction = {0.0f, 0.0f, -1.0f};
    SurfaceHit hit;
    caster.intersect(&ray, 1, &hit);
    return hit;
  };
  SurfaceHit hit = hitAt(3.0, 0.0);
  ASSERT_TRUE(hit.hit);
  EXPECT_EQ(nameOf(list, hit.entry), "/World/Worm");
  EXPECT_EQ(list.shapeOf(hit.entry).sceneFace(hit.face), 1);
  EXPECT_NEAR(hit.distance, 49.0, 1e-5);
  EXPECT_TRUE(hit.hasCorners);

  // Colours between the points, with what the hit knows and without it.
  Surface surface(list.shapeOf(hit.entry), kDefault);
  const Vec3f known = surface.colour(caster.objectSpace(hit.entry).surfacePoint(hit));
  const Vec3f looked = surface.colour({1, {3.0f, 0.0f, 1.0f}});
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(known[i], Vec3f(0.25f, 0.75f, 0.0f)[i], 1e-5f);
    EXPECT_NEAR(looked[i], known[i], 1e-5f);
  }
  EXPECT_FALSE(surface.hasOwnNormals());
  const auto each = surface.addPrimvar(ovo::Token("each"), 3);
  ASSERT_TRUE(each);
  EXPECT_EQ(surface.primvar(*each, {1, {3.0f, 0.0f, 1.0f}}).y, 1.0f);
  EXPECT_FALSE(surface.addPrimvar(ovo::Token("wrong"), 1));
  surface.setSelection(false, {0.0f, 0.5f}, {0.0f, 0.0f, 1.0f});
  EXPECT_NEAR(surface.selection({1, {1.0f, 0.0f, 1.0f}}), 0.75f, 1e-6f);
  EXPECT_EQ(surface.selection({1, {8.0f, 0.0f, 1.0f}}), 0.5f);

  hit = hitAt(4.0, -9.0);
  ASSERT_TRUE(hit.hit);
  EXPECT_EQ(nameOf(list, hit.entry), "/World/Dust");
  EXPECT_EQ(hit.face, 1);
  EXPECT_NEAR(hit.distance, 48.0, 1e-5);
  EXPECT_EQ(Surface(list.shapeOf(hit.entry), kDefault)
                .colour(caster.objectSpace(hit.entry).surfacePoint(hit)),
            Vec3f(0, 1, 0));

  hit = hitAt(200.0, 1.25);
  ASSERT_TRUE(hit.hit);
  EXPECT_EQ(nameOf(list, hit.entry), "/World/Many/Hair[1]");
  EXPECT_FALSE(hitAt(200.0, 1.75).hit);
}

TEST(CurvesInScenes, ExtentsReachAsFarAsTheTubesDo) {
  const auto stage = stageOf(
      "def Points \"P\"\n{\n point3f[] points = [(0, 0, 0)]\n float[] widths = [2]\n"
      " float3 xformOp:scale = (3, 1, 1)\n float xformOp:rotateZ = 30\n"
      " uniform token[] xformOpOrder = [\"xformOp:rotateZ\", \"xformOp:scale\"]\n}\n");
  const MeshList list = listMeshes(*stage, {}).value();
  const Extent extent = extentOf(list);
  // An ellipse of half axes 3 and 1, turned by 30 degrees.
  const double cosine = std::cos(0.5235987755982988), sine = 0.5;
  EXPECT_NEAR(extent.box.max.x, std::sqrt(9.0 * cosine * cosine + sine * sine), 1e-6);
  EXPECT_NEAR(extent.box.max.y, std::sqrt(9.0 * sine * sine + cosine * cosine), 1e-6);
  EXPECT_NEAR(extent.box.min.z, -1.0, 1e-6);
  ASSERT_FALSE(extent.outermost.empty());
  for (const Vec3d& p : extent.outermost) {
    EXPECT_LE(std::fabs(p.x), extent.box.max.x + 1e-9);
    EXPECT_LE(std::fabs(p.y), extent.box.max.y + 1e-9);
  }
  // Nothing at all, and nothing finite.
  for (const char* points : {"[]", "[(nan, 0, 0)]"}) {
    const auto none = stageOf(std::string("def Points \"P\"\n{\n point3f[] points = ") + points +
                              "\n float[] widths = [2]\n}\n");
    EXPECT_TRUE(extentOf(listMeshes(*none, {}).value()).box.isEmpty()) << points;
  }
}

}  // namespace
