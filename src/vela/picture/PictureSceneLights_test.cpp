// Pictures that are lit by the lights of their scene, held against closed forms and against a plain
// path tracer.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TextStage.h"
#include "vela/look/LightSource.h"
#include "vela/look/PreviewResponse.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/picture/PngFile.h"

namespace {

using namespace vela::picture;
using tarn::Vec3d;
using tarn::Vec3f;
using vela_test::at;
using vela_test::squareText;
using vela_test::stageOf;

constexpr double kPi = 3.14159265358979323846;

// Straight down from above, on so many units of the world.
std::string cameraAbove(double units) {
  return "def Camera \"Cam\"\n{\n token projection = \"orthographic\"\n float horizontalAperture "
         "= " +
         std::to_string(units * 10) + "\n float verticalAperture = " + std::to_string(units * 10) +
         "\n" + at(0, 0, 50) + "}\n";
}

// A large square about the zero point, seen from above where it is almost a point.
std::shared_ptr<ovo::Stage> paperUnder(const std::string& lights,
                                       const std::string& colour = "1, 1, 1", double units = 0.01) {
  return stageOf(squareText("Paper", " color3f[] primvars:displayColor = [(" + colour +
                                         ")]\n"
                                         " double3 xformOp:scale = (20, 20, 1)\n"
                                         " uniform token[] xformOpOrder = [\"xformOp:scale\"]\n") +
                 lights + cameraAbove(units));
}

std::string light(const std::string& type, const std::string& more, const std::string& name = "L") {
  return "def " + type + " \"" + name + "\"\n{\n" + more + "}\n";
}

RenderOptions options(int samples = 64, int size = 8) {
  RenderOptions options;
  options.view.width = options.view.height = size;
  options.samples = samples;
  options.layers = {"rgba", "albedo"};
  return options;
}

Picture render(const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& options) {
  std::string error;
  auto picture = renderPicture(stage, options, 0, {}, &error);
  EXPECT_TRUE(picture) << error;
  return picture ? *std::move(picture) : Picture();
}

double meanOf(const Picture& picture, const char* channel) {
  const auto values = picture.channel(channel);
  double sum = 0.0;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) sum += static_cast<double>(values.floats(x, y));
  return sum / static_cast<double>(picture.pixelCount());
}

double meanRed(const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& wanted = options()) {
  return meanOf(render(stage, wanted), "R");
}

TEST(PictureSceneLights, PaperIsAsBrightAsItsLightsSay) {
  // Of the light on a matt surface albedo / pi comes to the viewer.
  const auto expectMean = [](const std::string& lights, double irradiance, double share) {
    EXPECT_NEAR(meanRed(paperUnder(lights, "0.5, 0.5, 0.5")), 0.5 / kPi * irradiance,
                share * 0.5 / kPi * irradiance)
        << lights;
  };
  expectMean(light("DistantLight", ""), 3.3608, 1e-3);
  expectMean(light("DistantLight", " float inputs:angle = 0\n float inputs:intensity = 2\n"), 2.0,
             1e-5);
  expectMean(light("DomeLight", ""), kPi, 1e-4);
  expectMean(light("SphereLight", at(0, 0, 2)), kPi / 16, 2e-3);
  expectMean(light("DiskLight", " float inputs:radius = 2\n" + at(0, 0, 4)), kPi * 4 / 20, 5e-3);
  expectMean(light("RectLight", " float inputs:width = 0.2\n" + at(0, 0, 10)), 0.2 / 100, 5e-3);
  expectMean(light("CylinderLight", " float inputs:radius = 0.05\n" + at(0, 0, 10)), 0.1 / 100,
             1e-2);
  expectMean(light("SphereLight",
                   " bool treatAsPoint = 1\n bool inputs:normalize = 1\n"
                   " float inputs:intensity = 100\n" +
                       at(0, 0, 5)),
             1.0, 1e-4);
  // Two of them together; one of them from below, which lights nothing here.
  expectMean(light("DomeLight", "") +
                 light("DistantLight",
                       " float inputs:angle = 0\n"
                       " float inputs:intensity = 2\n",
                       "M") +
                 light("SphereLight", at(0, 0, -3), "N"),
             kPi + 2.0, 1e-4);
  // Halved for what surfaces scatter.
  expectMean(light("DomeLight", " float inputs:diffuse = 0.5\n"), 0.5 * kPi, 1e-4);
}

