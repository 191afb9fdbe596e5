// What is left out, counted in small scenes.
#include "vela/scene/LeftOut.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/TextStage.h"

namespace {

using namespace vela::scene;

std::string found(const std::string& scene, const MeshFilter& filter = {},
                  const std::string& camera = "", const ShownOptions& shown = {}) {
  // Scene files want a line for each statement.
  std::string lines;
  for (const char c : scene) lines += c == '{' ? "{\n" : c == '}' ? "\n}" : std::string(1, c);
  const std::shared_ptr<ovo::Stage> stage = vela_test::stageOf(lines);
  if (!stage) return "no stage";
  const MeshList list = listMeshes(*stage, filter).value();
  ViewOptions options;
  options.camera = ovo::Path(camera);
  options.time = filter.time;
  const std::optional<View> view = makeView(*stage, options, Extent());
  return textOf(findLeftOut(*stage, list, filter, view ? &*view : nullptr, shown));
}

TEST(LeftOut, NothingIsToldOfAPlainScene) {
  EXPECT_EQ(found(R"(def Mesh "M" { uniform token subdivisionScheme = "none" }
def Sphere "S" { float[] primvars:displayOpacity = [1] }
def Camera "C" { }
)"),
            "");
}

TEST(LeftOut, LightsThatNoPictureShowsAreCountedWhereTheyAreVisible) {
  const std::string scene = R"(def PortalLight "A" { }
def GeometryLight "B" { }
def Scope "Off" { token visibility = "invisible"
  def PluginLight "C" { }
}
def PortalLight "D" (active = false) { }
def SphereLight "Shown" { }
def DomeLight "ShownToo" { }
)";
  EXPECT_EQ(found(scene), "2 lights");
  MeshFilter all;
  all.withInvisible = true;
  EXPECT_EQ(found(scene, all), "3 lights");
  all.excludedPaths = {ovo::Path("/Off"), ovo::Path("/A")};
  EXPECT_EQ(found(scene, all), "1 light");
}

TEST(LeftOut, ShapesThatAreLightsAndProfilesAreCounted) {
  EXPECT_EQ(found(R"(def Sphere "A" (apiSchemas = ["LightAPI"]) { }
def Mesh "B" (apiSchemas = ["MaterialBindingAPI", "MeshLightAPI"]) { uniform token subdivisionScheme = "none" }
def SphereLight "C" { asset inputs:shaping:ies:file = @lamp.ies@ }
def SphereLight "D" { asset inputs:shaping:ies:file = @@ }
)"),
            "2 lights, 1 light profile");
}

TEST(LeftOut, MaterialsWithoutAPreviewSurfaceCountOnceHoweverOftenTheyAreUsed) {
  EXPECT_EQ(found(R"(def Material "Red" {
  token outputs:mtlx:surface.connect = </Red/Paint.outputs:out>
  def Shader "Paint" {
    uniform token info:id = "Paint"
    token outputs:out
  }
}
def Material "Shown" {
  token outputs:surface.connect = </Shown/Surface.outputs:surface>
  def Shader "Surface" {
    uniform token info:id = "UsdPreviewSurface"
    token outputs:surface
  }
}
def Cube "A" { rel material:binding = </Red> }
def Cube "B" { rel material:binding = </Red> }
def Cube "C" { rel material:binding = </Missing> }
def Cube "D" { rel material:binding = </Shown> }
)"),
            "2 materials");
}

TEST(LeftOut, OpacityBelowOneAndDrawModesAreTold) {
  EXPECT_EQ(found(R"(def Cube "A" { float[] primvars:displayOpacity = [1, 0.5] }
def Xform "B" { uniform token model:drawMode = "cards" }
def Xform "C" { uniform token model:drawMode = "default" }
)"),
            "1 prim with opacity, 1 draw mode");
}

TEST(LeftOut, OfCamerasOnlyThePicturesOwnCounts) {
  const std::string scene = R"(def Camera "A" { float fStop = 2.8 }
def Camera "B" { float4[] clippingPlanes = [(1, 0, 0, 0)] }
def Camera "C" { float fStop = 2.8
  token projection = "orthographic"
}
)";
  EXPECT_EQ(found(scene, {}, "/A"), "depth of field");
  EXPECT_EQ(found(scene, {}, "/B"), "clipping planes");
  EXPECT_EQ(found(scene, {}, "/C"), "");
}

