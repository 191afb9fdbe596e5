/// \file
/// Lists of triangles laid out so that eight are tested at once, with the bits of the single test.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tarn/Ray.h"
#include "tarn/Vec.h"

namespace vela::detail {

/// Eight triangles: first corner and the two edges from it, by component. A lane without a triangle
/// has edges of zero, whose determinant is never accepted.
struct alignas(32) TriangleBlock {
  float ax[8], ay[8], az[8];
  float e1x[8], e1y[8], e1z[8];
  float e2x[8], e2y[8], e2z[8];
  std::uint32_t primitive[8];
  std::int32_t face[8];
};
static_assert(sizeof(TriangleBlock) == 352);

/// A triangle as the blocks hold it.
struct ListedTriangle {
  tarn::Vec3f a, e1, e2;
  std::uint32_t primitive = 0;
  std::int32_t face = 0;
};

inline void storeTriangle(const ListedTriangle& t, TriangleBlock& block, std::size_t lane) {
  block.ax[lane] = t.a.x, block.ay[lane] = t.a.y, block.az[lane] = t.a.z;
  block.e1x[lane] = t.e1.x, block.e1y[lane] = t.e1.y, block.e1z[lane] = t.e1.z;
  block.e2x[lane] = t.e2.x, block.e2y[lane] = t.e2.y, block.e2z[lane] = t.e2.z;
  block.primitive[lane] = t.primitive;
  block.face[lane] = t.face;
}

/// A lane of a block.
struct BlockHit {
  const TriangleBlock* block = nullptr;
  std::size_t lane = 0;
};

/// Tests the triangles of a list in order.
///
/// \param nearest   true: the least distance, of equal ones the first; false: the first that counts
/// \param best      only distances below it and above the ray's minimum count; set to the distance
///                  found
/// \param found     set to where the triangle found stands
/// \return true when one was found; otherwise nothing is written
using TestTriangleBlocks = bool (*)(const TriangleBlock* first, const TriangleBlock* last,
                                    const tarn::Ray3f& ray, bool nearest, float& best,
                                    BlockHit& found);

/// The widest kernel that this processor runs.
TestTriangleBlocks bestTriangleBlockTest();

}  // namespace vela::detail
