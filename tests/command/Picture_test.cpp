// Pictures against pixels computed by a plain loop: rays by formulas written here from the camera
// prim's own numbers, all triangles tried in double precision, no tree. And what the command says
// about single pixels against its pictures.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Options.h"
#include "Pictures.h"
#include "ovo/CameraPrim.h"
#include "ovo/Tokens.h"
#include "support/SharedData.h"
#include "vela/mesh/Triangulate.h"

namespace {

using command::RenderOptions;
using command_test::Pictures;
using command_test::Read;
using tarn::Mat4;
using tarn::Vec3;
using vela::scene::MeshList;
using Real3 = Vec3<double>;

constexpr double kPi = 3.14159265358979323846;

// ---- The plain loop

struct Triangle {
  Real3 a, b, c;
  std::uint32_t entry;
  std::int32_t face;
};

struct PlainHit {
  double distance = std::numeric_limits<double>::infinity();
  std::uint32_t entry = 0;
  std::int32_t face = -1;
  [[nodiscard]] bool hit() const { return face >= 0; }
};

std::vector<Triangle> trianglesOf(const MeshList& list, double time) {
  std::vector<Triangle> out;
  for (std::size_t e = 0; e < list.entries.size(); ++e) {
    // Of meshes what the scene has; shape prims are known by their made mesh alone.
    const bool isMade = !list.entries[e].prim.isValid();
    ovo::Array<Vec3<float>> points = list.shapeOf(e).points;
    ovo::Array<int> counts = list.shapeOf(e).counts, indices = list.shapeOf(e).indices;
    bool reverseWinding = false;
    if (!isMade && !list.entries[e].prim.getPoints(points, time)) continue;
    if (!isMade && !list.entries[e].prim.getFaceTopology(counts, indices, reverseWinding, time))
      continue;
    const int* corners = indices.cdata();
    std::vector<int> cut;
    for (std::size_t f = 0; f < counts.size(); ++f) {
      const int count = counts.cdata()[f];
      if (count >= 3) {
        vela::triangulatePolygon(points.cdata(), corners, count, cut);
        const auto place = [&](int local) {
          return list.entries[e].worldFromObject.transformPoint(
              Real3(points.cdata()[corners[local]]));
        };
        for (std::size_t t = 0; t + 2 < cut.size(); t += 3)
          out.push_back({place(cut[t]), place(cut[t + 1]), place(cut[t + 2]),
                         static_cast<std::uint32_t>(e), static_cast<std::int32_t>(f)});
      }
      corners += count;
    }
  }
  return out;
}

// Moeller and Trumbore in double; the distance, or infinity.
double distanceTo(const Triangle& t, const Real3& origin, const Real3& direction) {
  const Real3 ab = t.b - t.a, ac = t.c - t.a, p = cross(direction, ac);
  const double det = dot(ab, p);
  const double none = std::numeric_limits<double>::infinity();
  if (det == 0.0) return none;
  const Real3 s = origin - t.a, q = cross(s, ab);
  const double u = dot(s, p) / det, v = dot(direction, q) / det;
  return u < 0.0 || v < 0.0 || u + v > 1.0 ? none : dot(ac, q) / det;
}

PlainHit nearest(const std::vector<Triangle>& triangles, const Real3& origin,
                 const Real3& direction, double least, double most) {
  PlainHit best;
  for (const Triangle& triangle : triangles) {
    const double t = distanceTo(triangle, origin, direction);
    if (t >= least && t <= most && t < best.distance) best = {t, triangle.entry, triangle.face};
  }
  return best;
}

// Rays from the numbers of the prim, by film geometry: x to the right and y up on the film, in
// units of half its width.
struct PlainCamera {
  ovo::CameraParameters film;
  Mat4<double> world;
  std::string lens;
  int width, height;

