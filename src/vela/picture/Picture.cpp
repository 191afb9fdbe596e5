#include "vela/picture/Picture.h"

#include <algorithm>

#include "vela/picture/LayerTable.h"

namespace vela::picture {

namespace {

template <class T>
PixelView<T> viewOf(const Picture& picture, const Layer& layer, const std::vector<T>& values,
                    std::size_t first, std::size_t count) {
  // A layer that somebody filled by hand may have too few values: better none than ones beyond it.
  if (count == 0 || values.empty() || values.size() < picture.pixelCount() * layer.channels.size())
    return {};
  const auto step = static_cast<std::ptrdiff_t>(layer.channels.size());
  return {values.data() + first,   picture.width, picture.height,
          static_cast<int>(count), step,          step * picture.width};
}

LayerView viewOf(const Picture& picture, const Layer& layer, std::size_t first, std::size_t count) {
  LayerView view;
  view.type = layer.type;
  if (layer.type == ValueType::float32)
    view.floats = viewOf(picture, layer, layer.floats, first, count);
  else
    view.integers = viewOf(picture, layer, layer.integers, first, count);
  return view;
}

}  // namespace

LayerView Picture::layer(std::string_view name) const {
  for (const Layer& layer : layers)
    if (layer.name == name) return viewOf(*this, layer, 0, layer.channels.size());

  // Its channels may be neighbours in another layer.
  const LayerInfo* info = findLayerInfo(name);
  if (!info) return {};
  for (const Layer& layer : layers) {
    const auto found = std::search(layer.channels.begin(), layer.channels.end(),
                                   info->channels.begin(), info->channels.end());
    if (found != layer.channels.end())
      return viewOf(*this, layer, static_cast<std::size_t>(found - layer.channels.begin()),
                    info->channels.size());
  }
  return {};
}

LayerView Picture::channel(std::string_view name) const {
  for (const Layer& layer : layers) {
    const auto found = std::find(layer.channels.begin(), layer.channels.end(), name);
    if (found != layer.channels.end())
      return viewOf(*this, layer, static_cast<std::size_t>(found - layer.channels.begin()), 1);
  }
  return {};
}

bool Picture::hasLayer(std::string_view name) const noexcept {
  return std::any_of(layers.begin(), layers.end(),
                     [&](const Layer& layer) { return layer.name == name; });
}

}  // namespace vela::picture
