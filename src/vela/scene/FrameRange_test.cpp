// Lists of frames, and names with a place for the frame.
#include "vela/scene/FrameRange.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace vela::scene;
using Frames = std::vector<double>;

TEST(FrameRange, NumbersAndRangesAreRead) {
  const std::vector<std::pair<std::string, Frames>> cases = {
      {"7", {7}},
      {"1-4", {1, 2, 3, 4}},
      {"1-10x2,24", {1, 3, 5, 7, 9, 24}},
      {"4-1", {4, 3, 2, 1}},
      {"9-1x4", {9, 5, 1}},
      {"-2-1", {-2, -1, 0, 1}},
      {"-1--3", {-1, -2, -3}},
      {"1.5", {1.5}},
      {"1-2x0.25", {1, 1.25, 1.5, 1.75, 2}},
      {"5-5", {5}},
      {"1-3,2-5,1", {1, 2, 3, 4, 5}},
      {"1-10x100", {1}},
  };
  for (const auto& [text, frames] : cases) {
    std::string error = "untouched";
    EXPECT_EQ(parseFrames(text, &error), frames) << text;
    EXPECT_EQ(error, "untouched");
  }
}

TEST(FrameRange, StepsThatRoundReachTheLastFrame) {
  const auto frames = parseFrames("0-1x0.1");
  ASSERT_TRUE(frames);
  EXPECT_EQ(frames->size(), 11u);
  EXPECT_DOUBLE_EQ(frames->back(), 1.0);
}

TEST(FrameRange, AnythingElseIsRefusedWithAReason) {
  for (const char* text :
       {"",      ",",      "1,",      ",1",  "1-",        "-",           "a",       "1-b",
        "1-10x", "1-10x0", "1-10x-2", "1 2", "1;2",       "1e3",         "1-2x3x4", "1--",
        "nan",   "inf",    "1..2",    "1x2", "1-2000000", "99999999999", "0x10"}) {
    std::string error;
    EXPECT_FALSE(parseFrames(text, &error)) << text;
    EXPECT_NE(error, "") << text;
  }
}

TEST(FrameRange, NamesTakeTheFrameInTheirPlaces) {
  const std::vector<std::pair<std::pair<std::string, double>, std::string>> cases = {
      {{"a.####.exr", 7}, "a.0007.exr"},
      {{"a.#.exr", 123}, "a.123.exr"},
      {{"a.%04d.exr", 7}, "a.0007.exr"},
      {{"a.%d.exr", 7}, "a.7.exr"},
      {{"a.%4d.exr", 7}, "a.   7.exr"},
      {{"##/a.##", 3}, "03/a.03"},
      {{"a.####.exr", -7}, "a.-007.exr"},
      {{"a.####.exr", 1.25}, "a.0001.25.exr"},
      {{"a.####.exr", -0.5}, "a.-000.5.exr"},
      {{"a.####.exr", 12345}, "a.12345.exr"},
      {{"a.exr", 1}, "a.exr"},
      {{"100%.exr", 1}, "100%.exr"},
      {{"%s%x%", 1}, "%s%x%"},
      {{"%00000000004d", 1}, "%00000000004d"},
      {{"#", 0}, "0"},
      {{"#", -0.0}, "0"},
  };
  for (const auto& [given, name] : cases) {
    EXPECT_EQ(nameOfFrame(given.first, given.second), name);
    EXPECT_EQ(hasFramePlace(given.first), given.first != name) << given.first;
  }
}

}  // namespace