TEST(PictureSceneLights, ManyLightsAreAllCounted) {
  // More than a sample asks: each stands for others.
  std::string lights;
  double expected = 0.0;
  for (int i = 0; i < 100; ++i) {
    lights +=
        light("DistantLight",
              " float inputs:angle = 0\n float inputs:intensity = " + std::to_string(i % 7) + "\n",
              "L" + std::to_string(i));
    expected += i % 7;
  }
  EXPECT_NEAR(meanRed(paperUnder(lights)), expected / kPi, 2e-3 * expected);
}

TEST(PictureSceneLights, TheScenesTakeThePlaceOfVelasOwn) {
  const std::string sun =
      light("DistantLight", " float inputs:angle = 0\n float inputs:intensity = 1\n");
  const auto lit = paperUnder(sun), dark = paperUnder("");
  RenderOptions wanted = options();
  const Picture own = render(dark, wanted);
  // A scene without lights is lit as ever, whatever is chosen.
  for (const LightChoice choice : {LightChoice::own, LightChoice::both}) {
    wanted.lights = choice;
    wanted.bounces = 3;
    EXPECT_EQ(render(dark, wanted).layers[0].floats, own.layers[0].floats);
  }
  wanted.lights = LightChoice::own;
  EXPECT_EQ(render(lit, wanted).layers[0].floats, own.layers[0].floats);
  wanted.lights = LightChoice::scene;
  const double ofScene = meanRed(lit, wanted);
  EXPECT_NEAR(ofScene, 1 / kPi, 1e-5);
  wanted.lights = LightChoice::both;
  EXPECT_NEAR(meanRed(lit, wanted), ofScene + meanOf(own, "R"), 1e-4);
  // A light that is hidden, or of a kind that is not shown, takes no place.
  for (const std::string& none :
       {light("DomeLight", " token visibility = \"invisible\"\n"), light("PortalLight", "")})
    EXPECT_EQ(render(paperUnder(none), options()).layers[0].floats, own.layers[0].floats);
  // One that gives no light does.
  EXPECT_EQ(meanRed(paperUnder(light("DomeLight", " float inputs:intensity = 0\n"))), 0.0);
}

TEST(PictureSceneLights, ChangeColourAlone) {
  const auto stage = paperUnder(light("DomeLight", ""), "0.2, 0.4, 0.6", 60);
  RenderOptions wanted = options(9, 16);
  wanted.layers = {"rgba", "albedo", "depth", "N", "prim"};
  const Picture lit = render(stage, wanted);
  wanted.lights = LightChoice::own;
  const Picture own = render(stage, wanted);
  for (const char* channel : {"A", "albedo.R", "albedo.G", "albedo.B", "Z", "N.z"})
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 16; ++x)
        EXPECT_EQ(lit.channel(channel).floats(x, y), own.channel(channel).floats(x, y)) << channel;
  EXPECT_EQ(lit.attributes.size(), own.attributes.size());
}

TEST(PictureSceneLights, ShadowsAreAsTheLightSays) {
  // A square between the light and the paper: 2 x 2 at half the height, from a point.
  const std::string lamp =
      " bool treatAsPoint = 1\n bool inputs:normalize = 1\n"
      " float inputs:intensity = 100\n" +
      at(0, 0, 5);
  const auto red = [&](const std::string& shadow, const std::string& more = "") {
    // From beside, so that the camera sees the paper below the square.
    const auto stage = stageOf(
        squareText("Paper",
                   " color3f[] primvars:displayColor = [(1, 1, 1)]\n"
                   " double3 xformOp:scale = (20, 20, 1)\n"
                   " uniform token[] xformOpOrder = [\"xformOp:scale\"]\n") +
        squareText("Lid", at(0, 0, 2.5)) + light("SphereLight", shadow + lamp) + more +
        "def Camera \"Cam\"\n{\n token projection = \"orthographic\"\n"
        " float horizontalAperture = 0.1\n float verticalAperture = 0.1\n"
        " double3 xformOp:translate = (20, 0, 20)\n float xformOp:rotateY = 45\n"
        " uniform token[] xformOpOrder = [\"xformOp:translate\", \"xformOp:rotateY\"]\n}\n");
    RenderOptions wanted = options(4, 4);
    wanted.meshes.purposes = {vela::scene::Purpose::default_};
    wanted.bounces = 0;
    return meanRed(stage, wanted);
  };
  const double open = 1 / kPi;
  EXPECT_EQ(red(""), 0.0);
  EXPECT_NEAR(red(" bool inputs:shadow:enable = 0\n"), open, 1e-4);
  EXPECT_NEAR(red(" color3f inputs:shadow:color = (0.25, 0, 0)\n"), 0.25 * open, 1e-4);
  // The lid is 2.5 off.
  EXPECT_NEAR(red(" float inputs:shadow:distance = 2\n"), open, 1e-4);
  EXPECT_EQ(red(" float inputs:shadow:distance = 3\n"), 0.0);
  // It fades from 2 to 3: half of it is left; by its square a quarter.
  const std::string fades = " float inputs:shadow:distance = 3\n float inputs:shadow:falloff = 1\n";
  EXPECT_NEAR(red(fades), 0.5 * open, 1e-3);
  EXPECT_NEAR(red(fades + " float inputs:shadow:falloffGamma = 2\n"), 0.75 * open, 1e-3);
  // Links: the lid throws none; the paper gets no light.
  EXPECT_NEAR(red(" rel collection:shadowLink:excludes = [</Lid>]\n"), open, 1e-4);
  EXPECT_EQ(red(" rel collection:shadowLink:excludes = [</Paper>]\n"), 0.0);
  EXPECT_EQ(red(" rel collection:lightLink:excludes = [</Paper>]\n"
                " bool inputs:shadow:enable = 0\n"),
            0.0);
}

