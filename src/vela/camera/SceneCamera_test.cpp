#include "vela/camera/SceneCamera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include <nlohmann/json.hpp>

#include "ovo/Stage.h"
#include "support/SharedData.h"

using ovo::CameraParameters;
using ovo::CameraPrim;
using tarn::Mat4d;
using tarn::Vec2d;
using tarn::Vec3d;
using tarn::Vec3f;
using tarn::Vec4d;
using vela::Camera;
using vela::LensProjection;
using vela::ProjectCoord;
using vela::RayContext;

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// Numbers that tell themselves apart: 36 x 24 film, 50 lens, in tenths.
CameraParameters fullFrame() {
  CameraParameters p;
  p.focalLength = 5.0;
  p.horizontalAperture = 3.6;
  p.verticalAperture = 2.4;
  p.clippingNear = 0.25;
  p.clippingFar = 1000.0;
  p.fStop = 4.0;
  p.focusDistance = 7.0;
  p.exposure = 1.5;
  return p;
}

Camera::Sample sampled(const CameraParameters& parameters, const Mat4d& parent = Mat4d(),
                       const Mat4d& local = Mat4d(), LensProjection lens = LensProjection::none) {
  Camera::Sample s;
  EXPECT_TRUE(vela::sampleCamera(parameters, parent, local, 3.0, s, lens));
  return s;
}

// The world-space ray of an NDC coordinate.
RayContext worldRay(const Camera::Sample& s, float x, float y,
                    LensProjection lens = LensProjection::perspective) {
  const std::unique_ptr<vela::LensProjectionFunction> function(vela::CreateProjectionFunc(lens));
  ProjectCoord c;
  c.x = x;
  c.y = y;
  RayContext ray;
  function->generateRayGeometry(1, &c, &s, {}, &ray);
  ray.transform(s.xform.l2w);
  return ray;
}

void expectNear(const Vec3f& a, const Vec3d& b, double tolerance = 1e-6) {
  EXPECT_LT((Vec3d(a) - b).length(), tolerance) << a << " is not " << b;
}

TEST(SceneCamera, PerspectiveTakesFilmAndFocalLength) {
  const Camera::Sample s = sampled(fullFrame());
  EXPECT_EQ(s.time, 3.0);
  EXPECT_EQ(s.sensor.apertureSize, Vec2d(3.6, 2.4));
  EXPECT_EQ(s.sensor.apertureTranslate, Vec2d(0, 0));
  EXPECT_EQ(s.optics.focalLength, 5.0);
  EXPECT_EQ(s.optics.focusDistance, 7.0);
  EXPECT_EQ(s.lensAp.fStop, 4.0);
  EXPECT_EQ(s.lensAp.clipNearDistance, 0.25);
  EXPECT_EQ(s.lensAp.clipFarDistance, 1000.0);
  EXPECT_EQ(s.sensor.sensorExposureBias, 1.5);
  EXPECT_FLOAT_EQ(s.lensMagnification(), 0.72f);
  EXPECT_FLOAT_EQ(s.lensPupilRadius(), 0.625f) << "scene units, as the focus distance";
  EXPECT_TRUE(s.ndcTransformIsIdentity());
  // The right edge: half a width over a focal length.
  expectNear(worldRay(s, 1, 0).direction, Vec3d(0.36, 0, -1).normalized());
  expectNear(worldRay(s, 0, 0).direction, {0, 0, -1});
  EXPECT_EQ(worldRay(s, 0, 0).minDistance, 0.25f);
  EXPECT_EQ(worldRay(s, 0, 0).maxDistance, 1000.0f);
}

