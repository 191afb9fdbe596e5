#include "vela/channels/DefaultChannelManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using vela::BraeGlobalChannelManager;
using vela::Channel;
using vela::ChannelAlias;
using vela::ChannelManager;
using vela::LayerAlias;

namespace {

// Holds an environment variable for a scope: null removes it.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* before = std::getenv(name)) {
      had_ = true;
      before_ = before;
    }
    set(value);
  }
  ~ScopedVariable() { set(had_ ? before_.c_str() : nullptr); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void set(const char* value) {
    if (value != nullptr) {
      setenv(name_, value, 1);
    } else {
      unsetenv(name_);
    }
  }
  const char* name_;
  bool had_ = false;
  std::string before_;
};

struct ExpectedChannel {
  const char* name;
  int number;
  unsigned position;
  const char* purpose;
  const char* layer;
};

// In creation order. The two halves of the motion list their channels without owning them.
const std::vector<ExpectedChannel> kChannels = {
    {"rgba.red", 1, 0, "color-red", "rgb"},
    {"rgba.green", 2, 1, "color-green", "rgb"},
    {"rgba.blue", 3, 2, "color-blue", "rgb"},
    {"rgba.alpha", 4, 3, "color-alpha", "rgba"},
    {"depth.Z", 5, 0, "data-depth", "depth"},
    {"forward.u", 6, 0, "data-vec-x", "motion"},
    {"forward.v", 7, 1, "data-vec-y", "motion"},
    {"backward.u", 8, 2, "data-vec-x", "motion"},
    {"backward.v", 9, 3, "data-vec-y", "motion"},
    {"deep.front", 16, 0, "data-depth", "deep"},
    {"deep.back", 17, 1, "data-depth", "deep"},
    {"mask.a", 14, 0, "mask", "mask"},
    {"rotopaint_mask.a", 15, 0, "mask", "rotopaint_mask"},
    {"mask_planartrack.a", 18, 0, "mask", "mask_planartrack"},
    {"mask_splinewarp.a", 19, 0, "mask", "mask_splinewarp"},
    {"sample.coverage", 20, 0, "blendable", "sample"},
    {"cutout.alpha", 21, 0, "color-alpha", "cutout"},
    {"cutout.depth", 22, 1, "data-depth", "cutout"},
};

struct ExpectedLayer {
  const char* name;
  const char* purpose;
  int valueType;
  std::vector<int> members;
};

const std::vector<ExpectedLayer> kLayers = {
    {"rgb", "color3", 71, {1, 2, 3}},
    {"rgba", "color4", 77, {1, 2, 3, 4}},
    {"alpha", "color-alpha", 23, {4}},
    {"depth", "data-depth", 23, {5}},
    {"motion", "data", 23, {6, 7, 8, 9}},
    {"forward", "data-vec2", 33, {6, 7}},
    {"backward", "data-vec2", 33, {8, 9}},
    {"deep", "data-depth", 23, {16, 17}},
    {"mask", "mask", 23, {14}},
    {"rotopaint_mask", "mask", 23, {15}},
    {"mask_planartrack", "mask", 23, {18}},
    {"mask_splinewarp", "mask", 23, {19}},
    {"sample", "blendable", 23, {20}},
    {"cutout", "blendable", 23, {21, 22}},
};

// KEEP(builtin-numbers)
TEST(DefaultRegistry, HasItsBuiltInChannelsInCreationOrder) {
  const BraeGlobalChannelManager registry;
  ASSERT_EQ(registry.nChannels(), kChannels.size());
  for (std::size_t i = 0; i < kChannels.size(); ++i) {
    const ExpectedChannel& expected = kChannels[i];
    const ChannelAlias* alias = registry.allChannels()[i];
    EXPECT_EQ(alias->name(), expected.name);
    EXPECT_EQ(alias->channel(), expected.number) << expected.name;
    EXPECT_EQ(alias->position(), expected.position) << expected.name;
    EXPECT_STREQ(Channel::TypeString(alias->purpose()), expected.purpose) << expected.name;
    ASSERT_NE(alias->layer(), nullptr) << expected.name;
    EXPECT_EQ(alias->layer()->name(), expected.layer) << expected.name;
    EXPECT_EQ(alias->context(), &registry);
    EXPECT_EQ(registry.channel(Channel(expected.number)), alias);
    EXPECT_STREQ(registry.getChannelName(Channel(expected.number)), expected.name);
    EXPECT_STREQ(registry.getLayerName(Channel(expected.number)), expected.layer);
  }
  EXPECT_EQ(registry.lastBuiltinChannel(), 22);
  EXPECT_EQ(registry.firstUndefinedChannel(), 23);
  EXPECT_EQ(registry.nBuiltInChannels(), 18);
  for (int gap = 10; gap <= 13; ++gap) EXPECT_EQ(registry.channel(Channel(gap)), nullptr) << gap;
}

