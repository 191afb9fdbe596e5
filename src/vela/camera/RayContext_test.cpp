#include "vela/camera/RayContext.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

using tarn::Mat4d;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::RayContext;

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr double kPi = 3.141592653589793;

RayContext rayTowards(const Vec3f& direction) {
  RayContext ray;
  ray.setDirection(direction);
  return ray;
}

template <class T>
T at(const RayContext& ray, std::size_t offset) {
  T v;
  std::memcpy(&v, reinterpret_cast<const char*>(&ray) + offset, sizeof v);
  return v;
}

bool sameBits(const Vec3f& a, const Vec3f& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// ---- Layout and construction

TEST(RayContext, FieldsLieWhereHostsExpectThem) {
  static_assert(sizeof(RayContext) == 88);
  RayContext ray({1, 2, 3}, {4, -5, 6}, 0x1234, 7.5, -2, 8, 9);
  ray.xDirection = {10, 11, 12};
  ray.yDirection = {13, 14, 15};
  EXPECT_EQ(at<float>(ray, 0), 1.0f);
  EXPECT_EQ(at<float>(ray, 8), 3.0f);
  EXPECT_EQ(at<float>(ray, 12), 4.0f);
  EXPECT_EQ(at<float>(ray, 24), 8.0f);
  EXPECT_EQ(at<float>(ray, 28), 9.0f);
  EXPECT_EQ(at<float>(ray, 32), 10.0f);
  EXPECT_EQ(at<float>(ray, 44), 13.0f);
  EXPECT_EQ(at<double>(ray, 56), 7.5);
  EXPECT_EQ(at<std::uint16_t>(ray, 64), 0x1234);
  EXPECT_EQ(at<std::uint16_t>(ray, 66), 1);
  EXPECT_EQ(at<std::int16_t>(ray, 68), -2);
  EXPECT_EQ(at<float>(ray, 72), 0.25f);
  EXPECT_EQ(at<float>(ray, 76), -0.2f);
  EXPECT_EQ(at<std::uint8_t>(ray, 84), 2);
}

TEST(RayContext, DefaultIsNoRay) {
  const RayContext ray;
  EXPECT_EQ(ray.minDistance, 0.0f);
  EXPECT_EQ(ray.maxDistance, 0.0f);
  EXPECT_EQ(ray.type, 0);
  EXPECT_EQ(at<std::uint16_t>(ray, 66), 0);
  EXPECT_EQ(ray.originType, 0);
  EXPECT_EQ(ray.slopeBits, 0);
}

TEST(RayContext, OriginKindAloneLeavesTheRestAsDefault) {
  const RayContext ray(short(2));
  EXPECT_EQ(ray.originType, 2);
  EXPECT_EQ(at<std::uint16_t>(ray, 66), 0);
  EXPECT_EQ(ray.type, 0);
  EXPECT_EQ(ray.maxDistance, 0.0f);
}

TEST(RayContext, SetFillsTheRecord) {
  RayContext ray;
  ray.xDirection = ray.yDirection = {9, 9, 9};
  ray.set({1, 2, 3}, {0, 0, -2}, 0x0101, 4.0, 1, 0.5f, 100.0f);
  const RayContext made({1, 2, 3}, {0, 0, -2}, 0x0101, 4.0, 1, 0.5f, 100.0f);
  for (const RayContext* r : {static_cast<const RayContext*>(&ray), &made}) {
    EXPECT_EQ(r->origin, Vec3f(1, 2, 3));
    EXPECT_EQ(r->direction, Vec3f(0, 0, -2));
    EXPECT_EQ(r->type, 0x0101);
    EXPECT_EQ(r->time, 4.0);
    EXPECT_EQ(r->originType, 1);
    EXPECT_EQ(r->minDistance, 0.5f);
    EXPECT_EQ(r->maxDistance, 100.0f);
    EXPECT_EQ(r->xDirection, Vec3f());
    EXPECT_EQ(r->yDirection, Vec3f());
    EXPECT_EQ(r->assigned, 1);
    EXPECT_EQ(r->invDir(), Vec3f(kInf, kInf, -0.5f));
    EXPECT_EQ(r->slopeBits, 4);
  }
}

TEST(RayContext, PartialSettersKeepTheRestAndRefresh) {
  const RayContext start({1, 2, 3}, {1, 1, 1}, 7, 5.0, 2, 0.1f, 10.0f);
  RayContext ray = start;
  ray.setGeom({4, 5, 6}, {-1, 2, 4}, 1, 2);
  EXPECT_EQ(ray.origin, Vec3f(4, 5, 6));
  EXPECT_EQ(ray.minDistance, 1.0f);
  EXPECT_EQ(ray.maxDistance, 2.0f);
  EXPECT_EQ(ray.invDir(), Vec3f(-1, 0.5f, 0.25f));
  EXPECT_EQ(ray.type, 7);
  EXPECT_EQ(ray.time, 5.0);
  ray = start;
  ray.setOriginAndDirection({4, 5, 6}, {2, -2, 2});
  EXPECT_EQ(ray.origin, Vec3f(4, 5, 6));
  EXPECT_EQ(ray.maxDistance, 10.0f);
  EXPECT_EQ(ray.slopeBits, 2);
  ray = start;
  ray.setDirection({0.5f, 0.5f, -0.5f});
  EXPECT_EQ(ray.origin, start.origin);
  EXPECT_EQ(ray.invDir(), Vec3f(2, 2, -2));
  ray = start;
  ray.setDirAndDistance({0.5f, 0.5f, -0.5f}, 3, 4);
  EXPECT_EQ(ray.origin, start.origin);
  EXPECT_EQ(ray.minDistance, 3.0f);
  EXPECT_EQ(ray.maxDistance, 4.0f);
  EXPECT_EQ(ray.slopeBits, 4);
}

TEST(RayContext, InvertTurnsTheDirectionRound) {
  RayContext ray = rayTowards({1, -2, 4});
  ray.invert();
  EXPECT_EQ(ray.direction, Vec3f(-1, 2, -4));
  EXPECT_EQ(ray.invDir(), Vec3f(-1, 0.5f, -0.25f));
  EXPECT_EQ(ray.slopeBits, 5);
}

// ---- The classification word

TEST(RayContext, ConstantsHaveTheirValues) {
  EXPECT_EQ(RayContext::undefinedRay, 0x0000);
  EXPECT_EQ(RayContext::cameraRay, 0x0001);
  EXPECT_EQ(RayContext::shadowRay, 0x0002);
  EXPECT_EQ(RayContext::reflectionRay, 0x0004);
  EXPECT_EQ(RayContext::refractionRay, 0x0008);
  EXPECT_EQ(RayContext::thinTransmissionRay, 0x0010);
  EXPECT_EQ(RayContext::allRayTypes, 0x00FF);
  EXPECT_EQ(RayContext::diffusePath, 0x0100);
  EXPECT_EQ(RayContext::glossyPath, 0x0200);
  EXPECT_EQ(RayContext::diffuseReflectionPath, RayContext::diffusePath + RayContext::reflectionRay);
  EXPECT_EQ(RayContext::glossyReflectionPath, RayContext::glossyPath + RayContext::reflectionRay);
  EXPECT_EQ(RayContext::shadowTransmissionPath,
            RayContext::shadowRay + RayContext::thinTransmissionRay);
  EXPECT_EQ(RayContext::allPathTypes, 0x0F00);
  EXPECT_EQ(RayContext::frontSideTestOnly, 0x1000);
  EXPECT_EQ(RayContext::backSideTestOnly, 0x2000);
  EXPECT_EQ(RayContext::allSideTypes, 0x3000);
  EXPECT_EQ(RayContext::noPresenceTest, 0x4000);
  EXPECT_EQ(RayContext::allTests, 0xF000);
  EXPECT_EQ(RayContext::allTypes, 0xFFFF);
  EXPECT_EQ(RayContext::undefinedOrigin, 0);
  EXPECT_EQ(RayContext::outsideOrigin, 1);
  EXPECT_EQ(RayContext::insideOrigin, 2);
  EXPECT_EQ(RayContext::allOrigins, 0xFFFF);
}

TEST(RayContext, ConstantsAreValuesAndCalls) {
  static_assert(RayContext::cameraRay() == RayContext::cameraRay);
  RayContext ray;
  ray.type = RayContext::shadowRay;
  EXPECT_TRUE(ray.isShadowPath());
}

TEST(RayContext, TurningBitsOnAndOff) {
  EXPECT_EQ(RayContext::TurnOn(0x0004, 0x0100), 0x0104);
  EXPECT_EQ(RayContext::TurnOff(0x0104, 0x0100), 0x0004);
  EXPECT_EQ(RayContext::TurnOff(0x0004, 0x0100), 0x0004);
  EXPECT_EQ(RayContext::TurnOff(0xFFFF, 0xFFFF), 0);
}

TEST(RayContext, PartsOfTheWord) {
  RayContext ray;
  ray.type = 0xABCD;
  EXPECT_EQ(ray.rayType(), 0x00CD);
  EXPECT_EQ(ray.pathType(), 0x0B00);
  EXPECT_EQ(ray.sidesType(), 0x2000);
  EXPECT_EQ(ray.testType(), 0xA000);
}

TEST(RayContext, PathQueriesCompareTheWholeLowByte) {
  for (unsigned type = 0; type <= 0xFFFF; ++type) {
    RayContext ray;
    ray.type = static_cast<std::uint16_t>(type);
    ASSERT_EQ(ray.isCameraPath(), (type & 0xFF) == 1);
    ASSERT_EQ(ray.isShadowPath(), (type & 0xFF) == 2);
    ASSERT_EQ(ray.isReflectedPath(), (type & 0xFF) == 4);
    ASSERT_EQ(ray.isRefractedPath(), (type & 0xFF) == 8);
    ASSERT_EQ(ray.isThinTransmittedPath(), (type & 0xFF) == 0x10);
    ASSERT_EQ(ray.isValidPath(), (type & 0xFF) != 0);
    ASSERT_EQ(ray.isDiffuseContributor(), (type & 0x100) != 0);
    ASSERT_EQ(ray.isGlossyContributor(), (type & 0x200) != 0);
    ASSERT_EQ(ray.testFrontSideOnly(), (type & 0x1000) != 0);
    ASSERT_EQ(ray.testBackSideOnly(), (type & 0x2000) != 0);
    ASSERT_EQ(ray.testPresenceDisabled(), (type & 0x4000) != 0);
  }
}

TEST(RayContext, ARayOfTwoTypesIsOfNone) {
  RayContext ray;
  ray.type = RayContext::shadowTransmissionPath;
  EXPECT_FALSE(ray.isShadowPath());
  EXPECT_FALSE(ray.isThinTransmittedPath());
  EXPECT_TRUE(ray.isValidPath());
}

// ---- Slopes

// KEEP(slope-sense): the queries answer true where the direction is negative.
TEST(RayContext, SlopeQueriesAreTrueForNegativeDirections) {
  const RayContext ray = rayTowards({1, -2, 0});
  EXPECT_EQ(ray.invDir(), Vec3f(1, -0.5f, kInf));
  EXPECT_EQ(ray.slopeBits, 2);
  EXPECT_FALSE(ray.isXSlopePositive());
  EXPECT_TRUE(ray.isYSlopePositive());
  EXPECT_FALSE(ray.isZSlopePositive());
  for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(ray.isSlopePositive(axis), axis == 1);
}

TEST(RayContext, ZeroComponentsKeepTheirSignInTheReciprocal) {
  const RayContext ray = rayTowards({0.0f, -0.0f, -1.0f});
  EXPECT_EQ(ray.invDir(), Vec3f(kInf, -kInf, -1));
  EXPECT_EQ(ray.slopeBits, 6);
}

TEST(RayContext, NotANumberLeavesItsBitClear) {
  const RayContext ray = rayTowards({kNan, -1, kNan});
  EXPECT_EQ(ray.slopeBits, 2);
}

TEST(RayContext, AxesOutOfRangeAreHarmless) {
  const RayContext ray = rayTowards({-1, -1, -1});
  EXPECT_FALSE(ray.isSlopePositive(3));
  EXPECT_FALSE(ray.isSlopePositive(-1));
}

// ---- Differentials

TEST(RayContext, NoAngleCopiesTheDirection) {
  for (float tiny : {0.0f, -0.0f, 1.1920929e-7f, -1e-8f, kNan}) {
    RayContext ray = rayTowards({1, 2, -3});
    ray.setXYDirsFromAngle(tiny, tiny);
    EXPECT_EQ(ray.xDirection, ray.direction) << tiny;
    EXPECT_EQ(ray.yDirection, ray.direction) << tiny;
  }
}

TEST(RayContext, AnglesOpenFromTheDirection) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (int i = 0; i < 2000; ++i) {
    RayContext ray = rayTowards({u(random), u(random), u(random)});
    if (ray.direction.length() < 0.1f) continue;
    const float ax = u(random) * 3.0f, ay = u(random) * 3.0f;
    ray.setXYDirsFromAngle(ax, ay);
    const Vec3d n = Vec3d(ray.direction).normalized();
    const Vec3d x(ray.xDirection), y(ray.yDirection);
    ASSERT_NEAR(x.length(), 1.0, 1e-5);
    ASSERT_NEAR(dot(x, n), std::cos(static_cast<double>(ax)), 1e-5);
    ASSERT_NEAR(dot(y, n), std::cos(static_cast<double>(ay)), 1e-5);
    // The two turn in planes at right angles.
    const Vec3d acrossX = x - n * dot(x, n), acrossY = y - n * dot(y, n);
    ASSERT_NEAR(dot(acrossX, acrossY), 0.0, 1e-5);
  }
}

