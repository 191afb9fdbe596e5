/// \file
/// The registry that gives channel names their numbers.
///
/// Holds for the whole file: a channel is named by its layer, a dot and its sub-name ("rgba.red").
/// Null or unknown names answer null, and nothing throws but std::bad_alloc. Names are ordered and
/// compared byte by byte. Records are handed out as raw pointers; ChannelAlias.h says how long they
/// live. Registries take no lock: calls that change one are the callers' to serialise, const calls
/// are safe from several threads while nothing changes.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "vela/Api.h"
#include "vela/channels/Channel.h"
#include "vela/channels/ChannelAlias.h"

namespace vela {

/// A registry of channels and layers.
///
/// \code
///   vela::BraeGlobalChannelManager registry;
///   vela::ChannelManager& names = registry;
///
///   const vela::ChannelAlias* red = names.createChannel("beauty.red");
///   assert(red->name() == "beauty.red" && red->purpose() == vela::Channel::colorRed);
///   assert(names.channel(red->channel()) == red);
///
///   // The layer came with its first channel.
///   names.createChannel("beauty.green");
///   const vela::LayerAlias* beauty = names.getLayer("beauty");
///   assert(beauty->size() == 2 && (*beauty)[0] == red && red->layer() == beauty);
///   assert(beauty->channelSet().size() == 2);
/// \endcode
///
/// Numbers are handed out in increasing order from 1 and never again until the registry is cleared;
/// 1023 is the highest that fits, 1022 the highest that a user channel receives. Construction makes
/// "rgba.red", "rgba.green", "rgba.blue", "rgba.alpha" (1 to 4) and the layers "rgb", "rgba" and
/// "alpha". Built-in entries come first; the first user channel ends that phase, after which
/// built-in ones are refused with a warning on standard error.
class VELA_API ChannelManager {
 public:
  /// Shares the records of `other`; the two registries go on separately.
  ChannelManager(const ChannelManager& other);
  /// Lets go of its own records and shares those of `other`.
  ChannelManager& operator=(const ChannelManager& other);

  // The operations that a registry may do its own way.

  virtual ~ChannelManager();
  /// Free text that says which registry this is; may be empty.
  [[nodiscard]] virtual std::string registryLabel() const = 0;
  /// 1023.
  [[nodiscard]] virtual int maxChannelCount() const;
  /// The channel, or the layer, of exactly that name: the first one in list order, else null. @{
  [[nodiscard]] virtual ChannelAlias* getChannel(const char* name) const;
  [[nodiscard]] virtual LayerAlias* getLayer(const char* name) const;
  /// @}
  /// These two do nothing: clearing is for registries themselves, through the protected forms. @{
  virtual void clearUserChannels();
  virtual void clearAllChannels();
  /// @}
  /// The name that is looked up for a name; here the same, empty for null.
  [[nodiscard]] virtual std::string remapChannelName(const char* name) const;
  /// Whether rewriting of names is switched on; here it is not. remapChannelName() does not ask.
  [[nodiscard]] virtual bool isChannelRemappingEnabled() const;
  /// What a sub-name in any case says about its channel: red r green g blue b alpha a, x u s, y v
  /// t, z, w; else none.
  [[nodiscard]] virtual Channel::Type getChannelTypeFromSubname(const char* subname) const;
  /// The channel of a full name: found by `getChannel`, else created as a user channel and added to
  /// its layer, which is found or made.
  /// \param type  `Channel::auto_` takes type and position from the sub-name; any other type stands
  ///              at position 0
  /// \param n     size of the compound, for `LayerAlias::add`
  /// \return null without a layer in the name, and when the numbers are exhausted (with a line on
  ///         standard error)
  virtual ChannelAlias* createChannel(const char* name, Channel::Type type = Channel::auto_,
                                      int n = 0, bool flag = false);
  /// Sorts the user channels in the list: those with a layer first, by layer name and by position
  /// in the layer, the others by name. Numbers do not change.
  virtual void sortChannels();
  /// The layer of that name, else a new one with the first `n` (at most 4) of the given channels,
  /// any of which may be null.
  virtual LayerAlias* createLayer(const char* name, unsigned n, Channel::Type purpose,
                                  ChannelAlias* a, ChannelAlias* b, ChannelAlias* c,
                                  ChannelAlias* d);
  /// The layer of that name, else a new, empty one whose first member fixes its purpose.
  virtual LayerAlias* createLayer(const char* name);
  /// Sorts the user layers in the list by name. Their indices do not change.
  virtual void sortLayers();
  /// A layer with new channels. All five return the layer of that name when there is one, null when
  /// a name is missing, and the vector and float forms null when too few numbers are free. A
  /// vector's `s` holds one-letter sub-names ("xyz"); its last member gets the lowest number.
  /// `createColorLayer` works only when fewer than 3 numbers (4 with an alpha name) are free, and
  /// is null otherwise. @{
  virtual LayerAlias* createColorLayer(const char* name, const char* r, const char* g,
                                       const char* b, const char* a);
  virtual LayerAlias* createFloatLayer(const char* name, const char* subname);
  virtual LayerAlias* createVec2Layer(const char* name, const char* s);
  virtual LayerAlias* createVec3Layer(const char* name, const char* s);
  virtual LayerAlias* createVec4Layer(const char* name, const char* s);
  /// @}

