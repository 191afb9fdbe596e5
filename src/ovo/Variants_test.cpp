// Scenes opened with other variants than their own.
#include "ovo/Variants.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Stage.h"

namespace {

using ovo::Path;
using ovo::Token;
using ovo::VariantChoice;

class Variants : public testing::Test {
 protected:
  void SetUp() override {
    file_ = testing::TempDir() + "vela_variants.usda";
    std::ofstream(file_) << R"(#usda 1.0
def Xform "Asset" (
    variants = { string look = "day" }
    prepend variantSets = "look"
)
{
    variantSet "look" = {
        "day" {
            def Cube "Sun"
            {
            }
        }
        "night" (
            variants = { string lamp = "on" }
            prepend variantSets = "lamp"
        ) {
            variantSet "lamp" = {
                "on" {
            def Sphere "Lamp"
            {
            }
        }
                "off" {
            def Sphere "Dark"
            {
            }
        }
            }
        }
    }
}
)";
  }
  void TearDown() override { std::filesystem::remove(file_); }

  [[nodiscard]] bool has(const std::vector<VariantChoice>& choices, const char* path) const {
    std::string why;
    const std::shared_ptr<ovo::Stage> stage = ovo::openWithVariants(file_, choices, &why);
    EXPECT_TRUE(stage) << why;
    return stage && stage->getPrimAtPath(Path(path)).isDefined();
  }

  std::string file_;
};

TEST_F(Variants, WithoutChoicesTheFilesOwnHold) {
  EXPECT_TRUE(has({}, "/Asset/Sun"));
  EXPECT_FALSE(has({}, "/Asset/Lamp"));
}

TEST_F(Variants, AChoiceIsStrongerThanTheFiles) {
  const std::vector<VariantChoice> night = {{Path("/Asset"), Token("look"), Token("night")}};
  EXPECT_FALSE(has(night, "/Asset/Sun"));
  EXPECT_TRUE(has(night, "/Asset/Lamp"));
}

TEST_F(Variants, ASetThatComesWithAnotherChoiceCanBeChosenIn) {
  const std::vector<VariantChoice> dark = {{Path("/Asset"), Token("look"), Token("night")},
                                           {Path("/Asset"), Token("lamp"), Token("off")}};
  EXPECT_TRUE(has(dark, "/Asset/Dark"));
  EXPECT_FALSE(has(dark, "/Asset/Lamp"));
}

TEST_F(Variants, ChoicesOfNothingLeaveTheSceneAsItIs) {
  const std::vector<VariantChoice> none = {{Path("/No/Prim"), Token("look"), Token("night")},
                                           {Path("/Asset"), Token("size"), Token("large")}};
  EXPECT_TRUE(has(none, "/Asset/Sun"));
  EXPECT_FALSE(has(none, "/No/Prim"));  // an `over` alone, which is not defined
}

TEST_F(Variants, ChoicesOfNoFormAreRefused) {
  for (const VariantChoice& bad : {VariantChoice{Path("Asset"), Token("look"), Token("day")},
                                   VariantChoice{Path("/"), Token("look"), Token("day")},
                                   VariantChoice{Path(""), Token("look"), Token("day")},
                                   VariantChoice{Path("/Asset.size"), Token("look"), Token("day")},
                                   VariantChoice{Path("/Asset"), Token("a b"), Token("day")},
                                   VariantChoice{Path("/Asset"), Token("look"), Token("a/b")}}) {
    std::string why;
    EXPECT_FALSE(ovo::openWithVariants(file_, {bad}, &why))
        << bad.prim.asString() << " " << bad.set.asString() << " " << bad.name.asString();
    EXPECT_NE(why.find("is no choice of a variant"), std::string::npos) << why;
  }
}

TEST_F(Variants, AFileThatCannotBeOpenedSaysWhyAsEver) {
  std::string why, same;
  EXPECT_FALSE(ovo::openWithVariants("missing.usda", {}, &why));
  EXPECT_FALSE(ovo::Stage::open("missing.usda", &same));
  EXPECT_EQ(why, same);
}

TEST(VariantChoices, AreReadFromText) {
  VariantChoice choice;
  ASSERT_TRUE(ovo::readVariantChoice("/A/B:look=night", choice));
  EXPECT_EQ(choice.prim, Path("/A/B"));
  EXPECT_EQ(choice.set, Token("look"));
  EXPECT_EQ(choice.name, Token("night"));
  EXPECT_TRUE(ovo::readVariantChoice("/A:look=", choice));  // no variant at all
  for (const char* text : {"", "/A", "/A:look", "/A=night", ":look=night", "/A:=night"})
    EXPECT_FALSE(ovo::readVariantChoice(text, choice)) << text;
}

}  // namespace
