#include "tarn/Frame.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using tarn::Frame3d;
using tarn::frameAbout;
using tarn::Vec3d;

void expectOrthonormal(const Frame3d& frame) {
  EXPECT_NEAR(frame.x.length(), 1, 1e-14);
  EXPECT_NEAR(frame.y.length(), 1, 1e-14);
  EXPECT_NEAR(dot(frame.x, frame.y), 0, 1e-14);
  EXPECT_NEAR(dot(frame.x, frame.z), 0, 1e-14);
  EXPECT_NEAR(dot(frame.y, frame.z), 0, 1e-14);
  EXPECT_NEAR((cross(frame.x, frame.y) - frame.z).length(), 0, 1e-14);
}

TEST(Frame, AboutAnyDirectionIsOrthonormalAndRightHanded) {
  std::mt19937 random(7);
  std::normal_distribution<double> normal;
  for (int i = 0; i < 1000; ++i) {
    const Vec3d z = Vec3d(normal(random), normal(random), normal(random)).normalized();
    expectOrthonormal(frameAbout(z));
    EXPECT_EQ(frameAbout(z).z, z);
  }
  for (const Vec3d& z : {Vec3d(1, 0, 0), Vec3d(-1, 0, 0), Vec3d(0, 1, 0), Vec3d(0, -1, 0),
                         Vec3d(0, 0, 1), Vec3d(0, 0, -1), Vec3d(0.6, 0.8, 0), Vec3d(-0.6, 0, 0.8)})
    expectOrthonormal(frameAbout(z));
}

TEST(Frame, LeansTowardsUp) {
  const Vec3d z = Vec3d(1, 2, 3).normalized();
  const Frame3d frame = frameAbout(z, Vec3d(0, 10, 0));
  expectOrthonormal(frame);
  EXPECT_GT(frame.y.y, 0);
  EXPECT_EQ(frame.x.y, 0);
}

TEST(Frame, UpAlongTheDirectionGivesNoFrame) {
  const Frame3d frame = frameAbout(Vec3d(0, 1, 0), Vec3d(0, 2, 0));
  EXPECT_EQ(frame.x, Vec3d());
  EXPECT_EQ(frame.y, Vec3d());
}

}  // namespace
