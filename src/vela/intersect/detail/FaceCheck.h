/// \file
/// The one check of a face that goes beyond its indices (see ovo/Faces.h), made when a mesh enters
/// a model or a test; hot loops then trust it.
#pragma once

#include <cmath>

#include "ovo/Faces.h"
#include "tarn/Vec.h"

namespace vela::detail {

/// True when a corner of a usable face has a NaN coordinate: such a face is not used, not even the
/// half of a quad that has none.
inline bool hasNan(const tarn::Vec3f* points, const ovo::Face& face) {
  for (const int corner : face) {
    const tarn::Vec3f& p = points[corner];
    if (std::isnan(p.x) || std::isnan(p.y) || std::isnan(p.z)) return true;
  }
  return false;
}

}  // namespace vela::detail
