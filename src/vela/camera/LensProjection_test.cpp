#include "vela/camera/LensProjection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "support/VirtualSlots.h"

using tarn::Mat4d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using tarn::Vec4d;
using vela::Camera;
using vela::CreateProjectionFunc;
using vela::LensProjection;
using vela::LensProjectionFunction;
using vela::ProjectCoord;
using vela::ProjectionImageContext;
using vela::RayContext;

namespace {

constexpr double kPi = 3.141592653589793;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

using Lens = std::unique_ptr<LensProjectionFunction>;

Lens lensOf(int i) { return Lens(CreateProjectionFunc(static_cast<LensProjection>(i))); }

Camera::Sample sampleOf(double width, double focalLength) {
  Camera::Sample s;
  s.sensor.apertureSize = {width, width};
  s.optics.focalLength = focalLength;
  s.lensAp.clipNearDistance = 0.1;
  s.lensAp.clipFarDistance = 1e10;
  const vela::LinearProjection lens;
  s.updateDerivedValues(&lens);
  return s;
}

ProjectCoord coordAt(float x, float y, float dx = 0.0f, float dy = 0.0f) {
  ProjectCoord c;
  c.x = x;
  c.y = y;
  c.dx = dx;
  c.dy = dy;
  return c;
}

RayContext rayOf(const LensProjectionFunction& lens, const Camera::Sample& sample,
                 const ProjectCoord& coord, const ProjectionImageContext& image = {}) {
  RayContext ray;
  lens.generateRayGeometry(1, &coord, &sample, image, &ray);
  return ray;
}

bool sameBits(const Vec3f& a, const Vec3f& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Bit for bit, NaN and all.
bool sameRays(const std::vector<RayContext>& a, const std::vector<RayContext>& b) {
  return a.size() == b.size() &&
         std::memcmp(static_cast<const void*>(a.data()), static_cast<const void*>(b.data()),
                     a.size() * sizeof(RayContext)) == 0;
}

// Records whose every byte, padding included, is known.
std::vector<RayContext> blankRays(std::size_t n) {
  std::vector<RayContext> rays(n);
  std::memset(static_cast<void*>(rays.data()), 0x5A, n * sizeof(RayContext));
  return rays;
}

struct Scene {
  Camera::Sample sample;
  ProjectionImageContext image;
  ProjectCoord coord;
};

Scene randomScene(std::mt19937& random, bool withWindow) {
  std::uniform_real_distribution<double> u(0.0, 1.0);
  Scene s;
  s.sample.sensor.apertureSize = {10.0 + 30.0 * u(random), 18.0};
  s.sample.optics.focalLength = 10.0 + 60.0 * u(random);
  s.sample.lensAp.clipNearDistance = 0.01 + u(random);
  s.sample.lensAp.clipFarDistance = 10.0 + 1000.0 * u(random);
  if (withWindow) {
    s.sample.sensor.apertureTranslate = {u(random) - 0.5, u(random) - 0.5};
    s.sample.sensor.apertureScale = {0.5 + u(random), 0.5 + u(random)};
    s.sample.sensor.apertureRotate = 360.0 * u(random);
  }
  s.image.aspect = static_cast<float>(0.3 + u(random));
  s.coord =
      coordAt(static_cast<float>(2.4 * u(random) - 1.2), static_cast<float>(2.4 * u(random) - 1.2),
              static_cast<float>(0.01 * u(random)), static_cast<float>(0.01 * u(random)));
  const vela::LinearProjection lens;
  s.sample.updateDerivedValues(&lens);
  return s;
}

// ---- Names and kinds

TEST(LensProjection, FactoryAndNamesFollowTheEnumeration) {
  const char* const names[4] = {"Perspective", "Orthographic", "Spherical", "Cylindrical"};
  ASSERT_EQ(vela::LensProjectionClassNameList().size(), 4u);
  for (int i = 0; i < 4; ++i) {
    const Lens lens = lensOf(i);
    ASSERT_NE(lens, nullptr);
    EXPECT_EQ(static_cast<int>(lens->lensProjectionMode()), i);
    EXPECT_STREQ(lens->identifier(), names[i]);
    EXPECT_EQ(lens->isLinear(), i < 2);
    EXPECT_EQ(lens->canBeExtendedHorizontally(), i < 2);
    EXPECT_EQ(lens->canBeExtendedVertically(), i < 2);
    EXPECT_EQ(vela::LensProjectionClassName(static_cast<LensProjection>(i)), names[i]);
    EXPECT_EQ(vela::LensProjectionClassNameList()[static_cast<std::size_t>(i)], names[i]);
  }
  EXPECT_EQ(&vela::LensProjectionClassNameList(), &vela::LensProjectionClassNameList());
  static_assert(LensProjection::perspective == 0 && LensProjection::orthographic == 1 &&
                LensProjection::spherical == 2 && LensProjection::cylindrical == 3 &&
                LensProjection::none == 4);
}

TEST(LensProjection, OtherValuesHaveNoLensAndNoName) {
  for (int i : {4, 5, 7, 1000, -1, std::numeric_limits<int>::min()}) {
    EXPECT_EQ(lensOf(i), nullptr) << i;
    EXPECT_EQ(vela::LensProjectionClassName(static_cast<LensProjection>(i)), "") << i;
  }
  EXPECT_EQ(&vela::LensProjectionClassName(static_cast<LensProjection>(4)),
            &vela::LensProjectionClassName(static_cast<LensProjection>(7)));
}

TEST(LensProjection, NoLensIsAStandIn) {
  for (int i = 0; i < 4; ++i) EXPECT_EQ(lensOf(i)->asLensProjectionFunction(), nullptr);
  EXPECT_EQ(vela::WarpedLinearProjection(false).asLensProjectionFunction(), nullptr);
}

TEST(LensProjection, WarpedLensReportsTheModeOfItsBase) {
  const vela::WarpedLinearProjection perspective(false), orthographic(true);
  EXPECT_STREQ(perspective.identifier(), "WarpedLinear");
  EXPECT_STREQ(orthographic.identifier(), "WarpedLinear");
  EXPECT_EQ(perspective.lensProjectionMode(), LensProjection::perspective);
  EXPECT_EQ(orthographic.lensProjectionMode(), LensProjection::orthographic);
  EXPECT_FALSE(perspective.isLinear());
  EXPECT_TRUE(perspective.canBeExtendedHorizontally());
  EXPECT_TRUE(perspective.canBeExtendedVertically());
}

// KEEP(warped-silent): neither rays nor coordinates are touched.
TEST(LensProjection, WarpedLensStaysSilent) {
  const vela::WarpedLinearProjection lens(false);
  const Camera::Sample sample = sampleOf(1, 1);
  ProjectCoord coord = coordAt(0.5f, 0.25f);
  coord.pz = -3.0f;
  std::vector<RayContext> rays = blankRays(1), before = rays;
  lens.generateRayGeometry(1, &coord, &sample, {}, rays.data());
  vela::generateCameraRays(lens, 1, &coord, sample, {}, rays.data());
  EXPECT_TRUE(sameRays(rays, before));
  lens.project(sample, {}, 1, &coord);
  EXPECT_EQ(coord.x, 0.5f);
  EXPECT_EQ(coord.y, 0.25f);
  EXPECT_EQ(coord.depth, 0.0f);
}

TEST(LensProjection, WarpedLensHasTheMatricesAndDistancesOfItsBase) {
  std::mt19937 random(1);
  const Scene s = randomScene(random, true);
  for (bool orthographic : {false, true}) {
    const vela::WarpedLinearProjection warped(orthographic);
    const vela::LinearProjection linear(orthographic);
    EXPECT_EQ(warped.projectionMatrix(s.sample), linear.projectionMatrix(s.sample));
    EXPECT_EQ(warped.distanceToLinearZ(s.sample, {0.5f, 0.5f}, 3.0f),
              linear.distanceToLinearZ(s.sample, {0.5f, 0.5f}, 3.0f));
  }
}

// The least that a lens must define.
class BareLens : public LensProjectionFunction {
 public:
  int validated = 0;
  static auto validatePointer() { return &BareLens::_validateProjection; }
  const char* identifier() const override { return "Bare"; }
  bool isLinear() const override { return false; }
  void project(const Camera::Sample&, const ProjectionImageContext&, unsigned,
               ProjectCoord*) const override {}

 protected:
  void _validateProjection() override { ++validated; }
};

TEST(LensProjection, TheBaseAnswersForNone) {
  std::mt19937 random(2);
  const Scene s = randomScene(random, true);
  BareLens lens;
  EXPECT_EQ(lens.lensProjectionMode(), LensProjection::none);
  EXPECT_EQ(lens.asLensProjectionFunction(), nullptr);
  EXPECT_EQ(lens.distanceToLinearZ(s.sample, {3.0f, 4.0f}, 7.0f), 7.0f);
  EXPECT_EQ(lens.lensMagnification(s.sample), 1.0);
  EXPECT_EQ(lens.projectionMatrix(s.sample),
            Camera::BuildNDCTransform(s.sample, true) *
                Camera::BuildLinearProjection(s.sample, false, true));
  EXPECT_EQ(lens.ndcTransformMatrix(s.sample), Camera::BuildNDCTransform(s.sample, false));
  EXPECT_FALSE(lens.canBeExtendedHorizontally());
  EXPECT_FALSE(lens.canBeExtendedVertically());
  std::vector<RayContext> rays = blankRays(1), before = rays;
  lens.generateRayGeometry(1, &s.coord, &s.sample, s.image, rays.data());
  EXPECT_TRUE(sameRays(rays, before));
  lens.validateProjection();
  EXPECT_EQ(lens.validated, 1);
}

TEST(LensProjection, NoLensOverridesTheMagnification) {
  const Camera::Sample s = sampleOf(36, 50);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(lensOf(i)->lensMagnification(s), 1.0);
}

TEST(LensProjection, RoundLensesHaveThePerspectiveMatrix) {
  std::mt19937 random(3);
  const Scene s = randomScene(random, true);
  for (int i : {0, 2, 3}) EXPECT_EQ(lensOf(i)->projectionMatrix(s.sample), s.sample.proj) << i;
  EXPECT_EQ(lensOf(1)->projectionMatrix(s.sample),
            Camera::BuildNDCTransform(s.sample, true) *
                Camera::BuildLinearProjection(s.sample, false, false));
}

#if defined(__GNUC__) && defined(__x86_64__)
using vela_test::slotOf;

// KEEP(validate-before-destructor): validation has slot 0, the destructor the two after it.
TEST(LensProjection, ValidationStandsBeforeTheDestructor) {
  using L = LensProjectionFunction;
  EXPECT_EQ(slotOf(BareLens::validatePointer()), 0u);
  EXPECT_EQ(slotOf(&L::asLensProjectionFunction), 3u);
  EXPECT_EQ(slotOf(&L::identifier), 4u);
  EXPECT_EQ(slotOf(&L::lensProjectionMode), 5u);
  EXPECT_EQ(slotOf(&L::isLinear), 6u);
  EXPECT_EQ(slotOf(&L::distanceToLinearZ), 7u);
  EXPECT_EQ(slotOf(&L::lensMagnification), 8u);
  EXPECT_EQ(slotOf(&L::projectionMatrix), 9u);
  EXPECT_EQ(slotOf(&L::ndcTransformMatrix), 10u);
  EXPECT_EQ(slotOf(&L::canBeExtendedHorizontally), 11u);
  EXPECT_EQ(slotOf(&L::canBeExtendedVertically), 12u);
  EXPECT_EQ(slotOf(&L::generateRayGeometry), 13u);
  EXPECT_EQ(slotOf(&L::project), 14u);

  // The lenses add nothing, and their first slot validates: called through the raw table, it
  // changes nothing and returns.
  for (int i = 0; i < 4; ++i) {
    const Lens lens = lensOf(i);
    using Slot = void (*)(LensProjectionFunction*);
    Slot validate;
    void** table;
    std::memcpy(&table, static_cast<const void*>(lens.get()), sizeof table);
    std::memcpy(&validate, &table[0], sizeof validate);
    validate(lens.get());
    EXPECT_EQ(static_cast<int>(lens->lensProjectionMode()), i);
  }
}
#endif

// ---- Batches

TEST(LensProjection, NothingHappensWithoutInput) {
  const Camera::Sample sample = sampleOf(1, 1);
  const ProjectCoord coord = coordAt(0.5f, 0.5f);
  for (int i = 0; i < 4; ++i) {
    const Lens lens = lensOf(i);
    std::vector<RayContext> rays = blankRays(1), before = rays;
    lens->generateRayGeometry(0, &coord, &sample, {}, rays.data());
    lens->generateRayGeometry(1, nullptr, &sample, {}, rays.data());
    lens->generateRayGeometry(1, &coord, nullptr, {}, rays.data());
    lens->generateRayGeometry(1, &coord, &sample, {}, nullptr);
    vela::generateCameraRays(*lens, 0, &coord, sample, {}, rays.data());
    vela::generateCameraRays(*lens, 1, nullptr, sample, {}, rays.data());
    vela::generateCameraRays(*lens, 1, &coord, sample, {}, nullptr);
    lens->project(sample, {}, 1, nullptr);
    EXPECT_TRUE(sameRays(rays, before)) << i;
  }
}

TEST(LensProjection, OnlyTheGeometryIsWritten) {
  std::mt19937 random(4);
  const Scene s = randomScene(random, true);
  for (int i = 0; i < 4; ++i) {
    RayContext ray({1, 2, 3}, {4, 5, 6}, 0x0203, 9.0, 2, 7, 8);
    ray.assigned = 0xBEEF;
    lensOf(i)->generateRayGeometry(1, &s.coord, &s.sample, s.image, &ray);
    EXPECT_EQ(ray.type, 0x0203);
    EXPECT_EQ(ray.time, 9.0);
    EXPECT_EQ(ray.originType, 2);
    EXPECT_EQ(ray.assigned, 0xBEEF);
    EXPECT_EQ(ray.minDistance, static_cast<float>(s.sample.lensAp.clipNearDistance));
    EXPECT_EQ(ray.maxDistance, static_cast<float>(s.sample.lensAp.clipFarDistance));
    RayContext expected;
    expected.setDirection(ray.direction);
    EXPECT_TRUE(sameBits(ray.invDir(), expected.invDir()));
    EXPECT_EQ(ray.slopeBits, expected.slopeBits);
  }
}

TEST(LensProjection, ABatchGivesTheBitsOfItsCoordinates) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int i = 0; i < 4; ++i) {
    const Lens lens = lensOf(i);
    for (unsigned count :
         {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 33u, 64u, 100u, 1000u}) {
      std::vector<ProjectCoord> coords(count);
      std::vector<Camera::Sample> samples(count);
      ProjectionImageContext image;
      for (unsigned k = 0; k < count; ++k) {
        const Scene s = randomScene(random, random() % 2 == 0);
        coords[k] = s.coord;
        samples[k] = s.sample;
        image = s.image;
      }
      // Some that are not numbers.
      if (count > 8) {
        coords[3].x = kNan;
        coords[5].y = kInf;
        coords[6].dx = -kInf;
      }

      std::vector<RayContext> batch = blankRays(count), single = batch;
      lens->generateRayGeometry(count, coords.data(), samples.data(), image, batch.data());
      for (unsigned k = 0; k < count; ++k)
        lens->generateRayGeometry(1, &coords[k], &samples[k], image, &single[k]);
      ASSERT_TRUE(sameRays(batch, single)) << "lens " << i << ", count " << count;

      // One camera for all.
      for (const Camera::Sample& one : {samples[0], sampleOf(20, 35)}) {
        const std::vector<Camera::Sample> copies(count, one);
        std::vector<RayContext> plain = blankRays(count), camera = plain;
        lens->generateRayGeometry(count, coords.data(), copies.data(), image, plain.data());
        vela::generateCameraRays(*lens, count, coords.data(), one, image, camera.data());
        ASSERT_TRUE(sameRays(plain, camera)) << "lens " << i << ", count " << count;
      }
    }
  }
}

