#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "support/HostileRays.h"
#include "support/SampleMeshes.h"
#include "vela/trace/SceneTracer.h"
#include "vela/trace/detail/TracerRounds.h"

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
namespace tracer = vela::tracer;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct Tubes {
  std::vector<Vec3f> points;
  std::vector<float> radii;
  std::vector<int> counts;

  void add(const std::vector<Vec3f>& along, const std::vector<float>& wide) {
    points.insert(points.end(), along.begin(), along.end());
    radii.insert(radii.end(), wide.begin(), wide.end());
    counts.push_back(static_cast<int>(along.size()));
  }
};

std::uint32_t addTo(SceneTracer& to, const Tubes& tubes) {
  return to.addTubes(ovo::Array<Vec3f>(tubes.points), ovo::Array<float>(tubes.radii),
                     ovo::Array<int>(tubes.counts));
}

SceneTracer makeTracer(const Tubes& tubes, const Mat4d& matrix = Mat4d()) {
  SceneTracer made;
  made.addPlacement(addTo(made, tubes), matrix);
  made.build();
  return made;
}

using Random = std::mt19937_64;
float uniform(Random& random, float low, float high) {
  return std::uniform_real_distribution<float>(low, high)(random);
}
Vec3f randomPoint(Random& random, float size) {
  return {uniform(random, -size, size), uniform(random, -size, size), uniform(random, -size, size)};
}
bool hasSameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The distances at which a ray meets anything, one after the other.
std::vector<double> distancesAlong(const SceneTracer& scene, Ray3d ray) {
  std::vector<double> distances;
  TracerHit hit;
  while (scene.intersect(ray, hit) && distances.size() < 100) {
    distances.push_back(hit.distance);
    ray.minDistance = std::nextafter(hit.distance, HUGE_VAL);
  }
  return distances;
}

// The same question asked of every piece. Tubes are parted into pieces here a second time; only the
// arithmetic of one ray and one piece is shared. Triangles are the tracer's own, alone.
class PlainLoop {
 public:
  struct Answer {
    bool hit = false;
    double distance = 0.0;
    std::uint32_t placement = 0;
    int tube = 0, from = 0, to = 0;
  };

  void add(const Tubes& tubes, const Mat4d& matrix, std::uint32_t placement) {
    Placed placed;
    placed.placement = placement;
    Vec3f low(kInf), high(-kInf);
    std::size_t begin = 0;
    for (std::size_t t = 0; t < tubes.counts.size(); ++t) {
      const int count = std::max(tubes.counts[t], 0);
      const auto n = static_cast<std::size_t>(count);
      if (begin + n > std::min(tubes.points.size(), tubes.radii.size())) break;
      std::vector<Piece> own;
      for (std::size_t k = 0; k < n; ++k) {
        const std::size_t a = begin + k, b = n == 1 ? a : a + 1;
        if (n > 1 && k + 1 == n) break;
        if (!isSound(tubes, a) || !isSound(tubes, b) ||
            std::max(tubes.radii[a], tubes.radii[b]) == 0.0f)
          continue;
        own.push_back({static_cast<int>(t), static_cast<int>(a), static_cast<int>(b)});
      }
      // Neighbours: those that end, or begin, in the same point.
      const bool isClosed = n > 3 && tubes.points[begin] == tubes.points[begin + n - 1] &&
                            tubes.radii[begin] == tubes.radii[begin + n - 1];
      const auto last = static_cast<int>(begin + n) - 1;
      for (Piece& piece : own)
        for (const Piece& other : own) {
          if (&piece == &other || own.size() < 2) continue;
          const bool isPast = isClosed && piece.to == last && other.from == static_cast<int>(begin);
          const bool isBefore =
              isClosed && piece.from == static_cast<int>(begin) && other.to == last;
          if (other.from == piece.to || other.to == piece.from || isPast || isBefore)
            piece.neighbours.push_back({other.from, other.to});
        }
      for (const Piece& piece : own)
        for (const int p : {piece.from, piece.to})
          for (std::size_t i = 0; i < 3; ++i) {
            const auto at = static_cast<std::size_t>(p);
            const double r = static_cast<double>(tubes.radii[at]);
            const double x = static_cast<double>(tubes.points[at][i]);
            low[i] = std::min(low[i], tracer::floatBelow(x - r));
            high[i] = std::max(high[i], tracer::floatAbove(x + r));
          }
      placed.pieces.insert(placed.pieces.end(), own.begin(), own.end());
      begin += n;
    }
    if (placed.pieces.empty()) return;
    placed.frame = tracer::makeMeshFrame(low, high);
    for (std::size_t p = 0; p < std::min(tubes.points.size(), tubes.radii.size()); ++p) {
      const auto scaled = [&](float v) { return std::ldexp(v, -placed.frame.exponent); };
      const Vec3f& from = tubes.points[p];
      placed.joints.push_back(
          {scaled(from.x), scaled(from.y), scaled(from.z), scaled(tubes.radii[p])});
    }
    if (tracer::makeLocalFromWorld(matrix, placed.frame, placed.localFromWorld))
      placed_.push_back(std::move(placed));
  }