TEST(PictureSceneLights, ShadowsOfLargeLightsAreSoft) {
  // A rectangle of 2 x 2 at the height of 4, its half hidden by an edge half way down: below the
  // edge half of the light arrives, and the samples of a pixel share it out.
  const auto stage = stageOf(
      squareText("Paper",
                 " color3f[] primvars:displayColor = [(1, 1, 1)]\n"
                 " double3 xformOp:scale = (20, 20, 1)\n"
                 " uniform token[] xformOpOrder = [\"xformOp:scale\"]\n") +
      "def Mesh \"Lid\"\n{\n int[] faceVertexCounts = [4]\n int[] faceVertexIndices = [0, 1, 2, "
      "3]\n"
      " point3f[] points = [(-5, -5, 2), (0, -5, 2), (0, 5, 2), (-5, 5, 2)]\n"
      " uniform token subdivisionScheme = \"none\"\n}\n" +
      light("RectLight", " float inputs:width = 2\n float inputs:height = 2\n" + at(0, 0, 4)) +
      "def Camera \"Cam\"\n{\n token projection = \"orthographic\"\n"
      " float horizontalAperture = 40\n float verticalAperture = 0.5\n"
      " double3 xformOp:translate = (0, 0, 1.5)\n"
      " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n}\n");
  RenderOptions wanted = options(256, 33);
  wanted.view.height = 1;
  wanted.bounces = 0;
  const Picture picture = render(stage, wanted);
  const auto red = [&](int x) { return static_cast<double>(picture.channel("R").floats(x, 0)); };
  // Two units wide: as much as without the edge on one side, nothing on the other, half between.
  const Picture open = render(stage, (wanted.meshes.excludedPaths = {ovo::Path("/Lid")}, wanted));
  const auto share = [&](int x) {
    return red(x) / static_cast<double>(open.channel("R").floats(x, 0));
  };
  EXPECT_LT(share(0), 1e-3);
  EXPECT_NEAR(share(16), 0.5, 0.03);
  EXPECT_GT(share(32), 0.999);
  for (int x = 1; x < 33; ++x) EXPECT_GT(share(x), share(x - 1) - 0.03) << x;
}

