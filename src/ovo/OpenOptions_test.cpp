// Scenes opened under limits and within a folder.
#include "ovo/OpenOptions.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ovo/PropertyLinks.h"
#include "ovo/Stage.h"
#include "ovo/detail/TestPackage.h"
#include "ovo/detail/TestScene.h"

namespace {

namespace fs = std::filesystem;
using ovo::OpenOptions;
using ovo::openScene;
using ovo::Stage;
using ovo_test::TemporaryFolder;

std::string problemsOf(const Stage& stage) {
  std::string all;
  for (const std::string& problem : stage.problems()) all += problem + "\n";
  return all;
}

// A folder with a scene in it, and a file beside that folder that the scene refers to.
class Root : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder_.path("in/deep"));
    folder_.writeScene("out.usda",
                       "#usda 1.0\n(defaultPrim = \"O\")\ndef \"O\" { def \"x\" {} }\n");
    folder_.writeScene("in/part.usda",
                       "#usda 1.0\n(defaultPrim = \"P\")\ndef \"P\" { def \"y\" {} }\n");
    folder_.write("out.png", "a picture");
    folder_.write("in/in.png", "a picture");
    options_.root = folder_.path("in");
  }
  std::shared_ptr<Stage> open(const std::string& text) {
    // Names of their own: what a stage has open is not read again.
    file_ =
        folder_.writeScene("in/scene" + std::to_string(scenes_++) + ".usda", "#usda 1.0\n" + text);
    return openScene(file_, options_, &why_);
  }

  TemporaryFolder folder_;
  OpenOptions options_;
  std::string why_, file_;
  int scenes_ = 0;
};

TEST_F(Root, KeepsEveryKindOfArcInside) {
  const std::string arcs[] = {"references = @../out.usda@", "payload = @../out.usda@",
                              "references = @" + folder_.path("out.usda") + "@",
                              "references = @./deep/../../out.usda@"};
  for (const std::string& arc : arcs) {
    SCOPED_TRACE(arc);
    const auto stage = open("def \"A\" (" + arc + ") {}\n");
    ASSERT_NE(stage, nullptr) << why_;
    EXPECT_FALSE(stage->getPrimAtPath("/A/x").isValid());
    EXPECT_NE(problemsOf(*stage).find("it lies outside of the folder"), std::string::npos)
        << problemsOf(*stage);
    EXPECT_EQ(stage->layerFiles().size(), 1u);
  }
  const auto stage = open("def \"A\" (references = @./part.usda@) {}\n");
  ASSERT_NE(stage, nullptr) << why_;
  EXPECT_TRUE(stage->getPrimAtPath("/A/y").isValid());
  EXPECT_TRUE(stage->problems().empty()) << problemsOf(*stage);
  const auto sub = open("(subLayers = [@../out.usda@, @./part.usda@])\ndef \"A\" {}\n");
  ASSERT_NE(sub, nullptr) << why_;
  EXPECT_TRUE(sub->getPrimAtPath("/P/y").isValid()) << problemsOf(*sub);
  EXPECT_FALSE(sub->getPrimAtPath("/O").isValid());
}

TEST_F(Root, KeepsLayersInsideThatTheProcessHasOpenAlready) {
  const auto outside = Stage::open(folder_.path("out.usda"));
  ASSERT_NE(outside, nullptr);
  const auto stage = open("def \"A\" (references = @../out.usda@) {}\n");
  ASSERT_NE(stage, nullptr) << why_;
  EXPECT_FALSE(stage->getPrimAtPath("/A/x").isValid());
  EXPECT_EQ(stage->layerFiles().size(), 1u);
  EXPECT_NE(problemsOf(*stage).find("it lies outside of the folder"), std::string::npos);
  // And another stage of the same file may have it.
  const auto free = Stage::open(file_);
  ASSERT_NE(free, nullptr);
  EXPECT_TRUE(free->getPrimAtPath("/A/x").isValid());
}

TEST_F(Root, FollowsLinks) {
  fs::create_symlink("../out.usda", folder_.path("in/link.usda"));
  fs::create_directory_symlink("..", folder_.path("in/up"));
  for (const char* name : {"./link.usda", "./up/out.usda"}) {
    const auto stage = open(std::string("def \"A\" (references = @") + name + "@) {}\n");
    ASSERT_NE(stage, nullptr) << why_;
    EXPECT_FALSE(stage->getPrimAtPath("/A/x").isValid()) << name;
  }
  // A root that is a link stands for what it leads to.
  fs::create_directory_symlink("in", folder_.path("root"));
  options_.root = folder_.path("root");
  const auto stage = open("def \"A\" (references = @./part.usda@) {}\n");
  ASSERT_NE(stage, nullptr) << why_;
  EXPECT_TRUE(stage->getPrimAtPath("/A/y").isValid());
}

