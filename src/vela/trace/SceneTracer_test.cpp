#include "vela/trace/SceneTracer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "support/HostileRays.h"
#include "support/SampleMeshes.h"
#include "vela/mesh/Triangulate.h"
#include "vela/trace/detail/TracerMath.h"

namespace {

using tarn::Mat4d;
using tarn::Ray;
using tarn::Ray3d;
using tarn::Ray3f;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::SceneTracer;
using vela::TracerHit;
using vela_test::hostile;
using vela_test::makeSquare;
using vela_test::SampleMesh;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

std::uint32_t addMesh(SceneTracer& tracer, const SampleMesh& mesh) {
  return tracer.addMesh(mesh.points, mesh.counts, mesh.indices);
}

SceneTracer makeTracer(const SampleMesh& mesh, const Mat4d& matrix = Mat4d()) {
  SceneTracer tracer;
  tracer.addPlacement(addMesh(tracer, mesh), matrix);
  tracer.build();
  return tracer;
}

const Ray3f kDown({0.25f, 0.5f, 5.0f}, {0, 0, -1});

// The same question asked of every triangle of every placement: no box, no tree, no wide
// instruction. Meshes are read and cut here a second time; only the arithmetic of one ray and one
// triangle is shared.
class PlainLoop {
 public:
  struct Answer {
    bool hit = false;
    double distance = 0.0;
    std::uint32_t placement = 0, triangle = 0;
    int face = 0;
  };

  // Whether a face is used: all of its corners are points, and finite.
  static bool isSound(const SampleMesh& mesh, std::size_t face, std::size_t begin) {
    if (!mesh.usable(face)) return false;
    for (std::size_t k = 0; k < static_cast<std::size_t>(mesh.counts[face]); ++k) {
      const Vec3f p = mesh.points[static_cast<std::size_t>(mesh.indices[begin + k])];
      if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return false;
    }
    return true;
  }

  void add(const SampleMesh& source, const Mat4d& matrix) {
    Placed placed;
    Vec3f low(kInf), high(-kInf);
    std::vector<int> cut;
    std::vector<Vec3f> corners;
    std::size_t begin = 0;
    for (std::size_t f = 0; f < source.counts.size(); ++f) {
      const int n = std::max(source.counts[f], 0);
      if (!isSound(source, f, begin)) {
        begin += static_cast<std::size_t>(n);
        continue;
      }
      vela::triangulatePolygon(source.points.data(), source.indices.data() + begin, n, cut);
      // A face without area is not used, as SceneTracer::addMesh says; a triangle of another face
      // may have none.
      const auto at = [&](std::size_t k) {
        return source.points[static_cast<std::size_t>(
            source.indices[begin + static_cast<std::size_t>(cut[k])])];
      };
      bool hasArea = false;
      for (std::size_t k = 0; k + 2 < cut.size(); k += 3) {
        const Vec3d a(at(k)), b(at(k + 1)), c(at(k + 2));
        hasArea = hasArea || cross(b - a, c - a) != Vec3d();
      }
      if (!hasArea) cut.clear();
      for (std::size_t k = 0; k < cut.size(); ++k) corners.push_back(at(k));
      for (std::size_t k = 0; k < cut.size(); k += 3) placed.faces.push_back(static_cast<int>(f));
      begin += static_cast<std::size_t>(n);
    }
    for (const Vec3f& p : corners)
      for (std::size_t i = 0; i < 3; ++i) {
        low[i] = std::min(low[i], p[i]);
        high[i] = std::max(high[i], p[i]);
      }
    placed.frame = vela::tracer::makeMeshFrame(low, high);
    for (const Vec3f& p : corners) {
      placed.corners.push_back({std::ldexp(p.x, -placed.frame.exponent),
                                std::ldexp(p.y, -placed.frame.exponent),
                                std::ldexp(p.z, -placed.frame.exponent)});
    }
    placed.isUsable = vela::tracer::makeLocalFromWorld(matrix, placed.frame, placed.localFromWorld);
    placed_.push_back(std::move(placed));
  }

  template <class T>
  [[nodiscard]] Answer intersect(const Ray<T>& ray) const {
    Answer best;
    if (!vela::tracer::isUsable(ray)) return best;
    for (std::size_t p = 0; p < placed_.size(); ++p) {
      const Placed& placed = placed_[p];
      vela::tracer::LocalRay local;
      if (!placed.isUsable ||
          !vela::tracer::makeLocalRay(placed.localFromWorld, placed.frame, ray, local))
        continue;
      for (std::size_t t = 0; t < placed.faces.size(); ++t) {
        float corner[3][3];
        for (std::size_t c = 0; c < 3; ++c)
          for (std::size_t i = 0; i < 3; ++i) corner[c][i] = placed.corners[3 * t + c][i];
        vela::tracer::Crossing crossing;
        if (!vela::tracer::crossTriangle(local, corner[0], corner[1], corner[2], crossing))
          continue;
        const T rounded = static_cast<T>(crossing.distance);
        if (!(rounded >= ray.minDistance && rounded <= ray.maxDistance)) continue;
        if (best.hit && !(crossing.distance < best.distance)) continue;
        best = {true, crossing.distance, static_cast<std::uint32_t>(p),
                static_cast<std::uint32_t>(t), placed.faces[t]};
      }
    }
    return best;
  }

 private:
  struct Placed {
    vela::tracer::MeshFrame frame;
    vela::tracer::Affine localFromWorld;
    bool isUsable = false;
    std::vector<Vec3f> corners;
    std::vector<int> faces;
  };
  std::vector<Placed> placed_;
};

bool hasSameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

using Random = std::mt19937_64;
float uniform(Random& random, float low, float high) {
  return std::uniform_real_distribution<float>(low, high)(random);
}
Vec3f randomPoint(Random& random, float size) {
  return {uniform(random, -size, size), uniform(random, -size, size), uniform(random, -size, size)};
}
Mat4d randomRotation(Random& random) {
  Mat4d m;
  m.rotateX(static_cast<double>(uniform(random, 0, 6.3f)));
  m.rotateY(static_cast<double>(uniform(random, 0, 6.3f)));
  m.rotateZ(static_cast<double>(uniform(random, 0, 6.3f)));
  return m;
}

// One test an edge case.

TEST(SceneTracer, EmptyTracerMisses) {
  SceneTracer tracer;
  TracerHit hit;
  EXPECT_FALSE(tracer.intersect(kDown, hit));
  tracer.build();
  EXPECT_FALSE(tracer.intersect(kDown, hit));
  EXPECT_FALSE(tracer.occluded(kDown));
  EXPECT_TRUE(tracer.bounds().isEmpty());
}

TEST(SceneTracer, HitTellsDistancePositionNormalAndFace) {
  const SceneTracer tracer = makeTracer(makeSquare());
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_TRUE(hit.hit);
  EXPECT_EQ(hit.distance, 5.0);
  EXPECT_EQ(hit.position, Vec3f(0.25f, 0.5f, 0.0f));
  EXPECT_EQ(hit.normal, Vec3f(0, 0, 1));
  EXPECT_EQ(hit.placement, 0u);
  EXPECT_EQ(hit.face, 0);
  EXPECT_TRUE(tracer.occluded(kDown));
}

TEST(SceneTracer, BothSidesAreHitAndTheNormalStays) {
  const SceneTracer tracer = makeTracer(makeSquare());
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(Ray3f({0.25f, 0.5f, -5.0f}, {0, 0, 1}), hit));
  EXPECT_EQ(hit.normal, Vec3f(0, 0, 1));
}

