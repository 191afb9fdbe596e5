// Images of every kind, whole and damaged, read back from what their own libraries write.
#include "vela/picture/detail/ImageReader.h"

#include <ImfArray.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfOutputFile.h>
#include <gtest/gtest.h>
#include <half.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// Needs cstdio before it.
#include <jpeglib.h>
#include <png.h>

#include "support/ChildProcess.h"
#include "support/SharedData.h"

namespace {

using namespace vela::picture::detail;
using vela_test::readFile;
using vela_test::TemporaryFolder;

constexpr std::size_t kPlenty = std::size_t{1} << 30;

std::string jpegOf(int width, int height, int components, J_COLOR_SPACE space,
                   const std::vector<unsigned char>& row, bool progressive = false) {
  jpeg_compress_struct context = {};
  jpeg_error_mgr errors = {};
  context.err = jpeg_std_error(&errors);
  jpeg_create_compress(&context);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&context, &bytes, &size);
  context.image_width = static_cast<JDIMENSION>(width);
  context.image_height = static_cast<JDIMENSION>(height);
  context.input_components = components;
  context.in_color_space = space;
  jpeg_set_defaults(&context);
  jpeg_set_quality(&context, 100, TRUE);
  if (progressive) jpeg_simple_progression(&context);
  jpeg_start_compress(&context, TRUE);
  std::vector<unsigned char> line = row;
  JSAMPLE* lines[] = {line.data()};
  for (int y = 0; y < height; ++y) jpeg_write_scanlines(&context, lines, 1);
  jpeg_finish_compress(&context);
  std::string out(reinterpret_cast<char*>(bytes), size);
  jpeg_destroy_compress(&context);
  std::free(bytes);
  return out;
}

std::string pngOf(int width, int height, int type, int bits, const std::vector<unsigned char>& row,
                  bool interlaced = false) {
  std::string out;
  png_structp context = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop head = png_create_info_struct(context);
  png_set_write_fn(
      context, &out,
      [](png_structp from, png_bytep bytes, std::size_t count) {
        static_cast<std::string*>(png_get_io_ptr(from))
            ->append(reinterpret_cast<char*>(bytes), count);
      },
      [](png_structp) {});
  png_set_IHDR(context, head, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height),
               bits, type, interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  const png_color palette[2] = {{10, 20, 30}, {40, 50, 60}};
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(context, head, palette, 2);
  png_write_info(context, head);
  const int passes = interlaced ? png_set_interlace_handling(context) : 1;
  for (int pass = 0; pass < passes; ++pass)
    for (int y = 0; y < height; ++y) png_write_row(context, row.data());
  png_write_end(context, head);
  png_destroy_write_struct(&context, &head);
  return out;
}

// A reader with the bytes that it reads from, which must live as long.
struct Opened {
  std::unique_ptr<const std::string> bytes;
  std::unique_ptr<ImageReader> reader;
  ImageReader* operator->() const { return reader.get(); }
  ImageReader& operator*() const { return *reader; }
};

Opened open(const std::string& bytes, std::size_t most = kPlenty) {
  Opened opened{std::make_unique<const std::string>(bytes), nullptr};
  std::string why;
  opened.reader = ImageReader::open(*opened.bytes, most, &why);
  EXPECT_TRUE(opened.reader) << why;
  return opened;
}

std::vector<unsigned char> rowOf(ImageReader& reader) {
  std::vector<unsigned char> row(reader.info().bytesOfRow());
  std::string why;
  EXPECT_TRUE(reader.readRow(row.data(), &why)) << why;
  return row;
}

// Why it fails, at once or in one of its rows.
std::string whyNot(const std::string& bytes, std::size_t most = kPlenty) {
  std::string why = "it reads";
  const auto reader = ImageReader::open(bytes, most, &why);
  if (!reader) return why;
  std::vector<unsigned char> row(reader->info().bytesOfRow());
  for (int y = 0; y < reader->info().height; ++y)
    if (!reader->readRow(row.data(), &why)) return why;
  return "it reads";
}

TEST(ImageReader, JpegsComeAsGreyOrColour) {
  const auto colour = open(jpegOf(3, 2, 3, JCS_RGB, {200, 100, 50, 200, 100, 50, 200, 100, 50}));
  EXPECT_EQ(colour->info().width, 3);
  EXPECT_EQ(colour->info().height, 2);
  EXPECT_EQ(colour->info().channels, 3);
  EXPECT_EQ(colour->info().type, SampleType::uint8);
  EXPECT_EQ(colour->info().transfer, Transfer::unknown);
  const auto row = rowOf(*colour);
  EXPECT_NEAR(row[0], 200, 2);
  EXPECT_NEAR(row[1], 100, 2);
  EXPECT_NEAR(row[2], 50, 2);
  rowOf(*colour);
  std::string why;
  std::vector<unsigned char> more(9);
  EXPECT_FALSE(colour->readRow(more.data(), &why));
  EXPECT_EQ(why, "it has no more rows");

  const auto grey = open(jpegOf(2, 1, 1, JCS_GRAYSCALE, {7, 7}, true));
  EXPECT_EQ(grey->info().channels, 1);
  EXPECT_NEAR(rowOf(*grey)[0], 7, 1);
}

