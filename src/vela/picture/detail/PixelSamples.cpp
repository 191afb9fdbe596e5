#include "vela/picture/detail/PixelSamples.h"

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

void PixelSamples::drawLights() {
  rng_.generate2dSamples(grid_, grid_, key_);
  rng_.generate2dSamples(grid_, grid_, fill_);
  // Square like the others: with more columns than rows the set leans to one side, and so would the
  // light.
  rng_.generate2dSamples(grid_ * ambientGrid_, grid_ * ambientGrid_, ambientPoints_);
  rng_.generate1dSamples(grid_ * grid_ * ambient_, reaches_);
}

}  // namespace vela::picture::detail
