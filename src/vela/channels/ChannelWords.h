/// \file
/// The words behind a ChannelSet: which bit is which channel, when memory is taken, how a walk
/// finds the next member. For ChannelSet alone; it says what all of this promises.
///
/// The mask word holds channel k + 1 at bit k, for channels 1 to 31. Its bit 31, the all flag,
/// stands for channel 32 and for every channel above the stored words. The extension, if there is
/// one, is a row of words: its length, itself included, then channels 32 and up, channel c in word
/// c >> 5 at bit c & 31. An extension of two words lies inside the object, a longer one on the heap
/// behind a table of jumps. One of an odd length is followed by a word of zeros.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tarn/Hash.h"
#include "vela/Api.h"
#include "vela/channels/Channel.h"

namespace vela::detail {

class VELA_API ChannelWords {
 public:
  static constexpr std::uint32_t kAllFlag = 0x80000000u;

  static int lowestBit(std::uint32_t word) noexcept { return __builtin_ctz(word); }
  static int lowestBit(std::uint64_t word) noexcept { return __builtin_ctzll(word); }
  static int highestBit(std::uint32_t word) noexcept { return 31 - __builtin_clz(word); }

  ChannelWords() noexcept = default;
  explicit ChannelWords(std::uint32_t mask) noexcept : mask_(mask) {}
  ChannelWords(const ChannelWords& other) : mask_(other.mask_) {
    if (other.extension_ != nullptr) copyExtension(other);
  }
  ChannelWords(ChannelWords&& other) noexcept : mask_(other.mask_) { takeExtension(other); }
  ~ChannelWords() { dropExtension(); }

  ChannelWords& operator=(const ChannelWords& other) {
    if (this == &other) return *this;
    if (other.extension_ != nullptr) {
      copyExtension(other);
    } else {
      dropExtension();
    }
    mask_ = other.mask_;
    return *this;
  }
  ChannelWords& operator=(ChannelWords&& other) noexcept {
    if (this == &other) return *this;
    dropExtension();
    mask_ = other.mask_;
    takeExtension(other);
    return *this;
  }
  void swap(ChannelWords& other) noexcept;

  // ---- The mask word

  std::uint32_t mask() const noexcept { return mask_; }
  bool all() const noexcept { return (mask_ & kAllFlag) != 0; }
  bool hasExtension() const noexcept { return extension_ != nullptr; }
  void assignMask(std::uint32_t mask) noexcept {
    dropExtension();
    mask_ = mask;
  }
  void addMask(std::uint32_t mask) noexcept {
    mask_ |= mask;
    autoTruncate();
  }
  void removeMask(std::uint32_t mask) noexcept {
    mask_ &= ~mask;
    autoTruncate();
  }

  // ---- Single channels

  bool has(int channel) const noexcept {
    const unsigned c = static_cast<unsigned>(channel), i = c >> 5;
    if (i >= words_) return channel > 0 && all();
    // One load for every stored channel, and the mask taken in by arithmetic, since compilers made
    // a branch of a choice: a mixture of low and high channels costs no mispredictions. Shifting
    // the all flag out of the mask puts channel c at bit c, and nothing at bit 0.
    const std::uint32_t* const words = extension_ != nullptr ? extension_ : &mask_;
    // All ones for the channels of the mask, which are below 32.
    const std::uint32_t low = 0u - ((c - 32u) >> 31);
    return ((((words[i] & ~low) | ((mask_ << 1) & low)) >> (c & 31u)) & 1u) != 0;
  }
  void insert(int channel) {
    const unsigned c = static_cast<unsigned>(channel);
    if (c - 1u < 31u) {
      mask_ |= 1u << (c - 1u);
    } else if (channel >= 32) {
      insertHigh(c);
    }
  }
  void erase(int channel) {
    const unsigned c = static_cast<unsigned>(channel);
    if (c - 1u < 31u) {
      mask_ &= ~(1u << (c - 1u));
    } else if (channel >= 32) {
      eraseHigh(c);
    }
  }
  /// That channel and no other; none for 0 and below.
  void assign(int channel);
  bool isOnly(int channel) const noexcept;
  /// Makes room for a channel that is about to be inserted.
  void extendTo(int channel) {
    if (channel >= 32 && !all()) extend((static_cast<std::uint32_t>(channel) >> 5) + 1);
  }

  // ---- Sets

  void unite(const ChannelWords& other) {
    // The common case here: plain sets of one length. Equal header words unite to themselves, so
    // they need no exception, and an extension that said something goes on saying it.
    if (((mask_ | other.mask_) & kAllFlag) != 0 || words_ != other.words_) {
      uniteAnyLength(other);
      return;
    }
    mask_ |= other.mask_;
    if (words_ == kTabled) {
      uniteTabled(extension_, other.extension_);
    } else if (words_ > 1) {
      uniteWords(other);
    }
  }
  void subtract(const ChannelWords& other);
  void intersect(const ChannelWords& other);
  bool intersects(const ChannelWords& other) const noexcept;
  bool contains(const ChannelWords& other) const noexcept;
  bool operator==(const ChannelWords& other) const noexcept {
    return mask_ == other.mask_ &&
           (extension_ == nullptr ? other.extension_ == nullptr : sameExtension(other));
  }
  bool operator<(const ChannelWords& other) const noexcept;
  std::size_t size() const noexcept;
  void append(tarn::Hash& hash) const;