TEST(PictureSceneLights, ReflectionsHaveTheLightThatTheResponseSays) {
  // Seen from above, each light that is seen in the surface: against sums over its area.
  const auto paper = [](const std::string& inputs, const std::string& lights) {
    return stageOf(
        "def Material \"M\"\n{\n token outputs:surface.connect = </M/S.outputs:surface>\n"
        " def Shader \"S\"\n {\n  uniform token info:id = \"UsdPreviewSurface\"\n" +
        inputs + "  token outputs:surface\n }\n}\n" +
        squareText("Paper", " rel material:binding = </M>\n") + lights + cameraAbove(0.01));
  };
  const Vec3f up(0.0f, 0.0f, 1.0f);
  const auto answer = [&](const vela::look::PreviewSurface& surface, const Vec3f& toLight) {
    return static_cast<double>(respond(surface, up, toLight, up).diffuse.x +
                               reflectionTowards(surface, up, toLight, up).specular.x);
  };
  for (const float roughness : {0.02f, 0.2f, 0.6f})
    for (const float coat : {0.0f, 1.0f}) {
      vela::look::PreviewSurface surface;
      surface.diffuseColor = Vec3f(0.5f);
      surface.metallic = 0.5f;
      surface.roughness = roughness;
      surface.clearcoat = coat;
      surface.clearcoatRoughness = 0.3f;
      const std::string inputs =
          "  color3f inputs:diffuseColor = (0.5, 0.5, 0.5)\n  float inputs:metallic = 0.5\n"
          "  float inputs:roughness = " +
          std::to_string(roughness) + "\n  float inputs:clearcoat = " + std::to_string(coat) +
          "\n  float inputs:clearcoatRoughness = 0.3\n";
      // A rectangle of 2 x 1 at the height of 2, and all around.
      double ofRect = 0.0, ofDome = 0.0;
      const int n = 1000;
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
          // Finer towards the middle, where smooth surfaces look.
          const double s = 2 * (i + 0.5) / n - 1, r = 2 * (j + 0.5) / n - 1;
          const Vec3d q(s * s * s, 0.5 * r * r * r, 2.0);
          const Vec3d toLight = q.normalized();
          ofRect += answer(surface, Vec3f(toLight)) * toLight.z / q.lengthSquared() * 3 * s * s *
                    1.5 * r * r * 4.0 / (n * static_cast<double>(n));
          // Steps of the sine squared, finer towards the normal by a fourth power.
          const double t = (i + 0.5) / n, sine2 = t * t * t * t, sine = std::sqrt(sine2);
          const double cosine = std::sqrt(1 - sine2), turn = 2 * kPi * (j + 0.5) / n;
          const Vec3f direction(Vec3d(sine * std::cos(turn), sine * std::sin(turn), cosine));
          ofDome += answer(surface, direction) / cosine * 4 * t * t * t * kPi /
                    (n * static_cast<double>(n));
        }
      RenderOptions wanted = options(400);
      EXPECT_NEAR(
          meanRed(paper(inputs, light("RectLight", " float inputs:width = 2\n" + at(0, 0, 2))),
                  wanted),
          ofRect, 0.02 * ofRect)
          << roughness << ' ' << coat;
      EXPECT_NEAR(meanRed(paper(inputs, light("DomeLight", "")), wanted), ofDome, 0.02 * ofDome)
          << roughness << ' ' << coat;
    }
  // Its factor takes all of it away.
  const std::string metal =
      "  color3f inputs:diffuseColor = (1, 1, 1)\n  float inputs:metallic = 1\n";
  EXPECT_GT(meanRed(paper(metal, light("DomeLight", ""))), 0.5);
  EXPECT_EQ(meanRed(paper(metal, light("DomeLight", " float inputs:specular = 0\n"))), 0.0);
}

TEST(PictureSceneLights, AWhiteFurnaceIsWhite) {
  // A white ball with the same light from everywhere cannot be seen.
  const auto ball =
      stageOf("def Sphere \"Ball\"\n{\n color3f[] primvars:displayColor = [(1, 1, 1)]\n}\n" +
              light("DomeLight", "") + cameraAbove(2.4));
  RenderOptions wanted = options(64, 24);
  for (const int bounces : {0, 1}) {
    wanted.bounces = bounces;
    const Picture picture = render(ball, wanted);
    int seen = 0;
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 24; ++x) {
        const float alpha = picture.channel("A").floats(x, y);
        if (alpha < 1.0f) continue;
        ++seen;
        EXPECT_NEAR(picture.channel("G").floats(x, y), 1.0f, 0.01f) << x << ' ' << y;
      }
    EXPECT_GT(seen, 200);
  }
  // Nor can two white walls that face each other, when light goes to and fro between them.
  const std::string white = " color3f[] primvars:displayColor = [(1, 1, 1)]\n";
  const auto corner =
      stageOf(squareText("Floor", white) +
              squareText("Wall", white + " float xformOp:rotateY = 80\n"
                                         " double3 xformOp:translate = (-1, 0, 1)\n"
                                         " uniform token[] xformOpOrder = "
                                         "[\"xformOp:translate\", \"xformOp:rotateY\"]\n") +
              light("DomeLight", "") + cameraAbove(1.2));
  wanted.samples = 256;
  std::vector<double> means;
  for (const int bounces : {0, 1, 8}) {
    wanted.bounces = bounces;
    means.push_back(meanOf(render(corner, wanted), "G"));
  }
  EXPECT_LT(means[0], 0.9);
  EXPECT_LT(means[0], means[1]);
  EXPECT_NEAR(means[2], 1.0, 0.01);
}

