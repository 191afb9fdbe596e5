#include "tarn/Lanes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

// What each operation gives for three arrays of N values.
template <std::size_t N>
struct Results {
  using Floats = float[N];
  using Doubles = double[N];
  using Ints = std::int32_t[N];

  Floats plus, minus, times, over, least, largest, negative, magnitude, root, flipped, chosen, kept;
  unsigned less, lessEqual, greater, greaterEqual, equal, unequal;
  unsigned both, either, butNot, inverse;
  bool anyLess, allLess;
  Floats lowerHalf, upperHalf, swapped, fromQuads;
  float lastQuad[4];
  unsigned swappedMask;
  Ints joinedI;

  Doubles plusD, minusD, timesD, overD, leastD, largestD, negativeD, magnitudeD, rootD, flippedD,
      chosenD, keptD;
  unsigned lessD, lessEqualD, greaterD, greaterEqualD, equalD, unequalD;
  unsigned bothD, eitherD, butNotD, inverseD;

  Ints plusI, minusI, andI, orI, xorI, shiftedI, chosenI, keptI, fromFloats, fromMask;
  unsigned lessI, greaterI, equalI, signs;
  Floats fromInts;

  Doubles widened, widenedI;
  Floats narrowed;
  Ints rounded, words;
  unsigned maskThere, maskBack;
};

// For four floats: what each operation across lanes gives.
struct AcrossResults {
  float shuffled[4], interleaved[8], three[4], two[2], upperTwo[2], twos[4], threes[12],
      transposed[16], four[4], first, single;
  std::int32_t firstInt;
};

}  // namespace

#define TARN_LANES_ALL_SETS 1
#define TARN_LANES_KERNEL "tarn/Lanes_testKernel.h"
#include "tarn/ForEachInstructionSet.h"

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// What breaks vector code: zeros of both signs, denormals, the ends of the range, infinities, NaN
// of both signs, what lies in the middle between two floats or two integers.
const std::vector<double> kHostile = {0.0,
                                      -0.0,
                                      1.0,
                                      -1.0,
                                      0.5,
                                      -0.5,
                                      1.5,
                                      2.5,
                                      -3.5,
                                      1e-45,
                                      -1e-45,
                                      1e-40,
                                      1.2e-38,
                                      3.4e38,
                                      -3e38,
                                      1e-300,
                                      5e-324,
                                      1e300,
                                      -1e300,
                                      3.5e38,
                                      -1e40,
                                      0.1,
                                      1.0 / 3,
                                      7.25,
                                      1e10,
                                      -2147483648.5,
                                      2147483647.5,
                                      2147483646.5,
                                      -2147483649.0,
                                      4e9,
                                      1.0 + 0x1p-24,
                                      1.0 + 0x3p-24,
                                      1.0 + 0x1.8p-24,
                                      std::numeric_limits<double>::infinity(),
                                      -std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN(),
                                      -std::numeric_limits<double>::quiet_NaN()};

class Lanes : public testing::Test {
 protected:
  std::mt19937 random_{2026};

  double value() {
    if (random_() % 4 != 0) return kHostile[random_() % kHostile.size()];
    return std::ldexp(static_cast<double>(static_cast<std::int32_t>(random_())),
                      static_cast<int>(random_() % 120) - 75);
  }
  std::int32_t integer() {
    static const std::int32_t odd[] = {0, 1, -1, INT32_MAX, INT32_MIN, 0x7F800000, 64};
    return random_() % 2 == 0 ? odd[random_() % 7] : static_cast<std::int32_t>(random_());
  }
};

// The same bits; any NaN stands for any other.
bool same(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}
bool same(double a, double b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}
bool same(std::int32_t a, std::int32_t b) { return a == b; }

template <class To, class From>
To bitsAs(const From& from) {
  static_assert(sizeof(To) >= sizeof(From) || sizeof(To) == 4);
  To to;
  std::memcpy(&to, &from, sizeof to);
  return to;
}