// A lens that its maker derived from one of ours: its own rays must be used.
class ShiftedLens : public vela::LinearProjection {
 public:
  void generateRayGeometry(unsigned count, const ProjectCoord* coords,
                           const Camera::Sample* samples, const ProjectionImageContext& image,
                           RayContext* rays) const override {
    LinearProjection::generateRayGeometry(count, coords, samples, image, rays);
    for (unsigned i = 0; i < count; ++i) rays[i].origin.x += 1.0f;
  }
};

TEST(LensProjection, CameraRaysOfOtherLensesAreTheirOwn) {
  std::mt19937 random(6);
  for (unsigned count : {1u, 15u, 16u, 17u, 100u}) {
    std::vector<ProjectCoord> coords;
    for (unsigned i = 0; i < count; ++i) coords.push_back(randomScene(random, true).coord);
    const Camera::Sample sample = randomScene(random, true).sample;
    const std::vector<Camera::Sample> samples(count, sample);
    std::vector<RayContext> a = blankRays(count), b = a;
    ShiftedLens().generateRayGeometry(count, coords.data(), samples.data(), {}, a.data());
    vela::generateCameraRays(ShiftedLens(), count, coords.data(), sample, {}, b.data());
    EXPECT_TRUE(sameRays(a, b)) << count;
    EXPECT_EQ(b[count - 1].origin.x, 1.0f);
  }
}

