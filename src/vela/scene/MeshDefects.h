/// \file
/// A mesh of a scene in numbers, and what is wrong with it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ovo/MeshPrim.h"
#include "tarn/Box3.h"
#include "vela/Api.h"
#include "vela/mesh/MeshTopology.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// One kind of defect: how often a mesh has it, and where first.
struct MeshDefect {
  /// What is wrong, and what `first` then is.
  enum class Kind {
    smallFace,        ///< fewer than three vertices; first: the face
    countsOff,        ///< the counts do not add up to the indices; first: their sum
    indexOutOfRange,  ///< first: the face-vertex
    pointTwice,       ///< a face that has a point twice; first: the face
    foldedFace,       ///< a face whose sides cross, or whose halves face opposite ways
    flatFace,         ///< a face without area
    sameWayEdge,      ///< two faces run the same way along an edge: wound differently, or on one
                      ///< another; first: the second of them
    badPoint,         ///< a point that is not finite
    unusedPoint,      ///< a point of no face
    primvarCount,     ///< a count that does not fit the interpolation; first: index in primvars
  };
  Kind kind = Kind::smallFace;  ///< what is wrong
  std::size_t count = 0;        ///< how often
  std::size_t first = 0;        ///< of the kind's thing, where it was met first
};

/// A few words for a kind of defect: `folded face`.
[[nodiscard]] VELA_API const char* describe(MeshDefect::Kind kind);

/// A primvar's size beside what its interpolation asks for.
struct PrimvarReport {
  /// As the scene says. @{
  std::string name, type, interpolation;
  /// @}
  std::size_t elements = 0;  ///< as ovo::Primvar::elementCount() has it
  bool isIndexed = false;    ///< as ovo::Primvar::isIndexed()
  bool fits = true;          ///< false: as many are not what the interpolation asks for
};

/// A mesh in numbers, and what is wrong with it.
struct MeshReport {
  /// As the scene says. @{
  std::string path, scheme, orientation;
  /// @}
  /// How many there are. Triangles and quads are faces of three and of four vertices. @{
  std::size_t points = 0, faces = 0, faceVertices = 0, triangles = 0, quads = 0;
  /// @}
  /// Borders have one face; a crowded edge has more than two. @{
  std::size_t edges = 0, borderEdges = 0, crowdedEdges = 0;
  /// @}
  tarn::Box3f bounds;                   ///< of the points, in the prim's own space
  std::vector<PrimvarReport> primvars;  ///< all that the prim has
  std::vector<MeshDefect> defects;  ///< each kind once, in the order in which they were met first
};

/// The report of points and faces alone: path, scheme, orientation, bounds and primvars stay empty.
/// \return nothing when the work was stopped
[[nodiscard]] VELA_API std::optional<MeshReport> inspectMesh(const MeshTopology& mesh,
                                                             const Work& work = {});

/// The report of a prim's mesh at a time.
/// \return nothing when the work was stopped
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/Bow"));
///   prim.setPoints({{0, 0, 0}, {1, 1, 0}, {1, 0, 0}, {0, 1, 0}});
///   prim.createFaceVertexCountsAttr().set(ovo::Array<int>{4});
///   prim.createFaceVertexIndicesAttr().set(ovo::Array<int>{0, 1, 2, 3});
///   const auto report = vela::scene::inspectMesh(prim, tarn::defaultTimeValue());
///   assert(report && report->quads == 1 && report->defects.size() == 1);
///   assert(report->defects[0].kind == vela::scene::MeshDefect::Kind::foldedFace);
/// \endcode
[[nodiscard]] VELA_API std::optional<MeshReport> inspectMesh(const ovo::MeshPrim& prim, double time,
                                                             const Work& work = {});

}  // namespace vela::scene
