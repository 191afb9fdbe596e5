/// \file
/// The records of a registry: one alias a channel, one layer a group of channels.
///
/// Holds for the whole file: records are made by a ChannelManager and belong to the registries that
/// hold them. They are handed out as raw pointers, valid until the last of those registries clears
/// them or ends. A copy of a registry refers to the same records as its source; either may end
/// first, and a record whose `context()` ends moves on to another holder. A record that ends leaves
/// no pointer behind: layers show a hole where it was, channels of an ended layer have none.
///
/// Nothing throws but std::bad_alloc. Text forms do not use the stream's base. Threads: as
/// ChannelManager.
///
/// \code
///   vela::BraeGlobalChannelManager registry;
///   const vela::ChannelAlias* u = registry.createChannel("flow.u");
///   const vela::ChannelAlias* v = registry.createChannel("flow.v");
///   assert(u->subname() == "u" && u->position() == 0 && v->position() == 1);
///   assert(!u->isBuiltIn() && registry.channel(5)->isBuiltIn());
///
///   const vela::LayerAlias& flow = *u->layer();
///   assert(flow.name() == "flow" && flow.channel(1) == v->channel());
///   assert(flow.index(v) == 1 && flow[2] == nullptr);
///
///   std::ostringstream text;
///   text << flow;
///   assert(text.str() == "'flow'(float3)[ flow.u[0](data-vec-x) flow.v[1](data-vec-y) ]");
/// \endcode
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "vela/Api.h"
#include "vela/channels/Channel.h"
#include "vela/channels/ChannelSet.h"

namespace vela {

class ChannelManager;
class LayerAlias;

/// The record of one channel.
class VELA_API ChannelAlias {
 public:
  ChannelAlias(const ChannelAlias&) = delete;
  ChannelAlias& operator=(const ChannelAlias&) = delete;

  /// Layer name, ".", sub-name; the layer name alone when there is no sub-name.
  [[nodiscard]] const std::string& name() const noexcept { return name_; }
  /// The part after the dot; empty when there is none.
  [[nodiscard]] const std::string& subname() const noexcept { return subname_; }
  /// The number; 0 before the registry has given one. @{
  [[nodiscard]] Channel channel() const noexcept { return channel_; }
  [[nodiscard]] Channel assignChannel() const noexcept { return channel_; }
  /// @}
  /// True when the number is above 0.
  [[nodiscard]] bool hasAssignedChannel() const noexcept { return channel_.index() > 0; }
  /// The position in the owning layer. @{
  [[nodiscard]] unsigned position() const noexcept { return position_; }
  [[nodiscard]] unsigned layerPosition() const noexcept { return position_; }
  /// @}
  /// The position, but never less than 3. @{
  [[nodiscard]] unsigned colorIndex() const noexcept;
  [[nodiscard]] unsigned colourIndex() const noexcept { return colorIndex(); }
  /// @}
  /// The owning layer: the first one that claimed the channel, or null.
  [[nodiscard]] LayerAlias* layer() const noexcept { return layer_; }
  /// The registry that made the record, or the holder that it moved on to.
  [[nodiscard]] ChannelManager* context() const noexcept { return context_; }
  /// What the channel's data means. Setting it leaves the layer's purpose as it is. @{
  [[nodiscard]] Channel::Type purpose() const noexcept { return purpose_; }
  void setPurpose(Channel::Type purpose) noexcept { purpose_ = purpose; }
  /// @}
  /// For hosts that list what users may choose; nothing here asks. Initially true. @{
  [[nodiscard]] bool isUserVisible() const noexcept { return userVisible_; }
  void setUserVisible(bool visible) noexcept { userVisible_ = visible; }
  /// @}
  /// A number of the host's own; nothing here asks. Initially 0. @{
  [[nodiscard]] int markNumber() const noexcept { return markNumber_; }
  void setMarkNumber(int number) noexcept { markNumber_ = number; }
  /// @}
  /// Above 0 and below the registry's highest built-in channel, which itself answers false.
  [[nodiscard]] bool isBuiltIn() const noexcept;

  /// Renames the record (null counts as empty); the registry's lookups go by the new name.
  void setName(const char* layer, const char* subname);
  /// Sets the owning layer and the position in it. A channel that has a layer keeps both unless
  /// `force` is set.
  void assignLayer(LayerAlias* layer, unsigned position, bool force);

 protected:
  virtual ~ChannelAlias();

 private:
  friend class ChannelManager;
  friend class LayerAlias;

  ChannelAlias(ChannelManager* context, const std::string& layer, const std::string& subname,
               unsigned position, Channel::Type purpose);
  [[nodiscard]] std::string text() const;
  friend VELA_API std::ostream& operator<<(std::ostream& out, const ChannelAlias& alias);

  ChannelManager* context_;
  std::string name_;
  std::string subname_;
  Channel channel_;
  unsigned position_;
  LayerAlias* layer_ = nullptr;
  Channel::Type purpose_;
  bool userVisible_ = true;
  int markNumber_ = 0;

