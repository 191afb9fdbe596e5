// What moves while a shutter is open, and rays that meet it.
#include "vela/scene/SceneMotion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ovo/OpenOptions.h"
#include "support/TextStage.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/RayCaster.h"
#include "vela/scene/SceneExtent.h"

namespace {

using namespace vela::scene;
using tarn::Vec3d;
using vela_test::at;
using vela_test::squareText;
using vela_test::stageOf;

// A list at frame 0 with its motion.
struct Moved {
  Moved(const std::string& text, const std::vector<double>& times, int level = 0)
      : stage(stageOf(text)) {
    filter.time = 0.0;
    filter.subdivisionLevel = level;
    list = listMeshes(*stage, filter).value();
    extent = extentOf(list);
    motion = addMotion(*stage, filter, times, list).value();
  }
  [[nodiscard]] const MeshEntry& entry(std::size_t moment, std::size_t i) const {
    return list.entries[motion.moments[moment].first + i];
  }
  std::shared_ptr<ovo::Stage> stage;
  MeshFilter filter;
  MeshList list;
  Extent extent;
  SceneMotion motion;
};

const std::string kSlide =
    " double3 xformOp:translate.timeSamples = { 0: (0, 0, 0), 1: (10, 0, 0) }\n"
    " uniform token[] xformOpOrder = [\"xformOp:translate\"]\n";

TEST(SceneMotion, ShutterTimesAreTheMiddlesOfEqualParts) {
  ovo::CameraParameters camera;
  camera.shutterOpen = -0.25;
  camera.shutterClose = 0.75;
  EXPECT_EQ(shutterTimes(camera, 10.0, 4), (std::vector<double>{9.875, 10.125, 10.375, 10.625}));
  EXPECT_EQ(shutterTimes(camera, 10.0, 1), (std::vector<double>{10.25}));
  EXPECT_TRUE(shutterTimes(camera, 10.0, 0).empty());
  EXPECT_TRUE(shutterTimes(camera, tarn::defaultTimeValue(), 4).empty());
  camera.shutterClose = -0.25;
  EXPECT_TRUE(shutterTimes(camera, 10.0, 4).empty()) << "it does not open";
  camera.shutterClose = -1.0;
  EXPECT_TRUE(shutterTimes(camera, 10.0, 4).empty()) << "it closes before it opens";
  camera.shutterClose = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(shutterTimes(camera, 10.0, 4).empty());
}

TEST(SceneMotion, CurvesMoveWhereTheirPointsOrWidthsChange) {
  const auto dots = [](const char* name, const std::string& points, const std::string& widths) {
    return std::string("def Points \"") + name + "\"\n{\n point3f[] points" + points +
           "\n float[] widths" + widths + "\n}\n";
  };
  const Moved moved(
      dots("Still", " = [(0, 0, 0)]", " = [1]") +
          dots("Grows", " = [(5, 0, 0)]", ".timeSamples = { 0: [1], 1: [3] }") +
          dots("Slides", ".timeSamples = { 0: [(0, 5, 0)], 1: [(4, 5, 0)] }", " = [1]"),
      {0.5});
  EXPECT_EQ(moved.motion.moves, (std::vector<bool>{false, true, true}));
  EXPECT_EQ(moved.list.shapes[moved.entry(0, 0).shape].tubes->radii[0], 1.0f);
  EXPECT_EQ(moved.list.shapes[moved.entry(0, 1).shape].points[0].x, 2.0f);
}

TEST(SceneMotion, OnlyWhatMovesIsThereAtEachMoment) {
  const Moved moved(squareText("Still") + squareText("Slides", kSlide) + squareText("StillToo"),
                    {0.25, 0.5});
  EXPECT_EQ(moved.motion.entries, 3u);
  EXPECT_EQ(moved.motion.moves, (std::vector<bool>{false, true, false}));
  ASSERT_EQ(moved.motion.moments.size(), 2u);
  EXPECT_EQ(moved.list.entries.size(), 5u);
  EXPECT_EQ(nameOf(moved.list, moved.motion.moments[1].first), "/Slides");
  EXPECT_EQ(moved.entry(0, 0).worldFromObject[12], 2.5);
  EXPECT_EQ(moved.entry(1, 0).worldFromObject[12], 5.0);
  EXPECT_EQ(moved.entry(1, 0).shape, moved.list.entries[1].shape) << "its points do not move";
  EXPECT_TRUE(moved.motion.shapeTimes.empty());

  EXPECT_FALSE(Moved(squareText("Still"), {0.25, 0.5}).motion.anythingMoves());
}

TEST(SceneMotion, PointsThatMoveHaveAShapeOfEachMoment) {
  const std::string flaps =
      "def Mesh \"Flaps\"\n{\n int[] faceVertexCounts = [4]\n"
      " int[] faceVertexIndices = [0, 1, 2, 3]\n"
      " point3f[] points.timeSamples = { 0: [(0,0,0), (1,0,0), (1,1,0), (0,1,0)],\n"
      "  1: [(0,0,0), (1,0,0), (1,1,8), (0,1,8)] }\n}\n";
  for (const int level : {0, 1}) {
    const Moved moved(flaps + squareText("Still"), {0.0, 0.5}, level);
    EXPECT_EQ(moved.motion.moves, (std::vector<bool>{true, false}));
    EXPECT_EQ(moved.entry(0, 0).shape, moved.list.entries[0].shape) << "at the list's own time";
    const std::uint32_t shape = moved.entry(1, 0).shape;
    EXPECT_EQ(shape, moved.motion.shapes);
    EXPECT_EQ(moved.motion.timeOfShape(shape, 0.0), 0.5);
    EXPECT_EQ(moved.motion.timeOfShape(0, 0.0), 0.0);
    const Shape& then = moved.list.shapes[shape];
    EXPECT_EQ(then.refinement != nullptr, level > 0);
    EXPECT_EQ(then.counts.size(), level > 0 ? 4u : 1u);
    if (level == 0) {
      EXPECT_EQ(then.points.view()[2].z, 4.0f);
    }
  }
}

TEST(SceneMotion, InstancesMoveAndKeepTheirNames) {
  const Moved moved(
      "def PointInstancer \"Many\"\n{\n rel prototypes = </Many/Proto>\n int[] protoIndices = [0, "
      "0]\n"
      " point3f[] positions.timeSamples = { 0: [(0, 0, 0), (5, 0, 0)], 1: [(0, 2, 0), (5, 0, 0)] "
      "}\n" +
          squareText("Proto") + "}\n",
      {0.5});
  EXPECT_EQ(moved.motion.moves, (std::vector<bool>{true, false}));
  const std::uint32_t first = moved.motion.moments[0].first;
  EXPECT_EQ(nameOf(moved.list, first), "/Many/Proto[0]");
  EXPECT_EQ(moved.list.entries[first].worldFromObject[13], 1.0);
}

TEST(SceneMotion, WhereSomethingAppearsAllEntriesOfTheMomentsAreTheirOwn) {
  const Moved moved(
      squareText("Still") + squareText("Blinks",
                                       " token visibility.timeSamples = { 0: \"inherited\", 1: "
                                       "\"invisible\" }\n"),
      {0.0, 1.0});
  EXPECT_EQ(moved.motion.moves, (std::vector<bool>{true, true}));
  EXPECT_EQ(moved.motion.moments[0].count, 2u);
  EXPECT_EQ(moved.motion.moments[1].count, 1u);

  // Instances that come and go have records of their own.
  const Moved many(
      "def PointInstancer \"Many\"\n{\n rel prototypes = </Many/Proto>\n"
      " int[] protoIndices.timeSamples = { 0: [0], 1: [0, 0] }\n"
      " point3f[] positions = [(0, 0, 0), (5, 0, 0)]\n" +
          squareText("Proto") + "}\n",
      {0.0, 1.0});
  ASSERT_EQ(many.motion.moments[1].count, 2u);
  EXPECT_EQ(nameOf(many.list, many.motion.moments[1].first + 1), "/Many/Proto[1]");
}

TEST(SceneMotion, StopsAndRefusesTooManyMoments) {
  MeshFilter filter;
  filter.time = 0.0;
  const auto stage = stageOf(squareText("Slides", kSlide));
  MeshList list = listMeshes(*stage, filter).value();
  Problem problem;
  Work work;
  work.stop = [] { return true; };
  EXPECT_FALSE(addMotion(*stage, filter, {0.5}, list, &problem, work));
  EXPECT_EQ(problem.kind, Problem::Kind::stopped);

  ovo::OpenOptions few;
  few.instances = 2;
  const std::string file = testing::TempDir() + "vela_motion_limit.usda";
  ASSERT_TRUE(stage->exportTo(file));
  const auto limited = ovo::openScene(file, few);
  ASSERT_TRUE(limited);
  list = listMeshes(*limited, filter).value();
  EXPECT_FALSE(addMotion(*limited, filter, {0.25, 0.5, 0.75}, list, &problem));
  EXPECT_EQ(problem.kind, Problem::Kind::tooManyInstances);
  std::remove(file.c_str());
}

// Rays of a moment against a caster of the scene as it is then, with nothing of motion.
TEST(SceneMotion, RaysOfAMomentMeetTheSceneAsItIsThen) {
  std::string text;
  for (int i = 0; i < 12; ++i) {
    const std::string name = "S" + std::to_string(i), z = std::to_string(-i);
    if (i % 3 == 0) {
      text += squareText(name, at(0.3 * i - 2.0, 0.1 * i, -i));
    } else {
      text += squareText(name, " double3 xformOp:translate.timeSamples = { 0: (" +
                                   std::to_string(i % 5 - 2) + ", 0, " + z + "), 1: (" +
                                   std::to_string(2 - i % 4) + ", 1, " + z +
                                   ") }\n uniform token[] xformOpOrder = "
                                   "[\"xformOp:translate\"]\n");
    }
  }
  const std::vector<double> times = {0.1, 0.4, 0.9};
  const Moved moved(text, times);
  const auto caster =
      RayCaster::make(CasterKind::tracer, moved.list, moved.motion, moved.extent, 0.0);
  ASSERT_TRUE(caster);

  std::mt19937 random(5);
  std::uniform_real_distribution<double> anywhere(-4.0, 4.0);
  std::vector<WorldRay> rays(4000);
  for (std::size_t i = 0; i < rays.size(); ++i) {
    rays[i].base = {anywhere(random), anywhere(random), 4.0};
    rays[i].direction = {0.0f, 0.0f, -1.0f};
    rays[i].moment = i % 5 == 4 ? kNoMoment : static_cast<std::uint32_t>(i % 5 % 4);
  }
  std::vector<SurfaceHit> hits(rays.size());
  caster->intersect(rays.data(), rays.size(), hits.data());
  const auto answers = std::make_unique<bool[]>(rays.size());
  caster->occluded(rays.data(), rays.size(), answers.get());

  std::size_t met = 0;
  for (std::size_t m = 0; m <= times.size(); ++m) {
    MeshFilter filter;
    filter.time = m < times.size() ? times[m] : 0.0;
    const MeshList then = listMeshes(*moved.stage, filter).value();
    const RayCaster plain(CasterKind::tracer, then, moved.extent, filter.time);
    for (std::size_t i = 0; i < rays.size(); ++i) {
      if (std::min<std::size_t>(rays[i].moment, times.size()) != m) continue;
      SurfaceHit expected;
      plain.intersect(&rays[i], 1, &expected);
      ASSERT_EQ(hits[i].hit, expected.hit) << i;
      ASSERT_EQ(answers[i], expected.hit) << i;
      if (!expected.hit) continue;
      ++met;
      EXPECT_EQ(hits[i].distance, expected.distance);
      EXPECT_EQ(hits[i].offset, expected.offset);
      EXPECT_EQ(hits[i].normal, expected.normal);
      EXPECT_EQ(nameOf(moved.list, hits[i].entry), nameOf(then, expected.entry));
      EXPECT_EQ(moved.list.entries[hits[i].entry].worldFromObject,
                then.entries[expected.entry].worldFromObject);
    }
  }
  EXPECT_GT(met, 800u);
}

TEST(SceneMotion, OfTwoThatLieInOnePlaneTheFirstOfTheSceneIsMet) {
  const std::string slides = squareText("Slides", kSlide), still = squareText("Still");
  for (const bool slidesFirst : {false, true}) {
    const Moved moved(slidesFirst ? slides + still : still + slides, {0.05});
    const auto caster =
        RayCaster::make(CasterKind::tracer, moved.list, moved.motion, moved.extent, 0.0);
    WorldRay ray;
    ray.base = {0.75, 0.0, 3.0};
    ray.direction = {0.0f, 0.0f, -1.0f};
    ray.moment = 0;
    SurfaceHit hit;
    caster->intersect(&ray, 1, &hit);
    ASSERT_TRUE(hit.hit);
    EXPECT_EQ(nameOf(moved.list, hit.entry), slidesFirst ? "/Slides" : "/Still");
  }
}

}  // namespace