 protected:
  /// Adds the registry's own built-in entries; here none.
  virtual void createBuiltins();

 public:
  // Queries.

  /// Entries of allChannels().
  [[nodiscard]] std::size_t nChannels() const noexcept { return channels_.size(); }
  /// Entries of allLayers().
  [[nodiscard]] std::size_t nLayers() const noexcept { return layers_.size(); }
  /// Channels that the registry made itself; 0 once everything was cleared.
  [[nodiscard]] int nBuiltInChannels() const noexcept { return nBuiltInChannels_; }
  /// Layers that were made before the first user channel; 0 once everything was cleared.
  [[nodiscard]] int nBuiltInLayers() const noexcept { return nBuiltInLayers_; }
  /// The next number to hand out.
  [[nodiscard]] int nDefinedInChannels() const noexcept { return firstUndefinedChannel_; }
  /// How many numbers are left: 1023 minus the next one, never below 0.
  [[nodiscard]] int nAvailableChannelSlots() const noexcept;
  /// The highest number of a built-in channel; 0 once everything was cleared.
  [[nodiscard]] int lastBuiltinChannel() const noexcept { return lastBuiltinChannel_; }
  /// The next number to hand out, at most 1024.
  [[nodiscard]] int firstUndefinedChannel() const noexcept;
  /// In the order of creation, or as sorted. The reference follows every change. @{
  [[nodiscard]] const std::vector<ChannelAlias*>& allChannels() const noexcept { return channels_; }
  [[nodiscard]] const std::vector<LayerAlias*>& allLayers() const noexcept { return layers_; }
  /// @}
  /// 1024 slots, one a number; slot 0 and unassigned ones are null.
  [[nodiscard]] const std::vector<ChannelAlias*>& channelMap() const noexcept {
    return channelMap_;
  }
  /// Null beyond the end.
  [[nodiscard]] LayerAlias* layer(std::size_t index) const noexcept {
    return index < layers_.size() ? layers_[index] : nullptr;
  }
  /// The record of a number; null outside 1 to 1023 and for unassigned ones.
  [[nodiscard]] ChannelAlias* channel(Channel channel) const noexcept {
    const std::size_t slot = static_cast<std::size_t>(static_cast<unsigned>(channel.index()));
    return slot < channelMap_.size() ? channelMap_[slot] : nullptr;
  }
  /// As channel().
  [[nodiscard]] ChannelAlias* operator[](Channel number) const noexcept { return channel(number); }
  /// The name of the number's record, or of that record's layer; null where there is none. @{
  [[nodiscard]] const char* getChannelName(Channel channel) const noexcept;
  [[nodiscard]] const char* getLayerName(Channel channel) const noexcept;
  /// @}
  /// The entries made at construction; null once everything was cleared. @{
  [[nodiscard]] ChannelAlias* redChannel() const noexcept { return red_; }
  [[nodiscard]] ChannelAlias* greenChannel() const noexcept { return green_; }
  [[nodiscard]] ChannelAlias* blueChannel() const noexcept { return blue_; }
  [[nodiscard]] ChannelAlias* alphaChannel() const noexcept { return alpha_; }
  [[nodiscard]] LayerAlias* rgbLayer() const noexcept { return rgbLayer_; }
  [[nodiscard]] LayerAlias* rgbaLayer() const noexcept { return rgbaLayer_; }
  [[nodiscard]] LayerAlias* alphaLayer() const noexcept { return alphaLayer_; }
  /// @}
  /// Does `a` sort before `b`? Channels with a component come first, the higher component before
  /// the lower; the others follow by name. An unassigned `b` comes after everything, an unassigned
  /// `a` only before an unassigned `b`.
  [[nodiscard]] bool compareChannels(Channel a, Channel b) const;
  /// Prints the whole registry to the process's standard output; the stream is not used.
  /// \param prefix  begins each line; null counts as empty
  void printLayerChannelInfo(std::ostream& out, const char* prefix) const;

