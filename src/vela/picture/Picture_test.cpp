#include "vela/picture/Picture.h"

#include <gtest/gtest.h>

namespace {

using namespace vela::picture;

// Two by three pixels; each value tells its pixel and channel.
Picture sample() {
  Picture picture;
  picture.width = 2;
  picture.height = 3;
  Layer rgba{"rgba", {"R", "G", "B", "A"}, ValueType::float32, {}, {}};
  Layer prim{"prim", {"prim.id"}, ValueType::uint32, {}, {}};
  for (unsigned y = 0; y < 3; ++y)
    for (unsigned x = 0; x < 2; ++x) {
      for (unsigned c = 0; c < 4; ++c)
        rgba.floats.push_back(static_cast<float>(100 * y + 10 * x + c));
      prim.integers.push_back(10 * y + x);
    }
  picture.layers = {rgba, prim};
  return picture;
}

TEST(Picture, ALayerIsFoundByItsNameWithItsSteps) {
  const Picture picture = sample();
  const LayerView found = picture.layer("rgba");
  ASSERT_TRUE(found);
  EXPECT_EQ(found.type, ValueType::float32);
  EXPECT_FALSE(found.integers);
  EXPECT_EQ(found.floats.width, 2);
  EXPECT_EQ(found.floats.height, 3);
  EXPECT_EQ(found.floats.channels, 4);
  EXPECT_EQ(found.floats.pixelStep, 4);
  EXPECT_EQ(found.floats.rowStep, 8);
  EXPECT_EQ(found.floats(1, 2, 3), 213.0f);
}

TEST(Picture, APartIsFoundInTheLayerThatHasItsChannels) {
  const Picture picture = sample();
  EXPECT_EQ(picture.layer("rgb").floats.channels, 3);
  EXPECT_EQ(picture.layer("rgb").floats(1, 1, 2), 112.0f);
  EXPECT_EQ(picture.layer("alpha").floats.channels, 1);
  EXPECT_EQ(picture.layer("alpha").floats(0, 2), 203.0f);
  EXPECT_TRUE(picture.hasLayer("rgba"));
  EXPECT_FALSE(picture.hasLayer("rgb"));
}

TEST(Picture, IntegersAreNotFloats) {
  const Picture picture = sample();
  const LayerView found = picture.layer("prim");
  ASSERT_TRUE(found);
  EXPECT_EQ(found.type, ValueType::uint32);
  EXPECT_FALSE(found.floats);
  EXPECT_EQ(found.integers(1, 2), 21u);
}

TEST(Picture, ASingleChannelIsFoundByItsNameInFiles) {
  const Picture picture = sample();
  EXPECT_EQ(picture.channel("G").floats.channels, 1);
  EXPECT_EQ(picture.channel("G").floats(1, 2), 211.0f);
  EXPECT_EQ(picture.channel("prim.id").integers(0, 1), 10u);
  EXPECT_FALSE(picture.channel("Z"));
}

TEST(Picture, WhatIsNotThereIsFalse) {
  const Picture picture = sample();
  EXPECT_FALSE(picture.layer("depth"));
  EXPECT_FALSE(picture.layer("albedo"));
  EXPECT_FALSE(picture.layer("heat"));
  EXPECT_FALSE(picture.layer(""));
  EXPECT_FALSE(Picture().layer("rgba"));
}

TEST(Picture, ALayerWithTooFewValuesIsNotRead) {
  Picture picture = sample();
  picture.layers[0].floats.pop_back();
  EXPECT_FALSE(picture.layer("rgba"));
  EXPECT_FALSE(picture.channel("R"));
  picture.layers[1].type = ValueType::float32;
  EXPECT_FALSE(picture.layer("prim"));
}

}  // namespace
