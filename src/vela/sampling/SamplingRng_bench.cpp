// Values per second beside the standard library's engines of the same family, and sample sets.
#include <random>

#include "bench/Harness.h"
#include "vela/sampling/SamplingRng.h"

namespace {

constexpr std::size_t kCount = 4096;

template <class Engine>
void standardFill(benchmark::State& state) {
  Engine engine(27);
  std::vector<int> out(kCount);
  for (auto _ : state) {
    for (int& v : out) v = static_cast<int>(engine());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCount));
}
BENCHMARK(standardFill<std::minstd_rand0>)->Name("std_minstd_rand0");
BENCHMARK(standardFill<std::knuth_b>)->Name("std_knuth_b");

void newValue(benchmark::State& state) {
  vela::SamplingRng rng;
  std::vector<int> out(kCount);
  for (auto _ : state) {
    for (int& v : out) v = rng.newValue();
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCount));
}
BENCHMARK(newValue);

void newValues(benchmark::State& state) {
  vela::SamplingRng rng;
  std::vector<int> out(kCount);
  for (auto _ : state) {
    rng.newValues(out.data(), out.size());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCount));
}
BENCHMARK(newValues);

void newFloatValue(benchmark::State& state) {
  vela::SamplingRng rng;
  std::vector<float> out(kCount);
  for (auto _ : state) {
    for (float& v : out) v = rng.newFloatValue();
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCount));
}
BENCHMARK(newFloatValue);

void setSeed(benchmark::State& state) {
  vela::SamplingRng rng;
  int seed = 0;
  for (auto _ : state) {
    rng.setSeed(++seed);
    benchmark::DoNotOptimize(rng);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(setSeed);

void generate2dSamples(benchmark::State& state) {
  vela::SamplingRng rng;
  std::vector<tarn::Vec2f> out;
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    rng.generate2dSamples(n, n, out);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * n * n);
}
BENCHMARK(generate2dSamples)->Arg(4)->Arg(16);

VELA_RATIO("values in bulk, to minstd_rand0", "newValues", "std_minstd_rand0")
VELA_RATIO("value by value, to knuth_b", "newValue", "std_knuth_b")

}  // namespace
