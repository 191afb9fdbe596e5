#include "vela/camera/MultiProjectionCamera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

#include "support/VirtualSlots.h"

using tarn::Mat4d;
using tarn::Vec2d;
using vela::LensProjection;
using vela::MultiProjectionCamera;

namespace {

TEST(MultiProjectionCamera, HasItsDefaults) {
  const MultiProjectionCamera camera;
  EXPECT_EQ(camera.horizontalAperture(), 24.576);
  EXPECT_EQ(camera.verticalAperture(), 18.672);
  EXPECT_EQ(camera.windowTranslate(), Vec2d(0, 0));
  EXPECT_EQ(camera.windowRotateZ(), 0.0);
  EXPECT_EQ(camera.windowScale(), Vec2d(1, 1));
  EXPECT_EQ(camera.sensorProperties().sceneToCameraFactor, 1.0);
  EXPECT_EQ(camera.sensorProperties().sensorISO, 100.0);
  EXPECT_EQ(camera.sensorProperties().sensorExposureBias, 0.0);
  EXPECT_EQ(camera.mountProperties().offset, Vec2d(0, 0));
  EXPECT_EQ(camera.fStop(), 16.0);
  EXPECT_EQ(camera.nearPlaneDistance(), 2.220446049250313e-16);
  EXPECT_EQ(camera.farPlaneDistance(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(camera.focalLength(), 50.0);
  EXPECT_EQ(camera.focusDistance(), 2.0);
  EXPECT_EQ(camera.opticsProperties().opticalAttenuation, 0.0);
  EXPECT_EQ(camera.opticsProperties().opticalWidthSqueeze, 1.0);
  EXPECT_EQ(camera.distortA(), 0.0);
  EXPECT_EQ(camera.distortB(), 0.0);
  EXPECT_EQ(camera.distortC(), 0.0);
  EXPECT_EQ(camera.projectionFunc(), nullptr);
}

TEST(MultiProjectionCamera, DerivedValuesWaitForValidation) {
  MultiProjectionCamera camera;
  EXPECT_EQ(camera.properties().lensMagnification(), 1.0f);
  EXPECT_EQ(camera.properties().lensPupilRadius(), 0.0f);
  EXPECT_EQ(camera.projectionMatrix(), Mat4d());
  vela::LinearProjection lens;
  camera.setProjectionFunc(&lens);
  camera.setFocalLength(35.0);
  EXPECT_EQ(camera.properties().lensMagnification(), 1.0f);
  camera.validateCamera();
  EXPECT_EQ(camera.properties().lensMagnification(), static_cast<float>(24.576 / 35.0));
  EXPECT_EQ(camera.properties().lensPupilRadius(), static_cast<float>(35.0 / 16.0 * 0.5));
}

TEST(MultiProjectionCamera, EachSetterWritesOneField) {
  MultiProjectionCamera c;
  c.setHorizontalAperture(1);
  c.setVerticalAperture(2);
  c.setWindowTranslate(3, 4);
  c.setWindowRotateZ(5);
  c.setWindowScale(6, 7);
  c.setfStop(8);
  c.setNearPlaneDistance(9);
  c.setFarPlaneDistance(10);
  c.setFocalLength(11);
  c.setFocusDistance(12);
  c.setDistortA(13);
  c.setDistortB(14);
  c.setDistortC(15);
  EXPECT_EQ(c.properties().sensor.apertureSize, Vec2d(1, 2));
  EXPECT_EQ(c.properties().sensor.apertureTranslate, Vec2d(3, 4));
  EXPECT_EQ(c.properties().sensor.apertureRotate, 5.0);
  EXPECT_EQ(c.properties().sensor.apertureScale, Vec2d(6, 7));
  EXPECT_EQ(c.properties().lensAp.fStop, 8.0);
  EXPECT_EQ(c.properties().lensAp.clipNearDistance, 9.0);
  EXPECT_EQ(c.properties().lensAp.clipFarDistance, 10.0);
  EXPECT_EQ(c.properties().optics.focalLength, 11.0);
  EXPECT_EQ(c.properties().optics.focusDistance, 12.0);
  EXPECT_EQ(c.properties().optics.opticalDistortionA, 13.0);
  EXPECT_EQ(c.properties().optics.opticalDistortionB, 14.0);
  EXPECT_EQ(c.properties().optics.opticalDistortionC, 15.0);
  EXPECT_EQ(c.horizontalAperture(), 1.0);
  EXPECT_EQ(c.verticalAperture(), 2.0);
  EXPECT_EQ(c.windowTranslate(), Vec2d(3, 4));
  EXPECT_EQ(c.windowRotateZ(), 5.0);
  EXPECT_EQ(c.windowScale(), Vec2d(6, 7));
  EXPECT_EQ(c.fStop(), 8.0);
  EXPECT_EQ(c.nearPlaneDistance(), 9.0);
  EXPECT_EQ(c.farPlaneDistance(), 10.0);
  EXPECT_EQ(c.focalLength(), 11.0);
  EXPECT_EQ(c.focusDistance(), 12.0);
  EXPECT_EQ(c.distortA(), 13.0);
  EXPECT_EQ(c.distortB(), 14.0);
  EXPECT_EQ(c.distortC(), 15.0);
}

TEST(MultiProjectionCamera, GroupsAreReferencesIntoTheSample) {
  const MultiProjectionCamera c;
  EXPECT_EQ(&c.sensorProperties(), &c.properties().sensor);
  EXPECT_EQ(&c.mountProperties(), &c.properties().mount);
  EXPECT_EQ(&c.lensApertureProperties(), &c.properties().lensAp);
  EXPECT_EQ(&c.opticsProperties(), &c.properties().optics);
  EXPECT_EQ(&c.projectionMatrix(), &c.properties().proj);
  EXPECT_EQ(&c.windowTranslate(), &c.properties().sensor.apertureTranslate);
}

TEST(MultiProjectionCamera, FieldOfViewSetsTheAperture) {
  MultiProjectionCamera camera;
  camera.setHorizontalFov(90.0);
  EXPECT_NEAR(camera.horizontalAperture(), 100.0, 1e-12);
  EXPECT_EQ(camera.horizontalAperture(), 2.0 * 50.0 * std::tan(90.0 * 0.5 * 0.017453292519943295));
  camera.setFocalLength(25.0);
  EXPECT_NEAR(camera.horizontalAperture(), 100.0, 1e-12) << "the angle is not kept";
  camera.setHorizontalFov(90.0);
  EXPECT_NEAR(camera.horizontalAperture(), 50.0, 1e-12);
}

TEST(MultiProjectionCamera, ForwardsToTheLens) {
  MultiProjectionCamera camera;
  vela::LinearProjection perspective(false), orthographic(true);
  vela::WarpedLinearProjection warped(true);
  vela::SphericalProjection spherical;
  camera.setProjectionFunc(&perspective);
  EXPECT_EQ(camera.projectionMode(), LensProjection::perspective);
  EXPECT_STREQ(camera.projectionIdentifier(), "Perspective");
  EXPECT_TRUE(camera.isBaseProjectionLinear());
  camera.setProjectionFunc(&orthographic);
  EXPECT_EQ(camera.projectionMode(), LensProjection::orthographic);
  camera.setProjectionFunc(&warped);
  EXPECT_EQ(camera.projectionMode(), LensProjection::orthographic);
  EXPECT_STREQ(camera.projectionIdentifier(), "WarpedLinear");
  EXPECT_FALSE(camera.isBaseProjectionLinear());
  camera.setProjectionFunc(&spherical);
  EXPECT_EQ(camera.projectionMode(), LensProjection::spherical);
  EXPECT_EQ(camera.projectionFunc(), &spherical);
}

TEST(MultiProjectionCamera, DistortionDoesNotAskTheLens) {
  MultiProjectionCamera camera;
  EXPECT_FALSE(camera.isDistorted());
  camera.setDistortC(1e-9);
  EXPECT_TRUE(camera.isDistorted());
  camera.setDistortC(0.0);
  camera.setDistortB(std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(camera.isDistorted());
  camera.setDistortB(-0.0);
  EXPECT_FALSE(camera.isDistorted());
}

// Notes whether it was validated before it was asked for its matrix.
class NotingLens : public vela::LinearProjection {
 public:
  mutable std::string notes;
  Mat4d projectionMatrix(const vela::Camera::Sample& sample) const override {
    notes += "m";
    return LinearProjection::projectionMatrix(sample);
  }

 protected:
  void _validateProjection() override { notes += "v"; }
};

TEST(MultiProjectionCamera, ValidationAsksTheLensThenDerives) {
  MultiProjectionCamera camera;
  NotingLens lens;
  camera.setProjectionFunc(&lens);
  camera.validateCamera();
  EXPECT_EQ(lens.notes, "vm");
  EXPECT_EQ(camera.projectionMatrix(),
            vela::LinearProjection().projectionMatrix(camera.properties()));
}

TEST(MultiProjectionCamera, CopiesShareTheLens) {
  auto lens = std::make_unique<vela::SphericalProjection>();
  MultiProjectionCamera kept;
  {
    MultiProjectionCamera camera;
    camera.setProjectionFunc(lens.get());
    camera.setFocalLength(17.0);
    MultiProjectionCamera copy(camera), moved(std::move(camera));
    kept = copy;
    EXPECT_EQ(moved.projectionFunc(), lens.get());
    EXPECT_EQ(moved.focalLength(), 17.0);
  }
  EXPECT_EQ(kept.projectionFunc(), lens.get());
  EXPECT_EQ(kept.focalLength(), 17.0);
  EXPECT_STREQ(kept.projectionIdentifier(), "Spherical")
      << "the lens outlived the cameras that referred to it";
}

TEST(MultiProjectionCamera, WithoutALensItAnswersForNone) {
  MultiProjectionCamera camera;
  EXPECT_EQ(camera.projectionMode(), LensProjection::none);
  EXPECT_STREQ(camera.projectionIdentifier(), "");
  EXPECT_FALSE(camera.isBaseProjectionLinear());
  camera.validateCamera();
  vela::Camera::Sample expected = MultiProjectionCamera().properties();
  expected.updateDerivedValues(nullptr);
  EXPECT_EQ(camera.projectionMatrix(), expected.proj);
}

TEST(MultiProjectionCamera, InfiniteFarPlaneStaysFinite) {
  MultiProjectionCamera camera;
  vela::LinearProjection lens;
  camera.setProjectionFunc(&lens);
  camera.validateCamera();
  for (std::size_t i = 0; i < 16; ++i) EXPECT_TRUE(std::isfinite(camera.projectionMatrix()[i]));
}

#if defined(__GNUC__) && defined(__x86_64__)
using vela_test::slotOf;

TEST(MultiProjectionCamera, VirtualFunctionsStandInOrder) {
  struct Probe : MultiProjectionCamera {
    static auto validatePointer() { return &Probe::_validateCamera; }
  };
  EXPECT_EQ(slotOf(&MultiProjectionCamera::drawAxis), 2u);
  EXPECT_EQ(slotOf(&MultiProjectionCamera::drawCamera), 3u);
  EXPECT_EQ(slotOf(Probe::validatePointer()), 4u);
  EXPECT_EQ(slotOf(&MultiProjectionCamera::projectionMode), 5u);
  EXPECT_EQ(slotOf(&MultiProjectionCamera::projectionIdentifier), 6u);
  EXPECT_EQ(slotOf(&MultiProjectionCamera::isBaseProjectionLinear), 7u);
  EXPECT_EQ(slotOf(&MultiProjectionCamera::isDistorted), 8u);
}
#endif

}  // namespace
