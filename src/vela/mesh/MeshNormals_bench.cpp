// Point normals of a million quadrilaterals beside reading and writing the same bytes, into an
// array that is used again and into a fresh one each time.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/Harness.h"
#include "support/SampleMeshes.h"
#include "vela/mesh/MeshNormals.h"

namespace {

using tarn::Vec3f;
using vela_test::SampleMesh;

void calc(const SampleMesh& grid, bool allQuads, ovo::Array<Vec3f>& normals) {
  vela::calcPointNormals(grid.points.size(), grid.points.data(), grid.indices.size(),
                         grid.indices.data(), grid.counts.size(), grid.counts.data(), false,
                         allQuads, normals, true);
  benchmark::DoNotOptimize(normals.cdata());
}

// The least that any way of doing it has to touch: the points, the indices and, without a hint, the
// counts are read, the normals written. 40 MB, 44 with the counts.
void touchBytes(const SampleMesh& grid, bool withCounts, Vec3f* normals) {
  std::memcpy(static_cast<void*>(normals), grid.points.data(), grid.points.size() * sizeof(Vec3f));
  benchmark::DoNotOptimize(normals);
  std::int32_t all = 0;
  for (const int i : grid.indices) all |= i;
  if (withCounts)
    for (const int i : grid.counts) all |= i;
  benchmark::DoNotOptimize(all);
}

const SampleMesh& million() {
  static const SampleMesh grid = vela_test::makeGrid(1000, 1000);
  return grid;
}

// \param range  whether all faces are said to be quads; whether the array is fresh each time
void pointNormals(benchmark::State& state) {
  ovo::Array<Vec3f> kept(million().points.size());
  for (auto _ : state) {
    ovo::Array<Vec3f> own;
    calc(million(), state.range(0) != 0, state.range(1) != 0 ? own : kept);
  }
}

// \param range  as above
void bytes(benchmark::State& state) {
  const std::size_t count = million().points.size();
  std::vector<Vec3f> kept(count);
  for (auto _ : state) {
    const std::unique_ptr<char[]> own(state.range(1) != 0 ? new char[count * sizeof(Vec3f)]
                                                          : nullptr);
    touchBytes(million(), state.range(0) == 0,
               own ? reinterpret_cast<Vec3f*>(own.get()) : kept.data());
  }
}

void vertexNormals(benchmark::State& state) {
  const SampleMesh& grid = million();
  ovo::Array<Vec3f> normals;
  for (auto _ : state) {
    vela::calcVertexNormals(grid.points.size(), grid.points.data(), grid.indices.size(),
                            grid.indices.data(), grid.counts.size(), grid.counts.data(), 0.5f,
                            normals);
    benchmark::DoNotOptimize(normals.cdata());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

#define VELA_NORMALS(function)        \
  BENCHMARK(function)                 \
      ->ArgNames({"hinted", "fresh"}) \
      ->ArgsProduct({{0, 1}, {0, 1}}) \
      ->Unit(benchmark::kMillisecond)
VELA_NORMALS(pointNormals);
VELA_NORMALS(bytes);
BENCHMARK(vertexNormals)->Unit(benchmark::kMillisecond);

VELA_RATIO("point normals, all quads, to moving the bytes", "pointNormals/hinted:1/fresh:0",
           "bytes/hinted:1/fresh:0", 2.5)
VELA_RATIO("point normals by counts, to moving the bytes", "pointNormals/hinted:0/fresh:0",
           "bytes/hinted:0/fresh:0", 2.5)
VELA_RATIO("point normals, all quads, fresh array", "pointNormals/hinted:1/fresh:1",
           "bytes/hinted:1/fresh:1")
VELA_RATIO("point normals by counts, fresh array", "pointNormals/hinted:0/fresh:1",
           "bytes/hinted:0/fresh:1")

}  // namespace