TEST(RayContext, TheTwoAnglesAreIndependent) {
  RayContext ray = rayTowards({0, 0, 1});
  ray.setXYDirsFromAngle(0.5f, 0.0f);
  EXPECT_EQ(ray.xDirection, Vec3f(std::sin(0.5f), 0, std::cos(0.5f)));
  EXPECT_EQ(ray.yDirection, ray.direction);
  ray.setXYDirsFromAngle(0.0f, -0.5f);
  EXPECT_EQ(ray.xDirection, ray.direction);
  EXPECT_EQ(ray.yDirection, Vec3f(0, std::sin(0.5f), std::cos(0.5f)));
}

TEST(RayContext, AnglesPastPiCountAsPi) {
  for (float angle : {4.0f, -4.0f, 1e30f, kInf, 3.1415927f}) {
    RayContext ray = rayTowards({1, 2, -3}), pi = ray;
    ray.setXYDirsFromAngle(angle, angle);
    pi.setXYDirsFromAngle(3.1415927f, 3.1415927f);
    EXPECT_TRUE(sameBits(ray.xDirection, pi.xDirection)) << angle;
    EXPECT_TRUE(sameBits(ray.yDirection, pi.yDirection)) << angle;
  }
  RayContext ray = rayTowards({0, 0, 1});
  ray.setXYDirsFromAngle(4.0f, 4.0f);
  EXPECT_EQ(ray.xDirection, Vec3f(std::sin(3.1415927f), 0.0f, -1.0f));
}