// ---- Perspective

TEST(PerspectiveLens, MagnificationTwoSeesFortyFiveDegreesAtTheEdge) {
  const Camera::Sample s = sampleOf(2, 1);
  const RayContext ray = rayOf(vela::LinearProjection(false), s, coordAt(1, 0));
  const float r = 1.0f / std::sqrt(2.0f);
  EXPECT_EQ(ray.origin, Vec3f());
  EXPECT_EQ(ray.direction, Vec3f(1, 0, -1).normalized());
  EXPECT_FLOAT_EQ(ray.direction.x, r);
  EXPECT_FLOAT_EQ(ray.direction.z, -r);
}

TEST(PerspectiveLens, TheCentreLooksAhead) {
  const RayContext ray = rayOf(vela::LinearProjection(false), sampleOf(36, 50), coordAt(0, 0));
  EXPECT_EQ(ray.direction, Vec3f(0, 0, -1));
  EXPECT_EQ(ray.xDirection, Vec3f(0, 0, -1));
  EXPECT_EQ(ray.slopeBits, 4);
}

TEST(PerspectiveLens, NeighboursLookAtTheNeighbouringCoordinates) {
  const vela::LinearProjection lens(false);
  const Camera::Sample s = sampleOf(36, 50);
  const RayContext ray = rayOf(lens, s, coordAt(0.25f, -0.5f, 0.125f, 0.0625f));
  EXPECT_TRUE(sameBits(ray.xDirection, rayOf(lens, s, coordAt(0.375f, -0.5f)).direction));
  EXPECT_TRUE(sameBits(ray.yDirection, rayOf(lens, s, coordAt(0.25f, -0.4375f)).direction));
}

