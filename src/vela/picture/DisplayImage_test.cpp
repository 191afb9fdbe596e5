#include "vela/picture/DisplayImage.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "vela/picture/Cryptomatte.h"
#include "vela/picture/LayerChoice.h"
#include "vela/picture/PngFile.h"

namespace {

using namespace vela::picture;
using Codes = std::vector<std::uint8_t>;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

Picture pictureOf(const std::string& layer, int width, int height,
                  const std::vector<float>& values) {
  Picture picture = chooseLayers({layer})->makePicture(width, height);
  picture.layers[0].floats = values;
  return picture;
}

DisplayImage shown(const Picture& picture, const std::string& layer,
                   const DisplayOptions& options = {}) {
  std::string error = "untouched";
  const auto image = displayLayer(picture, layer, options, &error);
  EXPECT_TRUE(image) << error;
  EXPECT_EQ(error, "untouched");
  return image.value_or(DisplayImage());
}

DisplayOptions clipped() {
  DisplayOptions options;
  options.view = *ViewTransform::make({"", "clip", ""});
  return options;
}

TEST(DisplayImage, ColourStandsBeforeTheBackdrop) {
  const Picture picture =
      pictureOf("rgba", 2, 2, {0.5f, 0.25f, 0, 1, 0, 0, 0, 0, 0.2f, 0.1f, 0, 0.5f, 9, 9, 9, 1});
  const DisplayImage image = shown(picture, "rgba", clipped());
  EXPECT_FALSE(image.hasAlpha);
  // The same as the backdrop's own function and the code of sRGB.
  const std::vector<float> over = overBackdrop(picture);
  ASSERT_EQ(image.codes.size(), over.size());
  for (std::size_t i = 0; i < over.size(); ++i) EXPECT_EQ(image.codes[i], encodeSrgb(over[i])) << i;
}

TEST(DisplayImage, ExposureIsTheCamerasAndTheCallersAndLeavesTheBackdrop) {
  Picture picture = pictureOf("rgba", 2, 1, {0.1f, 0.1f, 0.1f, 1, 0, 0, 0, 0});
  DisplayOptions options = clipped();
  const DisplayImage plain = shown(picture, "rgba", options);
  options.exposure = 1.5;
  picture.attributes = {{"exposure", 0.5f}};
  const DisplayImage image = shown(picture, "rgba", options);
  EXPECT_EQ(image.codes[0], encodeSrgb(0.4f));
  EXPECT_EQ(Codes(image.codes.begin() + 3, image.codes.end()),
            Codes(plain.codes.begin() + 3, plain.codes.end()));
  std::string error;
  options.exposure = 1e9;
  EXPECT_FALSE(displayLayer(picture, "rgba", options, &error));
  EXPECT_EQ(error, "the exposure is not finite");
}

TEST(DisplayImage, AlphaIsKeptWithColourThatIsNotMultiplied) {
  const Picture picture =
      pictureOf("rgba", 3, 1, {0.5f, 0.5f, 0.5f, 1, 0.25f, 0, 0, 0.5f, 0, 0, 0, 0});
  DisplayOptions options = clipped();
  options.behind = Behind::nothing;
  const DisplayImage image = shown(picture, "rgba", options);
  EXPECT_TRUE(image.hasAlpha);
  EXPECT_EQ(image.codes, (Codes{188, 188, 188, 255, 188, 0, 0, 128, 0, 0, 0, 0}));
}

TEST(DisplayImage, AColourBehindComesOutAsItIs) {
  const Picture picture =
      pictureOf("rgba", 3, 1, {0, 0, 0, 0, 0.5f, 0.5f, 0.5f, 1, 0.25f, 0.25f, 0.25f, 0.5f});
  DisplayOptions options;
  options.behind = Behind::colour;
  options.colour = {1.0f, 0.5f, 0.0f};
  const DisplayImage image = shown(picture, "rgba", options);
  EXPECT_EQ(image.codes[0], 255);
  EXPECT_EQ(image.codes[1], 128);
  EXPECT_EQ(image.codes[2], 0);
  EXPECT_EQ(image.codes[3], 188);
  // Half of each, of light: (0.5 + 1) / 2, and (0.5 + 0) / 2.
  EXPECT_EQ(image.codes[6], encodeSrgb(0.75f));
  EXPECT_EQ(image.codes[8], encodeSrgb(0.25f));
}

TEST(DisplayImage, LayersWithoutAlphaHaveNothingBehindThem) {
  const Picture picture = pictureOf("albedo", 2, 1, {0.5f, 0, 0, 0, 0, 0});
  DisplayOptions options = clipped();
  options.behind = Behind::nothing;
  const DisplayImage image = shown(picture, "albedo", options);
  EXPECT_FALSE(image.hasAlpha);
  EXPECT_EQ(image.codes, (Codes{188, 0, 0, 0, 0, 0}));
}

TEST(DisplayImage, DataHaveFormsOfTheirOwn) {
  EXPECT_EQ(shown(pictureOf("depth", 4, 1, {2, 4, 3, kInfinity}), "depth").codes,
            (Codes{255, 255, 255, 51, 51, 51, 153, 153, 153, 0, 0, 0}));
  EXPECT_EQ(shown(pictureOf("depth", 2, 1, {3, kInfinity}), "depth").codes,
            (Codes{255, 255, 255, 0, 0, 0}));
  EXPECT_EQ(shown(pictureOf("depth", 1, 1, {kInfinity}), "depth").codes, (Codes{0, 0, 0}));
  EXPECT_EQ(shown(pictureOf("N", 2, 1, {0, -1, 0.6f, 0, 0, 0}), "N").codes,
            (Codes{128, 0, 204, 0, 0, 0}));
  EXPECT_EQ(shown(pictureOf("P", 3, 1, {-1, 0, 5, 0, 0, 5, 3, 10, 5}), "P").codes,
            (Codes{0, 0, 255, 64, 0, 255, 255, 255, 255}));
  EXPECT_EQ(shown(pictureOf("P", 2, 1, {-3e38f, 0, 0, 3e38f, 0, 0}), "P").codes[0], 0);
  EXPECT_EQ(shown(pictureOf("alpha", 2, 1, {0.5f, 2}), "alpha").codes,
            (Codes{128, 128, 128, 255, 255, 255}));
}

TEST(DisplayImage, EachNumberHasAColourOfItsOwn) {
  Picture picture = chooseLayers({"prim"})->makePicture(100, 1);
  for (std::uint32_t i = 0; i < 100; ++i) picture.layers[0].integers[i] = i;
  const Codes codes = shown(picture, "prim").codes;
  EXPECT_EQ(Codes(codes.begin(), codes.begin() + 3), (Codes{0, 0, 0}));
  std::set<Codes> colours;
  for (std::ptrdiff_t i = 0; i < 100; ++i)
    colours.insert(Codes(codes.begin() + 3 * i, codes.begin() + 3 * i + 3));
  EXPECT_GT(colours.size(), 98u);
}

TEST(DisplayImage, MattesAreMixedByTheirShares) {
  Picture picture = chooseLayers({"crypto_object"})->makePicture(4, 1);
  const float a = cryptomatteValue(cryptomatteId("/a")), b = cryptomatteValue(cryptomatteId("/b"));
  picture.layers[0].floats = {a, 1, 0, 0, b, 1, 0, 0, b, 0.5f, a, 0.5f, 0, 0, 0, 0};
  const Codes codes = shown(picture, "crypto_object").codes;
  for (std::size_t k = 0; k < 3; ++k) {
    EXPECT_NEAR(codes[6 + k], (codes[k] + codes[3 + k]) / 2.0, 1.0);
    EXPECT_EQ(codes[9 + k], 0);
  }
  EXPECT_NE(Codes(codes.begin(), codes.begin() + 3), Codes(codes.begin() + 3, codes.begin() + 6));
  EXPECT_EQ(shown(picture, "crypto_object00").codes, codes);
}

TEST(DisplayImage, WhatIsNotThereSaysSo) {
  std::string error;
  EXPECT_FALSE(displayLayer(pictureOf("depth", 1, 1, {1}), "N", {}, &error));
  EXPECT_EQ(error, "the picture has no layer N");
  EXPECT_FALSE(displayLayer(pictureOf("depth", 1, 1, {1}), "crypto_object", {}, &error));
  EXPECT_EQ(error, "the picture has no layer crypto_object");
  EXPECT_FALSE(displayLayer(Picture(), "rgba", {}, &error));
  EXPECT_EQ(error, "the picture has no pixels");
}

TEST(DisplayImage, EveryLayerOfTheTableCanBeShown) {
  for (const LayerInfo& info : layerTable()) {
    const Picture picture = chooseLayers({info.name})->makePicture(3, 2);
    EXPECT_EQ(shown(picture, info.name).codes.size(), 18u) << info.name;
  }
}

}  // namespace
