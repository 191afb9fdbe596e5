// Why a ray meets what it meets, in a scene of one case each.
#include "vela/scene/ExplainRay.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "support/TextStage.h"

namespace {

using namespace vela::scene;
using vela_test::at;
using vela_test::squareText;

class ExplainRay : public testing::Test {
 protected:
  // Squares above one another, at the heights of their names; a ray from above.
  const std::shared_ptr<ovo::Stage> stage_ = vela_test::stageOf(
      squareText("H9", at(0, 0, 9) + " uniform token purpose = \"guide\"\n") +
      squareText("H8", at(0, 0, 8) + " token visibility = \"invisible\"\n") +
      squareText("H7", at(0, 0, 7)) + squareText("H6", at(0, 0, 6)) +
      squareText("H5", at(0, 0, 5)) + squareText("Aside", at(9, 0, 3)) +
      "def Cube \"Box\"\n{\n double size = 2\n}\n"
      "def Mesh \"Flat\"\n{\n int[] faceVertexCounts = [3]\n int[] faceVertexIndices = [0, 1, 1]\n"
      " point3f[] points = [(-1, -1, -3), (1, 1, -3)]\n"
      " uniform token subdivisionScheme = \"none\"\n}\n"
      "def Mesh \"Empty\"\n{\n}\n"
      "def Mesh \"Corner\"\n{\n int[] faceVertexCounts = [3]\n int[] faceVertexIndices = [0, 1, "
      "2]\n"
      " point3f[] points = [(-1, -1, -4), (1, -1, -4), (1, 1, -4)]\n"
      " uniform token subdivisionScheme = \"none\"\n}\n"
      "def NurbsCurves \"Wire\"\n{\n}\n"
      "def BasisCurves \"Hair\"\n{\n uniform token type = \"linear\"\n"
      " int[] curveVertexCounts = [2, 2]\n float[] widths = [0.5]\n"
      " point3f[] points = [(-9, 9, -5), (9, 9, -5), (-9, 0.5, -5), (9, 0.5, -5)]\n}\n");
  WorldRay ray_;

  void SetUp() override {
    ray_.base = {-0.5, 0.5, 20.0};
    ray_.direction = {0.0f, 0.0f, -1.0f};
  }

  std::string told(const MeshFilter& filter, const char* name, bool withCulled = false) {
    const RayExplanation why = explainRay(*stage_, filter, ray_, withCulled).value();
    for (const RayItem& item : why.items)
      if (item.name == name)
        return std::string(wordOf(item.hiddenBy)) + "|" + wordOf(item.tracer.verdict) + "|" +
               wordOf(item.detector.verdict);
    return "not listed";
  }
};

TEST_F(ExplainRay, EachMeshHasItsReasonByBothEngines) {
  MeshFilter filter;
  filter.excludedPaths = {ovo::Path("/H7")};
  const std::map<std::string, std::string> expected = {
      {"/H9", "purpose|shows|shows"},      {"/H8", "visibility|shows|shows"},
      {"/H7", "exclude|shows|shows"},      {"/H6", "|shows|shows"},
      {"/H5", "|behind|behind"},           {"/Box", "|behind|not taken"},
      {"/Flat", "|degenerate|degenerate"}, {"/Empty", "|degenerate|degenerate"},
      {"/Corner", "|missed|missed"},       {"/Aside", "not listed"},
      {"/Hair", "|behind|not taken"},
  };
  for (const auto& [name, words] : expected) EXPECT_EQ(told(filter, name.c_str()), words) << name;
  EXPECT_EQ(told(filter, "/Aside", true), "|culled|culled");
}

TEST_F(ExplainRay, MasksAndTypesAreReasonsToo) {
  MeshFilter filter;
  filter.maskPaths = {ovo::Path("/H5")};
  EXPECT_EQ(told(filter, "/H6"), "mask|shows|shows");
  EXPECT_EQ(told(filter, "/H5"), "|shows|shows");
  filter.maskPaths.clear();
  filter.includedTypes = {"Cube"};
  EXPECT_EQ(told(filter, "/H6"), "type|shows|shows");
  EXPECT_EQ(told(filter, "/Box"), "|shows|not taken");
}

TEST_F(ExplainRay, WhatLiesOutsideTheRaysRangeIsClipped) {
  ray_.minDistance = 13.5f;
  ray_.maxDistance = 14.5f;
  EXPECT_EQ(told({}, "/H7"), "|clipped|clipped");
  EXPECT_EQ(told({}, "/H6"), "|shows|shows");
  EXPECT_EQ(told({}, "/H5"), "|clipped|clipped");
}

TEST_F(ExplainRay, ItemsComeByDistanceWithTheirFaces) {
  const RayExplanation why = explainRay(*stage_, {}, ray_, false).value();
  double last = 0.0;
  for (const RayItem& item : why.items) {
    if (item.tracer.face < 0) break;
    EXPECT_GE(item.tracer.distance, last);
    last = item.tracer.distance;
  }
  EXPECT_EQ(why.items[0].name, "/H9");
  EXPECT_NEAR(why.items[0].tracer.distance, 11.0, 1e-6);
  EXPECT_EQ(why.items[0].tracer.face, 0);
  EXPECT_EQ(why.culled, 1u);
  // A curve is a face.
  for (const RayItem& item : why.items)
    if (item.name == "/Hair") {
      EXPECT_EQ(item.tracer.face, 1);
    }
  ASSERT_EQ(why.withoutFaces.size(), 1u);
  EXPECT_EQ(why.withoutFaces[0], "/Wire");
}

TEST_F(ExplainRay, StoppedWorkGivesNothing) {
  Work work;
  work.stop = [] { return true; };
  EXPECT_FALSE(explainRay(*stage_, {}, ray_, false, work));
}

}  // namespace
