// What is written, read back by OpenEXR's own reader.
#include "vela/picture/ExrFile.h"

#include <ImfArray.h>
#include <ImfChannelList.h>
#include <ImfFloatAttribute.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIDManifest.h>
#include <ImfInputFile.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfStandardAttributes.h>
#include <ImfStringAttribute.h>
#include <ImfVecAttribute.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "vela/picture/LayerChoice.h"
#include "vela/picture/LayerTable.h"

namespace {

using namespace vela::picture;
using Bytes = std::vector<unsigned char>;

class ExrFile : public testing::Test {
 protected:
  void SetUp() override {
    file_ = (std::filesystem::path(testing::TempDir()) /
             (std::string("vela_") + testing::UnitTest::GetInstance()->current_test_info()->name() +
              ".exr"))
                .string();
  }
  void TearDown() override { std::filesystem::remove(file_); }

  [[nodiscard]] Bytes bytesOfFile() const {
    std::ifstream in(file_, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
  }

  std::string file_;
};

constexpr std::uint32_t kLargeIds = 0xff000000u;

// All layers of the table, each value another one.
Picture everything(int width, int height) {
  std::vector<std::string> names;
  for (const LayerInfo& info : layerTable()) names.push_back(info.name);
  Picture picture = chooseLayers(names)->makePicture(width, height);
  unsigned next = 1;
  for (Layer& layer : picture.layers) {
    for (float& value : layer.floats) value = 0.125f * static_cast<float>(next++);
    for (std::uint32_t& value : layer.integers) value = kLargeIds + next++;
  }
  return picture;
}

template <class T>
std::vector<T> readChannel(Imf::InputFile& input, const std::string& name, Imf::PixelType type,
                           int width, int height) {
  std::vector<T> values(static_cast<std::size_t>(width * height));
  Imf::FrameBuffer buffer;
  buffer.insert(name, Imf::Slice(type, reinterpret_cast<char*>(values.data()), sizeof(T),
                                 sizeof(T) * static_cast<std::size_t>(width)));
  input.setFrameBuffer(buffer);
  input.readPixels(0, height - 1);
  return values;
}

TEST_F(ExrFile, EachLayerOfTheTableReadsBackInItsType) {
  constexpr int kWidth = 7, kHeight = 5;
  const Picture picture = everything(kWidth, kHeight);
  std::string error;
  ASSERT_TRUE(writeExr(picture, file_, 1, &error)) << error;
  Imf::InputFile input(file_.c_str());
  EXPECT_EQ(input.header().dataWindow(), input.header().displayWindow());
  EXPECT_EQ(input.header().dataWindow().max.x, kWidth - 1);
  EXPECT_EQ(input.header().dataWindow().max.y, kHeight - 1);
  int channels = 0;
  for (auto c = input.header().channels().begin(); c != input.header().channels().end(); ++c)
    ++channels;

  for (const LayerInfo& info : layerTable())
    for (std::size_t i = 0; i < info.channels.size(); ++i) {
      channels -= !info.isPart;
      const std::string& name = info.channels[i];
      const Imf::Channel* channel = input.header().channels().findChannel(name);
      ASSERT_NE(channel, nullptr) << name;
      const LayerView view = picture.layer(info.name);
      if (info.type == ValueType::float32) {
        EXPECT_EQ(channel->type, Imf::FLOAT) << name;
        const auto values = readChannel<float>(input, name, Imf::FLOAT, kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y)
          for (int x = 0; x < kWidth; ++x)
            ASSERT_EQ(values[static_cast<std::size_t>(y * kWidth + x)],
                      view.floats(x, y, static_cast<int>(i)))
                << name;
      } else {
        EXPECT_EQ(channel->type, Imf::UINT) << name;
        const auto values = readChannel<std::uint32_t>(input, name, Imf::UINT, kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y)
          for (int x = 0; x < kWidth; ++x)
            ASSERT_EQ(values[static_cast<std::size_t>(y * kWidth + x)],
                      view.integers(x, y, static_cast<int>(i)))
                << name;
      }
    }
  EXPECT_EQ(channels, 0) << "the file has channels that no layer of the table has";
}

TEST_F(ExrFile, IdsAreFloatsWhileThoseAreExact) {
  constexpr std::uint32_t kMost = 1u << 24;
  for (const std::uint32_t most : {7u, kMost, kMost + 1}) {
    Picture picture = everything(2, 1);
    picture.layers[4].integers = {3, most};
    ASSERT_TRUE(writeExr(picture, file_));
    Imf::InputFile input(file_.c_str());
    const Imf::PixelType type = input.header().channels().findChannel("prim.id")->type;
    EXPECT_EQ(type, most <= kMost ? Imf::FLOAT : Imf::UINT) << most;
    // Read as integers both are the same numbers.
    EXPECT_EQ(readChannel<std::uint32_t>(input, "prim.id", Imf::UINT, 2, 1),
              (std::vector<std::uint32_t>{3, most}));
    // Layers decide for themselves.
    EXPECT_EQ(input.header().channels().findChannel("face.id")->type, Imf::UINT);
  }
}

TEST_F(ExrFile, EveryCompressionReadsBackAndLossIsForColourAlone) {
  EXPECT_EQ(compressionNames().size(), 10u);
  EXPECT_FALSE(findCompression("ZIP"));
  EXPECT_FALSE(findCompression(""));
  for (const std::string& name : compressionNames()) {
    ExrOptions options;
    options.compression = *findCompression(name);
    const bool isLossy = options.compression >= Compression::pxr24;
    Picture picture = everything(33, 20);
    std::string error;
    EXPECT_EQ(writeExr(picture, file_, options, &error), !isLossy) << name << error;
    if (isLossy) {
      EXPECT_EQ(error, name + " is for colour alone: it would change the values of depth");
    }
    chooseLayers({"rgba", "albedo"})->reduce(picture);
    ASSERT_TRUE(writeExr(picture, file_, options, &error)) << name << error;
    Imf::InputFile input(file_.c_str());
    EXPECT_EQ(static_cast<int>(input.header().compression()),
              static_cast<int>(options.compression));
    const auto values = readChannel<float>(input, "albedo.G", Imf::FLOAT, 33, 20);
    for (int y = 0; y < 20; ++y)
      for (int x = 0; x < 33; ++x) {
        const float value = values[static_cast<std::size_t>(y * 33 + x)];
        const float wanted = picture.layer("albedo").floats(x, y, 1);
        ASSERT_NEAR(value, wanted, isLossy ? 0.05f * wanted : 0.0f) << name;
      }
  }
}

TEST_F(ExrFile, HalfFloatsAreForColourAndKeepFiniteValuesFinite) {
  Picture picture = everything(5, 1);
  picture.layers[0].floats[0] = 1e9f;
  picture.layers[0].floats[4] = -1e9f;
  picture.layers[0].floats[8] = std::numeric_limits<float>::infinity();
  picture.layers[0].floats[12] = std::numeric_limits<float>::quiet_NaN();
  picture.layers[0].floats[16] = 0.1f;
  ExrOptions options;
  options.halfColour = true;
  ASSERT_TRUE(writeExr(picture, file_, options));
  Imf::InputFile input(file_.c_str());
  for (const LayerInfo& info : layerTable())
    for (const std::string& channel : info.channels)
      EXPECT_EQ(input.header().channels().findChannel(channel)->type == Imf::HALF,
                info.name == "rgba" || info.name == "albedo" || info.isPart)
          << channel;
  const auto red = readChannel<float>(input, "R", Imf::FLOAT, 5, 1);
  EXPECT_EQ(red[0], 65504.0f);
  EXPECT_EQ(red[1], -65504.0f);
  EXPECT_TRUE(std::isinf(red[2]));
  EXPECT_TRUE(std::isnan(red[3]));
  EXPECT_EQ(red[4], 0.0999755859375f);  // the nearest half float
}

TEST_F(ExrFile, APartOfALargerPictureStandsInItsPlace) {
  const Picture picture = everything(4, 3);
  ExrOptions options;
  options.x = 10;
  options.y = 20;
  options.displayWidth = 64;
  options.displayHeight = 36;
  ASSERT_TRUE(writeExr(picture, file_, options));
  Imf::InputFile input(file_.c_str());
  EXPECT_EQ(input.header().dataWindow(), Imath::Box2i(Imath::V2i(10, 20), Imath::V2i(13, 22)));
  EXPECT_EQ(input.header().displayWindow(), Imath::Box2i(Imath::V2i(0, 0), Imath::V2i(63, 35)));
  std::vector<float> values(12);
  Imf::FrameBuffer buffer;
  buffer.insert("Z", Imf::Slice::Make(Imf::FLOAT, values.data(), input.header().dataWindow()));
  input.setFrameBuffer(buffer);
  input.readPixels(20, 22);
  EXPECT_EQ(values, picture.layers[1].floats);
}

TEST_F(ExrFile, TextsAreReadBackAndWhatIsNoneSaysWhy) {
  Picture picture = everything(1, 1);
  picture.attributes = {{"note", std::string("words\nand \"more\"")}, {"number", 1}};
  ASSERT_TRUE(writeExr(picture, file_));
  EXPECT_EQ(readExrText(file_, "note"), "words\nand \"more\"");
  std::string error;
  for (const char* name : {"number", "nothing"}) {
    EXPECT_FALSE(readExrText(file_, name, &error));
    EXPECT_EQ(error, std::string("its header has no ") + name);
  }
  EXPECT_FALSE(readExrText(file_ + ".missing", "note", &error));
  EXPECT_NE(error.find("No such file"), std::string::npos) << error;
  std::ofstream(file_) << "no picture at all";
  EXPECT_FALSE(readExrText(file_, "note", &error));
  EXPECT_EQ(error, "File is not an image file");
  EXPECT_FALSE(isWholeExr(file_, &error));
  EXPECT_EQ(error, "File is not an image file");
}

TEST_F(ExrFile, AFileThatWasCutOffIsNotWhole) {
  ExrOptions options;
  options.x = 10;
  options.y = 20;
  for (const Compression compression : {Compression::none, Compression::zip, Compression::piz}) {
    options.compression = compression;
    ASSERT_TRUE(writeExr(everything(40, 33), file_, options));
    std::string error = "untouched";
    EXPECT_TRUE(isWholeExr(file_, &error));
    EXPECT_EQ(error, "untouched");
    const auto size = std::filesystem::file_size(file_);
    for (const std::uintmax_t cut : {std::uintmax_t{1}, size / 3, size / 2, size - 20, size}) {
      ASSERT_TRUE(writeExr(everything(40, 33), file_, options));
      std::filesystem::resize_file(file_, size - cut);
      error.clear();
      EXPECT_FALSE(isWholeExr(file_, &error)) << cut;
      EXPECT_FALSE(error.empty()) << cut;
    }
  }
  EXPECT_FALSE(isWholeExr(file_ + ".missing"));
  std::ofstream(file_) << "no picture at all";
  EXPECT_FALSE(isWholeExr(file_));
}

TEST_F(ExrFile, TheRateOfFramesIsTheRationalThatIsMeant) {
  Picture picture = everything(1, 1);
  for (const auto& [rate, numerator, denominator] :
       {std::tuple{24.0f, 24, 1u}, {23.976f, 24000, 1001u}, {25.0f, 25, 1u}}) {
    picture.attributes = {{"framesPerSecond", rate}};
    ASSERT_TRUE(writeExr(picture, file_));
    const Imf::InputFile input(file_.c_str());
    ASSERT_TRUE(Imf::hasFramesPerSecond(input.header()));
    EXPECT_EQ(Imf::framesPerSecond(input.header()).n, numerator);
    EXPECT_EQ(Imf::framesPerSecond(input.header()).d, denominator);
  }
}

TEST_F(ExrFile, AttributesKeepTheirTypes) {
  Picture picture = everything(2, 1);
  tarn::Mat4f matrix;
  for (std::size_t i = 0; i < 16; ++i) matrix[i] = static_cast<float>(i);
  picture.attributes = {{"a text", std::string("words")},
                        {"an int", 42},
                        {"a float", 0.5f},
                        {"a pair", tarn::Vec2f(1, 2)},
                        {"worldToCamera", matrix}};
  ASSERT_TRUE(writeExr(picture, file_));
  const Imf::InputFile input(file_.c_str());
  const Imf::Header& header = input.header();
  EXPECT_EQ(header.typedAttribute<Imf::StringAttribute>("a text").value(), "words");
  EXPECT_EQ(header.typedAttribute<Imf::IntAttribute>("an int").value(), 42);
  EXPECT_EQ(header.typedAttribute<Imf::FloatAttribute>("a float").value(), 0.5f);
  EXPECT_EQ(header.typedAttribute<Imf::V2fAttribute>("a pair").value(), Imath::V2f(1, 2));
  // The translation stands in the last row of a matrix that row vectors are multiplied with, and in
  // the last four values of tarn's storage.
  const Imath::M44f read = header.typedAttribute<Imf::M44fAttribute>("worldToCamera").value();
  EXPECT_EQ(read[3][1], 13.0f);
  EXPECT_EQ(read[1][3], 7.0f);
}

TEST_F(ExrFile, TheManifestGoesWithTheLayerOfIds) {
  Picture picture = everything(2, 2);
  picture.manifest = {"/A", "/B[3]", "/C", "/\"quoted\""};
  picture.layers[4].integers = {0, 4, 2, 4};
  ASSERT_TRUE(writeExr(picture, file_));
  {
    // What the picture shows, and no more.
    const Imf::InputFile input(file_.c_str());
    EXPECT_EQ(input.header().typedAttribute<Imf::StringAttribute>("prim/manifest").value(),
              R"({"/B[3]":2,"/\"quoted\"":4})");
    ASSERT_TRUE(Imf::hasIDManifest(input.header()));
    const Imf::IDManifest manifest(Imf::idManifest(input.header()));
    ASSERT_EQ(manifest.size(), 1u);
    const auto& group = manifest[0];
    EXPECT_EQ(group.getChannels(), std::set<std::string>{"prim.id"});
    EXPECT_EQ(group.getHashScheme(), Imf::IDManifest::NOTHASHED);
    EXPECT_EQ(group.getComponents(), std::vector<std::string>{"path"});
    EXPECT_EQ(group.size(), 2u);
    EXPECT_EQ(group.find(2).text(), std::vector<std::string>{"/B[3]"});
    EXPECT_EQ(group.find(4).text(), std::vector<std::string>{"/\"quoted\""});
  }
  picture.layers.erase(picture.layers.begin() + 4);
  ASSERT_FALSE(picture.hasLayer("prim"));
  ASSERT_TRUE(writeExr(picture, file_));
  const Imf::InputFile input(file_.c_str());
  EXPECT_EQ(input.header().findTypedAttribute<Imf::StringAttribute>("prim/manifest"), nullptr);
}

TEST_F(ExrFile, TheManifestNumbersFromOneAndEscapes) {
  EXPECT_EQ(manifestText({}), "{}");
  EXPECT_EQ(manifestText({"/A", "/B/C"}), R"({"/A":1,"/B/C":2})");
  EXPECT_EQ(manifestText({"/\"\xff"}), "{\"/\\\"\xef\xbf\xbd\":1}");
}

TEST_F(ExrFile, TheBytesDependNeitherOnThreadsNorOnWhereTheyGo) {
  const Picture picture = everything(130, 70);
  Bytes one;
  ASSERT_TRUE(writeExr(picture, one, 1));
  for (const int threads : {0, 2, 8}) {
    Bytes many;
    ASSERT_TRUE(writeExr(picture, many, threads));
    EXPECT_EQ(one, many);
    ASSERT_TRUE(writeExr(picture, file_, threads));
    EXPECT_EQ(one, bytesOfFile());
  }
}

TEST_F(ExrFile, WhatCannotBeWrittenSaysWhy) {
  Bytes bytes(3);
  std::string error;
  const auto expect = [&](const Picture& picture, const std::string& why) {
    EXPECT_FALSE(writeExr(picture, bytes, 1, &error));
    EXPECT_EQ(error, why);
    EXPECT_TRUE(bytes.empty());
    EXPECT_FALSE(writeExr(picture, file_));
    EXPECT_FALSE(std::filesystem::exists(file_));
  };
  const Picture good = everything(2, 2);
  expect(Picture(), "the picture has no pixels");
  Picture picture = good;
  picture.layers.clear();
  expect(picture, "the picture has no layers");
  picture.layers.resize(1);
  expect(picture, "the picture has no channels");
  picture = good;
  picture.layers[1].floats.pop_back();
  expect(picture, "the layer depth has 3 values, not 4");
  picture = good;
  picture.layers[1].channels = {"R"};
  expect(picture, "the channel R is there twice");
  picture = good;
  picture.attributes = {{"a", 1}, {"a", 1.0f}};
  expect(picture, "the attribute a is there twice");
  picture.attributes = {{"prim/manifest", std::string("{}")}};
  expect(picture, "the attribute prim/manifest is there twice");

  // What OpenEXR itself refuses.
  picture.attributes = {{"channels", 1}};
  EXPECT_FALSE(writeExr(picture, bytes, 1, &error));
  EXPECT_NE(error.find("channels"), std::string::npos) << error;
  EXPECT_FALSE(writeExr(good, testing::TempDir() + "/no-such-folder/a.exr", 1, &error));
  EXPECT_EQ(error, "No such file or directory");
}

// The picture with all of its values gone.
Picture emptied(Picture picture) {
  for (Layer& layer : picture.layers) {
    std::fill(layer.floats.begin(), layer.floats.end(), -1.0f);
    std::fill(layer.integers.begin(), layer.integers.end(), 99u);
  }
  return picture;
}

TEST_F(ExrFile, WhatIsReadIsWhatWasWrittenWhereItLies) {
  const Picture part = everything(5, 3);
  ExrOptions options;
  options.x = 2;
  options.y = 4;
  options.displayWidth = 8;
  options.displayHeight = 9;
  ASSERT_TRUE(writeExr(part, file_, options));
  Picture whole = emptied(everything(8, 9));
  Tile tile;
  std::string error;
  ASSERT_TRUE(readExr(file_, whole, tile, &error)) << error;
  EXPECT_EQ(tile.x0, 2);
  EXPECT_EQ(tile.y0, 4);
  EXPECT_EQ(tile.x1, 7);
  EXPECT_EQ(tile.y1, 7);
  const auto expect = [&](const auto& from, const auto& to, std::size_t channels, auto untouched) {
    for (std::size_t y = 0; y < 9; ++y)
      for (std::size_t x = 0; x < 8; ++x)
        for (std::size_t c = 0; c < channels; ++c) {
          const bool isInside = x >= 2 && x < 7 && y >= 4 && y < 7;
          const auto expected = isInside ? from[((y - 4) * 5 + x - 2) * channels + c] : untouched;
          const auto found = to[(y * 8 + x) * channels + c];
          EXPECT_EQ(std::memcmp(&expected, &found, sizeof found), 0) << x << " " << y << " " << c;
        }
  };
  for (std::size_t l = 0; l < whole.layers.size(); ++l) {
    const Layer &from = part.layers[l], &to = whole.layers[l];
    if (to.type == ValueType::float32)
      expect(from.floats, to.floats, to.channels.size(), -1.0f);
    else
      expect(from.integers, to.integers, to.channels.size(), 99u);
  }
}

TEST_F(ExrFile, WholeNumbersAreReadExactlyHoweverTheyStandInTheFile) {
  for (const std::uint32_t most : {3u, 1u << 24, (1u << 24) + 1, 4294967295u}) {
    Picture picture = everything(2, 1);
    for (Layer& layer : picture.layers)
      for (std::uint32_t& value : layer.integers) value = most;
    ASSERT_TRUE(writeExr(picture, file_));
    Picture read = emptied(picture);
    Tile tile;
    ASSERT_TRUE(readExr(file_, read, tile));
    for (std::size_t l = 0; l < picture.layers.size(); ++l)
      EXPECT_EQ(read.layers[l].integers, picture.layers[l].integers) << most;
  }
}

TEST_F(ExrFile, WhatCannotBeReadSaysWhy) {
  const Picture picture = everything(4, 4);
  ASSERT_TRUE(writeExr(picture, file_));
  const auto expect = [&](Picture into, const std::string& why) {
    Tile tile;
    std::string error;
    EXPECT_FALSE(readExr(file_, into, tile, &error));
    EXPECT_EQ(error, why);
  };
  expect(everything(4, 5), "it is of a picture of 4 x 4 pixels");
  expect(everything(3, 4), "it is of a picture of 4 x 4 pixels");
  Picture other = picture;
  other.layers[0].channels[0] = "heat";
  expect(other, "it has no channel heat");
  other = picture;
  other.layers[1].floats.pop_back();
  expect(other, "the layer depth has 15 values, not 16");
  expect(Picture(), "the picture has no pixels");

  const auto whole = std::filesystem::file_size(file_);
  for (const std::uintmax_t size : {whole - 1, whole / 2, std::uintmax_t{3}}) {
    std::filesystem::resize_file(file_, size);
    Picture into = picture;
    Tile tile;
    std::string error;
    EXPECT_FALSE(readExr(file_, into, tile, &error)) << size;
    EXPECT_FALSE(error.empty());
  }
}

TEST_F(ExrFile, AFullDiskIsNoticedToTheLastByte) {
  // A small picture is written by the last call of all, a large one long before.
  for (const int size : {1, 300}) {
    std::string error;
    EXPECT_FALSE(writeExr(everything(size, size), "/dev/full", 1, &error)) << size;
    EXPECT_EQ(error, "No space left on device") << size;
  }
}

}  // namespace
