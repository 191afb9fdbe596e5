#include "vela/channels/ChannelPack.h"

#include <gtest/gtest.h>

#include <climits>
#include <ios>
#include <sstream>
#include <vector>

using vela::Channel;
using vela::ChannelPack;
using vela::ChannelSet;

namespace {

std::vector<int> numbers(const ChannelPack& pack) {
  std::vector<int> out;
  for (Channel c : pack) out.push_back(c.index());
  return out;
}

std::string text(const ChannelPack& pack) {
  std::ostringstream out;
  out << pack;
  return out.str();
}

using Numbers = std::vector<int>;

TEST(ChannelPack, AddingTwiceUniquelyLeavesOneEntry) {
  ChannelPack pack;
  EXPECT_TRUE(pack.empty());
  pack.add(Channel(5), true);
  pack.add(Channel(5), true);
  EXPECT_EQ(numbers(pack), Numbers({5}));
  EXPECT_FALSE(pack.empty());
}

TEST(ChannelPack, AddingTwiceFreelyLeavesTwo) {
  ChannelPack pack;
  pack.add(Channel(5), false);
  pack.add(Channel(5), false);
  EXPECT_EQ(numbers(pack), Numbers({5, 5}));
}

TEST(ChannelPack, TheEmptyChannelIsAddedFreelyAlone) {
  ChannelPack pack;
  pack.add(Channel(0), true);
  pack.add(Channel(-4), true);
  EXPECT_EQ(pack.size(), 0u);
  pack.add(Channel(0), false);
  pack.add(Channel(-4), false);
  EXPECT_EQ(numbers(pack), Numbers({0, -4}));
}

TEST(ChannelPack, SetsComeInAscendingOrder) {
  ChannelSet set;
  for (int c : {300, 2, 40, 1}) set += Channel(c);
  EXPECT_EQ(numbers(ChannelPack(set)), Numbers({1, 2, 40, 300}));

  ChannelPack pack(Channel(40));
  pack += set;
  EXPECT_EQ(numbers(pack), Numbers({40, 1, 2, 300}));
  pack.add(set, false);
  EXPECT_EQ(numbers(pack), Numbers({40, 1, 2, 300, 1, 2, 40, 300}));
  pack.set(set);
  EXPECT_EQ(numbers(pack), Numbers({1, 2, 40, 300}));
  pack.set(Channel(9));
  EXPECT_EQ(numbers(pack), Numbers({9}));
  pack = set;
  EXPECT_EQ(numbers(pack), Numbers({1, 2, 40, 300}));
  pack += Channel(2);
  pack += Channel(3);
  EXPECT_EQ(numbers(pack), Numbers({1, 2, 40, 300, 3}));
}

TEST(ChannelPack, RepetitionsAboveTheRegistrysNumbersAreFoundToo) {
  ChannelSet set;
  for (int c : {1023, 1024, 5000}) set += Channel(c);
  ChannelPack pack(Channel(5000));
  pack += set;
  pack += set;
  EXPECT_EQ(numbers(pack), Numbers({5000, 1023, 1024}));
}

TEST(ChannelPack, TheSetOfAllChannelsGivesThirtyTwo) {
  const ChannelPack pack(ChannelSet(0xFFFFFFFFu));
  EXPECT_EQ(pack.size(), 32u);
  EXPECT_EQ(pack[31], 32);
}

TEST(ChannelPack, PacksOfOneTakeAnyNumber) {
  EXPECT_EQ(numbers(ChannelPack(Channel(0))), Numbers({0}));
  ChannelPack pack(Channel(3));
  pack.set(Channel(-2));
  EXPECT_EQ(numbers(pack), Numbers({-2}));
}

TEST(ChannelPack, CopiesAreIndependent) {
  ChannelPack pack(Channel(5));
  ChannelPack copy = pack;
  copy += Channel(6);
  EXPECT_EQ(numbers(pack), Numbers({5}));
  pack = copy;
  EXPECT_EQ(numbers(pack), Numbers({5, 6}));
  const ChannelPack moved = std::move(copy);
  EXPECT_EQ(numbers(moved), Numbers({5, 6}));
}

TEST(ChannelPack, EntriesAreReadAndWrittenInPlace) {
  ChannelPack pack;
  for (int c = 10; c < 13; ++c) pack += Channel(c);
  pack[1] = Channel(99);
  EXPECT_EQ(pack.array()[1], 99);
  pack.array()[2] = Channel(77);
  EXPECT_EQ(pack[2], 77);
  EXPECT_EQ(pack.end() - pack.begin(), 3);
  const ChannelPack& constant = pack;
  EXPECT_EQ(constant[1], 99);
  EXPECT_EQ(constant[1024], 0);
  EXPECT_EQ(constant[UINT_MAX], 0);
  pack.clear();
  EXPECT_TRUE(pack.empty());
}

TEST(ChannelPack, AFullPackIgnoresMore) {
  ChannelPack pack;
  for (int c = 1; c <= 2000; ++c) pack.add(Channel(c), false);
  EXPECT_EQ(pack.size(), 1024u);
  EXPECT_EQ(pack[1023], 1024);
  pack += Channel(5000);
  EXPECT_EQ(pack.size(), 1024u);

  std::vector<Channel> list;
  for (int c = 1; c <= 1500; ++c) list.push_back(Channel(c));
  const ChannelPack fromSet(ChannelSet(list.data(), 1500));
  EXPECT_EQ(fromSet.size(), 1024u);
  EXPECT_EQ(fromSet[1023], 1024);
}

TEST(ChannelPack, TurnsIntoTheSetOfItsEntries) {
  ChannelPack pack;
  for (int c : {40, 0, 3, 40, -1}) pack.add(Channel(c), false);
  const ChannelSet set = pack;
  EXPECT_EQ(set.size(), 2u);
  EXPECT_TRUE(set & Channel(3));
  EXPECT_TRUE(set & Channel(40));
}

TEST(ChannelPack, PrintsInPackOrder) {
  ChannelPack pack;
  EXPECT_EQ(text(pack), "none");
  for (int c : {3, 1, 255}) pack.add(Channel(c), false);
  EXPECT_EQ(text(pack), "3, 1, 255");
  std::ostringstream out;
  out << std::hex << pack;
  EXPECT_EQ(out.str(), "3, 1, 255");
}

}  // namespace