TEST(SceneTracer, DistanceCountsTheCallersDirection) {
  const SceneTracer tracer = makeTracer(makeSquare());
  for (const float length : {1e-30f, 0.25f, 4.0f, 1e30f}) {
    TracerHit hit;
    ASSERT_TRUE(tracer.intersect(Ray3f({0, 0, 5}, {0, 0, -length}), hit)) << length;
    EXPECT_NEAR(hit.distance * static_cast<double>(length), 5.0, 1e-6);
    EXPECT_NEAR(static_cast<double>(hit.position.z), 0.0, 1e-6);
  }
}

TEST(SceneTracer, RangeIsClosedAtBothEnds) {
  const SceneTracer tracer = makeTracer(makeSquare());
  TracerHit hit;
  EXPECT_TRUE(tracer.intersect(Ray3f({0, 0, 5}, {0, 0, -1}, 0.0f, 5.0f), hit));
  EXPECT_TRUE(tracer.intersect(Ray3f({0, 0, 5}, {0, 0, -1}, 5.0f, 5.0f), hit));
  EXPECT_TRUE(tracer.occluded(Ray3f({0, 0, 5}, {0, 0, -1}, 5.0f, 9.0f)));
  EXPECT_FALSE(
      tracer.intersect(Ray3f({0, 0, 5}, {0, 0, -1}, 0.0f, std::nextafter(5.0f, 0.0f)), hit));
  EXPECT_FALSE(
      tracer.intersect(Ray3f({0, 0, 5}, {0, 0, -1}, std::nextafter(5.0f, 6.0f), 9.0f), hit));
}

TEST(SceneTracer, OriginOnTheSurfaceHitsAtZero) {
  const SceneTracer tracer = makeTracer(makeSquare());
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(Ray3f({0.25f, 0.5f, 0.0f}, {0, 0, 1}), hit));
  EXPECT_EQ(hit.distance, 0.0);
}

TEST(SceneTracer, NegativeMinDistanceLooksBehind) {
  const SceneTracer tracer = makeTracer(makeSquare());
  TracerHit hit;
  EXPECT_FALSE(tracer.intersect(Ray3f({0, 0, 5}, {0, 0, 1}), hit));
  ASSERT_TRUE(tracer.intersect(Ray3f({0, 0, 5}, {0, 0, 1}, -6.0f, 0.0f), hit));
  EXPECT_EQ(hit.distance, -5.0);
  EXPECT_TRUE(tracer.intersect(Ray3f({0, 0, 5}, {0, 0, 1}, -kInf, kInf), hit));
}

TEST(SceneTracer, RaysWithNanInfinityNoDirectionOrAnEmptyRangeMiss) {
  const SceneTracer tracer = makeTracer(makeSquare());
  const Vec3f o(0, 0, 5), d(0, 0, -1);
  std::vector<Ray3f> rays = {{o, {0, 0, 0}},
                             {o, {-0.0f, 0, 0}},
                             {o, d, 1.0f, 0.0f},
                             {o, d, kNan, 9.0f},
                             {o, d, 0.0f, kNan}};
  for (const float bad : {kNan, kInf, -kInf})
    for (std::size_t i = 0; i < 3; ++i) {
      rays.emplace_back(o, d);
      rays.back().origin[i] = bad;
      rays.emplace_back(o, d);
      rays.back().direction[i] = bad;
    }
  for (std::size_t i = 0; i < rays.size(); ++i) {
    TracerHit hit;
    EXPECT_FALSE(tracer.intersect(rays[i], hit)) << i;
    EXPECT_FALSE(tracer.occluded(rays[i])) << i;
  }
}

TEST(SceneTracer, MissLeavesADefaultRecord) {
  const SceneTracer tracer = makeTracer(makeSquare());
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_FALSE(tracer.intersect(Ray3f({9, 9, 5}, {0, 0, -1}), hit));
  EXPECT_FALSE(hit.hit);
  EXPECT_EQ(hit.distance, std::numeric_limits<double>::max());
  EXPECT_EQ(hit.normal, Vec3f());
  EXPECT_EQ(hit.face, 0);
}

TEST(SceneTracer, EqualDistancesGoToTheLowerPlacement) {
  SceneTracer tracer;
  const std::uint32_t mesh = addMesh(tracer, makeSquare());
  for (int i = 0; i < 40; ++i) tracer.addPlacement(mesh, Mat4d());
  tracer.build();
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_EQ(hit.placement, 0u);
}

TEST(SceneTracer, EqualDistancesGoToTheLowerFace) {
  SampleMesh mesh;
  for (int copy = 0; copy < 40; ++copy) {
    const SampleMesh square = makeSquare();
    for (const int i : square.indices) mesh.indices.push_back(i + 4 * copy);
    for (const Vec3f& p : square.points) mesh.points.push_back(p);
    mesh.counts.push_back(4);
  }
  TracerHit hit;
  ASSERT_TRUE(makeTracer(mesh).intersect(kDown, hit));
  EXPECT_EQ(hit.face, 0);
}

TEST(SceneTracer, NothingIsHitThroughAMatrixWithoutInverse) {
  Mat4d flat;
  flat.scale(1, 1, 0);
  Mat4d bad;
  bad[5] = std::numeric_limits<double>::quiet_NaN();
  Mat4d far;
  far[12] = std::numeric_limits<double>::infinity();
  for (const Mat4d& m : {flat, bad, far, Mat4d(0.0)}) {
    TracerHit hit;
    EXPECT_FALSE(makeTracer(makeSquare(), m).intersect(kDown, hit));
  }
}

TEST(SceneTracer, UnusablePlacementsKeepTheirNumbers) {
  SceneTracer tracer;
  const std::uint32_t mesh = addMesh(tracer, makeSquare());
  EXPECT_EQ(tracer.addPlacement(7, Mat4d()), 0u);
  EXPECT_EQ(tracer.addPlacement(mesh, Mat4d(0.0)), 1u);
  EXPECT_EQ(tracer.addPlacement(mesh, Mat4d()), 2u);
  tracer.build();
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_EQ(hit.placement, 2u);
  EXPECT_EQ(tracer.placementMesh(0), 7u);
  EXPECT_EQ(tracer.placementMesh(2), mesh);
  EXPECT_EQ(tracer.placementMesh(3), 0xFFFFFFFFu);
}

TEST(SceneTracer, MirroredPlacementTurnsTheNormalByTheInverseTranspose) {
  Mat4d mirrored;
  mirrored.scale(1, 1, -1);
  TracerHit hit;
  ASSERT_TRUE(makeTracer(makeSquare(), mirrored).intersect(kDown, hit));
  EXPECT_EQ(hit.normal, Vec3f(0, 0, -1));
  Mat4d sideways;
  sideways.scale(-1, 1, 1);
  ASSERT_TRUE(makeTracer(makeSquare(), sideways).intersect(kDown, hit));
  EXPECT_EQ(hit.normal, Vec3f(0, 0, 1));
}

TEST(SceneTracer, UnevenScaleKeepsTheNormalUpright) {
  // The plane x + z = 0; doubled along x it is x / 2 + z = 0.
  const SampleMesh slope = {
      "slope", {{-1, -1, 1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, 1}}, {4}, {0, 1, 2, 3}};
  Mat4d wide;
  wide.scale(2, 1, 1);
  TracerHit hit;
  ASSERT_TRUE(makeTracer(slope, wide).intersect(kDown, hit));
  const Vec3f expected = Vec3f(0.5f, 0, 1).normalized();
  EXPECT_NEAR(hit.normal.x, expected.x, 1e-7);
  EXPECT_NEAR(hit.normal.z, expected.z, 1e-7);
}

