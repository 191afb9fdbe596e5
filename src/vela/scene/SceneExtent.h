/// \file
/// How far the meshes of a scene reach.
#pragma once

#include <vector>

#include "tarn/Box3.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// World space.
struct Extent {
  tarn::Box3d box;  ///< empty without a finite point
  /// The farthest points in 98 directions, for framing: a box alone would leave much air around a
  /// round object. Empty with the box.
  std::vector<tarn::Vec3d> outermost;

  /// The middle of the box; zero when it is empty.
  [[nodiscard]] tarn::Vec3d center() const { return box.isEmpty() ? tarn::Vec3d() : box.center(); }
};

/// The extent of the meshes' points; those that are not finite do not count. Of the instances of
/// point instancers it is the shape's box that counts, they are too many for all their points. When
/// the work is stopped: the extent of the entries until then.
[[nodiscard]] VELA_API Extent extentOf(const MeshList& list, const Work& work = {});

}  // namespace vela::scene
