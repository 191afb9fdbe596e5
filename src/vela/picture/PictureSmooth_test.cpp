// Pictures of refined surfaces: against meshes that MeshSample refines on its own, tried triangle
// by triangle, and against spheres and planes whose normals are known.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "vela/mesh/MeshBuilders.h"
#include "vela/mesh/MeshSample.h"
#include "vela/mesh/Triangulate.h"
#include "vela/picture/TestPictures.h"

namespace {

using picture_test::Pictures;
using picture_test::Values;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::picture::RenderOptions;
using Real3 = Vec3d;

constexpr double kPi = 3.14159265358979323846;

// A cube of two units; every other face turns the other way where it is left-handed.
std::string cubeText(const std::string& more, const char* scheme = "catmullClark",
                     bool leftHanded = false, const char* name = "Cube") {
  const char* const right = "0,1,3,2, 2,3,5,4, 4,5,7,6, 6,7,1,0, 1,7,5,3, 6,0,2,4";
  const char* const left = "2,3,1,0, 4,5,3,2, 6,7,5,4, 0,1,7,6, 3,5,7,1, 4,2,0,6";
  return std::string("def Mesh \"") + name +
         "\"\n{\n int[] faceVertexCounts = [4,4,4,4,4,4]\n int[] faceVertexIndices = [" +
         (leftHanded ? left : right) +
         "]\n point3f[] points = "
         "[(-1,-1,1),(1,-1,1),(-1,1,1),(1,1,1),(-1,1,-1),(1,1,-1),(-1,-1,-1),(1,-1,-1)]\n" +
         " uniform token subdivisionScheme = \"" + scheme + "\"\n uniform token orientation = \"" +
         (leftHanded ? "leftHanded" : "rightHanded") + "\"\n" + more + "}\n";
}

// The cube of a file, refined by MeshSample.
vela::MeshSample refined(const std::string& file, int level) {
  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open(file);
  const ovo::MeshPrim prim(stage->getPrimAtPath(ovo::Path("/Cube")));
  return {prim,        tarn::defaultTimeValue(), 0, level, true, true, false, true, false, false,
          ovo::Token()};
}

void expectNear(const Vec3f& a, const Vec3f& b, double tolerance) {
  for (std::size_t i = 0; i < 3; ++i)
    ASSERT_NEAR(static_cast<double>(a[i]), static_cast<double>(b[i]), tolerance) << a << " " << b;
}

// ---- Pictures

// An orthographic camera that looks down along z at 4 by 4 units; beside the axis, so that no ray
// goes through an edge.
constexpr double kBesideX = 0.0031, kBesideY = 0.0017;
constexpr const char* kDown =
    "token projection = \"orthographic\"\nfloat horizontalAperture = 40\nfloat verticalAperture = "
    "40\n"
    "double3 xformOp:translate = (0.0031, 0.0017, 10)\nuniform token[] xformOpOrder = "
    "[\"xformOp:translate\"]";

class RefinedPictures : public Pictures {
 protected:
  [[nodiscard]] Values shot(const std::string& text, int level, bool smooth,
                            const std::vector<std::string>& layers = {"depth", "P", "N", "prim",
                                                                      "face"}) const {
    std::ofstream(at("mesh.usda")) << "#usda 1.0\n" << text;
    RenderOptions options;
    options.layers = layers;
    options.view.width = options.view.height = 64;
    options.view.camera = ovo::Path("/TestCamera");
    options.meshes.subdivisionLevel = level;
    options.smooth = smooth;
    options.samples = 1;
    return render(options, withCamera(at("mesh.usda"), kDown));
  }
  static double placeX(int pixel) { return 4.0 * (pixel + 0.5) / 64 - 2.0 + kBesideX; }
  static double placeY(int pixel) { return 2.0 - 4.0 * (pixel + 0.5) / 64 + kBesideY; }
  static Vec3f vector(const Values& read, const std::string& layer, std::size_t p) {
    return {read.floats.at(layer + ".x")[p], read.floats.at(layer + ".y")[p],
            read.floats.at(layer + ".z")[p]};
  }
};

// What lies highest above a place in the x-y plane.
struct Highest {
  double z = -std::numeric_limits<double>::infinity();
  std::size_t face = 0;
  Real3 normal;
};
Highest highestAt(const vela::MeshSample& mesh, double x, double y) {
  Highest best;
  const int* corners = mesh.faceVertPointIndices();
  std::vector<int> cut;
  for (std::size_t f = 0; f < mesh.nFaces(); corners += mesh.vertsPerFace()[f], ++f) {
    vela::triangulatePolygon(mesh.pointLocations(), corners, mesh.vertsPerFace()[f], cut);
    for (std::size_t t = 0; t + 2 < cut.size(); t += 3) {
      const auto corner = [&](std::size_t k) {
        return Real3(mesh.pointLocations()[corners[cut[t + k]]]);
      };
      const Real3 a = corner(0), b = corner(1), c = corner(2);
      const double area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
      const double u = ((x - a.x) * (c.y - a.y) - (c.x - a.x) * (y - a.y)) / area;
      const double v = ((b.x - a.x) * (y - a.y) - (x - a.x) * (b.y - a.y)) / area;
      if (area == 0 || u < 0 || v < 0 || u + v > 1) continue;
      const double z = a.z + u * (b.z - a.z) + v * (c.z - a.z);
      if (z > best.z) best = {z, f, cross(b - a, c - a).normalized()};
    }
  }
  return best;
}

TEST_F(RefinedPictures, RaysMeetTheRefinedMesh) {
  for (const bool leftHanded : {false, true}) {
    const std::string text = cubeText("", "catmullClark", leftHanded);
    const Values read = shot(text, 3, false);
    const vela::MeshSample sample = refined(at("mesh.usda"), 3);
    int hits = 0;
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 64; ++x) {
        const auto p = static_cast<std::size_t>(y * 64 + x);
        const Highest wanted = highestAt(sample, placeX(x), placeY(y));
        ASSERT_EQ(read.integers.at("prim.id")[p], wanted.z > -2 ? 1u : 0u) << x << " " << y;
        if (!(wanted.z > -2)) continue;
        ++hits;
        expectNear(vector(read, "P", p), Vec3f(Real3(placeX(x), placeY(y), wanted.z)), 1e-5);
        expectNear(vector(read, "N", p), Vec3f(leftHanded ? -wanted.normal : wanted.normal), 1e-4);
        ASSERT_EQ(read.integers.at("face.id")[p], wanted.face / 64) << "the face of the cube";
      }
    // The refined cube is much smaller than its control mesh, which fills a quarter of the picture;
    // a ball of its width shows as much.
    EXPECT_NEAR(hits * 4.0 * 4.0 / (64 * 64), kPi * 0.84 * 0.84, 0.1);
  }
}

