#include "vela/channels/ChannelWords.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>
#include <utility>

namespace vela::detail {
namespace {

using Word = std::uint32_t;
constexpr Word kOnes = 0xFFFFFFFFu;

constexpr std::size_t kTableWords = 8;  // the table of jumps that lies in front of the words

// How many words are stored for an extension of n: whole pairs.
std::size_t storedWords(Word n) { return (std::size_t{n} + 1) & ~std::size_t{1}; }

// n words of heap storage behind an unfilled table. Zeros come from calloc: pages that nobody
// writes to are never touched, so that a set of one enormous channel costs address space more than
// memory.
Word* allocateWords(Word n, bool zeroed) {
  const std::size_t bytes = (kTableWords + storedWords(n)) * sizeof(Word);
  void* block = zeroed ? std::calloc(1, bytes) : std::malloc(bytes);
  if (block == nullptr) throw std::bad_alloc();
  return static_cast<Word*>(block) + kTableWords;
}

// a[i] = op(a[i], b[i]) for 1 <= i < n: the header word stays out of it. Words 1 to 3 go alone, so
// that the blocks after them are aligned on the heap, and so that each word is always stored and
// loaded in the same piece: a block loaded over freshly stored single words would wait for them.
template <class Op>
inline void combineWords(Word* a, const Word* b, Word n, Op op) {
  using Block = Word __attribute__((vector_size(16)));
  Word i = 1;
  for (; i < n && i < 4; ++i) a[i] = op(a[i], b[i]);
  for (; i + 4 <= n; i += 4) {
    Block x, y;
    std::memcpy(&x, a + i, sizeof x);
    std::memcpy(&y, b + i, sizeof y);
    x = op(x, y);
    std::memcpy(a + i, &x, sizeof x);
  }
  for (; i < n; ++i) a[i] = op(a[i], b[i]);
}

}  // namespace

// ---- Storage

void ChannelWords::copyExtension(const ChannelWords& other) {
  const Word n = other.words_;
  if (words_ != n) {
    Word* words = n == 2 ? inline_ : allocateWords(n, false);
    dropExtension();
    extension_ = words;
    words_ = n;
  }
  const std::size_t inFront = n == 2 ? 0 : kTableWords;
  std::memcpy(extension_ - inFront, other.extension_ - inFront,
              (inFront + storedWords(n)) * sizeof(Word));
}

void ChannelWords::fillTable() noexcept {
  if (!hasTable()) return;
  std::int16_t* const entries = tableOf(extension_);
  std::int16_t next = kNoJump;
  for (Word j = kTableEntries; j-- > 0;) {
    entries[j] = next;
    const std::uint64_t bits = 2 * j < words_ ? pair(j) : 0;
    if (bits != 0) next = static_cast<std::int16_t>(static_cast<int>(64 * j) + lowestBit(bits));
  }
}

void ChannelWords::extend(std::uint32_t n) {
  const Word before = words_;
  if (n <= before) return;
  assert((extension_ == nullptr) == (before == 1));  // the mask alone is one word
  // What the set says about channels beyond its words becomes the content of the new words.
  const bool ones = all();
  Word* words = n == 2 ? inline_ : allocateWords(n, !ones);
  if (n == 2) words[1] = 0;
  if (extension_ != nullptr)
    std::memcpy(words + 1, extension_ + 1, std::size_t{before - 1} * sizeof(Word));
  if (ones) {
    std::fill(words + before, words + n, kOnes);
    std::fill(words + n, words + storedWords(n), 0u);
  }
  words[0] = n;
  dropExtension();
  extension_ = words;
  words_ = n;
  fillTable();
}

void ChannelWords::truncate(std::uint32_t n) noexcept {
  if (n >= words_) return;
  if (n < 2) {
    dropExtension();
  } else if (n == 2) {
    inline_[1] = extension_[1];
    dropExtension();
    inline_[0] = 2;
    extension_ = inline_;
    words_ = 2;
  } else {
    extension_[0] = words_ = n;
    std::fill(extension_ + n, extension_ + storedWords(n), 0u);
    fillTable();
  }
}

bool ChannelWords::isTrivial() const noexcept {
  // The last word first: after growing to a channel it is the one that says something.
  const Word n = words_, idle = all() ? kOnes : 0;
  if (extension_[n - 1] != idle) return false;
  for (Word i = 1; i < n; ++i) {
    if (extension_[i] != idle) return false;
  }
  return true;
}

void ChannelWords::swap(ChannelWords& other) noexcept {
  if (this == &other) return;
  const bool inlineHere = extension_ == inline_, inlineThere = other.extension_ == other.inline_;
  std::swap(mask_, other.mask_);
  std::swap(words_, other.words_);
  std::swap(extension_, other.extension_);
  std::swap(inline_, other.inline_);
  if (inlineThere) extension_ = inline_;
  if (inlineHere) other.extension_ = other.inline_;
}

// ---- Single channels

void ChannelWords::assign(int channel) {
  if (channel < 32) {
    dropExtension();
    mask_ = channel > 0 ? 1u << (channel - 1) : 0u;
    return;
  }
  const Word c = static_cast<Word>(channel), n = (c >> 5) + 1;
  Word* words = n == 2 ? inline_ : allocateWords(n, true);
  dropExtension();
  words[0] = n;
  words[n - 1] = 1u << (c & 31u);
  extension_ = words;
  words_ = n;
  mask_ = 0;
  fillTable();
}

void ChannelWords::insertHigh(unsigned c) {
  const Word i = c >> 5;
  if (i >= words_) {
    if (all()) return;
    extend(i + 1);
  }
  extension_[i] |= 1u << (c & 31u);
  if (hasTable()) {
    // Whoever jumped over the channel lands on it.
    std::int16_t* const entries = tableOf(extension_);
    const std::int16_t channel = static_cast<std::int16_t>(c);
    for (Word j = c >> 6; j-- > 0 && entries[j] > channel;) entries[j] = channel;
  }
  if (extension_[i] == kOnes && all()) autoTruncate();
}

void ChannelWords::eraseHigh(unsigned c) {
  const Word i = c >> 5;
  if (i >= words_) {
    if (!all()) return;
    extend(i + 1);
  }
  extension_[i] &= ~(1u << (c & 31u));
  if (hasTable()) {
    // Whoever landed on the channel goes on to the next one.
    std::int16_t* const entries = tableOf(extension_);
    const std::int16_t channel = static_cast<std::int16_t>(c);
    const std::uint64_t rest = pair(c >> 6);
    const std::int16_t next =
        rest != 0 ? static_cast<std::int16_t>(static_cast<int>(c & ~63u) + lowestBit(rest))
                  : entries[c >> 6];
    for (Word j = c >> 6; j-- > 0 && entries[j] == channel;) entries[j] = next;
  }
  if (extension_[i] == 0) autoTruncate();
}

bool ChannelWords::isOnly(int channel) const noexcept {
  if (channel < 32) {
    const Word expected = channel > 0 ? 1u << (channel - 1) : 0u;
    return extension_ == nullptr && mask_ == expected;
  }
  const Word c = static_cast<Word>(channel), n = (c >> 5) + 1;
  if (mask_ != 0 || words_ != n || extension_[n - 1] != 1u << (c & 31u)) return false;
  return std::all_of(extension_ + 1, extension_ + n - 1, [](Word word) { return word == 0; });
}

// ---- Sets

void ChannelWords::uniteWords(const ChannelWords& other) noexcept {
  if (hasTable()) uniteTables(tableOf(extension_), tableOf(other.extension_));
  combineWords(extension_, other.extension_, words_, [](auto a, auto b) { return a | b; });
}

void ChannelWords::uniteAnyLength(const ChannelWords& other) {
  if (this == &other) return;
  // KEEP(union-with-all-cuts): beyond the shorter extension everything counts as a member, also
  // what `other` leaves out. Sets are compared, ordered and hashed by their stored words: to store
  // what is left out would give callers another set under the same operations.
  if (other.all()) {
    truncate(other.words_);
  } else if (!all()) {
    extend(other.words_);
  }
  mask_ |= other.mask_;
  if (extension_ != nullptr && other.extension_ != nullptr) {
    combineWords(extension_, other.extension_, std::min(words_, other.words_),
                 [](auto a, auto b) { return a | b; });
  }
  settle();
}

void ChannelWords::subtract(const ChannelWords& other) {
  if (this == &other) {
    assignMask(0);
    return;
  }
  // KEEP(difference-of-alls-cuts): what `other` leaves out beyond this set's words does not become
  // a member. As with the union, the stored words are what sets are compared and hashed by.
  if (other.all()) {
    truncate(other.words_);
  } else if (all()) {
    extend(other.words_);
  }
  mask_ &= ~other.mask_;
  if (extension_ != nullptr && other.extension_ != nullptr) {
    combineWords(extension_, other.extension_, std::min(words_, other.words_),
                 [](auto a, auto b) { return a & ~b; });
  }
  settle();
}

void ChannelWords::intersect(const ChannelWords& other) {
  if (this == &other) return;
  if (all()) {
    extend(other.words_);
  } else if (!other.all()) {
    truncate(other.words_);
  }
  mask_ &= other.mask_;
  if (extension_ != nullptr) {
    const Word common = std::min(words_, other.words_);
    if (other.extension_ != nullptr) {
      combineWords(extension_, other.extension_, common, [](auto a, auto b) { return a & b; });
    }
    // Words that `other` has not are all ones with its all flag, else zero.
    if (!other.all()) std::fill(extension_ + common, extension_ + words_, 0u);
  }
  settle();
}

bool ChannelWords::intersects(const ChannelWords& other) const noexcept {
  if ((mask_ & other.mask_) != 0) return true;
  // At most one of the two has the all flag from here on.
  const Word here = words_, there = other.words_, common = std::min(here, there);
  for (Word i = 1; i < common; ++i) {
    if ((extension_[i] & other.extension_[i]) != 0) return true;
  }
  const auto notZero = [](Word word) { return word != 0; };
  if (other.all() && here > common)
    return std::any_of(extension_ + common, extension_ + here, notZero);
  if (all() && there > common)
    return std::any_of(other.extension_ + common, other.extension_ + there, notZero);
  return false;
}

bool ChannelWords::contains(const ChannelWords& other) const noexcept {
  if ((other.mask_ & ~mask_) != 0) return false;
  // KEEP(all-contains-every-set): the all flag answers before the words are read, so channels that
  // were removed above 31 count as contained. Whoever was given all takes nothing more: a no would
  // make it ask for channels that it had given up.
  if (all()) return true;
  const Word here = words_, there = other.words_;
  for (Word i = 1; i < there; ++i) {
    if ((other.extension_[i] & ~(i < here ? extension_[i] : 0u)) != 0) return false;
  }
  return true;
}

bool ChannelWords::sameExtension(const ChannelWords& other) const noexcept {
  // The lengths first: they bound what may be read of the other.
  if (other.extension_ == nullptr || extension_[0] != other.extension_[0]) return false;
  return std::memcmp(extension_, other.extension_, std::size_t{extension_[0]} * sizeof(Word)) == 0;
}

bool ChannelWords::operator<(const ChannelWords& other) const noexcept {
  if (mask_ != other.mask_) return mask_ < other.mask_;
  const Word here = words_, there = other.words_;
  if (here != there) return here < there;
  for (Word i = 1; i < here; ++i) {
    if (extension_[i] != other.extension_[i]) return extension_[i] < other.extension_[i];
  }
  return false;
}

// ---- Queries

std::size_t ChannelWords::size() const noexcept {
  // KEEP(all-flag-counts-one): channel 32 can stand in the mask and in word 1, and then counts
  // twice. Room reserved by this number is one too large for a walk then, and never too small.
  int bits = __builtin_popcount(mask_);
  std::size_t total = static_cast<std::size_t>(bits);
  for (Word i = 1; i < words_; ++i) {
    bits = __builtin_popcount(extension_[i]);
    total += static_cast<std::size_t>(bits);
  }
  return total;
}

Channel ChannelWords::last() const noexcept {
  for (Word i = words_ - 1; i >= 1; --i) {
    if (extension_[i] != 0) return Channel(static_cast<int>(32u * i) + highestBit(extension_[i]));
  }
  return mask_ != 0 ? Channel(1 + highestBit(mask_)) : Channel(0);
}

Channel ChannelWords::scanAbovePair(std::uint32_t j) const noexcept {
  for (++j; 2 * j < words_; ++j) {
    const std::uint64_t bits = pair(j);
    if (bits != 0) return Channel(static_cast<int>(64 * j) + lowestBit(bits));
  }
  return Channel(0);
}

Channel ChannelWords::highestUpTo(std::uint32_t i) const noexcept {
  for (; i >= 1; --i) {
    if (extension_[i] != 0) return Channel(static_cast<int>(32 * i) + highestBit(extension_[i]));
  }
  const Word low = mask_ & ~kAllFlag;
  return low != 0 ? Channel(1 + highestBit(low)) : Channel(0);
}

void ChannelWords::append(tarn::Hash& hash) const {
  hash.append(mask_);
  for (Word i = 1; i < words_; ++i) hash.append(extension_[i]);
}

}  // namespace vela::detail
