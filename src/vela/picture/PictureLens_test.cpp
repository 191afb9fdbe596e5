// Depth of field, motion blur, clipping and overscan against closed forms.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/TextStage.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/PictureRenderer.h"

namespace {

using namespace vela::picture;
using vela::scene::Problem;
using vela_test::squareText;
using vela_test::stageOf;

// A window half as wide as the distance; at 200 pixels of width 400 / distance pixels a unit.
std::string cameraText(const std::string& more) {
  return "def Camera \"Camera\"\n{\n float focalLength = 50\n float horizontalAperture = 25\n"
         " float verticalAperture = 25\n" +
         more + "}\n";
}

std::string moving(const char* from, const char* to) {
  return std::string(" double3 xformOp:translate.timeSamples = { 0: ") + from + ", 1: " + to +
         " }\n uniform token[] xformOpOrder = [\"xformOp:translate\"]\n";
}

RenderOptions optionsOf(int samples = 64) {
  RenderOptions options;
  options.view.width = options.view.height = 200;
  options.samples = samples;
  options.time = 0.0;
  return options;
}

struct Rendered {
  Rendered(const std::string& text, const RenderOptions& options, const Tile& region)
      : stage(stageOf(text)), renderer(PictureRenderer::make(stage, options, &problems)) {
    if (renderer) picture = renderer->renderRegion(region, 1);
    EXPECT_TRUE(picture) << (problems.empty() ? "" : problems.back().text());
  }
  [[nodiscard]] float alpha(int x, int y) const { return picture->channel("A").floats(x, y); }
  std::shared_ptr<ovo::Stage> stage;
  std::vector<Problem> problems;
  std::unique_ptr<PictureRenderer> renderer;
  std::optional<Picture> picture;
};

std::string problemsOf(const std::string& text, const RenderOptions& options) {
  std::vector<Problem> problems;
  (void)PictureRenderer::make(stageOf(text), options, &problems);
  std::string all;
  for (const Problem& problem : problems)
    if (problem.kind == Problem::Kind::noEffect || problem.kind == Problem::Kind::badOption)
      all += problem.text() + "\n";
  return all;
}

void expectSamePixels(const Picture& a, const Picture& b) {
  ASSERT_EQ(a.layers.size(), b.layers.size());
  for (std::size_t l = 0; l < a.layers.size(); ++l) {
    ASSERT_EQ(a.layers[l].floats.size(), b.layers[l].floats.size());
    // Bit by bit, so that a NaN is as good as another. Layers of ids have none.
    const bool isSame = a.layers[l].floats.empty() ||
                        std::memcmp(a.layers[l].floats.data(), b.layers[l].floats.data(),
                                    a.layers[l].floats.size() * sizeof(float)) == 0;
    EXPECT_TRUE(isSame) << a.layers[l].name;
    EXPECT_EQ(a.layers[l].integers, b.layers[l].integers) << a.layers[l].name;
  }
}

// ---- Depth of field

// A square of 4 x 4 pixels at 20 units. The lens has a radius of 5 / 5 / 2 = 0.5 and is focused at
// s: in the plane in focus a point at distance d fills a disk of the radius 0.5 |s - d| / d.
TEST(PictureLens, APointOutOfFocusIsADiskOfTheCircleOfConfusion) {
  const std::string square =
      squareText("Square",
                 " double3 xformOp:translate = (0, 0, -20)\n float3 xformOp:scale = (0.1, 0.1, 1)\n"
                 " uniform token[] xformOpOrder = [\"xformOp:translate\", \"xformOp:scale\"]\n");
  for (const double focus : {10.0, 14.0, 20.0, 60.0}) {
    RenderOptions options = optionsOf(256);
    options.view.depthOfField = true;
    const Rendered rendered(
        square +
            cameraText(" float fStop = 5\n float focusDistance = " + std::to_string(focus) + "\n"),
        options, {70, 70, 130, 130});
    double sum = 0.0, inX = 0.0, inY = 0.0, farthest = 0.0;
    for (int y = 0; y < 60; ++y)
      for (int x = 0; x < 60; ++x) {
        const double a = rendered.alpha(x, y), dx = x + 0.5 - 30.0, dy = y + 0.5 - 30.0;
        sum += a;
        inX += a * dx * dx;
        inY += a * dy * dy;
        if (a > 0.0) farthest = std::max(farthest, std::sqrt(dx * dx + dy * dy));
      }
    const double radius = 0.5 * std::abs(focus - 20.0) / 20.0 * (400.0 / focus);
    EXPECT_NEAR(sum, 16.0, 0.3) << "what is out of focus is spread, not lost";
    // The variance of a uniform disk along an axis is r^2 / 4, of the square 2^2 / 3.
    EXPECT_NEAR(inX / sum, radius * radius / 4.0 + 4.0 / 3.0, 0.03 * radius * radius / 4.0 + 0.1);
    EXPECT_NEAR(inY / sum, radius * radius / 4.0 + 4.0 / 3.0, 0.03 * radius * radius / 4.0 + 0.1);
    EXPECT_LT(farthest, radius + 2.0 * std::sqrt(2.0) + std::sqrt(0.5) + 1e-4);
    EXPECT_GT(farthest, radius);
  }
}

TEST(PictureLens, DataLayersAndSingleSamplesAreSharp) {
  const std::string text =
      squareText("Square", moving("(0, 0, -20)", "(3, 0, -20)")) +
      cameraText(" float fStop = 0.5\n float focusDistance = 2\n double shutter:close = 1\n");
  for (const int samples : {1, 16}) {
    RenderOptions options = optionsOf(samples);
    options.layers = samples == 1 ? std::vector<std::string>{"rgba", "depth", "crypto_object"}
                                  : std::vector<std::string>{"depth", "P", "N", "prim", "face"};
    const Rendered still(text, options, {80, 80, 120, 120});
    options.view.depthOfField = true;
    options.motionSteps = 8;
    const Rendered blurred(text, options, {80, 80, 120, 120});
    EXPECT_EQ(blurred.renderer->moments().size(), 8u);
    expectSamePixels(*still.picture, *blurred.picture);
    EXPECT_EQ(still.picture->manifest, blurred.picture->manifest);
  }
}

// ---- Motion

// The share of the pixel from x to x + 1 that an interval covers.
double overlap(double x, double low, double high) {
  return std::max(0.0, std::min(x + 1.0, high) - std::max(x, low));
}

// A square of 20 x 20 pixels that moves 30 to the right while the shutter is open, by whichever
// means: the mean over the moments of what it covers then.
TEST(PictureLens, AMovingSquareCoversWhatItCoversAtItsMoments) {
  const std::string place =
      " double3 xformOp:translate = (0, 0, -40)\n"
      " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n";
  const std::string shutter = " double shutter:open = 0.25\n double shutter:close = 0.75\n";
  const std::string byTransform =
      squareText("Square", moving("(0, 0, -40)", "(6, 0, -40)")) + cameraText(shutter);
  const std::string byCamera =
      squareText("Square", place) + cameraText(shutter + moving("(0, 0, 0)", "(-6, 0, 0)"));
  const std::string byPoints =
      "def Mesh \"Square\"\n{\n int[] faceVertexCounts = [4]\n"
      " int[] faceVertexIndices = [0, 1, 2, 3]\n uniform token subdivisionScheme = \"none\"\n"
      " point3f[] points.timeSamples = { 0: [(-1,-1,0), (1,-1,0), (1,1,0), (-1,1,0)],"
      " 1: [(5,-1,0), (7,-1,0), (7,1,0), (5,1,0)] }\n" +
      place + "}\n" + cameraText(shutter);
  const std::string byInstancer =
      "def PointInstancer \"Many\"\n{\n rel prototypes = </Many/Proto>\n"
      " int[] protoIndices = [0]\n"
      " point3f[] positions.timeSamples = { 0: [(0, 0, -40)], 1: [(6, 0, -40)] }\n" +
      squareText("Proto") + "}\n" + cameraText(shutter);

  constexpr int kMoments = 20;
  for (const std::string& text : {byTransform, byCamera, byPoints, byInstancer}) {
    RenderOptions options = optionsOf(64);
    options.motionSteps = kMoments;
    const Rendered rendered(text, options, {80, 92, 160, 108});
    ASSERT_EQ(rendered.renderer->moments().size(), std::size_t{kMoments});
    EXPECT_DOUBLE_EQ(rendered.renderer->moments()[0], 0.2625);
    for (int x = 0; x < 80; ++x) {
      double expected = 0.0, mean = 0.0;
      for (int k = 0; k < kMoments; ++k) {
        // 10 pixels a unit; at time t the square reaches from 6 t - 1 to 6 t + 1.
        const double middle = 100.0 + 60.0 * (0.25 + 0.5 * (k + 0.5) / kMoments);
        expected += overlap(x + 80.0, middle - 10.0, middle + 10.0) / kMoments;
      }
      for (int y = 0; y < 16; ++y) mean += static_cast<double>(rendered.alpha(x, y)) / 16.0;
      EXPECT_NEAR(mean, expected, 0.02) << x;
      if (expected == 0.0) {
        EXPECT_EQ(mean, 0.0) << x;
      }
    }
  }
}

TEST(PictureLens, WhatStandsStillKeepsItsBitsBesideWhatMoves) {
  const std::string still =
      squareText("Still",
                 " double3 xformOp:translate = (-3, 0, -40)\n"
                 " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n") +
      cameraText(" double shutter:close = 0.5\n");
  const std::string text = still + squareText("Moves", moving("(6, 0, -40)", "(7, 0, -40)"));
  RenderOptions options = optionsOf(16);
  options.layers = {"crypto_object", "albedo"};
  const Tile region{50, 80, 90, 120};  // the moving one is elsewhere
  const Rendered without(text, options, region);
  options.motionSteps = 8;
  const Rendered with(text, options, region);
  EXPECT_EQ(with.renderer->moments().size(), 8u);
  expectSamePixels(*without.picture, *with.picture);
}

// Shadows fall where things are at the moment of the sample: under a moving square that is lit from
// straight above the floor is dark as often as the square is over it.
TEST(PictureLens, ShadowsMoveWithWhatThrowsThem) {
  const std::string floor = squareText(
      "Floor",
      " double3 xformOp:translate = (0, -4, -40)\n float3 xformOp:rotateXYZ = (-90, 0, 0)\n"
      " float3 xformOp:scale = (30, 30, 1)\n uniform token[] xformOpOrder = "
      "[\"xformOp:translate\", \"xformOp:rotateXYZ\", \"xformOp:scale\"]\n");
  const std::string lid =
      "def Mesh \"Lid\"\n{\n int[] faceVertexCounts = [4]\n int[] faceVertexIndices = [0, 1, 2, "
      "3]\n"
      " point3f[] points = [(-2,0,-9), (2,0,-9), (2,0,9), (-2,0,9)]\n"
      " uniform token subdivisionScheme = \"none\"\n" +
      moving("(-8, 30, -40)", "(8, 30, -40)") + "}\n";
  const std::string sun =
      "def DistantLight \"Sun\"\n{\n float inputs:intensity = 1\n float inputs:angle = 0\n"
      " float xformOp:rotateX = -90\n uniform token[] xformOpOrder = [\"xformOp:rotateX\"]\n}\n";
  RenderOptions options = optionsOf(256);
  options.bounces = 0;
  options.motionSteps = 32;
  const std::string camera = cameraText(" double shutter:close = 1\n");
  const Tile region{98, 138, 102, 142};  // the floor at x = 0, z = -40 lies at 100, 140
  const Rendered open(
      floor + sun + camera,
      [&] {
        RenderOptions still = options;
        still.motionSteps = 0;
        return still;
      }(),
      region);
  const Rendered shaded(floor + lid + sun + camera, options, region);
  double light = 0.0, left = 0.0;
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) {
      light += static_cast<double>(open.picture->channel("R").floats(x, y));
      left += static_cast<double>(shaded.picture->channel("R").floats(x, y));
    }
  // A lid of 4 units that moves 16: over each point of its middle for a quarter of the time.
  EXPECT_GT(light, 1.0);
  EXPECT_NEAR(left / light, 0.75, 0.02);
}

