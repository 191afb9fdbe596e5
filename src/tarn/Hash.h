/// \file
/// An incremental 64-bit hash, the same on every platform: for keys and tables, not against an
/// adversary.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn {

/// FNV-1a over bytes, finished by the mixer of SplitMix64 so that low bits are usable as table
/// indices. Sources: Fowler, Noll and Vo; Steele, Lea and Flood, Fast Splittable Pseudorandom
/// Number Generators, OOPSLA 2014.
///
/// \code
///   tarn::Hash one, other;
///   one.append(7);
///   other.append("\x07\0\0\0", 4);
///   assert(one.value() == other.value());  // lowest byte first on every platform
/// \endcode
class Hash {
 public:
  /// Appends the four bytes of `v`, lowest first, on every platform.
  constexpr void append(std::uint32_t v) {
    for (unsigned shift = 0; shift < 32; shift += 8)
      appendByte(static_cast<unsigned char>(v >> shift));
  }
  /// Appends `size` bytes; null is allowed when size is 0.
  void append(const void* data, std::size_t size) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) appendByte(bytes[i]);
  }
  /// The hash of all bytes so far. More may be appended afterwards.
  [[nodiscard]] constexpr std::uint64_t value() const {
    std::uint64_t h = state_;
    h = (h ^ (h >> 30)) * 0xBF58476D1CE4E5B9u;
    h = (h ^ (h >> 27)) * 0x94D049BB133111EBu;
    return h ^ (h >> 31);
  }

 private:
  constexpr void appendByte(unsigned char byte) { state_ = (state_ ^ byte) * 0x100000001B3u; }

  std::uint64_t state_ = 0xCBF29CE484222325u;
};

}  // namespace tarn
