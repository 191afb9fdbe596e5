// What allocates: counted by standing in for malloc in this executable.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "vela/channels/ChannelPack.h"
#include "vela/channels/ChannelSet.h"
#include "vela/channels/DefaultChannelManager.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VELA_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VELA_TEST_SANITIZED 1
#endif

namespace {

std::atomic<long> allocations{0};
std::atomic<bool> refuse{false};

}  // namespace

#ifdef VELA_TEST_SANITIZED

// Of the sanitizers' run-time library; not every compiler brings the header that declares it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*,
                                                                          std::size_t),
                                                         void (*onFree)(const volatile void*));

namespace {
void counted(const volatile void*, std::size_t) { ++allocations; }
void freed(const volatile void*) {}
const bool hooked = __sanitizer_install_malloc_and_free_hooks(counted, freed) != 0;
}  // namespace

#else

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* malloc(std::size_t size) {
  ++allocations;
  return refuse ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return refuse ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
  ++allocations;
  return refuse ? nullptr : __libc_realloc(block, size);
}
}

namespace {
const bool hooked = true;
}  // namespace

#endif

using vela::Channel;
using vela::ChannelPack;
using vela::ChannelSet;

namespace {

template <class Work>
long allocationsOf(Work work) {
  const long before = allocations;
  work();
  return allocations - before;
}

TEST(ChannelHeap, TheCounterCounts) {
  ASSERT_TRUE(hooked);
  EXPECT_GE(allocationsOf([] {
              void* volatile block = std::malloc(100);
              std::free(block);
            }),
            1);
  EXPECT_GE(allocationsOf([] {
              int* volatile number = new int(5);
              delete number;
            }),
            1);
  EXPECT_GE(allocationsOf([] { ChannelSet set((Channel(64))); }), 1);
}

TEST(ChannelHeap, TheFirstThirtyOneChannelsNeverTouchTheHeap) {
  long found = 0;
  EXPECT_EQ(allocationsOf([&] {
              ChannelSet set;
              for (int c = 1; c <= 31; ++c) set += Channel(c);
              ChannelSet other(set), moved(std::move(other)), mask(0x0F0Fu), one(Channel(31));
              const Channel list[] = {1, 5, 31};
              ChannelSet listed(list, 3);
              other = set;
              moved = std::move(mask);
              set -= moved;
              set += listed;
              set &= other;
              set.swap(one);
              one.erase(list, 3);
              for (Channel c = one.first(); c; c = one.next(c)) found += one & c;
              for (Channel c = one.last(); c; c = one.previous(c)) found += one.contains(c);
              found += (one == set) + (one < set) + (one & set) + static_cast<long>(one.size());
              tarn::Hash hash;
              one.append(hash);
              set.clear();
              const ChannelPack pack(one);
              found += static_cast<long>(pack.size());
            }),
            0);
  EXPECT_GT(found, 0);
}

TEST(ChannelHeap, ChannelsUpToSixtyThreeLieInTheObject) {
  long found = 0;
  EXPECT_EQ(allocationsOf([&] {
              ChannelSet set((Channel(63)));
              for (int c = 1; c <= 63; ++c) set += Channel(c);
              ChannelSet copy(set), moved(std::move(copy)), all(0xFFFFFFFFu);
              all -= Channel(40);
              moved -= Channel(63);
              moved &= all;
              set.swap(moved);
              for (Channel c = set.first(); c; c = set.next(c)) ++found;
            }),
            0);
  EXPECT_EQ(found, 61);
}

TEST(ChannelHeap, QueriesOfLargerSetsAllocateNothing) {
  ChannelSet set((Channel(1000))), other((Channel(500)));
  set += Channel(40);
  long found = 0;
  EXPECT_EQ(allocationsOf([&] {
              for (Channel c = set.first(); c; c = set.next(c)) ++found;
              for (Channel c = set.last(); c; c = set.previous(c)) ++found;
              for (Channel c : set) found += c.index() > 0;
              found += (set & Channel(40)) + (set & other) + set.contains(other) + (set == other) +
                       (set < other);
              found += static_cast<long>(set.size());
              set += other;
              set -= other;
            }),
            0);
  EXPECT_EQ(found, 9);
}

TEST(ChannelHeap, AListGrowsTheSetOnce) {
  const Channel list[] = {40, 100, 200, 300, 1000};
  EXPECT_EQ(allocationsOf([&] { ChannelSet set(list, 5); }), 1);
}

#ifndef VELA_TEST_SANITIZED
TEST(ChannelHeap, ARefusedAllocationLeavesTheSetAsItWas) {
  ChannelSet set(0x5u), big((Channel(500))), all(0xFFFFFFFFu);
  set += Channel(40);
  // An exception is an allocation too: the runtime keeps an emergency store for that.
  int thrown = 0;
  const auto refused = [&](auto work) {
    refuse = true;
    try {
      work();
    } catch (const std::bad_alloc&) {
      ++thrown;
    }
    refuse = false;
  };
  refused([&] { set += Channel(INT_MAX); });
  refused([&] { set += big; });
  refused([&] { set = big; });
  refused([&] { set = Channel(70); });
  refused([&] { all -= big; });
  refused([&] { all -= Channel(70); });
  refused([&] { all &= big; });
  refused([&] { ChannelSet copy(big); });
  EXPECT_EQ(thrown, 8);
  EXPECT_EQ(set.mask32(), 0x5u);
  EXPECT_EQ(set.size(), 3u);
  EXPECT_TRUE(set & Channel(40));
  EXPECT_TRUE(all == 0xFFFFFFFFu);
}
#endif

}  // namespace
