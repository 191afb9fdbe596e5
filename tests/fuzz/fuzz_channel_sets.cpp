// Operations on sets without the all flag, held against a set of numbers.
#include <algorithm>
#include <set>
#include <vector>

#include "fuzz/Require.h"
#include "vela/channels/ChannelSet.h"

namespace {

using vela::Channel;
using vela::ChannelSet;
using vela_test::require;

struct Pair {
  ChannelSet set;
  std::set<int> model;
};

void compare(const Pair& pair) {
  require(pair.set.size() == pair.model.size(), "sizes agree");
  require(pair.set.empty() == pair.model.empty(), "both are empty or neither");
  auto expected = pair.model.begin();
  for (const Channel channel : pair.set)
    require(expected != pair.model.end() && channel.index() == *expected++, "the same members");
  require(expected == pair.model.end(), "all of them");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vela_test::Bytes bytes(data, size);
  std::vector<Pair> pairs(4);
  while (!bytes.empty()) {
    const auto operation = bytes.take<std::uint8_t>();
    Pair &a = pairs[operation & 3], &b = pairs[(operation >> 2) & 3];
    const int channel = bytes.take<std::uint16_t>() % 5000;
    switch (operation >> 4) {
      case 0:
      case 1:
      case 2:
        a.set.insert(Channel(channel));
        if (channel > 0) a.model.insert(channel);
        break;
      case 3:
      case 4:
        a.set.erase(Channel(channel));
        a.model.erase(channel);
        break;
      case 5:
        a.set += b.set;
        a.model.insert(b.model.begin(), b.model.end());
        break;
      case 6: {
        const std::set<int> less = b.model;
        a.set -= b.set;
        for (const int c : less) a.model.erase(c);
        break;
      }
      case 7: {
        std::set<int> both;
        std::set_intersection(a.model.begin(), a.model.end(), b.model.begin(), b.model.end(),
                              std::inserter(both, both.end()));
        a.set &= b.set;
        a.model = both;
        break;
      }
      case 8:
        a.set.swap(b.set);
        a.model.swap(b.model);
        break;
      case 9:
        a.set = b.set;
        a.model = b.model;
        break;
      case 10:
        a.set.clear();
        a.model.clear();
        break;
      case 11:
        require((a.set & Channel(channel)) == (a.model.count(channel) > 0), "membership");
        break;
      case 12:
        require(a.set.contains(b.set) ==
                    std::includes(a.model.begin(), a.model.end(), b.model.begin(), b.model.end()),
                "containment");
        break;
      default:
        // Of the stored words: sets of the same channels may be stored in different numbers of
        // them.
        require(!(a.set == b.set) || a.model == b.model, "equality");
        require(a.set.last().index() == (a.model.empty() ? 0 : *a.model.rbegin()), "the last one");
        break;
    }
    compare(a);
    compare(b);
  }
  return 0;
}
