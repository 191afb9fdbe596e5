/// \file
/// Rays against placed meshes and tubes, for pictures: the true nearest surface, without cracks, at
/// any scale.
///
/// When to use which: a host that must find what `HitDetector` finds (the first occupied cell's
/// hit, small triangles refused) asks that one; whoever draws, measures or lights asks the tracer.
///
/// \code
///   // A square of two units a side, seen from above, and the same one ten units to the right.
///   vela::SceneTracer tracer;
///   const std::uint32_t square =
///       tracer.addMesh({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, {4}, {0, 1, 2, 3});
///   tarn::Mat4d right;
///   right.translate({10.0, 0.0, 0.0});
///   tracer.addPlacement(square, tarn::Mat4d());
///   tracer.addPlacement(square, right);
///   tracer.build();
///
///   vela::TracerHit hit;
///   const tarn::Ray3f down({10.25f, 0.5f, 5.0f}, {0, 0, -1});
///   assert(tracer.intersect(down, hit) && hit.distance == 5.0 && hit.placement == 1);
///   assert(!tracer.occluded(tarn::Ray3f({3, 0, 5}, {0, 0, -1})));
///
///   // Many rays at once are faster than one at a time. Rays of doubles work the same.
///   const std::vector<tarn::Ray3d> rays(100, {{0.0, 0.0, 5.0}, {0.0, 0.0, -2.0}});
///   std::vector<vela::TracerHit> hits(rays.size());
///   tracer.intersect(rays, hits);
///   assert(hits[99].hit && hits[99].distance == 2.5 && hits[99].face == 0);
///
///   // A tube that narrows to half, and a ball of radius 1.
///   vela::SceneTracer rounds;
///   rounds.addPlacement(
///       rounds.addTubes({{0, 0, 0}, {4, 0, 0}, {9, 0, 0}}, {0.5f, 0.25f, 1.0f}, {2, 1}),
///       tarn::Mat4d());
///   rounds.build();
///   assert(rounds.intersect(tarn::Ray3f({9, 0, 5}, {0, 0, -1}), hit));
///   assert(hit.distance == 4.0 && hit.face == 1);
///   assert(rounds.intersect(tarn::Ray3f({2, 0, 5}, {0, 0, -1}), hit));
///   assert(hit.face == 0 && hit.points[1] == 1 && hit.normal.z > 0.99f);
/// \endcode
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

#include "ovo/Array.h"
#include "tarn/Box3.h"
#include "tarn/Mat4.h"
#include "tarn/Ray.h"
#include "tarn/Span.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace ovo {
class MeshPrim;
}

namespace vela {

/// What a ray met. On a miss every field but `hit` has its default.
struct TracerHit {
  /// In units of the caller's direction, before any rounding to float: hits are ordered by this
  /// number.
  double distance = std::numeric_limits<double>::max();
  /// origin + distance * direction, computed in double and narrowed once.
  tarn::Vec3f position;
  /// World space, unit length, (b - a) x (c - a) of the face's stored winding through the inverse
  /// transpose of the placement. It is not turned towards the ray.
  tarn::Vec3f normal;
  std::uint32_t placement = 0;  ///< as addPlacement numbered it
  /// Index into the mesh's face counts, skipped faces counted; of tubes the tube's index. What
  /// stands below of triangles holds for a tube's piece with b = c, the two points that it joins (a
  /// ball's are all one), and v = 0: (1 - u) a + u b is the value at the point of the tube's middle
  /// line to which the surface belongs. Its normal points out.
  std::int32_t face = 0;
  /// Of the triangle that was cut from the face: point indices of its corners a, b, c ...
  std::int32_t points[3] = {0, 0, 0};
  /// ... and their positions in the array of face vertex indices, for data given per face-vertex.
  std::int32_t faceVertices[3] = {0, 0, 0};
  /// Barycentrics: a value that varies over the triangle is (1 - u - v) a + u b + v c. In [0, 1], u
  /// + v <= 1 up to rounding. @{
  float u = 0.0f, v = 0.0f;
  /// @}
  bool hit = false;  ///< false: nothing was met
};

/// Placed meshes with a tree over the placements and one over each mesh.
///
/// Use: add meshes and placements, build(), ask. What is added after a build is seen after the next
/// one, which builds trees for the new meshes only.
///
/// Which hit: the least distance; among equal distances the lowest placement, then the lowest face,
/// then the first triangle of its cut. Every answer is bit for bit that of a plain loop over
/// placements and triangles, whatever the trees, the processor's instructions and the number of
/// threads.
///
/// Which range: [minDistance, maxDistance], closed at both ends. The distance is rounded to float
/// before it is compared, so that the same ray with maxDistance = float(hit.distance) finds the hit
/// again. A negative minDistance looks behind the origin. A ray that has a NaN, an infinite origin
/// or direction or a direction of length zero misses.
///
/// Tubes: a tube is a chain of pieces, each the hull of the balls about its two points. What can be
/// hit is the surface of the chain, from outside and from inside: where a ray enters or leaves a
/// piece, unless it is inside the piece before or after it there. Pieces that are no neighbours
/// stand by themselves. In the order of hits a tube is a face and a piece a triangle.
///
/// Watertight: neighbouring triangles of one placement share each edge exactly, so no ray slips
/// between them, at an edge or a vertex, seen in any direction and under any matrix. Neighbours in
/// a tube share a ball. Two-sided. No
/// epsilons: meshes and placements from 1e-30 to 1e30 units give the same picture. Accuracy: a hit
/// lies within about 1e-5 of its mesh's size of the true one, most often within 1e-7; nearby
/// surfaces count from the ray's origin, those of a mesh far away as if seen from its border.
///
/// Threads: const calls may run from any number of threads at once and allocate nothing; one over a
/// span of rays takes some 90 KB of its thread's stack. Spans of 32 rays and more are faster than
/// single calls, the more so the less the rays have in common. Changes
/// need the caller's lock. Sources: Woop, Benthin and Wald, Watertight Ray/Triangle Intersection,
/// JCGT 2(1), 2013; Ize, Robust BVH Ray Traversal, JCGT 2(2), 2013; Wald, On fast Construction of
/// SAH-based Bounding Volume Hierarchies, RT 2007; Wald, Benthin and Boulos, Getting Rid of
/// Packets, RT 2008 (wide nodes).
class VELA_API SceneTracer {
 public:
  /// Without meshes and placements: nothing is hit.
  SceneTracer();
  ~SceneTracer();
  /// Takes all over. One that was moved from may only be destroyed or assigned to. @{
  SceneTracer(SceneTracer&&) noexcept;
  SceneTracer& operator=(SceneTracer&&) noexcept;
  /// @}
  SceneTracer(const SceneTracer&) = delete;
  SceneTracer& operator=(const SceneTracer&) = delete;

