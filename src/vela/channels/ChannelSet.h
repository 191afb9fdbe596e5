/// \file
/// An unordered set of channels, made for fast membership of the first 31 channels and unbounded
/// beyond them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iosfwd>
#include <iterator>
#include <type_traits>
#include <utility>

#include "tarn/Hash.h"
#include "vela/Api.h"
#include "vela/channels/Channel.h"

namespace vela {

class ChannelManager;

/// A set of channels of one registry.
///
/// \code
///   vela::ChannelSet set(0x7u);  // a mask: channels 1 to 3
///   set += vela::Channel(40);
///   assert((set & vela::Channel(40)) && !(set & vela::Channel(4)));
///
///   std::vector<int> numbers;
///   for (const vela::Channel channel : set) numbers.push_back(channel);
///   assert((numbers == std::vector<int>{1, 2, 3, 40}));
///
///   // A bare number is a mask nearly everywhere: name a channel by its type.
///   assert(set.contains(vela::Channel(3)) && set.contains(6u) && !set.contains(vela::Channel(6)));
///
///   set -= vela::ChannelSet(0x3u);
///   assert(set.size() == 2 && set.first() == 3 && set.last() == 40);
/// \endcode
///
/// Storage: a mask word whose bit k (0 to 30) holds channel k+1. Bit 31, the all flag, holds
/// channel 32 and says that every channel above the stored words is a member as well. Beyond the
/// mask there may be an extension: words for channels 32 upwards, channel c in word c >> 5 at bit c
/// & 31. An extension for channels 32 to 63 lies inside the object, a longer one on the heap: 32
/// bytes, and 4 for 32 channels up to the highest one. It grows to the highest channel ever added
/// and goes, as a whole, once it says nothing that the all flag does not say: so `{33, 65}` minus
/// 65 still stores the word of 65, and differs from `{33}`.
///
/// The steps of the operations are fixed, and callers rely on them. Where they do not give the
/// plain algebra of sets, the operation says so. They do for every set without the all flag.
///
/// Overloads: a bare `unsigned` (and a bare `int` wherever there is no `int` overload) is a mask, a
/// `Channel` a channel: `set.contains(Channel(5))`, but `set.contains(5)` asks for channels 1
/// and 3. Channels of 0 and below are in no set.
///
/// Costs: channels 1 to 31 never touch the heap. Nothing throws but std::bad_alloc, which leaves
/// the set as it was. Threads: const calls are safe from several threads.
class VELA_API ChannelSet {
 public:
  class Iterator;

  /// Empty, of the default registry.
  ChannelSet() noexcept = default;
  /// Empty, of the given registry, which must outlive the calls that print the set; null means the
  /// default registry. A template for pointers alone: a bare 0 is the mask without channels.
  template <class Context,
            class = std::enable_if_t<std::is_convertible<Context, ChannelManager*>::value &&
                                     !std::is_integral<Context>::value>>
  ChannelSet(Context context) noexcept
      : context_(context) {}  // NOLINT: registries have their empty set
  /// The channels of a mask, of the default registry; 0xFFFFFFFF is the set of all channels.
  ChannelSet(unsigned mask) noexcept : mask_(mask) {}  // NOLINT: masks are sets
  /// That one channel, of the default registry; empty for 0 and below.
  ChannelSet(Channel channel) { assignChannel(channel); }  // NOLINT: channels are sets
  /// The first `n` channels of a list, of the default registry; empty for n below 1 or a null list.
  ChannelSet(const Channel* list, int n) { insert(list, n); }
  // KEEP(copies-take-no-context): a set keeps the registry it was given; copies start at the
  // default registry and assignments leave the target's, so numbers can be handed from registry to
  // registry on purpose.
  /// The same channels, of the default registry.
  ChannelSet(const ChannelSet& other) : mask_(other.mask_) {
    if (other.extension_ != nullptr) copyExtension(other);
  }
  /// The same channels, of the default registry; `other` is empty afterwards.
  ChannelSet(ChannelSet&& other) noexcept : mask_(other.mask_) { takeExtension(other); }
  ~ChannelSet() { dropExtension(); }

