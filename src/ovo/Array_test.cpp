#include "ovo/Array.h"

#include <gtest/gtest.h>

#include <list>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ovo/Token.h"
#include "tarn/Vec.h"

namespace {

using ovo::Array;

TEST(Array, IsEmptyByDefault) {
  const Array<int> empty;
  EXPECT_EQ(empty.size(), 0u);
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(empty.cdata(), nullptr);
  EXPECT_EQ(empty.begin(), empty.end());
  EXPECT_EQ(empty, Array<int>());
}

TEST(Array, IsMadeFromListsVectorsRangesAndCounts) {
  EXPECT_EQ(Array<int>({1, 2, 3}), Array<int>(std::vector<int>{1, 2, 3}));
  const std::list<int> list{1, 2, 3};
  EXPECT_EQ(Array<int>(list.begin(), list.end()), Array<int>({1, 2, 3}));
  EXPECT_EQ(Array<int>(3, 7), Array<int>({7, 7, 7}));
  EXPECT_EQ(Array<int>(std::size_t{2}), Array<int>({0, 0}));
  std::istringstream words("4 5 6");
  EXPECT_EQ(Array<int>(std::istream_iterator<int>(words), std::istream_iterator<int>()),
            Array<int>({4, 5, 6}));
}

TEST(Array, NewElementsOfResizeAreZero) {
  Array<tarn::Vec3f> points;
  points.resize(2);
  EXPECT_EQ(points[1], tarn::Vec3f());
  Array<int> numbers{1};
  numbers.resize(4);
  EXPECT_EQ(numbers, Array<int>({1, 0, 0, 0}));
  numbers.resize(5, 9);
  numbers.resize(2);
  EXPECT_EQ(numbers, Array<int>({1, 0}));
}

TEST(Array, CopiesShareUntilOneIsWritten) {
  Array<int> a{1, 2, 3};
  Array<int> b = a;
  EXPECT_EQ(a.cdata(), b.cdata());
  EXPECT_TRUE(a.isIdentical(b));
  b[0] = 9;
  EXPECT_NE(a.cdata(), b.cdata());
  EXPECT_EQ(a, Array<int>({1, 2, 3}));
  EXPECT_EQ(b, Array<int>({9, 2, 3}));
}

TEST(Array, EveryWriteLeavesTheOtherHoldersAlone) {
  const Array<std::string> original{"a", "b", "c"};
  const auto check = [&](auto write) {
    Array<std::string> copy = original;
    write(copy);
    EXPECT_EQ(original, Array<std::string>({"a", "b", "c"}));
    EXPECT_FALSE(copy.isIdentical(original));
  };
  check([](auto& x) { x.push_back("d"); });
  check([](auto& x) { x.pop_back(); });
  check([](auto& x) { x.resize(2); });
  check([](auto& x) { x.resize(4, "z"); });
  check([](auto& x) { x.clear(); });
  check([](auto& x) { x.assign(3, "q"); });
  check([](auto& x) { x = {"q"}; });
  check([](auto& x) { x.data()[1] = "q"; });
  check([](auto& x) { *x.begin() = "q"; });
  check([](auto& x) { *x.rbegin() = "q"; });
  check([](auto& x) { x.back() = "q"; });
  check([](auto& x) { x.reserve(100); });
}

TEST(Array, ReadingAConstArrayDoesNotDetach) {
  Array<int> a{1, 2, 3};
  const Array<int> b = a;
  int sum = 0;
  for (int x : b) sum += x;
  sum += b[0] + b.front() + b.back() + *b.cbegin() + *b.rbegin();
  EXPECT_EQ(sum, 6 + 1 + 1 + 3 + 1 + 3);
  EXPECT_EQ(a.cdata(), b.cdata());
}

TEST(Array, ClearKeepsItsOwnRoomAndLetsSharedStorageGo) {
  Array<int> a{1, 2, 3, 4};
  const int* const before = a.cdata();
  a.clear();
  EXPECT_GE(a.capacity(), 4u);
  a.push_back(7);
  EXPECT_EQ(a.cdata(), before);
  const Array<int> b = a;
  a.clear();
  EXPECT_EQ(a.capacity(), 0u);
  EXPECT_EQ(b, Array<int>({7}));
}

TEST(Array, ReserveGrowsOnlyAndSparesLaterAllocations) {
  Array<int> a;
  a.reserve(100);
  EXPECT_GE(a.capacity(), 100u);
  const int* const storage = a.cdata();
  for (int i = 0; i < 100; ++i) a.push_back(i);
  EXPECT_EQ(a.cdata(), storage);
  a.reserve(10);
  EXPECT_EQ(a.cdata(), storage);
  EXPECT_EQ(a[99], 99);
}

TEST(Array, BeyondTheMaximumIsALengthErrorAndChangesNothing) {
  Array<tarn::Vec3f> a{{1, 2, 3}};
  const std::size_t tooMany = Array<tarn::Vec3f>::maxSize() + 1;
  EXPECT_THROW(a.reserve(tooMany), std::length_error);
  EXPECT_THROW(a.resize(tooMany), std::length_error);
  EXPECT_THROW(a.resize(tooMany, {}), std::length_error);
  EXPECT_THROW((Array<tarn::Vec3f>(tooMany)), std::length_error);
  EXPECT_EQ(a, (Array<tarn::Vec3f>{{1, 2, 3}}));
}

TEST(Array, TakesItsOwnElementsAsArguments) {
  Array<std::string> a{"first word that is too long to be stored inside", "b", "c", "d"};
  const std::string first = a[0];
  for (int i = 0; i < 20; ++i) a.push_back(a[0]);
  for (const std::string& text : std::as_const(a))
    if (text.size() > 1) {
      EXPECT_EQ(text, first);
    }
  a.resize(100, a[0]);
  EXPECT_EQ(std::as_const(a)[99], first);
  a.assign(a.cbegin() + 1, a.cbegin() + 3);
  EXPECT_EQ(a, Array<std::string>({"b", "c"}));
  a.assign(3, a[1]);
  EXPECT_EQ(a, Array<std::string>({"c", "c", "c"}));
}

TEST(Array, NaNIsUnequalToItselfEvenInSharedStorage) {
  const Array<float> a{std::numeric_limits<float>::quiet_NaN()};
  const Array<float> b = a;
  EXPECT_FALSE(a == b);
}

TEST(Array, MovedFromIsEmpty) {
  Array<int> a{1, 2};
  const Array<int> b = std::move(a);
  EXPECT_EQ(b, Array<int>({1, 2}));
  EXPECT_TRUE(a.empty());  // NOLINT(bugprone-use-after-move)
  a.push_back(3);
  EXPECT_EQ(a, Array<int>({3}));
}

TEST(Array, SelfAssignmentKeepsTheElements) {
  Array<std::string> a{"x", "y"};
  const Array<std::string>& self = a;
  a = self;
  EXPECT_EQ(a, Array<std::string>({"x", "y"}));
}

TEST(Array, PrintsItsElements) {
  std::ostringstream out;
  out << Array<int>{1, 2} << Array<int>() << Array<tarn::Vec2f>{{0.5f, 1}};
  EXPECT_EQ(out.str(), "[1, 2][][[0.5 1]]");
}

TEST(Array, HoldsBool) {
  Array<bool> flags{true, false};
  flags.push_back(true);
  flags[1] = true;
  EXPECT_EQ(flags, Array<bool>({true, true, true}));
}

TEST(Array, AnElementThatThrowsWhileCopiedLeavesEverythingAsItWas) {
  struct Brittle {
    explicit Brittle(int v) : value(v) {}
    Brittle(const Brittle& other) : value(other.value) {
      if (value == 13) throw std::runtime_error("brittle");
    }
    Brittle& operator=(const Brittle&) = default;
    int value;
  };
  Array<Brittle> a;
  a.reserve(3);
  a.emplace_back(1);
  a.emplace_back(13);
  Array<Brittle> b = a;
  EXPECT_THROW(b[0].value = 3, std::runtime_error);
  EXPECT_THROW(b.push_back(Brittle(2)), std::runtime_error);
  ASSERT_EQ(b.size(), 2u);
  EXPECT_EQ(std::as_const(b)[1].value, 13);
  EXPECT_TRUE(b.isIdentical(a));
}

TEST(Array, BehavesAsAVectorUnderRandomOperations) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::vector<Array<std::string>> arrays(4);
  std::vector<std::vector<std::string>> vectors(4);
  for (int step = 0; step < 20000; ++step) {
    const std::size_t i = random() % 4, j = random() % 4;
    const std::string text = std::to_string(random() % 1000) + std::string(random() % 30, 'x');
    switch (random() % 9) {
      case 0:
        arrays[i] = arrays[j];
        vectors[i] = vectors[j];
        break;
      case 1:
      case 2:
        arrays[i].push_back(text);
        vectors[i].push_back(text);
        break;
      case 3:
        if (!vectors[i].empty()) {
          arrays[i].pop_back();
          vectors[i].pop_back();
        }
        break;
      case 4: {
        const std::size_t n = random() % 20;
        arrays[i].resize(n, text);
        vectors[i].resize(n, text);
        break;
      }
      case 5:
        if (!vectors[i].empty()) {
          const std::size_t k = random() % vectors[i].size();
          arrays[i][k] = text;
          vectors[i][k] = text;
        }
        break;
      case 6: arrays[i].reserve(random() % 40); break;
      case 7:
        if (random() % 4 == 0) {
          arrays[i].clear();
          vectors[i].clear();
        }
        break;
      default:
        std::swap(arrays[i], arrays[j]);
        std::swap(vectors[i], vectors[j]);
        break;
    }
    for (std::size_t k = 0; k < 4; ++k)
      ASSERT_EQ(arrays[k], Array<std::string>(vectors[k])) << "step " << step;
  }
}

