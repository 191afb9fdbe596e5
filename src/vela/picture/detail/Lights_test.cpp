// Images of domes as places that light is looked for.
#include "vela/picture/detail/Lights.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using tarn::Vec2d;
using vela::picture::detail::DomeGrid;

constexpr std::size_t kCells = DomeGrid::kColumns * DomeGrid::kRows;

TEST(DomeGrid, BrightCellsAreChosenAsOftenAsTheyAreBright) {
  std::vector<double> weights(kCells, 1.0);
  // One cell has as much as all others together.
  const std::size_t bright = 100 * DomeGrid::kColumns + 7;
  weights[bright] = static_cast<double>(kCells);
  const DomeGrid grid(weights);
  std::mt19937 random(3);
  std::uniform_real_distribution<double> number(0.0, 1.0);
  int inBright = 0;
  double inverse = 0.0;
  const int count = 100000;
  for (int i = 0; i < count; ++i) {
    const Vec2d p = grid.sample(number(random), number(random));
    ASSERT_TRUE(p.x >= 0.0 && p.x <= 1.0 && p.y >= 0.0 && p.y <= 1.0);
    inBright += static_cast<std::size_t>(p.x * DomeGrid::kColumns) == 7 &&
                static_cast<std::size_t>(p.y * DomeGrid::kRows) == 100;
    inverse += 1.0 / grid.density(p);
  }
  EXPECT_NEAR(inBright, count / 2, 0.01 * count);
  // The mean of one over the density is the area of the square.
  EXPECT_NEAR(inverse / count, 1.0, 0.02);
}

TEST(DomeGrid, NoPlaceIsLeftOut) {
  std::vector<double> weights(kCells, 0.0);
  EXPECT_NEAR(DomeGrid(weights).density({0.3, 0.9}), 1.0, 1e-9);
  weights[0] = 1.0;
  const DomeGrid grid(weights);
  EXPECT_GT(grid.density({0.99, 0.99}), 0.0);
  EXPECT_GT(grid.density({0.0, 0.0}), 0.9 * static_cast<double>(kCells));
  // The ends of the square.
  for (const Vec2d& draw : {Vec2d(0.0, 0.0), Vec2d(0.9999999, 0.9999999)}) {
    const Vec2d p = grid.sample(draw.x, draw.y);
    EXPECT_GT(grid.density(p), 0.0);
    EXPECT_LE(p.x, 1.0);
    EXPECT_LE(p.y, 1.0);
  }
}

}  // namespace