  /// Assignments leave the registry as it is.
  ChannelSet& operator=(const ChannelSet& other) {
    if (this == &other) return *this;
    if (other.extension_ != nullptr) {
      copyExtension(other);
    } else {
      dropExtension();
    }
    mask_ = other.mask_;
    return *this;
  }
  /// `other` is empty afterwards, unless it is this set.
  ChannelSet& operator=(ChannelSet&& other) noexcept {
    if (this == &other) return *this;
    dropExtension();
    mask_ = other.mask_;
    takeExtension(other);
    return *this;
  }
  ChannelSet& operator=(unsigned mask) noexcept {
    dropExtension();
    mask_ = mask;
    return *this;
  }
  ChannelSet& operator=(Channel channel) {
    assignChannel(channel);
    return *this;
  }

  // Membership.

  /// Is the channel a member?
  [[nodiscard]] bool operator&(Channel channel) const noexcept { return has(channel.index()); }
  [[nodiscard]] bool operator&(int channel) const noexcept { return has(channel); }
  /// Does the mask word share a bit with `mask`?
  [[nodiscard]] bool operator&(unsigned mask) const noexcept { return (mask_ & mask) != 0; }
  /// Is there a common member?
  [[nodiscard]] bool operator&(const ChannelSet& other) const noexcept;
  [[nodiscard]] bool contains(Channel channel) const noexcept { return has(channel.index()); }
  /// Are all bits of `mask` in the mask word?
  [[nodiscard]] bool contains(unsigned mask) const noexcept { return (mask & ~mask_) == 0; }
  /// Is every member of `other` a member? With the all flag set the answer is true as soon as the
  /// mask words agree, whatever was removed above channel 31.
  [[nodiscard]] bool contains(const ChannelSet& other) const noexcept;
  /// 1 for a member, else 0.
  [[nodiscard]] std::size_t count(Channel channel) const noexcept {
    return has(channel.index()) ? 1u : 0u;
  }

  // Comparison: of the stored words alone, the registry takes no part.

  [[nodiscard]] bool operator==(const ChannelSet& other) const noexcept {
    return mask_ == other.mask_ &&
           (extension_ == nullptr ? other.extension_ == nullptr : sameExtension(other));
  }
  [[nodiscard]] bool operator!=(const ChannelSet& other) const noexcept {
    return !(*this == other);
  }
  /// Equal mask words and no extension.
  [[nodiscard]] bool operator==(unsigned mask) const noexcept {
    return mask_ == mask && extension_ == nullptr;
  }
  [[nodiscard]] bool operator!=(unsigned mask) const noexcept { return !(*this == mask); }
  /// That channel alone, stored in as many words as it needs; the empty set for 0 and below.
  [[nodiscard]] bool operator==(Channel channel) const noexcept;
  [[nodiscard]] bool operator!=(Channel channel) const noexcept { return !(*this == channel); }
  /// A strict total order: by mask words, then by the number of stored words, then word by word,
  /// all as unsigned numbers.
  [[nodiscard]] bool operator<(const ChannelSet& other) const noexcept;

  // Changes.