  void ray(double px, double py, Real3& origin, Real3& direction) const {
    const double x = 2.0 * px / width - 1.0, y = (height - 2.0 * py) / width;
    const double filmX = 0.5 * film.horizontalAperture * x + film.horizontalApertureOffset;
    const double filmY = 0.5 * film.horizontalAperture * y + film.verticalApertureOffset;
    const double longitude = kPi * x,
                 latitude = 0.5 * kPi * y * width / height;  // 0, 0 in the middle
    Real3 o, d;
    if (lens == "perspective") d = {filmX, filmY, -film.focalLength};
    if (lens == "orthographic") o = {filmX, filmY, 0}, d = {0, 0, -1};
    if (lens == "spherical")
      d = {std::cos(latitude) * std::sin(longitude), std::sin(latitude),
           -std::cos(latitude) * std::cos(longitude)};
    if (lens == "cylindrical") d = {std::sin(longitude), kPi * y, -std::cos(longitude)};
    origin = world.transformPoint(o);
    direction = world.transformVector(d).normalized();
  }
};

// Every pixel of the data layers against the loop. Where another face is named, that face must lie
// at the same distance, or a ray a hundredth of a pixel beside must find it; the latter for less
// than 2 % of all pixels.
void expectPixelsOfPlainLoop(const Read& picture, const std::string& file,
                             const RenderOptions& options, const std::string& lens, int& hits) {
  const auto stage = ovo::Stage::open(file);
  ASSERT_TRUE(stage);
  const double time = options.scene.time;
  const MeshList list = vela::scene::listMeshes(*stage, options.scene.filter()).value();
  const std::vector<Triangle> triangles = trianglesOf(list, time);
  const ovo::CameraPrim prim(stage->getPrimAtPath(ovo::Path(options.scene.camera)));
  ASSERT_TRUE(prim.isValid());
  ovo::XformCache xforms(time);
  const PlainCamera camera{prim.getParameters(time), xforms.getLocalToWorld(prim), lens,
                           picture.width, picture.height};
  const double least = camera.film.clippingNear, most = camera.film.clippingFar;
  ASSERT_EQ(picture.manifest.size(), list.entries.size());

  int besides = 0;
  hits = 0;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      const auto p = static_cast<std::size_t>(y * picture.width + x);
      Real3 origin, direction;
      camera.ray(x + 0.5, y + 0.5, origin, direction);
      const PlainHit wanted = nearest(triangles, origin, direction, least, most);
      const std::uint32_t id = picture.integers.at("prim.id")[p],
                          face = picture.integers.at("face.id")[p];
      const auto isAsRendered = [&](const PlainHit& hit) {
        return hit.hit() ? hit.entry + 1 == id && static_cast<std::uint32_t>(hit.face) == face
                         : id == 0;
      };
      hits += id != 0;
      if (id == 0) {
        EXPECT_TRUE(std::isinf(picture.floats.at("Z")[p]));
      }

      if (!isAsRendered(wanted)) {
        bool found = false;
        for (std::size_t t = 0; t < triangles.size() && !found; ++t)
          if (triangles[t].entry + 1 == id && static_cast<std::uint32_t>(triangles[t].face) == face)
            found = std::abs(distanceTo(triangles[t], origin, direction) - wanted.distance) <
                    1e-5 * wanted.distance;
        besides += !found;
        for (int k = 0; k < 8 && !found; ++k) {
          Real3 o, d;
          camera.ray(x + 0.5 + 0.01 * std::cos(k * kPi / 4), y + 0.5 + 0.01 * std::sin(k * kPi / 4),
                     o, d);
          found = isAsRendered(nearest(triangles, o, d, least, most));
        }
        ASSERT_TRUE(found) << lens << ": pixel " << x << ", " << y << " has prim " << id << " face "
                           << face << ", the loop entry " << wanted.entry << " face " << wanted.face
                           << " at " << wanted.distance;
        continue;
      }
      if (id == 0) continue;

      // Depth along the axis of flat films, from the camera for round ones; the position on the
      // ray.
      const Real3 axis = camera.world.transformVector({0, 0, -1}).normalized();
      const bool flat = lens == "perspective" || lens == "orthographic";
      const double depth = flat ? wanted.distance * dot(direction, axis) : wanted.distance;
      const Real3 place = origin + direction * wanted.distance;
      const double tolerance = 2e-5 * (wanted.distance + place.length());
      ASSERT_NEAR(picture.floats.at("Z")[p], depth, tolerance)
          << lens << ": pixel " << x << ", " << y;
      for (std::size_t k = 0; k < 3; ++k)
        ASSERT_NEAR(picture.floats.at(std::string("P.") + "xyz"[k])[p], place[k], tolerance)
            << lens;
      const double length = std::sqrt(std::pow(picture.floats.at("N.x")[p], 2) +
                                      std::pow(picture.floats.at("N.y")[p], 2) +
                                      std::pow(picture.floats.at("N.z")[p], 2));
      ASSERT_NEAR(length, 1.0, 1e-5);
    }
  EXPECT_LT(besides, 0.02 * picture.width * picture.height) << lens;
}

constexpr const char* kLenses[] = {"perspective", "orthographic", "spherical", "cylindrical"};

