#include "vela/sampling/SamplingRng.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <type_traits>
#include <utility>

#include "vela/sampling/SamplingRng_tables.h"

using tarn::Vec2f;
using vela::SamplingRng;
using vela::SamplingRngSet;
using namespace sampling_tables;

namespace {

std::uint32_t bits(float v) {
  std::uint32_t b;
  std::memcpy(&b, &v, sizeof b);
  return b;
}

std::uint64_t bits(double v) {
  std::uint64_t b;
  std::memcpy(&b, &v, sizeof b);
  return b;
}

std::vector<int> firstValues(SamplingRng rng, int count) {
  std::vector<int> values;
  for (int i = 0; i < count; ++i) values.push_back(rng.newValue());
  return values;
}

std::vector<std::uint32_t> bits(const std::vector<float>& values) {
  std::vector<std::uint32_t> out;
  for (float v : values) out.push_back(bits(v));
  return out;
}

std::vector<std::uint32_t> bits(const std::vector<Vec2f>& points) {
  std::vector<std::uint32_t> out;
  for (const Vec2f& p : points) {
    out.push_back(bits(p.x));
    out.push_back(bits(p.y));
  }
  return out;
}

// ---- Sequences

TEST(SamplingRng, SequencesAreThoseOfTheTables) {
  for (const Sequence& expected : kSequences) {
    SCOPED_TRACE(expected.seed);
    SamplingRng rng(expected.seed);
    int last = 0;
    for (std::size_t i = 0; i < 1000; ++i) {
      last = rng.newValue();
      if (i < expected.values.size()) {
        ASSERT_EQ(last, expected.values[i]) << "value " << i;
      }
      ASSERT_EQ(rng.value(), last);
    }
    EXPECT_EQ(last, expected.later);
    EXPECT_EQ(rng.scrambleSeed(), expected.scrambled[0]);
    EXPECT_EQ(rng.scrambleSeed(), expected.scrambled[1]);
    EXPECT_EQ(rng.value(), last) << "scrambling leaves the last value";
    for (int value : expected.afterScramble) EXPECT_EQ(rng.newValue(), value);
  }
}

TEST(SamplingRng, FloatsAndDoublesAreThoseOfTheTables) {
  for (const Sequence& expected : kSequences) {
    SCOPED_TRACE(expected.seed);
    SamplingRng floats(expected.seed), doubles(expected.seed);
    for (std::uint32_t b : expected.floats) EXPECT_EQ(bits(floats.newFloatValue()), b);
    for (std::uint64_t b : expected.doubles) EXPECT_EQ(bits(doubles.newDoubleValue()), b);
  }
}

TEST(SamplingRng, StatesAreThoseOfTheMinimalStandardGenerator) {
  std::minstd_rand0 one(1);
  ASSERT_EQ(one(), 16807u);
  ASSERT_EQ(one(), 282475249u);
  for (int seed : {1, 27, 99999, 2147483646}) {
    std::minstd_rand0 standard(static_cast<unsigned>(seed));
    SamplingRng rng(seed);
    standard.discard(40);  // eight to warm up, 32 for the table
    for (int i = 0; i < 10000; ++i)
      ASSERT_EQ(static_cast<unsigned>(rng.scrambleSeed()), standard());
  }
}

TEST(SamplingRng, ZeroSeedsLikeOne) {
  EXPECT_EQ(firstValues(SamplingRng(0), 100), firstValues(SamplingRng(1), 100));
}

TEST(SamplingRng, NegativeSeedsLikeItsMagnitude) {
  EXPECT_EQ(firstValues(SamplingRng(-5), 100), firstValues(SamplingRng(5), 100));
  EXPECT_NE(firstValues(SamplingRng(-5), 100), firstValues(SamplingRng(6), 100));
}

TEST(SamplingRng, TheModulusSeedsLikeOneInsteadOfStandingStill) {
  EXPECT_EQ(firstValues(SamplingRng(2147483647), 100), firstValues(SamplingRng(1), 100));
  EXPECT_EQ(firstValues(SamplingRng(-2147483647), 100), firstValues(SamplingRng(1), 100));
}

TEST(SamplingRng, TheMostNegativeSeedIsCongruentToMinusOne) {
  EXPECT_EQ(firstValues(SamplingRng(std::numeric_limits<int>::min()), 100),
            firstValues(SamplingRng(2147483646), 100));
}

TEST(SamplingRng, DefaultSeedIs27) {
  SamplingRng rng;
  EXPECT_EQ(firstValues(rng, 100), firstValues(SamplingRng(27), 100));
  rng.setSeed(3);
  rng.newValue();
  rng.resetToDefault();
  EXPECT_EQ(firstValues(rng, 100), firstValues(SamplingRng(27), 100));
}

TEST(SamplingRng, ValueAfterSeedingIsTheFirstTableEntry) {
  SamplingRng rng(1);
  std::minstd_rand0 standard(1);
  standard.discard(39);
  EXPECT_EQ(static_cast<unsigned>(rng.value()), standard());
}

TEST(SamplingRng, CopiesGoOnAlike) {
  static_assert(std::is_trivially_copyable_v<SamplingRng>);
  SamplingRng a(11);
  a.newValue();
  SamplingRng b;
  b = a;
  const SamplingRng c(std::move(a));
  EXPECT_EQ(firstValues(b, 200), firstValues(c, 200));
}

TEST(SamplingRng, BulkValuesAreTheSingleOnes) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  SamplingRng single(static_cast<int>(random())), bulk = single;
  for (std::size_t round = 0; round < 2000; ++round) {
    const std::size_t count = round < 100 ? round : random() % 300;
    std::vector<int> out(count + 1, -1);
    bulk.newValues(out.data(), count);
    for (std::size_t i = 0; i < count; ++i)
      ASSERT_EQ(out[i], single.newValue()) << "count " << count << ", value " << i;
    ASSERT_EQ(out[count], -1);
    ASSERT_EQ(bulk.value(), single.value());
    if (round % 3 == 0) {
      ASSERT_EQ(bulk.newValue(), single.newValue());
    }
    if (round % 5 == 0) {
      ASSERT_EQ(bulk.scrambleSeed(), single.scrambleSeed());
    }
  }
}

