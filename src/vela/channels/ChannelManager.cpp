#include "vela/channels/ChannelManager.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <string>

#include "vela/channels/detail/NameText.h"

namespace vela {

using detail::isEmpty;
using detail::textOf;

namespace {

constexpr std::size_t kSlots = 1024;  // channel numbers 0 to 1023
constexpr const char* kBlanks = " \t\r\n";

// Passes over adjacent pairs until one makes no swap. Not std::sort: the rules order some pairs not
// at all (channels of two layers of one name), and where those end up is part of the result.
template <class Item, class ComesAfter>
void bubbleSort(std::vector<Item>& items, ComesAfter comesAfter) {
  bool swapped = items.size() > 1;
  while (swapped) {
    swapped = false;
    for (std::size_t i = 0; i + 1 < items.size(); ++i) {
      if (!comesAfter(items[i], items[i + 1])) continue;
      std::swap(items[i], items[i + 1]);
      swapped = true;
    }
  }
}

// The entries of a list after its built-in ones. The count can exceed a list that was emptied.
template <class Record>
std::vector<Record*> userPart(const std::vector<Record*>& list, int builtIn) {
  const std::size_t first = std::min(list.size(), static_cast<std::size_t>(builtIn));
  return std::vector<Record*>(list.begin() + static_cast<std::ptrdiff_t>(first), list.end());
}

}  // namespace

// ---- ChannelManager: construction and sharing

ChannelManager::ChannelManager() : channelMap_(kSlots, nullptr) {
  layers_.reserve(500);
  channels_.reserve(static_cast<std::size_t>(capacity_) + 500);

  red_ = createBuiltinChannel("rgba", "red", 1, 0, Channel::colorRed);
  green_ = createBuiltinChannel("rgba", "green", 2, 1, Channel::colorGreen);
  blue_ = createBuiltinChannel("rgba", "blue", 3, 2, Channel::colorBlue);
  alpha_ = createBuiltinChannel("rgba", "alpha", 4, 3, Channel::colorAlpha);
  rgbLayer_ = _createLayer("rgb", 3, Channel::color3, red_, green_, blue_, nullptr);
  rgbaLayer_ = _createLayer("rgba", 4, Channel::color4, red_, green_, blue_, alpha_);
  alphaLayer_ = _createLayer("alpha", 1, Channel::colorAlpha, alpha_, nullptr, nullptr, nullptr);
}

ChannelManager::ChannelManager(const ChannelManager& other)
    : capacity_(other.capacity_),
      nBuiltInLayers_(other.nBuiltInLayers_),
      nBuiltInChannels_(other.nBuiltInChannels_),
      lastBuiltinChannel_(other.lastBuiltinChannel_),
      firstUndefinedChannel_(other.firstUndefinedChannel_),
      layers_(other.layers_),
      channels_(other.channels_),
      channelMap_(other.channelMap_),
      red_(other.red_),
      green_(other.green_),
      blue_(other.blue_),
      alpha_(other.alpha_),
      rgbLayer_(other.rgbLayer_),
      rgbaLayer_(other.rgbaLayer_),
      alphaLayer_(other.alphaLayer_) {
  adopt(other);
}

ChannelManager& ChannelManager::operator=(const ChannelManager& other) {
  if (this == &other) return *this;
  // Take the new shares before letting go of the old ones: what both registries hold lives on.
  std::vector<LayerAlias*> oldLayers = heldLayers_;
  std::vector<ChannelAlias*> oldChannels = heldChannels_;
  std::vector<LayerAlias*> layers = other.layers_;
  std::vector<ChannelAlias*> channels = other.channels_;
  std::vector<ChannelAlias*> channelMap = other.channelMap_;
  adopt(other);
  for (ChannelAlias* alias : oldChannels) release(alias);
  for (LayerAlias* layer : oldLayers) release(layer);

  capacity_ = other.capacity_;
  nBuiltInLayers_ = other.nBuiltInLayers_;
  nBuiltInChannels_ = other.nBuiltInChannels_;
  lastBuiltinChannel_ = other.lastBuiltinChannel_;
  firstUndefinedChannel_ = other.firstUndefinedChannel_;
  layers_.swap(layers);
  channels_.swap(channels);
  channelMap_.swap(channelMap);
  red_ = other.red_;
  green_ = other.green_;
  blue_ = other.blue_;
  alpha_ = other.alpha_;
  rgbLayer_ = other.rgbLayer_;
  rgbaLayer_ = other.rgbaLayer_;
  alphaLayer_ = other.alphaLayer_;
  return *this;
}

ChannelManager::~ChannelManager() { releaseAll(); }

void ChannelManager::adopt(const ChannelManager& other) {
  // Everything that can fail happens before the first share is written down.
  std::vector<LayerAlias*> layers = other.heldLayers_;
  std::vector<ChannelAlias*> channels = other.heldChannels_;
  for (LayerAlias* layer : layers) layer->holders_.reserve(layer->holders_.size() + 1);
  for (ChannelAlias* alias : channels) alias->holders_.reserve(alias->holders_.size() + 1);

  for (LayerAlias* layer : layers) layer->holders_.push_back(this);
  for (ChannelAlias* alias : channels) alias->holders_.push_back(this);
  heldLayers_.swap(layers);
  heldChannels_.swap(channels);
}

// Gives back one share of a record: the last one deletes it, and a record that called this registry
// its own moves to another holder. The caller takes it off the held list.
template <class Record>
void ChannelManager::release(Record* record) {
  std::vector<ChannelManager*>& holders = record->holders_;
  holders.erase(std::find(holders.begin(), holders.end(), this));
  if (holders.empty()) {
    delete record;
  } else if (record->context_ == this &&
             std::find(holders.begin(), holders.end(), this) == holders.end()) {
    if constexpr (std::is_same<Record, LayerAlias>::value) {
      record->moveTo(holders.front());
    } else {
      record->context_ = holders.front();
    }
  }
}

void ChannelManager::releaseAll() {
  for (ChannelAlias* alias : heldChannels_) release(alias);
  for (LayerAlias* layer : heldLayers_) release(layer);
  heldChannels_.clear();
  heldLayers_.clear();
}

// ---- ChannelManager: queries

int ChannelManager::maxChannelCount() const { return 1023; }

ChannelAlias* ChannelManager::_getChannel(const char* name) const {
  if (name == nullptr) return nullptr;
  const auto found = std::find_if(channels_.begin(), channels_.end(),
                                  [&](const ChannelAlias* alias) { return alias->name() == name; });
  return found == channels_.end() ? nullptr : *found;
}

LayerAlias* ChannelManager::_getLayer(const char* name) const {
  if (name == nullptr) return nullptr;
  const auto found = std::find_if(layers_.begin(), layers_.end(),
                                  [&](const LayerAlias* layer) { return layer->name() == name; });
  return found == layers_.end() ? nullptr : *found;
}

ChannelAlias* ChannelManager::getChannel(const char* name) const { return _getChannel(name); }
LayerAlias* ChannelManager::getLayer(const char* name) const { return _getLayer(name); }

std::string ChannelManager::remapChannelName(const char* name) const { return textOf(name); }
bool ChannelManager::isChannelRemappingEnabled() const { return false; }

Channel::Type ChannelManager::getChannelTypeFromSubname(const char* subname) const {
  if (isEmpty(subname)) return Channel::none;
  std::string lower = subname;
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  struct Row {
    const char* subname;
    Channel::Type type;
  };
  static constexpr Row kTable[] = {
      {"red", Channel::colorRed},     {"r", Channel::colorRed},     {"green", Channel::colorGreen},
      {"g", Channel::colorGreen},     {"blue", Channel::colorBlue}, {"b", Channel::colorBlue},
      {"alpha", Channel::colorAlpha}, {"a", Channel::colorAlpha},   {"x", Channel::dataVecX},
      {"u", Channel::dataVecX},       {"s", Channel::dataVecX},     {"y", Channel::dataVecY},
      {"v", Channel::dataVecY},       {"t", Channel::dataVecY},     {"z", Channel::dataVecZ},
      {"w", Channel::dataVecW},
  };
  for (const Row& row : kTable) {
    if (lower == row.subname) return row.type;
  }
  return Channel::none;
}

int ChannelManager::nAvailableChannelSlots() const noexcept {
  return std::max(capacity_ - firstUndefinedChannel_, 0);
}
int ChannelManager::firstUndefinedChannel() const noexcept {
  return std::min(firstUndefinedChannel_, capacity_ + 1);
}

const char* ChannelManager::getChannelName(Channel number) const noexcept {
  const ChannelAlias* alias = channel(number);
  return alias == nullptr ? nullptr : alias->name().c_str();
}

const char* ChannelManager::getLayerName(Channel number) const noexcept {
  const ChannelAlias* alias = channel(number);
  return alias == nullptr || alias->layer() == nullptr ? nullptr : alias->layer()->name().c_str();
}

bool ChannelManager::compareChannels(Channel a, Channel b) const {
  const ChannelAlias *aliasA = channel(a), *aliasB = channel(b);
  if (aliasA == nullptr) return aliasB == nullptr;
  if (aliasB == nullptr) return true;
  const int orderA = Channel::TypeOrdering(aliasA->purpose()),
            orderB = Channel::TypeOrdering(aliasB->purpose());
  if (orderA < 0 && orderB < 0) return aliasA->name() < aliasB->name();
  if (orderA < 0) return false;
  if (orderB < 0) return true;
  return orderA > orderB;
}

void ChannelManager::printLayerChannelInfo(std::ostream&, const char* prefix) const {
  const std::string begin = textOf(prefix);
  const auto mark = [](bool user) { return user ? " *" : ""; };
  const std::string noEntry = "<null> - ERROR, should not happen!";
  std::string text;

  text += begin + "LayerAliases: nBuiltInLayers=" + std::to_string(nBuiltInLayers_) + "\n";
  for (std::size_t i = 0; i < layers_.size(); ++i) {
    if (layers_[i] == nullptr) {
      text += begin + "  " + noEntry + "\n";
      continue;
    }
    const bool user = static_cast<int>(i) >= nBuiltInLayers_;
    text += begin + "  " + std::to_string(i) + ": " + layers_[i]->text() + mark(user) + "\n";
  }

  text += begin + "ChannelAliases: nBuiltInChannels=" + std::to_string(nBuiltInChannels_) + "\n";
  for (std::size_t i = 0; i < channels_.size(); ++i) {
    if (channels_[i] == nullptr) {
      text += begin + "  " + noEntry + "\n";
      continue;
    }
    const bool user = static_cast<int>(i) >= nBuiltInChannels_;
    text += begin + "  " + std::to_string(i) + ": " + channels_[i]->text() + mark(user) + "\n";
  }

  text += begin +
          "ChannelMap: total assigned channel slots=" + std::to_string(firstUndefinedChannel_) +
          "\n";
  text += begin + "  slot 0: Chan_Empty\n";
  for (int slot = 1; slot < firstUndefinedChannel_; ++slot) {
    const ChannelAlias* alias = channel(Channel(slot));
    text += begin + "  slot " + std::to_string(slot) + ": " +
            (alias == nullptr ? "<unassigned>" : alias->text()) + mark(slot > lastBuiltinChannel_) +
            "\n";
  }
  text += begin + "    lastBuiltinChannel=" + std::to_string(lastBuiltinChannel_) +
          ", firstUndefinedChannel=" + std::to_string(firstUndefinedChannel_) + "\n";

  // KEEP(dump-to-standard-output): whatever stream is passed; the host's consoles listen there.
  std::cout << text << std::flush;
}

// ---- ChannelManager: creation

ChannelAlias* ChannelManager::newChannel(const std::string& layer, const std::string& subname,
                                         Channel number, unsigned position, Channel::Type type) {
  // Room first, so that a failed allocation leaves the registry as it was.
  heldChannels_.reserve(heldChannels_.size() + 1);
  channels_.reserve(channels_.size() + 1);
  std::vector<ChannelManager*> holders(1, this);
  ChannelAlias* const alias = new ChannelAlias(this, layer, subname, position, type);
  alias->holders_.swap(holders);
  heldChannels_.push_back(alias);
  channels_.push_back(alias);
  addChannelToMap(alias, number);
  return alias;
}

void ChannelManager::addChannelToMap(ChannelAlias* alias, Channel number) {
  const std::size_t slot = static_cast<std::size_t>(static_cast<unsigned>(number.index()));
  if (alias == nullptr || slot == 0 || slot >= channelMap_.size()) return;
  channelMap_[slot] = alias;
  alias->channel_ = number;
}

ChannelAlias* ChannelManager::createBuiltinChannel(const char* fullName, Channel number,
                                                   Channel position, Channel::Type type) {
  std::string layer, subname;
  SplitChannelName(textOf(fullName), layer, subname);
  return createBuiltinChannel(layer.c_str(), subname.c_str(), number, position, type);
}

ChannelAlias* ChannelManager::createBuiltinChannel(const char* layer, const char* subname,
                                                   Channel number, Channel position,
                                                   Channel::Type type) {
  if (firstUndefinedChannel_ > lastBuiltinChannel_ + 1) {
    std::cerr << "warning, attempting to add a built-in channel after user channels have been "
                 "defined, channel ignored!"
              << std::endl;
    return nullptr;
  }
  if (isEmpty(layer) || number.index() < 1 || number.index() > capacity_) return nullptr;

  ChannelAlias* const alias =
      newChannel(layer, textOf(subname), number, static_cast<unsigned>(position.index()), type);
  ++nBuiltInChannels_;
  lastBuiltinChannel_ = std::max(lastBuiltinChannel_, number.index());
  firstUndefinedChannel_ = std::max(firstUndefinedChannel_, lastBuiltinChannel_ + 1);
  return alias;
}

ChannelAlias* ChannelManager::createChannel(const char* layer, const char* subname, int position,
                                            Channel::Type type) {
  if (isEmpty(layer)) return nullptr;
  if (!isEmpty(subname) && type == Channel::auto_) type = getChannelTypeFromSubname(subname);
  if (position < 0) position = std::max(Channel::TypeOrdering(type), 0);

  // KEEP(last-number-unused): the number 1023 is never handed out. Callers' tables, sized by the
  // highest number that they were ever given, have 1023 entries.
  if (capacity_ - firstUndefinedChannel_ <= 0) {
    std::cerr << "Channel manager contains more than " + std::to_string(capacity_) +
                     " channels, ignoring"
              << std::endl;
    return nullptr;
  }
  ChannelAlias* const alias = newChannel(layer, textOf(subname), Channel(firstUndefinedChannel_),
                                         static_cast<unsigned>(position), type);
  ++firstUndefinedChannel_;
  return alias;
}

ChannelAlias* ChannelManager::createChannel(const char* name, Channel::Type type, int n,
                                            bool flag) {
  if (isEmpty(name)) return nullptr;
  const std::string full = remapChannelName(name);
  if (ChannelAlias* existing = getChannel(full.c_str())) return existing;

  std::string layerName, subname;
  SplitChannelName(full, layerName, subname);
  if (layerName.empty()) return nullptr;

  int position = 0;
  if (!subname.empty() && type == Channel::auto_) {
    type = getChannelTypeFromSubname(subname.c_str());
    position = std::max(Channel::TypeOrdering(type), 0);
  }
  ChannelAlias* const alias = createChannel(layerName.c_str(), subname.c_str(), position, type);
  if (alias == nullptr) return nullptr;
  if (LayerAlias* layer = createLayer(layerName.c_str())) layer->add(alias, n, flag);
  return alias;
}

LayerAlias* ChannelManager::_createLayer(const char* name, unsigned n, Channel::Type purpose,
                                         ChannelAlias* a, ChannelAlias* b, ChannelAlias* c,
                                         ChannelAlias* d) {
  if (isEmpty(name)) return nullptr;
  if (LayerAlias* existing = _getLayer(name)) return existing;

  heldLayers_.reserve(heldLayers_.size() + 1);
  layers_.reserve(layers_.size() + 1);
  std::vector<ChannelManager*> holders(1, this);
  LayerAlias* const layer = new LayerAlias(this, name, static_cast<int>(layers_.size()), purpose);
  layer->holders_.swap(holders);
  heldLayers_.push_back(layer);
  layers_.push_back(layer);
  // Until the first user channel every layer is a built-in one.
  if (static_cast<std::size_t>(nBuiltInChannels_) == channels_.size()) ++nBuiltInLayers_;

  ChannelAlias* const members[4] = {a, b, c, d};
  const std::size_t count = std::min<std::size_t>(n, 4);
  layer->channels_.resize(count, nullptr);
  for (std::size_t i = 0; i < count; ++i) layer->put(i, members[i]);
  return layer;
}

LayerAlias* ChannelManager::createLayer(const char* name, unsigned n, Channel::Type purpose,
                                        ChannelAlias* a, ChannelAlias* b, ChannelAlias* c,
                                        ChannelAlias* d) {
  return _createLayer(name, n, purpose, a, b, c, d);
}

LayerAlias* ChannelManager::createLayer(const char* name) {
  return _createLayer(name, 0, Channel::auto_, nullptr, nullptr, nullptr, nullptr);
}

LayerAlias* ChannelManager::createColorLayer(const char* name, const char* r, const char* g,
                                             const char* b, const char* a) {
  if (isEmpty(name) || isEmpty(r) || isEmpty(g) || isEmpty(b)) return nullptr;
  if (LayerAlias* existing = getLayer(name)) return existing;
  const bool hasAlpha = !isEmpty(a);
  // KEEP(colour-layer-reversed): works only where the numbers do not suffice. Were it to work
  // elsewhere, each call would take three or four numbers, and every channel made after it would
  // have another number than in the files that name it.
  if (nAvailableChannelSlots() >= (hasAlpha ? 4 : 3)) return nullptr;

  ChannelAlias* const alpha = hasAlpha ? createChannel(name, a, 3, Channel::colorAlpha) : nullptr;
  ChannelAlias* const blue = createChannel(name, b, 2, Channel::colorBlue);
  ChannelAlias* const green = createChannel(name, g, 1, Channel::colorGreen);
  ChannelAlias* const red = createChannel(name, r, 0, Channel::colorRed);
  return createLayer(name, hasAlpha ? 4 : 3, hasAlpha ? Channel::color4 : Channel::color3, red,
                     green, blue, alpha);
}

LayerAlias* ChannelManager::createFloatLayer(const char* name, const char* subname) {
  if (isEmpty(name) || isEmpty(subname)) return nullptr;
  if (LayerAlias* existing = getLayer(name)) return existing;
  if (nAvailableChannelSlots() < 1) return nullptr;
  ChannelAlias* const member = createChannel(name, subname, 0, Channel::data);
  return createLayer(name, 1, Channel::data, member, nullptr, nullptr, nullptr);
}

LayerAlias* ChannelManager::createVectorLayer(const char* name, const char* s, unsigned n,
                                              Channel::Type purpose) {
  if (isEmpty(name) || s == nullptr || std::string(s).size() < n) return nullptr;
  if (LayerAlias* existing = getLayer(name)) return existing;
  if (nAvailableChannelSlots() < static_cast<int>(n)) return nullptr;

  static constexpr Channel::Type kTypes[4] = {Channel::dataVecX, Channel::dataVecY,
                                              Channel::dataVecZ, Channel::dataVecW};
  ChannelAlias* members[4] = {nullptr, nullptr, nullptr, nullptr};
  // KEEP(vector-last-first): the last member gets the lowest number; saved numbers depend on it.
  for (unsigned i = n; i-- > 0;) {
    const char subname[2] = {s[i], '\0'};
    members[i] = createChannel(name, subname, static_cast<int>(i), kTypes[i]);
  }
  return createLayer(name, n, purpose, members[0], members[1], members[2], members[3]);
}

LayerAlias* ChannelManager::createVec2Layer(const char* name, const char* s) {
  return createVectorLayer(name, s, 2, Channel::dataVec2);
}
LayerAlias* ChannelManager::createVec3Layer(const char* name, const char* s) {
  return createVectorLayer(name, s, 3, Channel::dataVec3);
}
LayerAlias* ChannelManager::createVec4Layer(const char* name, const char* s) {
  return createVectorLayer(name, s, 4, Channel::dataVec4);
}

void ChannelManager::createBuiltins() {}

// ---- ChannelManager: order

void ChannelManager::sortChannels() {
  struct Item {
    ChannelAlias* alias;
    const LayerAlias* layer;
    int position;  // in the layer's list, looked up once
  };
  std::vector<Item> items;
  for (ChannelAlias* alias : userPart(channels_, nBuiltInChannels_)) {
    const LayerAlias* layer = alias->layer();
    items.push_back({alias, layer, layer == nullptr ? -1 : layer->index(alias)});
  }
  bubbleSort(items, [](const Item& a, const Item& b) {
    if (a.layer == nullptr && b.layer == nullptr) return a.alias->name() > b.alias->name();
    if (a.layer == nullptr || b.layer == nullptr) return a.layer == nullptr;
    if (a.layer == b.layer) return a.position > b.position;
    return a.layer->name() > b.layer->name();
  });
  const std::size_t first = channels_.size() - items.size();
  for (std::size_t i = 0; i < items.size(); ++i) channels_[first + i] = items[i].alias;
}

void ChannelManager::sortLayers() {
  std::vector<LayerAlias*> items = userPart(layers_, nBuiltInLayers_);
  bubbleSort(items, [](const LayerAlias* a, const LayerAlias* b) { return a->name() > b->name(); });
  std::copy(items.begin(), items.end(), layers_.end() - static_cast<std::ptrdiff_t>(items.size()));
}

// ---- ChannelManager: clearing

void ChannelManager::clearUserChannels() {}
void ChannelManager::clearAllChannels() {}

void ChannelManager::_clearUserChannels() {
  std::vector<LayerAlias*> layers = userPart(layers_, nBuiltInLayers_);
  std::vector<ChannelAlias*> channels = userPart(channels_, nBuiltInChannels_);

  // No slot may keep a record that goes, wherever it was put.
  std::sort(layers.begin(), layers.end(), std::less<>());
  std::sort(channels.begin(), channels.end(), std::less<>());
  const auto goes = [&](ChannelAlias* alias) {
    return std::binary_search(channels.begin(), channels.end(), alias, std::less<>());
  };
  std::replace_if(channelMap_.begin(), channelMap_.end(), goes, nullptr);
  const std::size_t firstUser =
      std::min(static_cast<std::size_t>(lastBuiltinChannel_) + 1, channelMap_.size());
  std::fill(channelMap_.begin() + static_cast<std::ptrdiff_t>(firstUser), channelMap_.end(),
            nullptr);

  // Let go of them. Layers first: their members are still there then.
  heldLayers_.erase(std::remove_if(heldLayers_.begin(), heldLayers_.end(),
                                   [&](LayerAlias* layer) {
                                     return std::binary_search(layers.begin(), layers.end(), layer,
                                                               std::less<>());
                                   }),
                    heldLayers_.end());
  heldChannels_.erase(std::remove_if(heldChannels_.begin(), heldChannels_.end(), goes),
                      heldChannels_.end());
  for (LayerAlias* layer : layers) release(layer);
  for (ChannelAlias* alias : channels) release(alias);

  // KEEP(clearing-empties-lists): the built-in records leave the lists too and are reached by
  // number alone. Registries that clear fill the lists again themselves, and would have each entry
  // twice. The counters stay, since numbering goes on from them.
  layers_.clear();
  channels_.clear();
  firstUndefinedChannel_ = lastBuiltinChannel_ + 1;
}

void ChannelManager::_clearAllChannels() {
  layers_.clear();
  channels_.clear();
  channelMap_.assign(kSlots, nullptr);
  red_ = green_ = blue_ = alpha_ = nullptr;
  rgbLayer_ = rgbaLayer_ = alphaLayer_ = nullptr;
  releaseAll();
  nBuiltInLayers_ = 0;
  nBuiltInChannels_ = 0;
  lastBuiltinChannel_ = 0;
  firstUndefinedChannel_ = 1;
}

void ChannelManager::resetToBuiltIn() {
  _clearAllChannels();
  createBuiltins();
}

// ---- Names

void SplitChannelName(const std::string& full, std::string& layer, std::string& subname) {
  // Results are made before they are stored: an output may be the input.
  std::string layerPart, subPart = full;
  const std::size_t first = full.find_first_not_of(kBlanks);
  if (first != std::string::npos) {
    const std::string trimmed = full.substr(first, full.find_last_not_of(kBlanks) - first + 1);
    const std::size_t dot = trimmed.rfind('.');
    if (dot != std::string::npos && dot != 0) {
      layerPart = trimmed.substr(0, dot);
      subPart = trimmed.substr(dot + 1);
    }
  }
  layer.swap(layerPart);
  subname.swap(subPart);
}

}  // namespace vela
