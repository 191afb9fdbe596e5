#include "tarn/Area.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tarn/Constants.h"

namespace {

using tarn::areaVector;
using tarn::Vec3d;
using tarn::Vec3f;

Vec3d areaOf(const std::vector<Vec3f>& polygon) {
  return areaVector(polygon.size(), [&](std::size_t k) { return Vec3d(polygon[k]); });
}

TEST(Area, OfATriangleRunsAlongItsNormal) {
  EXPECT_EQ(areaVector(Vec3f(1, 1, 5), Vec3f(3, 1, 5), Vec3f(1, 4, 5)), Vec3f(0, 0, 6));
  EXPECT_EQ(areaVector(Vec3f(1, 1, 5), Vec3f(1, 4, 5), Vec3f(3, 1, 5)), Vec3f(0, 0, -6));
}

TEST(Area, FewerThanThreeCornersHaveNone) {
  EXPECT_EQ(areaOf({}), Vec3d());
  EXPECT_EQ(areaOf({{1, 2, 3}}), Vec3d());
  EXPECT_EQ(areaOf({{1, 2, 3}, {4, 5, 6}}), Vec3d());
}

TEST(Area, OfAPolygonIsTwiceItsOwnWhereverItLies) {
  // An L of three unit squares, concave and far away.
  std::vector<Vec3f> corners = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0}, {1, 2, 0}, {0, 2, 0}};
  EXPECT_EQ(areaOf(corners), Vec3d(0, 0, 6));
  for (Vec3f& p : corners) p += Vec3f(1 << 20, -(1 << 21), 1 << 19);
  EXPECT_EQ(areaOf(corners), Vec3d(0, 0, 6));
}

TEST(Area, HalvesOfABowTieCancel) {
  EXPECT_EQ(areaOf({{0, 0, 0}, {1, 1, 0}, {1, 0, 0}, {0, 1, 0}}), Vec3d());
}

TEST(Area, IsFiniteExactlyWhenAllCornersAre) {
  const float nan = std::numeric_limits<float>::quiet_NaN(),
              inf = std::numeric_limits<float>::infinity();
  const std::vector<Vec3f> huge = {
      {3e38f, 0, -3e38f}, {-3e38f, 3e38f, 0}, {0, -3e38f, 3e38f}, {1e-44f, 0, 3e38f}, {0, 0, 0}};
  EXPECT_TRUE(tarn::isFinite(areaOf(huge)));
  for (const float bad : {nan, inf, -inf})
    for (std::size_t corner = 0; corner < huge.size(); ++corner)
      for (std::size_t axis = 0; axis < 3; ++axis) {
        std::vector<Vec3f> polygon = huge;
        polygon[corner][axis] = bad;
        EXPECT_FALSE(tarn::isFinite(areaOf(polygon))) << bad << ' ' << corner << ' ' << axis;
        // Where all else is zero too, so that infinities meet zeros.
        polygon.assign(5, Vec3f());
        polygon[corner][axis] = bad;
        EXPECT_FALSE(tarn::isFinite(areaOf(polygon))) << bad << ' ' << corner << ' ' << axis;
      }
}

TEST(Constants, AreTheNearestOfTheirType) {
  EXPECT_EQ(tarn::kPi<double>, M_PI);
  EXPECT_EQ(tarn::kPi<float>, static_cast<float>(M_PI));
  EXPECT_EQ(tarn::kRadiansPerDegree<double>, M_PI / 180);
  EXPECT_EQ(tarn::kDegreesPerRadian<double>, 180 / M_PI);
}

}  // namespace
