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

Picture Picture::part(int x, int y, int partWidth, int partHeight) const {
  const auto end = [](int from, int length, int whole) {
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{from} + length, 0, whole));
  };
  const int x0 = std::clamp(x, 0, width), y0 = std::clamp(y, 0, height);
  const int x1 = std::max(end(x, partWidth, width), x0),
            y1 = std::max(end(y, partHeight, height), y0);
  Picture out;
  out.width = x1 - x0;
  out.height = y1 - y0;
  out.attributes = attributes;
  out.manifest = manifest;
  const auto copyRows = [&](const auto& from, std::size_t channels, auto& to) {
    if (from.size() < pixelCount() * channels) return;
    to.reserve(out.pixelCount() * channels);
    for (int row = y0; row < y1; ++row) {
      const auto start = from.begin() + (static_cast<std::ptrdiff_t>(row) * width + x0) *
                                            static_cast<std::ptrdiff_t>(channels);
      to.insert(
          to.end(), start,
          start + static_cast<std::ptrdiff_t>(out.width) * static_cast<std::ptrdiff_t>(channels));
    }
  };
  for (const Layer& layer : layers) {
    out.layers.push_back({layer.name, layer.channels, layer.type, {}, {}});
    if (layer.type == ValueType::float32)
      copyRows(layer.floats, layer.channels.size(), out.layers.back().floats);
    else
      copyRows(layer.integers, layer.channels.size(), out.layers.back().integers);
  }
  return out;
}

}  // namespace vela::picture
