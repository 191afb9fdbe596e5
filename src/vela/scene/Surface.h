/// \file
/// The values of a mesh between its points: colours, normals, selection.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "ovo/Array.h"
#include "ovo/Token.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/Shape.h"

namespace vela::scene {

/// A point of a face, for questions to one surface. How much each corner of the face counts there
/// is found when the first answer needs it, and kept for the others. Belongs to one thread.
///
/// \code
///   const vela::scene::SurfacePoint point(3, {0.5f, 1.0f, 0.0f});
///   assert(point.face() == 3 && point.objectPoint().y == 1.0f);
/// \endcode
class SurfacePoint {
 public:
  /// A point of a face; it need not lie on it exactly.
  SurfacePoint(int face, const tarn::Vec3f& objectPoint) : face_(face), objectPoint_(objectPoint) {}
  /// On a tube: the two points of the piece that was hit, and how far between them, 0 to 1. Without
  /// them the piece that is nearest to the point is looked for. Nothing else asks for them.
  SurfacePoint(int face, const tarn::Vec3f& objectPoint, int from, int to, float along)
      : face_(face), objectPoint_(objectPoint), from_(from), to_(to), along_(along) {}

  /// The face, by the shape's numbers.
  [[nodiscard]] int face() const noexcept { return face_; }
  /// The point, in the object's space.
  [[nodiscard]] const tarn::Vec3f& objectPoint() const noexcept { return objectPoint_; }

 private:
  friend class Surface;
  // One weight a corner; without memory of their own for faces of up to 16.
  double* start(std::size_t corners) const {
    count_ = corners;
    if (corners > few_.size()) many_.resize(corners);
    return corners > few_.size() ? many_.data() : few_.data();
  }
  [[nodiscard]] const double* weights() const {
    return count_ > few_.size() ? many_.data() : few_.data();
  }

  int face_;
  tarn::Vec3f objectPoint_;
  mutable int from_ = -1, to_ = -1;
  mutable float along_ = 0.0f;
  mutable std::size_t count_ = 0;  // 0: not weighed yet
  mutable std::array<double, 16> few_;
  mutable std::vector<double> many_;
};

/// A shape's data for shading, read once.
///
/// Values at a point of a face are mixed by mean value coordinates (Hormann and Floater, ACM TOG
/// 25(4), 2006). These are the barycentric ones in a triangle, leave no seam along a quad's
/// diagonal and hold for any polygon. Values whose number does not fit their interpolation are not
/// used: which of them belongs where is not known.
///
/// On tubes values vary along the curve's middle line: vertex ones by its basis, varying ones in a
/// straight line.
///
/// Faces are those of the shape, refined ones when it is refined; points are in the object's space.
/// A face must be one that a ray can hit: its indices are not checked again.
///
/// Threads: const calls may run from any number of threads at once.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/Square"));
///   prim.setPoints({{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}});
///   prim.createFaceVertexCountsAttr().set(ovo::Array<int>{4});
///   prim.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2, 3});
///   prim.createPrimvar(ovo::Token("displayColor"), "color3f[]", ovo::Token("vertex"))
///       .set(ovo::Array<tarn::Vec3f>{{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}});
///
///   const double time = tarn::defaultTimeValue();
///   const vela::scene::Surface surface(vela::scene::readShape(prim, time), time);
///   const tarn::Vec3f colour = surface.colour({0, {0.5f, 1.0f, 0.0f}});
///   assert(std::fabs(colour.x - 0.25f) < 1e-6f && std::fabs(colour.z - 0.5f) < 1e-6f);
/// \endcode
class VELA_API Surface {
 public:
  /// \param smooth makes normals for polygon meshes that have none, too
  Surface(const Shape& shape, double time, bool smooth = false);

  /// displayColor at a point of the face; a neutral grey where the scene has none that is finite.
  [[nodiscard]] tarn::Vec3f colour(const SurfacePoint& point) const;
  /// True when the scene gives the mesh a colour.
  [[nodiscard]] bool hasOwnColour() const noexcept { return colours_.spread != Spread::none; }

  /// Reads a primvar, inherited ones too, to be asked for between points. To be called while
  /// nothing else uses the surface.
  /// \param components how many numbers its values have, 1 to 4
  /// \return its number for the calls below; nothing when there is none of so many numbers, or
  ///         their count does not fit
  std::optional<std::size_t> addPrimvar(const ovo::Token& name, int components);
  /// The values of a primvar at a point; the missing ones of four are 0.
  [[nodiscard]] tarn::Vec4f primvar(std::size_t number, const SurfacePoint& point) const;
  /// The same at a corner of the shape's faces.
  /// \param face       the face
  /// \param point      the corner's point
  /// \param faceVertex where the corner stands in Shape::indices
  [[nodiscard]] tarn::Vec4f primvarAt(std::size_t number, int face, int point,
                                      int faceVertex) const;

  /// True when there are normals to shade with beside the faces': the scene's own, or those of a
  /// smooth surface.
  [[nodiscard]] bool hasOwnNormals() const noexcept { return normals_.spread != Spread::none; }
  /// That normal, in object space, pointing out, of any length; only where hasOwnNormals().
  [[nodiscard]] tarn::Vec3f normal(const SurfacePoint& point) const;

  /// The vector, in object space, from a point of the face to the smooth surface that its corners'
  /// normals suggest: zero where that surface lies behind the face. A ray to a light starts there,
  /// or flat faces would shade each other along the terminator.
  ///
  /// \return false, with \p toSmooth untouched, when a corner's normal leans more than 45 degrees:
  ///         a mesh that coarse suggests nothing
  bool findSmooth(const SurfacePoint& point, bool seenFromBehind, tarn::Vec3f& toSmooth) const;

  /// What is selected of the scene's mesh: all of it, or a value from 0 to 1 for each face or each
  /// point; short lists end in zeros.
  void setSelection(bool whole, const std::vector<float>& faces, const std::vector<float>& points);
  /// How much of a selection there is at a point of the face, 0 to 1.
  [[nodiscard]] float selection(const SurfacePoint& point) const;

  /// True when the scene winds the mesh the other way.
  [[nodiscard]] bool isLeftHanded() const noexcept { return shape_.leftHanded; }
  /// Faces of the shape, refined ones when it is refined.
  [[nodiscard]] std::size_t faceCount() const noexcept { return shape_.counts.size(); }
  /// Faces of the mesh that are triangles, when cut: n - 2 for each face of n corners.
  [[nodiscard]] std::size_t triangleCount() const;

 private:
  enum class Spread { none, constant, face, point, corner };
  struct Values {
    Spread spread = Spread::none;
    ovo::Array<tarn::Vec3f> values;
  };

  void weigh(const SurfacePoint& point) const;
  void findPiece(const SurfacePoint& point) const;
  void readTubes();

  [[nodiscard]] Spread spreadOf(const ovo::Token& interpolation, std::size_t count) const;
  [[nodiscard]] tarn::Vec3f at(const Values& values, const SurfacePoint& point) const;
  void smoothNormals();
  [[nodiscard]] bool mayHaveSharpEdges() const;

  Shape shape_;
  double time_;
  std::vector<std::size_t> starts_;  // where each face begins in the indices
  Values colours_, normals_, selectedPoints_;
  // Of each primvar: the first three numbers, and the fourth in a list of its own.
  struct Primvar4 {
    Values head, tail;
  };
  std::vector<Primvar4> primvars_;
  std::vector<float> selectedFaces_;
  bool isSelected_ = false;
};

}  // namespace vela::scene