TEST(SamplingRng, NoValueIsOutOfRange) {
  for (int seed = -50; seed < 50; ++seed) {
    SamplingRng rng(seed);
    for (int i = 0; i < 1000; ++i) {
      const int v = rng.newValue();
      ASSERT_GE(v, 1);
      ASSERT_LE(v, 2147483646);
    }
    for (int i = 0; i < 1000; ++i) {
      const float f = rng.newFloatValue();
      ASSERT_TRUE(f >= 0.0f && f < 1.0f);
      const double d = rng.newDoubleValue();
      ASSERT_TRUE(d >= 0.0 && d < 1.0);
    }
  }
}

// ---- Conversions

TEST(SamplingRng, MakeFloatNeverReachesOne) {
  EXPECT_EQ(bits(SamplingRng::MakeFloat(2147483647)), 0x3F7FFFFEu);
  EXPECT_EQ(bits(SamplingRng::MakeFloat(2147483646)), 0x3F7FFFFEu);
  EXPECT_EQ(SamplingRng::MakeFloat(1 << 30), 0.5f);
  EXPECT_EQ(bits(SamplingRng::MakeFloat(1)), 0x30000000u);
  EXPECT_EQ(SamplingRng::MakeFloat(0), 0.0f);
}

TEST(SamplingRng, MakeDoubleNeverReachesOne) {
  EXPECT_EQ(bits(SamplingRng::MakeDouble(2147483647)), 0x3FEFFFFFFFFFFFFEu);
  EXPECT_LT(SamplingRng::MakeDouble(2147483646), SamplingRng::MakeDouble(2147483647));
  EXPECT_EQ(SamplingRng::MakeDouble(1), 1.0 / 2147483647.0);
  EXPECT_EQ(SamplingRng::MakeDouble(0), 0.0);
}

