/// \file
/// The third step of refinement: the last level, made in parts.
///
/// OpenSubdiv's tables take several times the memory of the mesh itself, and three quarters of all
/// faces are those of the last level. So it is made in parts: some faces with all that touch them,
/// which is as far as one refinement looks.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "ovo/detail/SubdivideFaces.h"
#include "ovo/detail/SubdivideMesh.h"

namespace ovo::detail::subdivision {

/// The level before the last, with what its parts are cut by and its refined points are counted by.
struct LastLevel {
  LastLevel(const Level& level, bool triangles);

  const Level& level;
  bool triangles;  ///< loop: faces and their children are triangles
  PointCorners around;
  std::vector<int> firstOf, faceOfCorner;  ///< the first corner of a face; the face of a corner
  std::vector<int> edgeOfCorner;           ///< the edge from a corner to the next of its face
  /// Refined points: one for each point, then one for each edge, then (not under loop) one for each
  /// face.
  std::size_t firstEdge, firstFace, pointCount;
  std::size_t faceCount, faceSize;  ///< refined faces, and the corners of each
};

/// Gives the few points, or values, of a part indices of their own.
class Renumbering {
 public:
  explicit Renumbering(std::size_t size) : localOf_(size, -1) {}

  /// The local index of a global one, a new one where it has none yet.
  int add(int global) {
    int& local = localOf_[at(global)];
    if (local < 0) {
      local = static_cast<int>(globalOf_.size());
      globalOf_.push_back(global);
    }
    return local;
  }
  /// Local indices in the order of the list, which names none twice.
  void set(std::vector<int>&& globals) {
    globalOf_ = std::move(globals);
    for (std::size_t i = 0; i < globalOf_.size(); ++i)
      localOf_[at(globalOf_[i])] = static_cast<int>(i);
  }
  /// Forgets all, for the next part.
  void clear() {
    for (const int g : globalOf_) localOf_[at(g)] = -1;
    globalOf_.clear();
  }
  [[nodiscard]] int operator[](int global) const { return localOf_[at(global)]; }
  [[nodiscard]] const std::vector<int>& globalOf() const { return globalOf_; }

 private:
  std::vector<int> localOf_;  // -1 for all that the part does not have
  std::vector<int> globalOf_;
};

/// Some faces of the mesh, and all that touch them, as a mesh of their own.
struct Part {
  explicit Part(const Level& level);

  std::size_t begin = 0, end = 0;  ///< its own faces, by the mesh's indices
  std::vector<int> faces;          ///< these and those around them, ascending
  Renumbering points;
  std::vector<Renumbering> values;  ///< by channel
  Level level;
};

/// Refines once. \return false where OpenSubdiv refuses a part
bool refineParts(Sdc::SchemeType scheme, const Sdc::Options& options, const LastLevel& mesh,
                 std::vector<PointData>& perPoint, CornerDataList& perCorner, FaceWriter& out);

}  // namespace ovo::detail::subdivision
