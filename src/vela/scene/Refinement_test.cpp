// Refined surfaces: against meshes that ovo and MeshSample refine on their own.
#include "vela/scene/Refinement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ovo/Stage.h"
#include "ovo/Subdivide.h"
#include "ovo/Tokens.h"
#include "support/SampleMeshes.h"
#include "support/TextStage.h"
#include "vela/mesh/MeshSample.h"
#include "vela/scene/Surface.h"

namespace {

using tarn::Vec3f;
using vela::scene::listMeshes;
using vela::scene::MeshFilter;
using vela::scene::MeshList;
using vela::scene::Problem;
using vela::scene::Shape;
using vela::scene::Surface;

const double kNow = tarn::defaultTimeValue();

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

// The meshes of a scene given as text, and what MeshSample makes of the same prim.
class Refined {
 public:
  explicit Refined(const std::string& text, int level, double time = kNow)
      : stage_(vela_test::stageOf(text)) {
    MeshFilter filter;
    filter.time = time;
    filter.subdivisionLevel = level;
    if (auto list = listMeshes(*stage_, filter, &problem_)) list_ = std::move(*list);
  }

  [[nodiscard]] const MeshList& list() const { return list_; }
  [[nodiscard]] const Problem& problem() const { return problem_; }
  [[nodiscard]] const Shape& shape(std::size_t i = 0) const { return list_.shapes.at(i); }
  [[nodiscard]] vela::MeshSample sample(int level, double time = kNow) const {
    return {list_.entries.at(0).prim,
            time,
            0,
            level,
            true,
            true,
            false,
            true,
            false,
            false,
            ovo::Token()};
  }

