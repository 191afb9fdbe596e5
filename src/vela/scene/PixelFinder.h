/// \file
/// Where a point of the world shows in a picture.
#pragma once

#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/View.h"

namespace vela::scene {

/// The inverse of View::makeRays, for all four lenses.
///
/// The view must outlive the finder and not change meanwhile. Threads: const calls may run from any
/// number of threads at once.
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   const std::optional<View> view = makeView(*stage, ViewOptions(), Extent());
///   const tarn::Vec2f point = view->ndc(320.5, 200.5);
///   WorldRay ray;
///   view->makeRays(&point, 1, &ray);
///
///   const PixelFinder finder(*view);
///   tarn::Vec2d pixel;
///   const bool isInFront =
///       finder.find(ray.base + ray.offset + tarn::Vec3d(ray.direction) * 100.0, pixel);
///   assert(isInFront && (pixel - tarn::Vec2d(320.5, 200.5)).length() < 1e-3);
/// \endcode
class VELA_API PixelFinder {
 public:
  /// For a view, which must outlive it.
  explicit PixelFinder(const View& view);

  /// \param pixel on success: in pixels from the top left corner; pixel (0, 0) reaches from 0 to 1.
  ///              May lie outside the picture, and then need not be the nearest such point: the
  ///              round lenses show a full circle
  /// \return false for what no pixel shows wherever it lies: a point at or behind the plane of a
  ///         perspective camera, on the axis of a cylinder or in the middle of a sphere, and one
  ///         that is not finite. \p pixel is not to be used then
  bool find(const tarn::Vec3d& world, tarn::Vec2d& pixel) const;

 private:
  const View& view_;
  tarn::Mat4d cameraFromWorld_, ndcFromWindow_;
};

}  // namespace vela::scene
