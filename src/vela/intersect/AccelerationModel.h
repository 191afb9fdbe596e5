/// \file
/// What acceleration structures are built over: lists of primitives with boxes.
///
/// Holds for the whole file: a model is filled once and then queried; what is added after a
/// structure was built does not reach that structure. Const calls are safe from several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Array.h"
#include "ovo/Fwd.h"
#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/intersect/Intersection.h"

namespace vela {

class GridAcceleration;
class PrimAccelerationModelImpl;

/// A list of primitives with boxes. Derive from it to put primitives of your own into a structure.
///
/// \code
///   // Balls of radius 1 along the x axis.
///   class Balls : public vela::AccelerationModel {
///    public:
///     std::size_t size() const override { return 3; }
///     tarn::Box3f bounds(std::size_t i) const override {
///       const tarn::Vec3f centre(4.0f * static_cast<float>(i), 0.0f, 0.0f);
///       return {centre - tarn::Vec3f(1.0f), centre + tarn::Vec3f(1.0f)};
///     }
///     tarn::Box3f bounds() const override {
///       return {tarn::Vec3f(-1.0f), tarn::Vec3f(9.0f, 1.0f, 1.0f)};
///     }
///     bool exclude(const vela::IntersectionContext&, std::size_t) const override { return false; }
///     bool intersect(const vela::IntersectionContext&, const tarn::Ray3f& ray, std::size_t i,
///                    vela::CollisionResult& result) const override {
///       const tarn::Vec3f to = bounds(i).center() - ray.origin;
///       const float along = dot(to, ray.direction);  // of unit length here
///       const float square = 1.0f - (dot(to, to) - along * along);
///       if (!(square >= 0.0f)) return false;
///       const float distance = along - std::sqrt(square);
///       if (!(distance > ray.minDistance && distance < ray.maxDistance)) return false;
///       result.distance = distance;
///       result.position = ray.origin + ray.direction * distance;
///       result.normal = result.position - bounds(i).center();
///       result.faceIndex = 0;
///       result.hit = true;
///       return true;
///     }
///   };
///   const Balls balls;
///   const vela::BvhAcceleration tree(balls, true);
///   vela::CollisionResult result;
///   const bool isHit = tree.intersect({}, {{20, 0, 0}, {-1, 0, 0}}, result);
///   assert(isHit && result.primitiveIndex == 2 && result.distance == 11.0f);
/// \endcode
class VELA_API AccelerationModel {
 public:
  AccelerationModel() = default;
  AccelerationModel(const AccelerationModel&) = default;
  AccelerationModel& operator=(const AccelerationModel&) = default;
  virtual ~AccelerationModel();

  /// Number of primitives. Indices below are 0 to size() - 1 and not checked.
  [[nodiscard]] virtual std::size_t size() const = 0;
  /// Box of one primitive; may be empty.
  [[nodiscard]] virtual tarn::Box3f bounds(std::size_t i) const = 0;
  /// Box of all primitives.
  [[nodiscard]] virtual tarn::Box3f bounds() const = 0;
  /// Tests one primitive.
  ///
  /// \param result on a hit: distance, normal, position, faceIndex and hit at least. On a miss:
  ///               untouched
  /// \return true on a hit, which need not be nearer than what `result` holds
  virtual bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray, std::size_t i,
                         CollisionResult& result) const = 0;
  /// True when the context rules the primitive out.
  [[nodiscard]] virtual bool exclude(const IntersectionContext& ctx, std::size_t i) const = 0;
};

