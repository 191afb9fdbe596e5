/// \file
/// Picking in a scene: rays in world space against all its meshes.
///
/// Which hit comes back is the rule of the structures used: a BvhAcceleration over the prims and a
/// GridAcceleration over each prim's triangles. Where the true nearest surface matters, as in
/// pictures, take SceneTracer.
///
/// Threads: queries may run from several threads at once, through one detector or many. Making and
/// destroying a model may not overlap with its queries.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   const vela::HitDetectModel model(stage, tarn::defaultTimeValue());
///   const vela::HitDetector detector(model);
///
///   vela::CollisionResult result;
///   const tarn::Ray3f down({0.0f, 1000.0f, 0.0f}, {0.0f, -1.0f, 0.0f});
///   const bool isHit = detector.intersect({}, down, result);
///   assert(isHit && std::fabs(result.position.y - (1000.0f - result.distance)) < 1e-3f);
///   const ovo::Prim prim = model.model()[static_cast<int>(result.primitiveIndex)];
///   assert(prim.isValid() && prim.getTypeName() == ovo::Token("Mesh"));
///
///   // The same ray with that prim left out.
///   vela::IntersectionContext without;
///   without.excludedPaths.insert(prim.getPath());
///   vela::CollisionResult below;
///   if (detector.intersect(without, down, below))
///     assert(below.primitiveIndex != result.primitiveIndex);
/// \endcode
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ovo/MeshPrim.h"
#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "tarn/Ray.h"
#include "vela/Api.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/Intersection.h"

namespace vela {

/// The meshes of a scene at a time, ready to be hit.
///
/// Transforms and boxes are those at `time`. Each mesh's points are read when the first ray reaches
/// the mesh, and always at the default time: points that are animated stand still, whatever time is
/// asked for.
class VELA_API HitDetectModel {
 public:
  /// Every mesh of the stage; a null stage gives a model that is never hit.
  HitDetectModel(const std::shared_ptr<ovo::Stage>& stage, double time);
  /// The given meshes.
  HitDetectModel(const std::vector<ovo::MeshPrim>& meshes, double time);
  /// Every mesh in the prim's subtree. See PrimAccelerationModel::addMeshPrims for what the three
  /// take.
  HitDetectModel(const ovo::Prim& prim, double time);
  /// The same three, saying what cannot be hit; see PrimAccelerationModel::addMeshPrims. @{
  HitDetectModel(const std::shared_ptr<ovo::Stage>& stage, double time, std::string* error);
  HitDetectModel(const std::vector<ovo::MeshPrim>& meshes, double time, std::string* error);
  HitDetectModel(const ovo::Prim& prim, double time, std::string* error);
  /// @}
  HitDetectModel(const HitDetectModel&) = delete;
  HitDetectModel& operator=(const HitDetectModel&) = delete;
  ~HitDetectModel();

  /// The entries: `model()[result.primitiveIndex]` is the prim that was hit.
  [[nodiscard]] const PrimAccelerationModel& model() const;

 private:
  friend class HitDetector;
  struct Record;
  std::unique_ptr<Record> record_;
};

/// A light handle that casts rays into a model, which it refers to and does not own.
class VELA_API HitDetector {
 public:
  /// Rays into a model, which must outlive it.
  explicit HitDetector(const HitDetectModel& model);
  HitDetector(const HitDetector&) = delete;
  HitDetector& operator=(const HitDetector&) = delete;
  ~HitDetector();

  /// \param ray    in world space
  /// \param result on a hit: distance along the given ray, world position, unit world normal (of
  ///               the stored winding), primitiveIndex = the prim's entry, faceIndex = the mesh's
  ///               face. On a miss: untouched
  /// \return true on a hit
  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                 CollisionResult& result) const;

 private:
  struct Record;
  std::unique_ptr<Record> record_;
};

}  // namespace vela
