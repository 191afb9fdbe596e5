// Which lights of a scene shine, and on what.
#include "vela/scene/SceneLights.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ovo/Path.h"
#include "support/SharedData.h"
#include "support/TextStage.h"
#include "vela/scene/LeftOut.h"

namespace {

using namespace vela::scene;
using Names = std::vector<std::string>;

struct Found {
  std::shared_ptr<ovo::Stage> stage;
  MeshList list;
  SceneLights lights;

  [[nodiscard]] Names names() const {
    Names names;
    for (const SceneLight& light : lights.lights) names.push_back(light.prim.getPath().asString());
    return names;
  }
  // The entries that a light falls on, and those that throw its shadows.
  [[nodiscard]] Names lit(std::size_t light) const {
    Names names;
    for (std::size_t i = 0; i < list.entries.size(); ++i)
      if (lights.lights[light].fallsOn(i)) names.push_back(nameOf(list, i));
    return names;
  }
  [[nodiscard]] Names casting(std::size_t light) const {
    Names names;
    for (std::size_t i = 0; i < list.entries.size(); ++i)
      if (lights.lights[light].isStoppedBy(i)) names.push_back(nameOf(list, i));
    return names;
  }
};

Found find(const std::string& scene, const MeshFilter& filter = {}) {
  // Scene files want a line for each statement.
  std::string lines;
  for (const char c : scene) lines += c == '{' ? "{\n" : c == '}' ? "\n}" : std::string(1, c);
  Found found{vela_test::stageOf(lines), {}, {}};
  found.list = listMeshes(*found.stage, filter).value();
  found.lights = listLights(*found.stage, found.list, filter);
  return found;
}

TEST(SceneLights, ThoseThatAreVisibleAndNotLeftOutShine) {
  const std::string scene = R"(def DistantLight "A" { }
def Xform "Off" { token visibility = "invisible"
  def RectLight "C" { }
}
def SphereLight "D" (active = false) { }
class "E" { def SphereLight "F" { } }
def PortalLight "G" { }
def GeometryLight "H" { }
def DomeLight_1 "I" { token visibility.timeSamples = { 1: "inherited", 2: "invisible" } }
)";
  EXPECT_EQ(find(scene).names(), (Names{"/A", "/I"}));
  MeshFilter filter;
  filter.time = 2.0;
  EXPECT_EQ(find(scene, filter).names(), Names{"/A"});
  filter.withInvisible = true;
  EXPECT_EQ(find(scene, filter).names(), (Names{"/A", "/Off/C", "/I"}));
  filter.excludedPaths = {ovo::Path("/Off"), ovo::Path("/A")};
  EXPECT_EQ(find(scene, filter).names(), Names{"/I"});
  // Masks, types and purposes are about meshes.
  MeshFilter meshes;
  meshes.maskPaths = {ovo::Path("/Nothing")};
  meshes.includedTypes = {"Cube"};
  meshes.purposes = {Purpose::proxy};
  EXPECT_EQ(find(scene, meshes).names(), (Names{"/A", "/I"}));
}

TEST(SceneLights, InstancesHaveLightsOfTheirOwnInTheirPlaces) {
  const Found found =
      find(R"(class "Lamp" { def SphereLight "Bulb" { double3 xformOp:translate = (0, 1, 0)
  uniform token[] xformOpOrder = ["xformOp:translate"] } }
def Xform "A" (instanceable = true
 references = </Lamp>) { double3 xformOp:translate = (5, 0, 0)
  uniform token[] xformOpOrder = ["xformOp:translate"] }
def Xform "B" (instanceable = true
 references = </Lamp>) { double3 xformOp:scale = (-1, 2, 1)
  uniform token[] xformOpOrder = ["xformOp:scale"] }
def PointInstancer "Many" { rel prototypes = </Many/Proto>
  int[] protoIndices = [0]
  point3f[] positions = [(0, 0, 0)]
  def SphereLight "Proto" { } }
)");
  ASSERT_EQ(found.names(), (Names{"/A/Bulb", "/B/Bulb"}));
  using tarn::Vec3d;
  EXPECT_EQ(found.lights.lights[0].source.worldFromLight.transformPoint({}), Vec3d(5, 1, 0));
  EXPECT_EQ(found.lights.lights[1].source.worldFromLight.transformPoint({}), Vec3d(0, 2, 0));
  EXPECT_EQ(found.lights.lights[1].source.worldFromLight.transformVector({1, 0, 0}),
            Vec3d(-1, 0, 0));
  // Those among prototypes are told instead.
  const std::vector<LeftOut> leftOut = findLeftOut(*found.stage, found.list, MeshFilter(), nullptr);
  ASSERT_EQ(leftOut.size(), 1u);
  EXPECT_EQ(leftOut[0].first, "/Many/Proto");
}

