/// \file
/// A long list of triangles in one cell of a grid, searched without testing all of them, with the
/// bits of the test of all.
///
/// The single-precision triangle test accepts more than the triangle: how far off a hit may lie
/// grows as the ray turns into the triangle's plane. Two searches together find whatever the test
/// could accept, and each candidate runs the test itself, so the answer is that of the whole list:
/// - A ray that crosses a triangle's plane at an angle finds it by a tree of boxes. Each box is
///   grown by what rounding reaches at that angle.
/// - A ray that lies almost in the plane finds it by a tree of planes. A plane x_k = a x_i + b x_j
/// +
///   c is the point (a, b, c); the planes that hold a given line, up to a tolerance, are those
///   between two pairs of planes of that dual space.
/// The derivation of the growth and of the tolerances stands in CrowdedList.cpp.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/Ray.h"
#include "tarn/Span.h"
#include "tarn/Vec.h"
#include "vela/intersect/detail/TriangleBlocks.h"

namespace vela::detail {

/// A child of a node: a node of the same tree, a block of triangles (kBlockBit) or nothing.
using CrowdChild = std::uint32_t;
constexpr CrowdChild kBlockBit = 0x80000000u, kNoChild = 0xffffffffu;

/// Eight boxes of triangles. Those without a child have kNoChild.
struct alignas(32) BoxNode {
  float bounds[2][3][8];            ///< low and high ends by axis, not grown
  float growth[8];                  ///< the largest growth of a triangle in the box
  std::uint32_t firstPrimitive[8];  ///< the least in the box
  CrowdChild child[8];
};

/// Eight boxes of planes as dual points (a, b, c). Those without a child have a NaN centre.
struct alignas(32) PlaneNode {
  float centre[3][8], half[3][8];
  std::uint32_t firstPrimitive[8];
  CrowdChild child[8];  ///< with kBlockBit: a PlaneLeaf
};

/// Eight planes of triangles, each with the block that its triangle stands in. Those without a
/// triangle are NaN.
struct alignas(32) PlaneLeaf {
  float plane[3][8];
  std::uint32_t block[8];
};

/// The planes whose normal's largest component is the one along `axis`.
struct PlaneTree {
  std::vector<PlaneNode> nodes;  ///< the root first; none without planes
  std::vector<PlaneLeaf> leaves;
  std::size_t axis = 0;
};

/// What a search needs of a ray; see CrowdedList.cpp.
struct CrowdedRay {
  float inverse[3] = {};        ///< of the direction, whose components are not too small to invert
  float growthFactor = 1.0f;    ///< of the boxes' growth
  float along[3] = {};          ///< unit direction
  float nearest[3] = {};        ///< the point of the line that is nearest to the centre, from there
  float slopeTolerance = 0.0f;  ///< of |d_k - a d_i - b d_j|
  float planeTolerance = 0.0f;  ///< of |p_k - a p_i - b p_j - c|
  float rounding = 0.0f;        ///< of sums of such terms
};

/// The list, made once. Threads: const calls may run from any number of threads at once; they
/// allocate nothing and take some 6 KB of stack.
class CrowdedList {
 public:
  /// Null when the list cannot be searched: numbers that are not finite or beyond 1e8, or too many
  /// triangles of a shape or size that every ray would have to test.
  /// \param triangles in increasing order of their primitives
  static std::unique_ptr<CrowdedList> make(tarn::Span<const ListedTriangle> triangles);

  /// As TestTriangleBlocks over blocks of all triangles in their order: the least distance and, of
  /// equal ones, the least primitive; with \p nearest false the least primitive that counts.
  bool intersect(const tarn::Ray3f& ray, bool nearest, float& best, BlockHit& hit) const;

  /// Whether the trees answer for the ray; otherwise all triangles are tested.
  [[nodiscard]] bool isSearchedFor(const tarn::Ray3f& ray) const;
  [[nodiscard]] std::size_t memoryUsage() const;

  // For the search, which is compiled for each instruction set.

  std::vector<TriangleBlock> blocks;  ///< lanes in increasing order of primitives
  std::size_t alwaysTested = 0;       ///< as many blocks at the end are tested for every ray
  std::vector<BoxNode> boxes;         ///< the root first
  std::array<PlaneTree, 3> planes;

 private:
  [[nodiscard]] bool prepare(const tarn::Ray3f& ray, CrowdedRay& out) const;

  tarn::Vec3d centre_;          // of the content's box
  double radius_ = 0.0;         // of the content about the centre
  double longestEdge_ = 0.0;    // of e1 and e2, the blocks that are always tested left out
  double growthUnit_ = 0.0;     // eta
  double largestGrowth_ = 0.0;  // of a triangle in the trees
};

}  // namespace vela::detail