TEST(SceneTracer, AnyScaleGivesTheSamePicture) {
  const SampleMesh ball = vela_test::makeIcosphere(3);
  const SceneTracer unit = makeTracer(ball);
  for (const int exponent : {-100, -33, 33, 100}) {
    const double size = std::ldexp(1.0, exponent);
    Mat4d scaled;
    scaled.scale(size, size, size);
    SampleMesh small = ball;
    for (Vec3f& p : small.points) p = p * static_cast<float>(size);
    const SceneTracer placed = makeTracer(ball, scaled), modelled = makeTracer(small);
    Random random(7);
    for (int i = 0; i < 2000; ++i) {
      const Vec3f o = randomPoint(random, 3), d = randomPoint(random, 1) - o;
      TracerHit a, b, c;
      unit.intersect(Ray3f(o, d), a);
      const Ray3f ray(o * static_cast<float>(size), d * static_cast<float>(size));
      placed.intersect(ray, b);
      modelled.intersect(ray, c);
      // A power of two loses nothing, so the answers are the same to the last bit.
      for (const TracerHit& h : {b, c}) {
        ASSERT_EQ(h.hit, a.hit);
        ASSERT_EQ(h.distance, a.distance);
        ASSERT_EQ(h.face, a.face);
        ASSERT_EQ(h.normal, a.normal);
      }
    }
  }
}

TEST(SceneTracer, TinyPlacementIsSeenFromFarWithItsFrontBeforeItsBack) {
  Mat4d tiny;
  tiny.translate(1000.0, -2000.0, 500.0);
  tiny.scale(1e-10, 1e-10, 1e-10);
  const SceneTracer tracer = makeTracer(vela_test::makeCube(), tiny);
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(Ray3f({1000.0f, -2000.0f, 900.0f}, {0, 0, -1}), hit));
  EXPECT_EQ(hit.normal, Vec3f(0, 0, 1));
  EXPECT_NEAR(hit.distance, 400.0, 1e-9);
  ASSERT_TRUE(tracer.intersect(Ray3f({1000.0f, -2000.0f, -900.0f}, {0, 0, 1}), hit));
  EXPECT_EQ(hit.normal, Vec3f(0, 0, -1));
}

TEST(SceneTracer, FacesThatCannotBeUsedAreSkippedAndCounted) {
  // Each of the bad faces lies above the good one, so a ray that hit it would say so.
  const float up = 1.0f;
  SampleMesh mesh = makeSquare(up);
  mesh.points.push_back({0, 0, kNan});
  mesh.points.push_back({kInf, 0, up});
  const SampleMesh low = makeSquare(0.0f);
  for (const Vec3f& p : low.points) mesh.points.push_back(p);  // 6 to 9
  mesh.counts = {2, -3, 0, 4, 3, 3, 3, 4, 4, 100};
  mesh.indices = {0, 1,          // two corners
                  0, 1, 2,  10,  // out of range
                  0, 1, -1,      // negative
                  0, 1, 4,       // NaN
                  0, 1, 5,       // infinite
                  0, 2, 0,  2,   // no area
                  6, 7, 8,  9,   // good
                  0, 1, 2,  3};  // runs past the end
  const SceneTracer tracer = makeTracer(mesh);
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_EQ(hit.face, 8);
  EXPECT_EQ(hit.distance, 5.0);
  EXPECT_EQ(tracer.numTriangles(0), 2u);
}

TEST(SceneTracer, MeshesWithoutUsableFacesAreMissed) {
  for (const SampleMesh& mesh : {SampleMesh{}, SampleMesh{"", {{0, 0, 0}}, {3}, {0, 0, 0}},
                                 SampleMesh{"", {}, {3}, {0, 1, 2}},
                                 SampleMesh{"", {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, {3}, {0, 1, 2}},
                                 SampleMesh{"", makeSquare().points, {}, {0, 1, 2, 3}},
                                 SampleMesh{"", makeSquare().points, {4}, {}}}) {
    const SceneTracer tracer = makeTracer(mesh);
    TracerHit hit;
    EXPECT_FALSE(tracer.intersect(kDown, hit));
    EXPECT_FALSE(tracer.intersect(Ray3f({0.5f, 0, 5}, {0, 0, -1}), hit));
  }
}

TEST(SceneTracer, EqualMeshesAreStoredOnce) {
  SceneTracer tracer;
  const SampleMesh square = makeSquare();
  const std::uint32_t a = addMesh(tracer, square), b = addMesh(tracer, square);
  EXPECT_EQ(a, b);
  SampleMesh moved = square;
  moved.points[3].z = -0.0f;  // equal as a number, not in its bits
  EXPECT_NE(addMesh(tracer, moved), a);
  SampleMesh turned = square;
  std::swap(turned.indices[0], turned.indices[2]);
  EXPECT_NE(addMesh(tracer, turned), a);
  // The same numbers cut into faces otherwise.
  SampleMesh cut = square;
  cut.counts = {3, 1};
  EXPECT_NE(addMesh(tracer, cut), a);
  EXPECT_EQ(tracer.numMeshes(), 4u);
}

TEST(SceneTracer, BarycentricsAndCornersLeadBackToThePosition) {
  const SampleMesh torus = vela_test::makeTorus(24, 12);
  Random random(3);
  Mat4d matrix = randomRotation(random);
  matrix.scale(2, 0.5, 3);
  const SceneTracer tracer = makeTracer(torus, matrix);
  int hits = 0;
  for (int i = 0; i < 2000; ++i) {
    TracerHit hit;
    const Vec3f o = randomPoint(random, 6);
    if (!tracer.intersect(Ray3f(o, randomPoint(random, 1) - o), hit)) continue;
    ++hits;
    Vec3f p[3];
    for (std::size_t c = 0; c < 3; ++c) {
      ASSERT_EQ(hit.points[c], torus.indices[static_cast<std::size_t>(hit.faceVertices[c])]);
      ASSERT_EQ(hit.faceVertices[c] / 4, hit.face);
      p[c] = torus.points[static_cast<std::size_t>(hit.points[c])];
    }
    const Vec3f local = p[0] * (1 - hit.u - hit.v) + p[1] * hit.u + p[2] * hit.v;
    const Vec3f world(matrix.transformPoint(Vec3d(local)));
    ASSERT_LT((world - hit.position).length(), 1e-5f);
    ASSERT_NEAR(hit.normal.length(), 1.0f, 1e-6f);
  }
  EXPECT_GT(hits, 200);
}

TEST(SceneTracer, ConcavePolygonIsOpenInItsNotchAtAnySize) {
  for (const float size : {1e-6f, 1.0f, 1e6f}) {
    // An arrowhead: the notch is the part between its legs.
    SampleMesh arrow = {"arrow",
                        {{0, 2, 0}, {-2, -2, 0}, {0, 0, 0}, {2, -2, 0}, {1.5f, -1, 0}},
                        {5},
                        {0, 1, 2, 3, 4}};
    for (Vec3f& p : arrow.points) p = p * size;
    const SceneTracer tracer = makeTracer(arrow);
    TracerHit hit;
    EXPECT_FALSE(tracer.intersect(Ray3f({0, -size, size}, {0, 0, -1}), hit));
    EXPECT_TRUE(tracer.intersect(Ray3f({0, size, size}, {0, 0, -1}), hit));
    EXPECT_TRUE(tracer.intersect(Ray3f({-1.4f * size, -1.3f * size, size}, {0, 0, -1}), hit));
  }
}

TEST(SceneTracer, CornerOnAnEdgeLeavesNoGapToTheNeighbour) {
  // The upper face has a corner in the middle of the shared line, the lower one has none... and one
  // more of each kind.
  const SampleMesh mesh = {
      "corner on an edge",
      {{-1, 0, 0}, {1, 0, 0}, {0.3f, 0, 0}, {1, 1, 0.1f}, {-1, 1, 0.2f}, {1, -1, 0}, {-1, -1, 0}},
      {5, 5},
      {0, 2, 1, 3, 4, 6, 5, 1, 2, 0}};
  Random random(11);
  const SceneTracer tracer = makeTracer(mesh, randomRotation(random));
  const SceneTracer straight = makeTracer(mesh);
  for (int i = 0; i < 20000; ++i) {
    const Vec3f at(uniform(random, -0.99f, 0.99f), 0, 0), o(at.x, uniform(random, -0.2f, 0.2f), 3);
    TracerHit hit;
    ASSERT_TRUE(straight.intersect(Ray3f(o, at - o), hit)) << i;
    ASSERT_NEAR(hit.normal.length(), 1.0f, 1e-6f);
  }
}

TEST(SceneTracer, AStoppedBuildLeavesTheAnswersOfTheOneBeforeAndTheNextGoesOn) {
  SceneTracer tracer;
  const ovo::Array<int> counts = {3}, indices = {0, 1, 2};
  const auto addTriangleAt = [&](float z) {
    const ovo::Array<Vec3f> points = {{0, 0, z}, {4, 0, z}, {0, 4, z}};
    tracer.addPlacement(tracer.addMesh(points, counts, indices), Mat4d());
  };
  addTriangleAt(0.0f);
  tracer.build();
  addTriangleAt(1.0f);
  addTriangleAt(2.0f);
  const Ray3f down({1, 1, 5}, {0, 0, -1});
  TracerHit hit;
  for (const int stopAt : {1, 2}) {  // before the first mesh that is left, before the second
    int asked = 0;
    EXPECT_FALSE(tracer.build([&] { return ++asked == stopAt; })) << stopAt;
    ASSERT_TRUE(tracer.intersect(down, hit));
    EXPECT_EQ(hit.distance, 5.0) << stopAt;
  }
  int asked = 0;
  EXPECT_TRUE(tracer.build([&] { return ++asked > 2; }));
  EXPECT_EQ(asked, 2) << "one mesh was left, then the placements";
  ASSERT_TRUE(tracer.intersect(down, hit));
  EXPECT_EQ(hit.distance, 3.0);
}

TEST(SceneTracer, SpansOfUnequalLengthAnswerForTheShorterOne) {
  SceneTracer tracer;
  tracer.addPlacement(tracer.addMesh({{0, 0, 0}, {4, 0, 0}, {0, 4, 0}}, {3}, {0, 1, 2}), Mat4d());
  tracer.build();
  const auto ask = [&](const auto& rays) {
    std::vector<TracerHit> hits(2);
    bool answers[2] = {};
    for (std::size_t n = 0; n <= 3; ++n) {
      std::fill(hits.begin(), hits.end(), TracerHit());
      std::fill_n(answers, 2, false);
      tracer.intersect(tarn::Span(rays.data(), n), hits);
      tracer.occluded(tarn::Span(rays.data(), n), answers);
      for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(hits[i].hit, i < n) << n << ' ' << i;
        EXPECT_EQ(answers[i], i < n) << n << ' ' << i;
      }
    }
  };
  ask(std::vector<Ray3f>(3, {{1, 1, 5}, {0, 0, -1}}));
  ask(std::vector<tarn::Ray3d>(3, {{1, 1, 5}, {0, 0, -1}}));
}

