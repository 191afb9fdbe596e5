// Sets of channels beside std::bitset<1024>, CRoaring and std::set: the same channels, the same
// questions, one process.
//
// The argument of a case is the number of channels in the set, spread over 1 to 1023 (31: channels
// 1 to 31 alone). Walks are measured over one set again and again, where processors learn its
// branches, and over 64 sets in turn, where they cannot. std::bitset has no walk
// backwards.
#include "bench/Harness.h"
#include "vela/channels/ChannelSet.h"

#ifdef VELA_HAVE_ROARING
#include <roaring/roaring.hh>
#endif

#include <algorithm>
#include <bitset>
#include <numeric>
#include <random>
#include <set>
#include <vector>

namespace {

using Bits = std::bitset<1024>;
using vela::Channel;
using vela::ChannelSet;

std::vector<int> channelsOf(std::int64_t count, unsigned seed) {
  std::vector<int> channels(count == 31 ? 31u : 1023u);
  std::iota(channels.begin(), channels.end(), 1);
  std::shuffle(channels.begin(), channels.end(), std::mt19937(seed));
  channels.resize(static_cast<std::size_t>(count));
  return channels;
}

// Every container is made, asked, united and walked through the same four functions.
template <class Set>
Set make(const std::vector<int>& channels);
template <>
ChannelSet make(const std::vector<int>& channels) {
  ChannelSet set;
  for (int c : channels) set += Channel(c);
  return set;
}
template <>
Bits make(const std::vector<int>& channels) {
  Bits set;
  for (int c : channels) set.set(static_cast<std::size_t>(c));
  return set;
}
template <>
std::set<int> make(const std::vector<int>& channels) {
  return std::set<int>(channels.begin(), channels.end());
}

bool has(const ChannelSet& set, int c) { return set.contains(Channel(c)); }
bool has(const Bits& set, int c) { return set.test(static_cast<std::size_t>(c)); }
bool has(const std::set<int>& set, int c) { return set.count(c) != 0; }

void unite(ChannelSet& set, const ChannelSet& other) { set += other; }
void unite(Bits& set, const Bits& other) { set |= other; }
void unite(std::set<int>& set, const std::set<int>& other) {
  set.insert(other.begin(), other.end());
}

unsigned walk(const ChannelSet& set) {
  unsigned sum = 0;
  for (Channel c = set.first(); c; c = set.next(c)) sum += static_cast<unsigned>(c.index());
  return sum;
}
unsigned walkRange(const ChannelSet& set) {
  unsigned sum = 0;
  for (Channel c : set) sum += static_cast<unsigned>(c.index());
  return sum;
}
unsigned walkBack(const ChannelSet& set) {
  unsigned sum = 0;
  for (Channel c = set.last(); c; c = set.previous(c)) sum += static_cast<unsigned>(c.index());
  return sum;
}
unsigned walk(const Bits& set) {
  unsigned sum = 0;
  for (std::size_t c = set._Find_first(); c < set.size(); c = set._Find_next(c))
    sum += static_cast<unsigned>(c);
  return sum;
}
unsigned walk(const std::set<int>& set) {
  unsigned sum = 0;
  for (int c : set) sum += static_cast<unsigned>(c);
  return sum;
}
unsigned walkBack(const std::set<int>& set) {
  unsigned sum = 0;
  for (auto c = set.rbegin(); c != set.rend(); ++c) sum += static_cast<unsigned>(*c);
  return sum;
}

#ifdef VELA_HAVE_ROARING
template <>
Roaring make(const std::vector<int>& channels) {
  Roaring set;
  for (int c : channels) set.add(static_cast<std::uint32_t>(c));
  set.runOptimize();
  return set;
}
bool has(const Roaring& set, int c) { return set.contains(static_cast<std::uint32_t>(c)); }
void unite(Roaring& set, const Roaring& other) { set |= other; }
unsigned walk(const Roaring& set) {
  unsigned sum = 0;
  for (std::uint32_t c : set) sum += c;
  return sum;
}
unsigned walkBack(const Roaring& set) {
  unsigned sum = 0;
  // Not back from end(): its iterator may not be stepped back.
  roaring_uint32_iterator_t at;
  roaring_init_iterator_last(&set.roaring, &at);
  for (; at.has_value; roaring_previous_uint32_iterator(&at)) sum += at.current_value;
  return sum;
}
#endif

template <class Set>
void contains(benchmark::State& state) {
  const Set set = make<Set>(channelsOf(state.range(0), 1));
  std::vector<int> asked(4096);
  std::mt19937 random(2);
  const unsigned top = state.range(0) == 31 ? 31 : 1023;
  for (int& c : asked) c = 1 + static_cast<int>(random() % top);
  unsigned found = 0;
  for (auto _ : state) {
    for (int c : asked) found += has(set, c);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(asked.size()));
}

template <class Set>
void unionInPlace(benchmark::State& state) {
  Set set = make<Set>(channelsOf(state.range(0), 1));
  const Set other = make<Set>(channelsOf(state.range(0), 3));
  for (auto _ : state) {
    unite(set, other);
    benchmark::DoNotOptimize(set);
    benchmark::ClobberMemory();
  }
}

template <class Set, class Walk>
void measureWalk(benchmark::State& state, unsigned sets, Walk walkThrough) {
  std::vector<Set> all;
  for (unsigned seed = 1; seed <= sets; ++seed)
    all.push_back(make<Set>(channelsOf(state.range(0), seed)));
  for (auto _ : state) {
    for (Set& set : all) {
      benchmark::DoNotOptimize(set);
      unsigned sum = walkThrough(set);
      benchmark::DoNotOptimize(sum);
    }
  }
  state.SetItemsProcessed(state.iterations() * sets * state.range(0));
}
template <class Set>
void iterate(benchmark::State& state) {
  measureWalk<Set>(state, 1, [](const Set& set) { return walk(set); });
}
template <class Set>
void iterateMany(benchmark::State& state) {
  measureWalk<Set>(state, 64, [](const Set& set) { return walk(set); });
}
template <class Set>
void iterateBack(benchmark::State& state) {
  measureWalk<Set>(state, 1, [](const Set& set) { return walkBack(set); });
}
void iterateRange(benchmark::State& state) { measureWalk<ChannelSet>(state, 1, walkRange); }
void iterateManyRange(benchmark::State& state) { measureWalk<ChannelSet>(state, 64, walkRange); }

void counts(benchmark::internal::Benchmark* bench) {
  for (int count : {1, 4, 8, 16, 31, 64, 100, 200, 500, 800, 1000, 1023}) bench->Arg(count);
}

#define VELA_COMPARE(Set)                                     \
  BENCHMARK(contains<Set>)->Arg(31)->Arg(1000);               \
  BENCHMARK(unionInPlace<Set>)->Arg(31)->Arg(100)->Arg(1000); \
  BENCHMARK(iterate<Set>)->Apply(counts);                     \
  BENCHMARK(iterateMany<Set>)->Apply(counts)

VELA_COMPARE(ChannelSet);
BENCHMARK(iterateRange)->Apply(counts);
BENCHMARK(iterateManyRange)->Apply(counts);
BENCHMARK(iterateBack<ChannelSet>)->Apply(counts);
VELA_COMPARE(Bits);
VELA_COMPARE(std::set<int>);
BENCHMARK(iterateBack<std::set<int>>)->Apply(counts);
#ifdef VELA_HAVE_ROARING
VELA_COMPARE(Roaring);
BENCHMARK(iterateBack<Roaring>)->Apply(counts);
#endif

VELA_RATIO("walk over 31 channels, to a bitset", "iterate<ChannelSet>/31", "iterate<Bits>/31")
VELA_RATIO("walk over 1000 channels, to a bitset", "iterate<ChannelSet>/1000", "iterate<Bits>/1000")
VELA_RATIO("union of 1000 channels, to a bitset", "unionInPlace<ChannelSet>/1000",
           "unionInPlace<Bits>/1000")

}  // namespace
