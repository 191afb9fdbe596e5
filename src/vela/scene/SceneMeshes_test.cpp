// Which meshes of a scene show, what they are called and how far they reach.
#include "vela/scene/SceneMeshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "support/TextStage.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/ScenePrims.h"

namespace {

using namespace vela::scene;
using tarn::Vec3d;
using vela_test::at;
using vela_test::squareText;
using vela_test::stageOf;
using Words = std::vector<std::string>;

Words namesOf(const std::shared_ptr<ovo::Stage>& stage, const MeshFilter& filter = {}) {
  const MeshList list = listMeshes(*stage, filter).value();
  Words names;
  for (std::size_t i = 0; i < list.entries.size(); ++i) names.push_back(nameOf(list, i));
  return names;
}

TEST(SceneMeshes, TheFilterSaysWhatShows) {
  const auto stage = stageOf(
      squareText("Plain") + squareText("Hidden", " token visibility = \"invisible\"\n") +
      squareText("Proxy", " uniform token purpose = \"proxy\"\n") +
      squareText("Guide", " uniform token purpose = \"guide\"\n") +
      squareText("Final", " uniform token purpose = \"render\"\n") + "def Sphere \"Ball\"\n{\n}\n" +
      "def Xform \"Group\"\n{\n" + squareText("Inner") + "}\n");
  EXPECT_EQ(namesOf(stage), (Words{"/Plain", "/Final", "/Ball", "/Group/Inner"}));

  MeshFilter filter;
  filter.withInvisible = true;
  EXPECT_EQ(namesOf(stage, filter),
            (Words{"/Plain", "/Hidden", "/Final", "/Ball", "/Group/Inner"}));
  filter = {};
  filter.purposes = {Purpose::proxy, Purpose::guide};
  EXPECT_EQ(namesOf(stage, filter), (Words{"/Proxy", "/Guide"}));
  filter.purposes = {};
  EXPECT_EQ(namesOf(stage, filter), Words{});
  filter = {};
  filter.includedTypes = {"Sphere"};
  EXPECT_EQ(namesOf(stage, filter), Words{"/Ball"});
  filter = {};
  filter.excludedPaths = {ovo::Path("/Group"), ovo::Path("/Plain"), ovo::Path("/Nothing")};
  EXPECT_EQ(namesOf(stage, filter), (Words{"/Final", "/Ball"}));
}

TEST(SceneMeshes, InstancesAreNamedByTheirIndicesTheOutermostFirst) {
  const auto stage = stageOf(
      "def PointInstancer \"Many\"\n{\n"
      " rel prototypes = [</Many/Proto>, </Library>, </Many/Few>]\n"
      " int[] protoIndices = [0, 1, 2, 7]\n"
      " point3f[] positions = [(0,0,0), (5,0,0), (9,0,0), (0,0,0)]\n" +
      squareText("Proto") +
      "def PointInstancer \"Few\"\n{\n rel prototypes = </Many/Few/Leaf>\n"
      " int[] protoIndices = [0, 0]\n point3f[] positions = [(0,1,0), (0,2,0)]\n" +
      squareText("Leaf") + "}\n}\n" + "over \"Library\"\n{\n" + squareText("Shelf") + "}\n");
  const MeshList list = listMeshes(*stage, MeshFilter()).value();
  Words names;
  for (std::size_t i = 0; i < list.entries.size(); ++i) names.push_back(nameOf(list, i));
  EXPECT_EQ(names, (Words{"/Many/Proto[0]", "/Library/Shelf[/Many 1]", "/Many/Few/Leaf[2][0]",
                          "/Many/Few/Leaf[2][1]"}));
  EXPECT_EQ(list.shapes.size(), 3u) << "the leaf's shape is read once";
  EXPECT_EQ(list.entries[3].worldFromObject.transformPoint({0, 0, 0}), Vec3d(9, 2, 0));

  ASSERT_EQ(list.badInstances, 1u);
  ASSERT_EQ(list.problems().size(), 1u);
  EXPECT_EQ(list.problems()[0].kind, Problem::Kind::badInstances);
  EXPECT_EQ(list.problems()[0].severity, Problem::Severity::note);
  EXPECT_EQ(list.problems()[0].count, 1u);
}

TEST(SceneMeshes, WhatCannotBeShownIsCountedByType) {
  const auto stage = stageOf("def TetMesh \"A\"\n{\n}\ndef TetMesh \"B\"\n{\n}\n" +
                             squareText("Square") + "def Volume \"C\"\n{\n}\n");
  const MeshList list = listMeshes(*stage, MeshFilter()).value();
  EXPECT_EQ(list.entries.size(), 1u);
  ASSERT_EQ(list.problems().size(), 2u);
  EXPECT_EQ(list.problems()[0].text(), "TetMesh: prims of this type cannot be shown");
  EXPECT_EQ(list.problems()[0].count, 2u);
  EXPECT_EQ(list.problems()[1].subject, "Volume");
}

TEST(SceneMeshes, MoreInstancesThanMemoryHoldsAreRefused) {
  // 220 times 220 times 220 instances of nothing.
  std::string indices, positions, open, close;
  for (int i = 0; i < 220; ++i) {
    indices += i ? ", 0" : "0";
    positions += i ? ", (0,0,0)" : "(0,0,0)";
  }
  std::string path;
  for (const std::string name : {"A", "B", "C"}) {
    path += "/" + name;
    open += "def PointInstancer \"" + name + "\"\n{\n rel prototypes = <" + path + "/" +
            (name == "A"   ? "B"
             : name == "B" ? "C"
                           : "Leaf") +
            ">\n int[] protoIndices = [" + indices + "]\n point3f[] positions = [" + positions +
            "]\n";
    close += "}\n";
  }
  const auto stage = stageOf(open + "def Xform \"Leaf\"\n{\n}\n" + close);
  Problem problem;
  EXPECT_FALSE(listMeshes(*stage, MeshFilter(), &problem));
  EXPECT_EQ(problem.kind, Problem::Kind::tooManyInstances);
  EXPECT_EQ(problem.text(), "/A/B/C: there are more than 10000000");
  EXPECT_FALSE(listMeshes(*stage, MeshFilter())) << "also without a record for the reason";
}

TEST(SceneExtent, PlainMeshesCountByTheirPointsInstancesByTheirBoxes) {
  const auto empty = listMeshes(*stageOf(""), MeshFilter()).value();
  EXPECT_TRUE(extentOf(empty).box.isEmpty());
  EXPECT_TRUE(extentOf(empty).outermost.empty());
  EXPECT_EQ(extentOf(empty).center(), Vec3d());

  // Turned by 45 degrees a square is wider, but its corners say how wide; an instance's box,
  // turned, reaches as far here since the square fills its box.
  const std::string turn =
      " float xformOp:rotateZ = 45\n uniform token[] xformOpOrder = [\"xformOp:rotateZ\"]\n";
  const Extent plain = extentOf(listMeshes(*stageOf(squareText("A", turn)), MeshFilter()).value());
  EXPECT_NEAR(plain.box.max.x, std::sqrt(2.0), 1e-12);
  EXPECT_EQ(plain.outermost.size(), 98u);

  const Extent broken =
      extentOf(listMeshes(*stageOf("def Mesh \"M\"\n{\n int[] faceVertexCounts = [3]\n"
                                   " int[] faceVertexIndices = [0, 1, 2]\n"
                                   " point3f[] points = [(1,2,3), (nan,0,0), (4,5,inf)]\n}\n"),
                          MeshFilter())
                   .value());
  EXPECT_EQ(broken.box.min, Vec3d(1, 2, 3));
  EXPECT_EQ(broken.box.max, Vec3d(1, 2, 3));

  const Extent instance =
      extentOf(listMeshes(*stageOf("def PointInstancer \"Many\"\n{\n rel prototypes = </Many/P>\n"
                                   " int[] protoIndices = [0]\n point3f[] positions = [(10,0,0)]\n"
                                   "def Mesh \"P\"\n{\n int[] faceVertexCounts = [3]\n"
                                   " int[] faceVertexIndices = [0, 1, 2]\n"
                                   " point3f[] points = [(0,0,0), (2,0,0), (0,3,0)]\n}\n}\n"),
                          MeshFilter())
                   .value());
  EXPECT_EQ(instance.box.max, Vec3d(12, 3, 0));
  // Along +x +y the box's corner is farthest, though the triangle has no point there.
  bool hasCorner = false;
  for (const Vec3d& p : instance.outermost) hasCorner |= p == Vec3d(12, 3, 0);
  EXPECT_TRUE(hasCorner);
}

TEST(SceneMeshes, ProgressRisesToOneOverNestedPrimsInstancersAndRefinement) {
  const auto stage = stageOf(
      "def Xform \"A\"\n{\n def Xform \"B\"\n {\n }\n def Xform \"C\"\n {\n  def Xform \"D\"\n  "
      "{\n  }\n }\n}\n"
      "def PointInstancer \"Many\"\n{\n def Xform \"Inner\"\n {\n }\n}\n"
      "def Xform \"LeftOut\"\n{\n}\n");
  for (const int level : {0, 1}) {
    MeshFilter filter;
    filter.excludedPaths = {ovo::Path("/LeftOut")};
    filter.subdivisionLevel = level;
    std::vector<double> shares;
    Work work;
    work.progress = [&](double share) { shares.push_back(share); };
    const std::optional<MeshList> list = listMeshes(*stage, filter, nullptr, work);
    ASSERT_TRUE(list);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_EQ(shares.back(), 1.0);
    // Three prims beside one another: each that is done counts a third of the walk, and of that the
    // two below A count a half each.
    const double walk = level == 0 ? 1.0 : 0.5;
    ASSERT_GE(shares.size(), 4u);
    EXPECT_DOUBLE_EQ(shares[0], walk / 6);
    EXPECT_DOUBLE_EQ(shares[1], walk / 3);
    EXPECT_DOUBLE_EQ(shares[2], walk * 2 / 3);
    EXPECT_DOUBLE_EQ(shares[3], walk);
  }
}

TEST(SceneExtent, ProgressRisesToOne) {
  std::vector<double> shares;
  Work work;
  work.progress = [&](double share) { shares.push_back(share); };
  EXPECT_TRUE(extentOf(MeshList(), work).box.isEmpty());
  EXPECT_EQ(shares, std::vector<double>{1.0});
}

TEST(ScenePrims, TheWalkGoesWhereItIsToldAndStops) {
  const auto stage = stageOf(
      "def Xform \"A\"\n{\n def Xform \"B\"\n {\n }\n}\n"
      "def Camera \"C\"\n{\n}\n"
      "def PointInstancer \"Many\"\n{\n def Camera \"Inner\"\n {\n }\n}\n");
  Words seen;
  EXPECT_TRUE(forEachPrim(*stage, [&](const ovo::Prim& prim) {
    seen.push_back(prim.getPath().asString());
    return prim.getName() != ovo::Token("A");
  }));
  EXPECT_EQ(seen, (Words{"/", "/A", "/C", "/Many", "/Many/Inner"}));

  int visits = 0;
  Work work;
  work.stop = [&] { return visits == 2; };
  EXPECT_FALSE(forEachPrim(
      *stage, [&](const ovo::Prim&) { return ++visits > 0; }, work));
  EXPECT_EQ(visits, 2);

  ASSERT_EQ(listCameras(*stage).size(), 1u);
  EXPECT_EQ(listCameras(*stage)[0].getPath().asString(), "/C");
}

TEST(SceneMeshes, AMaskLeavesNothingButItsPrimsAndWhatIsBelow) {
  const auto stage = vela_test::stageOf(
      "def Xform \"A\"\n{\n" + vela_test::squareText("One") + vela_test::squareText("OneMore") +
      "}\ndef Mesh \"B\"\n{\n" + vela_test::squareText("Inside") + "}\n" +
      "def PointInstancer \"Many\"\n{\n int[] protoIndices = [0]\n"
      " point3f[] positions = [(0, 0, 0)]\n rel prototypes = </Library/Leaf>\n}\n"
      "def Scope \"Library\"\n{\n" +
      vela_test::squareText("Leaf") + "}\n");
  const auto names = [&](const std::vector<ovo::Path>& mask) {
    MeshFilter filter;
    filter.maskPaths = mask;
    const MeshList list = listMeshes(*stage, filter).value();
    std::string text;
    for (std::size_t i = 0; i < list.entries.size(); ++i) text += nameOf(list, i) + " ";
    return text;
  };
  EXPECT_EQ(names({ovo::Path("/A")}), "/A/One /A/OneMore ");
  EXPECT_EQ(names({ovo::Path("/A/One")}), "/A/One ");  // no prefix of a name
  EXPECT_EQ(names({ovo::Path("/B/Inside"), ovo::Path("/A/One")}), "/A/One /B/Inside ");
  EXPECT_EQ(names({ovo::Path("/Many")}), "/Library/Leaf[/Many 0] ");
  EXPECT_EQ(names({ovo::Path("/None")}), "");
}

TEST(ScenePrims, CamerasAreFoundByPathNameOrPart) {
  const auto stage = vela_test::stageOf(R"(def Xform "Rig"
{
 def Camera "Left"
 {
 }
 def Camera "Right"
 {
 }
}
def Camera "LeftOver"
{
}
)");
  const auto names = [&](const char* text) {
    std::string all;
    for (const ovo::CameraPrim& camera : findCameras(*stage, text))
      all += camera.getPath().asString() + " ";
    return all;
  };
  EXPECT_EQ(names("/Rig/Right"), "/Rig/Right ");
  EXPECT_EQ(names("Left"), "/Rig/Left ");  // the whole name goes before a part of one
  EXPECT_EQ(names("Over"), "/LeftOver ");
  EXPECT_EQ(names("Rig/"), "/Rig/Left /Rig/Right ");
  EXPECT_EQ(names("left"), "");
  EXPECT_EQ(names(""), "");
}

}  // namespace
