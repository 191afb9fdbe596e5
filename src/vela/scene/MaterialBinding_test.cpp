// Materials of prims and of parts of meshes, held against what OpenUSD says about scenes made for
// each rule and about real ones.
#include "vela/scene/MaterialBinding.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ovo/PropertyLinks.h"
#include "support/SharedData.h"
#include "support/TextStage.h"

namespace {

using nlohmann::json;
using namespace vela::scene;
using vela_test::squareText;
using vela_test::stageOf;

std::string pathOf(const MaterialBinding& binding) {
  return binding.material.isValid() ? binding.material.getPath().asString() : "";
}
std::string textOf(const json& value) {
  return value.is_null() ? std::string() : value.get<std::string>();
}

// The expected material of a purpose, which is that of all purposes where it is not given.
std::string expectedOf(const json& entry, const char* purpose) {
  return textOf(entry.contains(purpose) ? entry[purpose] : entry["allPurpose"]);
}

class BindingOracle : public testing::TestWithParam<const char*> {};

TEST_P(BindingOracle, EveryPrimAndSubsetHasTheMaterialThatItShould) {
  requireSharedData("usd/oracle-materials");
  std::ifstream in(
      vela_test::sharedDataPath(std::string("usd/oracle-materials/") + GetParam() + ".json"));
  const json oracle = json::parse(in);
  std::size_t compared = 0, scenes = 0;
  for (const auto& [name, scene] : oracle["scenes"].items()) {
    if (!scene.contains("geometry")) continue;
    SCOPED_TRACE(name);
    const auto stage = ovo::Stage::open(vela_test::sharedDataPath("usd/" + name));
    ASSERT_TRUE(stage);
    ++scenes;
    MaterialFinder all(*stage, MaterialPurpose::all), full(*stage),
        preview(*stage, MaterialPurpose::preview);
    const auto check = [&](const json& entry) {
      const ovo::Prim prim = stage->getPrimAtPath(entry["path"].get<std::string>());
      SCOPED_TRACE(entry["path"].get<std::string>());
      ASSERT_TRUE(prim.isValid());
      const MaterialBinding found = all.find(prim);
      EXPECT_EQ(pathOf(found), textOf(entry["allPurpose"]));
      EXPECT_EQ(found.relationship.asString(), entry.value("by", ""));
      EXPECT_EQ(pathOf(full.find(prim)), expectedOf(entry, "full"));
      EXPECT_EQ(pathOf(preview.find(prim)), expectedOf(entry, "preview"));
      compared += 3;
    };
    for (const json& entry : scene["geometry"]) {
      check(entry);
      const json wanted = entry.value("subsets", json::array());
      const std::vector<MaterialSubset> subsets =
          materialSubsets(stage->getPrimAtPath(entry["path"].get<std::string>()));
      std::size_t at = 0;
      for (const json& subset : wanted) {
        check(subset);
        if (subset["elementType"] != "face") continue;
        ASSERT_LT(at, subsets.size());
        EXPECT_EQ(subsets[at].prim.getPath().asString(), subset["path"].get<std::string>());
        // OpenUSD reads no samples at the default time; here the first one counts.
        auto indices = subset["indices"].get<std::vector<int>>();
        if (subset.contains("at")) indices = subset["at"].begin()->get<std::vector<int>>();
        EXPECT_EQ(std::vector<int>(subsets[at].faces.cbegin(), subsets[at].faces.cend()), indices);
        ++at;
      }
      EXPECT_EQ(at, subsets.size());
    }
  }
  EXPECT_GT(scenes, 20u);
  EXPECT_GT(compared, 150u);
}

INSTANTIATE_TEST_SUITE_P(All, BindingOracle,
                         testing::Values("own", "scenes", "openusd_testenv", "usdwg_test_assets"),
                         [](const auto& file) { return std::string(file.param); });

const std::string kLooks =
    "def Scope \"Looks\"\n{\n def Material \"Red\"\n {\n }\n def Material \"Blue\"\n {\n }\n}\n";

TEST(MaterialBinding, FacesOfNoSubsetHaveTheMeshsOwnAndLaterSubsetsGoFirst) {
  const auto subset = [](const std::string& name, const std::string& indices,
                         const std::string& more) {
    return " def GeomSubset \"" + name + "\"\n {\n  int[] indices = " + indices +
           "\n  uniform token familyName = \"materialBind\"\n" + more + " }\n";
  };
  const auto stage = stageOf(
      kLooks +
      "def Mesh \"Row\"\n{\n int[] faceVertexCounts = [3, 3, 3, 3]\n"
      " int[] faceVertexIndices = [0,1,2, 0,1,2, 0,1,2, 0,1,2]\n"
      " point3f[] points = [(0,0,0), (1,0,0), (0,1,0)]\n rel material:binding = </Looks/Red>\n" +
      subset("a", "[1, 2, 99, -1]", "  rel material:binding = </Looks/Blue>\n") +
      subset("b", "[2]", "  rel material:binding = </Looks/Nowhere>\n") + "}\n");
  const MeshList list = listMeshes(*stage, {}).value();
  const SceneMaterials found = findMaterials(*stage, list, MaterialPurpose::full);
  ASSERT_EQ(found.entries.size(), 1u);
  ASSERT_EQ(found.materials.size(), 2u);
  EXPECT_EQ(found.materials[0].getPath(), ovo::Path("/Looks/Red"));
  EXPECT_EQ(found.materials[1].getPath(), ovo::Path("/Looks/Blue"));
  const EntryMaterials& row = found.entries[0];
  EXPECT_EQ(row.of(0), 0u);
  EXPECT_EQ(row.of(1), 1u);
  EXPECT_EQ(row.of(2), kNoMaterial);
  EXPECT_EQ(row.of(3), 0u);
  EXPECT_EQ(row.of(-1), 0u);
  EXPECT_EQ(row.of(1000), 0u);
}

TEST(MaterialBinding, InstancesShareTheirMaterialsAndEqualOnesOfOtherFilesDoNot) {
  const auto stage = stageOf(
      "class \"Asset\"\n{\n def Material \"Paint\"\n {\n  color3f inputs:c = (1, 0, 0)\n }\n" +
      squareText("Geo", " rel material:binding = </Asset/Paint>\n") + "}\n" +
      "def Xform \"A\" (inherits = </Asset>; instanceable = true)\n{\n}\n" +
      "def Xform \"B\" (inherits = </Asset>; instanceable = true)\n{\n}\n" +
      "def Xform \"C\" (inherits = </Asset>)\n{\n over \"Paint\"\n {\n"
      "  color3f inputs:c = (0, 1, 0)\n }\n}\n");
  const MeshList list = listMeshes(*stage, {}).value();
  ASSERT_EQ(list.entries.size(), 3u);
  const SceneMaterials found = findMaterials(*stage, list, MaterialPurpose::full);
  ASSERT_EQ(found.materials.size(), 2u);
  EXPECT_EQ(found.materials[0].getPath(), ovo::Path("/A/Paint"));
  EXPECT_EQ(found.materials[1].getPath(), ovo::Path("/C/Paint"));
  EXPECT_EQ(found.entries[0].whole, 0u);
  EXPECT_EQ(found.entries[1].whole, 0u);
  EXPECT_EQ(found.entries[2].whole, 1u);
}

TEST(MaterialBinding, AnInstancersOwnBindingReachesPrototypesThatLieBelowIt) {
  const auto stage =
      stageOf(kLooks +
              "def PointInstancer \"Many\"\n{\n rel material:binding = </Looks/Red>\n"
              " rel prototypes = [</Many/Own>, </Other>]\n int[] protoIndices = [0, 1, 0]\n"
              " point3f[] positions = [(0,0,0), (3,0,0), (6,0,0)]\n" +
              squareText("Own") + "}\n" + "over \"Other\"\n{\n def Xform \"Geo\"\n {\n" +
              squareText("Leaf") + " }\n}\n");
  const MeshList list = listMeshes(*stage, {}).value();
  const SceneMaterials found = findMaterials(*stage, list, MaterialPurpose::full);
  ASSERT_EQ(found.entries.size(), 3u);
  EXPECT_EQ(found.entries[0].whole, 0u);
  EXPECT_EQ(found.entries[1].whole, kNoMaterial);
  EXPECT_EQ(found.entries[2].whole, 0u);
}

TEST(MaterialBinding, CollectionsThatNameEachOtherEnd) {
  const std::string bind =
      " rel material:binding:collection:x = [</Looks/Red>, </World.collection:";
  const auto stage =
      stageOf(kLooks +
              "def Xform \"World\" (apiSchemas = [\"CollectionAPI:a\", \"CollectionAPI:b\"])\n{\n"
              " rel collection:a:includes = [</World.collection:b>, </World/In>]\n"
              " rel collection:b:includes = [</World.collection:a>, </World/Also>]\n" +
              bind + "a>]\n" + squareText("In") + squareText("Also") + squareText("Out") + "}\n");
  MaterialFinder finder(*stage);
  EXPECT_EQ(pathOf(finder.find(stage->getPrimAtPath("/World/In"))), "/Looks/Red");
  EXPECT_EQ(pathOf(finder.find(stage->getPrimAtPath("/World/Also"))), "/Looks/Red");
  EXPECT_EQ(pathOf(finder.find(stage->getPrimAtPath("/World/Out"))), "");
  EXPECT_TRUE(finder.problems().empty());
}

TEST(MaterialBinding, CollectionsThatMultiplyAreLeftOutAndNamed) {
  // Each names the next one twice: 2^60 when read to the end, but for what is kept; within a cycle
  // nothing is.
  std::string schemas, rules;
  constexpr int kCount = 60;
  for (int i = 0; i < kCount; ++i) {
    const std::string own = "c" + std::to_string(i), next = "c" + std::to_string((i + 1) % kCount);
    schemas += (i ? ", \"CollectionAPI:" : "\"CollectionAPI:") + own + "\"";
    rules += " rel collection:" + own + ":includes = [</W.collection:" + next + ">, </W/" + own +
             ">, </W.collection:c" + std::to_string((i + 2) % kCount) + ">]\n";
  }
  const auto stage =
      stageOf(kLooks + "def Xform \"W\" (apiSchemas = [" + schemas + "])\n{\n" + rules +
              " rel material:binding:collection:x = [</Looks/Red>, "
              "</W.collection:c0>]\n" +
              squareText("c0") + squareText("Out") + "}\n");
  MaterialFinder finder(*stage);
  EXPECT_EQ(pathOf(finder.find(stage->getPrimAtPath("/W/c0"))), "/Looks/Red");
  EXPECT_EQ(pathOf(finder.find(stage->getPrimAtPath("/W/Out"))), "");
  ASSERT_EQ(finder.problems().size(), 1u);
  EXPECT_EQ(finder.problems()[0].subject, "/W.collection:c0");
}

TEST(MaterialBinding, ACollectionByAnExpressionHasTheMembersThatMatch) {
  const auto world = [](const std::string& expression) {
    return stageOf(
        kLooks +
        "def Xform \"World\" (apiSchemas = [\"CollectionAPI:all\"])\n{\n"
        " uniform pathExpression collection:all:membershipExpression = \"" +
        expression +
        "\"\n rel material:binding:collection:all = [</Looks/Red>, </World.collection:all>]\n" +
        squareText("In") + squareText("Out") + "}\n");
  };
  const auto matched = world("//{isa:Gprim} - Out");
  MaterialFinder finder(*matched);
  EXPECT_EQ(pathOf(finder.find(matched->getPrimAtPath("/World/In"))), "/Looks/Red");
  EXPECT_EQ(pathOf(finder.find(matched->getPrimAtPath("/World/Out"))), "");
  EXPECT_TRUE(finder.problems().empty());

  for (const char* expression : {"//{nobodyKnowsThis}", "%/World:other"}) {
    const auto stage = world(expression);
    const MeshList list = listMeshes(*stage, {}).value();
    const SceneMaterials found = findMaterials(*stage, list, MaterialPurpose::full);
    EXPECT_EQ(found.entries[0].whole, kNoMaterial);
    ASSERT_EQ(found.problems.size(), 1u) << expression;
    EXPECT_EQ(found.problems[0].kind, Problem::Kind::notBound);
    EXPECT_EQ(found.problems[0].subject, "/World.collection:all");
  }
}

TEST(MaterialBinding, WhatIsNoPrimHasNone) {
  const auto stage = stageOf(kLooks);
  MaterialFinder finder(*stage);
  EXPECT_EQ(pathOf(finder.find(ovo::Prim())), "");
  EXPECT_EQ(pathOf(finder.find(stage->getRootPrim())), "");
  EXPECT_TRUE(materialSubsets(ovo::Prim()).empty());
}

}  // namespace
