#include "tarn/Mat4.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include "tarn/Constants.h"

using namespace tarn;

namespace {

constexpr double kPi = tarn::kPi<double>;

Mat4<double> randomMatrix(std::mt19937& random) {
  std::uniform_real_distribution<double> u(-2, 2);
  Mat4<double> m;
  for (std::size_t i = 0; i < 16; ++i) m[i] = u(random);
  return m;
}

TEST(Mat4, DefaultIsTheIdentity) {
  const Mat4<double> m;
  for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(m[i], i % 5 == 0 ? 1.0 : 0.0);
  EXPECT_EQ(m, Mat4<double>::getIdentity());
  EXPECT_EQ(m, Mat4<double>(1.0));
}

TEST(Mat4, TranslationSitsAtTwelveToFourteen) {
  Mat4<double> m;
  m.translate(1, 2, 3);
  EXPECT_EQ(m[12], 1.0);
  EXPECT_EQ(m[13], 2.0);
  EXPECT_EQ(m[14], 3.0);
  EXPECT_EQ(m.transformPoint(Vec3<double>(1, 1, 1)), Vec3<double>(2, 3, 4));
  EXPECT_EQ(m.transformVector(Vec3<double>(1, 1, 1)), Vec3<double>(1, 1, 1));
}

TEST(Mat4, TheLastCallActsFirst) {
  Mat4<double> m;
  m.translate(1, 0, 0);
  m.scale(2, 2, 2);
  EXPECT_EQ(m.transformPoint(Vec3<double>(1, 0, 0)), Vec3<double>(3, 0, 0));
}

TEST(Mat4, ProductActsRightFirst) {
  std::mt19937 random(3);
  for (int i = 0; i < 100; ++i) {
    const Mat4<double> a = randomMatrix(random), b = randomMatrix(random);
    const Vec4<double> p(0.3, -1.2, 0.7, 1.0);
    EXPECT_LT(((a * b).transform(p) - a.transform(b.transform(p))).length(), 1e-12);
  }
}

TEST(Mat4, RotationsAreRightHanded) {
  Mat4<double> x, y, z;
  x.rotateX(kPi / 2);
  y.rotateY(kPi / 2);
  z.rotateZ(kPi / 2);
  EXPECT_LT((x.transformPoint({0, 1, 0}) - Vec3<double>(0, 0, 1)).length(), 1e-15);
  EXPECT_LT((y.transformPoint({0, 0, 1}) - Vec3<double>(1, 0, 0)).length(), 1e-15);
  EXPECT_LT((z.transformPoint({1, 0, 0}) - Vec3<double>(0, 1, 0)).length(), 1e-15);
}

TEST(Mat4, InverseUndoes) {
  std::mt19937 random(11);
  for (int i = 0; i < 200; ++i) {
    const Mat4<double> m = randomMatrix(random);
    const Mat4<double> id = m * m.inverse();
    for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(id[k], k % 5 == 0 ? 1.0 : 0.0, 1e-9);
  }
}

TEST(Mat4, SingularMatrixHasTheZeroInverse) {
  Mat4<double> flat;
  flat.scale(1, 0, 1);
  EXPECT_EQ(flat.inverse(), Mat4<double>(0.0));
  Mat4<float> rows(0.0f);
  for (std::size_t i = 0; i < 16; ++i) rows[i] = static_cast<float>(i);
  EXPECT_EQ(rows.inverse(), Mat4<float>(0.0f));
  Mat4<double> broken;
  broken[0] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(broken.inverse(), Mat4<double>(0.0));
}

TEST(Mat4, TinyScalesAreNotSingularInFloat) {
  Mat4<float> m;
  m.scale(1e-15f, 1e-15f, 1e-15f);
  EXPECT_NEAR(m.inverse()[0] / 1e15f, 1.0f, 1e-6f);
}

TEST(Mat4, TransposedSwapsRowsAndColumns) {
  std::mt19937 random(5);
  const Mat4<double> m = randomMatrix(random);
  EXPECT_EQ(m.transposed()[4], m[1]);
  EXPECT_EQ(m.transposed().transposed(), m);
}

TEST(Mat4, PerspectiveProjectionRunsFromMinusOneToOne) {
  Mat4<double> p;
  p.setToProjection(1.5, 0.5, 20.0, true);
  EXPECT_NEAR(p.transform({0, 0, -0.5, 1}).wNormalized().z, -1.0, 1e-12);
  EXPECT_NEAR(p.transform({0, 0, -20, 1}).wNormalized().z, 1.0, 1e-12);
  EXPECT_NEAR(p.transform({1, 2, -4, 1}).wNormalized().x, 2 * 1.5 * 1 / 4, 1e-12);
  EXPECT_NEAR(p.transform({1, 2, -4, 1}).wNormalized().y, 2 * 1.5 * 2 / 4, 1e-12);
}

TEST(Mat4, OrthographicProjectionRunsFromMinusOneToOne) {
  Mat4<double> p;
  p.setToProjection(1.5, 0.5, 20.0, false);
  EXPECT_NEAR(p.transform({0, 0, -0.5, 1}).z, -1.0, 1e-12);
  EXPECT_NEAR(p.transform({0, 0, -20, 1}).z, 1.0, 1e-12);
  EXPECT_EQ(p.transform({1, 2, -4, 1}).x, 3.0);
  EXPECT_EQ(p.transform({1, 2, -4, 1}).w, 1.0);
}

TEST(Mat4, InfiniteFarPlaneTakesTheLimit) {
  const double inf = std::numeric_limits<double>::infinity();
  for (bool perspective : {true, false}) {
    Mat4<double> p;
    p.setToProjection(1.0, 0.25, inf, perspective);
    for (std::size_t i = 0; i < 16; ++i) EXPECT_FALSE(std::isnan(p[i]));
    EXPECT_NEAR(p.transform({0, 0, -0.25, 1}).wNormalized().z, -1.0, 1e-12);
  }
  Mat4<double> p;
  p.setToProjection(1.0, 0.25, inf, true);
  EXPECT_NEAR(p.transform({0, 0, -1e12, 1}).wNormalized().z, 1.0, 1e-9);
}

TEST(Mat4, PrintsRowByRow) {
  std::ostringstream os;
  os << Mat4<double>();
  EXPECT_EQ(os.str(), "[[1 0 0 0][0 1 0 0][0 0 1 0][0 0 0 1]]");
  Mat4<float> m;
  m.translate(5, 6, 7);
  std::ostringstream moved;
  moved << m;
  EXPECT_EQ(moved.str(), "[[1 0 0 5][0 1 0 6][0 0 1 7][0 0 0 1]]");
}

TEST(Mat4, OtherElementTypeIsNarrowed) {
  Mat4<double> m(0.1);
  EXPECT_EQ(Mat4<float>(m)[0], 0.1f);
}

TEST(Mat4, QuaternionTurnsAboutItsImaginaryPartWhateverItsLength) {
  Mat4<double> turn;
  turn.rotateZ(kPi / 3);
  const Vec4<double> q(0, 0, std::sin(kPi / 6), std::cos(kPi / 6));
  for (const double size : {1.0, 1e-100, 3.0, -2.0}) {
    const Mat4<double> m = Mat4<double>::fromQuaternion(q * size);
    for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(m[i], turn[i], 1e-15) << size << ' ' << i;
  }
}

TEST(Mat4, QuaternionsMultiplyAsTheirRotationsDo) {
  std::mt19937 random(5);
  std::normal_distribution<double> normal;
  for (int i = 0; i < 100; ++i) {
    const auto draw = [&] {
      return Vec4<double>(normal(random), normal(random), normal(random), normal(random))
          .normalized();
    };
    const Vec4<double> p = draw(), q = draw();
    const Vec4<double> product(p.w * q.x + p.x * q.w + p.y * q.z - p.z * q.y,
                               p.w * q.y - p.x * q.z + p.y * q.w + p.z * q.x,
                               p.w * q.z + p.x * q.y - p.y * q.x + p.z * q.w,
                               p.w * q.w - p.x * q.x - p.y * q.y - p.z * q.z);
    const Mat4<double> one = Mat4<double>::fromQuaternion(product);
    const Mat4<double> two = Mat4<double>::fromQuaternion(p) * Mat4<double>::fromQuaternion(q);
    for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(one[k], two[k], 1e-14);
  }
}

TEST(Mat4, QuaternionWithoutLengthTurnsNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Mat4<double>::fromQuaternion({}), Mat4<double>());
  EXPECT_EQ(Mat4<double>::fromQuaternion({nan, 0, 0, 1}), Mat4<double>());
}

}  // namespace