// The operands of one lane.
struct Operands {
  float fa, fb;
  double da, db;
  std::int32_t ia, ib;
};

void expectLane(bool isSame, const char* what, const Operands& of) {
  EXPECT_TRUE(isSame) << what << " of " << of.fa << ", " << of.fb << "; " << of.da << ", " << of.db
                      << "; " << of.ia << ", " << of.ib;
}

// Each lane against the operation on single values.
#define EXPECT_LANES(expected, result)                                   \
  for (std::size_t k = 0; k < N; ++k)                                    \
    expectLane(same(decltype(+result[k])(expected), result[k]), #result, \
               {fa[k], fb[k], da[k], db[k], ia[k], ib[k]});
#define EXPECT_BITS(expected, result)                            \
  for (std::size_t k = 0; k < N; ++k)                            \
    expectLane((expected) == ((result >> k & 1u) != 0), #result, \
               {fa[k], fb[k], da[k], db[k], ia[k], ib[k]});      \
  EXPECT_EQ(0u, static_cast<unsigned>(std::uint64_t{result} >> N)) << #result

template <std::size_t N>
void expectScalarBits(const float* fa, const float* fb, const double* da, const double* db,
                      const std::int32_t* ia, const std::int32_t* ib, const Results<N>& r) {
  EXPECT_LANES(fa[k] + fb[k], r.plus)
  EXPECT_LANES(fa[k] - fb[k], r.minus)
  EXPECT_LANES(fa[k] * fb[k], r.times)
  EXPECT_LANES(fa[k] / fb[k], r.over)
  EXPECT_LANES(fa[k] < fb[k] ? fa[k] : fb[k], r.least)
  EXPECT_LANES(fa[k] > fb[k] ? fa[k] : fb[k], r.largest)
  EXPECT_LANES(-fa[k], r.negative)
  EXPECT_LANES(std::fabs(fa[k]), r.magnitude)
  EXPECT_LANES(std::sqrt(fa[k]), r.root)
  EXPECT_LANES(std::signbit(fb[k]) ? -fa[k] : fa[k], r.flipped)
  EXPECT_LANES(fa[k] < fb[k] ? fa[k] : fb[k], r.chosen)
  EXPECT_LANES(fa[k] < fb[k] ? fa[k] : 0.0f, r.kept)
  EXPECT_BITS(fa[k] < fb[k], r.less);
  EXPECT_BITS(fa[k] <= fb[k], r.lessEqual);
  EXPECT_BITS(fa[k] > fb[k], r.greater);
  EXPECT_BITS(fa[k] >= fb[k], r.greaterEqual);
  EXPECT_BITS(fa[k] == fb[k], r.equal);
  EXPECT_BITS(fa[k] != fb[k], r.unequal);
  EXPECT_BITS(fa[k] < fb[k] && fa[k] > 0.5f, r.both);
  EXPECT_BITS(fa[k] < fb[k] || fa[k] > 0.5f, r.either);
  EXPECT_BITS(fa[k] < fb[k] && !(fa[k] > 0.5f), r.butNot);
  EXPECT_BITS(!(fa[k] < fb[k]), r.inverse);
  bool any = false, all = true;
  for (std::size_t k = 0; k < N; ++k) {
    any = any || fa[k] < fb[k];
    all = all && fa[k] < fb[k];
  }
  EXPECT_EQ(any, r.anyLess);
  EXPECT_EQ(all, r.allLess);
  for (std::size_t k = 0; k < 4; ++k) EXPECT_TRUE(same(fa[N - 4 + k], r.lastQuad[k]));
  EXPECT_LANES(fb[k], r.fromQuads)
  if constexpr (N >= 8) {
    for (std::size_t k = 0; k < N / 2; ++k) {
      EXPECT_TRUE(same(fa[k], r.lowerHalf[k]));
      EXPECT_TRUE(same(fa[N / 2 + k], r.upperHalf[k]));
    }
    const auto across = [](std::size_t k) { return (k + N / 2) % N; };
    EXPECT_LANES(fa[across(k)], r.swapped)
    EXPECT_BITS(fa[across(k)] < fb[across(k)], r.swappedMask);
    EXPECT_LANES(k < N / 2 ? ia[across(k)] : ib[across(k)], r.joinedI)
  }

  EXPECT_LANES(da[k] + db[k], r.plusD)
  EXPECT_LANES(da[k] - db[k], r.minusD)
  EXPECT_LANES(da[k] * db[k], r.timesD)
  EXPECT_LANES(da[k] / db[k], r.overD)
  EXPECT_LANES(da[k] < db[k] ? da[k] : db[k], r.leastD)
  EXPECT_LANES(da[k] > db[k] ? da[k] : db[k], r.largestD)
  EXPECT_LANES(-da[k], r.negativeD)
  EXPECT_LANES(std::fabs(da[k]), r.magnitudeD)
  EXPECT_LANES(std::sqrt(da[k]), r.rootD)
  EXPECT_LANES(std::signbit(db[k]) ? -da[k] : da[k], r.flippedD)
  EXPECT_LANES(da[k] < db[k] ? da[k] : db[k], r.chosenD)
  EXPECT_LANES(da[k] < db[k] ? da[k] : 0.0, r.keptD)
  EXPECT_BITS(da[k] < db[k], r.lessD);
  EXPECT_BITS(da[k] <= db[k], r.lessEqualD);
  EXPECT_BITS(da[k] > db[k], r.greaterD);
  EXPECT_BITS(da[k] >= db[k], r.greaterEqualD);
  EXPECT_BITS(da[k] == db[k], r.equalD);
  EXPECT_BITS(da[k] != db[k], r.unequalD);
  EXPECT_BITS(da[k] < db[k] && da[k] > 0.5, r.bothD);
  EXPECT_BITS(da[k] < db[k] || da[k] > 0.5, r.eitherD);
  EXPECT_BITS(da[k] < db[k] && !(da[k] > 0.5), r.butNotD);
  EXPECT_BITS(!(da[k] < db[k]), r.inverseD);

  const auto u = [](std::int32_t i) { return static_cast<std::uint32_t>(i); };
  EXPECT_LANES(static_cast<std::int32_t>(u(ia[k]) + u(ib[k])), r.plusI)
  EXPECT_LANES(static_cast<std::int32_t>(u(ia[k]) - u(ib[k])), r.minusI)
  EXPECT_LANES(ia[k] & ib[k], r.andI)
  EXPECT_LANES(ia[k] | ib[k], r.orI)
  EXPECT_LANES(ia[k] ^ ib[k], r.xorI)
  EXPECT_LANES(static_cast<std::int32_t>(u(ia[k]) << 5), r.shiftedI)
  EXPECT_LANES(ia[k] < ib[k] ? ia[k] : ib[k], r.chosenI)
  EXPECT_LANES(ia[k] < ib[k] ? 7 : 0, r.keptI)
  EXPECT_LANES(bitsAs<std::int32_t>(fa[k]), r.fromFloats)
  EXPECT_LANES(fa[k] < fb[k] ? -1 : 0, r.fromMask)
  EXPECT_BITS(ia[k] < ib[k], r.lessI);
  EXPECT_BITS(ia[k] > ib[k], r.greaterI);
  EXPECT_BITS(ia[k] == ib[k], r.equalI);
  EXPECT_BITS(ia[k] < 0, r.signs);
  EXPECT_LANES(bitsAs<float>(ia[k]), r.fromInts)

  EXPECT_LANES(static_cast<double>(fa[k]), r.widened)
  EXPECT_LANES(static_cast<double>(ia[k]), r.widenedI)
  EXPECT_LANES(static_cast<float>(da[k]), r.narrowed)
  const auto rounded = [](double d) {
    const double even = std::nearbyint(d);
    return even >= -2147483648.0 && even <= 2147483647.0 ? static_cast<std::int32_t>(even)
                                                         : INT32_MIN;
  };
  EXPECT_LANES(rounded(da[k]), r.rounded)
  EXPECT_LANES(bitsAs<std::int32_t>(da[k]), r.words)  // a double's first four bytes are its lowest
  EXPECT_BITS(fa[k] < fb[k], r.maskThere);
  EXPECT_BITS(da[k] < db[k], r.maskBack);
}

