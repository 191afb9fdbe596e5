/// \file
/// The base of every structure over a model, and the one that asks each primitive in turn.
///
/// Holds for every structure: it keeps a reference to its model, which must outlive it, and looks
/// at the model's sizes and boxes once, when it is made. Afterwards it is read-only: any number of
/// threads may query it at once, as long as the model's own `intersect` allows that. Queries
/// allocate nothing unless said.
#pragma once

#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/intersect/Intersection.h"

namespace vela {

class AccelerationModel;

/// Receives one box and its colour (red, green, blue, alpha).
using DrawBoxFunc = void (*)(const tarn::Box3f&, const tarn::Vec4f&);

/// What every structure over a model can do.
///
/// \code
///   const ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 1}};
///   const vela::TriangleAccelerationModel model(points, {3}, {0, 1, 2});
///
///   const vela::NoAcceleration none(model);
///   const vela::GridAcceleration grid(model);
///   const vela::BvhAcceleration tree(model, true);
///   const vela::Acceleration* const structures[] = {&none, &grid, &tree};
///   for (const vela::Acceleration* structure : structures) {
///     vela::CollisionResult result;
///     const bool isHit = structure->intersect({}, {{0.25f, 0.25f, 5.0f}, {0, 0, -1}}, result);
///     assert(isHit && result.distance == 4.75f);
///   }
/// \endcode
class VELA_API Acceleration {
 public:
  /// Over a model, which must outlive it.
  explicit Acceleration(const AccelerationModel& model);
  Acceleration(const Acceleration&) = default;
  virtual ~Acceleration();

  /// Finds a primitive of the model along the ray.
  ///
  /// \param ray    hits count strictly inside (minDistance, maxDistance) unless the structure says
  ///               otherwise. Over triangles and meshes, one with a NaN misses at once
  /// \param result on a hit: what the model wrote, and primitiveIndex; on a miss: untouched
  /// \return true on a hit. Which hit, when there are several, is each structure's own rule
  virtual bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                         CollisionResult& result) const = 0;

  /// Shows the structure as boxes; draws nothing here.
  virtual void draw(DrawBoxFunc drawBox) const;

  /// The model that it was made over.
  [[nodiscard]] const AccelerationModel& model() const { return *model_; }

 private:
  const AccelerationModel* model_;
};

/// Tests every primitive whose box the ray enters, in order. Always gives the nearest hit, whatever
/// the context asks for; of hits at the same distance the first primitive's.
class VELA_API NoAcceleration : public Acceleration {
 public:
  /// Over a model, which must outlive it.
  explicit NoAcceleration(const AccelerationModel& model);
  NoAcceleration(const NoAcceleration&) = default;
  NoAcceleration(NoAcceleration&&) = default;
  ~NoAcceleration() override;

  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                 CollisionResult& result) const override;
};

}  // namespace vela
