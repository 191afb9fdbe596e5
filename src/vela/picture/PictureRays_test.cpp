// Pictures against pixels computed by a plain loop: rays by formulas written here from the camera
// prim's own numbers, all triangles tried in double precision, no tree.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "ovo/CameraPrim.h"
#include "ovo/Tokens.h"
#include "support/SharedData.h"
#include "vela/mesh/Triangulate.h"
#include "vela/picture/TestPictures.h"

namespace {

using picture_test::Pictures;
using picture_test::Values;
using tarn::Mat4d;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::picture::RenderOptions;
using vela::scene::MeshList;
using Real3 = Vec3d;

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
    ovo::Array<Vec3f> points = list.shapeOf(e).points;
    ovo::Array<int> counts = list.shapeOf(e).counts, indices = list.shapeOf(e).indices;
    bool reverseWinding = false;
    if (!isMade && !list.entries[e].prim.getPoints(points, time)) continue;
    if (!isMade && !list.entries[e].prim.getFaceTopology(counts, indices, reverseWinding, time))
      continue;
    const int* corners = indices.cdata();
    std::vector<int> cut;
    for (std::size_t f = 0; f < counts.size(); ++f) {
      const int count = counts.view()[f];
      if (count >= 3) {
        vela::triangulatePolygon(points.cdata(), corners, count, cut);
        const auto place = [&](int local) {
          return list.entries[e].worldFromObject.transformPoint(
              Real3(points.view()[corners[local]]));
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
  Mat4d world;
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
void expectPixelsOfPlainLoop(const Values& picture, const std::string& file,
                             const RenderOptions& options, const std::string& lens, int& hits) {
  const auto stage = ovo::Stage::open(file);
  ASSERT_TRUE(stage);
  const double time = options.time;
  vela::scene::MeshFilter filter = options.meshes;
  filter.time = time;
  const MeshList list = vela::scene::listMeshes(*stage, filter).value();
  const std::vector<Triangle> triangles = trianglesOf(list, time);
  const ovo::CameraPrim prim(stage->getPrimAtPath(options.view.camera));
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

vela::LensProjection lensOf(const std::string& name) {
  if (name == "spherical") return vela::LensProjection::spherical;
  return name == "cylindrical" ? vela::LensProjection::cylindrical
                               : vela::LensProjection::perspective;
}

constexpr const char* kLenses[] = {"perspective", "orthographic", "spherical", "cylindrical"};

// What the plain loop has triangles of. Curves and points have a loop of their own in the tracer's
// tests.
const std::vector<std::string> kTypesOfTriangles = {
    "Mesh", "Cube", "Sphere", "Cylinder", "Cylinder_1", "Cone", "Capsule", "Capsule_1", "Plane"};

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
    filter.includedTypes = kTypesOfTriangles;
    const tarn::Box3d box =
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
      options.layers = {"depth", "P", "N", "prim", "face"};
      options.time = time;
      options.meshes.includedTypes = kTypesOfTriangles;
      options.view.width = width;
      options.view.height = height;
      options.view.camera = ovo::Path("/TestCamera");
      options.view.lens = flat ? vela::LensProjection::none : lensOf(lens);
      const Values picture = render(options, shot);
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

}  // namespace
