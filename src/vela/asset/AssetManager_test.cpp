#include "vela/asset/AssetManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "support/ChildProcess.h"
#include "support/SharedData.h"
#include "vela/asset/AssetInfo.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using vela_test::ChildResult;
using vela_test::Environment;
using vela_test::readFile;
using vela_test::runChild;
using vela_test::TemporaryFolder;
using vela_test::writeFile;

// A folder with configurations, a log and an asset library, and fresh processes that use them.
class AssetProcess : public testing::Test {
 protected:
  AssetProcess() {
    environment_ = {{"HALDEN_LOG_FILE", folder_.file("log")},
                    {"HALDEN_LOG_LEVEL", std::nullopt},
                    {"OPENASSETIO_DEFAULT_CONFIG", std::nullopt},
                    {"OPENASSETIO_PLUGIN_PATH", VELA_ASSET_PLUGINS},
                    {"OPENASSETIO_LOGGING_SEVERITY", std::nullopt},
                    {"OPENASSETIO_DISABLE_ENTRYPOINTS_PLUGINS", std::nullopt},
                    {"BAL_LIBRARY_PATH", std::nullopt}};
  }

  std::string config(const std::string& name, const std::string& text) {
    EXPECT_TRUE(writeFile(folder_.file(name), text));
    return folder_.file(name);
  }
  std::string nativeConfig(const std::string& settings = "") {
    return config(
        "native.toml",
        "[manager]\nidentifier = \"org.vela.test.native\"\n[manager.settings]\n" + settings + "\n");
  }

  ChildResult run(std::vector<std::string> actions) {
    actions.insert(actions.begin(), VELA_ASSET_CHILD);
    const ChildResult result = runChild(actions, environment_);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result;
  }

  // The log without time stamps.
  std::string log() const {
    static const std::regex stamp(R"(\[\d{4}/\d\d/\d\d:\d\d:\d\d:\d\d\] )");
    return std::regex_replace(readFile(folder_.file("log")), stamp, "");
  }

  TemporaryFolder folder_;
  Environment environment_;
};

// ---- Set-up

TEST_F(AssetProcess, NothingIsSetUpByItself) {
  EXPECT_EQ(
      run({"has-manager", "is-asset=test:count", "location=test:count", "info=test:count"}).out,
      "no manager\n0\n0 test:count\n0 0 test:count\n");
  EXPECT_EQ(log(), "");
}

TEST_F(AssetProcess, SetupWithoutPathAndVariableDoesNothingAndLogsNothing) {
  EXPECT_EQ(run({"level=4", "setup=", "has-manager"}).out, "no manager\n");
  EXPECT_EQ(log(), "");
}

TEST_F(AssetProcess, SetupWithoutPathAndVariableLeavesTheManager) {
  EXPECT_EQ(run({"setup=" + nativeConfig(), "setup=", "has-manager"}).out, "manager\n");
}

TEST_F(AssetProcess, SetupReadsTheGivenConfiguration) {
  const ChildResult child = run({"setup=" + nativeConfig(), "has-manager", "is-asset=test:count",
                                 "is-asset=/plain/path", "location=test:url:file:///a%20b/c.usd"});
  EXPECT_EQ(child.out, "manager\n1\n0\n1 /a b/c.usd\n");
  EXPECT_EQ(log(), "");
}

TEST_F(AssetProcess, SetupReadsTheVariableWhenNoPathIsGiven) {
  environment_["OPENASSETIO_DEFAULT_CONFIG"] = nativeConfig();
  EXPECT_EQ(run({"setup=", "has-manager"}).out, "manager\n");
}

TEST_F(AssetProcess, GivenConfigurationComesBeforeTheVariable) {
  environment_["OPENASSETIO_DEFAULT_CONFIG"] = folder_.file("missing.toml");
  EXPECT_EQ(run({"setup=" + nativeConfig(), "has-manager"}).out, "manager\n");
  EXPECT_EQ(log(), "");
}