TEST(PictureLens, WhatHasNoEffectIsSaid) {
  const std::string square = squareText("Square", moving("(0, 0, -40)", "(6, 0, -40)"));
  RenderOptions options = optionsOf(4);
  options.motionSteps = 4;
  EXPECT_EQ(problemsOf(square, options), "motion: there is no camera, and so no shutter\n");
  EXPECT_EQ(problemsOf(square + cameraText(""), options),
            "motion: the shutter of /Camera does not open\n");
  const std::string shutter = cameraText(" double shutter:close = 1\n");
  EXPECT_EQ(problemsOf(square + shutter, options), "");
  EXPECT_EQ(problemsOf(squareText("Square") + shutter, options),
            "motion: nothing moves while the shutter is open\n");
  options.time = tarn::defaultTimeValue();
  EXPECT_EQ(problemsOf(square + shutter, options), "motion: the picture is of no time\n");

  options.motionSteps = 1025;
  EXPECT_EQ(problemsOf(square, options), "motion steps: 1025 is not from 0 to 1024\n");
  options.motionSteps = 2;
  options.caster = vela::scene::CasterKind::hitDetector;
  EXPECT_NE(problemsOf(square, options).find("hit detector"), std::string::npos);
}

// ---- Clipping

// A floor one unit below the camera: pixel rows show it at the distance 1 / tan.
TEST(PictureLens, ClippingEndsExactlyAtThePlanes) {
  const std::string floor =
      "def Mesh \"Floor\"\n{\n int[] faceVertexCounts = [4]\n int[] faceVertexIndices = [0, 1, 2, "
      "3]\n"
      " point3f[] points = [(-90,-1,-90), (90,-1,-90), (90,-1,0), (-90,-1,0)]\n}\n" +
      cameraText(" float2 clippingRange = (5, 25)\n float4[] clippingPlanes = [(1, 0, 0, 0.3)]\n");
  RenderOptions options = optionsOf();
  options.layers = {"depth", "P"};
  options.view.clipping = true;
  const Rendered rendered(floor, options, {0, 0, 200, 200});
  std::size_t shown = 0;
  for (int y = 0; y < 200; ++y)
    for (int x = 0; x < 200; ++x) {
      // The window is from -0.25 to 0.25 at distance 1.
      const double down = ((y + 0.5) - 100.0) / 400.0, right = ((x + 0.5) - 100.0) / 400.0;
      const double distance = down > 0.0 ? 1.0 / down : 1e9;
      const bool isInside = distance >= 5.0 && distance <= 25.0 && right * distance >= -0.3;
      const float depth = rendered.picture->channel("Z").floats(x, y);
      ASSERT_EQ(std::isfinite(depth), isInside) << x << ' ' << y << ' ' << distance;
      if (isInside) {
        ++shown;
        EXPECT_NEAR(depth, distance, 1e-5 * distance);
      }
    }
  EXPECT_GT(shown, 5000u);

  // Without it the range is measured along each ray, and there are no planes.
  options.view.clipping = false;
  const Rendered open(floor, options, {0, 0, 200, 200});
  EXPECT_TRUE(std::isfinite(open.picture->channel("Z").floats(0, 150)));
  EXPECT_FALSE(std::isfinite(rendered.picture->channel("Z").floats(0, 150)));
}

