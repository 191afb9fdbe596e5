#include "vela/channels/ChannelManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using vela::Channel;
using vela::ChannelAlias;
using vela::ChannelManager;
using vela::ChannelSet;
using vela::LayerAlias;
using Type = vela::Channel::Type;

namespace {

// A base registry whose protected operations can be called.
class Registry : public ChannelManager {
 public:
  using ChannelManager::_clearAllChannels;
  using ChannelManager::_clearUserChannels;
  using ChannelManager::_createLayer;
  using ChannelManager::_getChannel;
  using ChannelManager::_getLayer;
  using ChannelManager::addChannelToMap;
  using ChannelManager::createBuiltinChannel;
  using ChannelManager::resetToBuiltIn;

  std::string registryLabel() const override { return "test"; }
};

// One with a built-in entry of its own.
class DepthRegistry : public Registry {
 protected:
  void createBuiltins() override {
    ChannelAlias* z = createBuiltinChannel("depth.Z", 1, 0, Channel::dataDepth);
    createLayer("depth", 1, Channel::dataDepth, z, nullptr, nullptr, nullptr);
  }
};

template <class T>
std::string text(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

std::vector<std::string> names(const ChannelManager& registry) {
  std::vector<std::string> out;
  for (const ChannelAlias* alias : registry.allChannels()) out.push_back(alias->name());
  return out;
}

std::vector<std::string> layerNames(const ChannelManager& registry) {
  std::vector<std::string> out;
  for (const LayerAlias* layer : registry.allLayers()) out.push_back(layer->name());
  return out;
}

std::string dump(const ChannelManager& registry, const char* prefix = "") {
  std::ostringstream ignored;
  testing::internal::CaptureStdout();
  registry.printLayerChannelInfo(ignored, prefix);
  EXPECT_EQ(ignored.str(), "");
  return testing::internal::GetCapturedStdout();
}

template <class Work>
std::string errorsOf(Work work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

void fill(ChannelManager& registry, int left) {
  for (int i = 0; registry.nAvailableChannelSlots() > left; ++i) {
    ASSERT_NE(registry.createChannel("filler", std::to_string(i).c_str(), 0, Channel::data),
              nullptr);
  }
}

// ---- A fresh registry

TEST(ChannelManager, StartsWithFourChannelsAndThreeLayers) {
  const Registry registry;
  EXPECT_EQ(names(registry),
            std::vector<std::string>({"rgba.red", "rgba.green", "rgba.blue", "rgba.alpha"}));
  EXPECT_EQ(layerNames(registry), std::vector<std::string>({"rgb", "rgba", "alpha"}));
  EXPECT_EQ(registry.nChannels(), 4u);
  EXPECT_EQ(registry.nLayers(), 3u);
  EXPECT_EQ(registry.nBuiltInChannels(), 4);
  EXPECT_EQ(registry.nBuiltInLayers(), 3);
  EXPECT_EQ(registry.lastBuiltinChannel(), 4);
  EXPECT_EQ(registry.firstUndefinedChannel(), 5);
  EXPECT_EQ(registry.nDefinedInChannels(), 5);
  EXPECT_EQ(registry.nAvailableChannelSlots(), 1018);
  EXPECT_EQ(registry.maxChannelCount(), 1023);
  EXPECT_EQ(registry.registryLabel(), "test");
  ASSERT_EQ(registry.channelMap().size(), 1024u);
  EXPECT_EQ(registry.channelMap()[0], nullptr);
  for (std::size_t slot = 5; slot < 1024; ++slot) EXPECT_EQ(registry.channelMap()[slot], nullptr);

  const Type types[] = {Channel::colorRed, Channel::colorGreen, Channel::colorBlue,
                        Channel::colorAlpha};
  for (int i = 0; i < 4; ++i) {
    const ChannelAlias* alias = registry.channel(Channel(i + 1));
    EXPECT_EQ(alias, registry.allChannels()[static_cast<std::size_t>(i)]);
    EXPECT_EQ(alias, registry[Channel(i + 1)]);
    EXPECT_EQ(alias->channel(), i + 1);
    EXPECT_EQ(alias->assignChannel(), i + 1);
    EXPECT_TRUE(alias->hasAssignedChannel());
    EXPECT_EQ(alias->position(), static_cast<unsigned>(i));
    EXPECT_EQ(alias->layerPosition(), static_cast<unsigned>(i));
    EXPECT_EQ(alias->purpose(), types[i]);
    EXPECT_EQ(alias->context(), &registry);
    EXPECT_TRUE(alias->isUserVisible());
    EXPECT_EQ(alias->markNumber(), 0);
    EXPECT_EQ(alias->layer(), i < 3 ? registry.rgbLayer() : registry.rgbaLayer());
  }
  EXPECT_EQ(registry.redChannel(), registry.channel(Channel(1)));
  EXPECT_EQ(registry.greenChannel(), registry.channel(Channel(2)));
  EXPECT_EQ(registry.blueChannel(), registry.channel(Channel(3)));
  EXPECT_EQ(registry.alphaChannel(), registry.channel(Channel(4)));
  EXPECT_EQ(registry.rgbLayer(), registry.layer(0));
  EXPECT_EQ(registry.rgbaLayer(), registry.layer(1));
  EXPECT_EQ(registry.alphaLayer(), registry.layer(2));
  EXPECT_EQ(registry.redChannel()->subname(), "red");
}

TEST(ChannelManager, FreshLayersHoldTheirMembers) {
  const Registry registry;
  const LayerAlias* rgba = registry.rgbaLayer();
  EXPECT_EQ(rgba->name(), "rgba");
  EXPECT_EQ(rgba->label(), "rgba");
  EXPECT_EQ(rgba->size(), 4u);
  EXPECT_EQ(rgba->purpose(), Channel::color4);
  EXPECT_EQ(rgba->valueType(), 77);
  EXPECT_EQ(rgba->index(), 1);
  EXPECT_EQ(rgba->context(), &registry);
  EXPECT_TRUE(rgba->channelSet() == 0xFu);
  EXPECT_EQ(rgba->channelSet().context(), &registry);
  EXPECT_TRUE(rgba->intersect(ChannelSet(Channel(4))));
  EXPECT_FALSE(rgba->intersect(ChannelSet(Channel(5))));
  EXPECT_TRUE(rgba->isUserVisible());
  EXPECT_EQ(rgba->markNumber(), 0);
  for (unsigned i = 0; i < 4; ++i) {
    EXPECT_EQ(rgba->channel(i), static_cast<int>(i) + 1);
    EXPECT_EQ(rgba->assignChannel(i), static_cast<int>(i) + 1);
    EXPECT_EQ((*rgba)[i], registry.channel(Channel(static_cast<int>(i) + 1)));
    EXPECT_EQ(rgba->index((*rgba)[i]), static_cast<int>(i));
  }
  EXPECT_EQ(rgba->channel(4), 0);
  EXPECT_EQ(rgba->channel(UINT_MAX), 0);
  EXPECT_EQ((*rgba)[4], nullptr);
  EXPECT_EQ(registry.rgbLayer()->index(registry.alphaChannel()), -1);
  EXPECT_EQ(registry.rgbLayer()->index(static_cast<ChannelAlias*>(nullptr)), -1);
  EXPECT_EQ(registry.rgbLayer()->purpose(), Channel::color3);
  EXPECT_EQ(registry.rgbLayer()->valueType(), 71);
  EXPECT_EQ(registry.alphaLayer()->purpose(), Channel::colorAlpha);
  EXPECT_EQ(registry.alphaLayer()->valueType(), 23);
  EXPECT_EQ(registry.layer(3), nullptr);
}

TEST(ChannelManager, NumbersOutsideTheMapAnswerNull) {
  const Registry registry;
  for (int c : {0, -1, 5, 1023, 1024, 100000, INT_MAX, INT_MIN}) {
    EXPECT_EQ(registry.channel(Channel(c)), nullptr) << c;
    EXPECT_EQ(registry[Channel(c)], nullptr) << c;
    EXPECT_EQ(registry.getChannelName(Channel(c)), nullptr) << c;
    EXPECT_EQ(registry.getLayerName(Channel(c)), nullptr) << c;
  }
  EXPECT_STREQ(registry.getChannelName(Channel(4)), "rgba.alpha");
  EXPECT_STREQ(registry.getLayerName(Channel(4)), "rgba");
  EXPECT_STREQ(registry.getLayerName(Channel(1)), "rgb");
}

TEST(ChannelManager, LookupsAreByExactNameInListOrder) {
  Registry registry;
  EXPECT_EQ(registry.getChannel("rgba.red"), registry.redChannel());
  EXPECT_EQ(registry._getChannel("rgba.red"), registry.redChannel());
  for (const char* name : {"rgba.Red", "red", "", "rgba.red "})
    EXPECT_EQ(registry.getChannel(name), nullptr) << name;
  EXPECT_EQ(registry.getChannel(nullptr), nullptr);
  EXPECT_EQ(registry.getLayer("rgba"), registry.rgbaLayer());
  EXPECT_EQ(registry._getLayer("alpha"), registry.alphaLayer());
  for (const char* name : {"RGBA", "", "rgba."})
    EXPECT_EQ(registry.getLayer(name), nullptr) << name;
  EXPECT_EQ(registry.getLayer(nullptr), nullptr);

  ChannelAlias* first = registry.createChannel("a", "x", 0, Channel::data);
  ChannelAlias* second = registry.createChannel("a", "x", 0, Channel::data);
  EXPECT_NE(first, second);
  EXPECT_EQ(registry.getChannel("a.x"), first);
}

TEST(ChannelManager, TheBaseRemapsNothing) {
  const Registry registry;
  EXPECT_EQ(registry.remapChannelName("rgb.red"), "rgb.red");
  EXPECT_EQ(registry.remapChannelName(""), "");
  EXPECT_EQ(registry.remapChannelName(nullptr), "");
  EXPECT_FALSE(registry.isChannelRemappingEnabled());
}

// ---- Creating channels

TEST(ChannelManager, CreatingDepthZMakesItsLayer) {
  Registry registry;
  ChannelAlias* z = registry.createChannel("depth.Z", Channel::auto_, 0, false);
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(z->channel(), 5);
  EXPECT_EQ(z->purpose(), 21);
  EXPECT_EQ(z->name(), "depth.Z");
  EXPECT_EQ(z->subname(), "Z");
  LayerAlias* depth = registry.getLayer("depth");
  ASSERT_NE(depth, nullptr);
  EXPECT_EQ(z->layer(), depth);
  EXPECT_EQ(z->position(), 0u);  // the place in the layer, not the component's
  EXPECT_EQ(depth->purpose(), 17);
  EXPECT_EQ(depth->valueType(), 41);
  EXPECT_EQ(depth->size(), 1u);
  EXPECT_EQ(depth->index(), 3);
  EXPECT_EQ(registry.nBuiltInLayers(), 3);
  EXPECT_EQ(registry.nBuiltInChannels(), 4);
  EXPECT_EQ(registry.createChannel("depth.Z", Channel::auto_, 0, false), z);
  EXPECT_EQ(registry.firstUndefinedChannel(), 6);
}

TEST(ChannelManager, NamesWithoutALayerCreateNothing) {
  Registry registry;
  for (const char* name : {"depth", "", ".x", " .x ", " ", "depth "}) {
    EXPECT_EQ(registry.createChannel(name, Channel::auto_, 0, false), nullptr) << name;
  }
  EXPECT_EQ(registry.createChannel(nullptr, Channel::auto_, 0, false), nullptr);
  EXPECT_EQ(registry.createChannel("", "x", 0, Channel::data), nullptr);
  EXPECT_EQ(registry.createChannel(nullptr, "x", 0, Channel::data), nullptr);
  EXPECT_EQ(registry.nChannels(), 4u);
  EXPECT_EQ(registry.nLayers(), 3u);
}

TEST(ChannelManager, NamesAreTrimmedWhenTheyAreSplit) {
  Registry registry;
  ChannelAlias* alias = registry.createChannel(" a.b.x \n", Channel::auto_, 0, false);
  ASSERT_NE(alias, nullptr);
  EXPECT_EQ(alias->name(), "a.b.x");
  EXPECT_EQ(alias->layer()->name(), "a.b");
  EXPECT_EQ(alias->purpose(), Channel::dataVecX);
}

TEST(ChannelManager, AnEmptySubnameLeavesTheLayersName) {
  Registry registry;
  ChannelAlias* alias = registry.createChannel("a.", Channel::auto_, 0, false);
  ASSERT_NE(alias, nullptr);
  EXPECT_EQ(alias->name(), "a");
  EXPECT_EQ(alias->subname(), "");
  EXPECT_EQ(alias->purpose(), Channel::auto_);
  EXPECT_EQ(alias->position(), 0u);
}

TEST(ChannelManager, GivenTypesStand) {
  Registry registry;
  ChannelAlias* alias = registry.createChannel("a.red", Channel::mask, 0, false);
  EXPECT_EQ(alias->purpose(), Channel::mask);
  EXPECT_EQ(alias->position(), 0u);
  EXPECT_EQ(registry.createChannel("a.unknown", Channel::auto_, 0, false)->purpose(),
            Channel::none);
}

TEST(ChannelManager, DirectCreationTakesTypeAndPositionFromTheSubname) {
  Registry registry;
  ChannelAlias* y = registry.createChannel("n", "Y", -1, Channel::auto_);
  EXPECT_EQ(y->purpose(), Channel::dataVecY);
  EXPECT_EQ(y->position(), 1u);
  EXPECT_EQ(y->layer(), nullptr);
  EXPECT_EQ(registry.getLayerName(y->channel()), nullptr);
  EXPECT_EQ(registry.getLayer("n"), nullptr);
  EXPECT_EQ(registry.createChannel("n", "z", 7, Channel::auto_)->position(), 7u);
  EXPECT_EQ(registry.createChannel("n", "other", -1, Channel::auto_)->position(), 0u);
  EXPECT_EQ(registry.createChannel("n", "alpha", INT_MIN, Channel::auto_)->position(), 3u);
  EXPECT_EQ(registry.createChannel("n", "x", -1, Channel::colorBlue)->position(), 2u);
  ChannelAlias* bare = registry.createChannel("n", nullptr, -1, Channel::auto_);
  EXPECT_EQ(bare->name(), "n");
  EXPECT_EQ(bare->purpose(), Channel::auto_);
  EXPECT_EQ(bare->position(), 0u);
}

TEST(ChannelManager, SubnamesSayTheirTypeInAnyCase) {
  const Registry registry;
  EXPECT_EQ(registry.getChannelTypeFromSubname("RED"), Channel::colorRed);
  EXPECT_EQ(registry.getChannelTypeFromSubname("AlPhA"), Channel::colorAlpha);
  EXPECT_EQ(registry.getChannelTypeFromSubname("T"), Channel::dataVecY);
  EXPECT_EQ(registry.getChannelTypeFromSubname("depth"), Channel::none);
  EXPECT_EQ(registry.getChannelTypeFromSubname("\xC3\x84"), Channel::none);
  EXPECT_EQ(registry.getChannelTypeFromSubname(""), Channel::none);
  EXPECT_EQ(registry.getChannelTypeFromSubname(nullptr), Channel::none);
}

// KEEP(last-number-unused)
TEST(ChannelManager, TheLastNumberIsNeverHandedOut) {
  Registry registry;
  fill(registry, 1);
  EXPECT_EQ(registry.firstUndefinedChannel(), 1022);
  ChannelAlias* last = registry.createChannel("l", "x", 0, Channel::data);
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->channel(), 1022);
  EXPECT_EQ(registry.firstUndefinedChannel(), 1023);
  EXPECT_EQ(registry.nAvailableChannelSlots(), 0);
  const char* const message = "Channel manager contains more than 1023 channels, ignoring\n";
  EXPECT_EQ(
      errorsOf([&] { EXPECT_EQ(registry.createChannel("l", "y", 0, Channel::data), nullptr); }),
      message);
  EXPECT_EQ(errorsOf([&] {
              EXPECT_EQ(registry.createChannel("m.y", Channel::auto_, 0, false), nullptr);
            }),
            message);
  EXPECT_EQ(registry.getLayer("m"), nullptr);
  EXPECT_EQ(registry.channel(Channel(1023)), nullptr);
  EXPECT_EQ(registry.nChannels(), 1022u);
}

TEST(ChannelManager, BuiltInChannelsAreRefusedAfterUserChannels) {
  Registry registry;
  registry.createChannel("a.x");
  const char* const warning =
      "warning, attempting to add a built-in channel after user channels have been defined, "
      "channel ignored!\n";
  EXPECT_EQ(errorsOf([&] {
              EXPECT_EQ(registry.createBuiltinChannel("b.x", 9, 0, Channel::data), nullptr);
            }),
            warning);
  EXPECT_EQ(errorsOf([&] {
              EXPECT_EQ(registry.createBuiltinChannel("b", "x", 9, 0, Channel::data), nullptr);
            }),
            warning);
  EXPECT_EQ(registry.nBuiltInChannels(), 4);
}

TEST(ChannelManager, BuiltInNumbersMayLeaveGaps) {
  Registry registry;
  ChannelAlias* far = registry.createBuiltinChannel("b.far", 20, 6, Channel::data);
  ASSERT_NE(far, nullptr);
  EXPECT_EQ(far->position(), 6u);
  EXPECT_EQ(registry.lastBuiltinChannel(), 20);
  EXPECT_EQ(registry.firstUndefinedChannel(), 21);
  ChannelAlias* near = registry.createBuiltinChannel("b", "near", 10, 0, Channel::data);
  EXPECT_EQ(near->channel(), 10);
  EXPECT_EQ(registry.lastBuiltinChannel(), 20);
  EXPECT_EQ(registry.firstUndefinedChannel(), 21);
  EXPECT_EQ(registry.nBuiltInChannels(), 6);
  EXPECT_EQ(registry.channel(Channel(15)), nullptr);
  registry.createLayer("b");
  EXPECT_EQ(registry.nBuiltInLayers(), 4);
  EXPECT_EQ(registry.createChannel("u.x")->channel(), 21);
}

TEST(ChannelManager, BuiltInChannelsNeedALayerAndANumberInRange) {
  Registry registry;
  EXPECT_EQ(errorsOf([&] {
              for (int c : {0, -1, 1024, INT_MAX, INT_MIN}) {
                EXPECT_EQ(registry.createBuiltinChannel("b.x", c, 0, Channel::data), nullptr) << c;
              }
              EXPECT_EQ(registry.createBuiltinChannel("b", 5, 0, Channel::data), nullptr);
              EXPECT_EQ(registry.createBuiltinChannel("", "x", 5, 0, Channel::data), nullptr);
              EXPECT_EQ(registry.createBuiltinChannel(nullptr, "x", 5, 0, Channel::data), nullptr);
              EXPECT_EQ(registry.createBuiltinChannel(nullptr, 5, 0, Channel::data), nullptr);
            }),
            "");
  EXPECT_EQ(registry.nChannels(), 4u);
  EXPECT_EQ(registry.createBuiltinChannel("b", nullptr, 5, 0, Channel::data)->name(), "b");
  EXPECT_EQ(registry.createBuiltinChannel("b.last", 1023, 0, Channel::data)->channel(), 1023);
  EXPECT_EQ(registry.firstUndefinedChannel(), 1024);
  EXPECT_EQ(registry.nAvailableChannelSlots(), 0);
}

TEST(ChannelManager, SlotsTakeTheRecordAndItTheNumber) {
  Registry registry;
  ChannelAlias* alias = registry.createChannel("a", "x", 0, Channel::data);
  registry.addChannelToMap(alias, Channel(700));
  EXPECT_EQ(registry.channel(Channel(700)), alias);
  EXPECT_EQ(alias->channel(), 700);
  for (int c : {0, -1, 1024, INT_MAX}) registry.addChannelToMap(alias, Channel(c));
  registry.addChannelToMap(nullptr, Channel(3));
  EXPECT_EQ(alias->channel(), 700);
  EXPECT_EQ(registry.channelMap()[0], nullptr);
  registry._clearUserChannels();
  EXPECT_EQ(registry.channel(Channel(700)), nullptr);
}

TEST(ChannelManager, AUserRecordInABuiltInSlotLeavesItWhenItGoes) {
  Registry registry;
  registry.addChannelToMap(registry.createChannel("a", "x", 0, Channel::data), Channel(2));
  registry._clearUserChannels();
  EXPECT_EQ(registry.channel(Channel(2)), nullptr);
}

// ---- Records

TEST(ChannelAlias, SettersKeepWhatTheyAreGiven) {
  Registry registry;
  ChannelAlias* red = registry.redChannel();
  red->setPurpose(Channel::bitmask);
  red->setUserVisible(false);
  red->setMarkNumber(-7);
  EXPECT_EQ(red->purpose(), Channel::bitmask);
  EXPECT_FALSE(red->isUserVisible());
  EXPECT_EQ(red->markNumber(), -7);
  red->setName("a", "b");
  EXPECT_EQ(red->name(), "a.b");
  EXPECT_EQ(red->subname(), "b");
  EXPECT_EQ(registry.getChannel("a.b"), red);
  red->setName("a", "");
  EXPECT_EQ(red->name(), "a");
  red->setName("c", nullptr);
  EXPECT_EQ(red->name(), "c");
  EXPECT_EQ(red->subname(), "");
  red->setName(nullptr, nullptr);
  EXPECT_EQ(red->name(), "");
}

// KEEP(highest-builtin-is-user)
TEST(ChannelAlias, TheHighestBuiltInChannelIsNotBuiltIn) {
  Registry registry;
  EXPECT_TRUE(registry.redChannel()->isBuiltIn());
  EXPECT_TRUE(registry.blueChannel()->isBuiltIn());
  EXPECT_FALSE(registry.alphaChannel()->isBuiltIn());
  EXPECT_FALSE(registry.createChannel("a.x")->isBuiltIn());
}

// KEEP(colour-index-floor)
TEST(ChannelAlias, TheColourIndexIsAtLeastThree) {
  Registry registry;
  for (unsigned position : {0u, 1u, 2u, 3u, 4u, 100u}) {
    registry.redChannel()->assignLayer(nullptr, position, true);
    EXPECT_EQ(registry.redChannel()->colorIndex(), std::max(position, 3u));
    EXPECT_EQ(registry.redChannel()->colourIndex(), std::max(position, 3u));
  }
}

TEST(ChannelAlias, TheFirstLayerKeepsTheChannel) {
  Registry registry;
  ChannelAlias* alias = registry.createChannel("a", "x", 6, Channel::data);
  LayerAlias* one = registry.createLayer("one");
  LayerAlias* two = registry.createLayer("two");
  alias->assignLayer(one, 4, false);
  EXPECT_EQ(alias->layer(), one);
  EXPECT_EQ(alias->position(), 4u);
  alias->assignLayer(two, 5, false);
  EXPECT_EQ(alias->layer(), one);
  EXPECT_EQ(alias->position(), 4u);
  alias->assignLayer(two, 5, true);
  EXPECT_EQ(alias->layer(), two);
  EXPECT_EQ(alias->position(), 5u);
  alias->assignLayer(nullptr, 0, true);
  EXPECT_EQ(alias->layer(), nullptr);
}

TEST(LayerAlias, SettersKeepWhatTheyAreGiven) {
  Registry registry;
  LayerAlias* layer = registry.rgbLayer();
  layer->setLabel("Colour");
  EXPECT_EQ(layer->label(), "Colour");
  EXPECT_EQ(layer->name(), "rgb");
  layer->setName("a", "A");
  EXPECT_EQ(layer->name(), "a");
  EXPECT_EQ(layer->label(), "A");
  layer->setName("b", nullptr);
  EXPECT_EQ(layer->label(), "b");
  layer->setName(nullptr, "");
  EXPECT_EQ(layer->name(), "");
  EXPECT_EQ(layer->label(), "");
  layer->setLabel(nullptr);
  EXPECT_EQ(layer->label(), "");
  layer->setValueType(9);
  layer->setUserVisible(false);
  layer->setMarkNumber(3);
  EXPECT_EQ(layer->valueType(), 9);
  EXPECT_FALSE(layer->isUserVisible());
  EXPECT_EQ(layer->markNumber(), 3);
}

TEST(LayerAlias, SettingThePurposeOfAnOpenLayerSetsItsValueType) {
  Registry registry;
  LayerAlias* layer = registry.createLayer("l");
  EXPECT_EQ(layer->purpose(), Channel::auto_);
  EXPECT_EQ(layer->valueType(), 127);
  layer->setPurpose(Channel::dataVecX);
  EXPECT_EQ(layer->purpose(), Channel::dataVecX);
  EXPECT_EQ(layer->valueType(), 41);
  layer->setPurpose(Channel::color4);
  EXPECT_EQ(layer->purpose(), Channel::color4);
  EXPECT_EQ(layer->valueType(), 41);
}

TEST(LayerAlias, IsBuiltInWhenItHasMembersAndAllAre) {
  Registry registry;
  EXPECT_TRUE(registry.rgbLayer()->isBuiltIn());
  EXPECT_FALSE(registry.rgbaLayer()->isBuiltIn());
  EXPECT_FALSE(registry.alphaLayer()->isBuiltIn());
  LayerAlias* layer = registry.createLayer("empty");
  EXPECT_FALSE(layer->isBuiltIn());
  layer->replace(2, nullptr);
  EXPECT_FALSE(layer->isBuiltIn());
  layer->replace(1, registry.redChannel());
  EXPECT_TRUE(layer->isBuiltIn());
  layer->add(registry.createChannel("a", "x", 0, Channel::data), 0, false);
  EXPECT_FALSE(layer->isBuiltIn());
}

TEST(LayerAlias, MembersFillTheFirstHole) {
  Registry registry;
  LayerAlias* layer = registry.createLayer("l");
  ChannelAlias* a = registry.createChannel("a", "a", 0, Channel::data);
  ChannelAlias* b = registry.createChannel("a", "b", 0, Channel::data);
  ChannelAlias* c = registry.createChannel("a", "c", 0, Channel::data);
  layer->replace(2, a);
  EXPECT_EQ(layer->size(), 3u);
  EXPECT_EQ(a->position(), 2u);
  layer->add(b, 0, false);
  layer->add(c, 0, true);
  EXPECT_EQ((*layer)[0], b);
  EXPECT_EQ((*layer)[1], c);
  layer->add(registry.redChannel(), 0, false);
  EXPECT_EQ((*layer)[3], registry.redChannel());
  EXPECT_EQ(registry.redChannel()->layer(), registry.rgbLayer());
  EXPECT_EQ(registry.redChannel()->position(), 0u);
  EXPECT_EQ(layer->channelSet().size(), 4u);
  layer->add(nullptr, 0, false);
  EXPECT_EQ(layer->size(), 4u);
}

TEST(LayerAlias, TheFirstMemberFixesTheTypeAndLargerCompoundsReplaceIt) {
  Registry registry;
  LayerAlias* layer = registry.createLayer("l");
  const auto add = [&](Type type, int n) {
    layer->add(registry.createChannel("l", "m", 0, type), n, false);
  };
  add(Channel::dataDepth, 0);
  EXPECT_EQ(layer->purpose(), Channel::dataDepth);
  EXPECT_EQ(layer->valueType(), 23);
  add(Channel::mask, 0);  // one element as well: stays
  EXPECT_EQ(layer->purpose(), Channel::dataDepth);
  add(Channel::dataVecX, 2);
  EXPECT_EQ(layer->purpose(), Channel::dataVec2);
  EXPECT_EQ(layer->valueType(), 33);
  add(Channel::colorRed, 0);
  EXPECT_EQ(layer->purpose(), Channel::color3);
  EXPECT_EQ(layer->valueType(), 71);
  add(Channel::dataVecX, 3);  // three elements as well: stays
  EXPECT_EQ(layer->purpose(), Channel::color3);
  add(Channel::dataVecZ, 4);
  EXPECT_EQ(layer->purpose(), Channel::dataVec4);
  EXPECT_EQ(layer->valueType(), 49);
  add(Channel::colorAlpha, 0);
  EXPECT_EQ(layer->purpose(), Channel::dataVec4);
}

TEST(LayerAlias, AMemberWithoutAPurposeLeavesAnOpenLayerTheNextTime) {
  Registry registry;
  LayerAlias* layer = registry.createLayer("l");
  layer->add(registry.createChannel("l", nullptr, 0, Channel::auto_), 0, false);
  EXPECT_EQ(layer->purpose(), Channel::auto_);
  EXPECT_EQ(layer->valueType(), 127);
  layer->add(registry.createChannel("l", "what", 0, Channel::auto_), 0, false);
  EXPECT_EQ(layer->purpose(), Channel::none);
  EXPECT_EQ(layer->valueType(), 127);
  layer->add(registry.createChannel("l", "r", 0, Channel::auto_), 0, false);
  EXPECT_EQ(layer->purpose(), Channel::color3);
  EXPECT_EQ(layer->valueType(), 71);
}

TEST(LayerAlias, ReplacingDetachesWhatStoodThere) {
  Registry registry;
  LayerAlias* layer = registry.createLayer("l");
  ChannelAlias* a = registry.createChannel("a", "a", 0, Channel::data);
  ChannelAlias* b = registry.createChannel("a", "b", 0, Channel::data);
  layer->replace(1, a);
  EXPECT_EQ((*layer)[0], nullptr);
  EXPECT_EQ(a->layer(), layer);
  layer->replace(1, b);
  EXPECT_EQ(a->layer(), nullptr);
  EXPECT_EQ(a->position(), 0u);
  EXPECT_EQ(b->layer(), layer);
  EXPECT_EQ(b->position(), 1u);
  layer->replace(1, b);
  EXPECT_EQ(b->layer(), layer);
  layer->replace(1, nullptr);
  EXPECT_EQ(b->layer(), nullptr);
  EXPECT_EQ(layer->size(), 2u);
  // The set of numbers only grows.
  EXPECT_TRUE(layer->channelSet() & a->channel());
  EXPECT_TRUE(layer->channelSet() & b->channel());
  layer->replace(UINT_MAX, a);
  layer->replace(65536, a);
  EXPECT_EQ(layer->size(), 2u);
  layer->replace(65535, a);
  EXPECT_EQ(layer->size(), 65536u);
}

TEST(LayerAlias, ReplacingLeavesAnotherLayersChannelWithItsOwner) {
  Registry registry;
  LayerAlias* layer = registry.createLayer("l");
  layer->replace(0, registry.redChannel());
  layer->replace(0, nullptr);
  EXPECT_EQ(registry.redChannel()->layer(), registry.rgbLayer());
}

// ---- Creating layers

TEST(ChannelManager, LayersAreFoundOrMade) {
  Registry registry;
  EXPECT_EQ(registry.createLayer("rgb"), registry.rgbLayer());
  EXPECT_EQ(registry.createLayer(""), nullptr);
  EXPECT_EQ(registry.createLayer(nullptr), nullptr);
  EXPECT_EQ(registry._createLayer(nullptr, 1, Channel::mask, nullptr, nullptr, nullptr, nullptr),
            nullptr);
  // Still in the built-in phase.
  LayerAlias* layer = registry.createLayer("l", 2, Channel::dataVec2, registry.redChannel(),
                                           registry.greenChannel(), nullptr, nullptr);
  EXPECT_EQ(registry.nBuiltInLayers(), 4);
  EXPECT_EQ(layer->size(), 2u);
  EXPECT_EQ(layer->valueType(), 33);
  EXPECT_EQ(registry.redChannel()->layer(), registry.rgbLayer());
  EXPECT_EQ(registry.createLayer("l", 4, Channel::mask, nullptr, nullptr, nullptr, nullptr), layer);
  EXPECT_EQ(layer->size(), 2u);
  registry.createChannel("a.x");
  registry.createLayer("late");
  EXPECT_EQ(registry.nBuiltInLayers(), 4);
}

TEST(ChannelManager, LayersTakeOnlyTheFirstMembersAndKeepHoles) {
  Registry registry;
  LayerAlias* layer = registry.createLayer(
      "l", 3, Channel::color3, nullptr, registry.greenChannel(), nullptr, registry.alphaChannel());
  EXPECT_EQ(layer->size(), 3u);
  EXPECT_EQ(layer->channel(0), 0);
  EXPECT_EQ(layer->channel(1), 2);
  EXPECT_EQ(layer->channelSet().size(), 1u);
  EXPECT_EQ(
      registry.createLayer("m", UINT_MAX, Channel::color4, nullptr, nullptr, nullptr, nullptr)
          ->size(),
      4u);
}

// KEEP(vector-last-first)
TEST(ChannelManager, VectorLayersNumberTheirMembersLastFirst) {
  Registry registry;
  LayerAlias* uv = registry.createVec2Layer("uv", "uv");
  ASSERT_NE(uv, nullptr);
  EXPECT_EQ(registry.getChannel("uv.v")->channel(), 5);
  EXPECT_EQ(registry.getChannel("uv.u")->channel(), 6);
  EXPECT_EQ(uv->channel(0), 6);
  EXPECT_EQ(uv->channel(1), 5);
  EXPECT_EQ(uv->purpose(), Channel::dataVec2);
  EXPECT_EQ(uv->valueType(), 33);
  EXPECT_EQ(registry.getChannel("uv.u")->purpose(), Channel::dataVecX);
  EXPECT_EQ(registry.getChannel("uv.v")->purpose(), Channel::dataVecY);

  LayerAlias* n = registry.createVec3Layer("n", "xyzw");
  EXPECT_EQ(text(*n), "'n'(float3)[ n.x[0](data-vec-x) n.y[1](data-vec-y) n.z[2](data-vec-z) ]");
  EXPECT_EQ(n->channel(0), 9);
  EXPECT_EQ(n->channel(2), 7);
  EXPECT_EQ(n->purpose(), Channel::dataVec3);

  LayerAlias* q = registry.createVec4Layer("q", "abcd");
  EXPECT_EQ(
      text(*q),
      "'q'(float4)[ q.a[0](data-vec-x) q.b[1](data-vec-y) q.c[2](data-vec-z) q.d[3](data-vec-w) ]");
  EXPECT_EQ(q->channel(3), 10);
  EXPECT_EQ(q->channel(0), 13);
  EXPECT_EQ(q->purpose(), Channel::dataVec4);
  for (unsigned i = 0; i < 4; ++i) EXPECT_EQ((*q)[i]->position(), i);
}

TEST(ChannelManager, FloatLayersHaveOneMember) {
  Registry registry;
  LayerAlias* layer = registry.createFloatLayer("dist", "d");
  EXPECT_EQ(text(*layer), "'dist'(float)[ dist.d[0](data) ]");
  EXPECT_EQ(layer->purpose(), Channel::data);
  EXPECT_EQ((*layer)[0]->channel(), 5);
}

TEST(ChannelManager, TypedLayersNeedTheirNames) {
  Registry registry;
  EXPECT_EQ(registry.createFloatLayer(nullptr, "d"), nullptr);
  EXPECT_EQ(registry.createFloatLayer("l", nullptr), nullptr);
  EXPECT_EQ(registry.createFloatLayer("l", ""), nullptr);
  EXPECT_EQ(registry.createFloatLayer("", "d"), nullptr);
  EXPECT_EQ(registry.createVec2Layer(nullptr, "uv"), nullptr);
  EXPECT_EQ(registry.createVec2Layer("l", nullptr), nullptr);
  EXPECT_EQ(registry.createVec2Layer("l", "u"), nullptr);
  EXPECT_EQ(registry.createVec3Layer("l", "xy"), nullptr);
  EXPECT_EQ(registry.createVec4Layer("l", "xyz"), nullptr);
  EXPECT_EQ(registry.createVec4Layer("", "xyzw"), nullptr);
  fill(registry, 2);
  EXPECT_EQ(registry.createColorLayer(nullptr, "r", "g", "b", "a"), nullptr);
  EXPECT_EQ(registry.createColorLayer("l", nullptr, "g", "b", "a"), nullptr);
  EXPECT_EQ(registry.createColorLayer("l", "r", "", "b", "a"), nullptr);
  EXPECT_EQ(registry.createColorLayer("l", "r", "g", nullptr, "a"), nullptr);
  EXPECT_EQ(registry.nAvailableChannelSlots(), 2);
}

TEST(ChannelManager, TypedLayersThatExistAreReturned) {
  Registry registry;
  LayerAlias* rgb = registry.rgbLayer();
  EXPECT_EQ(registry.createFloatLayer("rgb", "d"), rgb);
  EXPECT_EQ(registry.createVec2Layer("rgb", "xy"), rgb);
  EXPECT_EQ(registry.createVec3Layer("rgb", "xyz"), rgb);
  EXPECT_EQ(registry.createVec4Layer("rgb", "xyzw"), rgb);
  EXPECT_EQ(registry.createColorLayer("rgb", "r", "g", "b", nullptr), rgb);
  EXPECT_EQ(registry.nChannels(), 4u);
}

TEST(ChannelManager, TypedLayersNeedEnoughNumbers) {
  Registry registry;
  fill(registry, 3);
  EXPECT_EQ(registry.createVec4Layer("v4", "xyzw"), nullptr);
  EXPECT_NE(registry.createVec3Layer("v3", "xyz"), nullptr);
  EXPECT_EQ(registry.createVec2Layer("v2", "xy"), nullptr);
  EXPECT_EQ(registry.createFloatLayer("f", "x"), nullptr);
  EXPECT_EQ(registry.getLayer("f"), nullptr);

  Registry other;
  fill(other, 2);
  EXPECT_EQ(other.createVec3Layer("v3", "xyz"), nullptr);
  EXPECT_NE(other.createFloatLayer("f", "x"), nullptr);
  EXPECT_EQ(other.createVec2Layer("v2", "xy"), nullptr);
}

// KEEP(colour-layer-reversed)
TEST(ChannelManager, ColourLayersAreMadeOnlyWhenTheNumbersDoNotSuffice) {
  Registry fresh;
  EXPECT_EQ(fresh.createColorLayer("c", "r", "g", "b", nullptr), nullptr);
  EXPECT_EQ(fresh.createColorLayer("c", "r", "g", "b", "a"), nullptr);
  EXPECT_EQ(fresh.nChannels(), 4u);

  Registry registry;
  fill(registry, 3);
  EXPECT_EQ(registry.createColorLayer("c", "r", "g", "b", ""), nullptr);
  LayerAlias* four = nullptr;
  EXPECT_EQ(errorsOf([&] { four = registry.createColorLayer("c", "r", "g", "b", "a"); }),
            "Channel manager contains more than 1023 channels, ignoring\n");
  ASSERT_NE(four, nullptr);
  EXPECT_EQ(text(*four),
            "'c'(color4f)[ <null> c.g[1](color-green) c.b[2](color-blue) c.a[3](color-alpha) ]");
  EXPECT_EQ(four->purpose(), Channel::color4);
  EXPECT_EQ(four->channel(3), 1020);
  EXPECT_EQ(four->channel(2), 1021);
  EXPECT_EQ(four->channel(1), 1022);

  Registry scarce;
  fill(scarce, 2);
  LayerAlias* three = nullptr;
  EXPECT_EQ(errorsOf([&] { three = scarce.createColorLayer("c", "r", "g", "b", nullptr); }),
            "Channel manager contains more than 1023 channels, ignoring\n");
  ASSERT_NE(three, nullptr);
  EXPECT_EQ(text(*three), "'c'(color3f)[ <null> c.g[1](color-green) c.b[2](color-blue) ]");
  EXPECT_EQ(three->purpose(), Channel::color3);
}

// ---- Order

TEST(ChannelManager, ComponentsCompareHigherFirst) {
  Registry registry;
  const Channel free1 = registry.createChannel("b", "p", 0, Channel::data)->channel();
  const Channel free2 = registry.createChannel("a", "pp", 0, Channel::mask)->channel();
  const Channel free3 = registry.createChannel("a", "p", 0, Channel::mask)->channel();
  const Channel unassigned(500), none(0), outside(5000);
  EXPECT_TRUE(registry.compareChannels(Channel(4), Channel(1)));
  EXPECT_FALSE(registry.compareChannels(Channel(1), Channel(4)));
  EXPECT_FALSE(registry.compareChannels(Channel(1), Channel(1)));
  EXPECT_TRUE(registry.compareChannels(Channel(1), free1));
  EXPECT_FALSE(registry.compareChannels(free1, Channel(1)));
  EXPECT_TRUE(registry.compareChannels(free2, free1));
  EXPECT_FALSE(registry.compareChannels(free1, free2));
  EXPECT_TRUE(registry.compareChannels(free3, free2));  // shorter first on a common prefix
  EXPECT_FALSE(registry.compareChannels(free3, free3));
  EXPECT_TRUE(registry.compareChannels(Channel(1), unassigned));
  EXPECT_FALSE(registry.compareChannels(unassigned, Channel(1)));
  EXPECT_TRUE(registry.compareChannels(unassigned, none));
  EXPECT_TRUE(registry.compareChannels(outside, none));
}

TEST(ChannelManager, SortingPutsLayersFirstAndLeavesBuiltInsAndNumbers) {
  Registry registry;
  registry.createChannel("z", "free", 0, Channel::data);  // 5, no layer
  registry.createChannel("b.x");                          // 6
  registry.createChannel("a", "free", 0, Channel::data);  // 7, no layer
  registry.createVec3Layer("a", "xyz");                   // z 8, y 9, x 10
  registry.createChannel("B.x");                          // 11
  registry.sortChannels();
  EXPECT_EQ(names(registry),
            std::vector<std::string>({"rgba.red", "rgba.green", "rgba.blue", "rgba.alpha", "B.x",
                                      "a.x", "a.y", "a.z", "b.x", "a.free", "z.free"}));
  EXPECT_STREQ(registry.getChannelName(Channel(8)), "a.z");
  EXPECT_EQ(registry.getChannel("a.z")->channel(), 8);

  registry.sortLayers();
  EXPECT_EQ(layerNames(registry),
            std::vector<std::string>({"rgb", "rgba", "alpha", "B", "a", "b"}));
  EXPECT_EQ(registry.getLayer("b")->index(), 3);
  EXPECT_EQ(registry.getLayer("B")->index(), 5);
}

// The pairs that no rule orders end up where the passes leave them.
TEST(ChannelManager, SortingIsTheBubbleSortOfItsRules) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](unsigned n) { return static_cast<int>(random() % n); };
  for (int round = 0; round < 200; ++round) {
    Registry registry;
    std::vector<LayerAlias*> layers;
    for (int i = 0; i < 4; ++i) {
      layers.push_back(registry.createLayer(("l" + std::to_string(i)).c_str()));
      layers.back()->setName(i < 2 ? "same" : i == 2 ? "after" : "before", nullptr);
    }
    for (int i = 0; i < 20; ++i) {
      ChannelAlias* alias =
          registry.createChannel("c", std::to_string(below(30)).c_str(), 0, Channel::data);
      if (below(4) != 0)
        layers[static_cast<std::size_t>(below(4))]->replace(static_cast<unsigned>(below(12)),
                                                            alias);
    }
    std::vector<ChannelAlias*> expected(registry.allChannels().begin() + 4,
                                        registry.allChannels().end());
    for (bool swapped = true; swapped;) {
      swapped = false;
      for (std::size_t i = 0; i + 1 < expected.size(); ++i) {
        ChannelAlias *a = expected[i], *b = expected[i + 1];
        bool after = false;
        if (a->layer() != nullptr && a->layer() == b->layer()) {
          after = a->layer()->index(a) > b->layer()->index(b);
        } else if (a->layer() != nullptr && b->layer() != nullptr) {
          after = a->layer()->name() > b->layer()->name();
        } else if (a->layer() == nullptr && b->layer() == nullptr) {
          after = a->name() > b->name();
        } else {
          after = a->layer() == nullptr;
        }
        if (after) {
          std::swap(expected[i], expected[i + 1]);
          swapped = true;
        }
      }
    }
    registry.sortChannels();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), registry.allChannels().begin() + 4));
  }
}