TEST(SceneCamera, OffsetsMoveTheWindowByTwoOverTheWidthOnBothAxes) {
  CameraParameters p = fullFrame();
  p.horizontalApertureOffset = 0.9;  // a quarter of the width
  p.verticalApertureOffset = -0.45;  // an eighth of it
  const Camera::Sample s = sampled(p);
  EXPECT_DOUBLE_EQ(s.sensor.apertureTranslate.x, 0.5);
  EXPECT_DOUBLE_EQ(s.sensor.apertureTranslate.y, -0.25);
  EXPECT_FALSE(s.ndcTransformIsIdentity());
  // The centre of the picture looks through the middle of the moved window.
  expectNear(worldRay(s, 0, 0).direction, Vec3d(0.9 / 5.0, -0.45 / 5.0, -1).normalized());
  expectNear(worldRay(s, -1, 0).direction, Vec3d((0.9 - 1.8) / 5.0, -0.45 / 5.0, -1).normalized());
}

TEST(SceneCamera, OrthographicHasItsWindowInSceneUnits) {
  CameraParameters p = fullFrame();
  p.perspective = false;
  p.focalLength = 0.0;  // plays no part
  p.horizontalApertureOffset = 0.36;
  const Camera::Sample s = sampled(p);
  EXPECT_EQ(s.optics.focalLength, 1.0);
  EXPECT_EQ(s.sensor.apertureSize, Vec2d(3.6, 2.4));
  EXPECT_FLOAT_EQ(s.lensMagnification(), 3.6f);
  const RayContext edge = worldRay(s, 1, -0.5f, LensProjection::orthographic);
  expectNear(edge.origin, {1.8 + 0.36, -0.9, 0});
  EXPECT_EQ(edge.direction, Vec3f(0, 0, -1));
  // What lies at the window's right edge has NDC x = 1.
  EXPECT_NEAR(s.worldToNdc().transform(Vec4d(1.8 + 0.36, -0.9, -10, 1)).wNormalized().x, 1.0,
              1e-12);
}

TEST(SceneCamera, AnotherLensTakesThePartsItNeeds) {
  CameraParameters p = fullFrame();
  EXPECT_EQ(sampled(p, {}, {}, LensProjection::orthographic).optics.focalLength, 1.0);
  EXPECT_FLOAT_EQ(sampled(p, {}, {}, LensProjection::orthographic).lensMagnification(), 3.6f);
  p.perspective = false;
  EXPECT_FLOAT_EQ(sampled(p, {}, {}, LensProjection::perspective).lensMagnification(), 0.72f);
  EXPECT_FLOAT_EQ(sampled(p, {}, {}, LensProjection::cylindrical).lensMagnification(), 0.72f);
  p.perspective = true;
  for (LensProjection lens :
       {LensProjection::perspective, LensProjection::spherical, LensProjection::cylindrical}) {
    const std::unique_ptr<vela::LensProjectionFunction> function(vela::CreateProjectionFunc(lens));
    const Camera::Sample s = sampled(p, {}, {}, lens);
    EXPECT_EQ(s.projectionMatrix(), function->projectionMatrix(s));
  }
}

TEST(SceneCamera, PlacementIsParentTimesLocal) {
  Mat4d parent, local;
  parent.translate(10, 0, 0).rotateY(kPi / 2);
  local.translate(0, 2, -3).rotateX(-0.4);
  const Camera::Sample s = sampled(fullFrame(), parent, local);
  EXPECT_EQ(s.xform.parent, parent);
  EXPECT_EQ(s.xform.local, local);
  const Mat4d product = parent * local;
  for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(s.xform.l2w[i], product[i], 1e-14);
  EXPECT_EQ(s.xform.w2l, s.xform.l2w.inverse());
  // Turned a quarter to the left, the camera below looks along -x from ten to the right of it, two
  // up and three ahead.
  expectNear(worldRay(s, 0, 0).origin, {10.0 - 3.0, 2.0, 0.0});
}