TEST_F(Root, KeepsPackagesAndTexturesInside) {
  folder_.write("out.usdz", ovo_test::package("a.usda",
                                              "#usda 1.0\n(\n defaultPrim = \"O\"\n)\n"
                                              "def \"O\" {\n def \"x\" {\n }\n}\n"));
  fs::copy(folder_.path("out.usdz"), folder_.path("in/in.usdz"));
  const auto stage = open(
      "def \"A\" (references = @../out.usdz@) {}\ndef \"B\" (references = @./in.usdz@) {}\n"
      "def \"T\" { asset in = @./in.png@\n asset out = @../out.png@\n}\n");
  ASSERT_NE(stage, nullptr) << why_;
  EXPECT_FALSE(stage->getPrimAtPath("/A/x").isValid());
  EXPECT_TRUE(stage->getPrimAtPath("/B/x").isValid());
  ovo::FileReference file;
  const ovo::PropertyLinks links(stage->getPrimAtPath("/T"));
  ASSERT_TRUE(links.file("in", file));
  EXPECT_EQ(file.resolved, folder_.path("in/in.png"));
  ASSERT_TRUE(links.file("out", file));
  EXPECT_EQ(file.resolved, "");
  EXPECT_EQ(links.resolveFile(folder_.path("out.png")), "");
}

TEST_F(Root, ANameThatBeginsLikeTheRootIsOutside) {
  fs::create_directories(folder_.path("inside"));
  folder_.writeScene("inside/a.usda",
                     "#usda 1.0\n(defaultPrim = \"O\")\ndef \"O\" { def \"x\" {} }\n");
  const auto stage = open("def \"A\" (references = @../inside/a.usda@) {}\n");
  ASSERT_NE(stage, nullptr) << why_;
  EXPECT_FALSE(stage->getPrimAtPath("/A/x").isValid());
}

TEST_F(Root, RefusesASceneOutsideAndARootThatIsNoFolder) {
  EXPECT_EQ(openScene(folder_.path("out.usda"), options_, &why_), nullptr);
  EXPECT_NE(why_.find("it lies outside of '" + options_.root + "'"), std::string::npos) << why_;
  for (const char* root : {"missing", "out.usda"}) {
    options_.root = folder_.path(root);
    EXPECT_EQ(openScene(folder_.path("out.usda"), options_, &why_), nullptr);
    EXPECT_NE(why_.find("is no folder"), std::string::npos) << why_;
  }
  options_.root = "/";
  EXPECT_NE(openScene(folder_.path("out.usda"), options_, &why_), nullptr) << why_;
}

TEST(Limits, ASceneOfTooManyFilesIsNotOpened) {
  TemporaryFolder folder;
  std::string text = "#usda 1.0\n";
  for (int i = 0; i < 8; ++i) {
    const std::string name = "part" + std::to_string(i) + ".usda";
    folder.write(name, "#usda 1.0\n(\n defaultPrim = \"P\"\n)\ndef \"P\" {\n}\n");
    text += "def \"p" + std::to_string(i) + "\" (references = @./" + name + "@) {\n}\n";
  }
  const std::string file = folder.write("scene.usda", text);
  OpenOptions options;
  std::string why;
  options.layers = 8;
  EXPECT_EQ(openScene(file, options, &why), nullptr);
  EXPECT_NE(why.find("it is composed of more than 8 files"), std::string::npos) << why;
  options.layers = 9;
  const auto exact = openScene(file, options, &why);
  EXPECT_NE(exact, nullptr) << why;
  // Files that the process has open already count as well.
  options.layers = 8;
  EXPECT_EQ(openScene(file, options, &why), nullptr);
}

TEST(Limits, ASceneOfTooManyArcsIsCutInSceneOrder) {
  TemporaryFolder folder;
  std::string text = "#usda 1.0\ndef \"c0\" {\n}\n";
  for (int i = 1; i < 40; ++i)
    text += "def \"c" + std::to_string(i) + "\" (references = </c" + std::to_string(i - 1) +
            ">) {\n}\n";
  const std::string file = folder.write("scene.usda", text);
  OpenOptions options;
  options.arcs = 100;
  for (int run = 0; run < 3; ++run) {
    const auto stage = openScene(file, options);
    ASSERT_NE(stage, nullptr);
    // The prim of number i has i + 1 places in the file, and the root one: with the thirteenth
    // there are 92, with the fourteenth 106.
    EXPECT_TRUE(stage->getPrimAtPath("/c13").isValid());
    EXPECT_FALSE(stage->getPrimAtPath("/c14").isValid());
    EXPECT_EQ(stage->problems().back(), "more than 100 arcs to prims: the rest is left out");
  }
  options.arcs = 1000;
  const auto whole = openScene(file, options);
  EXPECT_TRUE(whole->getPrimAtPath("/c39").isValid());
  EXPECT_TRUE(whole->problems().empty()) << problemsOf(*whole);
}