TEST(ChannelManager, SortingAFullRegistryIsQuick) {
  Registry registry;
  for (int i = 0; registry.nAvailableChannelSlots() > 0; ++i) {
    registry.createChannel(
        ("layer" + std::to_string(1000 - i % 40) + "." + std::to_string(i)).c_str());
  }
  registry.sortChannels();
  registry.sortLayers();
  EXPECT_EQ(registry.allChannels()[4]->layer()->name(), "layer1000");
  EXPECT_EQ(registry.allChannels().back()->layer()->name(), "layer999");
}

// ---- Clearing

TEST(ChannelManager, PublicClearingDoesNothing) {
  Registry registry;
  registry.createChannel("a.x");
  registry.clearUserChannels();
  registry.clearAllChannels();
  EXPECT_EQ(registry.nChannels(), 5u);
  EXPECT_EQ(registry.nLayers(), 4u);
}

// KEEP(clearing-empties-lists)
TEST(ChannelManager, ClearingUserChannelsEmptiesTheListsAndLeavesTheBuiltInNumbers) {
  Registry registry;
  registry.createVec3Layer("n", "xyz");
  ChannelAlias* red = registry.redChannel();
  registry._clearUserChannels();
  EXPECT_TRUE(registry.allChannels().empty());
  EXPECT_TRUE(registry.allLayers().empty());
  EXPECT_EQ(registry.nChannels(), 0u);
  EXPECT_EQ(registry.nLayers(), 0u);
  EXPECT_EQ(registry.nBuiltInChannels(), 4);
  EXPECT_EQ(registry.nBuiltInLayers(), 3);
  EXPECT_EQ(registry.lastBuiltinChannel(), 4);
  EXPECT_EQ(registry.firstUndefinedChannel(), 5);
  EXPECT_EQ(registry.channel(Channel(1))->name(), "rgba.red");
  EXPECT_STREQ(registry.getLayerName(Channel(1)), "rgb");
  EXPECT_EQ(registry.redChannel(), red);
  EXPECT_EQ(registry.rgbaLayer()->size(), 4u);
  EXPECT_EQ(registry.getChannel("rgba.red"), nullptr);
  EXPECT_EQ(registry.getLayer("rgb"), nullptr);
  for (int c = 5; c < 1024; ++c) EXPECT_EQ(registry.channel(Channel(c)), nullptr);

  // Numbers are handed out again, and layers of built-in names made anew.
  ChannelAlias* again = registry.createChannel("n.x");
  EXPECT_EQ(again->channel(), 5);
  EXPECT_NE(registry.createLayer("rgb"), registry.rgbLayer());
  registry.sortChannels();
  registry.sortLayers();
  registry._clearUserChannels();
  EXPECT_EQ(registry.firstUndefinedChannel(), 5);
  EXPECT_EQ(registry.channel(Channel(5)), nullptr);
  EXPECT_EQ(registry.channel(Channel(2))->name(), "rgba.green");
}