// A box with a lamp and a block, as parallelograms; and as a plain path tracer sees it.
struct Cornell {
  struct Quad {
    Vec3d corner, a, b;  // the side that a x b points to faces the room
    Vec3d colour;
  };
  std::vector<Quad> quads = {
      {{-2, -2, -2}, {4, 0, 0}, {0, 4, 0}, {0.75, 0.75, 0.75}},           // back
      {{-2, -2, -2}, {0, 4, 0}, {0, 0, 4}, {0.75, 0.1, 0.1}},             // left
      {{2, -2, -2}, {0, 0, 4}, {0, 4, 0}, {0.1, 0.75, 0.1}},              // right
      {{-2, -2, -2}, {0, 0, 4}, {4, 0, 0}, {0.75, 0.75, 0.75}},           // floor
      {{-2, 2, -2}, {4, 0, 0}, {0, 0, 4}, {0.75, 0.75, 0.75}},            // ceiling
      {{-1.2, -2, 0}, {1.2, 0, 0.4}, {0, 1.8, 0}, {0.6, 0.6, 0.6}},       // block: front,
      {{-1.2, -0.2, 0}, {1.2, 0, 0.4}, {0.4, 0, -1.2}, {0.6, 0.6, 0.6}},  // top,
      {{0, -2, 0.4}, {0.4, 0, -1.2}, {0, 1.8, 0}, {0.6, 0.6, 0.6}},       // side
  };
  // The lamp shines down through its hole in nothing: it is no surface.
  const double lampHalf = 0.8, lampHeight = 1.9, radiance = 4.0;

  [[nodiscard]] std::string text() const {
    std::string text;
    char line[512];
    for (std::size_t i = 0; i < quads.size(); ++i) {
      const Quad& q = quads[i];
      const Vec3d p[4] = {q.corner, q.corner + q.a, q.corner + q.a + q.b, q.corner + q.b};
      std::snprintf(line, sizeof line,
                    "def Mesh \"Q%zu\"\n{\n int[] faceVertexCounts = [4]\n"
                    " int[] faceVertexIndices = [0, 1, 2, 3]\n point3f[] points = [(%.9g, %.9g, "
                    "%.9g), (%.9g, %.9g, %.9g), (%.9g, %.9g, %.9g), (%.9g, %.9g, %.9g)]\n",
                    i, p[0].x, p[0].y, p[0].z, p[1].x, p[1].y, p[1].z, p[2].x, p[2].y, p[2].z,
                    p[3].x, p[3].y, p[3].z);
      text += line;
      std::snprintf(line, sizeof line,
                    " uniform token subdivisionScheme = \"none\"\n"
                    " color3f[] primvars:displayColor = [(%.9g, %.9g, %.9g)]\n}\n",
                    q.colour.x, q.colour.y, q.colour.z);
      text += line;
    }
    return text +
           "def RectLight \"Lamp\"\n{\n float inputs:width = 1.6\n float inputs:height = 1.6\n"
           " float inputs:intensity = 4\n double3 xformOp:translate = (0, 1.9, 0)\n"
           " float xformOp:rotateX = -90\n uniform token[] xformOpOrder = "
           "[\"xformOp:translate\", \"xformOp:rotateX\"]\n}\n"
           "def Camera \"Cam\"\n{\n float focalLength = 20\n float horizontalAperture = 20\n"
           " float verticalAperture = 20\n" +
           at(0, 0, 6) + "}\n";
  }

  // The nearest quad; none: -1.
  [[nodiscard]] int nearest(const Vec3d& from, const Vec3d& way, double& distance) const {
    int found = -1;
    for (std::size_t i = 0; i < quads.size(); ++i) {
      const Quad& q = quads[i];
      const Vec3d n = cross(q.a, q.b);
      const double t = dot(q.corner - from, n) / dot(way, n);
      if (!(t > 1e-6) || t >= distance) continue;
      const Vec3d at = from + way * t - q.corner;
      const double u = dot(cross(at, q.b), n) / dot(n, n), v = dot(cross(q.a, at), n) / dot(n, n);
      if (u < 0 || u > 1 || v < 0 || v > 1) continue;
      found = static_cast<int>(i);
      distance = t;
    }
    return found;
  }

  // Light along a way from a surface, which is scattered so often until it may meet the lamp.
  Vec3d trace(Vec3d from, Vec3d way, int bounces, std::mt19937& random) const {
    std::uniform_real_distribution<double> number(0.0, 1.0);
    Vec3d weight(1.0), sum;
    for (int depth = 0;; ++depth) {
      double distance = 1e9;
      const int quad = nearest(from, way, distance);
      // The lamp shines to below, and only into what has been scattered.
      const double t = (lampHeight - from.y) / way.y;
      const Vec3d onLamp = from + way * t;
      if (depth > 0 && way.y > 0 && t > 1e-6 && t < distance && std::abs(onLamp.x) < lampHalf &&
          std::abs(onLamp.z) < lampHalf)
        sum += weight * radiance;
      if (quad < 0 || depth > bounces) return sum;
      const Quad& q = quads[static_cast<std::size_t>(quad)];
      weight = weight * q.colour;
      Vec3d n = cross(q.a, q.b).normalized();
      if (dot(n, way) > 0) n = -n;
      // By the cosine: a point of the unit sphere on top of the normal.
      const double z = 2 * number(random) - 1, turn = 2 * kPi * number(random);
      const double s = std::sqrt(1 - z * z);
      from = from + way * distance;
      way = (n + Vec3d(s * std::cos(turn), s * std::sin(turn), z)).normalized();
    }
  }
};