TEST(SceneTracer, WhatIsAddedIsSeenAfterTheNextBuild) {
  SceneTracer tracer = makeTracer(makeSquare(0.0f));
  tracer.addPlacement(addMesh(tracer, makeSquare(1.0f)), Mat4d());
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_EQ(hit.distance, 5.0);
  tracer.build();
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_EQ(hit.distance, 4.0);
  EXPECT_EQ(hit.placement, 1u);
}

TEST(SceneTracer, OnePlacementAnswersAsIfItWereAlone) {
  Random random(6);
  const SampleMesh meshes[] = {vela_test::makeBumpySphere(500), makeSquare()};
  SceneTracer all;
  std::vector<SceneTracer> alone;
  for (int i = 0; i < 30; ++i) {
    Mat4d matrix;
    // Every third stands exactly where the one before it does; a few cannot be hit at all.
    matrix.translate(static_cast<double>(i / 3), 0.0, 0.0);
    if (i % 10 == 9) matrix.scale(0.0, 1.0, 1.0);
    all.addPlacement(addMesh(all, meshes[i % 2]), matrix);
    alone.push_back(makeTracer(meshes[i % 2], matrix));
  }
  all.build();
  int hits = 0;
  for (int i = 0; i < 3000; ++i) {
    const Ray3f ray(randomPoint(random, 6), randomPoint(random, 1));
    for (std::uint32_t placement = 0; placement < 30; ++placement) {
      TracerHit hit, expected;
      ASSERT_EQ(all.intersectPlacement(placement, ray, hit),
                alone[placement].intersect(ray, expected));
      ASSERT_EQ(hit.hit, expected.hit);
      ASSERT_TRUE(hasSameBits(hit.distance, expected.distance));
      ASSERT_EQ(hit.face, expected.face);
      ASSERT_EQ(hit.normal, expected.normal);
      ASSERT_EQ(hit.placement, expected.hit ? placement : 0u);
      hits += hit.hit;
    }
  }
  EXPECT_GT(hits, 500);
}

TEST(SceneTracer, PlacementsThatAreNotThereAreNeverHit) {
  SceneTracer tracer;
  TracerHit hit;
  EXPECT_FALSE(tracer.intersectPlacement(0, kDown, hit));
  tracer.addPlacement(addMesh(tracer, makeSquare()), Mat4d());
  EXPECT_FALSE(tracer.intersectPlacement(0, kDown, hit)) << "not built yet";
  tracer.build();
  EXPECT_TRUE(tracer.intersectPlacement(0, kDown, hit));
  EXPECT_FALSE(tracer.intersectPlacement(1, kDown, hit));
  EXPECT_FALSE(hit.hit);
  EXPECT_FALSE(tracer.intersectPlacement(0xffffffffu, kDown, hit));
}

TEST(SceneTracer, SpansAnswerAsSingleRaysDo) {
  const SceneTracer tracer = makeTracer(vela_test::makeBumpySphere(2000));
  Random random(5);
  std::vector<Ray3f> rays;
  for (int i = 0; i < 1003; ++i) rays.emplace_back(randomPoint(random, 2), randomPoint(random, 1));
  rays[17].direction = Vec3f();
  std::vector<TracerHit> hits(rays.size());
  const std::unique_ptr<bool[]> occluded(new bool[rays.size()]);
  tracer.intersect(rays.data(), rays.size(), hits.data());
  tracer.occluded(rays.data(), rays.size(), occluded.get());
  for (std::size_t i = 0; i < rays.size(); ++i) {
    TracerHit hit;
    tracer.intersect(rays[i], hit);
    ASSERT_EQ(hits[i].hit, hit.hit);
    ASSERT_TRUE(hasSameBits(hits[i].distance, hit.distance));
    ASSERT_EQ(hits[i].face, hit.face);
    ASSERT_EQ(hits[i].position, hit.position);
    ASSERT_EQ(occluded[i], hit.hit);
  }
  tracer.intersect(nullptr, 0, nullptr);
  tracer.occluded(nullptr, 0, nullptr);
}

TEST(SceneTracer, PlacementsAreCompact) {
  SceneTracer tracer;
  const std::uint32_t mesh = addMesh(tracer, vela_test::makeCube());
  Random random(2);
  constexpr std::size_t count = 20000;
  tracer.reservePlacements(count);
  for (std::size_t i = 0; i < count; ++i) {
    Mat4d m;
    m.translate(Vec3d(randomPoint(random, 300)));
    tracer.addPlacement(mesh, m);
  }
  tracer.build();
  EXPECT_LE(tracer.memoryUsage(), count * 150 + 10000);
  const auto box = tracer.bounds();
  EXPECT_LT(box.min.x, -290.0f);
  EXPECT_GT(box.min.x, -301.1f);
}