  // ---- The walk

  // Walks read the extension in pairs of words: pair j holds channels 64*j to 64*j+63, but for pair
  // 0, whose lower word is the length.
  std::uint64_t pair(std::uint32_t j) const noexcept {
    const std::uint32_t* const words = extension_ + std::size_t{2} * j;
    return std::uint64_t{words[0]} | std::uint64_t{words[1]} << 32;
  }
  // Channels 1 to 63 as the walk upwards meets them, channel c at bit c. The all flag is channel
  // 32, unless channel 31 stands before it: from there the walk goes on in the extension.
  std::uint64_t pairZero() const noexcept {
    const std::uint64_t low = mask_ << 1,
                        high = extension_ == nullptr ? 0 : std::uint64_t{extension_[1]} << 32;
    const bool asThirtyTwo = all() && (extension_ == nullptr || (mask_ >> 30 & 1u) == 0);
    return low | high | std::uint64_t{asThirtyTwo} << 32;
  }
  // The lowest member in the pairs above pair j. There must be an extension.
  Channel lowestAbovePair(std::uint32_t j) const noexcept {
    return hasTable() ? Channel(tableOf(extension_)[j] & (kNoJump - 1)) : scanAbovePair(j);
  }
  Channel first() const noexcept {
    if ((mask_ & 1u) != 0) return Channel(1);
    return mask_ != 0 ? Channel(1 + lowestBit(mask_)) : lowestFrom(32u);
  }
  Channel next(int c) const noexcept {
    if (c >= 31) return lowestFrom(static_cast<unsigned>(c) + 1u);
    if (c < 0) return first();
    const std::uint32_t above = mask_ >> c;
    if ((above & 1u) != 0) return Channel(c + 1);
    return above != 0 ? Channel(c + 1 + lowestBit(above)) : lowestFrom(32u);
  }
  Channel last() const noexcept;
  Channel previous(int c) const noexcept {
    if (c <= 32) {
      const std::uint32_t below = c <= 1 ? 0 : mask_ & ((1u << (c - 1)) - 1u);
      return below == 0 ? Channel(0) : Channel(1 + highestBit(below));
    }
    const std::uint32_t from = static_cast<std::uint32_t>(c) - 1, i = from >> 5;
    if (i >= words_) return last();
    const std::uint32_t bits = extension_[i] & (~0u >> (31u - (from & 31u)));
    return bits != 0 ? Channel(static_cast<int>(32 * i) + highestBit(bits)) : highestUpTo(i - 1);
  }

 private:
  // Extensions of 3 to this many words have a table of jumps; longer ones are looked through.
  static constexpr std::uint32_t kTabled = 32;
  static constexpr std::uint32_t kTableEntries = kTabled / 2;
  // Above every channel that a table knows; its low ten bits are channel 0.
  static constexpr std::int16_t kNoJump = 1024;

  // In front of an extension on the heap lies its table: entry j is the lowest channel stored in
  // the pairs above j, else kNoJump. A walk through a sparse set gets from pair to pair by one
  // load, where looking for the next word that is not empty would cost more than everything else,
  // and a union's entries are the lower ones of the two tables, eight at a time.
  static std::int16_t* tableOf(std::uint32_t* heapWords) noexcept {
    return reinterpret_cast<std::int16_t*>(heapWords) - kTableEntries;
  }
  static const std::int16_t* tableOf(const std::uint32_t* heapWords) noexcept {
    return reinterpret_cast<const std::int16_t*>(heapWords) - kTableEntries;
  }
  bool hasTable() const noexcept { return words_ - 3u < kTabled - 2u; }

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
  Channel scanAbovePair(std::uint32_t j) const noexcept;
  // The highest member in the words 1 to i and, below them, channels 1 to 31.
  Channel highestUpTo(std::uint32_t i) const noexcept;

  void dropExtension() noexcept {
    if (extension_ != nullptr && extension_ != inline_) std::free(tableOf(extension_));
    extension_ = nullptr;
    words_ = 1;
  }
  void takeExtension(ChannelWords& other) noexcept {
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
  void copyExtension(const ChannelWords& other);
  bool sameExtension(const ChannelWords& other) const noexcept;

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
  void uniteWords(const ChannelWords& other) noexcept;
  void uniteAnyLength(const ChannelWords& other);
  void insertHigh(unsigned channel);
  void eraseHigh(unsigned channel);
  void fillTable() noexcept;
  void extend(std::uint32_t n);
  void truncate(std::uint32_t n) noexcept;
  // An extension that says nothing which the all flag does not say goes.
  void autoTruncate() noexcept {
    if (extension_ != nullptr && isTrivial()) dropExtension();
  }
  bool isTrivial() const noexcept;
  // Ends an operation that rewrote the extension.
  void settle() noexcept {
    autoTruncate();
    fillTable();
  }

  std::uint32_t mask_ = 0;
  // The extension's length once more, at hand without a visit to it; 1 without one.
  std::uint32_t words_ = 1;
  std::uint32_t* extension_ = nullptr;
  std::uint32_t inline_[2] = {0, 0};  // the extension while it has two words
};

static_assert(alignof(std::max_align_t) >= 16, "malloc's storage takes whole blocks");

}  // namespace vela::detail
