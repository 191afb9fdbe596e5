#include "ovo/Stage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <unordered_set>

#include "ovo/MeshPrim.h"
#include "ovo/Tokens.h"
#include "ovo/detail/TestScene.h"

namespace {

using ovo::Array;
using ovo::Path;
using ovo::Prim;
using ovo::Stage;
using ovo::Token;
using ovo_test::sceneOf;
using ovo_test::TemporaryFolder;
using tarn::Vec3f;

std::vector<std::string> namesOf(const std::vector<Prim>& prims) {
  std::vector<std::string> names;
  for (const Prim& prim : prims) names.push_back(prim.getPath().asString());
  return names;
}
using Names = std::vector<std::string>;

TEST(Stage, NewOneIsEmptyWithARoot) {
  const auto stage = Stage::createInMemory();
  ASSERT_NE(stage, nullptr);
  const Prim root = stage->getRootPrim();
  EXPECT_TRUE(root.isValid() && root.isActive() && root.isDefined() && !root.isAbstract());
  EXPECT_EQ(root.getPath(), Path("/"));
  EXPECT_EQ(root.getTypeName(), Token());
  EXPECT_FALSE(root.parent().isValid());
  EXPECT_EQ(stage->getPrimAtPath("/"), root);
  std::vector<Prim> children{root};
  root.getChildren(children, false, true, true);
  EXPECT_TRUE(children.empty());
  EXPECT_EQ(stage->getFile(), "");
  EXPECT_TRUE(stage->problems().empty());
}

TEST(Stage, DefinePrimMakesThePrimAndThoseAboveIt) {
  const auto stage = Stage::createInMemory();
  const Prim mesh = stage->definePrim("/World/Group/Mesh", "Mesh");
  ASSERT_TRUE(mesh.isValid());
  EXPECT_EQ(mesh.getTypeName(), Token("Mesh"));
  EXPECT_EQ(mesh.getName(), Token("Mesh"));
  const Prim group = stage->getPrimAtPath("/World/Group");
  EXPECT_TRUE(group.isValid() && group.isDefined());
  EXPECT_EQ(group.getTypeName(), Token());
  EXPECT_EQ(mesh.parent(), group);
  EXPECT_EQ(group.getChild("Mesh"), mesh);
  EXPECT_FALSE(group.getChild("Other").isValid());
}

TEST(Stage, DefinePrimKeepsWhatIsThere) {
  const auto stage = Stage::createInMemory();
  const Prim first = stage->definePrim("/A", "Xform");
  first.createAttr("size", "float").set(2.0f);
  EXPECT_EQ(stage->definePrim("/A"), first);
  EXPECT_EQ(first.getTypeName(), Token("Xform"));
  EXPECT_EQ(stage->definePrim("/A", "Mesh"), first);
  EXPECT_EQ(first.getTypeName(), Token("Mesh"));
  float size = 0;
  EXPECT_TRUE(first.getAttr("size").get(size));
  EXPECT_EQ(size, 2.0f);
}

TEST(Stage, NamesThatNoFileCanHoldDefineNothing) {
  const auto stage = Stage::createInMemory();
  for (const char* bad : {"",      "/",     "A",    "A/B",  "/A/",     "//A",      "/A//B",
                          "/1A",   "/A-B",  "/A b", "/A.b", "/A{x=y}", "/A{x=y}B", "/..",
                          "/A/..", "/A[0]", "<>",   "/A\n", "/%",      "/\xff\xfe"})
    EXPECT_FALSE(stage->definePrim(bad, "Mesh").isValid()) << bad;
  EXPECT_FALSE(stage->definePrim(std::string("/A\0B", 4)).isValid());
  for (const char* bad : {"a b", "1", "Mesh\"", "M:N", "\n"})
    EXPECT_FALSE(stage->definePrim("/Good", bad).isValid()) << bad;
  std::vector<Prim> all;
  EXPECT_FALSE(stage->findDescendentPrims({"/"}, all));
  EXPECT_TRUE(stage->definePrim("/\xc3\xa4pfel", "Mesh").isValid());
}

TEST(Stage, PathsOfNothingGiveNoPrim) {
  const auto stage = sceneOf("def Xform \"A\" { def \"B\" {} }");
  for (const char* path : {"", "A", "/A/", "/C", "/A/B/C", "not a path", "/A.b", "//A"})
    EXPECT_FALSE(stage->getPrimAtPath(path).isValid()) << path;
  EXPECT_TRUE(stage->getPrimAtPath("/A/B").isValid());
}

TEST(Stage, ChildrenComeInTheScenesOrder) {
  const auto stage = sceneOf(
      "def \"A\" { reorder nameChildren = [\"c\", \"a\"]\n def \"a\" {} def \"b\" {} def \"c\" {} "
      "}");
  std::vector<Prim> children;
  stage->getPrimAtPath("/A").getChildren(children);
  EXPECT_EQ(namesOf(children), (Names{"/A/c", "/A/a", "/A/b"}));
  stage->definePrim("/A/d");
  stage->getPrimAtPath("/A").getChildren(children);
  EXPECT_EQ(namesOf(children).back(), "/A/d");
}

TEST(Stage, ChildrenAreChosenByTheirFlags) {
  const auto stage = sceneOf(R"(
def "Parent" {
  def "plain" {}
  def "off" (active = false) { def "below" {} }
  class "model" { def "part" {} }
  over "only" { def "hidden" {} }
}
def "Source" { def "inner" {} }
def "Instance" (instanceable = true
  prepend references = </Source>) {}
)");
  std::vector<Prim> children;
  const Prim parent = stage->getPrimAtPath("/Parent");
  parent.getChildren(children, true, false, true);
  EXPECT_EQ(namesOf(children), (Names{"/Parent/plain"}));
  parent.getChildren(children, false, false, true);
  EXPECT_EQ(namesOf(children), (Names{"/Parent/plain", "/Parent/off"}));
  parent.getChildren(children, true, true, true);
  EXPECT_EQ(namesOf(children), (Names{"/Parent/plain", "/Parent/model"}));
  parent.getChildren(children, false, true, false);
  EXPECT_EQ(namesOf(children), (Names{"/Parent/plain", "/Parent/off", "/Parent/model"}));

  stage->getPrimAtPath("/Parent/off").getChildren(children, false, true, true);
  EXPECT_TRUE(children.empty()) << "nothing is composed below an inactive prim";
  EXPECT_FALSE(stage->getPrimAtPath("/Parent/off/below").isValid());
  EXPECT_TRUE(stage->getPrimAtPath("/Parent/model/part").isAbstract());
  EXPECT_FALSE(stage->getPrimAtPath("/Parent/only").isDefined());
  EXPECT_FALSE(stage->getPrimAtPath("/Parent/only/hidden").isDefined());

  const Prim instance = stage->getPrimAtPath("/Instance");
  EXPECT_TRUE(instance.isInstance() && !instance.isInstanceProxy());
  instance.getChildren(children, true, false, true);
  EXPECT_EQ(namesOf(children), (Names{"/Instance/inner"}));
  EXPECT_TRUE(children[0].isInstanceProxy());
  instance.getChildren(children, true, false, false);
  EXPECT_TRUE(children.empty());
}

TEST(Stage, GetChildrenMayFillTheListThatHoldsThePrimItself) {
  const auto stage = sceneOf("def \"A\" { def \"B\" {} }");
  std::vector<Prim> list{stage->getPrimAtPath("/A")};
  list[0].getChildren(list);
  EXPECT_EQ(namesOf(list), (Names{"/A/B"}));
}

TEST(Stage, FindDescendentPrimsGivesEverythingBelowOnce) {
  const auto stage = sceneOf(R"(
def "A" { def "off" (active = false) {} over "only" { def "deep" {} } class "model" {} def "B" { def "C" {} } }
def "D" {}
)");
  std::vector<Prim> found{stage->getRootPrim()};
  EXPECT_TRUE(stage->findDescendentPrims({"/nowhere", "/A/B", "/A", "", "/D"}, found));
  EXPECT_EQ(namesOf(found),
            (Names{"/A/B/C", "/A/off", "/A/only", "/A/only/deep", "/A/model", "/A/B"}));
  EXPECT_TRUE(stage->findDescendentPrims({"/"}, found));
  EXPECT_EQ(found.size(), 8u);
  EXPECT_FALSE(stage->findDescendentPrims({"/D", "/x"}, found));
  EXPECT_TRUE(found.empty());
  EXPECT_FALSE(stage->findDescendentPrims({}, found));
}

TEST(Stage, PrimsOrderByStageThenPathAndWorkAsKeys) {
  const auto one = sceneOf("def \"b\" {} def \"a\" {}"), two = sceneOf("def \"a\" {}");
  const Prim a = one->getPrimAtPath("/a"), b = one->getPrimAtPath("/b"),
             other = two->getPrimAtPath("/a");
  EXPECT_TRUE(a < b && !(b < a) && !(a < a));
  EXPECT_TRUE(a < other && b < other && !(other < b))
      << "stages in the order in which they were made";
  EXPECT_TRUE(Prim() < a && !(a < Prim()) && !(Prim() < Prim()));
  EXPECT_NE(a, other);
  EXPECT_EQ(Prim(), Prim());
  EXPECT_EQ((std::set<Prim>{b, a, other, a}.size()), 3u);
  EXPECT_EQ((std::unordered_set<Prim>{b, a, other, a}.size()), 3u);
}

TEST(Stage, HandlesKeepTheirStageAlive) {
  Prim prim;
  {
    const auto stage = Stage::createInMemory();
    prim = stage->definePrim("/A", "Mesh");
  }
  EXPECT_TRUE(prim.isValid());
  EXPECT_EQ(prim.getTypeName(), Token("Mesh"));
  EXPECT_NE(prim.getStage(), nullptr);
}

TEST(Stage, AnInvalidPrimAnswersWithNothing) {
  const Prim none;
  EXPECT_FALSE(none.isValid() || none.isActive() || none.isAbstract() || none.isDefined() ||
               none.isInstance() || none.isInstanceProxy() || none.isVisible());
  EXPECT_EQ(none.getPath(), Path());
  EXPECT_EQ(none.getName(), Token());
  EXPECT_EQ(none.getTypeName(), Token());
  EXPECT_EQ(none.purpose(), Token());
  EXPECT_EQ(none.kind(), Token());
  EXPECT_FALSE(none.parent().isValid() || none.getChild("a").isValid());
  EXPECT_FALSE(none.getAttr("a").isValid() || none.createAttr("a", "float").isValid());
  EXPECT_FALSE(none.getPrimvar("a").isValid() || none.findInheritedPrimvar("a").isValid() ||
               none.createPrimvar("a", "float").isValid());
  EXPECT_TRUE(none.getAttrNames().empty() && none.getPrimvarNames().empty() &&
              none.getVariantSets().empty());
  std::vector<Prim> children{none};
  none.getChildren(children);
  EXPECT_TRUE(children.empty());
  EXPECT_FALSE(none.setActive(false) || none.setTypeName("Mesh"));
}

TEST(Stage, WhatIsSwitchedOffIsGoneAndComesBack) {
  const auto stage = sceneOf("def \"A\" { def \"B\" { def \"C\" {} } }");
  const Prim a = stage->getPrimAtPath("/A"), c = stage->getPrimAtPath("/A/B/C");
  EXPECT_TRUE(a.setActive(false));
  EXPECT_FALSE(a.isActive() || c.isValid() || stage->getPrimAtPath("/A/B").isValid());
  EXPECT_TRUE(a.isValid());
  EXPECT_FALSE(stage->definePrim("/A/New").isValid())
      << "nothing can be defined below an inactive prim";
  EXPECT_TRUE(a.setActive(true));
  EXPECT_TRUE(a.isActive() && c.isValid());
  EXPECT_EQ(stage->getPrimAtPath("/A/B/C"), c);
}

TEST(Stage, NothingBelowAnInstanceCanBeChanged) {
  const auto stage = sceneOf(R"(
def "Source" { def Mesh "inner" { int n = 1 } }
def "Instance" (instanceable = true
  references = </Source>) {}
)");
  const Prim proxy = stage->getPrimAtPath("/Instance/inner");
  ASSERT_TRUE(proxy.isInstanceProxy());
  EXPECT_FALSE(proxy.getAttr("n").set(2) || proxy.setActive(false) ||
               proxy.createAttr("m", "int").isValid());
  EXPECT_FALSE(stage->definePrim("/Instance/new").isValid());
  EXPECT_FALSE(stage->definePrim("/Instance/inner/new").isValid());
  int n = 0;
  EXPECT_TRUE(proxy.getAttr("n").get(n));
  EXPECT_EQ(n, 1);
}

TEST(Stage, AnEditShowsWhereThePrimIsReferenced) {
  const auto stage =
      sceneOf("def \"Source\" { int n = 1 }\ndef \"Copy\" (references = </Source>) {}");
  stage->definePrim("/Source/added", "Mesh");
  EXPECT_TRUE(stage->getPrimAtPath("/Copy/added").isValid());
  EXPECT_TRUE(stage->getPrimAtPath("/Source").getAttr("n").set(5));
  int n = 0;
  EXPECT_TRUE(stage->getPrimAtPath("/Copy").getAttr("n").get(n));
  EXPECT_EQ(n, 5);
}

TEST(Stage, AnOverBecomesDefinedWithAllThatIsBelowIt) {
  const auto stage = sceneOf("over \"A\" { def \"B\" {} }");
  const Prim b = stage->getPrimAtPath("/A/B");
  EXPECT_FALSE(b.isDefined());
  stage->definePrim("/A", "Xform");
  EXPECT_TRUE(b.isDefined());
  EXPECT_EQ(stage->getPrimAtPath("/A").getTypeName(), Token("Xform"));
}

TEST(Stage, MetadataHasFallbacksAndIsChecked) {
  const auto stage = Stage::createInMemory();
  EXPECT_EQ(stage->getUpAxis(), Token("Y"));
  EXPECT_EQ(stage->getMetersPerUnit(), 0.01);
  EXPECT_EQ(stage->getTimeCodesPerSecond(), 24.0);
  EXPECT_EQ(stage->getFramesPerSecond(), 24.0);
  EXPECT_EQ(stage->getStartTimeCode(), 0.0);
  EXPECT_EQ(stage->getEndTimeCode(), 0.0);
  EXPECT_EQ(stage->getDefaultPrimName(), Token());
  EXPECT_FALSE(stage->getDefaultPrim().isValid());
  EXPECT_FALSE(stage->hasUpAxis() || stage->hasMetersPerUnit() || stage->hasTimeCodesPerSecond() ||
               stage->hasFramesPerSecond() || stage->hasTimeCodeRange());

  const double inf = std::numeric_limits<double>::infinity(),
               nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(stage->setUpAxis("X") || stage->setUpAxis("") || stage->setUpAxis("z"));
  for (const double bad : {0.0, -1.0, inf, nan})
    EXPECT_FALSE(stage->setMetersPerUnit(bad) || stage->setTimeCodesPerSecond(bad) ||
                 stage->setFramesPerSecond(bad));
  EXPECT_FALSE(stage->setTimeCodeRange(nan, 1) || stage->setTimeCodeRange(0, inf));
  EXPECT_FALSE(stage->setDefaultPrim("") || stage->setDefaultPrim("a b"));
  EXPECT_FALSE(stage->hasUpAxis() || stage->hasMetersPerUnit());

  stage->definePrim("/World");
  EXPECT_TRUE(stage->setUpAxis("Z") && stage->setMetersPerUnit(1.0) &&
              stage->setFramesPerSecond(30.0));
  EXPECT_EQ(stage->getTimeCodesPerSecond(), 30.0) << "frames per second stand in";
  EXPECT_TRUE(stage->setTimeCodesPerSecond(48.0) && stage->setTimeCodeRange(-3.5, 10.0) &&
              stage->setDefaultPrim("World"));
  EXPECT_EQ(stage->getUpAxis(), Token("Z"));
  EXPECT_EQ(stage->getMetersPerUnit(), 1.0);
  EXPECT_EQ(stage->getTimeCodesPerSecond(), 48.0);
  EXPECT_EQ(stage->getStartTimeCode(), -3.5);
  EXPECT_EQ(stage->getEndTimeCode(), 10.0);
  EXPECT_EQ(stage->getDefaultPrim(), stage->getPrimAtPath("/World"));
  EXPECT_TRUE(stage->hasUpAxis() && stage->hasTimeCodeRange());
}

TEST(Stage, VisibilityAndPurposePassDown) {
  const auto stage = sceneOf(R"(
def Xform "A" { token visibility = "invisible"
  def Mesh "B" { token visibility = "inherited" } }
def Xform "C" { token visibility.timeSamples = {1: "inherited", 2: "invisible"}
  def Mesh "D" { } }
def Xform "R" { uniform token purpose = "render"
  def Scope "S" { def Mesh "M" {}
    def Mesh "P" { uniform token purpose = "proxy" } } }
def "untyped" { token visibility = "invisible"
  uniform token purpose = "guide"
  def Mesh "M" {} }
)");
  EXPECT_FALSE(stage->getPrimAtPath("/A").isVisible() || stage->getPrimAtPath("/A/B").isVisible());
  EXPECT_TRUE(stage->getPrimAtPath("/C/D").isVisible(1.0) &&
              stage->getPrimAtPath("/C/D").isVisible());
  EXPECT_FALSE(stage->getPrimAtPath("/C/D").isVisible(2.0));
  EXPECT_EQ(stage->getPrimAtPath("/A/B").purpose(), Token("default"));
  EXPECT_EQ(stage->getPrimAtPath("/R/S/M").purpose(), Token("render"));
  EXPECT_EQ(stage->getPrimAtPath("/R/S/P").purpose(), Token("proxy"));
  EXPECT_TRUE(stage->getPrimAtPath("/untyped/M").isVisible())
      << "a prim without a type can hide nothing";
  EXPECT_EQ(stage->getPrimAtPath("/untyped/M").purpose(), Token("default"));
}

TEST(Stage, RelationshipTargetsAreInTheStagesNames) {
  TemporaryFolder folder;
  folder.writeScene(
      "part.usda",
      "#usda 1.0\n(defaultPrim = \"P\")\ndef \"P\" { rel prototypes = [</P/b>, <a>, </Outside>]\n"
      "def \"a\" {} def \"b\" {} }\ndef \"Outside\" {}\n");
  const std::string file = folder.writeScene(
      "root.usda",
      "#usda 1.0\ndef \"X\" (references = @./part.usda@) { prepend rel prototypes = </X/c> }\n");
  const auto stage = Stage::open(file);
  ASSERT_NE(stage, nullptr);
  std::vector<Path> targets{"/old"};
  EXPECT_TRUE(stage->getPrimAtPath("/X").getRelationshipTargets("prototypes", targets));
  EXPECT_EQ(targets, (std::vector<Path>{"/X/c", "/X/b", "/X/a"}));
  EXPECT_FALSE(stage->getPrimAtPath("/X").getRelationshipTargets("other", targets));
  EXPECT_TRUE(targets.empty());
  EXPECT_FALSE(stage->getPrimAtPath("/X").setRelationshipTargets("prototypes", {"not absolute"}));
  // What no reader takes back.
  std::string deep = "/X";
  for (int d = 0; d < 100000; ++d) deep += ".r[/X";
  std::string longPath;
  for (int d = 0; d < 5000; ++d) longPath += "/a";
  for (const std::string& target : {std::string("/X{a=b}c"), std::string("/X{a=b}.c"),
                                    std::string("/X.r[/X{a=b}c].d"), deep, longPath})
    EXPECT_FALSE(stage->getPrimAtPath("/X").setRelationshipTargets("prototypes", {target}))
        << target.substr(0, 80);
  EXPECT_TRUE(stage->getPrimAtPath("/X").setRelationshipTargets("prototypes", {"/X/b", "/X/c"}));
  EXPECT_TRUE(stage->getPrimAtPath("/X").getRelationshipTargets("prototypes", targets));
  EXPECT_EQ(targets, (std::vector<Path>{"/X/b", "/X/c"}));
}

TEST(Stage, VariantsAreListedWithTheirChoice) {
  const auto stage = sceneOf(R"(
def "A" (variants = {string shape = "round"}
  prepend variantSets = ["shape", "colour"]) {
  variantSet "shape" = { "square" { int n = 4 } "round" { int n = 0 } }
  variantSet "colour" = { "red" { } }
})");
  const Prim a = stage->getPrimAtPath("/A");
  EXPECT_EQ(a.getVariantSets(), (std::vector<Token>{"shape", "colour"}));
  EXPECT_EQ(a.getVariants("shape"), (std::vector<Token>{"round", "square"}));
  EXPECT_EQ(a.getVariantSelection("shape"), Token("round"));
  EXPECT_EQ(a.getVariantSelection("colour"), Token());
  int n = -1;
  EXPECT_TRUE(a.getAttr("n").get(n));
  EXPECT_EQ(n, 0);
}

TEST(Stage, AFileThatIsMissingIsAProblemSaidOnce) {
  TemporaryFolder folder;
  const std::string file =
      folder.writeScene("root.usda",
                        "#usda 1.0\ndef \"A\" (references = @./none.usda@) { def \"B\" {} }\n"
                        "def \"C\" (references = @./none.usda@) {}\n");
  std::string error = "old";
  const auto stage = Stage::open(file, &error);
  ASSERT_NE(stage, nullptr);
  EXPECT_EQ(error, "");
  EXPECT_TRUE(stage->getPrimAtPath("/A/B").isValid());
  const std::vector<std::string> problems = stage->problems();
  ASSERT_FALSE(problems.empty());
  EXPECT_NE(problems[0].find("none.usda"), std::string::npos);
  EXPECT_EQ(std::set<std::string>(problems.begin(), problems.end()).size(), problems.size());
  EXPECT_EQ(Stage::open(file)->problems(), problems)
      << "the same reasons in the same order each time";
}

// Files

void fillScene(const std::shared_ptr<Stage>& stage) {
  const auto mesh = ovo::MeshPrim::define(stage, "/World/Mesh");
  mesh.setPoints({{0, 0, 0}, {1, 0, 0}, {0, 1.5f, -2}});
  mesh.setPoints({{0, 0, 1}, {1, 0, 1}, {0, 1.5f, -1}}, 2.0);
  mesh.createFaceVertexCountsAttr().set(Array<int>{3});
  mesh.createFaceVertexIndicesAttr().set(Array<int>{0, 1, 2});
  mesh.setOrientation("leftHanded");
  mesh.setSubdivisionScheme("none");
  mesh.setNormals({{0, 0, 1}}, "constant");
  mesh.setLocalXform(tarn::Mat4d().translate(1, 2, 3));
  const ovo::Primvar st = mesh.createPrimvar("st", "texCoord2f[]", "faceVarying");
  st.set(Array<tarn::Vec2f>{{0, 0}, {1, 0}});
  st.setIndices({0, 1, 1});
  mesh.createAttr("note", "string").set(std::string("say \"hi\"\n\\"));
  mesh.createAttr("ids", "int64[]").set(Array<std::int64_t>{1, -5000000000});
  mesh.createAttr("flag", "bool").set(true);
  mesh.createAttr("file", "asset").set(std::string("./tex ture.png"));
  mesh.setRelationshipTargets("prototypes", {"/World"});
  stage->definePrim("/World", "Xform");
  stage->definePrim("/World/Off", "Scope").setActive(false);
  stage->setUpAxis("Z");
  stage->setMetersPerUnit(1.0);
  stage->setTimeCodeRange(1, 2);
  stage->setDefaultPrim("World");
}

void checkScene(const Stage& stage) {
  EXPECT_EQ(stage.getUpAxis(), Token("Z"));
  EXPECT_EQ(stage.getMetersPerUnit(), 1.0);
  EXPECT_EQ(stage.getEndTimeCode(), 2.0);
  EXPECT_EQ(stage.getDefaultPrim().getPath(), Path("/World"));
  EXPECT_EQ(stage.getPrimAtPath("/World").getTypeName(), Token("Xform"));
  EXPECT_FALSE(stage.getPrimAtPath("/World/Off").isActive());
  const ovo::MeshPrim mesh(stage.getPrimAtPath("/World/Mesh"));
  ASSERT_TRUE(mesh.isValid());
  Array<Vec3f> points;
  EXPECT_TRUE(mesh.getPoints(points));
  EXPECT_EQ(points, (Array<Vec3f>{{0, 0, 0}, {1, 0, 0}, {0, 1.5f, -2}}));
  EXPECT_TRUE(mesh.getPoints(points, 2.0));
  EXPECT_EQ(points, (Array<Vec3f>{{0, 0, 1}, {1, 0, 1}, {0, 1.5f, -1}}));
  EXPECT_EQ(mesh.getAttr("points").timeSamples(), (std::vector<double>{2.0}));
  Array<int> counts, indices;
  bool reverse = true;
  EXPECT_TRUE(mesh.getFaceTopology(counts, indices, reverse));
  EXPECT_EQ(counts, Array<int>({3}));
  EXPECT_EQ(indices, Array<int>({0, 1, 2}));
  EXPECT_EQ(mesh.getOrientation(), Token("leftHanded"));
  EXPECT_EQ(mesh.getSubdivisionScheme(), Token("none"));
  Array<Vec3f> normals;
  Token interpolation;
  EXPECT_TRUE(mesh.getNormals(normals, interpolation));
  EXPECT_EQ(interpolation, Token("constant"));
  EXPECT_EQ(mesh.getLocalXform(), tarn::Mat4d().translate(1, 2, 3));
  const ovo::Primvar st = mesh.getPrimvar("st");
  EXPECT_EQ(st.typeName(), Token("texCoord2f[]"));
  EXPECT_EQ(st.interpolation(), Token("faceVarying"));
  Array<tarn::Vec2f> flat;
  EXPECT_TRUE(st.computeFlattened(flat));
  EXPECT_EQ(flat, (Array<tarn::Vec2f>{{0, 0}, {1, 0}, {1, 0}}));
  std::string note;
  EXPECT_TRUE(mesh.getAttr("note").get(note));
  EXPECT_EQ(note, "say \"hi\"\n\\");
  Array<std::int64_t> ids;
  EXPECT_TRUE(mesh.getAttr("ids").get(ids));
  EXPECT_EQ(ids, Array<std::int64_t>({1, -5000000000}));
  bool flag = false;
  EXPECT_TRUE(mesh.getAttr("flag").get(flag) && flag);
  EXPECT_TRUE(mesh.getAttr("file").get(note));
  EXPECT_EQ(note, "./tex ture.png");
  std::vector<Path> targets;
  EXPECT_TRUE(mesh.getRelationshipTargets("prototypes", targets));
  EXPECT_EQ(targets, std::vector<Path>{"/World"});
}

TEST(Stage, ScenesMadeInMemoryComeBackFromTextAndBinaryFiles) {
  const auto stage = Stage::createInMemory();
  fillScene(stage);
  checkScene(*stage);
  TemporaryFolder folder;
  for (const char* name : {"a.usda", "a.usdc", "a.usd"}) {
    SCOPED_TRACE(name);
    std::string error = "old";
    ASSERT_TRUE(stage->exportTo(folder.path(name), &error)) << error;
    EXPECT_EQ(error, "");
    const auto back = Stage::open(folder.path(name), &error);
    ASSERT_NE(back, nullptr) << error;
    EXPECT_EQ(back->getFile(), folder.path(name));
    EXPECT_TRUE(back->problems().empty());
    checkScene(*back);
  }
  EXPECT_EQ(folder.read("a.usda").substr(0, 5), "#usda");
  EXPECT_EQ(folder.read("a.usdc").substr(0, 8), "PXR-USDC");
  EXPECT_EQ(folder.read("a.usd").substr(0, 8), "PXR-USDC");
  EXPECT_EQ(folder.count(), 3u) << "no unfinished file is left";
}

TEST(Stage, EditsOfAnOpenedFileStayWithTheStageUntilItIsWritten) {
  TemporaryFolder folder;
  folder.writeScene(
      "part.usda",
      "#usda 1.0\ndef Xform \"P\" { int n = 1\n int[] list = [1, 2]\n def Mesh \"M\" {} }\n");
  const std::string text =
      "#usda 1.0\n(upAxis = \"Z\")\ndef \"A\" (references = @./part.usda@</P>) { "
      "float f.timeSamples = {1: 1, 2: 2} }\n";
  const std::string file = folder.writeScene("root.usda", text);
  const auto one = Stage::open(file), two = Stage::open(file);
  ASSERT_TRUE(one && two);
  const Prim a = one->getPrimAtPath("/A");
  EXPECT_TRUE(a.getAttr("n").set(7));
  EXPECT_TRUE(a.getAttr("f").set(9.0f));
  EXPECT_TRUE(one->definePrim("/A/M/New", "Xform").isValid());
  EXPECT_TRUE(one->definePrim("/Top/Deep", "Mesh").isValid());
  EXPECT_TRUE(one->setUpAxis("Y") && one->setDefaultPrim("A"));
  int n = 0;
  float f = 0;
  EXPECT_TRUE(a.getAttr("n").get(n) && n == 7);
  EXPECT_TRUE(a.getAttr("f").get(f, 1.5) && f == 9.0f) << "an edit is above the file's samples";
  EXPECT_TRUE(two->getPrimAtPath("/A").getAttr("n").get(n) && n == 1);
  EXPECT_FALSE(two->getPrimAtPath("/Top").isValid());
  EXPECT_EQ(two->getUpAxis(), Token("Z"));
  EXPECT_EQ(folder.read("root.usda"), ovo_test::sceneText(text));

  for (const char* name : {"out.usda", "sub/out.usdc"}) {
    SCOPED_TRACE(name);
    std::filesystem::create_directories(folder.path("sub"));
    std::string error;
    ASSERT_TRUE(one->exportTo(folder.path(name), &error)) << error;
    const auto back = Stage::open(folder.path(name), &error);
    ASSERT_NE(back, nullptr) << error;
    EXPECT_TRUE(back->problems().empty()) << back->problems()[0];
    EXPECT_TRUE(back->getPrimAtPath("/A").getAttr("n").get(n) && n == 7);
    EXPECT_TRUE(back->getPrimAtPath("/A").getAttr("f").get(f, 1.5) && f == 9.0f);
    Array<int> list;
    EXPECT_TRUE(back->getPrimAtPath("/A").getAttr("list").get(list))
        << "the reference holds from the new place";
    EXPECT_EQ(back->getPrimAtPath("/A/M").getTypeName(), Token("Mesh"));
    EXPECT_EQ(back->getPrimAtPath("/A/M/New").getTypeName(), Token("Xform"));
    EXPECT_EQ(back->getPrimAtPath("/Top/Deep").getTypeName(), Token("Mesh"));
    EXPECT_EQ(back->getUpAxis(), Token("Y"));
    EXPECT_EQ(back->getDefaultPrim().getPath(), Path("/A"));
  }
}

TEST(Stage, WritingSaysWhyItFailsAndLeavesNothing) {
  TemporaryFolder folder;
  const auto stage = sceneOf("def \"A\" {}");
  std::string error;
  EXPECT_FALSE(stage->exportTo(folder.path("none/a.usda"), &error));
  EXPECT_NE(error.find("none/a.usda': "), std::string::npos) << error;
  EXPECT_FALSE(stage->exportTo(folder.path("a.txt"), &error));
  EXPECT_FALSE(stage->exportTo("", &error));
  EXPECT_FALSE(stage->exportTo(folder.path("a.usdz"), &error));
  std::filesystem::create_directories(folder.path("dir.usda"));
  EXPECT_FALSE(stage->exportTo(folder.path("dir.usda"), &error));
  EXPECT_FALSE(stage->exportTo(folder.path("none/a.usda"), nullptr));
  EXPECT_EQ(folder.count(), 0u);
}

TEST(Stage, AFileThatIsWrittenAnewKeepsItsPermissionsAndLinksStay) {
  namespace fs = std::filesystem;
  TemporaryFolder folder;
  const auto stage = Stage::createInMemory();
  stage->definePrim("/A");
  const fs::path real = folder.write("real.usda", "old");
  fs::permissions(real, fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink("real.usda", folder.path("link.usda"));
  std::string error;
  ASSERT_TRUE(stage->exportTo(folder.path("link.usda"), &error)) << error;
  EXPECT_TRUE(fs::is_symlink(folder.path("link.usda")));
  EXPECT_EQ(fs::status(real).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_NE(Stage::open(real.string()), nullptr);

  const std::string longName(250, 'n');
  EXPECT_TRUE(stage->exportTo(folder.path(longName + ".usda"), &error)) << error;
  ASSERT_EQ(mkfifo(folder.path("pipe.usda").c_str(), 0600), 0);
  EXPECT_FALSE(stage->exportTo(folder.path("pipe.usda"), &error));
  EXPECT_NE(error.find("it is no regular file"), std::string::npos) << error;
  EXPECT_EQ(Stage::open(folder.path("pipe.usda"), &error), nullptr);
  EXPECT_NE(error.find("it is no regular file"), std::string::npos) << error;
}

TEST(Stage, TellsTheFilesThatItIsMadeOf) {
  TemporaryFolder folder;
  folder.write("sub.usda", "#usda 1.0\n");
  folder.write("part.usda", "#usda 1.0\n(defaultPrim = \"P\")\ndef \"P\" {\n}\n");
  folder.write("unused.usda", "#usda 1.0\n");
  const std::string file = folder.write(
      "root.usda",
      "#usda 1.0\n(subLayers = [@./sub.usda@, @./none.usda@])\ndef \"A\" (references = "
      "@./part.usda@) {\n}\ndef \"B\" (references = @./part.usda@) {\n}\n");
  const auto stage = Stage::open(file);
  ASSERT_NE(stage, nullptr);
  std::vector<std::string> expected;
  for (const char* name : {"part.usda", "root.usda", "sub.usda"})
    expected.push_back(folder.path(name));
  EXPECT_EQ(stage->layerFiles(), expected);
  EXPECT_TRUE(Stage::createInMemory()->layerFiles().empty());
}

}  // namespace
