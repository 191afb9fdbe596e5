/// \file
/// What answers the rays of a picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Scene.h"
#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"

namespace command {

/// What a ray met; on a miss only `hit` says anything.
struct SurfaceHit {
  double distance = 0.0;       ///< in units of the ray's direction
  tarn::Vec3<float> position;  ///< in the engine's space
  tarn::Vec3<float> normal;    ///< world space, unit length, by the stored winding of the face
  std::uint32_t entry = 0;     ///< place in the mesh list
  std::int32_t face = 0;
  bool hit = false;
};

/// Rays are given in the engine's space: world space moved so that `origin()` is zero. Single
/// precision then serves the scene's size, not its distance from the world's zero point.
///
/// Threads: queries may run from any number of threads at once.
class Engine {
 public:
  virtual ~Engine() = default;
  [[nodiscard]] virtual tarn::Vec3<double> origin() const = 0;
  virtual void intersect(const tarn::Ray<float>* rays, std::size_t count,
                         SurfaceHit* hits) const = 0;
  virtual void occluded(const tarn::Ray<float>* rays, std::size_t count, bool* answers) const = 0;

  /// The nearest hit on one entry, as if there were no other. \return hit.hit
  virtual bool intersectEntry(std::size_t entry, const tarn::Ray<float>& ray,
                              SurfaceHit& hit) const = 0;
  /// The box of each entry, up to rounding; empty for what is never hit.
  [[nodiscard]] virtual std::vector<tarn::Box3<float>> entryBoxes() const = 0;
};

/// `tracer`: the true nearest hit, watertight, meshes as they are at the time; for pictures.
/// `hit-detector`: what an application gets that picks with vela::HitDetector, its tolerances and
/// the points at the default time included; its space is the world itself. Instances and shape
/// prims are left out, which is said on standard error.
/// \param list must outlive the engine
/// \throws Failure for any other name
[[nodiscard]] std::unique_ptr<Engine> makeEngine(const std::string& name, const MeshList& list,
                                                 double time, const tarn::Vec3<double>& origin);

}  // namespace command
