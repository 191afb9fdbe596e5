// What pictures say and show of materials.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TextStage.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/picture/PngFile.h"

namespace {

using namespace vela::picture;
using vela_test::stageOf;

TEST(PictureMaterials, TheLayerHasTheMaterialOfEachFaceAndTheManifestItsName) {
  // Four squares side by side, seen from the front: by the mesh, by a subset, by a subset whose
  // binding leads nowhere, by the mesh again but for previews.
  const auto stage = stageOf(
      "def Scope \"Looks\"\n{\n def Material \"A\"\n {\n }\n def Material \"B\"\n {\n }\n"
      " def Material \"C\"\n {\n }\n}\n"
      "def Mesh \"Row\"\n{\n int[] faceVertexCounts = [4, 4, 4, 4]\n"
      " int[] faceVertexIndices = [0,1,6,5, 1,2,7,6, 2,3,8,7, 3,4,9,8]\n"
      " point3f[] points = [(0,0,0),(1,0,0),(2,0,0),(3,0,0),(4,0,0),"
      "(0,1,0),(1,1,0),(2,1,0),(3,1,0),(4,1,0)]\n"
      " uniform token subdivisionScheme = \"none\"\n rel material:binding = </Looks/A>\n"
      " rel material:binding:preview = </Looks/C>\n"
      " def GeomSubset \"s\"\n {\n  int[] indices = [1]\n"
      "  uniform token familyName = \"materialBind\"\n  rel material:binding:full = </Looks/B>\n "
      "}\n"
      " def GeomSubset \"t\"\n {\n  int[] indices = [2]\n"
      "  uniform token familyName = \"materialBind\"\n"
      "  rel material:binding:full = </Looks/Gone>\n }\n}\n"
      "def Camera \"Cam\"\n{\n token projection = \"orthographic\"\n"
      " float horizontalAperture = 50\n float verticalAperture = 10\n"
      " double3 xformOp:translate = (2, 0.5, 5)\n"
      " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n}\n");
  RenderOptions options;
  options.view.width = 10;
  options.view.height = 2;
  options.layers = {"material", "prim"};
  const auto values = [&] {
    std::string error;
    const auto picture = renderPicture(stage, options, 1, {}, &error);
    EXPECT_TRUE(picture) << error;
    std::vector<std::uint32_t> row;
    for (int x = 0; x < 10; ++x) row.push_back(picture->channel("material.id").integers(x, 0));
    for (const Attribute& attribute : picture->attributes)
      if (attribute.name == "material/manifest")
        return std::make_pair(row, std::get<std::string>(attribute.value));
    return std::make_pair(row, std::string("no manifest"));
  };
  using Row = std::vector<std::uint32_t>;
  EXPECT_EQ(values(), std::make_pair(Row({0, 1, 1, 2, 2, 0, 0, 1, 1, 0}),
                                     std::string(R"({"/Looks/A":1,"/Looks/B":2})")));
  options.materialPurpose = vela::scene::MaterialPurpose::preview;
  EXPECT_EQ(values(),
            std::make_pair(Row({0, 1, 1, 1, 1, 1, 1, 1, 1, 0}), std::string(R"({"/Looks/C":1})")));

  // The manifest comes with the layer alone.
  options.layers = {"prim"};
  const auto picture = renderPicture(stage, options);
  ASSERT_TRUE(picture);
  for (const Attribute& attribute : picture->attributes)
    EXPECT_NE(attribute.name, "material/manifest");
}

// A square of two units about the zero point, seen from straight ahead so that it fills the
// picture, with a material of these inputs; and what else there is.
std::shared_ptr<ovo::Stage> squareOf(const std::string& inputs, const std::string& more = "",
                                     const std::string& nodes = "") {
  return stageOf(
      "def Material \"M\"\n{\n token outputs:surface.connect = </M/S.outputs:surface>\n"
      " def Shader \"S\"\n {\n  uniform token info:id = \"UsdPreviewSurface\"\n" +
      inputs + "  token outputs:surface\n }\n" + nodes + "}\n" +
      vela_test::squareText("Square",
                            " rel material:binding = </M>\n"
                            " texCoord2f[] primvars:st = [(0,0), (1,0), (1,1), (0,1)]"
                            " (interpolation = \"vertex\")\n") +
      more +
      "def Camera \"Cam\"\n{\n token projection = \"orthographic\"\n"
      " float horizontalAperture = 20\n float verticalAperture = 20\n"
      " double3 xformOp:translate = (0, 0, 5)\n"
      " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n}\n");
}

// A square behind it, without a material, of one colour.
std::string backText(const std::string& colour) {
  return vela_test::squareText(
      "Back", " color3f[] primvars:displayColor = [" + colour + "]\n" + vela_test::at(0, 0, -1));
}

RenderOptions smallOptions() {
  RenderOptions options;
  options.view.width = options.view.height = 8;
  options.samples = 4;
  options.layers = {"rgba", "albedo"};
  return options;
}

Picture pictureOf(const std::shared_ptr<ovo::Stage>& stage,
                  const RenderOptions& options = smallOptions()) {
  std::string error;
  auto picture = renderPicture(stage, options, 1, {}, &error);
  EXPECT_TRUE(picture) << error;
  return picture ? *std::move(picture) : Picture();
}

float at(const Picture& picture, const char* channel, int x = 4, int y = 4) {
  return picture.channel(channel).floats(x, y);
}

TEST(PictureMaterials, AlbedoIsTheDiffuseColourWhateverTheOpacity) {
  for (const char* opacity : {"1", "0.25"}) {
    const Picture picture =
        pictureOf(squareOf("  color3f inputs:diffuseColor = (0.25, 0.5, 0.75)\n  float "
                           "inputs:opacity = " +
                           std::string(opacity) + "\n"));
    EXPECT_FLOAT_EQ(at(picture, "albedo.R"), 0.25f);
    EXPECT_FLOAT_EQ(at(picture, "albedo.G"), 0.5f);
    EXPECT_FLOAT_EQ(at(picture, "albedo.B"), 0.75f);
    EXPECT_FLOAT_EQ(at(picture, "A"), std::stof(opacity));
  }
}

TEST(PictureMaterials, WhatIsBehindShowsAsFarAsTheOpacityLetsIt) {
  // Black in front of nothing and in front of a square; without reflections.
  const std::string black =
      "  color3f inputs:diffuseColor = (0, 0, 0)\n  int inputs:useSpecularWorkflow = 1\n"
      "  float inputs:ior = 1\n";
  const auto red = [&](const std::string& inputs, const std::string& more) {
    return at(pictureOf(squareOf(black + inputs, more)), "R");
  };
  const std::string back = backText("(1, 1, 1)");
  const float whole = red("  float inputs:opacity = 0\n", back);
  EXPECT_GT(whole, 0.1f);
  const float half = red("  float inputs:opacity = 0.5\n", back);
  // Half of the light comes through to the back, and half of it through to the camera.
  EXPECT_GT(half, 0.2f * whole);
  EXPECT_LT(half, 0.55f * whole);
  EXPECT_LT(red("", back), 0.02f);
  EXPECT_FLOAT_EQ(at(pictureOf(squareOf(black + "  float inputs:opacity = 0.5\n", back)), "A"),
                  1.0f);
}

TEST(PictureMaterials, BelowTheThresholdThereIsNoSurfaceAndNoShadow) {
  const std::string back = backText("(0, 1, 0)");
  const auto render = [&](const std::string& inputs) { return pictureOf(squareOf(inputs, back)); };
  const Picture cut =
      render("  float inputs:opacity = 0.4\n  float inputs:opacityThreshold = 0.5\n");
  const Picture gone = pictureOf(squareOf("  float inputs:opacity = 0\n", back));
  EXPECT_EQ(at(cut, "albedo.G"), 1.0f);
  EXPECT_EQ(at(cut, "albedo.R"), 0.0f);
  EXPECT_NEAR(at(cut, "G"), at(gone, "G"), 0.12f);
  const Picture kept =
      render("  float inputs:opacity = 0.6\n  float inputs:opacityThreshold = 0.5\n");
  EXPECT_FLOAT_EQ(at(kept, "albedo.G"), 0.18f);
  EXPECT_FLOAT_EQ(at(kept, "A"), 1.0f);
}

TEST(PictureMaterials, ReflectionsOfGlassStayAndThoseOfPresenceFade) {
  const std::string glass =
      "  color3f inputs:emissiveColor = (1, 1, 1)\n  float inputs:opacity = 0.25\n";
  EXPECT_GT(at(pictureOf(squareOf(glass)), "R"), 1.0f);
  EXPECT_LT(at(pictureOf(squareOf(glass + "  token inputs:opacityMode = \"presence\"\n")), "R"),
            0.5f);
}

TEST(PictureMaterials, ValuesThatAreNoNumbersLeaveNoneInThePicture) {
  for (const char* bad :
       {"  float inputs:opacity = nan\n", "  color3f inputs:diffuseColor = (nan, inf, -5)\n",
        "  color3f inputs:emissiveColor = (inf, nan, -inf)\n",
        "  float inputs:roughness = nan\n  float inputs:ior = -inf\n  float inputs:metallic = "
        "inf\n",
        "  float inputs:opacityThreshold = nan\n", "  float inputs:clearcoat = 1e38\n"}) {
    const Picture picture = pictureOf(squareOf(bad, backText("(1, 0, 0)")));
    for (const Layer& layer : picture.layers)
      for (const float value : layer.floats) ASSERT_TRUE(std::isfinite(value)) << bad;
  }
}

TEST(PictureMaterials, WithoutThemThePictureIsAsIfNoneWereBound) {
  const std::string colour = backText("(0.2, 0.4, 0.6)");
  RenderOptions options = smallOptions();
  options.materials = false;
  const Picture off = pictureOf(squareOf("  float inputs:opacity = 0.5\n", colour), options);
  // A binding that leads nowhere shows nothing either.
  const auto unbound = squareOf("", colour);
  ASSERT_TRUE(
      unbound->getPrimAtPath("/Square").setRelationshipTargets("material:binding", {"/Gone"}));
  const Picture none = pictureOf(unbound);
  for (std::size_t i = 0; i < off.layers.size(); ++i)
    EXPECT_EQ(off.layers[i].floats, none.layers[i].floats);
}

TEST(PictureMaterials, ATextureStandsUprightAndFootprintsPickReductions) {
  const vela_test::TemporaryFolder folder;
  // Red over blue, each of both halves.
  std::vector<float> rgb;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x)
      for (const float v : {y < 32 ? 1.0f : 0.0f, 0.0f, y < 32 ? 0.0f : 1.0f}) rgb.push_back(v);
  ASSERT_TRUE(writePng(64, 64, rgb, folder.file("t.png")));
  const auto stage =
      squareOf("  color3f inputs:diffuseColor.connect = </M/T.outputs:rgb>\n", "",
               " def Shader \"T\"\n {\n  uniform token info:id = \"UsdUVTexture\"\n"
               "  asset inputs:file = @" +
                   folder.file("t.png") +
                   "@\n"
                   "  float2 inputs:st.connect = </M/R.outputs:result>\n  float3 outputs:rgb\n }\n"
                   " def Shader \"R\"\n {\n  uniform token info:id = \"UsdPrimvarReader_float2\"\n"
                   "  string inputs:varname = \"st\"\n  float2 outputs:result\n }\n");
  RenderOptions options = smallOptions();
  const Picture picture = pictureOf(stage, options);
  EXPECT_NEAR(at(picture, "albedo.R", 4, 1), 1.0f, 1e-3f);
  EXPECT_NEAR(at(picture, "albedo.B", 4, 1), 0.0f, 1e-3f);
  EXPECT_NEAR(at(picture, "albedo.B", 4, 6), 1.0f, 1e-3f);
  // A picture of one pixel and one sample sees all of the texture, not the texel in its middle.
  options.view.width = options.view.height = 1;
  options.samples = 1;
  const Picture tiny = pictureOf(stage, options);
  EXPECT_NEAR(at(tiny, "albedo.R", 0, 0), 0.5f, 0.02f);
  EXPECT_NEAR(at(tiny, "albedo.B", 0, 0), 0.5f, 0.02f);
}

