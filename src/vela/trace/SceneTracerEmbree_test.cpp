#include <embree3/rtcore.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/Xform.h"
#include "support/SampleMeshes.h"
#include "support/SharedData.h"
#include "vela/mesh/Triangulate.h"
#include "vela/trace/SceneTracer.h"

// Another tracer over the same triangles, already in world space and in single precision. The
// answers may differ only where the ray passes an edge, or grazes a surface, more closely than
// single precision tells: each difference is shown to be of that kind by double precision, on the
// triangles themselves.

namespace {

using tarn::Mat4d;
using tarn::Ray3f;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::SceneTracer;
using vela::TracerHit;

// World triangles, in the order in which the tracer numbers placements and faces.
struct Soup {
  std::vector<Vec3f> corners;

  void add(const ovo::Array<Vec3f>& points, const ovo::Array<int>& counts,
           const ovo::Array<int>& indices, const Mat4d& matrix) {
    std::vector<int> cut;
    std::size_t begin = 0;
    for (const int count : counts) {
      if (count <= 0) continue;
      const std::size_t end = begin + static_cast<std::size_t>(count);
      if (end > indices.size()) break;
      const bool isSound =
          std::all_of(indices.begin() + static_cast<std::ptrdiff_t>(begin),
                      indices.begin() + static_cast<std::ptrdiff_t>(end),
                      [&](int i) { return i >= 0 && static_cast<std::size_t>(i) < points.size(); });
      if (count >= 3 && isSound) {
        vela::triangulatePolygon(points.data(), indices.data() + begin, count, cut);
        for (const int k : cut) {
          const Vec3d p(
              points[static_cast<std::size_t>(indices[begin + static_cast<std::size_t>(k)])]);
          corners.emplace_back(matrix.transformPoint(p));
        }
      }
      begin = end;
    }
  }
};

class Embree {
 public:
  explicit Embree(const Soup& soup)
      : device_(rtcNewDevice("threads=1,set_affinity=0")), scene_(rtcNewScene(device_)) {
    rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
    RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
    auto* points = static_cast<Vec3f*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0,
                                                               RTC_FORMAT_FLOAT3, sizeof(Vec3f),
                                                               soup.corners.size()));
    std::copy(soup.corners.begin(), soup.corners.end(), points);
    auto* indices = static_cast<unsigned*>(
        rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                3 * sizeof(unsigned), soup.corners.size() / 3));
    for (std::size_t i = 0; i < soup.corners.size(); ++i) indices[i] = static_cast<unsigned>(i);
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene_, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene_);
  }
  ~Embree() {
    rtcReleaseScene(scene_);
    rtcReleaseDevice(device_);
  }
  Embree(const Embree&) = delete;
  Embree& operator=(const Embree&) = delete;

  // \return infinity on a miss
  [[nodiscard]] double distance(const Ray3f& ray) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit hit;
    hit.ray.org_x = ray.origin.x;
    hit.ray.org_y = ray.origin.y;
    hit.ray.org_z = ray.origin.z;
    hit.ray.dir_x = ray.direction.x;
    hit.ray.dir_y = ray.direction.y;
    hit.ray.dir_z = ray.direction.z;
    hit.ray.tnear = ray.minDistance;
    hit.ray.tfar = ray.maxDistance;
    hit.ray.time = 0.0f;
    hit.ray.mask = ~0u;
    hit.ray.id = 0;
    hit.ray.flags = 0;
    hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    hit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene_, &context, &hit);
    return hit.hit.geomID == RTC_INVALID_GEOMETRY_ID ? std::numeric_limits<double>::infinity()
                                                     : static_cast<double>(hit.ray.tfar);
  }

 private:
  RTCDevice device_;
  RTCScene scene_;
};

// How near the ray passes to a triangle's border, as a distance between two lines, when it passes
// the triangle at a distance near `at` at all; infinity otherwise.
double distanceFromBorder(const Ray3f& ray, const Vec3f* corner, double tolerance) {
  const Vec3d o(ray.origin), d = Vec3d(ray.direction).normalized();
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < 3; ++i) {
    const Vec3d a = Vec3d(corner[i]) - o, e = Vec3d(corner[(i + 1) % 3]) - Vec3d(corner[i]);
    // The point of the edge that is nearest to the ray's line.
    const Vec3d ap = a - d * tarn::dot(a, d), ep = e - d * tarn::dot(e, d);
    const double ee = tarn::dot(ep, ep);
    const double mix = ee > 0.0 ? std::min(1.0, std::max(0.0, -tarn::dot(ap, ep) / ee)) : 0.0;
    least = std::min(least, (ap + ep * mix).length());
    if (least < tolerance) break;
  }
  return least;
}