TEST(DefaultRegistry, HasItsBuiltInLayersInCreationOrder) {
  const BraeGlobalChannelManager registry;
  ASSERT_EQ(registry.nLayers(), kLayers.size());
  EXPECT_EQ(registry.nBuiltInLayers(), 14);
  for (std::size_t i = 0; i < kLayers.size(); ++i) {
    const ExpectedLayer& expected = kLayers[i];
    const LayerAlias* layer = registry.layer(i);
    EXPECT_EQ(layer->name(), expected.name);
    EXPECT_EQ(layer->label(), expected.name);
    EXPECT_EQ(layer->index(), static_cast<int>(i));
    EXPECT_STREQ(Channel::TypeString(layer->purpose()), expected.purpose) << expected.name;
    EXPECT_EQ(layer->valueType(), expected.valueType) << expected.name;
    ASSERT_EQ(layer->size(), expected.members.size()) << expected.name;
    for (unsigned p = 0; p < layer->size(); ++p) {
      EXPECT_EQ(layer->channel(p), expected.members[p]) << expected.name;
      EXPECT_TRUE(layer->channelSet() & layer->channel(p)) << expected.name;
    }
    EXPECT_EQ(layer->channelSet().size(), expected.members.size()) << expected.name;
    EXPECT_EQ(registry.getLayer(expected.name), layer);
  }
}

TEST(DefaultRegistry, IsOneAndTheSame) {
  EXPECT_EQ(vela::DefaultChannelManager(), vela::DefaultChannelManager());
  EXPECT_EQ(vela::DefaultChannelManager()->channel(Channel(10)), nullptr);
  EXPECT_EQ(vela::DefaultChannelManager()->channel(Channel(22))->name(), "cutout.depth");
  EXPECT_EQ(vela::DefaultChannelManager()->registryLabel(), "");
}

TEST(DefaultRegistry, ThreadsSeeTheSameOne) {
  std::vector<ChannelManager*> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (ChannelManager*& slot : seen)
    threads.emplace_back([&slot] { slot = vela::DefaultChannelManager(); });
  for (std::thread& thread : threads) thread.join();
  for (ChannelManager* registry : seen) EXPECT_EQ(registry, vela::DefaultChannelManager());
}

TEST(DefaultRegistry, NamedRegistriesAreNotProvided) {
  EXPECT_EQ(vela::GetChannelManager("x"), nullptr);
  EXPECT_EQ(vela::GetChannelManager(""), nullptr);
  EXPECT_EQ(vela::CreateChannelManager("x"), nullptr);
  EXPECT_EQ(vela::CreateChannelManager("default"), nullptr);
}

// KEEP(rbg-alpha)
TEST(Remapping, RenamesTheColourChannels) {
  EXPECT_EQ(vela::RemapChannelName("rgb.red"), "rgba.red");
  EXPECT_EQ(vela::RemapChannelName("rgb.green"), "rgba.green");
  EXPECT_EQ(vela::RemapChannelName("rgb.blue"), "rgba.blue");
  EXPECT_EQ(vela::RemapChannelName("rbg.alpha"), "rgba.alpha");
  EXPECT_EQ(vela::RemapChannelName("rgb.alpha"), "rgb.alpha");
  EXPECT_EQ(vela::RemapChannelName("RGB.red"), "RGB.red");
}

TEST(Remapping, PutsNamesWithoutALayerIntoOther) {
  EXPECT_EQ(vela::RemapChannelName("Z"), "other.Z");
  EXPECT_EQ(vela::RemapChannelName("depth"), "other.depth");
  EXPECT_EQ(vela::RemapChannelName(" "), "other. ");
}

TEST(Remapping, LeavesDottedAndEmptyNames) {
  EXPECT_EQ(vela::RemapChannelName(""), "");
  EXPECT_EQ(vela::RemapChannelName(nullptr), "");
  for (const char* name : {"depth.Z", "a.b.c", ".x", "x.", ".", " a.b "})
    EXPECT_EQ(vela::RemapChannelName(name), name);
}

TEST(Remapping, IsSwitchedOffByAVariableThatExists) {
  {
    const ScopedVariable unset("BRAE_DISABLE_CHANNEL_REMAPPING", nullptr);
    EXPECT_TRUE(BraeGlobalChannelManager().isChannelRemappingEnabled());
  }
  for (const char* value : {"", "0", "1"}) {
    const ScopedVariable set("BRAE_DISABLE_CHANNEL_REMAPPING", value);
    const BraeGlobalChannelManager registry;
    EXPECT_FALSE(registry.isChannelRemappingEnabled());
    EXPECT_EQ(registry.remapChannelName("depth.Z"), "depth.Z");
    EXPECT_EQ(registry.remapChannelName("a.b.c"), "a.b.c");
    EXPECT_EQ(registry.remapChannelName("rgb.red"), "rgba.red");
    EXPECT_EQ(registry.remapChannelName("Z"), "other.Z");
  }
}