TEST(PictureSceneLights, ABoxIsAsAPlainPathTracerSeesIt) {
  const Cornell box;
  const auto stage = stageOf(box.text());
  constexpr int kSize = 6, kWays = 20000;
  for (const int bounces : {0, 1, 3}) {
    RenderOptions wanted = options(2025, kSize);
    wanted.bounces = bounces;
    const Picture picture = render(stage, wanted);
    std::mt19937 random(static_cast<unsigned>(bounces) + 1);
    std::uniform_real_distribution<double> number(0.0, 1.0);
    Vec3d ofAll, ofPicture, variance;
    for (int y = 0; y < kSize; ++y)
      for (int x = 0; x < kSize; ++x) {
        Vec3d sum, squares;
        for (int i = 0; i < kWays; ++i) {
          const Vec3d way((2 * (x + number(random)) / kSize - 1) * 0.5,
                          (1 - 2 * (y + number(random)) / kSize) * 0.5, -1);
          const Vec3d value = box.trace({0, 0, 6}, way.normalized(), bounces, random);
          sum += value;
          squares += value * value;
        }
        for (std::size_t c = 0; c < 3; ++c) {
          const double mean = sum[c] / kWays;
          const double noise = std::sqrt(std::max(squares[c] / kWays - mean * mean, 0.0) / kWays);
          const auto found =
              static_cast<double>(picture.channel(std::string(1, "RGB"[c])).floats(x, y));
          // Its own noise is about as large: four times both, in 324 comparisons.
          EXPECT_NEAR(found, mean, 6.0 * noise + 0.03 * mean) << x << ' ' << y << ' ' << c;
          ofAll[c] += mean;
          variance[c] += noise * noise;
          ofPicture[c] += found;
        }
      }
    // Over all of it the noise of the plain one, and a little of the picture's.
    for (std::size_t c = 0; c < 3; ++c) {
      const double noise = std::sqrt(variance[c]) / ofAll[c];
      EXPECT_LT(noise, 0.01);
      EXPECT_NEAR(ofPicture[c] / ofAll[c], 1.0, 3.0 * noise + 0.002) << bounces << " bounces";
    }
  }
}

TEST(PictureSceneLights, PixelsDependOnNeitherTilesNorThreads) {
  const auto stage =
      stageOf(Cornell().text() + light("DomeLight", " float inputs:intensity = 0.1\n"));
  RenderOptions wanted = options(4, 40);
  wanted.bounces = 2;
  const auto renderer = PictureRenderer::make(stage, wanted);
  ASSERT_TRUE(renderer);
  const auto one = renderer->renderAll(1), many = renderer->renderAll(4);
  const auto part = renderer->render({13, 7, 30, 20}),
             region = renderer->renderRegion({13, 7, 30, 20}, 3);
  for (std::size_t i = 0; i < one->layers.size(); ++i)
    EXPECT_EQ(one->layers[i].floats, many->layers[i].floats);
  for (int y = 0; y < 13; ++y)
    for (int x = 0; x < 17; ++x) {
      EXPECT_EQ(part->channel("R").floats(x, y), one->channel("R").floats(x + 13, y + 7));
      EXPECT_EQ(region->channel("R").floats(x, y), one->channel("R").floats(x + 13, y + 7));
    }
}