TEST(ImageReader, InksOfPrintBecomeTheLightThatTheyLeave) {
  // The library's writer marks the file, so that its numbers are what is left: 255 is no ink.
  const auto inks = open(jpegOf(1, 1, 4, JCS_CMYK, {255, 128, 0, 255}));
  EXPECT_EQ(inks->info().channels, 3);
  const auto row = rowOf(*inks);
  EXPECT_NEAR(row[0], 255, 2);
  EXPECT_NEAR(row[1], 128, 2);
  EXPECT_NEAR(row[2], 0, 2);
  EXPECT_NEAR(rowOf(*open(jpegOf(1, 1, 4, JCS_CMYK, {255, 128, 0, 128})))[0], 128, 2);
}

TEST(ImageReader, PngsComeWithEightBitsOrSixteen) {
  const auto packed = open(pngOf(9, 1, PNG_COLOR_TYPE_GRAY, 1, {0xa0, 0x80}));
  EXPECT_EQ(packed->info().channels, 1);
  EXPECT_EQ(rowOf(*packed), (std::vector<unsigned char>{255, 0, 255, 0, 0, 0, 0, 0, 255}));
  const auto palette = open(pngOf(2, 1, PNG_COLOR_TYPE_PALETTE, 8, {1, 0}));
  EXPECT_EQ(palette->info().channels, 3);
  EXPECT_EQ(rowOf(*palette), (std::vector<unsigned char>{40, 50, 60, 10, 20, 30}));

  const auto wide = open(pngOf(1, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 16, {0x12, 0x34, 0xff, 0xff}));
  EXPECT_EQ(wide->info().type, SampleType::uint16);
  EXPECT_EQ(wide->info().channels, 2);
  std::uint16_t values[2];
  const auto row = rowOf(*wide);
  std::memcpy(values, row.data(), sizeof values);
  EXPECT_EQ(values[0], 0x1234);
  EXPECT_EQ(values[1], 0xffff);

  const auto interlaced =
      open(pngOf(3, 9, PNG_COLOR_TYPE_RGB_ALPHA, 8, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, true));
  EXPECT_EQ(interlaced->info().channels, 4);
  for (int y = 0; y < 9; ++y)
    EXPECT_EQ(rowOf(*interlaced),
              (std::vector<unsigned char>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST(ImageReader, WhatAPngSaysOfItsCurveIsTold) {
  requireSharedData("usd/materials/textures");
  const auto transfer = [](const std::string& name) {
    const std::string bytes = readFile(vela_test::sharedDataPath("usd/materials/textures/" + name));
    return open(bytes)->info().transfer;
  };
  EXPECT_EQ(transfer("ramp_rgb8.png"), Transfer::unknown);
  EXPECT_EQ(transfer("ramp_rgb8_gamma1.png"), Transfer::linear);
  EXPECT_EQ(transfer("ramp_grey8_srgb.png"), Transfer::srgb);
}

std::string exrOf(const std::vector<std::string>& names, Imf::PixelType type, int x0 = 0,
                  int y0 = 0) {
  const TemporaryFolder folder;
  {
    Imf::Header header(Imath::Box2i({0, 0}, {1, 1}), Imath::Box2i({x0, y0}, {x0 + 1, y0 + 1}));
    Imf::FrameBuffer buffer;
    // Channel c of pixel (x, y) is 100 c + 10 y + x.
    std::vector<std::vector<float>> floats(names.size(), std::vector<float>(4));
    std::vector<std::vector<half>> halves(names.size(), std::vector<half>(4));
    for (std::size_t c = 0; c < names.size(); ++c) {
      header.channels().insert(names[c], Imf::Channel(type));
      for (int i = 0; i < 4; ++i) {
        floats[c][static_cast<std::size_t>(i)] =
            static_cast<float>(100 * static_cast<int>(c) + 10 * (i / 2) + i % 2);
        halves[c][static_cast<std::size_t>(i)] = half(floats[c][static_cast<std::size_t>(i)]);
      }
      const std::ptrdiff_t step = type == Imf::HALF ? 2 : 4;
      char* const base = type == Imf::HALF ? reinterpret_cast<char*>(halves[c].data())
                                           : reinterpret_cast<char*>(floats[c].data());
      buffer.insert(names[c],
                    Imf::Slice(type, base - x0 * step - y0 * 2 * step,
                               static_cast<std::size_t>(step), static_cast<std::size_t>(2 * step)));
    }
    Imf::OutputFile file(folder.file("a.exr").c_str(), header);
    file.setFrameBuffer(buffer);
    file.writePixels(2);
  }
  return readFile(folder.file("a.exr"));
}

TEST(ImageReader, ExrsComeAsColourOrGreyWhereverTheirWindowLies) {
  const std::string bytes = exrOf({"R", "G", "B", "A", "Z"}, Imf::HALF, -5, 7);
  const auto colour = open(bytes);
  EXPECT_EQ(colour->info().channels, 4);
  EXPECT_EQ(colour->info().type, SampleType::half);
  EXPECT_EQ(colour->info().transfer, Transfer::linear);
  rowOf(*colour);
  half values[8];
  const auto row = rowOf(*colour);
  std::memcpy(values, row.data(), sizeof values);
  EXPECT_EQ(static_cast<float>(values[0]), 10.0f);
  EXPECT_EQ(static_cast<float>(values[5]), 111.0f);
  EXPECT_EQ(static_cast<float>(values[7]), 311.0f);

  const std::string single = exrOf({"depth"}, Imf::FLOAT);
  const auto first = open(single);
  EXPECT_EQ(first->info().channels, 1);
  EXPECT_EQ(first->info().type, SampleType::float32);
  const std::string grey = exrOf({"Y", "A"}, Imf::FLOAT);
  EXPECT_EQ(open(grey)->info().channels, 2);
}

TEST(ImageReader, DamagedImagesFailWithAReason) {
  const std::vector<unsigned char> row(300, 90);
  for (const std::string& whole :
       {jpegOf(100, 100, 3, JCS_RGB, row), jpegOf(100, 100, 3, JCS_RGB, row, true),
        pngOf(100, 100, PNG_COLOR_TYPE_RGB, 8, row),
        pngOf(100, 100, PNG_COLOR_TYPE_RGB, 8, row, true), exrOf({"R", "G", "B"}, Imf::FLOAT)}) {
    EXPECT_EQ(whyNot(whole), "it reads");
    for (std::size_t size : {std::size_t{4}, std::size_t{9}, std::size_t{30}, whole.size() / 3,
                             whole.size() * 2 / 3, whole.size() - 20}) {
      const std::string why = whyNot(whole.substr(0, size));
      EXPECT_NE(why, "it reads") << size << " of " << whole.size();
      EXPECT_FALSE(why.empty());
    }
    // Any byte may be any other: it reads, or it fails.
    for (std::size_t i = 0; i < whole.size(); i += 1 + whole.size() / 400) {
      std::string broken = whole;
      broken[i] = static_cast<char>(broken[i] ^ 0x55);
      EXPECT_FALSE(whyNot(broken).empty());
    }
  }
  EXPECT_EQ(whyNot(""), "it is no JPEG, PNG or OpenEXR image");
  EXPECT_EQ(whyNot("GIF89a"), "it is no JPEG, PNG or OpenEXR image");
}

TEST(ImageReader, SizesThatNoMemoryHoldsAreRefusedBeforeAnyIsTaken) {
  std::string png = pngOf(4, 4, PNG_COLOR_TYPE_RGB, 8, std::vector<unsigned char>(12));
  // Width and height stand behind the signature and the first chunk's head; its sum goes wrong.
  png.replace(16, 8, std::string("\x7f\xff\xff\xff\x7f\xff\xff\xff", 8));
  EXPECT_NE(whyNot(png), "it reads");
  const std::vector<unsigned char> row(3000, 90);
  EXPECT_EQ(whyNot(jpegOf(1000, 1000, 3, JCS_RGB, row, true), 1000),
            "a progressive image of 1000 x 1000 pixels does not fit into memory");
  EXPECT_EQ(whyNot(pngOf(1000, 1000, PNG_COLOR_TYPE_RGB, 8, row, true), 1000),
            "an interlaced image of 1000 x 1000 pixels does not fit into memory");
  EXPECT_EQ(whyNot(jpegOf(1000, 1000, 3, JCS_RGB, row), 1000), "it reads");

  std::string why;
  EXPECT_TRUE(checkImageSize(100000, 1, &why));
  EXPECT_TRUE(checkImageSize(32768, 32768, &why));
  EXPECT_FALSE(checkImageSize(32769, 32768, &why));
  EXPECT_EQ(why, "an image of 32769 x 32768 pixels is not read");
  EXPECT_FALSE(checkImageSize(0, 5, &why));
  EXPECT_FALSE(checkImageSize(std::int64_t{1} << 40, std::int64_t{1} << 40, &why));
}

}  // namespace