// The square with a texture whose fallback is a quarter.
std::shared_ptr<ovo::Stage> texturedBy(const std::string& file) {
  return squareOf("  color3f inputs:diffuseColor.connect = </M/T.outputs:rgb>\n", "",
                  " def Shader \"T\"\n {\n  uniform token info:id = \"UsdUVTexture\"\n"
                  "  asset inputs:file = @" +
                      file +
                      "@\n  float4 inputs:fallback = (0.25, 0.25, 0.25, 1)\n"
                      "  token inputs:sourceColorSpace = \"raw\"\n"
                      "  float2 inputs:st.connect = </M/R.outputs:result>\n"
                      "  float3 outputs:rgb\n }\n"
                      " def Shader \"R\"\n {\n  uniform token info:id = "
                      "\"UsdPrimvarReader_float2\"\n  string inputs:varname = \"st\"\n"
                      "  float2 outputs:result\n }\n");
}

TEST(PictureMaterials, TexturesThatCannotBeReadShowTheirFallbackAndAreOneLine) {
  const vela_test::TemporaryFolder folder;
  const auto pngOf = [](int width, int height) {
    std::vector<unsigned char> bytes;
    // White is the same by any curve.
    EXPECT_TRUE(writePng(width, height,
                         std::vector<float>(3 * static_cast<std::size_t>(width * height), 1.0f),
                         bytes));
    return std::string(bytes.begin(), bytes.end());
  };
  const std::string whole = pngOf(32, 32);
  std::string hostile = whole;
  hostile.replace(16, 8, std::string("\x7f\xff\xff\xff\x7f\xff\xff\xff", 8));
  ASSERT_TRUE(std::filesystem::create_directory(folder.file("folder.png")));
  struct Case {
    const char* name;
    std::string bytes;
    bool reads;
  };
  for (const Case& c : std::vector<Case>{{"gone.png", "", false},
                                         {"folder.png", "", false},
                                         {"empty.png", "", false},
                                         {"text.png", "no image", false},
                                         {"cut.png", whole.substr(0, whole.size() / 2), false},
                                         {"hostile.png", hostile, false},
                                         {"named_wrongly.jpg", whole, true},
                                         {"named_wrongly.exr", whole, true},
                                         {"without_a_name", whole, true},
                                         {"wide.png", pngOf(100000, 1), true},
                                         {"tall.png", pngOf(1, 100000), true}}) {
    SCOPED_TRACE(c.name);
    if (!c.bytes.empty() || std::string(c.name) == "empty.png") {
      ASSERT_TRUE(vela_test::writeFile(folder.file(c.name), c.bytes));
    }
    std::vector<vela::scene::Problem> problems;
    const auto renderer =
        PictureRenderer::make(texturedBy(folder.file(c.name)), smallOptions(), &problems);
    ASSERT_TRUE(renderer);
    const auto picture = renderer->renderAll(1);
    ASSERT_TRUE(picture);
    EXPECT_NEAR(at(*picture, "albedo.R", 4, 4), c.reads ? 1.0f : 0.25f, 1e-3f);
    for (const Layer& layer : picture->layers)
      for (const float value : layer.floats) ASSERT_TRUE(std::isfinite(value));
    ASSERT_EQ(problems.size(), c.reads ? 0u : 1u);
    if (c.reads) continue;
    EXPECT_EQ(problems[0].kind, vela::scene::Problem::Kind::noTexture);
    EXPECT_NE(problems[0].subject.find(c.name), std::string::npos) << problems[0].subject;
    EXPECT_FALSE(problems[0].reason.empty());
    EXPECT_EQ(problems[0].text().find('\n'), std::string::npos);
  }
}

