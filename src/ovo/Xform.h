/// \file
/// Where prims stand.
///
/// Matrices act on column vectors (see tarn/Mat4.h): local-to-world is `parentToWorld * local`.
/// Angles in files are degrees, right-handed.
#pragma once

#include <memory>
#include <unordered_map>

#include "ovo/Api.h"
#include "ovo/Prim.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"

namespace ovo {

/// A prim of a type that has a transform: Xform, the geometry types, cameras, lights, instancers,
/// volumes, skeletons. Scopes, materials and prims without a type have none: what is below them
/// stands where they stand.
///
/// Threads: as Prim.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::XformablePrim chair(stage->definePrim("/Chair", "Xform"));
///   tarn::Mat4d parentFromChair;
///   parentFromChair.translate(1, 2, 3);
///   assert(chair.isValid() && chair.setLocalXform(parentFromChair));
///   assert(chair.getLocalXform() == parentFromChair);
/// \endcode
class OVO_API XformablePrim : public Prim {
 public:
  /// Looks at any prim as one with a transform, or at none. Whether it is one, isValid() says. @{
  XformablePrim() noexcept;
  explicit XformablePrim(const Prim& prim);
  /// @}

  /// True when the prim is valid and of a type that has a transform.
  [[nodiscard]] bool isValid() const noexcept;
  /// As isValid().
  [[nodiscard]] explicit operator bool() const { return isValid(); }

  /// The product of the prim's operations in their order; the identity without any, and when not
  /// valid. At the default time an operation that only has time samples counts with its first.
  [[nodiscard]] tarn::Mat4d getLocalXform(double time = tarn::defaultTimeValue()) const;
  /// Replaces the prim's operations by one matrix. At a numeric time it becomes a sample of that
  /// matrix.
  bool setLocalXform(const tarn::Mat4d& local, double time = tarn::defaultTimeValue()) const;

  /// True when the prim stands in world space, whatever is above it.
  [[nodiscard]] bool resetsXformStack() const;
  /// True when getLocalXform may differ between two times.
  [[nodiscard]] bool mightBeTimeVarying() const;
};

/// Local-to-world matrices at one time, each computed once.
///
/// Threads: one cache belongs to one thread at a time.
///
/// \code
/// #include "tarn/Constants.h"
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::XformablePrim room(stage->definePrim("/Room", "Xform"));
///   const ovo::XformablePrim chair(stage->definePrim("/Room/Chair", "Xform"));
///   tarn::Mat4d turned, moved;
///   room.setLocalXform(turned.rotateZ(tarn::kPi<double> / 2));
///   chair.setLocalXform(moved.translate(1, 0, 0));
///   ovo::XformCache cache;
///   const tarn::Vec3d position = cache.getLocalToWorld(chair).transformPoint({});
///   assert((position - tarn::Vec3d(0, 1, 0)).length() < 1e-15);
/// \endcode
class OVO_API XformCache {
 public:
  /// What a transform without a default value gives at the default time.
  enum Reading {
    firstSample,  ///< the default time takes the first time sample where there is no default value
    authored,     ///< as OpenUSD: at the default time, operations with nothing but samples are the
                  ///< identity
  };

  /// An empty cache for one time.
  explicit XformCache(double time = tarn::defaultTimeValue(), Reading reading = firstSample);
  /// Takes over what is computed. One that was moved from may only be destroyed or assigned to. @{
  XformCache(XformCache&&) noexcept;
  XformCache& operator=(XformCache&&) noexcept;
  /// @}
  ~XformCache();

  /// The time of all matrices; a NaN is the default time.
  [[nodiscard]] double time() const noexcept { return time_; }

  /// The prim's matrix to world space; for a prim without a transform that of the prim above it;
  /// the identity for the stage's root and for what is not valid.
  [[nodiscard]] tarn::Mat4d getLocalToWorld(const Prim& prim);

 private:
  struct Entries;
  std::unique_ptr<Entries> entries_;
  double time_;
  Reading reading_;
};

}  // namespace ovo
