/// \file
/// An unordered set of channels, made for fast membership of the first 31 channels and unbounded
/// beyond them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <type_traits>
#include <utility>

#include "tarn/Hash.h"
#include "vela/Api.h"
#include "vela/channels/Channel.h"
#include "vela/channels/ChannelIterator.h"
#include "vela/channels/ChannelWords.h"

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
/// Storage: a mask word whose bit k (0 to 30) holds channel k + 1. Bit 31, the all flag, holds
/// channel 32 and says that every channel above the stored words is a member as well. Beyond the
/// mask there may be an extension: words for channels 32 and up, inside the object as far as
/// channel 63, else on the heap: 32 bytes, and 4 for each 32 channels up to the highest one. It
/// grows to the highest channel ever added and goes, as a whole, once it says nothing that the all
/// flag does not say: so `{33, 65}` minus 65 still stores the word of 65, and differs from `{33}`.
///
/// Sets without the all flag follow the plain algebra of sets. With it, what an operation does to
/// the stored words decides; where that is not the plain algebra, the operation says so.
///
/// Overloads: a bare `unsigned` (and a bare `int` wherever there is no `int` overload) is a mask, a
/// `Channel` a channel: `set.contains(Channel(5))`, but `set.contains(5)` asks for channels 1
/// and 3. Channels of 0 and below are in no set.
///
/// Costs: channels 1 to 31 never touch the heap. Nothing throws but std::bad_alloc, which leaves
/// the set as it was. Threads: const calls are safe from several threads.
class VELA_API ChannelSet {
 public:
  using Iterator = ChannelIterator;  ///< of begin() and end()

  /// Empty, of the default registry.
  ChannelSet() noexcept = default;
  /// Empty, of the given registry, which must outlive the calls that print the set; null means the
  /// default registry. A template for pointers alone: a bare 0 is the mask without channels.
  template <class Context,
            class = std::enable_if_t<std::is_convertible<Context, ChannelManager*>::value &&
                                     !std::is_integral<Context>::value>>
  // Implicit: a registry stands for its empty set.
  ChannelSet(Context context) noexcept : context_(context) {}
  /// The channels of a mask, of the default registry; 0xFFFFFFFF is the set of all channels.
  ChannelSet(unsigned mask) noexcept : words_(mask) {}  // implicit: masks are sets
  /// That one channel, of the default registry; empty for 0 and below.
  ChannelSet(Channel channel) { words_.assign(channel.index()); }  // implicit: so are channels
  /// The first `n` channels of a list, of the default registry; empty for n below 1 or a null list.
  ChannelSet(const Channel* list, int n) { insert(list, n); }
  // KEEP(copies-take-no-context): a set keeps the registry it was given; copies start at the
  // default registry and assignments leave the target's, so numbers can be handed from registry to
  // registry on purpose.
  /// The same channels, of the default registry.
  ChannelSet(const ChannelSet& other) : words_(other.words_) {}
  /// The same channels, of the default registry; `other` is empty afterwards.
  ChannelSet(ChannelSet&& other) noexcept : words_(std::move(other.words_)) {}
  ~ChannelSet() = default;

  /// Assignments leave the registry as it is.
  ChannelSet& operator=(const ChannelSet& other) {
    words_ = other.words_;
    return *this;
  }
  /// `other` is empty afterwards, unless it is this set.
  ChannelSet& operator=(ChannelSet&& other) noexcept {
    words_ = std::move(other.words_);
    return *this;
  }
  /// The channels of a mask word; the extension goes.
  ChannelSet& operator=(unsigned mask) noexcept {
    words_.assignMask(mask);
    return *this;
  }
  /// That one channel; empty for 0 and below.
  ChannelSet& operator=(Channel channel) {
    words_.assign(channel.index());
    return *this;
  }

  // Membership.

