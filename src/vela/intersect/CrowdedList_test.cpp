// Long lists of triangles are searched by trees: every answer is that of testing all of them.
#include "vela/intersect/detail/CrowdedList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "TestOracles.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/intersect/detail/TriangleBlocks.h"

namespace {

using namespace vela;
using namespace vela_test;
using detail::BlockHit;
using detail::CrowdedList;
using detail::ListedTriangle;
using tarn::Vec3d;

using Triangles = std::vector<ListedTriangle>;

// Primitives are numbered with gaps, as those of a cell are.
void add(Triangles& list, const Vec3f& a, const Vec3f& b, const Vec3f& c) {
  const auto n = static_cast<std::uint32_t>(list.size());
  list.push_back({a, b - a, c - a, 3 * n + 1, static_cast<std::int32_t>(n)});
}

struct Shape {
  std::string name;
  Triangles triangles;
};

// Points of a grid of n x n, as `pointAt(u, v)` places them, two triangles a cell.
template <class PointAt>
Triangles surface(int n, PointAt pointAt) {
  Triangles list;
  const auto at = [&](int i, int j) {
    return pointAt(static_cast<float>(i) / static_cast<float>(n),
                   static_cast<float>(j) / static_cast<float>(n));
  };
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      add(list, at(i, j), at(i + 1, j), at(i + 1, j + 1));
      add(list, at(i, j), at(i + 1, j + 1), at(i, j + 1));
    }
  return list;
}

Triangles sphere(int n, const Vec3f& centre, float radius, float bumps) {
  return surface(n, [=](float u, float v) {
    const float lon = 6.2831853f * u, lat = 3.1415927f * v;
    const float r = radius * (1.0f + bumps * std::sin(17.0f * lon) * std::sin(23.0f * lat));
    return centre +
           Vec3f(std::cos(lon) * std::sin(lat), std::cos(lat), std::sin(lon) * std::sin(lat)) * r;
  });
}

Triangles soup(unsigned seed, int count, float longest) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  const auto point = [&] { return Vec3f(unit(random), unit(random), unit(random)); };
  Triangles list;
  for (int i = 0; i < count; ++i) {
    const Vec3f a = point();
    add(list, a, a + point() * longest, a + point() * longest);
  }
  return list;
}

std::vector<Shape> shapes() {
  std::vector<Shape> all;
  all.push_back({"smooth sphere", sphere(24, {0, 0, 0}, 1.0f, 0.0f)});
  all.push_back({"bumpy sphere", sphere(30, {0, 0, 0}, 2.0f, 0.1f)});
  all.push_back({"far sphere", sphere(20, {3e5f, -1e6f, 7e5f}, 40.0f, 0.05f)});
  all.push_back({"small sphere", sphere(20, {0.01f, 0, 0}, 1e-3f, 0.05f)});
  all.push_back({"large sphere", sphere(20, {1e6f, 0, 0}, 2e7f, 0.05f)});
  // All in one plane: a ray in it may hit any of them.
  all.push_back({"flat", surface(24, [](float u, float v) { return Vec3f(u, 0.25f, v); })});
  all.push_back(
      {"slanted", surface(24, [](float u, float v) { return Vec3f(u, u + 0.3f * v, v); })});
  all.push_back({"nearly flat", surface(24, [](float u, float v) {
                   return Vec3f(u, 1e-6f * std::sin(40.0f * u) * std::sin(31.0f * v), v);
                 })});
  all.push_back({"stripes", surface(24, [](float u, float v) {
                   return Vec3f(u, 0.1f * std::sin(9.0f * v), 3.0f * v);
                 })});
  all.push_back({"soup", soup(5, 900, 0.1f)});
  all.push_back({"soup of all sizes", [] {
                   Triangles list = soup(6, 900, 0.02f);
                   const Triangles large = soup(7, 20, 1.5f);
                   for (const ListedTriangle& t : large) add(list, t.a, t.a + t.e1, t.a + t.e2);
                   return list;
                 }()});
  // The same triangles several times over: equal distances, and the least primitive counts.
  all.push_back({"copies", [] {
                   Triangles list;
                   for (int copy = 0; copy < 4; ++copy)
                     for (const ListedTriangle& t : sphere(12, {0, 0, 0}, 1.0f, 0.0f))
                       add(list, t.a, t.a + t.e1, t.a + t.e2);
                   return list;
                 }()});
  // Triangles without area, slivers and repeated corners among ordinary ones.
  all.push_back({"degenerate", [] {
                   Triangles list = sphere(22, {0, 0, 0}, 1.0f, 0.02f);
                   for (int i = 0; i < 12; ++i) {
                     const float x = 0.1f * static_cast<float>(i);
                     add(list, {x, 0, 0}, {x, 0, 0}, {x, 1, 0});
                     add(list, {x, 0, 0}, {x, 1, 0}, {x, 2, 0});
                     add(list, {x, 0, 0}, {x + 1, 1e-7f, 0}, {x + 2, 0, 0});
                   }
                   return list;
                 }()});
  return all;
}

