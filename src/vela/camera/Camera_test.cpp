#include "vela/camera/Camera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <iomanip>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>

#include "support/VirtualSlots.h"
#include "vela/camera/LensProjection.h"

using tarn::Mat4d;
using tarn::Vec2d;
using tarn::Vec3d;
using tarn::Vec4d;
using vela::Axis;
using vela::Camera;

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

template <class T>
std::string text(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

Vec3d projected(const Mat4d& m, const Vec3d& p) {
  const Vec4d r = m.transform(Vec4d(p.x, p.y, p.z, 1.0)).wNormalized();
  return {r.x, r.y, r.z};
}

void expectNear(const Mat4d& a, const Mat4d& b, double tolerance) {
  for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "element " << i;
}

Camera::Sample windowed() {
  Camera::Sample s;
  s.sensor.apertureSize = {24.0, 18.0};
  s.sensor.apertureTranslate = {0.25, -0.5};
  s.sensor.apertureScale = {2.0, 4.0};
  s.sensor.apertureRotate = 30.0;
  s.lensAp.clipNearDistance = 0.5;
  s.lensAp.clipFarDistance = 100.0;
  s.optics.focalLength = 36.0;
  return s;
}

// ---- Records

TEST(CameraSample, HasItsDefaults) {
  const Camera::Sample s;
  EXPECT_EQ(s.sensor.apertureSize, Vec2d(1, 1));
  EXPECT_EQ(s.sensor.apertureTranslate, Vec2d(0, 0));
  EXPECT_EQ(s.sensor.apertureRotate, 0.0);
  EXPECT_EQ(s.sensor.apertureScale, Vec2d(1, 1));
  EXPECT_EQ(s.sensor.sceneToCameraFactor, 0.001);
  EXPECT_EQ(s.sensor.sensorISO, 100.0);
  EXPECT_EQ(s.sensor.sensorExposureBias, 0.0);
  EXPECT_EQ(s.mount.offset, Vec2d(0, 0));
  EXPECT_EQ(s.lensAp.fStop, 0.0);
  EXPECT_EQ(s.lensAp.clipNearDistance, 0.001);
  EXPECT_EQ(s.optics.focalLength, 1.0);
  EXPECT_EQ(s.optics.focusDistance, 1.0);
  EXPECT_EQ(s.optics.opticalAttenuation, 0.0);
  EXPECT_EQ(s.optics.opticalWidthSqueeze, 1.0);
  EXPECT_EQ(s.optics.opticalDistortionA, 0.0);
  EXPECT_EQ(s.optics.opticalDistortionB, 0.0);
  EXPECT_EQ(s.optics.opticalDistortionC, 0.0);
  EXPECT_EQ(s.lensMagnification(), 1.0f);
  EXPECT_EQ(s.lensPupilRadius(), 0.0f);
  EXPECT_FALSE(s.distortionEnabled());
  EXPECT_EQ(s.ndcTransform(), Mat4d());
  EXPECT_TRUE(s.ndcTransformIsIdentity());
  EXPECT_EQ(s.projectionMatrix(), Mat4d());
  EXPECT_EQ(s.worldToNdc(), Mat4d());
}

// KEEP(far-plane-one): 1 and nothing larger.
TEST(CameraSample, FarDistanceIsOneByDefault) {
  EXPECT_EQ(Camera::Sample().lensAp.clipFarDistance, 1.0);
}

TEST(CameraSample, AccessorsReadTheStoredFields) {
  Camera::Sample s;
  EXPECT_EQ(&s.ndcTransform(), &s.ndc);
  EXPECT_EQ(&s.projectionMatrix(), &s.proj);
  s.ndcIsIdentity = false;
  EXPECT_FALSE(s.ndcTransformIsIdentity());
  static_assert(std::is_same_v<decltype(s.lensMagnification()), float>);
  static_assert(std::is_same_v<decltype(s.lensPupilRadius()), float>);
}

TEST(CameraSample, AssignmentCopiesEveryField) {
  static_assert(std::is_trivially_copyable_v<Camera::Sample>);
  Camera::Sample a = windowed();
  a.time = 7.0;
  a.xform.l2w.translate(1, 2, 3);
  a.mount.offset = {4, 5};
  a.optics.opticalDistortionB = 0.5;
  a.lensAp.fStop = 4.0;
  a.updateDerivedValues(nullptr);
  Camera::Sample b;
  b = a;
  EXPECT_EQ(text(b), text(a));
  EXPECT_EQ(b.worldToNdc(), a.worldToNdc());
  EXPECT_EQ(b.ndcIsIdentity, a.ndcIsIdentity);
}

// ---- Matrices

TEST(CameraMatrices, NdcTransformRotatesThenScalesThenTranslates) {
  const Camera::Sample s = windowed();
  const Mat4d m = Camera::BuildNDCTransform(s, false);
  // (1, 0) turned by -30 degrees, scaled by (2, 4), moved by (0.25, -0.5).
  const Vec3d p = m.transformPoint(Vec3d(1, 0, 0));
  EXPECT_NEAR(p.x, 2.0 * std::cos(kPi / 6) + 0.25, 1e-15);
  EXPECT_NEAR(p.y, -4.0 * std::sin(kPi / 6) - 0.5, 1e-15);
  EXPECT_EQ(p.z, 0.0);
}

TEST(CameraMatrices, NdcInverseUndoesIt) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> u(0.1, 3.0);
  for (int i = 0; i < 200; ++i) {
    Camera::Sample s;
    s.sensor.apertureTranslate = {u(random) - 1.5, u(random) - 1.5};
    s.sensor.apertureScale = {u(random), -u(random)};
    s.sensor.apertureRotate = u(random) * 100.0;
    expectNear(Camera::BuildNDCTransform(s, true) * Camera::BuildNDCTransform(s, false), Mat4d(),
               1e-12);
  }
}