  /// Is the channel a member? @{
  [[nodiscard]] bool operator&(Channel channel) const noexcept {
    return words_.has(channel.index());
  }
  [[nodiscard]] bool operator&(int channel) const noexcept { return words_.has(channel); }
  /// @}
  /// Does the mask word share a bit with `mask`?
  [[nodiscard]] bool operator&(unsigned mask) const noexcept { return (words_.mask() & mask) != 0; }
  /// Is there a common member?
  [[nodiscard]] bool operator&(const ChannelSet& other) const noexcept {
    return words_.intersects(other.words_);
  }
  /// As `&`.
  [[nodiscard]] bool contains(Channel channel) const noexcept {
    return words_.has(channel.index());
  }
  /// Are all bits of `mask` in the mask word?
  [[nodiscard]] bool contains(unsigned mask) const noexcept { return (mask & ~words_.mask()) == 0; }
  /// Is every member of `other` a member? With the all flag set the answer is true as soon as the
  /// mask words agree, whatever was removed above channel 31.
  [[nodiscard]] bool contains(const ChannelSet& other) const noexcept {
    return words_.contains(other.words_);
  }
  /// 1 for a member, else 0.
  [[nodiscard]] std::size_t count(Channel channel) const noexcept {
    return words_.has(channel.index()) ? 1u : 0u;
  }

  // Comparison: of the stored words alone, the registry takes no part.

  /// Equal mask words and equal extensions, of equal length. @{
  [[nodiscard]] bool operator==(const ChannelSet& other) const noexcept {
    return words_ == other.words_;
  }
  [[nodiscard]] bool operator!=(const ChannelSet& other) const noexcept {
    return !(*this == other);
  }
  /// @}
  /// Equal mask words and no extension.
  [[nodiscard]] bool operator==(unsigned mask) const noexcept {
    return words_.mask() == mask && !words_.hasExtension();
  }
  /// As `!(*this == mask)`.
  [[nodiscard]] bool operator!=(unsigned mask) const noexcept { return !(*this == mask); }
  /// That channel alone, stored in as many words as it needs; the empty set for 0 and below.
  [[nodiscard]] bool operator==(Channel channel) const noexcept {
    return words_.isOnly(channel.index());
  }
  /// As `!(*this == channel)`.
  [[nodiscard]] bool operator!=(Channel channel) const noexcept { return !(*this == channel); }
  /// A strict total order: by mask words, then by the number of stored words, then word by word,
  /// all as unsigned numbers.
  [[nodiscard]] bool operator<(const ChannelSet& other) const noexcept {
    return words_ < other.words_;
  }

  // Changes.

  /// Union. Plain algebra, but when `other` has the all flag and stores more words than this set,
  /// which has it not: then everything above this set's stored words becomes a member (`empty +=
  /// (all - 40)` is all).
  ChannelSet& operator+=(const ChannelSet& other) {
    words_.unite(other.words_);
    return *this;
  }
  /// Adds to the mask word alone.
  ChannelSet& operator+=(unsigned mask) noexcept {
    words_.addMask(mask);
    return *this;
  }
  /// Adds one channel; nothing for 0 and below.
  ChannelSet& operator+=(Channel channel) {
    insert(channel);
    return *this;
  }
  /// Difference. Plain algebra, but when both have the all flag and `other` stores more words than
  /// this set: then nothing above this set's stored words remains (`all -= (all - 40)` is empty).
  ChannelSet& operator-=(const ChannelSet& other) {
    words_.subtract(other.words_);
    return *this;
  }
  /// Removes from the mask word alone.
  ChannelSet& operator-=(unsigned mask) noexcept {
    words_.removeMask(mask);
    return *this;
  }
  /// Removes one channel; nothing for 0 and below.
  ChannelSet& operator-=(Channel channel) {
    erase(channel);
    return *this;
  }
  /// Intersection.
  ChannelSet& operator&=(const ChannelSet& other) {
    words_.intersect(other.words_);
    return *this;
  }
  /// Keeps what the mask word shares with `mask`; the extension goes.
  ChannelSet& operator&=(unsigned mask) noexcept {
    words_.assignMask(words_.mask() & mask);
    return *this;
  }
  /// Keeps the channel when it is a member, and nothing else.
  ChannelSet& operator&=(Channel channel);