TEST(SceneTracer, MeshPrimsAreReadAtTheTimeGiven) {
  const auto stage = ovo::Stage::createInMemory();
  const ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/square"));
  const SampleMesh low = makeSquare(0.0f), high = makeSquare(2.0f);
  ASSERT_TRUE(prim.setPoints(low.points, 1.0));
  ASSERT_TRUE(prim.setPoints(high.points, 2.0));
  ASSERT_TRUE(prim.createFaceVertexCountsAttr().set(ovo::Array<int>(low.counts)));
  ASSERT_TRUE(prim.createFaceVertexIndicesAttr().set(ovo::Array<int>(low.indices)));
  SceneTracer tracer;
  const std::uint32_t first = tracer.addMesh(prim, 1.0), second = tracer.addMesh(prim, 2.0);
  EXPECT_NE(first, second);
  EXPECT_EQ(tracer.addMesh(low.points, low.counts, low.indices), first);
  tracer.addPlacement(second, Mat4d());
  tracer.build();
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(kDown, hit));
  EXPECT_EQ(hit.distance, 3.0);

  // A prim without a mesh is a mesh without faces.
  tracer.addPlacement(tracer.addMesh(ovo::MeshPrim()), Mat4d());
  tracer.build();
  EXPECT_TRUE(tracer.intersect(kDown, hit));
}

// Against the plain loop.

struct Scene {
  SceneTracer fast, plain;
  PlainLoop loop;
  std::vector<Vec3f> targets;  ///< world positions of corners and of points on edges
  int placements = 0;

  Scene() { plain.setKernel(SceneTracer::Kernel::plain); }

  void add(Random& random, const SampleMesh& mesh, const Mat4d& matrix) {
    for (SceneTracer* tracer : {&fast, &plain})
      tracer->addPlacement(addMesh(*tracer, mesh), matrix);
    loop.add(mesh, matrix);
    ++placements;
    // A corner that a broken mesh does not have is the origin.
    const auto corner = [&](std::size_t vertex) {
      if (vertex >= mesh.indices.size()) return Vec3f();
      const int p = mesh.indices[vertex];
      const bool isPoint = p >= 0 && static_cast<std::size_t>(p) < mesh.points.size();
      return isPoint ? mesh.points[static_cast<std::size_t>(p)] : Vec3f();
    };
    const std::size_t pairs = std::max<std::size_t>(mesh.indices.size(), 2) - 1;
    for (int i = 0; i < 40; ++i) {
      const std::size_t at = random() % pairs;
      const Vec3f a = corner(at), b = corner(at + 1);
      const float mix = i % 2 == 0 ? 0.0f : uniform(random, 0, 1);
      const Vec3d local(a * (1 - mix) + b * mix);
      targets.emplace_back(matrix.transformPoint(local));
    }
  }
  void build() {
    fast.build();
    plain.build();
  }

  // Rays of every kind: through the scene, at corners and edges, along edges, along an axis, from
  // corners, with short ranges.
  [[nodiscard]] Ray3f randomRay(Random& random, float size) const {
    const Vec3f a = targets[random() % targets.size()], b = targets[random() % targets.size()];
    const Vec3f o = randomPoint(random, size);
    Ray3f ray(o, randomPoint(random, 1));
    switch (random() % 8) {
      case 0: break;
      case 1: ray.direction = a - o; break;
      case 2: ray = Ray3f(a, b - a); break;
      case 3: ray = Ray3f(a - (b - a), b - a); break;
      case 4: {
        ray.origin = a;
        const std::size_t axis = random() % 3;
        ray.origin[axis] = -size * 2;
        ray.direction = Vec3f();
        ray.direction[axis] = uniform(random, 0.1f, 2.0f);
        if (random() % 2 == 0) ray.direction[(axis + 1) % 3] = -0.0f;
        break;
      }
      case 5: ray = Ray3f(a, randomPoint(random, 1), -size, size); break;
      case 6:
        ray.direction = a - o;
        ray.minDistance = uniform(random, 0, 1);
        ray.maxDistance = random() % 2 == 0 ? 1.0f : uniform(random, 0, 2);
        break;
      default:
        ray.direction = (a - o) * std::ldexp(1.0f, static_cast<int>(random() % 60) - 30);
        break;
    }
    return ray;
  }

  template <class T>
  void compare(const Ray<T>& ray, int& hits) const {
    const PlainLoop::Answer expected = loop.intersect(ray);
    for (const SceneTracer* tracer : {&fast, &plain}) {
      TracerHit hit;
      tracer->intersect(ray, hit);
      ASSERT_EQ(hit.hit, expected.hit)
          << "loop distance " << expected.distance << " placement " << expected.placement;
      ASSERT_EQ(tracer->occluded(ray), expected.hit);
      if (!expected.hit) continue;
      ASSERT_TRUE(hasSameBits(hit.distance, expected.distance))
          << hit.distance << ' ' << expected.distance;
      ASSERT_EQ(hit.placement, expected.placement);
      ASSERT_EQ(hit.face, expected.face);
    }
    hits += expected.hit ? 1 : 0;
  }
};

void compareScenes(unsigned seed, int scenes, int rays, Mat4d (*makeMatrix)(Random&, float),
                   float size) {
  for (int s = 0; s < scenes; ++s) {
    const unsigned here = seed + static_cast<unsigned>(s);
    SCOPED_TRACE(testing::Message() << "seed " << here);
    Random random(here);
    Scene scene;
    const SampleMesh meshes[] = {vela_test::makeCube(), vela_test::makeIcosphere(1),
                                 vela_test::makeTorus(9, 7), vela_test::makeBumpySphere(300),
                                 makeSquare()};
    const int count = 1 + static_cast<int>(random() % 12);
    for (int i = 0; i < count; ++i) {
      const SampleMesh& mesh = meshes[random() % 5];
      const Mat4d matrix = makeMatrix(random, size);
      scene.add(random, mesh, matrix);
      if (random() % 4 == 0) scene.add(random, mesh, matrix);  // a tie for every ray
    }
    scene.build();
    int hits = 0;
    for (int r = 0; r < rays && !testing::Test::HasFatalFailure(); ++r) {
      const Ray3f ray = scene.randomRay(random, size);
      SCOPED_TRACE(testing::Message() << "ray " << r);
      scene.compare(ray, hits);
    }
    EXPECT_GT(hits, rays / 50);
  }
}

TEST(SceneTracerAgainstPlainLoop, PlacedByRotationAndScale) {
  compareScenes(
      100, 12, 3000,
      [](Random& random, float size) {
        Mat4d m;
        m.translate(Vec3d(randomPoint(random, size * 0.5f)));
        m = m * randomRotation(random);
        const double s = static_cast<double>(uniform(random, 0.3f, 1.5f));
        m.scale(random() % 3 == 0 ? -s : s, s, s);
        return m;
      },
      4.0f);
}

TEST(SceneTracerAgainstPlainLoop, PlacedBySkewedMatrices) {
  compareScenes(
      200, 12, 3000,
      [](Random& random, float size) {
        Mat4d m;
        m.translate(Vec3d(randomPoint(random, size * 0.5f)));
        m = m * randomRotation(random);
        m.scale(std::pow(10.0, static_cast<double>(uniform(random, -3, 0.5f))), 1,
                std::pow(10.0, static_cast<double>(uniform(random, -1, 0.5f))));
        m = m * randomRotation(random);
        if (random() % 6 == 0) m.scale(1e-6, 1, 1e6);
        if (random() % 9 == 0) m.scale(1, 1, 1e-13);
        m = m * randomRotation(random);
        return m;
      },
      4.0f);
}

