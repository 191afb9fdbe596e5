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

std::vector<std::string> defaultLayers() {
  std::vector<std::string> names;
  for (const LayerInfo& info : layerTable())
    if (info.isDefault) names.push_back(info.name);
  return names;
}

}  // namespace vela::picture