TEST(ChannelManager, BuiltInChannelsAreWelcomeAgainAfterClearing) {
  Registry registry;
  registry.createChannel("a.x");
  registry._clearUserChannels();
  ChannelAlias* extra = registry.createBuiltinChannel("b.x", 7, 0, Channel::data);
  ASSERT_NE(extra, nullptr);
  EXPECT_EQ(registry.nBuiltInChannels(), 5);
  EXPECT_EQ(registry.lastBuiltinChannel(), 7);
}

TEST(ChannelManager, ClearingLeavesAHoleWhereAUserChannelJoinedABuiltInLayer) {
  Registry registry;
  ChannelAlias* extra = registry.createChannel("rgba.extra", Channel::data, 0, false);
  LayerAlias* rgba = registry.rgbaLayer();
  ASSERT_EQ((*rgba)[4], extra);
  rgba->replace(5, extra);
  registry._clearUserChannels();
  ASSERT_EQ(rgba->size(), 6u);
  EXPECT_EQ((*rgba)[4], nullptr);
  EXPECT_EQ((*rgba)[5], nullptr);
  EXPECT_EQ(rgba->channel(4), 0);
  EXPECT_EQ(
      text(*rgba),
      "'rgba'(color4f)[ rgba.red[0](color-red) rgba.green[1](color-green) rgba.blue[2](color-blue) "
      "rgba.alpha[3](color-alpha) <null> <null> ]");
  EXPECT_TRUE(rgba->channelSet() & Channel(5));  // never reduced
  rgba->add(registry.redChannel(), 0, false);
  EXPECT_EQ((*rgba)[4], registry.redChannel());
}