TEST(SceneTracerAgainstPlainLoop, FarFromTheOrigin) {
  compareScenes(
      300, 8, 3000,
      [](Random& random, float size) {
        Mat4d m;
        m.translate(Vec3d(randomPoint(random, size)));
        m = m * randomRotation(random);
        const double s = std::pow(10.0, static_cast<double>(uniform(random, -6, 5)));
        m.scale(s, s, s);
        return m;
      },
      1e5f);
}

TEST(SceneTracerAgainstPlainLoop, OneDenseMeshInPlace) {
  for (const SampleMesh& mesh :
       {vela_test::makeBumpySphere(6000), vela_test::makeTorus(40, 30, 1.0f, 0.01f)}) {
    Random random(400);
    Scene scene;
    scene.add(random, mesh, Mat4d());
    scene.build();
    int hits = 0;
    for (int r = 0; r < 6000 && !HasFatalFailure(); ++r) {
      SCOPED_TRACE(testing::Message() << "ray " << r);
      scene.compare(scene.randomRay(random, 2.0f), hits);
    }
    EXPECT_GT(hits, 500);
  }
}

TEST(SceneTracerAgainstPlainLoop, EverySampleMesh) {
  for (const SampleMesh& mesh : vela_test::sampleMeshes()) {
    SCOPED_TRACE(mesh.name);
    Random random(450);
    Scene scene;
    scene.add(random, mesh, Mat4d());
    scene.build();
    float reach = 0.0f;
    for (const Vec3f& p : mesh.points)
      for (std::size_t i = 0; i < 3; ++i)
        if (std::isfinite(p[i])) reach = std::max(reach, std::fabs(p[i]));
    reach = reach > 0.0f ? std::min(reach * 1.5f, 1e38f) : 1.0f;
    int hits = 0;
    for (int r = 0; r < 1000 && !HasFatalFailure(); ++r) {
      SCOPED_TRACE(testing::Message() << "ray " << r);
      scene.compare(scene.randomRay(random, reach), hits);
    }
    if (mesh.closed) {
      EXPECT_GT(hits, 200);
    }
  }
}

TEST(SceneTracerAgainstPlainLoop, NeedlesAndSlivers) {
  // Triangles a million times longer than wide, in every direction, where float areas say little.
  Random random(500);
  SampleMesh mesh;
  for (int i = 0; i < 400; ++i) {
    const Vec3f a = randomPoint(random, 1), along = randomPoint(random, 1);
    const Vec3f b = a + along, c = a + along * uniform(random, 0, 1) + randomPoint(random, 1e-6f);
    for (const Vec3f& p : {a, b, c}) {
      mesh.indices.push_back(static_cast<int>(mesh.points.size()));
      mesh.points.push_back(p);
    }
    mesh.counts.push_back(3);
  }
  Scene scene;
  scene.add(random, mesh, Mat4d());
  scene.build();
  int hits = 0;
  for (int r = 0; r < 20000 && !HasFatalFailure(); ++r) {
    SCOPED_TRACE(testing::Message() << "ray " << r);
    scene.compare(scene.randomRay(random, 2.0f), hits);
  }
  EXPECT_GT(hits, 500);
}

// Rays of doubles.

Ray3d widened(const Ray3f& ray) {
  return {Vec3d(ray.origin), Vec3d(ray.direction), static_cast<double>(ray.minDistance),
          static_cast<double>(ray.maxDistance)};
}

bool areEqual(const TracerHit& a, const TracerHit& b) {
  return a.hit == b.hit && hasSameBits(a.distance, b.distance) && a.position == b.position &&
         a.normal == b.normal && a.placement == b.placement && a.face == b.face &&
         std::equal(a.points, a.points + 3, b.points) &&
         std::equal(a.faceVertices, a.faceVertices + 3, b.faceVertices) && a.u == b.u && a.v == b.v;
}

TEST(SceneTracerWithDoubleRays, FloatsInADoubleRayGetTheSameRecord) {
  Random random(600);
  Scene scene;
  for (int i = 0; i < 20; ++i) {
    Mat4d m;
    m.translate(Vec3d(randomPoint(random, 4)));
    scene.add(random, vela_test::makeBumpySphere(300), m * randomRotation(random));
  }
  scene.build();
  for (int r = 0; r < 5000; ++r) {
    Ray3f ray = scene.randomRay(random, 5.0f);
    // Ends that no distance is close to.
    ray.minDistance = -1e-3f;
    ray.maxDistance = 1e30f;
    TracerHit ofFloat, ofDouble;
    scene.fast.intersect(ray, ofFloat);
    scene.fast.intersect(widened(ray), ofDouble);
    ASSERT_TRUE(areEqual(ofFloat, ofDouble)) << r;
  }
}

TEST(SceneTracerWithDoubleRays, EqualThePlainLoopFarFromTheOrigin) {
  for (const double distance : {0.0, 1e3, 1e7, 1e10}) {
    SCOPED_TRACE(testing::Message() << "distance " << distance);
    Random random(601);
    Scene scene;
    const Vec3d middle(distance, -0.3 * distance, 0.7 * distance);
    // What the rays aim at, from the middle.
    Scene targets;
    for (int i = 0; i < 60; ++i) {
      Mat4d here;
      here.translate(Vec3d(randomPoint(random, 3)));
      here = here * randomRotation(random);
      Mat4d there;
      there.translate(middle.x, middle.y, middle.z);
      const SampleMesh mesh = i % 2 == 0 ? vela_test::makeIcosphere(1) : vela_test::makeTorus(9, 7);
      targets.add(random, mesh, here);
      scene.add(random, mesh, there * here);
    }
    scene.build();
    int hits = 0;
    for (int r = 0; r < 3000 && !HasFatalFailure(); ++r) {
      SCOPED_TRACE(testing::Message() << "ray " << r);
      Ray3d ray = widened(targets.randomRay(random, 4.0f));
      ray.origin += middle;
      scene.compare(ray, hits);
      // The hit's own distance ends the range.
      TracerHit hit, again;
      if (!scene.fast.intersect(ray, hit)) continue;
      ray.maxDistance = hit.distance;
      ASSERT_TRUE(scene.fast.intersect(ray, again));
      ASSERT_TRUE(areEqual(hit, again));
      if (hit.distance < 0.0) continue;
      ray.maxDistance = std::nextafter(hit.distance, -1.0);
      if (scene.fast.intersect(ray, again)) {
        ASSERT_LT(again.distance, hit.distance);
      }
    }
    EXPECT_GT(hits, 500);
  }
}

TEST(SceneTracerWithDoubleRays, SeeWhatFloatsCannotPlace) {
  // A hundred million units out, a float's step is eight units.
  Mat4d far;
  far.translate(1e8, 1e8, 1e8);
  const SceneTracer tracer = makeTracer(makeSquare(), far);
  TracerHit hit;
  ASSERT_TRUE(tracer.intersect(Ray3d({1e8 + 0.25, 1e8 + 0.5, 1e8 + 5}, {0, 0, -1}), hit));
  EXPECT_EQ(hit.distance, 5.0);
  EXPECT_EQ(hit.normal, Vec3f(0, 0, 1));
  EXPECT_FALSE(tracer.intersect(Ray3d({1e8 + 1.25, 1e8 + 0.5, 1e8 + 5}, {0, 0, -1}), hit));
  EXPECT_FALSE(tracer.occluded(Ray3d({1e8, 1e8, 1e8 + 5}, {0, 0, -1}, 0.0, 4.999)));
  EXPECT_TRUE(tracer.occluded(Ray3d({1e8, 1e8, 1e8 + 5}, {0, 0, -1}, 0.0, 5.0)));
}