 private:
  std::shared_ptr<ovo::Stage> stage_;
  MeshList list_;
  Problem problem_;
};

void expectNear(const Vec3f& a, const Vec3f& b, double tolerance) {
  for (std::size_t i = 0; i < 3; ++i)
    ASSERT_NEAR(static_cast<double>(a[i]), static_cast<double>(b[i]), tolerance) << a << " " << b;
}

// The surface's colour or normal at every corner, pulled a little into the face so that it is that
// face's.
template <class Use>
void forEachCorner(const Shape& shape, Use use) {
  std::size_t c = 0;
  for (std::size_t f = 0; f < shape.counts.size(); ++f)
    for (int k = 0; k < shape.counts.view()[f]; ++k, ++c)
      use(static_cast<int>(f), c, shape.points.view()[shape.indices.view()[c]]);
}

TEST(Refine, PointsFacesAndNormalsAreThoseOfMeshSample) {
  const std::string creases =
      " int[] creaseIndices = [0,1,3,2,0]\n int[] creaseLengths = [5]\n float[] creaseSharpnesses "
      "= [2.5]\n"
      " int[] cornerIndices = [6]\n float[] cornerSharpnesses = [10]\n";
  const std::string triangles =
      "def Mesh \"Octahedron\"\n{\n int[] faceVertexCounts = [3,3,3,3,3,3,3,3]\n int[] "
      "faceVertexIndices = "
      "[0,2,4, 2,1,4, 1,3,4, 3,0,4, 2,0,5, 1,2,5, 3,1,5, 0,3,5]\n point3f[] points = "
      "[(1,0,0),(-1,0,0),(0,1,0),(0,-1,0),(0,0,1),(0,0,-1)]\n uniform token subdivisionScheme = "
      "\"loop\"\n}\n";
  for (const std::string& text :
       {cubeText(""), cubeText(creases), cubeText(" int[] holeIndices = [1, 4]\n"),
        cubeText("", "bilinear"), cubeText("", "catmullClark", true), triangles,
        cubeText(" normal3f[] normals = [(0,0,1)] (interpolation = \"constant\")\n")})
    for (int level = 1; level <= 3; ++level) {
      SCOPED_TRACE(text + std::to_string(level));
      const Refined refined(text, level);
      const Shape& shape = refined.shape();
      const bool isSmooth =
          text.find("bilinear") == std::string::npos && text.find("crease") == std::string::npos;
      const vela::MeshSample sample = refined.sample(level);
      ASSERT_TRUE(shape.refinement);
      EXPECT_EQ(shape.points, sample.points);
      EXPECT_EQ(shape.counts,
                ovo::Array<int>(sample.vertsPerFace(), sample.vertsPerFace() + sample.nFaces()));
      EXPECT_EQ(shape.indices, ovo::Array<int>(sample.faceVertPointIndices(),
                                               sample.faceVertPointIndices() + sample.nVerts()));
      ASSERT_EQ(sample.normals.size(), shape.indices.size());
      const Surface surface(shape, kNow);
      ASSERT_TRUE(surface.hasOwnNormals());
      forEachCorner(shape, [&](int face, std::size_t corner, const Vec3f& p) {
        // Those of the flat faces of a bilinear surface, and along creases, are their own.
        if (isSmooth)
          expectNear(surface.normal({face, p}).normalized(), sample.normals.view()[corner], 1e-5);
      });
    }
}

TEST(Refine, NormalsPointOutForBothOrientations) {
  for (const bool leftHanded : {false, true}) {
    const Refined refined(cubeText("", "catmullClark", leftHanded), 2);
    const Surface surface(refined.shape(), kNow);
    EXPECT_EQ(surface.isLeftHanded(), leftHanded);
    forEachCorner(refined.shape(), [&](int face, std::size_t, const Vec3f& p) {
      ASSERT_GT(dot(surface.normal({face, p}).normalized(), p.normalized()), 0.9f);
    });
  }
}

TEST(Refine, CreasesAndBilinearSurfacesKeepTheirEdges) {
  for (int level = 1; level <= 3; ++level) {
    // A bilinear cube is a cube: every normal is that of its side.
    const Refined flat(cubeText("", "bilinear"), level);
    const Surface cube(flat.shape(), kNow);
    const Vec3f sides[] = {{0, 0, 1}, {0, 1, 0}, {0, 0, -1}, {0, -1, 0}, {1, 0, 0}, {-1, 0, 0}};
    forEachCorner(flat.shape(), [&](int face, std::size_t, const Vec3f& p) {
      expectNear(cube.normal({face, p}).normalized(), sides[flat.shape().sceneFace(face)], 1e-6);
    });
    // With a crease around its top, the top stays flat and turned up to its very rim.
    const Refined creased(cubeText(" int[] creaseIndices = [2,3,5,4,2]\n int[] creaseLengths = "
                                   "[5]\n float[] creaseSharpnesses = [10]\n"),
                          level);
    const Surface surface(creased.shape(), kNow);
    forEachCorner(creased.shape(), [&](int face, std::size_t, const Vec3f& p) {
      if (creased.shape().sceneFace(face) == 1)
        expectNear(surface.normal({face, p}).normalized(), {0, 1, 0}, 1e-6);
    });
  }
}

TEST(Refine, FacesKeepTheNumbersOfTheScene) {
  for (int level = 1; level <= 3; ++level) {
    const Refined refined(cubeText(" int[] holeIndices = [2]\n"), level);
    const Shape& shape = refined.shape();
    const std::size_t each = static_cast<std::size_t>(4) << (2 * (level - 1));
    ASSERT_EQ(shape.counts.size(), 5 * each);
    for (std::size_t f = 0; f < shape.counts.size(); ++f)
      EXPECT_EQ(shape.sceneFace(static_cast<int>(f)),
                static_cast<int>(f / each < 2 ? f / each : f / each + 1));
  }
}

TEST(Refine, ColoursFollowTheirInterpolation) {
  const std::string ofPoints =
      "[(-1,-1,1),(1,-1,1),(-1,1,1),(1,1,1),(-1,1,-1),(1,1,-1),(-1,-1,-1),(1,-1,-1)]";
  const auto coloured = [](const std::string& interpolation, const std::string& values,
                           const std::string& more = "") {
    return cubeText(more + " color3f[] primvars:displayColor = " + values + " (interpolation = \"" +
                    interpolation + "\")\n");
  };
  {
    // Colours that are the points are refined to what the points are.
    const Refined refined(coloured("vertex", ofPoints), 2);
    const Surface surface(refined.shape(), kNow);
    forEachCorner(refined.shape(), [&](int face, std::size_t, const Vec3f& p) {
      expectNear(surface.colour({face, p}), p, 1e-6);
    });
  }
  const Refined flat(cubeText("", "bilinear"), 2);
  {
    const Refined refined(coloured("varying", ofPoints), 2);
    const Surface surface(refined.shape(), kNow);
    forEachCorner(refined.shape(), [&](int face, std::size_t c, const Vec3f& p) {
      expectNear(surface.colour({face, p}),
                 flat.shape().points.view()[flat.shape().indices.view()[c]], 1e-6);
    });
  }
  {
    // The same colours given to corners: joined at points and linear by the rule `all`, smooth by
    // the rule `none`.
    std::string ofCorners = "[";
    const vela::MeshSample control = flat.sample(0);
    for (std::size_t c = 0; c < control.nVerts(); ++c) {
      std::ostringstream text;
      const Vec3f& p = control.points.view()[control.faceVertPointIndices()[c]];
      text << (c ? "," : "") << "(" << p.x << "," << p.y << "," << p.z << ")";
      ofCorners += text.str();
    }
    const Refined linear(coloured("faceVarying", ofCorners + "]",
                                  " token faceVaryingLinearInterpolation = \"all\"\n"),
                         2);
    const Refined smooth(coloured("faceVarying", ofCorners + "]",
                                  " token faceVaryingLinearInterpolation = \"none\"\n"),
                         2);
    const Surface linearSurface(linear.shape(), kNow), smoothSurface(smooth.shape(), kNow);
    forEachCorner(smooth.shape(), [&](int face, std::size_t c, const Vec3f& p) {
      expectNear(smoothSurface.colour({face, p}), p, 1e-6);
      expectNear(linearSurface.colour({face, p}),
                 flat.shape().points.view()[flat.shape().indices.view()[c]], 1e-6);
    });
  }
  {
    const Refined refined(coloured("uniform", "[(0,0,0),(1,0,0),(2,0,0),(3,0,0),(4,0,0),(5,0,0)]",
                                   " int[] holeIndices = [3]\n"),
                          2);
    const Surface surface(refined.shape(), kNow);
    std::set<float> seen;
    forEachCorner(refined.shape(), [&](int face, std::size_t, const Vec3f& p) {
      ASSERT_EQ(surface.colour({face, p}).x, static_cast<float>(refined.shape().sceneFace(face)));
      seen.insert(surface.colour({face, p}).x);
    });
    EXPECT_EQ(seen, (std::set<float>{0, 1, 2, 4, 5}));
  }
  {
    const Refined refined(coloured("constant", "[(0.25,0.5,0.75)]"), 1);
    expectNear(Surface(refined.shape(), kNow).colour({3, {0, 1, 0}}), {0.25f, 0.5f, 0.75f}, 0);
  }
  for (const char* interpolation : {"vertex", "varying", "uniform", "faceVarying"}) {
    const Refined refined(coloured(interpolation, "[(1,0,0),(1,0,0),(1,0,0)]"), 1);
    expectNear(Surface(refined.shape(), kNow).colour({3, {0, 1, 0}}), {0.5f, 0.5f, 0.5f}, 0);
  }
}

TEST(Refine, WhatIsNoSubdivisionSurfaceStaysAsItIs) {
  const Refined refined(cubeText("", "none") + "def Sphere \"Ball\"\n{\n}\n", 3);
  ASSERT_EQ(refined.list().shapes.size(), 2u);
  EXPECT_EQ(refined.shape(0).counts.size(), 6u);
  EXPECT_FALSE(refined.shape(0).refinement);
  EXPECT_FALSE(refined.shape(1).refinement);
  EXPECT_TRUE(refined.list().notRefined.empty());
}

TEST(Refine, WhatCannotBeRefinedIsNamedAndStaysAsItIs) {
  const std::string broken =
      "def Mesh \"Broken\"\n{\n int[] faceVertexCounts = [3]\n int[] faceVertexIndices = [0, 1, "
      "9]\n point3f[] points = "
      "[(0,0,0),(1,0,0)]\n}\n"
      "def Mesh \"Short\"\n{\n int[] faceVertexCounts = [3, 3]\n int[] faceVertexIndices = [0, 1, "
      "2]\n point3f[] points = "
      "[(0,0,0),(1,0,0),(0,1,0)]\n}\n"
      "def Mesh \"Empty\"\n{\n}\n";
  const Refined refined(cubeText("", "loop") + cubeText("", "smooth", false, "Other") + broken, 2);
  std::vector<std::string> notRefined;
  for (const Problem& problem : refined.list().problems()) {
    EXPECT_EQ(problem.kind, Problem::Kind::notRefined);
    EXPECT_EQ(problem.severity, Problem::Severity::note);
    notRefined.push_back(problem.text());
  }
  EXPECT_EQ(
      notRefined,
      (std::vector<std::string>{
          "/Cube: the scheme loop is for triangles alone",
          "/Other: its scheme 'smooth' is none of catmullClark, loop, bilinear",
          "/Broken: it has no usable face, or more neighbours at a point than can be counted"}));
  EXPECT_EQ(refined.shape(0).counts.size(), 6u);
  EXPECT_EQ(refined.shape(1).counts.size(), 6u);
  EXPECT_EQ(refined.shape(2).counts.size(), 1u);
  EXPECT_EQ(refined.shape(3).counts.size(), 12u) << "the face that is whole comes out";
  for (const Shape& shape : refined.list().shapes) Surface(shape, kNow, true);
}

TEST(Refine, EverySampleMeshIsShownBrokenOnesToo) {
  for (const vela_test::SampleMesh& m : vela_test::sampleMeshes())
    for (const char* scheme : {"none", "catmullClark", "loop", "bilinear"})
      for (int level = 0; level <= 2; ++level) {
        SCOPED_TRACE(m.name + " " + scheme + " " + std::to_string(level));
        const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
        const ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/M"));
        prim.setPoints(m.points);
        prim.createFaceVertexCountsAttr().set(m.counts);
        prim.createFaceVertexIndicesAttr().set(m.indices);
        prim.setSubdivisionScheme(ovo::Token(scheme));
        MeshFilter filter;
        filter.subdivisionLevel = level;
        const MeshList list = listMeshes(*stage, filter).value();
        ASSERT_EQ(list.shapes.size(), 1u);
        const Shape& shape = list.shapes[0];
        Surface surface(shape, kNow, true);
        surface.setSelection(false, {}, std::vector<float>(m.points.size(), 1.0f));
        std::size_t corner = 0, isWhole = shape.refinement ? 1 : 0;
        for (std::size_t f = 0; f < shape.counts.size(); ++f) {
          const int count = shape.counts.view()[f];
          if (count <= 0) continue;
          const bool usable = isWhole || (f < m.counts.size() && m.usable(f));
          for (std::size_t k = 0; k < static_cast<std::size_t>(count) && usable; ++k) {
            const Vec3f& p = shape.points.view()[shape.indices.view()[corner + k]];
            if (!std::isfinite(p.x + p.y + p.z)) continue;
            const float length = surface.normal({static_cast<int>(f), p}).length();
            EXPECT_TRUE(std::isnan(length) || length < 1.0f + 1e-5f);
            EXPECT_LE(surface.selection({static_cast<int>(f), p}), 1.0f + 1e-6f);
            EXPECT_LT(shape.sceneFace(static_cast<int>(f)), static_cast<int>(m.counts.size()));
          }
          corner += static_cast<std::size_t>(count);
        }
      }
}

TEST(Refine, MoreFacesThanMemoryHoldsAreRefusedBeforeTheyAreMade) {
  const Refined refined(cubeText("") + cubeText("", "none", false, "Flat"), 11);
  EXPECT_EQ(refined.problem().kind, Problem::Kind::tooManyFaces);
  EXPECT_EQ(refined.problem().text(),
            "/Cube: level 11 makes 25165824 of it and 25165824 of the scene, more than 10000000");
  EXPECT_EQ(refined.problem().levelThatFits, 10);
}

TEST(Refine, AStopEndsTheWork) {
  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
  for (const char* path : {"/A", "/B", "/C"}) ovo::MeshPrim::define(stage, ovo::Path(path));
  MeshFilter filter;
  filter.subdivisionLevel = 1;
  // One question for each prim and each shape: wherever it says stop there is no list.
  int questions = 0;
  vela::scene::Work work;
  work.stop = [&] { return ++questions < 0; };
  ASSERT_TRUE(listMeshes(*stage, filter, nullptr, work));
  const int most = questions;
  EXPECT_GE(most, 6);
  for (int allowed = 0; allowed < most; ++allowed) {
    questions = 0;
    work.stop = [&] { return questions++ >= allowed; };
    Problem problem;
    EXPECT_FALSE(listMeshes(*stage, filter, &problem, work));
    EXPECT_EQ(problem.kind, Problem::Kind::stopped);
  }
}

TEST(Refine, AnimatedMeshesAreRefinedAsTheyAreAtTheTime) {
  const std::string text =
      "def Mesh \"M\"\n{\n int[] faceVertexCounts = [4]\n int[] faceVertexIndices = [0,1,2,3]\n "
      "point3f[] points.timeSamples = "
      "{ 0: [(0,0,0),(1,0,0),(1,1,0),(0,1,0)], 10: [(0,0,8),(1,0,8),(1,1,8),(0,1,8)] }\n}\n";
  const Refined first(text, 2, 0), middle(text, 2, 5);
  ASSERT_EQ(middle.shape().counts.size(), 16u);
  for (const Vec3f& p : first.shape().points) EXPECT_EQ(p.z, 0.0f);
  for (const Vec3f& p : middle.shape().points) EXPECT_EQ(p.z, 4.0f);
}

TEST(Refine, APrototypeIsRefinedOnceForAllItsInstances) {
  const std::string text =
      "def PointInstancer \"Many\"\n{\n rel prototypes = </Many/Cube>\n int[] protoIndices = "
      "[0,0,0]\n"
      " point3f[] positions = [(0,0,0),(5,0,0),(10,0,0)]\n" +
      cubeText("") + "}\n";
  const Refined refined(text, 2);
  ASSERT_EQ(refined.list().entries.size(), 3u);
  ASSERT_EQ(refined.list().shapes.size(), 1u);
  EXPECT_EQ(refined.shape().counts.size(), 96u);
}

TEST(Refine, SelectedPointsAndFacesAreThoseOfTheScene) {
  const Refined refined(cubeText(""), 3);
  Surface surface(refined.shape(), kNow);
  surface.setSelection(false, {0, 0.5f}, {});
  forEachCorner(refined.shape(), [&](int face, std::size_t, const Vec3f& p) {
    ASSERT_EQ(surface.selection({face, p}), refined.shape().sceneFace(face) == 1 ? 0.5f : 0.0f);
  });
  // One corner: all of it there, half of it in the middle of its edges, nothing on faces that do
  // not have it.
  const std::vector<float> weights = {0, 0, 0, 1};
  surface.setSelection(false, {}, weights);
  const int* refinedPointOf = refined.shape().refinement->refinedPointOf.cdata();
  const Refined flat(cubeText("", "bilinear"), 3);
  forEachCorner(refined.shape(), [&](int face, std::size_t c, const Vec3f& p) {
    const Vec3f& onCube = flat.shape().points.view()[flat.shape().indices.view()[c]];
    const float wanted = (1 + onCube.x) / 2 * (1 + onCube.y) / 2 * (1 + onCube.z) / 2;
    ASSERT_NEAR(surface.selection({face, p}), wanted, 1e-6f);
    if (refined.shape().indices.view()[c] == refinedPointOf[3]) {
      ASSERT_EQ(surface.selection({face, p}), 1.0f);
    }
  });
}

}  // namespace