// What testing the whole list in order gives.
bool plainList(const Triangles& list, const Ray3f& ray, bool nearest, CollisionResult& out) {
  float best = ray.maxDistance;
  bool found = false;
  for (const ListedTriangle& t : list) {
    CollisionResult one;
    // By the edges as they are stored: corners would be rounded anew.
    const Vec3f p = tarn::cross(ray.direction, t.e2);
    const float det = tarn::dot(t.e1, p);
    if (-1e-10f < det && det < 1e-10f) continue;
    const float inverse = 1.0f / det;
    const Vec3f s = ray.origin - t.a;
    const float u = tarn::dot(s, p) * inverse;
    if (u < 0.0f || u > 1.0f) continue;
    const Vec3f q = tarn::cross(s, t.e1);
    const float v = tarn::dot(ray.direction, q) * inverse;
    if (v < 0.0f || u + v > 1.0f) continue;
    const float distance = tarn::dot(t.e2, q) * inverse;
    if (!(best > distance && distance > ray.minDistance)) continue;
    best = distance;
    out.distance = distance;
    out.primitiveIndex = t.primitive;
    out.faceIndex = t.face;
    found = true;
    if (!nearest) return true;
  }
  return found;
}

// Rays that ordinary queries are made of, and those that the single-precision test gets wrong by
// more than a rounding: in the planes of triangles, or tilted out of them by next to nothing.
class CrowdRays {
 public:
  CrowdRays(const Triangles& list, unsigned seed) : list_(list), random_(seed) {
    for (const ListedTriangle& t : list) {
      box_.extendBy(t.a);
      box_.extendBy(t.a + t.e1);
      box_.extendBy(t.a + t.e2);
    }
    size_ = (box_.max - box_.min).length();
  }

  Ray3f next() {
    Ray3f ray = line();
    const float length = ray.direction.length();
    switch (pick(10)) {
      case 0: ray.direction = ray.direction / length; break;
      case 1: ray.direction = ray.direction * 1e-3f; break;
      case 2: ray.direction = ray.direction * 1e3f; break;
      default: break;
    }
    switch (pick(10)) {
      case 0: ray.maxDistance = kInf; break;
      case 1: ray.minDistance = -kInf; break;
      case 2: ray.maxDistance = unit() * 2.0f; break;
      case 3: ray.minDistance = unit() * 2.0f; break;
      case 4: ray.minDistance = -unit() * 3.0f; break;
      case 5: ray.maxDistance = pick(2) ? kNan : ray.minDistance; break;
      default: break;
    }
    for (std::size_t i = 0; i < 3; ++i) {
      if (pick(60) == 0) ray.direction[i] = pick(2) ? 0.0f : -0.0f;
      if (pick(120) == 0) ray.direction[i] = ray.direction[i] * 1e-9f;
      if (pick(1000) == 0) ray.direction[i] = pick(2) ? kNan : kInf;
      if (pick(1000) == 0) ray.origin[i] = pick(2) ? kNan : -kInf;
    }
    return ray;
  }

