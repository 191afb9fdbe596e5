#include "ovo/Token.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <unordered_set>

#include "ovo/Tokens.h"

namespace {

using ovo::Token;

TEST(Token, IsEmptyByDefaultAndFromEmptyTextAndFromNull) {
  EXPECT_TRUE(Token().isEmpty());
  EXPECT_TRUE(Token("").isEmpty());
  EXPECT_TRUE(Token(std::string()).isEmpty());
  EXPECT_TRUE(Token(static_cast<const char*>(nullptr)).isEmpty());
  EXPECT_EQ(Token(), Token(""));
  EXPECT_EQ(Token().asString(), "");
  EXPECT_EQ(Token().hash(), Token("").hash());
}

TEST(Token, KeepsAnyText) {
  const std::string odd("a b\0c\xff\n", 7);
  EXPECT_EQ(Token(odd).asString(), odd);
  EXPECT_FALSE(Token(odd).isEmpty());
  EXPECT_FALSE(Token(" ").isEmpty());
}

TEST(Token, EqualTextsAreEqualWhereverTheyWereMade) {
  const Token a("points"), b(std::string("points"));
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_NE(a, Token("point"));
  EXPECT_NE(a, Token("Points"));
  EXPECT_NE(a, Token());
}

TEST(Token, OrdersByUnsignedBytesWithPrefixesFirst) {
  EXPECT_LT(Token(), Token("a"));
  EXPECT_LT(Token("a"), Token("ab"));
  EXPECT_LT(Token("Z"), Token("a"));
  EXPECT_LT(Token("z"), Token("\xc3\xa4"));
  EXPECT_FALSE(Token("a") < Token("a"));
  EXPECT_TRUE(Token("b") > Token("a") && Token("a") <= Token("a") && Token("a") >= Token("a"));
}

TEST(Token, HashIsTheSameInEveryRunAndOnEveryPlatform) {
  // FNV-1a of "points" finished by SplitMix64's mixer, computed apart from this code.
  EXPECT_EQ(Token("points").hash(), 0x774b90edf308ef1bu);
  EXPECT_EQ(Token().hash(), 0xf52a15e9a9b5e89bu);
}

TEST(Token, SurvivesItsSource) {
  Token kept;
  {
    const Token source("kept");
    kept = source;
  }
  EXPECT_EQ(kept.asString(), "kept");
}

TEST(Token, PrintsItsText) {
  std::ostringstream out;
  out << Token("abc") << Token();
  EXPECT_EQ(out.str(), "abc");
}

TEST(Token, WorksAsAKey) {
  std::unordered_set<Token> hashed{Token("a"), Token("b"), Token("a")};
  std::set<Token> ordered{Token("b"), Token("a"), Token("b")};
  EXPECT_EQ(hashed.size(), 2u);
  EXPECT_EQ(ordered.size(), 2u);
  EXPECT_EQ(ordered.begin()->asString(), "a");
}

TEST(Tokens, SayTheWordsThatScenesUse) {
  EXPECT_EQ(ovo::tokens().points.asString(), "points");
  EXPECT_EQ(ovo::tokens().catmullClark.asString(), "catmullClark");
  EXPECT_EQ(ovo::tokens().default_.asString(), "default");
  EXPECT_EQ(ovo::tokens().shutterOpen.asString(), "shutter:open");
  EXPECT_EQ(ovo::tokens().xformOpTransform.asString(), "xformOp:transform");
  EXPECT_EQ(&ovo::tokens(), &ovo::tokens());
}

}  // namespace