TEST(RayContext, AZeroDirectionHasNoFrame) {
  RayContext ray = rayTowards({0, 0, 0});
  ray.setXYDirsFromAngle(0.5f, 0.5f);
  EXPECT_EQ(ray.xDirection, Vec3f(std::sin(0.5f), 0, std::cos(0.5f)));
}

// ---- Transforms

TEST(RayContext, TransformMovesPointsAndVectors) {
  RayContext ray({1, 2, 3}, {0, 1, 0}, 5, 6.0, 1, 0.5f, 9.0f);
  ray.xDirection = {7, 7, 7};
  Mat4d m;
  m.translate(10, 20, 30).rotateZ(kPi / 2).scale(2, 2, 2);
  ray.transform(m);
  EXPECT_NEAR(ray.origin.x, 10.0f - 4.0f, 1e-5f);
  EXPECT_NEAR(ray.origin.y, 20.0f + 2.0f, 1e-5f);
  EXPECT_NEAR(ray.origin.z, 30.0f + 6.0f, 1e-5f);
  EXPECT_NEAR(ray.direction.x, -2.0f, 1e-6f) << "not brought to unit length";
  EXPECT_LT(ray.invDir().x, 0.0f);
  EXPECT_TRUE(ray.isXSlopePositive());
  EXPECT_EQ(ray.minDistance, 0.5f);
  EXPECT_EQ(ray.maxDistance, 9.0f);
  EXPECT_EQ(ray.xDirection, Vec3f(7, 7, 7));
  EXPECT_EQ(ray.type, 5);
}

