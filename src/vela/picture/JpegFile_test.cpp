#include "vela/picture/JpegFile.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Needs cstdio before it.
#include <jpeglib.h>

#include "vela/picture/FileFormat.h"

namespace {

using namespace vela::picture;
using Bytes = std::vector<unsigned char>;

DisplayImage gradient(int width, int height) {
  DisplayImage image;
  image.width = width;
  image.height = height;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (const int code : {4 * x, 4 * y, 2 * (x + y)})
        image.codes.push_back(static_cast<std::uint8_t>(code));
  return image;
}

TEST(JpegFile, ReadsBackNearlyTheSame) {
  const DisplayImage image = gradient(60, 40);
  Bytes bytes;
  std::string error;
  ASSERT_TRUE(writeJpeg(image, bytes, &error)) << error;
  jpeg_decompress_struct reader = {};
  jpeg_error_mgr errors = {};
  reader.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&reader);
  jpeg_mem_src(&reader, bytes.data(), bytes.size());
  jpeg_read_header(&reader, TRUE);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reader.comp_info[i].h_samp_factor, 1);
  jpeg_start_decompress(&reader);
  EXPECT_EQ(reader.output_width, 60u);
  EXPECT_EQ(reader.output_height, 40u);
  ASSERT_EQ(reader.output_components, 3);
  Bytes codes(image.codes.size());
  while (reader.output_scanline < reader.output_height) {
    JSAMPROW row = codes.data() + std::size_t{reader.output_scanline} * 60 * 3;
    jpeg_read_scanlines(&reader, &row, 1);
  }
  jpeg_finish_decompress(&reader);
  jpeg_destroy_decompress(&reader);
  for (std::size_t i = 0; i < codes.size(); ++i)
    ASSERT_LE(std::abs(codes[i] - image.codes[i]), 6) << i;
}

TEST(JpegFile, TheFileHasTheBytesOfTheMemory) {
  const std::string file =
      (std::filesystem::path(testing::TempDir()) / "vela_jpeg_file.jpg").string();
  Bytes bytes;
  ASSERT_TRUE(writeJpeg(gradient(33, 9), bytes));
  ASSERT_TRUE(writeJpeg(gradient(33, 9), file));
  std::ifstream in(file, std::ios::binary);
  EXPECT_EQ(bytes, Bytes(std::istreambuf_iterator<char>(in), {}));
  std::filesystem::remove(file);
}

TEST(JpegFile, WhatCannotBeWrittenSaysWhy) {
  Bytes bytes(3);
  std::string error;
  EXPECT_FALSE(writeJpeg(DisplayImage(), bytes, &error));
  EXPECT_EQ(error, "the image has no pixels");
  EXPECT_TRUE(bytes.empty());
  DisplayImage image = gradient(2, 2);
  image.codes.pop_back();
  EXPECT_FALSE(writeJpeg(image, bytes, &error));
  EXPECT_EQ(error, "there are 11 codes, not 12");
  image.hasAlpha = true;
  EXPECT_FALSE(writeJpeg(image, bytes, &error));
  EXPECT_EQ(error, "JPEG has no alpha");
  image.width = 65536;
  EXPECT_FALSE(writeJpeg(image, bytes, &error));
  EXPECT_EQ(error, "JPEG has at most 65535 pixels in a row or column");
  EXPECT_FALSE(writeJpeg(gradient(2, 2), testing::TempDir() + "/no-such-folder/a.jpg", &error));
  EXPECT_EQ(error, "No such file or directory");
  EXPECT_FALSE(writeJpeg(gradient(2, 2), "/dev/full", &error));
  EXPECT_EQ(error, "No space left on device");
}

TEST(FileFormat, FollowsTheExtensionInEitherCase) {
  EXPECT_EQ(fileFormat("a.exr"), FileFormat::exr);
  EXPECT_EQ(fileFormat("/b.c/a.0001.PnG"), FileFormat::png);
  EXPECT_EQ(fileFormat("a.jpg"), FileFormat::jpg);
  EXPECT_EQ(fileFormat("a.JPEG"), FileFormat::jpg);
  for (const char* name :
       {"", "a", ".exr", "a.", "a.exr.gz", "b.exr/a", "a.exr ", "/dev/null", "-"})
    EXPECT_FALSE(fileFormat(name)) << name;
  EXPECT_EQ(fileExtension("b.c/a.tar.gz"), ".gz");
  EXPECT_EQ(fileExtension("b.c/a"), "");
}

}  // namespace