 private:
  unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }
  float unit() { return static_cast<float>(random_() % 1000001u) / 1000000.0f; }
  float tilt() { return std::pow(10.0f, -9.0f * unit()) * (pick(2) ? 1.0f : -1.0f); }
  Vec3f around(float reach) {
    const Vec3f centre = box_.min * 0.5f + box_.max * 0.5f;
    return centre + Vec3f(unit() - 0.5f, unit() - 0.5f, unit() - 0.5f) * (reach * size_);
  }
  const ListedTriangle& triangle() { return list_[pick(static_cast<unsigned>(list_.size()))]; }

  // How far from the content rays begin, in its sizes.
  float away() {
    static const float reach[] = {0.0f, 0.3f, 2.0f, 20.0f, 500.0f, 3e4f};
    return reach[pick(6)] * (0.5f + unit());
  }

  Ray3f line() {
    const ListedTriangle& t = triangle();
    const ListedTriangle& other = triangle();
    const Vec3f inPlane = t.e1 * (unit() * 2.0f - 1.0f) + t.e2 * (unit() * 2.0f - 1.0f);
    const Vec3f normal = tarn::cross(t.e1, t.e2);
    const float area = normal.length(), edge = t.e1.length();
    const Vec3f out = area > 0.0f ? normal * (edge / area) : Vec3f(0, edge, 0);
    Vec3f through = t.a + t.e1 * (unit() * 1.4f - 0.2f) + t.e2 * (unit() * 1.4f - 0.2f);
    Vec3f direction = inPlane;
    switch (pick(9)) {
      case 0: return Ray3f(around(3.0f), around(0.8f) - around(3.0f));
      case 1: {
        const Vec3f from = around(2.0f);
        return Ray3f(from, through - from);
      }
      case 2: direction = inPlane; break;
      case 3: direction = inPlane + out * tilt(); break;
      case 4:
        direction = t.e1;
        through = t.a;
        break;
      case 5:
        direction = t.e2 - t.e1;
        through = t.a + t.e1;
        break;
      case 6:
        direction = other.a - t.a;
        through = t.a;
        break;
      case 7: {  // parallel to an axis
        direction = Vec3f();
        direction[pick(3)] = pick(2) ? 1.0f : -1.0f;
        break;
      }
      default:  // in the plane but beside the triangle, and a little off it
        direction = inPlane + out * (tilt() * 1e-3f);
        through = through + out * (tilt() * 1e-2f) + inPlane * (unit() * 4.0f);
        break;
    }
    const float length = direction.length();
    if (!(length > 0.0f)) direction = Vec3f(1, 0, 0);
    const float back = away() * size_ / std::max(length, 1e-20f);
    return Ray3f(through - direction * back, direction);
  }

  const Triangles& list_;
  std::mt19937 random_;
  Box3f box_;
  float size_ = 1.0f;
};

constexpr int kRays = 8000;  // of each shape

