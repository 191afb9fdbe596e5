#include "vela/channels/DefaultChannelManager.h"

#include <cstdlib>
#include <string>

namespace vela {

BraeGlobalChannelManager::BraeGlobalChannelManager()
    : remappingDisabled_(std::getenv("BRAE_DISABLE_CHANNEL_REMAPPING") != nullptr),
      legacySorting_(std::getenv("BRAE_LEGACY_CHANNEL_SORTING") != nullptr) {
  // The two are the host's to read one day; nothing here does.
  static_cast<void>(extraSuffix_);
  static_cast<void>(legacySorting_);
  BraeGlobalChannelManager::createBuiltins();
}

BraeGlobalChannelManager::~BraeGlobalChannelManager() = default;

std::string BraeGlobalChannelManager::registryLabel() const { return {}; }

ChannelAlias* BraeGlobalChannelManager::getChannel(const char* name) const {
  // KEEP(letters-one-below): the letters are looked up in the slot one below their channel, and no
  // other name is found; scripts of the host were written against these answers.
  if (name == nullptr || name[0] == '\0' || name[1] != '\0') return nullptr;
  switch (name[0]) {
    case 'r':
    case 'R': return channel(Channel(0));
    case 'g':
    case 'G': return channel(Channel(1));
    case 'b':
    case 'B': return channel(Channel(2));
    case 'a':
    case 'A': return channel(Channel(3));
    default: return nullptr;
  }
}

LayerAlias* BraeGlobalChannelManager::getLayer(const char* name) const { return _getLayer(name); }

std::string BraeGlobalChannelManager::remapChannelName(const char* name) const {
  if (name == nullptr) return {};
  std::string text = name;
  if (text.empty()) return text;

  // The colour layer's names under its short layer name.
  if (text == "rgb.red") return "rgba.red";
  if (text == "rgb.green") return "rgba.green";
  if (text == "rgb.blue") return "rgba.blue";
  // KEEP(rbg-alpha): "rbg", not "rgb". So "rgb.alpha" is a channel of its own, and scenes hold it
  // under that name and number.
  if (text == "rbg.alpha") return "rgba.alpha";

  // A name without a layer goes into the catch-all layer. Dotted names come back as they are:
  // splitting one at its last dot and joining it again, which is what enabled remapping does with
  // it, gives the same name.
  return text.find('.') == std::string::npos ? "other." + text : text;
}

bool BraeGlobalChannelManager::isChannelRemappingEnabled() const { return !remappingDisabled_; }

void BraeGlobalChannelManager::createBuiltins() {
  // Channels, in creation order. KEEP(builtin-numbers): 10 to 13 stay unassigned and the deep
  // channels come before the masks: files and scripts hold these numbers.
  ChannelAlias* const z = createBuiltinChannel("depth.Z", 5, 0, Channel::dataDepth);
  ChannelAlias* const forwardU = createBuiltinChannel("forward.u", 6, 0, Channel::dataVecX);
  ChannelAlias* const forwardV = createBuiltinChannel("forward.v", 7, 1, Channel::dataVecY);
  ChannelAlias* const backwardU = createBuiltinChannel("backward.u", 8, 0, Channel::dataVecX);
  ChannelAlias* const backwardV = createBuiltinChannel("backward.v", 9, 1, Channel::dataVecY);
  ChannelAlias* const front = createBuiltinChannel("deep.front", 16, 0, Channel::dataDepth);
  ChannelAlias* const back = createBuiltinChannel("deep.back", 17, 1, Channel::dataDepth);
  ChannelAlias* const mask = createBuiltinChannel("mask.a", 14, 0, Channel::mask);
  ChannelAlias* const rotopaint = createBuiltinChannel("rotopaint_mask.a", 15, 0, Channel::mask);
  ChannelAlias* const planartrack =
      createBuiltinChannel("mask_planartrack.a", 18, 0, Channel::mask);
  ChannelAlias* const splinewarp = createBuiltinChannel("mask_splinewarp.a", 19, 0, Channel::mask);
  ChannelAlias* const coverage = createBuiltinChannel("sample.coverage", 20, 0, Channel::blendable);
  ChannelAlias* const cutoutAlpha =
      createBuiltinChannel("cutout.alpha", 21, 0, Channel::colorAlpha);
  ChannelAlias* const cutoutDepth = createBuiltinChannel("cutout.depth", 22, 1, Channel::dataDepth);

  // Layers. "motion" comes before its halves, and so owns their channels.
  createLayer("depth", 1, Channel::dataDepth, z, nullptr, nullptr, nullptr);
  createLayer("motion", 4, Channel::data, forwardU, forwardV, backwardU, backwardV);
  createLayer("forward", 2, Channel::dataVec2, forwardU, forwardV, nullptr, nullptr);
  createLayer("backward", 2, Channel::dataVec2, backwardU, backwardV, nullptr, nullptr);
  createLayer("deep", 2, Channel::dataDepth, front, back, nullptr, nullptr);
  createLayer("mask", 1, Channel::mask, mask, nullptr, nullptr, nullptr);
  createLayer("rotopaint_mask", 1, Channel::mask, rotopaint, nullptr, nullptr, nullptr);
  createLayer("mask_planartrack", 1, Channel::mask, planartrack, nullptr, nullptr, nullptr);
  createLayer("mask_splinewarp", 1, Channel::mask, splinewarp, nullptr, nullptr, nullptr);
  createLayer("sample", 1, Channel::blendable, coverage, nullptr, nullptr, nullptr);
  createLayer("cutout", 2, Channel::blendable, cutoutAlpha, cutoutDepth, nullptr, nullptr);
}

ChannelManager* DefaultChannelManager() {
  static BraeGlobalChannelManager registry;
  return &registry;
}

ChannelManager* GetChannelManager(const std::string&) { return nullptr; }

ChannelManager* CreateChannelManager(const std::string&) { return nullptr; }

std::string RemapChannelName(const char* name) {
  return DefaultChannelManager()->remapChannelName(name);
}

}  // namespace vela
