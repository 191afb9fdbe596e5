#include "vela/picture/detail/Lights.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "ovo/PropertyLinks.h"
#include "tarn/Constants.h"

namespace vela::picture::detail {

using look::LightKind;
using look::LightSample;
using tarn::Vec2d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using tarn::Vec4f;

namespace {

constexpr double kPi = tarn::kPi<double>;

// Where a share of the whole falls among running sums, and how far into that one it falls, 0 to 1.
std::size_t findShare(const double* sums, std::size_t count, double share, double& within) {
  const double wanted = share * sums[count - 1];
  const auto at = static_cast<std::size_t>(std::upper_bound(sums, sums + count - 1, wanted) - sums);
  const double before = at == 0 ? 0.0 : sums[at - 1];
  const double width = sums[at] - before;
  within = width > 0.0 ? std::clamp((wanted - before) / width, 0.0, 1.0) : 0.5;
  return at;
}

std::size_t cellOf(double coordinate, std::size_t count) {
  const double at = coordinate * static_cast<double>(count);
  return static_cast<std::size_t>(std::clamp(at, 0.0, static_cast<double>(count) - 1.0));
}

// The cosine of the latitude, which a picture of all directions is stretched by.
double stretchAt(double v) { return std::max(std::cos((v - 0.5) * kPi), 0.0); }

}  // namespace

DomeGrid::DomeGrid(const std::vector<double>& weights) : rows_(kRows), cells_(kRows * kColumns) {
  const double mean =
      std::accumulate(weights.begin(), weights.end(), 0.0) / static_cast<double>(kRows * kColumns);
  // All black: all places alike.
  const double least = mean > 0.0 ? 1e-3 * mean : 1.0;
  double sum = 0.0;
  for (std::size_t r = 0; r < kRows; ++r) {
    double ofRow = 0.0;
    for (std::size_t c = 0; c < kColumns; ++c)
      cells_[r * kColumns + c] = ofRow += std::max(weights[r * kColumns + c], least);
    rows_[r] = sum += ofRow;
  }
}

Vec2d DomeGrid::sample(double u, double v) const {
  double x = 0.0, y = 0.0;
  const std::size_t row = findShare(rows_.data(), kRows, v, y);
  const std::size_t column = findShare(&cells_[row * kColumns], kColumns, u, x);
  return {(static_cast<double>(column) + x) / static_cast<double>(kColumns),
          (static_cast<double>(row) + y) / static_cast<double>(kRows)};
}

double DomeGrid::density(const Vec2d& point) const {
  const std::size_t row = cellOf(point.y, kRows), column = cellOf(point.x, kColumns);
  const double* const cells = &cells_[row * kColumns];
  const double weight = cells[column] - (column == 0 ? 0.0 : cells[column - 1]);
  return weight / rows_.back() * static_cast<double>(kRows * kColumns);
}

Lights::Lights(const scene::SceneLights& sources, std::size_t textureBytes, const scene::Work& work)
    : sources_(sources), images_(sources.lights.size()) {
  for (std::size_t i = 0; i < images_.size(); ++i) {
    const scene::SceneLight& light = sources.lights[i];
    if (!light.source.texture.written.empty())
      images_[i].texture = textures_.add(ovo::PropertyLinks(light.prim), light.source.texture,
                                         ColourSpace::automatic);
  }
  textures_.load(textureBytes, 0, work);
  for (std::size_t i = 0; i < images_.size(); ++i) {
    Image& image = images_[i];
    if (image.texture && !textures_.has(*image.texture)) image.texture.reset();
    if (!image.texture || sources.lights[i].source.kind != LightKind::dome) continue;
    std::vector<double> weights;
    weights.reserve(DomeGrid::kRows * DomeGrid::kColumns);
    for (std::size_t r = 0; r < DomeGrid::kRows && !work.isStopped(); ++r) {
      const double v = (static_cast<double>(r) + 0.5) / static_cast<double>(DomeGrid::kRows);
      for (std::size_t c = 0; c < DomeGrid::kColumns; ++c) {
        const double u = (static_cast<double>(c) + 0.5) / static_cast<double>(DomeGrid::kColumns);
        const Vec3f value =
            imageAt(static_cast<std::uint32_t>(i), Vec2f(Vec2d(u, v)), 1.0f / DomeGrid::kColumns);
        weights.push_back(static_cast<double>(value.x + value.y + value.z) * stretchAt(v));
      }
    }
    weights.resize(DomeGrid::kRows * DomeGrid::kColumns);
    image.grid.emplace(weights);
  }
}

// Images may hold anything: what is no light counts as black.
Vec3f Lights::imageAt(std::uint32_t light, const Vec2f& at, float footprint) const {
  const bool isDome = sources_.lights[light].source.kind == LightKind::dome;
  const Vec4f value = textures_.lookup(*images_[light].texture, at, footprint,
                                       isDome ? Wrap::repeat : Wrap::clamp, Wrap::clamp);
  const auto brightness = [](float v) { return std::isfinite(v) ? std::max(v, 0.0f) : 0.0f; };
  return {brightness(value.x), brightness(value.y), brightness(value.z)};
}

LightSample Lights::sample(std::uint32_t light, const Vec3d& point, const Vec3f& normal,
                           const Vec2f& draw) const {
  const Image& image = images_[light];
  const look::LightSource& source = sources_.lights[light].source;
  const auto u = static_cast<double>(draw.x), v = static_cast<double>(draw.y);
  if (image.grid)
    return meet(light, point, normal, Vec3f(domeDirection(source, image.grid->sample(u, v))));
  LightSample sample = look::sampleLight(source, point, normal, u, v);
  if (image.texture) sample.radiance = sample.radiance * imageAt(light, sample.onTexture, 0.0f);
  return sample;
}

LightSample Lights::meet(std::uint32_t light, const Vec3d& point, const Vec3f& normal,
                         const Vec3f& toLight) const {
  const Image& image = images_[light];
  LightSample sample = look::meetLight(sources_.lights[light].source, point, normal, toLight);
  if (image.texture && sample.density > 0.0)
    sample.radiance = sample.radiance * imageAt(light, sample.onTexture, 0.0f);
  if (image.grid) {
    const double stretch = stretchAt(static_cast<double>(sample.onTexture.y));
    // At the poles themselves a direction has all longitudes.
    sample.density =
        stretch > 1e-9 ? image.grid->density(Vec2d(sample.onTexture)) / (2.0 * kPi * kPi * stretch)
                       : 0.0;
    if (!(sample.density > 0.0)) sample.radiance = {};
  }
  return sample;
}

}  // namespace vela::picture::detail