TEST_F(AssetProcess, EmptyVariableIsAnUnexpectedFailure) {
  environment_["OPENASSETIO_DEFAULT_CONFIG"] = "";
  EXPECT_EQ(run({"setup=", "has-manager"}).out, "no manager\n");
  EXPECT_THAT(log(), StartsWith("[Asset System Error]Failed to create the default OpenAssetIO "
                                "Manager (Unexpected): Could not "
                                "load default config from ''"));
}

TEST_F(AssetProcess, UnknownManagerIsReportedAndLeavesNone) {
  const std::string unknown =
      config("unknown.toml", "[manager]\nidentifier = \"org.vela.test.unknown\"\n");
  EXPECT_EQ(run({"setup=" + unknown, "has-manager"}).out, "no manager\n");
  EXPECT_THAT(
      log(),
      StartsWith(
          "[Asset System Error]Failed to create the default OpenAssetIO Manager (Unexpected): "));
  EXPECT_THAT(log(),
              HasSubstr("No plug-in registered with the identifier 'org.vela.test.unknown'"));
}

TEST_F(AssetProcess, SetupThatFailsLeavesTheManagerThatWasThere) {
  EXPECT_EQ(run({"setup=" + nativeConfig(), "setup=" + folder_.file("missing.toml"), "has-manager",
                 "location=test:url:file:///x"})
                .out,
            "manager\n1 /x\n");
  EXPECT_THAT(log(), HasSubstr("(Unexpected): Could not load default config from '" +
                               folder_.file("missing.toml") + "', file does not exist."));
}

TEST_F(AssetProcess, BrokenConfigurationsAreReported) {
  const std::string broken = config("broken.toml", "[manager\nidentifier = 7");
  const std::string folder = folder_.path();
  const std::string odd =
      config("odd.toml",
             "[manager]\nidentifier = \"org.vela.test.native\"\n[manager.settings]\nx = [1]\n");
  EXPECT_EQ(run({"setup=" + broken, "setup=" + folder, "setup=" + odd, "has-manager"}).out,
            "no manager\n");
  EXPECT_THAT(log(), HasSubstr("(Unexpected): Error parsing config file."));
  EXPECT_THAT(log(), HasSubstr("must be a TOML file not a directory."));
  EXPECT_THAT(log(), HasSubstr("Unsupported value type for 'x'."));
}

TEST_F(AssetProcess, ManagerThatDoesNotStartIsReported) {
  EXPECT_EQ(run({"setup=" + nativeConfig("fail = true"), "has-manager"}).out, "no manager\n");
  EXPECT_EQ(log(),
            "[Asset System Error]Failed to create the default OpenAssetIO Manager (Unexpected): "
            "this manager does not start\n");
}

TEST_F(AssetProcess, ExceptionOfAnyKindAtTheStartIsReported) {
  EXPECT_EQ(run({"setup=" + nativeConfig("fail-oddly = true"), "has-manager"}).out, "no manager\n");
  EXPECT_EQ(log(),
            "[Asset System Error]Failed to create the default OpenAssetIO Manager (Unexpected): "
            "unknown exception\n");
}

TEST_F(AssetProcess, ManagerWithoutResolutionIsInstalledWithAWarningAndPassedOver) {
  // KEEP(asset-unresolving-manager)
  const ChildResult child =
      run({"level=2", "setup=" + nativeConfig("resolution = false"), "has-manager",
           "is-asset=test:count", "location=test:count", "info=test:count"});
  EXPECT_EQ(child.out, "manager\n1\n0 test:count\n0 1 test:count\n");
  EXPECT_EQ(log(),
            "[Asset System Warning]Loaded manager Test Manager \xc3\xa4, but it does not support "
            "asset resolution and will be "
            "ignored\n");
}

