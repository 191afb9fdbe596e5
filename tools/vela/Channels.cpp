#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Json.h"
#include "Options.h"
#include "ovo/Value.h"
#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"

namespace command {

namespace {

using vela::Channel;
using vela::ChannelAlias;
using vela::ChannelManager;
using vela::LayerAlias;

ChannelsReport::ChannelFacts factsOf(const ChannelAlias& alias) {
  ChannelsReport::ChannelFacts facts;
  facts.number = alias.channel().index();
  facts.name = alias.name();
  facts.layer = alias.layer() ? alias.layer()->name() : "";
  facts.position = alias.position();
  facts.purpose = Channel::TypeString(alias.purpose());
  facts.valueType = ovo::Value::getTypeName(Channel::TypeValueType(alias.purpose()));
  return facts;
}

ChannelsReport::LayerFacts factsOf(const LayerAlias& layer) {
  ChannelsReport::LayerFacts facts;
  facts.name = layer.name();
  facts.purpose = Channel::TypeString(layer.purpose());
  facts.valueType = ovo::Value::getTypeName(layer.valueType());
  for (unsigned i = 0; i < layer.size(); ++i)
    if (const ChannelAlias* alias = layer[i])
      facts.channels.push_back({alias->channel().index(), alias->name()});
  return facts;
}

ChannelsReport gather(const ChannelManager& registry) {
  ChannelsReport report;
  for (const ChannelAlias* alias : registry.allChannels())
    report.channels.push_back(factsOf(*alias));
  for (const LayerAlias* layer : registry.allLayers()) report.layers.push_back(factsOf(*layer));
  std::sort(report.channels.begin(), report.channels.end(),
            [](const auto& a, const auto& b) { return a.number < b.number; });
  report.firstFree = registry.firstUndefinedChannel();
  report.free = registry.nAvailableChannelSlots();
  return report;
}

// What a name is to the registry: as a layer, and as a channel once it is rewritten.
ChannelNameReport look(const ChannelManager& registry, const std::string& name) {
  ChannelNameReport report;
  report.name = name;
  report.channelName = registry.remapChannelName(name.c_str());
  if (const LayerAlias* layer = registry.getLayer(name.c_str()))
    report.layer.push_back(factsOf(*layer));

  // The registry's own lookup answers single letters alone; full names are in its list.
  for (const ChannelAlias* alias : registry.allChannels())
    if (alias->name() == report.channelName && report.channel.empty())
      report.channel.push_back(factsOf(*alias));
  if (!report.channel.empty()) return report;

  std::string layer, subname;
  vela::SplitChannelName(report.channelName, layer, subname);
  report.newLayer = layer;
  // Without a sub-name there is nothing to take a purpose from, and a new channel keeps asking for
  // one.
  report.newPurpose = Channel::TypeString(
      subname.empty() ? Channel::auto_ : registry.getChannelTypeFromSubname(subname.c_str()));
  report.newNumber = registry.nAvailableChannelSlots() > 0 ? registry.firstUndefinedChannel() : 0;
  return report;
}

std::string membersOf(const ChannelsReport::LayerFacts& layer) {
  std::string text;
  for (const auto& member : layer.channels) text += (text.empty() ? "" : " ") + member.name;
  return text;
}

void print(const ChannelsReport& report) {
  std::printf("Channels: %zu\n  channel  name                layer             place  purpose\n",
              report.channels.size());
  for (const ChannelsReport::ChannelFacts& channel : report.channels)
    std::printf("  %7d  %-18s  %-16s  %5u  %s\n", channel.number, channel.name.c_str(),
                channel.layer.c_str(), channel.position, channel.purpose.c_str());
  std::printf("\nLayers: %zu\n  name              purpose      value    channels by place\n",
              report.layers.size());
  for (const ChannelsReport::LayerFacts& layer : report.layers)
    std::printf("  %-16s  %-11s  %-7s  %s\n", layer.name.c_str(), layer.purpose.c_str(),
                layer.valueType.c_str(), membersOf(layer).c_str());
  std::printf("\nThe next new channel is %d; %d are free.\n", report.firstFree, report.free);
}

void print(const ChannelNameReport& report) {
  for (const ChannelsReport::LayerFacts& layer : report.layer)
    std::printf("layer     %s\npurpose   %s\nvalue     %s\nchannels  %s\n", layer.name.c_str(),
                layer.purpose.c_str(), layer.valueType.c_str(), membersOf(layer).c_str());
  if (!report.layer.empty() && report.channel.empty()) return;
  if (!report.layer.empty()) std::puts("");

  for (const ChannelsReport::ChannelFacts& channel : report.channel)
    std::printf(
        "channel   %d\nname      %s\nlayer     %s\nplace     %u\npurpose   %s\nvalue     %s\n",
        channel.number, channel.name.c_str(), channel.layer.c_str(), channel.position,
        channel.purpose.c_str(), channel.valueType.c_str());
  if (!report.channel.empty()) return;

  std::printf("not in the registry: %s\n", report.name.c_str());
  if (report.channelName != report.name)
    std::printf("as a channel, it is called %s\n", report.channelName.c_str());
  if (report.newLayer.empty())
    std::puts("it names no layer, and so cannot become a channel");
  else if (report.newNumber > 0)
    std::printf("created now, it would be channel %d of layer %s, with purpose %s\n",
                report.newNumber, report.newLayer.c_str(), report.newPurpose.c_str());
}

}  // namespace

ExitCode channels(const ChannelsOptions& options) {
  const ChannelManager& registry = *vela::DefaultChannelManager();
  if (options.byName) {
    const ChannelNameReport report = look(registry, options.name);
    if (options.json)
      std::fputs(toJson(report).c_str(), stdout);
    else
      print(report);
  } else {
    const ChannelsReport report = gather(registry);
    if (options.json)
      std::fputs(toJson(report).c_str(), stdout);
    else
      print(report);
  }
  return kDone;
}

}  // namespace command
