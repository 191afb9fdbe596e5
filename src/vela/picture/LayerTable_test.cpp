#include "vela/picture/LayerTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "vela/picture/detail/LayerRows.h"

namespace {

using namespace vela::picture;
using Words = std::vector<std::string>;

TEST(LayerTable, RowsAreFoundByNameAndNamesAreThereOnce) {
  std::set<std::string> names;
  for (const LayerInfo& info : layerTable()) {
    EXPECT_TRUE(names.insert(info.name).second) << info.name;
    EXPECT_EQ(findLayerInfo(info.name), &info);
    EXPECT_EQ(&detail::rowOf(info).info, &detail::layerRows()[names.size() - 1].info);
  }
  EXPECT_EQ(findLayerInfo("heat"), nullptr);
}

TEST(LayerTable, EachRowIsWhole) {
  for (const detail::LayerRow& row : detail::layerRows()) {
    const LayerInfo& info = row.info;
    EXPECT_GE(info.channels.size(), 1u) << info.name;
    EXPECT_LE(info.channels.size(), 4u) << info.name;
    EXPECT_EQ(info.channels.size(), info.subnames.size()) << info.name;
    EXPECT_FALSE(info.help.empty()) << info.name;
    const int functions = (row.function.atCentre != nullptr) + (row.function.ofMean != nullptr) +
                          (row.function.ofCoverage != nullptr);
    EXPECT_EQ(functions, info.isPart ? 0 : 1) << info.name;
    // What is created member by member needs a type for each.
    if (row.purpose != vela::Channel::none && row.purpose != vela::Channel::dataVec3) {
      EXPECT_EQ(row.channelTypes.size(), info.channels.size()) << info.name;
    }
    if (row.purpose == vela::Channel::dataVec3) {
      for (const std::string& subname : info.subnames) EXPECT_EQ(subname.size(), 1u) << info.name;
    }
  }
}

TEST(LayerTable, FileNamesAreThereOnceButForParts) {
  std::set<std::string> channels;
  for (const LayerInfo& info : layerTable())
    for (const std::string& channel : info.channels)
      EXPECT_NE(channels.insert(channel).second, info.isPart) << channel;
}

TEST(LayerTable, APartIsNeighbouringChannelsOfARowAboveAndSampledAsThatIs) {
  const std::vector<LayerInfo>& table = layerTable();
  int parts = 0;
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (!table[i].isPart) continue;
    ++parts;
    const auto owner = std::find_if(
        table.begin(), table.begin() + static_cast<std::ptrdiff_t>(i), [&](const LayerInfo& info) {
          return !info.isPart &&
                 std::search(info.channels.begin(), info.channels.end(), table[i].channels.begin(),
                             table[i].channels.end()) != info.channels.end();
        });
    ASSERT_NE(owner, table.begin() + static_cast<std::ptrdiff_t>(i)) << table[i].name;
    EXPECT_EQ(owner->type, table[i].type);
    EXPECT_EQ(owner->sampling, table[i].sampling);
  }
  EXPECT_EQ(parts, 2);
}

TEST(LayerTable, LightIsAMeanAndDataAreOfThePixelsCentre) {
  for (const char* name : {"rgba", "rgb", "alpha", "albedo"})
    EXPECT_EQ(findLayerInfo(name)->sampling, Sampling::meanOfSamples) << name;
  for (const char* name : {"depth", "P", "N", "prim", "face", "material"})
    EXPECT_EQ(findLayerInfo(name)->sampling, Sampling::pixelCentre) << name;
  for (const char* name : {"prim", "face", "material"})
    EXPECT_EQ(findLayerInfo(name)->type, ValueType::uint32) << name;
}

TEST(LayerTable, MattesAreGroupsOfThreeRowsOfCoverage) {
  const Words names = layerNames();
  for (const char* matte : {"crypto_object", "crypto_asset", "crypto_material"}) {
    EXPECT_EQ(std::count(names.begin(), names.end(), matte), 1) << matte;
    EXPECT_EQ(findLayerInfo(matte), nullptr);
    const auto group =
        std::find_if(layerGroups().begin(), layerGroups().end(),
                     [&](const LayerGroup& candidate) { return candidate.name == matte; });
    ASSERT_NE(group, layerGroups().end());
    EXPECT_FALSE(group->help.empty());
    ASSERT_EQ(group->layers.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
      const std::string name = std::string(matte) + "0" + std::to_string(i);
      EXPECT_EQ(group->layers[i], name);
      const LayerInfo* info = findLayerInfo(name);
      ASSERT_NE(info, nullptr);
      EXPECT_EQ(info->channels, (Words{name + ".r", name + ".g", name + ".b", name + ".a"}));
      EXPECT_EQ(info->sampling, Sampling::coverageOfSamples);
      EXPECT_FALSE(info->isDefault);
      EXPECT_EQ(std::count(names.begin(), names.end(), name), 0);
    }
  }
  // All other rows are there by their own names.
  EXPECT_EQ(names.front(), "rgba");
  EXPECT_EQ(names.size(), layerTable().size() - 3 * layerGroups().size() + layerGroups().size());
}

TEST(LayerTable, TheDefaultIsColourAndTheDataThatCompositorsAskFor) {
  EXPECT_EQ(defaultLayers(), (Words{"rgba", "depth", "P", "N", "prim", "face"}));
}

}  // namespace