  /// Union. Plain algebra, but when `other` has the all flag and stores more words than this set,
  /// which has it not: then everything above this set's stored words becomes a member (`empty +=
  /// (all - 40)` is all).
  ChannelSet& operator+=(const ChannelSet& other) {
    // The common case here: plain sets of one length. Equal header words unite to themselves, so
    // they need no exception, and what was no idle extension stays none.
    if (((mask_ | other.mask_) & kAllFlag) != 0 || words_ != other.words_) {
      unite(other);
      return *this;
    }
    mask_ |= other.mask_;
    if (words_ == kTabled) {
      uniteTabled(extension_, other.extension_);
    } else if (words_ > 1) {
      uniteWords(other);
    }
    return *this;
  }
  /// Adds to the mask word alone.
  ChannelSet& operator+=(unsigned mask) noexcept {
    mask_ |= mask;
    autoTruncate();
    return *this;
  }
  ChannelSet& operator+=(Channel channel) {
    insert(channel);
    return *this;
  }
  /// Difference. Plain algebra, but when both have the all flag and `other` stores more words than
  /// this set: then nothing above this set's stored words remains (`all -= (all - 40)` is empty).
  ChannelSet& operator-=(const ChannelSet& other);
  /// Removes from the mask word alone.
  ChannelSet& operator-=(unsigned mask) noexcept {
    mask_ &= ~mask;
    autoTruncate();
    return *this;
  }
  ChannelSet& operator-=(Channel channel) {
    erase(channel);
    return *this;
  }
  /// Intersection.
  ChannelSet& operator&=(const ChannelSet& other);
  /// Keeps what the mask word shares with `mask`; the extension goes.
  ChannelSet& operator&=(unsigned mask) noexcept {
    dropExtension();
    mask_ &= mask;
    return *this;
  }
  /// Keeps the channel when it is a member, and nothing else.
  ChannelSet& operator&=(Channel channel);

  void insert(Channel channel) {
    const unsigned c = static_cast<unsigned>(channel.index());
    if (c - 1u < 31u) {
      mask_ |= 1u << (c - 1u);
    } else if (channel.index() >= 32) {
      insertHigh(c);
    }
  }
  /// The first `n` channels of a list; nothing for n below 1 or a null list.
  void insert(const Channel* list, int n);
  void erase(Channel channel) {
    const unsigned c = static_cast<unsigned>(channel.index());
    if (c - 1u < 31u) {
      mask_ &= ~(1u << (c - 1u));
    } else if (channel.index() >= 32) {
      eraseHigh(c);
    }
  }
  void erase(const Channel* list, int n);
  void clear() noexcept {
    dropExtension();
    mask_ = 0;
  }
  /// Exchanges everything, the registries as well.
  void swap(ChannelSet& other) noexcept;

  // Queries.

  [[nodiscard]] bool empty() const noexcept { return mask_ == 0 && extension_ == nullptr; }
  /// Not empty? A template for `bool` alone, so that a set turns into no other number.
  template <class Bool, class = std::enable_if_t<std::is_same<Bool, bool>::value>>
  operator Bool() const noexcept {  // NOLINT
    return !empty();
  }
  /// The all flag.
  [[nodiscard]] bool all() const noexcept { return (mask_ & kAllFlag) != 0; }
  /// The mask word.
  [[nodiscard]] unsigned mask32() const noexcept { return mask_; }
  /// The mask word AND `mask`.
  [[nodiscard]] unsigned bitwiseAnd(unsigned mask) const noexcept { return mask_ & mask; }
  /// How many bits are set in the stored words; the all flag counts as one of them, beside word 1's
  /// own bit of channel 32.
  [[nodiscard]] std::size_t size() const noexcept;
  /// The registry that the numbers refer to, never null: the default registry when none was given
  /// (the first such call builds it).
  [[nodiscard]] ChannelManager* context() const;

  // Iteration, in the idiom `for (Channel z = set.first(); z; z = set.next(z))` or, faster, as `for
  // (Channel z : set)`; both give the same channels. Channel 0 means there is none. It runs over
  // the stored words: upwards, the set of all channels ends at channel 32. The all flag stands for
  // channel 32 wherever the mask word is looked at, also when channel 32 was removed from under it.

