#include "vela/picture/detail/PixelSamples.h"

#include <algorithm>
#include <cmath>

#include "vela/picture/detail/Disk.h"

namespace vela::picture::detail {

using tarn::Vec2f;

void PixelSamples::start(int x, int y, int frame, bool jittered) {
  rng_.setSeed(SamplingRng::BuildHashedSeed(x, y, frame));
  if (grid_ == 1)
    offsets_.assign(1, Vec2f());
  else if (jittered)
    rng_.generate2dSamples(grid_, grid_, offsets_);
  else
    rng_.generate2dUniformSamples(grid_, grid_, offsets_);
}

void PixelSamples::drawLens() {
  rng_.generate2dSamples(grid_, grid_, lens_);
  for (Vec2f& point : lens_) point = toDisk(point);
}

// Evenly over the time, in random order, so that neighbouring pixels have other moments where there
// are more of them than samples.
void PixelSamples::drawMoments(std::size_t count) {
  rng_.generate1dSamples(grid_ * grid_, times_);
  moments_.resize(times_.size());
  const auto moments = static_cast<double>(count);
  for (std::size_t s = 0; s < times_.size(); ++s)
    moments_[s] = static_cast<std::uint32_t>(
        std::clamp(static_cast<double>(times_[s]) * moments, 0.0, moments - 1.0));
}

void PixelSamples::drawLights() {
  rng_.generate2dSamples(grid_, grid_, key_);
  rng_.generate2dSamples(grid_, grid_, fill_);
  // Square like the others: with more columns than rows the set leans to one side, and so would the
  // light.
  rng_.generate2dSamples(grid_ * ambientGrid_, grid_ * ambientGrid_, ambientPoints_);
  rng_.generate1dSamples(grid_ * grid_ * ambient_, reaches_);
}

// Each light has the same points, shifted by a draw of its own: even as the set is, without a set
// for each of many lights.
void PixelSamples::drawSceneLights(std::size_t slots) {
  rng_.generate2dSamples(grid_, grid_, lights_);
  rng_.generate2dSamples(grid_, grid_, scattered_);
  rng_.generate2dSamples(grid_, grid_, reflected_);
  rng_.generate1dSamples(grid_ * grid_, which_);
  shifts_.resize(slots);
  for (Vec2f& shift : shifts_) shift = nextPoint();
}

Vec2f PixelSamples::nextPoint() {
  const float x = next();
  return {x, next()};
}

namespace {

// Back into the unit square after a shift to the right; 0.9999999 stays below 1 as a float.
float wrapped(float x) { return std::clamp(x - std::floor(x), 0.0f, 0.9999999f); }

}  // namespace

Vec2f PixelSamples::light(std::size_t sample, std::size_t slot) const {
  const Vec2f &point = lights_[sample], &shift = shifts_[slot];
  return {wrapped(point.x + 0.5f + shift.x), wrapped(point.y + 0.5f + shift.y)};
}

Vec2f PixelSamples::scattered(std::size_t sample) const {
  return {wrapped(scattered_[sample].x + 0.5f), wrapped(scattered_[sample].y + 0.5f)};
}

Vec2f PixelSamples::reflected(std::size_t sample) const {
  return {wrapped(reflected_[sample].x + 0.5f), wrapped(reflected_[sample].y + 0.5f)};
}

}  // namespace vela::picture::detail
