/// \file
/// One polygon of a mesh cut into triangles.
///
/// Holds for both functions:
/// \param points     positions; every `indices[k]` must be a valid index into them (not checked)
/// \param indices    the polygon's point indices, `(count)`, in winding order; the last corner
///                   joins the first
/// \param count      number of corners; below 3, negative included, the result is empty
/// \param triangles  replaced by triples of *corner positions* 0 .. count - 1 (a corner k is the
///                   point `indices[k]`), in the polygon's own winding: previous corner, cut
///                   corner, next corner
///
/// Nothing is shared between calls: safe from several threads. Nothing throws but allocation.
#pragma once

#include <vector>

#include "tarn/Span.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

/// Ear clipping in single precision with an absolute tolerance: the cut that acceleration models
/// and the ray/mesh test are bound to. For pictures use triangulatePolygon.
///
/// Three corners give 0 1 2 and four give 0 1 2 0 2 3, whatever their shape. More are projected to
/// the plane of their Newell normal and clipped from corner 0 on. A straight corner counts as
/// convex. A corner blocks an ear only by more than 0.0001, measured on products of two cross
/// products, the fourth power of a length: small concave polygons are cut wrongly.
///
/// A polygon without an ear left (self-intersecting, degenerate or with a NaN) keeps the triangles
/// cut so far: there may be fewer than count - 2. Not promised: that the triangles add up to the
/// polygon.
VELA_API void Triangulate(const tarn::Vec3f* points, const int* indices, int count,
                          std::vector<int>& triangles);

/// Cuts a polygon for pictures: at any size, always into count - 2 triangles.
///
/// The polygon is seen along the axis in which it is widest (the largest component of its Newell
/// normal), so the coordinates stay the given floats, and every decision is the exact sign of an
/// area of three of them: there is no tolerance. Seen so:
/// - a simple polygon is covered once by its triangles, and none of them is turned over. Simple in
///   this sense are also concave and straight corners, corners that coincide, corners on edges,
///   holes that a pair of coinciding edges joins to the outline, and spikes of no width. Triangles
///   without area come only where the polygon has nothing else left to cut;
/// - a polygon that crosses itself is cut all the same. The signed areas of its triangles add up to
///   its own; some may overlap or be turned over;
/// - the answer does not change when all coordinates are multiplied by a power of two.
///
/// A polygon with a NaN or an infinity is cut as a fan from corner 0.
///
/// \code
///   const std::vector<tarn::Vec3f> points = {{0, 0, 0}, {4, 0, 0}, {1, 1, 0}, {0, 4, 0}};
///   const std::vector<int> arrow = {0, 1, 2, 3};  // concave at corner 2
///   std::vector<int> triangles;
///   vela::triangulatePolygon(points, arrow, triangles);
///   assert(triangles == std::vector<int>({0, 1, 2, 0, 2, 3}));
/// \endcode
///
/// Time is about n log n for ordinary outlines of n corners and quadratic at worst while the
/// polygon is simple. Sources: Meisters, Polygons Have Ears, AMM 82(6), 1975; Shewchuk, Adaptive
/// Precision Floating-Point Arithmetic, DCG 18(3), 1997 (signs); the search of blockers along a
/// Z-order curve follows Held, FIST, Algorithmica 30, 2001, in spirit.
VELA_API void triangulatePolygon(const tarn::Vec3f* points, const int* indices, int count,
                                 std::vector<int>& triangles);
/// As above; \p corners has at most as many as an int counts.
inline void triangulatePolygon(tarn::Span<const tarn::Vec3f> points, tarn::Span<const int> corners,
                               std::vector<int>& triangles) {
  triangulatePolygon(points.data(), corners.data(), static_cast<int>(corners.size()), triangles);
}

}  // namespace vela