// KEEP(adopted-channel-loses-layer)
TEST(ChannelManager, ABuiltInChannelAdoptedByAUserLayerLosesIt) {
  Registry registry;
  registry.createChannel("a.x");
  ChannelAlias* red = registry.redChannel();
  LayerAlias* mine = registry.createLayer("mine");
  red->assignLayer(mine, 7, true);
  registry.greenChannel()->assignLayer(nullptr, 0, true);
  mine->add(registry.greenChannel(), 0, false);
  EXPECT_EQ(registry.greenChannel()->layer(), mine);
  registry._clearUserChannels();
  EXPECT_EQ(red->layer(), nullptr);
  EXPECT_EQ(registry.greenChannel()->layer(), nullptr);
  EXPECT_EQ(registry.getLayerName(Channel(1)), nullptr);
  EXPECT_EQ(registry.blueChannel()->layer(), registry.rgbLayer());
}

TEST(ChannelManager, ClearingEverythingStartsNumberingAgain) {
  Registry registry;
  registry.createChannel("a.x");
  registry._clearAllChannels();
  EXPECT_EQ(registry.nChannels(), 0u);
  EXPECT_EQ(registry.nLayers(), 0u);
  EXPECT_EQ(registry.nBuiltInChannels(), 0);
  EXPECT_EQ(registry.nBuiltInLayers(), 0);
  EXPECT_EQ(registry.lastBuiltinChannel(), 0);
  EXPECT_EQ(registry.firstUndefinedChannel(), 1);
  EXPECT_EQ(registry.nAvailableChannelSlots(), 1022);
  ASSERT_EQ(registry.channelMap().size(), 1024u);
  for (const ChannelAlias* alias : registry.channelMap()) EXPECT_EQ(alias, nullptr);
  EXPECT_EQ(registry.redChannel(), nullptr);
  EXPECT_EQ(registry.greenChannel(), nullptr);
  EXPECT_EQ(registry.blueChannel(), nullptr);
  EXPECT_EQ(registry.alphaChannel(), nullptr);
  EXPECT_EQ(registry.rgbLayer(), nullptr);
  EXPECT_EQ(registry.rgbaLayer(), nullptr);
  EXPECT_EQ(registry.alphaLayer(), nullptr);
  EXPECT_EQ(registry.createChannel("a.x")->channel(), 1);
}

