// What a scene holds, of small scenes.
#include "vela/scene/SceneSummary.h"

#include <gtest/gtest.h>

#include <string>

#include "support/TextStage.h"

namespace {

using vela::scene::SceneSummary;
using vela::scene::summarize;

const char* const kScene = R"(
def Xform "World" (
    variants = { string look = "day" }
    prepend variantSets = "look"
)
{
    variantSet "look" = {
        "day" {
        }
        "night" {
        }
    }
    def DistantLight "Sun"
    {
    }
    def RectLight "Off"
    {
        token visibility = "invisible"
    }
    def Scope "Materials"
    {
        def Material "Red"
        {
            def Shader "A"
            {
                asset inputs:file = @./none.png@
            }
            def Shader "B"
            {
                asset inputs:file = @./none.png@
            }
        }
    }
    def PointInstancer "Many"
    {
        int[] protoIndices = [0, 0]
        point3f[] positions = [(10, 0, 0), (20, 0, 0)]
        rel prototypes = </World/Many/Leaf>
        def Cube "Leaf"
        {
            double size = 2
        }
    }
    def Xform "Deep"
    {
        def Xform "Deeper"
        {
            def Cube "Deepest"
            {
                double size = 2
            }
        }
    }
}
)";

TEST(SceneSummary, HasTreeBoxesVariantsLightsTexturesAndInstances) {
  const auto stage = vela_test::stageOf(kScene);
  const SceneSummary summary = summarize(*stage, {}).value();
  EXPECT_EQ(summary.box.min, tarn::Vec3d(-1, -1, -1));
  EXPECT_EQ(summary.box.max, tarn::Vec3d(21, 1, 1));

  std::string tree;
  for (const SceneSummary::Node& node : summary.tree)
    tree += node.path.asString() + " " + node.type + " " + std::to_string(node.below) + "\n";
  EXPECT_EQ(tree,
            "/World Xform 11\n/World/Sun DistantLight 0\n/World/Off RectLight 0\n"
            "/World/Materials Scope 3\n/World/Materials/Red Material 2\n"
            "/World/Many PointInstancer 1\n/World/Many/Leaf Cube 0\n/World/Deep Xform 2\n"
            "/World/Deep/Deeper Xform 1\n");
  EXPECT_EQ(summary.tree[0].box.max, tarn::Vec3d(21, 1, 1));
  EXPECT_EQ(summary.tree[5].box.min, tarn::Vec3d(9, -1, -1));  // where the instances stand
  EXPECT_TRUE(summary.tree[6].box.isEmpty());                  // a prototype stands nowhere itself
  EXPECT_EQ(summary.tree[8].box.max, tarn::Vec3d(1, 1, 1));    // of what is not listed

  ASSERT_EQ(summary.variants.size(), 1u);
  EXPECT_EQ(summary.variants[0].selected, "day");
  EXPECT_EQ(summary.variants[0].variants, (std::vector<std::string>{"day", "night"}));
  ASSERT_EQ(summary.lights.size(), 2u);
  EXPECT_TRUE(summary.lights[0].visible);
  EXPECT_FALSE(summary.lights[1].visible);
  ASSERT_EQ(summary.textures.size(), 1u);
  EXPECT_EQ(summary.textures[0].uses, 2u);
  EXPECT_EQ(summary.textures[0].resolved, "");
  ASSERT_EQ(summary.instancers.size(), 1u);
  EXPECT_EQ(summary.instancers[0].instances, 2u);
  EXPECT_EQ(summary.instances, 0u);
}

TEST(SceneSummary, ImagesOfLightsStandBesideThoseOfMaterials) {
  const auto stage = vela_test::stageOf(R"(#usda 1.0
def Shader "Map"
{
    asset inputs:file = @./shared.png@
}
def DomeLight "Sky"
{
    asset inputs:texture:file = @./sky.exr@
}
def RectLight "Screen"
{
    asset inputs:texture:file.connect = </Set.inputs:slide>
}
def Scope "Set"
{
    asset inputs:slide = @./shared.png@
}
def SphereLight "Bulb"
{
    asset inputs:texture:file = @./unread.png@
}
def DomeLight "Cross"
{
    asset inputs:texture:file = @./cross.exr@
    token inputs:texture:format = "cubeMapVerticalCross"
}
def DomeLight "Plain"
{
}
)");
  const SceneSummary summary = summarize(*stage, {}).value();
  std::string found;
  for (const SceneSummary::Texture& texture : summary.textures)
    found += texture.file + " " + texture.shader.asString() + " " + std::to_string(texture.uses) +
             (texture.resolved.empty() ? " missing\n" : "\n");
  // Neither what a light of its kind does not read, nor what it cannot show.
  EXPECT_EQ(found, "./shared.png /Map 2 missing\n./sky.exr /Sky 1 missing\n");
}

TEST(SceneSummary, TheDepthLimitsTheTreeAlone) {
  const auto stage = vela_test::stageOf(kScene);
  const SceneSummary summary = summarize(*stage, {tarn::defaultTimeValue(), 1}).value();
  ASSERT_EQ(summary.tree.size(), 1u);
  EXPECT_EQ(summary.tree[0].below, 11u);
  EXPECT_EQ(summary.lights.size(), 2u);
}

TEST(SceneSummary, AnEmptySceneHasNothing) {
  const SceneSummary summary = summarize(*ovo::Stage::createInMemory(), {}).value();
  EXPECT_TRUE(summary.box.isEmpty());
  EXPECT_TRUE(summary.tree.empty());
}

TEST(SceneSummary, StoppedWorkGivesNothing) {
  vela::scene::Work work;
  work.stop = [] { return true; };
  EXPECT_FALSE(summarize(*vela_test::stageOf(kScene), {}, work));
}

}  // namespace
