/// \file
/// Subdivision surfaces as the meshes that they become.
#pragma once

#include "ovo/Array.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Shape.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// Refines the shapes of a list that are subdivision surfaces, each by the rules that its prim has
/// at the time, with its colours: `vertex` ones as the points are, `varying` ones linearly, those
/// of corners by the prim's face-varying rule, those of faces by the control face that a refined
/// one is part of. All other shapes stay as they are; those that ask to be refined and cannot be
/// are added to MeshList::notRefined.
///
/// \param level   how often; below 1 nothing happens
/// \param problem on failure: tooManyFaces, before anything is made, when there would be more than
///                memory is likely to hold; stopped
/// \return false on failure
VELA_API bool refineShapes(MeshList& list, double time, int level, Problem* problem = nullptr,
                           const Work& work = {});

/// Values on a refined shape's control mesh, carried over to the refined one as colours are.
///
/// \param interpolation which values there are; stays what it is
/// \param values        of the control mesh; those of the refined one afterwards
/// \return false, with \p values untouched, when there are too few values, or the interpolation is
///         none
[[nodiscard]] VELA_API bool carryOverRefined(const Shape& shape, double time,
                                             const ovo::Token& interpolation,
                                             ovo::Array<tarn::Vec3f>& values);

/// Values at the points of a refined shape's control mesh, spread linearly over the refined points.
[[nodiscard]] VELA_API ovo::Array<tarn::Vec3f> spreadOverRefinedPoints(
    const Shape& shape, double time, const ovo::Array<tarn::Vec3f>& values);

}  // namespace vela::scene