  [[nodiscard]] Channel first() const noexcept {
    if ((mask_ & 1u) != 0) return Channel(1);
    return mask_ != 0 ? Channel(1 + lowestBit(mask_)) : lowestFrom(32u);
  }
  /// The lowest member above `channel`.
  [[nodiscard]] Channel next(Channel channel) const noexcept {
    const int c = channel.index();
    if (c >= 31) return lowestFrom(static_cast<unsigned>(c) + 1u);
    if (c < 0) return first();
    const std::uint32_t above = mask_ >> c;
    if ((above & 1u) != 0) return Channel(c + 1);
    return above != 0 ? Channel(c + 1 + lowestBit(above)) : lowestFrom(32u);
  }
  /// Upwards through a set that does not change meanwhile.
  [[nodiscard]] Iterator begin() const noexcept;
  [[nodiscard]] Iterator end() const noexcept;
  [[nodiscard]] Channel last() const noexcept;
  /// The highest member below `channel`; `last()` when `channel` - 1 lies beyond the stored words.
  [[nodiscard]] Channel previous(Channel channel) const noexcept {
    const int c = channel.index();
    if (c <= 32) {
      const std::uint32_t below = c <= 1 ? 0 : mask_ & ((1u << (c - 1)) - 1u);
      return below == 0 ? Channel(0) : Channel(1 + highestBit(below));
    }
    const std::uint32_t from = static_cast<std::uint32_t>(c) - 1, i = from >> 5;
    if (i >= words_) return last();
    const std::uint32_t bits = extension_[i] & (~0u >> (31u - (from & 31u)));
    return bits != 0 ? Channel(static_cast<int>(32 * i) + highestBit(bits)) : highestUpTo(i - 1);
  }

  /// Feeds the mask word, then the words of the extension, into a hash.
  void append(tarn::Hash& hash) const;
  /// Moves the set to another registry (null: the default one) and empties it, since numbers of one
  /// registry mean nothing in another. Naming the registry it already has leaves it unchanged.
  void changeContext(ChannelManager* context);

 private:
  static constexpr std::uint32_t kAllFlag = 0x80000000u;

  static constexpr std::uint32_t kTabled =
      32;  // extensions up to this many words have a table of jumps
  static constexpr std::uint32_t kTableEntries = kTabled / 2;
  static constexpr std::int16_t kNoJump =
      1024;  // above every channel that a table knows; its low ten bits are channel 0

  static int lowestBit(std::uint32_t word) noexcept { return __builtin_ctz(word); }
  static int lowestBit(std::uint64_t word) noexcept { return __builtin_ctzll(word); }
  static int highestBit(std::uint32_t word) noexcept { return 31 - __builtin_clz(word); }

  // Walks read the extension in pairs of words: pair j holds channels 64*j to 64*j+63, but for pair
  // 0, whose lower word is the header. An extension of an odd length has a word of zeros behind it.
  std::uint64_t pair(std::uint32_t j) const noexcept {
    const std::uint32_t* const words = extension_ + std::size_t{2} * j;
    return std::uint64_t{words[0]} | std::uint64_t{words[1]} << 32;
  }
  // In front of an extension on the heap lies its table: entry j is the lowest channel stored in
  // the pairs above j, else kNoJump. A walk through a sparse set gets from pair to pair by one
  // load, where looking for the next word that is not empty would cost more than everything else,
  // and a union's entries are the lower ones of the two tables, eight at a time. Kept for
  // extensions of 3 to 32 words; longer ones are looked through.
  static std::int16_t* tableOf(std::uint32_t* heapWords) noexcept {
    return reinterpret_cast<std::int16_t*>(heapWords) - kTableEntries;
  }
  static const std::int16_t* tableOf(const std::uint32_t* heapWords) noexcept {
    return reinterpret_cast<const std::int16_t*>(heapWords) - kTableEntries;
  }
  bool hasTable() const noexcept { return words_ - 3u < kTabled - 2u; }

  // Channels 1 to 63 as the walk upwards meets them, channel c at bit c. The all flag is channel
  // 32, unless channel 31 stands before it: from there the walk goes on in the extension.
  std::uint64_t pairZero() const noexcept {
    const std::uint64_t low = mask_ << 1,
                        high = extension_ == nullptr ? 0 : std::uint64_t{extension_[1]} << 32;
    const bool asThirtyTwo = all() && (extension_ == nullptr || (mask_ >> 30 & 1u) == 0);
    return low | high | std::uint64_t{asThirtyTwo} << 32;
  }

