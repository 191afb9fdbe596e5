#include "vela/picture/Tiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace vela::picture;
using vela::scene::Work;

TEST(Tiles, EveryPixelBelongsToOneTile) {
  for (const int threads : {1, 2, 5}) {
    std::vector<int> seen(static_cast<std::size_t>(70 * 45), 0);
    EXPECT_TRUE(forEachTile(70, 45, threads, {}, [&](const Tile& tile, int thread, const Work&) {
      EXPECT_LT(thread, threads);
      EXPECT_GT(tile.width(), 0);
      EXPECT_LE(tile.width(), kTileSize);
      EXPECT_GT(tile.height(), 0);
      EXPECT_LE(tile.height(), kTileSize);
      for (int y = tile.y0; y < tile.y1; ++y)
        for (int x = tile.x0; x < tile.x1; ++x) ++seen[static_cast<std::size_t>(y * 70 + x)];
    }));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 70 * 45);
  }
}

TEST(Tiles, AnImageWithoutPixelsHasNoTiles) {
  for (const auto& [width, height] : {std::pair{0, 5}, {5, 0}, {-3, 5}})
    EXPECT_TRUE(forEachTile(width, height, 2, {}, [](const Tile&, int, const Work&) { FAIL(); }));
}

TEST(Tiles, TheWidestImageHasTilesToItsEnd) {
  constexpr int kWidest = std::numeric_limits<int>::max();
  std::atomic<int> tiles{0}, right{0};
  Work work;
  // A few tiles say enough; the last one of all is looked at in a row of one tile.
  work.stop = [&] { return tiles > 100; };
  forEachTile(kWidest, 1, 2, work, [&](const Tile& tile, int, const Work&) {
    ++tiles;
    right = std::max(right.load(), tile.x1);
    EXPECT_GE(tile.x0, 0);
  });
  EXPECT_GT(right, 0);
}

TEST(Tiles, WhatTheWorkThrowsComesOut) {
  EXPECT_THROW(forEachTile(64, 64, 2, {},
                           [](const Tile&, int, const Work&) { throw std::runtime_error("tile"); }),
               std::runtime_error);
}

TEST(Tiles, CallbacksAreCalledOnTheCallersThreadAlone) {
  const std::thread::id here = std::this_thread::get_id();
  std::vector<double> shares;
  Work work;
  work.stop = [&] {
    EXPECT_EQ(std::this_thread::get_id(), here);
    return false;
  };
  work.progress = [&](double share) {
    EXPECT_EQ(std::this_thread::get_id(), here);
    shares.push_back(share);
  };
  EXPECT_TRUE(forEachTile(256, 256, 3, work, [&](const Tile&, int, const Work&) {}));
  ASSERT_FALSE(shares.empty());
  EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
  EXPECT_EQ(shares.back(), 1.0);
}

TEST(Tiles, StoppingReachesIntoATile) {
  // Each tile lasts until it is told to stop: without that this would never end.
  std::atomic<int> begun{0};
  Work work;
  work.stop = [&] { return begun >= 2; };
  double last = 0.0;
  work.progress = [&](double share) { last = share; };
  EXPECT_FALSE(forEachTile(256, 256, 2, work, [&](const Tile&, int, const Work& inTile) {
    ++begun;
    while (!inTile.isStopped()) std::this_thread::yield();
  }));
  EXPECT_EQ(begun, 2);
  EXPECT_LT(last, 1.0);
}

TEST(Tiles, WorkThatIsStoppedBeforeItBeginsDoesNothing) {
  Work work;
  work.stop = [] { return true; };
  EXPECT_FALSE(forEachTile(64, 64, 2, work, [](const Tile&, int, const Work&) { FAIL(); }));
}

TEST(Tiles, ARequestForNoThreadsTakesThoseOfTheMachine) {
  EXPECT_EQ(threadCount(7), 7);
  EXPECT_GE(threadCount(0), 1);
  EXPECT_EQ(threadCount(-1), threadCount(0));
}

}  // namespace
