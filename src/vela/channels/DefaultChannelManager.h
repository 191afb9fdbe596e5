/// \file
/// The process-wide registry with the host's fixed table of built-in channels and layers.
#pragma once

#include <string>

#include "vela/Api.h"
#include "vela/channels/ChannelManager.h"

namespace vela {

/// The host's registry: channels 1 to 9 and 14 to 22 with their layers, the host's name rewriting,
/// and two switches.
///
/// \code
///   vela::BraeGlobalChannelManager registry;
///   assert(std::string(registry.getChannelName(5)) == "depth.Z");
///   assert(registry.getLayer("motion")->size() == 4);
///   assert(registry.remapChannelName("rgb.red") == "rgba.red");
///   assert(registry.remapChannelName("spare") == "other.spare");
///
///   // From a name that a user gave to a channel: rewrite it, then find or make it by its layer.
///   const std::string name = registry.remapChannelName("spare");
///   const vela::ChannelAlias* spare = registry.createChannel(name.c_str());
///   assert(spare->name() == "other.spare" && spare->channel() == 23);
/// \endcode
///
/// The environment is read once, at construction: `BRAE_DISABLE_CHANNEL_REMAPPING` and
/// `BRAE_LEGACY_CHANNEL_SORTING` count as set whenever they exist, also when empty.
class VELA_API BraeGlobalChannelManager : public ChannelManager {
 public:
  /// Makes the fixed table and reads the environment.
  BraeGlobalChannelManager();
  ~BraeGlobalChannelManager() override;

  /// Empty.
  [[nodiscard]] std::string registryLabel() const override;
  /// Answers single letters alone, in any case: "g" red, "b" green, "a" blue. Null for everything
  /// else, "r" and full names included, so that `createChannel` always creates.
  [[nodiscard]] ChannelAlias* getChannel(const char* name) const override;
  /// By exact name, without rewriting.
  [[nodiscard]] LayerAlias* getLayer(const char* name) const override;
  /// "rgb.red", "rgb.green", "rgb.blue" and "rbg.alpha" become the "rgba" channel; a name without a
  /// dot gets "other." in front; every other name comes back as it is, and null as the empty text.
  [[nodiscard]] std::string remapChannelName(const char* name) const override;
  /// False when `BRAE_DISABLE_CHANNEL_REMAPPING` existed as the registry was made.
  /// remapChannelName() rewrites all the same.
  [[nodiscard]] bool isChannelRemappingEnabled() const override;

 protected:
  void createBuiltins() override;

 private:
  const char* extraSuffix_ = "_extra";
  bool remappingDisabled_;
  bool legacySorting_;  // kept for the host; sorting here knows one rule
};

/// The single registry that sets without a registry of their own refer to. Created on the first
/// call, also when several threads make it at once; destroyed at process exit. Changes to it take
/// no lock.
[[nodiscard]] VELA_API ChannelManager* DefaultChannelManager();

/// Named registries are not provided: both return null for every name. @{
[[nodiscard]] VELA_API ChannelManager* GetChannelManager(const std::string& name);
[[nodiscard]] VELA_API ChannelManager* CreateChannelManager(const std::string& name);
/// @}

/// `DefaultChannelManager()->remapChannelName(name)`.
[[nodiscard]] VELA_API std::string RemapChannelName(const char* name);

}  // namespace vela
