/// \file
/// Lenses: from image coordinates to rays, and back.
///
/// Holds for the whole file: image coordinates are NDC: x from -1 to 1 over the width, y in x's
/// unit (so it runs over +-height/width), up. Rays are in camera space, looking down -z. Batches
/// are arrays of `count` records; record i of each array belongs together, and a batch gives the
/// same bits as its coordinates one by one. Of a ray, a lens writes origin, direction with its
/// reciprocal, both neighbouring directions and the two distances; time, type and origin kind stay.
/// Single precision, except for angles and for the film window's matrix, which are double and
/// narrowed once. NaN in a coordinate gives NaN in its ray. Nothing throws. All calls
/// but validateProjection are const and safe from several threads.
///
/// \code
///   // The four corners of an image as rays of a camera.
///   vela::Camera::Sample sample;
///   sample.sensor.apertureSize = {2.0, 1.5};
///   sample.lensAp.clipFarDistance = 1000.0;
///   const std::unique_ptr<vela::LensProjectionFunction> lens(
///       vela::CreateProjectionFunc(vela::LensProjection::perspective));
///   sample.updateDerivedValues(lens.get());
///
///   const auto image = vela::ProjectionImageContext::forSize(640, 480);
///   vela::ProjectCoord corners[4];
///   for (int i = 0; i < 4; ++i) {
///     corners[i].x = i % 2 == 0 ? -1.0f : 1.0f;
///     corners[i].y = i < 2 ? image.aspect : -image.aspect;
///   }
///   vela::RayContext rays[4];
///   vela::generateCameraRays(*lens, 4, corners, sample, image, rays);
///   const tarn::Vec3f topRight = tarn::Vec3f(1.0f, 0.75f, -1.0f).normalized();
///   assert((rays[1].direction - topRight).length() < 1e-6f);
///
///   // And back: where a point of the world shows.
///   vela::ProjectCoord point;
///   point.px = 5.0f;
///   point.pz = -10.0f;
///   lens->project(sample, image, 1, &point);
///   assert(std::fabs(point.x - 0.5f) < 1e-6f && std::fabs(point.y) < 1e-6f);
/// \endcode
#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/camera/Camera.h"
#include "vela/camera/RayContext.h"

namespace vela {

/// The enumerators are reached through the enumeration, as in LensProjection::spherical; the
/// namespace keeps them out of vela.
namespace lens_projection {
/// Which of the four lenses. The numbers are exchanged with callers and never change.
enum LensProjection : int {
  perspective = 0,   ///< LinearProjection
  orthographic = 1,  ///< LinearProjection(true)
  spherical = 2,     ///< SphericalProjection
  cylindrical = 3,   ///< CylindricalProjection
  none = 4,          ///< what a lens outside the list reports
};
}  // namespace lens_projection
using lens_projection::LensProjection;

/// One image coordinate, or one point on its way to it.
struct ProjectCoord {
  float x = 0.0f;      ///< NDC
  float y = 0.0f;      ///< NDC, up, in x's unit
  float dx = 0.0f;     ///< offset to the neighbouring coordinate
  float dy = 0.0f;     ///< the same in y
  float depth = 0.0f;  ///< NDC z
  float px = 0.0f;     ///< homogeneous point in world space, for LensProjectionFunction::project
  float py = 0.0f;     ///< its y
  float pz = 0.0f;     ///< its z
  float pw = 1.0f;     ///< its w
};

static_assert(sizeof(ProjectCoord) == 9 * sizeof(float) && std::is_standard_layout_v<ProjectCoord>,
              "hosts fill arrays of these records");

/// The image that coordinates belong to.
struct ProjectionImageContext {
  float aspect = 1.0f;  ///< height over width
  int width = 0;        ///< pixels; 0 where there are none. The lenses do not read them
  int height = 0;       ///< pixels, as width

  /// The context of an image of that many pixels.
  [[nodiscard]] static ProjectionImageContext forSize(int width, int height) {
    return {static_cast<float>(height) / static_cast<float>(width), width, height};
  }
};

/// A lens.
class VELA_API LensProjectionFunction {
 protected:
  // KEEP(validate-before-destructor): compiled hosts call by position in the table of virtual
  // functions, where validation comes first.
  /// The lens's own validation, which validateProjection() runs; empty here.
  virtual void _validateProjection();

 public:
  virtual ~LensProjectionFunction();