TEST(Limits, ASceneWithALongChainOfArcsIsNotOpened) {
  TemporaryFolder folder;
  const auto chain = [](int length) {
    std::string text = "#usda 1.0\ndef \"c0\" {\n}\n";
    for (int i = 1; i <= length; ++i)
      text += "def \"c" + std::to_string(i) + "\" (references = </c" + std::to_string(i - 1) +
              ">) {\n}\n";
    return text;
  };
  // The time for this one would grow with the third power of its length.
  std::string why;
  EXPECT_EQ(openScene(folder.write("long.usda", chain(5000)), {}, &why), nullptr);
  EXPECT_NE(why.find("/c501: more than 500 arcs lead from one to the next"), std::string::npos)
      << why;
  EXPECT_EQ(Stage::openText(chain(5000), &why), nullptr);
  EXPECT_NE(why.find("more than 500 arcs lead from one to the next"), std::string::npos) << why;

  OpenOptions options;
  options.arcChain = 20;
  EXPECT_EQ(openScene(folder.write("a.usda", chain(21)), options, &why), nullptr);
  const auto stage = openScene(folder.write("b.usda", chain(20)), options, &why);
  ASSERT_NE(stage, nullptr) << why;
  EXPECT_TRUE(stage->getPrimAtPath("/c20").isValid());
  // Many arcs beside each other are no chain.
  std::string wide = "#usda 1.0\ndef \"a\" (references = [</b>";
  for (int i = 0; i < 30; ++i) wide += ", </b" + std::to_string(i) + ">";
  wide += "]) {\n}\ndef \"b\" {\n}\n";
  for (int i = 0; i < 30; ++i) wide += "def \"b" + std::to_string(i) + "\" {\n}\n";
  EXPECT_NE(openScene(folder.write("wide.usda", wide), options, &why), nullptr) << why;
}

// Children beyond those that are composed at once come in the same order, with all below them.
TEST(Limits, PrimsOfAnyNumberOfChildrenAreWhole) {
  TemporaryFolder folder;
  std::string text = "#usda 1.0\ndef \"r\" {\n def \"x\" {\n }\n}\ndef \"a\" {\n";
  for (int i = 0; i < 1300; ++i)
    text += "def \"c" + std::to_string(i) +
            "\" (references = " + (i % 100 == 7 ? "</none>" : "</r>") + ") {\n}\n";
  const auto stage = openScene(folder.write("many.usda", text + "}\n"), {});
  ASSERT_NE(stage, nullptr);
  std::vector<ovo::Prim> children;
  stage->getPrimAtPath("/a").getChildren(children);
  ASSERT_EQ(children.size(), 1300u);
  for (std::size_t i = 0; i < children.size(); ++i) {
    EXPECT_EQ(children[i].getName().asString(), "c" + std::to_string(i));
    EXPECT_EQ(children[i].getChild("x").isValid(), i % 100 != 7) << i;
  }
  EXPECT_EQ(stage->problems().size(), 13u) << problemsOf(*stage);
}

TEST(Limits, PrimsBelowTheDepthAreLeftOut) {
  TemporaryFolder folder;
  const std::string file =
      folder.writeScene("scene.usda", "#usda 1.0\ndef \"a\" { def \"b\" { def \"c\" {} } }\n");
  OpenOptions options;
  options.depth = 2;
  const auto stage = openScene(file, options);
  ASSERT_NE(stage, nullptr);
  EXPECT_TRUE(stage->getPrimAtPath("/a/b").isValid());
  EXPECT_FALSE(stage->getPrimAtPath("/a/b/c").isValid());
  EXPECT_NE(problemsOf(*stage).find("nested more than 2 prims deep"), std::string::npos);
}

TEST(Limits, VariantsGoWithThem) {
  TemporaryFolder folder;
  const std::string file = folder.write(
      "scene.usda",
      "#usda 1.0\ndef \"A\" (\n variants = {\n string v = \"one\"\n }\n prepend variantSets = "
      "\"v\"\n) {\n variantSet \"v\" = {\n \"one\" {\n def \"x\" {\n }\n }\n \"two\" {\n def "
      "\"y\" {\n }\n }\n }\n}\n");
  OpenOptions options;
  options.variants.push_back({"/A", "v", "two"});
  const auto stage = openScene(file, options);
  ASSERT_NE(stage, nullptr);
  EXPECT_TRUE(stage->getPrimAtPath("/A/y").isValid());
}

}  // namespace
