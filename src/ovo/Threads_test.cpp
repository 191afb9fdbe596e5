// Any number of threads may read one stage, and open stages of the same files, at once.
#include <gtest/gtest.h>

#include <thread>

#include "ovo/CameraPrim.h"
#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/detail/TestScene.h"
#include "support/SharedData.h"

namespace {

using ovo::Prim;
using ovo::Stage;

// Everything that can be read of a stage, as one number.
std::size_t digest(const Stage& stage, double time) {
  std::size_t sum = stage.problems().size() + stage.getUpAxis().hash();
  std::vector<Prim> all, children;
  stage.findDescendentPrims({"/"}, all);
  ovo::XformCache cache(time);
  const auto add = [&sum](double value) { sum = sum * 31 + std::hash<double>()(value); };
  for (const Prim& prim : all) {
    sum = sum * 31 + prim.getPath().hash() + prim.getTypeName().hash() + prim.purpose().hash() +
          prim.isVisible(time);
    const tarn::Mat4d matrix = cache.getLocalToWorld(prim);
    for (std::size_t i = 0; i < 16; ++i) add(matrix[i]);
    prim.getChildren(children, false, true, true);
    sum = sum * 31 + children.size();
    for (const ovo::Token& name : prim.getAttrNames()) {
      const ovo::Attribute attribute = prim.getAttr(name);
      ovo::Array<tarn::Vec3f> points;
      double number = 0;
      if (attribute.get(points, time))
        for (const auto& point : std::as_const(points)) add(static_cast<double>(point.x));
      if (attribute.get(number, time)) add(number);
      sum = sum * 31 + attribute.timeSamples().size() + attribute.typeName().hash();
    }
    for (const ovo::Token& name : prim.getPrimvarNames())
      sum = sum * 31 + prim.findInheritedPrimvar(name).elementCount(time);
    add(ovo::CameraPrim(prim).getParameters(time).focalLength);
  }
  return sum;
}

void readFromManyThreads(const std::shared_ptr<Stage>& stage) {
  ASSERT_NE(stage, nullptr);
  const std::size_t expected = digest(*stage, 2.5);
  std::vector<std::size_t> sums(4);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < sums.size(); ++t)
    threads.emplace_back([&, t] {
      for (int round = 0; round < 3; ++round) sums[t] = digest(*stage, 2.5);
    });
  for (std::thread& thread : threads) thread.join();
  for (const std::size_t sum : sums) EXPECT_EQ(sum, expected);
}

TEST(Threads, ReadOneStageInMemoryAtOnce) {
  const auto stage = ovo_test::sceneOf(R"(
def Xform "Source" { double3 xformOp:translate.timeSamples = {1: (0, 0, 0), 5: (8, 0, 0)}
  uniform token[] xformOpOrder = ["xformOp:translate"]
  def Mesh "M" { point3f[] points.timeSamples = {1: [(0, 0, 0)], 5: [(1, 2, 3)]}
    float[] primvars:a = [1, 2] } }
def "I1" (instanceable = true
  references = </Source>) {}
def "I2" (instanceable = true
  references = </Source>) {}
def Camera "C" { float focalLength.timeSamples = {1: 10, 5: 50} }
)");
  readFromManyThreads(stage);
}

TEST(Threads, ReadOneFileAtOnce) {
  requireSharedData("usd/SubdivisionSurfaces/Creases_SpinningPyramids.usda");
  readFromManyThreads(Stage::open(
      vela_test::sharedDataPath("usd/SubdivisionSurfaces/Creases_SpinningPyramids.usda")));
}

TEST(Threads, OpenStagesOfTheSameFileAtOnceAndEditTheirOwn) {
  ovo_test::TemporaryFolder folder;
  folder.writeScene("part.usda", "#usda 1.0\ndef Xform \"P\" { int n = 1\n def Mesh \"M\" {} }\n");
  const std::string file =
      folder.writeScene("root.usda",
                        "#usda 1.0\ndef \"A\" (references = @./part.usda@</P>) {}\n"
                        "def \"B\" (references = @./missing.usda@) {}\n");
  std::vector<int> results(4, -1);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < results.size(); ++t)
    threads.emplace_back([&, t] {
      for (int round = 0; round < 10; ++round) {
        const auto stage = Stage::open(file);
        if (!stage || stage->problems().empty()) return;
        const Prim a = stage->getPrimAtPath("/A");
        if (!a.getAttr("n").set(static_cast<int>(t) * 100 + round)) return;
        if (!stage->definePrim("/A/New", "Mesh").isValid()) return;
        a.getAttr("n").get(results[t]);
      }
    });
  for (std::thread& thread : threads) thread.join();
  for (std::size_t t = 0; t < results.size(); ++t)
    EXPECT_EQ(results[t], static_cast<int>(t) * 100 + 9);
}

}  // namespace