TEST_F(AssetProcess, SetupSaysByDataWhyThereIsNoManagerAndWhatIsOddAboutOne) {
  EXPECT_EQ(run({"setup-told=", "has-manager"}).out,
            "0 [no configuration is named] [] [] []\nno manager\n");
  EXPECT_EQ(run({"setup-told=" + nativeConfig()}).out, "1 [] [] [] []\n");
  const std::string odd =
      "Loaded manager Test Manager \xc3\xa4, but it does not support asset resolution and will be "
      "ignored";
  EXPECT_EQ(run({"level=2", "setup-told=" + nativeConfig("resolution = false")}).out,
            "1 [] [] [" + odd + "] [" + odd + "]\n");
  const std::string out = run({"setup-told=" + nativeConfig("fail = true"), "has-manager"}).out;
  EXPECT_EQ(out,
            "0 [this manager does not start] [Failed to create the default OpenAssetIO Manager "
            "(Unexpected): this manager does not start] [] []\nno manager\n");
  EXPECT_EQ(log(), "") << "the caller was told";
}

TEST_F(AssetProcess, ClearCacheBuildsTheManagerFromTheEnvironmentAlone) {
  // Without the variable the manager stays, and asks again; with it, it is the variable's.
  const std::string given = nativeConfig();
  EXPECT_EQ(run({"setup=" + given, "location=test:count", "location=test:count", "clear-cache",
                 "location=test:count"})
                .out,
            "1 /1\n1 /1\n1 /2\n");
  environment_["OPENASSETIO_DEFAULT_CONFIG"] = config(
      "other.toml",
      "[manager]\nidentifier = \"org.vela.test.native\"\n[manager.settings]\nresolution = false\n");
  EXPECT_EQ(
      run({"setup=" + given, "location=test:count", "clear-cache", "location=test:count"}).out,
      "1 /1\n0 test:count\n");
}

TEST_F(AssetProcess, ClearContextNeedsAManager) {
  EXPECT_EQ(
      run({"clear-context", "setup=" + nativeConfig(), "clear-context", "location=test:count"}).out,
      "no context\ncontext\n1 /1\n");
  EXPECT_EQ(log(), "");
}

TEST_F(AssetProcess, ContextThatCannotBeMadeIsReportedAndTheOldOneStays) {
  EXPECT_EQ(
      run({"setup=" + nativeConfig("stateful = true"), "clear-context", "location=test:count"}).out,
      "no context\n1 /1\n");
  EXPECT_EQ(log(), "[Asset System Error]Failed to create a context: no state to be had\n");
}

TEST_F(AssetProcess, ManagerLearnsWhichHostItServes) {
  EXPECT_EQ(run({"setup=" + nativeConfig(), "location=test:host"}).out,
            "1 /org.vela.host/Asset System\n");
}

// ---- Python

class PythonAssetProcess : public AssetProcess {
 protected:
  void SetUp() override {
    if (std::string(VELA_TEST_SITE_PACKAGES).empty())
      FAIL() << "this OpenAssetIO has no Python packages of the environment's version: "
                "scripts/setup installs those that are tested";
  }

  PythonAssetProcess() {
    environment_["PYTHONPATH"] = VELA_TEST_SITE_PACKAGES;
    environment_["PYTHONHOME"] = std::nullopt;
    environment_["PYTHONDONTWRITEBYTECODE"] = "1";
    writeFile(folder_.file("library.json"), R"({
      "capabilities": ["entityReferenceIdentification", "managementPolicyQueries", "entityTraitIntrospection", "resolution"],
      "variables": { "show": "demo" },
      "entities": {
        "models/teapot": { "versions": [
          { "traits": { "openassetio-mediacreation:content.LocatableContent":
              { "location": "${bal_library_dir_url}/${show}/teapot%20v1.usda" } } },
          { "traits": { "openassetio-mediacreation:content.LocatableContent":
              { "location": "${bal_library_dir_url}/${show}/teapot%20v2.usda" } } } ] },
        "bad/url":      { "versions": [ { "traits": {
            "openassetio-mediacreation:content.LocatableContent": { "location": "not a url" } } } ] },
        "bad/type":     { "versions": [ { "traits": {
            "openassetio-mediacreation:content.LocatableContent": { "location": 7 } } } ] },
        "bad/nothing":  { "versions": [ { "traits": { "openassetio-mediacreation:usage.Entity": {} } } ] },
        "bad/noaccess": { "versions": [ { "traits": { "openassetio-mediacreation:usage.Entity": {} } } ],
                          "overrideByAccess": { "read": {} } }
      } })");
    config_ = config(
        "bal.toml",
        "[manager]\nidentifier = \"org.openassetio.examples.manager.bal\"\n[manager.settings]\n"
        "library_path = \"${config_dir}/library.json\"\nsimulated_query_latency_ms = 0\n");
  }

  const std::string python_ = "python=" VELA_TEST_LIBPYTHON;
  std::string config_;
};

