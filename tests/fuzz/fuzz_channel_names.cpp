// Any bytes as names of channels, one a line: parts, and what the default registry makes of them.
#include <sstream>
#include <string>

#include "fuzz/Require.h"
#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using vela_test::require;
  const vela::ChannelManager& registry = *vela::DefaultChannelManager();
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(in, line);) {
    const std::string name = line.c_str();  // names end at the first zero
    std::string layer, subname;
    vela::SplitChannelName(name, layer, subname);
    require(layer.size() + subname.size() <= name.size(), "parts are parts");
    require(name.find(layer) != std::string::npos && name.find(subname) != std::string::npos,
            "parts are of the name");
    const std::string remapped = registry.remapChannelName(name.c_str());
    require(vela::RemapChannelName(name.c_str()) == remapped, "one registry, one answer");
    static_cast<void>(registry.getChannelTypeFromSubname(subname.c_str()));
    static_cast<void>(registry.getLayer(layer.c_str()));
    if (const vela::ChannelAlias* const found = registry.getChannel(name.c_str()))
      require(found->channel().index() > 0, "a channel has a number");
  }
  return 0;
}
