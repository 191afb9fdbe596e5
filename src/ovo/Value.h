/// \file
/// The type codes of single values. The numbers are exchanged with callers as plain ints and never
/// change.
#pragma once

#include <string>

#include "ovo/Api.h"

namespace ovo {

/// The kinds of single values that calls without a C++ type for them take by code.
///
/// \code
///   assert(ovo::Value::getTypeName(ovo::Value::float3) == "float3");
///   assert(ovo::Value::getNumDataElements(ovo::Value::color4f) == 4);
///   assert(ovo::Value::getTypeName(18).empty());
/// \endcode
class OVO_API Value {
 public:
  /// What a single value is made of. The suffix is how many numbers it holds; `color3f` and
  /// `color4f` are floats. `none` stands for all that has no code.
  enum Type : int {
    int_ = 17,     ///< 32-bit integer
    float_ = 23,   ///< single precision
    int2 = 29,     ///< two ints
    float2 = 33,   ///< two floats
    int3 = 37,     ///< three ints
    float3 = 41,   ///< three floats
    int4 = 45,     ///< four ints
    float4 = 49,   ///< four floats
    color3f = 71,  ///< red, green, blue
    color4f = 77,  ///< red, green, blue, alpha
    none = 127,    ///< no single value of these
  };

  /// The word for a code: `int`, `int2` ... `color4f`, `none`. The empty text for any other number.
  [[nodiscard]] static const std::string& getTypeName(int type);

  /// How many numbers a value of this code holds, 1 to 4; 0 for `none` and for any other number.
  [[nodiscard]] static int getNumDataElements(int type) noexcept;
};

}  // namespace ovo