TEST(ChannelManager, ResettingMakesTheRegistrysOwnBuiltInsAlone) {
  DepthRegistry registry;
  EXPECT_EQ(registry.nChannels(), 4u);
  registry.resetToBuiltIn();
  EXPECT_EQ(names(registry), std::vector<std::string>({"depth.Z"}));
  EXPECT_EQ(layerNames(registry), std::vector<std::string>({"depth"}));
  EXPECT_EQ(registry.nBuiltInChannels(), 1);
  EXPECT_EQ(registry.nBuiltInLayers(), 1);
  EXPECT_EQ(registry.firstUndefinedChannel(), 2);
  EXPECT_EQ(registry.redChannel(), nullptr);
  Registry base;
  base.resetToBuiltIn();
  EXPECT_EQ(base.nChannels(), 0u);
}

// ---- Copies

TEST(ChannelManager, CopiesShareTheirRecords) {
  Registry source;
  source.createChannel("a.x");
  const Registry copy(source);
  EXPECT_EQ(copy.allChannels(), source.allChannels());
  EXPECT_EQ(copy.allLayers(), source.allLayers());
  EXPECT_EQ(copy.channelMap(), source.channelMap());
  EXPECT_EQ(copy.nBuiltInChannels(), 4);
  EXPECT_EQ(copy.nBuiltInLayers(), 3);
  EXPECT_EQ(copy.lastBuiltinChannel(), 4);
  EXPECT_EQ(copy.firstUndefinedChannel(), 6);
  EXPECT_EQ(copy.redChannel(), source.redChannel());
  EXPECT_EQ(copy.rgbaLayer(), source.rgbaLayer());
  source.createChannel("b.x");
  EXPECT_EQ(copy.nChannels(), 5u);
  EXPECT_EQ(copy.getChannel("b.x"), nullptr);
}

