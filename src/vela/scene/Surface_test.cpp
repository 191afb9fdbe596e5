// Values over faces: what a surface gives between its points.
#include "vela/scene/Surface.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"

namespace {

using tarn::Vec3d;
using tarn::Vec3f;
using vela::scene::Surface;

// A mesh of one face per polygon given, with colours of an interpolation.
class OneMesh {
 public:
  OneMesh(const std::vector<Vec3f>& points, const std::vector<int>& counts,
          const std::vector<int>& indices) {
    prim_ = ovo::MeshPrim::define(stage_, ovo::Path("/M"));
    prim_.setPoints(ovo::Array<Vec3f>(points));
    prim_.createFaceVertexCountsAttr().set(ovo::Array<int>(counts));
    prim_.createFaceVertexIndicesAttr().set(ovo::Array<int>(indices));
    prim_.setSubdivisionScheme(ovo::Token("none"));
  }
  void colours(const char* interpolation, const std::vector<Vec3f>& values) {
    prim_.createPrimvar(ovo::Token("displayColor"), "color3f[]", ovo::Token(interpolation))
        .set(ovo::Array<Vec3f>(values));
  }
  [[nodiscard]] ovo::MeshPrim& prim() { return prim_; }
  [[nodiscard]] Surface surface() const {
    return Surface(vela::scene::readShape(prim_, tarn::defaultTimeValue()),
                   tarn::defaultTimeValue());
  }

 private:
  std::shared_ptr<ovo::Stage> stage_ = ovo::Stage::createInMemory();
  ovo::MeshPrim prim_;
};

void expectNear(const Vec3f& a, const Vec3f& b, float tolerance) {
  EXPECT_NEAR(a.x, b.x, tolerance);
  EXPECT_NEAR(a.y, b.y, tolerance);
  EXPECT_NEAR(a.z, b.z, tolerance);
}

const std::vector<Vec3f> kSquare = {{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}};
const std::vector<Vec3f> kRainbow = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 0}};

TEST(Surface, WithoutColoursItIsGrey) {
  OneMesh mesh(kSquare, {4}, {0, 1, 2, 3});
  expectNear(mesh.surface().colour({0, {1, 1, 0}}), {0.5f, 0.5f, 0.5f}, 0.0f);
}

TEST(Surface, CornersHaveTheirOwnValues) {
  OneMesh mesh(kSquare, {4}, {0, 1, 2, 3});
  mesh.colours("vertex", kRainbow);
  const Surface surface = mesh.surface();
  for (std::size_t i = 0; i < 4; ++i)
    expectNear(surface.colour({0, kSquare[i]}), kRainbow[i], 0.0f);
}

TEST(Surface, EdgesAreMixedAlongTheirLength) {
  OneMesh mesh(kSquare, {4}, {0, 1, 2, 3});
  mesh.colours("vertex", kRainbow);
  expectNear(mesh.surface().colour({0, {0.5f, 0, 0}}), {0.75f, 0.25f, 0}, 1e-6f);
  expectNear(mesh.surface().colour({0, {0, 0.5f, 0}}), {1, 0.25f, 0},
             1e-6f);  // the edge that closes the face
}

TEST(Surface, ValuesGivenPerCornerFaceAndMeshAreFoundWhereTheyBelong) {
  const std::vector<Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}};
  OneMesh mesh(points, {4, 3}, {0, 1, 2, 3, 1, 4, 2});
  mesh.colours("faceVarying",
               {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}, {5, 0, 0}, {6, 0, 0}});
  expectNear(mesh.surface().colour({1, {1, 0, 0}}), {4, 0, 0}, 0.0f);
  expectNear(mesh.surface().colour({0, {1, 0, 0}}), {1, 0, 0}, 0.0f);
  mesh.colours("uniform", {{1, 0, 0}, {0, 1, 0}});
  expectNear(mesh.surface().colour({1, {1.2f, 0.1f, 0}}), {0, 1, 0}, 0.0f);
  mesh.colours("constant", {{0, 0, 7}});
  expectNear(mesh.surface().colour({0, {0.5f, 0.5f, 0}}), {0, 0, 7}, 0.0f);
}

TEST(Surface, ValuesWhoseNumberDoesNotFitAreNotUsed) {
  OneMesh mesh(kSquare, {4}, {0, 1, 2, 3});
  for (const char* interpolation : {"vertex", "varying", "faceVarying"}) {
    mesh.colours(interpolation, {{1, 0, 0}, {1, 0, 0}, {1, 0, 0}});
    expectNear(mesh.surface().colour({0, {1, 1, 0}}), {0.5f, 0.5f, 0.5f}, 0.0f);
  }
}