TEST(CrowdedList, AnswersAsTheWholeListDoesOnOrdinaryAndHostileRays) {
  for (const Shape& shape : shapes()) {
    SCOPED_TRACE(shape.name);
    const auto crowd = CrowdedList::make(shape.triangles);
    ASSERT_NE(crowd, nullptr);
    const unsigned seed = 41;
    CrowdRays rays(shape.triangles, seed);
    int hits = 0, searched = 0;
    for (int i = 0; i < kRays; ++i) {
      const Ray3f ray = rays.next();
      searched += crowd->isSearchedFor(ray) ? 1 : 0;
      for (const bool nearest : {true, false}) {
        CollisionResult wanted;
        const bool isHit = plainList(shape.triangles, ray, nearest, wanted);
        float best = ray.maxDistance;
        BlockHit hit;
        ASSERT_EQ(crowd->intersect(ray, nearest, best, hit), isHit)
            << "seed " << seed << " query " << i << ' ' << show(ray) << " nearest " << nearest
            << " wanted " << show(wanted);
        if (!isHit) continue;
        ++hits;
        ASSERT_EQ(bitsOf(best), bitsOf(wanted.distance)) << i << ' ' << show(ray);
        ASSERT_EQ(hit.block->primitive[hit.lane], wanted.primitiveIndex) << i << ' ' << show(ray);
        ASSERT_EQ(hit.block->face[hit.lane], wanted.faceIndex);
      }
    }
    EXPECT_GT(hits, kRays / 5) << "too few hits to prove much";
    EXPECT_GT(searched, kRays / 3) << "too few rays went through the trees";
  }
}

TEST(CrowdedList, IsNotMadeOfNumbersThatNothingIsProvedFor) {
  Triangles list = sphere(20, {0, 0, 0}, 1.0f, 0.0f);
  EXPECT_NE(CrowdedList::make(list), nullptr);
  Triangles broken = list;
  broken[7].e1.y = kNan;
  EXPECT_EQ(CrowdedList::make(broken), nullptr);
  broken = list;
  broken[7].a.x = 2e8f;
  EXPECT_EQ(CrowdedList::make(broken), nullptr);
  // Every ray would have to test the slivers.
  for (int i = 0; i < 200; ++i) add(list, {0, 0, 0}, {1, 1e-7f, 0}, {2, 0, 0});
  EXPECT_EQ(CrowdedList::make(list), nullptr);
  EXPECT_EQ(CrowdedList::make({}), nullptr);
}

TEST(CrowdedList, AGridOverASmallObjectInAHugeSceneAnswersByItsRules) {
  // The object fills one cell of the grid, with two large faces as the scene around it.
  const Triangles object = sphere(30, {0.3f, 0.4f, -0.2f}, 0.5f, 0.05f);
  SampleMesh mesh;
  const auto addTriangle = [&](const Vec3f& a, const Vec3f& b, const Vec3f& c) {
    for (const Vec3f& p : {a, b, c}) {
      mesh.indices.push_back(static_cast<int>(mesh.points.size()));
      mesh.points.push_back(p);
    }
    mesh.counts.push_back(3);
  };
  addTriangle({-500, -300, -400}, {700, -300, -400}, {-500, -300, 800});
  addTriangle({700, 500, 800}, {-500, 500, 800}, {700, 500, -400});
  for (const ListedTriangle& t : object) addTriangle(t.a, t.a + t.e1, t.a + t.e2);
  const ovo::Array<Vec3f> points(mesh.points.begin(), mesh.points.end());
  const TriangleAccelerationModel model(points,
                                        ovo::Array<int>(mesh.counts.begin(), mesh.counts.end()),
                                        ovo::Array<int>(mesh.indices.begin(), mesh.indices.end()));
  const GridAcceleration grid(model);
  const PlainGrid plain(model);
  const unsigned seed = 97;
  CrowdRays rays(object, seed);
  RayMaker others(mesh, seed);
  int hits = 0;
  for (int i = 0; i < 20000; ++i) {
    const Ray3f ray = i % 4 == 3 ? others.hostile() : rays.next();
    for (const bool nearest : {true, false}) {
      IntersectionContext ctx;
      ctx.nearestHit = nearest;
      CollisionResult wanted = marked(), found = marked();
      const bool isHit = plain.intersect(ctx, ray, wanted);
      ASSERT_EQ(grid.intersect(ctx, ray, found), isHit)
          << "seed " << seed << ' ' << i << ' ' << show(ray);
      ASSERT_TRUE(sameRecord(found, wanted))
          << i << ' ' << show(ray) << show(found) << show(wanted);
      hits += isHit ? 1 : 0;
    }
  }
  EXPECT_GT(hits, 4000);
}

}  // namespace
