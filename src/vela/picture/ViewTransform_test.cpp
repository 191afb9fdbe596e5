#include "vela/picture/ViewTransform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "vela/picture/PngFile.h"

namespace {

using namespace vela::picture;

std::vector<float> applied(const ViewTransform& view, std::vector<float> rgb) {
  view.apply(rgb);
  return rgb;
}

ViewTransform viewOf(const ViewTransformOptions& options) {
  std::string error = "untouched";
  const auto view = ViewTransform::make(options, &error);
  EXPECT_TRUE(view) << error;
  EXPECT_EQ(error, "untouched");
  return *view;
}

TEST(ViewTransform, ClipEncodesAsSrgb) {
  const ViewTransform clip = viewOf({"", "clip", ""});
  std::vector<float> values = {0.0f, -1.0f, 0.001f, 0.18f, 0.5f, 0.8f, 1.0f, 1.44f, 1e9f};
  const std::vector<float> codes = applied(clip, values);
  for (std::size_t i = 0; i < values.size(); ++i)
    EXPECT_EQ(static_cast<int>(codes[i] * 255.0f + 0.5f), encodeSrgb(values[i])) << values[i];
}

TEST(ViewTransform, SoftLeavesWhatIsNotBrightAsItIs) {
  const ViewTransform soft = viewOf({}), clip = viewOf({"", "clip", ""});
  std::vector<float> values;
  for (int i = 0; i <= 800; ++i)
    values.insert(values.end(), {0.001f * static_cast<float>(i), 0.3f, 0.0f});
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = std::min(values[i], 0.8f);
  EXPECT_EQ(applied(soft, values), applied(clip, values));
}

TEST(ViewTransform, SoftRisesWithoutReachingTheEndAndKeepsRatios) {
  const ViewTransform soft = viewOf({"", "soft", ""});
  const auto linear = [](float code) {
    return code <= 0.04045f ? code / 12.92f : std::pow((code + 0.055f) / 1.055f, 2.4f);
  };
  float before = 0.0f;
  for (const float value : {0.7f, 0.8f, 0.81f, 0.9f, 1.0f, 1.44f, 2.0f, 4.0f, 16.0f, 100.0f}) {
    const std::vector<float> rgb = applied(soft, {value, 0.5f * value, 0.25f * value});
    EXPECT_GT(rgb[0], before) << value;
    EXPECT_LT(rgb[0], 1.0f) << value;
    EXPECT_NEAR(linear(rgb[1]) / linear(rgb[0]), 0.5f, 1e-4f) << value;
    EXPECT_NEAR(linear(rgb[2]) / linear(rgb[0]), 0.25f, 1e-4f) << value;
    before = rgb[0];
  }
  // By hand: 1 is 0.2 beyond the knee, which halves the way that is left.
  EXPECT_NEAR(linear(applied(soft, {1.0f, 1.0f, 1.0f})[2]), 0.9f, 1e-6f);
}

TEST(ViewTransform, NoValueIsTooOdd) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  for (const char* name : {"soft", "clip"}) {
    const std::vector<float> rgb =
        applied(viewOf({"", name, ""}), {kInfinity, 0.5f, kNan, -kInfinity, kNan, 0.25f});
    EXPECT_FLOAT_EQ(rgb[0], 1.0f);
    EXPECT_EQ(rgb[2], 0.0f);
    EXPECT_EQ(rgb[3], 0.0f);
    EXPECT_EQ(rgb[4], 0.0f);
    EXPECT_EQ(applied(viewOf({"", name, ""}), {}), std::vector<float>());
    // What makes no whole colour stays.
    EXPECT_EQ(applied(viewOf({"", name, ""}), {0.5f, 0.5f}), (std::vector<float>{0.5f, 0.5f}));
  }
}

TEST(ViewTransform, WhatIsNotThereSaysSo) {
  std::string error;
  EXPECT_FALSE(ViewTransform::make({"", "Soft", ""}, &error));
  EXPECT_EQ(error, "there is no view Soft; try soft or clip");
  EXPECT_FALSE(ViewTransform::make({"", "", "sRGB"}, &error));
  EXPECT_EQ(error, "there is no display sRGB without a configuration");
}

#ifdef VELA_PICTURE_WITH_OPENCOLORIO

// A display that halves, with a view that squares as well, and a second display.
constexpr const char* kConfig = R"(ocio_profile_version: 1
search_path: ""
roles:
  scene_linear: linear
  default: linear
displays:
  half:
    - !<View> {name: Plain, colorspace: halved}
    - !<View> {name: Square, colorspace: squared}
  other:
    - !<View> {name: Same, colorspace: linear}
active_displays: [half, other]
active_views: [Plain, Square, Same]
colorspaces:
  - !<ColorSpace>
    name: linear
  - !<ColorSpace>
    name: halved
    from_reference: !<MatrixTransform> {matrix: [0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 1]}
  - !<ColorSpace>
    name: squared
    from_reference: !<GroupTransform>
      children:
        - !<MatrixTransform> {matrix: [0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 1]}
        - !<ExponentTransform> {value: [2, 2, 2, 1]}
)";

class Configured : public testing::Test {
 protected:
  void SetUp() override { std::ofstream(file_) << kConfig; }
  void TearDown() override { std::filesystem::remove(file_); }
  std::string file_ =
      (std::filesystem::path(testing::TempDir()) / "vela_view_transform.ocio").string();
};

TEST_F(Configured, ItsDefaultViewCountsUnlessAnotherIsNamed) {
  const std::vector<float> rgb = {0.8f, 0.4f, 2.0f};
  const auto expect = [&](const ViewTransformOptions& options, const std::vector<float>& wanted) {
    const std::vector<float> seen = applied(viewOf(options), rgb);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(seen[i], wanted[i], 1e-5f);
  };
  expect({file_, "", ""}, {0.4f, 0.2f, 1.0f});
  expect({file_, "Plain", "half"}, {0.4f, 0.2f, 1.0f});
  expect({file_, "Square", ""}, {0.16f, 0.04f, 1.0f});
  expect({file_, "", "other"}, {0.8f, 0.4f, 2.0f});
}

TEST_F(Configured, WhatItLacksIsNamedWithWhatThereIs) {
  std::string error;
  EXPECT_FALSE(ViewTransform::make({file_, "Film", ""}, &error));
  EXPECT_EQ(error, "it has no view Film; there is Plain, Square");
  EXPECT_FALSE(ViewTransform::make({file_, "", "wall"}, &error));
  EXPECT_EQ(error, "it has no display wall; there is half, other");
  EXPECT_FALSE(ViewTransform::make({file_ + ".missing", "", ""}, &error));
  EXPECT_NE(error.find("missing"), std::string::npos) << error;
  std::ofstream(file_) << "ocio_profile_version: 1\nroles: [";
  EXPECT_FALSE(ViewTransform::make({file_, "", ""}, &error));
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
}

#endif

}  // namespace
