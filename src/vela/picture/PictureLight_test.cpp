// Light in pictures, where it can be told what it must be.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "vela/picture/TestPictures.h"

namespace {

using picture_test::Pictures;
using picture_test::Values;
using vela::picture::RenderOptions;

constexpr double kPi = 3.14159265358979323846;

using Light = Pictures;

// A sphere of quads about a centre, as text.
std::string sphereText(double x, double y, double z, double radius) {
  std::string points, counts, indices;
  const int rows = 24, columns = 48;
  char text[160];
  for (int r = 0; r <= rows; ++r)
    for (int c = 0; c < columns; ++c) {
      const double v = kPi * r / rows, u = 2 * kPi * c / columns;
      std::snprintf(text, sizeof text, "%s(%.9g, %.9g, %.9g)", points.empty() ? "" : ", ",
                    x + radius * std::sin(v) * std::cos(u), y - radius * std::cos(v),
                    z - radius * std::sin(v) * std::sin(u));
      points += text;
    }
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < columns; ++c) {
      const int n = (c + 1) % columns;
      std::snprintf(text, sizeof text, "%s%d, %d, %d, %d", indices.empty() ? "" : ", ",
                    r * columns + c, r * columns + n, (r + 1) * columns + n, (r + 1) * columns + c);
      indices += text;
      counts += counts.empty() ? "4" : ", 4";
    }
  return "#usda 1.0\ndef Mesh \"Ball\"\n{\n    int[] faceVertexCounts = [" + counts +
         "]\n    int[] faceVertexIndices = [" + indices + "]\n    point3f[] points = [" + points +
         "]\n    uniform token subdivisionScheme = \"none\"\n}\n";
}

TEST_F(Light, AConvexBodyDoesNotShadowItself) {
  // Daylight alone is the least that an open surface gets: no pixel of a lone ball may be darker,
  // however large, small or far from the origin it is. Rays that met their own face again would
  // show as dark grains.
  struct Where {
    double x, radius;
  };
  for (const Where where :
       {Where{0, 1}, Where{0, 1e-6}, Where{0, 1e6}, Where{1000, 1}, Where{-3e4, 10}}) {
    std::ofstream(at("ball.usda")) << sphereText(where.x, 0, 0, where.radius);
    RenderOptions options;
    options.samples = 4;
    options.view.width = options.view.height = 96;
    const Values picture = render(options, at("ball.usda"));
    int seen = 0, dark = 0;
    for (std::size_t p = 0; p < picture.floats.at("A").size(); ++p) {
      const float alpha = picture.floats.at("A")[p];
      if (alpha < 1.0f) continue;
      ++seen;
      // Grey 0.5 under a ground light of 0.15 to 0.20 and a sky above it: at least half of the
      // ground's share.
      dark += picture.floats.at("B")[p] < 0.5f * 0.15f;
    }
    EXPECT_GT(seen, 2000);
    EXPECT_EQ(dark, 0) << "radius " << where.radius << " at " << where.x;
  }
}

TEST_F(Light, BrightnessDoesNotHangOnTheNumberOfSamples) {
  // A ball on a floor, so that some light is kept out. More samples give less noise, not more
  // light, from no side.
  std::ofstream(at("scene.usda"))
      << sphereText(0, 1, 0, 1)
      << "def Mesh \"Floor\"\n{\n    int[] faceVertexCounts = [4]\n    int[] faceVertexIndices = "
         "[0, 1, 2, 3]\n"
         "    point3f[] points = [(-4, 0, 4), (4, 0, 4), (4, 0, -4), (-4, 0, -4)]\n"
         "    uniform token subdivisionScheme = \"none\"\n}\n";
  std::vector<std::array<double, 3>> means;
  for (const int samples : {1, 4, 9, 16, 36}) {
    RenderOptions options;
    options.samples = samples;
    options.view.width = options.view.height = 96;
    const Values picture = render(options, at("scene.usda"));
    std::array<double, 3> mean{};
    for (std::size_t p = 0; p < picture.floats.at("G").size(); ++p)
      for (std::size_t k = 0; k < 3; ++k)
        mean[k] += static_cast<double>(picture.floats.at(std::string(1, "RGB"[k]))[p]) / 9216.0;
    means.push_back(mean);
  }
  for (const auto& mean : means)
    for (std::size_t k = 0; k < 3; ++k)
      EXPECT_NEAR(mean[k], means.back()[k], 0.01 * means.back()[k]);
}

