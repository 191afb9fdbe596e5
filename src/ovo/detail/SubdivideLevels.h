/// \file
/// The second step of refinement: OpenSubdiv on the whole mesh.
#pragma once

#include <opensubdiv/far/topologyDescriptor.h>

#include <memory>
#include <vector>

#include "ovo/Subdivide.h"
#include "ovo/detail/SubdivideMesh.h"

namespace ovo::detail::subdivision {

/// The rules at boundaries, seams and triangles; words that are not known count as the default.
Sdc::Options optionsOf(const ArgSet& args);

/// A refiner of a mesh, not refined yet; null where OpenSubdiv refuses the mesh.
std::unique_ptr<Far::TopologyRefiner> makeRefiner(const Level& level, Sdc::SchemeType scheme,
                                                  const Sdc::Options& options);

/// Refines everything \p levels times. The Level becomes the last of them, with what is left of its
/// sharpness. \return false where OpenSubdiv refuses the mesh
bool refineWhole(int levels, Sdc::SchemeType scheme, const Sdc::Options& options, Level& level,
                 std::vector<PointData>& perPoint, CornerDataList& perCorner);

}  // namespace ovo::detail::subdivision
