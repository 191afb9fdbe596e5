/// \file
/// The camera of a picture and its rays.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "Scene.h"
#include "ovo/Stage.h"
#include "tarn/Mat4.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"
#include "vela/camera/Camera.h"
#include "vela/camera/LensProjection.h"
#include "vela/camera/RayContext.h"

namespace command {

struct ViewOptions {
  std::string camera;  ///< path; empty: the first camera of the scene, or a view of all of it
  std::string lens;  ///< perspective, orthographic, spherical, cylindrical; empty: as the camera is
  int width = 0, height = 0;  ///< 0: 1280x720, for the spherical lens 1280x640
  double time = 0.0;
};

/// A camera placed in the world, its lens and the size of the picture.
///
/// Pixel (0, 0) is top left. Pixel (px, py) has its centre at NDC x = 2 (px + 0.5) / W - 1; NDC y
/// has x's unit, so that it runs over +-H / W, up.
struct View {
  std::string camera;  ///< path of the prim; empty for a view that was made up
  vela::LensProjection lens = vela::LensProjection::perspective;
  std::unique_ptr<vela::LensProjectionFunction> projection;
  vela::Camera::Sample sample;
  tarn::Mat4<double> worldFromCamera;  ///< without any scale that the prim has
  tarn::Vec3<double> up;               ///< the scene's
  int width = 0, height = 0;

  /// NDC of a place in the picture, in pixels from the top left corner.
  [[nodiscard]] tarn::Vec2<float> ndc(double x, double y) const;
};

/// Settles camera, lens and size.
/// \param extent of what the picture shows
/// \throws Failure when the named camera is none, or the lens
[[nodiscard]] View makeView(const ovo::Stage& stage, const ViewOptions& options,
                            const Extent& extent);

/// Makes a view's rays, a batch at a time. A maker belongs to one thread.
class RayMaker {
 public:
  /// \param origin the world point that is zero in the rays' space
  RayMaker(const View& view, const tarn::Vec3<double>& origin);

  /// \param ndc   `count` places in the picture
  /// \param rays  refilled: in the space of `origin`, directions of unit length
  void make(const tarn::Vec2<float>* ndc, std::size_t count, std::vector<tarn::Ray<float>>& rays);

 private:
  const View& view_;
  tarn::Mat4<double> originFromCamera_;
  std::vector<vela::Camera::Sample> samples_;
  std::vector<vela::ProjectCoord> coords_;
  std::vector<vela::RayContext> contexts_;
};

/// Depth of a hit: along the camera's axis for the linear lenses, from the camera for the round
/// ones.
[[nodiscard]] float depthOf(const View& view, const tarn::Vec3<float>& direction, double distance);

}  // namespace command
