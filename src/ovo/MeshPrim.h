/// \file
/// Polygon meshes of a scene.
///
/// Layout: faces follow one another in the index array, each face's length is in the count array.
/// Points are in the prim's own space. Arrays come as they are stored: counts, indices and points
/// may contradict each other, and whoever uses them checks them once.
///
/// Threads: as Prim.
#pragma once

#include <memory>

#include "ovo/Api.h"
#include "ovo/Array.h"
#include "ovo/Primvar.h"
#include "ovo/Xform.h"
#include "tarn/Box3.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"

namespace ovo {

/// A prim of type Mesh.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::MeshPrim mesh = ovo::MeshPrim::define(stage, "/Triangle");
///   mesh.setPoints({{0, 0, 0}, {2, 0, 0}, {0, 1, 0}});
///   mesh.createFaceVertexCountsAttr().set(ovo::Array<int>{3});
///   mesh.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2});
///   ovo::Array<int> counts, indices;
///   bool reverseWinding = false;
///   assert(mesh.getFaceTopology(counts, indices, reverseWinding) && counts.size() == 1);
///   assert(mesh.getBoundsBox().max == tarn::Vec3f(2, 1, 0));
/// \endcode
class OVO_API MeshPrim : public XformablePrim {
 public:
  /// Looks at any prim as a mesh, or at none. Whether it is one, isValid() says. @{
  MeshPrim() noexcept;
  explicit MeshPrim(const Prim& prim);
  /// @}

  /// Makes sure that a Mesh is defined there, see Stage::definePrim.
  /// \return not valid where that fails, and for a null stage
  static MeshPrim define(const std::shared_ptr<Stage>& stage, const Path& path);

  /// True when the prim is valid and its type is Mesh.
  [[nodiscard]] bool isValid() const noexcept;
  /// As isValid().
  [[nodiscard]] explicit operator bool() const { return isValid(); }

  // Points and faces

  /// \return false, with \p points untouched, when the mesh has none at the time
  bool getPoints(Array<tarn::Vec3f>& points, double time = tarn::defaultTimeValue()) const;
  /// Writes the points, at the default time or as a sample.
  /// \return false when not valid, or where Attribute::set fails
  bool setPoints(const Array<tarn::Vec3f>& points, double time = tarn::defaultTimeValue()) const;

  /// Reads counts and indices with their stored winding.
  ///
  /// \param reverseWinding set to false always: nothing is turned here, whatever the orientation
  ///                       says. Computed normals are turned by the orientation instead
  /// \return false when either is missing; \p counts and \p indices are then as they were
  bool getFaceTopology(Array<int>& counts, Array<int>& indices, bool& reverseWinding,
                       double time = tarn::defaultTimeValue()) const;
  /// The attributes, declared where the scene has none yet. @{
  Attribute createPointsAttr() const;
  Attribute createFaceVertexCountsAttr() const;
  Attribute createFaceVertexIndicesAttr() const;
  /// @}

  // Boxes

  /// The box of the points in the prim's own space; with \p useExtent the authored extent instead
  /// where there is a usable one. Empty without points. Points with a NaN coordinate count on their
  /// other axes only.
  [[nodiscard]] tarn::Box3f getBoundsBox(double time = tarn::defaultTimeValue(),
                                         bool useExtent = true) const;
  /// Writes the box of the points at the time as the extent; false without points.
  bool writeExtent(double time = tarn::defaultTimeValue()) const;

  // Surface

  [[nodiscard]] Token getSubdivisionScheme()
      const;  ///< `catmullClark` where the scene does not say
  /// Writes the word as it is: one that is not known is read back, and refined as `catmullClark`.
  /// \return false as setPoints()
  bool setSubdivisionScheme(const Token& scheme) const;
  [[nodiscard]] Token getOrientation() const;  ///< `rightHanded` where the scene does not say
  /// Writes the word as it is.
  /// \return false as setPoints()
  bool setOrientation(const Token& orientation) const;
  /// Whether both sides are to be seen; false where the scene does not say.
  [[nodiscard]] bool isDoubleSided() const;

  /// `primvars:normals`, else the attribute `normals`; not valid without either.
  [[nodiscard]] Primvar getNormalsPrimvar() const;
  /// Normals with their indices applied. \return false, with both untouched, when there are none
  bool getNormals(Array<tarn::Vec3f>& normals, Token& interpolation,
                  double time = tarn::defaultTimeValue()) const;
  /// Writes the attribute `normals` with that interpolation.
  bool setNormals(const Array<tarn::Vec3f>& normals, const Token& interpolation,
                  double time = tarn::defaultTimeValue()) const;
};

}  // namespace ovo
