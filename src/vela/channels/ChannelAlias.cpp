#include "vela/channels/ChannelAlias.h"

#include <algorithm>
#include <ostream>
#include <string>

#include "ovo/Value.h"
#include "vela/channels/ChannelManager.h"
#include "vela/channels/detail/NameText.h"

namespace vela {

using detail::textOf;

namespace {

// Positions of a layer: far more than there are channels, far less than memory.
constexpr unsigned kMaxPositions = 65536;

std::string fullName(const std::string& layer, const std::string& subname) {
  return subname.empty() ? layer : layer + "." + subname;
}

}  // namespace

// ---- ChannelAlias

ChannelAlias::ChannelAlias(ChannelManager* context, const std::string& layer,
                           const std::string& subname, unsigned position, Channel::Type purpose)
    : context_(context),
      name_(fullName(layer, subname)),
      subname_(subname),
      position_(position),
      purpose_(purpose) {}

ChannelAlias::~ChannelAlias() {
  // Leave a hole wherever a layer lists this channel, and nothing behind in the layer that owns it.
  assignLayer(nullptr, 0, true);
  for (LayerAlias* layer : listedBy_) {
    std::replace(layer->channels_.begin(), layer->channels_.end(), this,
                 static_cast<ChannelAlias*>(nullptr));
  }
}

// KEEP(colour-index-floor): 3 is the least answer, also for red, green and blue, which callers know
// by their own pointers. No better reason is known than that callers index by it.
unsigned ChannelAlias::colorIndex() const noexcept { return std::max(position_, 3u); }

bool ChannelAlias::isBuiltIn() const noexcept {
  // KEEP(highest-builtin-is-user): the strict comparison leaves the highest built-in channel out.
  // Whoever saves what is not built in has that channel in every file, and expects it there.
  return channel_.index() > 0 && context_ != nullptr &&
         channel_.index() < context_->lastBuiltinChannel();
}

void ChannelAlias::setName(const char* layer, const char* subname) {
  subname_ = textOf(subname);
  name_ = fullName(textOf(layer), subname_);
}

void ChannelAlias::assignLayer(LayerAlias* layer, unsigned position, bool force) {
  if (layer_ != nullptr && !force) return;
  if (layer != layer_) {
    if (layer != nullptr) layer->claimed_.push_back(this);
    if (layer_ != nullptr) {
      std::vector<ChannelAlias*>& claimed = layer_->claimed_;
      claimed.erase(std::remove(claimed.begin(), claimed.end(), this), claimed.end());
    }
  }
  layer_ = layer;
  position_ = position;
}

std::string ChannelAlias::text() const {
  return name_ + "[" + std::to_string(position_) + "](" + Channel::TypeString(purpose_) + ")";
}

// ---- LayerAlias

LayerAlias::LayerAlias(ChannelManager* context, const std::string& name, int index,
                       Channel::Type purpose)
    : context_(context),
      name_(name),
      label_(name),
      channelSet_(context),
      index_(index),
      valueType_(Channel::TypeValueType(purpose)),
      purpose_(purpose) {}

LayerAlias::~LayerAlias() {
  for (ChannelAlias* alias : channels_) {
    if (alias == nullptr) continue;
    std::vector<LayerAlias*>& lists = alias->listedBy_;
    lists.erase(std::remove(lists.begin(), lists.end(), this), lists.end());
  }
  // KEEP(adopted-channel-loses-layer): also a built-in channel that a user layer claimed; a pointer
  // to this record would dangle.
  while (!claimed_.empty()) claimed_.back()->assignLayer(nullptr, 0, true);
}

void LayerAlias::setLabel(const char* label) { label_ = textOf(label); }

void LayerAlias::setName(const char* name, const char* label) {
  name_ = textOf(name);
  label_ = label == nullptr ? name_ : std::string(label);
}

Channel LayerAlias::channel(unsigned position) const noexcept {
  const ChannelAlias* alias = (*this)[position];
  return alias == nullptr ? Channel(0) : alias->channel();
}

int LayerAlias::index(const ChannelAlias* alias) const noexcept {
  if (alias == nullptr) return -1;
  const auto found = std::find(channels_.begin(), channels_.end(), alias);
  return found == channels_.end() ? -1 : static_cast<int>(found - channels_.begin());
}

void LayerAlias::setPurpose(Channel::Type purpose) noexcept {
  if (purpose_ == Channel::auto_) valueType_ = Channel::TypeCompoundValueType(purpose, 0);
  purpose_ = purpose;
}

bool LayerAlias::isBuiltIn() const noexcept {
  bool any = false;
  for (const ChannelAlias* alias : channels_) {
    if (alias == nullptr) continue;
    if (!alias->isBuiltIn()) return false;
    any = true;
  }
  return any;
}

void LayerAlias::put(std::size_t position, ChannelAlias* alias) {
  // What stood there no longer does. Detaching it comes first: the new one may be the same.
  if (ChannelAlias* before = channels_[position]) {
    channels_[position] = nullptr;
    std::vector<LayerAlias*>& lists = before->listedBy_;
    lists.erase(std::find(lists.begin(), lists.end(), this));
    if (before->layer_ == this) before->assignLayer(nullptr, 0, true);
  }
  if (alias == nullptr) return;
  alias->listedBy_.push_back(this);
  channels_[position] = alias;
  channelSet_ += alias->channel();
  alias->assignLayer(this, static_cast<unsigned>(position), false);
}

void LayerAlias::add(ChannelAlias* alias, int n, bool) {
  if (alias == nullptr) return;
  const auto hole = std::find(channels_.begin(), channels_.end(), nullptr);
  const std::size_t position = static_cast<std::size_t>(hole - channels_.begin());
  if (hole == channels_.end()) channels_.push_back(nullptr);
  put(position, alias);

  // The compound that the new member belongs to, when the layer has no purpose yet or a smaller
  // compound.
  const bool larger = ovo::Value::getNumDataElements(Channel::TypeCompoundValueType(
                          alias->purpose(), n)) > ovo::Value::getNumDataElements(valueType_);
  if (purpose_ != Channel::auto_ && !larger) return;
  purpose_ = Channel::TypeCompoundType(alias->purpose(), n);
  valueType_ = Channel::TypeCompoundValueType(purpose_, 0);
}

void LayerAlias::replace(unsigned position, ChannelAlias* alias) {
  if (position >= kMaxPositions) return;
  if (position >= channels_.size()) channels_.resize(std::size_t{position} + 1, nullptr);
  put(position, alias);
}

void LayerAlias::moveTo(ChannelManager* context) {
  context_ = context;
  // Sets are emptied by a change of registry; these numbers stay what they are.
  ChannelSet moved(context);
  moved = channelSet_;
  channelSet_.swap(moved);
}

std::string LayerAlias::channelListText() const {
  std::string text;
  for (const ChannelAlias* alias : channels_)
    text += alias == nullptr ? " <null>" : " " + alias->text();
  return text;
}

std::string LayerAlias::text() const {
  return "'" + name_ + "'(" + ovo::Value::getTypeName(valueType_) + ")[" + channelListText() + " ]";
}

void LayerAlias::printChannelList(std::ostream& out) const { out << channelListText(); }

std::ostream& operator<<(std::ostream& out, const ChannelAlias& alias) {
  return out << alias.text();
}
std::ostream& operator<<(std::ostream& out, const LayerAlias& layer) { return out << layer.text(); }

}  // namespace vela