TEST(SceneCamera, ScaleOfThePlacementChangesNothingButThePosition) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (double scale : {1e-200, 1e-13, 0.01, 7.0, 1e13, 1e150}) {
    for (int i = 0; i < 50; ++i) {
      Mat4d parent, local;
      parent.rotateX(3 * u(random)).rotateY(3 * u(random));
      local.translate(u(random), u(random), u(random)).rotateZ(3 * u(random));
      const Camera::Sample plain = sampled(fullFrame(), parent, local);
      parent.scale(scale, scale, scale);
      const Camera::Sample scaled = sampled(fullFrame(), parent, local);
      const RayContext a = worldRay(plain, 0.5f, -0.25f), b = worldRay(scaled, 0.5f, -0.25f);
      expectNear(b.direction, Vec3d(a.direction));
      ASSERT_NEAR(b.direction.length(), 1.0f, 1e-6f) << "distances are scene units";
      for (std::size_t k = 12; k < 15; ++k)
        ASSERT_NEAR(scaled.xform.l2w[k] / scale, plain.xform.l2w[k], 1e-12);
    }
  }
}

TEST(SceneCamera, MirroredAndShearedPlacementsKeepViewAndUpDirection) {
  Mat4d mirrored;
  mirrored.scale(-1, 1, 1);
  const Camera::Sample m = sampled(fullFrame(), mirrored);
  expectNear(worldRay(m, 1, 0).direction, Vec3d(0.36, 0, -1).normalized());

  Mat4d sheared;
  sheared[6] = 0.5;  // up leans back, to (0, 1, 0.5)
  sheared[0] = 3.0;
  const Camera::Sample s = sampled(fullFrame(), sheared);
  expectNear(worldRay(s, 0, 0).direction, {0, 0, -1});
  expectNear(worldRay(s, 0, 1).direction, Vec3d(0, 0.36, -1).normalized());
}

TEST(SceneCamera, WorldRaysProjectBack) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int i = 0; i < 500; ++i) {
    CameraParameters p = fullFrame();
    p.horizontalApertureOffset = u(random);
    p.verticalApertureOffset = u(random);
    Mat4d parent, local;
    parent.translate(u(random), u(random), u(random)).rotateX(3 * u(random)).scale(2, 2, 2);
    local.translate(u(random), u(random), u(random)).rotateY(3 * u(random));
    const Camera::Sample s = sampled(p, parent, local);
    const float x = static_cast<float>(u(random)), y = static_cast<float>(u(random));
    const RayContext ray = worldRay(s, x, y);
    const Vec3d at = Vec3d(ray.origin) + Vec3d(ray.direction) * 100.0;
    const Vec4d ndc = s.worldToNdc().transform(Vec4d(at.x, at.y, at.z, 1)).wNormalized();
    ASSERT_NEAR(ndc.x, static_cast<double>(x), 2e-6);
    ASSERT_NEAR(ndc.y, static_cast<double>(y), 2e-6);
  }
}

TEST(SceneCamera, WhatCannotBeSeenThroughLeavesTheSampleUntouched) {
  Camera::Sample s;
  s.time = 42.0;
  const Mat4d identity;
  const auto refused = [&](const CameraParameters& p, const Mat4d& parent) {
    return !vela::sampleCamera(p, parent, identity, 0.0, s) && s.time == 42.0;
  };
  for (double bad : {0.0, -1.0, kNan, std::numeric_limits<double>::infinity()}) {
    CameraParameters p = fullFrame();
    p.horizontalAperture = bad;
    EXPECT_TRUE(refused(p, identity)) << bad;
    p = fullFrame();
    p.focalLength = bad;
    EXPECT_TRUE(refused(p, identity)) << bad;
  }
  Mat4d flat;
  flat.scale(1, 1, 0);
  EXPECT_TRUE(refused(fullFrame(), flat));
  EXPECT_TRUE(refused(fullFrame(), Mat4d(0.0)));
  EXPECT_TRUE(refused(fullFrame(), Mat4d(kNan)));
  Mat4d lost;
  lost[13] = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(refused(fullFrame(), lost));
  EXPECT_FALSE(vela::sampleCameraPrim(CameraPrim(), 0.0, s));
  EXPECT_EQ(s.time, 42.0);
}

