/// \file
/// The points and faces of a mesh, and nothing else.
///
/// Layout of all mesh arrays: faces follow one another in the index array, the length of each is in
/// the count array. The arrays are kept as they were read or set and may contradict each other; the
/// views below pass over what cannot be used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include "ovo/Array.h"
#include "ovo/MeshPrim.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

/// Threads: as any value; the views are values too.
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

  ovo::Array<tarn::Vec3<float>> points;           ///< positions
  ovo::Array<std::int32_t> vertsPerFace;          ///< how many vertices each face has
  ovo::Array<std::int32_t> faceVertPointIndices;  ///< the point of each face-vertex
};

/// The faces of a mesh, in order: `for (auto face : topology.faces()) for (int point : face) ...`.
///
/// It shares the arrays that the topology had when it was asked, so it outlives the topology and
/// later changes do not show. A face with a negative count, or whose run would pass the end of the
/// indices, is an empty run; there is one face for each count nevertheless. The indices themselves
/// are as stored: whether they name points is for the caller to check.
class VELA_API MeshTopology::Faces {
 public:
  /// One face: its point indices, in its own winding. Valid as long as the Faces it came from.
  class Face {
   public:
    Face() = default;
    Face(std::size_t index, std::size_t firstVertex, const std::int32_t* first, std::size_t size)
        : first_(first), size_(size), index_(index), firstVertex_(firstVertex) {}

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] const std::int32_t* begin() const { return first_; }
    [[nodiscard]] const std::int32_t* end() const { return first_ + size_; }
    /// \p corner lies in [0, size()).
    [[nodiscard]] std::int32_t operator[](std::size_t corner) const { return first_[corner]; }
    /// The number of the face, and of its first face-vertex.
    [[nodiscard]] std::size_t index() const { return index_; }
    [[nodiscard]] std::size_t firstVertex() const { return firstVertex_; }

   private:
    const std::int32_t* first_ = nullptr;
    std::size_t size_ = 0, index_ = 0, firstVertex_ = 0;
  };

  class VELA_API iterator {
   public:
    using iterator_category =
        std::input_iterator_tag;  // faces are made on the fly; passes may be repeated
    using value_type = Face;
    using difference_type = std::ptrdiff_t;
    using pointer = const Face*;
    using reference = Face;

    iterator() = default;
    [[nodiscard]] Face operator*() const;
    iterator& operator++();
    iterator operator++(int) {
      iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const iterator& a, const iterator& b) { return a.face_ == b.face_; }
    friend bool operator!=(const iterator& a, const iterator& b) { return !(a == b); }

   private:
    friend class Faces;
    iterator(const Faces* faces, std::size_t face) : faces_(faces), face_(face) {}
    const Faces* faces_ = nullptr;
    std::size_t face_ = 0, vertex_ = 0;
  };

  Faces() = default;
  [[nodiscard]] std::size_t size() const { return counts_.size(); }
  [[nodiscard]] bool empty() const { return counts_.empty(); }
  [[nodiscard]] iterator begin() const { return iterator(this, 0); }
  [[nodiscard]] iterator end() const { return iterator(this, size()); }
  /// The face of that number, in [0, size()): a scan over the counts before it; loops iterate
  /// instead.
  [[nodiscard]] Face operator[](std::size_t face) const;

 private:
  friend class MeshTopology;
  Faces(const ovo::Array<std::int32_t>& counts, const ovo::Array<std::int32_t>& indices)
      : counts_(counts), indices_(indices) {}
  ovo::Array<std::int32_t> counts_, indices_;
};

/// The edges of a mesh, each once, sorted by their smaller and then by their larger point. Sides
/// that join a point to itself, or name no point of the mesh, are no edges. A face of two vertices
/// has one edge, on which it counts once.
class VELA_API MeshTopology::Edges {
 public:
  struct Edge {
    std::int32_t a = 0, b = 0;  ///< points, a < b
    std::int32_t faceCount =
        0;  ///< face sides along it: 1 on a border, 2 inside a manifold surface

    friend bool operator==(const Edge& l, const Edge& r) {
      return l.a == r.a && l.b == r.b && l.faceCount == r.faceCount;
    }
    friend bool operator!=(const Edge& l, const Edge& r) { return !(l == r); }
  };
  using const_iterator = std::vector<Edge>::const_iterator;
  using iterator = const_iterator;

  Edges() = default;
  [[nodiscard]] std::size_t size() const { return edges_.size(); }
  [[nodiscard]] bool empty() const { return edges_.empty(); }
  [[nodiscard]] const_iterator begin() const { return edges_.begin(); }
  [[nodiscard]] const_iterator end() const { return edges_.end(); }
  /// \p edge lies in [0, size()).
  [[nodiscard]] const Edge& operator[](std::size_t edge) const { return edges_[edge]; }

 private:
  friend class MeshTopology;
  std::vector<Edge> edges_;
};

}  // namespace vela