  /// Adds one channel; nothing for 0 and below.
  void insert(Channel channel) { words_.insert(channel.index()); }
  /// The first `n` channels of a list; nothing for n below 1 or a null list.
  void insert(const Channel* list, int n);
  /// Removes one channel; nothing for 0 and below.
  void erase(Channel channel) { words_.erase(channel.index()); }
  /// Removes the first `n` channels of a list; nothing for n below 1 or a null list.
  void erase(const Channel* list, int n);
  void clear() noexcept { words_.assignMask(0); }  ///< the registry stays
  /// Exchanges everything, the registries as well.
  void swap(ChannelSet& other) noexcept {
    std::swap(context_, other.context_);
    words_.swap(other.words_);
  }

  // Queries.

  /// No member, by the stored words.
  [[nodiscard]] bool empty() const noexcept { return words_.mask() == 0 && !words_.hasExtension(); }
  /// Not empty? A template for `bool` alone, so that a set turns into no other number.
  template <class Bool, class = std::enable_if_t<std::is_same<Bool, bool>::value>>
  operator Bool() const noexcept {
    return !empty();
  }
  /// The all flag.
  [[nodiscard]] bool all() const noexcept { return words_.all(); }
  /// The mask word.
  [[nodiscard]] unsigned mask32() const noexcept { return words_.mask(); }
  /// The mask word AND `mask`.
  [[nodiscard]] unsigned bitwiseAnd(unsigned mask) const noexcept { return words_.mask() & mask; }
  /// How many bits are set in the stored words; the all flag counts as one of them, beside word 1's
  /// own bit of channel 32.
  [[nodiscard]] std::size_t size() const noexcept { return words_.size(); }
  /// The registry that the numbers refer to, never null: the default registry when none was given
  /// (the first such call builds it).
  [[nodiscard]] ChannelManager* context() const;

  // Iteration, in the idiom `for (Channel z = set.first(); z; z = set.next(z))` or, faster, as `for
  // (Channel z : set)`; both give the same channels. Channel 0 means there is none. It runs over
  // the stored words: upwards, the set of all channels ends at channel 32. The all flag stands for
  // channel 32 wherever the mask word is looked at, also when channel 32 was removed from under it.

  /// The lowest member, 0 when there is none.
  [[nodiscard]] Channel first() const noexcept { return words_.first(); }
  /// The lowest member above `channel`.
  [[nodiscard]] Channel next(Channel channel) const noexcept {
    return words_.next(channel.index());
  }
  /// Upwards through a set that does not change meanwhile.
  [[nodiscard]] Iterator begin() const noexcept { return Iterator(words_); }
  /// Where every walk ends; the same for all sets.
  [[nodiscard]] Iterator end() const noexcept { return Iterator(); }
  /// The highest member among the stored words, 0 when there is none.
  [[nodiscard]] Channel last() const noexcept { return words_.last(); }
  /// The highest member below `channel`; `last()` when `channel` - 1 lies beyond the stored words.
  [[nodiscard]] Channel previous(Channel channel) const noexcept {
    return words_.previous(channel.index());
  }

  /// Feeds the mask word, then the words of the extension, into a hash.
  void append(tarn::Hash& hash) const { words_.append(hash); }
  /// Moves the set to another registry (null: the default one) and empties it, since numbers of one
  /// registry mean nothing in another. Naming the registry it already has leaves it unchanged.
  void changeContext(ChannelManager* context);

 private:
  ChannelManager* context_ = nullptr;  // null: the default registry
  detail::ChannelWords words_;
};

static_assert(sizeof(void*) != 8 || sizeof(ChannelSet) == 32,
              "sets lie side by side in records: half a cache line each");

/// As ChannelSet::swap().
inline void swap(ChannelSet& a, ChannelSet& b) noexcept { a.swap(b); }

/// The set as text: "none", "all" (whenever the all flag is set), else its members in ascending
/// order, separated by ",". "rgb" or "rgba" stands for channels 1 to 3 or 4; elsewhere a layer's
/// name stands for its channels when all of them are members, and a bare number for any other
/// channel. Layers come from the set's registry. The stream's base is not used.
VELA_API std::ostream& operator<<(std::ostream& out, const ChannelSet& set);

}  // namespace vela
