#include "vela/sampling/SamplingRng.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace vela {
namespace {

constexpr int kDefaultSeed = 27;

std::uint32_t u32(int v) { return static_cast<std::uint32_t>(v); }

// Two's complement, as every compiler that builds this has it; the language promises it from C++20
// on.
int asInt(std::uint32_t v) { return static_cast<int>(v); }

std::uint32_t linear(int v) { return u32(v) * 1664525u + 1013904223u; }

std::uint32_t fold(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
  return ((z >> 16) ^ z) * ((y >> 16) ^ y) + ((x >> 16) ^ x);
}

float clamp01(float v) { return std::min(std::max(v, 0.0f), 1.0f); }

// Swaps entry i with a random entry of the whole vector, which may be i itself.
template <class Index>
void swapWithAny(SamplingRng& rng, std::vector<Index>& order, std::size_t i) {
  std::swap(order[i], order[static_cast<std::size_t>(rng.newValue()) % order.size()]);
}

// Swaps each entry in turn with a random one.
// KEEP(whole-range-swap): an unbiased shuffle would choose from the remaining entries; recorded
// sequences depend on this one.
template <class Index>
void shuffle(SamplingRng& rng, std::vector<Index>& order) {
  for (std::size_t i = 0; i < order.size(); ++i) swapWithAny(rng, order, i);
}

}  // namespace

void SamplingRng::setSeed(int seed) {
  // A start in [1, modulus - 1]. The lowest int has no magnitude; its negation wraps to itself,
  // which is congruent to -1.
  std::int32_t state = seed < 0 ? asInt(0u - u32(seed)) : seed;
  if (state < 0) state = kModulus - 1;
  if (state == 0 || state == kModulus) state = 1;

  // Eight steps to warm up, then the table from its last entry to its first.
  for (int i = 0; i < 8; ++i) state = multiply(kMultiplier, state);
  for (int j = kTableSize - 1; j >= 0; --j) table_[j] = state = multiply(kMultiplier, state);
  state_ = state;
  value_ = table_[0];
}

void SamplingRng::resetToDefault() { setSeed(kDefaultSeed); }

void SamplingRng::newValues(int* out, std::size_t count) {
  // A step needs the state before it. Eight chains that each jump eight steps ahead need only their
  // own, so they run side by side; the shuffle table alone is read in order. The powers are those
  // of the multiplier, modulo the modulus.
  constexpr std::size_t kLanes = 8;
  std::int32_t ahead[kLanes];
  std::int32_t jump = 1;
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    jump = multiply(kMultiplier, jump);
    ahead[lane] = multiply(jump, state_);
  }

  std::int32_t value = value_;
  while (count >= kLanes) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      const std::uint32_t j = u32(value) / kTableDivisor;
      out[lane] = value = table_[j];
      table_[j] = ahead[lane];
    }
    state_ = ahead[kLanes - 1];
    for (std::int32_t& state : ahead) state = multiply(jump, state);
    out += kLanes;
    count -= kLanes;
  }
  value_ = value;
  for (; count > 0; --count) *out++ = newValue();
}

int SamplingRng::scrambleSeed() { return state_ = multiply(kMultiplier, state_); }

int SamplingRng::BuildHashedSeed(int x) {
  // The right shifts carry the sign down; everything else wraps.
  int h = asInt(u32(x) * 1025u);
  h ^= h >> 6;
  h = asInt(u32(h) * 9u);
  h ^= h >> 11;
  return asInt(u32(h) * 32769u);
}

int SamplingRng::BuildHashedSeed(int a, int b, int c) {
  const std::uint32_t A = linear(a), B = linear(b), C = linear(c);
  const std::uint32_t x = A + C * B;
  const std::uint32_t y = B + C * x;
  const std::uint32_t z = C + y * x;
  return asInt(fold(x, y, z));
}

int SamplingRng::BuildHashedSeed(int a, int b, int c, int d) {
  const std::uint32_t A = linear(a), B = linear(b), C = linear(c), D = linear(d);
  const std::uint32_t x = A + D * B;
  const std::uint32_t y = B + C * x;
  const std::uint32_t z = D + (y * x + C) * y;
  return asInt(fold(x, y, z));
}

