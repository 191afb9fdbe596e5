// Point normals of a million quadrilaterals beside reading and writing the same bytes.
//
// `rounds` runs all of them in turns and gives the ratios of the medians, which a busy machine
// moves less than the times.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "vela/mesh/BenchClock.h"
#include "vela/mesh/MeshNormals.h"

namespace {

using tarn::Vec3;
using vela_bench::processorTime;

struct Grid {
  std::vector<Vec3<float>> points;
  std::vector<int> counts, indices;

  explicit Grid(int n) {
    for (int i = 0; i <= n; ++i)
      for (int j = 0; j <= n; ++j)
        points.emplace_back(static_cast<float>(j), static_cast<float>(i),
                            std::sin(0.1f * static_cast<float>(i + j)));
    const int w = n + 1;
    counts.assign(static_cast<std::size_t>(n) * static_cast<std::size_t>(n), 4);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j)
        for (const int p : {i * w + j, i * w + j + 1, (i + 1) * w + j + 1, (i + 1) * w + j})
          indices.push_back(p);
  }
};

void calc(const Grid& grid, bool allQuads, ovo::Array<Vec3<float>>& normals) {
  vela::calcPointNormals(grid.points.size(), grid.points.data(), grid.indices.size(),
                         grid.indices.data(), grid.counts.size(), grid.counts.data(), false,
                         allQuads, normals, true);
  benchmark::DoNotOptimize(normals.cdata());
}

// The least that any way of doing it has to touch: the points, the indices and, without a hint, the
// counts are read, the normals written. 40 MB, 44 with the counts.
void touchBytes(const Grid& grid, bool withCounts, Vec3<float>* normals) {
  std::memcpy(static_cast<void*>(normals), grid.points.data(),
              grid.points.size() * sizeof(Vec3<float>));
  benchmark::DoNotOptimize(normals);
  std::int32_t all = 0;
  for (const int i : grid.indices) all |= i;
  if (withCounts)
    for (const int i : grid.counts) all |= i;
  benchmark::DoNotOptimize(all);
}

// In turns: into an array that is used again, and into a fresh one each time, for us and for the
// peer alike.
void rounds(benchmark::State& state) {
  const Grid grid(1000);
  const bool fresh = state.range(0) != 0;
  ovo::Array<Vec3<float>> kept(grid.points.size());
  std::vector<Vec3<float>> keptBytes(grid.points.size());
  std::array<std::vector<double>, 4> times;
  const auto timed = [&](std::size_t what, auto&& run) {
    const double start = processorTime();
    run();
    times[what].push_back(processorTime() - start);
  };
  for (auto _ : state) {
    for (const bool allQuads : {true, false})
      timed(allQuads ? 0 : 1, [&] {
        ovo::Array<Vec3<float>> own;
        calc(grid, allQuads, fresh ? own : kept);
      });
    for (const bool withCounts : {false, true})
      timed(withCounts ? 3 : 2, [&] {
        const std::unique_ptr<char[]> own(fresh ? new char[grid.points.size() * sizeof(Vec3<float>)]
                                                : nullptr);
        touchBytes(grid, withCounts,
                   fresh ? reinterpret_cast<Vec3<float>*>(own.get()) : keptBytes.data());
      });
  }
  const auto median = [](std::vector<double>& t) {
    std::nth_element(t.begin(), t.begin() + static_cast<std::ptrdiff_t>(t.size() / 2), t.end());
    return t[t.size() / 2];
  };
  const double bytes = median(times[2]), quads = median(times[0]), counted = median(times[1]);
  state.counters["bytes_ms"] = bytes;
  state.counters["hinted_ms"] = quads;
  state.counters["hinted_ratio"] = quads / bytes;
  state.counters["counted_ratio"] = counted / median(times[3]);
}

void vertexNormals(benchmark::State& state) {
  const Grid grid(1000);
  ovo::Array<Vec3<float>> normals;
  for (auto _ : state) {
    vela::calcVertexNormals(grid.points.size(), grid.points.data(), grid.indices.size(),
                            grid.indices.data(), grid.counts.size(), grid.counts.data(), 0.5f,
                            normals);
    benchmark::DoNotOptimize(normals.cdata());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

BENCHMARK(rounds)->ArgName("fresh")->Arg(0)->Arg(1)->Iterations(101)->Unit(benchmark::kMillisecond);
BENCHMARK(vertexNormals)->Unit(benchmark::kMillisecond);

}  // namespace
