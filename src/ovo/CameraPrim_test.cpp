#include "ovo/CameraPrim.h"

#include <gtest/gtest.h>

#include "ovo/Stage.h"
#include "ovo/detail/TestScene.h"

namespace {

using ovo::CameraParameters;
using ovo::CameraPrim;

TEST(CameraPrim, FallbacksAreThoseOfTheRecord) {
  const auto stage = ovo::Stage::createInMemory();
  const CameraPrim camera = CameraPrim::define(stage, "/C");
  ASSERT_TRUE(camera.isValid());
  const CameraParameters p = camera.getParameters(), d;
  EXPECT_TRUE(p.perspective);
  EXPECT_EQ(p.focalLength, d.focalLength);
  EXPECT_NEAR(p.horizontalAperture, d.horizontalAperture, 1e-6);
  EXPECT_NEAR(p.verticalAperture, d.verticalAperture, 1e-6);
  EXPECT_EQ(p.horizontalApertureOffset, 0.0);
  EXPECT_EQ(p.clippingNear, 1.0);
  EXPECT_EQ(p.clippingFar, 1000000.0);
  EXPECT_EQ(p.fStop, 0.0);
  EXPECT_EQ(p.focusDistance, 0.0);
  EXPECT_TRUE(p.clippingPlanes.empty());
  EXPECT_FALSE(CameraPrim().isValid());
  EXPECT_EQ(CameraPrim().getParameters().focalLength, d.focalLength);
  EXPECT_FALSE(CameraPrim().setParameters(d));
  EXPECT_FALSE(CameraPrim::define(nullptr, "/C").isValid());
}

TEST(CameraPrim, FilmAndFocalLengthAreTenthsInTheFileAndUnitsHere) {
  const auto stage = ovo_test::sceneOf(R"(def Camera "C" {
    float focalLength.timeSamples = {1: 10, 3: 30}
    float horizontalAperture = 36
    float verticalApertureOffset = -5
    float2 clippingRange = (0.5, 70)
    float4[] clippingPlanes = [(1, 0, 0, 4)]
    float focusDistance = 12
    float fStop = 2.5
    double shutter:close = 0.5
    token projection = "orthographic" })");
  const CameraPrim camera(stage->getPrimAtPath("/C"));
  const CameraParameters p = camera.getParameters(2.0);
  EXPECT_FALSE(p.perspective);
  EXPECT_EQ(p.focalLength, 2.0);
  EXPECT_EQ(p.horizontalAperture, 3.6);
  EXPECT_EQ(p.verticalApertureOffset, -0.5);
  EXPECT_EQ(p.clippingNear, 0.5);
  EXPECT_EQ(p.clippingFar, 70.0);
  ASSERT_EQ(p.clippingPlanes.size(), 1u);
  EXPECT_EQ(p.focusDistance, 12.0);
  EXPECT_EQ(p.fStop, 2.5);
  EXPECT_EQ(p.shutterClose, 0.5);
  EXPECT_EQ(camera.getParameters().focalLength, 1.0) << "no time: the first sample";
}

TEST(CameraPrim, AnUnknownProjectionIsPerspective) {
  const auto stage = ovo_test::sceneOf("def Camera \"C\" { token projection = \"fisheye\" }");
  EXPECT_TRUE(CameraPrim(stage->getPrimAtPath("/C")).getParameters().perspective);
}

TEST(CameraPrim, ParametersComeBackAsTheyWereWritten) {
  const auto stage = ovo::Stage::createInMemory();
  const CameraPrim camera = CameraPrim::define(stage, "/C");
  CameraParameters p;
  p.perspective = false;
  p.focalLength = 3.5;
  p.horizontalAperture = 2.25;
  p.verticalAperture = 1.125;
  p.horizontalApertureOffset = 0.125;
  p.verticalApertureOffset = -0.25;
  p.clippingNear = 0.5;
  p.clippingFar = 64;
  p.fStop = 4;
  p.focusDistance = 7;
  p.shutterOpen = -0.25;
  p.shutterClose = 0.25;
  p.exposure = 1.5;
  p.clippingPlanes = {{0, 0, 1, 2}};
  ASSERT_TRUE(camera.setParameters(p));
  const CameraParameters q = camera.getParameters();
  EXPECT_EQ(q.perspective, p.perspective);
  for (const auto field :
       {&CameraParameters::focalLength, &CameraParameters::horizontalAperture,
        &CameraParameters::verticalAperture, &CameraParameters::horizontalApertureOffset,
        &CameraParameters::verticalApertureOffset, &CameraParameters::clippingNear,
        &CameraParameters::clippingFar, &CameraParameters::fStop, &CameraParameters::focusDistance,
        &CameraParameters::shutterOpen, &CameraParameters::shutterClose,
        &CameraParameters::exposure})
    EXPECT_EQ(q.*field, p.*field);
  EXPECT_EQ(q.clippingPlanes, p.clippingPlanes);
}

}  // namespace
