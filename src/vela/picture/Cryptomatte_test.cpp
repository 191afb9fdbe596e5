#include "vela/picture/Cryptomatte.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <variant>

#include "vela/picture/LayerChoice.h"

namespace {

using namespace vela::picture;

TEST(Cryptomatte, HashesAreThePublishedOnes) {
  EXPECT_EQ(murmurHash3(""), 0u);
  EXPECT_EQ(murmurHash3("hello"), 0x248bfa47u);
  EXPECT_EQ(murmurHash3("hello, world"), 0x149bbb7fu);
  // Of one to four bytes beyond whole blocks, and of bytes above 127; from another program.
  EXPECT_EQ(murmurHash3("a"), 0x3c2569b2u);
  EXPECT_EQ(murmurHash3("ab"), 0x9bbfd75fu);
  EXPECT_EQ(murmurHash3("abc"), 0xb3dd93fau);
  EXPECT_EQ(murmurHash3("abcd"), 0x43ed676au);
  EXPECT_EQ(murmurHash3("/W\xc3\xb6rld"), 0xd1421b93u);
}

TEST(Cryptomatte, IdsAreNormalFloats) {
  EXPECT_EQ(cryptomatteId("hello"), 0x248bfa47u);
  EXPECT_EQ(cryptomatteId(""), 0x00800000u);
  int flipped = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::string name = "/World/Prim" + std::to_string(i);
    const std::uint32_t id = cryptomatteId(name);
    ASSERT_TRUE(std::isnormal(cryptomatteValue(id))) << name;
    flipped += id != murmurHash3(name);
    ASSERT_EQ((id ^ murmurHash3(name)) & ~(1u << 23), 0u) << name;
  }
  // Two of 256 exponents.
  EXPECT_GT(flipped, 100);
  EXPECT_LT(flipped, 220);
}

TEST(Cryptomatte, AttributesAreKeyedByTheMattesName) {
  EXPECT_EQ(cryptomatteAttribute("hello", "name"), "cryptomatte/248bfa4/name");
}

TEST(Cryptomatte, ManifestsKeepOrderAndDigits) {
  EXPECT_EQ(cryptomatteManifest({}), "{}");
  EXPECT_EQ(cryptomatteManifest({{"/b", 0x1u}, {"/a\"", 0x99d6cf79u}}),
            R"({"/b":"00000001","/a\"":"99d6cf79"})");
}

TEST(Cryptomatte, ManifestsMoveIntoAFileBesideThePicture) {
  Picture picture = chooseLayers({"crypto_object", "crypto_asset"})->makePicture(1, 1);
  EXPECT_EQ(cryptomattesOf(picture), (std::vector<std::string>{"crypto_object", "crypto_asset"}));
  const std::string object = cryptomatteAttribute("crypto_object", "manifest");
  const std::string asset = cryptomatteAttribute("crypto_asset", "manifest");
  picture.attributes = {{object, cryptomatteManifest({{"b", 2u}, {"a", 1u}})},
                        {"other", std::string("stays")},
                        {asset, cryptomatteManifest({{"c", 3u}, {"a", 1u}})}};
  EXPECT_EQ(takeCryptomatteManifests(picture, "names.json"),
            R"({"a":"00000001","b":"00000002","c":"00000003"})");
  ASSERT_EQ(picture.attributes.size(), 3u);
  EXPECT_EQ(picture.attributes[0].name, cryptomatteAttribute("crypto_object", "manif_file"));
  EXPECT_EQ(std::get<std::string>(picture.attributes[0].value), "names.json");
  EXPECT_EQ(picture.attributes[1].name, "other");
  EXPECT_EQ(picture.attributes[2].name, cryptomatteAttribute("crypto_asset", "manif_file"));
  Picture without = chooseLayers({"depth"})->makePicture(1, 1);
  EXPECT_EQ(takeCryptomatteManifests(without, "names.json"), "");
}

}  // namespace