TEST(RayContext, TransformIsComputedInDouble) {
  // 16777217 is no float: in single precision the sum would lose the 1 and the result would be 0.
  RayContext ray({1, 0, 0}, {0, 0, 1}, 0, 0.0, 0, 0, 1);
  Mat4d m;
  m[0] = 16777217.0;
  m[12] = -16777216.0;
  ray.transform(m);
  EXPECT_EQ(ray.origin.x, 1.0f);
}

TEST(RayContext, TransformIgnoresTheLastRow) {
  RayContext ray({1, 0, 0}, {0, 0, 1}, 0, 0.0, 0, 0, 1);
  Mat4d m;
  m[3] = 5.0;
  m[15] = 7.0;
  ray.transform(m);
  EXPECT_EQ(ray.origin, Vec3f(1, 0, 0));
}

TEST(RayContext, HalfWayBetweenTwoPlacements) {
  RayContext ray({1, 2, 3}, {0, 1, 0}, 0, 0.0, 0, 0, 1);
  Mat4d m1;
  m1.translate(2, 0, 0);
  ray.transform(Mat4d(), m1, 0.5f);
  EXPECT_EQ(ray.origin, Vec3f(2, 2, 3));
  EXPECT_EQ(ray.direction, Vec3f(0, 1, 0));
}