TEST(SceneTracerWithDoubleRays, AllFormsAgree) {
  Random random(602);
  Scene scene;
  for (int i = 0; i < 10; ++i) {
    Mat4d m;
    m.translate(Vec3d(randomPoint(random, 4)));
    scene.add(random, vela_test::makeBumpySphere(300), m);
  }
  scene.build();
  std::vector<Ray3d> rays;
  for (int i = 0; i < 777; ++i) rays.push_back(widened(scene.randomRay(random, 5.0f)));
  std::vector<TracerHit> hits(rays.size());
  const std::unique_ptr<bool[]> occluded(new bool[rays.size()]);
  scene.fast.intersect(rays.data(), rays.size(), hits.data());
  scene.fast.occluded(rays.data(), rays.size(), occluded.get());
  for (std::size_t i = 0; i < rays.size(); ++i) {
    TracerHit hit, alone;
    ASSERT_EQ(scene.fast.intersect(rays[i], hit), hit.hit);
    ASSERT_TRUE(areEqual(hits[i], hit)) << i;
    ASSERT_EQ(occluded[i], hit.hit);
    if (!hit.hit) continue;
    ASSERT_TRUE(scene.fast.intersectPlacement(hit.placement, rays[i], alone));
    ASSERT_TRUE(areEqual(hit, alone)) << i;
  }
}

TEST(SceneTracerWithDoubleRays, RaysBeyondTheLimitsMiss) {
  const SceneTracer tracer = makeTracer(makeSquare());
  constexpr double inf = std::numeric_limits<double>::infinity();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  const Vec3d o(0, 0, 5), d(0, 0, -1);
  TracerHit hit;
  for (const double length : {1e-149, 1e-40, 1e40, 1e149})
    EXPECT_TRUE(tracer.intersect(Ray3d(o, d * length), hit)) << length;
  EXPECT_TRUE(tracer.intersect(Ray3d(o, d, -inf, inf), hit));
  EXPECT_TRUE(tracer.intersect(Ray3d({0, 0, 1e30}, d), hit));
  for (const double bad : {nan, inf, -inf, 1e200})
    for (std::size_t i = 0; i < 3; ++i) {
      Ray3d ray(o, d);
      ray.origin[i] = bad;
      EXPECT_FALSE(tracer.intersect(ray, hit)) << bad;
      ray = Ray3d(o, d);
      ray.direction[i] = bad;
      EXPECT_FALSE(tracer.intersect(ray, hit)) << bad;
    }
  EXPECT_FALSE(tracer.intersect(Ray3d(o, d * 1e-200), hit));
  EXPECT_FALSE(tracer.intersect(Ray3d(o, d * 0.0), hit));
  EXPECT_FALSE(tracer.intersect(Ray3d(o, d, 1.0, 0.0), hit));
  EXPECT_FALSE(tracer.intersect(Ray3d(o, d, nan, 9.0), hit));
  EXPECT_FALSE(tracer.intersect(Ray3d(o, d, 0.0, nan), hit));
}

// Spans, which trace many rays at once.

struct SpanOfScene {
  std::vector<TracerHit> hits;
  std::vector<char> isOccluded;

  template <class T>
  SpanOfScene(const SceneTracer& tracer, const std::vector<Ray<T>>& rays)
      : hits(rays.size()), isOccluded(rays.size()) {
    const std::unique_ptr<bool[]> occluded(new bool[rays.size() + 1]);
    tracer.intersect(rays.data(), rays.size(), hits.data());
    tracer.occluded(rays.data(), rays.size(), occluded.get());
    std::copy(occluded.get(), occluded.get() + rays.size(), isOccluded.begin());
  }
};

// Each ray of a span gets the answer that it gets alone from the plain kernel.
template <class T>
void compareSpan(const Scene& scene, const std::vector<Ray<T>>& rays, int& numHits) {
  const SpanOfScene fast(scene.fast, rays), plain(scene.plain, rays);
  for (std::size_t i = 0; i < rays.size(); ++i) {
    TracerHit expected, single;
    scene.plain.intersect(rays[i], expected);
    scene.fast.intersect(rays[i], single);
    ASSERT_TRUE(areEqual(single, expected)) << i;
    ASSERT_TRUE(areEqual(fast.hits[i], expected)) << i;
    ASSERT_TRUE(areEqual(plain.hits[i], expected)) << i;
    ASSERT_EQ(fast.isOccluded[i] != 0, expected.hit) << i;
    ASSERT_EQ(plain.isOccluded[i] != 0, expected.hit) << i;
    numHits += expected.hit;
  }
}

Scene makeScene(Random& random, int placements, float size) {
  Scene scene;
  const SampleMesh meshes[] = {vela_test::makeCube(), vela_test::makeIcosphere(2),
                               vela_test::makeTorus(9, 7), vela_test::makeBumpySphere(900),
                               makeSquare()};
  for (int i = 0; i < placements; ++i) {
    Mat4d m;
    if (placements > 1) m.translate(Vec3d(randomPoint(random, size * 0.5f)));
    m = m * randomRotation(random);
    const double s = static_cast<double>(uniform(random, 0.2f, 1.0f));
    m.scale(random() % 5 == 0 ? -s : s, s, s);
    const SampleMesh& mesh = meshes[placements == 1 ? 3 : random() % 5];
    scene.add(random, mesh, m);
    if (i % 7 == 6) scene.add(random, mesh, m);  // a tie for every ray
  }
  scene.build();
  return scene;
}

TEST(SceneTracerSpans, AnswerAsSingleRaysDoOnOrdinaryAndHostileRays) {
  unsigned seed = 700;
  for (const int placements : {1, 2, 40, 1000}) {
    SCOPED_TRACE(testing::Message() << placements << " placements, seed " << seed);
    Random random(seed++);
    const Scene scene = makeScene(random, placements, 4.0f);
    int hits = 0;
    for (const std::size_t count : {0u, 1u, 2u, 31u, 32u, 33u, 63u, 64u, 65u, 100u, 1000u, 7001u}) {
      SCOPED_TRACE(testing::Message() << count << " rays");
      std::vector<Ray3f> rays;
      std::vector<Ray3d> wide;
      for (std::size_t i = 0; i < count; ++i) {
        const Ray3f ray = scene.randomRay(random, 4.0f);
        rays.push_back(i % 3 == 0 ? hostile(random, ray) : ray);
        wide.push_back(widened(rays.back()));
        // Not a float.
        if (i % 5 != 0) wide.back().origin.x += 1e-12;
      }
      compareSpan(scene, rays, hits);
      compareSpan(scene, wide, hits);
      if (HasFatalFailure()) return;
    }
    EXPECT_GT(hits, 1000);
  }
}

TEST(SceneTracerSpans, EqualThePlainLoop) {
  Random random(710);
  const Scene scene = makeScene(random, 30, 4.0f);
  std::vector<Ray3f> rays;
  for (int i = 0; i < 3000; ++i) rays.push_back(hostile(random, scene.randomRay(random, 4.0f)));
  const SpanOfScene span(scene.fast, rays);
  for (std::size_t i = 0; i < rays.size(); ++i) {
    const PlainLoop::Answer expected = scene.loop.intersect(rays[i]);
    ASSERT_EQ(span.hits[i].hit, expected.hit) << i;
    ASSERT_EQ(span.isOccluded[i] != 0, expected.hit) << i;
    if (!expected.hit) continue;
    ASSERT_TRUE(hasSameBits(span.hits[i].distance, expected.distance)) << i;
    ASSERT_EQ(span.hits[i].placement, expected.placement) << i;
    ASSERT_EQ(span.hits[i].face, expected.face) << i;
  }
}

TEST(SceneTracerSpans, ThirtyThousandRaysInOneCall) {
  Random random(711);
  const Scene scene = makeScene(random, 1, 4.0f);
  std::vector<Ray3f> rays;
  for (int i = 0; i < 30000; ++i) rays.push_back(scene.randomRay(random, 4.0f));
  int hits = 0;
  compareSpan(scene, rays, hits);
  EXPECT_GT(hits, 3000);
}

