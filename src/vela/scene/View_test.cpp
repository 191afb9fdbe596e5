// Views: which camera, the rays of its pixels and the way back from points to pixels.
#include "vela/scene/View.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "support/TextStage.h"
#include "vela/camera/RayContext.h"
#include "vela/scene/PixelFinder.h"

namespace {

using namespace vela::scene;
using tarn::Mat4d;
using tarn::Vec2d;
using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;
using vela::LensProjection;
using vela_test::stageOf;

constexpr LensProjection kLenses[] = {LensProjection::perspective, LensProjection::orthographic,
                                      LensProjection::spherical, LensProjection::cylindrical};

// A camera with its film moved aside, turned about two axes, as far from zero as is said.
std::shared_ptr<ovo::Stage> cameraStage(double away) {
  return stageOf(
      "def Camera \"Eye\"\n{\n float focalLength = 30\n float horizontalAperture = 36\n"
      " float horizontalApertureOffset = 5\n float verticalApertureOffset = -3\n"
      " float2 clippingRange = (0.5, 1e6)\n"
      " double3 xformOp:translate = (" +
      std::to_string(3 + away) + ", " + std::to_string(2 - away) +
      ", 7)\n float3 xformOp:rotateXYZ = (-20, 35, 5)\n uniform token[] xformOpOrder = "
      "[\"xformOp:translate\", \"xformOp:rotateXYZ\"]\n}\n");
}

Extent extentAbout(const Vec3d& middle) {
  Extent extent;
  extent.box = {middle - Vec3d(10), middle + Vec3d(10)};
  return extent;
}

View viewOf(const ovo::Stage& stage, LensProjection lens, double away) {
  ViewOptions options;
  options.lens = lens;
  options.width = 160;
  options.height = 90;
  return makeView(stage, options, extentAbout({away, -away, 0})).value();
}

std::uint32_t bitsOf(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}
void expectSameBits(const Vec3f& a, const Vec3f& b) {
  for (std::size_t i = 0; i < 3; ++i)
    // Zeros may differ in sign.
    EXPECT_TRUE(bitsOf(a[i]) == bitsOf(b[i]) || (a[i] == 0.0f && b[i] == 0.0f)) << a << " " << b;
}

TEST(View, RaysAboutAnyPointHaveTheBitsOfTheLensMovedThere) {
  const unsigned seed = 21;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  for (const double away : {0.0, 1.0e4, 3.7e9})
    for (const LensProjection lens : kLenses) {
      const auto stage = cameraStage(away);
      const View view = viewOf(*stage, lens, away);
      std::vector<Vec2f> points;
      for (int i = 0; i < 333; ++i)  // no multiple of any batch
        points.push_back(view.ndc(80 + 80 * unit(random), 45 + 45 * unit(random)));
      std::vector<WorldRay> rays(points.size());
      view.makeRays(points.data(), points.size(), rays.data());

      const Vec3d zero(away + 5 * unit(random), -away + 5 * unit(random), unit(random));
      Mat4d movedFromCamera;
      movedFromCamera.translate(-zero.x, -zero.y, -zero.z);
      movedFromCamera *= view.worldFromCamera;
      for (std::size_t i = 0; i < points.size(); ++i) {
        vela::ProjectCoord coord;
        coord.x = points[i].x;
        coord.y = points[i].y;
        vela::RayContext context;
        view.projection->generateRayGeometry(
            1, &coord, &view.sample, vela::ProjectionImageContext::forSize(160, 90), &context);
        context.transform(movedFromCamera);
        expectSameBits(Vec3f(rays[i].offset + (rays[i].base - zero)), context.origin);
        expectSameBits(rays[i].direction, context.direction);
        EXPECT_EQ(rays[i].minDistance, context.minDistance);
        EXPECT_EQ(rays[i].maxDistance, context.maxDistance);
      }
    }
}

TEST(PixelFinder, PointsOnARayShowWhereTheRayWasMade) {
  const unsigned seed = 22;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (const double away : {0.0, 1.0e4})
    for (const LensProjection lens : kLenses) {
      SCOPED_TRACE(static_cast<int>(lens));
      const auto stage = cameraStage(away);
      const View view = viewOf(*stage, lens, away);
      const PixelFinder finder(view);
      for (int i = 0; i < 500; ++i) {
        // The poles of a sphere are one point for a whole row of pixels, and the seam is two.
        const Vec2d wanted(0.5 + 159 * unit(random), 0.5 + 89 * unit(random));
        const Vec2f point = view.ndc(wanted.x, wanted.y);
        WorldRay ray;
        view.makeRays(&point, 1, &ray);
        const double distance = 0.5 + 100 * unit(random);
        Vec2d pixel;
        ASSERT_TRUE(finder.find(ray.base + ray.offset + Vec3d(ray.direction) * distance, pixel));
        // Directions are floats: 6e-8 of a radian, at a scale of up to 160 pixels a radian and more
        // towards the edge and the poles.
        EXPECT_NEAR(pixel.x, wanted.x, 2e-3);
        EXPECT_NEAR(pixel.y, wanted.y, 2e-3);
      }
    }
}

TEST(PixelFinder, NoPixelShowsWhatLiesBehindOrIsNotFinite) {
  const auto stage = cameraStage(0);
  constexpr double kInf = std::numeric_limits<double>::infinity();
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  for (const LensProjection lens : kLenses) {
    SCOPED_TRACE(static_cast<int>(lens));
    const View view = viewOf(*stage, lens, 0);
    const PixelFinder finder(view);
    const Vec3d eye(view.worldFromCamera[12], view.worldFromCamera[13], view.worldFromCamera[14]);
    const Vec3d back(view.worldFromCamera[8], view.worldFromCamera[9], view.worldFromCamera[10]);
    Vec2d pixel;
    EXPECT_EQ(finder.find(eye + back * 5.0, pixel), lens != LensProjection::perspective);
    EXPECT_FALSE(finder.find({kNan, 0, 0}, pixel));
    EXPECT_FALSE(finder.find({0, kInf, 0}, pixel));
  }
}

TEST(View, ASceneWithoutACameraIsFramedWhole) {
  const unsigned seed = 23;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  for (const char* up : {"Y", "Z"})
    for (const LensProjection lens : {LensProjection::perspective, LensProjection::orthographic})
      for (const double size : {1e-3, 1.0, 1e6}) {
        const auto stage = stageOf(std::string("( upAxis = \"") + up + "\" )\n");
        Extent extent;
        for (int i = 0; i < 40; ++i) {
          extent.outermost.emplace_back(Vec3d(unit(random), unit(random), unit(random)) * size);
          extent.box.extendBy(extent.outermost.back());
        }
        ViewOptions options;
        options.lens = lens;
        const View view = makeView(*stage, options, extent).value();
        EXPECT_TRUE(view.camera.isEmpty());
        EXPECT_EQ(view.lens, lens);
        EXPECT_EQ(view.width, 1280);
        EXPECT_EQ(view.height, 720);
        const PixelFinder finder(view);
        Vec2d low(1e9), high(-1e9);
        for (const Vec3d& point : extent.outermost) {
          Vec2d pixel;
          ASSERT_TRUE(finder.find(point, pixel));
          low = {std::min(low.x, pixel.x), std::min(low.y, pixel.y)};
          high = {std::max(high.x, pixel.x), std::max(high.y, pixel.y)};
        }
        EXPECT_GE(low.x, 0);
        EXPECT_GE(low.y, 0);
        EXPECT_LE(high.x, 1280);
        EXPECT_LE(high.y, 720);
        // No more air than the margin and the rounds of framing leave.
        EXPECT_GT(std::max((high.x - low.x) / 1280, (high.y - low.y) / 720), 0.8);
      }
}

TEST(View, TheSphericalLensMakesPicturesOfTwoToOne) {
  ViewOptions options;
  options.lens = LensProjection::spherical;
  const View view = makeView(*stageOf(""), options, Extent()).value();
  EXPECT_EQ(view.width, 1280);
  EXPECT_EQ(view.height, 640);
}

TEST(View, TheHeightFollowsTheCamerasFilmUnlessItIsGiven) {
  const auto stage = stageOf(
      "def Camera \"Square\"\n{\n float horizontalAperture = 24\n float verticalAperture = 24\n}\n"
      "def Camera \"Scope\"\n{\n float horizontalAperture = 21.95\n float verticalAperture = "
      "9.18\n token projection = \"orthographic\"\n}\n"
      "def Camera \"NoHeight\"\n{\n float horizontalAperture = 24\n float verticalAperture = 0\n}\n"
      "def Camera \"Slit\"\n{\n float horizontalAperture = 24\n float verticalAperture = 1e9\n}\n");
  const auto heightOf = [&](const char* camera, int width, int height, LensProjection lens) {
    ViewOptions options;
    options.camera = ovo::Path(camera);
    options.width = width;
    options.height = height;
    options.lens = lens;
    return makeView(*stage, options, Extent()).value().height;
  };
  constexpr LensProjection kOwn = LensProjection::none;
  EXPECT_EQ(heightOf("/Square", 0, 0, kOwn), 1280);
  EXPECT_EQ(heightOf("/Square", 960, 0, kOwn), 960);
  EXPECT_EQ(heightOf("/Square", 960, 540, kOwn), 540);
  EXPECT_EQ(heightOf("/Square", 960, 0, LensProjection::orthographic), 960);
  EXPECT_EQ(heightOf("/Scope", 1000, 0, kOwn), 418);  // 418.2
  EXPECT_EQ(heightOf("/NoHeight", 1600, 0, kOwn), 900);
  EXPECT_EQ(heightOf("/Slit", 1600, 0, kOwn), 65536);
  EXPECT_EQ(heightOf("/Scope", 2, 0, kOwn), 1);
  // The round lenses look past the film.
  EXPECT_EQ(heightOf("/Square", 1000, 0, LensProjection::spherical), 500);
  EXPECT_EQ(heightOf("/Square", 1600, 0, LensProjection::cylindrical), 900);
}

TEST(View, CamerasAreNamedPassedOverOrRefused) {
  const auto stage = stageOf(
      "def Camera \"Flat\"\n{\n float horizontalAperture = 0\n}\n"
      "def Camera \"Good\"\n{\n token projection = \"orthographic\"\n}\ndef Xform "
      "\"Other\"\n{\n}\n");
  ViewOptions options;
  View first = makeView(*stage, options, Extent()).value();
  EXPECT_TRUE(first.camera.isEmpty()) << "the first is none, so all is framed";
  ASSERT_EQ(first.problems.size(), 1u);
  EXPECT_EQ(first.problems[0].kind, Problem::Kind::unusableCamera);
  EXPECT_EQ(first.problems[0].severity, Problem::Severity::warning);
  EXPECT_EQ(first.problems[0].subject, "/Flat");

  options.camera = ovo::Path("/Good");
  const View named = makeView(*stage, options, Extent()).value();
  EXPECT_EQ(named.camera, ovo::Path("/Good"));
  EXPECT_EQ(named.lens, LensProjection::orthographic) << "its own";
  EXPECT_TRUE(named.problems.empty());

  Problem problem;
  options.camera = ovo::Path("/Flat");
  EXPECT_FALSE(makeView(*stage, options, Extent(), &problem));
  EXPECT_EQ(problem.kind, Problem::Kind::unusableCamera);
  EXPECT_EQ(problem.severity, Problem::Severity::error);
  for (const char* none : {"/Other", "/Nothing"}) {
    options.camera = ovo::Path(none);
    EXPECT_FALSE(makeView(*stage, options, Extent(), &problem));
    EXPECT_EQ(problem.kind, Problem::Kind::noSuchCamera);
    EXPECT_EQ(problem.text(), none);
  }

  Work work;
  work.stop = [] { return true; };
  EXPECT_FALSE(makeView(*stage, ViewOptions(), Extent(), &problem, work));
  EXPECT_EQ(problem.kind, Problem::Kind::stopped);
}

TEST(View, DepthRunsAlongTheAxisOfLinearLenses) {
  const auto stage = cameraStage(0);
  const View flat = viewOf(*stage, LensProjection::perspective, 0);
  const Vec3d back(flat.worldFromCamera[8], flat.worldFromCamera[9], flat.worldFromCamera[10]);
  const Vec3d right(flat.worldFromCamera[0], flat.worldFromCamera[1], flat.worldFromCamera[2]);
  const Vec3f aslant(right * 0.6 - back * 0.8);
  EXPECT_NEAR(depthOf(flat, aslant, 10.0), 8.0f, 1e-5f);
  EXPECT_EQ(depthOf(viewOf(*stage, LensProjection::spherical, 0), aslant, 10.0), 10.0f);
}

TEST(View, ATurnGoesAroundTheMiddleOfWhatThereIsToSee) {
  const auto stage = vela_test::stageOf(vela_test::squareText("M") + "def Camera \"C\"\n{\n" +
                                        vela_test::at(1, 2, 9) + "}\n");
  const MeshList list = listMeshes(*stage, MeshFilter()).value();
  const Extent extent = extentOf(list);
  ViewOptions options;
  const View still = makeView(*stage, options, extent).value();
  options.turn = 0.0;
  EXPECT_EQ(makeView(*stage, options, extent)->worldFromCamera, still.worldFromCamera);

  // Up is y: a quarter takes z to x, and the camera still sees the middle where it did.
  options.turn = 90.0;
  const View quarter = makeView(*stage, options, extent).value();
  const tarn::Mat4d& m = quarter.worldFromCamera;
  EXPECT_NEAR(m[12], 9.0, 1e-12);
  EXPECT_NEAR(m[13], 2.0, 1e-12);
  EXPECT_NEAR(m[14], -1.0, 1e-12);
  EXPECT_NEAR(m[8], 1.0, 1e-12);
  const tarn::Vec3d middle = extent.box.center();
  const auto before = still.worldFromCamera.inverse().transformPoint(middle);
  const auto after = m.inverse().transformPoint(middle);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(before[i], after[i], 1e-12);
}

TEST(View, AMadeUpViewThatTurnsShowsEverythingFromAllSides) {
  for (const char* axis : {"Y", "Z"}) {
    const auto stage =
        vela_test::stageOf(std::string(vela_test::squareText("A", vela_test::at(3, 0, 0))) +
                           vela_test::squareText("B", vela_test::at(-5, 1, 2)));
    stage->setUpAxis(ovo::Token(axis));
    const MeshList list = listMeshes(*stage, MeshFilter()).value();
    const Extent extent = extentOf(list);
    ViewOptions options;
    for (int degrees = 0; degrees < 360; degrees += 15) {
      options.turn = degrees;
      const View view = makeView(*stage, options, extent).value();
      PixelFinder finder(view);
      for (const tarn::Vec3d& point : extent.outermost) {
        tarn::Vec2d pixel;
        ASSERT_TRUE(finder.find(point, pixel)) << degrees;
        EXPECT_TRUE(pixel.x >= 0 && pixel.x <= view.width && pixel.y >= 0 && pixel.y <= view.height)
            << degrees;
      }
    }
  }
}

const std::string kLensCamera =
    "def Camera \"Camera\"\n{\n float focalLength = 50\n float horizontalAperture = 20\n"
    " float verticalAperture = 20\n float fStop = 2\n float focusDistance = 8\n"
    " float2 clippingRange = (2, 30)\n"
    " float4[] clippingPlanes = [(1, 0, 0, 0.5), (nan, 0, 0, 1)]\n}\n";

TEST(View, RaysThroughTheLensMeetWhereThePictureIsInFocus) {
  const auto stage = stageOf(kLensCamera);
  ViewOptions options;
  options.width = options.height = 100;
  EXPECT_EQ(makeView(*stage, options, Extent())->lensRadius, 0.0) << "unless it is asked for";
  options.depthOfField = true;
  const View view = makeView(*stage, options, Extent()).value();
  EXPECT_TRUE(view.problems.empty());
  // 50 tenths of a unit, over f/2, halved.
  EXPECT_DOUBLE_EQ(view.lensRadius, 1.25);
  EXPECT_EQ(view.focusDistance, 8.0);

  const tarn::Vec2f point = view.ndc(80.0, 30.0);
  WorldRay middle;
  view.makeRays(&point, 1, &middle);
  const Vec3d focus = Vec3d(middle.direction) * (8.0 / -static_cast<double>(middle.direction.z));
  for (const tarn::Vec2f onLens : {tarn::Vec2f(), {1, 0}, {0, -1}, {-0.5f, 0.75f}}) {
    WorldRay ray;
    view.makeRays(&point, &onLens, 1, &ray);
    const Vec3d start = ray.base + ray.offset;
    EXPECT_LT((start - Vec3d(onLens.x, onLens.y, 0.0) * 1.25).length(), 1e-7);
    EXPECT_NEAR(ray.direction.length(), 1.0f, 1e-6f);
    const double distance = (focus - start).length();
    EXPECT_LT((start + Vec3d(ray.direction) * distance - focus).length(), 2e-6);
  }
  const tarn::Vec2f centre;
  WorldRay same;
  view.makeRays(&point, &centre, 1, &same);
  EXPECT_LT((same.direction - middle.direction).length(), 2e-7f);
}

TEST(View, DepthOfFieldThatThereCannotBeIsSaid) {
  ViewOptions options;
  options.depthOfField = true;
  const auto said = [&](const std::string& text, vela::LensProjection lens) {
    options.lens = lens;
    const View view = makeView(*stageOf(text), options, Extent()).value();
    EXPECT_EQ(view.lensRadius, 0.0);
    return view.problems.size() == 1 && view.problems[0].kind == Problem::Kind::noEffect
               ? view.problems[0].text()
               : "";
  };
  using vela::LensProjection;
  EXPECT_EQ(said("", LensProjection::none), "depth of field: there is no camera");
  EXPECT_EQ(said("def Camera \"C\"\n{\n float focusDistance = 3\n}\n", LensProjection::none),
            "depth of field: /C has no f-stop");
  EXPECT_EQ(said("def Camera \"C\"\n{\n float fStop = 3\n}\n", LensProjection::none),
            "depth of field: /C has no focus distance");
  EXPECT_EQ(said(kLensCamera, LensProjection::spherical),
            "depth of field: the camera is none of perspective");
}

TEST(View, ClippingKeepsOfARayWhatLiesBetweenThePlanes) {
  const auto stage = stageOf(kLensCamera);
  ViewOptions options;
  options.width = options.height = 100;
  View view = makeView(*stage, options, Extent()).value();
  const auto rangeOf = [&](double x, double y) {
    const tarn::Vec2f point = view.ndc(x, y);
    WorldRay ray;
    view.makeRays(&point, 1, &ray);
    return ray;
  };
  EXPECT_EQ(rangeOf(50, 50).minDistance, 2.0f);
  EXPECT_EQ(rangeOf(0, 0).minDistance, 2.0f) << "along the ray";

  options.clipping = true;
  view = makeView(*stage, options, Extent()).value();
  EXPECT_EQ(view.clippingPlanes.size(), 3u) << "near, far, and the one plane of numbers";
  EXPECT_EQ(rangeOf(50, 50).minDistance, 2.0f);
  EXPECT_EQ(rangeOf(50, 50).maxDistance, 30.0f);
  // 45 pixels to the left: the window is 2 / 5 of the distance wide. x = -0.5 at z = -0.5 / 0.18.
  const WorldRay left = rangeOf(5, 50);
  const double slant = std::sqrt(1.0 + 0.18 * 0.18);
  EXPECT_NEAR(left.minDistance, 2.0 * slant, 1e-6);
  EXPECT_NEAR(left.maxDistance, 0.5 / 0.18 * slant, 1e-6);
  const WorldRay right = rangeOf(95, 50);
  EXPECT_NEAR(right.maxDistance, 30.0 * slant, 1e-5);

  // Planes that leave nothing.
  const auto none = stageOf(
      "def Camera \"C\"\n{\n float4[] clippingPlanes = [(0, 1, 0, -1), (0, -1, 0, -1)]\n}\n");
  view = makeView(*none, options, Extent()).value();
  const WorldRay empty = rangeOf(50, 50);
  EXPECT_GT(empty.minDistance, empty.maxDistance);
}

}  // namespace
