#include "tarn/Hash.h"

#include <gtest/gtest.h>

#include <unordered_set>

using tarn::Hash;

namespace {

TEST(Hash, OneWordIsItsFourBytesLowestFirst) {
  Hash word, bytes;
  word.append(0x04030201u);
  const unsigned char raw[4] = {1, 2, 3, 4};
  bytes.append(raw, 4);
  EXPECT_EQ(word.value(), bytes.value());
}

// Fixed forever: saved keys depend on it.
TEST(Hash, ValuesAreTheSameOnEveryPlatform) {
  EXPECT_EQ(Hash().value(), 0xF52A15E9A9B5E89BULL);
  Hash h;
  h.append("vela", 4);
  EXPECT_EQ(h.value(), 0x0850050C8E36C061ULL);
}

TEST(Hash, AppendingNothingChangesNothing) {
  Hash h;
  h.append(nullptr, 0);
  EXPECT_EQ(h.value(), Hash().value());
}

TEST(Hash, OrderCounts) {
  Hash ab, ba;
  ab.append(1u);
  ab.append(2u);
  ba.append(2u);
  ba.append(1u);
  EXPECT_NE(ab.value(), ba.value());
}

TEST(Hash, SmallNumbersDoNotCollide) {
  std::unordered_set<std::uint64_t> seen;
  for (std::uint32_t i = 0; i < 100000; ++i) {
    Hash h;
    h.append(i);
    seen.insert(h.value());
  }
  EXPECT_EQ(seen.size(), 100000u);
}

}  // namespace
