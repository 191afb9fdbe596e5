// Curves and points in pictures: every layer, shadows, materials, opacity, motion.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "support/TextStage.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/picture/TestPictures.h"

namespace {

using namespace vela::picture;
using picture_test::Values;
using picture_test::valuesOf;

// Looks down on the picture's middle; the picture is 40 wide and 20 high, a unit is ten pixels.
const std::string kCamera = R"(def Camera "Cam"
{
    token projection = "orthographic"
    float horizontalAperture = 40
    float verticalAperture = 20
    float2 clippingRange = (1, 100)
    double3 xformOp:translate = (0, 0, 10)
    uniform token[] xformOpOrder = ["xformOp:translate"]
}
)";

// Seen from above: a floor, a tube along x over its left half, a ball over its right half.
std::shared_ptr<ovo::Stage> stageWith(const std::string& more, const std::string& ofTube = "") {
  return vela_test::stageOf(R"(def BasisCurves "Tubes"
{
    uniform token type = "linear"
    int[] curveVertexCounts = [2, 2]
    point3f[] points = [(-90, 0, 0), (-80, 0, 0), (-2, 0, 0.5), (0, 0, 0.5)]
    float[] widths = [0.5]
    color3f[] primvars:displayColor = [(0, 0, 1), (1, 0, 0)] ( interpolation = "uniform" )
)" + ofTube + R"(
}
def Points "Balls"
{
    point3f[] points = [(90, 0, 0), (80, 0, 0), (1, 0, 0.5)]
    float[] widths = [1]
    color3f[] primvars:displayColor = [(0, 0, 0), (0, 0, 0), (0, 1, 0)] ( interpolation = "vertex" )
}
)" + kCamera + more);
}

RenderOptions optionsOf(const std::string& layers) {
  RenderOptions options;
  options.view.camera = ovo::Path("/Cam");
  options.view.width = 40;
  options.view.height = 20;
  options.samples = 1;
  for (std::size_t at = 0; at < layers.size();) {
    const std::size_t end = std::min(layers.find(',', at), layers.size());
    options.layers.push_back(layers.substr(at, end - at));
    at = end + 1;
  }
  return options;
}

Values render(const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& options,
              int threads = 0) {
  std::string error;
  const auto picture = renderPicture(stage, options, threads, {}, &error);
  EXPECT_TRUE(picture) << error;
  return picture ? valuesOf(*picture) : Values();
}

constexpr std::size_t at(std::size_t x, std::size_t y) { return y * 40 + x; }

TEST(PictureCurves, EveryLayerKnowsThem) {
  const Values v = render(stageWith(""), optionsOf("rgba,depth,P,N,prim,face,albedo"));
  const std::size_t tube = at(10, 10), ball = at(30, 10), nothing = at(20, 1);
  EXPECT_EQ(v.integers.at("prim.id")[nothing], 0u);
  EXPECT_EQ(v.manifest.at(v.integers.at("prim.id")[tube] - 1), "/Tubes");
  EXPECT_EQ(v.manifest.at(v.integers.at("prim.id")[ball] - 1), "/Balls");
  // The second curve and the third point.
  EXPECT_EQ(v.integers.at("face.id")[tube], 1u);
  EXPECT_EQ(v.integers.at("face.id")[ball], 2u);
  EXPECT_EQ(v.floats.at("albedo.R")[tube], 1.0f);
  EXPECT_EQ(v.floats.at("albedo.B")[tube], 0.0f);
  EXPECT_EQ(v.floats.at("albedo.G")[ball], 1.0f);
  // Half a pixel beside the middle line, on a circle of radius 0.25; and on a ball of radius 0.5.
  const double height = 0.5 + std::sqrt(0.25 * 0.25 - 0.05 * 0.05);
  EXPECT_NEAR(static_cast<double>(v.floats.at("Z")[tube]), 10.0 - height, 1e-5);
  EXPECT_NEAR(static_cast<double>(v.floats.at("P.z")[tube]), height, 1e-5);
  EXPECT_NEAR(static_cast<double>(v.floats.at("N.x")[tube]), 0.0, 1e-6);
  EXPECT_NEAR(std::fabs(static_cast<double>(v.floats.at("N.y")[tube])), 0.05 / 0.25, 1e-5);
  EXPECT_NEAR(static_cast<double>(v.floats.at("Z")[ball]), 9.5 - std::sqrt(0.25 - 2 * 0.05 * 0.05),
              1e-5);
  for (const auto& [name, values] : v.floats)
    for (const float value : values) ASSERT_FALSE(std::isnan(value)) << name;
}