TEST(ChannelManager, ACopyOutlivesItsSource) {
  auto source = std::make_unique<Registry>();
  source->createVec3Layer("n", "xyz");
  const Registry copy(*source);
  source.reset();
  EXPECT_EQ(copy.getChannel("n.x")->layer(), copy.getLayer("n"));
  EXPECT_EQ(copy.redChannel()->context(), &copy);
  EXPECT_EQ(copy.rgbaLayer()->context(), &copy);
  EXPECT_EQ(copy.rgbaLayer()->channelSet().context(), &copy);
  EXPECT_TRUE(copy.rgbaLayer()->channelSet() == 0xFu);
  EXPECT_TRUE(copy.redChannel()->isBuiltIn());
  EXPECT_EQ(text(copy.rgbLayer()->channelSet()), "rgb");
}

TEST(ChannelManager, ASourceOutlivesItsCopy) {
  Registry source;
  source.createVec3Layer("n", "xyz");
  { const Registry copy(source); }
  EXPECT_EQ(source.getChannel("n.x")->layer(), source.getLayer("n"));
  EXPECT_EQ(source.redChannel()->context(), &source);
}

TEST(ChannelManager, ClearingASourceLeavesItsCopyWhole) {
  Registry source;
  source.createVec3Layer("n", "xyz");
  const Registry copy(source);
  source._clearAllChannels();
  EXPECT_EQ(copy.nChannels(), 7u);
  EXPECT_EQ(text(*copy.getLayer("n")),
            "'n'(float3)[ n.x[0](data-vec-x) n.y[1](data-vec-y) n.z[2](data-vec-z) ]");
  EXPECT_EQ(copy.redChannel()->context(), &copy);
}