TEST(Array, CopiesMayBeWrittenByDifferentThreads) {
  const Array<int> shared(1000, 1);
  std::vector<std::thread> threads;
  std::vector<long> sums(4);
  for (std::size_t t = 0; t < 4; ++t)
    threads.emplace_back([&shared, &sums, t] {
      for (int round = 0; round < 200; ++round) {
        Array<int> mine = shared;
        mine[static_cast<std::size_t>(round)] += static_cast<int>(t);
        for (int x : std::as_const(mine)) sums[t] += x;
      }
    });
  for (std::thread& thread : threads) thread.join();
  for (std::size_t t = 0; t < 4; ++t) EXPECT_EQ(sums[t], 200L * (1000 + static_cast<long>(t)));
  EXPECT_EQ(shared, Array<int>(1000, 1));
}

TEST(Array, ViewReadsWithoutDetaching) {
  Array<int> a = {1, 2, 3};
  Array<int> b = a;
  const tarn::Span<const int> view = b.view();
  EXPECT_EQ(view.size(), 3u);
  EXPECT_EQ(view[std::int32_t{2}], 3);
  EXPECT_TRUE(a.isIdentical(b));
  EXPECT_EQ(Array<int>(view.subspan(1)), Array<int>({2, 3}));
  EXPECT_TRUE(Array<int>().view().empty());
}

}  // namespace
