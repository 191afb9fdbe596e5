/// \file
/// A mesh as rays see it: its triangles, in blocks of eight, and the tree over them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ovo/Array.h"
#include "tarn/Vec.h"
#include "vela/trace/detail/TracerMath.h"
#include "vela/trace/detail/TracerMemory.h"
#include "vela/trace/detail/WideTree.h"

namespace vela::tracer {

/// Up to eight triangles in the mesh's scaled space, by corner and axis. Unused lanes hold NaN,
/// which no ray crosses, and kNone.
struct alignas(32) Block {
  float corner[3][3][kWidth];
  std::uint32_t triangle[kWidth];
};
static_assert(sizeof(Block) == 320);

/// What a hit needs to know of a triangle beside its corners.
struct TriangleSource {
  std::int32_t face;
  std::int32_t faceVertex[3];  ///< positions in the array of face vertex indices
};

struct Mesh {
  ovo::Array<tarn::Vec3<float>> points;
  ovo::Array<int> counts, indices;
  MeshFrame frame;
  LargeVector<TriangleSource> triangles;  ///< by face, then in the order of the cut
  LargeVector<Node> nodes;
  LargeVector<Block> blocks;
  TreeLimits limits;
  bool isBuilt = false;

  /// Checks the faces, cuts them into triangles and finds the frame; no tree yet.
  void prepare();
  /// Builds the tree over the triangles.
  void build();
  /// Fetches what a hit's record will need of a triangle.
  void prefetchSource(std::uint32_t triangle) const { __builtin_prefetch(&triangles[triangle]); }
  /// A triangle's corner as the caller gave it.
  [[nodiscard]] tarn::Vec3<float> corner(std::size_t triangle, std::size_t corner) const;
};

}  // namespace vela::tracer