TEST(SamplingRng, NegativeInputsGiveNegativeResults) {
  EXPECT_EQ(SamplingRng::MakeFloat(-(1 << 30)), -0.5f);
  EXPECT_EQ(SamplingRng::MakeFloat(std::numeric_limits<int>::min()), -1.0f);
  EXPECT_EQ(SamplingRng::MakeDouble(-2147483647), -1.0);
}

// ---- Seed hashing

TEST(SamplingRng, HashesAreThoseOfTheTables) {
  for (const Hash1& h : kHashes1) EXPECT_EQ(SamplingRng::BuildHashedSeed(h.x), h.hash) << h.x;
  for (const Hash3& h : kHashes3)
    EXPECT_EQ(SamplingRng::BuildHashedSeed(h.a, h.b, h.c), h.hash)
        << h.a << ' ' << h.b << ' ' << h.c;
  for (const Hash4& h : kHashes4)
    EXPECT_EQ(SamplingRng::BuildHashedSeed(h.a, h.b, h.c, h.d), h.hash)
        << h.a << ' ' << h.b << ' ' << h.c << ' ' << h.d;
}

TEST(SamplingRng, NeighbouringPixelsGetDifferentSeeds) {
  std::set<int> seeds;
  for (int y = 0; y < 200; ++y)
    for (int x = 0; x < 200; ++x) seeds.insert(SamplingRng::BuildHashedSeed(x, y, 1));
  EXPECT_GT(seeds.size(), 39900u);  // chance alone would leave 40000 less a fifth of one
}

// ---- Sample sets

TEST(SamplingSets, OneDimensionalSetsAreThoseOfTheTables) {
  for (const Set& expected : kSets1d) {
    SCOPED_TRACE(std::to_string(expected.seed) + ", " + std::to_string(expected.nx));
    SamplingRng rng(expected.seed);
    std::vector<float> out(3, 9.0f);
    rng.generate1dSamples(expected.nx, out);
    EXPECT_EQ(bits(out), expected.bits);
    EXPECT_EQ(rng.newValue(), expected.next);
  }
}

TEST(SamplingSets, TwoDimensionalSetsAreThoseOfTheTables) {
  for (const Set& expected : kSets2d) {
    SCOPED_TRACE(std::to_string(expected.seed) + ", " + std::to_string(expected.nx) + " x " +
                 std::to_string(expected.ny));
    SamplingRng rng(expected.seed);
    std::vector<Vec2f> out(3, Vec2f(9.0f));
    rng.generate2dSamples(expected.nx, expected.ny, out);
    EXPECT_EQ(bits(out), expected.bits);
    EXPECT_EQ(rng.newValue(), expected.next);
  }
}

TEST(SamplingSets, UniformSetsAreThoseOfTheTables) {
  for (const Set& expected : kSets2dUniform) {
    SCOPED_TRACE(std::to_string(expected.nx) + " x " + std::to_string(expected.ny));
    SamplingRng rng(expected.seed);
    std::vector<Vec2f> out(3, Vec2f(9.0f));
    rng.generate2dUniformSamples(expected.nx, expected.ny, out);
    EXPECT_EQ(bits(out), expected.bits);
    EXPECT_EQ(rng.newValue(), expected.next) << "a regular grid takes no number";
  }
}

TEST(SamplingSets, NoSamplesAreNone) {
  SamplingRng rng(4), untouched(4);
  std::vector<float> out(5, 1.0f);
  rng.generate1dSamples(0, out);
  EXPECT_TRUE(out.empty());
  out.resize(5);
  rng.generate1dSamples(-3, out);
  EXPECT_TRUE(out.empty());
  rng.generate1dSamples(std::numeric_limits<int>::min(), out);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(rng.newValue(), untouched.newValue());
}

