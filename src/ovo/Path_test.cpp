#include "ovo/Path.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <unordered_set>

namespace {

using ovo::Path;
using ovo::Token;

TEST(Path, KeepsAnyTextAndNeverChecksIt) {
  for (const char* text : {"/World/Chair", "no slash", "//", "/a/", "not a path!", "/A.attr", "<>"})
    EXPECT_EQ(Path(text).asString(), text);
  EXPECT_TRUE(Path().isEmpty());
  EXPECT_TRUE(Path("").isEmpty());
  EXPECT_TRUE(Path(static_cast<const char*>(nullptr)).isEmpty());
  EXPECT_FALSE(Path("/").isEmpty());
}

TEST(Path, ParentIsWhatStandsBeforeTheLastSlash) {
  EXPECT_EQ(Path("/A/B").parent(), Path("/A"));
  EXPECT_EQ(Path("/A").parent(), Path("/"));
  EXPECT_EQ(Path("/").parent(), Path());
  EXPECT_EQ(Path("A").parent(), Path());
  EXPECT_EQ(Path("A/B").parent(), Path("A"));
  EXPECT_EQ(Path().parent(), Path());
}

TEST(Path, NameIsWhatStandsBehindTheLastSlash) {
  EXPECT_EQ(Path("/A/B").name(), Token("B"));
  EXPECT_EQ(Path("A").name(), Token("A"));
  EXPECT_EQ(Path("/").name(), Token());
  EXPECT_EQ(Path().name(), Token());
}

TEST(Path, ChildAddsOneName) {
  EXPECT_EQ(Path("/A").child("B"), Path("/A/B"));
  EXPECT_EQ(Path("/").child("A"), Path("/A"));
  EXPECT_EQ(Path::absoluteRoot().child("A").child("B").asString(), "/A/B");
  EXPECT_EQ(Path().child("A"), Path("A"));
  EXPECT_EQ(Path("/A").child(Token()), Path("/A"));
}

TEST(Path, HasPrefixGoesByWholeNames) {
  EXPECT_TRUE(Path("/A/B").hasPrefix(Path("/A")));
  EXPECT_TRUE(Path("/A").hasPrefix(Path("/A")));
  EXPECT_FALSE(Path("/AB").hasPrefix(Path("/A")));
  EXPECT_FALSE(Path("/A").hasPrefix(Path("/A/B")));
  EXPECT_TRUE(Path("/A").hasPrefix(Path("/")));
  EXPECT_TRUE(Path("/").hasPrefix(Path("/")));
  EXPECT_FALSE(Path("A").hasPrefix(Path("/")));
  EXPECT_FALSE(Path("/A").hasPrefix(Path()));
  EXPECT_FALSE(Path().hasPrefix(Path()));
}

TEST(Path, OrdersByBytesWhichIsNotTheOrderOfAWalk) {
  EXPECT_LT(Path(), Path("/"));
  EXPECT_LT(Path("/A"), Path("/A/B"));
  EXPECT_LT(Path("/A-b"), Path("/A/b"));
  EXPECT_LT(Path("/A"), Path("/a"));
  EXPECT_LT(Path("/z"), Path("/\xc3\xa4"));
  EXPECT_TRUE(Path("/b") > Path("/a") && Path("/a") <= Path("/a") && Path("/a") >= Path("/a"));
}

TEST(Path, EqualPathsHaveEqualHashes) {
  EXPECT_EQ(Path("/A").hash(), Path("/").child("A").hash());
  EXPECT_EQ(std::hash<Path>()(Path("/A")), Path("/A").hash());
  EXPECT_NE(Path("/A").hash(), Path("/B").hash());
  std::unordered_set<Path> hashed{Path("/A"), Path("/B"), Path("/A")};
  std::set<Path> ordered{Path("/B"), Path("/A"), Path("/B")};
  EXPECT_EQ(hashed.size(), 2u);
  EXPECT_EQ(ordered.size(), 2u);
}

TEST(Path, PrintsItsText) {
  std::ostringstream out;
  out << Path("/A/B");
  EXPECT_EQ(out.str(), "/A/B");
}

}  // namespace