TEST(PictureSceneLights, LightGoesThroughWhatDoesNotHideIt) {
  // A pane that is half there between the light and the paper, by all ways.
  const auto stage = [](const std::string& opacity) {
    return stageOf(
        "def Material \"M\"\n{\n token outputs:surface.connect = </M/S.outputs:surface>\n"
        " def Shader \"S\"\n {\n  uniform token info:id = \"UsdPreviewSurface\"\n"
        "  color3f inputs:diffuseColor = (0, 0, 0)\n  int inputs:useSpecularWorkflow = 1\n"
        "  token inputs:opacityMode = \"presence\"\n  float inputs:opacity = " +
        opacity + "\n  token outputs:surface\n }\n}\n" +
        squareText("Pane",
                   " rel material:binding = </M>\n double3 xformOp:translate = (0, 0, 1)\n"
                   " double3 xformOp:scale = (50, 50, 1)\n uniform token[] xformOpOrder = "
                   "[\"xformOp:translate\", \"xformOp:scale\"]\n") +
        squareText("Paper", " color3f[] primvars:displayColor = [(1, 1, 1)]\n") +
        light("DistantLight", " float inputs:angle = 0\n float inputs:intensity = 1\n") +
        cameraAbove(0.01));
  };
  RenderOptions wanted = options(16);
  wanted.bounces = 0;
  EXPECT_NEAR(meanRed(stage("0"), wanted), 1 / kPi, 1e-4);
  // Of the pane itself, black as it is, the edges' reflection is left: less than a hundredth.
  EXPECT_NEAR(meanRed(stage("0.5"), wanted), 0.25 / kPi, 0.01);
  EXPECT_LT(meanRed(stage("1"), wanted), 0.01);
}

TEST(PictureSceneLights, WhatShinesLightsItsNeighboursByBounces) {
  const auto stage = stageOf(
      "def Material \"M\"\n{\n token outputs:surface.connect = </M/S.outputs:surface>\n"
      " def Shader \"S\"\n {\n  uniform token info:id = \"UsdPreviewSurface\"\n"
      "  color3f inputs:emissiveColor = (2, 2, 2)\n  color3f inputs:diffuseColor = (0, 0, 0)\n"
      "  token outputs:surface\n }\n}\n" +
      squareText("Lamp", " rel material:binding = </M>\n" + at(0, 0, 60)) +
      squareText("Near",
                 " rel material:binding = </M>\n double3 xformOp:translate = (3, 0, 0)\n"
                 " float xformOp:rotateY = 90\n uniform token[] xformOpOrder = "
                 "[\"xformOp:translate\", \"xformOp:rotateY\"]\n") +
      squareText("Paper", " color3f[] primvars:displayColor = [(1, 1, 1)]\n") +
      light("DomeLight", " float inputs:intensity = 0\n") + cameraAbove(0.01));
  RenderOptions wanted = options(1024);
  wanted.bounces = 0;
  EXPECT_EQ(meanRed(stage, wanted), 0.0);
  wanted.bounces = 1;
  // The upper half of a square of 2 x 2 that stands at the distance of 3, and the one far above:
  // the share of the half space by sums over their areas.
  double share = 0.0;
  for (int i = 0; i < 400; ++i)
    for (int j = 0; j < 400; ++j) {
      const Vec3d q(3, 2 * (i + 0.5) / 400 - 1, (j + 0.5) / 400);
      const double d2 = q.lengthSquared();
      share += q.z * q.x / (d2 * d2) * 2.0 / 160000 / kPi;
    }
  share += 4.0 / 3600 / kPi;
  EXPECT_NEAR(meanRed(stage, wanted), 2 * share, 0.05 * 2 * share);
}

TEST(PictureSceneLights, NothingBrokenMakesAPixelThatIsNoNumber) {
  const std::string broken[] = {
      light("SphereLight", " float inputs:intensity = nan\n"),
      light("DistantLight", " float inputs:intensity = inf\n float inputs:angle = nan\n"),
      light("DomeLight", " float inputs:exposure = 1000\n"),
      light("DomeLight", " float inputs:exposure = 120\n"),
      light("RectLight", " float inputs:width = inf\n bool inputs:normalize = 1\n"),
      light("RectLight", ""),  // in the paper itself
      light("SphereLight", ""),
      light("CylinderLight", " float inputs:radius = 0\n float inputs:length = 0\n"),
      light("DiskLight",
            " double3 xformOp:scale = (0, 0, 0)\n"
            " uniform token[] xformOpOrder = [\"xformOp:scale\"]\n"),
      light("DomeLight",
            " double3 xformOp:scale = (0, 1, 1)\n asset inputs:texture:file = @gone.exr@\n"
            " uniform token[] xformOpOrder = [\"xformOp:scale\"]\n"),
      light("SphereLight",
            " float inputs:shaping:cone:angle = nan\n"
            " float inputs:shaping:focus = inf\n color3f inputs:shadow:color = "
            "(nan, 0, 0)\n float inputs:shadow:falloff = nan\n" +
                at(0, 0, 1))};
  for (const std::string& text : broken) {
    RenderOptions wanted = options(4, 8);
    wanted.bounces = 2;
    std::vector<vela::scene::Problem> problems;
    const auto stage = paperUnder(text, "1, 1, 1", 10);
    const auto renderer = PictureRenderer::make(stage, wanted, &problems);
    ASSERT_TRUE(renderer) << text;
    const auto picture = renderer->renderAll(1);
    for (const float value : picture->layers[0].floats) ASSERT_TRUE(std::isfinite(value)) << text;
    const bool isTold =
        text.find("nan") != std::string::npos || text.find("1000") != std::string::npos ||
        text.find("gone") != std::string::npos || text.find("inf\n") != std::string::npos;
    EXPECT_EQ(isTold, !problems.empty()) << text;
  }
}