// A turned window moves q in both coordinates; the neighbours still take one coordinate each.
TEST(PerspectiveLens, NeighboursTakeOneMappedCoordinateEach) {
  Camera::Sample s = sampleOf(2, 1);
  s.sensor.apertureRotate = 90.0;
  s.updateDerivedValues(nullptr);
  const RayContext ray = rayOf(vela::LinearProjection(false), s, coordAt(0, 0, 0.5f, 0));
  EXPECT_NEAR(ray.xDirection.x, 0.0f, 1e-7f);
  EXPECT_NEAR(ray.yDirection.y, -1.0f / std::sqrt(5.0f), 1e-6f);
}

TEST(PerspectiveLens, FollowsItsFormulaBitForBit) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const vela::LinearProjection lens(false);
  for (int i = 0; i < 5000; ++i) {
    const bool window = i % 2 == 0;
    const Scene s = randomScene(random, window);
    const RayContext ray = rayOf(lens, s.sample, s.coord, s.image);
    float p[2] = {s.coord.x, s.coord.y}, q[2] = {s.coord.x + s.coord.dx, s.coord.y + s.coord.dy};
    if (window) {
      for (float* v : {p, q}) {
        const double x = static_cast<double>(v[0]), y = static_cast<double>(v[1]);
        const Mat4d m = Camera::BuildNDCTransform(s.sample, false);
        v[0] = static_cast<float>(x * m[0] + y * m[4] + m[12]);
        v[1] = static_cast<float>(x * m[1] + y * m[5] + m[13]);
      }
    }
    const float h = s.sample.lensMagnification() * 0.5f;
    const auto unit = [](float x, float y) {
      const float n = std::sqrt(x * x + y * y + 1.0f);
      return Vec3f(x / n, y / n, -1.0f / n);
    };
    ASSERT_TRUE(sameBits(ray.direction, unit(h * p[0], h * p[1])));
    ASSERT_TRUE(sameBits(ray.xDirection, unit(h * q[0], h * p[1])));
    ASSERT_TRUE(sameBits(ray.yDirection, unit(h * p[0], h * q[1])));
    ASSERT_EQ(ray.origin, Vec3f());
  }
}

