#include "tarn/Span.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "ovo/Array.h"
#include "tarn/Vec.h"

namespace {

using tarn::Span;

int sumOf(Span<const int> values) {
  int sum = 0;
  for (const int v : values) sum += v;
  return sum;
}

TEST(Span, DefaultIsEmptyAndNull) {
  const Span<int> span;
  EXPECT_TRUE(span.empty());
  EXPECT_EQ(span.size(), 0u);
  EXPECT_EQ(span.data(), nullptr);
  EXPECT_EQ(span.begin(), span.end());
}

TEST(Span, ReadsWhateverHoldsElementsInARow) {
  const int plain[] = {1, 2, 3};
  const std::array<int, 3> array = {1, 2, 3};
  std::vector<int> vector = {1, 2, 3};
  const ovo::Array<int> shared = {1, 2, 3};
  EXPECT_EQ(sumOf(plain), 6);
  EXPECT_EQ(sumOf(array), 6);
  EXPECT_EQ(sumOf(vector), 6);
  EXPECT_EQ(sumOf(shared), 6);
  EXPECT_EQ(sumOf({plain, 2}), 3);
  EXPECT_EQ(sumOf(std::vector<int>{4, 5}), 9);
  EXPECT_EQ(sumOf(Span<int>(vector)), 6);
}

TEST(Span, ReadingAnArrayDoesNotDetachIt) {
  ovo::Array<int> first = {1, 2, 3};
  ovo::Array<int> second = first;
  const Span<const int> view = second;
  EXPECT_EQ(view[1], 2);
  EXPECT_TRUE(first.isIdentical(second));
}

TEST(Span, WritingAnArrayDetachesItFirst) {
  const ovo::Array<int> first = {1, 2, 3};
  ovo::Array<int> second = first;
  const Span<int> span = second;
  span[0] = 7;
  EXPECT_EQ(first[0], 1);
  EXPECT_EQ(std::as_const(second)[0], 7);
}

TEST(Span, IsIndexedByIntegersOfAnySign) {
  const std::vector<int> values = {10, 20, 30};
  const Span<const int> span = values;
  EXPECT_EQ(span[std::int32_t{1}], 20);
  EXPECT_EQ(span[std::size_t{2}], 30);
  EXPECT_EQ(span[std::int64_t{0}], 10);
  EXPECT_EQ(span.front(), 10);
  EXPECT_EQ(span.back(), 30);
}

TEST(Span, PartsShareTheElements) {
  std::vector<int> values = {1, 2, 3, 4};
  const Span<int> span = values;
  EXPECT_EQ(sumOf(span.first(2)), 3);
  EXPECT_EQ(sumOf(span.last(1)), 4);
  EXPECT_EQ(sumOf(span.subspan(1)), 9);
  EXPECT_EQ(sumOf(span.subspan(1, 2)), 5);
  EXPECT_TRUE(span.subspan(4).empty());
  span.last(1)[0] = 9;
  EXPECT_EQ(values[3], 9);
}

TEST(Span, ConvertsOnlyWhereItIsSafe) {
  struct Base {
    int a;
  };
  struct Derived : Base {
    int b;
  };
  static_assert(std::is_convertible_v<Span<int>, Span<const int>>);
  static_assert(!std::is_constructible_v<Span<int>, Span<const int>>);
  static_assert(!std::is_constructible_v<Span<int>, const std::vector<int>&>);
  static_assert(!std::is_constructible_v<Span<int>, std::vector<int>>, "a temporary to write to");
  static_assert(!std::is_constructible_v<Span<Base>, std::vector<Derived>&>);
  static_assert(!std::is_constructible_v<Span<const float>, const std::vector<int>&>);
  static_assert(std::is_trivially_copyable_v<Span<tarn::Vec3f>>);
}

TEST(Span, WorksAtCompileTime) {
  static constexpr int values[] = {1, 2, 3};
  constexpr Span<const int> span = values;
  static_assert(span.size() == 3 && span[1] == 2 && span.last(1).front() == 3);
}

}  // namespace
