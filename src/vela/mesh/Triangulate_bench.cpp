// Polygons cut into triangles beside mapbox earcut, where scripts/setup work has fetched it.
//
// Both of its ways count: a fresh object each time, and one used again and again. The peer is given
// flat points in double, which is what it takes; ours project the points of a tilted polygon first.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bench/Harness.h"
#include "vela/mesh/Triangulate.h"

#if __has_include(<mapbox/earcut.hpp>)
#include <mapbox/earcut.hpp>
#define VELA_HAS_EARCUT 1
#else
#define VELA_HAS_EARCUT 0
#endif

namespace {

using tarn::Vec3d;
using tarn::Vec3f;

enum Shape { kConvex, kStar, kRandom };

struct Polygon {
  std::vector<Vec3f> points;
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
    made.points.emplace_back(Vec3d(x, 0.8 * y, 0.6 * y));
    made.indices.push_back(i);
  }
  return made;
}

// \param range  shape, corners
Polygon make(benchmark::State& state) {
  state.SetLabel(std::array<const char*, 3>{
      "convex", "star", "random radius"}[static_cast<std::size_t>(state.range(0))]);
  return make(static_cast<Shape>(state.range(0)), static_cast<int>(state.range(1)));
}

void ears(benchmark::State& state) {
  const Polygon polygon = make(state);
  std::vector<int> triangles;
  for (auto _ : state) {
    vela::Triangulate(polygon.points.data(), polygon.indices.data(),
                      static_cast<int>(polygon.indices.size()), triangles);
    benchmark::DoNotOptimize(triangles.data());
  }
}

void exact(benchmark::State& state) {
  const Polygon polygon = make(state);
  std::vector<int> triangles;
  for (auto _ : state) {
    vela::triangulatePolygon(polygon.points.data(), polygon.indices.data(),
                             static_cast<int>(polygon.indices.size()), triangles);
    benchmark::DoNotOptimize(triangles.data());
  }
}

#if VELA_HAS_EARCUT
void earcut(benchmark::State& state) {
  const Polygon polygon = make(state);
  mapbox::detail::Earcut<std::uint32_t> again;
  for (auto _ : state) {
    again(polygon.flat);
    benchmark::DoNotOptimize(again.indices.data());
  }
}

void earcutFresh(benchmark::State& state) {
  const Polygon polygon = make(state);
  for (auto _ : state) {
    std::vector<std::uint32_t> cut = mapbox::earcut<std::uint32_t>(polygon.flat);
    benchmark::DoNotOptimize(cut.data());
  }
}
#endif

#define VELA_POLYGONS(function)                                \
  BENCHMARK(function)                                          \
      ->ArgNames({"shape", "corners"})                         \
      ->ArgsProduct({{kConvex}, {4, 5, 8, 16, 64, 250, 1000}}) \
      ->ArgsProduct({{kStar, kRandom}, {8, 16, 64, 250, 1000}})
VELA_POLYGONS(ears);
VELA_POLYGONS(exact);
#if VELA_HAS_EARCUT
VELA_POLYGONS(earcut);
VELA_POLYGONS(earcutFresh);

// A row for each case.
const bool kRatios = [] {
  const char* const shapes[] = {"convex", "star", "random"};
  for (const int shape : {kConvex, kStar, kRandom})
    for (const int corners : {4, 5, 8, 16, 64, 250, 1000}) {
      const std::string of =
          "/shape:" + std::to_string(shape) + "/corners:" + std::to_string(corners);
      const std::string what = std::string(", ") + shapes[shape] + ", " + std::to_string(corners) +
                               " corners, to earcut's";
      const double goal = corners >= 5 && corners <= 16 ? 1.2 : corners == 1000 ? 0.5 : 0.0;
      vela_bench::ratio("ears" + what, "ears" + of, "earcut" + of, goal);
      vela_bench::ratio("exact" + what, "exact" + of, "earcut" + of);
    }
  return true;
}();
#endif

}  // namespace
