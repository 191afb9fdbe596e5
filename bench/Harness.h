/// \file
/// What all benches share: they run on Google Benchmark, every candidate several times in random
/// order with the others, and end with a table of ratios beside their goals.
///
///     void ours(benchmark::State& state) { ... }
///     void peer(benchmark::State& state) { ... }
///     BENCHMARK(ours)->Arg(64);
///     BENCHMARK(peer)->Arg(64);
///     VELA_RATIO("cutting 64 corners, of the peer's time", "ours/64", "peer/64", 1.2)
///
/// Times are the processor's: on a busy machine they vary less than a clock's. Candidates take
/// turns, so that a machine that slows down slows all of them; medians count, and of these the
/// ratios. With `--json FILE` they are written down; `--quick` is for a first look; the flags of
/// Google Benchmark work as well.
#pragma once

#include <benchmark/benchmark.h>

#include <string>

namespace vela_bench {

/// Adds a row to the table: the median time of `candidate` over that of `peer`, both named as the
/// benchmarks are. A row whose benchmarks did not run is left out.
///
/// \param goal  the ratio that is to be reached, 0 for none
/// \return nothing of interest: it lets the row be a global's initialiser
int ratio(std::string what, std::string candidate, std::string peer, double goal = 0.0);

}  // namespace vela_bench

#define VELA_RATIO_JOIN(a, b) a##b
#define VELA_RATIO_NAME(line) VELA_RATIO_JOIN(velaRatio, line)
#define VELA_RATIO(...) \
  [[maybe_unused]] const int VELA_RATIO_NAME(__LINE__) = vela_bench::ratio(__VA_ARGS__);
