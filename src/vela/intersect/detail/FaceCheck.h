/// \file
/// Which faces of a mesh can be used: the one check, made when a mesh enters a model or a test,
/// that hot loops then trust.
#pragma once

#include <cmath>
#include <cstddef>

#include "ovo/Array.h"
#include "tarn/Vec.h"

namespace vela::detail {

/// True when a corner of the face has a coordinate that is no number: such a face is not used, not
/// even the half of a quad that is sound.
inline bool hasNan(const tarn::Vec3<float>* points, const int* corners, int count) {
  for (int k = 0; k < count; ++k) {
    const tarn::Vec3<float>& p = points[corners[k]];
    if (std::isnan(p.x) || std::isnan(p.y) || std::isnan(p.z)) return true;
  }
  return false;
}

/// Walks the faces of a mesh whose arrays may contradict each other.
///
/// Calls `use(face, corners, count)` for every face, in order, of at least three corners that all
/// lie in the index array and name points; `face` counts all faces, `corners` points at the face's
/// first index. A `use` that returns false ends the walk.
template <class Use>
void forEachUsableFace(const ovo::Array<int>& counts, const ovo::Array<int>& indices,
                       std::size_t pointCount, Use use) {
  const int* const all = indices.cdata();
  const std::size_t total = indices.size();
  // The cursor stays at the end once a face reaches past it: nothing after that face has corners.
  std::size_t offset = 0;
  int face = 0;
  for (const int count : counts) {
    const std::size_t left = total - offset;
    const bool inside = count >= 0 && static_cast<std::size_t>(count) <= left;
    if (inside && count >= 3) {
      const int* const corners = all + offset;
      bool valid = true;
      // A negative index becomes larger than any number of points.
      for (int k = 0; k < count; ++k)
        valid = valid && static_cast<std::size_t>(corners[k]) < pointCount;
      if (valid && !use(face, corners, count)) return;
    }
    if (count > 0) offset += inside ? static_cast<std::size_t>(count) : left;
    ++face;
  }
}

}  // namespace vela::detail
