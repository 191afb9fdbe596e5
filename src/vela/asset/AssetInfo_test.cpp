#include "vela/asset/AssetInfo.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <regex>
#include <thread>
#include <unordered_set>

#include "support/ChildProcess.h"
#include "vela/asset/detail/OpenAssetIO.h"
#include "vela/log/Log.h"

namespace {

using namespace vela::asset;
using openassetio::trait::TraitsData;

const std::set<std::string> kLocatable{kLocatableContentTrait};

// Before anything logs: the log file is chosen once in a process.
struct LogFile {
  LogFile() { setenv("HALDEN_LOG_FILE", folder.file("log").c_str(), 1); }
  vela_test::TemporaryFolder folder;
};
const LogFile theLog;

int resolveCalls() {
  static void* const plugin = dlopen(VELA_ASSET_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  static const auto calls = reinterpret_cast<int (*)()>(dlsym(plugin, "velaTestResolveCalls"));
  return calls();
}

// Tests against the native manager, with the lines that they add to the log.
class Asset : public testing::Test {
 protected:
  Asset() {
    setenv("OPENASSETIO_PLUGIN_PATH", VELA_ASSET_PLUGINS, 1);
    unsetenv("OPENASSETIO_DEFAULT_CONFIG");
    clearCache();
    setManager(nativeManager());
    logBefore_ = vela_test::readFile(theLog.folder.file("log")).size();
  }
  ~Asset() override { setManager(nullptr); }

  static std::shared_ptr<openassetio::hostApi::Manager> nativeManager() {
    static const auto manager = [] {
      const std::string config = theLog.folder.file("native.toml");
      EXPECT_TRUE(
          vela_test::writeFile(config, "[manager]\nidentifier = \"org.vela.test.native\"\n"));
      setupManager(config);
      return getManager();
    }();
    EXPECT_NE(manager, nullptr);
    return manager;
  }

  std::string logged() const {
    static const std::regex stamp(R"(\[\d{4}/\d\d/\d\d:\d\d:\d\d:\d\d\] )");
    return std::regex_replace(vela_test::readFile(theLog.folder.file("log")).substr(logBefore_),
                              stamp, "");
  }

 private:
  std::size_t logBefore_ = 0;
};

std::string located(const std::string& reference) {
  std::string path = "before";
  return resolveAssetLocation(reference, path) ? path : "failed: " + path;
}

// ---- IsAssetPath

TEST_F(Asset, IsWhatTheManagerTakesForAReference) {
  EXPECT_TRUE(isAssetPath("test:anything"));
  EXPECT_FALSE(isAssetPath("/plain/path"));
  EXPECT_FALSE(isAssetPath(""));
  EXPECT_TRUE(isAssetPath(std::string_view("test:anything and more", 8)));
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, IsNothingWithoutAManager) {
  setManager(nullptr);
  std::string path = "before";
  EXPECT_FALSE(isAssetPath("test:count"));
  EXPECT_EQ(resolveAsset("test:count", kLocatable), nullptr);
  EXPECT_FALSE(resolveAssetLocation("test:count", path));
  EXPECT_EQ(path, "test:count");
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, QuestionThatThrowsIsANoInTheLog) {
  EXPECT_FALSE(isAssetPath("test-throws:x"));
  EXPECT_EQ(logged(),
            "[Asset System Error]Failed to look at an asset reference: cannot look at it\n");
}

// ---- ResolveAsset

TEST_F(Asset, ResolvesToTraitData) {
  const auto data = resolveAsset("test:url:file:///a", kLocatable);
  ASSERT_NE(data, nullptr);
  openassetio::trait::property::Value value;
  ASSERT_TRUE(data->getTraitProperty(&value, kLocatableContentTrait, "location"));
  EXPECT_EQ(std::get<std::string>(value), "file:///a");
}

TEST_F(Asset, UnknownReferenceIsNullWithNoMessage) {
  EXPECT_EQ(resolveAsset("/plain/path", kLocatable), nullptr);
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, EmptyTraitSetIsNullWithoutAskingTheManager) {
  const int before = resolveCalls();
  EXPECT_EQ(resolveAsset("test:count", {}), nullptr);
  EXPECT_EQ(resolveCalls(), before);
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, SecondResolveIsServedFromTheCache) {
  const int before = resolveCalls();
  const auto first = resolveAsset("test:count", kLocatable);
  EXPECT_EQ(resolveAsset("test:count", kLocatable), first);
  EXPECT_EQ(resolveCalls(), before + 1);
  clearCache();
  EXPECT_NE(resolveAsset("test:count", kLocatable), first);
  EXPECT_EQ(resolveCalls(), before + 2);
}

TEST_F(Asset, OtherTraitsAreAnotherQuestion) {
  const int before = resolveCalls();
  (void)resolveAsset("test:count", kLocatable);
  (void)resolveAsset("test:count", {kLocatableContentTrait, "another"});
  (void)resolveAsset("test:count", {"another", kLocatableContentTrait});
  EXPECT_EQ(resolveCalls(), before + 2);
}

TEST_F(Asset, QuestionsWhosePartsRunTogetherAlikeShareAnAnswer) {
  // KEEP(asset-cache-key)
  const int before = resolveCalls();
  const auto first = resolveAsset("test:count", {"er", "trait"});
  EXPECT_EQ(resolveAsset("test:counter", {"trait"}), first);
  EXPECT_EQ(resolveCalls(), before + 1);
}

TEST_F(Asset, NullFromTheManagerIsAnAnswerThatIsKept) {
  const int before = resolveCalls();
  EXPECT_EQ(resolveAsset("test:null", kLocatable), nullptr);
  EXPECT_EQ(resolveAsset("test:null", kLocatable), nullptr);
  EXPECT_EQ(resolveCalls(), before + 1);
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, FailuresAreNotKept) {
  const int before = resolveCalls();
  EXPECT_EQ(resolveAsset("test:batch-error", kLocatable), nullptr);
  EXPECT_EQ(resolveAsset("test:batch-error", kLocatable), nullptr);
  EXPECT_EQ(resolveCalls(), before + 2);
}

TEST_F(Asset, CacheOutlivesTheManager) {
  // KEEP(asset-cache-outlives-manager)
  const auto manager = getManager();
  const auto first = resolveAsset("test:count", kLocatable);
  setManager(nullptr);
  EXPECT_EQ(resolveAsset("test:count", kLocatable), nullptr);
  setManager(manager);
  EXPECT_EQ(resolveAsset("test:count", kLocatable), first);
}

TEST_F(Asset, ExceptionsOfEveryKindAreInTheLog) {
  for (const char* kind : {"std", "openassetio", "bad-alloc", "int"})
    EXPECT_EQ(resolveAsset(std::string("test:throw-") + kind, kLocatable), nullptr);
  EXPECT_EQ(resolveAsset("test:batch-error", kLocatable), nullptr);
  EXPECT_EQ(resolveAsset("test-throws:x", kLocatable), nullptr);
  EXPECT_EQ(logged(),
            "[Asset System Error]Failed to resolve asset: a standard failure\n"
            "[Asset System Error]Failed to resolve asset: a failure of its own kind\n"
            "[Asset System Error]Failed to resolve asset: std::bad_alloc\n"
            "[Asset System Error]Failed to resolve asset: unknown exception\n"
            "[Asset System Error]Failed to resolve asset: entityResolutionError: not found "
            "[index=0] [access=read] "
            "[entity=test:batch-error]\n"
            "[Asset System Error]Failed to resolve asset: cannot look at it\n");
}

// ---- Locations

TEST_F(Asset, LocationIsThePathOfAFileUrl) {
  EXPECT_EQ(located("test:url:file:///a/b.usd"), "/a/b.usd");
  EXPECT_EQ(located("test:url:file:///a%20b/%C3%A4.usd"), "/a b/\xc3\xa4.usd");
  EXPECT_EQ(located("test:url:FILE://localhost/a/../b"), "/b");
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, InvalidUrlsAreInTheLog) {
  for (const char* url :
       {"not a url", "http://host/x", "file://elsewhere/x", "file:///a%2fb", "file:///a%00b", ""})
    EXPECT_EQ(located(std::string("test:url:") + url), std::string("failed: test:url:") + url);
  EXPECT_EQ(logged(),
            "[Asset System Error]Failed to resolve invalid url: not a url\n"
            "[Asset System Error]Failed to resolve invalid url: http://host/x\n"
            "[Asset System Error]Failed to resolve invalid url: file://elsewhere/x\n"
            "[Asset System Error]Failed to resolve invalid url: file:///a%2fb\n"
            "[Asset System Error]Failed to resolve invalid url: file:///a%00b\n"
            "[Asset System Error]Failed to resolve invalid url: \n");
}

TEST_F(Asset, LocationThatIsNoTextIsInTheLog) {
  EXPECT_EQ(located("test:number"), "failed: test:number");
  EXPECT_EQ(logged(),
            "[Asset System Error]Failed to resolve asset location: Invalid stored value type: "
            "should be 'openassetio::Str'.\n");
  std::string path = "before";
  EXPECT_NO_THROW(EXPECT_FALSE(getAssetLocation(resolveAsset("test:number", kLocatable), path)));
  EXPECT_EQ(path, "before");
}

TEST_F(Asset, DataWithoutALocationIsAQuietFailure) {
  EXPECT_EQ(located("test:none"), "failed: test:none");
  EXPECT_EQ(located("test:null"), "failed: test:null");
  EXPECT_EQ(located("/plain/path"), "failed: /plain/path");
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, LocationOfGivenData) {
  const auto data = TraitsData::make();
  std::string path = "before";
  EXPECT_FALSE(getAssetLocation(data, path));
  EXPECT_FALSE(getAssetLocation(nullptr, path));
  EXPECT_EQ(path, "before");
  data->setTraitProperty(kLocatableContentTrait, "location", std::string("file:///x"));
  EXPECT_TRUE(getAssetLocation(data, path));
  EXPECT_EQ(path, "/x");
  EXPECT_EQ(logged(), "");
}

TEST_F(Asset, ReferenceAndPathMayBeTheSameString) {
  std::string both = "test:url:file:///x";
  EXPECT_TRUE(resolveAssetLocation(both, both));
  EXPECT_EQ(both, "/x");
  EXPECT_FALSE(resolveAssetLocation(both, both));
  EXPECT_EQ(both, "/x");
}

// ---- Reasons

TEST_F(Asset, ReasonsComeToWhoeverAsksAndNotIntoTheLog) {
  AssetMessage error{"before", "before"};
  EXPECT_TRUE(isAssetPath("test:anything", &error));
  EXPECT_EQ(error.reason + error.text, "");
  EXPECT_FALSE(isAssetPath("/plain/path", &error));
  EXPECT_EQ(error.reason, "the asset manager knows no references of this kind");
  EXPECT_EQ(error.text, "") << "the plain call logs nothing";
  EXPECT_FALSE(isAssetPath("test-throws:x", &error));
  EXPECT_EQ(error.reason, "cannot look at it");
  EXPECT_EQ(error.text, "Failed to look at an asset reference: cannot look at it");

  std::string path = "before";
  EXPECT_TRUE(resolveAssetLocation("test:url:file:///x", path, &error));
  EXPECT_EQ(path, "/x");
  EXPECT_EQ(error.reason + error.text, "");
  EXPECT_FALSE(resolveAssetLocation("test:throw-std", path, &error));
  EXPECT_EQ(path, "test:throw-std");
  EXPECT_EQ(error.reason, "a standard failure");
  EXPECT_EQ(error.text, "Failed to resolve asset: a standard failure");
  EXPECT_FALSE(resolveAssetLocation("test:throw-int", path, &error));
  EXPECT_EQ(error.text, "Failed to resolve asset: unknown exception");
  EXPECT_FALSE(resolveAssetLocation("test:url:https://x", path, &error));
  EXPECT_EQ(error.reason, "invalid url: https://x");
  EXPECT_EQ(error.text, "Failed to resolve invalid url: https://x");
  EXPECT_FALSE(resolveAssetLocation("test:none", path, &error));
  EXPECT_EQ(error.reason, "the asset manager has no location for it");
  EXPECT_EQ(error.text, "");
  EXPECT_FALSE(resolveAssetLocation("test:null", path, &error));
  EXPECT_EQ(error.reason, "the asset manager has no data for it");
  EXPECT_EQ(resolveAsset("test:count", {}, &error), nullptr);
  EXPECT_EQ(error.reason, "no traits are asked for");
  EXPECT_EQ(resolveAsset("/plain/path", kLocatable, &error), nullptr);
  EXPECT_EQ(error.reason, "the asset manager knows no references of this kind");
  EXPECT_NE(resolveAsset("test:count", kLocatable, &error), nullptr);
  EXPECT_EQ(error.reason, "");
  EXPECT_EQ(logged(), "");

  setManager(nullptr);
  EXPECT_FALSE(isAssetPath("test:anything", &error));
  EXPECT_EQ(error.reason, "no asset manager is installed");
  EXPECT_FALSE(resolveAssetLocation("test:count", path, &error));
  EXPECT_EQ(error.reason, "no asset manager is installed");
  EXPECT_EQ(logged(), "");
}

// ---- Records

TEST_F(Asset, DataIsValidWhenThereIsSome) {
  const auto data = TraitsData::make();
  EXPECT_FALSE(AssetData(nullptr).isValid());
  const AssetData valid(data);
  EXPECT_TRUE(valid.isValid());
  EXPECT_EQ(valid.traitsData(), data);
  const AssetData copy = valid;
  EXPECT_EQ(copy.traitsData(), data);
}

std::uint64_t hashOf(const std::string& bytes) {
  std::uint64_t hash = 0;
  for (const char c : bytes) hash = hash * 0x1003F + static_cast<unsigned char>(c);
  return hash;
}

TEST(AssetInfoHash, IsOverPathAndTraitsInAscendingOrder) {
  EXPECT_EQ(AssetInfo().hash(), 0u);
  EXPECT_EQ(AssetInfo("a", {}).hash(), 97u);
  EXPECT_EQ(AssetInfo("ab", {}).hash(), 97u * 65599u + 98u);
  EXPECT_EQ(AssetInfo("/a", {"z", "b"}).hash(), hashOf("/abz"));
  EXPECT_EQ(AssetInfo(std::set<std::string>{"z", "b"}).hash(), hashOf("bz"));
  EXPECT_EQ(AssetInfo("a long path that wraps around the sixty-four bits", {}).hash(),
            hashOf("a long path that wraps around the sixty-four bits"));
}

TEST(AssetInfoHash, BytesAreUnsignedAndEndAtAZero) {
  EXPECT_EQ(AssetInfo("\xff", {}).hash(), 255u);
  EXPECT_EQ(AssetInfo(std::string("a\0b", 3), {std::string("c\0d", 3)}).hash(), hashOf("ac"));
}

TEST(AssetInfoHash, RecordsAreEqualWhenTheirHashesAre) {
  const AssetInfo a("/a", {"t"}), same("/a", {"t"}), other("/b", {"t"}), joined("/at", {});
  EXPECT_TRUE(a == same);
  EXPECT_EQ(AssetInfo::HashFunction()(a), AssetInfo::HashFunction()(same));
  EXPECT_FALSE(a == other);
  EXPECT_TRUE(a != other);
  EXPECT_TRUE(a == joined) << "only the hashes are compared";
  std::unordered_set<AssetInfo, AssetInfo::HashFunction> set{a, same, other};
  EXPECT_EQ(set.size(), 2u);
}

TEST(AssetInfoRecord, HoldsWhatItWasGiven) {
  const AssetInfo info("/a", {"t"});
  EXPECT_EQ(info.path(), "/a");
  EXPECT_EQ(info.traits(), (std::set<std::string>{"t"}));
  EXPECT_FALSE(info.isAsset());
  const AssetInfo copy = info;
  EXPECT_EQ(copy.path(), "/a");
  EXPECT_TRUE(copy == info);
  EXPECT_EQ(AssetInfo().path(), "");
  EXPECT_TRUE(AssetInfo().traits().empty());
  EXPECT_FALSE(AssetInfo().isAsset());
}

TEST_F(Asset, RecordFindsTheFileOfAReference) {
  AssetInfo info("before", kLocatable);
  const std::uint64_t before = info.hash();
  std::string out;
  EXPECT_TRUE(info.resolveLocation("test:url:file:///x", out));
  EXPECT_EQ(out, "/x");
  EXPECT_TRUE(info.isAsset());
  EXPECT_EQ(info.path(), "test:url:file:///x");
  EXPECT_NE(info.hash(), before);
  EXPECT_EQ(info.hash(), AssetInfo("test:url:file:///x", kLocatable).hash());
  EXPECT_TRUE(info.getResolvedData().isValid());
}

TEST_F(Asset, RecordCopiesAPlainPath) {
  AssetInfo info(kLocatable);
  std::string out;
  EXPECT_FALSE(info.resolveLocation("/plain/path", out));
  EXPECT_EQ(out, "/plain/path");
  EXPECT_FALSE(info.isAsset());
  EXPECT_FALSE(info.getResolvedData().isValid());
}

TEST_F(Asset, RecordOfAReferenceWithoutDataCopiesIt) {
  AssetInfo info(kLocatable);
  std::string out;
  EXPECT_FALSE(info.resolveLocation("test:batch-error", out));
  EXPECT_EQ(out, "test:batch-error");
  EXPECT_TRUE(info.isAsset());
}

TEST_F(Asset, RecordLeavesThePathWhenDataHasNoLocation) {
  AssetInfo info(kLocatable);
  std::string out = "before";
  EXPECT_FALSE(info.resolveLocation("test:none", out));
  EXPECT_EQ(out, "before");
  EXPECT_TRUE(info.isAsset());
}

TEST_F(Asset, RecordWithoutTraitsResolvesNothing) {
  AssetInfo info;
  std::string out;
  EXPECT_FALSE(info.resolveLocation("test:count", out));
  EXPECT_EQ(out, "test:count");
  EXPECT_TRUE(info.isAsset());
}

TEST_F(Asset, RecordMayReadAndWriteTheSameString) {
  AssetInfo info(kLocatable);
  std::string both = "test:url:file:///x";
  EXPECT_TRUE(info.resolveLocation(both, both));
  EXPECT_EQ(both, "/x");
  EXPECT_FALSE(info.resolveLocation(both, both));
  EXPECT_EQ(both, "/x");
}

TEST_F(Asset, StaticQuestionIsTheManagers) {
  EXPECT_TRUE(AssetInfo::isAsset("test:x"));
  EXPECT_FALSE(AssetInfo::isAsset("/x"));
}

// ---- Threads

TEST_F(Asset, ThreadsResolveWhileTheCacheIsCleared) {
  std::vector<std::thread> threads;
  std::atomic<int> found{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &found] {
      for (int i = 0; i < 200; ++i) {
        std::string path;
        const std::string name = "/" + std::to_string((i + t) % 20);
        if (resolveAssetLocation("test:url:file://" + name, path) && path == name) ++found;
        if (t == 0 && i % 10 == 0) clearCache();
        if (t == 1 && i % 10 == 0) clearContext();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, 8 * 200);
  EXPECT_EQ(logged(), "");
}

}  // namespace