  template <class T>
  [[nodiscard]] Answer intersect(const Ray<T>& ray) const {
    Answer best;
    if (!tracer::isUsable(ray)) return best;
    const tracer::DistanceRange<T> range(ray);
    for (const Placed& placed : placed_) {
      tracer::LocalRay local;
      if (!tracer::makeLocalRay(placed.localFromWorld, placed.frame, ray, local)) continue;
      const tracer::RoundRay round(local);
      const auto cross = [&](int from, int to, tracer::Passage& passage) {
        return tracer::crossPiece(round, placed.joints[static_cast<std::size_t>(from)],
                                  placed.joints[static_cast<std::size_t>(to)], passage);
      };
      for (const Piece& piece : placed.pieces) {
        tracer::Passage passage;
        if (!cross(piece.from, piece.to, passage)) continue;
        for (const double s : {passage.in, passage.out}) {
          bool isHidden = false;
          for (const auto& [from, to] : piece.neighbours) {
            tracer::Passage other;
            isHidden = isHidden || (cross(from, to, other) && other.in < s && s < other.out);
          }
          const double distance = (local.start + s) * local.distancePerS;
          if (isHidden || !range.contains(distance)) continue;
          if (best.hit && !(distance < best.distance)) continue;
          best = {true, distance, placed.placement, piece.tube, piece.from, piece.to};
        }
      }
    }
    return best;
  }

 private:
  struct Piece {
    int tube, from, to;
    std::vector<std::pair<int, int>> neighbours{};
  };
  struct Placed {
    std::uint32_t placement = 0;
    tracer::MeshFrame frame;
    tracer::Affine localFromWorld;
    std::vector<tracer::Joint> joints;
    std::vector<Piece> pieces;
  };

  static bool isSound(const Tubes& tubes, std::size_t p) {
    const Vec3f& at = tubes.points[p];
    const float r = tubes.radii[p];
    return std::isfinite(at.x) && std::isfinite(at.y) && std::isfinite(at.z) && r >= 0.0f &&
           std::isfinite(r);
  }

  std::vector<Placed> placed_;
};

// What a tube is.

TEST(SceneTracerTubes, BallsAndConesTellDistanceNormalAndPlaceAlong) {
  Tubes tubes;
  tubes.add({{0, 0, 0}, {4, 0, 0}}, {1.0f, 1.0f});
  tubes.add({{0, 5, 0}}, {2.0f});
  const SceneTracer scene = makeTracer(tubes);
  TracerHit hit;
  ASSERT_TRUE(scene.intersect(Ray3f({1, 0, 5}, {0, 0, -2}), hit));
  EXPECT_DOUBLE_EQ(hit.distance, 2.0);
  EXPECT_EQ(hit.normal, Vec3f(0, 0, 1));
  EXPECT_EQ(hit.face, 0);
  EXPECT_EQ(hit.points[0], 0);
  EXPECT_EQ(hit.points[1], 1);
  EXPECT_EQ(hit.points[2], 1);
  EXPECT_EQ(hit.faceVertices[1], 1);
  EXPECT_FLOAT_EQ(hit.u, 0.25f);
  EXPECT_EQ(hit.v, 0.0f);
  // Its round end, beyond the last point.
  ASSERT_TRUE(scene.intersect(Ray3f({9, 0, 0}, {-1, 0, 0}), hit));
  EXPECT_DOUBLE_EQ(hit.distance, 4.0);
  EXPECT_EQ(hit.normal, Vec3f(1, 0, 0));
  EXPECT_EQ(hit.u, 1.0f);
  ASSERT_TRUE(scene.intersect(Ray3f({0, 9, 0}, {0, -1, 0}), hit));
  EXPECT_DOUBLE_EQ(hit.distance, 2.0);
  EXPECT_EQ(hit.face, 1);
  EXPECT_EQ(hit.points[0], 2);
  EXPECT_EQ(hit.points[1], 2);
  EXPECT_EQ(scene.numPieces(0), 2u);
  EXPECT_EQ(scene.numTriangles(0), 0u);
}