void SamplingRng::generate1dSamples(int count, std::vector<float>& out) {
  out.assign(static_cast<std::size_t>(std::max(count, 0)), 0.0f);
  if (count < 1) return;
  const std::size_t n = out.size();

  // Where the sample of each stratum goes.
  std::vector<std::int32_t> place(n);
  std::iota(place.begin(), place.end(), 0);
  shuffle(*this, place);

  // One sample in each stratum.
  const float width = 1.0f / static_cast<float>(count);
  for (std::size_t i = 0; i < n; ++i)
    out[static_cast<std::size_t>(place[i])] = (newFloatValue() + static_cast<float>(i)) * width;
}

void SamplingRng::generate2dUniformSamples(int nx, int ny, std::vector<tarn::Vec2f>& out) {
  nx = std::max(nx, 1);
  ny = std::max(ny, 1);
  out.assign(static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny), {});
  if (out.size() == 1) return;

  const float dx = nx < 2 ? 0.0f : 1.0f / static_cast<float>(nx - 1);
  const float dy = ny < 2 ? 0.0f : 1.0f / static_cast<float>(ny - 1);
  std::size_t k = 0;
  for (int j = 0; j < ny; ++j)
    for (int i = 0; i < nx; ++i)
      out[k++] = {static_cast<float>(i) * dx - 0.5f, static_cast<float>(j) * dy - 0.5f};
}

void SamplingRng::generate2dSamples(int nx, int ny, std::vector<tarn::Vec2f>& out) {
  out.clear();
  const std::size_t columns = static_cast<std::size_t>(std::max(nx, 1));
  const std::size_t rows = static_cast<std::size_t>(std::max(ny, 1));
  if (rows > columns)
    return;  // the permutation below has an entry for each column, and rows choose from it
  const std::size_t total = columns * rows;
  out.resize(total);
  const float inv = 1.0f / static_cast<float>(total);

  // One permutation for both passes, never reset; points by column, `grid[i * rows + j]`.
  std::vector<std::int32_t> fine(columns);
  std::iota(fine.begin(), fine.end(), 0);
  std::vector<tarn::Vec2f> grid(total);

  // x: a fine stratum inside the column, by row.
  // KEEP(one-entry-swapped): all draws of column i swap entry i of the permutation, and below all
  // draws of row j swap entry j. That shuffles less well than a fresh permutation would; recorded
  // sequences depend on it.
  for (std::size_t i = 0; i < columns; ++i) {
    for (std::size_t draw = 0; draw < rows; ++draw) swapWithAny(*this, fine, i);
    const float column = static_cast<float>(i) / static_cast<float>(columns);
    for (std::size_t j = 0; j < rows; ++j)
      grid[i * rows + j].x =
          clamp01((static_cast<float>(fine[j]) + newFloatValue()) * inv + column) - 0.5f;
  }

  // y: a fine stratum inside the row, by column.
  for (std::size_t j = 0; j < rows; ++j) {
    for (std::size_t draw = 0; draw < columns; ++draw) swapWithAny(*this, fine, j);
    const float row = static_cast<float>(j) / static_cast<float>(rows);
    for (std::size_t i = 0; i < columns; ++i)
      grid[i * rows + j].y =
          clamp01((static_cast<float>(fine[i]) + newFloatValue()) * inv + row) - 0.5f;
  }

  // Random order, row after row.
  std::vector<std::size_t> order(total);
  std::iota(order.begin(), order.end(), std::size_t(0));
  shuffle(*this, order);
  std::size_t k = 0;
  for (std::size_t j = 0; j < rows; ++j)
    for (std::size_t i = 0; i < columns; ++i) out[order[k++]] = grid[i * rows + j];
}

SamplingRngSet::SamplingRngSet(int count) { resize(count); }

void SamplingRngSet::resize(int count) {
  rngs_.resize(static_cast<std::size_t>(std::max(count, 0)), SamplingRng(kDefaultSeed));
}

}  // namespace vela
