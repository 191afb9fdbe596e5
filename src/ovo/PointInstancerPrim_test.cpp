#include "ovo/PointInstancerPrim.h"

#include <gtest/gtest.h>

#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "ovo/detail/TestScene.h"
#include "support/SharedData.h"

namespace {

using ovo::PointInstancerPrim;
using Ids = ovo::Array<std::int64_t>;
using Mask = std::vector<bool>;

constexpr auto kBoth = PointInstancerPrim::inactiveOrInvisible;
constexpr auto kInactive = PointInstancerPrim::inactive;

PointInstancerPrim instancerOf(const std::string& metadata, const std::string& attributes) {
  return PointInstancerPrim(
      ovo_test::sceneOf("def PointInstancer \"I\" (" + metadata + ") {\n" + attributes + "\n}")
          ->getPrimAtPath("/I"));
}

TEST(PointInstancerPrim, OneOfNothingOrOfAnotherTypeIsNotValidAndHasNoMask) {
  const auto stage =
      ovo_test::sceneOf("def Mesh \"M\" (inactiveIds = [0]) {\nint[] protoIndices = [0]\n}");
  for (const PointInstancerPrim& prim :
       {PointInstancerPrim(), PointInstancerPrim(stage->getPrimAtPath("/M"))}) {
    Ids ids{7};
    EXPECT_FALSE(prim.isValid() || prim);
    EXPECT_FALSE(prim.getInactiveIds(ids));
    EXPECT_TRUE(ids.empty());
    EXPECT_FALSE(prim.setInactiveIds({1}));
    EXPECT_TRUE(prim.computeMask().empty());
  }
  EXPECT_FALSE(PointInstancerPrim::define(nullptr, "/I").isValid());
}

TEST(PointInstancerPrim, WithoutListsNothingIsTakenAway) {
  const PointInstancerPrim prim = instancerOf("", "int[] protoIndices = [0, 0]");
  Ids ids{7};
  EXPECT_FALSE(prim.getInactiveIds(ids));
  EXPECT_TRUE(ids.empty());
  EXPECT_TRUE(prim.computeMask().empty());
}

TEST(PointInstancerPrim, WithoutIdsPlacesCount) {
  const PointInstancerPrim prim =
      instancerOf("inactiveIds = [2, 0]", "int[] protoIndices = [0, 0, 0, 0]");
  Ids ids;
  EXPECT_TRUE(prim.getInactiveIds(ids));
  EXPECT_EQ(ids, (Ids{2, 0}));
  EXPECT_EQ(prim.computeMask(), (Mask{false, true, false, true}));
}

TEST(PointInstancerPrim, IdsNameInstances) {
  const PointInstancerPrim prim = instancerOf(
      "inactiveIds = [12]", "int[] protoIndices = [0, 0, 0]\nint64[] ids = [12, 13, 12]");
  EXPECT_EQ(prim.computeMask(), (Mask{false, true, false})) << "two with the same id both go";
}

TEST(PointInstancerPrim, IdsOfAnotherCountNameNothing) {
  const PointInstancerPrim prim = instancerOf(
      "inactiveIds = [1, 12]", "int[] protoIndices = [0, 0, 0]\nint64[] ids = [12, 13]");
  EXPECT_EQ(prim.computeMask(), (Mask{true, false, true}));
}

TEST(PointInstancerPrim, IdsThatNoInstanceHasArePassedOver) {
  const PointInstancerPrim prim =
      instancerOf("inactiveIds = [-1, 9223372036854775807, 3]", "int[] protoIndices = [0, 0, 0]");
  EXPECT_TRUE(prim.computeMask().empty());
}

TEST(PointInstancerPrim, BothReasonsTakeAway) {
  const PointInstancerPrim prim = instancerOf(
      "inactiveIds = [1]", "int[] protoIndices = [0, 0, 0, 0]\nint64[] invisibleIds = [1, 3]");
  EXPECT_EQ(prim.computeMask(1.0), (Mask{true, false, true, false}));
  EXPECT_EQ(prim.computeMask(1.0, kInactive), (Mask{true, false, true, true}));
}

TEST(PointInstancerPrim, InvisibleIdsAreThoseOfTheTime) {
  const PointInstancerPrim prim =
      instancerOf("",
                  "int[] protoIndices = [0, 0]\nint64[] invisibleIds.timeSamples = {\n1: [0],\n2: "
                  "[],\n3: [1]\n}");
  EXPECT_EQ(prim.computeMask(1.5), (Mask{false, true}));
  EXPECT_TRUE(prim.computeMask(2.0).empty());
  EXPECT_EQ(prim.computeMask(3.0), (Mask{true, false}));
  EXPECT_EQ(prim.computeMask(), (Mask{false, true})) << "no time: the first sample";
  EXPECT_TRUE(prim.computeMask(1.5, kInactive).empty());
}

TEST(PointInstancerPrim, ListsOfInactiveIdsAddUpFromWeakToStrong) {
  const ovo_test::TemporaryFolder folder;
  folder.writeScene(
      "weak.usda",
      "#usda 1.0\n(\ndefaultPrim = \"I\"\n)\n"
      "def PointInstancer \"I\" (inactiveIds = [5, 6, 7]) {\nint[] protoIndices = [0]\n}");
  folder.writeScene(
      "middle.usda",
      "#usda 1.0\nover \"I\" (\nprepend inactiveIds = [1]\nappend inactiveIds = [9, 5]\n) {}");
  const std::string strong =
      "#usda 1.0\n(\nsubLayers = [@middle.usda@]\n)\nover \"I\" (\nreferences = @weak.usda@\n";
  const auto composed = [&](const std::string& own) {
    const auto stage = ovo::Stage::open(folder.writeScene("strong.usda", strong + own + ") {}"));
    Ids ids;
    EXPECT_TRUE(stage && PointInstancerPrim(stage->getPrimAtPath("/I")).getInactiveIds(ids));
    return ids;
  };
  EXPECT_EQ(composed(""), (Ids{1, 6, 7, 9, 5}));
  EXPECT_EQ(composed("delete inactiveIds = [7, 1, 100]\n"), (Ids{6, 9, 5}));
  EXPECT_EQ(composed("inactiveIds = [4]\n"), (Ids{4}));
  EXPECT_EQ(composed("inactiveIds = None\n"), (Ids{}));
}

TEST(PointInstancerPrim, WrittenInactiveIdsReplaceAllOthers) {
  const auto stage = ovo::Stage::createInMemory();
  const PointInstancerPrim prim = PointInstancerPrim::define(stage, "/I");
  ASSERT_TRUE(prim.isValid());
  prim.createAttr(ovo::tokens().protoIndices, "int[]").set(ovo::Array<int>{0, 0, 0});
  EXPECT_TRUE(prim.setInactiveIds({2, 0, 2}));
  Ids ids;
  EXPECT_TRUE(prim.getInactiveIds(ids));
  EXPECT_EQ(ids, (Ids{2, 0})) << "each once";
  EXPECT_EQ(prim.computeMask(), (Mask{false, true, false}));

  // And they are in the file.
  const ovo_test::TemporaryFolder folder;
  for (const char* name : {"a.usda", "a.usdc"}) {
    ASSERT_TRUE(stage->exportTo(folder.path(name)));
    const auto again = ovo::Stage::open(folder.path(name));
    ASSERT_NE(again, nullptr);
    const PointInstancerPrim read(again->getPrimAtPath("/I"));
    EXPECT_TRUE(read.getInactiveIds(ids));
    EXPECT_EQ(ids, (Ids{2, 0})) << name;
    EXPECT_TRUE(read.setInactiveIds({}));
    EXPECT_TRUE(read.getInactiveIds(ids));
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(read.computeMask().empty());
  }
}

// What shows is drawn in a comment of the scene: one is inactive, others invisible, and ids change
// places.
TEST(PointInstancerPrim, ASceneOfMaskedInstancesShowsThoseItSays) {
  requireSharedData("usd/openusd_testenv/point_instancer/pi_masking.usda");
  const auto stage = ovo::Stage::open(
      vela_test::sharedDataPath("usd/openusd_testenv/point_instancer/pi_masking.usda"));
  ASSERT_NE(stage, nullptr);
  const PointInstancerPrim prim(stage->getPrimAtPath("/Instancer"));
  ASSERT_TRUE(prim.isValid());
  EXPECT_EQ(prim.computeMask(0), (Mask{true, true, true, false, true}));
  EXPECT_EQ(prim.computeMask(1), (Mask{false, true, true, false, true}));
  EXPECT_EQ(prim.computeMask(2), (Mask{true, false, true, true, false}));
  EXPECT_EQ(prim.computeMask(3), (Mask{true, false, true, true, true}));
  EXPECT_EQ(prim.computeMask(4), (Mask{true, true, true, false, true}));
  EXPECT_EQ(prim.computeMask(1, kInactive), (Mask{true, true, true, false, true}));
  EXPECT_EQ(prim.computeMask(2, kBoth), prim.computeMask(2));
}

}  // namespace
