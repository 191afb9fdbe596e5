#include "vela/picture/DisplayImage.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <variant>

#include "vela/picture/Cryptomatte.h"
#include "vela/picture/LayerTable.h"
#include "vela/picture/PngFile.h"
#include "vela/picture/detail/Srgb.h"

namespace vela::picture {

namespace {

using tarn::Vec3f;

// A value from 0 to 1 as a code; NaN gives 0.
std::uint8_t codeOf(float value) {
  if (!(value > 0.0f)) return 0;
  return static_cast<std::uint8_t>(std::floor(std::min(value, 1.0f) * 255.0f + 0.5f));
}

bool fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return false;
}

// The bits of a number well mixed, for a colour that differs from those of its neighbours.
std::uint32_t mixed(std::uint32_t number) {
  char bytes[4];
  std::memcpy(bytes, &number, sizeof bytes);
  return murmurHash3({bytes, sizeof bytes});
}

// A colour for a number: any hue, neither very dark nor very pale. As a display is sent it.
Vec3f colourOf(std::uint32_t number) {
  const std::uint32_t bits = mixed(number);
  const float hue = static_cast<float>(bits & 0xffffu) / 65536.0f * 6.0f;
  const float strength = 0.45f + 0.5f * static_cast<float>((bits >> 16) & 0xffu) / 255.0f;
  const float value = 0.55f + 0.4f * static_cast<float>(bits >> 24) / 255.0f;
  Vec3f colour;
  for (std::size_t k = 0; k < 3; ++k) {
    // A third of the circle apart: 1 within a sixth of the channel's own hue, 0 from a third on.
    const float away =
        std::abs(std::fmod(hue + 6.0f - 2.0f * static_cast<float>(k) + 3.0f, 6.0f) - 3.0f);
    const float share = std::clamp(2.0f - away, 0.0f, 1.0f);
    colour[k] = value * (1.0f - strength * (1.0f - share));
  }
  return colour;
}

double exposureOf(const Picture& picture) {
  for (const Attribute& attribute : picture.attributes)
    if (attribute.name == "exposure" && std::holds_alternative<float>(attribute.value))
      return static_cast<double>(std::get<float>(attribute.value));
  return 0.0;
}

// Fills an image without alpha, pixel by pixel, from colours as a display is sent them.
template <class ColourAt>
void fill(DisplayImage& image, const ColourAt& colourAt) {
  std::uint8_t* code = image.codes.data();
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const Vec3f colour = colourAt(x, y);
      for (std::size_t k = 0; k < 3; ++k) *code++ = codeOf(colour[k]);
    }
}

// The range of the finite values of a channel; 0 to 1 when they have none.
struct Range {
  float low = std::numeric_limits<float>::max(), high = std::numeric_limits<float>::lowest();

  Range(const PixelView<float>& values, int channel) {
    for (int y = 0; y < values.height; ++y)
      for (int x = 0; x < values.width; ++x)
        if (const float value = values(x, y, channel); std::isfinite(value)) {
          low = std::min(low, value);
          high = std::max(high, value);
        }
    if (!(low < high)) high = low = low > high ? 0.0f : low;
  }
  // From 0 at the low end to 1; 1 when all values are equal. In double: the ends may be far apart.
  [[nodiscard]] float share(float value) const {
    if (!(low < high)) return 1.0f;
    return static_cast<float>((static_cast<double>(value) - static_cast<double>(low)) /
                              (static_cast<double>(high) - static_cast<double>(low)));
  }
};

void showData(std::string_view name, const PixelView<float>& values, DisplayImage& image) {
  if (name == "depth") {
    const Range range(values, 0);
    constexpr float kFarthest = 0.2f;
    fill(image, [&](int x, int y) {
      const float depth = values(x, y);
      if (!std::isfinite(depth)) return Vec3f();
      const float nearness = range.low < range.high ? 1.0f - range.share(depth) : 1.0f;
      return Vec3f(kFarthest + (1.0f - kFarthest) * nearness);
    });
  } else if (name == "N") {
    fill(image, [&](int x, int y) {
      const Vec3f normal(values(x, y, 0), values(x, y, 1), values(x, y, 2));
      return normal == Vec3f() ? Vec3f() : normal * 0.5f + Vec3f(0.5f);
    });
  } else if (values.channels >= 3) {
    const Range ranges[3] = {{values, 0}, {values, 1}, {values, 2}};
    fill(image, [&](int x, int y) {
      return Vec3f(ranges[0].share(values(x, y, 0)), ranges[1].share(values(x, y, 1)),
                   ranges[2].share(values(x, y, 2)));
    });
  } else {
    fill(image, [&](int x, int y) { return Vec3f(values(x, y)); });
  }
}