TEST(ChannelManager, AMemberThatOnlyTheSourceHoldsLeavesTheSharedLayerWithIt) {
  auto source = std::make_unique<Registry>();
  const Registry copy(*source);
  source->createChannel("rgba.extra", Channel::data, 0, false);
  EXPECT_EQ(copy.rgbaLayer()->size(), 5u);
  EXPECT_EQ(copy.rgbaLayer()->channel(4), 5);
  source.reset();
  EXPECT_EQ((*copy.rgbaLayer())[4], nullptr);
}

TEST(ChannelManager, AssignmentLetsGoOfTheOldRecords) {
  Registry a;
  a.createChannel("a.x");
  {
    Registry b;
    b.createVec2Layer("uv", "uv");
    a = b;
    const Registry& self = a;
    a = self;
  }
  EXPECT_EQ(a.getChannel("a.x"), nullptr);
  EXPECT_EQ(a.nChannels(), 6u);
  EXPECT_EQ(a.getLayer("uv")->size(), 2u);
  EXPECT_EQ(a.getLayer("uv")->context(), &a);
  EXPECT_EQ(a.redChannel()->context(), &a);
  Registry c(a);
  c = a;  // shares already
  a = c;
  EXPECT_EQ(a.nChannels(), 6u);
  EXPECT_EQ(c.allChannels(), a.allChannels());
}

