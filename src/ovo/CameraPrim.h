/// \file
/// Cameras of a scene.
#pragma once

#include <memory>

#include "ovo/Api.h"
#include "ovo/Array.h"
#include "ovo/Xform.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"

namespace ovo {

/// A camera's optics at one time. It looks along its local -z, with +y up and +x to the right.
///
/// All lengths are in scene units. Files have focal length, apertures and their offsets in tenths
/// of a unit (millimetres where a unit is a centimetre): these are a tenth of the stored numbers,
/// divided in double.
struct CameraParameters {
  bool perspective = true;   ///< false: orthographic, where the apertures are the window itself
  double focalLength = 5.0;  ///< plays no part in an orthographic camera
  double horizontalAperture = 2.0955;     ///< width of the film window
  double verticalAperture = 1.52908;      ///< height of the film window
  double horizontalApertureOffset = 0.0;  ///< moves the film window to the right
  double verticalApertureOffset = 0.0;    ///< moves the film window up
  double clippingNear = 1.0;              ///< from the camera; nearer is not seen
  double clippingFar = 1000000.0;         ///< from the camera; farther is not seen
  double fStop = 0.0;                     ///< 0: everything is in focus
  double focusDistance = 0.0;             ///< from the camera
  double shutterOpen = 0.0;               ///< time codes, relative to the frame
  double shutterClose = 0.0;              ///< time codes, relative to the frame
  double exposure = 0.0;                  ///< powers of two
  Array<tarn::Vec4f> clippingPlanes;  ///< a x + b y + c z + d < 0 is cut off, in the camera's space
};

/// A prim of type Camera.
///
/// Threads: as Prim.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::CameraPrim camera = ovo::CameraPrim::define(stage, "/Camera");
///   ovo::CameraParameters parameters;
///   parameters.focalLength = 3.5;  // in scene units
///   camera.setParameters(parameters);
///   assert(camera.getParameters().focalLength == 3.5);
///   float stored = 0.0f;
///   assert(camera.getAttr("focalLength").get(stored) && stored == 35.0f);  // in tenths of a unit
/// \endcode
class OVO_API CameraPrim : public XformablePrim {
 public:
  /// Looks at any prim as a camera, or at none. Whether it is one, isValid() says. @{
  CameraPrim() noexcept;
  explicit CameraPrim(const Prim& prim);
  /// @}

  /// Makes sure that a Camera is defined there, see Stage::definePrim.
  static CameraPrim define(const std::shared_ptr<Stage>& stage, const Path& path);

  /// True when the prim is valid and its type is Camera.
  [[nodiscard]] bool isValid() const noexcept;
  /// As isValid().
  [[nodiscard]] explicit operator bool() const { return isValid(); }

  /// The parameters at a time; the defaults of the record when not valid. A projection that is
  /// neither `perspective` nor `orthographic` counts as perspective.
  [[nodiscard]] CameraParameters getParameters(double time = tarn::defaultTimeValue()) const;
  /// Writes all parameters but the clipping planes when those are empty.
  bool setParameters(const CameraParameters& parameters,
                     double time = tarn::defaultTimeValue()) const;
};

}  // namespace ovo
