// Nearest-point candidates beside nanoflann's tree: building and asking, over the same points and
// positions.

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <nanoflann.hpp>

#include "bench/Harness.h"
#include "vela/mesh/NearestPointQuery.h"

namespace {

using tarn::Vec3f;

std::vector<Vec3f> randomPoints(std::size_t count, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> coordinate(0, 1);
  std::vector<Vec3f> out(count);
  for (auto& p : out) p = {coordinate(rng), coordinate(rng), coordinate(rng)};
  return out;
}
// About four points a cell, 27 cells a query.
float cellSize(std::size_t count) { return std::cbrt(4.0f / static_cast<float>(count)); }
const tarn::Box3f kBox(Vec3f(0), Vec3f(1.0001f));

struct Cloud {
  std::vector<Vec3f> points;
  std::size_t kdtree_get_point_count() const { return points.size(); }
  float kdtree_get_pt(std::size_t i, std::size_t axis) const {
    return axis == 0 ? points[i].x : axis == 1 ? points[i].y : points[i].z;
  }
  template <class B>
  bool kdtree_get_bbox(B&) const {
    return false;
  }
};
using Tree =
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3>;

void gridBuild(benchmark::State& state) {
  const auto points = randomPoints(static_cast<std::size_t>(state.range(0)), 1);
  vela::NearestPointQuery query(kBox, cellSize(points.size()));
  for (auto _ : state) {
    query.addPoints(points.data(), points.size());
    benchmark::DoNotOptimize(query.pointIds.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void treeBuild(benchmark::State& state) {
  const Cloud cloud{randomPoints(static_cast<std::size_t>(state.range(0)), 1)};
  for (auto _ : state) {
    Tree tree(3, cloud);
    tree.buildIndex();
    benchmark::DoNotOptimize(&tree);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void gridCandidates(benchmark::State& state) {
  const auto points = randomPoints(static_cast<std::size_t>(state.range(0)), 1),
             asked = randomPoints(4096, 2);
  vela::NearestPointQuery query(kBox, cellSize(points.size()));
  query.addPoints(points.data(), points.size());
  std::vector<unsigned> ids;
  std::size_t i = 0, found = 0;
  for (auto _ : state) {
    query.getNeighbours(asked[i++ & 4095], ids);
    benchmark::DoNotOptimize(ids.data());
    found += ids.size();
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["candidates"] =
      static_cast<double>(found) / static_cast<double>(state.iterations());
}

void gridNearest(benchmark::State& state) {
  const auto points = randomPoints(static_cast<std::size_t>(state.range(0)), 1),
             asked = randomPoints(4096, 2);
  vela::NearestPointQuery query(kBox, cellSize(points.size()));
  query.addPoints(points.data(), points.size());
  std::vector<unsigned> ids;
  std::size_t i = 0;
  for (auto _ : state) {
    const Vec3f& p = asked[i++ & 4095];
    query.getNeighbours(p, ids);
    float nearest = std::numeric_limits<float>::max();
    unsigned best = 0;
    for (const unsigned id : ids) {
      const float distance = (points[id] - p).lengthSquared();
      if (distance < nearest) nearest = distance, best = id;
    }
    benchmark::DoNotOptimize(best);
  }
  state.SetItemsProcessed(state.iterations());
}

void treeNearest(benchmark::State& state) {
  const Cloud cloud{randomPoints(static_cast<std::size_t>(state.range(0)), 1)};
  const auto asked = randomPoints(4096, 2);
  Tree tree(3, cloud);
  tree.buildIndex();
  std::size_t i = 0;
  for (auto _ : state) {
    const Vec3f& p = asked[i++ & 4095];
    const float at[3] = {p.x, p.y, p.z};
    unsigned best = 0;
    float distance = 0;
    tree.knnSearch(at, 1, &best, &distance);
    benchmark::DoNotOptimize(best);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(gridBuild)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(treeBuild)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(gridCandidates)->Arg(10000)->Arg(100000)->Arg(1000000);
BENCHMARK(gridNearest)->Arg(10000)->Arg(100000)->Arg(1000000);
BENCHMARK(treeNearest)->Arg(10000)->Arg(100000)->Arg(1000000);

VELA_RATIO("grid built, 1M points, to nanoflann", "gridBuild/1000000", "treeBuild/1000000")
VELA_RATIO("nearest by the grid, 1M points, to nanoflann", "gridNearest/1000000",
           "treeNearest/1000000")

}  // namespace
