/// \file
/// What the rays of a picture meet.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "tarn/Span.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/ObjectSpace.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/SceneMotion.h"
#include "vela/scene/SurfaceHit.h"
#include "vela/scene/Work.h"
#include "vela/scene/WorldRay.h"

namespace vela::scene {

namespace detail {
class LocalCaster;
}

/// Which structures answer the rays.
enum class CasterKind {
  /// SceneTracer: the true nearest hit, watertight, meshes as they are at the time; for pictures.
  tracer,
  /// HitDetector: what an application gets that picks with it, its tolerances and the points at the
  /// default time included. Instances of point instancers, shape prims and refinement are not for
  /// it: problems() says how many entries are left out.
  hitDetector,
};

/// Casts rays of the world into the meshes of a list.
///
/// Inside, the tracer works in single precision about the middle of the extent. That serves the
/// scene's size, not its distance from the world's zero point; it is why rays and hits are points
/// in two parts.
///
/// Threads: const calls may run from any number of threads at once.
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   const MeshFilter filter;
///   const std::optional<MeshList> list = listMeshes(*stage, filter);
///   const RayCaster caster(CasterKind::tracer, *list, extentOf(*list), filter.time);
///
///   WorldRay down;
///   down.base = {0.0, 1000.0, 0.0};
///   down.direction = {0.0f, -1.0f, 0.0f};
///   SurfaceHit hit;
///   caster.intersect(&down, 1, &hit);
///   assert(hit.hit && std::fabs(hit.position().y - (1000.0 - hit.distance)) < 1e-3);
///   std::cout << nameOf(*list, hit.entry) << " at " << hit.position() << '\n';
/// \endcode
class VELA_API RayCaster {
 public:
  /// \param list   must outlive the caster
  /// \param extent of the list
  RayCaster(CasterKind kind, const MeshList& list, const Extent& extent, double time);
  /// The same, which can be stopped between two meshes.
  /// \param problem `stopped` when the work was stopped; else untouched
  /// \return nothing when the work was stopped
  [[nodiscard]] static std::optional<RayCaster> make(CasterKind kind, const MeshList& list,
                                                     const Extent& extent, double time,
                                                     Problem* problem = nullptr,
                                                     const Work& work = {});
  /// The same for a list with motion: rays meet the scene as it is at their WorldRay::moment.
  /// Meshes are kept once, and have one tree each, whenever they stand where.
  /// \param motion of the list; must outlive the caster. The hit detector does not take it: its
  ///               rays are all of the list's own time
  [[nodiscard]] static std::optional<RayCaster> make(CasterKind kind, const MeshList& list,
                                                     const SceneMotion& motion,
                                                     const Extent& extent, double time,
                                                     Problem* problem = nullptr,
                                                     const Work& work = {});
  ~RayCaster();
  /// Takes all over. One that was moved from may only be destroyed or assigned to. @{
  RayCaster(RayCaster&&) noexcept;
  RayCaster& operator=(RayCaster&&) noexcept;
  /// @}

  /// The nearest hit of each ray; \p hits has room for \p count.
  void intersect(const WorldRay* rays, std::size_t count, SurfaceHit* hits) const;
  /// Whether anything lies in each ray's range; \p answers has room for \p count.
  void occluded(const WorldRay* rays, std::size_t count, bool* answers) const;
  /// Over spans. Where the two differ in length the shorter one counts. @{
  void intersect(tarn::Span<const WorldRay> rays, tarn::Span<SurfaceHit> hits) const {
    intersect(rays.data(), std::min(rays.size(), hits.size()), hits.data());
  }
  void occluded(tarn::Span<const WorldRay> rays, tarn::Span<bool> answers) const {
    occluded(rays.data(), std::min(rays.size(), answers.size()), answers.data());
  }
  /// @}

  /// All that the rays meet. In each entry a ray goes on behind what it met, at the next float. It
  /// goes through entry by entry, so that surfaces which lie exactly on one another are all met.
  ///
  /// \param visit called with the number of the ray and each hit; ray after ray, the entries of a
  ///              ray in no particular order
  /// All at the list's own time.
  /// \return false when the work was stopped
  bool intersectAll(const WorldRay* rays, std::size_t count,
                    const std::function<void(std::size_t ray, const SurfaceHit& hit)>& visit,
                    const Work& work = {}) const;

  /// The space of an entry's shape, for this caster's hits on it.
  [[nodiscard]] ObjectSpace objectSpace(std::size_t entry) const;

  /// What the caster does not take, as notes.
  [[nodiscard]] const std::vector<Problem>& problems() const;

 private:
  explicit RayCaster(std::unique_ptr<detail::LocalCaster> local);
  static std::optional<RayCaster> built(RayCaster caster, Problem* problem, const Work& work);
  std::unique_ptr<detail::LocalCaster> local_;
};

}  // namespace vela::scene
