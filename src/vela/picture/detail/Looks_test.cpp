// Materials at points of meshes.
#include "vela/picture/detail/Looks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "support/SharedData.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneExtent.h"

namespace {

using namespace vela::picture::detail;
using namespace vela::scene;
using tarn::Vec3f;

TEST(Looks, NormalMapsLeanAlongTheCoordinatesTurnedAndMirrored) {
  requireSharedData("usd/materials/20_normal_map.usda");
  const auto stage =
      ovo::Stage::open(vela_test::sharedDataPath("usd/materials/20_normal_map.usda"));
  const MeshList list = listMeshes(*stage, {}).value();
  const double time = tarn::defaultTimeValue();
  const RayCaster caster(CasterKind::tracer, list, extentOf(list), time);
  const SceneMaterials materials = findMaterials(*stage, list, MaterialPurpose::full);
  std::vector<Surface> surfaces;
  for (const Shape& shape : list.shapes) surfaces.emplace_back(shape, time);
  const Looks looks(list, materials, surfaces, time, std::size_t{1} << 26);
  EXPECT_TRUE(looks.problems().empty());

  // Light from +x and +z, half and half.
  const std::map<std::string, float> expected = {
      {"Flat", 0.707f}, {"Right", 1.0f}, {"Up", 0.5f}, {"TurnedSt", 0.5f}, {"MirroredSt", 0.0f}};
  const Vec3f toLight = Vec3f(1.0f, 0.0f, 1.0f).normalized();
  std::size_t found = 0;
  for (std::uint32_t i = 0; i < list.entries.size(); ++i) {
    const auto wanted = expected.find(list.entries[i].prim.getName().asString());
    if (wanted == expected.end()) continue;
    const auto points = list.shapeOf(i).points.view();
    tarn::Vec3d middle;
    for (const Vec3f& p : points) middle += tarn::Vec3d(p) * (1.0 / 4.0);
    WorldRay ray;
    ray.base = list.entries[i].worldFromObject.transformPoint(middle) + tarn::Vec3d(0.01, 0.02, 5);
    ray.direction = {0.0f, 0.0f, -1.0f};
    SurfaceHit hit;
    caster.intersect(&ray, 1, &hit);
    ASSERT_TRUE(hit.hit && hit.entry == i) << wanted->first;
    const auto material = looks.at(hit);
    ASSERT_TRUE(material) << wanted->first;
    const LookPoint look =
        looks.evaluate(*material, hit, caster.objectSpace(i).surfacePoint(hit), hit.normal, 0.0f);
    // The map's codes are whole numbers.
    EXPECT_NEAR(dot(look.normal, toLight), wanted->second, 0.006f) << wanted->first;
    ++found;
  }
  EXPECT_EQ(found, expected.size());
}

}  // namespace