TEST_F(Light, WhatIsTouchedThrowsAShadow) {
  // A ball on a floor: beneath it the floor is dark, beside it light.
  std::ofstream(at("scene.usda"))
      << sphereText(0, 1, 0, 1)
      << "def Mesh \"Floor\"\n{\n    int[] faceVertexCounts = [4]\n    int[] faceVertexIndices = "
         "[0, 1, 2, 3]\n"
         "    point3f[] points = [(-9, 0, 9), (9, 0, 9), (9, 0, -9), (-9, 0, -9)]\n"
         "    uniform token subdivisionScheme = \"none\"\n}\n"
         "def Camera \"C\"\n{\n    float focalLength = 50\n    float horizontalAperture = 40\n    "
         "double3 xformOp:translate = "
         "(0, 3, 9)\n"
         "    float3 xformOp:rotateXYZ = (-15, 0, 0)\n"
         "    uniform token[] xformOpOrder = [\"xformOp:translate\", \"xformOp:rotateXYZ\"]\n}\n";
  RenderOptions options;
  options.samples = 16;
  options.view.width = 160;
  options.view.height = 120;
  const Values picture = render(options, at("scene.usda"));
  float darkest = 1.0f, lightest = 0.0f;
  for (std::size_t p = 0; p < picture.floats.at("G").size(); ++p) {
    if (picture.integers.at("prim.id")[p] != 2 || picture.floats.at("A")[p] < 1.0f) continue;
    darkest = std::min(darkest, picture.floats.at("G")[p]);
    lightest = std::max(lightest, picture.floats.at("G")[p]);
  }
  EXPECT_LT(darkest, 0.35f * lightest);
}

TEST_F(Light, BothUpAxesComeOutUpright) {
  // The same scene modelled either way up gives the same picture, framed without a camera.
  const auto scene = [](bool zUp) {
    return std::string("#usda 1.0\n( upAxis = \"") + (zUp ? "Z" : "Y") +
           "\" )\ndef Mesh \"Cone\"\n{\n    int[] faceVertexCounts = [4, 3, 3, 3, 3]\n"
           "    int[] faceVertexIndices = [3, 2, 1, 0, 0, 1, 4, 1, 2, 4, 2, 3, 4, 3, 0, 4]\n    "
           "point3f[] points = " +
           (zUp ? "[(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0), (0, 0, 3)]"
                : "[(-1, 0, 1), (1, 0, 1), (1, 0, -1), (-1, 0, -1), (0, 3, 0)]") +
           "\n    uniform token subdivisionScheme = \"none\"\n}\n";
  };
  std::vector<Values> pictures;
  for (const bool zUp : {false, true}) {
    std::ofstream(at("cone.usda")) << scene(zUp);
    RenderOptions options;
    options.samples = 1;
    options.view.width = 64;
    options.view.height = 64;
    pictures.push_back(render(options, at("cone.usda")));
  }
  EXPECT_EQ(pictures[0].integers.at("face.id"), pictures[1].integers.at("face.id"));
  EXPECT_EQ(pictures[0].integers.at("prim.id"), pictures[1].integers.at("prim.id"));
  // The point of the cone is up: rows near the top are narrower than those near the bottom.
  const auto widthOfRow = [&](std::size_t y) {
    int count = 0;
    for (std::size_t x = 0; x < 64; ++x)
      count += pictures[0].integers.at("prim.id")[y * 64 + x] != 0;
    return count;
  };
  std::size_t top = 0;
  while (top < 40 && widthOfRow(top) == 0) ++top;
  ASSERT_LT(top, 20u);
  EXPECT_GT(widthOfRow(top + 28), 3 * widthOfRow(top + 2));
}

TEST_F(Light, LeftHandedMeshesHaveTheSameLightAndNormals) {
  const auto scene = [](bool leftHanded) {
    return std::string(
               "#usda 1.0\ndef Mesh \"Roof\"\n{\n    int[] faceVertexCounts = [4, 4]\n    int[] "
               "faceVertexIndices = ") +
           (leftHanded ? "[1, 3, 2, 0, 3, 5, 4, 2]" : "[0, 2, 3, 1, 2, 4, 5, 3]") +
           "\n    point3f[] points = [(-1, 0, 1), (-1, 0, -1), (0, 1, 1), (0, 1, -1), (1, 0, 1), "
           "(1, 0, -1)]\n" +
           (leftHanded ? "    uniform token orientation = \"leftHanded\"\n" : "") + "}\n";
  };
  std::vector<Values> pictures;
  for (const bool leftHanded : {false, true}) {
    std::ofstream(at("roof.usda")) << scene(leftHanded);
    RenderOptions options;
    options.samples = 4;
    options.view.width = options.view.height = 48;
    pictures.push_back(render(options, at("roof.usda")));
  }
  for (const char* name : {"N.y", "G", "A"})
    for (std::size_t p = 0; p < pictures[0].floats.at(name).size(); ++p)
      ASSERT_NEAR(pictures[0].floats.at(name)[p], pictures[1].floats.at(name)[p], 2e-3f) << name;
}

}  // namespace
