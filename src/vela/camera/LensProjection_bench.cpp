// Rays per second of each lens, beside two peers: writing the same records with memset, and the
// same formulas one ray after the other with the platform's own sine and cosine.
#include <cstring>
#include <memory>
#include <vector>

#include "bench/Harness.h"
#include "vela/camera/LensProjection.h"
#include "vela/camera/TestRayLoops.h"

namespace {

struct Batch {
  std::vector<vela::ProjectCoord> coords;
  std::vector<vela::RayContext> rays;
  vela::Camera::Sample sample;
  vela::ProjectionImageContext image;

  explicit Batch(std::size_t count, bool window) : coords(count), rays(count) {
    // Pixels of an image twice as wide as high, row after row.
    const std::size_t width = count < 100000 ? 64 : 1024;
    image = vela::ProjectionImageContext::forSize(static_cast<int>(width),
                                                  static_cast<int>(count / width));
    const float pixel = 2.0f / static_cast<float>(width);
    for (std::size_t i = 0; i < count; ++i) {
      coords[i].x = (static_cast<float>(i % width) + 0.5f) * pixel - 1.0f;
      coords[i].y = image.aspect - (static_cast<float>(i / width) + 0.5f) * pixel;
      coords[i].dx = coords[i].dy = pixel;
    }
    sample.sensor.apertureSize = {36.0, 18.0};
    sample.optics.focalLength = 50.0;
    if (window) sample.sensor.apertureTranslate = {0.1, 0.0};
    const vela::LinearProjection lens;
    sample.updateDerivedValues(&lens);
  }
};

void countRays(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetBytesProcessed(state.iterations() * state.range(0) *
                          static_cast<std::int64_t>(sizeof(vela::RayContext)));
}

void memsetOfTheRecords(benchmark::State& state) {
  Batch batch(static_cast<std::size_t>(state.range(0)), false);
  for (auto _ : state) {
    std::memset(static_cast<void*>(batch.rays.data()), 1,
                batch.rays.size() * sizeof(vela::RayContext));
    benchmark::ClobberMemory();
  }
  countRays(state);
}
BENCHMARK(memsetOfTheRecords)->Arg(4096)->Arg(1 << 20);

// One camera for all coordinates.
void cameraRays(benchmark::State& state) {
  Batch batch(static_cast<std::size_t>(state.range(0)), state.range(2) != 0);
  const std::unique_ptr<vela::LensProjectionFunction> lens(
      vela::CreateProjectionFunc(static_cast<vela::LensProjection>(state.range(1))));
  for (auto _ : state) {
    vela::generateCameraRays(*lens, static_cast<unsigned>(batch.coords.size()), batch.coords.data(),
                             batch.sample, batch.image, batch.rays.data());
    benchmark::ClobberMemory();
  }
  state.SetLabel(lens->identifier());
  countRays(state);
}
BENCHMARK(cameraRays)
    ->ArgsProduct({{4096, 1 << 20}, {0, 1, 2, 3}, {0}})
    ->ArgNames({"rays", "lens", "window"});
BENCHMARK(cameraRays)
    ->ArgsProduct({{4096, 1 << 20}, {0}, {1}})
    ->ArgNames({"rays", "lens", "window"});

// The same, one by one.
void oneByOne(benchmark::State& state) {
  Batch batch(static_cast<std::size_t>(state.range(0)), state.range(2) != 0);
  const auto lens = static_cast<vela::LensProjection>(state.range(1));
  const vela_test::RayLoop loop = {batch.coords.size(), batch.coords.data(), &batch.sample, 0,
                                   batch.rays.data()};
  for (auto _ : state) {
    vela_test::rayLoop(lens, loop, batch.image.aspect);
    benchmark::ClobberMemory();
  }
  state.SetLabel(vela::LensProjectionClassName(lens));
  countRays(state);
}
BENCHMARK(oneByOne)
    ->ArgsProduct({{4096, 1 << 20}, {0, 1, 2, 3}, {0}})
    ->ArgNames({"rays", "lens", "window"});
BENCHMARK(oneByOne)->ArgsProduct({{4096, 1 << 20}, {0}, {1}})->ArgNames({"rays", "lens", "window"});

// A sample for each coordinate.
void generateRayGeometry(benchmark::State& state) {
  Batch batch(static_cast<std::size_t>(state.range(0)), false);
  const std::vector<vela::Camera::Sample> samples(batch.coords.size(), batch.sample);
  const std::unique_ptr<vela::LensProjectionFunction> lens(
      vela::CreateProjectionFunc(static_cast<vela::LensProjection>(state.range(1))));
  for (auto _ : state) {
    lens->generateRayGeometry(static_cast<unsigned>(batch.coords.size()), batch.coords.data(),
                              samples.data(), batch.image, batch.rays.data());
    benchmark::ClobberMemory();
  }
  state.SetLabel(lens->identifier());
  countRays(state);
}
BENCHMARK(generateRayGeometry)->ArgsProduct({{4096}, {0, 1, 2, 3}})->ArgNames({"rays", "lens"});

VELA_RATIO("spherical rays, to the plain loop", "cameraRays/rays:4096/lens:2/window:0",
           "oneByOne/rays:4096/lens:2/window:0", 0.25)
VELA_RATIO("cylindrical rays, to the plain loop", "cameraRays/rays:4096/lens:3/window:0",
           "oneByOne/rays:4096/lens:3/window:0", 0.25)
VELA_RATIO("perspective rays, to the plain loop", "cameraRays/rays:4096/lens:0/window:0",
           "oneByOne/rays:4096/lens:0/window:0")
VELA_RATIO("perspective rays, to memset of the records", "cameraRays/rays:4096/lens:0/window:0",
           "memsetOfTheRecords/4096")
VELA_RATIO("a million perspective rays, to memset", "cameraRays/rays:1048576/lens:0/window:0",
           "memsetOfTheRecords/1048576", 2.4)

}  // namespace
