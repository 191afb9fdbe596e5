/// \file
/// Why a ray meets what it meets, and why it does not meet the rest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "vela/Api.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Work.h"
#include "vela/scene/WorldRay.h"

namespace vela::scene {

/// What becomes of a mesh along a ray.
enum class RayVerdict {
  shows,       ///< the nearest that is met
  behind,      ///< met, but something nearer shows
  clipped,     ///< met outside the ray's range alone, such as before the near plane
  missed,      ///< the ray enters its box and meets none of its faces
  culled,      ///< the ray does not even enter its box
  degenerate,  ///< it has no face with an area
  notTaken,    ///< the hit detector takes plain meshes alone
};

/// Why a mesh is none of those that the filter lets through.
enum class HiddenBy {
  nothing,     ///< it is let through
  exclude,     ///< among MeshFilter::excludedPaths, or below one of them
  mask,        ///< not among MeshFilter::maskPaths
  type,        ///< its type is not among MeshFilter::includedTypes
  visibility,  ///< it is not visible at the time
  purpose,     ///< its purpose is not among MeshFilter::purposes
};

/// What one way of answering rays makes of a mesh.
struct RayOutcome {
  RayVerdict verdict = RayVerdict::culled;  ///< the word for it
  double distance = 0.0;                    ///< of the nearest hit, in units of the ray's direction
  std::int32_t face = -1;                   ///< the scene's index; -1 without a hit
};

/// One mesh, or one instance of one.
struct RayItem {
  std::string name;                       ///< as nameOf() has it
  std::string type;                       ///< of the prim
  HiddenBy hiddenBy = HiddenBy::nothing;  ///< `nothing` for what the filter lets through
  std::string purpose;                    ///< of the prim
  /// Of what is hidden: what would become of it, with nothing else in the way. @{
  RayOutcome tracer, detector;
  /// @}
};

/// What a ray meets, in order, and what it passes by.
struct RayExplanation {
  /// By the tracer's distance, what is not met behind it in the scene's order. Those that both
  /// leave culled are counted alone, unless they were asked for.
  std::vector<RayItem> items;
  std::size_t culled = 0;  ///< how many are counted alone
  /// Prims of types that have a shape but no faces; no ray can meet them.
  std::vector<std::string> withoutFaces;
};

/// The word of a verdict: `shows`, `behind` ...
[[nodiscard]] VELA_API const char* wordOf(RayVerdict verdict);
/// `exclude`, `mask`, `type`, `visibility`, `purpose`; empty for nothing.
[[nodiscard]] VELA_API const char* wordOf(HiddenBy reason);

/// Explains a ray mesh by mesh, by the tracer and by the hit detector side by side. What the filter
/// hides is looked at too.
///
/// \param withCulled whether meshes whose boxes the ray does not enter are listed
/// \return nothing when the work was stopped, or when there are more instances than memory is
///         likely to hold
///
/// \code
///   using namespace vela::scene;
///   const auto stage = ovo::Stage::open("examples/demo/demo.usda");
///   WorldRay down;
///   down.base = {0.0, 200.0, 0.0};
///   down.direction = {0.0f, -1.0f, 0.0f};
///   const auto why = explainRay(*stage, MeshFilter(), down, false);
///   assert(why && why->items[0].tracer.verdict == RayVerdict::shows);
/// \endcode
[[nodiscard]] VELA_API std::optional<RayExplanation> explainRay(const ovo::Stage& stage,
                                                                const MeshFilter& filter,
                                                                const WorldRay& ray,
                                                                bool withCulled,
                                                                const Work& work = {});

}  // namespace vela::scene