TEST(CameraMatrices, NdcTransformIsBitForBitTheSequenceOfCalls) {
  const Camera::Sample s = windowed();
  Mat4d forward;
  forward.translate(0.25, -0.5, 0);
  forward.scale(2, 4, 1);
  forward.rotateZ(-30.0 * 0.017453292519943295);
  EXPECT_EQ(Camera::BuildNDCTransform(s, false), forward);
  Mat4d inverse;
  inverse.rotateZ(30.0 * 0.017453292519943295);
  inverse.scale(0.5, 0.25, 1);
  inverse.translate(-0.25, 0.5, 0);
  EXPECT_EQ(Camera::BuildNDCTransform(s, true), inverse);
}

TEST(CameraMatrices, LinearProjectionTakesFocalLengthOverWidth) {
  const Camera::Sample s = windowed();
  for (bool perspective : {true, false}) {
    Mat4d expected;
    expected.setToProjection(36.0 / 24.0, 0.5, 100.0, perspective);
    EXPECT_EQ(Camera::BuildLinearProjection(s, false, perspective), expected);
    EXPECT_EQ(Camera::BuildLinearProjection(s, true, perspective),
              Camera::BuildNDCTransform(s, true) * expected);
  }
}

TEST(CameraMatrices, ProjectionFromNumbersIsTheOneOfASample) {
  const Camera::Sample s = windowed();
  for (bool perspective : {true, false})
    EXPECT_EQ(vela::BuildProjectionMatrix(36.0 / 24.0, 0.5, 100.0, {0.25, -0.5}, {2.0, 4.0}, 30.0,
                                          perspective),
              Camera::BuildLinearProjection(s, true, perspective));
}

