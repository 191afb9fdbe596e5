#include "vela/picture/LayerChoice.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"
#include "vela/picture/Cryptomatte.h"

namespace {

using namespace vela::picture;
using Words = std::vector<std::string>;

LayerChoice choose(const Words& names) {
  std::string error;
  const auto choice = chooseLayers(names, &error);
  EXPECT_TRUE(choice) << error;
  return choice.value_or(LayerChoice());
}

Words channelsOf(const LayerChoice& choice) {
  Words names;
  for (const Layer& layer : choice.makePicture(1, 1).layers)
    names.insert(names.end(), layer.channels.begin(), layer.channels.end());
  return names;
}

TEST(LayerChoice, EachRowOfTheTableCanBeChosenAlone) {
  for (const LayerInfo& info : layerTable()) {
    const LayerChoice choice = choose({info.name});
    ASSERT_EQ(choice.layers.size(), 1u) << info.name;
    EXPECT_EQ(choice.layers[0].name, info.name);
    EXPECT_EQ(channelsOf(choice), info.channels) << info.name;
    EXPECT_EQ(choice.set.size(), info.channels.size());
    EXPECT_TRUE(choice.has(info.sampling));
    const Picture picture = choice.makePicture(3, 2);
    EXPECT_TRUE(picture.hasLayer(info.name));
    const LayerView view = picture.layer(info.name);
    EXPECT_EQ(view.type, info.type);
    EXPECT_EQ(view.floats ? view.floats.height : view.integers.height, 2);
  }
}

TEST(LayerChoice, ComponentsFollowThePositionInTheLayerNotTheNumber) {
  // Members of vectors are numbered last first: z has the lowest number.
  const LayerChoice choice = choose({"N"});
  EXPECT_EQ(channelsOf(choice), (Words{"N.x", "N.y", "N.z"}));
  const vela::LayerAlias* layer = vela::DefaultChannelManager()->getLayer("N");
  ASSERT_NE(layer, nullptr);
  EXPECT_GT(layer->channel(0).index(), layer->channel(2).index());
}

TEST(LayerChoice, LayersComeInTheOrderOfTheTableEachChannelOnce) {
  const LayerChoice choice = choose({"face", "albedo", "depth", "rgb", "rgba", "depth"});
  EXPECT_EQ(channelsOf(choice),
            (Words{"R", "G", "B", "A", "Z", "face.id", "albedo.R", "albedo.G", "albedo.B"}));
  EXPECT_EQ(choice.set.size(), 9u);
}

TEST(LayerChoice, PartsTogetherAreTheWholeAndAloneKeepTheirNames) {
  EXPECT_EQ(choose({"alpha", "rgb"}).layers[0].name, "rgba");
  EXPECT_EQ(choose({"rgb"}).layers[0].elements, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(choose({"alpha"}).layers[0].elements, (std::vector<int>{3}));
  EXPECT_EQ(choose({"alpha"}).layers[0].info->name, "rgba");
}

TEST(LayerChoice, WhatIsMissingIsCreatedOnceInTheDefaultRegistry) {
  (void)choose({"P"});
  const std::size_t layers = vela::DefaultChannelManager()->nLayers();
  const LayerChoice again = choose({"P", "P"});
  EXPECT_EQ(vela::DefaultChannelManager()->nLayers(), layers);
  EXPECT_EQ(again.set.size(), 3u);
  const vela::LayerAlias* layer = vela::DefaultChannelManager()->getLayer("P");
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(layer->purpose(), vela::Channel::Type::dataVec3);
  EXPECT_TRUE(again.set.contains(layer->channelSet()));
}

TEST(LayerChoice, ALayerOfTheRegistryMayHoldChannelsOfRows) {
  vela::ChannelManager& registry = *vela::DefaultChannelManager();
  (void)choose({"N"});
  const vela::LayerAlias* normal = registry.getLayer("N");
  registry.createLayer("test_normal_xz", 2, vela::Channel::data, (*normal)[0], (*normal)[2],
                       nullptr, nullptr);
  const LayerChoice choice = choose({"test_normal_xz"});
  ASSERT_EQ(choice.layers.size(), 1u);
  EXPECT_EQ(choice.layers[0].name, "N");
  EXPECT_EQ(channelsOf(choice), (Words{"N.x", "N.z"}));
}

TEST(LayerChoice, APictureIsReducedToTheChannelsOfAChoice) {
  Picture picture = choose({"rgba", "depth", "prim"}).makePicture(2, 1);
  picture.layers[0].floats = {1, 2, 3, 4, 5, 6, 7, 8};
  picture.layers[1].floats = {9, 10};
  picture.layers[2].integers = {11, 12};
  Picture rgb = picture;
  choose({"rgb", "prim", "albedo"}).reduce(rgb);
  ASSERT_EQ(rgb.layers.size(), 2u);
  EXPECT_EQ(rgb.layers[0].name, "rgb");
  EXPECT_EQ(rgb.layers[0].channels, (Words{"R", "G", "B"}));
  EXPECT_EQ(rgb.layers[0].floats, (std::vector<float>{1, 2, 3, 5, 6, 7}));
  EXPECT_EQ(rgb.layers[1].integers, (std::vector<std::uint32_t>{11, 12}));
  EXPECT_FALSE(rgb.layer("depth"));
  choose({"rgba", "depth"}).reduce(picture);
  EXPECT_EQ(picture.layers.size(), 2u);
  EXPECT_EQ(picture.layer("alpha").floats(1, 0), 8.0f);
}

TEST(LayerChoice, AGroupIsAllOfItsRows) {
  const LayerChoice choice = choose({"crypto_object", "crypto_object01", "depth"});
  ASSERT_EQ(choice.layers.size(), 4u);
  EXPECT_EQ(choice.layers[0].name, "depth");
  EXPECT_EQ(choice.layers[1].name, "crypto_object00");
  EXPECT_EQ(choice.layers[3].name, "crypto_object02");
  EXPECT_EQ(choice.set.size(), 13u);
  EXPECT_TRUE(choice.has(Sampling::coverageOfSamples));
  EXPECT_FALSE(choice.has(Sampling::meanOfSamples));
}

TEST(LayerChoice, AttributesOfMattesGoWithTheirLayers) {
  Picture picture = choose({"crypto_object", "crypto_asset"}).makePicture(1, 1);
  const std::string object = cryptomatteAttribute("crypto_object", "name");
  picture.attributes = {{cryptomatteAttribute("crypto_asset", "name"), std::string("a")},
                        {"software", std::string("b")},
                        {object, std::string("c")},
                        {cryptomatteAttribute("crypto_asset", "manifest"), std::string("d")}};
  choose({"crypto_object"}).reduce(picture);
  ASSERT_EQ(picture.attributes.size(), 2u);
  EXPECT_EQ(picture.attributes[0].name, "software");
  EXPECT_EQ(picture.attributes[1].name, object);
}

TEST(LayerChoice, WhatCannotBeRenderedIsRefusedByName) {
  const std::string attempt =
      "; try rgba, rgb, alpha, depth, P, N, prim, face, material, albedo, crypto_object, "
      "crypto_asset or crypto_material";
  for (const Words& names : {Words{"heat"}, {"rgba", "heat"}, {"heat", "forward"}}) {
    std::string error;
    EXPECT_FALSE(chooseLayers(names, &error));
    EXPECT_EQ(error, "no such layer: heat" + attempt);
  }
  for (const char* name : {"forward", "motion", "deep", "mask", "cutout"}) {
    std::string error;
    EXPECT_FALSE(chooseLayers({"rgba", name}, &error));
    EXPECT_EQ(error, std::string("the layer cannot be rendered: ") + name + attempt);
  }
  std::string error;
  EXPECT_FALSE(chooseLayers({}, &error));
  EXPECT_EQ(error, "no layers: the list is empty" + attempt);
  EXPECT_FALSE(chooseLayers({"heat"}));
}

}  // namespace
