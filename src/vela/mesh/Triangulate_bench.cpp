// Polygons cut into triangles beside mapbox earcut, where scripts/setup work has fetched it.
//
// Each case runs all candidates in turns and takes the medians; what counts are the ratios to
// earcut's own fastest way, its object used again and again. The peer is given flat points in
// double, which is what it takes; ours project the points of a tilted polygon first.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "vela/mesh/BenchClock.h"
#include "vela/mesh/Triangulate.h"

#if __has_include(<mapbox/earcut.hpp>)
#include <mapbox/earcut.hpp>
#define VELA_HAS_EARCUT 1
#else
#define VELA_HAS_EARCUT 0
#endif

namespace {

using tarn::Vec3;
using vela_bench::processorTime;

enum Shape { kConvex, kStar, kRandom };

struct Polygon {
  std::vector<Vec3<float>> points;
  std::vector<int> indices;
  std::vector<std::vector<std::array<double, 2>>> flat;
};

Polygon make(Shape shape, int corners) {
  Polygon made;
  made.flat.resize(1);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> radius(0.3, 1.0);
  for (int i = 0; i < corners; ++i) {
    const double angle = 2 * 3.141592653589793 * i / corners;
    const double r = 10 * (shape == kConvex ? 1.0
                           : shape == kStar ? (i % 2 ? 0.5 : 1.0)
                                            : radius(random));
    const double x = r * std::cos(angle), y = r * std::sin(angle);
    made.flat[0].push_back({x, y});
    made.points.emplace_back(Vec3<double>(x, 0.8 * y, 0.6 * y));
    made.indices.push_back(i);
  }
  return made;
}

void polygons(benchmark::State& state) {
  const int corners = static_cast<int>(state.range(1));
  const Polygon polygon = make(static_cast<Shape>(state.range(0)), corners);
  state.SetLabel(std::array<const char*, 3>{
      "convex", "star", "random radius"}[static_cast<std::size_t>(state.range(0))]);
  const int repeats = std::max(1, 20000 / corners);
  std::vector<int> triangles;
  std::array<std::vector<double>, 4> times;
  const auto timed = [&](std::size_t what, auto&& run) {
    const double start = processorTime();
    for (int i = 0; i < repeats; ++i) run();
    times[what].push_back((processorTime() - start) * 1e6 / repeats / corners);
  };
#if VELA_HAS_EARCUT
  mapbox::detail::Earcut<std::uint32_t> again;
#endif
  for (auto _ : state) {
    timed(0, [&] {
      vela::Triangulate(polygon.points.data(), polygon.indices.data(), corners, triangles);
      benchmark::DoNotOptimize(triangles.data());
    });
    timed(1, [&] {
      vela::triangulatePolygon(polygon.points.data(), polygon.indices.data(), corners, triangles);
      benchmark::DoNotOptimize(triangles.data());
    });
#if VELA_HAS_EARCUT
    timed(2, [&] {
      again(polygon.flat);
      benchmark::DoNotOptimize(again.indices.data());
    });
    timed(3, [&] {
      std::vector<std::uint32_t> cut = mapbox::earcut<std::uint32_t>(polygon.flat);
      benchmark::DoNotOptimize(cut.data());
    });
#endif
  }
  const auto median = [](std::vector<double>& t) {
    std::nth_element(t.begin(), t.begin() + static_cast<std::ptrdiff_t>(t.size() / 2), t.end());
    return t[t.size() / 2];
  };
  const double ears = median(times[0]), exact = median(times[1]);
  state.counters["ears_ns"] = ears;
  state.counters["exact_ns"] = exact;
#if VELA_HAS_EARCUT
  const double peer = median(times[2]);
  state.counters["earcut_ns"] = peer;
  state.counters["earcut_fresh_ns"] = median(times[3]);
  state.counters["ears_ratio"] = ears / peer;
  state.counters["exact_ratio"] = exact / peer;
#endif
}

BENCHMARK(polygons)
    ->ArgNames({"shape", "corners"})
    ->ArgsProduct({{kConvex}, {4, 5, 8, 16, 64, 250, 1000}})
    ->ArgsProduct({{kStar, kRandom}, {8, 16, 64, 250, 1000}})
    ->Iterations(31)
    ->Unit(benchmark::kMillisecond);

}  // namespace
