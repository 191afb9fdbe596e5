// The model of what a farm takes, by sums that are done by hand.
#include "vela/picture/FarmCost.h"

#include <gtest/gtest.h>

namespace {

using vela::picture::farmCost;
using vela::picture::FarmCost;
using vela::picture::FarmMeasure;
using vela::picture::FarmPlan;

// Each part another power of two, so that sums are exact and tell which parts are in them.
FarmMeasure measure() {
  FarmMeasure m;
  m.start = 1;
  m.open = 2;
  m.build = 4;
  m.trace = 8;
  m.shade = 16;
  m.write = 32;
  m.sceneBytes = 512;
  m.frameBytes = 64;
  return m;
}

TEST(FarmCost, OneMachineDoesOneFrameAfterTheOther) {
  FarmPlan plan;
  plan.frames = 5;
  // The check, and five tasks of all parts.
  EXPECT_EQ(farmCost(measure(), plan).seconds, 3 + 5 * 63);
  EXPECT_EQ(farmCost(measure(), plan).machineHours, (3 + 5 * 63) / 3600.0);
}

TEST(FarmCost, AChunkStartsAndOpensOnce) {
  FarmPlan plan;
  plan.frames = 5;
  plan.chunk = 2;
  EXPECT_EQ(farmCost(measure(), plan).seconds, 3 + 3 * 3 + 5 * 60);
  // Of two machines one has two tasks of two frames.
  plan.machines = 2;
  EXPECT_EQ(farmCost(measure(), plan).seconds, 3 + 2 * 3 + 4 * 60);
}

TEST(FarmCost, TheMachineWithTheMostTasksIsTheLast) {
  FarmPlan plan;
  plan.frames = 5;
  plan.machines = 2;
  plan.hourPrice = 2;
  const FarmCost cost = farmCost(measure(), plan);
  EXPECT_EQ(cost.seconds, 3 + 3 * 63);
  EXPECT_EQ(cost.machineHours, (2 * 3 + 5 * 63) / 3600.0);
  EXPECT_EQ(cost.price, 2 * cost.machineHours);
}

TEST(FarmCost, MachinesWithoutATaskCostNothing) {
  FarmPlan plan;
  plan.frames = 5;
  plan.machines = 1000;
  const FarmCost cost = farmCost(measure(), plan);
  EXPECT_EQ(cost.machines, 5);
  EXPECT_EQ(cost.seconds, 3 + 63);
  EXPECT_EQ(cost.machineHours, 5 * (3 + 63) / 3600.0);
}

TEST(FarmCost, TheEngineAndTheNetworkTakeTheirTime) {
  FarmPlan plan;
  plan.frames = 2;
  plan.sessionSeconds = 0.5;
  plan.taskSeconds = 0.25;
  plan.bytesPerSecond = 64;
  EXPECT_EQ(farmCost(measure(), plan).seconds, 512 / 64 + 0.5 + 3 + 2 * (0.25 + 63 + 1));
}

TEST(FarmCost, BandsShareTheRaysAndBuildEach) {
  FarmPlan plan;
  plan.frames = 1;
  plan.tiles = 4;
  plan.machines = 4;
  const double band = 3 + 4 + (24 + 32) / 4.0, join = 3 + 4 + 64;
  EXPECT_EQ(farmCost(measure(), plan).seconds, 3 + band + join);
  EXPECT_EQ(farmCost(measure(), plan).machines, 4);
  EXPECT_EQ(farmCost(measure(), plan).machineHours, (4 * 3 + 4 * band + join) / 3600.0);
  plan.machines = 3;
  EXPECT_EQ(farmCost(measure(), plan).seconds, 3 + 2 * band + join);
  plan.frames = 3;
  plan.machines = 2;
  EXPECT_EQ(farmCost(measure(), plan).seconds, 3 + 6 * band + 2 * join);
}

TEST(FarmCost, MoreMachinesAreNeverSlower) {
  for (const int tiles : {1, 7})
    for (int frames = 1; frames < 40; ++frames) {
      double last = 1e300;
      for (int machines = 1; machines < 80; ++machines) {
        FarmPlan plan;
        plan.frames = frames;
        plan.machines = machines;
        plan.tiles = tiles;
        const FarmCost cost = farmCost(measure(), plan);
        EXPECT_LE(cost.seconds, last) << frames << " frames, " << machines << " machines";
        EXPECT_LE(cost.machineHours * 3600.0, cost.seconds * cost.machines * (1 + 1e-12));
        last = cost.seconds;
      }
    }
}

TEST(FarmCost, WhatIsNoNumberOfThingsCountsAsOne) {
  FarmPlan plan;
  plan.frames = plan.machines = plan.chunk = plan.tiles = 0;
  EXPECT_EQ(farmCost(measure(), plan).seconds, 3 + 63);
}

}  // namespace