TEST(SceneCamera, SaysWhyACameraCannotBeUsed) {
  Camera::Sample s;
  s.time = 42.0;
  std::string error = "before";
  const auto reason = [&](const CameraParameters& p, const Mat4d& parent, LensProjection lens) {
    const bool isMade = vela::sampleCamera(p, parent, Mat4d(), 0.0, s, lens, &error);
    EXPECT_EQ(isMade, error.empty());
    return error;
  };
  const Mat4d identity, flat(0.0);
  CameraParameters narrow = fullFrame(), blind = fullFrame();
  narrow.horizontalAperture = 0.0;
  blind.focalLength = kNan;
  const LensProjection own = LensProjection::none;
  EXPECT_EQ(reason(narrow, identity, own), "the film's width is not positive and finite");
  EXPECT_EQ(reason(blind, identity, own), "the focal length is not positive and finite");
  EXPECT_EQ(reason(fullFrame(), flat, own), "the placement has no inverse");
  EXPECT_EQ(reason(narrow, flat, own), "the film's width is not positive and finite") << "first";
  EXPECT_FALSE(vela::sampleCameraPrim(CameraPrim(), 0.0, s, own, &error));
  EXPECT_EQ(error, "the prim is not a camera");
  EXPECT_EQ(s.time, 42.0) << "untouched";

  EXPECT_EQ(reason(blind, identity, LensProjection::orthographic), "");
  EXPECT_EQ(s.time, 0.0);
}

// ---- Prims

TEST(SceneCamera, APrimOfAStageIsSampledAtATime) {
  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
  ovo::XformablePrim group(stage->definePrim(ovo::Path("/group"), ovo::Token("Xform")));
  const CameraPrim camera = CameraPrim::define(stage, ovo::Path("/group/camera"));
  ASSERT_TRUE(camera.isValid());
  Mat4d at1, at2, scale;
  at1.translate(0, 0, 10);
  at2.translate(0, 0, 20);
  scale.scale(3, 3, 3);
  ASSERT_TRUE(group.setLocalXform(scale));
  ASSERT_TRUE(camera.setLocalXform(at1, 1.0));
  ASSERT_TRUE(camera.setLocalXform(at2, 2.0));
  CameraParameters p = fullFrame();
  p.perspective = false;
  ASSERT_TRUE(camera.setParameters(p));

  EXPECT_EQ(vela::cameraPrimLens(camera), LensProjection::orthographic);
  Camera::Sample s;
  ASSERT_TRUE(vela::sampleCameraPrim(camera, 1.5, s));
  EXPECT_EQ(s.time, 1.5);
  EXPECT_NEAR(s.xform.l2w[14], 45.0, 1e-9);
  EXPECT_NEAR(s.xform.local[14], 15.0, 1e-9);
  EXPECT_NEAR(s.xform.parent[0], 3.0, 1e-9);
  EXPECT_NEAR(s.xform.l2w[0], 1.0, 1e-12);
  EXPECT_EQ(s.optics.focalLength, 1.0);
  EXPECT_NEAR(s.sensor.apertureSize.x, 3.6, 1e-6);
  ASSERT_TRUE(vela::sampleCameraPrim(camera, tarn::defaultTimeValue(), s));
  EXPECT_NEAR(s.xform.l2w[14], 30.0, 1e-9) << "the first sample where there is no default";
  EXPECT_FALSE(vela::sampleCameraPrim(CameraPrim(group), 1.0, s)) << "no camera";
}