TEST(PerspectiveLens, TheIdentityFlagAloneLeavesTheWindowOut) {
  Camera::Sample s = sampleOf(2, 1);
  s.ndc.translate(0.5, 0, 0);
  ASSERT_TRUE(s.ndcIsIdentity);
  const vela::LinearProjection lens(false);
  EXPECT_EQ(rayOf(lens, s, coordAt(0, 0)).direction, Vec3f(0, 0, -1));
  s.ndcIsIdentity = false;
  EXPECT_GT(rayOf(lens, s, coordAt(0, 0)).direction.x, 0.4f);
}

TEST(PerspectiveLens, RaysProjectBackToTheirCoordinates) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  const vela::LinearProjection lens(false);
  for (int i = 0; i < 5000; ++i) {
    Scene s = randomScene(random, true);
    s.sample.xform.l2w.translate(u(random) * 10, u(random) * 10, u(random) * 10)
        .rotateX(u(random) * 3)
        .rotateY(u(random) * 3);
    s.sample.updateDerivedValues(&lens);
    const RayContext ray = rayOf(lens, s.sample, s.coord);
    const double t = 1.0 + 10.0 * std::fabs(u(random));
    const Vec3d world = s.sample.xform.l2w.transformPoint(Vec3d(ray.direction) * t);
    const Vec4d ndc =
        s.sample.worldToNdc().transform(Vec4d(world.x, world.y, world.z, 1.0)).wNormalized();
    ASSERT_NEAR(ndc.x, static_cast<double>(s.coord.x), 1e-6);
    ASSERT_NEAR(ndc.y, static_cast<double>(s.coord.y), 1e-6);
  }
}

TEST(PerspectiveLens, ProjectInvertsRayGeneration) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const vela::LinearProjection lens(false);
  for (int i = 0; i < 2000; ++i) {
    const Scene s = randomScene(random, true);
    const RayContext ray = rayOf(lens, s.sample, s.coord);
    ProjectCoord c;
    c.px = ray.direction.x;
    c.py = ray.direction.y;
    c.pz = ray.direction.z;
    lens.project(s.sample, s.image, 1, &c);
    ASSERT_NEAR(c.x, s.coord.x, 1e-6f);
    ASSERT_NEAR(c.y, s.coord.y, 1e-6f);
  }
}

TEST(PerspectiveLens, ProjectWritesPositionAndDepthOnly) {
  const Camera::Sample s = sampleOf(2, 1);
  ProjectCoord c = coordAt(9, 9, 7, 8);
  c.px = 3;
  c.py = -1;
  c.pz = -4;
  c.pw = 2;  // the point (1.5, -0.5, -2)
  vela::LinearProjection(false).project(s, {}, 1, &c);
  EXPECT_FLOAT_EQ(c.x, 0.75f);
  EXPECT_FLOAT_EQ(c.y, -0.25f);
  const double n = 0.1, f = 1e10, z = -2.0;
  EXPECT_FLOAT_EQ(c.depth, static_cast<float>((-(f + n) / (f - n) * z - 2 * f * n / (f - n)) / -z));
  EXPECT_EQ(c.dx, 7.0f);
  EXPECT_EQ(c.dy, 8.0f);
  EXPECT_EQ(c.px, 3.0f);
  EXPECT_EQ(c.pw, 2.0f);
}

TEST(PerspectiveLens, ProjectStaysStillWithDistortion) {
  Camera::Sample s = sampleOf(2, 1);
  s.optics.opticalDistortionC = 1e-9;
  s.updateDerivedValues(nullptr);
  ProjectCoord c = coordAt(9, 9);
  c.pz = -1;
  vela::LinearProjection(false).project(s, {}, 1, &c);
  EXPECT_EQ(c.x, 9.0f);
  EXPECT_EQ(c.depth, 0.0f);
}

TEST(PerspectiveLens, ProjectOfAPointInTheEyeIsNoNumber) {
  const Camera::Sample s = sampleOf(2, 1);
  ProjectCoord c;
  vela::LinearProjection(false).project(s, {}, 1, &c);
  EXPECT_TRUE(std::isnan(c.x));
  EXPECT_TRUE(std::isnan(c.y));
}

TEST(PerspectiveLens, DistanceToLinearZIsThePartAlongTheAxis) {
  const vela::LinearProjection lens(false);
  const Camera::Sample s = sampleOf(2, 1);
  EXPECT_FLOAT_EQ(lens.distanceToLinearZ(s, {1, 0}, 2.0f), 2.0f / std::sqrt(2.0f));
  EXPECT_EQ(lens.distanceToLinearZ(s, {0, 0}, 2.0f), 2.0f);
  EXPECT_EQ(lens.distanceToLinearZ(s, {0.3f, 0.4f}, 3.0f),
            std::cos(std::atan(Vec2f(0.3f, 0.4f).length() * 2.0f * 0.5f)) * 3.0f);
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int i = 0; i < 1000; ++i) {
    const Scene r = randomScene(random, false);
    const RayContext ray = rayOf(lens, r.sample, r.coord);
    ASSERT_NEAR(lens.distanceToLinearZ(r.sample, {r.coord.x, r.coord.y}, 5.0f),
                -ray.direction.z * 5.0f, 1e-5f);
  }
}