TEST(SamplingSets, FourSamplesTakeOneQuarterEach) {
  for (int seed = 1; seed < 200; ++seed) {
    SamplingRng rng(seed);
    std::vector<float> out;
    rng.generate1dSamples(4, out);
    std::sort(out.begin(), out.end());
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(static_cast<std::size_t>(out[i] * 4.0f), i);
  }
}

TEST(SamplingSets, EveryStratumHasOneSample) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  SamplingRng rng(static_cast<int>(seed));
  std::vector<float> out;
  for (int count = 1; count < 300; ++count) {
    rng.generate1dSamples(count, out);
    std::sort(out.begin(), out.end());
    for (int i = 0; i < count; ++i) {
      // Rounding may move a sample onto the end of its stratum, never past it.
      const double at = static_cast<double>(out[static_cast<std::size_t>(i)]) * count;
      ASSERT_GE(at, i - 1e-4) << count;
      ASSERT_LE(at, i + 1 + 1e-4) << count;
    }
  }
}

// KEEP(whole-range-swap): swapping with any of all n positions makes n^n equally likely draws of n!
// orders, so with three samples the orders cannot come out equally often: five in 27 or four in 27,
// not one in six.
TEST(SamplingSets, OrdersAreTheBiasedOnesOfSwappingWithAnyPosition) {
  int counts[3][3][3] = {};
  const int rounds = 54000;
  for (int i = 0; i < rounds; ++i) {
    SamplingRng rng(SamplingRng::BuildHashedSeed(i));
    std::vector<float> out;
    rng.generate1dSamples(3, out);
    ++counts[static_cast<int>(out[0] * 3.0f)][static_cast<int>(out[1] * 3.0f)]
            [static_cast<int>(out[2] * 3.0f)];
  }
  std::vector<int> seen;
  for (auto& plane : counts)
    for (auto& row : plane)
      for (int n : row)
        if (n > 0) seen.push_back(n);
  ASSERT_EQ(seen.size(), 6u);
  std::sort(seen.begin(), seen.end());
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(seen[i], rounds * 4 / 27, 500);
  for (std::size_t i = 3; i < 6; ++i) EXPECT_NEAR(seen[i], rounds * 5 / 27, 500);
}

// KEEP(one-entry-swapped): the draws of a column and of a row move one entry only; the tables above
// come from a model that does the same, and this one, which moves a different entry at each draw,
// must differ from it.
TEST(SamplingSets, DrawsOfAColumnMoveTheEntryOfTheColumn) {
  SamplingRng rng(5), model(5);
  std::vector<Vec2f> out;
  rng.generate2dSamples(2, 2, out);

  // Two columns: the first number of the permutation after two draws that swap entry 0 with entry r
  // % 2.
  int fine[2] = {0, 1};
  std::swap(fine[0], fine[model.newValue() % 2]);
  std::swap(fine[0], fine[model.newValue() % 2]);
  const float x = (static_cast<float>(fine[0]) + model.newFloatValue()) * 0.25f - 0.5f;
  EXPECT_TRUE(
      std::any_of(out.begin(), out.end(), [&](const Vec2f& p) { return bits(p.x) == bits(x); }));
}

TEST(SamplingSets, SquareSetsHaveOneSampleInEachCell) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  SamplingRng rng(static_cast<int>(seed));
  std::vector<Vec2f> out;
  for (int n = 1; n <= 16; ++n) {
    rng.generate2dSamples(n, n, out);
    ASSERT_EQ(out.size(), static_cast<std::size_t>(n * n));
    std::vector<int> cells(out.size(), 0);
    for (const Vec2f& p : out) {
      ASSERT_TRUE(p.x >= -0.5f && p.x <= 0.5f && p.y >= -0.5f && p.y <= 0.5f);
      // A hair inward, since rounding may put a sample on the far edge of its cell.
      const int i =
          std::clamp(static_cast<int>((p.x + 0.5f) * static_cast<float>(n) - 1e-5f), 0, n - 1);
      const int j =
          std::clamp(static_cast<int>((p.y + 0.5f) * static_cast<float>(n) - 1e-5f), 0, n - 1);
      ++cells[static_cast<std::size_t>(j * n + i)];
    }
    int wrong = 0;
    for (int c : cells) wrong += c != 1;
    ASSERT_LE(wrong, 2) << n;  // a sample within 1e-5 of the near edge is counted next door
  }
}

