/// \file
/// Subdivision surfaces as the meshes that they become.
#pragma once

#include <vector>

#include "Scene.h"
#include "ovo/Array.h"
#include "tarn/Vec.h"

namespace command {

/// Refines the shapes of a list that are subdivision surfaces, each by the rules that its prim has
/// at the time, with its colours: `vertex` ones as the points are, `varying` ones linearly, those
/// of corners by the prim's face-varying rule, those of faces by the face that a refined one comes
/// from. All other shapes stay as they are; those that ask to be refined and cannot be are in
/// MeshList::notRefined.
/// \throws Failure, before anything is made, when there would be more faces than memory is likely
///         to hold
void refineShapes(MeshList& list, double time, int level);

/// Values of the points of the mesh that a refined shape comes from, spread linearly over the
/// refined points.
[[nodiscard]] ovo::Array<tarn::Vec3<float>> spreadOverRefinedPoints(
    const Shape& shape, double time, const ovo::Array<tarn::Vec3<float>>& values);

}  // namespace command
