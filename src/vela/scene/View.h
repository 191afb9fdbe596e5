/// \file
/// The camera of a picture: which one, its lens, the size; rays for its pixels.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "ovo/Path.h"
#include "ovo/Stage.h"
#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/camera/Camera.h"
#include "vela/camera/LensProjection.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/Work.h"
#include "vela/scene/WorldRay.h"

namespace vela::scene {

/// From where a picture is seen, through which lens, and how large it is.
struct ViewOptions {
  ovo::Path camera;  ///< empty: the first camera of the scene, or a view of all of it
  /// LensProjection::none: as the camera is.
  LensProjection lens = LensProjection::none;
  int width = 0;  ///< pixels; 0: 1280
  /// Pixels; 0: so that the picture has the shape of the camera's film. Without a camera, and for
  /// the cylindrical lens, 16:9; for the spherical lens 2:1. From 1 to 65536.
  int height = 0;
  double time = 0.0;  ///< at which the camera is looked at
  /// When given: the camera goes around the middle of what there is to see, by so many degrees
  /// about the scene's up axis, counter-clockwise seen from above. A view that is made up is then
  /// one that shows everything from all sides.
  std::optional<double> turn = std::nullopt;
  /// Rays start on the camera's lens, by its f-stop and focus distance: see View::lensRadius.
  bool depthOfField = false;
  /// What lies outside of the camera's clipping range and planes does not show: see
  /// View::clippingPlanes. Without, the range counts along each ray from the camera.
  bool clipping = false;
};

/// A camera placed in the world, its lens and the size of the picture.
///
/// Pixel (0, 0) is top left. Pixel (px, py) has its centre at NDC x = 2 (px + 0.5) / W - 1; NDC y
/// has x's unit, so that it runs over +-H / W, up.
///
/// Threads: const calls may run from any number of threads at once.
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   ViewOptions options;
///   options.width = 640;
///   options.height = 360;
///   const std::optional<View> view = makeView(*stage, options, Extent());
///   assert(view && view->lens == vela::LensProjection::perspective);
///
///   // The ray of pixel (320, 200).
///   const tarn::Vec2f point = view->ndc(320 + 0.5, 200 + 0.5);
///   WorldRay ray;
///   view->makeRays(&point, 1, &ray);
///   assert(std::fabs(ray.direction.length() - 1.0f) < 1e-6f);
/// \endcode
struct VELA_API View {
  ovo::Path camera;  ///< of the prim; empty for a view that was made up
  LensProjection lens = LensProjection::perspective;  ///< which lens it is
  /// The lens; never null in a view of makeView()
  std::unique_ptr<LensProjectionFunction> projection;
  Camera::Sample sample;        ///< derived values included
  tarn::Mat4d worldFromCamera;  ///< without any scale that the prim has
  tarn::Vec3d up;               ///< the scene's
  /// Pixels of the picture. @{
  int width = 0, height = 0;
  /// @}
  /// A camera that was passed over, as a warning; an option that changes nothing, as a note.
  std::vector<Problem> problems;
  /// Half the focal length over the f-stop, in scene units; 0: everything is in focus. Of
  /// perspective cameras that have an f-stop and a focus distance, where it is asked for.
  double lensRadius = 0.0;
  double focusDistance = 0.0;  ///< along the axis, of what is in focus
  /// Half spaces that show, where it is asked for: x, y, z of the camera's space, scene units, with
  /// a x + b y + c z + d >= 0. Of the linear lenses the clipping range is among them, as planes at
  /// right angles to the axis. Those that hold a number that is not finite are left out.
  std::vector<tarn::Vec4d> clippingPlanes;

  /// NDC of a point of the picture, in pixels from the top left corner.
  [[nodiscard]] tarn::Vec2f ndc(double x, double y) const;

  /// Makes rays through points of the picture.
  ///
  /// \param points `count` points of the picture, NDC
  /// \param rays   has room for `count`; directions have unit length, distances are scene units. A
  ///               ray's base is the camera's position
  void makeRays(const tarn::Vec2f* points, std::size_t count, WorldRay* rays) const;
  /// The same through points of the lens: rays of one point of the picture meet where that is in
  /// focus. Without depth of field as through the middle of the lens.
  ///
  /// \param onLens `count` points of the unit disk, x to the right, y up
  /// Source: Potmesil and Chakravarty, A Lens and Aperture Camera Model for Synthetic Image
  /// Generation, SIGGRAPH 1981 (the thin lens).
  void makeRays(const tarn::Vec2f* points, const tarn::Vec2f* onLens, std::size_t count,
                WorldRay* rays) const;
};

/// Settles camera, lens and size.
///
/// A camera without a film or a focal length, or with a placement that has no inverse, cannot be
/// used. The scene's first one is passed over then, with a warning in View::problems.
///
/// \param extent  of what the picture shows
/// \param problem on failure: noSuchCamera or unusableCamera, of the camera that the options name;
///                stopped. Else untouched
/// \return nothing on failure
[[nodiscard]] VELA_API std::optional<View> makeView(const ovo::Stage& stage,
                                                    const ViewOptions& options,
                                                    const Extent& extent,
                                                    Problem* problem = nullptr,
                                                    const Work& work = {});

/// Depth of a hit: along the camera's axis for the linear lenses, from the camera for the round
/// ones.
///
/// \param direction the ray's, \p distance in its units
[[nodiscard]] VELA_API float depthOf(const View& view, const tarn::Vec3f& direction,
                                     double distance);

}  // namespace vela::scene