TEST(PictureSceneLights, ImagesOfLightsStandAsTheSceneHasThem) {
  const vela_test::TemporaryFolder folder;
  // Red at the upper left, green at the upper right, blue at the lower left, black else.
  std::vector<float> rgb;
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x)
      for (const bool on : {y < 16 && x < 16, y < 16 && x >= 16, y >= 16 && x < 16})
        rgb.push_back(on ? 1.0f : 0.0f);
  ASSERT_TRUE(writePng(32, 32, rgb, folder.file("t.png")));
  const std::string image = " asset inputs:texture:file = @" + folder.file("t.png") + "@\n";
  RenderOptions wanted = options(64, 2);
  wanted.bounces = 0;
  // A rectangle over the paper shows its back's image: its upper left lies at +x, +y.
  const Picture rect =
      render(paperUnder(light("RectLight", " float inputs:width = 4\n float inputs:height = 4\n" +
                                               image + at(0, 0, 0.5)),
                        "1, 1, 1", 2.0),
             wanted);
  // Pixels from the top left: (-x, +y), (+x, +y), (-x, -y), (+x, -y).
  const auto largest = [](const Picture& picture, int x, int y) {
    const float r = picture.channel("R").floats(x, y), g = picture.channel("G").floats(x, y),
                b = picture.channel("B").floats(x, y);
    return r > g && r > b ? 'r' : g > b ? 'g' : 'b';
  };
  EXPECT_EQ(largest(rect, 1, 0), 'r');
  EXPECT_EQ(largest(rect, 0, 0), 'g');
  EXPECT_EQ(largest(rect, 1, 1), 'b');
  // A dome: from +y the paper gets the upper half alone when it faces there. Left of its middle,
  // +z, is +x: from +x comes red, from -x green.
  const auto facing = [&](double turn) {
    const auto stage = stageOf(
        squareText("Paper",
                   " color3f[] primvars:displayColor = [(1, 1, 1)]\n float xformOp:rotateZ = " +
                       std::to_string(turn) +
                       "\n float xformOp:rotateY = 90\n uniform token[] xformOpOrder = "
                       "[\"xformOp:rotateZ\", \"xformOp:rotateY\"]\n") +
        light("DomeLight", image) +
        "def Camera \"Cam\"\n{\n token projection = \"orthographic\"\n"
        " float horizontalAperture = 0.1\n float verticalAperture = 0.1\n"
        " float xformOp:rotateZ = " +
        std::to_string(turn) +
        "\n float xformOp:rotateY = 90\n double3 xformOp:translate = (0, 0, 5)\n"
        " uniform token[] xformOpOrder = [\"xformOp:rotateZ\", \"xformOp:rotateY\", "
        "\"xformOp:translate\"]\n}\n");
    return render(stage, wanted);
  };
  const Picture right = facing(0), left = facing(180), above = facing(90);
  // Half of what it sees is the upper half, of one colour: pi / 2 of pi.
  EXPECT_NEAR(meanOf(right, "R"), 0.5, 0.03);
  EXPECT_NEAR(meanOf(right, "G"), 0.0, 0.01);
  EXPECT_NEAR(meanOf(right, "B"), 0.5, 0.03);
  EXPECT_NEAR(meanOf(left, "G"), 0.5, 0.03);
  EXPECT_NEAR(meanOf(left, "R"), 0.0, 0.01);
  EXPECT_NEAR(meanOf(above, "R"), 0.5, 0.03);
  EXPECT_NEAR(meanOf(above, "G"), 0.5, 0.03);
  EXPECT_NEAR(meanOf(above, "B"), 0.0, 0.01);
}

TEST(PictureSceneLights, BouncesBeyondTheirRangeAreRefused) {
  for (const int bounces : {-1, 9}) {
    RenderOptions wanted = options();
    wanted.bounces = bounces;
    std::vector<vela::scene::Problem> problems;
    EXPECT_FALSE(PictureRenderer::make(paperUnder(""), wanted, &problems));
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].kind, vela::scene::Problem::Kind::badOption);
    EXPECT_EQ(problems[0].text(), "bounces: " + std::to_string(bounces) + " is not from 0 to 8");
  }
}

}  // namespace