TEST(CameraMatrices, ProjectionSpansTheClippingRange) {
  Camera::Sample s = windowed();
  for (bool perspective : {true, false}) {
    const Mat4d p = Camera::BuildLinearProjection(s, false, perspective);
    EXPECT_NEAR(projected(p, {0, 0, -0.5}).z, -1.0, 1e-12);
    EXPECT_NEAR(projected(p, {0, 0, -100}).z, 1.0, 1e-12);
  }
  // The right edge of a 24 wide window at 36 is a third of the distance off the axis.
  EXPECT_NEAR(projected(Camera::BuildLinearProjection(s, false, true), {10.0 / 3.0, 0, -10}).x, 1.0,
              1e-12);
  s.lensAp.clipFarDistance = kInf;
  for (double v : {projected(Camera::BuildLinearProjection(s, false, true), {0, 0, -1e300}).z})
    EXPECT_NEAR(v, 1.0, 1e-12);
}

// ---- Derived values

TEST(CameraDerived, DefaultSampleHasAnInfinitePupilAndUnitMagnification) {
  Camera::Sample s;
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.lensPupilRadius(), std::numeric_limits<float>::infinity());
  EXPECT_EQ(s.lensMagnification(), 1.0f);
  EXPECT_FALSE(s.distortionEnabled());
  EXPECT_TRUE(s.ndcTransformIsIdentity());
}

TEST(CameraDerived, MagnificationIsWidthOverFocalLength) {
  Camera::Sample s;
  s.sensor.apertureSize = {24.576, 18.672};
  s.optics.focalLength = 50.0;
  s.lensAp.fStop = 16.0;
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.lensMagnification(), static_cast<float>(24.576 / 50.0));
  EXPECT_EQ(s.lensPupilRadius(), static_cast<float>(50.0 / 16.0 * 0.5));
}

TEST(CameraDerived, AnyDistortionCoefficientCounts) {
  for (int which = 0; which < 3; ++which)
    for (double v : {1e-9, -1e-300, kNan}) {
      Camera::Sample s;
      (which == 0   ? s.optics.opticalDistortionA
       : which == 1 ? s.optics.opticalDistortionB
                    : s.optics.opticalDistortionC) = v;
      s.updateDerivedValues(nullptr);
      EXPECT_TRUE(s.distortionEnabled()) << which << ' ' << v;
    }
  Camera::Sample s;
  s.optics.opticalDistortionC = 1e-9;
  s.updateDerivedValues(nullptr);
  s.optics.opticalDistortionC = -0.0;
  s.updateDerivedValues(nullptr);
  EXPECT_FALSE(s.distortionEnabled());
}

TEST(CameraDerived, ARightAngleTurnsTheWindowClockwise) {
  Camera::Sample s;
  s.sensor.apertureRotate = 90.0;
  s.updateDerivedValues(nullptr);
  EXPECT_FALSE(s.ndcTransformIsIdentity());
  const Vec3d p = s.ndc.transformPoint(Vec3d(1, 0, 0));
  EXPECT_NEAR(p.x, 0.0, 1e-15);
  EXPECT_EQ(p.y, -1.0);
}

TEST(CameraDerived, WindowAtRestIsTheIdentity) {
  Camera::Sample s;
  s.sensor.apertureTranslate = {-0.0, 0.0};
  s.ndcIsIdentity = false;
  s.updateDerivedValues(nullptr);
  EXPECT_TRUE(s.ndcIsIdentity);
  s.sensor.apertureTranslate = {1e-300, 0.0};
  s.updateDerivedValues(nullptr);
  EXPECT_FALSE(s.ndcIsIdentity);
}

TEST(CameraDerived, NdcIsTheNdcTransform) {
  Camera::Sample s = windowed();
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.ndc, Camera::BuildNDCTransform(s, false));
}

TEST(CameraDerived, WorldToLocalIsTheInverse) {
  Camera::Sample s = windowed();
  s.xform.l2w.translate(1, 2, 3).rotateY(0.5).scale(2, 2, 2);
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.xform.w2l, s.xform.l2w.inverse());
  expectNear(s.xform.w2l * s.xform.l2w, Mat4d(), 1e-14);
  EXPECT_EQ(s.worldToNdc(), s.proj * s.xform.w2l);
}