TEST(PictureCurves, ThreadsChangeNothing) {
  RenderOptions options = optionsOf("rgba,N,prim");
  options.samples = 4;
  const auto stage = stageWith("");
  const Values one = render(stage, options, 1), three = render(stage, options, 3);
  EXPECT_EQ(one.floats, three.floats);
  EXPECT_EQ(one.integers, three.integers);
}

TEST(PictureCurves, TheyThrowShadows) {
  const std::string floor = R"(def Mesh "Floor"
{
    uniform token subdivisionScheme = "none"
    int[] faceVertexCounts = [4]
    int[] faceVertexIndices = [0, 1, 2, 3]
    point3f[] points = [(-9, -9, -0.1), (9, -9, -0.1), (9, 9, -0.1), (-9, 9, -0.1)]
}
)";
  // A sun that shines along (0, 1, -1): a shadow falls as far behind as its thing is high.
  const std::string sun = R"(def DistantLight "Sun"
{
    float inputs:angle = 0
    float inputs:intensity = 1
    float xformOp:rotateX = 45
    uniform token[] xformOpOrder = ["xformOp:rotateX"]
}
)";
  const Values v = render(stageWith(floor + sun), optionsOf("rgba"));
  const auto redAt = [&](std::size_t x, std::size_t y) { return v.floats.at("R")[at(x, y)]; };
  // The tube's middle lies 0.6 above the floor, so its shadow's middle is 0.6 up the picture.
  const float lit = redAt(10, 17);
  EXPECT_GT(lit, 0.1f);
  EXPECT_LT(redAt(10, 4), 0.6f * lit);
  EXPECT_LT(redAt(30, 2), 0.6f * lit);
  EXPECT_NEAR(redAt(23, 2), lit, 0.2f * lit);
}

TEST(PictureCurves, MaterialsReadTheirPrimvars) {
  const std::string looks = R"(def Material "M"
{
    token outputs:surface.connect = </M/S.outputs:surface>
    def Shader "S"
    {
        uniform token info:id = "UsdPreviewSurface"
        color3f inputs:diffuseColor.connect = </M/R.outputs:result>
        token outputs:surface
    }
    def Shader "R"
    {
        uniform token info:id = "UsdPrimvarReader_float3"
        string inputs:varname = "ends"
        float3 outputs:result
    }
}
)";
  const Values v = render(stageWith(looks, R"(    rel material:binding = </M>
    color3f[] primvars:ends = [(0, 0, 0), (0, 0, 0), (0, 0, 0), (0, 1, 0)] ( interpolation = "varying" )
)"),
                          optionsOf("albedo"));
  // Pixel 10 is at x = -0.95, between -2 and 0.
  EXPECT_NEAR(static_cast<double>(v.floats.at("albedo.G")[at(10, 10)]), 1.05 / 2.0, 1e-4);
  EXPECT_EQ(v.floats.at("albedo.R")[at(10, 10)], 0.0f);
}

TEST(PictureCurves, OpacityHidesHalfOnEachOfTwoSides) {
  const std::string looks = R"(def Material "M"
{
    token outputs:surface.connect = </M/S.outputs:surface>
    def Shader "S"
    {
        uniform token info:id = "UsdPreviewSurface"
        float inputs:opacity = 0.5
        token inputs:opacityMode = "presence"
        token outputs:surface
    }
}
)";
  // Three pieces in a row are one tube: a ray goes in once and out once.
  const auto stage = vela_test::stageOf(looks + R"(def BasisCurves "Tube"
{
    uniform token type = "linear"
    int[] curveVertexCounts = [4]
    point3f[] points = [(-2, 0, 0), (-0.1, 0, 0), (0.1, 0, 0), (2, 0, 0)]
    float[] widths = [1]
    rel material:binding = </M>
}
)" + kCamera);
  const Values v = render(stage, optionsOf("rgba"));
  for (const std::size_t x : {5u, 18u, 19u, 20u, 21u, 35u})
    EXPECT_NEAR(static_cast<double>(v.floats.at("A")[at(x, 10)]), 0.75, 1e-6) << x;
}

}  // namespace
