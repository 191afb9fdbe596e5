#include "tarn/Box3.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "tarn/Convert.h"
#include "tarn/Ray.h"
#include "tarn/Time.h"

using namespace tarn;

namespace {

using Box = Box3<float>;
using V = Vec3<float>;

TEST(Box3, DefaultIsEmptyWithTheFiniteLimits) {
  const Box b;
  EXPECT_TRUE(b.isEmpty());
  EXPECT_EQ(b.min, V(std::numeric_limits<float>::max()));
  EXPECT_EQ(b.max, V(std::numeric_limits<float>::lowest()));
}

TEST(Box3, ExtendingByAPointMakesAPoint) {
  Box b;
  b.extendBy(V(1, 2, 3));
  EXPECT_EQ(b, Box(V(1, 2, 3), V(1, 2, 3)));
  EXPECT_FALSE(b.isEmpty());
  b.extendBy(V(0, 5, 3));
  EXPECT_EQ(b, Box(V(0, 2, 3), V(1, 5, 3)));
}

TEST(Box3, ExtendingByAnEmptyBoxAddsNothing) {
  Box b(V(0, 0, 0), V(1, 1, 1));
  b.extendBy(Box());
  b.extendBy(Box(V(2, 9, 2), V(3, 8, 3)));
  EXPECT_EQ(b, Box(V(0, 0, 0), V(1, 1, 1)));
}

TEST(Box3, EmptyStaysEmptyUnderPadAndTransform) {
  Box b;
  b.pad(V(1e30f));
  EXPECT_TRUE(b.isEmpty());
  EXPECT_EQ(b, Box());
  EXPECT_TRUE(b.transformed(Mat4<double>(2.0)).isEmpty());
}

TEST(Box3, EmptyAnswersZero) {
  const Box b;
  EXPECT_EQ(b.center(), V());
  EXPECT_EQ(b.size(), V());
  EXPECT_EQ(b.surface(), 0.0f);
  EXPECT_EQ(b.majorAxis(), 0);
}

TEST(Box3, CentreSizeAndSurface) {
  const Box b(V(0, 0, 0), V(1, 2, 3));
  EXPECT_EQ(b.center(), V(0.5f, 1, 1.5f));
  EXPECT_EQ(b.size(), V(1, 2, 3));
  EXPECT_EQ(b.surface(), 22.0f);
}

TEST(Box3, MajorAxisTakesTheFirstOnTies) {
  EXPECT_EQ(Box(V(), V(1, 1, 1)).majorAxis(), 0);
  EXPECT_EQ(Box(V(), V(1, 2, 2)).majorAxis(), 1);
  EXPECT_EQ(Box(V(), V(1, 2, 3)).majorAxis(), 2);
  EXPECT_EQ(Box(V(), V(2, 1, 2)).majorAxis(), 0);
}

TEST(Box3, SplitSharesThePlane) {
  const auto halves = Box(V(), V(4, 4, 4)).split(1, 1.0f);
  EXPECT_EQ(halves.first, Box(V(), V(4, 1, 4)));
  EXPECT_EQ(halves.second, Box(V(0, 1, 0), V(4, 4, 4)));
  EXPECT_TRUE(halves.first.intersects(V(2, 1, 2)));
  EXPECT_TRUE(halves.second.intersects(V(2, 1, 2)));
}

TEST(Box3, PointsOnTheFacesAreInside) {
  const Box b(V(), V(1, 1, 1));
  EXPECT_TRUE(b.intersects(V(0, 1, 0.5f)));
  EXPECT_FALSE(b.intersects(V(0, 1.0000001f, 0.5f)));
  EXPECT_FALSE(b.intersects(V(std::numeric_limits<float>::quiet_NaN(), 0, 0)));
  EXPECT_FALSE(Box().intersects(V()));
}

TEST(Box3, TransformedHoldsEveryCorner) {
  std::mt19937 random(17);
  std::uniform_real_distribution<double> u(-3, 3);
  for (int i = 0; i < 200; ++i) {
    Mat4<double> m;
    m.translate(u(random), u(random), u(random));
    m.rotateX(u(random));
    m.rotateY(u(random));
    m.scale(u(random), u(random), u(random));
    const Box3<double> b(Vec3<double>(-1, -2, -3), Vec3<double>(1, 2, 3));
    const Box3<double> moved = b.transformed(m);
    for (unsigned c = 0; c < 8; ++c)
      EXPECT_TRUE(moved.intersects(
          m.transformPoint(Vec3<double>((c & 1u) ? 1 : -1, (c & 2u) ? 2 : -2, (c & 4u) ? 3 : -3))));
  }
}

TEST(Box3, EmptyBoxOfAWiderTypeStaysTheDefaultEmptyBox) {
  EXPECT_EQ(Box3<float>(Box3<double>()), Box());
}

TEST(Ray, DefaultRangeIsZeroToTheLargestFinite) {
  const Ray<float> r;
  EXPECT_EQ(r.minDistance, 0.0f);
  EXPECT_EQ(r.maxDistance, std::numeric_limits<float>::max());
}

TEST(Time, DefaultIsNoNumberAndEarliestTheLowest) {
  EXPECT_TRUE(isDefaultTime(defaultTimeValue()));
  EXPECT_FALSE(isDefaultTime(earliestTimeValue()));
  EXPECT_EQ(earliestTimeValue(), std::numeric_limits<double>::lowest());
}

TEST(Convert, WhatDoesNotFitHasADefinedAnswer) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(truncToUint32(inf), 0u);
  EXPECT_EQ(truncToUint32(nan), 0u);
  EXPECT_EQ(truncToUint32(-1.5f), 0xFFFFFFFFu);
  EXPECT_EQ(truncToUint32(3.99f), 3u);
  EXPECT_EQ(truncToUint32(4294967296.0), 0u) << "the low 32 bits of 2^32";
  EXPECT_EQ(truncToInt32(1e10f), std::numeric_limits<std::int32_t>::lowest());
  EXPECT_EQ(truncToInt32(-2147483648.0), std::numeric_limits<std::int32_t>::lowest());
  EXPECT_EQ(truncToInt32(nan), std::numeric_limits<std::int32_t>::lowest());
  EXPECT_EQ(truncToInt64(9.3e18), std::numeric_limits<std::int64_t>::lowest());
  EXPECT_EQ(truncToInt64(-7.9f), -7);
}

}  // namespace