TEST(SceneTracerTubes, AConeTouchesBothBalls) {
  Tubes tubes;
  tubes.add({{0, 0, 0}, {10, 0, 0}}, {3.0f, 1.0f});
  const SceneTracer scene = makeTracer(tubes);
  TracerHit hit;
  ASSERT_TRUE(scene.intersect(Ray3f({5, 0, 9}, {0, 0, -1}), hit));
  // The side leans by asin(0.2): at x its distance from the axis is (3 - 0.2 x) / cos.
  EXPECT_NEAR(9.0 - hit.distance, (3.0 - 0.2 * 5.0) / std::sqrt(1.0 - 0.04), 1e-6);
  EXPECT_NEAR(static_cast<double>(hit.normal.x), 0.2, 1e-6);
}

TEST(SceneTracerTubes, ABallThatHoldsTheOtherIsAllThereIs) {
  Tubes tubes;
  tubes.add({{0, 0, 0}, {1, 0, 0}}, {3.0f, 1.0f});
  tubes.add({{0, 10, 0}, {2, 10, 0}}, {1.0f, 3.0f});
  tubes.add({{0, 20, 0}, {0, 20, 0}}, {1.0f, 1.0f});
  const SceneTracer scene = makeTracer(tubes);
  TracerHit hit;
  ASSERT_TRUE(scene.intersect(Ray3f({9, 0, 0}, {-1, 0, 0}), hit));
  EXPECT_DOUBLE_EQ(hit.distance, 6.0);
  EXPECT_EQ(hit.u, 0.0f);
  ASSERT_TRUE(scene.intersect(Ray3f({-9, 10, 0}, {1, 0, 0}), hit));
  EXPECT_DOUBLE_EQ(hit.distance, 8.0);
  EXPECT_EQ(hit.u, 1.0f);
  ASSERT_TRUE(scene.intersect(Ray3f({-9, 20, 0}, {1, 0, 0}), hit));
  EXPECT_DOUBLE_EQ(hit.distance, 8.0);
}

TEST(SceneTracerTubes, RaysGoInAndOutOnceHoweverManyPieces) {
  Tubes tubes;
  std::vector<Vec3f> along;
  for (int i = 0; i <= 40; ++i) along.push_back({0.1f * static_cast<float>(i), 0, 0});
  tubes.add(along, std::vector<float>(along.size(), 0.5f));
  const SceneTracer scene = makeTracer(tubes);
  EXPECT_EQ(distancesAlong(scene, {{-5, 0, 0}, {1, 0, 0}}).size(), 2u);
  EXPECT_EQ(distancesAlong(scene, {{-5, 0.3, 0.1}, {1, 0, 0}}).size(), 2u);
  Random random(1);
  for (int i = 0; i < 300; ++i) {
    const Vec3d to(static_cast<double>(uniform(random, 0, 4)), 0, 0);
    const Vec3d from = Vec3d(randomPoint(random, 1)).normalized() * 9.0;
    ASSERT_EQ(distancesAlong(scene, {from, to - from}).size(), 2u) << i;
    // From inside: the one way out.
    ASSERT_EQ(distancesAlong(scene, {to, from}).size(), 1u) << i;
  }
}

TEST(SceneTracerTubes, ATubeThatEndsWhereItBeginsIsClosed) {
  Tubes ring;
  std::vector<Vec3f> along;
  for (int i = 0; i < 24; ++i) {
    const float turn = static_cast<float>(i) * 6.2831853f / 24.0f;
    along.push_back({2.0f * std::cos(turn), 2.0f * std::sin(turn), 0});
  }
  along.push_back(along.front());
  ring.add(along, std::vector<float>(along.size(), 0.3f));
  const SceneTracer scene = makeTracer(ring);
  // Along y through the seam at (2, 0, 0): only where the ring's side begins and ends.
  EXPECT_EQ(distancesAlong(scene, {{2, -9, 0}, {0, 1, 0}}).size(), 2u);
  // From within the seam there is one way out, up or outward.
  EXPECT_EQ(distancesAlong(scene, {{2, 0, 0}, {0, 0, 1}}).size(), 1u);
  EXPECT_EQ(distancesAlong(scene, {{2, 0, 0}, {0.1, 0.02, 1}}).size(), 1u);
}