  /// The lens that a stand-in stands for; null in every lens.
  virtual LensProjectionFunction* asLensProjectionFunction() const;
  /// The lens's name, such as "Perspective". Static storage.
  [[nodiscard]] virtual const char* identifier() const = 0;
  /// Which of the list the lens is; here LensProjection::none.
  [[nodiscard]] virtual LensProjection lensProjectionMode() const;
  /// True when straight lines stay straight.
  [[nodiscard]] virtual bool isLinear() const = 0;
  /// The part along -z of a distance along the ray at `ndc`. Unchanged where the two are not told
  /// apart.
  [[nodiscard]] virtual float distanceToLinearZ(const Camera::Sample& sample,
                                                const tarn::Vec2f& ndc, float distance) const;
  /// A magnification of the lens's own. 1 in every lens of this file: they go by the sample's.
  [[nodiscard]] virtual double lensMagnification(const Camera::Sample& sample) const;
  /// Camera space to NDC, the film window included. The lenses that are not linear have the
  /// perspective one.
  [[nodiscard]] virtual tarn::Mat4d projectionMatrix(const Camera::Sample& sample) const;
  /// What the film window does to NDC coordinates.
  [[nodiscard]] virtual tarn::Mat4d ndcTransformMatrix(const Camera::Sample& sample) const;
  /// True when coordinates outside the image still give rays. @{
  [[nodiscard]] virtual bool canBeExtendedHorizontally() const;
  [[nodiscard]] virtual bool canBeExtendedVertically() const;
  /// @}

  /// Writes the camera-space rays of a batch of coordinates.
  ///
  /// \param samples  one for each coordinate, with derived values up to date; for a camera that
  ///                 stands still see generateCameraRays
  /// \param rays     untouched when count is 0 or an array is missing
  virtual void generateRayGeometry(unsigned count, const ProjectCoord* coords,
                                   const Camera::Sample* samples,
                                   const ProjectionImageContext& image, RayContext* rays) const;

  /// Projects the world-space point of each coordinate to NDC position and depth, in place. The
  /// offsets stay.
  virtual void project(const Camera::Sample& sample, const ProjectionImageContext& image,
                       unsigned count, ProjectCoord* coords) const = 0;

  /// Runs the lens's own validation; none of the four has any.
  void validateProjection() { _validateProjection(); }
};

/// Perspective or orthographic.
///
/// Perspective rays start at the origin and pass through the window at distance 1; orthographic
/// ones start on the plane z = 0 and are parallel to -z, with the film window in scene units over
/// focal length.
///
/// \code
///   const vela::LinearProjection orthographic(true);
///   assert(orthographic.lensProjectionMode() == vela::LensProjection::orthographic);
///   assert(orthographic.isLinear() && orthographic.canBeExtendedHorizontally());
///
///   vela::Camera::Sample sample;
///   sample.sensor.apertureSize = {8.0, 6.0};
///   sample.updateDerivedValues(&orthographic);
///   vela::ProjectCoord rightEdge;
///   rightEdge.x = 1.0f;
///   vela::RayContext ray;
///   orthographic.generateRayGeometry(1, &rightEdge, &sample, {}, &ray);
///   assert(ray.origin == tarn::Vec3f(4.0f, 0.0f, 0.0f));
///   assert(ray.direction == tarn::Vec3f(0.0f, 0.0f, -1.0f));
/// \endcode
class VELA_API LinearProjection : public LensProjectionFunction {
 public:
  /// Perspective unless said.
  explicit LinearProjection(bool orthographic = false) : orthographic_(orthographic) {}

  [[nodiscard]] const char* identifier() const override;  ///< "Perspective" or "Orthographic"
  [[nodiscard]] LensProjection lensProjectionMode() const override;  ///< either of the two
  [[nodiscard]] bool isLinear() const override;
  [[nodiscard]] float distanceToLinearZ(const Camera::Sample& sample, const tarn::Vec2f& ndc,
                                        float distance) const override;
  [[nodiscard]] tarn::Mat4d projectionMatrix(const Camera::Sample& sample) const override;
  [[nodiscard]] bool canBeExtendedHorizontally() const override;
  [[nodiscard]] bool canBeExtendedVertically() const override;  ///< true
  void generateRayGeometry(unsigned count, const ProjectCoord* coords,
                           const Camera::Sample* samples, const ProjectionImageContext& image,
                           RayContext* rays) const override;
  /// Does nothing for an orthographic lens, and nothing where the sample has distortion.
  void project(const Camera::Sample& sample, const ProjectionImageContext& image, unsigned count,
               ProjectCoord* coords) const override;