struct Comparison {
  int rays = 0, hits = 0, differences = 0;
  std::vector<std::string> unexplained;
};

void compare(const SceneTracer& tracer, const Embree& embree, const Soup& soup,
             const std::vector<Ray3f>& rays, double size, Comparison& result) {
  for (const Ray3f& ray : rays) {
    TracerHit hit;
    tracer.intersect(ray, hit);
    const double other = embree.distance(ray);
    ++result.rays;
    if (hit.hit) ++result.hits;
    const double length = Vec3d(ray.direction).length();
    // Single precision over the ray's length and the scene's.
    const double reach =
        std::max({size, Vec3d(ray.origin).length(), hit.hit ? hit.distance * length : 0.0});
    const double tolerance = 4e-6 * reach;
    const bool isSame =
        hit.hit ? std::fabs(hit.distance - other) * length <= tolerance : std::isinf(other);
    if (isSame) continue;
    ++result.differences;
    // The same surface, grazed: sideways the answers agree, along the ray that is stretched by 1 /
    // cos.
    if (hit.hit && std::fabs(hit.distance - other) *
                           std::fabs(tarn::dot(Vec3d(hit.normal), Vec3d(ray.direction))) <=
                       tolerance)
      continue;
    // Whatever either saw and the other did not lies at an edge: some triangle's border is that
    // near to the ray.
    double nearest = std::numeric_limits<double>::infinity();
    for (std::size_t t = 0; t < soup.corners.size() && nearest > tolerance; t += 3)
      nearest = std::min(nearest, distanceFromBorder(ray, &soup.corners[t], tolerance));
    if (nearest > tolerance)
      result.unexplained.push_back(
          "tracer " + (hit.hit ? std::to_string(hit.distance * length) : std::string("none")) +
          ", Embree " + std::to_string(other * length) + ", nearest edge " +
          std::to_string(nearest / reach) + " of the reach");
  }
}

using Random = std::mt19937_64;
float uniform(Random& random, float low, float high) {
  return std::uniform_real_distribution<float>(low, high)(random);
}

// Rays through a box from outside and inside, aimed at points of it, at corners and at edges.
std::vector<Ray3f> makeRays(Random& random, const Soup& soup, const tarn::Box3f& box, int count) {
  std::vector<Ray3f> rays;
  const Vec3f center = box.center(), half = box.size() * 0.5f;
  const auto within = [&](float scale) {
    const float x = uniform(random, -scale, scale), y = uniform(random, -scale, scale),
                z = uniform(random, -scale, scale);
    return center + Vec3f(x, y, z) * half;
  };
  for (int i = 0; i < count; ++i) {
    const Vec3f o = within(i % 2 == 0 ? 2.0f : 1.0f);
    Vec3f target = within(1.0f);
    if (i % 4 == 1) target = soup.corners[random() % soup.corners.size()];
    if (i % 4 == 2) {
      const std::size_t t = random() % (soup.corners.size() / 3) * 3;
      target = (soup.corners[t] + soup.corners[t + 1]) * 0.5f;
    }
    if (i % 4 == 3) {
      const std::size_t t = random() % (soup.corners.size() / 3) * 3;
      target = (soup.corners[t] + soup.corners[t + 1] + soup.corners[t + 2]) * (1.0f / 3.0f);
    }
    rays.emplace_back(o, target - o);
  }
  return rays;
}

void expectAgreement(const SceneTracer& tracer, const Soup& soup, int count, unsigned seed) {
  ASSERT_FALSE(soup.corners.empty());
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  tarn::Box3f box;
  for (const Vec3f& p : soup.corners) box.extendBy(p);
  Random random(seed);
  const Embree embree(soup);
  Comparison result;
  const double size = Vec3d(box.size()).length() + Vec3d(box.center()).length();
  compare(tracer, embree, soup, makeRays(random, soup, box, count), size, result);
  EXPECT_GT(result.hits, count / 20);
  EXPECT_LT(result.differences, count / 10);
  EXPECT_EQ(result.unexplained.size(), 0u);
  for (std::size_t i = 0; i < std::min<std::size_t>(3, result.unexplained.size()); ++i)
    ADD_FAILURE() << result.unexplained[i];
  testing::Test::RecordProperty("differences", result.differences);
  std::printf("  %d rays, %d hits, %d differences, all of them at edges or grazing\n", result.rays,
              result.hits, result.differences);
}

