/// \file
/// What OpenUSD's standard prim types mean: which have a transform, which fallback values they
/// give.
#pragma once

#include <map>
#include <string>

#include "ovo/Token.h"
#include "ovo/detail/OpenUsd.h"

namespace ovo::detail {

struct Fallback {
  pxr::SdfValueTypeName type;
  pxr::VtValue value;
};

struct PrimType {
  bool xformable = false;
  bool imageable = false;  ///< has visibility and purpose
  std::map<std::string, Fallback> fallbacks;
};

/// The record of a type name; for a name that is not known one without fallbacks. The reference
/// lives for ever.
[[nodiscard]] const PrimType& primType(const std::string& typeName);

}  // namespace ovo::detail