TEST(SceneTracerTubes, EqualDistancesGoToTheLowerTubeAndPlacement) {
  Tubes tubes;
  tubes.add({{0, 0, 0}}, {-1.0f});
  tubes.add({{0, 0, 0}}, {1.0f});
  tubes.add({{0, 0, 0}}, {1.0f});
  SceneTracer scene;
  const std::uint32_t mesh = addTo(scene, tubes);
  scene.addPlacement(mesh, Mat4d());
  scene.addPlacement(mesh, Mat4d());
  scene.build();
  TracerHit hit;
  ASSERT_TRUE(scene.intersect(Ray3f({0, 0, 9}, {0, 0, -1}), hit));
  EXPECT_EQ(hit.face, 1);
  EXPECT_EQ(hit.placement, 0u);
}

TEST(SceneTracerTubes, WhatCannotBeUsedIsNeverHitAndKeepsItsNumber) {
  const Ray3f down({0, 0, 9}, {0, 0, -1});
  TracerHit hit;
  const auto tubeAt = [&](const Tubes& tubes) {
    return makeTracer(tubes).intersect(down, hit) ? hit.face : -1;
  };
  const Vec3f here, beside(0.1f, 0, 0);
  Tubes tubes;
  tubes.points = {here, here, here, here};
  tubes.radii = {1, 1, 1, 1};
  for (const auto& [counts, expected] :
       std::vector<std::pair<std::vector<int>, int>>{{{-3, 0, 1}, 2},
                                                     {{1}, 0},
                                                     {{5, 1}, -1},
                                                     {{-2147483647 - 1, 2147483647, 1}, -1},
                                                     {{}, -1},
                                                     {{0, -1}, -1}}) {
    tubes.counts = counts;
    EXPECT_EQ(tubeAt(tubes), expected);
  }
  for (const float bad : {kNan, kInf, -kInf, -1.0f, 3.3e38f}) {
    Tubes wide;
    wide.add({here, beside}, {bad, 1.0f});
    wide.add({here, beside}, {1.0f, bad});
    wide.add({here}, {bad});
    wide.add({here}, {1.0f});
    EXPECT_EQ(tubeAt(wide), 3) << bad;
  }
  for (const Vec3f bad : {Vec3f(kNan, 0, 0), Vec3f(0, kInf, 0), Vec3f(0, 0, 3.3e38f)}) {
    Tubes far;
    far.add({bad, here}, {1.0f, 1.0f});
    far.add({here, beside}, {0.0f, 0.0f});
    far.add({here, beside}, {0.0f, 0.5f});
    EXPECT_EQ(tubeAt(far), 2) << bad;
  }
  // Fewer radii than points, and the other way round.
  Tubes few;
  few.add({here, beside}, {1.0f});
  EXPECT_EQ(tubeAt(few), -1);
  few.counts = {1};
  EXPECT_EQ(tubeAt(few), 0);
  few.radii.resize(9, 1.0f);
  EXPECT_EQ(tubeAt(few), 0);
}

TEST(SceneTracerTubes, EqualTubesAreStoredOnceAndNeverTakenForAMesh) {
  SceneTracer scene;
  Tubes tubes;
  tubes.add({{0, 0, 0}, {1, 0, 0}}, {1.0f, 1.0f});
  const std::uint32_t first = addTo(scene, tubes);
  EXPECT_EQ(addTo(scene, tubes), first);
  tubes.radii[1] = 0.5f;
  EXPECT_NE(addTo(scene, tubes), first);
  const std::uint32_t none = scene.addTubes({}, {}, {});
  EXPECT_NE(scene.addMesh(ovo::Array<Vec3f>(), {}, {}), none);
  EXPECT_EQ(scene.numMeshes(), 4u);
  EXPECT_EQ(scene.numPieces(first), 1u);
  EXPECT_EQ(scene.numPieces(99), 0u);
}