TEST(LeftOut, MaterialsOfPartsOfCurvesAreCounted) {
  const std::string widths =
      "  int[] curveVertexCounts = [4]\n  float[] widths = [1]\n"
      "  point3f[] points = [(0, 0, 0), (1, 0, 0), (2, 0, 0), (3, 0, 0)]\n";
  const auto subset = [](const char* name, const char* inner) {
    return std::string("  def GeomSubset \"") + name + "\" {\n    int[] indices = [0]\n" + inner +
           "  }\n";
  };
  const char* const bound =
      "    uniform token familyName = \"materialBind\"\n    rel material:binding = </M>\n";
  const char* const unbound = "    uniform token familyName = \"materialBind\"\n";
  const char* const other = "    rel material:binding = </M>\n";
  const std::string shown =
      "def Material \"M\" {\n  token outputs:surface.connect = </M/S.outputs:surface>\n"
      "  def Shader \"S\" {\n    uniform token info:id = \"UsdPreviewSurface\"\n"
      "    token outputs:surface\n  }\n}\n";
  const auto curves = [&](const std::string& subsets) {
    return found(shown + "def BasisCurves \"C\" {\n" + widths + subsets + "}\n");
  };
  EXPECT_EQ(curves(subset("A", bound)), "1 material of a part of curves");
  EXPECT_EQ(curves(subset("A", bound) + subset("B", bound)), "2 materials of parts of curves");
  EXPECT_EQ(curves(subset("A", unbound) + subset("B", other)), "");
}

TEST(LeftOut, WhatIsAskedForIsNotLeftOut) {
  const std::string scene = R"(def Camera "A" { float fStop = 2.8
  float4[] clippingPlanes = [(1, 0, 0, 0)]
  double shutter:close = 0.5
}
def RenderSettings "S" { float4 dataWindowNDC = (-0.1, 0, 1, 1) }
def RenderSettings "Whole" { float4 dataWindowNDC = (0, 0, 1, 1) }
)";
  MeshFilter filter;
  filter.time = 1.0;
  EXPECT_EQ(found(scene, filter, "/A"), "depth of field, clipping planes, motion blur, overscan");
  EXPECT_EQ(found(scene, {}, "/A"), "depth of field, clipping planes, overscan")
      << "nothing moves in a picture of no time";
  ShownOptions shown;
  shown.depthOfField = shown.motion = true;
  EXPECT_EQ(found(scene, filter, "/A", shown), "clipping planes, overscan");
  shown.clipping = shown.overscan = true;
  EXPECT_EQ(found(scene, filter, "/A", shown), "");
}

TEST(LeftOut, ControlMeshesAndShapesWithoutFacesComeLast) {
  const std::string scene = R"(def PortalLight "Way" { }
def NurbsCurves "Hair" { }
def TetMesh "Dust" { }
def Mesh "A" { }
def Mesh "B" {
  int[] faceVertexCounts = [3]
  int[] faceVertexIndices = [0, 1, 2]
  point3f[] points = [(0, 0, 0), (1, 0, 0), (0, 1, 0)]
}
)";
  EXPECT_EQ(found(scene),
            "1 light, 2 subdivision surfaces shown as their control meshes, 1 NurbsCurves, "
            "1 TetMesh");
  MeshFilter refined;
  refined.subdivisionLevel = 1;
  EXPECT_EQ(found(scene, refined), "1 light, 1 NurbsCurves, 1 TetMesh");
}

TEST(LeftOut, CurvesAndPointsThatShowOtherwiseThanMeantAreCounted) {
  EXPECT_EQ(found(R"(def BasisCurves "Bad" {
  int[] curveVertexCounts = [5, 4, -2]
  point3f[] points = [(0, 0, 0), (1, 0, 0), (2, 0, 0), (3, 0, 0), (4, 0, 0)]
  float[] widths = [1]
}
def BasisCurves "Ribbon" {
  uniform token type = "linear"
  int[] curveVertexCounts = [2]
  point3f[] points = [(0, 0, 0), (1, 0, 0)]
  normal3f[] normals = [(0, 0, 1), (0, 0, 1)]
  float[] widths = [1]
}
def Points "Dust" {
  point3f[] points = [(0, 0, 0), (1, 0, 0), (2, 0, 0)]
  float[] widths = [0, nan, -1]
  normal3f[] normals = [(0, 0, 1), (0, 0, 1), (0, 0, 1)]
}
def Points "Thin" { point3f[] points = [(0, 0, 0), (1, 0, 0)] }
def Points "None" { }
def BasisCurves "Void" { }
)"),
            "1 ribbon shown as a tube, 1 set of disks shown as balls, "
            "5 curves or points that cannot be used, 1 set of curves or points without widths");
}

TEST(LeftOut, EachKindOfTheTableHasWordsForOneAndMany) {
  const std::vector<LeftOutKind> kinds = leftOutKinds();
  ASSERT_FALSE(kinds.empty());
  for (const LeftOutKind& kind : kinds) {
    EXPECT_NE(std::string(kind.one), "");
    EXPECT_NE(std::string(kind.many), "");
  }
}

}  // namespace
