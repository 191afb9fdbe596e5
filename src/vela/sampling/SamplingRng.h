/// \file
/// Reproducible random numbers for sampling: one small generator, its seed hashing, and the sample
/// sets made from it.
///
/// Holds for the whole file: a sequence depends on nothing but the seed and the order of calls; it
/// is the same on every platform, and so is every float made from it (single precision, operations
/// in one fixed order). Integers are in [1, 2147483646], floats and doubles in [0, 1). Nothing
/// throws but allocation. A generator belongs to one thread; give each pixel, or each thread, its
/// own. Source: Park and Miller, Random Number Generators: Good Ones Are Hard to Find, CACM 31(10),
/// 1988, with the shuffle of Bays and Durham, ACM TOMS 2(1), 1976.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

/// A minimal-standard multiplicative congruential generator behind a shuffle table of 32 entries.
///
/// \code
///   // One stream a pixel and frame: pixels can then be computed in any order, on any thread.
///   const int x = 12, y = 34, frame = 1;
///   vela::SamplingRng rng(vela::SamplingRng::BuildHashedSeed(x, y, frame));
///   const int first = rng.newValue();
///   assert(first >= 1 && first <= 2147483646 && rng.value() == first);
///
///   rng.setSeed(vela::SamplingRng::BuildHashedSeed(x, y, frame));
///   assert(rng.newValue() == first);
///
///   std::vector<tarn::Vec2f> offsets;  // around the pixel's centre
///   rng.generate2dSamples(4, 4, offsets);
///   assert(offsets.size() == 16 && std::fabs(offsets[0].x) <= 0.5f);
/// \endcode
class VELA_API SamplingRng {
 public:
  /// Starts as setSeed() does.
  SamplingRng(int seed = 27) { setSeed(seed); }

  /// Starts the sequence of `seed`. Any value is a seed: 0 stands for 1, a negative one for its
  /// magnitude; 2147483647, which the generator would never leave, stands for 1 too.
  void setSeed(int seed);
  /// The same as setSeed(27).
  void resetToDefault();

  /// The next integer of the sequence.
  int newValue();
  /// MakeFloat of the next integer.
  float newFloatValue() { return MakeFloat(newValue()); }
  /// MakeDouble of the next integer.
  double newDoubleValue() { return MakeDouble(newValue()); }
  /// Fills `out` (`count` of them) with what as many calls of newValue would have returned, in that
  /// order, at twice the rate.
  void newValues(int* out, std::size_t count);

  /// What the last newValue returned, without advancing.
  [[nodiscard]] int value() const { return value_; }

  /// Steps the congruential generator alone and returns its state; the shuffle table and value()
  /// stay. A seed for another generator.
  int scrambleSeed();

  /// A seed that differs in about half its bits for neighbouring arguments. Not a bijection for
  /// three and four arguments. @{
  [[nodiscard]] static int BuildHashedSeed(int x);
  [[nodiscard]] static int BuildHashedSeed(int a, int b, int c);
  [[nodiscard]] static int BuildHashedSeed(int a, int b, int c, int d);
  /// @}

  /// v / 2^31, at most 0.9999999f. A negative v gives a negative result.
  [[nodiscard]] static float MakeFloat(int v);
  /// v / (2^31 - 1), at most 0.9999999999999998. A negative v gives a negative result.
  [[nodiscard]] static double MakeDouble(int v);

  /// `count` stratified samples of [0, 1) in random order: one in each [i / count, (i + 1) /
  /// count), up to the rounding of the last operation. `out` is refilled; a count below 1 empties
  /// it and takes no number from the sequence.
  void generate1dSamples(int count, std::vector<float>& out);

  /// nx * ny multi-jittered samples of [-0.5, 0.5] squared in random order. A count below 1 counts
  /// as 1. Defined for ny up to nx: with more rows than columns `out` is left empty and no number
  /// is taken from the sequence.
  void generate2dSamples(int nx, int ny, std::vector<tarn::Vec2f>& out);

  /// nx * ny points of a regular grid over [-0.5, 0.5] squared, both ends included, x fastest; a
  /// direction with a single point has it at -0.5, a single point altogether is (0, 0). A count
  /// below 1 counts as 1. Takes no number from the sequence.
  void generate2dUniformSamples(int nx, int ny, std::vector<tarn::Vec2f>& out);

 private:
  static constexpr std::int32_t kMultiplier = 16807;
  static constexpr std::int32_t kModulus = 2147483647;
  static constexpr std::int32_t kTableSize = 32;
  static constexpr std::int32_t kTableDivisor = 1 + (kModulus - 1) / kTableSize;

  // a * s modulo 2^31 - 1, for factors in [1, 2^31 - 2].
  static std::int32_t multiply(std::int32_t a, std::int32_t s);

  std::int32_t state_;
  std::int32_t value_;
  std::int32_t table_[kTableSize];
};

static_assert(sizeof(SamplingRng) == 34 * sizeof(std::int32_t), "state, value and the table of 32");

/// A row of generators, held by value.
///
/// \code
///   vela::SamplingRngSet threads(4);
///   for (int i = 0; i < threads.size(); ++i) threads[i].setSeed(i + 1);
///   assert(threads[0].newValue() != threads[1].newValue());
/// \endcode
class VELA_API SamplingRngSet {
 public:
  /// `count` generators seeded with 27: all alike until they are reseeded. A negative count means
  /// none.
  SamplingRngSet(int count);

  /// Drops generators from the end, or appends some seeded with 27; the others keep their state.
  void resize(int count);

  /// How many generators there are.
  [[nodiscard]] int size() const { return static_cast<int>(rngs_.size()); }
  /// Unchecked. @{
  [[nodiscard]] SamplingRng& rng(int i) { return rngs_[static_cast<std::size_t>(i)]; }
  [[nodiscard]] const SamplingRng& rng(int i) const { return rngs_[static_cast<std::size_t>(i)]; }
  /// @}
  /// As rng(). @{
  [[nodiscard]] SamplingRng& operator[](int i) { return rngs_[static_cast<std::size_t>(i)]; }
  [[nodiscard]] const SamplingRng& operator[](int i) const {
    return rngs_[static_cast<std::size_t>(i)];
  }
  /// @}

 private:
  std::vector<SamplingRng> rngs_;
};

inline std::int32_t SamplingRng::multiply(std::int32_t a, std::int32_t s) {
  // 2^31 is 1 modulo 2^31 - 1, so the high part of the product counts like the low one. The sum is
  // below twice the modulus.
  const std::uint64_t product = static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(s);
  const std::uint32_t sum =
      static_cast<std::uint32_t>(product & kModulus) + static_cast<std::uint32_t>(product >> 31);
  const std::uint32_t less = sum - static_cast<std::uint32_t>(kModulus);
  return static_cast<std::int32_t>(sum < static_cast<std::uint32_t>(kModulus) ? sum : less);
}

// Inline: a call would cost half as much as the number.
inline int SamplingRng::newValue() {
  const std::uint32_t j = static_cast<std::uint32_t>(value_) / kTableDivisor;
  value_ = table_[j];
  state_ = multiply(kMultiplier, state_);
  table_[j] = state_;
  return value_;
}

inline float SamplingRng::MakeFloat(int v) {
  const float f = static_cast<float>(v) * 4.656613e-10f;
  return f < 0.9999999f ? f : 0.9999999f;
}

inline double SamplingRng::MakeDouble(int v) {
  const double d = static_cast<double>(v) / 2147483647.0;
  return d < 0.9999999999999998 ? d : 0.9999999999999998;
}

}  // namespace vela
