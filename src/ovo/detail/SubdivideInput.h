/// \file
/// The first step of refinement: the caller's arrays, as far as they can be used, as a Level.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ovo/Subdivide.h"
#include "ovo/detail/SubdivideMesh.h"

namespace ovo::detail::subdivision {

/// What subdivideUniform was asked for, with arrays that are long enough.
struct Request {
  const ArgSet& args;
  std::size_t faces, faceVerts, points;
  const MeshTessellateContext& context;
  Sdc::SchemeType scheme;
  int levels;
};

struct Input {
  Level level;
  std::vector<PointData> perPoint;
  CornerDataList perCorner;
  std::vector<int> pointOf;  ///< the Level's point of each of the caller's points, or -1
};

/// \return false, with the reason in \p why, when no face can be used, loop is given a face that is
///         no triangle, or the result had more than OpenSubdiv or an int can count
bool takeInput(const Request& request, Input& input, std::string& why);

}  // namespace ovo::detail::subdivision