/// The triangles of one polygon mesh, in the order of its faces.
///
/// A quad 0 1 2 3 gives (0 1 2) and (2 3 0); faces of more corners are cut by Triangulate. The mesh
/// is checked here, once: faces of fewer than three corners, with an index outside the points,
/// reaching past the end of the indices or with a NaN corner give no triangle, and the faces after
/// them keep their numbers and corners (a negative count takes no indices).
///
/// \code
///   const ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
///   const ovo::Array<int> counts = {3, 4, 4}, indices = {0, 1, 9, 0, 1, 2, 3, 3, 2, 1, 0};
///   const vela::TriangleAccelerationModel model(points, counts, indices);
///   assert(model.size() == 4);        // face 0 names a point that is not there
///   assert(model.faceIndex(0) == 1);  // the others keep their numbers
/// \endcode
class VELA_API TriangleAccelerationModel : public AccelerationModel {
 public:
  /// \param points             positions, shared, not copied
  /// \param faceVertexCounts   corners of each face, `(faces)`
  /// \param faceVertexIndices  the faces' point indices, one face after the other
  TriangleAccelerationModel(const ovo::Array<tarn::Vec3f>& points,
                            const ovo::Array<int>& faceVertexCounts,
                            const ovo::Array<int>& faceVertexIndices);
  /// Points at `time`, faces at the earliest time: the topology of a mesh is taken as constant. In
  /// the mesh's local space.
  TriangleAccelerationModel(const ovo::MeshPrim& mesh, double time);
  /// Copies share points and have triangles of their own. @{
  TriangleAccelerationModel(const TriangleAccelerationModel&);
  TriangleAccelerationModel(TriangleAccelerationModel&&) noexcept;
  TriangleAccelerationModel& operator=(const TriangleAccelerationModel&);
  TriangleAccelerationModel& operator=(TriangleAccelerationModel&&) noexcept;
  ~TriangleAccelerationModel() override;
  /// @}

  /// Number of triangles.
  [[nodiscard]] std::size_t size() const override;
  /// Box of the triangle's three corners, not padded.
  [[nodiscard]] tarn::Box3f bounds(std::size_t i) const override;
  /// Box of all points, used or not, grown by 1e-5 on every side (rounded to float, so far from the
  /// origin not at all); empty without points.
  [[nodiscard]] tarn::Box3f bounds() const override;
  /// The ray/triangle test; faceIndex is the face that the triangle came from. The context is not
  /// looked at.
  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray, std::size_t i,
                 CollisionResult& result) const override;
  /// Always false.
  [[nodiscard]] bool exclude(const IntersectionContext& ctx, std::size_t i) const override;

  /// Number of the face that triangle i came from.
  [[nodiscard]] int faceIndex(std::size_t i) const { return triangles_[i].face; }

 protected:
  /// Fills box and triangles from the points.
  void initialize(const ovo::Array<int>& faceVertexCounts,
                  const ovo::Array<int>& faceVertexIndices);

 private:
  friend class GridAcceleration;
  friend class PrimAccelerationModelImpl;
  struct Triangle {
    int a, b, c, face;
  };
  // True when every ray finds the same in both: equal points and triangles, bit by bit.
  [[nodiscard]] bool hasSameTriangles(const TriangleAccelerationModel& other) const;
  // Equal for models that have the same triangles; looks at some of the points only.
  [[nodiscard]] std::uint64_t roughHash() const;
  ovo::Array<tarn::Vec3f> points_;
  std::vector<Triangle> triangles_;
  tarn::Box3f bounds_;
};

/// Mesh prims of a scene, each placed by its world transform and hit through its own
/// MeshAccelerator, which is built when the first ray reaches the prim and kept until the model
/// goes. Prims with equal points and faces share what is behind theirs.
///
/// Two times play a part: addMeshPrims takes transforms and boxes at the time it is given, points
/// are sampled at the model's own. Visibility, purpose and orientation are not looked at.
///
/// Threads: queries may run from several threads at once; the accelerators are guarded by a mutex.
/// Adding may not overlap with anything.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   vela::PrimAccelerationModel model(tarn::defaultTimeValue());
///   model.addMeshPrims(stage, tarn::defaultTimeValue());
///   assert(model.size() > 0);
///   assert(model[0].isValid() && !model[-1].isValid());
///   assert(!model.bounds().isEmpty());
/// \endcode
class VELA_API PrimAccelerationModel : public AccelerationModel {
 public:
  /// \param time at which the meshes' points are sampled; tarn::defaultTimeValue() gives the
  ///             default, else the first sample
  explicit PrimAccelerationModel(double time);
  PrimAccelerationModel(const PrimAccelerationModel&) = delete;
  PrimAccelerationModel& operator=(const PrimAccelerationModel&) = delete;
  ~PrimAccelerationModel() override;

