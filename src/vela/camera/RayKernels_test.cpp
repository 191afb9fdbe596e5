#include "vela/camera/detail/RayKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "vela/camera/LensProjection.h"
#include "vela/camera/TestRayLoops.h"
#include "vela/camera/detail/RayFormulas.h"

// The kernels of every instruction set, built here beside the library's own.
#define TARN_LANES_ALL_SETS 1
#define TARN_LANES_KERNEL "vela/camera/detail/RayKernelsLanes.h"
#include "tarn/ForEachInstructionSet.h"

namespace {

using vela::Camera;
using vela::LensProjection;
using vela::ProjectCoord;
using vela::RayContext;

using Kernel = void (*)(const vela::detail::RayBatch&);
using AspectKernel = void (*)(const vela::detail::RayBatch&, float aspect);

// The kernels of one instruction set, in the order of the lenses.
struct Set {
  const char* name;
  Kernel perspective, orthographic, cylindrical;
  AspectKernel spherical;

  void run(LensProjection lens, const vela::detail::RayBatch& batch, float aspect) const {
    switch (lens) {
      case LensProjection::perspective: return perspective(batch);
      case LensProjection::orthographic: return orthographic(batch);
      case LensProjection::spherical: return spherical(batch, aspect);
      default: return cylindrical(batch);
    }
  }
};

#define VELA_RAY_KERNELS(set)                                                      \
  Set {                                                                            \
#set, vela::detail::set::perspectiveRays, vela::detail::set::orthographicRays, \
        vela::detail::set::cylindricalRays, vela::detail::set::sphericalRays       \
  }

// Those that this processor runs.
std::vector<Set> sets() {
  std::vector<Set> all{VELA_RAY_KERNELS(plain)};
#if TARN_LANES_HAVE_SSE2
  all.push_back(VELA_RAY_KERNELS(sse2));
  if (tarn::runsAvx2()) all.push_back(VELA_RAY_KERNELS(avx2));
#endif
  return all;
}

// The same bits; any NaN stands for any other.
bool same(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}
bool same(const tarn::Vec3f& a, const tarn::Vec3f& b) {
  return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z);
}
bool same(const RayContext& a, const RayContext& b) {
  return same(a.origin, b.origin) && same(a.direction, b.direction) &&
         same(a.xDirection, b.xDirection) && same(a.yDirection, b.yDirection) &&
         same(a.minDistance, b.minDistance) && same(a.maxDistance, b.maxDistance) &&
         same(a.invDir(), b.invDir()) && a.slopeBits == b.slopeBits && a.type == b.type &&
         a.time == b.time;
}

class RayKernels : public testing::TestWithParam<LensProjection> {
 protected:
  std::mt19937 random_{2026};

  double number(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }
  unsigned choice(unsigned count) { return static_cast<unsigned>(random_() % count); }

  // Coordinates of every kind: in and around the picture, on its edges, tiny, huge, any bits at
  // all.
  float coordinate() {
    static const float odd[] = {0.0f,
                                -0.0f,
                                1.0f,
                                -1.0f,
                                0.5f,
                                -0.25f,
                                0.99999994f,
                                -1.0000001f,
                                1e-44f,
                                3e38f,
                                std::numeric_limits<float>::infinity(),
                                -std::numeric_limits<float>::infinity(),
                                std::numeric_limits<float>::quiet_NaN()};
    switch (choice(5)) {
      case 0: return odd[choice(sizeof odd / sizeof odd[0])];
      case 1: return static_cast<float>(number(-3, 3));
      case 2: return std::ldexp(static_cast<float>(number(-1, 1)), -static_cast<int>(choice(140)));
      case 3: {
        const auto bits = static_cast<std::uint32_t>(random_());
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
      }
      default: return static_cast<float>(number(-1, 1));
    }
  }

  Camera::Sample sample() {
    Camera::Sample s;
    s.sensor.apertureSize = {number(0.1, 4), 1.0};
    s.optics.focalLength = choice(30) == 0 ? 0.0 : number(0.1, 4);
    s.lensAp.clipFarDistance =
        choice(3) == 0 ? std::numeric_limits<double>::infinity() : number(1, 1e6);
    if (choice(3) == 0) {
      s.sensor.apertureTranslate = {number(-1, 1), number(-1, 1)};
      s.sensor.apertureScale = {number(0.5, 2), number(-2, 2)};
      s.sensor.apertureRotate = number(-360, 360);
    }
    s.updateDerivedValues(nullptr);
    return s;
  }
};

TEST_P(RayKernels, EveryInstructionSetGivesTheBitsOfTheLoop) {
  const std::unique_ptr<vela::LensProjectionFunction> lens(vela::CreateProjectionFunc(GetParam()));
  const float aspects[] = {1.0f,    0.5625f, 2.0f,  0.001f,
                           1000.0f, 0.0f,    -1.0f, std::numeric_limits<float>::quiet_NaN()};
  for (int round = 0; round < 3000; ++round) {
    const std::size_t count = 1 + choice(19);
    std::vector<ProjectCoord> coords(count);
    std::vector<Camera::Sample> samples(count, sample());
    for (ProjectCoord& c : coords) {
      c.x = coordinate();
      c.y = coordinate();
      c.dx = choice(2) == 0 ? coordinate() : 0.01f;
      c.dy = choice(2) == 0 ? coordinate() : -0.01f;
    }
    if (round % 2 == 0)
      for (Camera::Sample& s : samples) s = sample();
    vela::ProjectionImageContext image;
    image.aspect = aspects[choice(sizeof aspects / sizeof aspects[0])];

    // A sample for each ray, and one camera for all.
    for (const std::size_t stride : {std::size_t{1}, std::size_t{0}}) {
      std::vector<RayContext> expected(count, RayContext(2));
      vela_test::rayLoop(GetParam(),
                         {count, coords.data(), samples.data(), stride, expected.data()},
                         image.aspect);
      const auto expectSame = [&](const char* set, const std::vector<RayContext>& rays) {
        for (std::size_t i = 0; i < count; ++i)
          ASSERT_TRUE(same(expected[i], rays[i]))
              << set << ", round " << round << ", ray " << i << ", coordinate " << coords[i].x
              << ' ' << coords[i].y;
      };
      for (const Set& set : sets()) {
        // One more record, which stays as it is.
        std::vector<RayContext> rays(count + 1, RayContext(2));
        set.run(GetParam(), {count, coords.data(), samples.data(), stride, rays.data()},
                image.aspect);
        expectSame(set.name, rays);
        ASSERT_TRUE(same(RayContext(2), rays[count])) << set.name;
      }
      std::vector<RayContext> rays(count, RayContext(2));
      if (stride == 1)
        lens->generateRayGeometry(static_cast<unsigned>(count), coords.data(), samples.data(),
                                  image, rays.data());
      else
        vela::generateCameraRays(*lens, static_cast<unsigned>(count), coords.data(), samples[0],
                                 image, rays.data());
      expectSame("the lens", rays);
      if (HasFatalFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Lenses, RayKernels,
                         testing::Values(LensProjection::perspective, LensProjection::orthographic,
                                         LensProjection::spherical, LensProjection::cylindrical),
                         [](const auto& lens) {
                           return vela::LensProjectionClassName(lens.param);
                         });

}  // namespace
