// Small parts of the command: numbers and lists as text, colour codes, layers by the registry,
// files that appear whole.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Failure.h"
#include "Json.h"
#include "Layers.h"
#include "OutputFile.h"
#include "Picture.h"
#include "Text.h"
#include "Tiles.h"
#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"

namespace {

using namespace command;
using Words = std::vector<std::string>;

TEST(Text, ListsAreSplitAtCommasAndTrimmed) {
  EXPECT_EQ(splitList("a,b"), (Words{"a", "b"}));
  EXPECT_EQ(splitList(" a ,\tb c ,,"), (Words{"a", "b c"}));
  EXPECT_EQ(splitList(""), Words{});
  EXPECT_EQ(splitList(" , "), Words{});
}

TEST(Text, NumbersMustBeAsManyAsAskedForFiniteAndNothingElse) {
  std::vector<double> numbers;
  EXPECT_TRUE(readNumbers("1,-2.5, +3e2", 3, numbers));
  EXPECT_EQ(numbers, (std::vector<double>{1.0, -2.5, 300.0}));
  for (const char* text : {"1,2", "1,2,3,4", "1,2,x", "1,2,3x", "1,2,inf", "1,2,nan", "1,2,1e999",
                           "", "1,2,+", "1,2,++3"})
    EXPECT_FALSE(readNumbers(text, 3, numbers)) << text;
}

TEST(Text, TheShortestTextReadsBackTheSame) {
  EXPECT_EQ(toText(0.1f), "0.1");
  EXPECT_EQ(toText(-3.0f), "-3");
  const unsigned seed = 11;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> any(-1e6f, 1e6f);
  for (int i = 0; i < 1000; ++i) {
    const float value = any(random);
    EXPECT_EQ(std::stof(toText(value)), value);
  }
}

TEST(Png, ColoursGetTheCodesOfSrgb) {
  // Values of the standard's own formula, computed apart in decimal.
  EXPECT_EQ(encodeSrgb(0.0f), 0);
  EXPECT_EQ(encodeSrgb(0.001f), 3);
  EXPECT_EQ(encodeSrgb(0.0031308f), 10);
  EXPECT_EQ(encodeSrgb(0.18f), 118);
  EXPECT_EQ(encodeSrgb(0.5f), 188);
  EXPECT_EQ(encodeSrgb(1.0f), 255);
  EXPECT_EQ(encodeSrgb(7.0f), 255);
  EXPECT_EQ(encodeSrgb(-1.0f), 0);
  EXPECT_EQ(encodeSrgb(std::numeric_limits<float>::infinity()), 255);
  EXPECT_EQ(encodeSrgb(std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(Layers, ComponentsFollowThePlaceInTheLayerNotTheNumber) {
  // Members of vectors are numbered last first: z has the lowest number.
  const LayerChoice choice = chooseLayers("N");
  ASSERT_EQ(choice.channels.size(), 3u);
  EXPECT_EQ(choice.channels[0].exrName, "N.z");
  EXPECT_EQ(choice.channels[0].component, 2);
  EXPECT_EQ(choice.channels[2].exrName, "N.x");
  EXPECT_EQ(choice.channels[2].component, 0);
}

TEST(Layers, TheBaseLayerHasBareNamesAllOthersTheirLayers) {
  Words names;
  for (const LayerChannel& channel : chooseLayers("face,albedo,depth,rgba").channels)
    names.push_back(channel.exrName);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (Words{"A", "B", "G", "R", "Z", "albedo.B", "albedo.G", "albedo.R", "face.id"}));
}

TEST(Layers, WhatIsMissingIsMadeOnceInTheDefaultRegistry) {
  (void)chooseLayers("P");
  const std::size_t layers = vela::DefaultChannelManager()->nLayers();
  const LayerChoice again = chooseLayers("P,P, P");
  EXPECT_EQ(vela::DefaultChannelManager()->nLayers(), layers);
  EXPECT_EQ(again.set.size(), 3u);
  const vela::LayerAlias* layer = vela::DefaultChannelManager()->getLayer("P");
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(layer->purpose(), vela::Channel::Type::dataVec3);
  EXPECT_TRUE(again.set.contains(layer->channelSet()));
}

TEST(Layers, WhatCannotBeRenderedIsRefusedByName) {
  for (const char* list : {"heat", "rgba,heat", "forward", "motion", "deep", "mask", "cutout", ""})
    try {
      (void)chooseLayers(list);
      ADD_FAILURE() << list;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code, kUsage) << list;
      EXPECT_NE(failure.attempt.find("rgba"), std::string::npos);
    }
}

TEST(Json, TheManifestNumbersFromOneAndEscapes) {
  EXPECT_EQ(manifestOf({}), "{}");
  EXPECT_EQ(manifestOf({"/A", "/B/C"}), R"({"/A":1,"/B/C":2})");
  EXPECT_EQ(manifestOf({"/\"\xff"}), "{\"/\\\"\xef\xbf\xbd\":1}");
}

TEST(Json, APickReportHasTheShortestDecimals) {
  PickReport report;
  report.hit = true;
  report.path = "/A";
  report.distance = 0.1f;
  report.position = {0.2f, -3.0f, std::numeric_limits<float>::quiet_NaN()};
  const std::string text = toJson(report);
  EXPECT_NE(text.find("\"distance\": 0.1,"), std::string::npos) << text;
  EXPECT_NE(text.find("null"), std::string::npos) << text;
}

TEST(OutputFile, AppearsWithCommitAndLeavesNothingWithoutIt) {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / "vela_output_file";
  std::filesystem::create_directories(folder);
  const std::string name = (folder / "a.txt").string();
  std::filesystem::remove(name);
  {
    const OutputFile file(name);
    std::ofstream(file.temporaryName()) << "half";
    EXPECT_FALSE(std::filesystem::exists(name));
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  {
    OutputFile file(name);
    std::ofstream(file.temporaryName()) << "whole";
    file.commit();
  }
  std::string text;
  std::ifstream(name) >> text;
  EXPECT_EQ(text, "whole");
  std::filesystem::remove_all(folder);
}

TEST(Tiles, EveryPixelBelongsToOneTile) {
  for (const int threads : {1, 2, 5}) {
    std::vector<int> seen(static_cast<std::size_t>(70 * 45), 0);
    const std::atomic<std::uint64_t> rays{0};
    forEachTile("test", 70, 45, threads, rays, [&](const Tile& tile, int thread) {
      EXPECT_LT(thread, threads);
      for (int y = tile.y0; y < tile.y1; ++y)
        for (int x = tile.x0; x < tile.x1; ++x) ++seen[static_cast<std::size_t>(y * 70 + x)];
    });
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 70 * 45);
  }
}

TEST(Tiles, WhatTheWorkThrowsComesOut) {
  const std::atomic<std::uint64_t> rays{0};
  EXPECT_THROW(forEachTile("test", 64, 64, 2, rays, [](const Tile&, int) { throw Failure{}; }),
               Failure);
}

}  // namespace