class ScenesThroughTheirLenses : public Pictures {
 protected:
  // Looks at all of a scene from its front, through each lens.
  // \param offsets of the film, in its widths
  void check(const std::string& relative, int width, int height,
             double time = tarn::defaultTimeValue(), double offsetX = 0.0, double offsetY = 0.0) {
    const std::string file = vela_test::sharedDataPath(relative);
    const auto stage = ovo::Stage::open(file);
    ASSERT_TRUE(stage);
    vela::scene::MeshFilter filter;
    filter.time = time;
    const tarn::Box3<double> box =
        vela::scene::extentOf(vela::scene::listMeshes(*stage, filter).value()).box;
    ASSERT_FALSE(box.isEmpty());
    const Real3 middle = box.center();
    const double radius = 0.5 * box.size().length();
    const bool zUp = stage->getUpAxis().asString() == "Z";
    const Real3 eye = middle + (zUp ? Real3(0.1, -2.5, 0.2) : Real3(0.1, 0.2, 2.5)) * radius;

    int perspectiveHits = 0;
    for (const std::string lens : kLenses) {
      // Film and window as wide as the scene; lengths of film are tenths of a unit.
      const bool flat = lens == "orthographic";
      const double film = flat ? 22.0 * radius : 40.0;
      std::ostringstream camera;
      camera.precision(17);
      camera
          << "    token projection = \"" << (flat ? "orthographic" : "perspective")
          << "\"\n    float focalLength = 50\n"
          << "    float horizontalAperture = " << film
          << "\n    float horizontalApertureOffset = " << offsetX * film
          << "\n    float verticalApertureOffset = " << offsetY * film
          << "\n    float2 clippingRange = (" << 0.01 * radius << ", " << 100 * radius
          << ")\n    double3 xformOp:translate = (" << eye.x << ", " << eye.y << ", " << eye.z
          << ")\n    float3 xformOp:rotateXYZ = (" << (zUp ? 86 : -4) << ", 0, 2)\n"
          << "    uniform token[] xformOpOrder = [\"xformOp:translate\", \"xformOp:rotateXYZ\"]\n";
      const std::string shot = withCamera(file, camera.str(), zUp ? "Z" : "Y");

      RenderOptions options;
      options.samples = 1;
      options.layers = "depth,P,N,prim,face";
      options.scene.time = time;
      options.scene.width = width;
      options.scene.height = height;
      options.scene.camera = "/TestCamera";
      options.scene.lens = flat ? "" : lens;
      const Read picture = render(options, shot);
      ASSERT_EQ(picture.width, width);
      int hits = 0;
      expectPixelsOfPlainLoop(picture, shot, options, lens, hits);
      if (HasFatalFailure()) return;
      EXPECT_GT(hits, 0) << lens;
      if (lens == "perspective") perspectiveHits = hits;
    }
    EXPECT_GT(perspectiveHits, width * height / 40);
  }
};

TEST_F(ScenesThroughTheirLenses, CornellBox) {
  requireSharedData("usd/cornell-box/cornell-box.usda");
  check("usd/cornell-box/cornell-box.usda", 96, 72);
}

TEST_F(ScenesThroughTheirLenses, UtahTeapotWithAShiftedFilm) {
  requireSharedData("usd/Teapot/geo/UtahTeapot.usd");
  check("usd/Teapot/geo/UtahTeapot.usd", 64, 48, tarn::defaultTimeValue(), 0.15, -0.1);
}

TEST_F(ScenesThroughTheirLenses, AnimatedPointsAtATime) {
  requireSharedData("usd/openusd_testenv/animated_points/arm_baked.usda");
  check("usd/openusd_testenv/animated_points/arm_baked.usda", 96, 72, 7.0);
}

TEST_F(ScenesThroughTheirLenses, PlacedInstances) {
  requireSharedData("usd/openusd_testenv/instancing/instance2.usda");
  check("usd/openusd_testenv/instancing/instance2.usda", 96, 72);
}

TEST_F(ScenesThroughTheirLenses, ALeftHandedSphere) {
  requireSharedData("usd/openusd_testenv/meshes/leftHanded.usda");
  check("usd/openusd_testenv/meshes/leftHanded.usda", 96, 72);
}

TEST_F(ScenesThroughTheirLenses, PolygonsOfManyCorners) {
  requireSharedData("usd/openusd_testenv/meshes/letters_perFrame.protos.usda");
  check("usd/openusd_testenv/meshes/letters_perFrame.protos.usda", 96, 72);
}

TEST_F(ScenesThroughTheirLenses, ChessSet) {
  requireSharedData("usd/OpenChessSet/chess_set.usda");
  check("usd/OpenChessSet/chess_set.usda", 12, 9);
}

// ---- Single pixels

std::string runCommand(const std::string& arguments) {
  std::string out;
  std::FILE* pipe = popen((std::string("'") + VELA_COMMAND + "' " + arguments).c_str(), "r");
  if (!pipe) return out;
  char part[4096];
  for (std::size_t n; (n = fread(part, 1, sizeof part, pipe)) > 0;) out.append(part, n);
  pclose(pipe);
  return out;
}