TEST(CameraDerived, ASingularPlacementSeesNothing) {
  Camera::Sample s;
  s.xform.l2w.scale(1, 1, 0);
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.xform.w2l, Mat4d(0.0));
}

TEST(CameraDerived, TheLensGivesTheProjection) {
  Camera::Sample s = windowed();
  const vela::LinearProjection perspective(false), orthographic(true);
  s.updateDerivedValues(&perspective);
  EXPECT_EQ(s.proj, Camera::BuildLinearProjection(s, true, true));
  s.updateDerivedValues(&orthographic);
  EXPECT_EQ(s.proj, Camera::BuildLinearProjection(s, true, false));
}

// KEEP(null-lens-magnification): without a lens the magnification itself is taken for focal length
// over width.
TEST(CameraDerived, WithoutALensTheMagnificationIsTakenAsItIs) {
  Camera::Sample s = windowed();
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.proj,
            vela::BuildProjectionMatrix(static_cast<double>(static_cast<float>(24.0 / 36.0)), 0.5,
                                        100.0, {0.25, -0.5}, {2.0, 4.0}, 30.0, true));
  const vela::LinearProjection lens(false);
  const Mat4d without = s.proj;
  s.updateDerivedValues(&lens);
  EXPECT_NE(s.proj, without);
}

TEST(CameraDerived, ZeroAndNotANumberAreTakenAsTheyCome) {
  Camera::Sample s;
  s.optics.focalLength = 0.0;
  s.sensor.apertureScale = {0.0, kNan};
  s.lensAp.clipNearDistance = s.lensAp.clipFarDistance = kNan;
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.lensMagnification(), std::numeric_limits<float>::infinity());
  EXPECT_FALSE(s.ndcIsIdentity);
  s.sensor.apertureSize.x = 1e300;
  s.optics.focalLength = 1e-300;
  s.updateDerivedValues(nullptr);
  EXPECT_EQ(s.lensMagnification(), std::numeric_limits<float>::infinity());
}

// ---- Text

TEST(CameraText, TransformsPrintFourMatrices) {
  vela::XformParameters x;
  x.l2w.translate(1.5, 2, 3);
  EXPECT_EQ(
      text(x),
      "xform{ parent[[1 0 0 0][0 1 0 0][0 0 1 0][0 0 0 1]], local[[1 0 0 0][0 1 0 0][0 0 1 0][0 0 "
      "0 1]], "
      "l2w[[1 0 0 1.5][0 1 0 2][0 0 1 3][0 0 0 1]], w2l[[1 0 0 0][0 1 0 0][0 0 1 0][0 0 0 1]] }");
}

TEST(CameraText, SensorVectorsHaveTwoPairsOfBrackets) {
  EXPECT_EQ(text(vela::CameraSensorParameters()),
            "sensor{ apertureSize[[1 1]], apertureTranslate[[0 0]], apertureRotate[0], "
            "apertureScale[[1 1]], "
            "sceneToCameraFactor[0.001], sensorISO[100], sensorExposureBias[0] }");
}

// KEEP(mount-comma): this vector has a comma and one pair of brackets.
TEST(CameraText, MountOffsetHasAComma) {
  vela::CameraMountParameters mount;
  mount.offset = {1.25, -3};
  EXPECT_EQ(text(mount), "mount{ offset[1.25, -3] }");
}

TEST(CameraText, LensApertureAndOptics) {
  EXPECT_EQ(text(vela::CameraLensApertureParameters()),
            "lensAp{ fStop[0], clipNearDistance[0.001], clipFarDistance[1] }");
  EXPECT_EQ(
      text(vela::CameraOpticsParameters()),
      "optics{ focalLength[1], focusDistance[1], opticalAttenuation[0], opticalWidthSqueeze[1], "
      "opticalDistortionA[0], opticalDistortionB[0], opticalDistortionC[0] }");
}

const char* const kIdentity = "[[1 0 0 0][0 1 0 0][0 0 1 0][0 0 0 1]]";