TEST(SceneTracerAgainstEmbree, GeneratedMeshes) {
  unsigned seed = 1;
  for (const vela_test::SampleMesh& mesh :
       {vela_test::makeCube(), vela_test::makeIcosphere(4), vela_test::makeTorus(60, 30),
        vela_test::makeBumpySphere(20000)}) {
    SceneTracer tracer;
    tracer.addPlacement(tracer.addMesh(mesh.points, mesh.counts, mesh.indices), Mat4d());
    tracer.build();
    Soup soup;
    soup.add(mesh.points, mesh.counts, mesh.indices, Mat4d());
    expectAgreement(tracer, soup, 40000, seed++);
  }
}

TEST(SceneTracerAgainstEmbree, PlacedCopies) {
  const vela_test::SampleMesh mesh = vela_test::makeBumpySphere(500);
  Random random(9);
  SceneTracer tracer;
  Soup soup;
  const std::uint32_t id = tracer.addMesh(mesh.points, mesh.counts, mesh.indices);
  for (int i = 0; i < 60; ++i) {
    Mat4d m;
    const double x = static_cast<double>(uniform(random, -6, 6)),
                 y = static_cast<double>(uniform(random, -6, 6));
    m.translate(x, y, static_cast<double>(uniform(random, -6, 6)));
    m.rotateX(static_cast<double>(uniform(random, 0, 6)));
    m.rotateZ(static_cast<double>(uniform(random, 0, 6)));
    m.scale(static_cast<double>(uniform(random, 0.3f, 2)), i % 3 == 0 ? -1.0 : 1.0,
            static_cast<double>(uniform(random, 0.3f, 2)));
    tracer.addPlacement(id, m);
    soup.add(mesh.points, mesh.counts, mesh.indices, m);
  }
  tracer.build();
  expectAgreement(tracer, soup, 60000, 10);
}

// All meshes of a file, placed by their transforms.
void expectAgreementOnFile(const std::string& relative, unsigned seed) {
  std::string error;
  const auto stage = ovo::Stage::open(vela_test::sharedDataPath(relative), &error);
  ASSERT_TRUE(stage) << error;
  SceneTracer tracer;
  Soup soup;
  ovo::XformCache cache(tarn::defaultTimeValue());
  std::vector<ovo::Prim> queue{stage->getRootPrim()};
  for (std::size_t at = 0; at < queue.size(); ++at) {
    std::vector<ovo::Prim> children;
    queue[at].getChildren(children, true, false, true);
    queue.insert(queue.end(), children.begin(), children.end());
    const ovo::MeshPrim mesh(queue[at]);
    if (!mesh.isValid()) continue;
    ovo::Array<Vec3f> points;
    ovo::Array<int> counts, indices;
    bool isReversed = false;
    if (!mesh.getPoints(points) || !mesh.getFaceTopology(counts, indices, isReversed)) continue;
    const Mat4d world = cache.getLocalToWorld(mesh);
    tracer.addPlacement(tracer.addMesh(mesh), world);
    soup.add(points, counts, indices, world);
  }
  tracer.build();
  expectAgreement(tracer, soup, 20000, seed);
}

TEST(SceneTracerAgainstEmbree, CornellBox) {
  requireSharedData("usd/cornell-box/cornell-box.usda");
  expectAgreementOnFile("usd/cornell-box/cornell-box.usda", 21);
}

TEST(SceneTracerAgainstEmbree, Teapot) {
  requireSharedData("usd/Teapot/Teapot.usd");
  expectAgreementOnFile("usd/Teapot/Teapot.usd", 22);
}

TEST(SceneTracerAgainstEmbree, ChessSet) {
  requireSharedData("usd/OpenChessSet/chess_set.usda");
  expectAgreementOnFile("usd/OpenChessSet/chess_set.usda", 23);
}

TEST(SceneTracerAgainstEmbree, SpinningPyramids) {
  requireSharedData("usd/SubdivisionSurfaces/Creases_SpinningPyramids.usda");
  expectAgreementOnFile("usd/SubdivisionSurfaces/Creases_SpinningPyramids.usda", 24);
}

}  // namespace
