#include "vela/channels/Channel.h"

#include <ostream>
#include <string>

#include "vela/channels/ChannelManager.h"
#include "vela/channels/DefaultChannelManager.h"

namespace vela {
namespace {

constexpr int kTypeCount = 32;  // none to bitmaskIdComp3
constexpr int kNoValueType = 127;

constexpr bool inTable(Channel::Type t) { return t >= 0 && t < kTypeCount; }

// A set of types as a word: bit t stands for type t.
constexpr std::uint32_t bit(int t) { return std::uint32_t{1} << t; }
constexpr std::uint32_t kColorTypes = bit(Channel::color3) | bit(Channel::color4) |
                                      bit(Channel::colorRed) | bit(Channel::colorGreen) |
                                      bit(Channel::colorBlue) | bit(Channel::colorComp0) |
                                      bit(Channel::colorComp1) | bit(Channel::colorComp2);
constexpr std::uint32_t kMemberTypes =
    bit(Channel::colorRed) | bit(Channel::colorGreen) | bit(Channel::colorBlue) |
    bit(Channel::colorComp0) | bit(Channel::colorComp1) | bit(Channel::colorComp2) |
    bit(Channel::dataVecX) | bit(Channel::dataVecY) | bit(Channel::dataVecZ) |
    bit(Channel::dataVecW) | bit(Channel::bitmaskIdComp0) | bit(Channel::bitmaskIdComp1) |
    bit(Channel::bitmaskIdComp2) | bit(Channel::bitmaskIdComp3);

// One row a type, `none` first. The columns are the tables of the functions below; a -1 in
// `compound` means "itself".
struct Row {
  const char* text;
  int compound;
  int compoundValueType;
  int valueType;
  std::size_t elements;
  int ordering;
};
constexpr Row kRows[kTypeCount] = {
    {"none", -1, 127, 127, 0, -1},
    {"blendable", -1, 23, 23, 0, -1},
    {"color3", -1, 71, 71, 3, -1},
    {"color4", -1, 77, 77, 4, -1},
    {"color-red", Channel::color3, 71, 23, 0, 0},
    {"color-green", Channel::color3, 71, 23, 0, 1},
    {"color-blue", Channel::color3, 71, 23, 0, 2},
    {"color-alpha", Channel::color4, 77, 23, 0, 3},
    {"color-comp0", Channel::color3, 71, 23, 0, 0},
    {"color-comp1", Channel::color3, 71, 23, 0, 1},
    {"color-comp2", Channel::color3, 71, 23, 0, 2},
    {"color-comp3", Channel::color4, 77, 23, 0, 3},
    {"mask", -1, 23, 23, 0, -1},
    {"data", -1, 23, 23, 0, -1},
    {"data-depth", -1, 23, 23, 0, -1},
    {"data-length", -1, 23, 23, 0, -1},
    {"data-vec2", -1, 33, 33, 2, -1},
    {"data-vec3", -1, 41, 41, 3, -1},
    {"data-vec4", -1, 49, 49, 4, -1},
    {"data-vec-x", Channel::dataVec3, 41, 23, 0, 0},
    {"data-vec-y", Channel::dataVec3, 41, 23, 0, 1},
    {"data-vec-z", Channel::dataVec3, 41, 23, 0, 2},
    {"data-vec-w", Channel::dataVec4, 49, 23, 0, 3},
    {"bitmask", -1, 17, 17, 0, -1},
    {"bitmask-id", -1, 17, 17, 0, -1},
    {"bitmask-id2", -1, 29, 17, 0, -1},
    {"bitmask-id3", -1, 37, 17, 0, -1},
    {"bitmask-id4", -1, 45, 17, 0, -1},
    // KEEP(first-bitmask-component): components 1 to 3 name their compound, component 0 names
    // itself. A layer takes its purpose from its first member by this table: another answer would
    // change the purpose of every layer that begins with component 0.
    {"bitmask-id-comp0", -1, 17, 17, 0, 0},
    {"bitmask-id-comp1", Channel::bitmaskId2, 29, 17, 0, 1},
    {"bitmask-id-comp2", Channel::bitmaskId3, 37, 17, 0, 2},
    {"bitmask-id-comp3", Channel::bitmaskId4, 45, 17, 0, 3},
};

}  // namespace

// KEEP(fourth-colour-component): alpha and the fourth component belong to the four-component
// colour, and yet are neither colours nor compound members here. What is a colour gets colour
// transforms, and coverage must pass them unchanged.
bool Channel::IsColorType(Type t) noexcept { return inTable(t) && (kColorTypes & bit(t)) != 0; }

bool Channel::IsCompoundMemberType(Type t) noexcept {
  return inTable(t) && (kMemberTypes & bit(t)) != 0;
}

const char* Channel::TypeString(Type t) noexcept {
  if (t == auto_) return "auto";
  return inTable(t) ? kRows[t].text : "<unknown>";
}

Channel::Type Channel::TypeFromSubname(const char* subname) {
  return DefaultChannelManager()->getChannelTypeFromSubname(subname);
}

Channel::Type Channel::TypeCompoundType(Type member, int n) noexcept {
  const int compound = inTable(member) ? kRows[member].compound : -1;
  if (compound < 0) return member;
  if (compound == dataVec3 && n == 2) return dataVec2;
  if (compound == dataVec3 && n == 4) return dataVec4;
  return static_cast<Type>(compound);
}

int Channel::TypeCompoundValueType(Type t, int n) noexcept {
  const int code = inTable(t) ? kRows[t].compoundValueType : kNoValueType;
  if (code == 41 && n == 2) return 33;
  if (code == 41 && n == 4) return 49;
  return code;
}

std::size_t Channel::TypeNumDataElements(Type t) noexcept {
  return inTable(t) ? kRows[t].elements : 0;
}

int Channel::TypeOrdering(Type t) noexcept { return inTable(t) ? kRows[t].ordering : -1; }

int Channel::TypeValueType(Type t) noexcept {
  return inTable(t) ? kRows[t].valueType : kNoValueType;
}

std::ostream& operator<<(std::ostream& out, Channel channel) {
  return out << std::to_string(channel.index());
}

}  // namespace vela
