// Files that are no scenes, or only parts of them: each ends in a clear error or in the scene
// without the broken part.
#include <gtest/gtest.h>

#include <set>

#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/detail/TestPackage.h"
#include "ovo/detail/TestScene.h"
#include "support/SharedData.h"

namespace {

using ovo::Prim;
using ovo::Stage;
using ovo_test::package;
using ovo_test::TemporaryFolder;

void expectRefused(const std::string& file, const std::string& why) {
  std::string error;
  EXPECT_EQ(Stage::open(file, &error), nullptr) << file;
  EXPECT_NE(error.find("cannot open scene '" + file + "': "), std::string::npos) << error;
  EXPECT_NE(error.find(why), std::string::npos) << error;
  EXPECT_EQ(Stage::open(file), nullptr) << "without a place for the error too";
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

std::string nestedPrims(std::size_t depth) {
  return "#usda 1.0\n" + repeated("def \"a\" {\n", depth) + repeated("}\n", depth);
}

TEST(Broken, AMissingFileIsRefused) {
  TemporaryFolder folder;
  expectRefused(folder.path("none.usda"), "there is no such file");
  expectRefused(folder.path("none/none.usd"), "there is no such file");
  expectRefused("", "there is no such file");
}

TEST(Broken, AFolderAndAnEmptyFileAndOtherFilesAreRefused) {
  TemporaryFolder folder;
  std::filesystem::create_directories(folder.path("folder.usda"));
  expectRefused(folder.path("folder.usda"), "it is a folder");
  for (const char* name : {"a.usda", "a.usdc", "a.usd", "a.usdz"})
    expectRefused(folder.write(name, ""), "the file is empty");
  for (const char* name : {"b.usda", "b.usdc", "b.usd", "b.usdz"}) {
    expectRefused(folder.write(name, "hello, this is no scene\n"), "");
    expectRefused(folder.write(name, std::string(5000, '\0')), "");
    expectRefused(folder.write(name, "PXR-USDC" + std::string(200, '\xff')), "");
    expectRefused(folder.write(name, "PK\3\4" + std::string(200, '\xff')), "");
  }
  expectRefused(folder.write("picture.png", "#usda 1.0\n"), "its name ends in none of");
  expectRefused(folder.write("noextension", "#usda 1.0\n"), "its name ends in none of");
}

TEST(Broken, ATextThatIsCutOffIsRefusedWhereverItEnds) {
  const std::string whole =
      "#usda 1.0\n( upAxis = \"Z\" )\ndef Mesh \"M\" (kind = \"group\") {\n  point3f[] points = "
      "[(1, 2, 3)]\n"
      "  float f.timeSamples = {1: 2}\n  rel r = </M>\n  asset a = @x@\n}\n";
  TemporaryFolder folder;
  std::size_t refused = 0;
  for (std::size_t size = 1; size + 1 < whole.size(); ++size) {
    const std::string file =
        folder.write("cut" + std::to_string(size) + ".usda", whole.substr(0, size));
    std::string error;
    if (const auto stage = Stage::open(file, &error)) {
      // What ends between two statements is a scene.
      std::vector<Prim> all;
      stage->findDescendentPrims({"/"}, all);
      EXPECT_TRUE(all.empty()) << size;
    } else {
      EXPECT_NE(error.find("': "), std::string::npos);
      ++refused;
    }
  }
  EXPECT_GT(refused, whole.size() * 3 / 4);
}

TEST(Broken, ABinaryFileThatIsCutOffIsRefused) {
  TemporaryFolder folder;
  const auto stage = Stage::createInMemory();
  for (int i = 0; i < 50; ++i) {
    const auto mesh = ovo::MeshPrim::define(stage, "/World/M" + std::to_string(i));
    mesh.setPoints(ovo::Array<tarn::Vec3f>(100, {static_cast<float>(i), 2, 3}));
  }
  ASSERT_TRUE(stage->exportTo(folder.path("whole.usdc")));
  const std::string whole = folder.read("whole.usdc");
  ASSERT_GT(whole.size(), 2000u);
  for (std::size_t eighth = 1; eighth < 8; ++eighth)
    expectRefused(folder.write("cut" + std::to_string(eighth) + ".usdc",
                               whole.substr(0, whole.size() * eighth / 8)),
                  "");
  for (std::size_t missing = 1; missing < 200; missing += 7)
    expectRefused(folder.write("cut.usdc", whole.substr(0, whole.size() - missing)),
                  "the file is cut off");
  for (const std::size_t size : {1u, 8u, 20u, 87u, 88u, 89u})
    expectRefused(folder.write("head" + std::to_string(size) + ".usdc", whole.substr(0, size)), "");
}

TEST(Broken, ARealPackageThatIsCutOffIsNoCrash) {
  requireSharedData("usd/BoxAnimated_usdz/BoxAnimated.usdz");
  TemporaryFolder folder;
  std::ifstream in(vela_test::sharedDataPath("usd/BoxAnimated_usdz/BoxAnimated.usdz"),
                   std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  for (std::size_t part = 1; part < 8; ++part)
    expectRefused(folder.write("cut" + std::to_string(part) + ".usdz",
                               whole.substr(0, whole.size() * part / 8)),
                  "");
}

TEST(Broken, TextsNestedDeeperThanAnySceneAreRefusedBeforeTheyAreParsed) {
  TemporaryFolder folder;
  expectRefused(folder.write("prims.usda", nestedPrims(10000)), "nested more than 500 deep");
  expectRefused(folder.write("many.usda", nestedPrims(200000)), "nested more than 500 deep");
  expectRefused(folder.write("as.usd", nestedPrims(10000)), "nested more than 500 deep");
  expectRefused(folder.write("open.usda", "#usda 1.0\n" + repeated("def \"a\" {\n", 100000)),
                "nested more than 500 deep");
  expectRefused(
      folder.write("tuples.usda", "#usda 1.0\ndef \"a\" { float3 f = " + repeated("(", 100000)),
      "nested more than 500 deep");
  expectRefused(
      folder.write("lists.usda", "#usda 1.0\ndef \"a\" { float[] f = " + repeated("[", 100000)),
      "nested more than 500 deep");
  expectRefused(folder.write("dictionaries.usda", "#usda 1.0\n( customLayerData = {" +
                                                      repeated("dictionary a = {", 10000)),
                "nested more than 500 deep");
  expectRefused(
      folder.write("variants.usda",
                   "#usda 1.0\n" + repeated("def \"a\" { variantSet \"x\" = { \"y\" {\n", 10000)),
      "nested more than 500 deep");
  expectRefused(folder.write("expression.usda", "#usda 1.0\ndef \"a\" { pathExpression p = \"" +
                                                    repeated("(", 100000) + "/a" +
                                                    repeated(")", 100000) + "\" }"),
                "nested more than 500 deep");
  expectRefused(folder.write("complement.usda", "#usda 1.0\ndef \"a\" { pathExpression p = \"" +
                                                    repeated("~", 100000) + "/a\" }"),
                "nested more than 500 deep");
  std::string error;
  EXPECT_EQ(Stage::openText(nestedPrims(10000), &error), nullptr);
  EXPECT_NE(error.find("nested more than 500 deep"), std::string::npos);
}

// What a comment, a string or a file name is must be the same to the guard as to the parser: depth
// after it, or in it, would pass unseen.
TEST(Broken, DepthDoesNotHideBehindWhatLooksLikeAStringOrAFileName) {
  TemporaryFolder folder;
  const std::string deep = repeated("def \"a\" {\n", 20000);
  const std::string heads[] = {
      "// it's @here\n",
      "# it's @here\n",
      "/* ''' @@@ \"\"\" */\n",
      "/*/ ' */\n",
      "def \"z\" {\n asset f = @@@a@@@@@\n}\n",
      "def \"z\" {\n asset f = @@@a\\@@@ b@@@\n}\n",
      "def \"z\" {\n asset f = @@\n}\n",
      "def \"z\" {\n string f = \"a\\\\\"\n}\n",
      "def \"z\" {\n string f = \"\"\"\"a\\\"\"\"\"\n}\n",
      "def \"z\" {\n string f = ''\n}\n",
  };
  for (const std::string& head : heads) {
    SCOPED_TRACE(head);
    expectRefused(folder.write("hidden.usda", "#usda 1.0\n" + head + deep),
                  "nested more than 500 deep");
    EXPECT_NE(Stage::openText("#usda 1.0\n" + head + "def \"a\" {\n}\n"), nullptr)
        << "the parser takes it for what the guard does";
  }
  // Brackets in comments of each kind count for nothing.
  for (const char* comment : {"/* ( */\n", "// (\n", "# (\n"})
    EXPECT_NE(Stage::openText("#usda 1.0\n" + repeated(comment, 600)), nullptr) << comment;
}

TEST(Broken, DepthInExpressionsIsRefusedWhereverTheyStand) {
  TemporaryFolder folder;
  const auto ofPaths = [](const std::string& e) {
    return "#usda 1.0\ndef \"z\" {\n pathExpression p = \"" + e + "\"\n}\n";
  };
  const std::string calls = "`" + repeated("if(", 20000) + "`";
  const std::string texts[] = {
      "#usda 1.0\ndef \"z\" (references = @" + calls + "@) {\n}\n",
      "#usda 1.0\n(subLayers = [@" + calls + "@])\n",
      "#usda 1.0\ndef \"z\" (references = @@@" + calls + "@@@) {\n}\n",
      "#usda 1.0\n(expressionVariables = {\n string X = \"" + calls + "\"\n})\n",
      ofPaths(repeated("(", 20000) + "/a" + repeated(")", 20000)),
      ofPaths(repeated("(//{x:')'} + ", 20000) + "/a" + repeated(")", 20000)),
      ofPaths(repeated("\\050", 20000) + "/a b"),
      ofPaths(repeated("\\x28", 20000) + "/a b"),
      ofPaths(repeated("~", 20000) + "/a"),
  };
  for (const std::string& text : texts)
    expectRefused(folder.write("expression.usda", text), "nested more than 500 deep");
  EXPECT_NE(Stage::openText(ofPaths(repeated("(//{x:')'} + ", 200) + "/a" + repeated(")", 200))),
            nullptr);
  // Source code in a string may have any number of brackets, one after the other.
  EXPECT_NE(Stage::openText("#usda 1.0\ndef \"z\" {\n string s = '''" +
                            repeated("f(\"x\", g[1]);\n", 2000) + "'''\n}\n"),
            nullptr);
}

TEST(Broken, PathsOfMoreNamesThanCompositionHasStackForAreRefused) {
  TemporaryFolder folder;
  const std::string path = repeated("/a", 100000);
  const std::string texts[] = {
      "#usda 1.0\ndef \"z\" (references = <" + path + ">) {\n}\n",
      "#usda 1.0\ndef \"z\" (inherits = <" + path + ">) {\n}\n",
      "#usda 1.0\n(relocates = {<" + path + ">: </b>})\n",
      "#usda 1.0\ndef \"z\" {\n rel r = </a" + repeated("{b=c}", 100000) + ">\n}\n",
      "#usda 1.0\n(defaultPrim = \"" + path + "\")\n",
      "#usda 1.0\n(defaultPrim = \"" + repeated("\\x2fa", 100000) + "\")\n",
  };
  for (const std::string& text : texts)
    expectRefused(folder.write("long.usda", text), "a path has more than 1000 names");
  EXPECT_NE(Stage::openText("#usda 1.0\ndef \"z\" {\n rel r = <" + repeated("/a", 1000) +
                            ">\n string s = \"" + repeated("a/+", 2000) + "\"\n}\n"),
            nullptr);
}

TEST(Broken, DepthInPackagesIsRefusedWhateverTheirFilesAreCalled) {
  TemporaryFolder folder;
  const std::string good = "#usda 1.0\ndef \"A\" {\n}\n";
  const auto stage = Stage::open(folder.write("good.usdz", package("a.usda", good)));
  ASSERT_NE(stage, nullptr);
  EXPECT_TRUE(stage->getPrimAtPath("/A").isValid());

  for (const char* name : {"a.usda", "a.usd", "A.USDA"})
    expectRefused(folder.write("deep.usdz", package(name, nestedPrims(20000))),
                  "nested more than 500 deep");
  expectRefused(folder.write("start.usdz", package("a.usda", "\n" + nestedPrims(20000))),
                "nested more than 500 deep");
  const std::string deep = package("a.usda", nestedPrims(20000));
  expectRefused(folder.write("inner.usdz", package("b.usdz", deep)), "nested more than 500 deep");
  std::string many = package("a.usda", good);
  for (int i = 0; i < 20; ++i) many = package("a.usdz", many);
  expectRefused(folder.write("many.usdz", many), "packages nested more than 10 deep");
  // The bytes of a picture are no brackets.
  std::string error;
  const std::string picture = package("a.png", "\x89PNG" + repeated("({[", 1000));
  EXPECT_EQ(Stage::open(folder.write("picture.usdz", picture), &error), nullptr);
  EXPECT_EQ(error.find("nested"), std::string::npos) << error;
}

TEST(Broken, BracketsInCommentsAndTextDoNotCountAsDepth) {
  TemporaryFolder folder;
  const std::string brackets = repeated("{ ([ ", 400);
  const auto stage = Stage::open(folder.writeScene(
      "a.usda", "#usda 1.0\n# " + brackets + "\n( doc = \"" + brackets.substr(0, 400) +
                    "\" )\ndef \"a\" { string s = '''\n" + brackets.substr(0, 400) +
                    "'''\n asset f = @" + repeated("(", 1000) + "@\n" +
                    repeated("string t = \"{\"\n", 1) + "}\n"));
  ASSERT_NE(stage, nullptr);
  EXPECT_TRUE(stage->getPrimAtPath("/a").isValid());
  const auto deep = Stage::openText(nestedPrims(400));
  ASSERT_NE(deep, nullptr);
  std::vector<Prim> all;
  deep->findDescendentPrims({"/"}, all);
  EXPECT_EQ(all.size(), 400u);
}

TEST(Broken, ADeepFileThatIsReferencedIsLeftOut) {
  TemporaryFolder folder;
  folder.write("deep.usda", nestedPrims(10000));
  for (const char* arc : {"references = @./deep.usda@</a>", "payload = @./deep.usda@</a>"}) {
    const auto stage = Stage::open(folder.writeScene(
        "root.usda", std::string("#usda 1.0\ndef \"A\" (") + arc + ") {}\ndef \"B\" {}\n"));
    ASSERT_NE(stage, nullptr);
    EXPECT_TRUE(stage->getPrimAtPath("/B").isValid());
    std::string all;
    for (const std::string& problem : stage->problems()) all += problem + "\n";
    EXPECT_NE(all.find("deep.usda"), std::string::npos) << all;
  }
  const auto sub = Stage::open(
      folder.writeScene("sub.usda", "#usda 1.0\n( subLayers = [@./deep.usda@] )\ndef \"B\" {}\n"));
  ASSERT_NE(sub, nullptr);
  EXPECT_TRUE(sub->getPrimAtPath("/B").isValid());
  EXPECT_FALSE(sub->problems().empty());
}

TEST(Broken, PrimsThatReferencesNestTooDeepAreLeftOut) {
  TemporaryFolder folder;
  const std::string open = repeated("def \"a\" {\n", 400), close = repeated("}\n", 400);
  folder.write("1.usda", "#usda 1.0\n(defaultPrim = \"a\")\n" + open + close);
  for (int i = 2; i <= 4; ++i)
    folder.write(std::to_string(i) + ".usda", "#usda 1.0\n(defaultPrim = \"a\")\n" + open +
                                                  "def \"b\" (references = @./" +
                                                  std::to_string(i - 1) + ".usda@) {}\n" + close);
  const auto stage = Stage::open(folder.path("4.usda"));
  ASSERT_NE(stage, nullptr);
  std::vector<Prim> all;
  stage->findDescendentPrims({"/"}, all);
  EXPECT_EQ(all.size(), 1000u);
  ASSERT_FALSE(stage->problems().empty());
  EXPECT_NE(stage->problems().back().find("nested more than 1000 prims deep"), std::string::npos)
      << stage->problems().back();
}

TEST(Broken, ArcsInCirclesAreProblemsAndTheRestIsThere) {
  TemporaryFolder folder;
  folder.writeScene(
      "a.usda",
      "#usda 1.0\n(defaultPrim = \"A\")\ndef \"A\" (references = @./b.usda@) { def \"inA\" {} }\n");
  folder.writeScene(
      "b.usda",
      "#usda 1.0\n(defaultPrim = \"B\")\ndef \"B\" (references = @./a.usda@) { def \"inB\" {} }\n");
  folder.writeScene("self.usda",
                    "#usda 1.0\n(subLayers = [@./self.usda@, @./other.usda@])\ndef \"S\" {}\n");
  folder.writeScene("other.usda", "#usda 1.0\n(subLayers = [@./self.usda@])\ndef \"O\" {}\n");
  folder.writeScene("inherit.usda",
                    "#usda 1.0\ndef \"A\" (inherits = </B>) {}\ndef \"B\" (inherits = </A>) "
                    "{}\ndef \"C\" (references = </C>) {}\n"
                    "def \"D\" { def \"E\" (references = </D>) {} }\n");
  folder.writeScene("payload.usda",
                    "#usda 1.0\n(defaultPrim = \"A\")\ndef \"A\" (payload = @./payload.usda@) { "
                    "def \"x\" {} }\n");
  struct Row {
    const char *file, *prim;
  };
  for (const Row& row : {Row{"a.usda", "/A/inB"}, Row{"self.usda", "/O"}, Row{"inherit.usda", "/B"},
                         Row{"payload.usda", "/A/x"}}) {
    SCOPED_TRACE(row.file);
    std::string error;
    const auto stage = Stage::open(folder.path(row.file), &error);
    ASSERT_NE(stage, nullptr) << error;
    EXPECT_TRUE(stage->getPrimAtPath(row.prim).isValid());
    const std::vector<std::string> problems = stage->problems();
    EXPECT_FALSE(problems.empty());
    EXPECT_EQ(std::set<std::string>(problems.begin(), problems.end()).size(), problems.size());
  }
}

TEST(Broken, ArcsToNothingAreProblems) {
  TemporaryFolder folder;
  folder.writeScene("part.usda", "#usda 1.0\ndef \"P\" {}\n");
  folder.write("empty.usda", "");
  folder.write("cut.usdc", "PXR-USDC cut");
  const auto stage = Stage::open(folder.writeScene("root.usda", R"(#usda 1.0
( subLayers = [@./none.usda@, @./empty.usda@] )
def "NoDefault" (references = @./part.usda@) {}
def "NoPrim" (references = @./part.usda@</Q>) {}
def "NoFile" (payload = @./none.usdc@) {}
def "Empty" (references = @./empty.usda@) {}
def "Cut" (references = @./cut.usdc@) {}
def "NoInherit" (inherits = </Nowhere>) {}
def "BadOffset" (references = @./part.usda@</P> (scale = 0)) {}
def "Good" (references = @./part.usda@</P>) {}
)"));
  ASSERT_NE(stage, nullptr);
  for (const char* path :
       {"/NoDefault", "/NoPrim", "/NoFile", "/Empty", "/Cut", "/NoInherit", "/BadOffset", "/Good"})
    EXPECT_TRUE(stage->getPrimAtPath(path).isValid()) << path;
  EXPECT_GE(stage->problems().size(), 5u);
}

TEST(Broken, MeshesWithNonsenseAreReadAsTheyAre) {
  const auto stage = ovo_test::sceneOf(R"(def Mesh "M" {
  point3f[] points = [(nan, inf, -inf), (1, 2, 3)]
  int[] faceVertexCounts = [3, -5, 2000000000]
  int[] faceVertexIndices = [0, -1, 99999999]
  float3[] extent = [(1, 1, 1), (-1, -1, -1)] })");
  const ovo::MeshPrim mesh(stage->getPrimAtPath("/M"));
  ovo::Array<int> counts, indices;
  bool reverse = true;
  EXPECT_TRUE(mesh.getFaceTopology(counts, indices, reverse));
  EXPECT_EQ(counts, ovo::Array<int>({3, -5, 2000000000}));
  EXPECT_EQ(indices, ovo::Array<int>({0, -1, 99999999}));
  EXPECT_FALSE(mesh.getBoundsBox(tarn::defaultTimeValue(), false).isEmpty());
}

TEST(Broken, ALargeElementSizeClaimsNoMemory) {
  std::string indices = "0";
  for (int i = 1; i < 1000; ++i) indices += ", 0";
  const auto stage = ovo_test::sceneOf(
      "def \"A\" {\n float3[] primvars:c = [(1, 2, 3)] (elementSize = 2000000000)\n"
      " int[] primvars:c:indices = [" +
      indices + "]\n}\n");
  const ovo::Primvar primvar = stage->getPrimAtPath("/A").getPrimvar("c");
  ASSERT_EQ(primvar.elementSize(), 2000000000);
  ovo::Array<tarn::Vec3f> values;
  EXPECT_FALSE(primvar.computeFlattened(values));
}

// Each level holds ten references to the one below it.
std::string tenfold(int levels) {
  std::string text = "#usda 1.0\ndef \"L0\" {\n}\n";
  for (int level = 1; level <= levels; ++level) {
    text += "def \"L" + std::to_string(level) + "\" {\n";
    for (int i = 0; i < 10; ++i)
      text += "def \"c" + std::to_string(i) + "\" (references = </L" + std::to_string(level - 1) +
              ">) {\n}\n";
    text += "}\n";
  }
  return text;
}

TEST(Broken, ASceneOfMorePrimsThanItMayHaveIsCutInSceneOrder) {
  TemporaryFolder folder;
  const std::string file = folder.write("many.usda", tenfold(9));
  ovo::StageLimits limits;
  limits.prims = 1000;
  for (int run = 0; run < 3; ++run) {
    const auto stage = Stage::open(file, limits);
    ASSERT_NE(stage, nullptr);
    std::vector<Prim> all;
    stage->findDescendentPrims({"/"}, all);
    ASSERT_EQ(all.size(), 999u) << "with the root";
    // L0, L1 with 10, L2 with 10 + 100, of L3 the first 876.
    EXPECT_EQ(all.back().getPath().asString(), "/L3/c7/c8/c7");
    for (const Prim& prim : all) {
      std::vector<Prim> children;
      prim.getChildren(children);
      for (const Prim& child : children) EXPECT_TRUE(child.isValid());
    }
    ASSERT_FALSE(stage->problems().empty());
    EXPECT_EQ(stage->problems().back(), "more than 1000 prims: the rest is left out");
  }
  limits.prims = 13;
  const auto exact = Stage::open(folder.write("exact.usda", tenfold(1)), limits);
  ASSERT_NE(exact, nullptr);
  EXPECT_TRUE(exact->problems().empty());
}

// The corpus that fuzzing starts from as well.
TEST(Broken, EachTextOfTheCorpusOpensOrIsRefusedAsItSays) {
  std::ifstream corpus(vela_test::sourcePath("src/ovo/scenes.txt"));
  std::size_t cases = 0;
  for (std::string line; std::getline(corpus, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::size_t first = line.find(" | "), last = line.rfind(" | ");
    ASSERT_LT(first, last) << line;
    const std::string expected = line.substr(last + 3);
    std::string text = "#usda 1.0\n";
    for (std::size_t i = first + 3; i < last; ++i) {
      const bool escapes = line[i] == '\\' && i + 1 < last;
      if (escapes) ++i;
      if (escapes && line[i] == 'x') {
        text += static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16));
        i += 2;
      } else {
        text += escapes && line[i] == 'n' ? '\n' : line[i];
      }
    }
    SCOPED_TRACE(line.substr(0, first));
    std::string error;
    const auto stage = Stage::openText(text, &error);
    if (expected == "opens") {
      ASSERT_NE(stage, nullptr) << error;
      // What was read can be written, and read again.
      for (const char* copy : {"copy.usda", "copy.usdc"}) {
        TemporaryFolder folder;
        ASSERT_TRUE(stage->exportTo(folder.path(copy), &error)) << error;
        const auto again = Stage::open(folder.path(copy), &error);
        ASSERT_NE(again, nullptr) << error;
        std::vector<Prim> before, after;
        stage->findDescendentPrims({"/"}, before);
        again->findDescendentPrims({"/"}, after);
        EXPECT_EQ(before.size(), after.size());
      }
    } else
      EXPECT_NE(error.find(expected), std::string::npos) << error;
    ++cases;
  }
  EXPECT_GT(cases, 20u);
}

}  // namespace