TEST(SceneLights, LinksSayWhatIsLitAndWhatThrowsShadows) {
  const Found found = find(R"(def Xform "Set" { def Cube "A" { }
  def Cube "B" { }
  def Xform "Deep" { def Cube "C" { } } }
def Cube "D" { }
def SphereLight "All" { }
def SphereLight "Plain" { uniform bool collection:lightLink:includeRoot = 1 }
def SphereLight "Some" { uniform bool collection:lightLink:includeRoot = 0
  rel collection:lightLink:includes = [</Set>]
  rel collection:lightLink:excludes = [</Set/Deep>]
  rel collection:shadowLink:excludes = [</D>] }
def SphereLight "AllBut" { rel collection:lightLink:excludes = [</Set>] }
def SphereLight "None" { uniform bool collection:lightLink:includeRoot = 0 }
def SphereLight "Expression" { uniform bool collection:lightLink:includeRoot = 0
  pathExpression collection:lightLink:membershipExpression = "/Set//C" }
)");
  const Names all{"/Set/A", "/Set/B", "/Set/Deep/C", "/D"};
  ASSERT_EQ(found.lights.lights.size(), 6u);
  EXPECT_FALSE(found.lights.lights[0].lit);
  EXPECT_FALSE(found.lights.lights[1].lit) << "all of them need no list";
  EXPECT_EQ(found.lit(2), (Names{"/Set/A", "/Set/B"}));
  EXPECT_EQ(found.casting(2), (Names{"/Set/A", "/Set/B", "/Set/Deep/C"}));
  EXPECT_EQ(found.lit(3), Names{"/D"});
  EXPECT_EQ(found.casting(3), all);
  EXPECT_EQ(found.lit(4), Names{});
  EXPECT_EQ(found.lit(5), Names{"/Set/Deep/C"});
  EXPECT_TRUE(found.lights.problems.empty());
}

TEST(SceneLights, LinksKnowInstancesOfInstancersByTheirPrototypeOrTheInstancer) {
  const std::string many = R"(def PointInstancer "Many" { rel prototypes = [</Many/In>, </Out>]
  int[] protoIndices = [0, 1]
  point3f[] positions = [(0, 0, 0), (3, 0, 0)]
  def Cube "In" { } }
over "Out" { def Cube "Leaf" { } }
def SphereLight "L" { uniform bool collection:lightLink:includeRoot = 0
)";
  EXPECT_EQ(find(many + "rel collection:lightLink:includes = [</Many>] }").lit(0).size(), 2u);
  EXPECT_EQ(find(many + "rel collection:lightLink:includes = [</Many/In>] }").lit(0).size(), 1u);
  EXPECT_EQ(find(many + "rel collection:lightLink:includes = [</Out>] }").lit(0).size(), 0u);
}

TEST(SceneLights, WhatCountsOtherwiseIsTold) {
  const Found found = find(R"(def SphereLight "A" { float inputs:intensity = nan }
def DomeLight "B" { asset inputs:texture:file = @x.png@
  token inputs:texture:format = "angular" }
def SphereLight "C" { uniform bool collection:lightLink:includeRoot = 0
  pathExpression collection:lightLink:membershipExpression = "%_ + %:other" }
)");
  ASSERT_EQ(found.lights.problems.size(), 3u);
  EXPECT_EQ(found.lights.problems[0].text(), "/A: intensity is not finite");
  EXPECT_EQ(found.lights.problems[1].text(), "/B: its image is angular, not latlong");
  EXPECT_EQ(found.lights.problems[2].subject, "/C.collection:lightLink");
  for (const Problem& problem : found.lights.problems) {
    EXPECT_EQ(problem.kind, Problem::Kind::changedLight);
    EXPECT_EQ(problem.severity, Problem::Severity::note);
  }
}

TEST(SceneLights, AllKindsOfAFileWithEachOfThem) {
  requireSharedData("usd/materials/16_lights.usda");
  const auto stage = ovo::Stage::open(vela_test::sharedDataPath("usd/materials/16_lights.usda"));
  const MeshFilter filter;
  const MeshList list = listMeshes(*stage, filter).value();
  const SceneLights found = listLights(*stage, list, filter);
  EXPECT_EQ(found.lights.size(), 18u) << "all but portal, geometry, shapes and what is hidden";
  EXPECT_TRUE(found.problems.empty());
  for (const SceneLight& light : found.lights)
    EXPECT_EQ(light.lit != nullptr, light.prim.getName() == "Linked") << light.prim.getPath();
}

TEST(SceneLights, StoppedWorkEnds) {
  Work work;
  work.stop = [] { return true; };
  const auto stage = vela_test::stageOf("def SphereLight \"A\"\n{\n}\n");
  EXPECT_TRUE(listLights(*stage, MeshList(), MeshFilter(), work).lights.empty());
}

}  // namespace
