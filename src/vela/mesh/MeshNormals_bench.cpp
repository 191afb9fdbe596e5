// Point normals of a million quadrilaterals beside reading and writing the same bytes.

#include "vela/mesh/MeshNormals.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

using tarn::Vec3;

struct Grid {
  std::vector<Vec3<float>> points;
  std::vector<int> counts, indices;

  explicit Grid(int n) {
    for (int i = 0; i <= n; ++i)
      for (int j = 0; j <= n; ++j)
        points.emplace_back(static_cast<float>(j), static_cast<float>(i), std::sin(0.1f * static_cast<float>(i + j)));
    const int w = n + 1;
    counts.assign(static_cast<std::size_t>(n) * static_cast<std::size_t>(n), 4);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j)
        for (const int p : {i * w + j, i * w + j + 1, (i + 1) * w + j + 1, (i + 1) * w + j}) indices.push_back(p);
  }
};

void pointNormals(benchmark::State& state) {
  const Grid grid(1000);
  ovo::Array<Vec3<float>> normals;
  for (auto _ : state) {
    vela::calcPointNormals(grid.points.size(), grid.points.data(), grid.indices.size(), grid.indices.data(),
                           grid.counts.size(), grid.counts.data(), false, state.range(0) != 0, normals, true);
    benchmark::DoNotOptimize(normals.cdata());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

void vertexNormals(benchmark::State& state) {
  const Grid grid(1000);
  ovo::Array<Vec3<float>> normals;
  for (auto _ : state) {
    vela::calcVertexNormals(grid.points.size(), grid.points.data(), grid.indices.size(), grid.indices.data(),
                            grid.counts.size(), grid.counts.data(), 0.5f, normals);
    benchmark::DoNotOptimize(normals.cdata());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

// What any way of doing it has to touch: the points and indices are read, the sums and the counters kept, the normals
// written. Everything is copied to memory of its own.
void sameBytes(benchmark::State& state) {
  const Grid grid(1000);
  std::vector<char> points(grid.points.size() * 12), indices(grid.indices.size() * 4), sums(grid.points.size() * 16),
      normals(grid.points.size() * 12);
  for (auto _ : state) {
    std::memcpy(points.data(), grid.points.data(), points.size());
    std::memcpy(indices.data(), grid.indices.data(), indices.size());
    std::memset(sums.data(), 0, sums.size());
    std::memcpy(normals.data(), sums.data(), normals.size());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

BENCHMARK(pointNormals)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(sameBytes)->Unit(benchmark::kMillisecond);
BENCHMARK(vertexNormals)->Unit(benchmark::kMillisecond);

}  // namespace
