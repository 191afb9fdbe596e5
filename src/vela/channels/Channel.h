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
    auto_ = -1,           ///< asks the registry to pick the type from the channel's sub-name
    none = 0,             ///< no purpose
    blendable = 1,        ///< may be mixed, no more is said
    color3 = 2,           ///< three components of a colour
    color4 = 3,           ///< four components of a colour
    colorRed = 4,         ///< red: component 0 of a colour
    colorGreen = 5,       ///< green: component 1 of a colour
    colorBlue = 6,        ///< blue: component 2 of a colour
    colorAlpha = 7,       ///< alpha: component 3 of `color4`
    colorComp0 = 8,       ///< component 0 of a colour, unnamed
    colorComp1 = 9,       ///< component 1 of a colour, unnamed
    colorComp2 = 10,      ///< component 2 of a colour, unnamed
    colorComp3 = 11,      ///< component 3 of `color4`, unnamed
    mask = 12,            ///< how much of something counts; may be mixed
    data = 13,            ///< may not be mixed, no more is said
    dataDepth = 14,       ///< a depth, as from a camera
    dataLength = 15,      ///< a length
    dataVec2 = 16,        ///< vector of two components
    dataVec3 = 17,        ///< vector of three components
    dataVec4 = 18,        ///< vector of four components
    dataVecX = 19,        ///< component 0 of a vector
    dataVecY = 20,        ///< component 1 of a vector
    dataVecZ = 21,        ///< component 2 of a vector
    dataVecW = 22,        ///< component 3 of `dataVec4`
    bitmask = 23,         ///< bits, each with a meaning of its own
    bitmaskId = 24,       ///< one integer id
    bitmaskId2 = 25,      ///< two integer ids
    bitmaskId3 = 26,      ///< three integer ids
    bitmaskId4 = 27,      ///< four integer ids
    bitmaskIdComp0 = 28,  ///< id 0; belongs to no compound
    bitmaskIdComp1 = 29,  ///< id 1 of `bitmaskId2`
    bitmaskIdComp2 = 30,  ///< id 2 of `bitmaskId3`
    bitmaskIdComp3 = 31,  ///< id 3 of `bitmaskId4`
  };

  constexpr Channel() noexcept = default;
  /// The channel of that number, any number.
  constexpr Channel(int index) noexcept : index_(index) {}  // implicit: channels are numbers
  constexpr Channel(const Channel&) noexcept = default;
  constexpr Channel& operator=(const Channel&) noexcept = default;
  /// Takes that number, any number.
  constexpr Channel& operator=(int index) noexcept {
    index_ = index;
    return *this;
  }

  /// The number. @{
  constexpr operator int() const noexcept { return index_; }  // implicit: channels are numbers
  /// Above 0? A template for `bool` alone: beside it a plain `operator int` stays the only way to
  /// every other type, so that `channel == 5`, `channel + 1` and `array[channel]` have one reading.
  template <class Bool, class = std::enable_if_t<std::is_same<Bool, bool>::value>>
  constexpr operator Bool() const noexcept {
    return index_ > 0;
  }
  [[nodiscard]] constexpr int index() const noexcept { return index_; }
  /// @}

  /// As on the number. No end is checked: below channel 1 come 0 and the negative numbers. @{
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
  /// @}

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