TEST_F(PythonAssetProcess, PythonManagerResolvesVersionsAndPercentEncodedPaths) {
  EXPECT_EQ(
      run({python_, "setup=" + config_, "has-manager", "is-asset=bal:///models/teapot",
           "is-asset=/a/b", "location=bal:///models/teapot", "location=bal:///models/teapot?v=1",
           "info=bal:///models/teapot?v=2", "location=/plain.usd"})
          .out,
      "manager\n1\n0\n1 " + folder_.path() + "/demo/teapot v2.usda\n1 " + folder_.path() +
          "/demo/teapot v1.usda\n1 1 " + folder_.path() + "/demo/teapot v2.usda\n0 /plain.usd\n");
  EXPECT_EQ(log(), "");
}

TEST_F(PythonAssetProcess, ShippedLibraryKnowsTheDemoScene) {
  const std::string examples = vela_test::sourcePath("examples");
  environment_["OPENASSETIO_DEFAULT_CONFIG"] = examples + "/assets/openassetio.toml";
  EXPECT_EQ(run({python_, "setup=", "location=bal:///demo/still-life"}).out,
            "1 " + examples + "/demo/demo.usda\n");
  EXPECT_NE(readFile(examples + "/demo/demo.usda"), "");
}

TEST_F(PythonAssetProcess, FailuresOfAPythonManagerAreInTheLog) {
  EXPECT_EQ(run({python_, "setup=" + config_, "location=bal:///bad/url", "location=bal:///bad/type",
                 "location=bal:///bad/nothing", "location=bal:///bad/noaccess",
                 "location=bal:///no/such", "location=bal:///models/teapot?v=9"})
                .out,
            "0 bal:///bad/url\n0 bal:///bad/type\n0 bal:///bad/nothing\n0 bal:///bad/noaccess\n0 "
            "bal:///no/such\n"
            "0 bal:///models/teapot?v=9\n");
  const std::string text = log();
  EXPECT_THAT(text, HasSubstr("[Asset System Error]Failed to resolve invalid url: not a url\n"));
  EXPECT_THAT(text, HasSubstr("[Asset System Error]Failed to resolve asset location: Invalid "
                              "stored value type: should be "
                              "'openassetio::Str'.\n"));
  EXPECT_THAT(text, HasSubstr("[Asset System Error]Failed to resolve asset: BatchElementException: "
                              "entityAccessError: "));
  EXPECT_THAT(text, HasSubstr("[Asset System Error]Failed to resolve asset: BatchElementException: "
                              "entityResolutionError: Entity 'no/such' not found"));
  std::size_t messages = 0;
  for (std::size_t at = text.find("[Asset System "); at != std::string::npos;
       at = text.find("[Asset System ", at + 1))
    ++messages;
  EXPECT_EQ(messages, 5u) << "one each, and none for data without a location:\n" << text;
}