  /// A new user channel, whether or not one of that name exists; it joins no layer.
  /// \param position  below 0: the index that the type has in its compound, 0 when it has none
  /// \param type      `Channel::auto_` takes the type from the sub-name, if there is one
  /// \return null without a layer name, and when the numbers are exhausted (with a line on standard
  ///         error)
  ChannelAlias* createChannel(const char* layer, const char* subname, int position = -1,
                              Channel::Type type = Channel::auto_);

 protected:
  /// Makes the channels and layers that are named above.
  ChannelManager();

  /// Lookups by exact name in list order; null answers null. @{
  [[nodiscard]] ChannelAlias* _getChannel(const char* name) const;
  [[nodiscard]] LayerAlias* _getLayer(const char* name) const;
  /// @}
  /// The layer of that name, unchanged, else a new one.
  LayerAlias* _createLayer(const char* name, unsigned n, Channel::Type purpose, ChannelAlias* a,
                           ChannelAlias* b, ChannelAlias* c, ChannelAlias* d);
  /// A built-in channel of a fixed number, which may leave gaps. Null without a layer name, for
  /// numbers outside 1 to 1023 and, with a line on standard error, once user channels exist. @{
  ChannelAlias* createBuiltinChannel(const char* fullName, Channel channel, Channel position,
                                     Channel::Type type);
  ChannelAlias* createBuiltinChannel(const char* layer, const char* subname, Channel channel,
                                     Channel position, Channel::Type type);
  /// @}
  /// Puts a record into the slot of a number (1 to 1023; others change nothing) and writes the
  /// number into it.
  void addChannelToMap(ChannelAlias* alias, Channel channel);
  /// Clears everything and calls `createBuiltins()`; what the constructor made does not come back.
  void resetToBuiltIn();
  /// Lets go of all user records and takes numbering back to the end of the built-in ones. Both
  /// lists end up empty: built-in records stay reachable by number alone.
  void _clearUserChannels();
  /// Lets go of all records; numbering starts again at 1.
  void _clearAllChannels();

 private:
  ChannelAlias* newChannel(const std::string& layer, const std::string& subname, Channel channel,
                           unsigned position, Channel::Type type);
  LayerAlias* createVectorLayer(const char* name, const char* s, unsigned n, Channel::Type purpose);
  void adopt(const ChannelManager& other);
  template <class Record>
  void release(Record* record);
  void releaseAll();

  int capacity_ = 1023;
  int nBuiltInLayers_ = 0;
  int nBuiltInChannels_ = 0;
  int lastBuiltinChannel_ = 0;
  int firstUndefinedChannel_ = 1;
  std::vector<LayerAlias*> layers_;
  std::vector<ChannelAlias*> channels_;
  std::vector<ChannelAlias*> channelMap_;

  ChannelAlias* red_ = nullptr;
  ChannelAlias* green_ = nullptr;
  ChannelAlias* blue_ = nullptr;
  ChannelAlias* alpha_ = nullptr;
  LayerAlias* rgbLayer_ = nullptr;
  LayerAlias* rgbaLayer_ = nullptr;
  LayerAlias* alphaLayer_ = nullptr;

  // What this registry holds a share of. More than the lists show: clearing takes built-in records
  // off the lists, and they live on.
  std::vector<LayerAlias*> heldLayers_;
  std::vector<ChannelAlias*> heldChannels_;
};

/// Parts a full channel name at its last dot, blanks (" \t\r\n") at both ends trimmed. Without a
/// dot, or with none but the first character, the layer is empty and the sub-name is the whole
/// name, untrimmed.
VELA_API void SplitChannelName(const std::string& full, std::string& layer, std::string& subname);

}  // namespace vela