// What is cut away still throws its shadow, and shows nothing of its own.
TEST(PictureLens, ClippingIsOfTheCameraAlone) {
  const std::string text =
      squareText("Back",
                 " double3 xformOp:translate = (0, 0, -40)\n"
                 " float3 xformOp:scale = (20, 20, 1)\n uniform token[] xformOpOrder = "
                 "[\"xformOp:translate\", \"xformOp:scale\"]\n") +
      squareText("Front",
                 " double3 xformOp:translate = (0, 0, -4)\n"
                 " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n") +
      "def DistantLight \"Sun\"\n{\n float inputs:intensity = 1\n float inputs:angle = 0\n}\n" +
      cameraText(" float2 clippingRange = (10, 100)\n");
  RenderOptions options = optionsOf(4);
  options.view.clipping = true;
  options.bounces = 0;
  options.layers = {"rgba", "prim"};
  const Rendered rendered(text, options, {90, 90, 110, 110});
  EXPECT_EQ(rendered.picture->channel("prim.id").integers(10, 10), 1u);
  EXPECT_EQ(rendered.alpha(10, 10), 1.0f);
  EXPECT_EQ(rendered.picture->channel("R").floats(10, 10), 0.0f);
}

// ---- Overscan

TEST(PictureLens, OverscanLeavesThePictureWithinAsItIs) {
  const std::string text =
      squareText("Square",
                 " double3 xformOp:translate = (1, 0, -20)\n"
                 " float3 xformOp:scale = (6, 3, 1)\n uniform token[] xformOpOrder = "
                 "[\"xformOp:translate\", \"xformOp:scale\"]\n") +
      cameraText("");
  RenderOptions options = optionsOf(16);
  options.view.width = 64;
  options.view.height = 40;
  options.layers = {"rgba", "depth", "N", "prim", "crypto_object"};
  const Rendered plain(text, options, {0, 0, 64, 40});
  options.overscan = 9;
  const Rendered larger(text, options, {-100, -100, 1000, 1000});
  const PictureRenderer& renderer = *larger.renderer;
  EXPECT_EQ(renderer.width(), 64);
  EXPECT_EQ(renderer.height(), 40);
  const Tile window = renderer.window();
  EXPECT_EQ(std::vector<int>({window.x0, window.y0, window.x1, window.y1}),
            (std::vector<int>{-9, -9, 73, 49}));
  ASSERT_EQ(larger.picture->width, 82);
  ASSERT_EQ(larger.picture->height, 58);
  expectSamePixels(*plain.picture, larger.picture->part(9, 9, 64, 40));
  EXPECT_EQ(plain.picture->attributes.size(), larger.picture->attributes.size());
  EXPECT_GT(larger.alpha(81, 29), 0.0f) << "there is more beyond the edge";

  // In a file the data window says where, and the pixels come back.
  ExrOptions place;
  place.x = place.y = -9;
  place.displayWidth = 64;
  place.displayHeight = 40;
  const std::string file =
      testing::TempDir() + "vela_overscan_" + std::to_string(getpid()) + ".exr";
  std::string why;
  ASSERT_TRUE(writeExr(*larger.picture, file, place, &why)) << why;
  Picture back = renderer.makePicture();
  Tile part;
  EXPECT_FALSE(readExr(file, back, part, &why)) << "it is of 64 x 40 pixels";
  ASSERT_TRUE(readExr(file, back, place, part, &why)) << why;
  EXPECT_EQ(std::vector<int>({part.x0, part.y0, part.x1, part.y1}),
            (std::vector<int>{-9, -9, 73, 49}));
  expectSamePixels(*larger.picture, back);
  std::remove(file.c_str());

  options.overscan = -1;
  EXPECT_EQ(problemsOf(text, options), "overscan: -1 is not from 0 to 16384\n");
  options.overscan = 4;
  options.view.lens = vela::LensProjection::spherical;
  EXPECT_EQ(problemsOf(text, options),
            "overscan: the lens shows nothing more beyond the picture's edges\n");
}

