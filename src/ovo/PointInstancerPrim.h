/// \file
/// Point instancers: prims that place copies of their prototypes at many points.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Array.h"
#include "ovo/Xform.h"
#include "tarn/Time.h"

namespace ovo {

/// A prim of type PointInstancer. Its lists (`protoIndices`, `positions`, `orientations`, `scales`,
/// `ids`, `invisibleIds`) are attributes and its `prototypes` a relationship: read them as such.
/// Here is what takes more than one of them.
///
/// An instance has an id: its entry in `ids`, or its index in `protoIndices` where there are no
/// ids. A scene takes instances away by their ids in two ways, which stand to each other as
/// inactive prims to invisible ones: `inactiveIds`, metadata that never varies, and `invisibleIds`,
/// an attribute that may.
///
/// Threads: as Prim.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::PointInstancerPrim trees = ovo::PointInstancerPrim::define(stage, "/Trees");
///   trees.createAttr("protoIndices", "int[]").set(ovo::Array<int>{0, 0, 1});
///   trees.setInactiveIds({1});  // without ids an instance is known by its index
///   assert(trees.computeMask() == std::vector<bool>({true, false, true}));
/// \endcode
class OVO_API PointInstancerPrim : public XformablePrim {
 public:
  /// What takes instances away.
  enum Reason {
    inactive,             ///< `inactiveIds`
    inactiveOrInvisible,  ///< these and the `invisibleIds` of the time
  };

  /// Looks at any prim as an instancer, or at none. Whether it is one, isValid() says. @{
  PointInstancerPrim() noexcept;
  explicit PointInstancerPrim(const Prim& prim);
  /// @}

  /// Makes sure that a PointInstancer is defined there, see Stage::definePrim.
  static PointInstancerPrim define(const std::shared_ptr<Stage>& stage, const Path& path);

  /// True when the prim is valid and its type is PointInstancer.
  [[nodiscard]] bool isValid() const noexcept;
  /// As isValid().
  [[nodiscard]] explicit operator bool() const { return isValid(); }

  /// The ids that are switched off: what all opinions add to the list and take from it, applied
  /// from weak to strong, each id once, in the list's order.
  ///
  /// \param ids emptied first
  /// \return false when the scene has no such list, or the prim is not valid
  bool getInactiveIds(Array<std::int64_t>& ids) const;
  /// Writes the whole list, so that weaker opinions do not count.
  /// \return false when the prim is not valid, or lies inside an instance
  bool setInactiveIds(const Array<std::int64_t>& ids) const;

  /// Which instances are there at a time: entry i is false when the id of instance i was taken
  /// away.
  ///
  /// \return as many entries as `protoIndices` has; empty when nothing is taken away. `ids` of
  ///         another count name no instances, so indices count then. Ids that no instance has are
  ///         passed over
  [[nodiscard]] std::vector<bool> computeMask(double time = tarn::defaultTimeValue(),
                                              Reason reason = inactiveOrInvisible) const;
};

}  // namespace ovo