TEST(Surface, AFieldThatIsLinearInSpaceComesOutLinearInAnyPolygon) {
  const unsigned seed = 5;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int round = 0; round < 300; ++round) {
    // A star around the origin (so often concave) of 3 to 20 corners, in a plane of any tilt and at
    // any size.
    const int corners = 3 + round % 18;
    const double size = std::pow(10.0, 8.0 * unit(random) - 4.0), tilt = unit(random);
    const auto place = [&](double r, double angle) {
      const double x = size * r * std::cos(angle), y = size * r * std::sin(angle);
      return Vec3f(Vec3d(x, y, tilt * x - 0.5 * y));
    };
    const auto field = [&](const Vec3f& p) {
      const Vec3d q = Vec3d(p) / size;
      return Vec3f(Vec3d(0.2 + q.x, q.y - 3.0 * q.x, 0.7 - q.y));
    };
    std::vector<Vec3f> points, colours;
    std::vector<int> indices;
    double least = 1.0;
    for (int i = 0; i < corners; ++i) {
      const double radius = corners > 4 ? 0.5 + 0.5 * unit(random) : 1.0;
      least = std::min(least, radius);
      points.push_back(place(radius, 6.283185307 * i / corners));
      colours.push_back(field(points.back()));
      indices.push_back(i);
    }
    OneMesh mesh(points, {corners}, indices);
    mesh.colours("vertex", colours);
    const Surface surface = mesh.surface();
    for (int k = 0; k < 20; ++k) {
      const Vec3f p = place(0.4 * least * unit(random), 6.3 * unit(random));
      expectNear(surface.colour({0, p}), field(p), 2e-5f);
    }
  }
}

TEST(Surface, APlainPolygonMeshHasNoNormalsOfItsOwn) {
  OneMesh mesh(kSquare, {4}, {0, 1, 2, 3});
  EXPECT_FALSE(mesh.surface().hasOwnNormals());
}

TEST(Surface, ASmoothMeshHasTheMeanOfItsFacesPointingOutForBothOrientations) {
  // Two faces of a flat roof: at the ridge the normal points straight up.
  const std::vector<Vec3f> points = {{-1, 0, 1},    {-1, 0, -1}, {0, 0.4f, 1},
                                     {0, 0.4f, -1}, {1, 0, 1},   {1, 0, -1}};
  for (const bool leftHanded : {false, true}) {
    const std::vector<int> indices = leftHanded ? std::vector<int>{1, 3, 2, 0, 3, 5, 4, 2}
                                                : std::vector<int>{0, 2, 3, 1, 2, 4, 5, 3};
    OneMesh mesh(points, {4, 4}, indices);
    mesh.prim().setSubdivisionScheme(ovo::Token("catmullClark"));
    mesh.prim().setOrientation(ovo::Token(leftHanded ? "leftHanded" : "rightHanded"));
    const Surface surface = mesh.surface();
    ASSERT_TRUE(surface.hasOwnNormals());
    EXPECT_EQ(surface.isLeftHanded(), leftHanded);
    expectNear(surface.normal({0, {0, 0.4f, 0}}).normalized(), {0, 1, 0}, 1e-6f);
    EXPECT_LT(surface.normal({0, {-0.9f, 0.04f, 0}}).x, 0.0f);
  }
}

TEST(Surface, SharpEdgesStaySharp) {
  // A steep roof: each side keeps its own normal, also on the ridge. And with a third face, a
  // gentle eave that goes with the first.
  const std::vector<Vec3f> points = {{-1, 0, 1}, {-1, 0, -1}, {0, 1, 1},      {0, 1, -1},
                                     {1, 0, 1},  {1, 0, -1},  {-2, -0.6f, 1}, {-2, -0.6f, -1}};
  OneMesh mesh(points, {4, 4, 4}, {0, 2, 3, 1, 2, 4, 5, 3, 6, 0, 1, 7});
  mesh.prim().setSubdivisionScheme(ovo::Token("catmullClark"));
  const Surface surface = mesh.surface();
  const float half = std::sqrt(0.5f);
  expectNear(surface.normal({0, {0, 1, 0}}).normalized(), {-half, half, 0}, 1e-6f);
  expectNear(surface.normal({1, {0, 1, 0}}).normalized(), {half, half, 0}, 1e-6f);
  const Vec3f eave = surface.normal({0, {-1, 0, 0}}).normalized();
  expectNear(eave, surface.normal({2, {-1, 0, 0}}).normalized(), 1e-6f);
  expectNear(eave, Vec3f(-1.6f, 2, 0).normalized(), 1e-6f);
}

TEST(Surface, NormalsOfTheSceneAreTaken) {
  OneMesh mesh(kSquare, {4}, {0, 1, 2, 3});
  mesh.prim().setNormals({{1, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 1, 0}}, ovo::Token("vertex"));
  expectNear(mesh.surface().normal({0, {1, 1, 0}}), {0.5f, 0.5f, 0}, 1e-6f);
}

}  // namespace