 protected:
  bool orthographic_;  ///< as constructed
};

/// A linear lens behind a distortion that only its host knows: it has the matrices, but makes no
/// rays and projects nothing.
///
/// \code
///   const vela::WarpedLinearProjection lens;
///   assert(!lens.isLinear() && lens.canBeExtendedVertically());
///
///   vela::Camera::Sample sample;
///   sample.updateDerivedValues(&lens);
///   vela::RayContext ray;
///   const vela::ProjectCoord centre;
///   lens.generateRayGeometry(1, &centre, &sample, {}, &ray);
///   assert(ray.direction == tarn::Vec3f());  // the host's to fill in
/// \endcode
class VELA_API WarpedLinearProjection : public LinearProjection {
 public:
  /// Reports that mode; perspective unless said.
  explicit WarpedLinearProjection(bool orthographic = false) : LinearProjection(orthographic) {}

  [[nodiscard]] const char* identifier() const override;  ///< "WarpedLinear"
  [[nodiscard]] bool isLinear() const override;
  void generateRayGeometry(unsigned count, const ProjectCoord* coords,
                           const Camera::Sample* samples, const ProjectionImageContext& image,
                           RayContext* rays) const override;
  void project(const Camera::Sample& sample, const ProjectionImageContext& image, unsigned count,
               ProjectCoord* coords) const override;
};

/// Longitude over the width, latitude over the height; the centre looks down -z, the lower edge
/// down -y. Coordinates past the left and right edges, and past y = +-1, count as those. Projects
/// nothing.
///
/// \code
///   const vela::SphericalProjection lens;
///   vela::Camera::Sample sample;
///   sample.updateDerivedValues(&lens);
///
///   // An image twice as wide as high shows all directions: x = 0.5 is a quarter turn.
///   vela::ProjectCoord coord;
///   coord.x = 0.5f;
///   vela::RayContext ray;
///   lens.generateRayGeometry(1, &coord, &sample, {0.5f}, &ray);
///   assert((ray.direction - tarn::Vec3f(1.0f, 0.0f, 0.0f)).length() < 1e-6f);
/// \endcode
class VELA_API SphericalProjection : public LensProjectionFunction {
 public:
  [[nodiscard]] const char* identifier() const override;             ///< "Spherical"
  [[nodiscard]] LensProjection lensProjectionMode() const override;  ///< LensProjection::spherical
  [[nodiscard]] bool isLinear() const override;
  void generateRayGeometry(unsigned count, const ProjectCoord* coords,
                           const Camera::Sample* samples, const ProjectionImageContext& image,
                           RayContext* rays) const override;
  void project(const Camera::Sample& sample, const ProjectionImageContext& image, unsigned count,
               ProjectCoord* coords) const override;
};

/// Longitude over the width, the linear lens's height over the height; the centre looks down -z.
/// Coordinates past -1 and 1, in x and in y, count as those. Projects nothing.
///
/// \code
///   const vela::CylindricalProjection lens;
///   vela::Camera::Sample sample;
///   sample.updateDerivedValues(&lens);
///
///   vela::ProjectCoord coord;
///   coord.x = -0.5f;
///   vela::RayContext ray;
///   lens.generateRayGeometry(1, &coord, &sample, {0.5f}, &ray);
///   assert((ray.direction - tarn::Vec3f(-1.0f, 0.0f, 0.0f)).length() < 1e-6f);
/// \endcode
class VELA_API CylindricalProjection : public LensProjectionFunction {
 public:
  [[nodiscard]] const char* identifier() const override;  ///< "Cylindrical"
  /// Always LensProjection::cylindrical.
  [[nodiscard]] LensProjection lensProjectionMode() const override;
  [[nodiscard]] bool isLinear() const override;
  void generateRayGeometry(unsigned count, const ProjectCoord* coords,
                           const Camera::Sample* samples, const ProjectionImageContext& image,
                           RayContext* rays) const override;
  void project(const Camera::Sample& sample, const ProjectionImageContext& image, unsigned count,
               ProjectCoord* coords) const override;
};

/// "Perspective", "Orthographic", "Spherical", "Cylindrical", in the order of the enumeration.
[[nodiscard]] VELA_API const std::vector<std::string>& LensProjectionClassNameList();
/// The entry of that list; empty for anything else.
[[nodiscard]] VELA_API const std::string& LensProjectionClassName(LensProjection projection);
/// A new lens, which the caller deletes; null for anything but the four.
[[nodiscard]] VELA_API LensProjectionFunction* CreateProjectionFunc(LensProjection projection);

/// Writes the rays of one camera: bit for bit what lens.generateRayGeometry writes for `count`
/// copies of `sample`, without the copies and with one virtual call a batch at most for the lenses
/// of this file.
VELA_API void generateCameraRays(const LensProjectionFunction& lens, unsigned count,
                                 const ProjectCoord* coords, const Camera::Sample& sample,
                                 const ProjectionImageContext& image, RayContext* rays);

}  // namespace vela