TEST_F(PythonAssetProcess, FailureOfPythonItselfIsReported) {
  EXPECT_TRUE(writeFile(folder_.file("library.json"), "no library"));
  EXPECT_EQ(run({python_, "setup=" + config_, "has-manager"}).out, "no manager\n");
  EXPECT_THAT(log(), StartsWith("[Asset System Error]Failed to create the default OpenAssetIO "
                                "Manager (Unexpected): JSONDecodeError"));
}

TEST_F(PythonAssetProcess, PythonManagerWithoutResolutionIsInstalledWithAWarning) {
  std::string library = readFile(folder_.file("library.json"));
  library.replace(library.find(", \"resolution\""), 14, "");
  EXPECT_TRUE(writeFile(folder_.file("library.json"), library));
  EXPECT_EQ(
      run({python_, "level=2", "setup=" + config_, "has-manager", "location=bal:///models/teapot"})
          .out,
      "manager\n0 bal:///models/teapot\n");
  EXPECT_EQ(log(),
            "[Asset System Warning]Loaded manager Basic Asset Library \xf0\x9f\x93\x96, but it "
            "does not support asset resolution "
            "and will be ignored\n");
}

TEST_F(PythonAssetProcess, ClearCacheMakesThePythonManagerAnew) {
  environment_["OPENASSETIO_DEFAULT_CONFIG"] = config_;
  EXPECT_EQ(run({python_, "setup=", "location=bal:///models/teapot?v=1", "clear-cache",
                 "location=bal:///models/teapot?v=1"})
                .out,
            "1 " + folder_.path() + "/demo/teapot v1.usda\n1 " + folder_.path() +
                "/demo/teapot v1.usda\n");
}

TEST_F(PythonAssetProcess, NativeManagersWorkBesidePython) {
  EXPECT_EQ(run({python_, "setup=" + nativeConfig(), "location=test:url:file:///x",
                 "setup=" + config_, "is-asset=bal:///models/teapot", "is-asset=test:count"})
                .out,
            "1 /x\n1\n0\n");
  EXPECT_EQ(log(), "");
}

TEST_F(PythonAssetProcess, WithoutAnInterpreterPythonIsLeftOutAndNativeManagersWork) {
  EXPECT_EQ(run({"setup=" + config_, "has-manager", "setup=" + nativeConfig(),
                 "location=test:url:file:///x"})
                .out,
            "no manager\n1 /x\n");
  EXPECT_THAT(
      log(),
      HasSubstr(
          "No plug-in registered with the identifier 'org.openassetio.examples.manager.bal'"));
}

TEST_F(PythonAssetProcess, WhyPythonIsLeftOutIsAVerboseLine) {
  run({"level=4", "setup=" + nativeConfig()});
  EXPECT_EQ(log(),
            "[Asset System Verbose]Python asset managers are left out: no Python interpreter runs "
            "in this process\n");
}

TEST_F(PythonAssetProcess, LoadedButSleepingPythonIsLeftOut) {
  EXPECT_EQ(run({"load-python=" VELA_TEST_LIBPYTHON, "setup=" + nativeConfig(),
                 "location=test:url:file:///x"})
                .out,
            "1 /x\n");
}

TEST_F(PythonAssetProcess, InterpreterThatAppearsLaterIsFoundAtTheNextSetup) {
  EXPECT_EQ(run({"setup=" + config_, "has-manager", python_, "setup=" + config_, "has-manager",
                 "location=bal:///models/teapot"})
                .out,
            "no manager\nmanager\n1 " + folder_.path() + "/demo/teapot v2.usda\n");
}

TEST_F(PythonAssetProcess, ThreadsResolveThroughPython) {
  EXPECT_EQ(run({python_, "setup=" + config_, "threads=8,bal:///models/teapot"}).out, "8\n");
}

TEST_F(PythonAssetProcess, ProcessEndsCleanlyAfterItsInterpreter) {
  EXPECT_EQ(
      run({python_, "setup=" + config_, "location=bal:///models/teapot", "finish-python"}).out,
      "1 " + folder_.path() + "/demo/teapot v2.usda\n");
}

}  // namespace
