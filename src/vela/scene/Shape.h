/// \file
/// A mesh as it is at one time, refined or not; or a set of curves or points.
#pragma once

#include <cstddef>
#include <memory>

#include "ovo/Array.h"
#include "ovo/MeshPrim.h"
#include "ovo/Token.h"
#include "tarn/Box3.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela::scene {

/// What a refined shape was before, and what came of its colours.
struct Refinement {
  int level = 0;                   ///< how often it was refined
  ovo::Array<tarn::Vec3f> points;  ///< of the control mesh
  /// Of the control mesh. @{
  ovo::Array<int> counts, indices;
  /// @}
  ovo::Array<int> sourceFaces;  ///< of each refined face: the control face it is part of
  /// Of each control point: its index among the refined points; -1 when it is not among them.
  ovo::Array<int> refinedPointOf;
  ovo::Array<tarn::Vec3f> colours;  ///< of the refined mesh
  ovo::Token colourInterpolation;   ///< of the refined mesh; empty without colours
};

struct Tubes;  // CurvePrims.h

/// The mesh of a prim at a time, or one that is made for a shape prim, or the tubes of curves or
/// points. Many entries of a scene may share it. The arrays are as the scene has them and may
/// contradict each other.
struct Shape {
  ovo::MeshPrim prim;              ///< the prim that it comes from; not valid where that is no mesh
  ovo::Array<tarn::Vec3f> points;  ///< in its own space
  /// The length of each face, and the point indices face by face. @{
  ovo::Array<int> counts, indices;
  /// @}
  /// Of a shape prim's mesh: one a face-vertex. Empty where the prim says what the normals are.
  ovo::Array<tarn::Vec3f> normals;
  bool leftHanded = false;  ///< faces are wound clockwise seen from outside
  std::shared_ptr<const Refinement> refinement = nullptr;  ///< null: the mesh as the scene has it

  std::shared_ptr<const Tubes> tubes = nullptr;  ///< of curves or points; null: a mesh

  /// The scene's index of a face: of a refined one that of the control face it is part of.
  [[nodiscard]] int sceneFace(int face) const {
    return refinement ? refinement->sourceFaces.view()[static_cast<std::size_t>(face)] : face;
  }
};

/// The box of a shape's finite points, in its own space, tubes with their radii. Empty without one.
[[nodiscard]] VELA_API tarn::Box3d boxOf(const Shape& shape);

/// The mesh of a prim at the time, unrefined.
[[nodiscard]] VELA_API Shape readShape(const ovo::MeshPrim& prim, double time);

}  // namespace vela::scene