std::string expectedDefault(const std::string& indent) {
  const std::string i = kIdentity;
  return indent + "{ time[0]\n" +  //
         indent + "  xform{ parent" + i + ", local" + i + ", l2w" + i + ", w2l" + i + " }\n" +
         indent +
         "  sensor{ apertureSize[[1 1]], apertureTranslate[[0 0]], apertureRotate[0], "
         "apertureScale[[1 1]], "
         "sceneToCameraFactor[0.001], sensorISO[100], sensorExposureBias[0] }\n" +
         indent + "  mount{ offset[0, 0] }\n" + indent +
         "  lensAp{ fStop[0], clipNearDistance[0.001], clipFarDistance[1] }\n" + indent +
         "  optics{ focalLength[1], focusDistance[1], opticalAttenuation[0], "
         "opticalWidthSqueeze[1], "
         "opticalDistortionA[0], opticalDistortionB[0], opticalDistortionC[0] }\n" +
         indent + "  derived{ ndc" + i + ", proj" + i +
         ", lensMagnification[1], lensPupilRadius[0], distortionEnabled[0] }\n" + indent + "}\n";
}

TEST(CameraText, ADefaultSampleTakesEightLines) {
  EXPECT_EQ(text(Camera::Sample()), expectedDefault(""));
}

TEST(CameraText, EveryLineIsIndentedTheLastOneToo) {
  std::ostringstream os;
  Camera::Sample().printValues(os, "\t> ");
  EXPECT_EQ(os.str(), expectedDefault("\t> "));
}

TEST(CameraText, EveryLineIsFlushed) {
  struct CountingBuffer : std::stringbuf {
    int flushes = 0;
    int sync() override {
      ++flushes;
      return 0;
    }
  } buffer;
  std::ostream os(&buffer);
  Camera::Sample().printValues(os, "");
  EXPECT_EQ(buffer.flushes, 8);
}

TEST(CameraText, FlagIsADigitWhateverTheStreamSays) {
  Camera::Sample s;
  s.optics.opticalDistortionA = 2.0;
  s.updateDerivedValues(nullptr);
  std::ostringstream os;
  os << std::boolalpha << s;
  EXPECT_NE(os.str().find("lensPupilRadius[inf], distortionEnabled[1] }\n"), std::string::npos)
      << os.str();
}

TEST(CameraText, NumbersHaveTheStreamsFormat) {
  Camera::Sample s;
  s.time = 1.0 / 3.0;
  std::ostringstream os;
  os << std::setprecision(3) << s;
  EXPECT_EQ(os.str().substr(0, 14), "{ time[0.333]\n");
}

// ---- Virtual functions

struct ProbedCamera : Camera {
  int validated = 0;
  static auto validatePointer() { return &ProbedCamera::_validateCamera; }

 protected:
  void _validateCamera() override { ++validated; }
};

TEST(CameraClasses, ValidationRunsTheOverride) {
  ProbedCamera camera;
  camera.validateCamera();
  EXPECT_EQ(camera.validated, 1);
}

TEST(CameraClasses, DrawingAndValidatingDoNothingByThemselves) {
  static_assert(sizeof(Axis) == sizeof(void*) && sizeof(Camera) == sizeof(void*),
                "no data of their own");
  static_assert(std::has_virtual_destructor_v<Axis> && std::is_base_of_v<Axis, Camera>);
  Camera camera;
  camera.drawAxis();
  camera.drawCamera();
  camera.validateCamera();
}

#if defined(__GNUC__) && defined(__x86_64__)
using vela_test::slotOf;

TEST(CameraClasses, VirtualFunctionsStandInOrder) {
  // The destructor takes two slots.
  EXPECT_EQ(slotOf(&Axis::drawAxis), 2u);
  EXPECT_EQ(slotOf(&Camera::drawAxis), 2u);
  EXPECT_EQ(slotOf(&Camera::drawCamera), 3u);
  EXPECT_EQ(slotOf(ProbedCamera::validatePointer()), 4u);
}
#endif

}  // namespace