// Held against something else.

// The hull of two balls is that of all balls between them. So the place where a ray enters is, up
// to the steps between the balls, the least of where it enters any of them.
TEST(SceneTracerTubes, PassagesAreThoseThroughAllBallsBetween) {
  Random random(40);
  int met = 0;
  for (int n = 0; n < 3000; ++n) {
    const Vec3f a = randomPoint(random, 1), b = randomPoint(random, 1);
    const float ra = uniform(random, 0.0f, 0.6f), rb = uniform(random, 0.0f, 0.6f);
    Tubes tubes;
    tubes.add({a, b}, {ra, rb});
    const SceneTracer scene = makeTracer(tubes);
    const Vec3d from(randomPoint(random, 3));
    const Vec3d along = (Vec3d(randomPoint(random, 1)) - from).normalized();
    double in = 1e9, out = -1e9, nearMiss = 1e9;
    constexpr int kBalls = 4000;
    for (int k = 0; k <= kBalls; ++k) {
      const double t = static_cast<double>(k) / kBalls;
      const Vec3d centre = Vec3d(a) * (1.0 - t) + Vec3d(b) * t - from;
      const double radius = static_cast<double>(ra) * (1.0 - t) + static_cast<double>(rb) * t;
      const double middle = dot(centre, along);
      const double rest = radius * radius - (centre - along * middle).lengthSquared();
      nearMiss = std::min(nearMiss, std::fabs(rest));
      if (rest < 0.0) continue;
      in = std::min(in, middle - std::sqrt(rest));
      out = std::max(out, middle + std::sqrt(rest));
    }
    const std::vector<double> found =
        distancesAlong(scene, {from, along, -100.0, std::numeric_limits<double>::max()});
    if (out < in) {
      if (nearMiss > 1e-4) {
        ASSERT_TRUE(found.empty()) << n;
      }
      continue;
    }
    // Grazing rays are decided by the steps.
    if (out - in < 0.1) continue;
    ++met;
    ASSERT_EQ(found.size(), 2u) << n;
    ASSERT_NEAR(found[0], in, 1e-4) << n;
    ASSERT_NEAR(found[1], out, 1e-4) << n;
    TracerHit hit;
    ASSERT_TRUE(scene.intersect(Ray3d(from, along, -100.0, 1e30), hit));
    // The point lies one radius from its centre, along the normal.
    const double t = static_cast<double>(hit.u);
    const Vec3d centre = Vec3d(a) * (1.0 - t) + Vec3d(b) * t;
    const double radius = static_cast<double>(ra) * (1.0 - t) + static_cast<double>(rb) * t;
    const Vec3d surface = from + along * hit.distance;
    ASSERT_NEAR((surface - centre).length(), radius, 1e-5) << n;
    ASSERT_NEAR((surface - centre - Vec3d(hit.normal) * radius).length(), 0.0, 2e-5) << n;
  }
  EXPECT_GT(met, 500);
}

// A chain like a hair: bent, with radii that change.
Tubes makeHair(Random& random, int hairs, int joints, float size, float radius) {
  Tubes tubes;
  for (int h = 0; h < hairs; ++h) {
    std::vector<Vec3f> along = {randomPoint(random, size)};
    std::vector<float> wide = {radius};
    Vec3f step = randomPoint(random, size / static_cast<float>(joints));
    for (int j = 1; j < joints; ++j) {
      along.push_back(along.back() + step);
      wide.push_back(radius * uniform(random, 0.0f, 1.5f));
      step = step + randomPoint(random, 0.5f * size / static_cast<float>(joints));
    }
    if (h % 5 == 4 && joints > 2) {
      along.push_back(along.front());
      wide.push_back(wide.front());
    }
    tubes.add(along, wide);
  }
  return tubes;
}