// Colours of ids mixed by their shares.
bool showMatte(const Picture& picture, const LayerGroup& group, DisplayImage& image) {
  std::vector<PixelView<float>> ranks;
  for (const std::string& layer : group.layers)
    if (const LayerView view = picture.layer(layer); view.floats.channels == 4)
      ranks.push_back(view.floats);
  fill(image, [&](int x, int y) {
    Vec3f colour;
    for (const PixelView<float>& pair : ranks)
      for (int i = 0; i < 4; i += 2) {
        std::uint32_t id = 0;
        std::memcpy(&id, &pair(x, y, i), sizeof id);
        if (id != 0) colour += colourOf(id) * pair(x, y, i + 1);
      }
    return colour;
  });
  return !ranks.empty();
}

// Light and plain colour, exposed and through the view.
void showColour(const Picture& picture, const PixelView<float>& values, float exposure,
                const DisplayOptions& options, DisplayImage& image) {
  const bool hasAlpha = values.channels == 4;
  const bool isStraight = hasAlpha && options.behind != Behind::backdrop;
  std::vector<float> rgb;
  rgb.reserve(picture.pixelCount() * 3);
  const int height = options.wholeHeight > 0 ? options.wholeHeight : values.height;
  for (int y = 0; y < values.height; ++y) {
    const Vec3f behind =
        backdrop(1.0f - (static_cast<float>(options.y + y) + 0.5f) / static_cast<float>(height));
    for (int x = 0; x < values.width; ++x) {
      Vec3f colour = Vec3f(values(x, y, 0), values(x, y, 1), values(x, y, 2)) * exposure;
      const float alpha = hasAlpha ? std::min(values(x, y, 3), 1.0f) : 1.0f;
      if (isStraight)
        colour = alpha > 0.0f ? colour / alpha : Vec3f();
      else
        colour += behind * (1.0f - alpha);
      for (std::size_t k = 0; k < 3; ++k) rgb.push_back(colour[k]);
    }
  }
  options.view.apply(rgb);

  image.hasAlpha = hasAlpha && options.behind == Behind::nothing;
  image.codes.clear();
  const Vec3f behind(detail::linearFromSrgb(options.colour.x),
                     detail::linearFromSrgb(options.colour.y),
                     detail::linearFromSrgb(options.colour.z));
  for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
    const auto x = static_cast<int>(i % static_cast<std::size_t>(picture.width));
    const auto y = static_cast<int>(i / static_cast<std::size_t>(picture.width));
    const float alpha = hasAlpha ? std::clamp(values(x, y, 3), 0.0f, 1.0f) : 1.0f;
    for (std::size_t k = 0; k < 3; ++k) {
      float value = rgb[3 * i + k];
      // Light mixes at edges, not codes. Where the surface is whole its code stays as it is.
      if (hasAlpha && options.behind == Behind::colour && alpha < 1.0f)
        value = alpha > 0.0f ? detail::srgbFromLinear(
                                   detail::linearFromSrgb(std::clamp(value, 0.0f, 1.0f)) * alpha +
                                   behind[k] * (1.0f - alpha))
                             : options.colour[k];
      image.codes.push_back(codeOf(value));
    }
    if (image.hasAlpha) image.codes.push_back(codeOf(alpha));
  }
}

}  // namespace

std::optional<DisplayImage> displayLayer(const Picture& picture, std::string_view name,
                                         const DisplayOptions& options, std::string* error) {
  const double exposure = std::exp2(options.exposure + exposureOf(picture));
  if (!std::isfinite(static_cast<float>(exposure))) {
    fail(error, "the exposure is not finite");
    return std::nullopt;
  }
  DisplayImage image;
  image.width = picture.width;
  image.height = picture.height;
  if (picture.width < 1 || picture.height < 1) {
    fail(error, "the picture has no pixels");
    return std::nullopt;
  }
  image.codes.resize(picture.pixelCount() * 3);

  // A matte is more than one layer.
  for (const LayerGroup& group : layerGroups())
    if (group.name == name ||
        std::find(group.layers.begin(), group.layers.end(), name) != group.layers.end())
      if (showMatte(picture, group, image)) return image;

  const LayerView view = picture.layer(name);
  if (!view) {
    fail(error, "the picture has no layer " + std::string(name));
    return std::nullopt;
  }
  const LayerInfo* info = findLayerInfo(name);
  const bool isColour = info && info->sampling == Sampling::meanOfSamples;
  if (view.integers)
    fill(image, [&](int x, int y) {
      const std::uint32_t number = view.integers(x, y);
      return number == 0 && name != "face" ? Vec3f() : colourOf(number);
    });
  else if (isColour && view.floats.channels >= 3)
    showColour(picture, view.floats, static_cast<float>(exposure), options, image);
  else
    showData(name, view.floats, image);
  return image;
}

}  // namespace vela::picture