TEST(Remapping, TheVariableIsReadAtConstructionOnly) {
  const ScopedVariable unset("BRAE_DISABLE_CHANNEL_REMAPPING", nullptr);
  const BraeGlobalChannelManager registry;
  const ScopedVariable set("BRAE_DISABLE_CHANNEL_REMAPPING", "1");
  EXPECT_TRUE(registry.isChannelRemappingEnabled());
}

TEST(DefaultRegistry, SortingKnowsOneRuleWhateverTheSwitch) {
  const ScopedVariable set("BRAE_LEGACY_CHANNEL_SORTING", "");
  BraeGlobalChannelManager registry;
  ChannelAlias* b = registry.createChannel("b.x");
  ChannelAlias* a = registry.createChannel("a.x");
  registry.sortChannels();
  EXPECT_EQ(registry.allChannels()[18], a);
  EXPECT_EQ(registry.allChannels()[19], b);
}

// KEEP(letters-one-below)
TEST(DefaultRegistry, LettersAnswerTheSlotOneBelow) {
  const ChannelManager* registry = vela::DefaultChannelManager();
  EXPECT_EQ(registry->getChannel("r"), nullptr);
  EXPECT_EQ(registry->getChannel("R"), nullptr);
  for (const char* name : {"g", "G"}) EXPECT_EQ(registry->getChannel(name)->name(), "rgba.red");
  for (const char* name : {"b", "B"}) EXPECT_EQ(registry->getChannel(name)->name(), "rgba.green");
  for (const char* name : {"a", "A"}) EXPECT_EQ(registry->getChannel(name)->name(), "rgba.blue");
}

TEST(DefaultRegistry, NoOtherNameIsFound) {
  const ChannelManager* registry = vela::DefaultChannelManager();
  for (const char* name : {"rgba.red", "depth.Z", "other.g", "z", "", "gg", "rgb.red"}) {
    EXPECT_EQ(registry->getChannel(name), nullptr) << name;
  }
  EXPECT_EQ(registry->getChannel(nullptr), nullptr);
}

TEST(DefaultRegistry, CreateChannelNeverFindsAndAlwaysCreates) {
  BraeGlobalChannelManager registry;
  ChannelAlias* first = registry.createChannel("depth.Z", Channel::auto_, 0, false);
  ChannelAlias* second = registry.createChannel("depth.Z", Channel::auto_, 0, false);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(first->channel(), 23);
  EXPECT_EQ(second->channel(), 24);
  EXPECT_EQ(first->layer(), registry.getLayer("depth"));
  EXPECT_EQ(first->position(), 1u);
  EXPECT_EQ(second->position(), 2u);
}

TEST(DefaultRegistry, CreateChannelRemapsFirst) {
  BraeGlobalChannelManager registry;
  ChannelAlias* red = registry.createChannel("rgb.red");
  ASSERT_NE(red, nullptr);
  EXPECT_EQ(red->name(), "rgba.red");
  ChannelAlias* z = registry.createChannel("Z");
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(z->name(), "other.Z");
  EXPECT_EQ(z->layer()->name(), "other");
  // A letter is found by getChannel, but only as the name given; "other.g" is new.
  ChannelAlias* g = registry.createChannel("g");
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(g->name(), "other.g");
  EXPECT_EQ(g->channel(), 25);
}

TEST(DefaultRegistry, LayersAreFoundByExactNameWithoutRemapping) {
  const ChannelManager* registry = vela::DefaultChannelManager();
  EXPECT_EQ(registry->getLayer("depth")->name(), "depth");
  EXPECT_EQ(registry->getLayer("Depth"), nullptr);
  EXPECT_EQ(registry->getLayer("other"), nullptr);
  EXPECT_EQ(registry->getLayer(""), nullptr);
  EXPECT_EQ(registry->getLayer(nullptr), nullptr);
}

TEST(DefaultRegistry, PublicClearingDoesNothing) {
  BraeGlobalChannelManager registry;
  registry.createChannel("a.b");
  registry.clearUserChannels();
  registry.clearAllChannels();
  EXPECT_EQ(registry.nChannels(), 19u);
  EXPECT_EQ(registry.nLayers(), 15u);
  EXPECT_EQ(registry.maxChannelCount(), 1023);
}

}  // namespace