// ---- All of them

TEST(PictureLens, TilesAndThreadsMakeTheSameBytes) {
  const std::string text =
      squareText("Far", moving("(0, 0, -60)", "(6, 3, -60)")) +
      squareText("Near",
                 " double3 xformOp:translate = (0.5, 0, -12)\n uniform token[] "
                 "xformOpOrder = [\"xformOp:translate\"]\n") +
      "def DomeLight \"Sky\"\n{\n}\n" +
      cameraText(
          " float fStop = 2\n float focusDistance = 20\n double shutter:close = 0.5\n"
          " float2 clippingRange = (1, 61)\n");
  RenderOptions options = optionsOf(9);
  options.view.width = 50;
  options.view.height = 30;
  options.view.depthOfField = options.view.clipping = true;
  options.motionSteps = 6;
  options.overscan = 5;
  options.layers = {"rgba", "depth", "crypto_object"};
  const Rendered one(text, options, {-5, -5, 55, 35});
  const auto three = one.renderer->renderAll(3);
  ASSERT_TRUE(three);
  expectSamePixels(*one.picture, *three);
  Picture pieces = one.renderer->makePicture();
  for (int y = -5; y < 35; y += 7)
    for (int x = -5; x < 55; x += 11)
      ASSERT_TRUE(one.renderer->render({x, y, x + 11, y + 7}, pieces));
  expectSamePixels(*one.picture, pieces);
}

TEST(Picture, APartIsARectangleOfEachLayer) {
  Picture picture;
  picture.width = 3;
  picture.height = 2;
  picture.layers.push_back({"depth", {"Z"}, ValueType::float32, {0, 1, 2, 3, 4, 5}, {}});
  picture.layers.push_back({"prim", {"prim.id"}, ValueType::uint32, {}, {9, 8, 7, 6, 5, 4}});
  picture.attributes.push_back({"comment", std::string("whole")});
  const Picture part = picture.part(1, -4, 7, 6);
  EXPECT_EQ(part.width, 2);
  EXPECT_EQ(part.height, 2);
  EXPECT_EQ(part.layers[0].floats, (std::vector<float>{1, 2, 4, 5}));
  EXPECT_EQ(part.layers[1].integers, (std::vector<std::uint32_t>{8, 7, 5, 4}));
  EXPECT_EQ(part.attributes.size(), 1u);
  const Picture none = picture.part(5, 5, 2, 2);
  EXPECT_EQ(none.pixelCount(), 0u);
}

}  // namespace