  bool has(int channel) const noexcept {
    const unsigned c = static_cast<unsigned>(channel), i = c >> 5;
    if (i >= words_) return channel > 0 && all();
    // One load for every stored channel, and the mask taken in by arithmetic, since compilers made
    // a branch of a choice: a mixture of low and high channels costs no mispredictions. Shifting
    // the all flag out of the mask puts channel c at bit c, and nothing at bit 0.
    const std::uint32_t* const words = extension_ != nullptr ? extension_ : &mask_;
    const std::uint32_t low =
        0u - ((c - 32u) >> 31);  // all ones for the channels of the mask, which are below 32
    return ((((words[i] & ~low) | ((mask_ << 1) & low)) >> (c & 31u)) & 1u) != 0;
  }

  // The lowest member from channel `from` (32 or above) on, in the extension; without one, the all
  // flag is channel 32.
  Channel lowestFrom(unsigned from) const noexcept {
    if ((from >> 5) >= words_)
      return Channel(from == 32 && extension_ == nullptr && all() ? 32 : 0);
    const std::uint32_t j = from >> 6;
    const std::uint64_t bits = pair(j) >> (from & 63u);
    if ((bits & 1u) != 0) return Channel(static_cast<int>(from));
    if (bits != 0) return Channel(static_cast<int>(from) + lowestBit(bits));
    return lowestAbovePair(j);
  }
  // The lowest member in the pairs above pair j.
  Channel lowestAbovePair(std::uint32_t j) const noexcept {
    return hasTable() ? Channel(tableOf(extension_)[j] & (kNoJump - 1)) : scanAbovePair(j);
  }

  void dropExtension() noexcept {
    if (extension_ != nullptr && extension_ != inline_) std::free(tableOf(extension_));
    extension_ = nullptr;
    words_ = 1;
  }
  void takeExtension(ChannelSet& other) noexcept {
    if (other.extension_ == other.inline_) {
      inline_[0] = other.inline_[0];
      inline_[1] = other.inline_[1];
      extension_ = inline_;
    } else {
      extension_ = other.extension_;
    }
    words_ = other.words_;
    other.extension_ = nullptr;
    other.words_ = 1;
    other.mask_ = 0;
  }
  // Tables, and the extensions behind them, begin at multiples of 16 bytes.
  using WordBlock = std::uint32_t __attribute__((vector_size(16)));
  using JumpBlock = std::int16_t __attribute__((vector_size(16)));
  template <class Block, class Op>
  static void combineBlock(void* to, const void* from, Op op) noexcept {
    Block a, b;
    std::memcpy(&a, __builtin_assume_aligned(to, 16), sizeof a);
    std::memcpy(&b, __builtin_assume_aligned(from, 16), sizeof b);
    a = op(a, b);
    std::memcpy(__builtin_assume_aligned(to, 16), &a, sizeof a);
  }
  static void uniteTables(std::int16_t* to, const std::int16_t* from) noexcept {
    const auto lower = [](auto a, auto b) { return a < b ? a : b; };
    combineBlock<JumpBlock>(to, from, lower);
    combineBlock<JumpBlock>(to + 8, from + 8, lower);
  }
  static void uniteBlock(std::uint32_t* to, const std::uint32_t* from) noexcept {
    combineBlock<WordBlock>(to, from, [](auto a, auto b) { return a | b; });
  }
  // The union of 32 words, what a registry can number: written out, since counting would cost as
  // much as uniting.
  static void uniteTabled(std::uint32_t* to, const std::uint32_t* from) noexcept {
    uniteTables(tableOf(to), tableOf(from));
    uniteBlock(to, from);
    uniteBlock(to + 4, from + 4);
    uniteBlock(to + 8, from + 8);
    uniteBlock(to + 12, from + 12);
    uniteBlock(to + 16, from + 16);
    uniteBlock(to + 20, from + 20);
    uniteBlock(to + 24, from + 24);
    uniteBlock(to + 28, from + 28);
  }
  void uniteWords(const ChannelSet& other) noexcept;
  void unite(const ChannelSet& other);
  void copyExtension(const ChannelSet& other);
  bool sameExtension(const ChannelSet& other) const noexcept;
  void assignChannel(Channel channel);
  void insertHigh(unsigned channel);
  void eraseHigh(unsigned channel);
  Channel scanAbovePair(std::uint32_t j) const noexcept;
  // The highest member in the words 1 to i and, below them, channels 1 to 31.
  Channel highestUpTo(std::uint32_t i) const noexcept;
  void fillTable() noexcept;
  void extend(std::uint32_t n);
  void truncate(std::uint32_t n) noexcept;
  void autoTruncate() noexcept {
    if (extension_ != nullptr && isTrivial()) dropExtension();
  }
  // Ends an operation that rewrote the extension.
  void settle() noexcept {
    autoTruncate();
    fillTable();
  }
  bool isTrivial() const noexcept;