TEST(SceneTracerSpans, DeepTreesAndPlacementsWithoutABoxToo) {
  // Triangles that halve their distance to the origin each time: any tree over them is deep.
  SampleMesh spiral;
  for (int i = 0; i < 2000; ++i) {
    const float at = std::ldexp(1.0f, -(i / 16)) * (1.0f + static_cast<float>(i % 16) / 16.0f);
    const auto first = static_cast<int>(spiral.points.size());
    for (const Vec3f& p : {Vec3f(at, 0, 0), {at, at, 0}, {at, 0, at}}) spiral.points.push_back(p);
    spiral.addFace({first, first + 1, first + 2});
  }
  Random random(712);
  Scene scene;
  scene.add(random, spiral, Mat4d());
  Mat4d skewed;
  skewed.scale(1e-6, 1, 1e6);
  scene.add(random, spiral, randomRotation(random) * skewed * randomRotation(random));
  scene.build();
  Scene alone;
  alone.add(random, spiral, Mat4d());
  alone.build();
  for (const Scene* s : {&scene, &alone}) {
    int hits = 0;
    std::vector<Ray3f> rays;
    for (int i = 0; i < 2000; ++i) rays.push_back(s->randomRay(random, 2.0f));
    compareSpan(*s, rays, hits);
    EXPECT_GT(hits, 100);
  }
}

// Nothing slips through.

int countLost(const SampleMesh& mesh, const Mat4d& matrix, int rays, unsigned seed, double inside) {
  const SceneTracer tracer = makeTracer(mesh, matrix);
  Random random(seed);
  int lost = 0;
  for (int i = 0; i < rays; ++i) {
    // An edge of a face, and a point of it: an end, or anything between. A target on the far side
    // counts as well, since the ray starts inside or ends outside.
    std::size_t begin = 0;
    const std::size_t face = random() % mesh.counts.size();
    const auto n = static_cast<std::size_t>(mesh.counts[face]);
    begin = face * n;
    const std::size_t k = random() % n;
    const Vec3d a(mesh.points[static_cast<std::size_t>(mesh.indices[begin + k])]);
    const Vec3d b(mesh.points[static_cast<std::size_t>(mesh.indices[begin + (k + 1) % n])]);
    const double mix = i % 3 == 0 ? 0.0 : static_cast<double>(uniform(random, 0, 1));
    const Vec3f target(matrix.transformPoint(a * (1 - mix) + b * mix));
    const Vec3f o(matrix.transformPoint(Vec3d(randomPoint(random, 1)).normalized() * inside));
    TracerHit hit;
    if (!tracer.intersect(Ray3f(o, target - o), hit)) ++lost;
  }
  return lost;
}

TEST(SceneTracerIsWatertight, RaysAtEdgesAndCornersOfSampleMeshesAllHit) {
  // From inside a closed mesh every ray must hit, wherever rounding takes it. The meshes have faces
  // of one size each.
  const SampleMesh meshes[] = {vela_test::makeIcosphere(3), vela_test::makeCube(),
                               vela_test::makeBumpySphere(5000)};
  unsigned seed = 1;
  for (const SampleMesh& mesh : meshes) EXPECT_EQ(countLost(mesh, Mat4d(), 150000, seed++, 0.5), 0);
  // Inside the tube of a torus: from the ring's centre line.
  const SampleMesh torus = vela_test::makeTorus(40, 20);
  const SceneTracer tracer = makeTracer(torus);
  Random random(9);
  for (int i = 0; i < 150000; ++i) {
    const float turn = uniform(random, 0, 6.2831853f);
    const Vec3f o(std::cos(turn), std::sin(turn), uniform(random, -0.2f, 0.2f));
    const Vec3f target = torus.points[random() % torus.points.size()];
    ASSERT_TRUE(tracer.occluded(Ray3f(o, target - o))) << i;
  }
}

TEST(SceneTracerIsWatertight, UnderRotationsAndScalesToo) {
  Random random(77);
  const SampleMesh meshes[] = {vela_test::makeIcosphere(2), vela_test::makeCube(),
                               vela_test::makeBumpySphere(2000)};
  for (unsigned i = 0; i < 12; ++i) {
    Mat4d m;
    m.translate(Vec3d(randomPoint(random, 100)));
    m = m * randomRotation(random);
    const double s = std::pow(10.0, static_cast<double>(i) * 2.0 - 3.0);
    m.scale(s, i % 2 == 0 ? s : 0.3 * s, -s);
    // A mesh smaller than the roundings of its place in the world cannot be aimed at in floats.
    if (s < 0.1) m[12] = m[13] = m[14] = 0.0;
    EXPECT_EQ(countLost(meshes[i % 3], m, 40000, 100 + i, 0.5), 0) << "scale " << s;
  }
}

TEST(SceneTracer, ManyThreadsGetTheSameAnswers) {
  SceneTracer tracer;
  const std::uint32_t mesh = addMesh(tracer, vela_test::makeBumpySphere(1000));
  Random random(21);
  for (int i = 0; i < 30; ++i) {
    Mat4d m;
    m.translate(Vec3d(randomPoint(random, 4)));
    tracer.addPlacement(mesh, m);
  }
  tracer.build();
  std::vector<Ray3f> rays;
  for (int i = 0; i < 4000; ++i) rays.emplace_back(randomPoint(random, 5), randomPoint(random, 1));
  std::vector<TracerHit> expected(rays.size());
  tracer.intersect(rays.data(), rays.size(), expected.data());

  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (std::size_t i = 0; i < rays.size(); ++i) {
        TracerHit hit;
        tracer.intersect(rays[i], hit);
        if (!hasSameBits(hit.distance, expected[i].distance) || hit.face != expected[i].face ||
            hit.placement != expected[i].placement || tracer.occluded(rays[i]) != hit.hit)
          ++wrong;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(SceneTracer, ATracerWithoutPlacementsSharesMeshesUntilOneOfThemChanges) {
  const ovo::Array<tarn::Vec3f> square = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}};
  const ovo::Array<tarn::Vec3f> larger = {{-2, -2, 0}, {2, -2, 0}, {2, 2, 0}, {-2, 2, 0}};
  SceneTracer first;
  const std::uint32_t mesh = first.addMesh(square, {4}, {0, 1, 2, 3});
  first.addPlacement(mesh, tarn::Mat4d());
  first.build();

  SceneTracer second = first.withoutPlacements();
  EXPECT_EQ(second.numMeshes(), 1u);
  EXPECT_EQ(second.numPlacements(), 0u);
  const tarn::Ray3f down({0.5f, 0.5f, 3.0f}, {0, 0, -1});
  EXPECT_FALSE(second.occluded(down));
  tarn::Mat4d lower;
  lower.translate(0.0, 0.0, -4.0);
  second.addPlacement(mesh, lower);
  second.build();
  TracerHit hit;
  ASSERT_TRUE(second.intersect(down, hit));
  EXPECT_NEAR(hit.distance, 7.0, 1e-6);

  // A mesh more is its own affair.
  const std::uint32_t other = second.addMesh(larger, {4}, {0, 1, 2, 3});
  EXPECT_EQ(first.numMeshes(), 1u);
  second.addPlacement(other, tarn::Mat4d());
  second.build();
  const tarn::Ray3f beside({1.5f, 1.5f, 3.0f}, {0, 0, -1});
  EXPECT_TRUE(second.occluded(beside));
  EXPECT_FALSE(first.occluded(beside));
  EXPECT_EQ(first.addMesh(square, {4}, {0, 1, 2, 3}), mesh) << "which the table knows still";
  ASSERT_TRUE(first.intersect(down, hit));
  EXPECT_NEAR(hit.distance, 3.0, 1e-6);
}

}  // namespace
