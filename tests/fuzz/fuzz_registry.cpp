// Lines as calls of a registry: channels and layers are made, moved, renamed and cleared, copies
// live on. What the lists, the map of numbers and the layers say fits together after each call.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/Require.h"
#include "vela/channels/DefaultChannelManager.h"

namespace {

using vela::ChannelAlias;
using vela::LayerAlias;
using vela_test::require;
using Registry = vela::BraeGlobalChannelManager;

void check(const Registry& registry) {
  require(registry.channelMap().size() <= 1024, "numbers end at 1023");
  for (std::size_t number = 0; number < registry.channelMap().size(); ++number)
    if (const ChannelAlias* alias = registry.channelMap()[number])
      require(alias->channel().index() == static_cast<int>(number), "a channel is in its slot");
  for (const ChannelAlias* alias : registry.allChannels()) {
    require(alias != nullptr, "the list of channels has no holes");
    require(registry.channel(alias->channel()) == alias, "and what it lists has its slot");
  }
  for (std::size_t i = 0; i < registry.nLayers(); ++i) {
    const LayerAlias* layer = registry.layer(i);
    require(layer != nullptr, "the list of layers has no holes");
    for (std::size_t k = 0; k < layer->size(); ++k)
      if (const ChannelAlias* member = (*layer)[k])
        require(layer->channelSet() & member->channel(), "a layer's set has its members");
  }
  require(registry.nAvailableChannelSlots() >= 0, "never fewer than no slots are left");
  std::ostringstream out;
  for (const LayerAlias* layer : registry.allLayers()) out << *layer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::unique_ptr<Registry>> registries;
  registries.push_back(std::make_unique<Registry>());
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  int calls = 0;
  for (std::string line; std::getline(in, line) && calls < 60; ++calls) {
    Registry& registry = *registries.back();
    const char call = line.empty() ? '\0' : line[0];
    const std::string name = line.size() > 1 ? std::string(line.c_str() + 1) : std::string();
    const int number = static_cast<int>(name.size() * 37 % 90);
    ChannelAlias* const some = registry.channel(number);
    LayerAlias* const layer = registry.layer(static_cast<std::size_t>(number) % 12);
    switch (call) {
      case 'c': {
        const ChannelAlias* made = registry.createChannel(name.c_str());
        if (made) require(registry.channel(made->channel()) == made, "what was made is there");
        break;
      }
      case 'n': {
        std::string layerName, subname;
        vela::SplitChannelName(name, layerName, subname);
        registry.createChannel(layerName.c_str(), subname.c_str(), number % 7 - 2);
        break;
      }
      case 'm':
        for (int i = 0; i < 1100; ++i) registry.createChannel((name + std::to_string(i)).c_str());
        break;
      case 'l': {
        const LayerAlias* made = registry.createLayer(name.c_str());
        if (made && !name.empty()) require(registry.getLayer(name.c_str()) == made, "by its name");
        break;
      }
      case 'L':
        registry.createLayer(name.c_str(), static_cast<unsigned>(number % 6), vela::Channel::color4,
                             some, nullptr, some, registry.channel(1));
        break;
      case 'v': registry.createVec3Layer(name.c_str(), "xyz"); break;
      case 'w': registry.createVec4Layer(name.c_str(), name.c_str()); break;
      case 'k': registry.createColorLayer(name.c_str(), "red", "green", "blue", "alpha"); break;
      case 'f': registry.createFloatLayer(name.c_str(), "Z"); break;
      case 'u': registry.clearUserChannels(); break;
      case 'a': registry.clearAllChannels(); break;
      case 's': registry.sortChannels(); break;
      case 'S': registry.sortLayers(); break;
      case 'y': registries.push_back(std::make_unique<Registry>(registry)); break;
      case '=': registry = *registries.front(); break;
      case 'd':
        if (registries.size() > 1) registries.erase(registries.begin());
        break;
      case '+':
        if (layer) layer->add(some, number % 5 - 1, number % 2 == 0);
        break;
      case 'r':
        if (layer) layer->replace(static_cast<unsigned>(number % 9), some);
        break;
      case 'N':
        if (layer) layer->setName(name.c_str(), name.c_str());
        break;
      case 'C':
        if (some) some->setName("other", name.c_str());
        break;
      default:
        static_cast<void>(registry.getChannel(name.c_str()));
        static_cast<void>(registry.compareChannels(number, 3));
        break;
    }
    for (const auto& each : registries) check(*each);
  }
  return 0;
}
