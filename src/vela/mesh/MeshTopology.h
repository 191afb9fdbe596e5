/// \file
/// The points and faces of a mesh, and nothing else.
///
/// Layout of all mesh arrays: faces follow one another in the index array, the length of each is in
/// the count array. The arrays are kept as they were read or set and may contradict each other; the
/// views below pass over what cannot be used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ovo/Array.h"
#include "ovo/Faces.h"
#include "ovo/MeshPrim.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

/// Threads: as any value; the views are values too.
///
/// \code
///   vela::MeshTopology mesh;  // a square and a triangle on its right side
///   mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}};
///   mesh.vertsPerFace = {4, 3};
///   mesh.faceVertPointIndices = {0, 1, 2, 3, 1, 4, 2};
///   std::size_t corners = 0;
///   for (const auto face : mesh.faces())
///     if (face.isUsable(mesh.points.size())) corners += face.size();
///   assert(corners == 7);
///   int borders = 0;
///   for (const vela::MeshTopology::Edges::Edge& edge : mesh.edges())
///     if (edge.faceCount == 1) ++borders;
///   assert(mesh.edges().size() == 6 && borders == 5);
/// \endcode
class VELA_API MeshTopology {
 public:
  class Faces;
  class Edges;

  /// All empty.
  MeshTopology() = default;
  /// Reads the mesh at a time, as stored, with its own winding: the points, then (only where there
  /// are points) the counts, then (only where there are counts) the indices. An array that is not
  /// read stays empty.
  MeshTopology(const ovo::MeshPrim& prim, const double& time);

  /// Every face in turn, as a run of point indices.
  [[nodiscard]] Faces faces() const;
  /// Every edge once, whichever way faces run along it. Found anew on each call: linear in the
  /// face-vertices but for the sorting of edges that share their smaller point.
  [[nodiscard]] Edges edges() const;

  ovo::Array<tarn::Vec3f> points;                 ///< positions
  ovo::Array<std::int32_t> vertsPerFace;          ///< how many vertices each face has
  ovo::Array<std::int32_t> faceVertPointIndices;  ///< the point of each face-vertex
};

/// The faces of a mesh, in order: `for (auto face : topology.faces()) for (int point : face) ...`.
///
/// ovo::Faces says which faces are empty and which are usable. Other than that view this one shares
/// the arrays that the topology had when it was asked: it outlives the topology, and later changes
/// do not show.
class VELA_API MeshTopology::Faces {
 public:
  /// Valid as long as the Faces it came from.
  using Face = ovo::Face;
  using iterator = ovo::Faces::iterator;  ///< from face to face

  Faces() = default;
  /// As many as there are counts.
  [[nodiscard]] std::size_t size() const { return counts_.size(); }
  [[nodiscard]] bool empty() const { return counts_.empty(); }  ///< there are no counts
  /// The first face, and behind the last. @{
  [[nodiscard]] iterator begin() const { return view().begin(); }
  [[nodiscard]] iterator end() const { return view().end(); }
  /// @}
  /// The face of that index, in [0, size()): a scan over the counts before it; loops iterate
  /// instead.
  [[nodiscard]] Face operator[](std::size_t face) const { return view()[face]; }

 private:
  friend class MeshTopology;
  Faces(const ovo::Array<std::int32_t>& counts, const ovo::Array<std::int32_t>& indices)
      : counts_(counts), indices_(indices) {}
  [[nodiscard]] ovo::Faces view() const { return {counts_, indices_}; }
  ovo::Array<std::int32_t> counts_, indices_;
};

/// The edges of a mesh, each once, sorted by their smaller and then by their larger point. Sides
/// that join a point to itself, or name no point of the mesh, are no edges. A face of two vertices
/// has one edge, on which it counts once.
class VELA_API MeshTopology::Edges {
 public:
  /// Two points that sides of faces join.
  struct Edge {
    /// Indices of the points, a < b. @{
    std::int32_t a = 0, b = 0;
    /// @}
    /// Face sides along it: 1 on a border, 2 inside a manifold surface.
    std::int32_t faceCount = 0;

    /// The same points and the same number of sides. @{
    friend bool operator==(const Edge& l, const Edge& r) {
      return l.a == r.a && l.b == r.b && l.faceCount == r.faceCount;
    }
    friend bool operator!=(const Edge& l, const Edge& r) { return !(l == r); }
    /// @}
  };
  /// From edge to edge; edges cannot be written through it. @{
  using const_iterator = std::vector<Edge>::const_iterator;
  using iterator = const_iterator;
  /// @}

  Edges() = default;
  [[nodiscard]] std::size_t size() const { return edges_.size(); }  ///< edges in all
  [[nodiscard]] bool empty() const { return edges_.empty(); }       ///< there is no edge
  /// The first edge, and behind the last. @{
  [[nodiscard]] const_iterator begin() const { return edges_.begin(); }
  [[nodiscard]] const_iterator end() const { return edges_.end(); }
  /// @}
  /// \p edge lies in [0, size()).
  [[nodiscard]] const Edge& operator[](std::size_t edge) const { return edges_[edge]; }

 private:
  friend class MeshTopology;
  std::vector<Edge> edges_;
};

}  // namespace vela