TEST_F(Pictures, PickSaysOfAPixelWhatThePictureHas) {
  const std::string scene = vela_test::sourcePath("examples/demo/demo.usda");
  for (const char* lens : {"perspective", "spherical"}) {
    RenderOptions options;
    options.samples = 4;
    options.scene.lens = lens;
    options.scene.width = 80;
    options.scene.height = 40;
    const Read picture = render(options, scene);
    int seen = 0;
    for (const auto& [x, y] :
         {std::array{0, 0}, {40, 20}, {20, 25}, {55, 22}, {79, 39}, {33, 30}}) {
      const auto found = nlohmann::json::parse(
          runCommand("pick '" + scene + "' --json --size 80x40 --lens " + lens + " --pixel " +
                     std::to_string(x) + "," + std::to_string(y)));
      const auto p = static_cast<std::size_t>(y * 80 + x);
      const std::uint32_t id = picture.integers.at("prim.id")[p];
      ASSERT_EQ(found.at("hit").get<bool>(), id != 0);
      if (id == 0) continue;
      ++seen;
      EXPECT_EQ(found.at("entry").get<std::uint32_t>() + 1, id);
      EXPECT_EQ(picture.manifest.at(found.at("prim").get<std::string>()).get<std::uint32_t>(), id);
      EXPECT_EQ(found.at("face").get<std::uint32_t>(), picture.integers.at("face.id")[p]);
      for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(found.at("position")[k].get<float>(),
                  picture.floats.at(std::string("P.") + "xyz"[k])[p]);
        EXPECT_EQ(found.at("normal")[k].get<float>(),
                  picture.floats.at(std::string("N.") + "xyz"[k])[p]);
      }
    }
    EXPECT_GE(seen, 1);
  }
}

// ---- Light

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

TEST_F(Pictures, AConvexBodyDoesNotShadowItself) {
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
    options.scene.width = options.scene.height = 96;
    const Read picture = render(options, at("ball.usda"));
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

TEST_F(Pictures, BrightnessDoesNotHangOnTheNumberOfSamples) {
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
    options.scene.width = options.scene.height = 96;
    const Read picture = render(options, at("scene.usda"));
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

TEST_F(Pictures, WhatIsTouchedThrowsAShadow) {
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
  options.scene.width = 160;
  options.scene.height = 120;
  const Read picture = render(options, at("scene.usda"));
  float darkest = 1.0f, lightest = 0.0f;
  for (std::size_t p = 0; p < picture.floats.at("G").size(); ++p) {
    if (picture.integers.at("prim.id")[p] != 2 || picture.floats.at("A")[p] < 1.0f) continue;
    darkest = std::min(darkest, picture.floats.at("G")[p]);
    lightest = std::max(lightest, picture.floats.at("G")[p]);
  }
  EXPECT_LT(darkest, 0.35f * lightest);
}

TEST_F(Pictures, BothUpAxesComeOutUpright) {
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
  std::vector<Read> pictures;
  for (const bool zUp : {false, true}) {
    std::ofstream(at("cone.usda")) << scene(zUp);
    RenderOptions options;
    options.samples = 1;
    options.scene.width = 64;
    options.scene.height = 64;
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

TEST_F(Pictures, LeftHandedMeshesHaveTheSameLightAndNormals) {
  const auto scene = [](bool leftHanded) {
    return std::string(
               "#usda 1.0\ndef Mesh \"Roof\"\n{\n    int[] faceVertexCounts = [4, 4]\n    int[] "
               "faceVertexIndices = ") +
           (leftHanded ? "[1, 3, 2, 0, 3, 5, 4, 2]" : "[0, 2, 3, 1, 2, 4, 5, 3]") +
           "\n    point3f[] points = [(-1, 0, 1), (-1, 0, -1), (0, 1, 1), (0, 1, -1), (1, 0, 1), "
           "(1, 0, -1)]\n" +
           (leftHanded ? "    uniform token orientation = \"leftHanded\"\n" : "") + "}\n";
  };
  std::vector<Read> pictures;
  for (const bool leftHanded : {false, true}) {
    std::ofstream(at("roof.usda")) << scene(leftHanded);
    RenderOptions options;
    options.samples = 4;
    options.scene.width = options.scene.height = 48;
    pictures.push_back(render(options, at("roof.usda")));
  }
  for (const char* name : {"N.y", "G", "A"})
    for (std::size_t p = 0; p < pictures[0].floats.at(name).size(); ++p)
      ASSERT_NEAR(pictures[0].floats.at(name)[p], pictures[1].floats.at(name)[p], 2e-3f) << name;
}

}  // namespace