  // Filling

  /// Adds a mesh, or finds the equal one (same bits in all three arrays) that is there already.
  ///
  /// \param points            positions in the mesh's own space
  /// \param faceVertexCounts  corners of each face
  /// \param faceVertexIndices point indices, face after face
  /// \return the mesh's number, for addPlacement. The arrays are shared, not copied
  ///
  /// Faces that cannot be used are never hit and keep their number: fewer than three corners (a
  /// negative count takes no indices), an index out of range, a point that is not finite, no area,
  /// or an index array that ends before the face does. Larger faces are cut by
  /// `triangulatePolygon`.
  std::uint32_t addMesh(const ovo::Array<tarn::Vec3f>& points,
                        const ovo::Array<int>& faceVertexCounts,
                        const ovo::Array<int>& faceVertexIndices);
  /// Adds the points and faces that the prim has at that time; a prim without them is a mesh
  /// without faces.
  std::uint32_t addMesh(const ovo::MeshPrim& prim, double time = tarn::defaultTimeValue());

  /// Adds tubes, or finds equal ones. They are a mesh like any other: placed, numbered and asked in
  /// the same calls.
  ///
  /// \param points centres, tube after tube
  /// \param radii  one a point
  /// \param counts points of each tube. One point is a ball. A tube of four points and more whose
  ///               last point and radius equal the first is closed: its two ends are neighbours
  /// \return the mesh's number, for addPlacement. The arrays are shared, not copied
  ///
  /// A negative count takes no points. A tube whose points the arrays do not hold is never hit, nor
  /// are those after it. Neither is a piece with a point that is not finite, with a negative or NaN
  /// radius, beyond 3e38, or with a radius of 0 at both ends. What is never hit keeps its number.
  std::uint32_t addTubes(const ovo::Array<tarn::Vec3f>& points, const ovo::Array<float>& radii,
                         const ovo::Array<int>& counts);

  /// Places a mesh.
  ///
  /// \param mesh           of addMesh or addTubes; any other number makes a placement that is never
  ///                       hit
  /// \param worldFromLocal its last row is taken as (0, 0, 0, 1). Nothing is hit through a singular
  ///                       or non-finite matrix
  /// \return the placement's number: 0, 1, 2 ...
  std::uint32_t addPlacement(std::uint32_t mesh, const tarn::Mat4d& worldFromLocal);

  /// A tracer of the same meshes, by the same numbers, without placements: for the same scene at
  /// another moment. Both read one copy of the meshes and their trees until one of them is given or
  /// builds a mesh that the other does not have; that one copies them first.
  [[nodiscard]] SceneTracer withoutPlacements() const;

  /// Makes room for that many placements in all.
  void reservePlacements(std::size_t count);

  /// Builds the trees: n log n in the triangles of new meshes and in all placements.
  void build();
  /// The same, unless \p isStopped says true: it is asked before each mesh and before the
  /// placements. \return false when stopped; placements answer as after the build before, and the
  /// next build goes on with the meshes that are left
  bool build(const std::function<bool()>& isStopped);

  // Asking