TEST(SceneTracerTubes, NoRaySlipsBetweenPieces) {
  Random random(50);
  for (const float radius : {0.2f, 1e-2f, 1e-4f, 1e-6f}) {
    SCOPED_TRACE(testing::Message() << "radius " << radius);
    Tubes tubes;
    std::vector<Vec3f> along;
    for (int i = 0; i < 50; ++i)
      along.push_back({std::cos(0.3f * static_cast<float>(i)),
                       std::sin(0.3f * static_cast<float>(i)), 0.04f * static_cast<float>(i)});
    tubes.add(along, std::vector<float>(along.size(), radius));
    Mat4d turned;
    turned.rotateX(0.3);
    turned.rotateY(1.1);
    const SceneTracer scene = makeTracer(tubes, turned);
    int lost = 0;
    for (int i = 0; i < 20000; ++i) {
      // At a joint, or at what lies between two.
      const std::size_t at = random() % 49;
      const double mix = i % 2 == 0 ? 0.0 : static_cast<double>(uniform(random, 0, 1));
      const Vec3d middle = Vec3d(along[at]) * (1 - mix) + Vec3d(along[at + 1]) * mix;
      const Vec3d inside =
          middle + Vec3d(randomPoint(random, 0.57f)) * (0.9 * static_cast<double>(radius));
      const Vec3d target = turned.transformPoint(inside);
      const Vec3d from(randomPoint(random, 5));
      TracerHit hit;
      lost += !scene.intersect(Ray3d(from, target - from, -1e30, 1.0), hit);
    }
    EXPECT_EQ(lost, 0);
  }
}

TEST(SceneTracerTubes, AnyScaleGivesTheSamePicture) {
  for (const int exponent : {-96, -40, 40, 96}) {
    Random random(60);
    const Tubes hair = makeHair(random, 20, 8, 1.0f, 0.02f);
    Tubes scaled = hair;
    for (Vec3f& p : scaled.points) p = p * std::ldexp(1.0f, exponent);
    for (float& r : scaled.radii) r = std::ldexp(r, exponent);
    const SceneTracer one = makeTracer(hair), other = makeTracer(scaled);
    int hits = 0;
    for (int i = 0; i < 3000; ++i) {
      const Vec3f at = hair.points[random() % hair.points.size()], o = randomPoint(random, 3);
      TracerHit a, b;
      ASSERT_EQ(one.intersect(Ray3f(o, at - o), a),
                other.intersect(Ray3f(o * std::ldexp(1.0f, exponent), at - o), b));
      if (!a.hit) continue;
      ++hits;
      ASSERT_TRUE(hasSameBits(std::ldexp(a.distance, exponent), b.distance));
      ASSERT_EQ(a.normal, b.normal);
      ASSERT_EQ(a.face, b.face);
    }
    EXPECT_GT(hits, 1000);
  }
}

// Against the plain loop.

struct Scene {
  SceneTracer fast, plain;
  PlainLoop loop;
  SceneTracer triangles;  ///< those of the scene, alone
  std::vector<Vec3f> targets;
  std::uint32_t count = 0;
  std::vector<std::uint32_t> placementOfTriangles;

  Scene() { plain.setKernel(SceneTracer::Kernel::plain); }
  void add(Random& random, const Tubes& tubes, const Mat4d& matrix) {
    for (SceneTracer* to : {&fast, &plain}) to->addPlacement(addTo(*to, tubes), matrix);
    loop.add(tubes, matrix, count++);
    for (int i = 0; i < 40 && !tubes.points.empty(); ++i) {
      const std::size_t a = random() % tubes.points.size();
      const std::size_t b = std::min(a + 1, tubes.points.size() - 1);
      const float mix = i % 2 == 0 ? 0.0f : uniform(random, 0, 1);
      targets.emplace_back(
          matrix.transformPoint(Vec3d(tubes.points[a] * (1 - mix) + tubes.points[b] * mix)));
    }
  }
  void add(const vela_test::SampleMesh& mesh, const Mat4d& matrix) {
    for (SceneTracer* to : {&fast, &plain, &triangles})
      to->addPlacement(to->addMesh(mesh.points, mesh.counts, mesh.indices), matrix);
    placementOfTriangles.push_back(count++);
  }
  void build() {
    fast.build();
    plain.build();
    triangles.build();
  }
  [[nodiscard]] Ray3f randomRay(Random& random, float size) const {
    const Vec3f a = targets[random() % targets.size()], b = targets[random() % targets.size()];
    const Vec3f o = randomPoint(random, size);
    switch (random() % 6) {
      case 0: return {o, randomPoint(random, 1)};
      case 1: return {a, b - a};
      case 2: return {a, randomPoint(random, 1), -size, size};
      case 3: return {o, a - o, uniform(random, 0, 1), uniform(random, 0, 2)};
      // Along an axis; and along the tube.
      case 4: return {{a.x, a.y, -size}, {0, -0.0f, 1}};
      default: return {o, (a - o) * std::ldexp(1.0f, static_cast<int>(random() % 60) - 30)};
    }
  }

