/// \file
/// A channel number, and the purposes that channels and layers can have.
///
/// Holds for the whole file: plain values, nothing allocates, nothing throws. All operations but
/// `TypeFromSubname` are pure functions and safe from several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <type_traits>

#include "vela/Api.h"

namespace vela {

/// The number of an image channel in a registry: 0 is the empty channel, valid channels are 1 and
/// above.
///
/// Numbers convert to and from `int` freely; a channel is true when its number is above 0, so the
/// empty channel and negative numbers are false. No operation checks a range; arithmetic wraps
/// around in 32 bits.
///
/// \code
///   vela::Channel channel = 5;
///   assert(channel && channel.index() == 5 && channel + 1 == 6);
///   assert(!vela::Channel());
///
///   // What the data means, and what it is part of.
///   const vela::Channel::Type type = vela::Channel::dataVecY;
///   assert(vela::Channel::IsDataType(type));
///   assert(std::string(vela::Channel::TypeString(type)) == "data-vec-y");
///   assert(vela::Channel::TypeCompoundType(type, 2) == vela::Channel::dataVec2);
///   assert(vela::Channel::TypeOrdering(type) == 1);
/// \endcode
class VELA_API Channel {
 public:
  /// What the data in a channel or a layer means. Three bands: 1 to 12 are blendable (may be
  /// filtered and mixed), 13 to 22 are data (must not be mixed), 23 and above are bitmasks. The
  /// numbers are exchanged with callers and never change.
  enum Type : std::int32_t {
    auto_ = -1,  ///< asks the registry to pick the type from the channel's sub-name
    none = 0,    ///< no purpose
    blendable = 1,
    color3 = 2,
    color4 = 3,
    colorRed = 4,
    colorGreen = 5,
    colorBlue = 6,
    colorAlpha = 7,
    colorComp0 = 8,
    colorComp1 = 9,
    colorComp2 = 10,
    colorComp3 = 11,
    mask = 12,
    data = 13,
    dataDepth = 14,
    dataLength = 15,
    dataVec2 = 16,
    dataVec3 = 17,
    dataVec4 = 18,
    dataVecX = 19,
    dataVecY = 20,
    dataVecZ = 21,
    dataVecW = 22,
    bitmask = 23,
    bitmaskId = 24,
    bitmaskId2 = 25,
    bitmaskId3 = 26,
    bitmaskId4 = 27,
    bitmaskIdComp0 = 28,
    bitmaskIdComp1 = 29,
    bitmaskIdComp2 = 30,
    bitmaskIdComp3 = 31,
  };

  constexpr Channel() noexcept = default;
  constexpr Channel(int index) noexcept : index_(index) {}  // implicit: channels are numbers
  constexpr Channel(const Channel&) noexcept = default;
  constexpr Channel& operator=(const Channel&) noexcept = default;
  constexpr Channel& operator=(int index) noexcept {
    index_ = index;
    return *this;
  }

  constexpr operator int() const noexcept { return index_; }  // implicit: channels are numbers
  /// Above 0? A template for `bool` alone: beside it a plain `operator int` stays the only way to
  /// every other type, so that `channel == 5`, `channel + 1` and `array[channel]` have one reading.
  template <class Bool, class = std::enable_if_t<std::is_same<Bool, bool>::value>>
  constexpr operator Bool() const noexcept {
    return index_ > 0;
  }
  [[nodiscard]] constexpr int index() const noexcept { return index_; }

  constexpr Channel& operator++() noexcept { return *this += 1; }
  constexpr Channel& operator--() noexcept { return *this -= 1; }
  constexpr Channel operator++(int) noexcept {
    const Channel before = *this;
    *this += 1;
    return before;
  }
  constexpr Channel operator--(int) noexcept {
    const Channel before = *this;
    *this -= 1;
    return before;
  }
  constexpr Channel& operator+=(int n) noexcept {
    index_ = static_cast<int>(static_cast<std::uint32_t>(index_) + static_cast<std::uint32_t>(n));
    return *this;
  }
  constexpr Channel& operator-=(int n) noexcept {
    index_ = static_cast<int>(static_cast<std::uint32_t>(index_) - static_cast<std::uint32_t>(n));
    return *this;
  }
  constexpr Channel& operator+=(Channel other) noexcept { return *this += other.index_; }
  constexpr Channel& operator-=(Channel other) noexcept { return *this -= other.index_; }

  // The tables of the types. Any number may be passed as a type; what a table does not hold takes
  // its stated default.

  /// 1 to 12.
  [[nodiscard]] static constexpr bool IsBlendableType(Type t) noexcept { return t >= 1 && t < 13; }
  /// 13 to 22.
  [[nodiscard]] static constexpr bool IsDataType(Type t) noexcept { return t >= 13 && t < 23; }
  /// 23 and above, without an upper bound.
  [[nodiscard]] static constexpr bool IsBitmaskType(Type t) noexcept { return t >= 23; }
  /// The vectors and their components, 16 to 22.
  [[nodiscard]] static constexpr bool IsVectorType(Type t) noexcept { return t >= 16 && t <= 22; }
  /// `color3`, `color4` and their components but the fourth: neither `colorAlpha` nor `colorComp3`.
  [[nodiscard]] static bool IsColorType(Type t) noexcept;
  /// A component of a colour, vector or bitmask compound; `colorAlpha` and `colorComp3` are none,
  /// `dataVecW` and `bitmaskIdComp3` are.
  [[nodiscard]] static bool IsCompoundMemberType(Type t) noexcept;

  /// The type's name ("auto", "color-red", "data-vec-x" ...), "<unknown>" for numbers outside -1
  /// to 31. Static storage.
  [[nodiscard]] static const char* TypeString(Type t) noexcept;
  /// What the default registry makes of a sub-name:
  /// `DefaultChannelManager()->getChannelTypeFromSubname(subname)`. The first call builds that
  /// registry.
  [[nodiscard]] static Type TypeFromSubname(const char* subname);
  /// The compound that a component belongs to; the argument itself when it belongs to none.
  /// \param n  the compound's size, read for x, y and z alone: 2 gives `dataVec2`, 4 `dataVec4`,
  ///           any other `dataVec3`
  [[nodiscard]] static Type TypeCompoundType(Type member, int n) noexcept;
  /// The value-type code (`ovo::Value::Type`) of the compound that a type belongs to, 127 when it
  /// has none.
  /// \param n  the compound's size, read where the table says float3 alone: 2 gives float2, 4
  ///           float4
  [[nodiscard]] static int TypeCompoundValueType(Type t, int n) noexcept;
  /// How many elements a colour or vector compound has, 0 for every other type (the bitmask
  /// compounds as well).
  [[nodiscard]] static std::size_t TypeNumDataElements(Type t) noexcept;
  /// A component's index in its compound, 0 to 3; -1 for what is no component.
  [[nodiscard]] static int TypeOrdering(Type t) noexcept;
  /// The value-type code (`ovo::Value::Type`) of one element of a channel of this type, 127 when it
  /// has none.
  [[nodiscard]] static int TypeValueType(Type t) noexcept;

 private:
  int index_ = 0;
};

static_assert(sizeof(Channel) == 4 && std::is_trivially_copyable<Channel>::value,
              "arrays of channels are arrays of int");

/// The channel's number in decimal, whatever the stream's base.
VELA_API std::ostream& operator<<(std::ostream& out, Channel channel);

}  // namespace vela
