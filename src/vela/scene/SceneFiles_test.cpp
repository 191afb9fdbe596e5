// The files of a scene: layers, textures, tiles of textures, packages.
#include "vela/scene/SceneFiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using vela::scene::forEachNamedFile;
using vela::scene::sceneFiles;

class SceneFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "vela-scene-files-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = fs::canonical(pattern);
    write("scene.usda", R"(#usda 1.0
(
    subLayers = [@below.usda@]
)
def Scope "Look"
{
    asset still = @wood.png@
    asset gone = @gone.png@
    asset moving.timeSamples = { 1: @one.png@, 2: @two.png@ }
    asset tiles = @wall.<UDIM>.png@
    string text = "wood.txt"
}
)");
    write("below.usda", "#usda 1.0\ndef Scope \"Below\"\n{\n    asset again = @wood.png@\n}\n");
    for (const char* name :
         {"wood.png", "one.png", "two.png", "wall.1001.png", "wall.1100.png", "wood.txt"})
      write(name, "not an image");
  }
  void TearDown() override { fs::remove_all(folder_); }

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
  }

  fs::path folder_;
};

TEST_F(SceneFiles, LayersAndWhatAttributesNameAtAnyTimeComeOnceInOrder) {
  const auto stage = ovo::Stage::open((folder_ / "scene.usda").string());
  ASSERT_TRUE(stage);
  const std::vector<std::string> files = sceneFiles(*stage).value();
  std::vector<std::string> names;
  for (const std::string& file : files) {
    EXPECT_EQ(fs::path(file).parent_path(), folder_);
    names.push_back(fs::path(file).filename().string());
  }
  EXPECT_EQ(names, (std::vector<std::string>{"below.usda", "one.png", "scene.usda", "two.png",
                                             "wall.1001.png", "wall.1100.png", "wood.png"}));
}

TEST_F(SceneFiles, TilesOfTexturesThatAreNotThereAreVisited) {
  const auto stage = ovo::Stage::open((folder_ / "scene.usda").string());
  ASSERT_TRUE(stage);
  std::vector<std::string> visited;
  EXPECT_TRUE(forEachNamedFile(
      *stage, [&](const std::string& file) { visited.push_back(fs::path(file).filename()); }));
  EXPECT_EQ(std::count(visited.begin(), visited.end(), "wall.1050.png"), 1);
  EXPECT_EQ(std::count(visited.begin(), visited.end(), "wood.png"), 2);
  EXPECT_EQ(std::count(visited.begin(), visited.end(), "below.usda"), 0);
}

TEST_F(SceneFiles, EveryNamedFileStandsWithWhatNamesItThereOrNot) {
  write("below.usda", R"(#usda 1.0
def Scope "Below" (references = @gone.usda@)
{
    asset again = @wood.png@
    asset none = @@
    asset walls = @none.<UDIM>.png@
    asset same = @gone.png@
}
)");
  const auto stage = ovo::Stage::open((folder_ / "scene.usda").string());
  ASSERT_TRUE(stage);
  std::string text;
  const auto files = vela::scene::namedFiles(*stage);
  ASSERT_TRUE(files);
  for (const vela::scene::NamedFile& file : *files) {
    text += fs::path(file.name).filename().string() + " by " + file.by;
    if (!file.isThere) text += " missing";
    for (const int tile : file.tiles) text += " " + std::to_string(tile);
    text += "\n";
  }
  // Of an equal name in another layer both.
  EXPECT_EQ(text,
            "gone.usda by /Below missing\n"
            "wood.png by /Below.again\n"
            "gone.png by /Below.same missing\n"
            "none.<UDIM>.png by /Below.walls missing\n"
            "gone.png by /Look.gone missing\n"
            "one.png by /Look.moving\n"
            "two.png by /Look.moving\n"
            "wood.png by /Look.still\n"
            "wall.<UDIM>.png by /Look.tiles 1001 1100\n");
  fs::permissions(folder_ / "wood.png", fs::perms::none);
  if (access((folder_ / "wood.png").c_str(), R_OK) == 0) return;  // this user may read anything
  EXPECT_FALSE(vela::scene::namedFiles(*stage)->at(1).isThere);
}

TEST_F(SceneFiles, StoppedWorkSaysSo) {
  const auto stage = ovo::Stage::open((folder_ / "scene.usda").string());
  ASSERT_TRUE(stage);
  const vela::scene::Work work{[] { return true; }, {}};
  EXPECT_FALSE(sceneFiles(*stage, work).has_value());
  EXPECT_FALSE(vela::scene::namedFiles(*stage, work).has_value());
  EXPECT_FALSE(forEachNamedFile(
      *stage, [](const std::string&) {}, work));
}

TEST_F(SceneFiles, ASceneInMemoryHasNone) {
  const auto stage = ovo::Stage::createInMemory();
  EXPECT_EQ(sceneFiles(*stage).value(), std::vector<std::string>());
}

}  // namespace