TEST_F(RefinedPictures, SmoothNormalsAreUnitAndThoseOfABall) {
  // A ball of polygons, scheme none and without normals: flat facets, and with --smooth the ball's
  // own normals, nearly.
  const int rows = 24, columns = 48;
  std::ostringstream points, counts, indices;
  points << "(0,0,1)";
  for (int i = 1; i < rows; ++i)
    for (int j = 0; j < columns; ++j) {
      const double a = kPi * i / rows, b = 2 * kPi * j / columns;
      points << ",(" << std::sin(a) * std::cos(b) << "," << std::sin(a) * std::sin(b) << ","
             << std::cos(a) << ")";
    }
  points << ",(0,0,-1)";
  const auto at = [](int i, int j) {
    return i == 0 ? 0 : i == rows ? 1 + (rows - 1) * columns : 1 + (i - 1) * columns + j % columns;
  };
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j) {
      counts << (i + j ? "," : "") << (i == 0 || i == rows - 1 ? 3 : 4);
      indices << (i + j ? "," : "") << at(i, j) << "," << at(i + 1, j);
      if (i < rows - 1) indices << "," << at(i + 1, j + 1);
      if (i > 0) indices << "," << at(i, j + 1);
    }
  const std::string text =
      "def Mesh \"Ball\"\n{\n uniform token subdivisionScheme = \"none\"\n int[] faceVertexCounts "
      "= [" +
      counts.str() + "]\n int[] faceVertexIndices = [" + indices.str() +
      "]\n point3f[] points = [" + points.str() + "]\n}\n";
  for (const bool smooth : {false, true}) {
    const Values read = shot(text, smooth ? 2 : 0, smooth);  // refining does nothing here
    double worst = 0;
    int hits = 0;
    for (std::size_t p = 0; p < 64 * 64; ++p) {
      if (read.integers.at("prim.id")[p] == 0) continue;
      const Vec3f n = vector(read, "N", p), out = vector(read, "P", p).normalized();
      ASSERT_NEAR(n.length(), 1.0f, 1e-6f);
      worst = std::max(worst, std::acos(std::min(1.0, static_cast<double>(dot(n, out)))));
      ++hits;
    }
    EXPECT_GT(hits, 700);
    if (smooth)
      EXPECT_LT(worst, 0.04);
    else
      EXPECT_GT(worst, 0.06) << "the facets turn by 7.5 degrees from one to the next";
  }
}