TEST(SamplingSets, MoreRowsThanColumnsGiveNone) {
  SamplingRng rng(4), untouched(4);
  std::vector<Vec2f> out(5);
  rng.generate2dSamples(2, 3, out);
  EXPECT_TRUE(out.empty());
  out.resize(5);
  rng.generate2dSamples(0, 2, out);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(rng.newValue(), untouched.newValue());
}

TEST(SamplingSets, ASingleUniformPointIsTheOrigin) {
  SamplingRng rng;
  std::vector<Vec2f> out;
  rng.generate2dUniformSamples(1, 1, out);
  EXPECT_EQ(out, std::vector<Vec2f>{Vec2f(0.0f)});
  rng.generate2dUniformSamples(-8, 0, out);
  EXPECT_EQ(out, std::vector<Vec2f>{Vec2f(0.0f)});
}

TEST(SamplingSets, ARowOfThreeLiesAtTheLowerEdge) {
  SamplingRng rng;
  std::vector<Vec2f> out;
  rng.generate2dUniformSamples(3, 1, out);
  const std::vector<Vec2f> expected = {{-0.5f, -0.5f}, {0.0f, -0.5f}, {0.5f, -0.5f}};
  EXPECT_EQ(out, expected);
}

// ---- Rows of generators

TEST(SamplingRngSet, GeneratorsStartAlike) {
  SamplingRngSet set(3);
  ASSERT_EQ(set.size(), 3);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(firstValues(set[i], 50), firstValues(SamplingRng(27), 50));
}

TEST(SamplingRngSet, ElementsAreReferences) {
  SamplingRngSet set(2);
  set.rng(1).setSeed(9);
  set[1].newValue();
  EXPECT_EQ(&set.rng(1), &set[1]);
  const SamplingRngSet& constant = set;
  EXPECT_EQ(&constant[1], &set[1]);
  SamplingRng expected(9);
  expected.newValue();
  EXPECT_EQ(firstValues(constant[1], 50), firstValues(expected, 50));
}

TEST(SamplingRngSet, ResizeKeepsWhatIsThere) {
  SamplingRngSet set(2);
  set[0].setSeed(9);
  set.resize(4);
  ASSERT_EQ(set.size(), 4);
  EXPECT_EQ(firstValues(set[0], 50), firstValues(SamplingRng(9), 50));
  EXPECT_EQ(firstValues(set[3], 50), firstValues(SamplingRng(27), 50));
  set.resize(1);
  ASSERT_EQ(set.size(), 1);
  EXPECT_EQ(firstValues(set[0], 50), firstValues(SamplingRng(9), 50));
}

TEST(SamplingRngSet, NegativeCountsMeanNone) {
  SamplingRngSet set(-1);
  EXPECT_EQ(set.size(), 0);
  set.resize(3);
  set.resize(std::numeric_limits<int>::min());
  EXPECT_EQ(set.size(), 0);
}

TEST(SamplingRngSet, CopiesAndMoves) {
  SamplingRngSet a(2);
  a[1].setSeed(9);
  SamplingRngSet b(a), c(0);
  c = b;
  b[1].setSeed(10);
  EXPECT_EQ(firstValues(c[1], 50), firstValues(a[1], 50));
  const SamplingRngSet d(std::move(a));
  ASSERT_EQ(d.size(), 2);
  EXPECT_EQ(firstValues(d[1], 50), firstValues(c[1], 50));
  b = std::move(c);
  EXPECT_EQ(firstValues(b[1], 50), firstValues(d[1], 50));
}

}  // namespace
