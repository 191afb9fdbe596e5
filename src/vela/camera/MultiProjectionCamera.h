/// \file
/// A camera whose parameters can be projected by any lens.
#pragma once

#include "vela/Api.h"
#include "vela/camera/Camera.h"
#include "vela/camera/LensProjection.h"

namespace vela {

/// One camera sample behind getters and setters, and a lens that belongs to somebody else.
///
/// Setters change one number each; what follows from it is up to date after validateCamera. The
/// lens must outlive the camera and its copies, which share it. Without a lens the mode is
/// LensProjection::none, the identifier empty, nothing linear, and validation takes the projection
/// matrix that a sample has without a lens.
///
/// \code
///   vela::SphericalProjection spherical;
///   vela::MultiProjectionCamera camera;
///   assert(camera.projectionMode() == vela::LensProjection::none);
///
///   camera.setFocalLength(35.0);
///   camera.setHorizontalFov(90.0);
///   camera.setProjectionFunc(&spherical);
///   camera.validateCamera();
///   assert(camera.projectionMode() == vela::LensProjection::spherical);
///   assert(std::fabs(camera.horizontalAperture() - 70.0) < 1e-9);
///   assert(camera.properties().lensMagnification() == 2.0f);
/// \endcode
class VELA_API MultiProjectionCamera : public Camera {
 public:
  /// A camera with a full-aperture film back (24.576 x 18.672), a 50 lens at f/16 focused at 2, no
  /// clipping, no lens function.
  MultiProjectionCamera();
  MultiProjectionCamera(const MultiProjectionCamera&) = default;
  MultiProjectionCamera(MultiProjectionCamera&&) = default;
  MultiProjectionCamera& operator=(const MultiProjectionCamera&) = default;
  MultiProjectionCamera& operator=(MultiProjectionCamera&&) = default;
  ~MultiProjectionCamera() override;

 protected:
  /// Lets the lens validate itself, then brings the derived values up to date through it.
  void _validateCamera() override;

 public:
  /// \name Asked of the lens
  /// \{

  /// The lens's mode; LensProjection::none without a lens.
  [[nodiscard]] virtual LensProjection projectionMode() const;
  /// The lens's name; empty without a lens.
  [[nodiscard]] virtual const char* projectionIdentifier() const;
  /// True when there is a lens under which straight lines stay straight.
  [[nodiscard]] virtual bool isBaseProjectionLinear() const;
  /// \}
  /// True when a distortion coefficient is not 0, whatever the lens makes of it.
  [[nodiscard]] virtual bool isDistorted() const;

  // Whole groups of parameters

  /// All parameters, with the derived values as of the last validation.
  [[nodiscard]] const Camera::Sample& properties() const { return sample_; }
  /// The film back.
  [[nodiscard]] const CameraSensorParameters& sensorProperties() const { return sample_.sensor; }
  /// The mount.
  [[nodiscard]] const CameraMountParameters& mountProperties() const { return sample_.mount; }
  /// The opening and the clipping distances.
  [[nodiscard]] const CameraLensApertureParameters& lensApertureProperties() const {
    return sample_.lensAp;
  }
  /// Focal length, focus and distortion.
  [[nodiscard]] const CameraOpticsParameters& opticsProperties() const { return sample_.optics; }
  /// Camera space to NDC, as of the last validation.
  [[nodiscard]] const tarn::Mat4d& projectionMatrix() const { return sample_.proj; }

  // Film window

  /// Width of the film window, in the unit of the focal length. @{
  [[nodiscard]] double horizontalAperture() const { return sample_.sensor.apertureSize.x; }
  void setHorizontalAperture(double v) { sample_.sensor.apertureSize.x = v; }
  /// @}
  /// Height of the film window, in the unit of the focal length. @{
  [[nodiscard]] double verticalAperture() const { return sample_.sensor.apertureSize.y; }
  void setVerticalAperture(double v) { sample_.sensor.apertureSize.y = v; }
  /// @}
  /// What the window adds to NDC: 2 is a whole width. @{
  [[nodiscard]] const tarn::Vec2d& windowTranslate() const {
    return sample_.sensor.apertureTranslate;
  }
  void setWindowTranslate(double x, double y) { sample_.sensor.apertureTranslate = {x, y}; }
  /// @}
  /// Angle that the window turns NDC back by, in degrees. @{
  [[nodiscard]] double windowRotateZ() const { return sample_.sensor.apertureRotate; }
  void setWindowRotateZ(double degrees) { sample_.sensor.apertureRotate = degrees; }
  /// @}
  /// What the window multiplies NDC by. @{
  [[nodiscard]] const tarn::Vec2d& windowScale() const { return sample_.sensor.apertureScale; }
  void setWindowScale(double x, double y) { sample_.sensor.apertureScale = {x, y}; }
  /// @}
  /// Sets the horizontal aperture to what shows that angle, in degrees, at the focal length as it
  /// is now.
  void setHorizontalFov(double degrees);

  // Lens

  /// Focal length over the opening's diameter. @{
  [[nodiscard]] double fStop() const { return sample_.lensAp.fStop; }
  void setfStop(double v) { sample_.lensAp.fStop = v; }
  /// @}
  /// The nearest distance that a ray covers, in scene units. @{
  [[nodiscard]] double nearPlaneDistance() const { return sample_.lensAp.clipNearDistance; }
  void setNearPlaneDistance(double v) { sample_.lensAp.clipNearDistance = v; }
  /// @}
  /// The farthest distance that a ray covers, in scene units; may be infinite. @{
  [[nodiscard]] double farPlaneDistance() const { return sample_.lensAp.clipFarDistance; }
  void setFarPlaneDistance(double v) { sample_.lensAp.clipFarDistance = v; }
  /// @}
  /// In the unit of the film window. @{
  [[nodiscard]] double focalLength() const { return sample_.optics.focalLength; }
  void setFocalLength(double v) { sample_.optics.focalLength = v; }
  /// @}
  /// From the camera to what is in focus. @{
  [[nodiscard]] double focusDistance() const { return sample_.optics.focusDistance; }
  void setFocusDistance(double v) { sample_.optics.focusDistance = v; }
  /// @}
  /// A coefficient of the distortion, which no lens of this library bends by. @{
  [[nodiscard]] double distortA() const { return sample_.optics.opticalDistortionA; }
  void setDistortA(double v) { sample_.optics.opticalDistortionA = v; }
  [[nodiscard]] double distortB() const { return sample_.optics.opticalDistortionB; }
  void setDistortB(double v) { sample_.optics.opticalDistortionB = v; }
  [[nodiscard]] double distortC() const { return sample_.optics.opticalDistortionC; }
  void setDistortC(double v) { sample_.optics.opticalDistortionC = v; }
  /// @}

  /// The lens, null for none. It stays its owner's. @{
  [[nodiscard]] LensProjectionFunction* projectionFunc() const { return projection_; }
  void setProjectionFunc(LensProjectionFunction* projection) { projection_ = projection; }
  /// @}

 private:
  Camera::Sample sample_;
  LensProjectionFunction* projection_ = nullptr;
};

}  // namespace vela