// ---- Orthographic

TEST(OrthographicLens, RaysAreParallelAndOriginsScale) {
  const vela::LinearProjection lens(true);
  const RayContext one = rayOf(lens, sampleOf(2, 1), coordAt(0.5f, -0.25f, 0.1f, 0.1f));
  EXPECT_EQ(one.origin, Vec3f(0.5f, -0.25f, 0));
  EXPECT_EQ(one.direction, Vec3f(0, 0, -1));
  EXPECT_EQ(one.xDirection, Vec3f(0, 0, -1));
  EXPECT_EQ(one.yDirection, Vec3f(0, 0, -1));
  EXPECT_EQ(one.invDir(), Vec3f(kInf, kInf, -1));
  EXPECT_EQ(rayOf(lens, sampleOf(8, 1), coordAt(0.5f, -0.25f)).origin, Vec3f(2, -1, 0));
}

TEST(OrthographicLens, RaysProjectBackToTheirCoordinates) {
  std::mt19937 random(8);
  const vela::LinearProjection lens(true);
  for (int i = 0; i < 1000; ++i) {
    const Scene s = randomScene(random, true);
    const RayContext ray = rayOf(lens, s.sample, s.coord);
    const Vec3d p = Vec3d(ray.origin) + Vec3d(ray.direction) * 3.0;
    const Vec4d ndc =
        lens.projectionMatrix(s.sample).transform(Vec4d(p.x, p.y, p.z, 1.0)).wNormalized();
    ASSERT_NEAR(ndc.x, static_cast<double>(s.coord.x), 1e-6);
    ASSERT_NEAR(ndc.y, static_cast<double>(s.coord.y), 1e-6);
  }
}

TEST(OrthographicLens, ProjectsNothingAndLeavesDistances) {
  const vela::LinearProjection lens(true);
  const Camera::Sample s = sampleOf(2, 1);
  ProjectCoord c = coordAt(9, 9);
  c.pz = -1;
  lens.project(s, {}, 1, &c);
  EXPECT_EQ(c.x, 9.0f);
  EXPECT_EQ(lens.distanceToLinearZ(s, {1, 1}, 7.0f), 7.0f);
}

// ---- Spherical and cylindrical

TEST(SphericalLens, LooksAroundFromTheCentre) {
  const vela::SphericalProjection lens;
  const Camera::Sample s = sampleOf(36, 50);
  ProjectionImageContext image;
  image.aspect = 0.5f;
  const auto expectDirection = [&](float x, float y, const Vec3f& expected) {
    const Vec3f d = rayOf(lens, s, coordAt(x, y), image).direction;
    EXPECT_LT((d - expected).length(), 1e-6f) << x << ' ' << y << ": " << d;
  };
  expectDirection(0, 0, {0, 0, -1});
  expectDirection(0.5f, 0, {1, 0, 0});
  expectDirection(-0.5f, 0, {-1, 0, 0});
  expectDirection(1, 0, {0, 0, 1});
  expectDirection(-1, 0, {0, 0, 1});
  expectDirection(0, 0.5f, {0, 1, 0});
  expectDirection(0, -0.5f, {0, -1, 0});
  expectDirection(0.7f, -0.5f, {0, -1, 0});
  expectDirection(7.0f, 0, {0, 0, 1});
}

TEST(SphericalLens, ThePolesKeepWhatRoundingLeaves) {
  // theta is exactly pi at the upper edge: its sine is not zero in double, and neither is the
  // direction's x and z.
  const vela::SphericalProjection lens;
  ProjectionImageContext image;
  image.aspect = 1.0f;
  const Vec3f up = rayOf(lens, sampleOf(36, 50), coordAt(0.25f, 1.0f), image).direction;
  EXPECT_EQ(up.y, 1.0f);
  EXPECT_EQ(up.x, static_cast<float>(-std::sin(1.25 * kPi) * std::sin(kPi)));
  EXPECT_NE(up.x, 0.0f);
  const Vec3f down = rayOf(lens, sampleOf(36, 50), coordAt(0.25f, -1.0f), image).direction;
  EXPECT_EQ(down, Vec3f(0, -1, 0));
}

