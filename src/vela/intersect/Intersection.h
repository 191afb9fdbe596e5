/// \file
/// What a ray query wants, what it found, and the tests of one ray against one thing.
///
/// Holds for the whole file: directions need not have unit length, distances are multiples of them.
/// The winding of a triangle only turns the normal, but for the sided tests. Everything is a pure
/// function of its arguments: safe from several threads, no allocation but where said, nothing
/// throws but allocation. Every rounding and the spelling of every comparison are part of the
/// contract.
///
/// There are two families on purpose. `intersectTriangle` serves renderers that trace RayContexts:
/// partly in double, tolerances of one rounding step, barycentric coordinates out. `Intersect` is
/// what models and structures call: single precision, fixed tolerances, point and normal out.
/// Neither replaces the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <unordered_set>

#include "ovo/Array.h"
#include "ovo/Path.h"
#include "ovo/Token.h"
#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/camera/RayContext.h"

namespace vela {

/// What a query wants. Read-only to every query, so one context may serve several threads.
///
/// \code
///   const ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
///   const ovo::Array<int> counts = {4}, indices = {0, 1, 2, 3};
///   const tarn::Ray3f ray({0.5f, 0.25f, 3.0f}, {0.0f, 0.0f, -1.0f});
///
///   vela::IntersectionContext context;
///   vela::CollisionResult result;
///   const bool isHit = vela::Intersect(context, ray, points, counts, indices, result);
///   assert(isHit && result.distance == 3.0f && result.faceIndex == 0);
///   assert(result.position == tarn::Vec3f(0.5f, 0.25f, 0.0f));
///
///   // One triangle alone; a miss leaves the result as it was.
///   const tarn::Ray3f beside({2.0f, 2.0f, 3.0f}, {0.0f, 0.0f, -1.0f});
///   assert(!vela::Intersect(beside, points[0], points[1], points[2], result));
///   assert(result.distance == 3.0f);
/// \endcode
struct VELA_API IntersectionContext {
  /// True: the nearest hit. False: whichever hit is accepted first (shadows, visibility).
  bool nearestHit = true;
  /// Prims that are never hit, by path. Looked at by models of scene prims only.
  std::unordered_set<ovo::Path> excludedPaths = std::unordered_set<ovo::Path>(8);
  /// When not empty: only prims of these types can be hit. Looked at by models of scene prims only.
  std::unordered_set<ovo::Token> includedTypeNames = std::unordered_set<ovo::Token>(8);
};

/// What a query found.
struct CollisionResult {
  /// Ray parameter of the hit; the largest finite float while there is none.
  float distance = std::numeric_limits<float>::max();
  /// (b - a) x (c - a) of the triangle, not normalised; models of scene prims give a unit vector in
  /// world space.
  tarn::Vec3f normal;
  /// origin + distance * direction
  tarn::Vec3f position;
  /// Which primitive of the model; written by structures.
  std::uint32_t primitiveIndex = 0;
  /// Which face of the primitive or mesh; written by models and by the ray/mesh test.
  std::int32_t faceIndex = 0;
  bool hit = false;  ///< whether the rest holds a hit
};
static_assert(std::is_trivially_copyable_v<CollisionResult> && sizeof(CollisionResult) == 40);
static_assert(offsetof(CollisionResult, normal) == 4 && offsetof(CollisionResult, position) == 16 &&
              offsetof(CollisionResult, primitiveIndex) == 28 &&
              offsetof(CollisionResult, faceIndex) == 32 && offsetof(CollisionResult, hit) == 36);

/// Tests a ray against a triangle whose corners are given about a point in double precision.
///
/// \param meshOrigin what a, b and c are relative to, in the ray's space; narrowed before the ray's
///                   origin is moved by it
/// \param ray        origin, direction, range and, in the full forms, xDirection and yDirection are
///                   read
/// \param uv         on a hit: barycentric coordinates of b and c
/// \param uvDx,uvDy  on a hit: the same where the rays along xDirection and yDirection from the
///                   same origin meet the triangle's plane; infinite or NaN when they run along it
/// \param t          on a hit: the distance, in [minDistance, maxDistance], both ends closed
/// \return true on a hit; on a miss nothing is written. A degenerate triangle, or one seen from its
///         edge, is a miss
///
/// Numerics: u reaches from -2^-23 to 1 + 2^-23, v from -2^-23 on, u + v to 1 + 2^-22, so that no
/// hit is lost between neighbours. Comparisons are spelled so that a NaN distance or coordinate
/// does not reject. Source: Moeller and Trumbore, JGT 2(1), 1997.
VELA_API bool intersectTriangle(const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a,
                                const tarn::Vec3f& b, const tarn::Vec3f& c, const RayContext& ray,
                                tarn::Vec2f& uv, tarn::Vec2f& uvDx, tarn::Vec2f& uvDy, float& t);
/// The same without the neighbouring rays.
VELA_API bool intersectTriangle(const tarn::Vec3d& meshOrigin, const tarn::Vec3f& a,
                                const tarn::Vec3f& b, const tarn::Vec3f& c, const RayContext& ray,
                                tarn::Vec2f& uv, float& t);

/// As intersectTriangle, but for one side of the triangle.
///
/// \param frontSide true: only rays that meet the side that (b - a) x (c - a) points away from;
///                  false: only the other side
VELA_API bool intersectTriangleSided(bool frontSide, const tarn::Vec3d& meshOrigin,
                                     const tarn::Vec3f& a, const tarn::Vec3f& b,
                                     const tarn::Vec3f& c, const RayContext& ray, tarn::Vec2f& uv,
                                     tarn::Vec2f& uvDx, tarn::Vec2f& uvDy, float& t);
/// The same without the neighbouring rays.
VELA_API bool intersectTriangleSided(bool frontSide, const tarn::Vec3d& meshOrigin,
                                     const tarn::Vec3f& a, const tarn::Vec3f& b,
                                     const tarn::Vec3f& c, const RayContext& ray, tarn::Vec2f& uv,
                                     float& t);

/// Tests a ray against a box.
///
/// \param tNear,tFar on a hit: the part of [minDistance, maxDistance] that lies in the box; on a
///                   miss untouched
/// \return true on a hit. Faces belong to the box; an empty box is missed by every ray
///
/// Numerics: single precision; an axis along which the direction is under 1e-6 counts as parallel.
/// Source: Kay and Kajiya, SIGGRAPH 1986.
VELA_API bool Intersect(const tarn::Ray3f& ray, const tarn::Box3f& box, float& tNear, float& tFar);

/// Tests a ray against one two-sided triangle.
///
/// \param a, b, c corners, in the ray's space
/// \param result  on a hit: distance, position, hit, and normal = (b - a) x (c - a), not
///                normalised; primitiveIndex and faceIndex are the caller's. On a miss: untouched
/// \return true on a hit; a triangle with |det| < 1e-10 (degenerate, small, or seen from its edge)
///         is a miss, and so is NaN
///
/// Numerics: single precision; edges are closed (u, v and u + v in [0, 1]); the range reaches 1e-5
/// past both ends. Not promised: a hit nearer than result.distance. Callers keep the nearest.
/// Source: Moeller and Trumbore, JGT 2(1), 1997.
VELA_API bool Intersect(const tarn::Ray3f& ray, const tarn::Vec3f& a, const tarn::Vec3f& b,
                        const tarn::Vec3f& c, CollisionResult& result);

/// Tests a ray against a polygon mesh, face by face, without any structure.
///
/// \param ctx     nearestHit: true for the nearest face, false for the first in face order; nothing
///                else is read
/// \param counts  corners of each face, `(faces)`
/// \param indices the faces' point indices, one face after the other
/// \param result  on a hit: all fields, primitiveIndex 0. On a miss: untouched
/// \return true on a hit: distance strictly inside (minDistance, maxDistance)
///
/// A quad is (0 1 2) and, only when that is missed, (2 3 0). Larger faces are cut by Triangulate,
/// and of the triangles hit the last counts, not the nearest. Faces of fewer than three corners,
/// with an index outside `points` or a NaN corner, or reaching past the end of `indices` are
/// skipped; the faces after them keep their numbers and corners (a negative count takes no
/// indices).
/// Allocates only for faces of more than four corners.
VELA_API bool Intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                        const ovo::Array<tarn::Vec3f>& points, const ovo::Array<int>& counts,
                        const ovo::Array<int>& indices, CollisionResult& result);

}  // namespace vela