  /// The nearest hit. \return hit.hit
  bool intersect(const tarn::Ray3f& ray, TracerHit& hit) const;
  /// One record a ray; \p hits has room for \p count.
  void intersect(const tarn::Ray3f* rays, std::size_t count, TracerHit* hits) const;
  /// The nearest hit on one placement, as if there were no other; what is no placement yet is never
  /// hit.
  bool intersectPlacement(std::uint32_t placement, const tarn::Ray3f& ray, TracerHit& hit) const;
  /// True when anything lies in the ray's range.
  [[nodiscard]] bool occluded(const tarn::Ray3f& ray) const;
  /// One answer a ray; \p occluded has room for \p count.
  void occluded(const tarn::Ray3f* rays, std::size_t count, bool* occluded) const;

  /// Over spans, rays of doubles too. Where the two differ in length the shorter one counts. @{
  void intersect(tarn::Span<const tarn::Ray3f> rays, tarn::Span<TracerHit> hits) const {
    intersect(rays.data(), std::min(rays.size(), hits.size()), hits.data());
  }
  void intersect(tarn::Span<const tarn::Ray3d> rays, tarn::Span<TracerHit> hits) const {
    intersect(rays.data(), std::min(rays.size(), hits.size()), hits.data());
  }
  void occluded(tarn::Span<const tarn::Ray3f> rays, tarn::Span<bool> answers) const {
    occluded(rays.data(), std::min(rays.size(), answers.size()), answers.data());
  }
  void occluded(tarn::Span<const tarn::Ray3d> rays, tarn::Span<bool> answers) const {
    occluded(rays.data(), std::min(rays.size(), answers.size()), answers.data());
  }
  /// @}

  /// The same for Ray3d: the origin, the direction and the range are used as they are, so a
  /// scene far from the world's origin need not be moved there first.
  ///
  /// All that is said above holds, the plain loop and the thread rules included, with two
  /// differences. The range is compared with the distance itself, not with the distance rounded to
  /// float, so the same ray with maxDistance = hit.distance finds the hit again. A ray with an
  /// origin or a direction beyond 1e150, or with no component of the direction of 1e-150 or more,
  /// misses.
  ///
  /// A ray whose numbers are all floats gets the same record from either form, bit for bit, unless
  /// the rounding of the distance decides whether it lies in the range.
  ///
  /// hit.position is narrowed to float. Where that is too coarse, take
  /// ray.origin + ray.direction * hit.distance in double.
  ///
  /// Moving placements and rays by the same vector first, as with Ray3f, gives the same hits up
  /// to roundings of the double matrices, but not the same bits.
  ///
  /// Templates, so that calls with braces or null pointers go on meaning Ray3f; T is double. @{
  template <class T, class = std::enable_if_t<std::is_same_v<T, double>>>
  bool intersect(const tarn::Ray<T>& ray, TracerHit& hit) const;
  template <class T, class = std::enable_if_t<std::is_same_v<T, double>>>
  void intersect(const tarn::Ray<T>* rays, std::size_t count, TracerHit* hits) const;
  template <class T, class = std::enable_if_t<std::is_same_v<T, double>>>
  bool intersectPlacement(std::uint32_t placement, const tarn::Ray<T>& ray, TracerHit& hit) const;
  template <class T, class = std::enable_if_t<std::is_same_v<T, double>>>
  [[nodiscard]] bool occluded(const tarn::Ray<T>& ray) const;
  template <class T, class = std::enable_if_t<std::is_same_v<T, double>>>
  void occluded(const tarn::Ray<T>* rays, std::size_t count, bool* occluded) const;
  /// @}

  // What is there

  /// Meshes in all; equal ones count once.
  [[nodiscard]] std::size_t numMeshes() const;
  /// Placements in all, those that are never hit too.
  [[nodiscard]] std::size_t numPlacements() const;
  /// Triangles of one mesh as of the last build; 0 for a number that no mesh has, and for tubes.
  [[nodiscard]] std::size_t numTriangles(std::uint32_t mesh) const;
  /// Pieces of tubes that can be hit, balls included; 0 for other meshes.
  [[nodiscard]] std::size_t numPieces(std::uint32_t mesh) const;
  /// The mesh number that the placement was given; the largest number for a placement that is not
  /// there.
  [[nodiscard]] std::uint32_t placementMesh(std::uint32_t placement) const;
  /// World box of all that can be hit, a little generous; empty before the first build.
  [[nodiscard]] tarn::Box3f bounds() const;
  /// Bytes held for queries, the callers' shared arrays not counted.
  [[nodiscard]] std::size_t memoryUsage() const;

  /// The instructions that queries use. `best` looks at the processor; `plain` runs anywhere. The
  /// answers are the same: this is for tests and for measuring.
  enum class Kernel {
    best,   ///< the widest that the processor has
    plain,  ///< those that every processor has
  };
  /// Chooses them, for all calls that follow; `best` until then.
  void setKernel(Kernel kernel);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vela