// KEEP(x-neighbour-latitude): sine of the y-neighbour's latitude, cosine of its own.
// KEEP(y-neighbour-latitude): cosine of the y-neighbour's latitude, sine of its own.
TEST(SphericalLens, FollowsItsFormulaBitForBit) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const vela::SphericalProjection lens;
  for (int i = 0; i < 5000; ++i) {
    const Scene s = randomScene(random, false);
    const RayContext ray = rayOf(lens, s.sample, s.coord, s.image);
    const auto clamp = [](float v) {
      return static_cast<double>(std::fmin(std::fmax(v, -1.0f), 1.0f));
    };
    const double k = 1.0 / static_cast<double>(s.image.aspect);
    const double phi = (clamp(s.coord.x) + 1.0) * kPi,
                 phiX = (clamp(s.coord.x + s.coord.dx) + 1.0) * kPi;
    const double theta = (clamp(s.coord.y) * k + 1.0) * 0.5 * kPi;
    const double thetaY = (clamp(s.coord.y + s.coord.dy) * k + 1.0) * 0.5 * kPi;
    const auto unit = [](double x, double y, double z) {
      return Vec3f(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z))
          .normalized();
    };
    ASSERT_TRUE(sameBits(ray.direction, unit(-std::sin(phi) * std::sin(theta), -std::cos(theta),
                                             std::cos(phi) * std::sin(theta))));
    ASSERT_TRUE(sameBits(ray.xDirection, unit(-std::sin(phiX) * std::sin(thetaY), -std::cos(theta),
                                              std::cos(phiX) * std::sin(thetaY))));
    ASSERT_TRUE(sameBits(ray.yDirection, unit(-std::sin(phi) * std::sin(theta), -std::cos(thetaY),
                                              std::cos(phi) * std::sin(theta))));
    ASSERT_EQ(ray.origin, Vec3f());
    ASSERT_NEAR(ray.direction.length(), 1.0f, 1e-6f);
  }
}

TEST(SphericalLens, TheMagnificationPlaysNoPart) {
  std::mt19937 random(9);
  const Scene s = randomScene(random, false);
  const vela::SphericalProjection lens;
  EXPECT_TRUE(sameBits(rayOf(lens, sampleOf(1, 1), s.coord, s.image).direction,
                       rayOf(lens, sampleOf(36, 1), s.coord, s.image).direction));
}

TEST(CylindricalLens, LooksAroundFromTheCentre) {
  const vela::CylindricalProjection lens;
  const Camera::Sample s = sampleOf(2, 1);
  const auto direction = [&](float x, float y) { return rayOf(lens, s, coordAt(x, y)).direction; };
  EXPECT_LT((direction(0, 0) - Vec3f(0, 0, -1)).length(), 1e-6f);
  EXPECT_LT((direction(0.5f, 0) - Vec3f(1, 0, 0)).length(), 1e-6f);
  EXPECT_LT((direction(-1, 0) - Vec3f(0, 0, 1)).length(), 1e-6f);
  EXPECT_LT((direction(0, 1) - Vec3f(0, 1, -1).normalized()).length(), 1e-6f);
  EXPECT_TRUE(sameBits(direction(0.25f, 5), direction(0.25f, 1)));
  EXPECT_TRUE(sameBits(direction(-5, 0.25f), direction(-1, 0.25f)));
}

TEST(CylindricalLens, FollowsItsFormulaBitForBit) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const vela::CylindricalProjection lens;
  for (int i = 0; i < 5000; ++i) {
    const Scene s = randomScene(random, false);
    const RayContext ray = rayOf(lens, s.sample, s.coord, s.image);
    const auto clamp = [](float v) { return std::fmin(std::fmax(v, -1.0f), 1.0f); };
    const float h = s.sample.lensMagnification() * 0.5f;
    const double phi = (static_cast<double>(clamp(s.coord.x)) + 1.0) * kPi;
    const double phiX = (static_cast<double>(clamp(s.coord.x + s.coord.dx)) + 1.0) * kPi;
    const float y = h * clamp(s.coord.y), yY = h * clamp(s.coord.y + s.coord.dy);
    const auto unit = [](double a, float height) {
      return Vec3f(static_cast<float>(-std::sin(a)), height, static_cast<float>(std::cos(a)))
          .normalized();
    };
    ASSERT_TRUE(sameBits(ray.direction, unit(phi, y)));
    ASSERT_TRUE(sameBits(ray.xDirection, unit(phiX, y)));
    ASSERT_TRUE(sameBits(ray.yDirection, unit(phi, yY)));
  }
}

TEST(RoundLenses, ProjectNothing) {
  const Camera::Sample s = sampleOf(2, 1);
  for (int i : {2, 3}) {
    ProjectCoord c = coordAt(9, 9);
    c.pz = -1;
    lensOf(i)->project(s, {}, 1, &c);
    EXPECT_EQ(c.x, 9.0f);
    EXPECT_EQ(c.depth, 0.0f);
    EXPECT_EQ(lensOf(i)->distanceToLinearZ(s, {1, 1}, 7.0f), 7.0f);
  }
}