TEST(RayContext, EndsOfTheMotionTakeOneImage) {
  Mat4d m0, m1;
  m0.translate(1, 0, 0).rotateX(0.3);
  m1.translate(0, 5, 0).rotateY(0.7);
  const RayContext start({1, 2, 3}, {0.1f, 0.2f, -0.9f}, 0, 0.0, 0, 0, 1);
  RayContext at0 = start, at1 = start;
  at0.transform(m0);
  at1.transform(m1);
  for (float t : {0.0f, -1.0f, 1e-7f, -kInf}) {
    RayContext ray = start;
    ray.transform(m0, m1, t);
    EXPECT_TRUE(sameBits(ray.origin, at0.origin) && sameBits(ray.direction, at0.direction)) << t;
  }
  for (float t : {1.0f, 0.99999995f, 2.0f, kInf}) {
    RayContext ray = start;
    ray.transform(m0, m1, t);
    EXPECT_TRUE(sameBits(ray.origin, at1.origin) && sameBits(ray.direction, at1.direction)) << t;
    EXPECT_TRUE(sameBits(ray.invDir(), at1.invDir()));
  }
}

TEST(RayContext, BlendsInSinglePrecision) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (int i = 0; i < 1000; ++i) {
    Mat4d m0, m1;
    for (std::size_t k = 0; k < 16; ++k) {
      m0[k] = static_cast<double>(u(random));
      m1[k] = static_cast<double>(u(random));
    }
    const RayContext start({u(random), u(random), u(random)}, {u(random), u(random), u(random)}, 0,
                           0.0, 0, 0, 1);
    RayContext at0 = start, at1 = start, ray = start;
    at0.transform(m0);
    at1.transform(m1);
    const float t = 0.001f + 0.998f * std::fabs(u(random));
    ray.transform(m0, m1, t);
    const float s = 1.0f - t;
    for (std::size_t k = 0; k < 3; ++k) {
      const float a = at0.origin[k] * s, b = at1.origin[k] * t;
      ASSERT_EQ(ray.origin[k], a + b);
      const float c = at0.direction[k] * s, d = at1.direction[k] * t;
      ASSERT_EQ(ray.direction[k], c + d);
    }
  }
}

}  // namespace