TEST(ChannelManager, ManyCopiesEndInAnyOrder) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 50; ++round) {
    std::vector<std::unique_ptr<Registry>> registries;
    registries.push_back(std::make_unique<Registry>());
    for (int step = 0; step < 60; ++step) {
      Registry& one = *registries[random() % registries.size()];
      const std::string name =
          "l" + std::to_string(random() % 4) + ".c" + std::to_string(random() % 40);
      switch (random() % 7) {
        case 0: registries.push_back(std::make_unique<Registry>(one)); break;
        case 1: one = *registries[random() % registries.size()]; break;
        case 2:
          if (registries.size() > 1)
            registries.erase(registries.begin() + static_cast<long>(random() % registries.size()));
          break;
        case 3:
          if (random() % 4 == 0) one._clearUserChannels();
          break;
        case 4:
          if (one.redChannel() != nullptr && one.nLayers() > 0) {
            one.allLayers()[random() % one.nLayers()]->replace(static_cast<unsigned>(random() % 6),
                                                               one.redChannel());
          }
          break;
        default: one.createChannel(name.c_str()); break;
      }
    }
    for (const auto& registry : registries) {
      for (const ChannelAlias* alias : registry->allChannels()) {
        EXPECT_TRUE(std::any_of(registries.begin(), registries.end(),
                                [&](const auto& r) { return r.get() == alias->context(); }));
        EXPECT_TRUE(alias->layer() == nullptr || !alias->layer()->name().empty());
      }
      for (const LayerAlias* layer : registry->allLayers()) {
        std::size_t members = 0;
        for (unsigned i = 0; i < layer->size(); ++i)
          members += (*layer)[i] == nullptr || !(*layer)[i]->name().empty();
        EXPECT_EQ(members, layer->size());
      }
    }
  }
}

// ---- Text

TEST(ChannelManager, AliasesAndLayersPrintThemselves) {
  Registry registry;
  EXPECT_EQ(text(*registry.redChannel()), "rgba.red[0](color-red)");
  EXPECT_EQ(text(*registry.alphaLayer()), "'alpha'(float)[ rgba.alpha[3](color-alpha) ]");
  LayerAlias* layer = registry.createLayer("open");
  EXPECT_EQ(text(*layer), "'open'(none)[ ]");
  layer->replace(1, registry.redChannel());
  EXPECT_EQ(text(*layer), "'open'(none)[ <null> rgba.red[0](color-red) ]");
  std::ostringstream list;
  layer->printChannelList(list);
  EXPECT_EQ(list.str(), " <null> rgba.red[0](color-red)");
  registry.redChannel()->setPurpose(static_cast<Type>(99));
  EXPECT_EQ(text(*registry.redChannel()), "rgba.red[0](<unknown>)");
}

// KEEP(dump-to-standard-output)
TEST(ChannelManager, TheDumpGoesToStandardOutput) {
  Registry registry;
  EXPECT_EQ(dump(registry, "> "),
            "> LayerAliases: nBuiltInLayers=3\n"
            ">   0: 'rgb'(color3f)[ rgba.red[0](color-red) rgba.green[1](color-green) "
            "rgba.blue[2](color-blue) ]\n"
            ">   1: 'rgba'(color4f)[ rgba.red[0](color-red) rgba.green[1](color-green) "
            "rgba.blue[2](color-blue) "
            "rgba.alpha[3](color-alpha) ]\n"
            ">   2: 'alpha'(float)[ rgba.alpha[3](color-alpha) ]\n"
            "> ChannelAliases: nBuiltInChannels=4\n"
            ">   0: rgba.red[0](color-red)\n"
            ">   1: rgba.green[1](color-green)\n"
            ">   2: rgba.blue[2](color-blue)\n"
            ">   3: rgba.alpha[3](color-alpha)\n"
            "> ChannelMap: total assigned channel slots=5\n"
            ">   slot 0: Chan_Empty\n"
            ">   slot 1: rgba.red[0](color-red)\n"
            ">   slot 2: rgba.green[1](color-green)\n"
            ">   slot 3: rgba.blue[2](color-blue)\n"
            ">   slot 4: rgba.alpha[3](color-alpha)\n"
            ">     lastBuiltinChannel=4, firstUndefinedChannel=5\n");
}

TEST(ChannelManager, TheDumpMarksUserEntriesAndGaps) {
  Registry registry;
  registry.createBuiltinChannel("b.x", 6, 0, Channel::mask);
  registry.createChannel("depth.Z");
  const std::string out = dump(registry);
  EXPECT_NE(out.find("\n  3: 'depth'(float3)[ depth.Z[0](data-vec-z) ] *\n"), std::string::npos)
      << out;
  EXPECT_NE(out.find("\n  4: b.x[0](mask)\n  5: depth.Z[0](data-vec-z) *\n"), std::string::npos)
      << out;
  EXPECT_NE(
      out.find(
          "\n  slot 5: <unassigned>\n  slot 6: b.x[0](mask)\n  slot 7: depth.Z[0](data-vec-z) *\n"
          "    lastBuiltinChannel=6, firstUndefinedChannel=8\n"),
      std::string::npos)
      << out;
}

TEST(ChannelManager, TheDumpOfAClearedRegistryShowsTheSlotsAlone) {
  Registry registry;
  registry.createChannel("a.x");
  registry._clearUserChannels();
  EXPECT_EQ(dump(registry, nullptr),
            "LayerAliases: nBuiltInLayers=3\n"
            "ChannelAliases: nBuiltInChannels=4\n"
            "ChannelMap: total assigned channel slots=5\n"
            "  slot 0: Chan_Empty\n"
            "  slot 1: rgba.red[0](color-red)\n"
            "  slot 2: rgba.green[1](color-green)\n"
            "  slot 3: rgba.blue[2](color-blue)\n"
            "  slot 4: rgba.alpha[3](color-alpha)\n"
            "    lastBuiltinChannel=4, firstUndefinedChannel=5\n");
}

// ---- Names

TEST(SplitChannelName, PartsAtTheLastDot) {
  struct Case {
    const char *full, *layer, *subname;
  };
  const Case cases[] = {
      {" rgba.red ", "rgba", "red"},
      {".x", "", ".x"},
      {"a.b.c", "a.b", "c"},
      {"a.", "a", ""},
      {"depth", "", "depth"},
      {" depth ", "", " depth "},
      {"", "", ""},
      {" \t\r\n", "", " \t\r\n"},
      {".", "", "."},
      {"..x", ".", "x"},
      {" .x ", "", " .x "},
      {"a. b", "a", " b"},
      {"\t\r\na.b\n\r\t ", "a", "b"},
      {"a .b", "a ", "b"},
      {"\va.b", "\va", "b"},
  };
  for (const Case& c : cases) {
    std::string layer = "before", subname = "before";
    vela::SplitChannelName(c.full, layer, subname);
    EXPECT_EQ(layer, c.layer) << c.full;
    EXPECT_EQ(subname, c.subname) << c.full;
  }
}

TEST(SplitChannelName, OutputsMayBeTheInput) {
  std::string name = "rgba.red", subname;
  vela::SplitChannelName(name, name, subname);
  EXPECT_EQ(name, "rgba");
  EXPECT_EQ(subname, "red");
  std::string other = "rgba.red", layer;
  vela::SplitChannelName(other, layer, other);
  EXPECT_EQ(layer, "rgba");
  EXPECT_EQ(other, "red");
}

}  // namespace
