#include "vela/picture/LayerChoice.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"
#include "vela/picture/Cryptomatte.h"
#include "vela/picture/detail/LayerRows.h"

namespace vela::picture {

namespace {

// A channel of the registry as a place in the table: the row that its value comes from and which of
// that row's channels it is.
struct Source {
  const LayerInfo* info = nullptr;  // null: the table has no such channel
  int element = 0;
};

// A layer whose channels are created one by one: the registry's creator of colour layers works only
// when the registry is nearly full.
LayerAlias* createByChannels(ChannelManager& registry, const detail::LayerRow& row) {
  const LayerInfo& info = row.info;
  ChannelAlias* members[4] = {};
  for (std::size_t i = 0; i < info.subnames.size(); ++i) {
    members[i] = registry.createChannel(info.name.c_str(), info.subnames[i].c_str(),
                                        static_cast<int>(i), row.channelTypes[i]);
    if (!members[i]) return nullptr;
  }
  return registry.createLayer(info.name.c_str(), static_cast<unsigned>(info.subnames.size()),
                              row.purpose, members[0], members[1], members[2], members[3]);
}

// The registry's layer of that name, created when it is a row of the table; null for all others.
LayerAlias* findOrCreate(ChannelManager& registry, const std::string& name) {
  if (LayerAlias* layer = registry.getLayer(name.c_str())) return layer;
  const LayerInfo* info = findLayerInfo(name);
  if (!info) return nullptr;
  const detail::LayerRow& row = detail::rowOf(*info);
  if (row.purpose == Channel::dataVec3) {
    std::string letters;
    for (const std::string& subname : info->subnames) letters += subname;
    return registry.createVec3Layer(name.c_str(), letters.c_str());
  }
  // What every registry begins with is never created anew: it is missing where a host took it away.
  return row.purpose == Channel::none ? nullptr : createByChannels(registry, row);
}

// By the channel's owning layer and its position there, not by its number: the members of vectors
// are numbered last first.
Source sourceOf(const ChannelAlias* alias) {
  if (!alias || !alias->layer()) return {};
  const LayerInfo* owner = findLayerInfo(alias->layer()->name());
  if (!owner || alias->position() >= owner->channels.size()) return {};
  const std::string& channel = owner->channels[alias->position()];

  // Of a part it is the row that the part belongs to.
  for (const LayerInfo& info : layerTable()) {
    if (info.isPart) continue;
    const auto found = std::find(info.channels.begin(), info.channels.end(), channel);
    if (found != info.channels.end())
      return {&info, static_cast<int>(found - info.channels.begin())};
  }
  return {};
}

std::vector<std::string> channelsOf(const ChosenLayer& layer) {
  std::vector<std::string> channels;
  for (const int element : layer.elements)
    channels.push_back(layer.info->channels[static_cast<std::size_t>(element)]);
  return channels;
}

// Fills a layer with some of the channels of another one of its type.
// \return false, with the values untouched, when it does not have them
bool copyChannels(const Layer& from, Layer& to) {
  std::vector<std::size_t> offsets;
  for (const std::string& channel : to.channels) {
    const auto found = std::find(from.channels.begin(), from.channels.end(), channel);
    if (found == from.channels.end()) return false;
    offsets.push_back(static_cast<std::size_t>(found - from.channels.begin()));
  }
  const auto copy = [&](const auto& values, auto& out) {
    out.reserve(values.size() / from.channels.size() * offsets.size());
    for (std::size_t p = 0; p + from.channels.size() <= values.size(); p += from.channels.size())
      for (const std::size_t offset : offsets) out.push_back(values[p + offset]);
  };
  copy(from.floats, to.floats);
  copy(from.integers, to.integers);
  return true;
}

bool fail(std::string* error, const std::string& what) {
  if (error) *error = what + "; " + layersToTry();
  return false;
}

// The layers that a name stands for: those of a group, else itself.
std::vector<std::string> membersOf(const std::string& name) {
  for (const LayerGroup& group : layerGroups())
    if (group.name == name) return group.layers;
  return {name};
}

// Adds what a name stands for to the set.
bool addLayer(ChannelManager& registry, const std::string& name, ChannelSet& set,
              std::string* error) {
  const LayerAlias* layer = findOrCreate(registry, name);
  if (!layer) return fail(error, "no such layer: " + name);
  const ChannelSet& members = layer->channelSet();
  const auto canRender = [&](Channel channel) {
    return sourceOf(registry.channel(channel)).info != nullptr;
  };
  if (!std::all_of(members.begin(), members.end(), canRender))
    return fail(error, "the layer cannot be rendered: " + name);
  set += members;
  return true;
}

}  // namespace

bool LayerChoice::has(Sampling sampling) const noexcept {
  return std::any_of(layers.begin(), layers.end(),
                     [&](const ChosenLayer& layer) { return layer.info->sampling == sampling; });
}

bool LayerChoice::has(std::string_view name) const noexcept {
  return std::any_of(layers.begin(), layers.end(),
                     [&](const ChosenLayer& layer) { return layer.info->name == name; });
}

Picture LayerChoice::makePicture(int width, int height) const {
  Picture picture;
  picture.width = width;
  picture.height = height;
  for (const ChosenLayer& chosen : layers) {
    Layer& layer = picture.layers.emplace_back();
    layer.name = chosen.name;
    layer.channels = channelsOf(chosen);
    layer.type = chosen.info->type;
    const std::size_t count = picture.pixelCount() * layer.channels.size();
    if (layer.type == ValueType::float32)
      layer.floats.resize(count);
    else
      layer.integers.resize(count);
  }
  return picture;
}

void LayerChoice::reduce(Picture& picture) const {
  std::vector<Layer> kept;
  for (const ChosenLayer& chosen : layers) {
    Layer layer{chosen.name, channelsOf(chosen), chosen.info->type, {}, {}};
    for (Layer& from : picture.layers) {
      if (from.channels == layer.channels)
        kept.push_back(std::move(from));
      else if (copyChannels(from, layer))
        kept.push_back(std::move(layer));
      else
        continue;
      break;
    }
  }
  picture.layers = std::move(kept);

  // What is said of layers that are gone.
  const auto isOfLayerThatIsGone = [&](const Attribute& attribute) {
    const std::size_t slash = attribute.name.find("/manifest");
    return slash != std::string::npos && findLayerInfo(attribute.name.substr(0, slash)) &&
           !picture.hasLayer(attribute.name.substr(0, slash));
  };
  picture.attributes.erase(
      std::remove_if(picture.attributes.begin(), picture.attributes.end(), isOfLayerThatIsGone),
      picture.attributes.end());
  const std::vector<std::string> mattes = cryptomattesOf(picture);
  for (const LayerGroup& group : layerGroups()) {
    if (std::find(mattes.begin(), mattes.end(), group.name) != mattes.end()) continue;
    const std::string head = cryptomatteAttribute(group.name, "");
    picture.attributes.erase(std::remove_if(picture.attributes.begin(), picture.attributes.end(),
                                            [&](const Attribute& attribute) {
                                              return attribute.name.rfind(head, 0) == 0;
                                            }),
                             picture.attributes.end());
  }
}

std::optional<LayerChoice> chooseLayers(const std::vector<std::string>& names, std::string* error) {
  ChannelManager& registry = *DefaultChannelManager();
  LayerChoice choice;
  for (const std::string& name : names)
    for (const std::string& member : membersOf(name))
      if (!addLayer(registry, member, choice.set, error)) return std::nullopt;
  if (choice.set.empty()) {
    fail(error, "no layers: the list is empty");
    return std::nullopt;
  }

  // Row by row, the channels that are in the set.
  for (const LayerInfo& info : layerTable()) {
    if (info.isPart) continue;
    ChosenLayer layer{info.name, &info, {}};
    for (const Channel channel : choice.set)
      if (const Source source = sourceOf(registry.channel(channel)); source.info == &info)
        layer.elements.push_back(source.element);
    if (layer.elements.empty()) continue;
    std::sort(layer.elements.begin(), layer.elements.end());
    layer.elements.erase(std::unique(layer.elements.begin(), layer.elements.end()),
                         layer.elements.end());

    // A part of a row has that part's name.
    const std::vector<std::string> channels = channelsOf(layer);
    for (const LayerInfo& part : layerTable())
      if (part.channels == channels) layer.name = part.name;
    choice.layers.push_back(layer);
  }
  return choice;
}

std::string layersToTry() {
  const std::vector<std::string> names = layerNames();
  std::string text = "try " + names.front();
  for (std::size_t i = 1; i < names.size(); ++i)
    text += (i + 1 < names.size() ? ", " : " or ") + names[i];
  return text;
}

}  // namespace vela::picture