class OfWidth : public Lanes {
 protected:
  template <std::size_t N, class Compute>
  void run(Compute compute) {
    Results<N> results;
    for (int round = 0; round < 4000 && !HasFailure(); ++round) {
      float fa[N], fb[N];
      double da[N], db[N];
      std::int32_t ia[N], ib[N];
      for (std::size_t k = 0; k < N; ++k) {
        const double a = value(), b = random_() % 8 == 0 ? a : value();
        // Outside a float's range the conversion of a finite double is not defined: infinity.
        fa[k] = std::fabs(a) > 3.4e38 ? std::copysign(kInf, static_cast<float>(a > 0 ? 1 : -1))
                                      : static_cast<float>(a);
        fb[k] = std::fabs(b) > 3.4e38 ? -kInf : static_cast<float>(b);
        // Narrowed below, so within a float's range or not finite.
        da[k] = std::isfinite(a) && std::fabs(a) > 3.4e38 ? 3.4e38 : a;
        db[k] = b;
        ia[k] = integer();
        ib[k] = random_() % 8 == 0 ? ia[k] : integer();
      }
      compute(fa, fb, da, db, ia, ib, results);
      expectScalarBits<N>(fa, fb, da, db, ia, ib, results);
    }
  }
};

#define VELA_EXPECT_SET(set)   \
  {                            \
    run<4>(set::compute<4>);   \
    run<8>(set::compute<8>);   \
    run<16>(set::compute<16>); \
  }