  std::vector<LayerAlias*> listedBy_;  // layers that list this channel, once for every position
  // The registries that share this record; the last one deletes it.
  std::vector<ChannelManager*> holders_;
};

/// The record of one layer: channels by position, with holes.
class VELA_API LayerAlias {
 public:
  LayerAlias(const LayerAlias&) = delete;
  LayerAlias& operator=(const LayerAlias&) = delete;

  /// The name that ChannelManager::getLayer() goes by.
  [[nodiscard]] const std::string& name() const noexcept { return name_; }
  /// Initially the name.
  [[nodiscard]] const std::string& label() const noexcept { return label_; }
  /// Null counts as empty.
  void setLabel(const char* label);
  /// Name and label; a null name counts as empty, a null label means the name.
  void setName(const char* name, const char* label);
  /// How many positions there are, holes included.
  [[nodiscard]] std::size_t size() const noexcept { return channels_.size(); }
  /// The alias at a position; null for a hole and beyond the end.
  [[nodiscard]] ChannelAlias* operator[](std::size_t position) const noexcept {
    return position < channels_.size() ? channels_[position] : nullptr;
  }
  /// The number of the channel at a position; 0 for a hole and beyond the end. @{
  [[nodiscard]] Channel channel(unsigned position) const noexcept;
  [[nodiscard]] Channel assignChannel(unsigned position) const noexcept {
    return channel(position);
  }
  /// @}
  /// The index that the layer had in the registry's list when it was created.
  [[nodiscard]] int index() const noexcept { return index_; }
  /// The first position of an alias, -1 when the layer does not list it.
  [[nodiscard]] int index(const ChannelAlias* alias) const noexcept;
  /// The numbers of all channels that the layer ever listed: it is never reduced.
  [[nodiscard]] const ChannelSet& channelSet() const noexcept { return channelSet_; }
  /// Does `channelSet()` share a member with `channels`?
  [[nodiscard]] bool intersect(const ChannelSet& channels) const noexcept {
    return channelSet_ & channels;
  }
  /// An `ovo::Value::Type` code. @{
  [[nodiscard]] int valueType() const noexcept { return valueType_; }
  void setValueType(int code) noexcept { valueType_ = code; }
  /// @}
  /// `Channel::auto_` until the first member fixes it.
  [[nodiscard]] Channel::Type purpose() const noexcept { return purpose_; }
  /// Sets the purpose, and the value type with it when the purpose was `Channel::auto_`.
  void setPurpose(Channel::Type purpose) noexcept;
  /// For hosts that list what users may choose; nothing here asks. Initially true. @{
  [[nodiscard]] bool isUserVisible() const noexcept { return userVisible_; }
  void setUserVisible(bool visible) noexcept { userVisible_ = visible; }
  /// @}
  /// A number of the host's own; nothing here asks. Initially 0. @{
  [[nodiscard]] int markNumber() const noexcept { return markNumber_; }
  void setMarkNumber(int number) noexcept { markNumber_ = number; }
  /// @}
  /// True when there are members and all of them are built in.
  [[nodiscard]] bool isBuiltIn() const noexcept;
  /// The registry that made the record, or the holder that it moved on to.
  [[nodiscard]] ChannelManager* context() const noexcept { return context_; }

  /// Puts an alias into the first hole, or at the end, and claims it unless another layer has. The
  /// layer's purpose and value type become those of the alias's compound of `n` elements when the
  /// purpose was `Channel::auto_` or that compound has more elements than the present value type.
  /// Null changes nothing; the flag has no effect.
  void add(ChannelAlias* alias, int n, bool flag);
  /// Puts an alias (or, with null, a hole) at a position, growing the list up to it; what was there
  /// is detached. Positions from 65536 on change nothing.
  void replace(unsigned position, ChannelAlias* alias);

  /// For each position " " and the alias's text, or " <null>" for a hole.
  void printChannelList(std::ostream& out) const;

 protected:
  virtual ~LayerAlias();

 private:
  friend class ChannelAlias;
  friend class ChannelManager;

  LayerAlias(ChannelManager* context, const std::string& name, int index, Channel::Type purpose);
  void put(std::size_t position, ChannelAlias* alias);
  void moveTo(ChannelManager* context);
  [[nodiscard]] std::string channelListText() const;
  [[nodiscard]] std::string text() const;
  friend VELA_API std::ostream& operator<<(std::ostream& out, const LayerAlias& layer);

  ChannelManager* context_;
  std::string name_;
  std::string label_;
  std::vector<ChannelAlias*> channels_;
  ChannelSet channelSet_;
  int index_;
  int valueType_;
  Channel::Type purpose_;
  bool userVisible_ = true;
  int markNumber_ = 0;

  std::vector<ChannelAlias*> claimed_;  // channels whose layer() is this one
  // The registries that share this record; the last one deletes it.
  std::vector<ChannelManager*> holders_;
};

/// name[position](type), as in `rgba.red[0](color-red)`.
VELA_API std::ostream& operator<<(std::ostream& out, const ChannelAlias& alias);
/// 'name'(value type)[ channels ], as in `'depth'(float)[ depth.Z[0](data-depth) ]`.
VELA_API std::ostream& operator<<(std::ostream& out, const LayerAlias& layer);

}  // namespace vela
