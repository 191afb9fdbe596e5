// Which files a scene is composed of.
#include "ovo/LayerUses.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ovo/Stage.h"

namespace {

TEST(LayerUses, EachFileStandsWithTheArcThatBringsItIn) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(testing::TempDir()) / "vela_layer_uses";
  fs::create_directories(folder);
  const auto write = [&](const char* name, const std::string& text) {
    std::ofstream(folder / name) << "#usda 1.0\n" << text;
  };
  write("top.usda", R"((
    subLayers = [@below.usda@]
)
def Xform "A" (references = @chair.usda@</Chair>)
{
}
def Xform "B" (
    references = @chair.usda@</Chair>
    inherits = </A>
)
{
}
)");
  write("below.usda",
        "over \"A\"\n{\n    def Cube \"Box\" (payload = @leg.usda@</Leg>)\n    {\n    }\n}\n");
  write("chair.usda", "def Xform \"Chair\"\n{\n    def Cube \"Seat\"\n    {\n    }\n}\n");
  write("leg.usda", "def Cube \"Leg\"\n{\n}\n");
  std::string why;
  const auto stage = ovo::Stage::open((folder / "top.usda").string(), &why);
  ASSERT_TRUE(stage) << why;

  std::string text;
  const auto nameOf = [](const std::string& file) { return fs::path(file).filename().string(); };
  for (const ovo::LayerUse& use : ovo::layerUses(*stage)) {
    text += use.arc + " " + nameOf(use.file);
    if (!use.from.empty()) text += " of " + nameOf(use.from);
    text += "; ";
  }
  fs::remove_all(folder);
  EXPECT_EQ(text,
            "root top.usda; sublayer below.usda of top.usda; reference chair.usda of top.usda; "
            "payload leg.usda of top.usda; ");
}

TEST(LayerUses, LayersThatCannotBeReadStandWithWhatNamesThem) {
  namespace fs = std::filesystem;
  std::string pattern = (fs::temp_directory_path() / "vela-missing-layers-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  const fs::path folder = fs::canonical(pattern);
  const auto write = [&](const char* name, const std::string& text) {
    std::ofstream(folder / name) << text;
  };
  write("top.usda", R"(#usda 1.0
(
    subLayers = [@below.usda@, @./gone_below.usda@]
)
def Xform "A" (references = @./chair.usda@</Chair>)
{
}
def Xform "B" (references = @./chair.usda@</Chair>)
{
}
def Xform "C" (payload = @on_no_path.usda@)
{
}
def Xform "D" (references = @./damaged.usda@)
{
}
def Xform "E" (references = @./below.usda@</NoSuchPrim>)
{
}
)");
  write("below.usda", "#usda 1.0\n");
  write("chair.usda", "#usda 1.0\ndef \"Chair\" (references = @./leg.usda@)\n{\n}\n");
  write("damaged.usda", "no scene");
  const auto stage = ovo::Stage::open((folder / "top.usda").string());
  ASSERT_TRUE(stage);

  std::string text;
  const auto nameOf = [](const std::string& file) { return fs::path(file).filename().string(); };
  for (const ovo::MissingLayer& missing : ovo::missingLayers(*stage)) {
    EXPECT_EQ(missing.file, missing.arc == "payload" ? "on_no_path.usda"
                                                     : (folder / nameOf(missing.file)).string());
    EXPECT_EQ(fs::path(missing.from).parent_path(), folder);
    text += missing.arc + " " + nameOf(missing.file) + " at " + nameOf(missing.from) +
            missing.prim.asString() + "; ";
  }
  fs::remove_all(folder);
  // Each arc once, however many prims it comes to; a layer without the prim that is asked of it is
  // there.
  EXPECT_EQ(text,
            "reference damaged.usda at top.usda/D; sublayer gone_below.usda at top.usda/; "
            "reference leg.usda at chair.usda/Chair; payload on_no_path.usda at top.usda/C; ");
}

TEST(LayerUses, ASceneInMemoryHasNoFiles) {
  const auto stage = ovo::Stage::createInMemory();
  stage->definePrim("/A");
  EXPECT_TRUE(ovo::layerUses(*stage).empty());
}

}  // namespace
