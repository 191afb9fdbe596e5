/// \file
/// Placed meshes, and the box in world space that a tree over them needs.
#pragma once

#include <cstdint>

#include "vela/trace/detail/TracerMath.h"
#include "vela/trace/detail/WideTree.h"

namespace vela::tracer {

/// One placed mesh. Kept small, since scenes have millions.
struct Placement {
  Affine localFromWorld;
  std::uint32_t mesh;
  std::uint32_t isUsable;
};
static_assert(sizeof(Placement) == 104);

/// The world box of a placement, safe for every ray that makeLocalRay and crossTriangle let hit.
///
/// \param out its sides are set; its index is the caller's
/// \return false when no useful box can be given: every ray must then ask the placement
bool placementBox(const Affine& localFromWorld, const MeshFrame& frame, BuildBox& out);

}  // namespace vela::tracer
