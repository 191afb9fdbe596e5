// The constants of Shader.h against exact planes.
#include "vela/picture/detail/Shader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <random>

#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "tarn/Mat4.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/SceneMeshes.h"

namespace {

using namespace vela::scene;
using namespace vela::picture::detail;
using tarn::Vec3d;
using tarn::Vec3f;

// A triangle whose points are about `middle` in its own space, placed so that they are about
// `place` in the world, larger by `scale`.
struct Triangle {
  std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
  Vec3f points[3];
  tarn::Mat4d worldFromObject;
};

Triangle makeTriangle(std::mt19937& random, double middle, double place, double scale) {
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  const auto about = [&](double size) {
    return Vec3d(unit(random), unit(random), unit(random)) * size;
  };
  Triangle triangle;
  const Vec3d centre = about(middle), at = about(place);
  for (Vec3f& point : triangle.points) point = Vec3f(centre + about(1.0));
  triangle.worldFromObject.translate(at.x, at.y, at.z);
  triangle.worldFromObject.scale(scale, scale, scale);
  triangle.worldFromObject.translate(-centre.x, -centre.y, -centre.z);
  ovo::MeshPrim mesh = ovo::MeshPrim::define(triangle.stage, ovo::Path("/T"));
  mesh.setPoints({triangle.points[0], triangle.points[1], triangle.points[2]},
                 tarn::defaultTimeValue());
  mesh.createFaceVertexCountsAttr().set(ovo::Array<int>{3}, tarn::defaultTimeValue());
  mesh.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2}, tarn::defaultTimeValue());
  mesh.setLocalXform(triangle.worldFromObject, tarn::defaultTimeValue());
  return triangle;
}

float largestOf(const Vec3f& v) { return std::max({std::abs(v.x), std::abs(v.y), std::abs(v.z)}); }

// How far hits lie off their plane, as a share of what rays are lifted off it, at most.
double worstShare(double middle, double place, double scale, double away, int& hits) {
  std::mt19937 random(23);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  double worst = 0.0;
  hits = 0;
  for (int t = 0; t < 60; ++t) {
    const Triangle triangle = makeTriangle(random, middle, place, scale);
    const auto list = listMeshes(*triangle.stage, {});
    const RayCaster caster(CasterKind::tracer, *list, extentOf(*list), tarn::defaultTimeValue());
    const ObjectSpace space = caster.objectSpace(0);

    // The plane in double, from the points as the scene has them.
    Vec3d corners[3];
    for (std::size_t i = 0; i < 3; ++i)
      corners[i] = triangle.worldFromObject.transformPoint(Vec3d(triangle.points[i]));
    const Vec3d normal = cross(corners[1] - corners[0], corners[2] - corners[0]).normalized();
    for (int r = 0; r < 50; ++r) {
      double u = 0.5 + 0.5 * unit(random), v = 0.5 + 0.5 * unit(random);
      if (u + v > 1.0) u = 1.0 - u, v = 1.0 - v;
      const Vec3d target =
          corners[0] + (corners[1] - corners[0]) * u + (corners[2] - corners[0]) * v;
      const Vec3d from = Vec3d(unit(random), unit(random), unit(random)).normalized() * away;
      const WorldRay ray{target, from, Vec3f((-from).normalized()), 0.0f, 3e38f};
      SurfaceHit hit;
      caster.intersect(&ray, 1, &hit);
      if (!hit.hit) continue;
      ++hits;
      const double off = std::abs(dot(hit.position() - corners[0], normal));
      const double lift = static_cast<double>(std::max(largestOf(hit.offset),
                                                       static_cast<float>(hit.distance) * 0.5f)) *
                              static_cast<double>(kHitRounding) +
                          static_cast<double>(largestOf(space.point(hit))) * scale *
                              static_cast<double>(kPointRounding);
      worst = std::max(worst, off / lift);
    }
  }
  return worst;
}

TEST(Shader, RaysToLightsStartAboveWhatRoundingPutsAHitBeneathItsFace) {
  struct Case {
    double middle, place, scale, away;
  };
  for (const Case& c :
       {Case{0, 0, 1, 5}, Case{0, 0, 1, 1000}, Case{0, 1e5, 1, 5}, Case{0, 0, 1e-4, 1},
        Case{0, 0, 1e4, 3e4}, Case{1e4, 0, 1, 5}, Case{1e5, 1e5, 3, 10}, Case{3e6, 0, 0.01, 1}}) {
    int hits = 0;
    const double worst = worstShare(c.middle, c.place, c.scale, c.away, hits);
    EXPECT_GT(hits, 1000) << c.middle << " " << c.place << " " << c.scale << " " << c.away;
    EXPECT_LT(worst, 0.5) << c.middle << " " << c.place << " " << c.scale << " " << c.away;
    RecordProperty("worst", std::to_string(worst));
  }
}

}  // namespace