TEST_F(OfWidth, EveryLaneHasTheBitsOfTheScalarOperationInPlain){VELA_EXPECT_SET(plain)}
#if TARN_LANES_HAVE_SSE2
TEST_F(OfWidth, EveryLaneHasTheBitsOfTheScalarOperationInEachVectorSetOfThisProcessor) {
  VELA_EXPECT_SET(sse2)
  if (tarn::runsAvx2()) VELA_EXPECT_SET(avx2)
}
#endif

template <class Compute>
void expectAcross(Compute compute) {
  float f[16];
  for (std::size_t i = 0; i < 16; ++i) f[i] = static_cast<float>(i + 1);
  f[3] = kNaN;  // not read by loadThree
  AcrossResults r;
  compute(f, r);
  const auto expectRow = [](const std::vector<float>& expected, const float* row) {
    for (std::size_t i = 0; i < expected.size(); ++i)
      EXPECT_TRUE(same(expected[i], row[i])) << i << ": " << row[i];
  };
  expectRow({kNaN, 1, 7, 6}, r.shuffled);
  expectRow({1, 5, 2, 6, 3, 7, kNaN, 8}, r.interleaved);
  expectRow({1, 2, 3, 0}, r.three);
  expectRow({1, 2}, r.two);
  expectRow({7, 8}, r.upperTwo);
  expectRow({2, 3, 7, 8}, r.twos);
  expectRow({1, 5, 9, 2, 6, 10, 3, 7, 11, kNaN, 8, 12}, r.threes);
  EXPECT_EQ(bitsAs<std::int32_t>(5.0f), r.firstInt);
  EXPECT_EQ(10.0f, r.single);
  expectRow({3, 6, 1, 8}, r.four);
  EXPECT_EQ(5.0f, r.first);
  expectRow({1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, kNaN, 8, 12, 16}, r.transposed);
}

TEST(LanesAcross, FourFloatsMoveBetweenLanes) {
  expectAcross(plain::computeAcross);
#if TARN_LANES_HAVE_SSE2
  expectAcross(sse2::computeAcross);
  if (tarn::runsAvx2()) expectAcross(avx2::computeAcross);
#endif
}

}  // namespace