// Every camera that the oracle lists, at every time it lists: projection, focal length, apertures,
// offsets, clipping, focus, f-stop as stored (tenths of a unit for the film), and the world
// matrix.
TEST(SceneCamera, CamerasOfRealFilesAreThoseOfTheOracle) {
  requireSharedData("usd/oracle");
  int cameras = 0, files = 0;
  for (const char* name : {"scenes", "openusd_testenv", "usdwg_test_assets"}) {
    std::ifstream in(vela_test::sharedDataPath(std::string("usd/oracle/") + name + ".json"));
    ASSERT_TRUE(in) << name;
    const nlohmann::json oracle = nlohmann::json::parse(in);
    for (const auto& [file, scene] : oracle.items()) {
      if (!scene.value("opens", false) || !scene.contains("prims")) continue;
      const bool hasCamera =
          std::any_of(scene["prims"].begin(), scene["prims"].end(),
                      [](const nlohmann::json& prim) { return prim.contains("camera"); });
      if (!hasCamera || !vela_test::haveSharedData("usd/" + file)) continue;
      SCOPED_TRACE(file);
      std::string error;
      const std::shared_ptr<ovo::Stage> stage =
          ovo::Stage::open(vela_test::sharedDataPath("usd/" + file), &error);
      ASSERT_NE(stage, nullptr) << error;
      ++files;
      for (const nlohmann::json& listed : scene["prims"]) {
        if (!listed.contains("camera")) continue;
        const std::string path = listed["path"];
        SCOPED_TRACE(path);
        const CameraPrim camera(stage->getPrimAtPath(ovo::Path(path)));
        ASSERT_TRUE(camera.isValid());
        const nlohmann::json& rows = listed["camera"];
        const nlohmann::json& matrices = listed["localToWorld"];
        for (std::size_t i = 0; i < rows.size(); ++i) {
          // The default column follows OpenUSD, which takes no first sample there: the same only
          // where nothing moves.
          const nlohmann::json& when = scene["times"][i];
          if (!when.is_number() && rows.size() > 1) continue;
          const double time = when.is_number() ? when.get<double>() : tarn::defaultTimeValue();
          SCOPED_TRACE(time);
          ++cameras;
          Camera::Sample s;
          ASSERT_TRUE(vela::sampleCameraPrim(camera, time, s));
          const nlohmann::json& row = rows[i];
          const auto number = [&](std::size_t k) { return row[k].get<double>(); };
          const bool perspective = row[0] == "perspective";
          EXPECT_EQ(vela::cameraPrimLens(camera, time) == LensProjection::perspective, perspective);
          const auto near = [](double a, double b) {
            EXPECT_NEAR(a, b, 1e-6 * std::fmax(1.0, std::fabs(b)));
          };
          near(s.optics.focalLength, perspective ? number(1) / 10.0 : 1.0);
          near(s.sensor.apertureSize.x, number(2) / 10.0);
          near(s.sensor.apertureSize.y, number(3) / 10.0);
          near(s.sensor.apertureTranslate.x, 2.0 * number(4) / number(2));
          near(s.sensor.apertureTranslate.y, 2.0 * number(5) / number(2));
          near(s.lensAp.clipNearDistance, number(6));
          near(s.lensAp.clipFarDistance, number(7));
          near(s.optics.focusDistance, number(8));
          near(s.lensAp.fStop, number(9));

          // Field of view, from the derived value.
          if (perspective) near(static_cast<double>(s.lensMagnification()), number(2) / number(1));

          // World placement: the oracle's matrix with its axes brought to unit length, and the same
          // position.
          const nlohmann::json& m = matrices[matrices.size() == rows.size() ? i : 0];
          for (std::size_t axis : {std::size_t(4), std::size_t(8)}) {
            const Vec3d stored(m[axis], m[axis + 1], m[axis + 2]);
            const Vec3d ours(s.xform.l2w[axis], s.xform.l2w[axis + 1], s.xform.l2w[axis + 2]);
            EXPECT_LT((stored.normalized() - ours).length(), 1e-6);
          }
          for (std::size_t k = 12; k < 15; ++k) near(s.xform.l2w[k], m[k].get<double>());
        }
      }
    }
  }
  std::printf("%d cameras at their times, in %d files\n", cameras, files);
  EXPECT_GT(cameras, 10);
}

}  // namespace
