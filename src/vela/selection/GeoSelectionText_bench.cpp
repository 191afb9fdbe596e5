// Writing and reading a selection of ten million weights, beside a plain loop of to_chars and
// from_chars over the same numbers.
#include <charconv>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "bench/Harness.h"
#include "vela/selection/GeoSelection.h"

namespace {

using vela::Selection::GeoSelection;

constexpr std::size_t kCount = 10000000;

// The hardest case: every weight differs from its neighbour, so that no run is longer than one.
const std::vector<float>& weights() {
  static const std::vector<float> instance = [] {
    std::vector<float> values(kCount);
    std::uint32_t state = 1;
    for (float& value : values) {
      state = state * 1664525u + 1013904223u;
      value = static_cast<float>(state >> 8) / 16777216.0f;
    }
    return values;
  }();
  return instance;
}

const GeoSelection& selection() {
  static const GeoSelection instance = [] {
    GeoSelection s;
    auto& part = s.getWritablePartSelection("/world/terrain", vela::Selection::vertices);
    part.selections.assign(kCount, 1.0f);
    part.weights = weights();
    return s;
  }();
  return instance;
}

// The values alone: the run lengths, which the selection has to write and read besides, are its
// own cost.
std::string plainText() {
  std::string text(weights().size() * 16, ' ');
  char* at = text.data();
  char* const end = at + text.size();
  for (const float value : weights()) {
    at = std::to_chars(at, end, value, std::chars_format::general, 6).ptr;
    *at++ = ' ';
  }
  text.resize(static_cast<std::size_t>(at - text.data()));
  return text;
}

void PlainWrite(benchmark::State& state) {
  weights();
  for (auto _ : state) benchmark::DoNotOptimize(plainText());
}

void SelectionWrite(benchmark::State& state) {
  selection();
  for (auto _ : state) {
    std::ostringstream out;
    selection().serialize(out);
    benchmark::DoNotOptimize(out);
  }
}

void PlainRead(benchmark::State& state) {
  const std::string text = plainText();
  for (auto _ : state) {
    std::vector<float> values;
    values.reserve(kCount);
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
      float value = 0;
      at = std::from_chars(at, end, value).ptr + 1;
      values.push_back(value);
    }
    benchmark::DoNotOptimize(values);
  }
}

void SelectionRead(benchmark::State& state) {
  std::ostringstream out;
  selection().serialize(out);
  std::istringstream in(out.str());
  for (auto _ : state) {
    in.clear();
    in.seekg(0);
    GeoSelection read;
    read.deserialize(in);
    if (read.size() != 1) state.SkipWithError("the selection was not read");
    benchmark::DoNotOptimize(read);
  }
}

BENCHMARK(PlainWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(SelectionWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainRead)->Unit(benchmark::kMillisecond);
BENCHMARK(SelectionRead)->Unit(benchmark::kMillisecond);

VELA_RATIO("selection written, to to_chars", "SelectionWrite", "PlainWrite", 1.0)
VELA_RATIO("selection read, to from_chars", "SelectionRead", "PlainRead", 1.0)

}  // namespace
