/// \file
/// The last step of refinement: the refined faces of each part, written to the arrays that come
/// out.
#pragma once

#include <cstddef>
#include <vector>

#include "ovo/detail/SubdivideMesh.h"

namespace ovo::detail::subdivision {

struct Part;
struct LastLevel;

class FaceWriter {
 public:
  /// Makes the arrays that come out, at the size that they have without holes.
  FaceWriter(const LastLevel& mesh, std::vector<PointData>& perPoint, CornerDataList& perCorner);

  /// Writes the faces that come from the part's own faces, whose data is refined.
  void write(const Part& part, const Far::TopologyRefiner& refiner);
  /// Leaves out the room of holes, and the points that no face uses.
  void finish();

  Array<int> counts, indices, sourceFaces;
  /// The new index of each point, or -1, where some were left out; else empty.
  std::vector<int> kept;

 private:
  const LastLevel& mesh_;
  std::vector<PointData>& perPoint_;
  CornerDataList& perCorner_;
  int* outIndices_ = nullptr;
  int* outSources_ = nullptr;
  std::vector<int> globalOf_;  // by the part's refined points: the index that comes out
  std::size_t written_ = 0;    // corners so far
  bool hasHoles_ = false;
};

}  // namespace ovo::detail::subdivision
