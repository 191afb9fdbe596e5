// Targets, connections, files and words of properties.
#include "ovo/PropertyLinks.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "support/ChildProcess.h"
#include "support/SharedData.h"
#include "support/TextStage.h"

namespace {

using ovo::FileReference;
using ovo::Path;
using ovo::PropertyLinks;
using ovo::Token;
using vela_test::stageOf;
using Paths = std::vector<Path>;

std::vector<std::string> textsOf(const std::vector<Token>& tokens) {
  std::vector<std::string> texts;
  for (const Token& token : tokens) texts.push_back(token.asString());
  return texts;
}

TEST(PropertyLinks, NamesComeInTheOrderOfOpenUsd) {
  const auto stage = stageOf(
      "def Xform \"A\"\n{\n rel c10\n rel c2\n rel B\n rel a\n rel A\n rel _0\n float x:y\n}\n"
      "def Xform \"R\"\n{\n reorder properties = [\"c\", \"a\"]\n rel a\n rel b\n rel c\n}\n");
  EXPECT_EQ(textsOf(PropertyLinks(stage->getPrimAtPath("/A")).propertyNames()),
            (std::vector<std::string>{"_0", "A", "a", "B", "c2", "c10", "x:y"}));
  EXPECT_EQ(textsOf(PropertyLinks(stage->getPrimAtPath("/A")).propertyNames("c")),
            (std::vector<std::string>{"c2", "c10"}));
  EXPECT_EQ(textsOf(PropertyLinks(stage->getPrimAtPath("/R")).propertyNames()),
            (std::vector<std::string>{"c", "a", "b"}));
}

TEST(PropertyLinks, APropertysPathIsSplitAtTheDotBehindItsLastPrim) {
  Path prim;
  Token property;
  PropertyLinks::split("/A/B.inputs:c", prim, property);
  EXPECT_EQ(prim, Path("/A/B"));
  EXPECT_EQ(property, Token("inputs:c"));
  PropertyLinks::split("/A/B", prim, property);
  EXPECT_EQ(prim, Path("/A/B"));
  EXPECT_TRUE(property.isEmpty());
  PropertyLinks::split("", prim, property);
  EXPECT_TRUE(prim.isEmpty() && property.isEmpty());
}

TEST(PropertyLinks, ForwardedTargetsEndWhereACycleComesBack) {
  const auto stage = stageOf(
      "def \"A\"\n{\n rel one = [</A.two>, </X>]\n rel two = [</A.one>, </Y>, </A.three>]\n"
      " rel three = [</X>, </Z.attr>]\n float attr\n}\n");
  Paths targets;
  ASSERT_TRUE(PropertyLinks(stage->getPrimAtPath("/A")).forwardedTargets("one", targets));
  EXPECT_EQ(targets, (Paths{"/Y", "/X", "/Z.attr"}));
  EXPECT_FALSE(PropertyLinks(stage->getPrimAtPath("/A")).forwardedTargets("none", targets));
  EXPECT_TRUE(targets.empty());
}

TEST(PropertyLinks, ConnectionsAreEditedAndMappedIntoInstances) {
  const auto stage = stageOf(
      "class \"Asset\"\n{\n def Shader \"S\"\n {\n  float inputs:a.connect = </Asset/T.outputs:r>\n"
      " }\n def Shader \"T\"\n {\n  float outputs:r\n }\n}\n"
      "def \"I\" (inherits = </Asset>; instanceable = true)\n{\n}\n"
      "def \"E\" (inherits = </Asset>)\n{\n over \"S\"\n {\n"
      "  prepend float inputs:a.connect = </E/T.outputs:g>\n }\n}\n");
  Paths sources;
  ASSERT_TRUE(PropertyLinks(stage->getPrimAtPath("/I/S")).connections("inputs:a", sources));
  EXPECT_EQ(sources, Paths{"/I/T.outputs:r"});
  ASSERT_TRUE(PropertyLinks(stage->getPrimAtPath("/E/S")).connections("inputs:a", sources));
  EXPECT_EQ(sources, (Paths{"/E/T.outputs:g", "/E/T.outputs:r"}));
  EXPECT_TRUE(PropertyLinks(stage->getPrimAtPath("/I/T")).connections("outputs:r", sources));
  EXPECT_TRUE(sources.empty());
  EXPECT_FALSE(PropertyLinks(stage->getPrimAtPath("/I/T")).connections("outputs:x", sources));
}

TEST(PropertyLinks, WordsAndSchemasAreTheStrongest) {
  const auto stage = stageOf(
      "class \"Base\" (apiSchemas = [\"A\", \"B\"])\n{\n"
      " rel r (bindMaterialAs = \"weakerThanDescendants\")\n}\n"
      "def \"D\" (inherits = </Base>; prepend apiSchemas = [\"C\"]; delete apiSchemas = [\"A\"])\n"
      "{\n rel r (bindMaterialAs = \"strongerThanDescendants\")\n}\n");
  const PropertyLinks d(stage->getPrimAtPath("/D"));
  EXPECT_EQ(d.propertyWord("r", "bindMaterialAs"), Token("strongerThanDescendants"));
  EXPECT_TRUE(d.propertyWord("none", "bindMaterialAs").isEmpty());
  EXPECT_EQ(textsOf(d.appliedSchemas()), (std::vector<std::string>{"C", "B"}));
  EXPECT_TRUE(PropertyLinks(ovo::Prim()).appliedSchemas().empty());
}

TEST(PropertyLinks, FilesAreLookedForBesideTheLayerAndNeverInTheCurrentFolder) {
  const vela_test::TemporaryFolder folder;
  ASSERT_TRUE(vela_test::writeFile(folder.file("beside.bin"), "bytes"));
  ASSERT_TRUE(vela_test::writeFile(
      folder.file("scene.usda"),
      "#usda 1.0\n(expressionVariables = {string N = \"beside\"})\n"
      "def \"P\"\n{\n asset bare = @beside.bin@\n asset dotted = @./beside.bin@\n"
      " asset gone = @./gone.bin@\n asset made = @`\"./${N}.bin\"`@\n string text = "
      "\"./beside.bin\"\n"
      " asset here = @CMakeCache.txt@\n float number = 1\n asset empty = @@\n}\n"));
  const auto stage = ovo::Stage::open(folder.file("scene.usda"));
  ASSERT_TRUE(stage);
  const PropertyLinks p(stage->getPrimAtPath("/P"));
  for (const char* name : {"bare", "dotted", "made", "text"}) {
    FileReference file;
    ASSERT_TRUE(p.file(name, file)) << name;
    EXPECT_EQ(file.resolved, folder.file("beside.bin")) << name;
    EXPECT_EQ(file.layer, folder.file("scene.usda")) << name;
  }
  FileReference file;
  ASSERT_TRUE(p.file("gone", file));
  EXPECT_EQ(file.anchored, folder.file("gone.bin"));
  EXPECT_EQ(file.written, "./gone.bin");
  EXPECT_TRUE(file.resolved.empty());
  ASSERT_TRUE(p.file("empty", file));
  EXPECT_TRUE(file.anchored.empty() && file.resolved.empty());
  ASSERT_TRUE(p.file("here", file));
  EXPECT_TRUE(file.resolved.empty());
  EXPECT_FALSE(p.file("number", file));
  EXPECT_FALSE(p.file("none", file));

  ovo::FileBytes bytes;
  std::string why;
  ASSERT_TRUE(ovo::readFileBytes(folder.file("beside.bin"), bytes, &why)) << why;
  EXPECT_EQ(bytes.view(), "bytes");
  EXPECT_FALSE(ovo::readFileBytes(folder.file("gone.bin"), bytes, &why));
  EXPECT_FALSE(why.empty());
  EXPECT_EQ(bytes.view(), "bytes");
  EXPECT_FALSE(ovo::readFileBytes(folder.path(), bytes, &why));
  EXPECT_FALSE(ovo::readFileBytes("/dev/zero", bytes, &why));
}

TEST(PropertyLinks, BytesThatWouldBeBracketsInAScenePassAsData) {
  const vela_test::TemporaryFolder folder;
  ASSERT_TRUE(vela_test::writeFile(folder.file("deep.png"), std::string(100000, '(')));
  ovo::FileBytes bytes;
  std::string why;
  ASSERT_TRUE(ovo::readFileBytes(folder.file("deep.png"), bytes, &why)) << why;
  EXPECT_EQ(bytes.view().size(), 100000u);
}

TEST(PropertyLinks, FilesOfPackagesAreRead) {
  requireSharedData("usd/materials/21_package.usdz");
  const auto stage = ovo::Stage::open(vela_test::sharedDataPath("usd/materials/21_package.usdz"));
  ASSERT_TRUE(stage);
  std::size_t found = 0;
  std::vector<ovo::Prim> all;
  stage->findDescendentPrims({Path("/")}, all);
  for (const ovo::Prim& prim : all) {
    FileReference file;
    if (!PropertyLinks(prim).file("inputs:file", file) || file.resolved.empty()) continue;
    ovo::FileBytes bytes;
    std::string why;
    ASSERT_TRUE(ovo::readFileBytes(file.resolved, bytes, &why)) << file.resolved << ": " << why;
    EXPECT_EQ(bytes.view().substr(1, 3), "PNG");
    ++found;
  }
  EXPECT_GT(found, 0u);
}

}  // namespace
