// Look-ups in textures, held against closed forms and against values that were computed elsewhere.
#include "vela/picture/detail/Texture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ovo/Stage.h"
#include "support/ChildProcess.h"
#include "support/SharedData.h"
#include "vela/picture/PngFile.h"
#include "vela/picture/detail/TextureSet.h"

namespace {

using namespace vela::picture::detail;
using tarn::Vec2f;
using tarn::Vec4f;
using vela_test::TemporaryFolder;

constexpr std::size_t kPlenty = std::size_t{1} << 30;

// An image of greys by code, 0 to 255, rows from the top.
std::string pngOf(int width, int height, const std::vector<int>& codes) {
  std::vector<float> linear;
  for (const int code : codes)
    for (int c = 0; c < 3; ++c) linear.push_back(decodeSrgb(static_cast<float>(code) / 255.0f));
  std::vector<unsigned char> bytes;
  std::string why;
  EXPECT_TRUE(vela::picture::writePng(width, height, linear, bytes, &why)) << why;
  return std::string(bytes.begin(), bytes.end());
}

std::unique_ptr<const Texture> textureOf(const std::string& bytes,
                                         ColourSpace space = ColourSpace::raw, int reduction = 0) {
  std::string why;
  auto texture = Texture::read(bytes, space, reduction, kPlenty, &why);
  EXPECT_TRUE(texture) << why;
  return texture;
}

float code(int value) { return static_cast<float>(value) / 255.0f; }

TEST(Texture, UpIsUpLeftIsLeftAndValuesAreLinearBetweenCentres) {
  const auto texture = textureOf(pngOf(2, 2, {10, 20, 30, 40}));
  const auto at = [&](float s, float t) {
    return texture->lookup({s, t}, 0.0f, Wrap::clamp, Wrap::clamp).x;
  };
  EXPECT_FLOAT_EQ(at(0.25f, 0.75f), code(10));
  EXPECT_FLOAT_EQ(at(0.75f, 0.75f), code(20));
  EXPECT_FLOAT_EQ(at(0.25f, 0.25f), code(30));
  EXPECT_FLOAT_EQ(at(0.75f, 0.25f), code(40));
  EXPECT_FLOAT_EQ(at(0.5f, 0.75f), code(15));
  EXPECT_FLOAT_EQ(at(0.5f, 0.5f), code(25));
  EXPECT_FLOAT_EQ(at(0.0f, 1.0f), code(10));
  EXPECT_FLOAT_EQ(texture->lookup({0.25f, 0.75f}, 0.0f, Wrap::clamp, Wrap::clamp).w, 1.0f);
}

TEST(Texture, BeyondTheEdgesTheWrapSaysWhatThereIs) {
  const auto texture = textureOf(pngOf(4, 1, {10, 20, 30, 40}));
  const auto at = [&](float s, Wrap wrap) {
    return texture->lookup({s, 0.5f}, 0.0f, wrap, Wrap::clamp).x;
  };
  EXPECT_FLOAT_EQ(at(1.125f, Wrap::repeat), code(10));
  EXPECT_FLOAT_EQ(at(-0.125f, Wrap::repeat), code(40));
  EXPECT_FLOAT_EQ(at(1.125f, Wrap::mirror), code(40));
  EXPECT_FLOAT_EQ(at(-0.125f, Wrap::mirror), code(10));
  EXPECT_FLOAT_EQ(at(-1.125f, Wrap::mirror), code(40));
  EXPECT_FLOAT_EQ(at(5.0f, Wrap::clamp), code(40));
  EXPECT_EQ(texture->lookup({1.001f, 0.5f}, 0.0f, Wrap::black, Wrap::clamp),
            Vec4f(0.0f, 0.0f, 0.0f, 0.0f));
  EXPECT_FLOAT_EQ(at(1.0f, Wrap::black), code(40));
  EXPECT_FLOAT_EQ(at(0.0f, Wrap::repeat), code(25));
  for (const float s : {std::nanf(""), INFINITY, -INFINITY})
    for (const Wrap wrap : {Wrap::black, Wrap::clamp, Wrap::repeat, Wrap::mirror})
      EXPECT_EQ(texture->lookup({s, 0.5f}, 0.0f, wrap, wrap), Vec4f(0.0f, 0.0f, 0.0f, 0.0f));
  for (const float s : {1e30f, -1e30f, 1e9f})
    for (const Wrap wrap : {Wrap::clamp, Wrap::repeat, Wrap::mirror})
      EXPECT_TRUE(std::isfinite(at(s, wrap)));
}

TEST(Texture, ReductionsAreMeansOfDecodedValues) {
  // Black and white in turn: the mean of the light, not of the codes.
  std::vector<int> codes;
  for (int i = 0; i < 64; ++i) codes.push_back((i + i / 8) % 2 ? 255 : 0);
  const auto texture = textureOf(pngOf(8, 8, codes), ColourSpace::srgb);
  EXPECT_EQ(texture->levelCount(), 4u);
  EXPECT_NEAR(texture->lookup({0.3f, 0.3f}, 0.25f, Wrap::repeat, Wrap::repeat).x, 0.5f, 1e-3f);
  EXPECT_NEAR(texture->lookup({0.3f, 0.3f}, 100.0f, Wrap::repeat, Wrap::repeat).x, 0.5f, 1e-3f);

  // Sizes that are no powers of two keep the mean, too.
  codes.clear();
  for (int i = 0; i < 7 * 5; ++i) codes.push_back(i);
  const auto odd = textureOf(pngOf(7, 5, codes));
  EXPECT_EQ(odd->levelCount(), 4u);
  EXPECT_NEAR(odd->lookup({0.1f, 0.9f}, 1e9f, Wrap::clamp, Wrap::clamp).x, code(17), 2e-4f);
}

TEST(Texture, AnImageHalvedOnItsWayInIsTheWholeOnesReduction) {
  std::vector<int> codes;
  for (int i = 0; i < 100 * 60; ++i) codes.push_back(i * 37 % 256);
  const std::string bytes = pngOf(100, 60, codes);
  const auto whole = textureOf(bytes, ColourSpace::srgb),
             halved = textureOf(bytes, ColourSpace::srgb, 2);
  EXPECT_EQ(halved->width(), 25);
  EXPECT_EQ(halved->height(), 15);
  for (float s = 0.0f; s < 1.0f; s += 0.04f) {
    const Vec4f expected = whole->lookup({s, s}, 4.0f / 100.0f, Wrap::clamp, Wrap::clamp);
    const Vec4f found = halved->lookup({s, s}, 0.0f, Wrap::clamp, Wrap::clamp);
    EXPECT_NEAR(expected.x, found.x, 2e-3f);
  }
  ImageInfo info;
  info.width = 100;
  info.height = 60;
  info.channels = 3;
  EXPECT_EQ(Texture::bytesFor(info, 2),
            std::size_t{(25 * 15 + 13 * 8 + 7 * 4 + 4 * 2 + 2 + 1) * 6});
}

TEST(Texture, LookUpsAreThoseOfTheExpectedValues) {
  requireSharedData("usd/oracle-materials");
  std::ifstream in(vela_test::sharedDataPath("usd/oracle-materials/own.json"));
  const auto oracle = nlohmann::json::parse(in);
  const std::string folder = vela_test::sharedDataPath("usd/materials/");
  std::size_t compared = 0;
  const auto vectorOf = [](const nlohmann::json& from, float rest) {
    Vec4f v(rest, rest, rest, rest);
    for (std::size_t i = 0; i < from.size(); ++i) v[i] = from[i].get<float>();
    return v;
  };
  const auto check = [&](const nlohmann::json& texture) {
    if (!texture.contains("lookups") || !texture["file"].is_string() || texture.contains("udim"))
      return;
    const std::string name = texture["file"].get<std::string>();
    if (name.find('[') != std::string::npos) return;
    SCOPED_TRACE(texture.dump());
    const std::string space = texture.value("sourceColorSpace", "auto");
    const auto image =
        textureOf(vela_test::readFile(folder + name), space == "sRGB"  ? ColourSpace::srgb
                                                      : space == "raw" ? ColourSpace::raw
                                                                       : ColourSpace::automatic);
    ASSERT_TRUE(image);
    const auto wrap = [&](const char* key) {
      const std::string word = texture.value(key, "black");
      return word == "clamp"    ? Wrap::clamp
             : word == "repeat" ? Wrap::repeat
             : word == "mirror" ? Wrap::mirror
                                : Wrap::black;
    };
    const Vec4f scale = vectorOf(texture.value("scale", nlohmann::json::array()), 1.0f);
    const Vec4f bias = vectorOf(texture.value("bias", nlohmann::json::array()), 0.0f);
    const std::string output = texture.value("output", "rgb");
    for (const auto& lookup : texture["lookups"]) {
      Vec4f value = image->lookup({lookup[0].get<float>(), lookup[1].get<float>()}, 0.0f,
                                  wrap("wrapS"), wrap("wrapT"));
      value = {value.x * scale.x + bias.x, value.y * scale.y + bias.y, value.z * scale.z + bias.z,
               value.w * scale.w + bias.w};
      const auto& expected = lookup[2];
      if (expected.is_array()) {
        for (std::size_t c = 0; c < expected.size(); ++c)
          EXPECT_NEAR(value[c], expected[c].get<float>(), 2e-6f) << lookup.dump();
      } else {
        const std::size_t c = output == "g" ? 1 : output == "b" ? 2 : output == "a" ? 3 : 0;
        EXPECT_NEAR(value[c], expected.get<float>(), 2e-6f) << lookup.dump();
      }
      ++compared;
    }
  };
  for (const auto& [name, scene] : oracle["scenes"].items()) {
    if (!scene.contains("materials")) continue;
    for (const auto& material : scene["materials"]) {
      if (!material.contains("inputs")) continue;
      for (const auto& [input, value] : material["inputs"].items())
        if (value.contains("texture")) check(value["texture"]);
    }
  }
  EXPECT_GT(compared, 50u);
}

class Textures : public testing::Test {
 protected:
  std::shared_ptr<ovo::Stage> stageIn(const TemporaryFolder& folder, const std::string& files) {
    std::string text = "#usda 1.0\ndef \"P\"\n{\n" + files + "}\n";
    EXPECT_TRUE(vela_test::writeFile(folder.file("s.usda"), text));
    return ovo::Stage::open(folder.file("s.usda"));
  }
  static std::uint32_t add(TextureSet& set, const ovo::Stage& stage, const char* attribute,
                           ColourSpace space = ColourSpace::raw) {
    const ovo::PropertyLinks links(stage.getPrimAtPath("/P"));
    ovo::FileReference file;
    EXPECT_TRUE(links.file(attribute, file));
    return set.add(links, file, space);
  }
};

TEST_F(Textures, EachFileIsReadOnceAndMissingOnesAreNamed) {
  const TemporaryFolder folder;
  vela_test::writeFile(folder.file("a.png"), pngOf(1, 1, {51}));
  vela_test::writeFile(folder.file("bad.png"), pngOf(9, 9, std::vector<int>(81)).substr(0, 60));
  const auto stage =
      stageIn(folder,
              " asset a = @./a.png@\n asset again = @a.png@\n"
              " asset bad = @./bad.png@\n asset gone = @./gone.png@\n asset no = @@\n");
  TextureSet set;
  const auto a = add(set, *stage, "a");
  EXPECT_EQ(add(set, *stage, "again"), a);
  EXPECT_NE(add(set, *stage, "a", ColourSpace::srgb), a);
  const auto bad = add(set, *stage, "bad"), gone = add(set, *stage, "gone"),
             none = add(set, *stage, "no");
  set.load(kPlenty, 2);
  EXPECT_TRUE(set.has(a));
  EXPECT_FLOAT_EQ(set.lookup(a, {0.5f, 0.5f}, 0.0f, Wrap::black, Wrap::black).x, 0.2f);
  for (const auto texture : {bad, gone, none}) {
    EXPECT_FALSE(set.has(texture));
    EXPECT_EQ(set.lookup(texture, {0.5f, 0.5f}, 0.0f, Wrap::clamp, Wrap::clamp),
              Vec4f(0.0f, 0.0f, 0.0f, 0.0f));
  }
  ASSERT_EQ(set.problems().size(), 2u);
  EXPECT_EQ(set.problems()[0].subject, folder.file("bad.png"));
  EXPECT_EQ(set.problems()[1].subject, folder.file("gone.png"));
  EXPECT_EQ(set.problems()[1].reason, "it is missing");
}

TEST_F(Textures, TilesCoverTheirSquaresAndNothingTheOthers) {
  const TemporaryFolder folder;
  vela_test::writeFile(folder.file("t.1001.png"), pngOf(1, 1, {51}));
  vela_test::writeFile(folder.file("t.1012.png"), pngOf(1, 1, {102}));
  const auto stage = stageIn(folder, " asset t = @./t.<UDIM>.png@\n asset u = @./u.<UDIM>.png@\n");
  TextureSet set;
  const auto t = add(set, *stage, "t"), u = add(set, *stage, "u");
  set.load(kPlenty, 1);
  const auto at = [&](float s, float v) {
    return set.lookup(t, {s, v}, 0.0f, Wrap::repeat, Wrap::repeat).x;
  };
  EXPECT_FLOAT_EQ(at(0.5f, 0.5f), 0.2f);
  EXPECT_FLOAT_EQ(at(1.5f, 1.5f), 0.4f);
  EXPECT_EQ(at(1.5f, 0.5f), 0.0f);
  EXPECT_EQ(at(-0.5f, 0.5f), 0.0f);
  EXPECT_EQ(at(11.5f, 0.5f), 0.0f);
  EXPECT_EQ(at(std::nanf(""), 0.5f), 0.0f);
  EXPECT_TRUE(set.has(t));
  EXPECT_FALSE(set.has(u));
}

TEST_F(Textures, TheLargestAreHalvedUntilAllFit) {
  const TemporaryFolder folder;
  vela_test::writeFile(folder.file("large.png"), pngOf(256, 256, std::vector<int>(65536, 51)));
  vela_test::writeFile(folder.file("small.png"), pngOf(16, 16, std::vector<int>(256, 102)));
  const auto stage = stageIn(folder, " asset l = @./large.png@\n asset s = @./small.png@\n");
  for (const std::size_t most :
       {std::size_t{1000000}, std::size_t{100000}, std::size_t{3000}, std::size_t{10}}) {
    TextureSet set;
    const auto large = add(set, *stage, "l"), small = add(set, *stage, "s");
    set.load(most, 1);
    // Two single texels of three halves are the least.
    EXPECT_LE(set.bytes(), std::max(most, std::size_t{12}));
    EXPECT_NEAR(set.lookup(large, {0.5f, 0.5f}, 0.0f, Wrap::clamp, Wrap::clamp).x, 0.2f, 1e-4f);
    EXPECT_NEAR(set.lookup(small, {0.5f, 0.5f}, 0.0f, Wrap::clamp, Wrap::clamp).x, 0.4f, 2e-4f);
    EXPECT_EQ(set.problems().size(), most == 1000000 ? 0u : most == 10 ? 2u : 1u) << most;
  }
}

}  // namespace