TEST(PictureMaterials, PrimvarsThatAreNoNumbersLeaveNoneInThePicture) {
  const std::string front = vela_test::at(0, 0, 1);
  const std::string curves =
      "def BasisCurves \"C\"\n{\n int[] curveVertexCounts = [4]\n"
      " point3f[] points = [(-1, 0, 1), (0, 0, 1), (0.5, 0, 1), (1, 0, 1)]\n";
  for (const std::string& bad :
       {vela_test::squareText("Bad", " float[] primvars:displayOpacity = [nan]\n" + front),
        vela_test::squareText("Bad", " float[] primvars:displayOpacity = [inf]\n" + front),
        vela_test::squareText("Bad",
                              " color3f[] primvars:displayColor = [(nan, inf, -inf)]\n" + front),
        curves + " float[] widths = [nan]\n}\n", curves + " float[] widths = [inf]\n}\n",
        curves + " float[] widths = [0.5]\n float[] primvars:displayOpacity = [nan]\n}\n",
        curves + " float[] widths = [0.5]\n color3f[] primvars:displayColor = [(nan, 0, 0)]\n}\n",
        std::string("def Points \"P\"\n{\n point3f[] points = [(0, 0, 1), (nan, 0, 1)]\n"
                    " float[] widths = [0.5, nan]\n}\n")}) {
    SCOPED_TRACE(bad);
    const Picture picture = pictureOf(squareOf("", bad));
    ASSERT_FALSE(picture.layers.empty());
    for (const Layer& layer : picture.layers)
      for (const float value : layer.floats) ASSERT_TRUE(std::isfinite(value));
  }
}

TEST(PictureMaterials, PixelsDependOnNeitherTilesNorThreads) {
  const auto stage = squareOf("  float inputs:opacity = 0.5\n  float inputs:metallic = 0.5\n",
                              backText("(1, 0, 0)"));
  const auto renderer = PictureRenderer::make(stage, smallOptions());
  ASSERT_TRUE(renderer);
  const auto one = renderer->renderAll(1), many = renderer->renderAll(4);
  const auto part = renderer->render({3, 2, 7, 6});
  for (std::size_t i = 0; i < one->layers.size(); ++i)
    EXPECT_EQ(one->layers[i].floats, many->layers[i].floats);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(part->channel("R").floats(x, y), one->channel("R").floats(x + 3, y + 2));
}

}  // namespace