  ChannelManager* context_ = nullptr;  // null: the default registry
  std::uint32_t mask_ = 0;
  std::uint32_t words_ = 1;  // the extension's length, at hand without a visit to it; 1 without one
  std::uint32_t* extension_ =
      nullptr;  // null, or word 0 = number of words, itself included, then channels from 32 up
  std::uint32_t inline_[2] = {0, 0};  // the extension while it has two words
};

/// Goes through a set's channels in ascending order; the set must outlive it and not change
/// meanwhile.
class ChannelSet::Iterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = Channel;
  using difference_type = std::ptrdiff_t;
  using pointer = const Channel*;
  using reference = Channel;

  Iterator() noexcept = default;
  [[nodiscard]] Channel operator*() const noexcept { return Channel(base_ + lowestBit(bits_)); }
  Iterator& operator++() noexcept {
    bits_ &= bits_ - 1;
    if (bits_ == 0) goOn();
    return *this;
  }
  Iterator operator++(int) noexcept {
    const Iterator before = *this;
    ++*this;
    return before;
  }
  [[nodiscard]] bool operator==(const Iterator& other) const noexcept {
    return bits_ == other.bits_ && base_ == other.base_;
  }
  [[nodiscard]] bool operator!=(const Iterator& other) const noexcept { return !(*this == other); }

 private:
  friend class ChannelSet;

  explicit Iterator(const ChannelSet& set) noexcept : set_(&set), bits_(set.pairZero()) {
    if (bits_ == 0) goOn();
  }
  // To the next pair that has members; to the end, where both numbers are 0, when there is none.
  void goOn() noexcept {
    const Channel next = set_->extension_ == nullptr
                             ? Channel(0)
                             : set_->lowestAbovePair(static_cast<unsigned>(base_) >> 6);
    base_ = next.index() & ~63;
    if (next) bits_ = set_->pair(static_cast<unsigned>(base_) >> 6);
  }

  const ChannelSet* set_ = nullptr;
  std::uint64_t bits_ = 0;  // what is left of a pair: bit b stands for channel base_ + b
  int base_ = 0;
};

inline ChannelSet::Iterator ChannelSet::begin() const noexcept { return Iterator(*this); }
inline ChannelSet::Iterator ChannelSet::end() const noexcept { return Iterator(); }

static_assert(alignof(std::max_align_t) >= 16, "malloc's storage takes whole blocks");
static_assert(sizeof(void*) != 8 || sizeof(ChannelSet) == 32,
              "sets lie side by side in records: half a cache line each");

inline void swap(ChannelSet& a, ChannelSet& b) noexcept { a.swap(b); }

/// The set as text: "none", "all" (whenever the all flag is set), else its members in ascending
/// order, separated by ",". "rgb" or "rgba" stands for channels 1 to 3 or 4; elsewhere a layer's
/// name stands for its channels when all of them are members, and a bare number for any other
/// channel. Layers come from the set's registry. The stream's base is not used.
VELA_API std::ostream& operator<<(std::ostream& out, const ChannelSet& set);

}  // namespace vela
