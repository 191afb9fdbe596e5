#include "vela/picture/PngFile.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace vela::picture;
using Bytes = std::vector<unsigned char>;

// The codes of a file in memory, by libpng's reader.
Bytes decode(const Bytes& bytes, int& width, int& height) {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_NE(png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()), 0);
  EXPECT_EQ(image.format, static_cast<png_uint_32>(PNG_FORMAT_RGB));
  width = static_cast<int>(image.width);
  height = static_cast<int>(image.height);
  Bytes codes(PNG_IMAGE_SIZE(image));
  EXPECT_NE(png_image_finish_read(&image, nullptr, codes.data(), 0, nullptr), 0);
  return codes;
}

TEST(PngFile, ColoursGetTheCodesOfSrgb) {
  // Values of the standard's own formula, computed apart in decimal.
  EXPECT_EQ(encodeSrgb(0.0f), 0);
  EXPECT_EQ(encodeSrgb(0.001f), 3);
  EXPECT_EQ(encodeSrgb(0.0031308f), 10);
  EXPECT_EQ(encodeSrgb(0.18f), 118);
  EXPECT_EQ(encodeSrgb(0.5f), 188);
  EXPECT_EQ(encodeSrgb(1.0f), 255);
  EXPECT_EQ(encodeSrgb(7.0f), 255);
  EXPECT_EQ(encodeSrgb(-1.0f), 0);
  EXPECT_EQ(encodeSrgb(std::numeric_limits<float>::infinity()), 255);
  EXPECT_EQ(encodeSrgb(std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(PngFile, ReadsBackByTheLibrarysOwnReader) {
  const std::vector<float> rgb = {0, 0.5f, 1, 0.18f, 7, -1, 0.001f, 1, 0,
                                  1, 0,    0, 0,     1, 0,  0,      0, 1};
  Bytes bytes;
  std::string error;
  ASSERT_TRUE(writePng(3, 2, rgb, bytes, &error)) << error;
  int width = 0, height = 0;
  const Bytes codes = decode(bytes, width, height);
  EXPECT_EQ(width, 3);
  EXPECT_EQ(height, 2);
  EXPECT_EQ(codes, (Bytes{0, 188, 255, 118, 255, 0, 3, 255, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255}));
}

TEST(PngFile, TheFileHasTheBytesOfTheMemory) {
  std::vector<float> rgb(200 * 50 * 3);
  for (std::size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<float>(i % 977) / 977.0f;
  Bytes memory;
  ASSERT_TRUE(writePng(200, 50, rgb, memory));
  const auto file = std::filesystem::path(testing::TempDir()) / "vela_png_file.png";
  std::string error;
  ASSERT_TRUE(writePng(200, 50, rgb, file.string(), &error)) << error;
  std::ifstream in(file, std::ios::binary);
  EXPECT_EQ(memory, Bytes(std::istreambuf_iterator<char>(in), {}));
  std::filesystem::remove(file);
}

TEST(PngFile, WhatCannotBeWrittenSaysWhy) {
  const std::vector<float> rgb(3);
  std::string error;
  EXPECT_FALSE(writePng(1, 1, rgb, testing::TempDir() + "/no-such-folder/a.png", &error));
  EXPECT_EQ(error, "No such file or directory");
  EXPECT_FALSE(writePng(1, 1, rgb, "/dev/full", &error));
  EXPECT_EQ(error, "No space left on device");
  // Long before its last byte too.
  EXPECT_FALSE(writePng(500, 500, std::vector<float>(750000, 0.5f), "/dev/full", &error));
  EXPECT_EQ(error, "No space left on device");
  Bytes bytes(1);
  EXPECT_FALSE(writePng(1, 2, rgb, bytes, &error));
  EXPECT_EQ(error, "there are 3 values, not 1 x 2 x 3");
  EXPECT_TRUE(bytes.empty());
  EXPECT_FALSE(writePng(0, 2, std::vector<float>(), bytes, &error));
  EXPECT_EQ(error, "the picture has no pixels");
  EXPECT_FALSE(writePng(-1, -1, rgb, bytes));
}

TEST(PngFile, TheBackdropShowsWhereAlphaLeavesRoom) {
  Picture picture;
  picture.width = 1;
  picture.height = 2;
  picture.layers.push_back({"rgba",
                            {"R", "G", "B", "A"},
                            ValueType::float32,
                            {0.25f, 0.5f, 0.75f, 1.0f, 0.1f, 0.1f, 0.1f, 0.5f},
                            {}});
  const std::vector<float> flat = overBackdrop(picture);
  ASSERT_EQ(flat.size(), 6u);
  EXPECT_EQ((std::vector<float>(flat.begin(), flat.begin() + 3)),
            (std::vector<float>{0.25f, 0.5f, 0.75f}));
  // The lower pixel's middle is a quarter of the height up.
  for (std::size_t k = 0; k < 3; ++k) EXPECT_EQ(flat[3 + k], 0.1f + backdrop(0.25f)[k] * 0.5f);
}

TEST(PngFile, TheBackdropRunsFromDarkToLightAndIsClamped) {
  EXPECT_EQ(backdrop(0.0f), tarn::Vec3f(0.30f, 0.29f, 0.28f));
  EXPECT_EQ(backdrop(1.0f), tarn::Vec3f(0.62f, 0.68f, 0.74f));
  EXPECT_EQ(backdrop(-5.0f), backdrop(0.0f));
  EXPECT_EQ(backdrop(5.0f), backdrop(1.0f));
  EXPECT_LT(backdrop(0.3f).x, backdrop(0.7f).x);
}

TEST(PngFile, WithoutColourThereIsNothingToShow) {
  Picture picture;
  picture.width = picture.height = 1;
  picture.layers.push_back({"depth", {"Z"}, ValueType::float32, {1.0f}, {}});
  EXPECT_TRUE(overBackdrop(picture).empty());
}

TEST(PngFile, AnImageKeepsItsCodesAndItsAlpha) {
  DisplayImage image;
  image.width = 2;
  image.height = 1;
  image.codes = {1, 2, 3, 250, 0, 128};
  Bytes bytes;
  int width = 0, height = 0;
  ASSERT_TRUE(writePng(image, bytes));
  EXPECT_EQ(decode(bytes, width, height), image.codes);
  EXPECT_EQ(width, 2);

  // Colours of pixels that do not show are kept too.
  image.hasAlpha = true;
  image.codes = {1, 2, 3, 0, 250, 0, 128, 77};
  ASSERT_TRUE(writePng(image, bytes));
  png_image head = {};
  head.version = PNG_IMAGE_VERSION;
  ASSERT_NE(png_image_begin_read_from_memory(&head, bytes.data(), bytes.size()), 0);
  EXPECT_EQ(head.format, static_cast<png_uint_32>(PNG_FORMAT_RGBA));
  Bytes codes(PNG_IMAGE_SIZE(head));
  ASSERT_NE(png_image_finish_read(&head, nullptr, codes.data(), 0, nullptr), 0);
  EXPECT_EQ(codes, image.codes);

  std::string error;
  image.codes.pop_back();
  EXPECT_FALSE(writePng(image, bytes, &error));
  EXPECT_EQ(error, "there are 7 codes, not 8");
  EXPECT_TRUE(bytes.empty());
}

}  // namespace
