#include "vela/picture/LayerTable.h"

#include <algorithm>

#include "vela/picture/detail/LayerRows.h"

namespace vela::picture {

const std::vector<LayerInfo>& layerTable() {
  static const std::vector<LayerInfo> table = [] {
    std::vector<LayerInfo> infos;
    for (const detail::LayerRow& row : detail::layerRows()) infos.push_back(row.info);
    return infos;
  }();
  return table;
}

const LayerInfo* findLayerInfo(std::string_view name) {
  const std::vector<LayerInfo>& table = layerTable();
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const LayerInfo& info) { return info.name == name; });
  return found == table.end() ? nullptr : &*found;
}

const std::vector<LayerGroup>& layerGroups() {
  static const std::vector<LayerGroup> groups = [] {
    std::vector<LayerGroup> made;
    for (const detail::LayerRow& row : detail::layerRows()) {
      if (row.group.empty()) continue;
      if (made.empty() || made.back().name != row.group)
        made.push_back({row.group, {}, row.info.help});
      made.back().layers.push_back(row.info.name);
    }
    return made;
  }();
  return groups;
}

std::vector<std::string> layerNames() {
  std::vector<std::string> names;
  for (const detail::LayerRow& row : detail::layerRows()) {
    const std::string& name = row.group.empty() ? row.info.name : row.group;
    if (names.empty() || names.back() != name) names.push_back(name);
  }
  return names;
}

std::vector<std::string> defaultLayers() {
  std::vector<std::string> names;
  for (const LayerInfo& info : layerTable())
    if (info.isDefault) names.push_back(info.name);
  return names;
}

}  // namespace vela::picture