// The lenses compute four sines at a time and settle what may round otherwise; a million
// coordinates, half of them where that is likely (multiples of a quarter turn, plus a little),
// against the plain functions.
TEST(RoundLenses, HaveTheBitsOfThePlainSineAndCosine) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  const Camera::Sample sample = sampleOf(36, 50);
  const float h = sample.lensMagnification() * 0.5f;
  const auto component = [&](int i) {
    const double near = static_cast<double>(static_cast<int>(random() % 9) - 4) / 4.0;
    return static_cast<float>(
        i % 2 == 0 ? u(random)
                   : near + u(random) * std::pow(10.0, -1.0 - static_cast<double>(random() % 12)));
  };
  const auto unit = [](double x, double y, double z) {
    return Vec3f(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)).normalized();
  };
  const auto clamp = [](float v) {
    return static_cast<double>(std::fmin(std::fmax(v, -1.0f), 1.0f));
  };
  constexpr unsigned kCount = 1000;
  std::vector<ProjectCoord> coords(kCount);
  std::vector<RayContext> around(kCount), cylinder(kCount);
  for (int round = 0; round < 500; ++round) {
    ProjectionImageContext image;
    image.aspect = round % 3 == 0   ? 1.0f
                   : round % 3 == 1 ? 0.5f
                                    : static_cast<float>(0.01 + std::fabs(u(random)));
    for (unsigned i = 0; i < kCount; ++i) {
      coords[i] = coordAt(component(round), component(round), 0.0f, 0.0f);
      coords[i].dx = component(round) - coords[i].x;
      coords[i].dy = component(round) - coords[i].y;
    }
    vela::generateCameraRays(vela::SphericalProjection(), kCount, coords.data(), sample, image,
                             around.data());
    vela::generateCameraRays(vela::CylindricalProjection(), kCount, coords.data(), sample, image,
                             cylinder.data());
    const double k = 1.0 / static_cast<double>(image.aspect);
    for (unsigned i = 0; i < kCount; ++i) {
      const ProjectCoord& c = coords[i];
      const auto where = [&] {
        return testing::Message() << c.x << ' ' << c.y << ' ' << c.dx << ' ' << c.dy << ", aspect "
                                  << image.aspect;
      };
      const double phi = (clamp(c.x) + 1.0) * kPi, phiX = (clamp(c.x + c.dx) + 1.0) * kPi;
      const double theta = (clamp(c.y) * k + 1.0) * 0.5 * kPi,
                   thetaY = (k * clamp(c.y + c.dy) + 1.0) * 0.5 * kPi;
      ASSERT_TRUE(
          sameBits(around[i].direction, unit(-std::sin(phi) * std::sin(theta), -std::cos(theta),
                                             std::cos(phi) * std::sin(theta))))
          << where();
      ASSERT_TRUE(
          sameBits(around[i].xDirection, unit(-std::sin(phiX) * std::sin(thetaY), -std::cos(theta),
                                              std::cos(phiX) * std::sin(thetaY))))
          << where();
      ASSERT_TRUE(
          sameBits(around[i].yDirection, unit(-std::sin(phi) * std::sin(theta), -std::cos(thetaY),
                                              std::cos(phi) * std::sin(theta))))
          << where();
      const double y = static_cast<double>(h * static_cast<float>(clamp(c.y)));
      ASSERT_TRUE(sameBits(cylinder[i].direction, unit(-std::sin(phi), y, std::cos(phi))))
          << where();
      ASSERT_TRUE(sameBits(cylinder[i].xDirection, unit(-std::sin(phiX), y, std::cos(phiX))))
          << where();
    }
  }
}

// Turning the image by a window translation in x turns the rays about y by the same share of the
// circle.
TEST(RoundLenses, AWindowTranslationTurnsTheRays) {
  Camera::Sample s = sampleOf(2, 1), moved = s;
  moved.sensor.apertureTranslate = {0.25, 0.0};
  moved.updateDerivedValues(nullptr);
  for (int i : {2, 3})
    EXPECT_TRUE(sameBits(rayOf(*lensOf(i), moved, coordAt(0.25f, 0.125f)).direction,
                         rayOf(*lensOf(i), s, coordAt(0.5f, 0.125f)).direction));
}

// ---- Numbers that are none

TEST(LensProjection, BadNumbersGiveBadRaysAndNothingWorse) {
  const float values[] = {0.0f, -0.0f, kNan, kInf, -kInf, 1e38f, 1e-45f};
  for (int i = 0; i < 4; ++i)
    for (float a : values)
      for (float b : values) {
        Camera::Sample s = sampleOf(static_cast<double>(a), static_cast<double>(b));
        s.lensAp.clipFarDistance = 1e308;
        ProjectionImageContext image;
        image.aspect = b;
        const RayContext ray = rayOf(*lensOf(i), s, coordAt(a, b, b, a), image);
        EXPECT_EQ(ray.minDistance, 0.1f);
        EXPECT_EQ(ray.maxDistance, kInf);
      }
  EXPECT_TRUE(std::isnan(rayOf(*lensOf(0), sampleOf(2, 1), coordAt(kNan, 0)).direction.x));
  EXPECT_TRUE(std::isnan(rayOf(*lensOf(2), sampleOf(2, 1), coordAt(kNan, 0)).direction.x));
}

TEST(ProjectionImageContext, AspectIsHeightOverWidth) {
  const ProjectionImageContext image = ProjectionImageContext::forSize(200, 100);
  EXPECT_EQ(image.aspect, 0.5f);
  EXPECT_EQ(image.width, 200);
  EXPECT_EQ(image.height, 100);
}

TEST(ProjectCoord, IsNineFloatsInOrder) {
  static_assert(sizeof(ProjectCoord) == 36 && std::is_aggregate_v<ProjectCoord>);
  const ProjectCoord c = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  float f[9];
  std::memcpy(f, &c, sizeof f);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(f[i], static_cast<float>(i + 1));
  EXPECT_EQ(c.depth, 5.0f);
  EXPECT_EQ(c.pw, 9.0f);
}

}  // namespace
