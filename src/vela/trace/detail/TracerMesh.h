/// \file
/// A mesh as rays see it: its triangles, in blocks of eight, and the tree over them. A mesh of
/// tubes has pieces in their place, each a leaf of its own.
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

/// A point of a tube in the mesh's scaled space, with the radius there.
struct Joint {
  float x, y, z, radius;
};
static_assert(sizeof(Joint) == 16);

/// A round cone between two joints; one joint twice is a ball.
struct Piece {
  std::uint32_t a, b;            ///< indices of joints, which are those of the points
  std::uint32_t previous, next;  ///< the pieces that share its ends; kNone where there is none
  std::int32_t tube;
};
static_assert(sizeof(Piece) == 20);

struct Mesh {
  ovo::Array<tarn::Vec3f> points;
  /// Of a mesh of tubes: the points of each tube, and no indices.
  ovo::Array<int> counts, indices;
  MeshFrame frame;
  std::size_t numTriangles = 0;
  /// By face, then in the order of the cut. Empty where each face is one triangle: the face and its
  /// corners then follow from the triangle's number, and a hit costs one fetch less.
  LargeVector<TriangleSource> sources;
  LargeVector<Node> nodes;
  LargeVector<Block> blocks;
  TreeLimits limits;
  bool isBuilt = false;

  // Of a mesh of tubes.
  bool isRound = false;
  ovo::Array<float> radii;  ///< one a point
  LargeVector<Piece> pieces;
  LargeVector<Joint> joints;

  [[nodiscard]] bool isEmpty() const { return numTriangles == 0 && pieces.empty(); }
  /// Checks the faces, cuts them into triangles and finds the frame; or does so with the tubes. No
  /// tree yet.
  void prepare();
  /// Builds the tree over the triangles or pieces.
  void build();
  [[nodiscard]] TriangleSource source(std::size_t triangle) const {
    if (!sources.empty()) return sources[triangle];
    const auto t = static_cast<std::int32_t>(triangle);
    return {t, {3 * t, 3 * t + 1, 3 * t + 2}};
  }
  /// Fetches what a hit's record will need of a triangle.
  void prefetchSource(std::uint32_t triangle) const {
    if (sources.empty())
      __builtin_prefetch(indices.cdata() + 3 * std::size_t{triangle});
    else
      __builtin_prefetch(&sources[triangle]);
  }

 private:
  [[nodiscard]] bool prepareTriangles();
  void prepareFaces();
  void prepareTubes();
  void buildTubes();
};

}  // namespace vela::tracer