  /// The prim of entry i; not valid for an i outside 0 to size() - 1.
  [[nodiscard]] ovo::Prim operator[](int i) const;

  /// Adds every mesh of a stage; null adds nothing.
  ///
  /// Holds for the three: entries follow in the order added. World boxes are those of the points at
  /// `time`, not the authored extents.
  void addMeshPrims(const std::shared_ptr<ovo::Stage>& stage, double time);
  /// Adds the given meshes as they are, each at its local-to-world transform.
  void addMeshPrims(const std::vector<ovo::MeshPrim>& meshes, double time);
  /// Adds every mesh in the subtree of a prim, itself included, breadth first: active, defined
  /// prims, no classes, with what is below instances. A start prim without a transform stands at
  /// the identity, wherever it hangs; prims without one below it stand where their parents do.
  void addMeshPrims(const ovo::Prim& prim, double time);
  /// The same three, saying what cannot be hit. The entries are those of the plain forms.
  /// \param error  when not null: of the entries added, the first that no ray can hit, and why (no
  ///               mesh, no points, a placement without an inverse), as `path: why`; or why there
  ///               are no entries. Emptied when there is nothing to say
  /// \return how many entries were added @{
  std::size_t addMeshPrims(const std::shared_ptr<ovo::Stage>& stage, double time,
                           std::string* error);
  std::size_t addMeshPrims(const std::vector<ovo::MeshPrim>& meshes, double time,
                           std::string* error);
  std::size_t addMeshPrims(const ovo::Prim& prim, double time, std::string* error);
  /// @}

  /// Number of entries.
  [[nodiscard]] std::size_t size() const override;
  /// World box of entry i; empty when the mesh has no points.
  [[nodiscard]] tarn::Box3f bounds(std::size_t i) const override;
  /// Union of the world boxes.
  [[nodiscard]] tarn::Box3f bounds() const override;
  /// Hits entry i unless the context excludes it. The ray is in world space; so are position and
  /// normal, and the normal has unit length. distance is along the given ray. primitiveIndex is the
  /// entry that built the prim's accelerator.
  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray, std::size_t i,
                 CollisionResult& result) const override;
  /// True when the prim's path is among the excluded, or its type is not among the included ones
  /// where there are any.
  [[nodiscard]] bool exclude(const IntersectionContext& ctx, std::size_t i) const override;

 private:
  std::unique_ptr<PrimAccelerationModelImpl> impl_;
};

/// One mesh with a grid over its triangles.
///
/// \code
///   const ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 1}};
///   const vela::MeshAccelerator mesh(points, {3}, {0, 1, 2}, 7);
///   vela::CollisionResult result;
///   const bool isHit = mesh.intersect({}, {{0.25f, 0.25f, 5.0f}, {0, 0, -1}}, result);
///   assert(isHit && result.primitiveIndex == 7);
/// \endcode
class VELA_API MeshAccelerator {
 public:
  /// \param id written into every hit's primitiveIndex
  MeshAccelerator(const ovo::Array<tarn::Vec3f>& points, const ovo::Array<int>& faceVertexCounts,
                  const ovo::Array<int>& faceVertexIndices, std::size_t id);
  /// The mesh's points at \p time, its faces at the earliest time. \p id is written into every hit.
  MeshAccelerator(const ovo::MeshPrim& mesh, std::size_t id, double time);
  MeshAccelerator(const MeshAccelerator&) = delete;
  MeshAccelerator& operator=(const MeshAccelerator&) = delete;
  ~MeshAccelerator();

  /// The grid's answer, in the mesh's local space.
  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                 CollisionResult& result) const;

 private:
  friend class PrimAccelerationModelImpl;
  struct Block;
  MeshAccelerator(std::shared_ptr<const Block> block, std::size_t id);

  std::size_t id_;
  std::shared_ptr<const Block> block_;
};

}  // namespace vela