  template <class T>
  void compare(const std::vector<Ray<T>>& rays, int& hits) const {
    for (const SceneTracer* tracer : {&fast, &plain}) {
      std::vector<TracerHit> found(rays.size());
      const std::unique_ptr<bool[]> isOccluded(new bool[rays.size()]);
      tracer->intersect(rays.data(), rays.size(), found.data());
      tracer->occluded(rays.data(), rays.size(), isOccluded.get());
      for (std::size_t i = 0; i < rays.size(); ++i) {
        PlainLoop::Answer expected = loop.intersect(rays[i]);
        TracerHit mesh, single;
        triangles.intersect(rays[i], mesh);
        const std::uint32_t placement = mesh.hit ? placementOfTriangles[mesh.placement] : 0;
        const bool isMesh =
            mesh.hit && (!expected.hit || mesh.distance < expected.distance ||
                         (mesh.distance == expected.distance && placement < expected.placement));
        const bool isHit = expected.hit || isMesh;
        tracer->intersect(rays[i], single);
        for (const TracerHit* hit : {&single, &found[i]}) {
          ASSERT_EQ(hit->hit, isHit) << i;
          if (!isHit) continue;
          ASSERT_TRUE(hasSameBits(hit->distance, isMesh ? mesh.distance : expected.distance)) << i;
          ASSERT_EQ(hit->placement, isMesh ? placement : expected.placement) << i;
          ASSERT_EQ(hit->face, isMesh ? mesh.face : expected.tube) << i;
          ASSERT_EQ(hit->points[0], isMesh ? mesh.points[0] : expected.from) << i;
          ASSERT_EQ(hit->points[1], isMesh ? mesh.points[1] : expected.to) << i;
          ASSERT_EQ(hit->normal, single.normal) << i;
          ASSERT_EQ(hit->position, single.position) << i;
          ASSERT_EQ(hit->u, single.u) << i;
          ASSERT_FALSE(std::isnan(hit->normal.x)) << i;
          ASSERT_TRUE(hit->u >= 0.0f && hit->u <= 1.0f) << i;
        }
        ASSERT_EQ(isOccluded[i], isHit) << i;
        ASSERT_EQ(tracer->occluded(rays[i]), isHit) << i;
        hits += isHit ? 1 : 0;
      }
    }
  }
};

Mat4d randomMatrix(Random& random, float size, bool isSkewed) {
  Mat4d m;
  m.translate(Vec3d(randomPoint(random, size)));
  for (int i = 0; i < (isSkewed ? 2 : 1); ++i) {
    m.rotateX(static_cast<double>(uniform(random, 0, 6.3f)));
    m.rotateY(static_cast<double>(uniform(random, 0, 6.3f)));
    const double s = static_cast<double>(uniform(random, 0.3f, 1.5f));
    m.scale(random() % 4 == 0 ? -s : s, isSkewed ? 3.0 * s : s, s);
  }
  return m;
}

void compareScene(unsigned seed, int placements, const std::vector<Tubes>& kinds, bool withMeshes,
                  int numRays) {
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  Random random(seed);
  Scene scene;
  for (int i = 0; i < placements; ++i) {
    const Mat4d m = placements == 1 ? Mat4d() : randomMatrix(random, 2.0f, i % 3 == 0);
    scene.add(random, kinds[random() % kinds.size()], m);
    if (i % 7 == 6) scene.add(random, kinds[0], m);
    if (withMeshes && i % 2 == 0)
      scene.add(i % 4 == 0 ? vela_test::makeIcosphere(1) : vela_test::makeTorus(9, 7),
                randomMatrix(random, 2.0f, false));
  }
  scene.build();
  int hits = 0;
  std::vector<Ray3f> rays;
  std::vector<Ray3d> wide;
  for (int i = 0; i < numRays; ++i) {
    const Ray3f ray = scene.randomRay(random, 4.0f);
    rays.push_back(i % 3 == 0 ? hostile(random, ray) : ray);
    wide.push_back({Vec3d(rays.back().origin), Vec3d(rays.back().direction),
                    static_cast<double>(rays.back().minDistance),
                    static_cast<double>(rays.back().maxDistance)});
    if (i % 5 != 0) wide.back().origin.x += 1e-12;
  }
  scene.compare(rays, hits);
  if (testing::Test::HasFatalFailure()) return;
  scene.compare(wide, hits);
  EXPECT_GT(hits, numRays / 20);
}

