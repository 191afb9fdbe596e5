// Scenes tried in a process of their own: whatever happens there, the answer is one of those stated
// and this process goes on.
#include "ovo/SceneTrial.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/detail/TestScene.h"

namespace {

using ovo::Stage;
using ovo::Trial;
using ovo::TrialOptions;
using ovo::tryScene;
using Outcome = ovo::Trial::Outcome;
using ovo_test::TemporaryFolder;

std::string crateOf(const TemporaryFolder& folder) {
  const auto stage = Stage::createInMemory();
  for (int i = 0; i < 12; ++i) {
    const auto mesh = ovo::MeshPrim::define(stage, "/World/M" + std::to_string(i));
    mesh.setPoints(ovo::Array<tarn::Vec3f>(50, {static_cast<float>(i), 2, 3}));
    mesh.createFaceVertexCountsAttr().set(ovo::Array<int>(7, 3));
    mesh.createFaceVertexIndicesAttr().set(ovo::Array<int>(21, 1));
  }
  const std::string file = folder.path("whole.usdc");
  EXPECT_TRUE(stage->exportTo(file));
  return folder.read("whole.usdc");
}

TEST(SceneTrial, SaysThatASceneOpens) {
  TemporaryFolder folder;
  const Trial text = tryScene(folder.write("a.usda", "#usda 1.0\ndef \"A\" {\n}\n"));
  EXPECT_EQ(text.outcome, Outcome::opens) << text.reason;
  EXPECT_EQ(text.reason, "");
  crateOf(folder);
  const Trial crate = tryScene(folder.path("whole.usdc"));
  EXPECT_EQ(crate.outcome, Outcome::opens) << crate.reason;
}

TEST(SceneTrial, GivesTheReasonThatOpeningGives) {
  TemporaryFolder folder;
  TrialOptions options;
  for (const std::string& file :
       {folder.path("missing.usda"), folder.write("bad.usda", "#usda 1.0\ndef {\n"),
        folder.write("odd name\n.usda", "no scene")}) {
    std::string why;
    EXPECT_EQ(Stage::open(file, &why), nullptr);
    const Trial trial = tryScene(file, options);
    EXPECT_EQ(trial.outcome, Outcome::refused);
    EXPECT_EQ(trial.reason, why);
  }
  EXPECT_EQ(tryScene(std::string("a\0b", 3)).outcome, Outcome::refused);
}

TEST(SceneTrial, KnowsTheOptionsOfOpening) {
  TemporaryFolder folder;
  std::filesystem::create_directories(folder.path("in"));
  const std::string file = folder.write("a.usda", "#usda 1.0\ndef \"A\" {\n}\n");
  TrialOptions options;
  options.open.root = folder.path("in");
  const Trial outside = tryScene(file, options);
  EXPECT_EQ(outside.outcome, Outcome::refused);
  EXPECT_NE(outside.reason.find("it lies outside of"), std::string::npos) << outside.reason;
  options = {};
  options.open.layers = 0;
  EXPECT_NE(tryScene(file, options).reason.find("more than 0 files"), std::string::npos);
  options = {};
  options.open.variants.push_back({"no path", "set", "name"});
  EXPECT_NE(tryScene(file, options).reason.find("is no choice of a variant"), std::string::npos);
}

// Every answer that OpenUSD's reader may give to damage comes back as one of those stated.
TEST(SceneTrial, DamagedFilesEndNobodyElse) {
  TemporaryFolder folder;
  const std::string whole = crateOf(folder);
  const unsigned seed = 20;
  std::mt19937 random(seed);
  TrialOptions options;
  options.memory = std::size_t{4} << 30;
  int opened = 0, refused = 0, died = 0;
  for (int i = 0; i < 60; ++i) {
    std::string damaged = whole;
    for (int k = 0; k < 3; ++k)
      damaged[88 + random() % (damaged.size() - 88)] = static_cast<char>(random());
    const Trial trial = tryScene(folder.write("damaged.usdc", damaged), options);
    SCOPED_TRACE(seed);
    EXPECT_NE(trial.outcome, Outcome::notTried) << trial.reason;
    EXPECT_EQ(trial.outcome == Outcome::opens, trial.reason.empty());
    EXPECT_EQ(trial.reason.find('\n'), std::string::npos) << trial.reason;
    opened += trial.outcome == Outcome::opens ? 1 : 0;
    refused += trial.outcome == Outcome::refused ? 1 : 0;
    died += trial.outcome == Outcome::crashed || trial.outcome == Outcome::outOfMemory ? 1 : 0;
  }
  RecordProperty("opened", opened);
  RecordProperty("refused", refused);
  RecordProperty("died", died);
  EXPECT_GT(refused + died, 0);
}

TEST(SceneTrial, EndsWhatTakesTooLong) {
  TemporaryFolder folder;
  // Ten million prims of references, which take seconds.
  std::string text = "#usda 1.0\ndef \"L0\" {\n}\n";
  for (int level = 1; level <= 7; ++level) {
    text += "def \"L" + std::to_string(level) + "\" {\n";
    for (int i = 0; i < 10; ++i)
      text += "def \"c" + std::to_string(i) + "\" (references = </L" + std::to_string(level - 1) +
              ">) {\n}\n";
    text += "}\n";
  }
  TrialOptions options;
  options.seconds = 0.05;
  const Trial trial = tryScene(folder.write("many.usda", text), options);
  EXPECT_EQ(trial.outcome, Outcome::tooSlow);
  EXPECT_NE(trial.reason.find("it takes longer than 0.05"), std::string::npos) << trial.reason;
}

TEST(SceneTrial, HostsWithHabitsOfTheirOwnGetTheSame) {
  TemporaryFolder folder;
  const std::string good = folder.write("a.usda", "#usda 1.0\ndef \"A\" {\n}\n");
  // One that never hears of its children, and ignores what would end them.
  const auto child = signal(SIGCHLD, SIG_IGN), pipe = signal(SIGPIPE, SIG_IGN),
             fault = signal(SIGSEGV, SIG_IGN);
  EXPECT_EQ(tryScene(good).outcome, Outcome::opens);
  EXPECT_EQ(tryScene(folder.path("none.usda")).outcome, Outcome::refused);
  signal(SIGCHLD, child);
  signal(SIGPIPE, pipe);
  signal(SIGSEGV, fault);

  std::vector<std::thread> threads;
  std::vector<Trial> trials(4);
  for (Trial& trial : trials) threads.emplace_back([&trial, &good] { trial = tryScene(good); });
  for (std::thread& thread : threads) thread.join();
  for (const Trial& trial : trials) EXPECT_EQ(trial.outcome, Outcome::opens) << trial.reason;
}

TEST(SceneTrial, ReadingEveryValueChangesNothing) {
  const auto stage = ovo_test::sceneOf(
      "def \"A\" { double d.timeSamples = {1: 2, 3: 4}\n asset a = @x@\n float[] f = [1, 2] }");
  ovo::readEveryValue(*stage);
  double value = 0;
  EXPECT_TRUE(stage->getPrimAtPath("/A").getAttr("d").get(value, 1.0));
  EXPECT_EQ(value, 2.0);
  EXPECT_TRUE(stage->problems().empty());
}

}  // namespace
