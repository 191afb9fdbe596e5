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
  enum Type : int {
    int_ = 17,
    float_ = 23,
    int2 = 29,
    float2 = 33,
    int3 = 37,
    float3 = 41,
    int4 = 45,
    float4 = 49,
    color3f = 71,
    color4f = 77,
    none = 127,
  };

  /// The word for a code: `int`, `int2` ... `color4f`, `none`. The empty text for any other number.
  [[nodiscard]] static const std::string& getTypeName(int type);

  /// How many numbers a value of this code holds, 1 to 4; 0 for `none` and for any other number.
  [[nodiscard]] static int getNumDataElements(int type) noexcept;
};

}  // namespace ovo