TEST(SceneTracerTubesAgainstPlainLoop, OnePlacement) {
  Random random(70);
  for (const float radius : {0.3f, 1e-2f, 1e-5f, 1e-9f})
    compareScene(71, 1, {makeHair(random, 60, 12, 1.0f, radius)}, false, 3000);
}

TEST(SceneTracerTubesAgainstPlainLoop, ManyPlacementsAmongMeshes) {
  Random random(80);
  std::vector<Tubes> kinds = {makeHair(random, 10, 6, 1.0f, 0.05f),
                              makeHair(random, 30, 1, 1.0f, 0.1f),
                              makeHair(random, 4, 20, 1.0f, 0.3f)};
  compareScene(81, 40, kinds, false, 3000);
  compareScene(82, 40, kinds, true, 3000);
  compareScene(83, 2, kinds, true, 3000);
}

TEST(SceneTracerTubesAgainstPlainLoop, FlatLongAndBrokenPieces) {
  // Cones that nearly are one ball, pieces of no length, needles, points far from the others, and
  // what cannot be used.
  Random random(90);
  Tubes tubes;
  for (int i = 0; i < 300; ++i) {
    const Vec3f a = randomPoint(random, 1);
    const float length = std::pow(10.0f, uniform(random, -8, 0));
    const Vec3f b = a + randomPoint(random, length);
    const float ra = std::pow(10.0f, uniform(random, -10, -1));
    const float l = (b - a).length();
    const float rb = i % 4 == 0   ? ra
                     : i % 4 == 1 ? ra + l * (1.0f - std::pow(10.0f, uniform(random, -9, -2)))
                     : i % 4 == 2 ? 0.0f
                                  : ra * uniform(random, 0, 2);
    tubes.add({a, b, i % 9 == 0 ? b : a + randomPoint(random, length)}, {ra, rb, ra});
  }
  tubes.add({{kNan, 0, 0}, {0, 0, 0}, {0.5f, 0, 0}}, {0.1f, 0.1f, 0.1f});
  tubes.add({{0, 0, 0}, {0.5f, 0, 0}, {0, 0.5f, 0}}, {0.1f, -0.1f, 0.1f});
  tubes.counts.push_back(-7);
  tubes.add({{0, 0, 0}, {0.5f, 0, 0}}, {0.1f, 0.1f});
  compareScene(91, 1, {tubes}, false, 6000);
  compareScene(92, 5, {tubes}, true, 3000);
  // Far from its own zero point, where floats are coarse.
  for (Vec3f& p : tubes.points) p = p + Vec3f(3000, -2000, 1000);
  Scene far;
  Random rays(93);
  far.add(rays, tubes, Mat4d());
  far.build();
  std::vector<Ray3f> toThere;
  for (int i = 0; i < 4000; ++i) {
    const Vec3f at = far.targets[rays() % far.targets.size()];
    const Vec3f from = at + randomPoint(rays, i % 2 == 0 ? 3.0f : 3e4f);
    toThere.emplace_back(from, at - from);
  }
  int hits = 0;
  far.compare(toThere, hits);
  EXPECT_GT(hits, 400);
}

TEST(SceneTracerTubesAgainstPlainLoop, DeepTreesAndPlacementsWithoutABox) {
  Random random(95);
  Tubes spiral;
  for (int i = 0; i < 600; ++i) {
    const float at = std::ldexp(1.0f, -(i / 8)) * (1.0f + static_cast<float>(i % 8) / 8.0f);
    spiral.add({{at, 0, 0}, {at, at, 0}}, {0.05f * at, 0.02f * at});
  }
  Scene scene;
  Mat4d skewed;
  skewed.scale(1e-6, 1, 1e6);
  scene.add(random, spiral, Mat4d());
  scene.add(random, spiral, skewed);
  scene.build();
  std::vector<Ray3f> rays;
  for (int i = 0; i < 2000; ++i) rays.push_back(scene.randomRay(random, 2.0f));
  int hits = 0;
  scene.compare(rays, hits);
  EXPECT_GT(hits, 100);
}

}  // namespace