TEST_F(RefinedPictures, SmoothNormalsAreMixedBetweenPointsAndTurnWithTheMesh) {
  // One large triangle, stretched and turned: between its corners the normals that the scene gives
  // are mixed barycentrically, and taken to the world by the inverse transpose.
  const std::string text =
      "def Mesh \"T\"\n{\n uniform token subdivisionScheme = \"none\"\n int[] faceVertexCounts = "
      "[3]\n int[] faceVertexIndices "
      "= [0,1,2]\n"
      " point3f[] points = [(-1,-1,0),(1,-1,0),(0,1,0)]\n normal3f[] normals = "
      "[(-1,0,2),(3,0,2),(0,1,1)] (interpolation = "
      "\"vertex\")\n"
      " matrix4d xformOp:transform = ((2,0,0,0),(0,1,0,0),(0,0,4,0),(0,0,0,1))\n uniform token[] "
      "xformOpOrder = "
      "[\"xformOp:transform\"]\n}\n";
  const Values smooth = shot(text, 0, true), flat = shot(text, 0, false);
  int hits = 0;
  for (std::size_t p = 0; p < 64 * 64; ++p) {
    if (smooth.integers.at("prim.id")[p] == 0) continue;
    ++hits;
    const Vec3f at = vector(smooth, "P", p);
    const double x = static_cast<double>(at.x) / 2, y = static_cast<double>(at.y);
    const double top = (y + 1) / 2, right = (x + 1 - top) / 2, left = 1 - top - right;
    const Real3 object = Real3(-1, 0, 2) * left + Real3(3, 0, 2) * right + Real3(0, 1, 1) * top;
    expectNear(vector(smooth, "N", p),
               Vec3f(Real3(object.x / 2, object.y, object.z / 4).normalized()), 1e-5);
    expectNear(vector(flat, "N", p), {0, 0, 1}, 1e-6);
  }
  EXPECT_GT(hits, 900);
}

TEST_F(RefinedPictures, SmoothNormalsAreTheSameWithAndWithoutLight) {
  const Values alone = shot(cubeText(""), 2, true, {"N"}),
               both = shot(cubeText(""), 2, true, {"rgba", "N"});
  for (const char* channel : {"N.x", "N.y", "N.z"})
    EXPECT_EQ(alone.floats.at(channel), both.floats.at(channel));
}

TEST_F(RefinedPictures, LightDoesNotShowTheFacesOfASmoothSurface) {
  // A body of few faces against the same one of many, which is nearly where it is: light may differ
  // by their small distance and by where the rays to lights happen to go, but no face may lie in a
  // shadow of its own.
  const std::string text = cubeText(
      " double3 xformOp:rotateXYZ = (30, 40, 0)\n uniform token[] xformOpOrder = "
      "[\"xformOp:rotateXYZ\"]\n");
  const Values coarse = shot(text, 2, true, {"rgba", "N"}),
               fine = shot(text, 5, true, {"rgba", "N"});
  int compared = 0, off = 0;
  for (int y = 1; y < 63; ++y)
    for (int x = 1; x < 63; ++x) {
      const auto p = static_cast<std::size_t>(y * 64 + x);
      if (coarse.floats.at("A")[p] < 1 || fine.floats.at("A")[p] < 1 ||
          fine.floats.at("N.z")[p] < 0.3f)
        continue;
      ++compared;
      off += std::abs(coarse.floats.at("R")[p] - fine.floats.at("R")[p]) > 0.06f;
    }
  EXPECT_GT(compared, 400);
  EXPECT_LT(off, compared / 50);
}

TEST_F(RefinedPictures, ALeftHandedMeshHasTheSameLightAndNormals) {
  const Values right = shot(cubeText("", "catmullClark", false), 2, true, {"rgba", "N", "face"}),
               left = shot(cubeText("", "catmullClark", true), 2, true, {"rgba", "N", "face"});
  // Faces begin at other corners and are cut along other diagonals: a shadow may move by a hair.
  for (const char* channel : {"R", "G", "B", "A", "N.x", "N.y", "N.z"}) {
    double sum = 0;
    for (std::size_t p = 0; p < 64 * 64; ++p) {
      const double difference = std::abs(static_cast<double>(right.floats.at(channel)[p]) -
                                         static_cast<double>(left.floats.at(channel)[p]));
      ASSERT_LT(difference, channel[0] == 'N' ? 0.02 : 0.1) << channel << " " << p;
      sum += difference;
    }
    EXPECT_LT(sum / (64 * 64), 3e-4) << channel;
  }
}

}  // namespace
