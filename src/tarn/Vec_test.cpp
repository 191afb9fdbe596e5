#include "tarn/Vec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>

using namespace tarn;

namespace {

template <class V>
std::string text(const V& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(Vec, DefaultIsZero) {
  EXPECT_EQ(Vec2<float>(), Vec2<float>(0, 0));
  EXPECT_EQ(Vec3<double>(), Vec3<double>(0, 0, 0));
  EXPECT_EQ(Vec4<int>(), Vec4<int>(0, 0, 0, 0));
}

TEST(Vec, ScalarFillsEveryComponent) {
  EXPECT_EQ(Vec3<float>(2.0f), Vec3<float>(2, 2, 2));
  EXPECT_EQ(Vec4<int>(7), Vec4<int>(7, 7, 7, 7));
}

TEST(Vec, OtherElementTypeIsConverted) {
  EXPECT_EQ(Vec3<float>(Vec3<double>(0.1, 0.2, 0.3)), Vec3<float>(0.1f, 0.2f, 0.3f));
  EXPECT_EQ(Vec2<int>(Vec2<double>(1.9, -1.9)), Vec2<int>(1, -1));
}

TEST(Vec, IndexReachesEachComponent) {
  Vec4<float> v(1, 2, 3, 4);
  for (std::size_t i = 0; i < 4; ++i) v[i] *= 2.0f;
  EXPECT_EQ(v, Vec4<float>(2, 4, 6, 8));
}

TEST(Vec, ArithmeticIsByComponent) {
  const Vec3<float> a(1, 2, 3), b(4, 5, 6);
  EXPECT_EQ(a + b, Vec3<float>(5, 7, 9));
  EXPECT_EQ(b - a, Vec3<float>(3, 3, 3));
  EXPECT_EQ(a * b, Vec3<float>(4, 10, 18));
  EXPECT_EQ(b / a, Vec3<float>(4, 2.5f, 2));
  EXPECT_EQ(a * 2.0f, Vec3<float>(2, 4, 6));
  EXPECT_EQ(2.0f * a, Vec3<float>(2, 4, 6));
  EXPECT_EQ(a / 2.0f, Vec3<float>(0.5f, 1, 1.5f));
  EXPECT_EQ(-a, Vec3<float>(-1, -2, -3));
}

TEST(Vec, ScalarsStandOnEitherSide) {
  const Vec3<float> v(1, 2, 4);
  EXPECT_EQ(v + 1.0f, Vec3<float>(2, 3, 5));
  EXPECT_EQ(1.0f + v, Vec3<float>(2, 3, 5));
  EXPECT_EQ(v - 1.0f, Vec3<float>(0, 1, 3));
  EXPECT_EQ(1.0f - v, Vec3<float>(0, -1, -3));
  EXPECT_EQ(v / 2.0f, Vec3<float>(0.5f, 1, 2));
  EXPECT_EQ(2.0f / v, Vec3<float>(2, 1, 0.5f));
  EXPECT_EQ(8 / Vec2<int>(2, 3), Vec2<int>(4, 2));
  EXPECT_EQ(1.0 - Vec4<double>(1, 2, 3, 4), Vec4<double>(0, -1, -2, -3));

  Vec3<float> w = v;
  w += 1.0f;
  EXPECT_EQ(w, Vec3<float>(2, 3, 5));
  w -= 2.0f;
  EXPECT_EQ(w, Vec3<float>(0, 1, 3));
}

// 1/3 rounded and then multiplied differs from a division: the contract says division.
TEST(Vec, DivisionIsNotMultiplicationByAReciprocal) {
  const Vec3<float> v = Vec3<float>(5.0f, 10.0f, 25.0f) / 3.0f;
  EXPECT_EQ(v.x, 5.0f / 3.0f);
  EXPECT_EQ(v.y, 10.0f / 3.0f);
  EXPECT_EQ(v.z, 25.0f / 3.0f);
}

TEST(Vec, DotAddsFromTheLeft) {
  // (1e8 + 1) - 1e8 in float: 1 is lost when added first.
  EXPECT_EQ(dot(Vec3<float>(1e8f, 1, -1e8f), Vec3<float>(1, 1, 1)), 0.0f);
  EXPECT_EQ(dot(Vec3<float>(1e8f, -1e8f, 1), Vec3<float>(1, 1, 1)), 1.0f);
  EXPECT_EQ(dot(Vec2<double>(1, 2), Vec2<double>(3, 4)), 11.0);
  EXPECT_EQ(dot(Vec4<double>(1, 2, 3, 4), Vec4<double>(1, 1, 1, 1)), 10.0);
}

TEST(Vec, CrossIsRightHanded) {
  EXPECT_EQ(cross(Vec3<float>(1, 0, 0), Vec3<float>(0, 1, 0)), Vec3<float>(0, 0, 1));
  EXPECT_EQ(cross(Vec3<double>(1, 2, 3), Vec3<double>(4, 5, 6)), Vec3<double>(-3, 6, -3));
}

TEST(Vec, LengthDoesNotRescale) {
  EXPECT_EQ(Vec3<float>(3, 4, 0).length(), 5.0f);
  EXPECT_TRUE(std::isinf(Vec3<float>(1e30f, 0, 0).length()))
      << "the square overflows, as the plain formula does";
  EXPECT_EQ(length(Vec2<double>(3, 4)), 5.0);
  EXPECT_EQ(Vec3<int>(1, 2, 2).lengthSquared(), 9);
}

TEST(Vec, NormalizedDividesByTheLengthAndZeroStaysZero) {
  const Vec3<float> v(1, 2, 3);
  const float n = std::sqrt(1.0f + 4.0f + 9.0f);
  EXPECT_EQ(v.normalized(), Vec3<float>(1.0f / n, 2.0f / n, 3.0f / n));
  EXPECT_EQ(Vec3<float>().normalized(), Vec3<float>());
  Vec2<double> w(0, 2);
  EXPECT_EQ(w.normalize(), 2.0);
  EXPECT_EQ(w, Vec2<double>(0, 1));
}

TEST(Vec, WNormalizedDividesAllFour) {
  EXPECT_EQ(Vec4<double>(2, 4, 6, 2).wNormalized(), Vec4<double>(1, 2, 3, 1));
  EXPECT_TRUE(std::isinf(Vec4<double>(1, 0, 0, 0).wNormalized().x));
}

TEST(Vec, PrintsInBrackets) {
  EXPECT_EQ(text(Vec2<double>(1, 0.5)), "[1 0.5]");
  EXPECT_EQ(text(Vec3<float>(1, 2, 3)), "[1 2 3]");
  EXPECT_EQ(text(Vec4<int>(1, 2, 3, 4)), "[1 2 3 4]");
}

TEST(Vec, OrientAroundNormalTakesZToTheNormal) {
  std::mt19937 random(7);
  std::normal_distribution<double> normal;
  for (int i = 0; i < 2000; ++i) {
    const Vec3<double> n(normal(random), normal(random), normal(random));
    Vec3<double> z(0, 0, 1), down(0, 0, -1), x(1, 0, 0), y(0, 1, 0);
    z.orientAroundNormal(n, true);
    down.orientAroundNormal(n, true);
    x.orientAroundNormal(n, true);
    y.orientAroundNormal(n, true);
    const Vec3<double> unit = n.normalized();
    EXPECT_LT((z - unit).length(), 1e-14);
    EXPECT_LT((down + unit).length(), 1e-14) << "with the flag nothing is flipped";
    EXPECT_NEAR(dot(x, y), 0.0, 1e-14);
    EXPECT_LT((cross(x, y) - unit).length(), 1e-14);
  }
}

TEST(Vec, OrientAroundNormalWithoutTheFlagStaysOnTheNormalsSide) {
  Vec3<float> v(0, 0, -1);
  v.orientAroundNormal(Vec3<float>(0, 2, 0), false);
  EXPECT_NEAR(v.y, 1.0f, 1e-6f);
}

TEST(Vec, OrientAroundNormalIsAccurateNearTheSeam) {
  for (float tilt : {0.0f, 1e-20f, 1e-7f, 1e-4f}) {
    Vec3<float> x(1, 0, 0), y(0, 1, 0);
    const Vec3<float> n(tilt, -tilt, -1.0f);
    x.orientAroundNormal(n, true);
    y.orientAroundNormal(n, true);
    EXPECT_NEAR(x.length(), 1.0f, 1e-6f) << tilt;
    EXPECT_NEAR(dot(x, y), 0.0f, 1e-6f) << tilt;
  }
}

TEST(Vec, OrientAroundAZeroNormalLeavesTheVector) {
  Vec3<float> v(1, 2, 3);
  v.orientAroundNormal(Vec3<float>(), true);
  EXPECT_EQ(v, Vec3<float>(1, 2, 3));
}

TEST(Vec, IsFiniteLooksAtEveryComponent) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(isFinite(Vec2f(1, 2)) && isFinite(Vec3d(1e308, -1e308, 0)) && isFinite(Vec4f()));
  for (std::size_t i = 0; i < 4; ++i) {
    Vec4f a;
    Vec4d b;
    a[i] = nan;
    b[i] = -inf;
    EXPECT_FALSE(isFinite(a));
    EXPECT_FALSE(isFinite(b));
    EXPECT_EQ(isFinite(Vec3f(a.x, a.y, a.z)), i == 3);
    EXPECT_EQ(isFinite(Vec2d(b.x, b.y)), i > 1);
  }
}

}  // namespace
